'use strict';
// --snapshot: keeps the received stream from its latest key frame on, and at the end decodes it
// with the project's h264_snapshot tool and writes the last picture as a PNG.

const fs = require('node:fs');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { encodePng } = require('./png');
const { nalType, NAL_SPS, NAL_PPS } = require('./access_units');

const TOOL_PATH = path.join(__dirname, '..', '..', 'build', 'Release', 'h264_snapshot');
const START_CODE = Buffer.from([0, 0, 0, 1]);
// A screen that never sends another key frame would otherwise grow this forever; past the limit
// the snapshot shows the picture where recording stopped.
const DEFAULT_LIMIT_BYTES = 256 * 1024 * 1024;
const DECODE_TIMEOUT_MS = 60_000;

class SnapshotRecorder {
  constructor(limitBytes = DEFAULT_LIMIT_BYTES) {
    this.limitBytes = limitBytes;
    this.chunks = [];
    this.bytes = 0;
    this.appending = false;
  }

  // An access unit from the assembler, with the parameter sets seen so far.
  accept({ nals, keyFrame, damaged }, sps, pps) {
    if (damaged) {
      // Pictures after a loss would decode against a wrong reference: wait for a key frame.
      this.appending = false;
      return;
    }
    if (keyFrame) {
      this.chunks = [];
      this.bytes = 0;
      this.appending = true;
      const types = nals.map(nalType);
      if (!types.includes(NAL_SPS) && sps) this.append(sps);
      if (!types.includes(NAL_PPS) && pps) this.append(pps);
    }
    if (!this.appending) return;
    const size = nals.reduce((sum, nal) => sum + START_CODE.length + nal.length, 0);
    if (this.bytes + size > this.limitBytes) {
      this.appending = false;
      return;
    }
    for (const nal of nals) this.append(nal);
  }

  append(nal) {
    this.chunks.push(START_CODE, nal);
    this.bytes += START_CODE.length + nal.length;
  }

  get hasKeyFrame() { return this.chunks.length > 0; }

  annexB() { return Buffer.concat(this.chunks); }
}

// Binary PPM (P6, maxval 255) as the tool writes it.
function parsePpm(buffer) {
  const header = /^P6\s+(\d+)\s+(\d+)\s+255\s/.exec(buffer.subarray(0, 64).toString('latin1'));
  if (!header) throw new Error('the decoder gave no PPM picture');
  const [width, height] = [Number(header[1]), Number(header[2])];
  const rgb = buffer.subarray(header[0].length);
  if (rgb.length !== width * height * 3) throw new Error(`the decoder's picture is cut short (${rgb.length} of ${width * height * 3} bytes)`);
  return { width, height, rgb };
}

function decodeLastPicture(annexB, toolPath = TOOL_PATH) {
  if (!fs.existsSync(toolPath)) throw new Error(`the decoder ${toolPath} is not built; run "npm run bootstrap"`);
  const run = spawnSync(toolPath, ['-'], { input: annexB, timeout: DECODE_TIMEOUT_MS, maxBuffer: 512 * 1024 * 1024 });
  if (run.error) throw new Error(`the decoder could not run: ${run.error.code || run.error.message}`);
  if (run.status !== 0) {
    const why = run.stderr.toString().trim().split('\n').pop() || `exit status ${run.status}`;
    throw new Error(`the decoder failed: ${why}`);
  }
  return parsePpm(run.stdout);
}

function writeSnapshot(recorder, pngPath, toolPath = TOOL_PATH) {
  if (!recorder.hasKeyFrame) throw new Error('no key frame was received, so there is no picture to write');
  const picture = decodeLastPicture(recorder.annexB(), toolPath);
  fs.writeFileSync(pngPath, encodePng(picture.width, picture.height, picture.rgb));
  return picture;
}

module.exports = { SnapshotRecorder, parsePpm, decodeLastPicture, writeSnapshot, TOOL_PATH };
