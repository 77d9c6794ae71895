'use strict';
// `kestrane view`: the viewer's server until Ctrl-C or --duration, with one live line of what
// arrives and how many pages watch.

const { openViewer } = require('./server');
const status = require('../cli/status');
const { stopTrigger } = require('../cli/streamer');

const REFRESH_MS = 1000;

function viewerLine(viewer, meter, quietMs) {
  const c = viewer.follower.counters;
  const pages = `${viewer.clientCount()} page${viewer.clientCount() === 1 ? '' : 's'}`;
  const rejected = c.notRtp + c.otherPayloadType + c.otherSsrc;
  return `${status.receiverLine(c, meter.bitsPerSecond(c.payloadBytes), quietMs)}  ${pages}` +
    (rejected ? `  ${rejected} datagrams not of this stream` : '');
}

// Resolves with the exit code once stopped; rejects with a one-line Error when it can't start.
async function runViewer(config, { out = process.stdout, processLike = process } = {}) {
  const viewer = await openViewer({ port: config.port, payloadType: config.payloadType, httpHost: config.httpHost, httpPort: config.httpPort });
  const print = (line) => out.write(`${line}\n`);
  print(`kestrane view: receiving RTP on UDP port ${viewer.port} (payload type ${config.payloadType}); open ${viewer.url}`);
  const live = new status.LiveLines(out);
  const meter = new status.RateMeter();
  const trigger = stopTrigger(processLike, config.durationSeconds);
  const ticker = setInterval(() => live.show([viewerLine(viewer, meter, viewer.follower.quietMs())]), REFRESH_MS);
  try {
    await trigger.triggered;
  } finally {
    trigger.cancel();
    clearInterval(ticker);
    await viewer.close();
  }
  const c = viewer.follower.counters;
  print(`kestrane view: stopped; ${c.packets} packets, ${c.accessUnits} pictures (${c.keyFrames} key frames), ${c.lost} packets lost`);
  return 0;
}

module.exports = { runViewer, viewerLine };
