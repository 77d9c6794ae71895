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

test('a planned fault takes the call it is planned for, then the call works again', () => {
  control.reset();
  // The second call fails once; a failed OutputDebugStringA loses its text.
  control.planFault({ call: 'OutputDebugStringA', after: 1 });
  control.writeDebugOutput('a\n');
  control.writeDebugOutput('lost\n');
  control.writeDebugOutput('b\n');
  assert.deepStrictEqual(control.debugOutput(), ['a\n', 'b\n']);
  assert.strictEqual(control.callCount('OutputDebugStringA'), 3);

  // A delay that does not fail lets the call run.
  control.planFault({ call: 'OutputDebugStringA', fails: false, delayMs: 1 });
  control.writeDebugOutput('slow\n');
  assert.deepStrictEqual(control.debugOutput(), ['a\n', 'b\n', 'slow\n']);
  control.reset();
  assert.strictEqual(control.callCount('OutputDebugStringA'), 0);
  assert.strictEqual(control.datagramsSent(), 0);
});

test('bad arguments throw a clear error instead of crashing', () => {
  assert.throws(() => control.planFault(), /planFault expects/);
  assert.throws(() => control.planFault({ value: 1 }), /call must name a platform call/);
  assert.throws(() => control.callCount(42), /expected a string/);
});
