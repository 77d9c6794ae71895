'use strict';
// Whether a stream sent to `ip` arrives on this host, so that the built-in receiver can take it.

const os = require('node:os');

function isLocalAddress(ip, interfaces = os.networkInterfaces()) {
  if (ip.startsWith('127.')) return true;
  return Object.values(interfaces).some((addresses) =>
    (addresses || []).some((a) => (a.family === 'IPv4' || a.family === 4) && a.address === ip));
}

module.exports = { isLocalAddress };
