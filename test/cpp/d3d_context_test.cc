#include "gpu/d3d_context.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "support/failure.h"
#include "test/support/gpu_test_helpers.h"

namespace control = platform::control;
using testing_support::adapter;

namespace {

constexpr uint32_t kAmd = 0x1002;
constexpr uint32_t kIntel = 0x8086;
constexpr uint32_t kNvidia = 0x10DE;

const std::string kSelected = "[kestrane-win] Selected DXGI output for native capture\n";
const std::string kFallback = "[kestrane-win][error] Global output index not found, falling back to adapter 0\n";
const std::string kUsingNvidia = "[kestrane-win] Using NVIDIA adapter for native capture\n";
const std::string kFactoryFailed = "[kestrane-win][error] CreateDXGIFactory1 failed\n";

std::string readyLine(uint32_t vendor, uint32_t device) {
  char line[96];
  std::snprintf(line, sizeof line, "[kestrane-win] D3D adapter ready (vendor=0x%04x, device=0x%04x)\n", vendor, device);
  return line;
}

// The device id of the context's adapter: the tests' machines give each adapter its own.
uint32_t deviceIdOf(const D3DContext& context) {
  DXGI_ADAPTER_DESC1 desc = {};
  EXPECT_EQ(context.adapter->GetDesc1(&desc), S_OK);
  return desc.DeviceId;
}

class D3DContextTest : public testing_support::GpuTest {
 protected:
  void useMachine(std::vector<control::AdapterDescription> adapters) {
    control::setMachine(testing_support::machineOf(std::move(adapters)));
  }
};

TEST_F(D3DContextTest, GlobalOutputNumbersCountOutputsAcrossAdaptersThenFallBack) {
  useMachine({adapter(kAmd, 0xA0, 2), adapter(kNvidia, 0xB1, 1)});
  struct Case {
    uint32_t globalIndex;
    uint32_t deviceId;
    uint32_t outputIndex;
    std::vector<std::string> lines;
  };
  const std::vector<Case> cases = {
      {0, 0xA0, 0, {kSelected, readyLine(kAmd, 0xA0)}},
      {1, 0xA0, 1, {kSelected, readyLine(kAmd, 0xA0)}},
      {2, 0xB1, 0, {kSelected, readyLine(kNvidia, 0xB1)}},
      {3, 0xA0, 0, {kFallback, readyLine(kAmd, 0xA0)}},
      // What a negative native handle becomes.
      {0xFFFFFFFFu, 0xA0, 0, {kFallback, readyLine(kAmd, 0xA0)}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.globalIndex);
    control::clearDebugOutput();
    D3DContext context;
    ASSERT_TRUE(context.createForGlobalOutput(c.globalIndex));
    ASSERT_TRUE(context.device && context.context);
    EXPECT_EQ(deviceIdOf(context), c.deviceId);
    EXPECT_EQ(context.outputIndex, c.outputIndex);
    EXPECT_EQ(control::debugOutput(), c.lines);
  }
}

TEST_F(D3DContextTest, AFailingAdapterOrOutputIsSkippedAndNotCounted) {
  useMachine({adapter(kAmd, 0xA0, 2), adapter(kNvidia, 0xB1, 1)});
  {
    control::failOnce("IDXGIAdapter::EnumOutputs", E_FAIL);
    D3DContext context;
    ASSERT_TRUE(context.createForGlobalOutput(0));
    EXPECT_EQ(deviceIdOf(context), 0xA0u);
    EXPECT_EQ(context.outputIndex, 1u);
  }
  {
    control::failOnce("IDXGIFactory1::EnumAdapters1", E_FAIL);
    D3DContext context;
    ASSERT_TRUE(context.createForGlobalOutput(0));
    EXPECT_EQ(deviceIdOf(context), 0xB1u);
    EXPECT_EQ(context.outputIndex, 0u);
  }
}

TEST_F(D3DContextTest, ADisplaylessNvidiaAdapterIsFoundByVendorButNotByNumber) {
  useMachine({adapter(kIntel, 0xC0, 1), adapter(kNvidia, 0xB1, 0)});

  D3DContext byNumber;
  ASSERT_TRUE(byNumber.createForGlobalOutput(1));
  EXPECT_EQ(deviceIdOf(byNumber), 0xC0u);
  EXPECT_FALSE(byNumber.isNvidia());

  CountedRef<IDXGIAdapter1> found;
  ASSERT_TRUE(findNvidiaAdapter(found));
  DXGI_ADAPTER_DESC1 desc = {};
  ASSERT_EQ(found->GetDesc1(&desc), S_OK);
  EXPECT_EQ(desc.DeviceId, 0xB1u);
  found.reset();

  control::clearDebugOutput();
  D3DContext preferred;
  ASSERT_TRUE(preferred.createPreferNvidia());
  EXPECT_EQ(deviceIdOf(preferred), 0xB1u);
  EXPECT_EQ(preferred.outputIndex, 0u);
  EXPECT_TRUE(preferred.isNvidia());
  EXPECT_EQ(control::debugOutput(), (std::vector<std::string>{kUsingNvidia, readyLine(kNvidia, 0xB1)}));
}

TEST_F(D3DContextTest, TheFirstOfTwoNvidiaAdaptersWins) {
  useMachine({adapter(kIntel, 0xC0, 1), adapter(kNvidia, 0xB1, 1), adapter(kNvidia, 0xB2, 1)});
  CountedRef<IDXGIAdapter1> found;
  ASSERT_TRUE(findNvidiaAdapter(found));
  D3DContext encode;
  ASSERT_TRUE(encode.createDevice(std::move(found), 0));
  EXPECT_EQ(deviceIdOf(encode), 0xB1u);

  D3DContext capture;
  ASSERT_TRUE(capture.createPreferNvidia());
  EXPECT_EQ(deviceIdOf(capture), 0xB1u);
}

TEST_F(D3DContextTest, WithoutNvidiaAWindowIsCapturedOnAdapterZero) {
  useMachine({adapter(kAmd, 0xA0, 1), adapter(kIntel, 0xC0, 1)});
  CountedRef<IDXGIAdapter1> found;
  EXPECT_FALSE(findNvidiaAdapter(found));
  EXPECT_FALSE(found);

  D3DContext context;
  ASSERT_TRUE(context.createPreferNvidia());
  EXPECT_EQ(deviceIdOf(context), 0xA0u);
  EXPECT_FALSE(context.isNvidia());
  EXPECT_EQ(control::debugOutput(), std::vector<std::string>{readyLine(kAmd, 0xA0)});
}

// An adapter that can't be had or can't describe itself is passed over, and the search goes on.
TEST_F(D3DContextTest, TheNvidiaSearchGoesOnPastAnAdapterThatFails) {
  useMachine({adapter(kIntel, 0xC0, 1), adapter(kNvidia, 0xB1, 1)});
  for (const char* call : {"IDXGIFactory1::EnumAdapters1", "IDXGIAdapter1::GetDesc1"}) {
    SCOPED_TRACE(call);
    control::failOnce(call, E_FAIL);
    D3DContext context;
    ASSERT_TRUE(context.createPreferNvidia());
    EXPECT_EQ(deviceIdOf(context), 0xB1u);
  }
}

TEST_F(D3DContextTest, ADeviceNeedsNoDescriptionButTheVendorQuestionDoes) {
  useMachine({adapter(kNvidia, 0xB1, 1)});
  // The device itself doesn't need the description: only the ready line goes.
  control::failOnce("IDXGIAdapter1::GetDesc1", E_FAIL);
  D3DContext context;
  ASSERT_TRUE(context.createOnFirstAdapter());
  EXPECT_TRUE(control::debugOutput().empty());

  // Bring-up's question is answered by the same description.
  control::failOnce("IDXGIAdapter1::GetDesc1", E_FAIL);
  EXPECT_FALSE(context.isNvidia());
  EXPECT_TRUE(context.isNvidia());
}

// Whichever way the adapter was found, the device is asked for in one way: on that adapter, with
// BGRA and video support, at 11_1 or 11_0 and nothing lower.
TEST_F(D3DContextTest, EveryPathAsksForTheSameDevice) {
  useMachine({adapter(kIntel, 0xC0, 1), adapter(kNvidia, 0xB1, 1)});
  D3DContext first, byOutput, preferred, direct;
  ASSERT_TRUE(first.createOnFirstAdapter());
  ASSERT_TRUE(byOutput.createForGlobalOutput(1));
  ASSERT_TRUE(preferred.createPreferNvidia());
  CountedRef<IDXGIAdapter1> nvidia;
  ASSERT_TRUE(findNvidiaAdapter(nvidia));
  ASSERT_TRUE(direct.createDevice(std::move(nvidia), 0));

  std::vector<control::CreateDeviceCall> calls = control::createDeviceCalls();
  ASSERT_EQ(calls.size(), 4u);
  for (const control::CreateDeviceCall& call : calls) {
    EXPECT_TRUE(call.adapterGiven);
    EXPECT_EQ(call.driverType, D3D_DRIVER_TYPE_UNKNOWN);
    EXPECT_FALSE(call.softwareModule);
    EXPECT_EQ(call.flags, 0x820u);
    EXPECT_EQ(call.featureLevels, (std::vector<int32_t>{0xB100, 0xB000}));
    EXPECT_EQ(call.sdkVersion, 7u);
  }
}

TEST_F(D3DContextTest, AFailedDeviceCreationRecordsItsHresultAndKeepsTheAdapter) {
  useMachine({adapter(kNvidia, 0xB1, 1)});
  control::failOnce("D3D11CreateDevice", DXGI_ERROR_UNSUPPORTED);
  D3DContext context;
  EXPECT_FALSE(context.createOnFirstAdapter());
  EXPECT_EQ(threadLastFailure, "D3D11CreateDevice failed (hr=0x887a0004)");
  EXPECT_EQ(control::debugOutput(),
            std::vector<std::string>{"[kestrane-win][error] D3D11CreateDevice failed (hr=0x887a0004)\n"});
  EXPECT_TRUE(context.adapter);
  EXPECT_FALSE(context.device);
  EXPECT_FALSE(context.context);

  // A half-filled record may be filled again.
  ASSERT_TRUE(context.createForGlobalOutput(0));
  EXPECT_TRUE(context.device && context.context);
}

TEST_F(D3DContextTest, AFailedDeviceOnTheSelectedOutputIsNotRetriedElsewhere) {
  useMachine({adapter(kAmd, 0xA0, 1), adapter(kNvidia, 0xB1, 2)});
  control::failOnce("D3D11CreateDevice", E_OUTOFMEMORY);
  D3DContext context;
  EXPECT_FALSE(context.createForGlobalOutput(2));
  EXPECT_EQ(control::callCount("D3D11CreateDevice"), 1u);
  EXPECT_EQ(deviceIdOf(context), 0xB1u);
  EXPECT_EQ(context.outputIndex, 1u) << "the record keeps what it was asked for";
}

TEST_F(D3DContextTest, FactoryAndEnumerationFailuresWriteTheirLines) {
  useMachine({adapter(kNvidia, 0xB1, 1)});
  {
    control::failOnce("CreateDXGIFactory1", E_FAIL);
    D3DContext context;
    EXPECT_FALSE(context.createOnFirstAdapter());
    EXPECT_EQ(control::debugOutput(), std::vector<std::string>{kFactoryFailed});
  }
  {
    control::clearDebugOutput();
    control::failOnce("CreateDXGIFactory1", E_FAIL);
    D3DContext context;
    EXPECT_FALSE(context.createForGlobalOutput(0)) << "no fallback when the factory fails";
    EXPECT_EQ(control::debugOutput(), std::vector<std::string>{kFactoryFailed});
  }
  {
    control::clearDebugOutput();
    control::failOnce("IDXGIFactory1::EnumAdapters1", E_FAIL);
    D3DContext context;
    EXPECT_FALSE(context.createOnFirstAdapter());
    EXPECT_EQ(control::debugOutput(), std::vector<std::string>{"[kestrane-win][error] EnumAdapters1 failed\n"});
  }
  {
    control::clearDebugOutput();
    control::failOnce("CreateDXGIFactory1", E_FAIL);
    CountedRef<IDXGIAdapter1> found;
    EXPECT_FALSE(findNvidiaAdapter(found));
    EXPECT_TRUE(control::debugOutput().empty());
  }
}

TEST_F(D3DContextTest, PreferNvidiaFallsBackThroughTheFirstAdapterWhenFactoriesFail) {
  useMachine({adapter(kNvidia, 0xB1, 1)});
  {
    // The search fails silently, the second factory with a line, the first-adapter path works.
    control::failTimes("CreateDXGIFactory1", E_FAIL, 2);
    D3DContext context;
    EXPECT_TRUE(context.createPreferNvidia());
    EXPECT_EQ(control::debugOutput(), (std::vector<std::string>{kFactoryFailed, readyLine(kNvidia, 0xB1)}));
  }
  {
    control::clearDebugOutput();
    control::failTimes("CreateDXGIFactory1", E_FAIL, 3);
    D3DContext context;
    EXPECT_FALSE(context.createPreferNvidia());
    EXPECT_EQ(control::debugOutput(), (std::vector<std::string>{kFactoryFailed, kFactoryFailed}));
  }
}

TEST_F(D3DContextTest, AnEnumerationThatNeverEndsStillEnds) {
  useMachine({adapter(kNvidia, 0xB1, 1)});
  control::failFrom("IDXGIFactory1::EnumAdapters1", E_FAIL, 1);
  D3DContext context;
  EXPECT_FALSE(context.createForGlobalOutput(0));
  EXPECT_EQ(control::debugOutput(),
            (std::vector<std::string>{kFallback, "[kestrane-win][error] EnumAdapters1 failed\n"}));
  CountedRef<IDXGIAdapter1> found;
  EXPECT_FALSE(findNvidiaAdapter(found));
}

}  // namespace
