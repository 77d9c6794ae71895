#!/usr/bin/env node
// The main job. Until the add-on's JavaScript surface exists, it shows the parts of the pipeline
// that stand: a frame scaled and converted to NV12 on the software GPU, and access units
// packetised into RTP and sent over loopback UDP, each measured.
'use strict';

const { spawnSync } = require('node:child_process');
const path = require('node:path');

const benchDir = path.join(__dirname, '..', 'build', 'cmake', 'bench');
const jobs = [
  ['video_scaler_bench', 'NV12 conversion on the software GPU'],
  ['rtp_bench', 'RTP output over loopback UDP, beside a bare sendto loop'],
];

for (const [name, what] of jobs) {
  console.log(`kestrane: ${what}`);
  const run = spawnSync(path.join(benchDir, name), { stdio: 'inherit' });
  if (run.error || run.status !== 0) {
    console.error(`kestrane: ${name} failed: ${run.error ? run.error.message : `exit status ${run.status}`}`);
    process.exit(1);
  }
}
