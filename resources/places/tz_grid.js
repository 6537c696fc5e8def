'use strict';
// Compiles geo-tz's time-zone data (timezone-boundary-builder polygons, all zones) into the
// quadtree-plus-polygons of timezones.bin, and checks the result against geo-tz itself.
//
// geo-tz keeps a quadtree over the world (index.json): a tile is either one zone (a list of
// zone indices, the first one being its answer), open sea (no entry), four sub-tiles, or a
// bucket of the zone polygons clipped to the tile (geobuf in geo.dat). We keep its tree as it
// is, so tiles wholly inside one zone stay one step away, and re-encode each bucket's polygons:
// simplified to SIMPLIFY_DEGREES, quantised to 1/UNITS_PER_DEGREE, as zigzag varint deltas.
// The lookup (here for the checks, in places/time_zone_grid.cpp for the program) descends with
// geo-tz's own tile arithmetic, so both agree on which tile holds a point.

const fs = require('fs');
const path = require('path');
const geobuf = require('geobuf');
const Pbf = require('pbf');

const DATA = path.join(__dirname, 'node_modules/geo-tz/data');
const INDEX = path.join(DATA, 'timezones.geojson.index.json');
const FEATURES = path.join(DATA, 'timezones.geojson.geo.dat');

const UNITS_PER_DEGREE = 10000;   // about 11 m
const SIMPLIFY_DEGREES = 0.0002;  // about 22 m: the size of timezones.bin is set here

const KIND_NODE = 0;
const KIND_ZONE = 1;
const KIND_BUCKET = 2;
const KIND_SEA = 3;
const entry = (kind, value) => ((kind << 30) | value) >>> 0;

// geo-tz's tile bounds: the world stops one ten-thousandth of a degree short of the poles and
// of the date line.
const LIMIT_LAT = 89.9999;
const LIMIT_LON = 179.9999;

// The nautical zone at sea: whole hours east of Greenwich, from geo-tz's longitude bands (a
// longitude on a band edge belongs to the eastern band; ±180 to UTC-12).
function seaOffset(longitude) {
  if (longitude <= -180 || longitude >= 180) return -12;
  return Math.max(-12, Math.min(12, Math.floor((longitude + 7.5) / 15)));
}
function seaZoneName(offset) {
  if (offset === 0) return 'Etc/GMT';
  return offset > 0 ? `Etc/GMT-${offset}` : `Etc/GMT+${-offset}`;
}

// Douglas-Peucker on one ring (closed: first point equals last).
function simplify(ring, tolerance) {
  const n = ring.length;
  if (n <= 4) return ring;
  const keep = new Uint8Array(n);
  keep[0] = keep[n - 1] = 1;
  const stack = [[0, n - 1]];
  const limit = tolerance * tolerance;
  while (stack.length) {
    const [a, b] = stack.pop();
    const [ax, ay] = ring[a];
    const [bx, by] = ring[b];
    const dx = bx - ax;
    const dy = by - ay;
    const length = dx * dx + dy * dy;
    let farthest = -1;
    let at = -1;
    for (let i = a + 1; i < b; i++) {
      const [px, py] = ring[i];
      let t = length === 0 ? 0 : ((px - ax) * dx + (py - ay) * dy) / length;
      t = Math.max(0, Math.min(1, t));
      const d = (ax + t * dx - px) ** 2 + (ay + t * dy - py) ** 2;
      if (d > farthest) {
        farthest = d;
        at = i;
      }
    }
    if (farthest > limit) {
      keep[at] = 1;
      stack.push([a, at], [at, b]);
    }
  }
  return ring.filter((_, i) => keep[i]);
}

// A ring as integer units, without the closing point and repeated points; null when fewer than
// three points remain (an islet smaller than the tolerance).
function quantise(ring) {
  const out = [];
  for (const [lon, lat] of simplify(ring, SIMPLIFY_DEGREES)) {
    const x = Math.round(lon * UNITS_PER_DEGREE);
    const y = Math.round(lat * UNITS_PER_DEGREE);
    const last = out[out.length - 1];
    if (!last || last[0] !== x || last[1] !== y) out.push([x, y]);
  }
  while (out.length > 1 && out[0][0] === out[out.length - 1][0] && out[0][1] === out[out.length - 1][1]) out.pop();
  return out.length >= 3 ? out : null;
}

// Returns { zones: [names], nodes: Uint32Array (4 per node: north-west, north-east,
// south-west, south-east), buckets: [[polygon]], where a polygon is { zone, rings: [[x, y]...] } }.
// `keep(bounds)` says whether a tile is kept as it is; a tile it refuses becomes the zone at
// its centre (the small sample file).
function compileTimeZoneGrid(keep = () => true) {
  const index = JSON.parse(fs.readFileSync(INDEX, 'utf8'));
  const dat = fs.readFileSync(FEATURES);
  const zones = [];
  const zoneIndex = new Map();
  const zoneOf = (name) => {
    if (!zoneIndex.has(name)) {
      zoneIndex.set(name, zones.length);
      zones.push(name);
    }
    return zoneIndex.get(name);
  };
  // The nautical zones first, so that the sea table is the same in every file.
  for (let offset = -12; offset <= 12; offset++) zoneOf(seaZoneName(offset));

  const nodes = [];
  const buckets = [];
  const library = require('geo-tz/all');
  const encode = (tile, bounds) => {
    if (!keep(bounds)) {
      const latitude = (bounds.top + bounds.bottom) / 2;
      const longitude = (bounds.left + bounds.right) / 2;
      return entry(KIND_ZONE, zoneOf(library.find(latitude, longitude)[0]));
    }
    if (tile === undefined || (Array.isArray(tile) && tile.length === 0)) return entry(KIND_SEA, 0);
    if (Array.isArray(tile)) return entry(KIND_ZONE, zoneOf(index.timezones[tile[0]]));
    if (tile.pos >= 0 && tile.len) {
      const collection = geobuf.decode(new Pbf(dat.subarray(tile.pos, tile.pos + tile.len)));
      const polygons = [];
      for (const feature of collection.features) {
        const geometry = feature.geometry;
        const parts = geometry.type === 'Polygon' ? [geometry.coordinates] : geometry.coordinates;
        for (const part of parts) {
          const rings = part.map(quantise).filter((ring) => ring);
          if (rings.length && quantise(part[0])) polygons.push({ zone: zoneOf(feature.properties.tzid), rings });
        }
      }
      buckets.push(polygons);
      return entry(KIND_BUCKET, buckets.length - 1);
    }
    const node = nodes.length;
    nodes.push(null);
    const midLat = bounds.root ? 0 : (bounds.top + bounds.bottom) / 2;
    const midLon = bounds.root ? 0 : (bounds.left + bounds.right) / 2;
    const { top, bottom, left, right } = bounds;
    // geo-tz names the quadrants a (north-east), b (north-west), c (south-west), d (south-east).
    nodes[node] = [
      encode(tile.b, { top, bottom: midLat, left, right: midLon }),
      encode(tile.a, { top, bottom: midLat, left: midLon, right }),
      encode(tile.c, { top: midLat, bottom, left, right: midLon }),
      encode(tile.d, { top: midLat, bottom, left: midLon, right }),
    ];
    return entry(KIND_NODE, node);
  };
  const world = { top: LIMIT_LAT, bottom: -LIMIT_LAT, left: -LIMIT_LON, right: LIMIT_LON, root: true };
  encode(index.lookup, world);
  return { zones, nodes: Uint32Array.from(nodes.flat()), buckets };
}

// Even-odd rule over all rings of a polygon (holes included), on the quantised units.
function insidePolygon(rings, x, y) {
  let inside = false;
  for (const ring of rings) {
    for (let i = 0, j = ring.length - 1; i < ring.length; j = i++) {
      const [xi, yi] = ring[i];
      const [xj, yj] = ring[j];
      if (yi > y !== yj > y && x < ((xj - xi) * (y - yi)) / (yj - yi) + xi) inside = !inside;
    }
  }
  return inside;
}

// The lookup that places/time_zone_grid.cpp performs.
function lookup(grid, latitude, longitude) {
  if (latitude >= 90) return 'Etc/GMT';
  const sea = () => seaZoneName(seaOffset(longitude));
  const lat = Math.max(-LIMIT_LAT, Math.min(LIMIT_LAT, latitude));
  const lon = Math.max(-LIMIT_LON, Math.min(LIMIT_LON, longitude));
  let top = LIMIT_LAT;
  let bottom = -LIMIT_LAT;
  let left = -LIMIT_LON;
  let right = LIMIT_LON;
  let midLat = 0;
  let midLon = 0;
  let value = entry(KIND_NODE, 0);
  for (;;) {
    const kind = value >>> 30;
    const payload = value & 0x3fffffff;
    if (kind === KIND_ZONE) return grid.zones[payload];
    if (kind === KIND_SEA) return sea();
    if (kind === KIND_BUCKET) {
      const x = lon * UNITS_PER_DEGREE;
      const y = lat * UNITS_PER_DEGREE;
      for (const polygon of grid.buckets[payload]) {
        if (insidePolygon(polygon.rings, x, y)) return grid.zones[polygon.zone];
      }
      return sea();
    }
    if (value !== entry(KIND_NODE, 0)) {
      midLat = (top + bottom) / 2;
      midLon = (left + right) / 2;
    }
    const north = lat >= midLat;
    const east = lon >= midLon;
    if (north) bottom = midLat;
    else top = midLat;
    if (east) left = midLon;
    else right = midLon;
    value = grid.nodes[4 * payload + 2 * (north ? 0 : 1) + (east ? 1 : 0)];
  }
}

// A deterministic generator (mulberry32), so the test set is the same on every run.
function random(seed) {
  let a = seed >>> 0;
  return () => {
    a = (a + 0x6d2b79f5) >>> 0;
    let t = a;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
}

// Points within 20 km of a zone border or a coast (islands included): vertices of the original
// polygons that are not on a tile edge, moved by up to 20 km in a random direction. Returns
// [[latitude, longitude, geo-tz's answer]].
function borderPoints(count, seed) {
  const index = JSON.parse(fs.readFileSync(INDEX, 'utf8'));
  const dat = fs.readFileSync(FEATURES);
  const library = require('geo-tz/all');
  const tiles = [];
  (function collect(tile) {
    if (!tile || Array.isArray(tile)) return;
    if (tile.pos >= 0 && tile.len) tiles.push(tile);
    else for (const key of ['a', 'b', 'c', 'd']) collect(tile[key]);
  })(index.lookup);
  const next = random(seed);
  const points = [];
  while (points.length < count) {
    const tile = tiles[Math.floor(next() * tiles.length)];
    const collection = geobuf.decode(new Pbf(dat.subarray(tile.pos, tile.pos + tile.len)));
    const feature = collection.features[Math.floor(next() * collection.features.length)];
    const geometry = feature.geometry;
    const parts = geometry.type === 'Polygon' ? [geometry.coordinates] : geometry.coordinates;
    const ring = parts[Math.floor(next() * parts.length)][0];
    const [lon0, lat0] = ring[Math.floor(next() * ring.length)];
    const bbox = collection.features.flatMap((f) => (f.geometry.type === 'Polygon' ? [f.geometry.coordinates] : f.geometry.coordinates))
      .flatMap((p) => p[0]);
    const onTileEdge = ['0', '1'].some((axis) => {
      const values = bbox.map((p) => p[axis]);
      const v = axis === '0' ? lon0 : lat0;
      return v === Math.min(...values) || v === Math.max(...values);
    });
    if (onTileEdge) continue;
    const distance = next() * 20000;
    const bearing = next() * 2 * Math.PI;
    const latitude = lat0 + (distance * Math.cos(bearing)) / 111320;
    const longitude = lon0 + (distance * Math.sin(bearing)) / (111320 * Math.max(0.05, Math.cos((lat0 * Math.PI) / 180)));
    if (Math.abs(latitude) >= 89.99 || Math.abs(longitude) >= 179.99) continue;
    const lat = Math.round(latitude * 1e6) / 1e6;
    const lon = Math.round(longitude * 1e6) / 1e6;
    points.push([lat, lon, library.find(lat, lon)[0]]);
  }
  return points;
}

// Compares the compiled grid with geo-tz on `points`; returns the agreement.
function agreement(grid, points) {
  let agree = 0;
  for (const [lat, lon, zone] of points) if (lookup(grid, lat, lon) === zone) agree++;
  return { points: points.length, agree, rate: agree / points.length };
}

module.exports = {
  compileTimeZoneGrid,
  lookup,
  borderPoints,
  agreement,
  seaZoneName,
  UNITS_PER_DEGREE,
  KIND_NODE,
  KIND_ZONE,
  KIND_BUCKET,
  KIND_SEA,
};
