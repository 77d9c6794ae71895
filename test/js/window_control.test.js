'use strict';
const test = require('node:test');
const assert = require('node:assert');

const control = require('../../lib/platform_control');

test('synthetic windows open, change and close through the control module', () => {
  control.reset();
  const window = control.openWindow(64, 48, 0xff102030);
  assert.ok(window > 2 ** 32, 'a synthetic handle is no X11 window id');
  assert.ok(Number.isSafeInteger(window));
  assert.strictEqual(control.openWindowCount(), 1);
  assert.strictEqual(control.fillWindow(window, 0xffff0000), true);
  assert.strictEqual(control.drawWindowRect(window, 4, 4, 8, 8, 0xff00ff00), true);
  assert.strictEqual(control.resizeWindow(window, 32, 32), true);
  assert.strictEqual(control.resizeWindow(window, 0, 32), false);
  assert.strictEqual(control.closeWindow(window), true);
  assert.strictEqual(control.closeWindow(window), false);
  assert.strictEqual(control.fillWindow(window, 0), false);
  assert.strictEqual(control.openWindow(0, 10, 0), 0);

  control.openWindow(8, 8, 0);
  control.reset();
  assert.strictEqual(control.openWindowCount(), 0, 'reset closes every synthetic window');
});

test('window calls with missing numbers throw instead of crashing', () => {
  assert.throws(() => control.openWindow(), /expected 3 numbers/);
  assert.throws(() => control.drawWindowRect(1, 2, 3), /expected 6 numbers/);
  assert.throws(() => control.closeWindow('x'), /expected 1 numbers/);
});
