'use strict';
// Coastline geometry shared by the generator and the agreement check: the map projection the
// library measures in (tides/ and core/values/geo.hpp), the coastline polylines of the Natural Earth
// land polygons without their artificial edges, and line simplification.

const topojson = require('topojson-client');

// Spherical Web Mercator on a world of 2^28 map points, origin at the top-left (180° W, the
// northern edge). The library's core/values/geo.cpp computes exactly this.
const WORLD_SIZE = 268435456;
const EARTH_RADIUS_METERS = 6378137;
const METERS_PER_MAP_POINT_AT_EQUATOR = (2 * Math.PI * EARTH_RADIUS_METERS) / WORLD_SIZE;

function mapX(longitude) {
  return ((longitude + 180) / 360) * WORLD_SIZE;
}

function mapY(latitude) {
  const s = Math.sin((latitude * Math.PI) / 180);
  return (0.5 - Math.log((1 + s) / (1 - s)) / (4 * Math.PI)) * WORLD_SIZE;
}

function metersPerMapPoint(latitude) {
  return METERS_PER_MAP_POINT_AT_EQUATOR * Math.cos((latitude * Math.PI) / 180);
}

function latitudeOfMapY(y) {
  const n = Math.PI * (1 - (2 * y) / WORLD_SIZE);
  return (Math.atan(Math.sinh(n)) * 180) / Math.PI;
}

// Distance in metres from a coordinate (projected as p, scale at its latitude) to the segment
// a→b in map points: the gate's measure.
function segmentDistanceMeters(px, py, scale, ax, ay, bx, by) {
  const dx = bx - ax;
  const dy = by - ay;
  const q = dx * dx + dy * dy;
  let t = 0;
  if (q !== 0) {
    t = ((px - ax) * dx + (py - ay) * dy) / q;
    if (t >= 1) t = 1;
    else if (t < 0) t = 0;
  }
  return Math.hypot(ax + t * dx - px, ay + t * dy - py) * scale;
}

// Edges that belong to how the data set cuts the sphere, not to any shore: the cut along the
// antimeridian (both ends on the same ±180° meridian) and a closing edge along the bottom of
// the map (both ends at the southern limit).
const ANTIMERIDIAN_EPSILON = 1e-9;
const BOTTOM_LATITUDE = -89.99;

function isArtificialEdge(a, b) {
  const onMeridian = (p) => Math.abs(Math.abs(p[0]) - 180) < ANTIMERIDIAN_EPSILON;
  if (onMeridian(a) && onMeridian(b) && Math.sign(a[0]) === Math.sign(b[0])) return true;
  return a[1] <= BOTTOM_LATITUDE && b[1] <= BOTTOM_LATITUDE;
}

// The shore as open polylines of [longitude, latitude] points. Longitudes are unwrapped along
// each polyline, so an edge that crosses the antimeridian continues past ±180° instead of
// spanning the world. Zero-length edges are dropped.
function coastlinePolylines(topology) {
  const land = topojson.feature(topology, topology.objects.land);
  const features = land.type === 'FeatureCollection' ? land.features : [land];
  const polylines = [];
  let artificialEdges = 0;
  for (const feature of features) {
    const geometry = feature.geometry;
    const polygons = geometry.type === 'Polygon' ? [geometry.coordinates] : geometry.coordinates;
    for (const polygon of polygons) {
      for (const ring of polygon) {
        const split = splitRing(ring);
        artificialEdges += split.artificialEdges;
        for (const line of split.lines) polylines.push(unwrap(line));
      }
    }
  }
  return { polylines, artificialEdges };
}

function splitRing(ring) {
  const n = ring.length - 1; // closed ring: the last point repeats the first
  let firstCut = -1;
  let artificialEdges = 0;
  for (let i = 0; i < n; i++) {
    if (isArtificialEdge(ring[i], ring[i + 1])) {
      artificialEdges++;
      if (firstCut < 0) firstCut = i;
    }
  }
  if (firstCut < 0) return { lines: [ring.slice()], artificialEdges };
  // Start right after an artificial edge so that every polyline is one run of shore edges.
  const lines = [];
  let current = [];
  for (let k = 1; k <= n; k++) {
    const i = (firstCut + k) % n;
    const a = ring[i];
    const b = ring[i + 1];
    if (current.length === 0) current.push(a);
    if (isArtificialEdge(a, b)) {
      if (current.length > 1) lines.push(current);
      current = [];
    } else {
      current.push(b);
    }
  }
  if (current.length > 1) lines.push(current);
  return { lines, artificialEdges };
}

function unwrap(line) {
  const out = [];
  let shift = 0;
  let previous = null;
  for (const [lon, lat] of line) {
    if (previous) {
      const delta = lon + shift - previous[0];
      if (delta > 180) shift -= 360;
      else if (delta < -180) shift += 360;
    }
    const point = [lon + shift, lat];
    if (!previous || point[0] !== previous[0] || point[1] !== previous[1]) out.push(point);
    previous = point;
  }
  return out;
}

// Douglas–Peucker on a polyline of [longitude, latitude] points, measured in map points and
// converted to metres at the latitude of the point tested, so the tolerance means the same
// on the ground everywhere. A closed polyline keeps its first point and the point farthest
// from it. Returns the kept points in order.
function simplify(line, toleranceMeters) {
  if (line.length <= 2) return line.slice();
  const xs = line.map((p) => mapX(p[0]));
  const ys = line.map((p) => mapY(p[1]));
  const keep = new Uint8Array(line.length);
  keep[0] = 1;
  keep[line.length - 1] = 1;
  const last = line.length - 1;
  const closed = xs[0] === xs[last] && ys[0] === ys[last];
  const stack = [];
  if (closed) {
    let far = 1;
    let farDistance = -1;
    for (let i = 1; i < last; i++) {
      const d = Math.hypot(xs[i] - xs[0], ys[i] - ys[0]);
      if (d > farDistance) {
        farDistance = d;
        far = i;
      }
    }
    keep[far] = 1;
    stack.push([0, far], [far, last]);
  } else {
    stack.push([0, last]);
  }
  while (stack.length > 0) {
    const [from, to] = stack.pop();
    let worst = -1;
    let worstDistance = -1;
    for (let i = from + 1; i < to; i++) {
      const d = segmentDistanceMeters(xs[i], ys[i], metersPerMapPoint(line[i][1]), xs[from], ys[from], xs[to], ys[to]);
      if (d > worstDistance) {
        worstDistance = d;
        worst = i;
      }
    }
    if (worst >= 0 && worstDistance > toleranceMeters) {
      keep[worst] = 1;
      stack.push([from, worst], [worst, to]);
    }
  }
  return line.filter((_, i) => keep[i] === 1);
}

module.exports = {
  WORLD_SIZE,
  mapX,
  mapY,
  metersPerMapPoint,
  latitudeOfMapY,
  segmentDistanceMeters,
  coastlinePolylines,
  simplify,
};
