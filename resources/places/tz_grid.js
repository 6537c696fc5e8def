'use strict';
// Compiles @photostructure/tz-lookup's quadtree into timezones.bin.
//
// The library is one minified function holding its tree as a string: a grid of 48 × 24 tiles
// of 7.5° (row 0 at the north), each tile either a zone or a node of four quadrants, nested up
// to nine levels. Every entry is two characters c0 c1 with value 56·c0 + c1 − 1995: values of
// at least 3136 − zoneCount name zone (value − (3136 − zoneCount)); smaller values point to a
// child node at (parent node + value + 1), the tiles counting as node −1. Quadrant q of a node
// is 2·(south half) + (east half). This module reads that tree, re-encodes it with absolute
// child indices, and checks the result against the library on a fixed set of sample points.

const fs = require('fs');
const path = require('path');

const LIBRARY = path.join(__dirname, 'node_modules/@photostructure/tz-lookup/tz.js');

function readLibraryTree() {
  const source = fs.readFileSync(LIBRARY, 'utf8');
  const tree = source.match(/var X="([^"]*)"/);
  const zones = source.match(/T=(\[[^\]]*\])/);
  if (!tree || !zones) throw new Error(`${LIBRARY}: unrecognised layout; update tz_grid.js`);
  return { tree: tree[1], zones: JSON.parse(zones[1]) };
}

const COLUMNS = 48;
const ROWS = 24;
const LEAF = 0x8000;

// Returns { columns, rows, top: Uint16Array, nodes: Uint16Array (4 per node), zones: [names] }.
// Entries with LEAF set name zone (entry & 0x7fff); others are the index of a child node,
// always greater than the index of the node holding the entry (so the tree has no cycles).
function compileTimeZoneGrid() {
  const { tree, zones } = readLibraryTree();
  const leafBase = 3136 - zones.length;
  const nodeCount = (tree.length - 2 * COLUMNS * ROWS) / 8;
  if (!Number.isInteger(nodeCount) || zones.length >= LEAF || nodeCount >= LEAF) {
    throw new Error('tz-lookup tree has an unexpected size');
  }
  const value = (index) => 56 * tree.charCodeAt(index) + tree.charCodeAt(index + 1) - 1995;
  const encode = (v, parent) => {
    if (v >= leafBase) return LEAF | (v - leafBase);
    const child = parent + v + 1;
    if (child <= parent || child >= nodeCount) throw new Error('tz-lookup tree: bad child');
    return child;
  };
  const top = new Uint16Array(COLUMNS * ROWS);
  for (let i = 0; i < top.length; i++) top[i] = encode(value(2 * i), -1);
  const nodes = new Uint16Array(nodeCount * 4);
  for (let n = 0; n < nodeCount; n++) {
    for (let q = 0; q < 4; q++) {
      nodes[4 * n + q] = encode(value(2 * COLUMNS * ROWS + 8 * n + 2 * q), n);
    }
  }
  return { columns: COLUMNS, rows: ROWS, top, nodes, zones };
}

// The lookup that places/time_zone_grid.cpp performs, in JavaScript, for the self-check.
function lookup(grid, latitude, longitude) {
  if (latitude >= 90) return 'Etc/GMT';
  // One ulp more than 360 and 180, as in the library: a point on a cell edge belongs to the
  // cell west or north of it, and 180° E and 90° S stay inside the grid.
  let x = (grid.columns * (longitude + 180)) / 360.00000000000006;
  let y = (grid.rows * (90 - latitude)) / 180.00000000000003;
  let column = Math.min(Math.floor(x), grid.columns - 1);
  let row = Math.min(Math.floor(y), grid.rows - 1);
  let entry = grid.top[row * grid.columns + column];
  x -= column;
  y -= row;
  while (!(entry & LEAF)) {
    x *= 2;
    y *= 2;
    const east = x >= 1 ? 1 : 0;
    const south = y >= 1 ? 1 : 0;
    x -= east;
    y -= south;
    entry = grid.nodes[4 * entry + 2 * south + east];
  }
  return grid.zones[entry & ~LEAF];
}

// Compares the compiled grid with the library on a deterministic lattice plus edge points.
function verifyAgainstLibrary(grid) {
  const library = require('@photostructure/tz-lookup');
  const points = [];
  for (let lat = -90; lat <= 89.99; lat += 0.37) {
    for (let lon = -180; lon <= 180; lon += 0.41) points.push([lat, lon]);
  }
  for (const lon of [-180, -179.99, 0, 179.99, 180]) {
    for (const lat of [-90, -89.99, 0, 89.99, 90]) points.push([lat, lon]);
  }
  let mismatches = 0;
  for (const [lat, lon] of points) {
    if (lookup(grid, lat, lon) !== library(lat, lon)) mismatches++;
  }
  if (mismatches > 0) {
    throw new Error(`time-zone grid disagrees with tz-lookup at ${mismatches} of ${points.length} points`);
  }
  return { points: points.length, mismatches };
}

module.exports = { compileTimeZoneGrid, verifyAgainstLibrary, lookup, LEAF };
