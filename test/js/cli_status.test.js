'use strict';
const test = require('node:test');
const assert = require('node:assert');

const status = require('../../lib/cli/status');
const { formatBitrate, announcement, RateMeter, LiveLines } = status;
const { parseArgs } = require('../../lib/cli/args');

test('bit rates read in the unit that suits them', () => {
  assert.strictEqual(formatBitrate(8_000_000), '8.00 Mbit/s');
  assert.strictEqual(formatBitrate(999_999), '1000.0 kbit/s');
  assert.strictEqual(formatBitrate(1500), '1.5 kbit/s');
  assert.strictEqual(formatBitrate(12.4), '12 bit/s');
});

test('the announcement names what is captured and where it goes', () => {
  const config = (...argv) => parseArgs(argv, () => 0xff);
  assert.strictEqual(announcement(config('--window', '0x3e00007', '--to', '10.0.0.9:7000', '--bitrate', '500k'), 'the X display :1'),
    'kestrane: streaming window 0x3e00007 of the X display :1 at 1920x1080, 60 fps, 500.0 kbit/s to 10.0.0.9:7000 (RTP payload type 96, SSRC 0x000000ff, encoder auto)');
  assert.match(announcement(config('--output', '1'), 'the synthetic desktop'), /^kestrane: streaming output 1 of the synthetic desktop at /);
  assert.match(announcement(config(), 'the desktop'), /^kestrane: streaming the desktop at /);
});

test('the receiver rate is the bytes since the last look', () => {
  const meter = new RateMeter(1000);
  assert.strictEqual(meter.bitsPerSecond(125_000, 2000), 1_000_000);
  assert.strictEqual(meter.bitsPerSecond(125_000 + 62_500, 2500), 1_000_000);
  assert.strictEqual(meter.bitsPerSecond(200_000, 2500), 0, 'no time passed');
});

test('on a terminal the live lines are redrawn in place; elsewhere they are printed', () => {
  const written = [];
  const tty = { isTTY: true, write: (text) => written.push(text) };
  const live = new LiveLines(tty);
  live.show(['a', 'b']);
  live.show(['c', 'd']);
  assert.deepStrictEqual(written, ['\x1b[2Ka\n\x1b[2Kb\n', '\x1b[2F\x1b[2Kc\n\x1b[2Kd\n']);
  const logged = [];
  const pipe = new LiveLines({ isTTY: false, write: (text) => logged.push(text) });
  pipe.show(['a']);
  pipe.show(['b']);
  assert.deepStrictEqual(logged, ['a\n', 'b\n']);
});

test('the receiver line says when no picture has come for two seconds instead of showing still figures', () => {
  const counters = { packets: 10, accessUnits: 3, keyFrames: 1, gaps: 0, lost: 0 };
  assert.match(status.receiverLine(counters, 1000, 1999), /^receiver  10 packets  3 pictures/);
  assert.strictEqual(status.receiverLine(counters, 0, 2000), 'receiver  no picture for 2 s: the screen is still, or the capture was lost');
  assert.match(status.receiverLine(counters, 0, 61_500), /no picture for 61 s/);
});
