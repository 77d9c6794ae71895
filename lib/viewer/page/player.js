// Decodes access units with WebCodecs and draws each picture the moment it is decoded. A page
// starts at a key frame, and after any hole (a unit the server never sent, a new stream, a unit
// the decoder refused) it drops everything up to the next key frame.
import { codecString } from './h264.js';

export class Player {
  // `onPicture({ width, height, arrivedAt })` after each picture is handed to the canvas;
  // `onRejected(why)` when the decoder refuses what it was given.
  constructor(canvas, { onPicture = () => {}, onRejected = () => {} } = {}) {
    this.canvas = canvas;
    // A bitmap renderer takes the decoded picture as it is: no 2D copy (about 7 ms at 1080p in software).
    this.context = canvas.getContext('bitmaprenderer');
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
    if (unit.keyFrame && !this.configureFor(unit.data)) return false;
    this.waitingForKey = false;
    this.arrivals.set(unit.sequence, unit.arrivedAt);
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
    const arrivedAt = this.arrivals.get(sequence);
    this.arrivals.delete(sequence);
    const width = frame.displayWidth;
    const height = frame.displayHeight;
    let bitmap;
    try {
      bitmap = await createImageBitmap(frame);
    } catch {
      return;
    } finally {
      frame.close();
    }
    // A picture that lost the race to a newer one is not shown.
    if (sequence < this.drawnSequence && this.drawnSequence - sequence < 2 ** 31) {
      bitmap.close();
      return;
    }
    this.drawnSequence = sequence;
    if (this.canvas.width !== width || this.canvas.height !== height) {
      this.canvas.width = width;
      this.canvas.height = height;
    }
    this.context.transferFromImageBitmap(bitmap);
    this.onPicture({ width, height, arrivedAt });
  }
}
