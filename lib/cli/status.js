'use strict';
// What the streamer prints: the one-line announcement, the two live lines (sender, receiver) and
// the summary at the end.

function formatBitrate(bitsPerSecond) {
  if (bitsPerSecond >= 1e6) return `${(bitsPerSecond / 1e6).toFixed(2)} Mbit/s`;
  if (bitsPerSecond >= 1e3) return `${(bitsPerSecond / 1e3).toFixed(1)} kbit/s`;
  return `${Math.round(bitsPerSecond)} bit/s`;
}

// `desktop`: what the platform captures, e.g. "the X display :0" or "the synthetic desktop".
function describeSource(config, desktop) {
  if (config.captureKind === 'window') return `window 0x${config.nativeHandle.toString(16)} of ${desktop}`;
  return config.nativeHandle === 0 ? desktop : `output ${config.nativeHandle} of ${desktop}`;
}

function announcement(config, desktop) {
  return `kestrane: streaming ${describeSource(config, desktop)} at ${config.width}x${config.height}, ` +
    `${config.fps} fps, ${formatBitrate(config.bitrate)} to ${config.ip}:${config.port} ` +
    `(RTP payload type ${config.payloadType}, SSRC 0x${config.ssrc.toString(16).padStart(8, '0')}, encoder ${config.encoder})`;
}

function senderLine(m) {
  return `sender    capture ${m.captureFps.toFixed(1)} fps  encode ${m.encodeFps.toFixed(1)} fps  ` +
    `rtp ${m.rtpFps.toFixed(1)} fps  ${formatBitrate(m.bitrate)}  dropped ${m.droppedFrames}  ` +
    `encoder ${m.encoderName || '-'}`;
}

// A receiver with no picture for this long says so rather than showing figures that stand still.
const QUIET_MS = 2000;

function receiverLine(c, bitsPerSecond, quietMs = 0) {
  if (quietMs >= QUIET_MS) {
    return `receiver  no picture for ${Math.floor(quietMs / 1000)} s: the screen is still, or the capture was lost`;
  }
  return `receiver  ${c.packets} packets  ${c.accessUnits} pictures  ${c.keyFrames} key frames  ` +
    `${c.gaps} gaps (${c.lost} lost)  ${formatBitrate(bitsPerSecond)}`;
}

// The receiver's bit rate between two looks at its byte counter.
class RateMeter {
  constructor(now = Date.now()) {
    this.lastBytes = 0;
    this.lastAt = now;
  }

  bitsPerSecond(bytes, now = Date.now()) {
    const elapsed = now - this.lastAt;
    if (elapsed <= 0) return 0;
    const rate = ((bytes - this.lastBytes) * 8 * 1000) / elapsed;
    this.lastBytes = bytes;
    this.lastAt = now;
    return rate;
  }
}

// Keeps a block of lines in place on a terminal; elsewhere (a pipe, a log) each refresh is printed.
class LiveLines {
  constructor(stream) {
    this.stream = stream;
    this.shown = 0;
  }

  show(lines) {
    let text = '';
    if (this.stream.isTTY && this.shown > 0) text += `\x1b[${this.shown}F`;
    for (const line of lines) text += this.stream.isTTY ? `\x1b[2K${line}\n` : `${line}\n`;
    this.stream.write(text);
    this.shown = lines.length;
  }
}

function summary({ seconds, metrics, counters }) {
  const lines = [`kestrane: stopped after ${seconds.toFixed(1)} s`];
  if (metrics) {
    lines.push(`  sent      encoder ${metrics.encoderName || '-'}, last ${metrics.rtpFps.toFixed(1)} fps at ` +
      `${formatBitrate(metrics.bitrate)}, ${metrics.droppedFrames} frames dropped`);
  }
  if (counters) {
    lines.push(`  received  ${counters.packets} packets, ${counters.accessUnits} pictures (${counters.keyFrames} key frames), ` +
      `${counters.gaps} gaps (${counters.lost} packets lost), ${counters.damaged} damaged pictures`);
  }
  return lines.join('\n');
}

module.exports = { QUIET_MS, formatBitrate, announcement, senderLine, receiverLine, RateMeter, LiveLines, summary };
