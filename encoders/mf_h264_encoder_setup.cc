// MfH264Encoder's setup: COM and Media Foundation, the three tries for a transform, its device
// manager, its output and input types, and the teardown.
#include "encoders/mf_h264_encoder.h"

#include <codecapi.h>
#include <mferror.h>
#include <objbase.h>
#include <wmcodecdsp.h>

#include "gpu/d3d_context.h"
#include "support/failure.h"
#include "support/log.h"

namespace {

constexpr UINT32 kSoftwareEnumFlags = MFT_ENUM_FLAG_SYNCMFT | MFT_ENUM_FLAG_SORTANDFILTER;
constexpr UINT32 kHardwareEnumFlags = MFT_ENUM_FLAG_HARDWARE | MFT_ENUM_FLAG_SORTANDFILTER;

// Type enumeration ends at MF_E_NO_MORE_TYPES; the cap only keeps a transform that fails every
// index otherwise from holding init in the walk.
constexpr DWORD kMaxTypeIndex = 256;

UINT64 packPair(uint32_t high, uint32_t low) { return (UINT64(high) << 32) | low; }

}  // namespace

MfH264Encoder::~MfH264Encoder() {
  heldSample.reset();
  inputTexture.reset();
  gpuDoneQuery.reset();
  if (transform) {
    // Nothing fetches what the drain may still produce: the stream ends with the encoder.
    transform->ProcessMessage(MFT_MESSAGE_NOTIFY_END_OF_STREAM, 0);
    transform->ProcessMessage(MFT_MESSAGE_COMMAND_DRAIN, 0);
    transform.reset();
  }
  if (comInitialized) {
    if (mfStarted) MFShutdown();
    CoUninitialize();
    comInitialized = false;
    mfStarted = false;
  }
  deviceManager.reset();
}

bool MfH264Encoder::init(D3DContext* context, uint32_t pictureWidth, uint32_t pictureHeight, uint32_t frameRate,
                         uint32_t bitsPerSecond) {
  d3d = context;
  width = pictureWidth;
  height = pictureHeight;
  // A rate of 0 would reach the divisions of every sample's time; the encoder runs at 1 instead.
  fps = frameRate == 0 ? 1 : frameRate;
  bitrate = bitsPerSecond;
  threadLastFailure.clear();

  HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (hr == RPC_E_CHANGED_MODE) {
    // The thread keeps the apartment it has; there is nothing of ours to undo.
  } else if (FAILED(hr)) {
    recordHresultFailure("CoInitializeEx failed", hr);
    return false;
  } else {
    comInitialized = true;
  }
  if (FAILED(MFStartup(MF_VERSION, MFSTARTUP_FULL))) {
    logError("MFStartup failed");
    return false;
  }
  mfStarted = true;

  if (tryTransform("Using Microsoft H264 encoder MFT", false, [](CountedRef<IMFTransform>& out) {
        return SUCCEEDED(CoCreateInstance(CLSID_CMSH264EncoderMFT, nullptr, CLSCTX_INPROC_SERVER,
                                          __uuidof(IMFTransform), out.putVoid()));
      }))
    return true;
  if (tryTransform("Using MF software H264 encoder", false,
                   [this](CountedRef<IMFTransform>& out) { return enumerateTransform(kSoftwareEnumFlags, out); }))
    return true;
  if (tryTransform("Using MF hardware H264 encoder", true,
                   [this](CountedRef<IMFTransform>& out) { return enumerateTransform(kHardwareEnumFlags, out); }))
    return true;
  if (threadLastFailure.empty()) recordFailure("MF H264 encoder not found");
  return false;
}

bool MfH264Encoder::tryTransform(const char* label, bool hardware, const Finder& finder) {
  CountedRef<IMFTransform> candidate;
  if (!finder(candidate) || !candidate) return false;
  if (!configureTransform(candidate.get(), hardware)) return false;
  transform = std::move(candidate);
  sampleIndex = 0;
  needInputCredits = 0;
  keyFramePending = true;
  logInfo(label);
  return true;
}

bool MfH264Encoder::enumerateTransform(UINT32 flags, CountedRef<IMFTransform>& out) {
  MFT_REGISTER_TYPE_INFO input = {MFMediaType_Video, MFVideoFormat_NV12};
  MFT_REGISTER_TYPE_INFO output = {MFMediaType_Video, MFVideoFormat_H264};
  IMFActivate** activates = nullptr;
  UINT32 count = 0;
  HRESULT hr = MFTEnumEx(MFT_CATEGORY_VIDEO_ENCODER, flags, &input, &output, &activates, &count);
  if (FAILED(hr) || activates == nullptr || count == 0) {
    if (activates != nullptr) CoTaskMemFree(activates);
    return false;
  }
  // The first is the most suitable; the others are never tried.
  bool activated = SUCCEEDED(activates[0]->ActivateObject(__uuidof(IMFTransform), out.putVoid()));
  for (UINT32 i = 0; i < count; ++i) activates[i]->Release();
  CoTaskMemFree(activates);
  return activated && out;
}

bool MfH264Encoder::unlockAsync(IMFAttributes* attributes) {
  HRESULT hr = attributes->SetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, 1);
  if (FAILED(hr)) {
    recordHresultFailure("MF async unlock failed", hr);
    return false;
  }
  return true;
}

bool MfH264Encoder::configureTransform(IMFTransform* candidate, bool hardware) {
  gpuInput = false;
  transformProvidesSamples = false;
  asyncTransform = false;
  eventDriven = false;

  CountedRef<IMFAttributes> attributes;
  UINT32 async = 0;
  if (SUCCEEDED(candidate->GetAttributes(attributes.put())) && attributes &&
      SUCCEEDED(attributes->GetUINT32(MF_TRANSFORM_ASYNC, &async)) && async != 0) {
    asyncTransform = true;
    if (hardware) eventDriven = true;
    // Every asynchronous transform, the hardware one too, refuses the device manager, its
    // types and its data with MF_E_TRANSFORM_ASYNC_LOCKED until it has been unlocked.
    if (!unlockAsync(attributes.get())) return false;
  }
  if (!hardware) {
    deviceManager.reset();
  } else if (!giveDeviceManager(candidate)) {
    return false;
  }
  if (!negotiateOutputType(candidate) || !negotiateInputType(candidate)) return false;

  MFT_OUTPUT_STREAM_INFO info = {};
  if (SUCCEEDED(candidate->GetOutputStreamInfo(0, &info))) {
    if (info.cbSize != 0) outputBufferSize = info.cbSize;
    transformProvidesSamples = (info.dwFlags & MFT_OUTPUT_STREAM_PROVIDES_SAMPLES) != 0;
  }
  if (gpuInput)
    logInfo(eventDriven ? "MF encoder using DXGI GPU input (async event-driven)" : "MF encoder using DXGI GPU input");
  candidate->ProcessMessage(MFT_MESSAGE_NOTIFY_BEGIN_STREAMING, 0);
  candidate->ProcessMessage(MFT_MESSAGE_NOTIFY_START_OF_STREAM, 0);
  return true;
}

bool MfH264Encoder::giveDeviceManager(IMFTransform* candidate) {
  if (d3d == nullptr || !d3d->device) return false;
  deviceManager.reset();
  UINT resetToken = 0;
  CountedRef<IMFDXGIDeviceManager> manager;
  if (FAILED(MFCreateDXGIDeviceManager(&resetToken, manager.put()))) return false;
  if (FAILED(manager->ResetDevice(d3d->device.get(), resetToken))) return false;
  HRESULT hr = candidate->ProcessMessage(MFT_MESSAGE_SET_D3D_MANAGER, reinterpret_cast<ULONG_PTR>(manager.get()));
  if (FAILED(hr)) {
    recordHresultFailure("MF set D3D manager failed", hr);
    return false;
  }
  deviceManager = std::move(manager);
  gpuInput = true;
  return true;
}

bool MfH264Encoder::negotiateOutputType(IMFTransform* candidate) {
  for (DWORD index = 0; index < kMaxTypeIndex; ++index) {
    CountedRef<IMFMediaType> available;
    HRESULT hr = candidate->GetOutputAvailableType(0, index, available.put());
    if (hr == MF_E_NO_MORE_TYPES) break;
    if (FAILED(hr)) {
      recordHresultFailure("MF GetOutputAvailableType failed", hr);
      return false;
    }
    GUID subtype = {};
    if (FAILED(available->GetGUID(MF_MT_SUBTYPE, &subtype)) || subtype != MFVideoFormat_H264) continue;
    CountedRef<IMFMediaType> type;
    if (FAILED(MFCreateMediaType(type.put())) || FAILED(available->CopyAllItems(type.get()))) continue;
    type->SetUINT64(MF_MT_FRAME_SIZE, packPair(width, height));
    type->SetUINT64(MF_MT_FRAME_RATE, packPair(fps, 1));
    type->SetUINT32(MF_MT_AVG_BITRATE, bitrate);
    type->SetUINT32(MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive);
    type->SetUINT32(MF_MT_MPEG2_PROFILE, eAVEncH264VProfile_Base);
    type->SetUINT32(MF_MT_MPEG2_LEVEL, eAVEncH264VLevel5_1);
    type->SetUINT32(MF_MT_MAX_KEYFRAME_SPACING, fps);
    type->SetUINT32(MF_LOW_LATENCY, 1);
    if (FAILED(candidate->SetOutputType(0, type.get(), MFT_SET_TYPE_TEST_ONLY))) continue;
    if (SUCCEEDED(candidate->SetOutputType(0, type.get(), 0))) return true;
  }
  recordFailure("MF SetOutputType failed for H264");
  return false;
}

bool MfH264Encoder::negotiateInputType(IMFTransform* candidate) {
  for (DWORD index = 0; index < kMaxTypeIndex; ++index) {
    CountedRef<IMFMediaType> available;
    HRESULT hr = candidate->GetInputAvailableType(0, index, available.put());
    if (hr == MF_E_NO_MORE_TYPES) break;
    if (FAILED(hr)) {
      recordHresultFailure("MF GetInputAvailableType failed", hr);
      return false;
    }
    GUID subtype = {};
    if (FAILED(available->GetGUID(MF_MT_SUBTYPE, &subtype)) || subtype != MFVideoFormat_NV12) continue;
    CountedRef<IMFMediaType> type;
    if (FAILED(MFCreateMediaType(type.put())) || FAILED(available->CopyAllItems(type.get()))) continue;
    type->SetUINT64(MF_MT_FRAME_SIZE, packPair(width, height));
    type->SetUINT64(MF_MT_FRAME_RATE, packPair(fps, 1));
    type->SetUINT32(MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive);
    type->SetUINT32(MF_MT_ALL_SAMPLES_INDEPENDENT, 1);
    if (FAILED(candidate->SetInputType(0, type.get(), MFT_SET_TYPE_TEST_ONLY))) continue;
    if (SUCCEEDED(candidate->SetInputType(0, type.get(), 0))) return true;
  }
  recordFailure("MF SetInputType failed for NV12");
  return false;
}
