'use strict';
// The viewer end to end in a real headless Chromium: a synthetic window of colour patches goes
// through the add-on as RTP to the viewer's server, and the page decodes and draws it.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const control = require('../../lib/platform_control');
const kestrane = require('../../lib');
const { openViewer } = require('../../lib/viewer/server');
const { Chromium } = require('./helpers/chromium');
const { LoopbackSender, rtpPacket, accessUnitsOf, accessUnitPayloads } = require('./helpers/rtp_packets');

const WIDTH = 320;
const HEIGHT = 240;
const FPS = 30;
// Four patches, one a quadrant; BT.709 studio range keeps each within a few steps.
const PATCHES = [
  { x: 0, y: 0, colour: 0xffc03020 }, { x: 160, y: 0, colour: 0xff20a040 },
  { x: 0, y: 120, colour: 0xff3050c0 }, { x: 160, y: 120, colour: 0xffe0e0e0 },
];
const TOLERANCE = 12;
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const figures = (page) => page.evaluate('window.kestraneViewer.figures()');
// The overlay is redrawn four times a second: waits until it shows `pattern`.
const overlayShows = (page, pattern) =>
  page.waitFor(`${pattern}.test(document.getElementById('overlay').textContent)`, 3000, `the overlay to show ${pattern}`);

// The canvas's pixels at the patches' centres, read back through a 2D copy of what it shows.
const READ_PATCHES = `(async () => {
  const canvas = document.getElementById('picture');
  const image = new Image();
  image.src = canvas.toDataURL('image/png');
  await image.decode();
  const copy = new OffscreenCanvas(canvas.width, canvas.height).getContext('2d');
  copy.drawImage(image, 0, 0);
  return ${JSON.stringify(PATCHES)}.map((p) => Array.from(copy.getImageData(p.x + 80, p.y + 60, 1, 1).data.slice(0, 3)));
})()`;

let browser;
let viewer;
let window;
let ticker;
const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrane-viewer-'));

// A corner block that changes FPS times a second keeps pictures coming (a still window sends none).
function keepMoving() {
  let flip = 0;
  ticker = setInterval(() => control.drawWindowRect(window, 152, 112, 16, 16, (flip ^= 1) ? 0xff000000 : 0xffffffff), 1000 / FPS);
}

function stream(ssrc) {
  kestrane.start({ captureKind: 'window', nativeHandle: window, width: WIDTH, height: HEIGHT, fps: FPS, bitrate: 2_000_000,
    rtpTarget: { ip: '127.0.0.1', port: viewer.port }, ssrc, payloadType: 96 });
}

test.before(async () => {
  control.reset();
  window = control.openWindow(WIDTH, HEIGHT, 0xff000000);
  for (const p of PATCHES) control.drawWindowRect(window, p.x, p.y, 160, 120, p.colour);
  viewer = await openViewer({ ip: '127.0.0.1', port: 0, httpPort: 0 });
  browser = Chromium.launch({ width: 640, height: 480 });
});

test.after(async () => {
  clearInterval(ticker);
  kestrane.stop();
  if (browser) await browser.close();
  if (viewer) await viewer.close();
  control.reset();
  console.log(`# viewer screenshots in ${dir}`);
});

test('the page plays the stream: the patches\' colours, the overlay\'s figures, a screenshot', async () => {
  const page = await browser.open(viewer.url);
  await page.waitFor('window.kestraneViewer && window.kestraneViewer.figures().connected', 5000, 'the page to connect');
  await overlayShows(page, new RegExp(`waiting for a key frame on port ${viewer.port}`));
  keepMoving();
  stream(0x1234);
  await page.waitFor('window.kestraneViewer.figures().pictures >= 45', 8000, 'pictures on the canvas');
  await sleep(1100);  // a whole second of figures

  const colours = await page.evaluate(READ_PATCHES);
  PATCHES.forEach((p, i) => {
    const expected = [(p.colour >> 16) & 0xff, (p.colour >> 8) & 0xff, p.colour & 0xff];
    const off = colours[i].map((c, k) => Math.abs(c - expected[k]));
    assert.ok(Math.max(...off) <= TOLERANCE, `patch ${i}: ${colours[i]} instead of ${expected}`);
  });

  const shown = await figures(page);
  const sent = kestrane.getMetrics();
  assert.deepStrictEqual([shown.width, shown.height], [WIDTH, HEIGHT]);
  assert.ok(Math.abs(shown.fps - sent.rtpFps) <= 6, `${shown.fps} pictures a second drawn, ${sent.rtpFps} sent`);
  assert.ok(shown.bitsPerSecond > 0 && shown.bitsPerSecond < 4 * sent.bitrate + 200_000, `${shown.bitsPerSecond} bit/s`);
  assert.strictEqual(shown.lost, viewer.follower.counters.lost);
  assert.ok(shown.keyFrames >= 1 && shown.keyFrames <= viewer.follower.counters.keyFrames);
  assert.ok(shown.delayP50 > 0 && shown.delayP50 < 200, `delay p50 ${shown.delayP50} ms`);
  assert.strictEqual(shown.rejectedUnits, 0);
  await overlayShows(page, new RegExp(`${WIDTH}x${HEIGHT}\\s+\\d+ pictures/s`));
  await overlayShows(page, /delay \d+\.\d ms/);
  fs.writeFileSync(path.join(dir, 'viewer.png'), await page.screenshot());
  await page.close();
});

test('a page opened mid-stream waits for the next key frame, and plays again after a sender restart', async () => {
  // Opened while the window is still: nothing arrives, and the page says what it waits for.
  clearInterval(ticker);
  kestrane.stop();
  stream(0x2222);
  await sleep(1100);
  const page = await browser.open(viewer.url);
  await page.waitFor('window.kestraneViewer && window.kestraneViewer.figures().connected', 5000, 'the page to connect');
  await overlayShows(page, /waiting for a key frame on port \d+ \(\d+ s, nothing arrives\)/);
  const keysBefore = viewer.follower.counters.keyFrames;
  const unitsBefore = viewer.follower.counters.accessUnits;
  keepMoving();
  await page.waitFor('window.kestraneViewer.figures().pictures >= 5', 5000, 'pictures after the next key frame');
  const counters = viewer.follower.counters;
  assert.ok(counters.keyFrames > keysBefore, 'a key frame came');
  const shown = await figures(page);
  assert.ok(shown.pictures <= counters.accessUnits - unitsBefore, 'no picture before the key frame');
  assert.ok(shown.keyWaitMs > 0, 'the overlay tells how long it waited');

  // The sender restarts with another SSRC and numbers from 0: a new stream, once the old is silent.
  kestrane.stop();
  stream(0x5678);
  const drawn = shown.pictures;
  await page.waitFor(`window.kestraneViewer.figures().pictures >= ${drawn + 20}`, 6000, 'pictures of the new stream');
  assert.strictEqual(viewer.follower.counters.ssrc, 0x5678);
  assert.strictEqual((await figures(page)).rejectedUnits, 0);
  await page.close();
});

test('the page refuses what its decoder rejects, counts it, and starts again at the next key frame', async () => {
  clearInterval(ticker);
  kestrane.stop();
  await sleep(1100);  // the add-on's stream falls silent, so the hand-made one takes over
  const page = await browser.open(viewer.url);
  await page.waitFor('window.kestraneViewer && window.kestraneViewer.figures().connected', 5000, 'the page to connect');
  const pattern = require('node:child_process').spawnSync(path.join(__dirname, '..', '..', 'build', 'Release', 'h264_test_pattern'),
    ['128', '96', '10']).stdout;
  const units = accessUnitsOf(pattern);
  // A key frame whose SPS names a profile no decoder has (a made-up profile_idc).
  const broken = units[0].map((nal) => ((nal[0] & 0x1f) === 7 ? Buffer.from([nal[0], 0x07, ...nal.subarray(2)]) : nal));
  const sender = new LoopbackSender(viewer.port);
  try {
    let sequence = 0;
    const send = (nals, picture) => sender.send(accessUnitPayloads(nals).map((payload, i, all) =>
      rtpPacket({ sequence: sequence++, timestamp: picture * 3000, marker: i === all.length - 1, ssrc: 0x9abc, payload })));
    await send(broken, 0);
    await page.waitFor('window.kestraneViewer.figures().rejectedUnits >= 1', 3000, 'the rejection to be counted');
    // A picture that depends on the refused one is skipped, not given to the decoder.
    await send(units[1], 1);
    for (let i = 0; i < units.length; ++i) await send(units[i], i + 2);
    await page.waitFor(`window.kestraneViewer.figures().pictures >= ${units.length}`, 3000, 'the good pictures after it');
    const shown = await figures(page);
    assert.deepStrictEqual([shown.rejectedUnits, shown.pictures], [1, units.length]);
    await overlayShows(page, /1 pictures refused by the decoder/);
  } finally {
    sender.close();
    await page.close();
  }
});
