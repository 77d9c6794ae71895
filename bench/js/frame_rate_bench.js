'use strict';
// Pictures a second that reach a receiver through the JavaScript API from the synthetic desktop,
// for display refresh rates and requested frame rates, beside what a user should expect:
// min(fps, refresh). Figures only.
const dgram = require('node:dgram');
const { once } = require('node:events');

const control = require('../../lib/platform_control');
const kestrane = require('../../lib');

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const seconds = Number(process.env.FRAME_RATE_BENCH_SECONDS || 4);
const cases = [[60, 60], [60, 30], [60, 24], [60, 50], [144, 60], [120, 30], [60, 0]];

async function measure(socket, refreshRate, fps) {
  control.reset();
  control.setMachine({ ...control.currentMachine(), display: '', refreshRate });
  let pictures = 0;
  const count = (datagram) => { if (datagram[1] & 0x80) pictures += 1; };
  kestrane.start({ captureKind: 'screen', nativeHandle: 0, width: 640, height: 360, fps, bitrate: 2_000_000,
    rtpTarget: { ip: '127.0.0.1', port: socket.address().port }, ssrc: 7, payloadType: 96 });
  try {
    await sleep(1000);
    socket.on('message', count);
    const began = process.hrtime.bigint();
    await sleep(seconds * 1000);
    socket.off('message', count);
    const elapsed = Number(process.hrtime.bigint() - began) / 1e9;
    return { delivered: pictures / elapsed, metrics: kestrane.getMetrics() };
  } finally {
    kestrane.stop();
  }
}

async function main() {
  const socket = dgram.createSocket({ type: 'udp4', recvBufferSize: 8 * 1024 * 1024 });
  socket.bind(0, '127.0.0.1');
  await once(socket, 'listening');
  socket.on('message', () => {});
  console.log(`frame rate through the JavaScript API, synthetic desktop 640x360, ${seconds} s a case`);
  console.log('refresh  fps  expected  delivered  ratio   capture  encode');
  for (const [refreshRate, fps] of cases) {
    const { delivered, metrics } = await measure(socket, refreshRate, fps);
    const expected = Math.min(Math.max(fps, 1), refreshRate);
    console.log(`${String(refreshRate).padStart(7)}  ${String(fps).padStart(3)}  ${expected.toFixed(1).padStart(8)}` +
      `  ${delivered.toFixed(1).padStart(9)}  ${(delivered / expected).toFixed(3)}` +
      `  ${metrics.captureFps.toFixed(1).padStart(7)}  ${metrics.encodeFps.toFixed(1).padStart(6)}`);
  }
  socket.close();
  control.reset();
}

main().catch((error) => {
  kestrane.stop();
  console.error(error);
  process.exit(1);
});
