'use strict';
// The viewer in the place of the streamer's built-in receiver (`npm start -- --view`): the same
// questions answered from the viewer's stream.

const { waitFor } = require('../cli/receiver');
const { openViewer } = require('./server');

class ViewerReceiver {
  constructor(viewer) {
    this.viewer = viewer;
    this.follower = viewer.follower;
  }

  get url() { return this.viewer.url; }
  get counters() { return this.follower.counters; }
  get lastSps() { return this.follower.assembler.lastSps; }
  get lastPps() { return this.follower.assembler.lastPps; }

  waitFor(condition, timeoutMs) { return waitFor(condition, timeoutMs); }
  quietMs() { return this.follower.quietMs(); }

  async drain({ quietMs = 150, timeoutMs = 2000 } = {}) {
    await waitFor(() => Date.now() - this.follower.lastDatagramAt >= quietMs, timeoutMs);
    this.follower.assembler.flush();
  }

  close() { return this.viewer.close(); }
}

async function openViewerReceiver({ ip, port, payloadType, httpHost, httpPort }) {
  return new ViewerReceiver(await openViewer({ ip, port, payloadType, httpHost, httpPort }));
}

module.exports = { openViewerReceiver };
