'use strict';
// The package's TypeScript declarations against the module that they describe.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');

const root = path.join(__dirname, '..', '..');
const declarations = fs.readFileSync(path.join(root, 'lib', 'index.d.ts'), 'utf8');
const kestrane = require('../../lib');

// The property names of one declared interface.
function interfaceKeys(name) {
  const body = new RegExp(`export interface ${name} \\{([^}]*)\\}`).exec(declarations)[1];
  return [...body.matchAll(/^\s+(\w+)\??:/gm)].map((m) => m[1]);
}

test('package.json points at the declarations, which declare the four functions', () => {
  const pkg = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));
  assert.strictEqual(pkg.types, 'lib/index.d.ts');
  assert.strictEqual(pkg.main, 'lib/index.js');
  assert.deepStrictEqual([...declarations.matchAll(/export function (\w+)/g)].map((m) => m[1]),
    ['isAvailable', 'start', 'stop', 'getMetrics']);
  assert.deepStrictEqual(interfaceKeys('StartOptions'),
    ['captureKind', 'nativeHandle', 'width', 'height', 'fps', 'bitrate', 'encoder', 'rtpTarget', 'ssrc', 'payloadType']);
  assert.deepStrictEqual(interfaceKeys('RtpTarget'), ['ip', 'port']);
});

test('the platform control module is reached on its own path, never through the main export', () => {
  for (const name of ['setMachine', 'reset', 'currentMachine', 'debugOutput']) assert.ok(!(name in kestrane), name);
  assert.strictEqual(typeof require('../../lib/platform_control').setMachine, 'function');
});

test('the metrics the module returns are the ones declared',
  { skip: typeof kestrane.getMetrics !== 'function' && 'the add-on does not export getMetrics() yet' }, () => {
    assert.deepStrictEqual(Object.keys(kestrane), ['isAvailable', 'start', 'stop', 'getMetrics']);
    assert.deepStrictEqual(Object.keys(kestrane.getMetrics()), interfaceKeys('Metrics'));
  });
