'use strict';
// One streaming run: receiver up, session started, SDP written, live figures until Ctrl-C or
// --duration, then a clean stop, a summary and the snapshot. Resolves with the exit code; throws
// an Error whose message is the one line to show.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { UsageError } = require('./args');
const { isLocalAddress } = require('./local_address');
const { openReceiver } = require('./receiver');
const { buildSdp, playerCommands } = require('./sdp');
const { SnapshotRecorder, writeSnapshot, TOOL_PATH } = require('./snapshot');
const status = require('./status');

const SPS_WAIT_MS = 2000;
const REFRESH_MS = 1000;

function loadPlatformControl() {
  try {
    return require('../platform_control');
  } catch {
    return null;  // a build without the software platform (Windows): nothing to steer
  }
}

// The platform captures the X display that the machine description names.
function useDisplay(control, display) {
  if (!control || !display) return;
  control.setMachine({ ...control.currentMachine(), display });
}

function desktopName(control, display) {
  if (!control) return 'the desktop';  // Windows: the real one
  return display ? `the X display ${display}` : 'the synthetic desktop';
}

function startOptions(config) {
  return {
    captureKind: config.captureKind,
    nativeHandle: config.nativeHandle,
    width: config.width,
    height: config.height,
    fps: config.fps,
    bitrate: config.bitrate,
    encoder: config.encoder,
    rtpTarget: { ip: config.ip, port: config.port },
    ssrc: config.ssrc,
    payloadType: config.payloadType,
  };
}

function checkWritable(file, what) {
  const dir = path.dirname(path.resolve(file));
  try {
    fs.accessSync(dir, fs.constants.W_OK);
  } catch {
    throw new UsageError(`${what}: cannot write into ${dir}`);
  }
}

// Resolves when a signal arrives or the duration is over; `cancel` removes both.
function stopTrigger(processLike, durationSeconds) {
  let cancel;
  const triggered = new Promise((resolve) => {
    const onSignal = (signal) => resolve(signal);
    const timer = durationSeconds ? setTimeout(() => resolve('duration'), durationSeconds * 1000) : null;
    processLike.on('SIGINT', onSignal);
    processLike.on('SIGTERM', onSignal);
    cancel = () => {
      clearTimeout(timer);
      processLike.off('SIGINT', onSignal);
      processLike.off('SIGTERM', onSignal);
    };
  });
  return { triggered, cancel: () => cancel() };
}

async function runStreamer(config, {
  addon,
  control = loadPlatformControl(),
  env = process.env,
  out = process.stdout,
  processLike = process,
  snapshotTool = TOOL_PATH,
} = {}) {
  if (typeof addon.start !== 'function') {
    throw new Error('this build of the add-on has no start(); rebuild it with "npm run bootstrap"');
  }
  const print = (line) => out.write(`${line}\n`);
  const local = isLocalAddress(config.ip);
  const receiving = config.receiver && local;
  if (config.view && !local) throw new UsageError('--view receives on this machine: --to must name one of its addresses');
  if (config.snapshotPath) {
    if (!receiving) throw new UsageError('--snapshot needs the built-in receiver: a target on this machine, without --no-receiver');
    if (!fs.existsSync(snapshotTool)) throw new Error(`--snapshot needs ${snapshotTool}; build it with "npm run bootstrap"`);
    checkWritable(config.snapshotPath, '--snapshot');
  }
  const sdpPath = path.resolve(config.sdpPath || path.join(os.tmpdir(), `kestrane-${config.port}.sdp`));
  const writeSdp = (sps, pps) => {
    try {
      fs.writeFileSync(sdpPath, buildSdp({ ip: config.ip, port: config.port, payloadType: config.payloadType, sps, pps }));
    } catch (error) {
      throw new Error(`cannot write the SDP file ${sdpPath}: ${error.code || error.message}`);
    }
  };
  writeSdp(null, null);  // a bad path shows before anything starts

  useDisplay(control, env.DISPLAY);
  if (!addon.isAvailable()) throw new Error('no Direct3D 11 device can be created on the first adapter');

  const recorder = config.snapshotPath ? new SnapshotRecorder() : null;
  let receiver = null;
  if (receiving) {
    receiver = config.view
      ? await require('../viewer/as_receiver').openViewerReceiver(config)
      : await openReceiver({
        ip: config.ip,
        port: config.port,
        payloadType: config.payloadType,
        ssrc: config.ssrc,
        onAccessUnit: (unit) => recorder && recorder.accept(unit, receiver.lastSps, receiver.lastPps),
      });
  }

  print(status.announcement(config, desktopName(control, env.DISPLAY)));
  const startedAt = Date.now();
  try {
    addon.start(startOptions(config));  // blocks up to 10 s; the receiver's datagrams queue meanwhile
  } catch (error) {
    if (receiver) await receiver.close();
    throw new Error(`the session did not start: ${error.message}`);
  }

  // From here Ctrl-C ends the run through the clean stop below.
  const trigger = stopTrigger(processLike, config.durationSeconds);
  let stopping = false;
  try {
    if (receiver) {
      // The SDP names the stream's own profile and level once its SPS has arrived.
      await receiver.waitFor(() => receiver.lastSps && receiver.lastPps, SPS_WAIT_MS);
      writeSdp(receiver.lastSps, receiver.lastPps);
    }
    const players = playerCommands(sdpPath, config);
    print(`SDP: ${sdpPath}`);
    print(`watch with ffplay:    ${players.ffplay}`);
    print(`watch with GStreamer: ${players.gstreamer}`);
    if (config.view) print(`watch in a browser:   ${receiver.url}`);
    else if (receiver) print(`(the built-in receiver holds port ${config.port}; to watch on this machine, run with --no-receiver)`);

    const live = new status.LiveLines(out);
    const meter = new status.RateMeter();
    // What queued up during start belongs to no second of the live figures.
    if (receiver) meter.bitsPerSecond(receiver.counters.payloadBytes);
    const refresh = () => {
      const lines = [status.senderLine(addon.getMetrics())];
      if (receiver) lines.push(status.receiverLine(receiver.counters, meter.bitsPerSecond(receiver.counters.payloadBytes), receiver.quietMs()));
      live.show(lines);
    };
    const ticker = setInterval(refresh, REFRESH_MS);
    await trigger.triggered;
    clearInterval(ticker);
    stopping = true;
    addon.stop();
    if (receiver) await receiver.drain();
    refresh();
  } finally {
    trigger.cancel();
    if (!stopping) addon.stop();
    if (receiver) await receiver.close();
  }

  print(status.summary({
    seconds: (Date.now() - startedAt) / 1000,
    metrics: addon.getMetrics(),
    counters: receiver ? receiver.counters : null,
  }));
  if (recorder) {
    const picture = writeSnapshot(recorder, config.snapshotPath, snapshotTool);
    print(`snapshot: ${picture.width}x${picture.height} picture written to ${path.resolve(config.snapshotPath)}`);
  }
  return 0;
}

module.exports = { runStreamer, startOptions, stopTrigger };
