'use strict';
// Little-endian binary building blocks for the generated files.

// A growable little-endian byte buffer.
class ByteWriter {
  constructor() {
    this.buffer = Buffer.alloc(1 << 16);
    this.length = 0;
  }
  reserve(extra) {
    if (this.length + extra <= this.buffer.length) return;
    let size = this.buffer.length;
    while (size < this.length + extra) size *= 2;
    const grown = Buffer.alloc(size);
    this.buffer.copy(grown, 0, 0, this.length);
    this.buffer = grown;
  }
  u8(v) {
    this.reserve(1);
    this.buffer.writeUInt8(v, this.length);
    this.length += 1;
  }
  u16(v) {
    this.reserve(2);
    this.buffer.writeUInt16LE(v, this.length);
    this.length += 2;
  }
  u24(v) {
    this.reserve(3);
    this.buffer.writeUIntLE(v, this.length, 3);
    this.length += 3;
  }
  u32(v) {
    this.reserve(4);
    this.buffer.writeUInt32LE(v >>> 0, this.length);
    this.length += 4;
  }
  bytes(b) {
    this.reserve(b.length);
    b.copy(this.buffer, this.length);
    this.length += b.length;
  }
  ascii(text, width) {
    const b = Buffer.alloc(width);
    b.write(text, 'latin1');
    this.bytes(b);
  }
  align(n) {
    while (this.length % n) this.u8(0);
  }
  result() {
    return this.buffer.subarray(0, this.length);
  }
}

// A pool of NUL-terminated UTF-8 strings, each stored once. Offset 0 is the empty string, so
// a zero reference always reads as "absent".
class StringPool {
  constructor() {
    this.offsets = new Map();
    this.writer = new ByteWriter();
    this.add('');
  }
  add(text) {
    const known = this.offsets.get(text);
    if (known !== undefined) return known;
    const bytes = Buffer.from(text, 'utf8');
    if (bytes.includes(0)) throw new Error(`string with NUL: ${JSON.stringify(text)}`);
    const offset = this.writer.length;
    this.writer.bytes(bytes);
    this.writer.u8(0);
    this.offsets.set(text, offset);
    return offset;
  }
  result() {
    return this.writer.result();
  }
}

// Lays out a file: a header of `headerSize` bytes followed by 8-byte aligned sections, and
// returns the whole file plus each section's offset. `writeHeader(writer, sections)` must write
// exactly headerSize bytes.
function layOut(headerSize, sections, writeHeader) {
  const placed = [];
  let offset = headerSize;
  for (const bytes of sections) {
    offset = Math.ceil(offset / 8) * 8;
    placed.push({ offset, size: bytes.length });
    offset += bytes.length;
  }
  const fileSize = Math.ceil(offset / 8) * 8;
  const out = new ByteWriter();
  writeHeader(out, placed, fileSize);
  if (out.length !== headerSize) throw new Error(`header is ${out.length} bytes, not ${headerSize}`);
  sections.forEach((bytes, i) => {
    out.align(8);
    if (out.length !== placed[i].offset) throw new Error('section layout drifted');
    out.bytes(bytes);
  });
  out.align(8);
  return out.result();
}

module.exports = { ByteWriter, StringPool, layOut };
