#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <string>
#include <thread>

#include "platform/control/platform_control.h"
#include "support/counted_ref.h"
#include "support/failure.h"
#include "support/format_bounded.h"
#include "support/log.h"

namespace control = platform::control;

// An interface of the test's own, declared as the SDK declares its interfaces.
MIDL_INTERFACE("6f1c2a1e-0d5b-4c39-9a51-2f5b0e1c7a10") ITestThing : public IUnknown{};
__CRT_UUID_DECL(ITestThing, 0x6f1c2a1e, 0x0d5b, 0x4c39, 0x9a, 0x51, 0x2f, 0x5b, 0x0e, 0x1c, 0x7a, 0x10)


namespace {

class SupportTest : public testing::Test {
 protected:
  void SetUp() override {
    control::reset();
    threadLastFailure.clear();
  }
};

TEST_F(SupportTest, FormatBoundedTruncatesTerminatesAndReportsTheWholeLength) {
  char buffer[8];
  EXPECT_EQ(formatBounded(buffer, sizeof buffer, "%s-%d", "abcdef", 42), 9);
  EXPECT_STREQ(buffer, "abcdef-");
  EXPECT_EQ(formatBounded(buffer, sizeof buffer, "%d", 7), 1);
  EXPECT_STREQ(buffer, "7");
  EXPECT_EQ(formatBounded(nullptr, 0, "%s", "four"), 4);
  char untouched[2] = {'x', 'y'};
  EXPECT_EQ(formatBounded(untouched, 0, "%s", "ab"), 2);
  EXPECT_EQ(untouched[0], 'x');
}

TEST_F(SupportTest, LogLinesCarryTheirLevelPrefixAndNewline) {
  logInfo("D3D adapter ready");
  logError("socket failed");
  std::vector<std::string> lines = control::debugOutput();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "[kestrane-win] D3D adapter ready\n");
  EXPECT_EQ(lines[1], "[kestrane-win][error] socket failed\n");
  EXPECT_TRUE(threadLastFailure.empty()) << "plain logError stores nothing";
}

TEST_F(SupportTest, AnOverlongLogLineLosesItsTailAndNewline) {
  std::string text(600, 'a');
  logError(text.c_str());
  std::vector<std::string> lines = control::debugOutput();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].size(), 511u);
  EXPECT_EQ(lines[0].rfind("[kestrane-win][error] aaa", 0), 0u);
  EXPECT_EQ(lines[0].back(), 'a');
}

TEST_F(SupportTest, RecordedFailuresReplaceEachOtherAndAreLogged) {
  recordFailure("Video scaler init failed");
  EXPECT_EQ(threadLastFailure, "Video scaler init failed");
  recordHresultFailure("D3D11CreateDevice failed", E_INVALIDARG);
  EXPECT_EQ(threadLastFailure, "D3D11CreateDevice failed (hr=0x80070057)");
  recordHresultFailure("small", S_FALSE);
  EXPECT_EQ(threadLastFailure, "small (hr=0x00000001)");
  std::vector<std::string> lines = control::debugOutput();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1], "[kestrane-win][error] D3D11CreateDevice failed (hr=0x80070057)\n");
}

TEST_F(SupportTest, LastFailureBelongsToItsThread) {
  recordFailure("worker detail");
  std::string seenOnOtherThread = "unset";
  std::thread other([&] { seenOnOtherThread = threadLastFailure; });
  other.join();
  EXPECT_EQ(seenOnOtherThread, "");
  EXPECT_EQ(threadLastFailure, "worker detail");
}


// A minimal COM object that counts its references, to watch CountedRef's bookkeeping.
struct Thing : ITestThing {
  ULONG refs = 1;
  bool destroyed = false;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
    if (riid != __uuidof(ITestThing) && riid != __uuidof(IUnknown)) {
      *out = nullptr;
      return E_NOINTERFACE;
    }
    *out = static_cast<ITestThing*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override {
    if (--refs == 0) destroyed = true;
    return refs;
  }
};

TEST(CountedRefTest, OwnsSharesAndReleasesExactlyOnce) {
  Thing thing;
  {
    CountedRef<ITestThing> owner = CountedRef<ITestThing>::adopt(&thing);
    EXPECT_EQ(thing.refs, 1u);
    CountedRef<ITestThing> slot;
    slot.share(owner.get());
    EXPECT_EQ(thing.refs, 2u);
    slot.share(owner.get());  // already held: no second reference
    EXPECT_EQ(thing.refs, 2u);
    CountedRef<ITestThing> copy = slot;
    EXPECT_EQ(thing.refs, 3u);
    CountedRef<ITestThing> moved = std::move(copy);
    EXPECT_EQ(thing.refs, 3u);
    EXPECT_FALSE(copy);
  }
  EXPECT_EQ(thing.refs, 0u);
  EXPECT_TRUE(thing.destroyed);
}

TEST(CountedRefTest, QueriesThroughTheInterfaceIdOfItsType) {
  Thing thing;
  CountedRef<IUnknown> unknown = CountedRef<IUnknown>::adopt(static_cast<ITestThing*>(&thing));
  CountedRef<ITestThing> typed;
  EXPECT_EQ(typed.queryFrom(unknown.get()), S_OK);
  EXPECT_EQ(typed.get(), static_cast<ITestThing*>(&thing));
  EXPECT_EQ(thing.refs, 2u);
  EXPECT_EQ(typed.queryFrom<IUnknown>(nullptr), E_POINTER);
  EXPECT_FALSE(typed);
  EXPECT_EQ(thing.refs, 1u);
}

}  // namespace
