'use strict';
const test = require('node:test');
const assert = require('node:assert');

const { parseArgs, UsageError } = require('../../lib/cli/args');

const parse = (...argv) => parseArgs(argv, () => 0xabcdef01);
const rejects = (argv, message) => assert.throws(() => parse(...argv), (error) => {
  assert.ok(error instanceof UsageError, `a UsageError for ${argv.join(' ')}`);
  assert.match(error.message, message);
  assert.ok(!error.message.includes('\n'), 'one line');
  return true;
});

test('without flags the whole first screen goes to 127.0.0.1:5004 at 1080p60 and 8 Mbit/s', () => {
  assert.deepStrictEqual(parse(), {
    captureKind: 'screen', nativeHandle: 0, width: 1920, height: 1080, fps: 60, bitrate: 8_000_000,
    encoder: 'auto', ip: '127.0.0.1', port: 5004, payloadType: 96, ssrc: 0xabcdef01,
    receiver: true, view: false, help: false, durationSeconds: null, sdpPath: null, snapshotPath: null,
    httpPort: 8080, httpHost: '127.0.0.1',
  });
  const ssrc = parseArgs([]).ssrc;
  assert.ok(Number.isInteger(ssrc) && ssrc >= 0 && ssrc <= 0xffffffff, 'a random 32-bit SSRC by default');
});

test('every flag lands in the configuration, with a space or an equals sign', () => {
  const config = parse('--output', '2', '--size=1280x720', '--fps', '30', '--bitrate', '500k', '--encoder', 'mf-h264',
    '--to', '10.1.2.3:6000', '--ssrc=0xDEADBEEF', '--payload-type', '127', '--duration', '2.5',
    '--sdp', 'out.sdp', '--snapshot', 'shot.png', '--no-receiver');
  assert.deepStrictEqual(config, {
    captureKind: 'screen', nativeHandle: 2, width: 1280, height: 720, fps: 30, bitrate: 500_000,
    encoder: 'mf-h264', ip: '10.1.2.3', port: 6000, payloadType: 127, ssrc: 0xdeadbeef,
    receiver: false, view: false, help: false, durationSeconds: 2.5, sdpPath: 'out.sdp', snapshotPath: 'shot.png',
    httpPort: 8080, httpHost: '127.0.0.1',
  });
  assert.strictEqual(parse('--help').help, true);
  assert.strictEqual(parse('-h').help, true);
  assert.strictEqual(parse('--encoder', 'nvenc').encoder, 'nvenc');
});

test('--view takes the page\'s HTTP port and host, and refuses what only the built-in receiver does', () => {
  const config = parse('--view', '--http', '9000', '--http-host', '0.0.0.0');
  assert.deepStrictEqual([config.view, config.httpPort, config.httpHost], [true, 9000, '0.0.0.0']);
  rejects(['--http', '9000'], /go with --view/);
  rejects(['--view', '--no-receiver'], /not go with --no-receiver/);
  rejects(['--view', '--snapshot', 'a.png'], /--snapshot needs the built-in receiver/);
  rejects(['--view', '--http', '70000'], /--http must be from 0 to 65535/);
  rejects(['--view', '--http-host', 'a b'], /--http-host expects a host name/);
});

test('a window id is read as xwininfo prints it, in hex or decimal', () => {
  assert.deepStrictEqual([parse('--window', '0x3e00007').captureKind, parse('--window', '0x3e00007').nativeHandle], ['window', 0x3e00007]);
  assert.strictEqual(parse('--window', '0X1A').nativeHandle, 26);
  assert.strictEqual(parse('--window', '65011719').nativeHandle, 65011719);
  rejects(['--window', '0'], /--window is out of range/);
  rejects(['--window', '0x'], /--window expects a decimal or 0x-hex number, got "0x"/);
  rejects(['--window', 'abc'], /--window expects/);
  rejects(['--window', '-5'], /--window expects/);
  rejects(['--window', '0x20000000000000'], /out of range/);
  rejects(['--window', '1', '--output', '0'], /give one of them/);
});

test('bit rates take k and M suffixes', () => {
  const bitrate = (text) => parse('--bitrate', text).bitrate;
  assert.strictEqual(bitrate('8M'), 8_000_000);
  assert.strictEqual(bitrate('8m'), 8_000_000);
  assert.strictEqual(bitrate('500k'), 500_000);
  assert.strictEqual(bitrate('2.5M'), 2_500_000);
  assert.strictEqual(bitrate('2500000'), 2_500_000);
  assert.strictEqual(bitrate('2000M'), 2_000_000_000);
  rejects(['--bitrate', '8G'], /--bitrate expects bits per second/);
  rejects(['--bitrate', 'M'], /--bitrate expects/);
  rejects(['--bitrate', '-1M'], /--bitrate expects/);
  rejects(['--bitrate', '2001M'], /--bitrate must be from 10k to 2000M/);
  rejects(['--bitrate', '9k'], /--bitrate must be/);
});

test('sizes are WxH with even sides in range', () => {
  assert.deepStrictEqual([parse('--size', '16x8192').width, parse('--size', '16x8192').height], [16, 8192]);
  assert.strictEqual(parse('--size', '640X480').height, 480);
  for (const bad of ['1281x720', '1280x721', '8x720', '8194x720', '0x0', '1280*720', '1280x', 'x720', '1280x720x3', ' 1280x720']) {
    rejects(['--size', bad], /--size/);
  }
  rejects(['--size', '1281x720'], /even sides from 16 to 8192/);
});

test('the target is a dotted IPv4 address and a port, checked before anything starts', () => {
  assert.deepStrictEqual((({ ip, port }) => ({ ip, port }))(parse('--to', '192.168.0.10:65535')), { ip: '192.168.0.10', port: 65535 });
  assert.strictEqual(parse('--to', '127.0.0.1:1').port, 1);
  for (const bad of ['localhost:5004', '127.0.0.1', '127.0.0:5004', '256.0.0.1:5004', '1.2.3.4.5:5004', ':5004', '::1:5004', '127.0.0.1:', '1.2.3.04444:5']) {
    rejects(['--to', bad], /--to/);
  }
  rejects(['--to', '127.0.0.1:0'], /--to: the port must be from 1 to 65535, got "0"/);
  rejects(['--to', '127.0.0.1:65536'], /port must be from 1 to 65535/);
  rejects(['--to', '127.0.0.1:50x'], /port must be/);
  rejects(['--to', '0.0.0.0:5004'], /0\.0\.0\.0 is not an address a stream can be sent to/);
  rejects(['--to', '255.255.255.255:5004'], /not an address/);
});

test('numbers out of range, and values of the wrong kind, are refused', () => {
  rejects(['--fps', '0'], /--fps must be from 1 to 240, got 0/);
  rejects(['--fps', '241'], /--fps must be/);
  rejects(['--fps', '29.97'], /--fps expects a whole number/);
  rejects(['--output', '-1'], /--output expects a whole number/);
  rejects(['--output', '256'], /--output must be from 0 to 255/);
  rejects(['--payload-type', '95'], /--payload-type must be from 96 to 127/);
  rejects(['--payload-type', '128'], /--payload-type must be/);
  rejects(['--ssrc', '0x100000000'], /--ssrc is out of range/);
  assert.strictEqual(parse('--ssrc', '4294967295').ssrc, 0xffffffff);
  assert.strictEqual(parse('--ssrc', '0').ssrc, 0);
  rejects(['--encoder', 'NVENC'], /--encoder must be one of auto, nvenc, mf-h264, got "NVENC"/);
  rejects(['--duration', '0'], /--duration expects a positive number of seconds/);
  rejects(['--duration', 'soon'], /--duration/);
});

test('unknown flags, missing values and stray values are refused', () => {
  rejects(['--frames', '3'], /unknown option "--frames" \(see --help\)/);
  rejects(['stream'], /unknown option "stream"/);
  rejects(['--fps'], /--fps needs a value/);
  rejects(['--fps='], /--fps needs a value/);
  rejects(['--no-receiver=yes'], /--no-receiver takes no value/);
});
