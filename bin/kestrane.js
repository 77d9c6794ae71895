#!/usr/bin/env node
// The streamer behind `npm start`: streams the desktop or a window as RTP and shows what arrives;
// `kestrane view` plays such a stream in a browser page.
'use strict';

const { parseArgs, UsageError, HELP } = require('../lib/cli/args');

async function main() {
  const argv = process.argv.slice(2);
  if (argv[0] === 'view') {
    const { parseViewArgs, VIEW_HELP } = require('../lib/viewer/args');
    const viewConfig = parseViewArgs(argv.slice(1));
    if (viewConfig.help) {
      process.stdout.write(VIEW_HELP);
      return 0;
    }
    return require('../lib/viewer/command').runViewer(viewConfig);
  }
  const config = parseArgs(argv);
  if (config.help) {
    process.stdout.write(HELP);
    return 0;
  }
  const { runStreamer } = require('../lib/cli/streamer');
  return runStreamer(config, { addon: require('../lib') });
}

// Any failure is one line on stderr: 2 for a bad command line, 1 for everything else.
main().then(
  (code) => { process.exitCode = code; },
  (error) => {
    process.stderr.write(`kestrane: ${String(error.message).replace(/^kestrane: /, '')}\n`);
    process.exitCode = error instanceof UsageError ? 2 : 1;
  });
