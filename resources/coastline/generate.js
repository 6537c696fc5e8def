'use strict';
// Builds coastline_candidate_mask.bin and coastline_tiles.bin from the Natural Earth 1:10m
// land polygons (npm world-atlas, pinned in package-lock.json), and the small fuzz seeds of
// tides/testdata. Output is a pure function of the inputs: rerunning gives byte-identical files.
//
// The tide gate answers "is this coordinate within 6 km of salt water" in two steps: a mask of
// 0.2° cells that may hold such points, then the exact distance to the shore segments of the
// 1° tiles within 25 km. Both are built from the same simplified shore, so that the mask
// never rejects a point the segments would accept.

const fs = require('fs');
const path = require('path');
const geo = require('./geometry');
const { encodeMask, encodeTiles } = require('./format');

const HERE = __dirname;

// --- Tunables ---------------------------------------------------------------------------------
// Douglas–Peucker tolerance: the simplified shore stays within this of the data set's shore.
const SIMPLIFY_TOLERANCE_METERS = 500;
// Mask cells hold every point within this distance of a simplified segment: the gate's
// 6,000 m threshold plus room for the difference between metres on the ground and map points
// scaled at the query's latitude.
const MASK_BUFFER_METERS = 7000;
const CELL_SIZE_DEGREES = 0.2;
const TILE_SIZE_DEGREES = 1.0;
// Tiles are repeated this far past ±180°, shifted by a world, so that a query near the
// antimeridian finds the shore on the other side: the gate's 25 km radius spans at most
// 25 / (0.1 · 111.32) ≈ 2.25° of longitude (the cosine is held at 0.1 near the poles).
const WRAP_DEGREES = 2.5;

const CELLS_PER_ROW = Math.round(360 / CELL_SIZE_DEGREES);
// One more than the cells of a row, so that longitude +180° (index CELLS_PER_ROW) has a cell
// of its own instead of aliasing the next row's first cell.
const LON_INDEX_STRIDE = CELLS_PER_ROW + 1;

function shoreSegments() {
  const topology = require('world-atlas/land-10m.json');
  const { polylines, artificialEdges } = geo.coastlinePolylines(topology);
  const segments = []; // [lon0, lat0, lon1, lat1], longitudes unwrapped along the shore
  let inputEdges = 0;
  for (const line of polylines) {
    inputEdges += line.length - 1;
    const kept = geo.simplify(line, SIMPLIFY_TOLERANCE_METERS);
    for (let i = 1; i < kept.length; i++) {
      segments.push([kept[i - 1][0], kept[i - 1][1], kept[i][0], kept[i][1]]);
    }
  }
  return { segments, inputEdges, artificialEdges, polylines: polylines.length };
}

function latitudeBounds(segments) {
  let lo = 90;
  let hi = -90;
  for (const s of segments) {
    lo = Math.min(lo, s[1], s[3]);
    hi = Math.max(hi, s[1], s[3]);
  }
  return [Math.max(-90, Math.floor(lo) - 1), Math.min(90, Math.ceil(hi) + 1)];
}

// Each segment with the copies shifted by a whole world, limited to those that reach into
// [-180 - wrap, 180 + wrap]. Yields [lon0, lat0, lon1, lat1].
function* worldCopies(segment, wrap) {
  for (const shift of [-360, 0, 360]) {
    const a = segment[0] + shift;
    const b = segment[2] + shift;
    if (Math.max(a, b) < -180 - wrap || Math.min(a, b) > 180 + wrap) continue;
    yield [a, segment[1], b, segment[3]];
  }
}

function buildTiles(segments, latitudeRange) {
  const tiles = new Map();
  const lonLimit = 180 + WRAP_DEGREES;
  const firstLon = Math.floor((-lonLimit + 180) / TILE_SIZE_DEGREES);
  const lastLon = Math.floor((lonLimit + 180) / TILE_SIZE_DEGREES);
  for (const segment of segments) {
    for (const [lon0, lat0, lon1, lat1] of worldCopies(segment, WRAP_DEGREES)) {
      const record = [geo.mapX(lon0), geo.mapY(lat0), geo.mapX(lon1), geo.mapY(lat1)];
      const latFrom = Math.floor((Math.min(lat0, lat1) + 90) / TILE_SIZE_DEGREES);
      const latTo = Math.floor((Math.max(lat0, lat1) + 90) / TILE_SIZE_DEGREES);
      const lonFrom = Math.max(firstLon, Math.floor((Math.min(lon0, lon1) + 180) / TILE_SIZE_DEGREES));
      const lonTo = Math.min(lastLon, Math.floor((Math.max(lon0, lon1) + 180) / TILE_SIZE_DEGREES));
      for (let la = latFrom; la <= latTo; la++) {
        for (let lo = lonFrom; lo <= lonTo; lo++) {
          const key = la * 100000 + lo;
          let tile = tiles.get(key);
          if (!tile) {
            tile = { latitudeIndex: la, longitudeIndex: lo, segments: [] };
            tiles.set(key, tile);
          }
          tile.segments.push(record);
        }
      }
    }
  }
  const ordered = [...tiles.values()].sort(
    (p, q) => p.latitudeIndex - q.latitudeIndex || p.longitudeIndex - q.longitudeIndex,
  );
  return {
    tileSizeDegrees: TILE_SIZE_DEGREES,
    latitudeRange,
    longitudeRanges: [[-lonLimit, lonLimit]],
    tiles: ordered,
  };
}

// Splits a segment into pieces no longer than half a cell in latitude and longitude, straight
// in map points like the segment itself, and yields each piece's [lonMin, latMin, lonMax, latMax].
function* pieceBounds(lon0, lat0, lon1, lat1) {
  const steps = Math.max(
    1,
    Math.ceil(Math.abs(lon1 - lon0) / (CELL_SIZE_DEGREES / 2)),
    Math.ceil(Math.abs(lat1 - lat0) / (CELL_SIZE_DEGREES / 2)),
  );
  const y0 = geo.mapY(lat0);
  const y1 = geo.mapY(lat1);
  let previous = [lon0, lat0];
  for (let i = 1; i <= steps; i++) {
    const f = i / steps;
    const next = i === steps ? [lon1, lat1] : [lon0 + f * (lon1 - lon0), geo.latitudeOfMapY(y0 + f * (y1 - y0))];
    yield [
      Math.min(previous[0], next[0]),
      Math.min(previous[1], next[1]),
      Math.max(previous[0], next[0]),
      Math.max(previous[1], next[1]),
    ];
    previous = next;
  }
}

function buildMask(segments, latitudeRange) {
  const rows = Math.round(180 / CELL_SIZE_DEGREES) + 1;
  const marked = new Uint8Array(rows * LON_INDEX_STRIDE);
  const latBuffer = MASK_BUFFER_METERS / 110574; // the shortest degree of latitude, at the equator
  for (const segment of segments) {
    for (const [lonMin, latMin, lonMax, latMax] of pieceBounds(...segment)) {
      const south = Math.max(-90, latMin - latBuffer);
      const north = Math.min(90, latMax + latBuffer);
      const poleward = Math.max(Math.abs(south), Math.abs(north));
      const cosine = Math.cos((Math.min(poleward, 89.9) * Math.PI) / 180);
      const lonBuffer = Math.min(180, MASK_BUFFER_METERS / (111320 * cosine));
      const rowFrom = Math.floor((south + 90) / CELL_SIZE_DEGREES);
      const rowTo = Math.floor((north + 90) / CELL_SIZE_DEGREES);
      const colFrom = Math.floor((lonMin - lonBuffer + 180) / CELL_SIZE_DEGREES);
      const colTo = Math.floor((lonMax + lonBuffer + 180) / CELL_SIZE_DEGREES);
      for (let row = rowFrom; row <= rowTo; row++) {
        for (let col = colFrom; col <= colTo; col++) {
          const wrapped = ((col % CELLS_PER_ROW) + CELLS_PER_ROW) % CELLS_PER_ROW;
          marked[row * LON_INDEX_STRIDE + wrapped] = 1;
        }
      }
    }
  }
  // Longitude +180° is the same meridian as -180°: its cell is a candidate when a cell on
  // either side of the antimeridian is.
  for (let row = 0; row < rows; row++) {
    const base = row * LON_INDEX_STRIDE;
    if (marked[base] || marked[base + CELLS_PER_ROW - 1]) marked[base + CELLS_PER_ROW] = 1;
  }
  const cells = [];
  const firstRow = Math.floor((latitudeRange[0] + 90) / CELL_SIZE_DEGREES);
  const lastRow = Math.floor((latitudeRange[1] + 90) / CELL_SIZE_DEGREES);
  for (let cell = 0; cell < marked.length; cell++) {
    const row = Math.floor(cell / LON_INDEX_STRIDE);
    if (marked[cell] && row >= firstRow && row <= lastRow) cells.push(cell);
  }
  return {
    cellSizeDegrees: CELL_SIZE_DEGREES,
    lonIndexStride: LON_INDEX_STRIDE,
    latitudeRange,
    longitudeRanges: [[-180, 180]],
    cells,
  };
}

// A corner of the world cut out of both files, for fuzz seeds and quick tests.
function clipMask(mask, south, north, west, east) {
  const cells = mask.cells.filter((cell) => {
    const lat = Math.floor(cell / mask.lonIndexStride) * mask.cellSizeDegrees - 90;
    const lon = (cell % mask.lonIndexStride) * mask.cellSizeDegrees - 180;
    return lat >= south && lat < north && lon >= west && lon < east;
  });
  return { ...mask, latitudeRange: [south, north], longitudeRanges: [[west, east]], cells };
}

function clipTiles(index, south, north, west, east) {
  const size = index.tileSizeDegrees;
  const tiles = index.tiles.filter((tile) => {
    const lat = tile.latitudeIndex * size - 90;
    const lon = tile.longitudeIndex * size - 180;
    return lat >= south && lat < north && lon >= west && lon < east;
  });
  return { ...index, latitudeRange: [south, north], longitudeRanges: [[west, east]], tiles };
}

function writeSeeds(mask, tiles) {
  const testdata = path.join(HERE, '..', '..', 'tides', 'testdata');
  // The Strait of Dover: shore on both sides, open water between, inland fields.
  const [south, north, west, east] = [50.5, 51.5, 1.0, 2.0];
  const seeds = [
    ['coast_candidate_mask_fuzz', 'dover.bin', encodeMask(clipMask(mask, south, north, west, east))],
    ['coast_tile_index_fuzz', 'dover.bin', encodeTiles(clipTiles(tiles, south, north, west, east))],
  ];
  for (const [folder, name, bytes] of seeds) {
    fs.mkdirSync(path.join(testdata, folder), { recursive: true });
    fs.writeFileSync(path.join(testdata, folder, name), bytes);
  }
}

function main() {
  const shore = shoreSegments();
  const latitudeRange = latitudeBounds(shore.segments);
  const tiles = buildTiles(shore.segments, latitudeRange);
  const mask = buildMask(shore.segments, latitudeRange);
  const maskBytes = encodeMask(mask);
  const tileBytes = encodeTiles(tiles);
  fs.writeFileSync(path.join(HERE, 'coastline_candidate_mask.bin'), maskBytes);
  fs.writeFileSync(path.join(HERE, 'coastline_tiles.bin'), tileBytes);
  writeSeeds(mask, tiles);
  let stored = 0;
  for (const tile of tiles.tiles) stored += tile.segments.length;
  console.log(
    `shore: ${shore.polylines} polylines, ${shore.inputEdges} edges ` +
      `(${shore.artificialEdges} artificial edges left out), ` +
      `${shore.segments.length} segments after simplifying to ${SIMPLIFY_TOLERANCE_METERS} m`,
  );
  console.log(`coastline_candidate_mask.bin: ${mask.cells.length} cells, ${maskBytes.length} bytes`);
  console.log(`coastline_tiles.bin: ${tiles.tiles.length} tiles, ${stored} segments, ${tileBytes.length} bytes`);
}

main();
