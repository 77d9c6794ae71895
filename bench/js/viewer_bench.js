'use strict';
// The browser viewer at 1080p60 from the synthetic desktop: the add-on streams in this process,
// `kestrane view` runs as a process of its own (so that its CPU time is its own), and a headless
// Chromium plays the page. Prints pictures drawn a second, the page's arrival-to-screen delay,
// pictures lost and the server's CPU. Figures only.
const fs = require('node:fs');
const path = require('node:path');
const { spawn } = require('node:child_process');

const control = require('../../lib/platform_control');
const kestrane = require('../../lib');
const { Chromium } = require('../../test/js/helpers/chromium');
const { freeUdpPort } = require('../../test/js/helpers/rtp_packets');

const seconds = Number(process.env.VIEWER_BENCH_SECONDS || 60);
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const TICKS = 100;  // USER_HZ on Linux

function cpuSeconds(pid) {
  const fields = fs.readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  return (Number(fields[11]) + Number(fields[12])) / TICKS;  // utime, stime
}

const quantile = (values, q) => {
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.min(sorted.length - 1, Math.floor(q * sorted.length))];
};

async function main() {
  const port = await freeUdpPort();
  const httpPort = 20000 + (port % 20000);
  const server = spawn(process.execPath, [path.join(__dirname, '..', '..', 'bin', 'kestrane.js'), 'view', '--port', String(port), '--http', String(httpPort)],
    { stdio: ['ignore', 'pipe', 'inherit'] });
  let serverOut = '';
  server.stdout.on('data', (chunk) => { serverOut += chunk; });
  const browser = Chromium.launch({ width: 1920, height: 1080 });
  try {
    for (let i = 0; i < 50 && !serverOut.includes('open http'); ++i) await sleep(100);
    // VIEWER_BENCH_RENDERER=webgl compares the page's other way of drawing.
    const renderer = process.env.VIEWER_BENCH_RENDERER || 'bitmaprenderer';
    const page = await browser.open(`http://127.0.0.1:${httpPort}/?renderer=${renderer}`);
    await page.waitFor('window.kestraneViewer && window.kestraneViewer.figures().connected', 10000, 'the page');
    control.reset();
    control.setMachine({ ...control.currentMachine(), display: '', refreshRate: 60 });
    kestrane.start({ captureKind: 'screen', nativeHandle: 0, width: 1920, height: 1080, fps: 60, bitrate: 8_000_000,
      rtpTarget: { ip: '127.0.0.1', port }, ssrc: 0x77, payloadType: 96 });
    await page.waitFor('window.kestraneViewer.figures().pictures > 60', 10000, 'pictures');
    await sleep(1000);

    const begin = await page.evaluate('window.kestraneViewer.figures()');
    const cpuBegin = cpuSeconds(server.pid);
    const began = Date.now();
    const perSecond = [];
    while (Date.now() - began < seconds * 1000) {
      await sleep(1000);
      const f = await page.evaluate('window.kestraneViewer.figures()');
      perSecond.push({ fps: f.fps, delay: f.delayP50, decode: f.decodeP50, convert: f.convertP50 });
    }
    const wall = (Date.now() - began) / 1000;
    const cpu = cpuSeconds(server.pid) - cpuBegin;
    const end = await page.evaluate('window.kestraneViewer.figures()');
    const metrics = kestrane.getMetrics();
    kestrane.stop();

    const drawn = end.pictures - begin.pictures;
    const delays = perSecond.map((s) => s.delay).filter((d) => d !== null);
    console.log(`viewer at 1920x1080, fps 60, 8 Mbit/s from the synthetic desktop; ${wall.toFixed(1)} s measured; page draws with ${end.renderer}`);
    console.log(`sender            ${metrics.rtpFps.toFixed(1)} fps sent, ${(metrics.bitrate / 1e6).toFixed(2)} Mbit/s, encoder ${metrics.encoderName}`);
    console.log(`page              ${(drawn / wall).toFixed(1)} pictures drawn a second (per second: min ${Math.min(...perSecond.map((s) => s.fps))}, max ${Math.max(...perSecond.map((s) => s.fps))})`);
    console.log(`delay             arrival to screen p50 of each second: median ${quantile(delays, 0.5).toFixed(1)} ms, ` +
      `worst second ${Math.max(...delays).toFixed(1)} ms, best ${Math.min(...delays).toFixed(1)} ms; ` +
      `of which decode ${quantile(perSecond.map((s) => s.decode), 0.5).toFixed(1)} ms, to bitmap ${quantile(perSecond.map((s) => s.convert), 0.5).toFixed(1)} ms`);
    console.log(`lost              ${end.lost - begin.lost} packets, ${end.rejectedUnits - begin.rejectedUnits} pictures refused, ` +
      `${end.notShown - begin.notShown} not shown (the page fell behind); ` +
      `pictures drawn ${drawn}`);
    console.log(`viewer's server   ${(cpu / wall).toFixed(3)} cores (${cpu.toFixed(2)} s CPU)`);
    await page.close();
  } finally {
    kestrane.stop();
    await browser.close();
    server.kill('SIGTERM');
    control.reset();
  }
}

main().catch((error) => {
  kestrane.stop();
  console.error(error);
  process.exit(1);
});
