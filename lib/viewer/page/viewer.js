// The page: one WebSocket to the viewer's server, units to the player, and the overlay's figures.
import { Player } from './player.js';
import { overlayLines, median } from './overlay.js';

const RECONNECT_MS = [250, 500, 1000, 2000];
const STILL_MS = 2000;
const overlay = document.getElementById('overlay');
const now = () => performance.timeOrigin + performance.now();

const figures = {
  connected: false, port: null, width: 0, height: 0, fps: 0, bitsPerSecond: 0, delayP50: null,
  decodeP50: null, convertP50: null, lost: 0, keyFrames: 0, keyWaitMs: null, rejectedUnits: 0, otherSsrc: 0, otherPayloadType: 0, notRtp: 0,
  pictures: 0, notShown: 0, lastRejection: null, state: 'connecting',
};
const recent = { pictures: [], delays: [], bytes: [], decodes: [], converts: [] };  // [time, value] of the last second
let lastPictureAt = 0;
let waitingSince = now();
let lastDatagramAt = 0;
let serverOffset = 0;  // server clock minus this page's, from the quickest ping
let clockSamples = [];

const player = new Player(document.getElementById('picture'), {
  renderer: new URLSearchParams(location.search).get('renderer') || 'bitmaprenderer',
  onPicture({ width, height, arrivedAt, decodeMs, convertMs }) {
    const drawnAt = now();
    lastPictureAt = drawnAt;
    figures.width = width;
    figures.height = height;
    figures.pictures += 1;
    recent.pictures.push([drawnAt, 1]);
    if (arrivedAt !== undefined) recent.delays.push([drawnAt, drawnAt + serverOffset - arrivedAt]);
    if (decodeMs >= 0) recent.decodes.push([drawnAt, decodeMs]);
    recent.converts.push([drawnAt, convertMs]);
  },
  onBehind() {
    figures.notShown += 1;
  },
  onRejected(why) {
    figures.rejectedUnits += 1;
    figures.lastRejection = why;
    waitingSince = now();
  },
});

function onUnit(buffer) {
  const view = new DataView(buffer);
  const unit = {
    keyFrame: (view.getUint8(1) & 1) !== 0,
    sequence: view.getUint32(8),
    arrivedAt: view.getFloat64(12),
    data: new Uint8Array(buffer, view.getUint16(2)),
  };
  recent.bytes.push([now(), unit.data.length]);
  const wasWaiting = player.waitingForKey;
  if (!player.accept(unit)) return;
  if (unit.keyFrame) figures.keyFrames += 1;
  if (wasWaiting) figures.keyWaitMs = now() - waitingSince;
}

function onText(text) {
  const message = JSON.parse(text);
  if (message.type === 'pong') {
    const back = now();
    clockSamples = [...clockSamples.slice(-9), { rtt: back - message.t, offset: message.serverTime - (message.t + back) / 2 }];
    serverOffset = clockSamples.reduce((a, b) => (b.rtt < a.rtt ? b : a)).offset;
  } else if (message.type === 'hello') {
    figures.port = message.port;
  } else if (message.type === 'stream') {
    // Another sender (or the same one restarted): its pictures don't follow on from ours.
    player.reset();
    waitingSince = now();
  } else if (message.type === 'stats') {
    figures.port = message.port;
    figures.lost = message.lost;
    figures.otherSsrc = message.otherSsrc;
    figures.otherPayloadType = message.otherPayloadType;
    figures.notRtp = message.notRtp;
    lastDatagramAt = message.lastDatagramAt - serverOffset;
  }
}

function connect(attempt = 0) {
  const socket = new WebSocket(`${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}/stream`);
  socket.binaryType = 'arraybuffer';
  let pinger = null;
  const ping = () => socket.send(JSON.stringify({ type: 'ping', t: now() }));
  socket.onopen = () => {
    attempt = 0;
    figures.connected = true;
    player.reset();
    waitingSince = now();
    clockSamples = [];
    for (let i = 0; i < 5; ++i) setTimeout(ping, i * 50);
    pinger = setInterval(ping, 5000);
  };
  socket.onmessage = (event) => (typeof event.data === 'string' ? onText(event.data) : onUnit(event.data));
  socket.onclose = () => {
    clearInterval(pinger);
    figures.connected = false;
    player.reset();
    setTimeout(() => connect(attempt + 1), RECONNECT_MS[Math.min(attempt, RECONNECT_MS.length - 1)]);
  };
}

function stateText(at) {
  if (!figures.connected) return `no connection to the viewer's server at ${location.host}: reconnecting`;
  const nothing = lastDatagramAt === 0 || at - lastDatagramAt > STILL_MS;
  if (player.waitingForKey) {
    const waited = ((at - waitingSince) / 1000).toFixed(0);
    return `waiting for a key frame on port ${figures.port} (${waited} s${nothing ? ', nothing arrives' : ''})`;
  }
  if (at - lastPictureAt > STILL_MS) {
    return `no picture for ${((at - lastPictureAt) / 1000).toFixed(0)} s: the screen is still, or the sender stopped`;
  }
  return '';
}

function refresh() {
  const at = now();
  for (const list of Object.values(recent)) while (list.length && at - list[0][0] > 1000) list.shift();
  figures.fps = recent.pictures.length;
  figures.bitsPerSecond = recent.bytes.reduce((sum, [, bytes]) => sum + bytes * 8, 0);
  figures.delayP50 = median(recent.delays.map(([, delay]) => delay));
  figures.decodeP50 = median(recent.decodes.map(([, ms]) => ms));
  figures.convertP50 = median(recent.converts.map(([, ms]) => ms));
  figures.state = stateText(at);
  overlay.textContent = overlayLines(figures).join('\n');
}

// The figures as the overlay shows them, for whoever drives the page.
window.kestraneViewer = { figures: () => ({ ...figures, waitingForKey: player.waitingForKey, renderer: player.renderer.kind }) };

if (typeof VideoDecoder === 'undefined') {
  overlay.textContent = 'This browser offers no WebCodecs here. It needs a secure context: open the page as ' +
    'http://127.0.0.1 or http://localhost (an SSH tunnel does that for another machine), or use https.';
} else {
  connect();
  setInterval(refresh, 250);
}
