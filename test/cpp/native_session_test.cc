// The session's start handshake and its verdicts, through NativeSession and the platform's fault
// plan: failures that come at once, bring-ups that outlast the 10 s limit, and a worker thread
// that can't be made.
#include "session/native_session.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "platform/control/window_control.h"
#include "support/failure.h"
#include "test/support/udp_receiver.h"

namespace control = platform::control;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int64_t kEFail = int32_t(0x80004005);

class NativeSessionTest : public testing::Test {
 protected:
  void SetUp() override {
    control::reset();
    options.captureKind = CaptureKind::Screen;
    options.width = 320;
    options.height = 240;
    options.fps = 30;
    options.bitrate = 1000000;
    options.ip = "127.0.0.1";
    options.port = receiver.port();
  }

  double secondsToStart(NativeSession& session, bool& started) {
    Clock::time_point before = Clock::now();
    started = session.start(options);
    return std::chrono::duration<double>(Clock::now() - before).count();
  }

  testing_support::UdpReceiver receiver;
  StartOptions options;
};

TEST_F(NativeSessionTest, AFailureThatComesAtOnceEndsStartAtOnceWithItsDetail) {
  NativeSession session;
  control::failOnce("D3D11CreateDevice", kEFail);
  bool started = true;
  EXPECT_LT(secondsToStart(session, started), 2.0);
  EXPECT_FALSE(started);
  EXPECT_EQ(session.lastError, "D3D11CreateDevice failed (hr=0x80004005)") << "the recorded detail wins";
  EXPECT_FALSE(session.running.load());
  EXPECT_FALSE(session.workerThread.joinable());
  EXPECT_FALSE(session.captureContext) << "a failed bring-up is torn down";
  EXPECT_EQ(control::totalLiveObjects(), 0);
}

// A new encoder has a key frame pending anyway, so the worker's own ask shows in the count only.
TEST_F(NativeSessionTest, EachStartAsksTheEncoderForOneKeyFrame) {
  NativeSession session;
  for (uint32_t run = 1; run <= 2; ++run) {
    ASSERT_TRUE(session.start(options)) << session.lastError;
    session.stop();
    EXPECT_EQ(session.keyFrameRequests.load(), run);
  }
}

TEST_F(NativeSessionTest, AGeneralTextStandsWhereNoDetailWasRecorded) {
  NativeSession session;
  control::MachineDescription machine;  // no adapter at all
  control::setMachine(machine);
  EXPECT_FALSE(session.start(options));
  EXPECT_EQ(session.lastError, "D3D device init failed for monitor capture");
  options.captureKind = CaptureKind::Window;
  options.nativeHandle = 1;
  EXPECT_FALSE(session.start(options));
  EXPECT_EQ(session.lastError, "D3D device init failed");
}

TEST_F(NativeSessionTest, ADetailOfAnEarlierWorkerIsNotSeenByTheNext) {
  NativeSession session;
  control::failOnce("D3D11CreateDevice", kEFail);
  EXPECT_FALSE(session.start(options));
  control::setMachine(control::MachineDescription{});
  EXPECT_FALSE(session.start(options));
  EXPECT_EQ(session.lastError, "D3D device init failed for monitor capture");
}

TEST_F(NativeSessionTest, ABringUpThatOutlastsTheLimitFailsWithTheTimeoutOrItsOwnLaterText) {
  NativeSession session;
  // The late bring-up fails: its text replaces the timeout's during the join.
  control::planFault({"D3D11CreateDevice", kEFail, 0, 1, 10600, true});
  bool started = true;
  double seconds = secondsToStart(session, started);
  EXPECT_FALSE(started);
  EXPECT_GE(seconds, 10.5);
  EXPECT_EQ(session.lastError, "D3D11CreateDevice failed (hr=0x80004005)");

  // The late bring-up succeeds: the timeout text stands and the pipeline goes without a frame.
  control::delayCall("D3D11CreateDevice", 10600, 1);
  uint64_t sentBefore = control::datagramsSent();
  seconds = secondsToStart(session, started);
  EXPECT_FALSE(started);
  EXPECT_GE(seconds, 10.5);
  EXPECT_EQ(session.lastError, "Native Kestrane session init timed out after 10s");
  EXPECT_FALSE(session.running.load());
  EXPECT_FALSE(session.capture) << "torn down without a frame";
  EXPECT_EQ(control::datagramsSent(), sentBefore);
}

// Runs `body` in a child process whose address space is filled but for `extraBytes`, so that
// allocations there fail; the child's exit status says whether `body` held.
template <class Body>
void expectInChildWithLittleMemory(uint64_t extraBytes, Body body) {
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    unsigned long pages = 0;
    FILE* statm = fopen("/proc/self/statm", "r");
    if (!statm || fscanf(statm, "%lu", &pages) != 1) _exit(2);
    fclose(statm);
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = pages * uint64_t(sysconf(_SC_PAGESIZE)) + extraBytes;
    setrlimit(RLIMIT_AS, &limit);
    _exit(body() ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status)) << "the child crashed";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(NativeSessionTest, AWorkerThreadThatCannotBeMadeIsAnErrorNotACrash) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the address-space limit that makes thread creation fail can't coexist with the sanitizer's shadow";
#endif
  // A thread's stack (8 MB) can't be mapped with 2 MB to spare.
  expectInChildWithLittleMemory(2u << 20, [&] {
    NativeSession session;
    bool started = session.start(options);
    bool clear = !started && !session.running.load() && !session.workerThread.joinable() &&
                 session.lastError.rfind("Native Kestrane session could not create its worker thread", 0) == 0;
    if (!clear) fprintf(stderr, "start gave %d: %s\n", started, session.lastError.c_str());
    return clear;
  });
}

TEST_F(NativeSessionTest, AnExceptionInBringUpFailsStartWithItsTextAndTheHostLives) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "an address-space limit can't coexist with the sanitizer's shadow";
#endif
  // The window capture's frame pool needs three buffers of 16 MB: they can't all be had.
  options.captureKind = CaptureKind::Window;
  options.nativeHandle = control::openWindow(2048, 2048, 0xFF204060);
  expectInChildWithLittleMemory(24u << 20, [&] {
    NativeSession session;
    bool started = session.start(options);
    bool clear = !started && !session.running.load() && !session.capture &&
                 session.lastError == "Native Kestrane session bring-up failed: std::bad_alloc";
    if (!clear) fprintf(stderr, "start gave %d: %s\n", started, session.lastError.c_str());
    return clear;
  });
}

}  // namespace
