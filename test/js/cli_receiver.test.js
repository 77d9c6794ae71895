'use strict';
// The built-in receiver, fed hand-built RTP packets over real loopback UDP.
const test = require('node:test');
const assert = require('node:assert');

const { openReceiver } = require('../../lib/cli/receiver');
const { rtpPacket, nalUnit, fuA, stapA, LoopbackSender, freeUdpPort } = require('./helpers/rtp_packets');

const SSRC = 0x11223344;
const SPS = Buffer.from([0x67, 0x42, 0xc0, 0x1f, 0xda, 0x01, 0x40]);
const PPS = Buffer.from([0x68, 0xce, 0x3c, 0x80]);

// A receiver on a free port, a sender to it, and what the receiver handed on.
async function loopback(t) {
  const port = await freeUdpPort();
  const units = [];
  const receiver = await openReceiver({ ip: '127.0.0.1', port, payloadType: 96, ssrc: SSRC, onAccessUnit: (u) => units.push(u) });
  const sender = new LoopbackSender(port);
  t.after(async () => {
    sender.close();
    await receiver.close();
  });
  let sequence = 0;
  // Sends payloads as packets numbered on from the last, and waits until the receiver has them.
  const send = async (packets) => {
    const before = receiver.counters.packets + receiver.counters.ignored + receiver.counters.late;
    await sender.send(packets);
    const arrived = await receiver.waitFor(
      () => receiver.counters.packets + receiver.counters.ignored + receiver.counters.late >= before + packets.length, 2000);
    assert.ok(arrived, 'every datagram arrived on loopback');
  };
  const packet = (payload, timestamp, marker = false, fields = {}) =>
    rtpPacket({ sequence: sequence++, timestamp, marker, ssrc: SSRC, payload, ...fields });
  const skip = (n) => { sequence += n; };
  return { receiver, units, send, packet, skip, setSequence: (s) => { sequence = s; } };
}

test('single NAL unit packets make an access unit that the marker ends', async (t) => {
  const { receiver, units, send, packet } = await loopback(t);
  const slice = nalUnit(0x41, 300);
  await send([packet(SPS, 3000), packet(PPS, 3000), packet(slice, 3000, true)]);
  assert.strictEqual(units.length, 1);
  assert.deepStrictEqual(units[0].nals, [SPS, PPS, slice]);
  assert.strictEqual(units[0].timestamp, 3000);
  assert.strictEqual(units[0].keyFrame, false);
  assert.deepStrictEqual(receiver.lastSps, SPS);
  assert.deepStrictEqual(receiver.lastPps, PPS);

  // Without the marker the picture stays open; the next packet's marker ends it.
  const first = nalUnit(0x41, 50);
  const second = nalUnit(0x01, 60);
  await send([packet(first, 6000)]);
  assert.strictEqual(units.length, 1);
  await send([packet(second, 6000, true)]);
  assert.deepStrictEqual(units[1].nals, [first, second]);
  assert.strictEqual(receiver.counters.accessUnits, 2);
  assert.strictEqual(receiver.counters.packets, 5);
  assert.strictEqual(receiver.counters.payloadBytes, SPS.length + PPS.length + 300 + 50 + 60);
});

test('FU-A fragments (start, middle, end) rebuild the NAL unit with its own header', async (t) => {
  const { receiver, units, send, packet } = await loopback(t);
  const idr = nalUnit(0x65, 2500);
  const fragments = fuA(idr, 1178);
  assert.strictEqual(fragments.length, 3);
  await send([
    packet(stapA([SPS, PPS]), 9000),
    ...fragments.map((f, i) => packet(f, 9000, i === fragments.length - 1)),
  ]);
  assert.strictEqual(units.length, 1);
  assert.deepStrictEqual(units[0].nals, [SPS, PPS, idr]);
  assert.strictEqual(units[0].keyFrame, true);
  assert.strictEqual(receiver.counters.keyFrames, 1);
  assert.strictEqual(receiver.counters.damaged, 0);

  // F and NRI come from the FU indicator: a non-reference slice keeps NRI 0.
  const nonReference = nalUnit(0x01, 1500);
  await send(fuA(nonReference, 1000).map((f, i) => packet(f, 12000, i === 1)));
  assert.deepStrictEqual(units[1].nals, [nonReference]);
  assert.strictEqual(units[1].keyFrame, false);
});

test('a lost packet counts as a sequence gap and damages its picture', async (t) => {
  const { receiver, units, send, packet, skip } = await loopback(t);
  const fragments = fuA(nalUnit(0x65, 3000), 1178);
  await send([packet(fragments[0], 100)]);
  skip(1);  // the middle fragment is lost
  await send([packet(fragments[2], 100, true)]);
  assert.strictEqual(receiver.counters.gaps, 1);
  assert.strictEqual(receiver.counters.lost, 1);
  assert.strictEqual(units.length, 1);
  assert.strictEqual(units[0].damaged, true);
  assert.strictEqual(units[0].keyFrame, false, 'a damaged key frame is no key frame');
  assert.strictEqual(receiver.counters.keyFrames, 0);
  assert.strictEqual(receiver.counters.accessUnits, 0);
  assert.strictEqual(receiver.counters.damaged, 1);

  // Three lost at once are one gap; the lost marker packet leaves the picture to the next timestamp.
  await send([packet(nalUnit(0x41, 40), 200)]);
  skip(3);
  await send([packet(nalUnit(0x41, 40), 300, true)]);
  assert.strictEqual(receiver.counters.gaps, 2);
  assert.strictEqual(receiver.counters.lost, 4);
  assert.deepStrictEqual(units.map((u) => [u.timestamp, u.damaged]), [[100, true], [200, true], [300, true]]);

  // The stream recovers with the next whole picture.
  await send([packet(nalUnit(0x41, 40), 400, true)]);
  assert.strictEqual(units[3].damaged, false);
  assert.strictEqual(receiver.counters.accessUnits, 1);
});

test('a fragment without its start, or a picture whose last fragment never came, is damaged', async (t) => {
  const { receiver, units, send, packet } = await loopback(t);
  const fragments = fuA(nalUnit(0x41, 3000), 1178);
  await send([packet(fragments[1], 100), packet(fragments[2], 100, true)]);
  await send([packet(fragments[0], 200), packet(nalUnit(0x41, 10), 200, true)]);
  assert.deepStrictEqual(units.map((u) => u.damaged), [true, true]);
  assert.strictEqual(receiver.counters.gaps, 0, 'no packet was lost on the way');
});

test('a new timestamp ends a picture whose marker was not sent', async (t) => {
  const { receiver, units, send, packet } = await loopback(t);
  await send([packet(nalUnit(0x41, 20), 100), packet(nalUnit(0x41, 20), 200, true)]);
  assert.deepStrictEqual(units.map((u) => u.timestamp), [100, 200]);
  assert.strictEqual(receiver.counters.accessUnits, 2);
  // Parameter sets on their own are no picture.
  await send([packet(SPS, 300), packet(PPS, 300), packet(nalUnit(0x41, 20), 400, true)]);
  assert.strictEqual(receiver.counters.accessUnits, 3);
  assert.deepStrictEqual(units[2].nals.map((n) => n[0]), [0x41]);
});

test('key frames are counted by their IDR slices', async (t) => {
  const { receiver, send, packet } = await loopback(t);
  let timestamp = 0;
  const picture = (header) => packet(nalUnit(header, 100), (timestamp += 3000), true);
  await send([picture(0x65), picture(0x41), picture(0x41), picture(0x65), picture(0x41)]);
  assert.strictEqual(receiver.counters.accessUnits, 5);
  assert.strictEqual(receiver.counters.keyFrames, 2);
});

test('the sequence number wraps without a gap; late, foreign and malformed packets are left out', async (t) => {
  const { receiver, units, send, packet, setSequence } = await loopback(t);
  setSequence(65534);
  await send([packet(nalUnit(0x41, 10), 1, true), packet(nalUnit(0x41, 10), 2, true), packet(nalUnit(0x41, 10), 3, true)]);
  assert.strictEqual(receiver.counters.gaps, 0);
  assert.strictEqual(units.length, 3);

  setSequence(0);  // 0 again: behind the last one
  await send([packet(nalUnit(0x41, 10), 4, true)]);
  assert.strictEqual(receiver.counters.late, 1);
  setSequence(2);
  await send([
    packet(nalUnit(0x41, 10), 5, true, { ssrc: 0x55555555 }),
    packet(nalUnit(0x41, 10), 5, true, { payloadType: 97 }),
    Buffer.from([0x80, 0x60, 0, 1]),
  ]);
  assert.strictEqual(receiver.counters.ignored, 3);
  assert.strictEqual(units.length, 3);
  assert.strictEqual(receiver.counters.packets, 3);

  // Packets lost across the wrap are a gap like any other.
  const across = await loopback(t);
  across.setSequence(65533);
  await across.send([across.packet(nalUnit(0x41, 10), 1, true), across.packet(nalUnit(0x41, 10), 2, true)]);
  across.skip(2);  // 65535 and 0
  await across.send([across.packet(nalUnit(0x41, 10), 3, true)]);
  assert.deepStrictEqual([across.receiver.counters.gaps, across.receiver.counters.lost], [1, 2]);
});

test('the port cannot be taken twice, and the error says what to do', async (t) => {
  const { receiver } = await loopback(t);
  const { port } = receiver.socket.address();
  await assert.rejects(openReceiver({ ip: '127.0.0.1', port, payloadType: 96 }),
    { message: `the receiver cannot listen on 127.0.0.1:${port}: something else is listening there (a player? then use --no-receiver)` });
});
