'use strict';
// The snapshot path: a real encoded stream, decoded by the project's tool, written as a PNG.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const zlib = require('node:zlib');
const { spawnSync } = require('node:child_process');

const { SnapshotRecorder, decodeLastPicture, parsePpm, writeSnapshot, TOOL_PATH } = require('../../lib/cli/snapshot');
const { openReceiver } = require('../../lib/cli/receiver');
const helpers = require('./helpers/rtp_packets');

const PATTERN_TOOL = path.join(path.dirname(TOOL_PATH), 'h264_test_pattern');
// Quadrants clockwise from the top left; the pattern turns one place each picture.
const COLOURS = [[255, 0, 0], [0, 255, 0], [255, 255, 255], [0, 0, 255]];

function encodePattern(width, height, frames) {
  const run = spawnSync(PATTERN_TOOL, [String(width), String(height), String(frames)], { maxBuffer: 64 << 20 });
  assert.strictEqual(run.status, 0, `${PATTERN_TOOL} ran (build it with npm run bootstrap): ${run.stderr}`);
  return run.stdout;
}

// The colour at the middle of each quadrant of an RGB picture.
function quadrantColours({ width, height, rgb }) {
  return [[1, 1], [3, 1], [3, 3], [1, 3]].map(([qx, qy]) => {
    const at = ((qy * height / 4) * width + qx * width / 4) * 3;
    return [...rgb.subarray(at, at + 3)];
  });
}

function assertPatternOf(picture, frame) {
  quadrantColours(picture).forEach((colour, quadrant) => {
    const expected = COLOURS[(quadrant + frame) % 4];
    colour.forEach((value, i) => assert.ok(Math.abs(value - expected[i]) <= 6,
      `quadrant ${quadrant} of picture ${frame}: ${colour} is near ${expected}`));
  });
}

function decodePng(file) {
  const png = fs.readFileSync(file);
  let offset = 8;
  const chunks = {};
  while (offset < png.length) {
    const length = png.readUInt32BE(offset);
    chunks[png.toString('ascii', offset + 4, offset + 8)] = png.subarray(offset + 8, offset + 8 + length);
    offset += 12 + length;
  }
  const width = chunks.IHDR.readUInt32BE(0), height = chunks.IHDR.readUInt32BE(4);
  const rows = zlib.inflateSync(chunks.IDAT);
  const rgb = Buffer.alloc(width * height * 3);
  for (let y = 0; y < height; ++y) rows.copy(rgb, y * width * 3, y * (width * 3 + 1) + 1, (y + 1) * (width * 3 + 1));
  return { width, height, rgb };
}

test('the decoder tool gives the last picture of a stream, in the colours that were encoded', () => {
  const stream = encodePattern(160, 96, 7);
  const picture = decodeLastPicture(stream);
  assert.deepStrictEqual([picture.width, picture.height], [160, 96]);
  assertPatternOf(picture, 6);
  // Cut after the first picture, the stream shows the first pattern.
  const units = helpers.accessUnitsOf(stream);
  const first = Buffer.concat(units[0].flatMap((nal) => [Buffer.from([0, 0, 0, 1]), nal]));
  assertPatternOf(decodeLastPicture(first), 0);
});

test('the decoder tool fails with one clear line when there is no picture', () => {
  assert.throws(() => decodeLastPicture(Buffer.from([0, 0, 0, 1, 0x41, 0x9a, 0x00])), /^Error: the decoder failed: h264_snapshot: no picture could be decoded from 7 bytes/);
  assert.throws(() => decodeLastPicture(Buffer.alloc(0), '/nonexistent/h264_snapshot'), /is not built; run "npm run bootstrap"/);
  assert.throws(() => parsePpm(Buffer.from('P5\n2 2\n255\n1234')), /no PPM picture/);
  assert.throws(() => parsePpm(Buffer.from('P6\n2 2\n255\n123')), /cut short \(3 of 12 bytes\)/);
});

test('the recorder keeps the stream from the latest key frame and stops at a loss', () => {
  const sps = Buffer.from([0x67, 1]), pps = Buffer.from([0x68, 2]);
  const idr = Buffer.from([0x65, 3]), p1 = Buffer.from([0x41, 4]), p2 = Buffer.from([0x41, 5]);
  const annexB = (...nals) => Buffer.concat(nals.flatMap((n) => [Buffer.from([0, 0, 0, 1]), n]));
  const recorder = new SnapshotRecorder();
  recorder.accept({ nals: [p1], keyFrame: false, damaged: false }, sps, pps);
  assert.strictEqual(recorder.hasKeyFrame, false, 'nothing before the first key frame');
  // A key frame without its parameter sets gets the last ones in front.
  recorder.accept({ nals: [idr], keyFrame: true, damaged: false }, sps, pps);
  recorder.accept({ nals: [p1], keyFrame: false, damaged: false }, sps, pps);
  assert.deepStrictEqual(recorder.annexB(), annexB(sps, pps, idr, p1));
  // After a damaged picture nothing is added until the next key frame.
  recorder.accept({ nals: [p2], keyFrame: false, damaged: true }, sps, pps);
  recorder.accept({ nals: [p2], keyFrame: false, damaged: false }, sps, pps);
  assert.deepStrictEqual(recorder.annexB(), annexB(sps, pps, idr, p1));
  recorder.accept({ nals: [sps, pps, idr], keyFrame: true, damaged: false }, sps, pps);
  recorder.accept({ nals: [p2], keyFrame: false, damaged: false }, sps, pps);
  assert.deepStrictEqual(recorder.annexB(), annexB(sps, pps, idr, p2));

  // Past its limit the recorder keeps what it has.
  const small = new SnapshotRecorder(30);
  small.accept({ nals: [sps, pps, idr], keyFrame: true, damaged: false }, sps, pps);
  small.accept({ nals: [p1, p1, p1], keyFrame: false, damaged: false }, sps, pps);
  assert.deepStrictEqual(small.annexB(), annexB(sps, pps, idr));
});

test('a stream received over RTP becomes a PNG of its last picture', async (t) => {
  const stream = encodePattern(320, 192, 6);
  const units = helpers.accessUnitsOf(stream);
  assert.ok(units[0].some((nal) => nal.length > 1180), 'the key frame is large enough to be fragmented');

  const port = await helpers.freeUdpPort();
  const recorder = new SnapshotRecorder();
  const receiver = await openReceiver({
    ip: '127.0.0.1', port, payloadType: 96, ssrc: 7,
    onAccessUnit: (unit) => recorder.accept(unit, receiver.lastSps, receiver.lastPps),
  });
  const sender = new helpers.LoopbackSender(port);
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrane-snapshot-'));
  t.after(async () => {
    sender.close();
    await receiver.close();
    fs.rmSync(dir, { recursive: true, force: true });
  });

  let sequence = 0;
  const packets = units.flatMap((nals, picture) => {
    const payloads = helpers.accessUnitPayloads(nals);
    return payloads.map((payload, i) => helpers.rtpPacket({
      sequence: sequence++, timestamp: picture * 3000, marker: i === payloads.length - 1, ssrc: 7, payload,
    }));
  });
  await sender.send(packets);
  assert.ok(await receiver.waitFor(() => receiver.counters.packets === packets.length, 2000));
  assert.strictEqual(receiver.counters.accessUnits, 6);
  assert.strictEqual(receiver.counters.keyFrames, 1);

  const file = path.join(dir, 'shot.png');
  writeSnapshot(recorder, file);
  const png = decodePng(file);
  assert.deepStrictEqual([png.width, png.height], [320, 192]);
  assertPatternOf(png, 5);
});

test('without a key frame there is nothing to write', () => {
  assert.throws(() => writeSnapshot(new SnapshotRecorder(), '/tmp/unused.png'), /no key frame was received/);
});
