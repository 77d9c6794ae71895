'use strict';
// The platform's control interface for tests and tools: the fault plan, the debug output and the
// counters of the same platform that the add-on runs on.
const path = require('node:path');

module.exports = require(path.join(__dirname, '..', 'build', 'Release', 'platform_control.node'));
