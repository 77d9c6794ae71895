'use strict';
// The compare bench's child processes: each in a process group of its own so that it goes with
// everything it started, all of them ended when the bench ends however it ends, and every wait
// bounded.

const { spawn } = require('node:child_process');
const fs = require('node:fs');

const running = new Set();

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

function start(command, args, options = {}) {
  const child = spawn(command, args, { stdio: ['ignore', 'ignore', 'ignore'], ...options, detached: true });
  child.exited = new Promise((resolve) => {
    child.once('exit', (code, signal) => resolve({ code, signal }));
    child.once('error', (error) => resolve({ error }));
  });
  if (child.pid) running.add(child);
  child.exited.then(() => running.delete(child));
  return child;
}

function signalGroup(child, signal) {
  try {
    process.kill(-child.pid, signal);
  } catch {
    // already gone
  }
}

// Asks politely, then insists after `graceMs`.
async function stop(child, signal = 'SIGTERM', graceMs = 3000) {
  if (!running.has(child)) return;
  signalGroup(child, signal);
  const done = await Promise.race([child.exited.then(() => true), sleep(graceMs).then(() => false)]);
  if (!done) {
    signalGroup(child, 'SIGKILL');
    await Promise.race([child.exited, sleep(2000)]);
  }
}

function killAll() {
  for (const child of running) signalGroup(child, 'SIGKILL');
}

// Resolves with the first line of the child's stdout that `test` accepts (its match), or null when
// the child ends or `timeoutMs` passes first.
function waitForLine(child, test, timeoutMs) {
  if (!child.lines) {
    child.lines = [];
    child.waiters = new Set();
    let text = '';
    child.stdout.setEncoding('utf8');
    child.stdout.on('data', (chunk) => {
      text += chunk;
      for (let end; (end = text.indexOf('\n')) >= 0; text = text.slice(end + 1)) {
        const line = text.slice(0, end);
        child.lines.push(line);
        for (const waiter of child.waiters) waiter(line);
      }
    });
  }
  return new Promise((resolve) => {
    const finish = (value) => {
      clearTimeout(timer);
      child.waiters.delete(check);
      resolve(value);
    };
    const check = (line) => {
      const match = test(line);
      if (match) finish(match);
    };
    const timer = setTimeout(() => finish(null), timeoutMs);
    for (const line of child.lines) {
      const match = test(line);
      if (match) return finish(match);
    }
    child.waiters.add(check);
    child.exited.then(() => setTimeout(() => finish(null), 100));
  });
}

const CLOCK_TICKS = 100;  // USER_HZ: what /proc counts CPU time in on every Linux architecture

function readStat(pid) {
  try {
    const text = fs.readFileSync(`/proc/${pid}/stat`, 'utf8');
    // The command name may hold spaces and parentheses: the fields start after the last ')'.
    const fields = text.slice(text.lastIndexOf(')') + 2).split(' ');
    return { ppid: Number(fields[1]), ticks: Number(fields[11]) + Number(fields[12]) + Number(fields[13]) + Number(fields[14]) };
  } catch {
    return null;
  }
}

// CPU seconds used so far by `pid` and everything below it (children it reaped included).
function treeCpuSeconds(pid) {
  const stats = new Map();
  for (const entry of fs.readdirSync('/proc')) {
    if (!/^\d+$/.test(entry)) continue;
    const stat = readStat(entry);
    if (stat) stats.set(Number(entry), stat);
  }
  let ticks = 0;
  const wanted = new Set([pid]);
  // Parents come before children often but not always: repeat until nothing joins.
  for (let grown = true; grown;) {
    grown = false;
    for (const [id, stat] of stats) {
      if (!wanted.has(id) && wanted.has(stat.ppid)) {
        wanted.add(id);
        grown = true;
      }
    }
  }
  for (const id of wanted) ticks += stats.get(id)?.ticks ?? 0;
  return ticks / CLOCK_TICKS;
}

module.exports = { start, stop, killAll, waitForLine, treeCpuSeconds, sleep };
