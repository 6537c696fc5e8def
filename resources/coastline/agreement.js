'use strict';
// Measures how often the shipped coastline files change the tide gate's answer compared with
// the full-resolution Natural Earth shore: samples points near the shore, measures each one's
// distance to the unsimplified shore, and runs the gate's decision (the same steps as
// tides/tide_region_gate.cpp) on the committed coastline_candidate_mask.bin and
// coastline_tiles.bin.
//
//   node agreement.js [points=100000] [seed=1]
//
// Points are spread along the shore by length, each moved 0–12 km in a random direction, so
// that about half lie within the 6,000 m threshold. The report gives the false-negative rate
// (within 6,000 m of the real shore, refused by the gate) over all points within the
// threshold, and the false-positive rate over all points beyond it.

const fs = require('fs');
const path = require('path');
const geo = require('./geometry');
const { decodeMask, decodeTiles } = require('./format');

const THRESHOLD_METERS = 6000;
const TILE_RADIUS_KILOMETERS = 25;
const MAX_OFFSET_METERS = 12000;
const GRID_DEGREES = 0.25;

// A small deterministic generator (mulberry32) so that a report can be reproduced.
function random(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let t = state;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
}

// The unsimplified shore, bucketed by grid cell, with copies a world apart near ±180°.
function fullShore() {
  const { polylines } = geo.coastlinePolylines(require('world-atlas/land-10m.json'));
  const edges = [];
  for (const line of polylines) {
    for (let i = 1; i < line.length; i++) edges.push([line[i - 1][0], line[i - 1][1], line[i][0], line[i][1]]);
  }
  const grid = new Map();
  for (const [lon0, lat0, lon1, lat1] of edges) {
    for (const shift of [-360, 0, 360]) {
      const a = lon0 + shift;
      const b = lon1 + shift;
      if (Math.max(a, b) < -185 || Math.min(a, b) > 185) continue;
      const record = [geo.mapX(a), geo.mapY(lat0), geo.mapX(b), geo.mapY(lat1)];
      for (let r = Math.floor(Math.min(lat0, lat1) / GRID_DEGREES); r <= Math.floor(Math.max(lat0, lat1) / GRID_DEGREES); r++) {
        for (let c = Math.floor(Math.min(a, b) / GRID_DEGREES); c <= Math.floor(Math.max(a, b) / GRID_DEGREES); c++) {
          const key = `${r},${c}`;
          if (!grid.has(key)) grid.set(key, []);
          grid.get(key).push(record);
        }
      }
    }
  }
  return { edges, grid };
}

function trueDistance(shore, lat, lon) {
  const latSpan = 0.1; // > 6,000 m plus margin
  const lonSpan = Math.min(180, 0.1 / Math.max(Math.cos((lat * Math.PI) / 180), 0.01));
  const px = geo.mapX(lon);
  const py = geo.mapY(lat);
  const scale = geo.metersPerMapPoint(lat);
  let best = Infinity;
  for (let r = Math.floor((lat - latSpan) / GRID_DEGREES); r <= Math.floor((lat + latSpan) / GRID_DEGREES); r++) {
    for (let c = Math.floor((lon - lonSpan) / GRID_DEGREES); c <= Math.floor((lon + lonSpan) / GRID_DEGREES); c++) {
      for (const s of shore.grid.get(`${r},${c}`) || []) {
        best = Math.min(best, geo.segmentDistanceMeters(px, py, scale, s[0], s[1], s[2], s[3]));
      }
    }
  }
  return best;
}

function maskContains(mask, lat, lon) {
  if (!(lat >= mask.latitudeRange[0] && lat <= mask.latitudeRange[1])) return false;
  if (!mask.longitudeRanges.some(([lo, hi]) => lon >= lo && lon <= hi)) return false;
  const cell =
    Math.floor((lat + 90) / mask.cellSizeDegrees) * mask.lonIndexStride + Math.floor((lon + 180) / mask.cellSizeDegrees);
  let lo = 0;
  let hi = mask.cells.length;
  while (lo < hi) {
    const mid = (lo + hi) >>> 1;
    if (mask.cells[mid] < cell) lo = mid + 1;
    else hi = mid;
  }
  return lo < mask.cells.length && mask.cells[lo] === cell;
}

function gateDistance(tiles, lat, lon) {
  const r = TILE_RADIUS_KILOMETERS;
  const minLat = Math.max(tiles.latitudeRange[0], lat - r / 111.0);
  const maxLat = Math.min(tiles.latitudeRange[1], lat + r / 111.0);
  if (minLat > maxLat) return Infinity;
  const span = r / (Math.max(Math.cos((lat * Math.PI) / 180), 0.1) * 111.32);
  const px = geo.mapX(lon);
  const py = geo.mapY(lat);
  const scale = geo.metersPerMapPoint(lat);
  const size = tiles.tileSizeDegrees;
  let best = Infinity;
  for (const [lo, hi] of tiles.longitudeRanges) {
    const a = Math.max(lo, lon - span);
    const b = Math.min(hi, lon + span);
    if (a > b) continue;
    for (let la = Math.floor((minLat + 90) / size); la <= Math.floor((maxLat + 90) / size); la++) {
      for (let lx = Math.floor((a + 180) / size); lx <= Math.floor((b + 180) / size); lx++) {
        const range = tiles.tiles.get(`${la},${lx}`);
        if (!range) continue;
        for (let i = range[0]; i < range[1]; i++) {
          const s = tiles.segments.subarray(i * 4, i * 4 + 4);
          best = Math.min(best, geo.segmentDistanceMeters(px, py, scale, s[0], s[1], s[2], s[3]));
        }
      }
    }
  }
  return best;
}

function main() {
  const count = Number(process.argv[2] || 100000);
  const next = random(Number(process.argv[3] || 1));
  const mask = decodeMask(fs.readFileSync(path.join(__dirname, 'coastline_candidate_mask.bin')));
  const tiles = decodeTiles(fs.readFileSync(path.join(__dirname, 'coastline_tiles.bin')));
  const shore = fullShore();

  // Edge lengths in metres, cumulated, to pick shore points uniformly along the shore.
  const cumulative = new Float64Array(shore.edges.length);
  let total = 0;
  shore.edges.forEach(([lon0, lat0, lon1, lat1], i) => {
    const dy = (lat1 - lat0) * 111000;
    const dx = (lon1 - lon0) * 111320 * Math.cos((((lat0 + lat1) / 2) * Math.PI) / 180);
    total += Math.hypot(dx, dy);
    cumulative[i] = total;
  });

  const stats = { within: 0, beyond: 0, falseNegatives: 0, falsePositives: 0, maskRejectsWithin: 0, worstMiss: 0 };
  for (let n = 0; n < count; n++) {
    const target = next() * total;
    let lo = 0;
    let hi = cumulative.length - 1;
    while (lo < hi) {
      const mid = (lo + hi) >>> 1;
      if (cumulative[mid] < target) lo = mid + 1;
      else hi = mid;
    }
    const [lon0, lat0, lon1, lat1] = shore.edges[lo];
    const f = next();
    const baseLat = lat0 + f * (lat1 - lat0);
    const baseLon = lon0 + f * (lon1 - lon0);
    const bearing = next() * 2 * Math.PI;
    const offset = next() * MAX_OFFSET_METERS;
    const lat = Math.max(-89.9, Math.min(89.9, baseLat + (offset * Math.cos(bearing)) / 111000));
    let lon = baseLon + (offset * Math.sin(bearing)) / (111320 * Math.max(Math.cos((lat * Math.PI) / 180), 0.01));
    lon = ((((lon + 180) % 360) + 360) % 360) - 180;

    const truth = trueDistance(shore, lat, lon);
    const inMask = maskContains(mask, lat, lon);
    const admitted = inMask && gateDistance(tiles, lat, lon) <= THRESHOLD_METERS;
    if (truth <= THRESHOLD_METERS) {
      stats.within++;
      if (!admitted) {
        stats.falseNegatives++;
        stats.worstMiss = Math.max(stats.worstMiss, THRESHOLD_METERS - truth);
        if (!inMask) stats.maskRejectsWithin++;
      }
    } else {
      stats.beyond++;
      if (admitted) stats.falsePositives++;
    }
  }
  const percent = (a, b) => ((100 * a) / Math.max(b, 1)).toFixed(3);
  console.log(`points: ${count} (${stats.within} within ${THRESHOLD_METERS} m of the full-resolution shore, ${stats.beyond} beyond)`);
  console.log(
    `false negatives: ${stats.falseNegatives} = ${percent(stats.falseNegatives, stats.within)} % of points within ` +
      `(${stats.maskRejectsWithin} by the mask; the deepest was ${stats.worstMiss.toFixed(0)} m inside the threshold)`,
  );
  console.log(`false positives: ${stats.falsePositives} = ${percent(stats.falsePositives, stats.beyond)} % of points beyond`);
}

main();
