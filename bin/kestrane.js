#!/usr/bin/env node
// The main job. Until the add-on's JavaScript surface exists, it shows the output path at work:
// access units packetised into RTP and sent over loopback UDP, measured against a bare send loop.
'use strict';

const { spawnSync } = require('node:child_process');
const path = require('node:path');

const bench = path.join(__dirname, '..', 'build', 'cmake', 'bench', 'rtp_bench');
console.log('kestrane: RTP output over loopback UDP (packetiser beside a bare sendto loop)');
const run = spawnSync(bench, { stdio: 'inherit' });
if (run.error) {
  console.error(`kestrane: cannot run ${bench}: ${run.error.message}`);
  process.exit(1);
}
process.exit(run.status ?? 1);
