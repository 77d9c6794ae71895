#include "session/native_session.h"

#include <chrono>
#include <system_error>

#include "session/frame_loop.h"
#include "session/pipeline.h"
#include "support/failure.h"
#include "support/log.h"

namespace {

constexpr auto kInitTimeout = std::chrono::seconds(10);

}  // namespace

NativeSession::~NativeSession() {
  stop();
  tearDownPipeline(*this);
}

bool NativeSession::start(const StartOptions& startOptions) {
  if (running.load()) return false;
  options = startOptions;
  stopRequested.store(false);
  initState.store(kInitPending);
  lastError.clear();
  running.store(true);
  try {
    workerThread = std::thread(runWorker, this);
  } catch (const std::system_error& error) {
    // Nothing runs: the host keeps going and JavaScript learns why.
    lastError = "Native Kestrane session could not create its worker thread: ";
    lastError += error.what();
    logError(lastError.c_str());
    running.store(false);
    return false;
  }

  std::unique_lock<std::mutex> lock(initMutex);
  // The worker signals without the mutex, so a signal may be missed; the deadline bounds that,
  // and the state is read again below.
  initCondition.wait_until(lock, std::chrono::steady_clock::now() + kInitTimeout,
                           [this] { return initState.load() != kInitPending; });
  int32_t verdict = initState.load();
  if (verdict > 0) return true;
  stopRequested.store(true);
  if (workerThread.joinable()) workerThread.join();
  // Only now is lastError ours alone: a worker late past the deadline may have written it up to
  // the join. Its text, where it left one, wins over the general ones.
  if (lastError.empty()) {
    lastError = verdict != kInitPending ? "Native Kestrane session failed to initialize"
                                        : "Native Kestrane session init timed out after 10s";
  }
  running.store(false);
  return false;
}

void NativeSession::stop() {
  stopRequested.store(true);
  if (workerThread.joinable()) workerThread.join();
  running.store(false);
}

void NativeSession::reportInitFailure(const std::string& message) {
  if (!threadLastFailure.empty()) {
    lastError = threadLastFailure;
    threadLastFailure.clear();
  } else {
    lastError = message;
  }
  logError(lastError.c_str());
  initState.store(kInitFailed);
  initCondition.notify_all();
  running.store(false);
}

void NativeSession::reportReady() {
  initState.store(kInitReady);
  initCondition.notify_all();
}
