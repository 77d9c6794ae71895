'use strict';
const test = require('node:test');
const assert = require('node:assert');

const control = require('../../lib/platform_control');

test('a machine set from JavaScript reads back as it was set, and reset restores the default', () => {
  control.reset();
  const machine = {
    adapters: [
      { vendorId: 0x8086, deviceId: 0x9a49, description: 'Integrated adapter ✓', outputs: [{ width: 2560, height: 1440, left: 0, top: 0 }] },
      { vendorId: 0x10de, deviceId: 0x2484, description: '', outputs: [{ width: 1920, height: 1080, left: 2560, top: 0 }, { width: 1280, height: 1024, left: -1280, top: 0 }] },
    ],
    display: ':42',
    refreshRate: 144,
    nvencInstalled: false,
    mfSoftwareClass: false,
    mfSoftwareTransforms: true,
    mfHardwareTransform: true,
    mfHardwareAdapter: 1,
    mfSlicelessAfter: 5,
  };
  control.setMachine(machine);
  assert.deepStrictEqual(control.currentMachine(), machine);

  control.reset();
  const fallback = control.currentMachine();
  assert.strictEqual(fallback.adapters.length, 1);
  assert.strictEqual(fallback.adapters[0].vendorId, 0x10de);
  assert.deepStrictEqual(fallback.adapters[0].outputs, [{ width: 1920, height: 1080, left: 0, top: 0 }]);
});

test('the software GPU starts with nothing live and nothing found by its debug layer', () => {
  control.reset();
  assert.strictEqual(control.debugLayerViolations(), 0);
  assert.deepStrictEqual(control.debugLayerMessages(), []);
  assert.deepStrictEqual(control.liveObjects(), {});
  assert.strictEqual(control.totalLiveObjects(), 0);
  assert.strictEqual(control.openHandleCount(), 0);
  assert.strictEqual(control.apartmentCount(), 0);
  assert.strictEqual(control.liveStringCount(), 0);
  assert.strictEqual(control.mfStartupCount(), 0);
  assert.deepStrictEqual(control.createDeviceCalls(), []);
  assert.deepStrictEqual(control.keyedMutexCalls(), []);
});

test('setMachine refuses a description without adapters', () => {
  assert.throws(() => control.setMachine(), /setMachine expects/);
  assert.throws(() => control.setMachine({ adapters: [7] }), /each adapter is an object/);
});
