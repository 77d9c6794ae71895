#!/usr/bin/env node
'use strict';
// npm run bench:compare: kestrane's streamer, a GStreamer pipeline and an FFmpeg pipeline, one
// after another on the same busy X desktop, each measured by the same receiver. Prints figures
// and asserts nothing.
//   node bench/compare/compare.js [--seconds N] [--warmup S] [--busy] [--only kestrane|gstreamer|ffmpeg]

const os = require('node:os');
const path = require('node:path');
const { start, stop, killAll, waitForLine, treeCpuSeconds, sleep } = require('./processes');
const { startDesktop } = require('./desktop');
const { SENDERS } = require('./senders');

const ROOT = path.resolve(__dirname, '../..');
const RECEIVER = path.join(ROOT, 'build/cmake/bench/compare/delay_receiver');

const USAGE = `usage: compare.js [--seconds N] [--warmup S] [--busy] [--only ${SENDERS.map((s) => s.name).join('|')}]
  --seconds N   measured time per sender (default 10)
  --warmup S    time each sender runs before the measurement (default 2)
  --busy        keep one core busy with a spinning process meanwhile
  --only NAME   measure this sender only (may be given more than once)
`;

function parseOptions(argv) {
  const options = { seconds: 10, warmup: 2, busy: false, only: [] };
  for (let i = 0; i < argv.length; i++) {
    const flag = argv[i];
    const value = () => {
      if (i + 1 >= argv.length) throw new Error(`${flag} needs a value`);
      return argv[++i];
    };
    if (flag === '--seconds' || flag === '--warmup') {
      const number = Number(value());
      if (!(number > 0 && number <= 3600)) throw new Error(`${flag} expects seconds from 0 to 3600`);
      options[flag.slice(2)] = number;
    } else if (flag === '--busy') {
      options.busy = true;
    } else if (flag === '--only') {
      const name = value();
      if (!SENDERS.some((s) => s.name === name)) throw new Error(`--only expects one of ${SENDERS.map((s) => s.name).join(', ')}`);
      options.only.push(name);
    } else if (flag === '--help') {
      options.help = true;
    } else {
      throw new Error(`unknown option ${flag}`);
    }
  }
  return options;
}

// One sender: receiver up, sender started, warm-up, the measured window, then the figures.
async function measure(sender, display, options) {
  const receiver = start(RECEIVER, [], { stdio: ['pipe', 'pipe', 'inherit'] });
  const portLine = await waitForLine(receiver, (line) => /^port (\d+)$/.exec(line), 5000);
  if (!portLine) throw new Error('the receiver did not start');
  const port = Number(portLine[1]);
  const [command, args] = sender.command({ display, port });
  const child = start(command, args, { cwd: ROOT, env: { ...process.env, DISPLAY: display }, stdio: ['ignore', 'ignore', 'pipe'] });
  let errors = '';
  child.stderr.on('data', (chunk) => { errors = (errors + chunk).slice(-2000); });
  try {
    if (!(await waitForLine(receiver, (line) => line === 'first', 20000))) {
      return { note: `no pictures arrived${errors ? `: ${errors.trim().split('\n').pop()}` : ''}` };
    }
    await sleep(options.warmup * 1000);
    receiver.stdin.write('start\n');
    const cpuBefore = treeCpuSeconds(child.pid), wallBefore = performance.now();
    await sleep(options.seconds * 1000);
    const cpuAfter = treeCpuSeconds(child.pid), wallAfter = performance.now();
    receiver.stdin.write('stop\n');
    await waitForLine(receiver, (line) => line === 'stopped', 5000);
    await stop(child, sender.stopSignal);
    // Decoding every picture of the run takes a while on a busy machine.
    const json = await waitForLine(receiver, (line) => line.startsWith('{') && line, 180000);
    if (!json) return { note: 'the receiver gave no figures' };
    return { ...JSON.parse(json), cores: (cpuAfter - cpuBefore) / ((wallAfter - wallBefore) / 1000) };
  } finally {
    await stop(child, sender.stopSignal);
    await stop(receiver, 'SIGTERM');
    sender.cleanUp?.({ port });
  }
}

function table(rows) {
  const header = ['sender', 'fps', 'p50 ms', 'p95 ms', 'p99 ms', 'unreadable', 'CPU cores'];
  const lines = rows.map(({ name, result: r }) => (r.note
    ? [name, r.note]
    : [name, r.fps.toFixed(1), ...[r.p50Ms, r.p95Ms, r.p99Ms].map((ms) => (r.unreadable < r.pictures ? ms.toFixed(1) : '-')),
      `${r.unreadable}/${r.pictures}`, r.cores.toFixed(2)]));
  const widths = header.map((h, i) => Math.max(h.length, ...lines.filter((l) => l.length > 2).map((l) => l[i].length)));
  const format = (cells) => cells.map((c, i) => (i === 0 ? c.padEnd(widths[i]) : c.padStart(widths[i]))).join('  ');
  return [format(header), ...lines.map((l) => (l.length > 2 ? format(l) : `${l[0].padEnd(widths[0])}  ${l[1]}`))].join('\n');
}

async function main() {
  const options = parseOptions(process.argv.slice(2));
  if (options.help) return process.stdout.write(USAGE);
  const chosen = SENDERS.filter((s) => options.only.length === 0 || options.only.includes(s.name));
  const notes = [];
  const desktop = await startDesktop(ROOT, notes);
  const busy = options.busy ? start('nice', ['-n', '10', 'sh', '-c', 'while :; do :; done']) : null;
  const rows = [];
  try {
    for (const sender of chosen) {
      if (!sender.available(ROOT)) {
        rows.push({ name: sender.name, result: { note: 'not installed' } });
        continue;
      }
      process.stderr.write(`${sender.name}: ${options.warmup} s warm-up, ${options.seconds} s measured (load ${os.loadavg()[0].toFixed(2)})\n`);
      rows.push({ name: sender.name, result: await measure(sender, desktop.display, options) });
      await sleep(1000);  // the machine settles between senders
    }
  } finally {
    if (busy) await stop(busy, 'SIGKILL');
    await desktop.stop();
  }
  const cores = os.cpus().length;
  console.log(`\n1920x1080 X desktop ${desktop.display}, 80 fps, 33 Mbit/s, ${options.seconds} s each` +
    `${options.busy ? ', one core kept busy' : ''}; ${cores} cores, load ${os.loadavg().map((l) => l.toFixed(2)).join(' ')}`);
  console.log(table(rows));
  console.log('fps: pictures delivered per second; p50/p95/p99: paint to last datagram; unreadable: of the pictures delivered');
  for (const { name, result: r } of rows) {
    if (r.lostPackets || r.repeated) console.log(`note: ${name} lost ${r.lostPackets} packets and repeated ${r.repeated} pictures`);
  }
  for (const note of notes) console.log(`note: ${note}`);
}

for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
  process.on(signal, () => {
    killAll();
    process.exit(130);
  });
}
process.on('exit', killAll);

main().then(
  () => { process.exitCode = 0; },
  (error) => {
    killAll();
    process.stderr.write(`bench:compare: ${error.message}\n`);
    process.exitCode = 1;
  });
