'use strict';
const test = require('node:test');
const assert = require('node:assert');

const control = require('../../lib/platform_control');

test('the control module reads the debug output in order', () => {
  control.reset();
  control.writeDebugOutput('[kestrane-win] first\n');
  control.writeDebugOutput('[kestrane-win][error] second\n');
  assert.deepStrictEqual(control.debugOutput(), ['[kestrane-win] first\n', '[kestrane-win][error] second\n']);
  control.clearDebugOutput();
  assert.deepStrictEqual(control.debugOutput(), []);
});

test('a planned fault counts the calls it meets and a reset forgets it', () => {
  control.reset();
  control.planFault({ call: 'OutputDebugStringA', fails: false, delayMs: 1, times: 2 });
  control.writeDebugOutput('a\n');
  control.writeDebugOutput('b\n');
  assert.strictEqual(control.callCount('OutputDebugStringA'), 2);
  control.reset();
  assert.strictEqual(control.callCount('OutputDebugStringA'), 0);
  assert.strictEqual(control.datagramsSent(), 0);
});

test('bad arguments throw a clear error instead of crashing', () => {
  assert.throws(() => control.planFault(), /planFault expects/);
  assert.throws(() => control.planFault({ value: 1 }), /call must name a platform call/);
  assert.throws(() => control.callCount(42), /expected a string/);
});
