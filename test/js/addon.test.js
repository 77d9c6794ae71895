'use strict';
const test = require('node:test');
const assert = require('node:assert');

const control = require('../../lib/platform_control');
const kestrane = require('../../lib');

const E_FAIL = 0x80004005 | 0;

test.afterEach(() => control.reset());

test('the module registers its four functions in order and nothing else', () => {
  assert.deepStrictEqual(Object.keys(kestrane), ['isAvailable', 'start', 'stop', 'getMetrics']);
  for (const name of Object.keys(kestrane)) assert.strictEqual(typeof kestrane[name], 'function');
});

test('every JavaScript environment of the process can load the module', async () => {
  const { Worker } = require('node:worker_threads');
  const worker = new Worker(
    `const { parentPort } = require('node:worker_threads');
     const addon = require(${JSON.stringify(require.resolve('../../lib'))});
     parentPort.postMessage({ keys: Object.keys(addon), available: addon.isAvailable() });`,
    { eval: true });
  const [answer] = await require('node:events').once(worker, 'message');
  await worker.terminate();
  assert.deepStrictEqual(answer, { keys: ['isAvailable', 'start', 'stop', 'getMetrics'], available: true });
  assert.strictEqual(kestrane.isAvailable(), true, 'the main thread keeps its own functions');
});

test('isAvailable answers whether a device can be made on the first adapter', () => {
  control.reset();
  assert.strictEqual(kestrane.isAvailable(), true);
  assert.strictEqual(kestrane.isAvailable('ignored', 7), true, 'arguments are ignored');
  // Only adapter 0 is asked, whatever its vendor.
  control.setMachine({ adapters: [{ vendorId: 0x8086, deviceId: 1, description: 'integrated', outputs: [] }] });
  assert.strictEqual(kestrane.isAvailable(), true);
  assert.strictEqual(control.totalLiveObjects(), 0, 'the probe device is released');

  control.setMachine({ adapters: [] });
  assert.strictEqual(kestrane.isAvailable(), false);

  control.reset();
  control.planFault({ call: 'D3D11CreateDevice', value: E_FAIL, times: 1 });
  assert.strictEqual(kestrane.isAvailable(), false);
  assert.ok(control.debugOutput().some((line) => line.startsWith('[kestrane-win][error] D3D11CreateDevice failed (hr=0x80004005)')));
  assert.strictEqual(kestrane.isAvailable(), true, 'the next call asks again');
});

test('a missing build is reported with the command that makes it', () => {
  const fs = require('node:fs');
  const os = require('node:os');
  const path = require('node:path');
  const root = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrane-unbuilt-'));
  try {
    fs.mkdirSync(path.join(root, 'lib'));
    fs.copyFileSync(path.join(__dirname, '..', '..', 'lib', 'index.js'), path.join(root, 'lib', 'index.js'));
    assert.throws(() => require(path.join(root, 'lib', 'index.js')), /kestrane_win\.node is missing\); run "npm run bootstrap"/);
  } finally {
    fs.rmSync(root, { recursive: true, force: true });
  }
});
