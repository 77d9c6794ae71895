'use strict';
const test = require('node:test');
const assert = require('node:assert');

const control = require('../../lib/platform_control');

test('no NVENC session is open in a process that has not encoded', () => {
  control.reset();
  assert.strictEqual(control.nvencOpenSessionCount(), 0);
});
