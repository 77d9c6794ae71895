'use strict';
// What start() does with its argument before any pipeline exists: every malformed options object
// comes back to JavaScript as an exception in Node-API's words, nothing starts, and the process
// lives on.
const test = require('node:test');
const assert = require('node:assert');

const control = require('../../lib/platform_control');
const kestrane = require('../../lib');

function goodOptions(overrides = {}) {
  return {
    captureKind: 'screen', nativeHandle: 0, width: 320, height: 240, fps: 30, bitrate: 1000000,
    rtpTarget: { ip: '127.0.0.1', port: 5004 }, ssrc: 1, payloadType: 96, ...overrides,
  };
}

// Nothing of a pipeline was asked for: no device was even created.
function assertNothingStarted() {
  assert.strictEqual(control.callCount('D3D11CreateDevice'), 0);
  assert.strictEqual(control.callCount('CreateDXGIFactory1'), 0);
}

test.beforeEach(() => control.reset());
test.afterEach(() => kestrane.stop());

test('start needs an object or a function', () => {
  for (const args of [[], [5], ['options'], [null], [undefined], [true], [12n], [Symbol('x')]]) {
    assert.throws(() => kestrane.start(...args), { name: 'TypeError', message: 'start(options) requires an options object' });
  }
  assertNothingStarted();
  assert.throws(() => kestrane.start(function () {}), { name: 'Error', message: 'nativeHandle is required' });
  assert.throws(() => kestrane.start({}), { name: 'Error', message: 'nativeHandle is required' });
  assertNothingStarted();
});

test('a window needs a handle that is not 0; a screen takes 0 as the first output', () => {
  assert.throws(() => kestrane.start(goodOptions({ captureKind: 'window', nativeHandle: 0 })), { message: 'nativeHandle is required' });
  assert.throws(() => kestrane.start(goodOptions({ captureKind: 'Screen', nativeHandle: 0 })), { message: 'nativeHandle is required' },
    'only the exact word "screen" means a monitor');
  assert.throws(() => kestrane.start(goodOptions({ captureKind: undefined, nativeHandle: undefined })), { name: 'TypeError', message: 'A string was expected' },
    'a key that is present must have its type, even when undefined');
  assertNothingStarted();
});

test('every malformed key gives its Node-API TypeError, starts nothing and reads no later key', () => {
  const ABSENT = Symbol('absent');
  const rows = [
    ['captureKind', 5, 'A string was expected'],
    ['nativeHandle', '1', 'A number was expected'],
    ['nativeHandle', 1n, 'A number was expected'],
    ['width', '1280', 'A number was expected'],
    ['width', ABSENT, 'A number was expected'],
    ['ssrc', ABSENT, 'A number was expected'],
    ['height', 1080n, 'A number was expected'],
    ['fps', null, 'A number was expected'],
    ['bitrate', {}, 'A number was expected'],
    ['encoder', 1, 'A string was expected'],
    ['rtpTarget', ABSENT, 'An object was expected'],
    ['rtpTarget', 5004, 'An object was expected'],
    ['rtpTarget', '127.0.0.1:5004', 'An object was expected'],
    ['rtpTarget', null, 'An object was expected'],
    ['rtpTarget', { port: 5004 }, 'A string was expected'],
    ['rtpTarget', { ip: 2130706433, port: 5004 }, 'A string was expected'],
    ['rtpTarget', { ip: '127.0.0.1', port: '5004' }, 'A number was expected'],
    ['ssrc', '7', 'A number was expected'],
    ['payloadType', 96n, 'A number was expected'],
  ];
  for (const [key, value, message] of rows) {
    const options = goodOptions({ [key]: value });
    if (value === ABSENT) delete options[key];
    let laterReads = 0;
    if (key !== 'payloadType') {
      Object.defineProperty(options, 'payloadType', { enumerable: true, get() { laterReads += 1; return 96; } });
    }
    assert.throws(() => kestrane.start(options), { name: 'TypeError', message }, `${key}: ${String(value)}`);
    assert.strictEqual(laterReads, 0, `${key}: the keys after it are not read`);
  }
  assertNothingStarted();
  assert.strictEqual(kestrane.isAvailable(), true, 'the process and the platform live on');
});

test('an exception thrown while reading an option reaches JavaScript unchanged', () => {
  const options = goodOptions();
  Object.defineProperty(options, 'fps', { get() { throw new RangeError('fps getter says no'); } });
  assert.throws(() => kestrane.start(options), { name: 'RangeError', message: 'fps getter says no' });
  const proxy = new Proxy(goodOptions(), { has(target, key) { if (key === 'nativeHandle') throw new Error('has trap'); return key in target; } });
  assert.throws(() => kestrane.start(proxy), { message: 'has trap' });
  assertNothingStarted();
});

test('getMetrics answers a fresh object of seven keys in order, also after failed starts', () => {
  assert.throws(() => kestrane.start({}));
  const first = kestrane.getMetrics();
  assert.deepStrictEqual(Object.keys(first), ['captureFps', 'encodeFps', 'rtpFps', 'droppedFrames', 'bitrate', 'avgFrameBytes', 'encoderName']);
  for (const key of Object.keys(first).slice(0, 6)) assert.strictEqual(typeof first[key], 'number');
  assert.strictEqual(typeof first.encoderName, 'string');
  assert.notStrictEqual(kestrane.getMetrics(), first);
  assert.strictEqual(kestrane.stop(), undefined);
  assert.strictEqual(kestrane.stop('ignored'), undefined);
});
