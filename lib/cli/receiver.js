'use strict';
// The built-in receiver: a UDP socket on the stream's target, feeding the access unit assembler.
// It is bound before the session starts, and start() then blocks this thread for up to 10 s:
// the datagrams of that time wait in the kernel's queue, so the queue is made large.

const dgram = require('node:dgram');
const { AccessUnitAssembler } = require('./access_units');

const RECEIVE_BUFFER_BYTES = 32 * 1024 * 1024;
const BIND_TIMEOUT_MS = 2000;

// Resolves once `condition()` holds or `timeoutMs` has passed; true if it held.
function waitFor(condition, timeoutMs) {
  return new Promise((resolve) => {
    const deadline = Date.now() + timeoutMs;
    const poll = () => {
      if (condition()) return resolve(true);
      if (Date.now() >= deadline) return resolve(false);
      setTimeout(poll, 20);
    };
    poll();
  });
}

class Receiver {
  constructor(socket, assembler) {
    this.socket = socket;
    this.assembler = assembler;
    this.lastDatagramAt = 0;
    this.lastPictureAt = Date.now();
    socket.on('message', (datagram) => {
      this.lastDatagramAt = Date.now();
      assembler.push(datagram);
    });
  }

  get counters() { return this.assembler.counters; }
  get lastSps() { return this.assembler.lastSps; }
  get lastPps() { return this.assembler.lastPps; }

  // The kernel's receive buffer as granted (it caps what was asked at net.core.rmem_max).
  get receiveBufferBytes() { return this.socket.getRecvBufferSize(); }

  waitFor(condition, timeoutMs) { return waitFor(condition, timeoutMs); }

  // How long since the last whole picture, or since the start.
  quietMs() { return Date.now() - this.lastPictureAt; }

  // After the sender stopped: let what is still queued in the kernel arrive, then end the stream.
  async drain({ quietMs = 150, timeoutMs = 2000 } = {}) {
    await this.waitFor(() => Date.now() - this.lastDatagramAt >= quietMs, timeoutMs);
    this.assembler.flush();
  }

  close() {
    return new Promise((resolve) => this.socket.close(resolve));
  }
}

// Binds to ip:port and resolves with a Receiver, or rejects with an Error whose message is one
// line for the user.
function openReceiver({ ip, port, payloadType, ssrc, onAccessUnit }) {
  let receiver = null;
  const assembler = new AccessUnitAssembler({
    payloadType,
    ssrc,
    onAccessUnit: (unit) => {
      if (!unit.damaged) receiver.lastPictureAt = Date.now();
      onAccessUnit(unit);
    },
  });
  const socket = dgram.createSocket({ type: 'udp4', recvBufferSize: RECEIVE_BUFFER_BYTES });
  return new Promise((resolve, reject) => {
    const fail = (message) => {
      clearTimeout(timer);
      socket.close();
      reject(new Error(message));
    };
    const timer = setTimeout(() => fail(`the receiver could not bind ${ip}:${port} within ${BIND_TIMEOUT_MS} ms`), BIND_TIMEOUT_MS);
    socket.once('error', (error) => {
      const why = error.code === 'EADDRINUSE'
        ? 'something else is listening there (a player? then use --no-receiver)'
        : error.code || error.message;
      fail(`the receiver cannot listen on ${ip}:${port}: ${why}`);
    });
    socket.bind({ address: ip, port, exclusive: true }, () => {
      clearTimeout(timer);
      socket.removeAllListeners('error');
      // A socket error later (none is expected for a bound UDP socket) must not end the process.
      socket.on('error', () => {});
      receiver = new Receiver(socket, assembler);
      resolve(receiver);
    });
  });
}

module.exports = { openReceiver, waitFor, RECEIVE_BUFFER_BYTES };
