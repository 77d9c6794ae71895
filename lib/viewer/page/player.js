// Decodes access units with WebCodecs and draws each picture the moment it is decoded. A page
// starts at a key frame, and after any hole (a unit the server never sent, a new stream, a unit
// the decoder refused) it drops everything up to the next key frame.
import { codecString } from './h264.js';
import { makeRenderer } from './renderer.js';

// A page that falls behind shows fewer pictures rather than later ones: at most this many
// conversions at once (the rest are decoded but not shown), and past this many units waiting in
// the decoder it starts again at the next key frame.
const MAX_CONVERTING = 2;
const MAX_DECODE_QUEUE = 16;

export class Player {
  // `onPicture({ width, height, arrivedAt })` after each picture is handed to the canvas;
  // `onRejected(why)` when the decoder refuses what it was given.
  // `renderer`: 'bitmaprenderer' or 'webgl' (see renderer.js). Either takes the
  // decoded picture as it is: a 2D drawImage of 1080p costs about 7 ms in software.
  // `onBehind()` when a picture is not shown or the page starts again because it fell behind.
  constructor(canvas, { onPicture = () => {}, onRejected = () => {}, onBehind = () => {}, renderer = 'bitmaprenderer' } = {}) {
    this.onBehind = onBehind;
    this.converting = 0;
    this.renderer = makeRenderer(canvas, renderer);
    this.onPicture = onPicture;
    this.onRejected = onRejected;
    this.decoder = null;
    this.codec = null;
    this.arrivals = new Map();
    this.reset();
  }

  // From now on only a key frame starts the picture again.
  reset() {
    this.waitingForKey = true;
    this.expectedSequence = null;
    this.arrivals.clear();
    this.drawnSequence = -1;
    if (this.decoder && this.decoder.state !== 'closed') this.decoder.close();
    this.decoder = null;
  }

  // `unit`: { keyFrame, sequence, arrivedAt, data: Uint8Array in Annex B form }. Answers whether
  // it went to the decoder.
  accept(unit) {
    if (this.expectedSequence !== null && unit.sequence !== this.expectedSequence) this.reset();
    this.expectedSequence = (unit.sequence + 1) >>> 0;
    if (this.waitingForKey && !unit.keyFrame) return false;
    if (!unit.keyFrame && this.decoder && this.decoder.decodeQueueSize > MAX_DECODE_QUEUE) {
      this.reset();
      this.onBehind();
      return false;
    }
    if (unit.keyFrame && !this.configureFor(unit.data)) return false;
    this.waitingForKey = false;
    this.arrivals.set(unit.sequence, { arrivedAt: unit.arrivedAt, decodeAt: performance.now() });
    try {
      // Sequences stand in for times: the decoder hands them back with the picture.
      this.decoder.decode(new EncodedVideoChunk({ type: unit.keyFrame ? 'key' : 'delta', timestamp: unit.sequence, data: unit.data }));
    } catch (error) {
      this.refuse(error);
      return false;
    }
    return true;
  }

  configureFor(data) {
    const codec = codecString(data);
    if (!codec) {
      this.refuse(new Error('a key frame without a sequence parameter set'));
      return false;
    }
    if (this.decoder && this.decoder.state === 'configured' && codec === this.codec) return true;
    if (this.decoder && this.decoder.state !== 'closed') this.decoder.close();
    const decoder = new VideoDecoder({
      output: (frame) => this.draw(frame),
      error: (error) => { if (this.decoder === decoder) this.refuse(error); },
    });
    try {
      // Without optimizeForLatency the decoder holds a picture back: about 30 ms more.
      decoder.configure({ codec, optimizeForLatency: true });
    } catch (error) {
      this.decoder = null;
      this.refuse(error);
      return false;
    }
    this.decoder = decoder;
    this.codec = codec;
    return true;
  }

  refuse(error) {
    this.reset();
    this.onRejected(String(error && error.message ? error.message : error));
  }

  async draw(frame) {
    const sequence = frame.timestamp;
    const { arrivedAt, decodeAt } = this.arrivals.get(sequence) || {};
    this.arrivals.delete(sequence);
    const decodedAt = performance.now();
    const width = frame.displayWidth;
    const height = frame.displayHeight;
    if (this.renderer.kind !== 'bitmaprenderer') {
      try {
        this.renderer.draw(frame, width, height);
      } finally {
        frame.close();
      }
    } else {
      if (this.converting >= MAX_CONVERTING) {
        frame.close();
        this.onBehind();
        return;
      }
      let bitmap;
      this.converting += 1;
      try {
        bitmap = await createImageBitmap(frame);
      } catch {
        return;
      } finally {
        this.converting -= 1;
        frame.close();
      }
      // A picture that lost the race to a newer one is not shown.
      if (sequence < this.drawnSequence && this.drawnSequence - sequence < 2 ** 31) {
        bitmap.close();
        return;
      }
      this.drawnSequence = sequence;
      this.renderer.draw(bitmap, width, height);
    }
    this.onPicture({ width, height, arrivedAt, decodeMs: decodedAt - decodeAt, convertMs: performance.now() - decodedAt });
  }
}
