#include "session/frame_loop.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <vector>

#include "encoders/encoder_selection.h"
#include "session/native_session.h"
#include "session/pipeline.h"
#include "support/failure.h"
#include "support/format_bounded.h"
#include "support/log.h"

namespace {

constexpr uint64_t kEncodeFailureLogEvery = 300;
constexpr uint64_t kNoSliceLogEvery = 30;
constexpr uint64_t kNoSliceRecoveryAt = 5;
constexpr uint64_t kMaxSlotTolerance = 20000;  // 2 ms in 100 ns ticks

// Where a frame stands on the schedule: its due time and its RTP timestamp. Frames with a capture
// time at or after the first frame's run on that clock; all others on the count of sent frames.
struct FrameTime {
  uint64_t dueTime = 0;
  uint32_t rtpTimestamp = 0;
  bool onTimestampClock = false;
};

uint64_t nextSlot(const FrameLoopState& state, const FramePacing& pacing) {
  return state.slotAnchor + state.slotsSinceAnchor * 10000000 / pacing.fps;
}

FrameTime scheduleOf(const NativeSession& session, uint64_t timestamp, const FramePacing& pacing) {
  FrameTime time;
  bool onTimestampClock =
      timestamp != 0 && session.firstFrameTimestamp != 0 && timestamp >= session.firstFrameTimestamp;
  time.onTimestampClock = onTimestampClock;
  if (onTimestampClock) {
    uint64_t elapsed = timestamp - session.firstFrameTimestamp;
    time.dueTime = session.firstFrameTick + elapsed / 10000;
    time.rtpTimestamp = static_cast<uint32_t>(elapsed * 90000 / 10000000);
  } else {
    time.dueTime = session.firstFrameTick + static_cast<uint64_t>(session.frameIndex) * 1000 / pacing.fps;
    time.rtpTimestamp = pacing.rtpTicksPerFrame * session.frameIndex;
  }
  return time;
}

void countDrop(NativeSession& session) { session.metrics.droppedFrames.fetch_add(1); }

// A Media Foundation encoder that can't take GPU input reads the picture from a CPU-readable copy.
ID3D11Texture2D* readbackCopy(NativeSession& session, ID3D11Texture2D* nv12, FrameLoopState& state) {
  D3DContext* device = session.encodeDevice();
  if (!state.readbackTexture) {
    D3D11_TEXTURE2D_DESC desc;
    nv12->GetDesc(&desc);
    desc.Usage = D3D11_USAGE_STAGING;
    desc.BindFlags = 0;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    desc.MiscFlags = 0;
    // A failure isn't reported: the next frame tries again.
    device->device->CreateTexture2D(&desc, nullptr, state.readbackTexture.put());
  }
  if (!state.readbackTexture) return nv12;
  device->context->CopyResource(state.readbackTexture.get(), nv12);
  return state.readbackTexture.get();
}

void keepParameterSets(const std::vector<uint8_t>& out, ParameterSetCache& cache) {
  for (const NalUnit& nal : scanAnnexB(out.data(), out.size())) {
    if (nal.type == kNalSps) cache.sps.assign(nal.data, nal.data + nal.size);
    if (nal.type == kNalPps) cache.pps.assign(nal.data, nal.data + nal.size);
  }
}

bool sendSlices(NativeSession& session, std::vector<uint8_t>& out, uint64_t timestamp, uint32_t rtpTimestamp,
                bool keyFrame, const FramePacing& pacing, FrameLoopState& state) {
  prependParameterSets(state.parameterSets, out);
  if (containsNalType(out.data(), out.size(), kNalSliceIdr)) keyFrame = true;
  state.noSliceCount = 0;
  SessionMetrics& metrics = session.metrics;
  updateRate(GetTickCount64(), metrics.encodeWindowStart, metrics.encodeCount, metrics.encodeFps);
  if (!session.rtp->sendAccessUnit(out.data(), out.size(), rtpTimestamp, true, keyFrame)) {
    countDrop(session);
    return true;
  }
  metrics.recordSent(out.size());
  metrics.updateFrameSizeAverage(out.size());
  ++session.frameIndex;
  takeRateLimitSlot(timestamp, state, pacing);
  return true;
}

// Output without a slice goes out only when the receiver can already decode what follows; five in
// a row make NVENC force a key frame and Media Foundation give way to NVENC.
bool sendWithoutSlice(NativeSession& session, const std::vector<uint8_t>& out, uint64_t timestamp,
                      uint32_t rtpTimestamp, const FramePacing& pacing, FrameLoopState& state) {
  ++state.noSliceCount;
  const char* encoderName = session.currentEncoderName();
  if (state.noSliceCount == 1 || state.noSliceCount % kNoSliceLogEvery == 0) {
    char line[160];
    formatBounded(line, sizeof line, "H264 output from %s has no slice NAL (%zu bytes)", encoderName, out.size());
    logError(line);
  }
  if (!state.parameterSets.sps.empty() && !state.parameterSets.pps.empty() &&
      session.rtp->sendAccessUnit(out.data(), out.size(), rtpTimestamp, false, false)) {
    session.metrics.recordSent(out.size());
    ++session.frameIndex;
    takeRateLimitSlot(timestamp, state, pacing);
  }
  if (state.noSliceCount < kNoSliceRecoveryAt) return true;
  if (std::strcmp(encoderName, "nvenc") == 0) {
    session.requestKeyFrame();
    state.noSliceCount = 0;
  } else if (std::strcmp(encoderName, "mf-h264") == 0 && switchToNvenc(session)) {
    state.readbackTexture.reset();
    state.parameterSets.sps.clear();
    state.parameterSets.pps.clear();
    state.noSliceCount = 0;
  }
  return true;
}

}  // namespace

FramePacing FramePacing::forRate(int32_t fps) {
  FramePacing pacing;
  pacing.fps = fps < 1 ? 1u : static_cast<uint32_t>(fps);
  pacing.frameInterval = (static_cast<uint64_t>(pacing.fps) + 9999999) / pacing.fps;
  // A display's present times jitter by far less than a millisecond; more tolerance would let a
  // faster source's frame take a slot early and crowd the second.
  pacing.slotTolerance = std::min<uint64_t>(pacing.frameInterval / 8, kMaxSlotTolerance);
  pacing.rtpTicksPerFrame = static_cast<uint32_t>((static_cast<uint64_t>(pacing.fps) + 89999) / pacing.fps);
  uint64_t eightFrames = 8000 / pacing.fps;
  pacing.lateLimitMs = eightFrames > 8 ? eightFrames : 8;
  return pacing;
}

// The rate limit: a frame waits for the next slot of the schedule, give or take the source's
// jitter. Measuring from the last sent frame instead would lose every other frame of a source
// whose period is a hair short of the interval. A frame without time, or whose time runs
// backwards, passes.
bool tooSoonForRateLimit(uint64_t timestamp, const FrameLoopState& state, const FramePacing& pacing) {
  if (timestamp == 0 || state.lastSentTimestamp == 0 || timestamp < state.lastSentTimestamp) return false;
  return timestamp + pacing.slotTolerance < nextSlot(state, pacing);
}

// Only a sent frame moves the schedule on; a source that fell more than an interval behind it
// starts it afresh at its own time, so that no burst follows a pause.
void takeRateLimitSlot(uint64_t timestamp, FrameLoopState& state, const FramePacing& pacing) {
  if (timestamp == 0) return;
  bool fresh = state.lastSentTimestamp == 0 || timestamp < state.lastSentTimestamp ||
               timestamp >= nextSlot(state, pacing) + pacing.frameInterval;
  if (fresh) {
    state.slotAnchor = timestamp;
    state.slotsSinceAnchor = 1;
  } else {
    ++state.slotsSinceAnchor;
  }
  state.lastSentTimestamp = timestamp;
}

bool waitingForNextSlot(const FrameLoopState& state, const FramePacing& pacing) {
  if (state.lastSentTimestamp == 0) return false;
  LARGE_INTEGER counter, frequency;
  if (!QueryPerformanceCounter(&counter) || !QueryPerformanceFrequency(&frequency) || frequency.QuadPart <= 0)
    return false;
  uint64_t now = uint64_t(counter.QuadPart / frequency.QuadPart) * 10000000 +
                 uint64_t(counter.QuadPart % frequency.QuadPart) * 10000000 / uint64_t(frequency.QuadPart);
  uint64_t opens = nextSlot(state, pacing) - pacing.slotTolerance;
  // A slot further off than one interval means capture times on another clock: no wait then.
  return now < opens && opens - now <= pacing.frameInterval;
}

bool processFrame(NativeSession& session, ID3D11Texture2D* texture, uint64_t timestamp, const FramePacing& pacing,
                  FrameLoopState& state) {
  // Admission, before any GPU work.
  if (tooSoonForRateLimit(timestamp, state, pacing)) return true;
  uint64_t now = GetTickCount64();
  if (session.firstFrameTick == 0) {
    session.firstFrameTick = now;
    if (timestamp != 0) session.firstFrameTimestamp = timestamp;
  }
  FrameTime time = scheduleOf(session, timestamp, pacing);
  // The origin stands for the shortest way from capture to here. A frame that is here before its
  // due time has found a shorter one (the first frame's grab, a busy moment, a clock running
  // fast): the origin moves back to it. Kept where it was, it would hold every later frame back
  // by the difference and cap the rate at one frame per hold.
  if (time.onTimestampClock && now < time.dueTime && time.dueTime - now < session.firstFrameTick) {
    session.firstFrameTick -= time.dueTime - now;
    time.dueTime = now;
  }
  if (!time.onTimestampClock && now > time.dueTime + pacing.lateLimitMs) {
    // The index clock moves only when something is sent, so after a still period every frame
    // would be late for good: the schedule starts again at this frame's slot.
    session.frameIndex = static_cast<uint32_t>((now - session.firstFrameTick) * pacing.fps / 1000);
    time = scheduleOf(session, timestamp, pacing);
  }
  if (now > time.dueTime + pacing.lateLimitMs) {
    countDrop(session);
    return true;
  }

  // After a failed switch to NVENC there is no encoder: every frame is dropped until stop.
  if (!session.encoder) {
    countDrop(session);
    return true;
  }

  CountedRef<ID3D11Texture2D> frame;
  frame.share(texture);
  if (session.crossAdapterCopy) {
    CountedRef<ID3D11Texture2D> copied;
    if (!session.crossAdapterCopy->copyToEncodeDevice(frame.get(), &copied)) {
      countDrop(session);
      return true;
    }
    frame = std::move(copied);
  }
  CountedRef<ID3D11Texture2D> nv12;
  if (!session.scaler->convert(frame.get(), &nv12)) {
    countDrop(session);
    return true;
  }
  VideoEncoder& encoder = *session.encoder;
  ID3D11Texture2D* input = nv12.get();
  if (std::strcmp(encoder.name(), "mf-h264") == 0 && !encoder.usesGpuInput()) input = readbackCopy(session, input, state);

  std::vector<uint8_t> out;
  bool keyFrame = false;
  if (!encoder.encode(input, &out, &keyFrame)) {
    countDrop(session);
    ++state.encodeFailureCount;
    if (state.encodeFailureCount == 1 || state.encodeFailureCount % kEncodeFailureLogEvery == 0)
      logError("H264 encode failed while capture continues");
    return true;
  }
  if (out.empty()) return true;
  state.encodeFailureCount = 0;
  keepParameterSets(out, state.parameterSets);

  // Pacing: hold the frame to its due time, and give way to stop within one Sleep(1).
  now = GetTickCount64();
  while (now < time.dueTime && !session.stopRequested.load()) {
    Sleep(1);
    now = GetTickCount64();
  }
  if (session.stopRequested.load()) return false;
  if (now > time.dueTime + pacing.lateLimitMs) {
    countDrop(session);
    return true;
  }

  bool hasSlice = containsNalType(out.data(), out.size(), kNalSliceNonIdr) ||
                  containsNalType(out.data(), out.size(), kNalSliceIdr);
  if (hasSlice) return sendSlices(session, out, timestamp, time.rtpTimestamp, keyFrame, pacing, state);
  return sendWithoutSlice(session, out, timestamp, time.rtpTimestamp, pacing, state);
}

namespace {

// Nothing may leave the thread's function: an exception there would end the host. One that
// escapes bring-up fails it with its text; one that escapes a pass costs that frame.
bool bringUpCatching(NativeSession& session) {
  const char* what = "unknown exception";
  try {
    return bringUpPipeline(session);
  } catch (const std::exception& error) {
    what = error.what();
  } catch (...) {
  }
  char text[256];
  formatBounded(text, sizeof text, "Native Kestrane session bring-up failed: %s", what);
  threadLastFailure.clear();  // an earlier, survived detail is not the reason
  session.reportInitFailure(text);
  return false;
}

void countEscapedException(NativeSession& session, uint64_t& count) {
  countDrop(session);
  if (++count == 1 || count % kEncodeFailureLogEvery == 0) logError("Frame dropped: an exception escaped its pass");
}

}  // namespace

void runWorker(NativeSession* session) {
  if (!bringUpCatching(*session)) {
    // What a failed bring-up built goes at once, so that no later bring-up meets a copy that
    // holds contexts that are gone.
    tearDownPipeline(*session);
    return;
  }
  session->reportReady();
  session->requestKeyFrame();

  FramePacing pacing = FramePacing::forRate(session->options.fps);
  FrameLoopState state;
  CountedRef<ID3D11Texture2D> texture;
  uint64_t escapedExceptions = 0;
  while (!session->stopRequested.load()) {
    texture.reset();
    // What the source shows before the next slot would only be skipped: it keeps its latest
    // picture meanwhile, and asking for each one cost a grab of every change.
    if (waitingForNextSlot(state, pacing)) {
      Sleep(1);
      continue;
    }
    bool goOn = true;
    try {
      int64_t timestamp = 0;
      if (!session->capture->acquireFrame(texture, timestamp)) {
        Sleep(1);
        continue;
      }
      SessionMetrics& metrics = session->metrics;
      updateRate(GetTickCount64(), metrics.captureWindowStart, metrics.captureCount, metrics.captureFps);
      session->capture->releaseFrame();
      goOn = processFrame(*session, texture.get(), static_cast<uint64_t>(timestamp), pacing, state);
    } catch (...) {
      countEscapedException(*session, escapedExceptions);
    }
    texture.reset();
    if (!goOn) break;
  }
  tearDownPipeline(*session);
  // `state` goes last, its readback texture before the cached PPS and SPS.
}
