'use strict';
// The two binary files the tide gate reads (tides/coast_candidate_mask.hpp and
// tides/coast_tile_index.hpp describe the layouts): writers for the generator, readers and
// the gate's decision for the agreement check. Little-endian, no padding, no alignment.

const MASK_MAGIC = 'OMBRCMK1';
const TILES_MAGIC = 'OMBRCTI2';

function writeRanges(buffer, offset, ranges) {
  buffer.writeUInt32LE(ranges.length, offset);
  offset += 4;
  for (const [lower, upper] of ranges) {
    buffer.writeDoubleLE(lower, offset);
    buffer.writeDoubleLE(upper, offset + 8);
    offset += 16;
  }
  return offset;
}

// mask: { cellSizeDegrees, lonIndexStride, latitudeRange: [lo, hi], longitudeRanges: [[lo, hi]...],
// cells: ascending array of unsigned 32-bit cell numbers }
function encodeMask(mask) {
  const size = 44 + 16 * mask.longitudeRanges.length + 4 * mask.cells.length;
  const buffer = Buffer.alloc(size);
  buffer.write(MASK_MAGIC, 0, 'latin1');
  buffer.writeDoubleLE(mask.cellSizeDegrees, 8);
  buffer.writeUInt32LE(mask.lonIndexStride, 16);
  buffer.writeDoubleLE(mask.latitudeRange[0], 20);
  buffer.writeDoubleLE(mask.latitudeRange[1], 28);
  let offset = writeRanges(buffer, 36, mask.longitudeRanges);
  buffer.writeUInt32LE(mask.cells.length, offset);
  offset += 4;
  for (let i = 0; i < mask.cells.length; i++) {
    if (i > 0 && mask.cells[i] <= mask.cells[i - 1]) throw new Error('mask cells must be strictly ascending');
    buffer.writeUInt32LE(mask.cells[i], offset);
    offset += 4;
  }
  return buffer;
}

// tiles: { tileSizeDegrees, latitudeRange, longitudeRanges, tiles: [{ latitudeIndex,
// longitudeIndex, segments: [[sx, sy, ex, ey]...] }] } in the order they are to be stored.
function encodeTiles(index) {
  let segmentCount = 0;
  for (const tile of index.tiles) segmentCount += tile.segments.length;
  const size = 44 + 16 * index.longitudeRanges.length + 12 * index.tiles.length + 32 * segmentCount;
  const buffer = Buffer.alloc(size);
  buffer.write(TILES_MAGIC, 0, 'latin1');
  buffer.writeDoubleLE(index.tileSizeDegrees, 8);
  buffer.writeDoubleLE(index.latitudeRange[0], 16);
  buffer.writeDoubleLE(index.latitudeRange[1], 24);
  let offset = writeRanges(buffer, 32, index.longitudeRanges);
  buffer.writeUInt32LE(index.tiles.length, offset);
  buffer.writeUInt32LE(segmentCount, offset + 4);
  offset += 8;
  for (const tile of index.tiles) {
    buffer.writeInt32LE(tile.latitudeIndex, offset);
    buffer.writeInt32LE(tile.longitudeIndex, offset + 4);
    buffer.writeUInt32LE(tile.segments.length, offset + 8);
    offset += 12;
    for (const segment of tile.segments) {
      for (let k = 0; k < 4; k++) buffer.writeDoubleLE(segment[k], offset + 8 * k);
      offset += 32;
    }
  }
  return buffer;
}

function readRanges(buffer, offset) {
  const count = buffer.readUInt32LE(offset);
  offset += 4;
  const ranges = [];
  for (let i = 0; i < count; i++, offset += 16) {
    ranges.push([buffer.readDoubleLE(offset), buffer.readDoubleLE(offset + 8)]);
  }
  return { ranges, offset };
}

function decodeMask(buffer) {
  if (buffer.toString('latin1', 0, 8) !== MASK_MAGIC) throw new Error('not a candidate mask');
  const { ranges, offset } = readRanges(buffer, 36);
  const count = buffer.readUInt32LE(offset);
  if (buffer.length !== offset + 4 + 4 * count) throw new Error('candidate mask has the wrong length');
  const cells = new Uint32Array(count);
  for (let i = 0; i < count; i++) cells[i] = buffer.readUInt32LE(offset + 4 + 4 * i);
  return {
    cellSizeDegrees: buffer.readDoubleLE(8),
    lonIndexStride: buffer.readUInt32LE(16),
    latitudeRange: [buffer.readDoubleLE(20), buffer.readDoubleLE(28)],
    longitudeRanges: ranges,
    cells,
  };
}

function decodeTiles(buffer) {
  if (buffer.toString('latin1', 0, 8) !== TILES_MAGIC) throw new Error('not a tile index');
  let { ranges, offset } = readRanges(buffer, 32);
  const tileCount = buffer.readUInt32LE(offset);
  const segmentCount = buffer.readUInt32LE(offset + 4);
  offset += 8;
  const tiles = new Map();
  const segments = new Float64Array(segmentCount * 4);
  let stored = 0;
  for (let t = 0; t < tileCount; t++) {
    const latitudeIndex = buffer.readInt32LE(offset);
    const longitudeIndex = buffer.readInt32LE(offset + 4);
    const n = buffer.readUInt32LE(offset + 8);
    offset += 12;
    const start = stored;
    for (let i = 0; i < n; i++, offset += 32, stored++) {
      for (let k = 0; k < 4; k++) segments[stored * 4 + k] = buffer.readDoubleLE(offset + 8 * k);
    }
    if (n > 0) tiles.set(`${latitudeIndex},${longitudeIndex}`, [start, stored]);
  }
  if (offset !== buffer.length || stored !== segmentCount) throw new Error('tile index has the wrong length');
  return {
    tileSizeDegrees: buffer.readDoubleLE(8),
    latitudeRange: [buffer.readDoubleLE(16), buffer.readDoubleLE(24)],
    longitudeRanges: ranges,
    tiles,
    segments,
  };
}

module.exports = { encodeMask, encodeTiles, decodeMask, decodeTiles };
