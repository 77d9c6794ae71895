'use strict';
// A loopback receiver for the add-on's stream, and what a viewer would make of it: RTP headers,
// access units, and the last picture decoded by a real H.264 decoder.

const dgram = require('node:dgram');
const { once } = require('node:events');
const { spawn } = require('node:child_process');

const { AccessUnitAssembler } = require('../../../lib/cli/access_units');
const { decodeLastPicture } = require('../../../lib/cli/snapshot');

const START_CODE = Buffer.from([0, 0, 0, 1]);
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// Binds before start(): start blocks the JavaScript thread, and the kernel queues what arrives.
async function openCollector() {
  const socket = dgram.createSocket({ type: 'udp4', recvBufferSize: 32 * 1024 * 1024 });
  const datagrams = [];
  socket.on('message', (message) => datagrams.push(message));
  socket.bind(0, '127.0.0.1');
  await once(socket, 'listening');
  return {
    port: socket.address().port,
    datagrams,
    // Lets the queue drain, then closes.
    async close() {
      await sleep(100);
      socket.close();
    },
  };
}

function header(datagram) {
  return {
    version: datagram[0] >> 6,
    marker: (datagram[1] & 0x80) !== 0,
    payloadType: datagram[1] & 0x7f,
    sequence: datagram.readUInt16BE(2),
    timestamp: datagram.readUInt32BE(4),
    ssrc: datagram.readUInt32BE(8),
  };
}

// Access units as a receiver puts them together, and the Annex B stream from the first key frame.
function assemble(datagrams, payloadType) {
  const units = [];
  const assembler = new AccessUnitAssembler({ payloadType, onAccessUnit: (unit) => units.push(unit) });
  for (const datagram of datagrams) assembler.push(datagram);
  const first = units.findIndex((unit) => unit.keyFrame);
  const stream = [];
  for (const unit of first < 0 ? [] : units.slice(first)) for (const nal of unit.nals) stream.push(START_CODE, nal);
  return { units, counters: assembler.counters, annexB: Buffer.concat(stream) };
}

// The last picture of the stream, as RGB.
function lastPicture(datagrams, payloadType) {
  const { annexB } = assemble(datagrams, payloadType);
  if (annexB.length === 0) throw new Error('no key frame arrived');
  return decodeLastPicture(annexB);
}

function pixel(picture, x, y) {
  const offset = (y * picture.width + x) * 3;
  return [picture.rgb[offset], picture.rgb[offset + 1], picture.rgb[offset + 2]];
}

// A private Xvfb on a display it picks itself; null where Xvfb is not installed. It doesn't reset
// when its last client leaves, so what a short-lived client like xsetroot drew stays.
async function startXvfb(width, height) {
  const server = spawn('Xvfb', ['-displayfd', '1', '-screen', '0', `${width}x${height}x24`, '-nolisten', 'tcp', '-noreset'],
    { stdio: ['ignore', 'pipe', 'ignore'] });
  const failed = once(server, 'error').then(() => null);
  const number = new Promise((resolve) => {
    let text = '';
    server.stdout.on('data', (chunk) => {
      text += chunk;
      if (text.includes('\n')) resolve(text.trim());
    });
  });
  const display = await Promise.race([number, failed, sleep(10000).then(() => null)]);
  if (!display) {
    server.kill('SIGKILL');
    return null;
  }
  return { name: `:${display}`, stop: () => server.kill('SIGKILL') };
}

module.exports = { openCollector, header, assemble, lastPicture, pixel, startXvfb, sleep };
