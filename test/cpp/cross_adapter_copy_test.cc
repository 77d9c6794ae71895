#include "gpu/cross_adapter_copy.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "support/failure.h"
#include "test/support/gpu_test_helpers.h"

namespace control = platform::control;
using namespace std::chrono_literals;
using testing_support::textureWithPixels;
using testing_support::readPixels;
using testing_support::referenceCount;

namespace {

std::vector<uint32_t> pattern(uint32_t width, uint32_t height, uint32_t seed) {
  std::vector<uint32_t> pixels(size_t(width) * height);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      pixels[size_t(y) * width + x] = 0xFF000000u | ((x * 7 + seed) & 0xFF) << 16 | ((y * 13 + seed) & 0xFF) << 8 |
                                      ((x ^ y ^ seed) & 0xFF);
    }
  }
  return pixels;
}

uint64_t calls(const char* name) { return control::callCount(name); }

// The keyed-mutex calls the platform saw, as "acquire 0" or "release 1 flushed".
std::vector<std::string> mutexSteps() {
  std::vector<std::string> steps;
  for (const control::KeyedMutexCall& call : control::keyedMutexCalls()) {
    std::string step = (call.release ? "release " : "acquire ") + std::to_string(call.key);
    if (call.release && call.contextFlushed) step += " flushed";
    steps.push_back(step);
  }
  return steps;
}

// A capture device on an Intel adapter with the display, an encode device on a display-less
// NVIDIA adapter, and the copy between them. Every copy runs under a watchdog: a wait on a key
// that nobody will hand on fails the run instead of holding it.
class CrossAdapterCopyTest : public testing_support::GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    control::setMachine(testing_support::machineOf(
        {testing_support::adapter(0x8086, 0xC0, 1), testing_support::adapter(0x10DE, 0xB1, 0)}));
    capture = std::make_unique<D3DContext>();
    encode = std::make_unique<D3DContext>();
    ASSERT_TRUE(capture->createOnFirstAdapter());
    CountedRef<IDXGIAdapter1> nvidia;
    ASSERT_TRUE(findNvidiaAdapter(nvidia));
    ASSERT_TRUE(encode->createDevice(std::move(nvidia), 0));
    makeCopy();
    control::clearDebugOutput();
    control::resetCallCounts();
  }

  void TearDown() override {
    result.reset();
    copy.reset();
    encode.reset();
    capture.reset();
    GpuTest::TearDown();
  }

  void makeCopy() {
    copy = std::make_unique<CrossAdapterCopy>();
    copy->source = capture.get();
    copy->destination = encode.get();
    copy->sameDevice = false;
  }

  CountedRef<ID3D11Texture2D> frame(uint32_t width, uint32_t height, uint32_t seed) {
    return textureWithPixels(capture->device.get(), capture->context.get(), width, height,
                             pattern(width, height, seed));
  }

  // One call, on a thread of its own as the session's worker would make it.
  bool copyFrame(ID3D11Texture2D* texture) {
    bool copied = false;
    testing_support::runWithin(10s, [&] {
      copied = copy->copyToEncodeDevice(texture, &result);
      lastFailure = threadLastFailure;
    });
    return copied;
  }

  // Copies a fresh frame and checks that its pixels arrived on the encode device.
  void expectFrameArrives(uint32_t width, uint32_t height, uint32_t seed) {
    CountedRef<ID3D11Texture2D> source = frame(width, height, seed);
    ASSERT_TRUE(copyFrame(source.get()));
    ASSERT_EQ(result.get(), copy->localDestination.get());
    EXPECT_EQ(readPixels(encode->device.get(), encode->context.get(), result.get()), pattern(width, height, seed));
  }

  std::unique_ptr<D3DContext> capture;
  std::unique_ptr<D3DContext> encode;
  std::unique_ptr<CrossAdapterCopy> copy;
  CountedRef<ID3D11Texture2D> result;
  std::string lastFailure;
};

TEST_F(CrossAdapterCopyTest, PixelsCrossToTheEncodeDeviceFrameAfterFrame) {
  expectFrameArrives(64, 48, 1);
  EXPECT_EQ(copy->width, 64u);
  EXPECT_EQ(copy->height, 48u);
  EXPECT_EQ(copy->format, uint32_t(DXGI_FORMAT_B8G8R8A8_UNORM));
  EXPECT_NE(copy->sharedHandle, nullptr);
  ID3D11Texture2D* local = copy->localDestination.get();

  // The same size again creates nothing and takes the mutex twice, acquire and release each:
  // the source writes at key 0 and hands on at 1 once its copy is flushed, the destination
  // reads at 1 and hands back at 0.
  CountedRef<ID3D11Texture2D> source = frame(64, 48, 2);
  control::clearCallRecords();
  uint64_t textures = calls("ID3D11Device::CreateTexture2D");
  ASSERT_TRUE(copyFrame(source.get()));
  EXPECT_EQ(calls("ID3D11Device::CreateTexture2D"), textures);
  EXPECT_EQ(calls("IDXGIResource1::CreateSharedHandle"), 1u);
  EXPECT_EQ(calls("ID3D11Device1::OpenSharedResource1"), 1u);
  EXPECT_EQ(mutexSteps(),
            (std::vector<std::string>{"acquire 0", "release 1 flushed", "acquire 1", "release 0 flushed"}));
  EXPECT_EQ(copy->localDestination.get(), local);
  EXPECT_EQ(readPixels(encode->device.get(), encode->context.get(), result.get()), pattern(64, 48, 2));

  // The call hands the turn back to the source side: key 0 is free at once, key 1 isn't.
  CountedRef<IDXGIKeyedMutex> mutex;
  ASSERT_EQ(mutex.queryFrom(copy->sharedSource.get()), S_OK);
  EXPECT_EQ(mutex->AcquireSync(1, 0), HRESULT(WAIT_TIMEOUT));
  ASSERT_EQ(mutex->AcquireSync(0, 0), S_OK);
  ASSERT_EQ(mutex->ReleaseSync(0), S_OK);
  mutex.reset();
  expectFrameArrives(64, 48, 3);
  EXPECT_TRUE(control::debugOutput().empty());

  // Destruction closes the handle.
  HANDLE handle = copy->sharedHandle;
  copy.reset();
  EXPECT_FALSE(CloseHandle(handle));
}

TEST_F(CrossAdapterCopyTest, ANewSizeOrFormatRecreatesTexturesAndHandle) {
  expectFrameArrives(64, 48, 1);
  struct Step {
    uint32_t width, height;
    DXGI_FORMAT format;
  };
  for (Step step : {Step{32, 16, DXGI_FORMAT_B8G8R8A8_UNORM}, Step{32, 16, DXGI_FORMAT_R8G8B8A8_UNORM},
                    Step{64, 48, DXGI_FORMAT_B8G8R8A8_UNORM}}) {
    SCOPED_TRACE(testing::Message() << step.width << "x" << step.height << " format " << step.format);
    std::vector<uint32_t> pixels = pattern(step.width, step.height, step.width);
    CountedRef<ID3D11Texture2D> source =
        textureWithPixels(capture->device.get(), capture->context.get(), step.width, step.height, pixels, step.format);
    HANDLE oldHandle = copy->sharedHandle;
    uint64_t textures = calls("ID3D11Device::CreateTexture2D");
    uint64_t handles = calls("IDXGIResource1::CreateSharedHandle");
    uint64_t opened = calls("ID3D11Device1::OpenSharedResource1");
    ASSERT_TRUE(copyFrame(source.get()));
    EXPECT_EQ(calls("ID3D11Device::CreateTexture2D") - textures, 2u) << "shared and local";
    EXPECT_EQ(calls("IDXGIResource1::CreateSharedHandle") - handles, 1u);
    EXPECT_EQ(calls("ID3D11Device1::OpenSharedResource1") - opened, 1u);
    EXPECT_FALSE(CloseHandle(oldHandle)) << "the former handle is closed";
    EXPECT_EQ(copy->format, uint32_t(step.format));
    D3D11_TEXTURE2D_DESC desc = {};
    result->GetDesc(&desc);
    EXPECT_EQ(desc.Width, step.width);
    EXPECT_EQ(desc.Height, step.height);
    EXPECT_EQ(desc.Format, step.format);
    EXPECT_EQ(readPixels(encode->device.get(), encode->context.get(), result.get()), pixels);
  }
}

TEST_F(CrossAdapterCopyTest, EachFailureWritesItsLineAndTheNextFrameTriesAgain) {
  struct Case {
    const char* call;
    uint32_t after;  // matching calls of the frame that run before the failing one
    std::string line;
  };
  const std::vector<Case> cases = {
      {"QueryInterface(ID3D11Device1)", 0, "Cross-adapter copy requires ID3D11Device1 on source adapter"},
      {"ID3D11Device::CreateTexture2D", 0, "Cross-adapter shared texture creation failed on source adapter"},
      {"QueryInterface(IDXGIResource1)", 0, "QueryInterface IDXGIResource1 failed"},
      {"IDXGIResource1::CreateSharedHandle", 0, "CreateSharedHandle failed for cross-adapter texture"},
      {"QueryInterface(ID3D11Device1)", 1, "Cross-adapter copy requires ID3D11Device1 on destination adapter"},
      {"ID3D11Device1::OpenSharedResource1", 0, "OpenSharedResource1 failed for cross-adapter texture"},
      {"ID3D11Device::CreateTexture2D", 1, "Cross-adapter local destination texture creation failed"},
      {"QueryInterface(IDXGIKeyedMutex)", 0, "IDXGIKeyedMutex unavailable on cross-adapter texture"},
      {"QueryInterface(IDXGIKeyedMutex)", 1, "IDXGIKeyedMutex unavailable on cross-adapter texture"},
      {"IDXGIKeyedMutex::AcquireSync", 0, "Cross-adapter source mutex acquire failed (hr=0x887a0005)"},
      {"IDXGIKeyedMutex::ReleaseSync", 0, "Cross-adapter source mutex release failed (hr=0x887a0005)"},
      {"IDXGIKeyedMutex::AcquireSync", 1, "Cross-adapter destination mutex acquire failed (hr=0x887a0005)"},
      {"IDXGIKeyedMutex::ReleaseSync", 1, "Cross-adapter destination mutex release failed (hr=0x887a0005)"},
  };
  uint32_t seed = 10;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    // Half the cases meet a copy that already has textures of another size, half a fresh one.
    bool ready = (seed % 2) == 0;
    makeCopy();
    if (ready) expectFrameArrives(64, 48, seed);
    CountedRef<ID3D11Texture2D> source = frame(ready ? 32 : 64, ready ? 24 : 48, seed + 100);
    CountedRef<ID3D11Texture2D> before = result;
    control::clearDebugOutput();

    control::Fault fault;
    fault.call = c.call;
    fault.value = DXGI_ERROR_DEVICE_REMOVED;
    fault.after = c.after;
    control::planFault(fault);
    EXPECT_FALSE(copyFrame(source.get()));
    control::clearFaults();

    EXPECT_EQ(control::debugOutput(), std::vector<std::string>{"[kestrane-win][error] " + c.line + "\n"});
    bool recorded = std::string(c.call).starts_with("IDXGIKeyedMutex::");
    EXPECT_EQ(lastFailure, recorded ? c.line : std::string());
    EXPECT_EQ(result.get(), before.get()) << "the slot is unchanged on false";
    before.reset();

    expectFrameArrives(64, 48, seed + 1);
    seed += 3;
  }
}

TEST_F(CrossAdapterCopyTest, ACreationFailureEmptiesTheRecord) {
  expectFrameArrives(64, 48, 1);
  CountedRef<ID3D11Texture2D> source = frame(32, 24, 2);
  uint64_t closed = calls("CloseHandle");
  control::failOnce("ID3D11Device1::OpenSharedResource1", E_OUTOFMEMORY);
  EXPECT_FALSE(copyFrame(source.get()));
  EXPECT_EQ(calls("CloseHandle") - closed, 2u) << "the former handle and the new one";
  EXPECT_EQ(copy->sharedHandle, nullptr);
  EXPECT_FALSE(copy->sharedSource);
  EXPECT_FALSE(copy->sharedDestination);
  EXPECT_FALSE(copy->localDestination);
  EXPECT_EQ(copy->width, 0u);
  EXPECT_EQ(copy->height, 0u);
  EXPECT_EQ(copy->format, 0u);

  uint64_t textures = calls("ID3D11Device::CreateTexture2D");
  EXPECT_TRUE(copyFrame(source.get()));
  EXPECT_EQ(calls("ID3D11Device::CreateTexture2D") - textures, 2u);
}

// After a failed mutex step nobody will hand the key on, so waiting on the same texture would
// never end; the copy must move to new textures and keep every later frame bounded.
TEST_F(CrossAdapterCopyTest, AfterAFailedMutexStepLaterFramesNeitherBlockNorFail) {
  struct Case {
    const char* call;
    uint32_t after;
  };
  for (Case c : {Case{"IDXGIKeyedMutex::AcquireSync", 0}, Case{"IDXGIKeyedMutex::ReleaseSync", 0},
                 Case{"IDXGIKeyedMutex::AcquireSync", 1}, Case{"IDXGIKeyedMutex::ReleaseSync", 1}}) {
    SCOPED_TRACE(testing::Message() << c.call << " after " << c.after);
    expectFrameArrives(64, 48, 1);
    control::Fault fault;
    fault.call = c.call;
    fault.value = E_FAIL;
    fault.after = c.after;
    control::planFault(fault);
    CountedRef<ID3D11Texture2D> source = frame(64, 48, 2);
    EXPECT_FALSE(copyFrame(source.get()));
    uint64_t handles = calls("IDXGIResource1::CreateSharedHandle");
    for (uint32_t seed = 3; seed < 6; ++seed) expectFrameArrives(64, 48, seed);
    EXPECT_EQ(calls("IDXGIResource1::CreateSharedHandle") - handles, 1u) << "one new shared texture, then it stands";
  }
}

TEST_F(CrossAdapterCopyTest, AnAbandonedAcquireCountsAsFailed) {
  expectFrameArrives(64, 48, 1);
  CountedRef<ID3D11Texture2D> source = frame(64, 48, 2);
  control::failOnce("IDXGIKeyedMutex::AcquireSync", WAIT_ABANDONED);
  EXPECT_FALSE(copyFrame(source.get()));
  EXPECT_EQ(lastFailure, "Cross-adapter source mutex acquire failed (hr=0x00000080)");
  expectFrameArrives(64, 48, 3);
}

TEST_F(CrossAdapterCopyTest, TheSlotKeepsASingleReferenceToTheLocalTexture) {
  expectFrameArrives(64, 48, 1);
  ULONG references = referenceCount(result.get());
  CountedRef<ID3D11Texture2D> source = frame(64, 48, 2);
  ASSERT_TRUE(copyFrame(source.get()));
  EXPECT_EQ(referenceCount(result.get()), references);
}

TEST_F(CrossAdapterCopyTest, OnOneDeviceTheFrameItselfPassesThrough) {
  copy->destination = capture.get();
  copy->sameDevice = true;
  CountedRef<ID3D11Texture2D> source = frame(64, 48, 1);
  uint64_t textures = calls("ID3D11Device::CreateTexture2D");
  ULONG references = referenceCount(source.get());
  ASSERT_TRUE(copyFrame(source.get()));
  EXPECT_EQ(result.get(), source.get());
  EXPECT_EQ(referenceCount(source.get()), references + 1);
  ASSERT_TRUE(copyFrame(source.get()));
  EXPECT_EQ(referenceCount(source.get()), references + 1) << "no extra reference for the texture already held";
  EXPECT_EQ(calls("ID3D11Device::CreateTexture2D"), textures);
  EXPECT_EQ(calls("IDXGIKeyedMutex::AcquireSync") + calls("IDXGIKeyedMutex::ReleaseSync"), 0u);
  EXPECT_FALSE(copy->sharedSource);

  EXPECT_FALSE(copyFrame(nullptr));
  EXPECT_EQ(result.get(), source.get());
  EXPECT_FALSE(copy->copyToEncodeDevice(source.get(), nullptr));
  EXPECT_TRUE(control::debugOutput().empty());
}

}  // namespace
