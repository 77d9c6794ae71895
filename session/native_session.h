// The one live capture-encode-send pipeline of the process and the thread that runs it. There is
// exactly one, with static storage: it is started and stopped again and again, never re-created.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "capture/capture_source.h"
#include "encoders/video_encoder.h"
#include "gpu/cross_adapter_copy.h"
#include "gpu/d3d_context.h"
#include "gpu/video_scaler.h"
#include "rtp/rtp_sender.h"
#include "session/session_metrics.h"
#include "session/start_options.h"

enum InitState : int32_t { kInitPending = 0, kInitReady = 1, kInitFailed = -1 };

class NativeSession {
 public:
  NativeSession() = default;
  // Stops a running session, then releases what the slots still hold.
  ~NativeSession();
  NativeSession(const NativeSession&) = delete;
  NativeSession& operator=(const NativeSession&) = delete;

  // Starts the worker and waits up to 10 seconds for its verdict. True: the pipeline runs.
  // False: nothing runs, and `lastError` holds the reason.
  bool start(const StartOptions& startOptions);
  // Raises stopRequested, joins the worker (its teardown included) and clears `running`.
  void stop();
  // On the worker: records a bring-up failure, preferring the thread's recorded detail to
  // `message`, and publishes the failed verdict.
  void reportInitFailure(const std::string& message);
  // On the worker: publishes the ready verdict.
  void reportReady();

  // The encoder's static name, or "" before the first encoder of the process.
  const char* currentEncoderName() const { return encoderName.load(); }

  StartOptions options;
  // The pipeline, emptied slot by slot in teardown order (capture first, contexts last); the
  // declaration order gives the same order to the destructor.
  std::unique_ptr<D3DContext> captureContext;
  std::unique_ptr<D3DContext> encodeContext;
  std::unique_ptr<RtpSender> rtp;
  std::unique_ptr<CrossAdapterCopy> crossAdapterCopy;
  std::unique_ptr<VideoScaler> scaler;
  std::unique_ptr<VideoEncoder> encoder;
  std::unique_ptr<CaptureSource> capture;

  SessionMetrics metrics;
  // The schedule's origin and the index clock's count (access units sent, moved on to the slot
  // of the first frame after a still period): they outlive every worker.
  uint64_t firstFrameTick = 0;
  uint64_t firstFrameTimestamp = 0;
  uint32_t frameIndex = 0;

  std::thread workerThread;
  std::atomic<bool> running{false};
  std::atomic<bool> stopRequested{false};
  std::mutex initMutex;
  std::condition_variable initCondition;
  std::atomic<int32_t> initState{kInitPending};
  std::string lastError;
  // Points at the static name of the encoder in use, so that getMetrics reads a whole text while
  // a run-time switch changes it.
  std::atomic<const char*> encoderName{""};

  // Asks the encoder for a key frame, and counts the ask: a new encoder has one pending already,
  // so the count is the only trace of the asks that begin a session and follow a switch.
  void requestKeyFrame() {
    keyFrameRequests.fetch_add(1);
    encoder->requestKeyFrame();
  }
  std::atomic<uint32_t> keyFrameRequests{0};

  // The encode device: the NVIDIA context where one was made for encoding, else the capture one.
  D3DContext* encodeDevice() const { return encodeContext ? encodeContext.get() : captureContext.get(); }
};
