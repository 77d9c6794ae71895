// The overlay's text: the figures of the last second and what the page is waiting for.

function bitrate(bitsPerSecond) {
  if (bitsPerSecond >= 1e6) return `${(bitsPerSecond / 1e6).toFixed(2)} Mbit/s`;
  return `${(bitsPerSecond / 1e3).toFixed(0)} kbit/s`;
}

// Middle value of a list of numbers; null for none.
export function median(values) {
  if (values.length === 0) return null;
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.floor(sorted.length / 2)];
}

export function overlayLines(s) {
  const lines = [];
  if (s.state) lines.push(s.state);
  lines.push(`${s.width && s.height ? `${s.width}x${s.height}` : 'no picture yet'}  ${s.fps.toFixed(0)} pictures/s  ${bitrate(s.bitsPerSecond)}`);
  const ms = (value) => (value === null ? '-' : `${value.toFixed(1)} ms`);
  lines.push(`delay ${ms(s.delayP50)} (arrival to screen, p50 of 1 s; decode ${ms(s.decodeP50)}, to bitmap ${ms(s.convertP50)})`);
  lines.push(`packets lost ${s.lost}  key frames ${s.keyFrames}  first key frame after ${s.keyWaitMs === null ? '-' : `${(s.keyWaitMs / 1000).toFixed(2)} s`}`);
  const refused = [];
  if (s.notShown) refused.push(`${s.notShown} pictures not shown (the page fell behind)`);
  if (s.rejectedUnits) refused.push(`${s.rejectedUnits} pictures refused by the decoder`);
  if (s.otherSsrc) refused.push(`${s.otherSsrc} packets of another SSRC`);
  if (s.otherPayloadType) refused.push(`${s.otherPayloadType} of another payload type`);
  if (s.notRtp) refused.push(`${s.notRtp} not RTP`);
  if (refused.length) lines.push(refused.join(', '));
  return lines;
}
