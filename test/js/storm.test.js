'use strict';
// Many sessions in a row, good and bad, with getMetrics polled from a timer all the while: the
// host survives, nothing hangs, every stop is prompt, and the process ends where it began.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');

const control = require('../../lib/platform_control');
const kestrane = require('../../lib');
const { openCollector, sleep } = require('./helpers/stream');

const E_FAIL = 0x80004005 | 0;
// The sanitised run is several times slower in every step.
const slowdown = (process.env.LD_PRELOAD || '').includes('asan') ? 4 : 1;

function resources() {
  return {
    threads: fs.readdirSync('/proc/self/task').length,
    liveObjects: control.totalLiveObjects(),
    winsock: control.winsockStartupCount(),
    sockets: control.openSocketCount(),
    apartments: control.apartmentCount(),
    strings: control.liveStringCount(),
    handles: control.openHandleCount(),
    mfStartups: control.mfStartupCount(),
    nvencSessions: control.nvencOpenSessionCount(),
  };
}

// A small deterministic generator, so that a failing storm can be replayed.
function random(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state * 1664525 + 1013904223) >>> 0;
    return state / 2 ** 32;
  };
}

test('200 mixed starts, restarts, stops and failing starts leave the process as it was', { timeout: 300000 }, async () => {
  control.reset();
  const collector = await openCollector();
  const window = control.openWindow(160, 120, 0xff406080);
  const good = (fps, extra = {}) => ({
    captureKind: 'screen', nativeHandle: 0, width: 160, height: 120, fps, bitrate: 500000,
    rtpTarget: { ip: '127.0.0.1', port: collector.port }, ssrc: 9, payloadType: 96, ...extra,
  });
  // One session first, so that whatever the process makes once (thread pools, the X-free
  // desktop) stands in the baseline.
  kestrane.start(good(30));
  kestrane.stop();
  const before = resources();

  let polls = 0;
  const poller = setInterval(() => {
    const metrics = kestrane.getMetrics();
    assert.strictEqual(typeof metrics.droppedFrames, 'number');
    polls += 1;
  }, 2);
  const next = random(20261123);
  let live = false;
  let liveFps = 30;
  const slowStops = [];
  const counts = { start: 0, restart: 0, stop: 0, failing: 0 };
  try {
    for (let i = 0; i < 200; ++i) {
      const roll = next();
      const fps = [15, 30, 60, 120][Math.floor(next() * 4)];
      if (roll < 0.35) {
        const extra = next() < 0.3 ? { captureKind: 'window', nativeHandle: window } : {};
        if (next() < 0.2) extra.encoder = 'mf-h264';
        counts[live ? 'restart' : 'start'] += 1;
        kestrane.start(good(fps, extra));
        live = true;
        liveFps = fps;
      } else if (roll < 0.65) {
        const began = process.hrtime.bigint();
        kestrane.stop();
        const ms = Number(process.hrtime.bigint() - began) / 1e6;
        if (live && ms > (1000 / liveFps + 50) * slowdown) slowStops.push(`${ms.toFixed(1)} ms at ${liveFps} fps`);
        counts.stop += 1;
        live = false;
      } else {
        counts.failing += 1;
        const kind = Math.floor(next() * 4);
        if (kind === 0) control.planFault({ call: 'D3D11CreateDevice', value: E_FAIL, times: 1 });
        if (kind === 1) control.planFault({ call: 'socket', value: -1, times: 1 });
        const options = kind === 2 ? { ...good(fps), width: '160' } : kind === 3 ? good(fps, { width: 0 }) : good(fps);
        assert.throws(() => kestrane.start(options));
        control.clearFaults();
        live = false;
      }
      // Let the poller and the socket run between calls, now and then for longer.
      await sleep(next() < 0.2 ? Math.floor(next() * 40) : 0);
    }
  } finally {
    clearInterval(poller);
    kestrane.stop();
  }
  await collector.close();
  control.closeWindow(window);

  assert.ok(counts.start > 20 && counts.restart > 5 && counts.stop > 40 && counts.failing > 40, JSON.stringify(counts));
  assert.ok(polls > 100, `getMetrics ran ${polls} times`);
  assert.deepStrictEqual(slowStops, [], 'every stop within a frame plus 50 ms');
  // Node's own helper threads may come and go; the session's must all be gone.
  const after = resources();
  assert.ok(after.threads <= before.threads, `threads: ${before.threads} before, ${after.threads} after`);
  assert.deepStrictEqual({ ...after, threads: 0 }, { ...before, threads: 0 });
});
