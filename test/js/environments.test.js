'use strict';
// Several JavaScript environments of one process (worker threads here, Electron's contexts in an
// application) share the one session: their start, getMetrics and stop calls may cross at any
// moment, and the host must live through it with nothing left behind.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { once } = require('node:events');
const { Worker } = require('node:worker_threads');

const control = require('../../lib/platform_control');
const kestrane = require('../../lib');
const { openCollector } = require('./helpers/stream');

const packageRoot = path.join(__dirname, '..', '..');

// Each environment loads the add-on for itself and runs its own loop of calls.
const hammer = `
const { workerData, parentPort } = require('node:worker_threads');
const kestrane = require(workerData.packageRoot);
const options = {
  captureKind: 'screen', nativeHandle: 0, width: 160, height: 120, fps: 60, bitrate: 500000,
  rtpTarget: { ip: '127.0.0.1', port: workerData.port }, ssrc: workerData.ssrc, payloadType: 96,
};
const pause = (ms) => Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, ms);
let starts = 0;
for (let i = 0; i < workerData.rounds; ++i) {
  try {
    kestrane.start(options);
    starts += 1;
  } catch (error) {
    // Another environment's start may stop this one's session; a failed start is no crash.
  }
  for (let poll = 0; poll < 3; ++poll) {
    if (typeof kestrane.getMetrics().captureFps !== 'number') throw new Error('bad metrics');
    pause(i % 3);
  }
  if (i % 2 === 0) kestrane.stop();
}
parentPort.postMessage({ starts });
`;

function runEnvironment(port, ssrc, rounds) {
  return new Promise((resolve, reject) => {
    const worker = new Worker(hammer, { eval: true, workerData: { packageRoot, port, ssrc, rounds } });
    let result = null;
    worker.on('message', (message) => { result = message; });
    worker.on('error', reject);
    worker.on('exit', (code) => (code === 0 && result ? resolve(result) : reject(new Error(`worker exit ${code}`))));
  });
}

function resources() {
  return {
    threads: fs.readdirSync('/proc/self/task').length,
    winsock: control.winsockStartupCount(),
    sockets: control.openSocketCount(),
    liveObjects: control.totalLiveObjects(),
  };
}

test('three environments calling start, getMetrics and stop at once leave the host running and clean', { timeout: 120000 }, async () => {
  control.reset();
  const collector = await openCollector();
  try {
    // What the process makes once (thread pools, the desktop) stands in the baseline.
    kestrane.start({ captureKind: 'screen', nativeHandle: 0, width: 160, height: 120, fps: 60, bitrate: 500000,
      rtpTarget: { ip: '127.0.0.1', port: collector.port }, ssrc: 1, payloadType: 96 });
    kestrane.stop();
    const before = resources();
    for (let run = 0; run < 3; ++run) {
      const results = await Promise.all([1, 2, 3].map((ssrc) => runEnvironment(collector.port, ssrc, 40)));
      assert.ok(results.every((result) => result.starts > 0), JSON.stringify(results));
      // This environment joins in too, after the others have stopped or while one still runs.
      kestrane.stop();
    }
    const after = resources();
    assert.ok(after.threads <= before.threads, `threads: ${before.threads} before, ${after.threads} after`);
    assert.deepStrictEqual({ ...after, threads: 0 }, { ...before, threads: 0 });
  } finally {
    kestrane.stop();
    await collector.close();
  }
});

// An environment that goes while its session runs (a worker terminated, a context closed) takes
// the session with it, on its own thread; a session that another environment started stays.
test('a worker thread terminated with its session running stops that session and only that one', { timeout: 60000 }, async () => {
  control.reset();
  const collector = await openCollector();
  const starter = `
const { workerData, parentPort } = require('node:worker_threads');
const kestrane = require(workerData.packageRoot);
kestrane.start({ captureKind: 'screen', nativeHandle: 0, width: 160, height: 120, fps: 30, bitrate: 500000,
  rtpTarget: { ip: '127.0.0.1', port: workerData.port }, ssrc: 5, payloadType: 96 });
parentPort.postMessage('started');
setInterval(() => {}, 1000);
`;
  const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
  // Whether datagrams still leave: polled, with a generous bound for a loaded machine.
  const streams = async () => {
    const before = control.datagramsSent();
    for (let i = 0; i < 100 && control.datagramsSent() === before; ++i) await pause(50);
    return control.datagramsSent() > before;
  };
  const sentWithin = async (ms) => {
    const before = control.datagramsSent();
    await pause(ms);
    return control.datagramsSent() - before;
  };
  try {
    const before = resources();
    const worker = new Worker(starter, { eval: true, workerData: { packageRoot, port: collector.port } });
    const [message] = await once(worker, 'message');
    assert.strictEqual(message, 'started');
    assert.ok(await streams(), 'the worker\'s session streams');
    await worker.terminate();
    assert.strictEqual(await sentWithin(300), 0, 'the session went with its environment');
    const after = resources();
    assert.ok(after.threads <= before.threads, `threads: ${before.threads} before, ${after.threads} after`);
    assert.deepStrictEqual({ ...after, threads: 0 }, { ...before, threads: 0 });

    // A session of this environment outlives another environment that only polled.
    kestrane.start({ captureKind: 'screen', nativeHandle: 0, width: 160, height: 120, fps: 30, bitrate: 500000,
      rtpTarget: { ip: '127.0.0.1', port: collector.port }, ssrc: 6, payloadType: 96 });
    const poller = new Worker(`require(${JSON.stringify(packageRoot)}).getMetrics();`, { eval: true });
    await once(poller, 'exit');
    assert.ok(await streams(), 'another environment\'s exit left this session running');
  } finally {
    kestrane.stop();
    await collector.close();
  }
});
