'use strict';
// Debian's Chromium, headless, driven through the DevTools protocol over its pipe (fds 3 and 4:
// JSON messages ended by a NUL byte). Installed through apt-get the first time a test needs it.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawn, spawnSync } = require('node:child_process');

const REPLY_TIMEOUT_MS = 15000;
const INSTALL_TIMEOUT_MS = 15 * 60 * 1000;

// The browser's path; installs Debian's package (about 180 MB) when missing, once per machine.
function ensureChromium() {
  const found = () => spawnSync('sh', ['-c', 'command -v chromium'], { encoding: 'utf8' }).stdout.trim();
  if (found()) return found();
  const root = path.join(__dirname, '..', '..', '..');
  const installed = spawnSync('bash', ['-c', 'source scripts/install.sh && apt_install chromium'],
    { cwd: root, stdio: ['ignore', 'inherit', 'inherit'], timeout: INSTALL_TIMEOUT_MS });
  if (installed.status !== 0 || !found()) throw new Error('chromium is not installed and apt-get could not install it');
  return found();
}

class Chromium {
  constructor(child, profile) {
    this.child = child;
    this.profile = profile;
    this.nextId = 1;
    this.waiting = new Map();
    this.exited = new Promise((resolve) => child.once('exit', resolve));
    let pending = '';
    child.stdio[4].on('data', (chunk) => {
      pending += chunk;
      let end;
      while ((end = pending.indexOf('\0')) >= 0) {
        this.dispatch(JSON.parse(pending.slice(0, end)));
        pending = pending.slice(end + 1);
      }
    });
    child.once('exit', () => {
      for (const { reject, timer } of this.waiting.values()) {
        clearTimeout(timer);
        reject(new Error('chromium exited'));
      }
      this.waiting.clear();
    });
  }

  static launch({ width = 800, height = 600 } = {}) {
    const binary = ensureChromium();
    const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrane-chromium-'));
    // A sanitised run preloads its runtime into Node; it must not reach the browser.
    const env = { ...process.env };
    delete env.LD_PRELOAD;
    delete env.ASAN_OPTIONS;
    const child = spawn(binary, [
      '--headless=new', '--no-sandbox', '--remote-debugging-pipe', `--user-data-dir=${profile}`,
      `--window-size=${width},${height}`, '--no-first-run', '--no-default-browser-check', '--mute-audio',
      '--disable-background-timer-throttling', '--disable-renderer-backgrounding', 'about:blank',
    ], { stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'], env });
    return new Chromium(child, profile);
  }

  dispatch(message) {
    const entry = this.waiting.get(message.id);
    if (!entry) return;
    this.waiting.delete(message.id);
    clearTimeout(entry.timer);
    if (message.error) entry.reject(new Error(`${entry.method}: ${message.error.message}`));
    else entry.resolve(message.result);
  }

  send(method, params = {}, sessionId = undefined) {
    const id = this.nextId++;
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        this.waiting.delete(id);
        reject(new Error(`${method}: no answer from chromium in ${REPLY_TIMEOUT_MS} ms`));
      }, REPLY_TIMEOUT_MS);
      this.waiting.set(id, { resolve, reject, timer, method });
      this.child.stdio[3].write(`${JSON.stringify({ id, method, params, sessionId })}\0`);
    });
  }

  // A new tab on `url`; answers a page object with evaluate() and screenshot().
  async open(url) {
    const { targetId } = await this.send('Target.createTarget', { url });
    const { sessionId } = await this.send('Target.attachToTarget', { targetId, flatten: true });
    const page = {
      evaluate: async (expression) => {
        const { result, exceptionDetails } = await this.send('Runtime.evaluate',
          { expression, awaitPromise: true, returnByValue: true }, sessionId);
        if (exceptionDetails) throw new Error(`in the page: ${exceptionDetails.exception?.description || exceptionDetails.text}`);
        return result.value;
      },
      // Polls `expression` until it is truthy; throws after `timeoutMs` with what it last saw.
      waitFor: async (expression, timeoutMs, what = expression) => {
        const deadline = Date.now() + timeoutMs;
        for (;;) {
          const value = await page.evaluate(expression).catch(() => undefined);
          if (value) return value;
          if (Date.now() > deadline) throw new Error(`waited ${timeoutMs} ms for ${what}`);
          await new Promise((resolve) => setTimeout(resolve, 50));
        }
      },
      screenshot: async () => Buffer.from((await this.send('Page.captureScreenshot', { format: 'png' }, sessionId)).data, 'base64'),
      close: () => this.send('Target.closeTarget', { targetId }).catch(() => {}),
    };
    return page;
  }

  // Closes the browser (killed if it doesn't go within 3 s) and removes its profile.
  async close() {
    if (this.child.exitCode === null && this.child.signalCode === null) {
      this.send('Browser.close').catch(() => {});
      const timer = setTimeout(() => this.child.kill('SIGKILL'), 3000);
      await this.exited;
      clearTimeout(timer);
    }
    fs.rmSync(this.profile, { recursive: true, force: true });
  }
}

module.exports = { Chromium, ensureChromium };
