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
  uint64_t frameInterval = 0;     // 100 ns ticks: frames nearer than this to the last sent are skipped
  uint32_t rtpTicksPerFrame = 0;  // 90 kHz ticks per frame on the index clock
  uint64_t lateLimitMs = 0;       // how far behind its due time a frame may fall

  static FramePacing forRate(int32_t fps);
};

// Fresh for every worker.
struct FrameLoopState {
  uint64_t lastSentTimestamp = 0;
  uint64_t encodeFailureCount = 0;
  uint64_t noSliceCount = 0;
  ParameterSetCache parameterSets;
  CountedRef<ID3D11Texture2D> readbackTexture;
};

// The thread's function.
void runWorker(NativeSession* session);
// One captured frame. False only when stopRequested was seen while the frame waited for its time.
bool processFrame(NativeSession& session, ID3D11Texture2D* texture, uint64_t timestamp, const FramePacing& pacing,
                  FrameLoopState& state);
