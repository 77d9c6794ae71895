'use strict';
// Turns RTP datagrams of an H.264 stream (single NAL unit, STAP-A and FU-A packets) back into
// access units, and counts what arrived and what went missing on the way.

const NAL_SLICE = 1;
const NAL_IDR = 5;
const NAL_SPS = 7;
const NAL_PPS = 8;
const STAP_A = 24;
const FU_A = 28;
// A picture that never ends (no marker, no new timestamp) must not grow without limit.
const MAX_PENDING_BYTES = 16 * 1024 * 1024;

const nalType = (nal) => nal[0] & 0x1f;

class AccessUnitAssembler {
  // `onAccessUnit({ nals, timestamp, keyFrame, damaged })` is called for every access unit with
  // a slice; a damaged one lost packets and can't be decoded as it stands.
  constructor({ payloadType, ssrc = null, onAccessUnit = () => {} }) {
    this.payloadType = payloadType & 0x7f;
    this.ssrc = ssrc;
    this.onAccessUnit = onAccessUnit;
    this.counters = { packets: 0, payloadBytes: 0, accessUnits: 0, keyFrames: 0, gaps: 0, lost: 0, damaged: 0, ignored: 0, late: 0 };
    this.lastSequence = null;
    this.gapSeen = false;
    this.lastSps = null;
    this.lastPps = null;
    this.resetPending();
  }

  resetPending() {
    this.nals = [];
    this.pendingBytes = 0;
    this.pendingTimestamp = null;
    this.fragment = null;
    this.isDamaged = false;
  }

  push(datagram) {
    const packet = this.parseHeader(datagram);
    if (!packet) {
      this.counters.ignored += 1;
      return;
    }
    if (!this.followsInSequence(packet.sequence)) return;
    this.counters.packets += 1;
    this.counters.payloadBytes += packet.payload.length;

    const gapBefore = this.gapSeen;
    if (this.pendingTimestamp !== null && packet.timestamp !== this.pendingTimestamp) {
      this.finish();  // its marker packet was lost
      // The missing packets may as well have been this picture's first ones.
      if (gapBefore) this.isDamaged = true;
    }
    this.pendingTimestamp = packet.timestamp;
    this.depacketise(packet.payload);
    if (this.pendingBytes > MAX_PENDING_BYTES) this.damage();
    if (packet.marker) this.finish();
  }

  // RTP fixed header (RFC 3550): null for anything that isn't a packet of this stream.
  parseHeader(d) {
    if (d.length < 12 || d[0] >> 6 !== 2) return null;
    if ((d[1] & 0x7f) !== this.payloadType) return null;
    if (this.ssrc !== null && d.readUInt32BE(8) !== this.ssrc) return null;
    let offset = 12 + (d[0] & 0x0f) * 4;
    if (d[0] & 0x10) {
      if (d.length < offset + 4) return null;
      offset += 4 + d.readUInt16BE(offset + 2) * 4;
    }
    const end = d[0] & 0x20 ? d.length - d[d.length - 1] : d.length;
    if (offset >= end) return null;
    return {
      marker: (d[1] & 0x80) !== 0,
      sequence: d.readUInt16BE(2),
      timestamp: d.readUInt32BE(4),
      payload: d.subarray(offset, end),
    };
  }

  // Counts lost packets; a packet from behind the last one (late or repeated) is left out.
  followsInSequence(sequence) {
    this.gapSeen = false;
    if (this.lastSequence !== null) {
      const step = (sequence - this.lastSequence) & 0xffff;
      if (step === 0 || step >= 0x8000) {
        this.counters.late += 1;
        return false;
      }
      if (step > 1) {
        this.counters.gaps += 1;
        this.counters.lost += step - 1;
        this.gapSeen = true;
        this.damage();
      }
    }
    this.lastSequence = sequence;
    return true;
  }

  depacketise(payload) {
    const type = nalType(payload);
    if (type >= 1 && type <= 23) this.addNal(payload);
    else if (type === STAP_A) this.unpackAggregate(payload);
    else if (type === FU_A) this.addFragment(payload);
    else this.damage();  // interleaved forms don't exist in packetization-mode 1
  }

  unpackAggregate(payload) {
    let offset = 1;
    while (offset < payload.length) {
      if (offset + 2 > payload.length) return this.damage();
      const size = payload.readUInt16BE(offset);
      if (size === 0 || offset + 2 + size > payload.length) return this.damage();
      this.addNal(payload.subarray(offset + 2, offset + 2 + size));
      offset += 2 + size;
    }
  }

  addFragment(payload) {
    if (payload.length < 3) return this.damage();
    const [indicator, header] = payload;
    if (header & 0x80) {
      // The fragmented unit's own header is rebuilt from the FU indicator's F and NRI bits.
      this.fragment = [Buffer.from([(indicator & 0xe0) | (header & 0x1f)])];
    } else if (!this.fragment) {
      return this.damage();
    }
    this.fragment.push(payload.subarray(2));
    this.pendingBytes += payload.length - 2;
    if (header & 0x40) {
      const nal = Buffer.concat(this.fragment);
      this.fragment = null;
      this.addNal(nal);
    }
  }

  addNal(nal) {
    // Copied: the datagram's memory is not ours to keep.
    const copy = Buffer.from(nal);
    this.nals.push(copy);
    this.pendingBytes += copy.length;
    if (nalType(copy) === NAL_SPS) this.lastSps = copy;
    if (nalType(copy) === NAL_PPS) this.lastPps = copy;
  }

  damage() {
    this.isDamaged = true;
    this.fragment = null;
  }

  finish() {
    if (this.fragment) this.isDamaged = true;  // a unit whose last fragment never came
    const { nals, pendingTimestamp: timestamp, isDamaged: damaged } = this;
    this.resetPending();
    const hasSlice = nals.some((n) => nalType(n) === NAL_SLICE || nalType(n) === NAL_IDR);
    if (!hasSlice && !damaged) return;  // parameter sets sent on their own
    const keyFrame = !damaged && nals.some((n) => nalType(n) === NAL_IDR);
    if (damaged) this.counters.damaged += 1;
    else this.counters.accessUnits += 1;
    if (keyFrame) this.counters.keyFrames += 1;
    this.onAccessUnit({ nals, timestamp, keyFrame, damaged });
  }

  // Another stream takes over (a sender restarted): its sequence numbers start afresh, and what
  // was pending from the old one is dropped. The counters go on.
  restart() {
    this.lastSequence = null;
    this.gapSeen = false;
    this.resetPending();
  }

  // The end of the stream: whatever is pending is a picture that lost its marker.
  flush() {
    if (this.pendingTimestamp !== null) this.finish();
  }
}

module.exports = { AccessUnitAssembler, nalType, NAL_IDR, NAL_SPS, NAL_PPS };
