'use strict';
const test = require('node:test');
const assert = require('node:assert');

const control = require('../../lib/platform_control');

test('the desktop controls answer for known outputs and refuse unknown ones and bad modes', () => {
  control.reset();
  assert.strictEqual(control.fillOutput(0, 0xff102030), true);
  const still = control.latestPresentTime(0);
  assert.ok(still > 0);
  assert.strictEqual(control.latestPresentTime(0), still, 'a filled output stays still');
  assert.strictEqual(control.movePointer(0, -5, 7), true);
  assert.strictEqual(control.latestPresentTime(0), still, 'the pointer is no new image');
  assert.strictEqual(control.setOutputMode(0, 1280, 720), true);
  assert.ok(control.latestPresentTime(0) > still, 'a mode change repaints');
  assert.strictEqual(control.freezeOutput(0), true);
  assert.strictEqual(control.animateOutput(0), true);
  control.switchDesktop();

  assert.strictEqual(control.fillOutput(1, 0), false);
  assert.strictEqual(control.latestPresentTime(7), 0);
  assert.strictEqual(control.setOutputMode(0, 0, 720), false);
  assert.throws(() => control.fillOutput(0), /expected numbers/);
  control.reset();
});
