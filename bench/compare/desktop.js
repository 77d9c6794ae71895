'use strict';
// The desktop every sender captures: a 1920x1080x24 Xvfb with a terminal scrolling text, top, a
// clock, and the frame clock painting the time at the top right.

const path = require('node:path');
const { execFileSync } = require('node:child_process');
const { start, stop, waitForLine } = require('./processes');

// A log that never ends, about 125 lines a second: the scrolling area of the picture.
const SCROLLER = `let n = 0;
setInterval(() => {
  n += 1;
  const words = ['frame', 'encode', 'send', 'queue', 'drop', 'flush', 'sync', 'idle'];
  process.stdout.write(String(n).padStart(8) + ' ' + new Date().toISOString() + ' ' +
    words[n % 8].padEnd(7) + ' ' + 'x'.repeat(n * 7 % 150) + '\\n');
}, 8);`;

function installed(command) {
  try {
    execFileSync('sh', ['-c', `command -v ${command}`], { stdio: 'ignore' });
    return true;
  } catch {
    return false;
  }
}

async function startXvfb() {
  const server = start('Xvfb', ['-displayfd', '1', '-screen', '0', '1920x1080x24', '-nolisten', 'tcp', '-noreset'],
    { stdio: ['ignore', 'pipe', 'ignore'] });
  const number = await waitForLine(server, (line) => /^\d+$/.exec(line.trim()), 10000);
  if (!number) throw new Error('Xvfb did not start');
  return { server, display: `:${number[0].trim()}` };
}

// Starts the desktop; `notes` gains a line for each part that could not be shown.
async function startDesktop(root, notes) {
  const { server, display } = await startXvfb();
  const env = { ...process.env, DISPLAY: display };
  const parts = [server];
  if (installed('xsetroot')) start('xsetroot', ['-solid', '#2e3440'], { env });
  if (installed('xterm')) {
    // 200x54 cells of the 6x13 font: about 1200x700.
    parts.push(start('xterm', ['-geometry', '200x54+16+16', '-e', process.execPath, '-e', SCROLLER], { env }));
    parts.push(start('xterm', ['-geometry', '100x30+1240+200', '-e', 'top', '-d', '1'], { env }));
  } else {
    notes.push('xterm is not installed: no scrolling text, no top');
  }
  if (installed('xclock')) parts.push(start('xclock', ['-update', '1', '-geometry', '260x260+1400+700'], { env }));
  else notes.push('xclock is not installed: no clock');

  const painter = start(path.join(root, 'build/cmake/bench/compare/frame_clock'), ['--rate', '500'],
    { env, stdio: ['ignore', 'pipe', 'inherit'] });
  parts.push(painter);
  if (!(await waitForLine(painter, (line) => line === 'ready', 10000))) throw new Error('the frame clock did not start');
  return {
    display,
    stop: async () => {
      for (const part of parts.reverse()) await stop(part, 'SIGTERM', 2000);
    },
  };
}

module.exports = { startDesktop, installed };
