// MfH264Encoder through its VideoEncoder operations on the software GPU: which transform each
// machine gives it, what its pictures decode to, key frames, the asynchronous event path and
// its bounds, and what it leaves behind.
#include <objbase.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "encoders/mf_h264_encoder.h"
#include "gpu/d3d_context.h"
#include "mferror.h"
#include "platform/control/com_control.h"
#include "platform/control/mf_control.h"
#include "rtp/annexb.h"
#include "support/failure.h"
#include "test/support/gpu_test_helpers.h"
#include "test/support/h264_decoder.h"
#include "test/support/mf_encoder_helpers.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

constexpr uint32_t kWidth = 160;  // rows far narrower than the GPU's 256-byte row pitch
constexpr uint32_t kHeight = 96;
constexpr uint32_t kFps = 30;
constexpr uint32_t kBitrate = 2'000'000;

enum class Kind { SoftwareClass, SoftwareEnumerated, Hardware };

control::MachineDescription machineWith(Kind kind) {
  return mfMachine(kind == Kind::SoftwareClass, kind == Kind::SoftwareEnumerated, kind == Kind::Hardware);
}

class MfEncoderTest : public GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    apartmentsBefore = control::processApartmentCount();
    startupsBefore = control::mfStartupCount();
  }
  void TearDown() override {
    encoder.reset();
    context.reset();
    EXPECT_EQ(control::processApartmentCount(), apartmentsBefore) << "every CoInitializeEx is undone";
    EXPECT_EQ(control::mfStartupCount(), startupsBefore) << "every MFStartup is undone";
    GpuTest::TearDown();
  }

  // A device on the machine's first adapter and a new encoder, not yet initialised.
  void useMachine(const control::MachineDescription& machine) {
    control::setMachine(machine);
    context = std::make_unique<D3DContext>();
    ASSERT_TRUE(context->createOnFirstAdapter());
    encoder = std::make_unique<MfH264Encoder>();
  }
  bool initEncoder(uint32_t fps = kFps) { return encoder->init(context.get(), kWidth, kHeight, fps, kBitrate); }

  CountedRef<ID3D11Texture2D> picture(int index) {
    Nv12Frame frame{int(kWidth), int(kHeight)};
    drawDesktop(frame, index);
    frames.push_back(frame);
    return nv12Texture(context->device.get(), context->context.get(), frame);
  }

  // Encodes `count` pictures of the desktop; every call must succeed with bytes.
  std::vector<uint8_t> encodeFrames(int count, std::vector<bool>* keyFrames = nullptr) {
    std::vector<uint8_t> stream;
    for (int i = 0; i < count; ++i) {
      CountedRef<ID3D11Texture2D> texture = picture(int(frames.size()));
      std::vector<uint8_t> out;
      bool keyFrame = false;
      EXPECT_TRUE(encoder->encode(texture.get(), &out, &keyFrame)) << "picture " << i;
      EXPECT_FALSE(out.empty()) << "picture " << i;
      if (keyFrames != nullptr) keyFrames->push_back(keyFrame);
      stream.insert(stream.end(), out.begin(), out.end());
    }
    return stream;
  }

  std::unique_ptr<D3DContext> context;
  std::unique_ptr<MfH264Encoder> encoder;
  std::vector<Nv12Frame> frames;
  int apartmentsBefore = 0;
  int startupsBefore = 0;
};

// --- Finding a transform ---

TEST_F(MfEncoderTest, TakesTheSoftwareClassFirstAndNeverTouchesTheHardwareTransform) {
  useMachine(mfMachine(true, true, true));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  EXPECT_EQ(linesContaining("[kestrane-win] Using Microsoft H264 encoder MFT\n"), 1);
  EXPECT_EQ(control::callCount("MFTEnumEx"), 0u);
  EXPECT_EQ(control::callCount("MFCreateDXGIDeviceManager"), 0u);
  EXPECT_FALSE(encoder->usesGpuInput());
  EXPECT_STREQ(encoder->name(), "mf-h264");
}

TEST_F(MfEncoderTest, FallsThroughToAnEnumeratedSoftwareTransform) {
  // The class is missing on one machine and fails to be created on the other.
  for (bool classPresent : {false, true}) {
    control::reset();
    useMachine(mfMachine(classPresent, true, true));
    if (classPresent) control::failOnce("CoCreateInstance", E_OUTOFMEMORY);
    ASSERT_TRUE(initEncoder()) << threadLastFailure;
    EXPECT_EQ(linesContaining("Using Microsoft H264 encoder MFT"), 0);
    EXPECT_EQ(linesContaining("[kestrane-win] Using MF software H264 encoder\n"), 1);
    EXPECT_FALSE(encoder->usesGpuInput());
    EXPECT_EQ(control::callCount("IMFDXGIDeviceManager::ResetDevice"), 0u);
    encoder.reset();
  }
}

TEST_F(MfEncoderTest, TakesTheHardwareTransformOnlyWhenNoSoftwareOneWorks) {
  useMachine(mfMachine(true, true, true));
  control::failOnce("CoCreateInstance", E_FAIL);
  control::failOnce("MFTEnumEx", E_FAIL);  // the software enumeration comes first
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  EXPECT_EQ(linesContaining("[kestrane-win] Using MF hardware H264 encoder\n"), 1);
  EXPECT_EQ(linesContaining("[kestrane-win] MF encoder using DXGI GPU input (async event-driven)\n"), 1);
  EXPECT_TRUE(encoder->usesGpuInput());
  EXPECT_EQ(control::liveObjectCount("IMFDXGIDeviceManager"), 1);
}

TEST_F(MfEncoderTest, ReportsThatNoEncoderExists) {
  useMachine(mfMachine(false, false, false));
  EXPECT_FALSE(initEncoder());
  EXPECT_EQ(threadLastFailure, "MF H264 encoder not found");
  EXPECT_STREQ(encoder->name(), "mf-h264");
  EXPECT_FALSE(encoder->usesGpuInput());
}

TEST_F(MfEncoderTest, KeepsTheLastRecordedCauseWhenLaterTriesFindNothing) {
  useMachine(mfMachine(true, false, false));
  control::failTimes("IMFTransform::SetOutputType", E_FAIL, 0);
  EXPECT_FALSE(initEncoder());
  EXPECT_EQ(threadLastFailure, "MF SetOutputType failed for H264");

  encoder = std::make_unique<MfH264Encoder>();
  control::clearFaults();
  control::failOnce("IMFTransform::GetInputAvailableType", E_OUTOFMEMORY);
  EXPECT_FALSE(initEncoder());
  EXPECT_EQ(threadLastFailure, "MF GetInputAvailableType failed (hr=0x8007000e)");
}

TEST_F(MfEncoderTest, RecordsWhyTheHardwareTransformWasRefused) {
  // Pinned to the second adapter while the encode device is on the first.
  control::MachineDescription machine = mfMachine(false, false, true);
  machine.adapters.push_back(adapter(0x8086, 0x4680, 0));
  machine.mfHardwareAdapter = 1;
  useMachine(machine);
  EXPECT_FALSE(initEncoder());
  EXPECT_EQ(threadLastFailure, "MF set D3D manager failed (hr=0xc00d6d76)");

  // Unlocking refused: the transform stays locked, so nothing else could work.
  encoder = std::make_unique<MfH264Encoder>();
  control::setMachine(mfMachine(false, false, true));
  context = std::make_unique<D3DContext>();
  ASSERT_TRUE(context->createOnFirstAdapter());
  control::failOnce("IMFAttributes::SetUINT32", E_ACCESSDENIED);
  EXPECT_FALSE(initEncoder());
  EXPECT_EQ(threadLastFailure, "MF async unlock failed (hr=0x80070005)");
}

TEST_F(MfEncoderTest, TreatsATransformWithoutAttributesAsSynchronous) {
  // The hardware transform then stays locked, and refuses the device manager as Windows does.
  useMachine(mfMachine(false, false, true));
  control::failOnce("IMFTransform::GetAttributes", E_NOTIMPL);
  EXPECT_FALSE(initEncoder());
  EXPECT_EQ(threadLastFailure, "MF set D3D manager failed (hr=0xc00d6d77)");
  EXPECT_EQ(control::callCount("IMFAttributes::SetUINT32"), 0u);
}

TEST_F(MfEncoderTest, StartupFailureRecordsNothingAndUndoesCom) {
  useMachine(mfMachine(true, false, false));
  threadLastFailure = "stale";
  control::failOnce("MFStartup", E_FAIL);
  EXPECT_FALSE(initEncoder());
  EXPECT_EQ(threadLastFailure, "");
  EXPECT_EQ(linesContaining("[kestrane-win][error] MFStartup failed\n"), 1);
  EXPECT_EQ(control::threadApartmentCount(), 1) << "held until the encoder goes";
  encoder.reset();
  EXPECT_EQ(control::threadApartmentCount(), 0);
}

TEST_F(MfEncoderTest, JoinsTheThreadsMultithreadedApartmentAndLeavesItAgain) {
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  EXPECT_EQ(control::threadApartmentCount(), 2) << "S_FALSE counts and is undone";
  encoder.reset();
  EXPECT_EQ(control::threadApartmentCount(), 1);
  CoUninitialize();
}

TEST_F(MfEncoderTest, LeavesAThreadInAnotherApartmentAsItWas) {
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  encodeFrames(1);
  encoder.reset();
  EXPECT_EQ(control::threadApartmentCount(), 1);
  EXPECT_EQ(control::callCount("CoUninitialize"), 0u);
  // Media Foundation was started and isn't shut down on this way, as COM isn't undone either.
  EXPECT_EQ(control::callCount("MFShutdown"), 0u);
  CoUninitialize();
  MFShutdown();
}

// --- Pictures ---

class MfEncoderKindTest : public MfEncoderTest, public testing::WithParamInterface<Kind> {};

TEST_P(MfEncoderKindTest, OutputDecodesToThePicturesDrawn) {
  useMachine(machineWith(GetParam()));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  constexpr int kFrames = 12;
  std::vector<uint8_t> stream = encodeFrames(kFrames);
  ASSERT_TRUE(hasStartCode(stream));
  H264Decoder decoder;
  std::vector<DecodedPicture> pictures;
  ASSERT_TRUE(decoder.decodeStream(stream, pictures)) << decoder.error();
  ASSERT_EQ(pictures.size(), size_t(kFrames));
  for (int i = 0; i < kFrames; ++i) {
    EXPECT_EQ(pictures[i].width, int(kWidth));
    EXPECT_GE(psnrY(frames[i], pictures[i]), 35.0) << "picture " << i;
    EXPECT_GE(psnrChroma(frames[i], pictures[i]), 35.0) << "picture " << i;
  }
}

TEST_P(MfEncoderKindTest, KeyFramesComeAtTheStartOnRequestAndOncePerSecond) {
  useMachine(machineWith(GetParam()));
  ASSERT_TRUE(initEncoder(10)) << threadLastFailure;
  std::vector<bool> keyFrames;
  std::vector<uint8_t> stream = encodeFrames(4, &keyFrames);
  EXPECT_EQ(control::callCount("ICodecAPI::SetValue"), 1u) << "a new encoder asks for its first picture";
  encoder->requestKeyFrame();
  encoder->requestKeyFrame();  // one flag, not a count
  encodeFrames(10, &keyFrames);
  EXPECT_EQ(control::callCount("ICodecAPI::SetValue"), 2u);
  // 0: the first picture; 4: requested; 14: ten pictures at 10 fps after the requested one.
  encodeFrames(2, &keyFrames);
  std::vector<bool> expected(16, false);
  expected[0] = expected[4] = expected[14] = true;
  EXPECT_EQ(keyFrames, expected);
  EXPECT_TRUE(containsNalType(stream.data(), stream.size(), kNalSps));
}

TEST_P(MfEncoderKindTest, TheOutputTypeAndTheSampleTimesAreTheStreamsOwn) {
  useMachine(machineWith(GetParam()));
  ASSERT_TRUE(initEncoder(25)) << threadLastFailure;
  control::MfEncoderRecord taken = control::lastMfEncoderRecord();
  EXPECT_EQ(taken.profile, 66u) << "Baseline";
  EXPECT_EQ(taken.level, 51u);
  EXPECT_EQ(taken.averageBitrate, kBitrate);
  EXPECT_EQ(taken.interlaceMode, UINT32(MFVideoInterlace_Progressive));
  EXPECT_EQ(taken.lowLatency, 1u);
  EXPECT_EQ(taken.frameSize, (uint64_t(kWidth) << 32) | kHeight);
  EXPECT_EQ(taken.frameRate, (uint64_t(25) << 32) | 1);
  encodeFrames(3);
  taken = control::lastMfEncoderRecord();
  ASSERT_TRUE(taken.inputSampleTimed);
  EXPECT_EQ(taken.lastSampleTime, 2 * 10000000 / 25) << "the third picture, on the frame rate's grid";
  EXPECT_EQ(taken.lastSampleDuration, 10000000 / 25);
}

TEST_P(MfEncoderKindTest, CyclesLeaveNoObjectApartmentOrStartupBehind) {
  for (int cycle = 0; cycle < 4; ++cycle) {
    useMachine(machineWith(GetParam()));
    ASSERT_TRUE(initEncoder()) << threadLastFailure;
    encodeFrames(3);
    encoder.reset();
    context.reset();
    EXPECT_EQ(control::totalLiveObjects(), 0) << "cycle " << cycle;
    EXPECT_EQ(control::processApartmentCount(), apartmentsBefore);
    EXPECT_EQ(control::mfStartupCount(), startupsBefore);
  }
}

INSTANTIATE_TEST_SUITE_P(EachTransform, MfEncoderKindTest,
                         testing::Values(Kind::SoftwareClass, Kind::SoftwareEnumerated, Kind::Hardware),
                         [](const testing::TestParamInfo<Kind>& info) {
                           switch (info.param) {
                             case Kind::SoftwareClass:
                               return std::string("SoftwareClass");
                             case Kind::SoftwareEnumerated:
                               return std::string("SoftwareEnumerated");
                             case Kind::Hardware:
                               return std::string("Hardware");
                           }
                           return std::string();
                         });

TEST_P(MfEncoderKindTest, AMachineThatLosesSlicesStillGivesParameterSets) {
  control::MachineDescription machine = machineWith(GetParam());
  machine.mfSlicelessAfter = 3;
  useMachine(machine);
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  std::vector<uint8_t> good = encodeFrames(3);
  std::vector<uint8_t> goodTypes;
  for (const NalUnit& unit : scanAnnexB(good.data(), good.size())) goodTypes.push_back(unit.type);
  ASSERT_GE(goodTypes.size(), 5u);
  EXPECT_EQ(goodTypes[0], kNalSps);
  EXPECT_EQ(goodTypes[1], kNalPps);
  auto idrSlices = std::count(goodTypes.begin(), goodTypes.end(), kNalSliceIdr);
  EXPECT_GE(idrSlices, 1);
  EXPECT_EQ(std::count(goodTypes.begin(), goodTypes.end(), kNalSliceNonIdr), 2 * idrSlices) << "an IDR, then two P";
  for (int i = 0; i < 3; ++i) {
    std::vector<uint8_t> bytes = encodeFrames(1);
    std::vector<uint8_t> types;
    for (const NalUnit& unit : scanAnnexB(bytes.data(), bytes.size())) types.push_back(unit.type);
    EXPECT_EQ(types, (std::vector<uint8_t>{kNalSps, kNalPps})) << "picture " << 3 + i;
  }
}

TEST_F(MfEncoderTest, RefusesWithoutAnInitOrATexture) {
  useMachine(mfMachine(true, false, false));
  Nv12Frame frame{int(kWidth), int(kHeight)};
  CountedRef<ID3D11Texture2D> texture = nv12Texture(context->device.get(), context->context.get(), frame);
  std::vector<uint8_t> out;
  EXPECT_FALSE(encoder->encode(texture.get(), &out, nullptr)) << "before init";
  ASSERT_TRUE(initEncoder());
  EXPECT_FALSE(encoder->encode(nullptr, &out, nullptr));
  EXPECT_FALSE(encoder->encode(texture.get(), nullptr, nullptr));
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), 0u);
  EXPECT_TRUE(encoder->encode(texture.get(), &out, nullptr)) << "a key-frame hint is optional";
}

TEST_F(MfEncoderTest, RunsAtOneFrameASecondWhenGivenNoRate) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder(0)) << threadLastFailure;
  std::vector<bool> keyFrames;
  encodeFrames(3, &keyFrames);
  EXPECT_EQ(keyFrames, (std::vector<bool>{true, true, true})) << "a key frame every picture at 1 fps";
}

// --- Input ---

TEST_F(MfEncoderTest, ReadsTheFrameLoopsReadbackTextureWithoutACopy) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  Nv12Frame frame{int(kWidth), int(kHeight)};
  drawDesktop(frame, 3);
  CountedRef<ID3D11Texture2D> source = nv12Texture(context->device.get(), context->context.get(), frame);
  CountedRef<ID3D11Texture2D> readback =
      makeTexture(context->device.get(), stagingDesc(kWidth, kHeight, DXGI_FORMAT_NV12, D3D11_CPU_ACCESS_READ));
  context->context->CopyResource(readback.get(), source.get());
  control::resetCallCounts();
  std::vector<uint8_t> out;
  ASSERT_TRUE(encoder->encode(readback.get(), &out, nullptr));
  EXPECT_EQ(control::callCount("ID3D11Device::CreateTexture2D"), 0u);
  H264Decoder decoder;
  std::vector<DecodedPicture> pictures;
  ASSERT_TRUE(decoder.decodeStream(out, pictures)) << decoder.error();
  ASSERT_EQ(pictures.size(), 1u);
  EXPECT_GE(psnrY(frame, pictures[0]), 35.0);
}

TEST_F(MfEncoderTest, ReportsAPictureThatCannotBeMappedWithItsOwnCode) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  CountedRef<ID3D11Texture2D> texture = picture(0);
  control::failOnce("ID3D11DeviceContext::Map", DXGI_ERROR_DEVICE_REMOVED);
  std::vector<uint8_t> out;
  EXPECT_FALSE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_EQ(threadLastFailure, "MF encoder failed to map NV12 texture (hr=0x80004005)");
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), 0u);
}

TEST_F(MfEncoderTest, AnInputBufferThatCannotBeLockedFailsThePictureAndTheNextOneGoesOn) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  CountedRef<ID3D11Texture2D> texture = picture(0);
  control::failOnce("IMFMediaBuffer::Lock", E_OUTOFMEMORY);
  std::vector<uint8_t> out;
  EXPECT_FALSE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_EQ(threadLastFailure, "MF encoder failed to lock its input buffer (hr=0x8007000e)");
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), 0u) << "no sample over memory never written";
  EXPECT_TRUE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), 1u);
}

TEST_F(MfEncoderTest, ADrainEndsAfterSixteenOutputsOfATransformThatNeverStopsGiving) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  CountedRef<ID3D11Texture2D> texture = picture(0);
  // The transform asks for its output to be fetched first, then answers every fetch with success.
  control::failOnce("IMFTransform::ProcessInput", MF_E_NOTACCEPTING);
  control::planFault({"IMFTransform::ProcessOutput", S_FALSE, 0, 0});
  std::vector<uint8_t> out;
  EXPECT_TRUE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_TRUE(out.empty());
  // Sixteen discarded to make room, then one fetch for the picture that gives nothing.
  EXPECT_EQ(control::callCount("IMFTransform::ProcessOutput"), 17u);
  EXPECT_EQ(threadLastFailure, "MF output drain stopped: the transform keeps giving output (hr=0x8000ffff)");
  control::clearFaults();
}

TEST_F(MfEncoderTest, KeepsOneInputTextureForAllPicturesOnTheGpu) {
  useMachine(mfMachine(false, false, true));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  std::vector<CountedRef<ID3D11Texture2D>> textures;
  for (int i = 0; i < 4; ++i) textures.push_back(picture(i));
  control::resetCallCounts();
  for (auto& texture : textures) {
    std::vector<uint8_t> out;
    ASSERT_TRUE(encoder->encode(texture.get(), &out, nullptr));
  }
  EXPECT_EQ(control::callCount("ID3D11Device::CreateTexture2D"), 1u);
  EXPECT_EQ(control::callCount("MFCreateDXGISurfaceBuffer"), 4u);
  EXPECT_EQ(control::callCount("MFCreateMemoryBuffer"), 0u) << "the transform provides its output samples";

  control::failOnce("MFCreateDXGISurfaceBuffer", E_OUTOFMEMORY);
  std::vector<uint8_t> out;
  EXPECT_FALSE(encoder->encode(textures[0].get(), &out, nullptr));
  EXPECT_EQ(threadLastFailure, "MFCreateDXGISurfaceBuffer failed (hr=0x8007000e)");
}

TEST_F(MfEncoderTest, StopsWaitingForTheGpuAfterFiveHundredPolls) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  CountedRef<ID3D11Texture2D> texture = picture(0);
  control::failTimes("ID3D11DeviceContext::GetData", S_FALSE, 0);
  std::vector<uint8_t> out;
  auto started = std::chrono::steady_clock::now();
  EXPECT_TRUE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(500));
  EXPECT_FALSE(out.empty()) << "the picture isn't lost to the wait";
  EXPECT_EQ(control::callCount("ID3D11DeviceContext::GetData"), 500u);
  EXPECT_EQ(threadLastFailure, "MF GPU wait timed out (hr=0x80004005)");
}

// --- The synchronous path ---

TEST_F(MfEncoderTest, AnAcceptedPictureWithoutOutputGivesTrueAndNothing) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  control::failOnce("IMFTransform::ProcessOutput", MF_E_TRANSFORM_NEED_MORE_INPUT);
  CountedRef<ID3D11Texture2D> first = picture(0);
  std::vector<uint8_t> out;
  EXPECT_TRUE(encoder->encode(first.get(), &out, nullptr));
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(linesContaining("[error]"), 0) << "nothing failed";

  // The transform still holds the first picture and refuses the next until it is fetched; what
  // is fetched then is dropped, and only the new picture comes out.
  CountedRef<ID3D11Texture2D> second = picture(1);
  bool keyFrame = true;
  ASSERT_TRUE(encoder->encode(second.get(), &out, &keyFrame));
  EXPECT_FALSE(keyFrame);
  std::vector<NalUnit> units = scanAnnexB(out.data(), out.size());
  ASSERT_FALSE(units.empty());
  for (const NalUnit& unit : units) EXPECT_EQ(unit.type, kNalSliceNonIdr) << "slices of one P picture only";
}

TEST_F(MfEncoderTest, ReconfiguresAfterAStreamChangeAndGoesOn) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  encodeFrames(1);
  control::requestMfStreamChange();
  CountedRef<ID3D11Texture2D> texture = picture(1);
  std::vector<uint8_t> out;
  EXPECT_TRUE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(linesContaining("[kestrane-win] MF output stream changed, reconfiguring output type\n"), 1);
  EXPECT_EQ(linesContaining("[kestrane-win][error] MF ProcessOutput failed (hr=0xc00d6d61)\n"), 1);
  encodeFrames(2);
}

TEST_F(MfEncoderTest, LogsAtMostOneFailureLineASecond) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  control::failTimes("IMFTransform::ProcessInput", E_FAIL, 3);
  CountedRef<ID3D11Texture2D> texture = picture(0);
  std::vector<uint8_t> out;
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_EQ(linesContaining("MF ProcessInput failed (hr=0x80004005)"), 1);
  EXPECT_EQ(threadLastFailure, "MF ProcessInput failed (hr=0x80004005)");
  // The refused pictures left the key-frame request used up; the picture after them is still
  // the stream's first and so a key frame from the transform itself.
  bool keyFrame = false;
  EXPECT_TRUE(encoder->encode(texture.get(), &out, &keyFrame));
  EXPECT_TRUE(keyFrame);
}

TEST_F(MfEncoderTest, PollsAnOutputThatIsNeverReadyThirtyTwoTimes) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  control::failTimes("IMFTransform::ProcessOutput", E_UNEXPECTED, 0);
  CountedRef<ID3D11Texture2D> texture = picture(0);
  std::vector<uint8_t> out;
  EXPECT_TRUE(encoder->encode(texture.get(), &out, nullptr)) << "the picture went in";
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(control::callCount("IMFTransform::ProcessOutput"), 32u);
  EXPECT_EQ(linesContaining("[error]"), 0);
}

TEST_F(MfEncoderTest, GivesUpAPictureTheTransformNeverTakes) {
  useMachine(mfMachine(true, false, false));
  ASSERT_TRUE(initEncoder());
  control::failTimes("IMFTransform::ProcessInput", MF_E_NOTACCEPTING, 0);
  CountedRef<ID3D11Texture2D> texture = picture(0);
  std::vector<uint8_t> out;
  EXPECT_FALSE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), 16u);
  EXPECT_EQ(threadLastFailure, "MF ProcessInput still not accepting after draining output (hr=0xc00d36b5)");
}

// --- The asynchronous path ---

TEST_F(MfEncoderTest, KeepsTheHardwareTransformsRequestForTheNextPicture) {
  useMachine(mfMachine(false, false, true));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  constexpr int kFrames = 60;
  auto started = std::chrono::steady_clock::now();
  encodeFrames(2);
  // A second picture that waited for a request of its own would have waited 5 s in vain.
  ASSERT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(4));
  encodeFrames(kFrames - 2);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
  EXPECT_EQ(linesContaining("MF timeout waiting for NeedInput"), 0);
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), uint64_t(kFrames)) << "never refused";
}

// A request is answered by one picture only: after a picture whose encoding failed in the
// transform, which then asks for nothing, no picture goes in until it asks again.
TEST_F(MfEncoderTest, NoPictureGoesInWithoutARequestPending) {
  useMachine(mfMachine(false, false, true));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  encodeFrames(2);
  // The transform fails to read the next picture; the wait for its output ends at once.
  control::failOnce("IMFDXGIBuffer::GetResource", E_FAIL);
  control::planFault({"GetTickCount", 1000, 0, 1, 0, true});
  control::planFault({"GetTickCount", 6000, 1, 0, 0, true});
  CountedRef<ID3D11Texture2D> texture = picture(2);
  std::vector<uint8_t> out;
  EXPECT_TRUE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), 3u);
  // Whether or not the transform's thread has failed the picture by now, it has asked for no other.

  control::clearFaults();
  control::planFault({"GetTickCount", 1000, 0, 1, 0, true});
  control::planFault({"GetTickCount", 6000, 1, 0, 0, true});
  EXPECT_FALSE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), 3u) << "no request, no input";
}

TEST_F(MfEncoderTest, GivesUpWaitingForTheTransformsRequestAfterFiveSeconds) {
  useMachine(mfMachine(false, false, true));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  // The queue stays empty, and the clock jumps 5 s after the wait starts.
  control::failTimes("IMFMediaEventGenerator::GetEvent", MF_E_NO_EVENTS_AVAILABLE, 0);
  control::planFault({"GetTickCount", 1000, 0, 1, 0, true});
  control::planFault({"GetTickCount", 6000, 1, 0, 0, true});
  CountedRef<ID3D11Texture2D> texture = picture(0);
  std::vector<uint8_t> out;
  EXPECT_FALSE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_EQ(threadLastFailure, "MF timeout waiting for NeedInput (hr=0x80004005)");
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), 0u);
}

TEST_F(MfEncoderTest, StopsCollectingOutputAfterFiveSecondsWithoutFailing) {
  useMachine(mfMachine(false, false, true));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  // The first poll takes the transform's request; nothing after it arrives in time.
  control::planFault({"IMFMediaEventGenerator::GetEvent", MF_E_NO_EVENTS_AVAILABLE, 1, 0, 0, true});
  control::planFault({"GetTickCount", 1000, 0, 1, 0, true});
  control::planFault({"GetTickCount", 5999, 1, 3, 0, true});
  control::planFault({"GetTickCount", 6000, 4, 0, 0, true});
  CountedRef<ID3D11Texture2D> texture = picture(0);
  std::vector<uint8_t> out;
  EXPECT_TRUE(encoder->encode(texture.get(), &out, nullptr));
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(control::callCount("IMFTransform::ProcessInput"), 1u);
  EXPECT_EQ(linesContaining("[error]"), 0);

  // The output that came too late is taken in before the next picture goes in. (Had it still
  // been on its way then, the wait for the next request would have fetched and dropped it.)
  control::clearFaults();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  bool keyFrame = false;
  CountedRef<ID3D11Texture2D> next = picture(1);
  ASSERT_TRUE(encoder->encode(next.get(), &out, &keyFrame));
  EXPECT_TRUE(keyFrame) << "the first picture's IDR arrives with the second call";
}

TEST_F(MfEncoderTest, KeepsCollectingAfterTheTransformReportsAnErrorAndThenGivesTheTimeUp) {
  useMachine(mfMachine(false, false, true));
  ASSERT_TRUE(initEncoder()) << threadLastFailure;
  // The transform can't reach the picture it took and says so with MEError; the clock runs out
  // 5 s after the input, some 200 polls later.
  control::failOnce("IMFDXGIBuffer::GetResource", E_OUTOFMEMORY);
  CountedRef<ID3D11Texture2D> texture = picture(0);
  control::planFault({"GetTickCount", 1000, 0, 200, 0, true});
  control::planFault({"GetTickCount", 6000, 200, 0, 0, true});
  std::vector<uint8_t> out;
  EXPECT_TRUE(encoder->encode(texture.get(), &out, nullptr)) << "the picture went in";
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(threadLastFailure, "MF transform reported MEError (hr=0x80004005)");
  EXPECT_EQ(control::callCount("GetTickCount"), 201u) << "pumping went on until the time was up";
}

}  // namespace
