// What the page needs to know of an H.264 access unit in Annex B form: its NAL units, and the
// codec string that VideoDecoder wants, read from the SPS.

export function nalUnits(bytes) {
  const units = [];
  let start = -1;
  for (let i = 0; i + 2 < bytes.length; ++i) {
    if (bytes[i] === 0 && bytes[i + 1] === 0 && bytes[i + 2] === 1) {
      if (start >= 0) units.push(bytes.subarray(start, i - (i > 0 && bytes[i - 1] === 0 ? 1 : 0)));
      start = i + 3;
      i += 2;
    }
  }
  if (start >= 0 && start < bytes.length) units.push(bytes.subarray(start));
  return units;
}

const hex = (byte) => byte.toString(16).padStart(2, '0');

// 'avc1.PPCCLL' from the first SPS (profile, constraint flags, level), or null without one.
export function codecString(annexB) {
  const sps = nalUnits(annexB).find((nal) => (nal[0] & 0x1f) === 7);
  if (!sps || sps.length < 4) return null;
  return `avc1.${hex(sps[1])}${hex(sps[2])}${hex(sps[3])}`;
}
