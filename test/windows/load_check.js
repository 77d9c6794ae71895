'use strict';
// Runs inside Windows Node: loads the Windows build of the add-on and writes what it found to a
// file (node.exe under Wine cannot write its stdout to a pipe).
const fs = require('fs');

const [modulePath, resultPath] = process.argv.slice(2);
const result = {};
try {
  const addon = require(modulePath);
  result.functions = Object.keys(addon).filter((key) => typeof addon[key] === 'function');
  result.isAvailable = addon.isAvailable();
} catch (error) {
  result.error = String(error && error.stack ? error.stack : error);
}
fs.writeFileSync(resultPath, JSON.stringify(result));
