'use strict';
// The package's entry: the native add-on, loaded from where the build leaves it.
const fs = require('node:fs');
const path = require('node:path');

const modulePath = path.join(__dirname, '..', 'build', 'Release', 'kestrane_win.node');

function loadAddon() {
  if (!fs.existsSync(modulePath)) {
    throw new Error(`kestrane: the native add-on is not built (${modulePath} is missing); run "npm run bootstrap" to build it`);
  }
  return require(modulePath);
}

module.exports = loadAddon();
