'use strict';
// The viewer's server over real loopback UDP, HTTP and WebSocket: what a page receives, and every
// kind of bad input, after which the server still serves.
const test = require('node:test');
const assert = require('node:assert');
const http = require('node:http');
const { once } = require('node:events');
const WebSocket = require('ws');

const { openViewer } = require('../../lib/viewer/server');
const { parseFrame } = require('../../lib/viewer/stream');
const { rtpPacket, nalUnit, fuA, stapA, LoopbackSender } = require('./helpers/rtp_packets');

const SPS = Buffer.from([0x67, 0x42, 0xc0, 0x1f, 0xda, 0x01, 0x40]);
const PPS = Buffer.from([0x68, 0xce, 0x3c, 0x80]);
const IDR = nalUnit(0x65, 3000);
const SLICE = nalUnit(0x41, 400);
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

function get(url, method = 'GET') {
  return new Promise((resolve, reject) => {
    const request = http.request(url, { method, timeout: 2000 }, (response) => {
      let body = '';
      response.on('data', (chunk) => { body += chunk; });
      response.on('end', () => resolve({ status: response.statusCode, type: response.headers['content-type'], body }));
    });
    request.on('timeout', () => request.destroy(new Error('no answer in 2 s')));
    request.on('error', reject);
    request.end();
  });
}

// A viewer on free ports, a page's WebSocket to it, and a sender of numbered packets.
async function setup(t) {
  const viewer = await openViewer({ ip: '127.0.0.1', port: 0, httpPort: 0 });
  const page = new WebSocket(`ws://127.0.0.1:${viewer.httpPort}/stream`);
  const units = [];
  const texts = [];
  page.on('message', (data, isBinary) => (isBinary ? units.push(parseFrame(data)) : texts.push(JSON.parse(data))));
  await once(page, 'open');
  const sender = new LoopbackSender(viewer.port);
  t.after(async () => {
    sender.close();
    page.terminate();
    await viewer.close();
  });
  const stream = { sequence: 0, ssrc: 0x11223344 };
  const packet = (payload, timestamp, marker = false, fields = {}) =>
    rtpPacket({ sequence: stream.sequence++, timestamp, marker, ssrc: stream.ssrc, payload, ...fields });
  const keyFrame = (timestamp) => [packet(SPS, timestamp), packet(PPS, timestamp),
    ...fuA(IDR, 1000).map((p, i, all) => packet(p, timestamp, i === all.length - 1))];
  // Sends and waits until the server has counted every datagram.
  const send = async (packets) => {
    const seen = () => { const c = viewer.follower.counters; return c.packets + c.late + c.notRtp + c.otherPayloadType + c.otherSsrc; };
    const before = seen();
    await sender.send(packets);
    const deadline = Date.now() + 2000;
    while (seen() < before + packets.length && Date.now() < deadline) await sleep(5);
    assert.strictEqual(seen(), before + packets.length, 'every datagram arrived');
    await sleep(30);  // and what the server sent crossed the WebSocket
  };
  return { viewer, page, units, texts, stream, packet, keyFrame, send };
}

test('each access unit reaches the page as one message: key flag, RTP time, unit sequence, arrival, Annex B', async (t) => {
  const { viewer, units, texts, packet, keyFrame, send } = await setup(t);
  assert.deepStrictEqual(texts[0], { type: 'hello', port: viewer.port, payloadType: 96, ssrc: null });
  const before = performance.timeOrigin + performance.now();
  await send([...keyFrame(3000), packet(stapA([SLICE, nalUnit(0x01, 50)]), 6000, true)]);
  const after = performance.timeOrigin + performance.now();
  assert.strictEqual(units.length, 2);
  const [key, delta] = units;
  assert.deepStrictEqual([key.keyFrame, key.timestamp, key.sequence, delta.keyFrame, delta.timestamp, delta.sequence],
    [true, 3000, 0, false, 6000, 1]);
  assert.ok(key.arrivedAt >= before && key.arrivedAt <= after, 'the arrival is the server clock at the last datagram');
  const startCode = Buffer.from([0, 0, 0, 1]);
  assert.deepStrictEqual(key.annexB, Buffer.concat([startCode, SPS, startCode, PPS, startCode, IDR]));
  assert.deepStrictEqual(delta.annexB, Buffer.concat([startCode, SLICE, startCode, nalUnit(0x01, 50)]));
  assert.ok(texts.some((m) => m.type === 'stream' && m.ssrc === 0x11223344), 'the page hears which stream plays');

  // A key frame sent without parameter sets gets the last ones, so a page can start on it.
  await send(fuA(IDR, 1000).map((p, i, all) => packet(p, 9000, i === all.length - 1)));
  assert.deepStrictEqual(units[2].annexB, Buffer.concat([startCode, SPS, startCode, PPS, startCode, IDR]));

  // The stats message once a second carries the counters.
  await sleep(1100);
  const stats = texts.filter((m) => m.type === 'stats').pop();
  assert.strictEqual(stats.port, viewer.port);
  assert.strictEqual(stats.accessUnits, 3);
  assert.strictEqual(stats.keyFrames, 2);
});

test('bad datagrams are counted and never played, and the server still serves afterwards', async (t) => {
  const { viewer, units, texts, stream, packet, keyFrame, send } = await setup(t);
  await send(keyFrame(3000));
  assert.strictEqual(units.length, 1);

  // Not RTP: too short, the wrong version, a header with nothing after it.
  await send([Buffer.from('hello'), Buffer.alloc(40, 0x41), Buffer.alloc(0), rtpPacket({ sequence: 0, timestamp: 0, payload: Buffer.alloc(0) }).subarray(0, 11)]);
  // Another payload type, and a second SSRC interleaved with the one playing.
  await send([rtpPacket({ sequence: 900, timestamp: 6000, marker: true, ssrc: stream.ssrc, payloadType: 97, payload: SLICE })]);
  await send([rtpPacket({ sequence: 500, timestamp: 1, marker: true, ssrc: 0x99, payload: SLICE }), packet(SLICE, 6000, true)]);
  const counters = viewer.follower.counters;
  assert.deepStrictEqual([counters.notRtp, counters.otherPayloadType, counters.otherSsrc], [4, 1, 1]);
  assert.deepStrictEqual(units.map((u) => u.timestamp), [3000, 6000], 'only the playing stream\'s pictures reach the page');

  // A truncated FU-A (its end never comes) and a unit that is nothing but garbage: neither is
  // sent, but each uses a unit sequence, so the page sees the hole and waits for a key frame.
  const fragments = fuA(IDR, 1000);
  await send([packet(fragments[0], 9000), packet(fragments[1], 9000, true)]);
  await send([packet(Buffer.from([0x1d, 1, 2, 3]), 12000, true)]);  // FU-B: no such thing in mode 1
  await send([packet(SLICE, 15000, true)]);
  assert.deepStrictEqual(units.map((u) => u.sequence), [0, 1, 4]);
  assert.strictEqual(viewer.follower.counters.damaged, 2);

  // After a second of silence another SSRC takes over, numbered from 0: a new stream that plays.
  await sleep(1100);
  stream.ssrc = 0x5555;
  stream.sequence = 0;
  await send(keyFrame(100));
  assert.strictEqual(units.at(-1).timestamp, 100);
  assert.strictEqual(units.at(-1).keyFrame, true);
  assert.ok(texts.some((m) => m.type === 'stream' && m.ssrc === 0x5555));
  assert.strictEqual(viewer.follower.counters.streams, 2);

  const page = await get(`${viewer.url}`);
  assert.strictEqual(page.status, 200);
});

test('the HTTP side serves the page and its scripts and refuses everything else', async (t) => {
  const { viewer, page, texts } = await setup(t);
  const index = await get(viewer.url);
  assert.match(index.type, /text\/html/);
  assert.match(index.body, /<script type="module" src="viewer.js">/);
  for (const script of ['viewer.js', 'player.js', 'h264.js', 'overlay.js']) {
    const answer = await get(`${viewer.url}${script}`);
    assert.deepStrictEqual([answer.status, answer.type], [200, 'text/javascript; charset=utf-8'], script);
  }
  assert.strictEqual((await get(`${viewer.url}../../package.json`)).status, 404);
  assert.strictEqual((await get(`${viewer.url}server.js`)).status, 404);
  assert.strictEqual((await get(viewer.url, 'POST')).status, 405);

  // A WebSocket on another path is refused; what a page sends besides a ping is ignored; a
  // message far too large ends that page's connection only.
  const stray = new WebSocket(`ws://127.0.0.1:${viewer.httpPort}/other`);
  await once(stray, 'error');
  page.send('not json');
  page.send(Buffer.from([1, 2, 3]));
  page.send(JSON.stringify({ type: 'ping', t: 12.5 }));
  await sleep(100);
  const pong = texts.find((m) => m.type === 'pong');
  assert.strictEqual(pong.t, 12.5);
  assert.ok(Math.abs(pong.serverTime - (performance.timeOrigin + performance.now())) < 1000);
  const greedy = new WebSocket(`ws://127.0.0.1:${viewer.httpPort}/stream`);
  await once(greedy, 'open');
  greedy.send(Buffer.alloc(100_000));
  await once(greedy, 'close');
  assert.strictEqual(page.readyState, WebSocket.OPEN);
  assert.strictEqual((await get(viewer.url)).status, 200);
});

test('a port already taken is one clear line, and nothing stays bound', async (t) => {
  const first = await openViewer({ ip: '127.0.0.1', port: 0, httpPort: 0 });
  t.after(() => first.close());
  await assert.rejects(openViewer({ ip: '127.0.0.1', port: first.port, httpPort: 0 }),
    new RegExp(`cannot receive RTP on 127.0.0.1:${first.port}: something else is listening there`));
  await assert.rejects(openViewer({ ip: '127.0.0.1', port: 0, httpPort: first.httpPort }),
    new RegExp(`cannot serve http://127.0.0.1:${first.httpPort}: the port is taken`));
});
