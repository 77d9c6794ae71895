'use strict';
// The session description that tells a player what the stream is, and the player command lines.

// Constrained Baseline, level 3.1: what the encoders make, for when no SPS has been seen.
const DEFAULT_PROFILE_LEVEL_ID = '42e01f';

// Bytes of the NAL unit without emulation prevention (00 00 03 -> 00 00), up to `limit`.
function unescapeNal(nal, limit) {
  const out = [];
  let zeros = 0;
  for (let i = 0; i < nal.length && out.length < limit; ++i) {
    if (zeros >= 2 && nal[i] === 3) {
      zeros = 0;
      continue;
    }
    zeros = nal[i] === 0 ? zeros + 1 : 0;
    out.push(nal[i]);
  }
  return Buffer.from(out);
}

// profile_idc, the constraint flags and level_idc follow the SPS's header byte.
function profileLevelIdFromSps(sps) {
  if (!sps || sps.length < 4 || (sps[0] & 0x1f) !== 7) return null;
  return unescapeNal(sps, 4).subarray(1, 4).toString('hex');
}

function buildSdp({ ip, port, payloadType, sps = null, pps = null }) {
  const profileLevelId = profileLevelIdFromSps(sps) || DEFAULT_PROFILE_LEVEL_ID;
  const fmtp = [`packetization-mode=1`, `profile-level-id=${profileLevelId}`];
  // With the parameter sets in the description a player can start before the next key frame.
  if (profileLevelIdFromSps(sps) && pps) {
    fmtp.push(`sprop-parameter-sets=${sps.toString('base64')},${pps.toString('base64')}`);
  }
  const lines = [
    'v=0',
    `o=- 0 0 IN IP4 ${ip}`,
    's=kestrane',
    `c=IN IP4 ${ip}`,
    't=0 0',
    `m=video ${port} RTP/AVP ${payloadType}`,
    `a=rtpmap:${payloadType} H264/90000`,
    `a=fmtp:${payloadType} ${fmtp.join(';')}`,
  ];
  return lines.join('\r\n') + '\r\n';
}

function playerCommands(sdpPath, { port, payloadType }) {
  return {
    ffplay: `ffplay -protocol_whitelist file,udp,rtp -i ${sdpPath}`,
    gstreamer: `gst-launch-1.0 udpsrc port=${port} caps="application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=${payloadType}" ! rtph264depay ! h264parse ! avdec_h264 ! videoconvert ! autovideosink sync=false`,
  };
}

module.exports = { buildSdp, profileLevelIdFromSps, playerCommands, DEFAULT_PROFILE_LEVEL_ID };
