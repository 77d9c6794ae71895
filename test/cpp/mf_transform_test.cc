// The platform's H.264 encoder transforms through their SDK calls: how MFTEnumEx and COM find
// them, type negotiation, the synchronous protocol, and the asynchronous one with its lock,
// credits and events.
#include <codecapi.h>
#include <mfapi.h>
#include <mferror.h>
#include <mftransform.h>
#include <objbase.h>
#include <oleauto.h>
#include <strmif.h>
#include <wmcodecdsp.h>

#include <chrono>
#include <cstddef>
#include <thread>
#include <vector>

#include "platform/control/mf_control.h"
#include "rtp/annexb.h"
#include "test/support/gpu_test_helpers.h"
#include "test/support/mf_encoder_helpers.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

// The x64 layouts the SDK gives these structures, which a transform and its client share.
static_assert(sizeof(VARIANT) == 24 && offsetof(VARIANT, ulVal) == 8);
static_assert(sizeof(MFT_OUTPUT_DATA_BUFFER) == 32 && offsetof(MFT_OUTPUT_DATA_BUFFER, pSample) == 8 &&
              offsetof(MFT_OUTPUT_DATA_BUFFER, pEvents) == 24);
static_assert(sizeof(MFT_OUTPUT_STREAM_INFO) == 12 && sizeof(MFT_INPUT_STREAM_INFO) == 24);
static_assert(sizeof(MFT_REGISTER_TYPE_INFO) == 32);

constexpr UINT32 kWidth = 64;
constexpr UINT32 kHeight = 48;
constexpr UINT32 kFrameBytes = kWidth * kHeight * 3 / 2;

class MfTransformTest : public GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  }
  void TearDown() override {
    CoUninitialize();
    GpuTest::TearDown();
  }

  // Every activation object MFTEnumEx finds, released, with the friendly kind of each.
  static std::vector<UINT32> enumerate(UINT32 flags, const GUID& inputSubtype = MFVideoFormat_NV12) {
    MFT_REGISTER_TYPE_INFO input = {MFMediaType_Video, inputSubtype};
    MFT_REGISTER_TYPE_INFO output = {MFMediaType_Video, MFVideoFormat_H264};
    IMFActivate** activates = nullptr;
    UINT32 count = 0;
    EXPECT_EQ(MFTEnumEx(MFT_CATEGORY_VIDEO_ENCODER, flags, &input, &output, &activates, &count), S_OK);
    std::vector<UINT32> asyncFlags;
    for (UINT32 i = 0; i < count; ++i) {
      asyncFlags.push_back(MFGetAttributeUINT32(activates[i], MF_TRANSFORM_ASYNC, 0));
      activates[i]->Release();
    }
    CoTaskMemFree(activates);
    return asyncFlags;
  }

  static CountedRef<IMFTransform> activateFirst(UINT32 flags) {
    MFT_REGISTER_TYPE_INFO output = {MFMediaType_Video, MFVideoFormat_H264};
    IMFActivate** activates = nullptr;
    UINT32 count = 0;
    CountedRef<IMFTransform> transform;
    if (SUCCEEDED(MFTEnumEx(MFT_CATEGORY_VIDEO_ENCODER, flags, nullptr, &output, &activates, &count)) && count > 0) {
      EXPECT_EQ(activates[0]->ActivateObject(IID_IMFTransform, transform.putVoid()), S_OK);
      for (UINT32 i = 0; i < count; ++i) activates[i]->Release();
    }
    CoTaskMemFree(activates);
    return transform;
  }

  static CountedRef<IMFMediaType> videoType(const GUID& subtype, UINT32 width = kWidth, UINT32 height = kHeight) {
    CountedRef<IMFMediaType> type;
    EXPECT_EQ(MFCreateMediaType(type.put()), S_OK);
    type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
    type->SetGUID(MF_MT_SUBTYPE, subtype);
    MFSetAttributeSize(type.get(), MF_MT_FRAME_SIZE, width, height);
    MFSetAttributeRatio(type.get(), MF_MT_FRAME_RATE, 30, 1);
    type->SetUINT32(MF_MT_AVG_BITRATE, 1000000);
    return type;
  }

  static void setTypes(IMFTransform* transform) {
    ASSERT_EQ(transform->SetOutputType(0, videoType(MFVideoFormat_H264).get(), 0), S_OK);
    ASSERT_EQ(transform->SetInputType(0, videoType(MFVideoFormat_NV12).get(), 0), S_OK);
  }

  // A sample of one grey NV12 picture in a memory buffer.
  static CountedRef<IMFSample> memorySample(LONGLONG time = 0) {
    CountedRef<IMFSample> sample;
    CountedRef<IMFMediaBuffer> buffer;
    EXPECT_EQ(MFCreateSample(sample.put()), S_OK);
    EXPECT_EQ(MFCreateMemoryBuffer(kFrameBytes, buffer.put()), S_OK);
    BYTE* data = nullptr;
    buffer->Lock(&data, nullptr, nullptr);
    std::fill(data, data + kFrameBytes, BYTE(128));
    buffer->Unlock();
    buffer->SetCurrentLength(kFrameBytes);
    sample->AddBuffer(buffer.get());
    sample->SetSampleTime(time);
    sample->SetSampleDuration(333333);
    return sample;
  }

  // The bytes of one output the caller allocates.
  static HRESULT fetchInto(IMFTransform* transform, std::vector<BYTE>& bytes, LONGLONG* time = nullptr) {
    CountedRef<IMFSample> sample = memorySampleOfSize(1 << 20);
    MFT_OUTPUT_DATA_BUFFER output = {};
    output.pSample = sample.get();
    DWORD status = 0;
    HRESULT hr = transform->ProcessOutput(0, 1, &output, &status);
    if (SUCCEEDED(hr)) bytes = contiguous(sample.get());
    if (SUCCEEDED(hr) && time != nullptr) sample->GetSampleTime(time);
    return hr;
  }

  static CountedRef<IMFSample> memorySampleOfSize(DWORD size) {
    CountedRef<IMFSample> sample;
    CountedRef<IMFMediaBuffer> buffer;
    MFCreateSample(sample.put());
    MFCreateMemoryBuffer(size, buffer.put());
    sample->AddBuffer(buffer.get());
    return sample;
  }

  static std::vector<BYTE> contiguous(IMFSample* sample) {
    CountedRef<IMFMediaBuffer> buffer;
    EXPECT_EQ(sample->ConvertToContiguousBuffer(buffer.put()), S_OK);
    BYTE* data = nullptr;
    DWORD length = 0;
    buffer->Lock(&data, nullptr, &length);
    std::vector<BYTE> bytes(data, data + length);
    buffer->Unlock();
    return bytes;
  }

  static MediaEventType nextEvent(IMFTransform* transform, std::chrono::milliseconds limit = std::chrono::seconds(2)) {
    CountedRef<IMFMediaEventGenerator> generator;
    EXPECT_EQ(generator.queryFrom(transform), S_OK);
    auto until = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < until) {
      CountedRef<IMFMediaEvent> event;
      HRESULT hr = generator->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.put());
      if (hr == MF_E_NO_EVENTS_AVAILABLE) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      EXPECT_EQ(hr, S_OK);
      MediaEventType type = MEUnknown;
      event->GetType(&type);
      return type;
    }
    return MEUnknown;
  }
};

// --- Finding transforms ---

TEST_F(MfTransformTest, EnumerationFiltersByKindAndType) {
  control::setMachine(mfMachine(true, true, true));
  EXPECT_EQ(enumerate(MFT_ENUM_FLAG_SYNCMFT | MFT_ENUM_FLAG_SORTANDFILTER), std::vector<UINT32>{0});
  EXPECT_EQ(enumerate(MFT_ENUM_FLAG_HARDWARE | MFT_ENUM_FLAG_SORTANDFILTER), std::vector<UINT32>{1});
  EXPECT_EQ(enumerate(MFT_ENUM_FLAG_ASYNCMFT), std::vector<UINT32>{}) << "no asynchronous software transform";
  EXPECT_EQ(enumerate(0), std::vector<UINT32>{0}) << "no kind named means synchronous";
  EXPECT_EQ(enumerate(MFT_ENUM_FLAG_ALL | MFT_ENUM_FLAG_SORTANDFILTER), (std::vector<UINT32>{1, 0}))
      << "hardware ranks first";
  const GUID rgb32 = {0x00000016, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
  EXPECT_EQ(enumerate(MFT_ENUM_FLAG_ALL, rgb32), std::vector<UINT32>{});

  control::setMachine(mfMachine(true, false, false));
  EXPECT_EQ(enumerate(MFT_ENUM_FLAG_ALL), std::vector<UINT32>{}) << "the class isn't found by enumeration";
  control::MachineDescription pinnedAway = mfMachine(false, false, true);
  pinnedAway.mfHardwareAdapter = 3;  // the machine has no such adapter
  control::setMachine(pinnedAway);
  EXPECT_EQ(enumerate(MFT_ENUM_FLAG_HARDWARE), std::vector<UINT32>{});
}

TEST_F(MfTransformTest, TheSoftwareClassExistsOnlyWhereTheMachineHasIt) {
  CountedRef<IMFTransform> transform;
  control::setMachine(mfMachine(false, true, true));
  EXPECT_EQ(CoCreateInstance(CLSID_CMSH264EncoderMFT, nullptr, CLSCTX_INPROC_SERVER, IID_IMFTransform,
                             transform.putVoid()),
            REGDB_E_CLASSNOTREG);
  control::setMachine(mfMachine(true, false, false));
  ASSERT_EQ(CoCreateInstance(CLSID_CMSH264EncoderMFT, nullptr, CLSCTX_INPROC_SERVER, IID_IMFTransform,
                             transform.putVoid()),
            S_OK);
  EXPECT_EQ(control::liveObjectCount("IMFTransform"), 1);
  CountedRef<IMFMediaEventGenerator> generator;
  EXPECT_EQ(generator.queryFrom(transform.get()), E_NOINTERFACE) << "synchronous transforms raise no events";
  CountedRef<ICodecAPI> codecApi;
  EXPECT_EQ(transform->QueryInterface(IID_ICodecAPI, codecApi.putVoid()), S_OK);
}

// --- Types ---

TEST_F(MfTransformTest, NegotiatesTheOutputTypeBeforeTheInputType) {
  control::setMachine(mfMachine(false, true, false));
  CountedRef<IMFTransform> transform = activateFirst(MFT_ENUM_FLAG_SYNCMFT);
  ASSERT_TRUE(transform);
  CountedRef<IMFMediaType> type;
  EXPECT_EQ(transform->GetInputAvailableType(0, 0, type.put()), MF_E_TRANSFORM_TYPE_NOT_SET);
  EXPECT_EQ(transform->SetInputType(0, videoType(MFVideoFormat_NV12).get(), 0), MF_E_TRANSFORM_TYPE_NOT_SET);
  EXPECT_EQ(transform->GetOutputAvailableType(0, 1, type.put()), MF_E_NO_MORE_TYPES);
  EXPECT_EQ(transform->GetOutputAvailableType(1, 0, type.put()), MF_E_INVALIDSTREAMNUMBER);
  EXPECT_EQ(transform->SetOutputType(0, videoType(MFVideoFormat_NV12).get(), MFT_SET_TYPE_TEST_ONLY),
            MF_E_INVALIDMEDIATYPE);
  EXPECT_EQ(transform->SetOutputType(0, videoType(MFVideoFormat_H264, 0, kHeight).get(), 0), MF_E_INVALIDMEDIATYPE);

  // A test sets nothing.
  EXPECT_EQ(transform->SetOutputType(0, videoType(MFVideoFormat_H264).get(), MFT_SET_TYPE_TEST_ONLY), S_OK);
  EXPECT_EQ(transform->GetOutputCurrentType(0, type.put()), MF_E_TRANSFORM_TYPE_NOT_SET);
  ASSERT_EQ(transform->SetOutputType(0, videoType(MFVideoFormat_H264).get(), 0), S_OK);

  // Several input subtypes, NV12 among them, then no more.
  std::vector<GUID> subtypes;
  for (DWORD index = 0;; ++index) {
    CountedRef<IMFMediaType> offered;
    HRESULT hr = transform->GetInputAvailableType(0, index, offered.put());
    if (hr == MF_E_NO_MORE_TYPES) break;
    ASSERT_EQ(hr, S_OK);
    GUID subtype{};
    offered->GetGUID(MF_MT_SUBTYPE, &subtype);
    subtypes.push_back(subtype);
    UINT32 width = 0, height = 0;
    EXPECT_EQ(MFGetAttributeSize(offered.get(), MF_MT_FRAME_SIZE, &width, &height), S_OK);
    EXPECT_EQ(width, kWidth);
  }
  EXPECT_GE(subtypes.size(), 2u);
  EXPECT_NE(std::find(subtypes.begin(), subtypes.end(), MFVideoFormat_NV12), subtypes.end());
  EXPECT_EQ(transform->SetInputType(0, videoType(MFVideoFormat_NV12, kWidth * 2, kHeight).get(), 0),
            MF_E_INVALIDMEDIATYPE)
      << "the input has the output's size";
  EXPECT_EQ(transform->SetInputType(0, videoType(MFVideoFormat_NV12).get(), 0), S_OK);
  EXPECT_EQ(transform->GetInputCurrentType(0, type.put()), S_OK);

  MFT_OUTPUT_STREAM_INFO info{};
  ASSERT_EQ(transform->GetOutputStreamInfo(0, &info), S_OK);
  EXPECT_EQ(info.cbSize, 0u) << "this one gives no size";
  EXPECT_EQ(info.dwFlags & MFT_OUTPUT_STREAM_PROVIDES_SAMPLES, 0u);
}

// --- The synchronous protocol ---

TEST_F(MfTransformTest, SynchronousTransformsTakeOnePictureAtATime) {
  control::setMachine(mfMachine(true, false, false));
  CountedRef<IMFTransform> transform;
  ASSERT_EQ(CoCreateInstance(CLSID_CMSH264EncoderMFT, nullptr, CLSCTX_INPROC_SERVER, IID_IMFTransform,
                             transform.putVoid()),
            S_OK);
  std::vector<BYTE> bytes;
  EXPECT_EQ(transform->ProcessInput(0, memorySample().get(), 0), MF_E_TRANSFORM_TYPE_NOT_SET);
  setTypes(transform.get());
  MFT_OUTPUT_STREAM_INFO info{};
  ASSERT_EQ(transform->GetOutputStreamInfo(0, &info), S_OK);
  EXPECT_GE(info.cbSize, kFrameBytes);

  EXPECT_EQ(fetchInto(transform.get(), bytes), MF_E_TRANSFORM_NEED_MORE_INPUT);
  ASSERT_EQ(transform->ProcessInput(0, memorySample(0).get(), 0), S_OK);
  EXPECT_EQ(transform->ProcessInput(0, memorySample(333333).get(), 0), MF_E_NOTACCEPTING);
  LONGLONG time = -1;
  ASSERT_EQ(fetchInto(transform.get(), bytes, &time), S_OK);
  EXPECT_EQ(time, 0);
  EXPECT_TRUE(hasStartCode(bytes)) << "the class writes Annex B";
  EXPECT_TRUE(containsNalType(bytes.data(), bytes.size(), kNalSliceIdr));
  EXPECT_EQ(fetchInto(transform.get(), bytes), MF_E_TRANSFORM_NEED_MORE_INPUT) << "no latency, nothing held back";

  // A key frame on request, through either type of value.
  CountedRef<ICodecAPI> codecApi;
  ASSERT_EQ(transform->QueryInterface(IID_ICodecAPI, codecApi.putVoid()), S_OK);
  for (VARTYPE type : {VARTYPE(VT_UI4), VARTYPE(VT_BOOL)}) {
    VARIANT value;
    VariantInit(&value);
    value.vt = type;
    if (type == VT_UI4) value.ulVal = 1;
    else value.boolVal = VARIANT_TRUE;
    ASSERT_EQ(codecApi->SetValue(&CODECAPI_AVEncVideoForceKeyFrame, &value), S_OK);
    ASSERT_EQ(transform->ProcessInput(0, memorySample().get(), 0), S_OK);
    ASSERT_EQ(fetchInto(transform.get(), bytes), S_OK);
    EXPECT_TRUE(containsNalType(bytes.data(), bytes.size(), kNalSliceIdr)) << "value type " << type;
  }
  VARIANT wrong;
  VariantInit(&wrong);
  wrong.vt = VT_R8;
  EXPECT_EQ(codecApi->SetValue(&CODECAPI_AVEncVideoForceKeyFrame, &wrong), E_INVALIDARG);
  ASSERT_EQ(transform->ProcessInput(0, memorySample().get(), 0), S_OK);
  ASSERT_EQ(fetchInto(transform.get(), bytes), S_OK);
  EXPECT_FALSE(containsNalType(bytes.data(), bytes.size(), kNalSliceIdr));

  // Draining hands over what is ready and then says so.
  ASSERT_EQ(transform->ProcessInput(0, memorySample().get(), 0), S_OK);
  EXPECT_EQ(transform->ProcessMessage(MFT_MESSAGE_COMMAND_DRAIN, 0), S_OK);
  EXPECT_EQ(fetchInto(transform.get(), bytes), S_OK);
  EXPECT_EQ(fetchInto(transform.get(), bytes), MF_E_TRANSFORM_NEED_MORE_INPUT);
  EXPECT_EQ(transform->ProcessInput(0, memorySample().get(), 0), S_OK) << "a drained transform takes input again";
}

TEST_F(MfTransformTest, EnumeratedSoftwareTransformWritesLengthPrefixes) {
  control::setMachine(mfMachine(false, true, false));
  CountedRef<IMFTransform> transform = activateFirst(MFT_ENUM_FLAG_SYNCMFT);
  ASSERT_TRUE(transform);
  setTypes(transform.get());
  ASSERT_EQ(transform->ProcessInput(0, memorySample().get(), 0), S_OK);
  std::vector<BYTE> bytes;
  ASSERT_EQ(fetchInto(transform.get(), bytes), S_OK);
  ASSERT_GT(bytes.size(), 8u);
  // SPS, PPS, IDR slice, each behind its big-endian length.
  std::vector<uint8_t> types;
  for (size_t at = 0; at + 4 < bytes.size();) {
    uint32_t length = uint32_t(bytes[at]) << 24 | uint32_t(bytes[at + 1]) << 16 | uint32_t(bytes[at + 2]) << 8 | bytes[at + 3];
    ASSERT_LE(at + 4 + length, bytes.size());
    types.push_back(bytes[at + 4] & 0x1F);
    at += 4 + length;
  }
  EXPECT_EQ(types, (std::vector<uint8_t>{kNalSps, kNalPps, kNalSliceIdr}));
}

TEST_F(MfTransformTest, AStreamChangeClearsTheOutputTypeUntilItIsSetAgain) {
  control::setMachine(mfMachine(true, false, false));
  CountedRef<IMFTransform> transform;
  ASSERT_EQ(CoCreateInstance(CLSID_CMSH264EncoderMFT, nullptr, CLSCTX_INPROC_SERVER, IID_IMFTransform,
                             transform.putVoid()),
            S_OK);
  setTypes(transform.get());
  ASSERT_EQ(transform->ProcessInput(0, memorySample().get(), 0), S_OK);
  control::requestMfStreamChange();
  std::vector<BYTE> bytes;
  EXPECT_EQ(fetchInto(transform.get(), bytes), MF_E_TRANSFORM_STREAM_CHANGE);
  CountedRef<IMFMediaType> type;
  EXPECT_EQ(transform->GetOutputCurrentType(0, type.put()), MF_E_TRANSFORM_TYPE_NOT_SET);
  EXPECT_EQ(fetchInto(transform.get(), bytes), MF_E_TRANSFORM_TYPE_NOT_SET);
  // The type offered now describes the stream as it was; taken as offered, the output follows.
  ASSERT_EQ(transform->GetOutputAvailableType(0, 0, type.put()), S_OK);
  UINT32 width = 0, height = 0;
  EXPECT_EQ(MFGetAttributeSize(type.get(), MF_MT_FRAME_SIZE, &width, &height), S_OK);
  EXPECT_EQ(width, kWidth);
  ASSERT_EQ(transform->SetOutputType(0, type.get(), 0), S_OK);
  EXPECT_EQ(fetchInto(transform.get(), bytes), S_OK);
  EXPECT_TRUE(containsNalType(bytes.data(), bytes.size(), kNalSliceIdr));
}

// --- The asynchronous protocol ---

TEST_F(MfTransformTest, TheHardwareTransformIsLockedUntilUnlocked) {
  control::setMachine(mfMachine(false, false, true));
  CountedRef<IMFTransform> transform = activateFirst(MFT_ENUM_FLAG_HARDWARE);
  ASSERT_TRUE(transform);
  CountedRef<IMFAttributes> attributes;
  ASSERT_EQ(transform->GetAttributes(attributes.put()), S_OK);
  EXPECT_EQ(MFGetAttributeUINT32(attributes.get(), MF_TRANSFORM_ASYNC, 0), 1u);
  EXPECT_EQ(transform->SetOutputType(0, videoType(MFVideoFormat_H264).get(), 0), MF_E_TRANSFORM_ASYNC_LOCKED);
  EXPECT_EQ(transform->ProcessMessage(MFT_MESSAGE_NOTIFY_START_OF_STREAM, 0), MF_E_TRANSFORM_ASYNC_LOCKED);
  ASSERT_EQ(attributes->SetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, 1), S_OK);
  EXPECT_EQ(transform->SetOutputType(0, videoType(MFVideoFormat_H264).get(), 0), S_OK);
  MFT_OUTPUT_STREAM_INFO info{};
  ASSERT_EQ(transform->GetOutputStreamInfo(0, &info), S_OK);
  EXPECT_NE(info.dwFlags & MFT_OUTPUT_STREAM_PROVIDES_SAMPLES, 0u);
}

TEST_F(MfTransformTest, TheHardwareTransformTakesOnlyDevicesOfItsAdapter) {
  control::MachineDescription machine = mfMachine(false, false, true);
  machine.adapters.push_back(adapter(0x1002, 0x73BF, 1));
  machine.mfHardwareAdapter = 1;
  control::setMachine(machine);
  CountedRef<IMFTransform> transform = activateFirst(MFT_ENUM_FLAG_HARDWARE);
  ASSERT_TRUE(transform);
  CountedRef<IMFAttributes> attributes;
  transform->GetAttributes(attributes.put());
  attributes->SetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, 1);

  UINT token = 0;
  CountedRef<IMFDXGIDeviceManager> manager;
  ASSERT_EQ(MFCreateDXGIDeviceManager(&token, manager.put()), S_OK);
  EXPECT_EQ(transform->ProcessMessage(MFT_MESSAGE_SET_D3D_MANAGER, ULONG_PTR(manager.get())),
            MF_E_DXGI_DEVICE_NOT_INITIALIZED);
  D3D first = makeDevice(adapterAt(0).get());
  EXPECT_EQ(manager->ResetDevice(first.device.get(), token + 1), E_INVALIDARG) << "the wrong token";
  ASSERT_EQ(manager->ResetDevice(first.device.get(), token), S_OK);
  EXPECT_EQ(transform->ProcessMessage(MFT_MESSAGE_SET_D3D_MANAGER, ULONG_PTR(manager.get())),
            MF_E_UNSUPPORTED_D3D_TYPE);
  D3D second = makeDevice(adapterAt(1).get());
  ASSERT_EQ(manager->ResetDevice(second.device.get(), token), S_OK);
  EXPECT_EQ(transform->ProcessMessage(MFT_MESSAGE_SET_D3D_MANAGER, ULONG_PTR(manager.get())), S_OK);
  transform.reset();
  manager.reset();
}

TEST_F(MfTransformTest, TheHardwareTransformAnswersOnlyAgainstItsEvents) {
  control::setMachine(mfMachine(false, false, true));
  CountedRef<IMFTransform> transform = activateFirst(MFT_ENUM_FLAG_HARDWARE);
  ASSERT_TRUE(transform);
  CountedRef<IMFAttributes> attributes;
  transform->GetAttributes(attributes.put());
  attributes->SetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, 1);
  D3D d3d = makeDevice();
  UINT token = 0;
  CountedRef<IMFDXGIDeviceManager> manager;
  MFCreateDXGIDeviceManager(&token, manager.put());
  manager->ResetDevice(d3d.device.get(), token);
  ASSERT_EQ(transform->ProcessMessage(MFT_MESSAGE_SET_D3D_MANAGER, ULONG_PTR(manager.get())), S_OK);
  setTypes(transform.get());

  CountedRef<IMFMediaEventGenerator> generator;
  ASSERT_EQ(generator.queryFrom(transform.get()), S_OK);
  CountedRef<IMFMediaEvent> event;
  EXPECT_EQ(generator->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.put()), MF_E_NO_EVENTS_AVAILABLE)
      << "nothing before the stream starts";

  // The surface of a texture on the manager's device.
  Nv12Frame frame{int(kWidth), int(kHeight)};
  drawDesktop(frame, 0);
  CountedRef<ID3D11Texture2D> texture = nv12Texture(d3d.device.get(), d3d.context.get(), frame);
  CountedRef<IMFMediaBuffer> surface;
  ASSERT_EQ(MFCreateDXGISurfaceBuffer(IID_ID3D11Texture2D, texture.get(), 0, FALSE, surface.put()), S_OK);
  CountedRef<IMFSample> sample;
  MFCreateSample(sample.put());
  sample->AddBuffer(surface.get());

  EXPECT_EQ(transform->ProcessInput(0, sample.get(), 0), MF_E_NOTACCEPTING) << "no request yet";
  ASSERT_EQ(transform->ProcessMessage(MFT_MESSAGE_NOTIFY_START_OF_STREAM, 0), S_OK);
  ASSERT_EQ(nextEvent(transform.get()), MediaEventType(METransformNeedInput));
  EXPECT_EQ(generator->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.put()), MF_E_NO_EVENTS_AVAILABLE) << "one per credit";
  MFT_OUTPUT_DATA_BUFFER output = {};
  DWORD status = 0;
  EXPECT_EQ(transform->ProcessOutput(0, 1, &output, &status), E_UNEXPECTED) << "no output announced";
  // The transform's thread takes a while over the picture, so that the next request can't have
  // come yet however fast it encodes; meanwhile the transform answers at once.
  control::delayCall("IMFDXGIBuffer::GetResource", 500, 1);
  ASSERT_EQ(transform->ProcessInput(0, sample.get(), 0), S_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the thread is in the read
  EXPECT_EQ(transform->ProcessInput(0, sample.get(), 0), MF_E_NOTACCEPTING) << "the credit is spent";
  ASSERT_EQ(nextEvent(transform.get()), MediaEventType(METransformHaveOutput));

  // It provides the sample; one passed in is refused.
  CountedRef<IMFSample> offered = memorySampleOfSize(1 << 20);
  output.pSample = offered.get();
  EXPECT_EQ(transform->ProcessOutput(0, 1, &output, &status), E_INVALIDARG);
  output.pSample = nullptr;
  ASSERT_EQ(transform->ProcessOutput(0, 1, &output, &status), S_OK);
  ASSERT_NE(output.pSample, nullptr);
  CountedRef<IMFSample> produced = CountedRef<IMFSample>::adopt(output.pSample);
  std::vector<BYTE> bytes = contiguous(produced.get());
  EXPECT_TRUE(containsNalType(bytes.data(), bytes.size(), kNalSliceIdr));
  EXPECT_EQ(nextEvent(transform.get()), MediaEventType(METransformNeedInput)) << "the next picture is asked for";

  // A drain ends with its own event and asks for nothing more.
  ASSERT_EQ(transform->ProcessMessage(MFT_MESSAGE_COMMAND_DRAIN, 0), S_OK);
  EXPECT_EQ(nextEvent(transform.get()), MediaEventType(METransformDrainComplete));
  EXPECT_EQ(transform->ProcessInput(0, sample.get(), 0), MF_E_NOTACCEPTING);

  // A flush while the thread reads a picture drops it: nothing comes of it.
  ASSERT_EQ(transform->ProcessMessage(MFT_MESSAGE_NOTIFY_START_OF_STREAM, 0), S_OK);
  ASSERT_EQ(nextEvent(transform.get()), MediaEventType(METransformNeedInput));
  control::delayCall("IMFDXGIBuffer::GetResource", 300, 1);
  ASSERT_EQ(transform->ProcessInput(0, sample.get(), 0), S_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the thread is in the read
  ASSERT_EQ(transform->ProcessMessage(MFT_MESSAGE_COMMAND_FLUSH, 0), S_OK);
  EXPECT_EQ(nextEvent(transform.get(), std::chrono::milliseconds(600)), MEUnknown);
  EXPECT_EQ(transform->ProcessOutput(0, 1, &output, &status), E_UNEXPECTED);
  transform.reset();
  generator.reset();
  manager.reset();
}

}  // namespace
