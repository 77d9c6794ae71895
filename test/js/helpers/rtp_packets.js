'use strict';
// Hand-built RTP packets of an H.264 stream, and a loopback sender for them.

const dgram = require('node:dgram');
const { once } = require('node:events');

function rtpPacket({ sequence, timestamp, marker = false, payloadType = 96, ssrc = 0x11223344, payload }) {
  const header = Buffer.alloc(12);
  header[0] = 0x80;
  header[1] = (marker ? 0x80 : 0) | (payloadType & 0x7f);
  header.writeUInt16BE(sequence & 0xffff, 2);
  header.writeUInt32BE(timestamp >>> 0, 4);
  header.writeUInt32BE(ssrc >>> 0, 8);
  return Buffer.concat([header, payload]);
}

// A NAL unit of `size` bytes with the given header byte and a recognisable body.
function nalUnit(headerByte, size) {
  const nal = Buffer.alloc(size);
  nal[0] = headerByte;
  for (let i = 1; i < size; ++i) nal[i] = (i * 7 + headerByte) & 0xff;
  return nal;
}

// FU-A payloads of one NAL unit, `fragmentSize` bytes of it each.
function fuA(nal, fragmentSize) {
  const payloads = [];
  for (let offset = 1; offset < nal.length; offset += fragmentSize) {
    const end = Math.min(offset + fragmentSize, nal.length);
    const header = (nal[0] & 0x1f) | (offset === 1 ? 0x80 : 0) | (end === nal.length ? 0x40 : 0);
    payloads.push(Buffer.concat([Buffer.from([(nal[0] & 0xe0) | 28, header]), nal.subarray(offset, end)]));
  }
  return payloads;
}

function stapA(nals) {
  const parts = [Buffer.from([Math.max(...nals.map((n) => n[0] & 0x60)) | 24])];
  for (const nal of nals) {
    const size = Buffer.alloc(2);
    size.writeUInt16BE(nal.length);
    parts.push(size, nal);
  }
  return Buffer.concat(parts);
}

// The payloads that carry one access unit: small units alone, large ones as FU-A fragments.
function accessUnitPayloads(nals, maxPayload = 1180) {
  return nals.flatMap((nal) => (nal.length <= maxPayload ? [nal] : fuA(nal, maxPayload - 2)));
}

// NAL units of an Annex B buffer, without start codes.
function splitAnnexB(stream) {
  const starts = [];
  for (let i = 0; i + 3 <= stream.length; ++i) {
    if (stream[i] === 0 && stream[i + 1] === 0 && stream[i + 2] === 1) {
      starts.push(i + 3);
      i += 2;
    }
  }
  return starts.map((start, k) => {
    let end = k + 1 < starts.length ? starts[k + 1] - 3 : stream.length;
    while (end > start && stream[end - 1] === 0) --end;
    return stream.subarray(start, end);
  });
}

// Groups a stream's NAL units into access units: each ends with a slice (one slice per picture).
function accessUnitsOf(stream) {
  const units = [];
  let current = [];
  for (const nal of splitAnnexB(stream)) {
    current.push(nal);
    const type = nal[0] & 0x1f;
    if (type === 1 || type === 5) {
      units.push(current);
      current = [];
    }
  }
  return units;
}

class LoopbackSender {
  constructor(port) {
    this.port = port;
    this.socket = dgram.createSocket('udp4');
  }

  // Resolves once the last packet has left.
  send(packets) {
    return new Promise((resolve, reject) => {
      if (packets.length === 0) return resolve();
      packets.forEach((packet, i) => {
        const done = i === packets.length - 1 ? (error) => (error ? reject(error) : resolve()) : undefined;
        this.socket.send(packet, this.port, '127.0.0.1', done);
      });
    });
  }

  close() {
    this.socket.close();
  }
}

async function freeUdpPort() {
  const socket = dgram.createSocket('udp4');
  socket.bind(0, '127.0.0.1');
  await once(socket, 'listening');
  const { port } = socket.address();
  socket.close();
  return port;
}

module.exports = { rtpPacket, nalUnit, fuA, stapA, accessUnitPayloads, splitAnnexB, accessUnitsOf, LoopbackSender, freeUdpPort };
