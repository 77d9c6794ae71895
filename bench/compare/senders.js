'use strict';
// The senders compared: kestrane's streamer and two general-purpose pipelines, each capturing the
// same 1920x1080 X display at 80 fps and sending H.264 at 33 Mbit/s as RTP to the receiver's port.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { execFileSync } = require('node:child_process');
const { installed } = require('./desktop');

function succeeds(command, args) {
  try {
    execFileSync(command, args, { stdio: 'ignore', timeout: 20000 });
    return true;
  } catch {
    return false;
  }
}

const sdpFile = (port) => path.join(os.tmpdir(), `kestrane-compare-${port}.sdp`);

const SENDERS = [
  {
    name: 'kestrane',
    available: (root) => fs.existsSync(path.join(root, 'build/Release/kestrane_win.node')),
    command: ({ port }) => [process.execPath, ['bin/kestrane.js', '--fps', '80', '--bitrate', '33M', '--size', '1920x1080',
      '--to', `127.0.0.1:${port}`, '--no-receiver', '--sdp', sdpFile(port)]],
    cleanUp: ({ port }) => fs.rmSync(sdpFile(port), { force: true }),
    // Its Ctrl-C path stops the session cleanly.
    stopSignal: 'SIGINT',
  },
  {
    name: 'gstreamer',
    available: () => installed('gst-launch-1.0') && succeeds('gst-inspect-1.0', ['ximagesrc']) &&
      succeeds('gst-inspect-1.0', ['x264enc']),
    // The I420 caps keep the encoder from choosing 4:4:4, which no Baseline decoder reads.
    command: ({ display, port }) => ['gst-launch-1.0', ['-q',
      'ximagesrc', `display-name=${display}`, 'use-damage=false', 'show-pointer=false', '!',
      'video/x-raw,framerate=80/1', '!', 'videoconvert', '!', 'video/x-raw,format=I420', '!',
      'x264enc', 'tune=zerolatency', 'speed-preset=ultrafast', 'bitrate=33000', 'key-int-max=80', '!',
      'rtph264pay', 'config-interval=1', '!', 'udpsink', 'host=127.0.0.1', `port=${port}`]],
    stopSignal: 'SIGINT',
  },
  {
    name: 'ffmpeg',
    available: () => installed('ffmpeg'),
    // -r 80 on the output: without it the grabber's microsecond time base makes ffmpeg repeat each
    // picture thousands of times, and without a frame rate x264's rate control starves.
    command: ({ display, port }) => ['ffmpeg', ['-nostdin', '-hide_banner', '-loglevel', 'error',
      '-f', 'x11grab', '-draw_mouse', '0', '-framerate', '80', '-video_size', '1920x1080', '-i', display, '-r', '80',
      '-c:v', 'libx264', '-preset', 'ultrafast', '-tune', 'zerolatency', '-b:v', '33M', '-pix_fmt', 'yuv420p',
      '-g', '80', '-f', 'rtp', `rtp://127.0.0.1:${port}`]],
    stopSignal: 'SIGINT',
  },
];

module.exports = { SENDERS };
