'use strict';
// The command line of `kestrane view`: where the RTP comes in and where the page is served.

const { parseInteger, parseHost, parseDuration, UsageError } = require('../cli/args');

const VIEW_HELP = `Usage: kestrane view [options]

Receives an H.264 RTP stream on a UDP port and serves a page that plays it live in the browser
(WebCodecs), with its figures in an overlay. Open the printed URL in Chromium, Chrome or Edge.

  --port <n>            UDP port the RTP stream comes to (default 5004)
  --payload-type <n>    RTP payload type of the stream, 96 to 127 (default 96)
  --http <port>         the page's HTTP port (default 8080)
  --http-host <host>    where the page is served (default 127.0.0.1; the page needs a secure
                        context, so for another machine use an SSH tunnel: see the README)
  --duration <seconds>  stop by itself after this long (default: run until Ctrl-C)
  --help                show this text
`;

const FLAGS = {
  '--port': (c, v) => { c.port = parseInteger('--port', v, 1, 65535); },
  '--payload-type': (c, v) => { c.payloadType = parseInteger('--payload-type', v, 96, 127); },
  '--http': (c, v) => { c.httpPort = parseInteger('--http', v, 0, 65535); },
  '--http-host': (c, v) => { c.httpHost = parseHost('--http-host', v); },
  '--duration': (c, v) => { c.durationSeconds = parseDuration(v); },
};

function parseViewArgs(argv) {
  const config = { port: 5004, payloadType: 96, httpPort: 8080, httpHost: '127.0.0.1', durationSeconds: null, help: false };
  for (let i = 0; i < argv.length; ++i) {
    const arg = argv[i];
    if (arg === '--help' || arg === '-h') {
      config.help = true;
      continue;
    }
    const eq = arg.startsWith('--') ? arg.indexOf('=') : -1;
    const name = eq > 0 ? arg.slice(0, eq) : arg;
    if (!FLAGS[name]) throw new UsageError(`unknown option "${arg}" for view (see kestrane view --help)`);
    const value = eq > 0 ? arg.slice(eq + 1) : argv[++i];
    if (value === undefined || value === '') throw new UsageError(`${name} needs a value (see kestrane view --help)`);
    FLAGS[name](config, value);
  }
  return config;
}

module.exports = { parseViewArgs, VIEW_HELP };
