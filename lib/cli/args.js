'use strict';
// The streamer's command line: flags in, a checked configuration out. Every mistake is a
// UsageError whose message is the one line the user sees.

const crypto = require('node:crypto');

class UsageError extends Error {}

const HELP = `Usage: kestrane [options]
       kestrane view [options]   (the browser viewer; kestrane view --help)

Streams the desktop (or one window) as H.264 over RTP/UDP, writes an SDP file for players and,
when the target is this machine, receives the stream itself and shows what arrives.

  --window <id>         capture one window; the id as xwininfo prints it (0x3e00007 or decimal)
  --output <n>          capture monitor n, counted from 0 (default 0)
  --size WxH            encoded picture size (default 1920x1080)
  --fps <n>             frame rate (default 60)
  --bitrate <rate>      bits per second, e.g. 8M, 500k, 2500000 (default 8M)
  --encoder <name>      auto, nvenc or mf-h264 (default auto)
  --to <ip:port>        where the RTP goes (default 127.0.0.1:5004)
  --ssrc <n>            RTP SSRC, decimal or 0x-hex (default random)
  --payload-type <n>    RTP payload type, 96 to 127 (default 96)
  --duration <seconds>  stop by itself after this long (default: run until Ctrl-C)
  --sdp <file>          where to write the SDP file (default: in the temporary directory)
  --snapshot <out.png>  decode what the receiver got and write its last picture as a PNG
  --no-receiver         don't receive locally (lets a player on this machine take the port)
  --view                receive the stream in the browser viewer instead (see kestrane view --help)
  --http <port>         with --view: the page's HTTP port (default 8080)
  --http-host <host>    with --view: where the page is served (default 127.0.0.1)
  --help                show this text
`;

const DEFAULTS = Object.freeze({
  captureKind: 'screen',
  nativeHandle: 0,
  width: 1920,
  height: 1080,
  fps: 60,
  bitrate: 8_000_000,
  encoder: 'auto',
  ip: '127.0.0.1',
  port: 5004,
  payloadType: 96,
});

const ENCODERS = ['auto', 'nvenc', 'mf-h264'];

function parseInteger(flag, text, min, max) {
  if (!/^\d+$/.test(text)) throw new UsageError(`${flag} expects a whole number, got "${text}"`);
  const value = Number(text);
  if (value < min || value > max) throw new UsageError(`${flag} must be from ${min} to ${max}, got ${text}`);
  return value;
}

// Decimal or 0x-hex, as xwininfo and RTP tools print ids.
function parseId(flag, text, min, max) {
  let value;
  if (/^0x[0-9a-f]+$/i.test(text)) value = parseInt(text.slice(2), 16);
  else if (/^\d+$/.test(text)) value = Number(text);
  else throw new UsageError(`${flag} expects a decimal or 0x-hex number, got "${text}"`);
  if (value < min || value > max) throw new UsageError(`${flag} is out of range (${min} to 0x${max.toString(16)}), got ${text}`);
  return value;
}

function parseSize(text) {
  const match = /^(\d+)x(\d+)$/i.exec(text);
  if (!match) throw new UsageError(`--size expects WxH, e.g. 1280x720, got "${text}"`);
  const [width, height] = [Number(match[1]), Number(match[2])];
  for (const side of [width, height]) {
    // NV12 halves the chroma in both directions, so odd sides don't exist.
    if (side < 16 || side > 8192 || side % 2 !== 0) {
      throw new UsageError(`--size needs even sides from 16 to 8192, got ${text}`);
    }
  }
  return { width, height };
}

function parseBitrate(text) {
  const match = /^(\d+(?:\.\d+)?)([km]?)$/i.exec(text);
  if (!match) throw new UsageError(`--bitrate expects bits per second such as 8M, 500k or 2500000, got "${text}"`);
  const scale = { '': 1, k: 1e3, m: 1e6 }[match[2].toLowerCase()];
  const value = Math.round(Number(match[1]) * scale);
  // The add-on reads the bit rate as a signed 32-bit number.
  if (value < 10_000 || value > 2_000_000_000) throw new UsageError(`--bitrate must be from 10k to 2000M, got ${text}`);
  return value;
}

function parseIpv4(text) {
  const parts = text.split('.');
  if (parts.length !== 4 || !parts.every((p) => /^\d{1,3}$/.test(p) && Number(p) <= 255)) return null;
  return parts.map(Number);
}

function parseTarget(text) {
  const colon = text.lastIndexOf(':');
  const octets = colon > 0 ? parseIpv4(text.slice(0, colon)) : null;
  if (!octets) throw new UsageError(`--to expects a dotted IPv4 address and a port, e.g. 127.0.0.1:5004, got "${text}"`);
  const ip = octets.join('.');
  if (ip === '0.0.0.0' || ip === '255.255.255.255') throw new UsageError(`--to: ${ip} is not an address a stream can be sent to`);
  const portText = text.slice(colon + 1);
  if (!/^\d+$/.test(portText) || Number(portText) < 1 || Number(portText) > 65535) {
    throw new UsageError(`--to: the port must be from 1 to 65535, got "${portText}"`);
  }
  return { ip, port: Number(portText) };
}

// A name or address to listen on; what the system makes of it shows when the server starts.
function parseHost(flag, text) {
  if (!/^[0-9a-z.:_-]{1,253}$/i.test(text)) throw new UsageError(`${flag} expects a host name or an IP address, got "${text}"`);
  return text;
}

function parseDuration(text) {
  if (!/^\d+(\.\d+)?$/.test(text) || Number(text) <= 0 || Number(text) > 1e6) {
    throw new UsageError(`--duration expects a positive number of seconds, got "${text}"`);
  }
  return Number(text);
}

// Each flag: whether it takes a value, and what it does to the configuration.
const FLAGS = {
  '--window': (c, v) => { c.window = parseId('--window', v, 1, Number.MAX_SAFE_INTEGER); },
  '--output': (c, v) => { c.output = parseInteger('--output', v, 0, 255); },
  '--size': (c, v) => Object.assign(c, parseSize(v)),
  '--fps': (c, v) => { c.fps = parseInteger('--fps', v, 1, 240); },
  '--bitrate': (c, v) => { c.bitrate = parseBitrate(v); },
  '--encoder': (c, v) => {
    if (!ENCODERS.includes(v)) throw new UsageError(`--encoder must be one of ${ENCODERS.join(', ')}, got "${v}"`);
    c.encoder = v;
  },
  '--to': (c, v) => Object.assign(c, parseTarget(v)),
  '--ssrc': (c, v) => { c.ssrc = parseId('--ssrc', v, 0, 0xffffffff); },
  '--payload-type': (c, v) => { c.payloadType = parseInteger('--payload-type', v, 96, 127); },
  '--duration': (c, v) => { c.durationSeconds = parseDuration(v); },
  '--sdp': (c, v) => { c.sdpPath = v; },
  '--snapshot': (c, v) => { c.snapshotPath = v; },
  '--http': (c, v) => { c.httpPort = parseInteger('--http', v, 0, 65535); },
  '--http-host': (c, v) => { c.httpHost = parseHost('--http-host', v); },
};
const SWITCHES = {
  '--no-receiver': (c) => { c.receiver = false; },
  '--view': (c) => { c.view = true; },
  '--help': (c) => { c.help = true; },
  '-h': (c) => { c.help = true; },
};

// argv without node and the script. `randomSsrc` is there so that tests can pin it.
function parseArgs(argv, randomSsrc = () => crypto.randomInt(0, 2 ** 32)) {
  const given = { receiver: true, view: false, help: false, durationSeconds: null, sdpPath: null, snapshotPath: null };
  for (let i = 0; i < argv.length; ++i) {
    const arg = argv[i];
    const eq = arg.startsWith('--') ? arg.indexOf('=') : -1;
    const name = eq > 0 ? arg.slice(0, eq) : arg;
    if (SWITCHES[name]) {
      if (eq > 0) throw new UsageError(`${name} takes no value`);
      SWITCHES[name](given);
    } else if (FLAGS[name]) {
      let value;
      if (eq > 0) value = arg.slice(eq + 1);
      else if (i + 1 < argv.length) value = argv[++i];
      if (value === undefined || value === '') throw new UsageError(`${name} needs a value (see --help)`);
      FLAGS[name](given, value);
    } else {
      throw new UsageError(`unknown option "${arg}" (see --help)`);
    }
  }
  if (given.window !== undefined && given.output !== undefined) {
    throw new UsageError('--window and --output choose different things to capture; give one of them');
  }
  if ((given.httpPort !== undefined || given.httpHost !== undefined) && !given.view) {
    throw new UsageError('--http and --http-host go with --view');
  }
  if (given.view && !given.receiver) throw new UsageError('--view receives the stream itself; it does not go with --no-receiver');
  if (given.view && given.snapshotPath) throw new UsageError('--snapshot needs the built-in receiver, which --view replaces');
  const config = { ...DEFAULTS, httpPort: 8080, httpHost: '127.0.0.1', ...given };
  if (given.window !== undefined) {
    config.captureKind = 'window';
    config.nativeHandle = given.window;
  } else if (given.output !== undefined) {
    config.nativeHandle = given.output;
  }
  delete config.window;
  delete config.output;
  if (config.ssrc === undefined) config.ssrc = randomSsrc();
  return config;
}

module.exports = { parseArgs, parseInteger, parseHost, parseDuration, UsageError, HELP, DEFAULTS };
