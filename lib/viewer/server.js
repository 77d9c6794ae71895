'use strict';
// The viewer's server: a UDP socket for the RTP stream, and on one HTTP port the page, its
// scripts and a WebSocket (/stream) that carries each access unit to every open page as it
// completes, with the receiver's figures once a second.

const dgram = require('node:dgram');
const fs = require('node:fs');
const http = require('node:http');
const path = require('node:path');
const { WebSocketServer } = require('ws');
const { StreamFollower, preciseNow } = require('./stream');

const PAGE_DIR = path.join(__dirname, 'page');
const PAGE_FILES = {
  '/': ['index.html', 'text/html; charset=utf-8'],
  '/index.html': ['index.html', 'text/html; charset=utf-8'],
  '/viewer.js': ['viewer.js', 'text/javascript; charset=utf-8'],
  '/player.js': ['player.js', 'text/javascript; charset=utf-8'],
  '/h264.js': ['h264.js', 'text/javascript; charset=utf-8'],
  '/overlay.js': ['overlay.js', 'text/javascript; charset=utf-8'],
  '/renderer.js': ['renderer.js', 'text/javascript; charset=utf-8'],
};
const RECEIVE_BUFFER_BYTES = 32 * 1024 * 1024;
// A page that can't keep up loses units rather than growing this process without limit.
const MAX_BUFFERED_BYTES = 8 * 1024 * 1024;
const STATS_MS = 1000;
const BIND_TIMEOUT_MS = 2000;

function bindUdp(ip, port) {
  const socket = dgram.createSocket({ type: 'udp4', recvBufferSize: RECEIVE_BUFFER_BYTES });
  return new Promise((resolve, reject) => {
    const fail = (message) => {
      clearTimeout(timer);
      socket.close();
      reject(new Error(message));
    };
    const timer = setTimeout(() => fail(`the viewer could not bind UDP ${ip}:${port} within ${BIND_TIMEOUT_MS} ms`), BIND_TIMEOUT_MS);
    socket.once('error', (error) => {
      const why = error.code === 'EADDRINUSE' ? 'something else is listening there' : error.code || error.message;
      fail(`the viewer cannot receive RTP on ${ip}:${port}: ${why}`);
    });
    socket.bind({ address: ip, port, exclusive: true }, () => {
      clearTimeout(timer);
      socket.removeAllListeners('error');
      socket.on('error', () => {});  // none is expected once bound; never the end of the process
      resolve(socket);
    });
  });
}

function listenHttp(server, host, port) {
  return new Promise((resolve, reject) => {
    const onError = (error) => {
      const why = error.code === 'EADDRINUSE' ? 'the port is taken (choose another with --http)' : error.code || error.message;
      reject(new Error(`the viewer cannot serve http://${host}:${port}: ${why}`));
    };
    server.once('error', onError);
    server.listen(port, host, () => {
      server.off('error', onError);
      resolve();
    });
  });
}

function servePage(request, response) {
  const file = PAGE_FILES[new URL(request.url, 'http://x').pathname];
  if (request.method !== 'GET' && request.method !== 'HEAD') {
    response.writeHead(405, { allow: 'GET, HEAD' }).end();
  } else if (!file) {
    response.writeHead(404, { 'content-type': 'text/plain' }).end('not found\n');
  } else {
    const body = fs.readFileSync(path.join(PAGE_DIR, file[0]));
    response.writeHead(200, { 'content-type': file[1], 'cache-control': 'no-store', 'content-length': body.length });
    response.end(request.method === 'HEAD' ? undefined : body);
  }
}

// What a page learns about the stream: counters and where it listens.
function statsMessage(follower, port) {
  return JSON.stringify({ type: 'stats', port, ...follower.counters, lastDatagramAt: follower.lastDatagramAt, serverTime: preciseNow() });
}

// A page asks the server's time (to compare arrival times with its own clock); nothing else is read.
function answer(socket, data, isBinary) {
  if (isBinary || data.length > 256) return;
  let message;
  try {
    message = JSON.parse(data);
  } catch {
    return;
  }
  if (message && message.type === 'ping' && Number.isFinite(message.t)) {
    socket.send(JSON.stringify({ type: 'pong', t: message.t, serverTime: preciseNow() }));
  }
}

// Resolves with { url, port, httpPort, follower, clients(), close() }; rejects with an Error whose
// message is one line for the user.
async function openViewer({ ip = '0.0.0.0', port = 5004, payloadType = 96, httpHost = '127.0.0.1', httpPort = 8080 } = {}) {
  const udp = await bindUdp(ip, port);
  const rtpPort = udp.address().port;
  const clients = new Set();
  const broadcast = (text) => { for (const c of clients) if (c.readyState === 1) c.send(text); };
  const follower = new StreamFollower({
    payloadType,
    onUnit: (framed) => {
      for (const c of clients) {
        if (c.readyState === 1 && c.bufferedAmount <= MAX_BUFFERED_BYTES) c.send(framed, { binary: true });
      }
    },
    onNewStream: (ssrc) => broadcast(JSON.stringify({ type: 'stream', ssrc })),
  });
  udp.on('message', (datagram) => follower.push(datagram));

  const server = http.createServer(servePage);
  server.on('clientError', (error, socket) => socket.destroy());
  const wss = new WebSocketServer({ noServer: true, maxPayload: 4096, perMessageDeflate: false });
  server.on('upgrade', (request, socket, head) => {
    if (new URL(request.url, 'http://x').pathname !== '/stream') return socket.destroy();
    wss.handleUpgrade(request, socket, head, (ws) => {
      clients.add(ws);
      ws.on('close', () => clients.delete(ws));
      ws.on('error', () => ws.terminate());
      ws.on('message', (data, isBinary) => answer(ws, data, isBinary));
      ws.send(JSON.stringify({ type: 'hello', port: rtpPort, payloadType, ssrc: follower.ssrc }));
      ws.send(statsMessage(follower, rtpPort));
    });
  });
  try {
    await listenHttp(server, httpHost, httpPort);
  } catch (error) {
    udp.close();
    throw error;
  }
  const ticker = setInterval(() => broadcast(statsMessage(follower, rtpPort)), STATS_MS);
  const httpAddress = server.address();
  const shownHost = httpHost === '0.0.0.0' || httpHost === '::' ? '127.0.0.1' : httpHost;

  let closed = null;
  const close = () => {
    closed ??= (async () => {
      clearInterval(ticker);
      for (const c of clients) c.terminate();
      wss.close();
      server.closeAllConnections();
      await Promise.all([new Promise((r) => server.close(r)), new Promise((r) => udp.close(r))]);
    })();
    return closed;
  };
  return {
    url: `http://${shownHost.includes(':') ? `[${shownHost}]` : shownHost}:${httpAddress.port}/`,
    port: rtpPort,
    httpPort: httpAddress.port,
    follower,
    clientCount: () => clients.size,
    close,
  };
}

module.exports = { openViewer, PAGE_FILES };
