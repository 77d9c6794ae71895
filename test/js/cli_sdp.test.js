'use strict';
const test = require('node:test');
const assert = require('node:assert');

const { buildSdp, profileLevelIdFromSps, playerCommands } = require('../../lib/cli/sdp');

test('without an SPS the description names a Baseline stream on the target port', () => {
  const sdp = buildSdp({ ip: '127.0.0.1', port: 5004, payloadType: 96 });
  assert.ok(sdp.endsWith('\r\n'));
  const lines = sdp.split('\r\n').slice(0, -1);
  assert.deepStrictEqual(lines, [
    'v=0',
    'o=- 0 0 IN IP4 127.0.0.1',
    's=kestrane',
    'c=IN IP4 127.0.0.1',
    't=0 0',
    'm=video 5004 RTP/AVP 96',
    'a=rtpmap:96 H264/90000',
    'a=fmtp:96 packetization-mode=1;profile-level-id=42e01f',
  ]);
});

test('the received SPS gives the profile and level, and the parameter sets travel along', () => {
  // High profile (100), no constraint flags, level 4.2.
  const sps = Buffer.from([0x67, 0x64, 0x00, 0x2a, 0xac, 0x2b]);
  const pps = Buffer.from([0x68, 0xee, 0x3c, 0xb0]);
  const sdp = buildSdp({ ip: '10.0.0.2', port: 6000, payloadType: 120, sps, pps });
  assert.match(sdp, /\r\nm=video 6000 RTP\/AVP 120\r\n/);
  assert.match(sdp, /\r\na=rtpmap:120 H264\/90000\r\n/);
  assert.match(sdp, /\r\na=fmtp:120 packetization-mode=1;profile-level-id=64002a;sprop-parameter-sets=Z2QAKqwr,aO48sA==\r\n/);
  assert.match(sdp, /\r\nc=IN IP4 10\.0\.0\.2\r\n/);
});

test('profile-level-id is read past emulation prevention bytes, and only from an SPS', () => {
  // 00 00 03 00: the 03 is not part of the SPS's content.
  assert.strictEqual(profileLevelIdFromSps(Buffer.from([0x67, 0x00, 0x00, 0x03, 0x00, 0x1f])), '000000');
  assert.strictEqual(profileLevelIdFromSps(Buffer.from([0x67, 0x42, 0xe0, 0x1f])), '42e01f');
  assert.strictEqual(profileLevelIdFromSps(Buffer.from([0x68, 0x42, 0xe0, 0x1f])), null);
  assert.strictEqual(profileLevelIdFromSps(Buffer.from([0x67, 0x42])), null);
  assert.strictEqual(profileLevelIdFromSps(null), null);
  assert.match(buildSdp({ ip: '127.0.0.1', port: 1, payloadType: 96, sps: Buffer.from([0x68, 1, 2, 3]), pps: Buffer.from([0x68]) }),
    /profile-level-id=42e01f\r\n/, 'no sprop-parameter-sets without a real SPS');
});

test('the player command lines read the SDP file or listen on the port', () => {
  const { ffplay, gstreamer } = playerCommands('/tmp/kestrane-5004.sdp', { port: 5004, payloadType: 97 });
  assert.strictEqual(ffplay, 'ffplay -protocol_whitelist file,udp,rtp -i /tmp/kestrane-5004.sdp');
  assert.match(gstreamer, /^gst-launch-1\.0 udpsrc port=5004 caps="application\/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=97" ! rtph264depay ! /);
});
