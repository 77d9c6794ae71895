'use strict';
// The streamer's run, in process, with a stand-in for the add-on that sends a real encoded
// stream to the target when it is started.
const test = require('node:test');
const assert = require('node:assert');
const dgram = require('node:dgram');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { EventEmitter, once } = require('node:events');
const { spawnSync } = require('node:child_process');

const { parseArgs, UsageError } = require('../../lib/cli/args');
const { runStreamer } = require('../../lib/cli/streamer');
const { profileLevelIdFromSps } = require('../../lib/cli/sdp');
const { TOOL_PATH } = require('../../lib/cli/snapshot');
const helpers = require('./helpers/rtp_packets');

const PATTERN = spawnSync(path.join(path.dirname(TOOL_PATH), 'h264_test_pattern'), ['128', '96', '5']).stdout;
const METRICS = { captureFps: 30, encodeFps: 29.5, rtpFps: 29.5, droppedFrames: 2, bitrate: 1_500_000, avgFrameBytes: 6000, encoderName: 'nvenc' };

// Sends base64 datagrams from stdin, one a line, and returns when all have left.
const SEND_SCRIPT = `
  const socket = require('node:dgram').createSocket('udp4');
  const [port, ip] = process.argv.slice(1);
  const packets = require('node:fs').readFileSync(0, 'utf8').trim().split('\\n');
  let left = packets.length;
  for (const p of packets) socket.send(Buffer.from(p, 'base64'), Number(port), ip, () => { if (--left === 0) socket.close(); });`;

// Like the add-on, start() sends the stream while it blocks this thread: the pattern as RTP, to the
// options' target, from another process.
function fakeAddon({ startError = null } = {}) {
  const calls = [];
  return {
    calls,
    isAvailable: () => true,
    start(options) {
      calls.push(['start', options]);
      if (startError) throw new Error(startError);
      let sequence = 0;
      const packets = helpers.accessUnitsOf(PATTERN).flatMap((nals, picture) => {
        const payloads = helpers.accessUnitPayloads(nals);
        return payloads.map((payload, i) => helpers.rtpPacket({
          sequence: sequence++, timestamp: picture * 3000, marker: i === payloads.length - 1,
          ssrc: options.ssrc, payloadType: options.payloadType, payload,
        }));
      });
      const sent = spawnSync(process.execPath, ['-e', SEND_SCRIPT, String(options.rtpTarget.port), options.rtpTarget.ip],
        { input: packets.map((p) => p.toString('base64')).join('\n'), timeout: 10_000 });
      assert.strictEqual(sent.status, 0, String(sent.stderr));
    },
    stop() {
      calls.push(['stop']);
    },
    getMetrics: () => ({ ...METRICS }),
  };
}

class Output {
  constructor() { this.text = ''; }
  write(chunk) { this.text += chunk; return true; }
}

// `extraArgs(dir)`: further flags, which may name files in the run's own folder.
async function setup(t, extraArgs = () => []) {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrane-streamer-'));
  const port = await helpers.freeUdpPort();
  const config = parseArgs(['--to', `127.0.0.1:${port}`, '--sdp', path.join(dir, 'stream.sdp'), '--ssrc', '0x1234', ...extraArgs(dir)]);
  const addon = fakeAddon();
  const machine = { adapters: [{ vendorId: 0x10de, outputs: [] }], display: '', refreshRate: 60 };
  const control = { setMachine: (m) => Object.assign(machine, m), currentMachine: () => ({ ...machine }) };
  const out = new Output();
  const signals = new EventEmitter();
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  const run = (overrides = {}) => runStreamer(config, { addon, control, env: { DISPLAY: ':7' }, out, processLike: signals, ...overrides });
  return { dir, port, config, addon, machine, out, signals, run };
}

test('once pictures stop coming, the receiver line says so', async (t) => {
  const { out, run } = await setup(t, () => ['--duration', '3.3']);
  assert.strictEqual(await run(), 0);
  const lines = out.text.split('\n').filter((l) => l.startsWith('receiver'));
  assert.match(lines[0], /^receiver  \d+ packets/, 'figures while pictures come');
  assert.ok(lines.some((l) => /^receiver  no picture for [23] s: the screen is still, or the capture was lost$/.test(l)), lines.join('\n'));
});

test('a run streams, writes the SDP of the received stream, shows figures and stops after its duration', async (t) => {
  const { dir, port, addon, machine, out, signals, run } = await setup(t, (d) => ['--duration', '1.2', '--snapshot', path.join(d, 'shot.png')]);
  const snapshot = path.join(dir, 'shot.png');
  assert.strictEqual(await run(), 0);
  assert.strictEqual(machine.display, ':7', 'the platform is told which X display to capture');
  assert.deepStrictEqual(machine.adapters, [{ vendorId: 0x10de, outputs: [] }], 'the rest of the machine stays');

  assert.deepStrictEqual(addon.calls.map((c) => c[0]), ['start', 'stop']);
  assert.deepStrictEqual(addon.calls[0][1], {
    captureKind: 'screen', nativeHandle: 0, width: 1920, height: 1080, fps: 60, bitrate: 8_000_000, encoder: 'auto',
    rtpTarget: { ip: '127.0.0.1', port }, ssrc: 0x1234, payloadType: 96,
  });
  assert.strictEqual(signals.listenerCount('SIGINT'), 0, 'the signal handlers are gone after the run');

  const lines = out.text.split('\n');
  assert.strictEqual(lines[0], `kestrane: streaming the X display :7 at 1920x1080, 60 fps, 8.00 Mbit/s to 127.0.0.1:${port} (RTP payload type 96, SSRC 0x00001234, encoder auto)`);
  const sdpFile = path.join(dir, 'stream.sdp');
  assert.ok(lines.includes(`SDP: ${sdpFile}`));
  assert.ok(lines.includes(`watch with ffplay:    ffplay -protocol_whitelist file,udp,rtp -i ${sdpFile}`));
  const sps = helpers.splitAnnexB(PATTERN).find((nal) => (nal[0] & 0x1f) === 7);
  assert.match(fs.readFileSync(sdpFile, 'utf8'), new RegExp(`a=fmtp:96 packetization-mode=1;profile-level-id=${profileLevelIdFromSps(sps)};sprop-parameter-sets=`));

  assert.ok(lines.some((l) => l === 'sender    capture 30.0 fps  encode 29.5 fps  rtp 29.5 fps  1.50 Mbit/s  dropped 2  encoder nvenc'));
  assert.ok(lines.some((l) => /^receiver  \d+ packets  5 pictures  1 key frames  0 gaps \(0 lost\)  /.test(l)));
  assert.match(out.text, /kestrane: stopped after 1\.\d s\n  sent      encoder nvenc, last 29\.5 fps at 1\.50 Mbit\/s, 2 frames dropped\n  received  \d+ packets, 5 pictures \(1 key frames\), 0 gaps \(0 packets lost\), 0 damaged pictures\n/);
  assert.ok(lines.includes(`snapshot: 128x96 picture written to ${snapshot}`));
  assert.ok(fs.statSync(snapshot).size > 100);
});

test('Ctrl-C stops the session cleanly; the port is free afterwards', async (t) => {
  const { port, addon, out, signals, run } = await setup(t, () => ['--no-receiver']);
  const running = run();
  setTimeout(() => signals.emit('SIGINT', 'SIGINT'), 300);
  assert.strictEqual(await running, 0);
  assert.deepStrictEqual(addon.calls.map((c) => c[0]), ['start', 'stop']);
  assert.doesNotMatch(out.text, /receiver|received/, 'no receiver was asked for');
  assert.match(out.text, /profile|ffplay/);
  // Nothing of the run holds the port.
  const socket = dgram.createSocket('udp4');
  socket.bind(port, '127.0.0.1');
  await once(socket, 'listening');
  socket.close();
});

test('a failed start is one line, and stops nothing that did not run', async (t) => {
  const { port, run } = await setup(t);
  const addon = fakeAddon({ startError: 'RTP sender init failed' });
  await assert.rejects(run({ addon }), { message: 'the session did not start: RTP sender init failed' });
  assert.deepStrictEqual(addon.calls.map((c) => c[0]), ['start']);
  const socket = dgram.createSocket('udp4');
  socket.bind(port, '127.0.0.1');
  await once(socket, 'listening');
  socket.close();
});

test('what cannot work is refused before the session starts', async (t) => {
  const { dir, addon, run, config } = await setup(t);
  await assert.rejects(run({ addon: { isAvailable: () => true } }), /this build of the add-on has no start\(\); rebuild it with "npm run bootstrap"/);
  await assert.rejects(run({ addon: { ...addon, isAvailable: () => false } }), /no Direct3D 11 device can be created on the first adapter/);
  await assert.rejects(runStreamer({ ...config, sdpPath: path.join(dir, 'missing', 'x.sdp') }, { addon, out: new Output() }),
    /cannot write the SDP file .*missing\/x\.sdp: ENOENT/);
  await assert.rejects(runStreamer({ ...config, receiver: false, snapshotPath: path.join(dir, 'x.png') }, { addon, out: new Output() }),
    (error) => error instanceof UsageError && /--snapshot needs the built-in receiver/.test(error.message));
  await assert.rejects(runStreamer({ ...config, ip: '192.0.2.1', snapshotPath: path.join(dir, 'x.png') }, { addon, out: new Output() }),
    /--snapshot needs the built-in receiver/);
  await assert.rejects(runStreamer({ ...config, snapshotPath: path.join(dir, 'x.png') }, { addon, out: new Output(), snapshotTool: '/nonexistent' }),
    /--snapshot needs \/nonexistent; build it/);
  await assert.rejects(runStreamer({ ...config, snapshotPath: path.join(dir, 'missing', 'x.png') }, { addon, out: new Output() }),
    /--snapshot: cannot write into/);
  assert.deepStrictEqual(addon.calls, [], 'start was never called');
});
