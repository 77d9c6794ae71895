'use strict';
// The viewer's side of the UDP port: sorts out datagrams that are not this stream (not RTP,
// another payload type, a second SSRC), follows one SSRC at a time, puts its packets back into
// access units with the streamer's own assembler and frames each unit for the page.

const { AccessUnitAssembler, nalType, NAL_IDR, NAL_SPS, NAL_PPS } = require('../cli/access_units');

// A stream that has been silent this long may be replaced by another SSRC (a sender restarted).
const TAKEOVER_SILENCE_MS = 1000;
const HEADER_BYTES = 20;
const FLAG_KEY_FRAME = 1;
const START_CODE = Buffer.from([0, 0, 0, 1]);

// Milliseconds since the epoch with a fraction: the page compares them with its own clock.
const preciseNow = () => performance.timeOrigin + performance.now();

// One unit as the page receives it: a 20-byte header (version, flags, header size, RTP timestamp,
// unit sequence, arrival of its last datagram as a float64) and the NAL units in Annex B form.
function frameUnit({ keyFrame, timestamp, sequence, arrivedAt, nals }) {
  const header = Buffer.alloc(HEADER_BYTES);
  header[0] = 1;
  header[1] = keyFrame ? FLAG_KEY_FRAME : 0;
  header.writeUInt16BE(HEADER_BYTES, 2);
  header.writeUInt32BE(timestamp >>> 0, 4);
  header.writeUInt32BE(sequence >>> 0, 8);
  header.writeDoubleBE(arrivedAt, 12);
  const parts = [header];
  for (const nal of nals) parts.push(START_CODE, nal);
  return Buffer.concat(parts);
}

function parseFrame(message) {
  const headerBytes = message.readUInt16BE(2);
  return {
    keyFrame: (message[1] & FLAG_KEY_FRAME) !== 0,
    timestamp: message.readUInt32BE(4),
    sequence: message.readUInt32BE(8),
    arrivedAt: message.readDoubleBE(12),
    annexB: message.subarray(headerBytes),
  };
}

class StreamFollower {
  // `onUnit(framed, unit)` for every whole access unit; `onNewStream(ssrc)` when an SSRC starts
  // playing. `now` is there so that tests can move time.
  constructor({ payloadType = 96, onUnit = () => {}, onNewStream = () => {}, now = preciseNow }) {
    this.payloadType = payloadType & 0x7f;
    this.onUnit = onUnit;
    this.onNewStream = onNewStream;
    this.now = now;
    this.ssrc = null;
    this.lastOfStreamAt = 0;
    this.unitSequence = 0;
    this.rejected = { notRtp: 0, otherPayloadType: 0, otherSsrc: 0 };
    this.streams = 0;
    this.lastDatagramAt = 0;
    this.lastPictureAt = now();
    this.assembler = new AccessUnitAssembler({ payloadType, onAccessUnit: (unit) => this.accept(unit) });
  }

  get counters() {
    return { ...this.assembler.counters, ...this.rejected, streams: this.streams, ssrc: this.ssrc };
  }

  // How long since the last whole picture (or since the start).
  quietMs() { return this.now() - this.lastPictureAt; }

  push(datagram, arrivedAt = this.now()) {
    this.lastDatagramAt = arrivedAt;
    if (datagram.length < 12 || datagram[0] >> 6 !== 2) {
      this.rejected.notRtp += 1;
      return;
    }
    if ((datagram[1] & 0x7f) !== this.payloadType) {
      this.rejected.otherPayloadType += 1;
      return;
    }
    const ssrc = datagram.readUInt32BE(8);
    const silent = arrivedAt - this.lastOfStreamAt >= TAKEOVER_SILENCE_MS;
    if (this.ssrc === null || (ssrc !== this.ssrc && silent) || (ssrc === this.ssrc && silent && this.startsOver(datagram))) {
      this.follow(ssrc);
    } else if (ssrc !== this.ssrc) {
      this.rejected.otherSsrc += 1;
      return;
    }
    this.previousArrival = this.lastOfStreamAt;
    this.lastOfStreamAt = arrivedAt;
    this.currentTimestamp = datagram.readUInt32BE(4);
    this.assembler.push(datagram);
  }

  // The same SSRC after a silence, numbered from somewhere else: a sender restarted with it pinned.
  startsOver(datagram) {
    const last = this.assembler.lastSequence;
    if (last === null) return false;
    const step = (datagram.readUInt16BE(2) - last) & 0xffff;
    return step === 0 || step > 1000;
  }

  follow(ssrc) {
    this.ssrc = ssrc;
    this.streams += 1;
    this.assembler.restart();
    this.onNewStream(ssrc);
  }

  accept(unit) {
    // The unit is sent with the next sequence; a damaged one only uses its number, so that the
    // page sees the hole and waits for a key frame.
    const sequence = this.unitSequence;
    this.unitSequence = (this.unitSequence + 1) >>> 0;
    if (unit.damaged) return;
    this.lastPictureAt = this.now();
    // Ended by its marker: this datagram was its last. Ended by the next picture's first: the one before.
    const arrivedAt = unit.timestamp === this.currentTimestamp ? this.lastOfStreamAt : this.previousArrival;
    let { nals } = unit;
    // The page configures its decoder from the SPS, so a key frame always carries the parameter sets.
    if (unit.keyFrame && !nals.some((n) => nalType(n) === NAL_SPS) && this.assembler.lastSps && this.assembler.lastPps) {
      nals = [this.assembler.lastSps, this.assembler.lastPps, ...nals];
    }
    const framed = frameUnit({ keyFrame: unit.keyFrame, timestamp: unit.timestamp, sequence, arrivedAt, nals });
    this.onUnit(framed, unit);
  }
}

module.exports = { StreamFollower, frameUnit, parseFrame, preciseNow, TAKEOVER_SILENCE_MS, HEADER_BYTES, NAL_IDR, NAL_PPS };
