'use strict';
// The Ombrine page: one place's forecast, the radar map with storms and fires, tides, sun,
// threats and trips, all from this server's API (no outside address is ever asked).

const REFERENCE_TO_UNIX = 978307200; // records count seconds from 2001-01-01
const TOKEN = new URLSearchParams(location.search).get('token') || sessionStorage.getItem('ombrine-token') || '';
if (TOKEN) sessionStorage.setItem('ombrine-token', TOKEN);
const US_UNITS = /^en-(US|LR|MM)$/i.test(navigator.language) || /^en-US/i.test(navigator.language);
const $ = (selector) => document.querySelector(selector);
const escapeHtml = (text) => String(text ?? '').replace(/[&<>"']/g, (c) => `&#${c.charCodeAt(0)};`);

function withToken(path) {
  if (!TOKEN) return path;
  return path + (path.includes('?') ? '&' : '?') + 'token=' + encodeURIComponent(TOKEN);
}

async function api(path) {
  const response = await fetch(withToken(path), { headers: TOKEN ? { 'X-Ombrine-Token': TOKEN } : {} });
  const body = await response.json().catch(() => ({ error: `HTTP ${response.status}` }));
  if (!response.ok) throw new Error(body.error || `HTTP ${response.status}`);
  return body;
}

// --- Units and times ---------------------------------------------------------------------------
const temperature = (celsius) => US_UNITS ? `${Math.round(celsius * 9 / 5 + 32)}°` : `${Math.round(celsius)}°`;
const speed = (metresPerSecond) => US_UNITS ? `${Math.round(metresPerSecond * 2.23694)} mph` : `${Math.round(metresPerSecond * 3.6)} km/h`;
const depth = (millimetres) => US_UNITS ? `${(millimetres / 25.4).toFixed(2)} in` : `${millimetres.toFixed(1)} mm`;
const fromRecord = (seconds) => new Date((seconds + REFERENCE_TO_UNIX) * 1000);
let placeZone = undefined;
const clock = (date) => date.toLocaleTimeString(undefined, { hour: '2-digit', minute: '2-digit', timeZone: placeZone });
const weekday = (date) => date.toLocaleDateString(undefined, { weekday: 'short', day: 'numeric', timeZone: placeZone });
function ageText(seconds) {
  if (seconds < 90) return 'just now';
  if (seconds < 5400) return `${Math.round(seconds / 60)} min old`;
  if (seconds < 172800) return `${Math.round(seconds / 3600)} h old`;
  return `${Math.round(seconds / 86400)} days old`;
}
const compass = (degrees) => ['N', 'NE', 'E', 'SE', 'S', 'SW', 'W', 'NW'][Math.round(degrees / 45) % 8];

// --- Source states -----------------------------------------------------------------------------
const sources = new Map();
function setSource(name, state, note) {
  sources.set(name, { state, note });
  $('#sources').innerHTML = [...sources].map(([source, { state: s, note: n }]) =>
    `<li class="${s}" data-source="${escapeHtml(source)}" title="${escapeHtml(n || '')}">${escapeHtml(source)}: ${escapeHtml(s)}${n && s !== 'failed' ? ' · ' + escapeHtml(n) : ''}</li>`).join('');
}

// --- Forecast ----------------------------------------------------------------------------------
function renderForecast(answer) {
  const { place, weather, source } = answer;
  placeZone = place.timeZone;
  const current = weather.current;
  const glyph = current.weather[0] || {};
  document.title = `${place.name} ${temperature(current.temp)} · Ombrine`;
  $('#now').innerHTML = `
    <h2>${escapeHtml(place.name)}</h2>
    <div class="temp" data-testid="current-temp">${temperature(current.temp)}</div>
    <div>${escapeHtml(glyph.description || '')}</div>
    <div class="now-grid">
      <span class="muted">Feels like</span><span>${temperature(current.feelsLike)}</span>
      <span class="muted">Wind</span><span>${speed(current.windSpeed)} ${compass(current.windDeg)}${current.windGust ? ', gusts ' + speed(current.windGust) : ''}</span>
      <span class="muted">Humidity</span><span>${current.humidity} %</span>
      <span class="muted">Pressure</span><span>${current.pressure ?? '–'} hPa</span>
      <span class="muted">Updated</span><span>${clock(fromRecord(current.dt))}</span>
    </div>`;
  renderHourly(weather.hourly.slice(0, 48));
  $('#days').innerHTML = weather.daily.map((day) => `
    <li><span>${weekday(fromRecord(day.dt))}</span><span>${escapeHtml((day.weather[0] || {}).description || '')}</span>
    <span class="pop">${day.pop >= 0.1 ? Math.round(day.pop * 100) + '%' : ''}</span>
    <span class="range">${temperature(day.temp.min)} / ${temperature(day.temp.max)}</span></li>`).join('');
  const warnings = weather.alerts || [];
  $('#warnings').hidden = warnings.length === 0;
  $('#warnings').innerHTML = '<h2>Warnings</h2>' + warnings.map((alert) => `
    <div class="warning"><strong>${escapeHtml(alert.event)}</strong> <span class="muted">${escapeHtml(alert.senderName)}</span>
    <div class="muted">${clock(fromRecord(alert.start))}${alert.end ? ' – ' + clock(fromRecord(alert.end)) : ''}</div></div>`).join('');
  const name = Object.values(weather.attribution?.name || {})[0]?.serviceName;
  $('#attribution').textContent = name ? `Forecast: ${name}.` : '';
  setSource('forecast', source.state, source.state === 'stale' ? `${ageText(source.ageSeconds)} (${source.error})` : ageText(source.ageSeconds));
}

function svg(width, height, inner) {
  return `<svg viewBox="0 0 ${width} ${height}" width="100%" preserveAspectRatio="none" role="img">${inner}</svg>`;
}

function renderHourly(hours) {
  if (!hours.length) { $('#hourly').innerHTML = '<p class="muted">No hourly forecast.</p>'; return; }
  const width = 960, height = 180, top = 16, bottom = 150;
  const temps = hours.map((h) => h.temp);
  const low = Math.min(...temps) - 1, high = Math.max(...temps) + 1;
  const x = (i) => 30 + i * (width - 40) / Math.max(1, hours.length - 1);
  const y = (t) => bottom - (t - low) / (high - low) * (bottom - top);
  const bars = hours.map((h, i) => {
    const amount = (h.rain?.['1h'] || 0) + (h.snow?.['1h'] || 0);
    const barHeight = Math.min(60, Math.max(h.pop * 30, amount * 10));
    return barHeight > 0.5 ? `<rect class="chart-bar" x="${x(i) - 6}" y="${bottom - barHeight}" width="12" height="${barHeight}"><title>${Math.round(h.pop * 100)}% · ${depth(amount)}</title></rect>` : '';
  }).join('');
  const line = hours.map((h, i) => `${i ? 'L' : 'M'}${x(i).toFixed(1)},${y(h.temp).toFixed(1)}`).join('');
  const labels = hours.map((h, i) => i % 3 ? '' :
    `<text x="${x(i)}" y="${height - 12}" text-anchor="middle">${clock(fromRecord(h.dt))}</text>` +
    `<text x="${x(i)}" y="${y(h.temp) - 6}" text-anchor="middle">${temperature(h.temp)}</text>`).join('');
  $('#hourly').innerHTML = svg(width, height,
    `<line class="chart-grid" x1="20" x2="${width}" y1="${bottom}" y2="${bottom}"/>${bars}<path class="chart-temp" d="${line}"/>${labels}`);
}

async function loadForecast(query) {
  setSource('forecast', 'loading');
  try {
    const answer = await api('/api/forecast?' + query);
    renderForecast(answer);
    if (!performance.getEntriesByName('forecast-painted').length) {
      requestAnimationFrame(() => performance.mark('forecast-painted'));
    }
    const { latitude, longitude } = answer.place;
    const at = `at=${latitude.toFixed(4)},${longitude.toFixed(4)}`;
    map.setView([latitude, longitude], Math.max(map.getZoom(), 5));
    placeMarker.setLatLng([latitude, longitude]).addTo(map);
    localStorage.setItem('ombrine-place', query);
    loadTides(at); loadSun(at); loadThreats(at);
  } catch (error) {
    setSource('forecast', 'failed', error.message);
    loadShore();
    $('#now').innerHTML = `<p>The forecast could not be shown: ${escapeHtml(error.message)}</p>`;
  }
}

// --- Tides, sun, threats -----------------------------------------------------------------------
async function loadTides(at) {
  try {
    const { tides } = await api('/api/tides?' + at);
    if (!tides) { $('#tides').innerHTML = '<h2>Tide</h2><p class="muted">No tide station near this place.</p>'; setSource('tides', 'live', 'no station'); return; }
    const points = tides.chartPoints;
    const width = 480, height = 140;
    const t0 = points[0].date, t1 = points[points.length - 1].date;
    const heights = points.map((p) => p.height);
    const low = Math.min(...heights), high = Math.max(...heights);
    const x = (t) => (t - t0) / (t1 - t0) * width;
    const y = (h) => 120 - (h - low) / ((high - low) || 1) * 100;
    const line = points.map((p, i) => `${i ? 'L' : 'M'}${x(p.date).toFixed(1)},${y(p.height).toFixed(1)}`).join('');
    const nowX = x(Date.now() / 1000 - REFERENCE_TO_UNIX);
    const marks = tides.extremes.filter((e) => e.date >= t0 && e.date <= t1).map((e) =>
      `<text x="${x(e.date)}" y="${e.kind === 'H' ? y(e.height) - 4 : y(e.height) + 13}" text-anchor="middle">${e.kind} ${clock(fromRecord(e.date))}</text>`).join('');
    $('#tides').innerHTML = `<h2>Tide · ${escapeHtml(tides.station.name)}</h2>` +
      svg(width, height, `<path class="tide-line" d="${line}"/><line class="now-line" x1="${nowX}" x2="${nowX}" y1="0" y2="${height}"/>${marks}`);
    setSource('tides', 'live', ageText(Date.now() / 1000 - REFERENCE_TO_UNIX - tides.fetchedAt));
  } catch (error) {
    $('#tides').innerHTML = `<h2>Tide</h2><p class="muted">${escapeHtml(error.message)}</p>`;
    setSource('tides', 'failed', error.message);
  }
}

async function loadSun(at) {
  try {
    const { days } = await api('/api/sun?' + at);
    $('#sun').innerHTML = '<h2>Sun</h2><ul class="plain">' + days.slice(0, 3).map((day) => {
      const length = day.daylightSeconds != null ? `${Math.floor(day.daylightSeconds / 3600)} h ${String(Math.floor(day.daylightSeconds % 3600 / 60)).padStart(2, '0')} min` : day.daylightState;
      return `<li>${escapeHtml(day.date)}: ↑ ${day.sunrise ? clock(new Date(day.sunrise)) : '–'} ↓ ${day.sunset ? clock(new Date(day.sunset)) : '–'} · ${escapeHtml(length)}</li>`;
    }).join('') + '</ul>';
  } catch (error) {
    $('#sun').innerHTML = `<h2>Sun</h2><p class="muted">${escapeHtml(error.message)}</p>`;
  }
}

async function loadThreats(at) {
  try {
    const found = await api('/api/threats?' + at);
    const items = found.threats.map((threat) => `
      <div class="threat" data-kind="${escapeHtml(threat.kind)}"><strong>${escapeHtml(threat.title)}</strong>
      <span>${threat.distanceKm != null ? (threat.distanceKm < 0.5 ? 'here' : `${Math.round(threat.distanceKm)} km ${threat.bearingName}`) : 'here'}</span>
      <small>${escapeHtml(threat.kind)}${threat.detail ? ' · ' + escapeHtml(threat.detail) : ''}${threat.dataAgeSeconds != null ? ' · data ' + ageText(threat.dataAgeSeconds) : ''}</small></div>`).join('');
    $('#threats').innerHTML = `<h2>Threats within ${found.radiusKm} km</h2>` + (items || '<p class="muted">Nothing threatens this place.</p>');
  } catch (error) {
    $('#threats').innerHTML = `<h2>Threats nearby</h2><p class="muted">${escapeHtml(error.message)}</p>`;
  }
}

// --- Map: shore lines, radar loop, storms, fires ----------------------------------------------
const map = L.map('map', { preferCanvas: true, worldCopyJump: true, minZoom: 2, maxZoom: 10 }).setView([30, -40], 3);
const placeMarker = L.circleMarker([0, 0], { radius: 6, color: '#1f6feb', fillOpacity: 1 });
const shore = L.geoJSON(null, { style: () => ({ color: getComputedStyle(document.body).getPropertyValue('--shore'), weight: 1, interactive: false }) }).addTo(map);
let shoreKey = '';
async function loadShore() {
  const bounds = map.getBounds().pad(0.5);
  const zoom = map.getZoom();
  const round = (v) => Math.round(v / 5) * 5;
  const box = [Math.max(-180, round(bounds.getWest()) - 5), Math.max(-85, round(bounds.getSouth()) - 5),
    Math.min(180, round(bounds.getEast()) + 5), Math.min(85, round(bounds.getNorth()) + 5)];
  const key = `${box}/${zoom}`;
  if (key === shoreKey) return;
  shoreKey = key;
  try {
    const lines = await api(`/api/land?bbox=${box.join(',')}&zoom=${zoom}`);
    if (key !== shoreKey) return;
    shore.clearLayers();
    shore.addData(lines);
  } catch (error) {
    setSource('coastline', 'failed', error.message);
  }
}

const radar = { frames: [], layers: [], index: 0, timer: null };
async function loadRadar() {
  try {
    const listing = await api('/api/radar');
    radar.layers.forEach((layer) => map.removeLayer(layer));
    radar.frames = listing.frames;
    // A frame's layer joins the map when first shown: the browser's few connections to this
    // server then go to the frame on screen and the shore, not to every frame at once.
    radar.layers = listing.frames.map((frame) => L.tileLayer(withToken(frame.tiles), {
      opacity: 0, maxNativeZoom: listing.maximumZoom, maxZoom: 10, tileSize: 256, className: 'radar-tiles',
    }));
    $('#frame').max = Math.max(0, listing.frames.length - 1);
    showFrame(listing.nowIndex);
    setSource('radar', listing.source === 'service' ? 'live' : 'stale', listing.fallbackReason || `${listing.frames.length} frames`);
  } catch (error) {
    setSource('radar', 'failed', error.message);
  }
}
function showFrame(index) {
  if (!radar.frames.length) return;
  radar.index = (index + radar.frames.length) % radar.frames.length;
  const shown = radar.layers[radar.index];
  if (!map.hasLayer(shown)) shown.addTo(map);
  radar.layers.forEach((layer, i) => layer.setOpacity(i === radar.index ? 0.7 : 0));
  $('#frame').value = radar.index;
  const frame = radar.frames[radar.index];
  $('#frame-time').textContent = `${new Date(frame.time).toLocaleTimeString(undefined, { hour: '2-digit', minute: '2-digit' })}${frame.kind === 'nowcast' ? ' (forecast)' : ''}`;
  $('#frame-time').dataset.index = radar.index;
}
function togglePlay() {
  if (radar.timer) { clearInterval(radar.timer); radar.timer = null; $('#play').textContent = '▶'; return; }
  radar.timer = setInterval(() => showFrame(radar.index + 1), 700);
  $('#play').textContent = '❚❚';
}
$('#play').addEventListener('click', togglePlay);
$('#frame').addEventListener('input', (event) => showFrame(Number(event.target.value)));

// Storms and fires draw as SVG: few shapes, each one an element that can be pointed at.
const vectors = L.svg();
const stormLayer = L.layerGroup().addTo(map);
async function loadStorms() {
  try {
    const listing = await api('/api/storms');
    stormLayer.clearLayers();
    await Promise.all(listing.storms.map(async (storm) => {
      const overlay = await api('/api/storm?id=' + encodeURIComponent(storm.id)).catch(() => null);
      if (overlay) {
        L.geoJSON(overlay, {
          renderer: vectors,
          style: (feature) => feature.geometry.type.includes('Polygon')
            ? { color: '#e8590c', weight: 1, fillOpacity: 0.15, className: 'storm-cone' }
            : { color: '#e8590c', weight: 2, dashArray: feature.properties?.role === 'history' ? '' : '6 4', className: 'storm-track' },
          pointToLayer: (feature, latlng) => L.circleMarker(latlng, { radius: 3, color: '#e8590c', renderer: vectors }),
        }).addTo(stormLayer);
      }
      L.marker([storm.latitude, storm.longitude], { title: storm.title })
        .bindPopup(`<strong>${escapeHtml(storm.title)}</strong><br>${escapeHtml(storm.label || '')}<br>${storm.intensityKt ?? '–'} kt · ${escapeHtml(storm.agency)}`)
        .addTo(stormLayer);
    }));
    const basins = listing.completeCoverage.length;
    setSource('storms', basins === 6 ? 'live' : 'stale', `${listing.storms.length} active${basins === 6 ? '' : ', some basins missing'}`);
  } catch (error) {
    setSource('storms', 'failed', error.message);
  }
}

const fireLayer = L.layerGroup().addTo(map);
let fireKey = '';
async function loadFires() {
  if (map.getZoom() < 4) { fireLayer.clearLayers(); fireKey = ''; return; }
  const b = map.getBounds();
  const box = [b.getWest(), b.getSouth(), b.getEast(), b.getNorth()].map((v) => v.toFixed(1));
  const key = box.join(',');
  if (key === fireKey) return;
  fireKey = key;
  try {
    const answer = await api('/api/fires?bbox=' + key);
    fireLayer.clearLayers();
    L.geoJSON(answer.geojson, {
      renderer: vectors,
      style: () => ({ color: '#c92a2a', weight: 1, fillOpacity: 0.35, className: 'fire-perimeter' }),
      pointToLayer: (feature, latlng) => L.circleMarker(latlng, { radius: 5, color: '#c92a2a', fillOpacity: 0.9, className: 'fire-incident', renderer: vectors }),
      onEachFeature: (feature, layer) => layer.bindPopup(escapeHtml(feature.properties?.name || 'Fire')),
    }).addTo(fireLayer);
    const states = answer.list.sources || [];
    const failed = states.filter((s) => s.state !== 'complete' && s.state !== 'not asked');
    setSource('fires', failed.length === 0 ? 'live' : failed.length === states.length ? 'failed' : 'stale',
      `${answer.list.incidents.length} incidents` + (failed.length ? `; ${failed.map((s) => s.service + ': ' + s.state).join('; ')}` : ''));
  } catch (error) {
    setSource('fires', 'failed', error.message);
  }
}
map.on('moveend', () => { loadShore(); loadFires(); });

// --- Places and trips --------------------------------------------------------------------------
async function loadPlaces() {
  try {
    const { home, favorites } = await api('/api/places');
    const all = (home ? [{ ...home, isHome: true }] : []).concat(favorites);
    $('#places').innerHTML = '<h2>Saved places</h2>' + (all.length ? '<ul class="plain">' + all.map((p) =>
      `<li><a href="#" data-at="${p.location.latitude},${p.location.longitude}">${escapeHtml(p.displayName || p.name)}</a>${p.isHome ? ' <span class="muted">(home)</span>' : ''}</li>`).join('') + '</ul>'
      : '<p class="muted">No saved places. Save one with <code>ombrine places add</code>.</p>');
    return home;
  } catch (error) {
    $('#places').innerHTML = `<h2>Saved places</h2><p class="muted">${escapeHtml(error.message)}</p>`;
    return null;
  }
}
$('#places').addEventListener('click', (event) => {
  const at = event.target.dataset?.at;
  if (!at) return;
  event.preventDefault();
  loadForecast('at=' + at);
});

async function loadTrips() {
  try {
    const { trips, days } = await api('/api/trips');
    const list = trips.map((trip) => `<li><strong>${escapeHtml(trip.destination.displayName || trip.destination.name)}</strong>
      <span class="muted">${fromRecord(trip.dates.from).toLocaleDateString()} – ${fromRecord(trip.dates.to).toLocaleDateString()}</span></li>`).join('');
    const where = days.filter((d) => d.place).map((d) => `<li>${escapeHtml(d.date)}: ${escapeHtml(d.place)}${d.onTrip ? ' ✈' : ''}</li>`).join('');
    $('#trips').innerHTML = '<h2>Trips</h2>' + (list ? `<ul class="plain">${list}</ul>` : '<p class="muted">No trips planned.</p>') +
      (where && list ? `<h2>Where you will be</h2><ul class="plain">${where}</ul>` : '');
  } catch (error) {
    $('#trips').innerHTML = `<h2>Trips</h2><p class="muted">${escapeHtml(error.message)}</p>`;
  }
}

// --- Search ------------------------------------------------------------------------------------
let searchTimer = null;
$('#query').addEventListener('input', () => {
  clearTimeout(searchTimer);
  const text = $('#query').value.trim();
  if (text.length < 2) return;
  searchTimer = setTimeout(async () => {
    const matches = await api('/api/search?q=' + encodeURIComponent(text)).catch(() => []);
    $('#matches').innerHTML = matches.map((m) => `<option value="${escapeHtml([m.name, m.admin1, m.country].filter(Boolean).join(', '))}">`).join('');
  }, 200);
});
$('#search').addEventListener('submit', (event) => {
  event.preventDefault();
  const text = $('#query').value.trim();
  if (text) loadForecast('q=' + encodeURIComponent(text));
});

// --- Start -------------------------------------------------------------------------------------
(async () => {
  const asked = new URLSearchParams(location.search);
  const initial = asked.get('q') ? 'q=' + encodeURIComponent(asked.get('q'))
    : asked.get('at') ? 'at=' + encodeURIComponent(asked.get('at')) : localStorage.getItem('ombrine-place');
  const homePromise = loadPlaces();
  if (initial) {
    loadForecast(initial);
  } else {
    const home = await homePromise;
    loadForecast(home ? `at=${home.location.latitude},${home.location.longitude}` : 'q=New York');
  }
  // The shore lines follow the map's moves (the forecast's place moves it first).
  loadRadar(); loadStorms(); loadFires(); loadTrips();
  setInterval(loadRadar, 5 * 60 * 1000);
})();
