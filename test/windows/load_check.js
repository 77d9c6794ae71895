'use strict';
// Runs inside Windows Node: loads the Windows build of the add-on and writes what it found to a
// file (node.exe under Wine cannot write its stdout to a pipe).
const fs = require('fs');
const { Worker } = require('worker_threads');

const [modulePath, resultPath] = process.argv.slice(2);
const result = {};
const finish = () => fs.writeFileSync(resultPath, JSON.stringify(result));
try {
  const addon = require(modulePath);
  result.functions = Object.keys(addon).filter((key) => typeof addon[key] === 'function');
  result.isAvailable = addon.isAvailable();
  // The session's surface answers without any pipeline: a bad argument throws, stop is harmless,
  // and the metrics start at zero.
  try {
    addon.start(5);
  } catch (error) {
    result.badStart = `${error.name}: ${error.message}`;
  }
  result.stop = addon.stop();
  result.metrics = addon.getMetrics();
  // A second environment loads the module too and goes again: its cleanup runs on its own thread
  // while the process lives on, and the process then exits as usual.
  const worker = new Worker(
    `const { parentPort } = require('worker_threads');
     parentPort.postMessage(require(${JSON.stringify(modulePath)}).getMetrics());`,
    { eval: true });
  worker.on('message', (metrics) => { result.workerMetrics = metrics; });
  worker.on('error', (error) => { result.error = String(error && error.stack ? error.stack : error); });
  worker.on('exit', (code) => {
    result.workerExit = code;
    finish();
  });
} catch (error) {
  result.error = String(error && error.stack ? error.stack : error);
  finish();
}
