'use strict';
// The add-on end to end: start streams the captured pixels as RTP to a loopback receiver, bring-up
// failures come back with their texts and leave the next start working, and the counters tell
// what became of the frames.
const test = require('node:test');
const assert = require('node:assert');
const { execFileSync, spawnSync } = require('node:child_process');

const control = require('../../lib/platform_control');
const kestrane = require('../../lib');
const { openCollector, header, assemble, lastPicture, pixel, startXvfb, sleep } = require('./helpers/stream');

const E_FAIL = 0x80004005 | 0;
const DXGI_ERROR_WAIT_TIMEOUT = 0x887a0027 | 0;
const E_NOINTERFACE = 0x80004002 | 0;

function options(port, overrides = {}) {
  return {
    captureKind: 'screen', nativeHandle: 0, width: 320, height: 240, fps: 30, bitrate: 2000000,
    rtpTarget: { ip: '127.0.0.1', port }, ssrc: 0x5eed1234, payloadType: 96, ...overrides,
  };
}

// Streams for `ms` and gives what arrived. The session and the socket end however the test
// fails, so that the file still ends.
async function stream(overrides, ms, during = async () => {}) {
  const collector = await openCollector();
  try {
    kestrane.start(options(collector.port, overrides));
    await during();
    await sleep(ms);
  } finally {
    kestrane.stop();
    await collector.close();
  }
  return collector.datagrams;
}

// Polls until `condition` holds, with a generous bound for a loaded machine.
async function until(condition, what) {
  for (let i = 0; i < 200 && !condition(); ++i) await sleep(25);
  assert.ok(condition(), what);
}

function assertClose(actual, expected, tolerance, what) {
  for (let i = 0; i < 3; ++i) {
    assert.ok(Math.abs(actual[i] - expected[i]) <= tolerance, `${what}: got ${actual}, expected ${expected}`);
  }
}

test.beforeEach(() => control.reset());
test.afterEach(() => kestrane.stop());

test('a monitor streams as RTP: header fields, sequence, markers, timestamps, and the pixels drawn', async () => {
  const datagrams = await stream({ payloadType: 356, fps: 30 }, 1200, async () => {
    await sleep(600);
    // A still desktop first, so that the filled image isn't too close to the last frame sent.
    control.freezeOutput(0);
    await sleep(100);
    control.fillOutput(0, 0xff2060d0);
  });
  assert.ok(datagrams.length > 10, `only ${datagrams.length} datagrams`);
  const headers = datagrams.map(header);
  headers.forEach((h, i) => {
    assert.strictEqual(h.version, 2);
    assert.strictEqual(h.payloadType, 100, 'payload type 356 keeps its low 7 bits... of its low 8');
    assert.strictEqual(h.ssrc, 0x5eed1234);
    assert.strictEqual(h.sequence, i, 'the sequence starts at 0 and has no gap');
    assert.ok(datagrams[i].length <= 1192);
  });
  assert.strictEqual(headers[0].timestamp, 0, 'the first frame of the process has RTP time 0');
  const markers = headers.filter((h) => h.marker);
  // The last picture is the filled desktop, drawn at a moment of the test's choosing.
  for (let i = 1; i < markers.length - 1; ++i) {
    const step = markers[i].timestamp - markers[i - 1].timestamp;
    // The synthetic desktop presents 60 times a second; at 30 fps no two sent frames are closer
    // than a frame period, and each time stands on the desktop's 1/60 s grid.
    assert.ok(step >= 2998, `timestamps ${markers[i - 1].timestamp} -> ${markers[i].timestamp}`);
    const grid = step % 1500;
    assert.ok(grid <= 2 || grid >= 1498, `step ${step} is off the 1500-tick grid`);
  }
  // Packets of one picture share its timestamp, and only its last carries the marker.
  headers.forEach((h, i) => {
    if (!h.marker) assert.strictEqual(headers[i + 1].timestamp, h.timestamp);
  });
  const { counters } = assemble(datagrams, 100);
  assert.strictEqual(counters.gaps, 0);
  const picture = lastPicture(datagrams, 100);
  assert.deepStrictEqual([picture.width, picture.height], [320, 240]);
  assertClose(pixel(picture, 160, 120), [0x20, 0x60, 0xd0], 6, 'the centre of the filled desktop');
  assertClose(pixel(picture, 5, 230), [0x20, 0x60, 0xd0], 6, 'a corner of the filled desktop');
});

test('a window streams its own pixels', async () => {
  const handle = control.openWindow(200, 150, 0xffd04010);
  assert.ok(handle > 0);
  const datagrams = await stream({ captureKind: 'window', nativeHandle: handle, width: 200, height: 150 }, 500);
  assert.ok(datagrams.length > 0);
  const picture = lastPicture(datagrams, 96);
  assertClose(pixel(picture, 100, 75), [0xd0, 0x40, 0x10], 6, 'the window');
  assert.strictEqual(kestrane.getMetrics().encoderName, 'nvenc');
});

test('the X display streams the colours drawn on it', { timeout: 60000 }, async (t) => {
  const xvfb = await startXvfb(640, 480);
  if (!xvfb) return t.skip('Xvfb is not installed');
  try {
    control.setMachine({ ...control.currentMachine(), display: xvfb.name });
    execFileSync('xsetroot', ['-display', xvfb.name, '-solid', '#30b050']);
    let datagrams = await stream({ width: 640, height: 480 }, 400);
    assertClose(pixel(lastPicture(datagrams, 96), 320, 240), [0x30, 0xb0, 0x50], 6, 'the X root window');
    datagrams = await stream({ width: 640, height: 480 }, 800, async () => {
      await sleep(300);
      execFileSync('xsetroot', ['-display', xvfb.name, '-solid', '#c02080']);
    });
    assertClose(pixel(lastPicture(datagrams, 96), 100, 400), [0xc0, 0x20, 0x80], 6, 'the new colour');
  } finally {
    kestrane.stop();
    xvfb.stop();
  }
});

test('bring-up failures throw their texts, and the next start works', async () => {
  const collector = await openCollector();
  const good = options(collector.port);
  const cases = [
    ['D3D11CreateDevice fails', () => control.planFault({ call: 'D3D11CreateDevice', value: E_FAIL, times: 1 }), {},
      'D3D11CreateDevice failed (hr=0x80004005)'],
    ['the socket cannot be made', () => control.planFault({ call: 'socket', value: -1, times: 1 }), {}, 'RTP sender init failed'],
    ['duplication is refused', () => control.planFault({ call: 'IDXGIOutput1::DuplicateOutput', value: 0x887a0022 | 0, times: 1 }), {},
      'DuplicateOutput failed (hr=0x887a0022)'],
    ['a window handle names no window', () => {}, { captureKind: 'window', nativeHandle: 12345 },
      'Window capture init failed (WGC). Try sharing the full screen instead.'],
    ['the picture has no size', () => {}, { width: 0 }, 'Video scaler init failed'],
    ['the output has no IDXGIOutput1, and no detail was recorded', () => control.planFault({ call: 'QueryInterface(IDXGIOutput1)', value: E_NOINTERFACE, times: 1 }), {},
      'Screen capture init failed (DXGI duplication). Close other capture tools and retry.'],
    ['the NVIDIA encode device fails and capture then fails without a detail', () => {
      control.setMachine({ adapters: [{ vendorId: 0x8086, deviceId: 1, outputs: [{ width: 640, height: 480 }] }, { vendorId: 0x10de, deviceId: 0x2484, outputs: [] }] });
      control.planFault({ call: 'D3D11CreateDevice', value: E_FAIL, after: 1, times: 1 });
      control.planFault({ call: 'QueryInterface(IDXGIOutput1)', value: E_NOINTERFACE, times: 1 });
    }, {}, 'D3D11CreateDevice failed (hr=0x80004005)'],
    ['NVENC is asked for on another vendor', () => control.setMachine({ adapters: [{ vendorId: 0x8086, deviceId: 1, outputs: [{ width: 1280, height: 720 }] }] }),
      { encoder: 'nvenc' }, 'NVENC: NVENC requires an NVIDIA GPU'],
  ];
  try {
    for (const [what, arrange, overrides, message] of cases) {
      arrange();
      assert.throws(() => kestrane.start({ ...good, ...overrides }), { name: 'Error', message }, what);
      assert.strictEqual(control.totalLiveObjects(), 0, `${what}: a failed bring-up leaves nothing behind`);
      kestrane.start(good);
      kestrane.stop();
      control.reset();
    }
  } finally {
    await collector.close();
  }
});

test('a monitor on another vendor\'s adapter is encoded on the NVIDIA one beside it, or on its own without one', async () => {
  const integrated = { vendorId: 0x8086, deviceId: 0x9a49, description: 'integrated', outputs: [{ width: 1280, height: 720 }] };
  control.setMachine({ adapters: [integrated, { vendorId: 0x10de, deviceId: 0x2484, outputs: [] }] });
  control.fillOutput(0, 0xff805020);
  let datagrams = await stream({}, 400);
  let lines = control.debugOutput();
  assert.ok(lines.includes('[kestrane-win] Using NVIDIA adapter for encode path\n'));
  assert.ok(lines.includes('[kestrane-win] Cross-adapter copy enabled for NVIDIA encode path\n'));
  assert.strictEqual(kestrane.getMetrics().encoderName, 'nvenc');
  assertClose(pixel(lastPicture(datagrams, 96), 160, 120), [0x80, 0x50, 0x20], 6, 'the copied frame');
  assert.strictEqual(control.openHandleCount(), 0, 'the shared texture\'s handle is closed');

  control.reset();
  control.setMachine({ adapters: [integrated] });
  control.fillOutput(0, 0xff805020);
  datagrams = await stream({}, 400);
  lines = control.debugOutput();
  assert.ok(lines.includes('[kestrane-win][error] NVIDIA adapter not found\n'));
  assert.ok(lines.includes('[kestrane-win] NVIDIA encode device unavailable, using capture adapter for encode\n'));
  assert.ok(lines.includes('[kestrane-win] Skipping NVENC because encode device is not NVIDIA\n'));
  assert.strictEqual(kestrane.getMetrics().encoderName, 'mf-h264');
  assertClose(pixel(lastPicture(datagrams, 96), 160, 120), [0x80, 0x50, 0x20], 6, 'the frame encoded on the capture adapter');
});

test('Media Foundation runs where NVENC cannot, and NVENC takes over when it gives no pictures', async () => {
  control.setMachine({ ...control.currentMachine(), nvencInstalled: false });
  let datagrams = await stream({}, 400);
  assert.strictEqual(kestrane.getMetrics().encoderName, 'mf-h264');
  assert.ok(lastPicture(datagrams, 96).width === 320);
  assert.ok(control.debugOutput().some((line) => line.includes('Using MF H264 encoder')));

  // A transform that stops giving slices: at the fifth such output the session moves to NVENC,
  // which starts with a key frame, and the stream goes on decodable.
  control.reset();
  control.setMachine({ ...control.currentMachine(), mfSlicelessAfter: 4 });
  datagrams = await stream({ encoder: 'mf-h264' }, 1500);
  const lines = control.debugOutput();
  assert.ok(lines.some((line) => line.includes('H264 output from mf-h264 has no slice NAL')));
  assert.ok(lines.some((line) => line.endsWith('[kestrane-win] Switched from MF to NVENC encoder\n')));
  assert.strictEqual(kestrane.getMetrics().encoderName, 'nvenc');
  const { units } = assemble(datagrams, 96);
  const afterSwitch = units.findIndex((unit, i) => i > 0 && unit.keyFrame);
  assert.ok(afterSwitch > 0, 'NVENC began with a key frame');
  assert.strictEqual(lastPicture(datagrams, 96).width, 320);
});

test('frames that come too late, fail to encode or fail to send are dropped and counted', async () => {
  const before = kestrane.getMetrics().droppedFrames;
  // An encoder slower than the late limit (8 frames at 30 fps: 266 ms) loses its frames.
  control.planFault({ call: 'nvEncEncodePicture', delayMs: 400, fails: false, times: 0 });
  let datagrams = await stream({}, 1500);
  const afterLate = kestrane.getMetrics().droppedFrames;
  assert.ok(afterLate > before, 'late frames were dropped');
  assert.ok(datagrams.length === 0 || assemble(datagrams, 96).units.length < 3);

  control.reset();
  control.planFault({ call: 'nvEncEncodePicture', value: 1, times: 0 });
  datagrams = await stream({}, 600);
  assert.strictEqual(datagrams.length, 0, 'nothing encoded, nothing sent');
  const afterEncode = kestrane.getMetrics().droppedFrames;
  assert.ok(afterEncode > afterLate);
  assert.ok(control.debugOutput().some((line) => line.endsWith('H264 encode failed while capture continues\n')));

  control.reset();
  // Pictures small enough for one datagram each: a failed sendto loses a whole picture.
  control.planFault({ call: 'sendto', value: -1, after: 12, times: 2 });
  datagrams = await stream({ bitrate: 100000 }, 1000);
  const sequences = datagrams.map((d) => header(d).sequence);
  assert.ok(sequences.some((s, i) => i > 0 && s !== sequences[i - 1] + 1), 'a failed send leaves a sequence gap');
  assert.ok(kestrane.getMetrics().droppedFrames > afterEncode);
});

test('metrics stand still after stop and carry into the next session', async () => {
  control.planFault({ call: 'nvEncEncodePicture', value: 1, times: 3 });  // some drops to carry
  await stream({ fps: 30 }, 2300);
  const stopped = kestrane.getMetrics();
  assert.ok(stopped.droppedFrames >= 3, `droppedFrames ${stopped.droppedFrames}`);
  assert.ok(stopped.captureFps > 20 && stopped.captureFps < 90, `captureFps ${stopped.captureFps}`);
  assert.ok(stopped.rtpFps > 5, `rtpFps ${stopped.rtpFps}`);
  assert.ok(stopped.bitrate > 0 && stopped.avgFrameBytes > 0);
  assert.strictEqual(stopped.encoderName, 'nvenc');
  await sleep(300);
  assert.deepStrictEqual(kestrane.getMetrics(), stopped, 'nothing moves without a session');
  const collector = await openCollector();
  try {
    control.setMachine({ ...control.currentMachine(), nvencInstalled: false });
    control.planFault({ call: 'MFTEnumEx', delayMs: 300, fails: false, times: 1 });
    // A desktop that gives no frame: nothing can be dropped, so the count is the old one exactly.
    control.planFault({ call: 'IDXGIOutputDuplication::AcquireNextFrame', value: DXGI_ERROR_WAIT_TIMEOUT, times: 0 });
    kestrane.start(options(collector.port));
    assert.strictEqual(kestrane.getMetrics().droppedFrames, stopped.droppedFrames, 'drops carry into the new session');
    assert.strictEqual(kestrane.getMetrics().encoderName, 'mf-h264', 'the new encoder once chosen');
  } finally {
    kestrane.stop();
    await collector.close();
  }
});

test('a start on a live session ends it first, even when the new options are bad', async () => {
  const collector = await openCollector();
  try {
    kestrane.start(options(collector.port));
    kestrane.start(options(collector.port, { fps: 60 }));
    assert.throws(() => kestrane.start({}), { message: 'nativeHandle is required' });
    const sentAfterBadStart = control.datagramsSent();
    await sleep(300);
    assert.strictEqual(control.datagramsSent(), sentAfterBadStart, 'the bad start ended the session');
    assert.strictEqual(control.totalLiveObjects(), 0);

    // An argument that is no object is refused before anything else: the session runs on.
    kestrane.start(options(collector.port));
    assert.throws(() => kestrane.start(5), { name: 'TypeError', message: 'start(options) requires an options object' });
    const sentAfterRefusal = control.datagramsSent();
    await until(() => control.datagramsSent() > sentAfterRefusal, 'start(5) left the session running');
  } finally {
    kestrane.stop();
    await collector.close();
  }
});

test('a running session shows what the option reader kept', async () => {
  const collector = await openCollector();
  const integrated = { vendorId: 0x8086, deviceId: 1, outputs: [{ width: 640, height: 480 }] };
  try {
    // The port keeps its low 16 bits, the largest SSRC is whole, and an ssrc inside rtpTarget is
    // not looked at.
    kestrane.start(options(65536 + collector.port, { ssrc: 0xffffffff, rtpTarget: { ip: '127.0.0.1', port: 65536 + collector.port, ssrc: 7 } }));
    await until(() => collector.datagrams.length > 0, 'datagrams reach port + 65536 & 0xffff');
    assert.strictEqual(header(collector.datagrams[0]).ssrc, 0xffffffff);
    kestrane.stop();

    // An encoder name in the wrong case is Auto: NVENC on an NVIDIA adapter (where "mf-h264"
    // would be Media Foundation), Media Foundation on another vendor's (where "nvenc" fails).
    kestrane.start(options(collector.port, { encoder: 'NVENC' }));
    assert.strictEqual(kestrane.getMetrics().encoderName, 'nvenc');
    kestrane.stop();
    control.setMachine({ adapters: [integrated] });
    kestrane.start(options(collector.port, { encoder: 'NVENC' }));
    assert.strictEqual(kestrane.getMetrics().encoderName, 'mf-h264');
  } finally {
    kestrane.stop();
    await collector.close();
  }
});

test('process.exit with a live session exits cleanly', () => {
  const script = `
    const kestrane = require(${JSON.stringify(require.resolve('../../lib'))});
    kestrane.start({ captureKind: 'screen', nativeHandle: 0, width: 320, height: 240, fps: 30, bitrate: 1000000,
                     rtpTarget: { ip: '127.0.0.1', port: 9 }, ssrc: 1, payloadType: 96 });
    setTimeout(() => process.exit(7), 300);`;
  const run = spawnSync(process.execPath, ['-e', script], { timeout: 20000, encoding: 'utf8' });
  assert.strictEqual(run.signal, null, run.stderr);
  assert.strictEqual(run.status, 7, run.stderr);
});
