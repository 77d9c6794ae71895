// Types of the native add-on's four functions. All of them are synchronous: start and stop block
// the calling thread, and a running session is observed only through getMetrics.

/** Where the RTP stream goes: one IPv4 receiver. */
export interface RtpTarget {
  /** Dotted IPv4 address, e.g. "127.0.0.1". */
  ip: string;
  /** UDP port; only the low 16 bits are used. */
  port: number;
}

export type CaptureKind = 'screen' | 'window';

/** "auto" picks NVENC on an NVIDIA adapter, else the Media Foundation encoder. */
export type EncoderPreference = 'auto' | 'nvenc' | 'mf-h264';

export interface StartOptions {
  /** What to capture; anything but "screen" captures a window. */
  captureKind?: CaptureKind;
  /** The output index for "screen" (0 is the first), the window handle (an X11 window id on Linux) for "window". */
  nativeHandle: number;
  /** Size of the encoded picture in pixels. */
  width: number;
  height: number;
  /** Target frame rate, frames per second. */
  fps: number;
  /** Target bit rate, bits per second. */
  bitrate: number;
  encoder?: EncoderPreference;
  rtpTarget: RtpTarget;
  /** RTP synchronisation source, unsigned 32-bit. */
  ssrc: number;
  /** RTP payload type; only the low 7 bits reach the header. */
  payloadType: number;
}

/** Rates are published once a second and stay at their last value when nothing happens. */
export interface Metrics {
  /** Frames captured per second. */
  captureFps: number;
  /** Pictures encoded per second. */
  encodeFps: number;
  /** Access units sent per second (not packets). */
  rtpFps: number;
  /** Frames dropped since the module was loaded; keeps counting across sessions. */
  droppedFrames: number;
  /** Bits of H.264 sent per second, without RTP and UDP headers. */
  bitrate: number;
  /** Mean size of a sent picture, bytes. */
  avgFrameBytes: number;
  /** "nvenc", "mf-h264", or "" before the first session. */
  encoderName: string;
}

/** True when a Direct3D 11 device can be created on the first adapter. */
export function isAvailable(): boolean;
/** Stops a running session, then starts a new one; throws an Error with the reason if it cannot. */
export function start(options: StartOptions): void;
/** Stops the running session, if any; waits until it has torn down. */
export function stop(): void;
export function getMetrics(): Metrics;
