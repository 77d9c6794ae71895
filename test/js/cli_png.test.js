'use strict';
const test = require('node:test');
const assert = require('node:assert');
const zlib = require('node:zlib');

const { encodePng, crc32 } = require('../../lib/cli/png');

// Chunks of a PNG file, each with whether its stored CRC is right.
function readChunks(png) {
  const chunks = [];
  for (let offset = 8; offset < png.length;) {
    const length = png.readUInt32BE(offset);
    const type = png.toString('ascii', offset + 4, offset + 8);
    const data = png.subarray(offset + 8, offset + 8 + length);
    const stored = png.readUInt32BE(offset + 8 + length);
    chunks.push({ type, data, crcOk: stored === crc32(png.subarray(offset + 4, offset + 8 + length)) });
    offset += 12 + length;
  }
  return chunks;
}

test('crc32 is the CRC of PNG and zlib', () => {
  assert.strictEqual(crc32(Buffer.from('123456789')), 0xcbf43926);  // the standard check value
  assert.strictEqual(crc32(Buffer.from('IEND')), 0xae426082);
  assert.strictEqual(crc32(Buffer.alloc(0)), 0);
});

test('an RGB picture becomes a PNG whose chunks, CRCs and pixels are right', () => {
  const width = 3, height = 2;
  const rgb = Buffer.from([255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30, 40, 50, 60, 70, 80, 90]);
  const png = encodePng(width, height, rgb);
  assert.deepStrictEqual([...png.subarray(0, 8)], [0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]);
  const chunks = readChunks(png);
  assert.deepStrictEqual(chunks.map((c) => c.type), ['IHDR', 'IDAT', 'IEND']);
  assert.ok(chunks.every((c) => c.crcOk), 'every chunk CRC matches');
  const header = chunks[0].data;
  assert.deepStrictEqual([header.readUInt32BE(0), header.readUInt32BE(4), ...header.subarray(8)], [3, 2, 8, 2, 0, 0, 0]);
  assert.strictEqual(chunks[2].data.length, 0);
  // Each row: filter type 0, then the row's pixels as given.
  const rows = zlib.inflateSync(chunks[1].data);
  assert.deepStrictEqual([...rows], [0, ...rgb.subarray(0, 9), 0, ...rgb.subarray(9)]);
});

test('a pixel buffer of the wrong size is refused', () => {
  assert.throws(() => encodePng(2, 2, Buffer.alloc(11)), /expected 12 bytes of RGB, got 11/);
});
