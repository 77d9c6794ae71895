'use strict';
// scripts/install.sh, which npm start, npm test and CI share: while another process holds the
// package lock it says that it waits, rather than failing or looking hung.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawn, spawnSync } = require('node:child_process');

const script = path.join(__dirname, '..', '..', 'scripts', 'install.sh');

function noteFor(lockFile) {
  const run = spawnSync('bash', ['-c', `set -euo pipefail; apt_lock_file="$1"; source "${script}"; apt_lock_note`, 'x', lockFile],
    { encoding: 'utf8' });
  assert.strictEqual(run.status, 0, run.stderr);
  return run.stderr;
}

test('the install says that it waits for a package lock another process holds, and only then', async () => {
  const lockFile = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'kestrane-lock-')), 'lock-frontend');
  fs.writeFileSync(lockFile, '');
  assert.strictEqual(noteFor(lockFile), '');
  const holder = spawn('flock', [lockFile, 'sh', '-c', 'echo held; sleep 30'], { stdio: ['ignore', 'pipe', 'inherit'] });
  try {
    await new Promise((resolve) => holder.stdout.once('data', resolve));
    assert.strictEqual(noteFor(lockFile), `waiting up to 600s for another apt-get to release ${lockFile}\n`);
  } finally {
    holder.kill();
  }
  assert.match(fs.readFileSync(script, 'utf8'), /apt-get "\$\{lock_wait\[@\]\}" install/, 'apt itself waits for the lock');
});
