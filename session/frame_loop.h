// The worker thread: bring-up, the verdict, then one frame at a time through capture, copy,
// conversion, encoding, pacing and sending until stopRequested, then teardown.
#pragma once

#include <d3d11.h>

#include <cstdint>

#include "rtp/annexb.h"
#include "support/counted_ref.h"

class NativeSession;

// Computed once per worker from the session's rate, raised to at least 1.
struct FramePacing {
  uint32_t fps = 1;
  uint64_t frameInterval = 0;     // 100 ns ticks between two slots of the rate limit's schedule
  uint64_t slotTolerance = 0;     // 100 ns ticks: how early a frame may come for its slot (source jitter)
  uint32_t rtpTicksPerFrame = 0;  // 90 kHz ticks per frame on the index clock
  uint64_t lateLimitMs = 0;       // how far behind its due time a frame may fall

  static FramePacing forRate(int32_t fps);
};

// Fresh for every worker.
struct FrameLoopState {
  uint64_t lastSentTimestamp = 0;
  // The rate limit's schedule of capture times: slot n lies at slotAnchor + n * 10,000,000 / fps,
  // exact, so that a source at the requested rate never drifts off it.
  uint64_t slotAnchor = 0;
  uint64_t slotsSinceAnchor = 0;
  uint64_t encodeFailureCount = 0;
  uint64_t noSliceCount = 0;
  ParameterSetCache parameterSets;
  CountedRef<ID3D11Texture2D> readbackTexture;
};

// The rate limit: whether a frame comes too early for the next slot of the schedule, and the
// schedule's step when a frame is sent.
bool tooSoonForRateLimit(uint64_t timestamp, const FrameLoopState& state, const FramePacing& pacing);
void takeRateLimitSlot(uint64_t timestamp, FrameLoopState& state, const FramePacing& pacing);
// Whether the next slot opens within one interval of the performance counter's now, so that the
// worker waits before asking the source for a frame.
bool waitingForNextSlot(const FrameLoopState& state, const FramePacing& pacing);

// The thread's function.
void runWorker(NativeSession* session);
// One captured frame. False only when stopRequested was seen while the frame waited for its time.
bool processFrame(NativeSession& session, ID3D11Texture2D* texture, uint64_t timestamp, const FramePacing& pacing,
                  FrameLoopState& state);
