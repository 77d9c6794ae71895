#include "encoders/nvenc_encoder.h"

#include <windows.h>

#include "gpu/d3d_context.h"
#include "support/failure.h"
#include "support/format_bounded.h"
#include "support/log.h"

namespace {

// Every structure below carries its API 12.0 version word, whichever API version the session
// was opened with.
constexpr uint32_t kFunctionListVersion = 0x7002000C;
constexpr uint32_t kPresetConfigVersion = 0xF004000C;
constexpr uint32_t kConfigVersion = 0xF008000C;
constexpr uint32_t kInitializeParamsVersion = 0xF005000C;
constexpr uint32_t kCreateBitstreamBufferVersion = 0x7001000C;
constexpr uint32_t kOpenSessionStructure = 0x70010000;  // OR the API version of the try

// 12, then 12.1 (the minor version stands in the high byte), then 12 again and older ones.
constexpr uint32_t kApiVersionTries[] = {12, 0x0100000C, 12, 11, 10, 9, 8};

// Fastest first: the low-latency preset, then the middle ones.
const GUID* const kPresetTries[] = {&NV_ENC_PRESET_P1_GUID, &NV_ENC_PRESET_P4_GUID, &NV_ENC_PRESET_P3_GUID};

const char* statusName(NVENCSTATUS status) {
  switch (status) {
    case NV_ENC_ERR_NO_ENCODE_DEVICE: return "NO_ENCODE_DEVICE";
    case NV_ENC_ERR_UNSUPPORTED_DEVICE: return "UNSUPPORTED_DEVICE";
    case NV_ENC_ERR_INVALID_ENCODERDEVICE: return "INVALID_ENCODERDEVICE";
    case NV_ENC_ERR_INVALID_DEVICE: return "INVALID_DEVICE";
    case NV_ENC_ERR_INVALID_PARAM: return "INVALID_PARAM";
    case NV_ENC_ERR_INVALID_VERSION: return "INVALID_VERSION";
    default: return nullptr;
  }
}

}  // namespace

bool reportNvencFailure(const char* label, NVENCSTATUS status, const NV_ENCODE_API_FUNCTION_LIST* list,
                        void* handle) {
  if (status == NV_ENC_SUCCESS) return false;
  char text[512];
  if (const char* name = statusName(status))
    formatBounded(text, sizeof(text), "%s failed (%s)", label, name);
  else
    formatBounded(text, sizeof(text), "%s failed (status=%d)", label, int(status));
  if (list != nullptr && list->nvEncGetLastErrorString != nullptr && handle != nullptr) {
    const char* detail = list->nvEncGetLastErrorString(handle);
    if (detail != nullptr && detail[0] != '\0') {
      char joined[512];
      formatBounded(joined, sizeof(joined), "%s: %s", text, detail);
      threadLastFailure = joined;
      logError(joined);
      return true;
    }
  }
  threadLastFailure = text;
  logError(text);
  return true;
}

NvencEncoder::~NvencEncoder() {
  if (registeredResource != nullptr && encoderHandle != nullptr && functionList.nvEncUnregisterResource != nullptr)
    functionList.nvEncUnregisterResource(encoderHandle, registeredResource);
  registeredResource = nullptr;
  // The driver must be done with the texture before it goes.
  inputTexture.reset();
  if (encoderHandle != nullptr && functionList.nvEncDestroyEncoder != nullptr)
    functionList.nvEncDestroyEncoder(encoderHandle);
  encoderHandle = nullptr;
  initialized = false;
}

bool NvencEncoder::init(D3DContext* context, uint32_t pictureWidth, uint32_t pictureHeight, uint32_t frameRate,
                        uint32_t bitsPerSecond) {
  d3d = context;
  width = pictureWidth;
  height = pictureHeight;
  // A rate of 0 would divide by zero below; the encoder runs at 1 frame a second instead.
  fps = frameRate == 0 ? 1 : frameRate;
  bitrate = bitsPerSecond;
  threadLastFailure.clear();
  if (d3d == nullptr || !d3d->device) return false;  // no device to open a session on

  if (!loadFunctionList() || !openSession()) return false;
  bool presetWorked = false;
  for (const GUID* preset : kPresetTries) {
    if (initializeWithPreset(*preset)) {
      presetWorked = true;
      break;
    }
  }
  if (!presetWorked) {
    recordFailure("NVENC initialize encoder failed for all presets");
    destroySession();
    return false;
  }

  NV_ENC_CREATE_BITSTREAM_BUFFER create{};
  create.version = kCreateBitstreamBufferVersion;
  NVENCSTATUS status = functionList.nvEncCreateBitstreamBuffer != nullptr
                           ? functionList.nvEncCreateBitstreamBuffer(encoderHandle, &create)
                           : NV_ENC_ERR_INVALID_PTR;
  if (reportNvencFailure("NVENC create bitstream buffer", status, &functionList, encoderHandle)) {
    destroySession();
    return false;
  }
  bitstreamBuffer = create.bitstreamBuffer;

  initialized = true;
  keyFramePending = true;
  pictureCounter = 0;
  logInfo("NVENC encoder initialized");
  return true;
}

bool NvencEncoder::loadFunctionList() {
  // The driver's library stays loaded for the process, as the driver expects of its clients.
  HMODULE library = LoadLibraryW(L"nvEncodeAPI64.dll");
  if (library == nullptr) {
    recordFailure("nvEncodeAPI64.dll not found (update NVIDIA driver)");
    return false;
  }
  FARPROC entry = GetProcAddress(library, "NvEncodeAPICreateInstance");
  if (entry == nullptr) {
    recordFailure("NvEncodeAPICreateInstance export not found");
    return false;
  }
  // Through void(*)(): the one function type that every other converts to without a warning.
  auto createInstance = reinterpret_cast<NvencCreateInstanceFunction>(reinterpret_cast<void (*)()>(entry));
  functionList = NV_ENCODE_API_FUNCTION_LIST{};
  functionList.version = kFunctionListVersion;
  if (createInstance(&functionList) != NV_ENC_SUCCESS) {
    recordFailure("NvEncodeAPICreateInstance failed");
    return false;
  }
  return functionList.nvEncOpenEncodeSessionEx != nullptr && functionList.nvEncInitializeEncoder != nullptr;
}

void NvencEncoder::destroyRefusedSession() {
  if (encoderHandle != nullptr && functionList.nvEncDestroyEncoder != nullptr)
    functionList.nvEncDestroyEncoder(encoderHandle);
  encoderHandle = nullptr;
}

bool NvencEncoder::openSession() {
  NVENCSTATUS status = NV_ENC_SUCCESS;
  for (uint32_t apiVersion : kApiVersionTries) {
    // A refusal may still hand out a session, open until destroyed. The last try's waits for
    // the report below, which reads its error text.
    destroyRefusedSession();
    NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS params{};
    params.version = apiVersion | kOpenSessionStructure;
    params.deviceType = NV_ENC_DEVICE_TYPE_DIRECTX;
    params.device = d3d->device.get();
    params.apiVersion = apiVersion;
    status = functionList.nvEncOpenEncodeSessionEx(&params, &encoderHandle);
    if (status == NV_ENC_SUCCESS && encoderHandle != nullptr) {
      char line[128];
      formatBounded(line, sizeof(line), "NVENC session opened with apiVersion=0x%08x", apiVersion);
      logInfo(line);
      return true;
    }
  }
  // Only the last try's status is told. A success without a handle records nothing: init then
  // fails without a text of its own.
  reportNvencFailure("NVENC open encode session", status, &functionList, encoderHandle);
  destroyRefusedSession();
  return false;
}

bool NvencEncoder::initializeWithPreset(const GUID& preset) {
  NV_ENC_PRESET_CONFIG presetConfig{};
  presetConfig.version = kPresetConfigVersion;
  presetConfig.presetCfg.version = kConfigVersion;
  NVENCSTATUS status = NV_ENC_ERR_INVALID_PTR;
  if (functionList.nvEncGetEncodePresetConfigEx != nullptr)
    status = functionList.nvEncGetEncodePresetConfigEx(encoderHandle, NV_ENC_CODEC_H264_GUID, preset,
                                                       NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY, &presetConfig);
  else if (functionList.nvEncGetEncodePresetConfig != nullptr)
    status = functionList.nvEncGetEncodePresetConfig(encoderHandle, NV_ENC_CODEC_H264_GUID, preset, &presetConfig);
  if (status != NV_ENC_SUCCESS) return false;

  // The preset's configuration with the stream's own settings on top: Baseline, no B-frames, CBR
  // with a buffer of one frame's bits, and an IDR picture every `fps` pictures.
  NV_ENC_CONFIG config = presetConfig.presetCfg;
  config.profileGUID = NV_ENC_H264_PROFILE_BASELINE_GUID;
  config.gopLength = fps;
  config.frameIntervalP = 1;
  config.rcParams.rateControlMode = NV_ENC_PARAMS_RC_CBR;
  config.rcParams.averageBitRate = bitrate;
  config.rcParams.maxBitRate = bitrate;
  config.rcParams.vbvBufferSize = bitrate / fps;
  config.rcParams.vbvInitialDelay = bitrate / fps;
  config.encodeCodecConfig.h264Config.repeatSPSPPS = 1;
  config.encodeCodecConfig.h264Config.idrPeriod = fps;

  NV_ENC_INITIALIZE_PARAMS params{};
  params.version = kInitializeParamsVersion;
  params.encodeGUID = NV_ENC_CODEC_H264_GUID;
  params.presetGUID = preset;
  params.encodeWidth = width;
  params.encodeHeight = height;
  params.darWidth = width;
  params.darHeight = height;
  params.frameRateNum = fps;
  params.frameRateDen = 1;
  params.enableEncodeAsync = 0;
  params.enablePTD = 1;
  params.encodeConfig = &config;
  params.tuningInfo = NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY;

  status = functionList.nvEncInitializeEncoder(encoderHandle, &params);
  if (status == NV_ENC_SUCCESS) return true;
  reportNvencFailure("NVENC initialize encoder", status, &functionList, encoderHandle);
  // Without a configuration the session takes the preset's own values.
  params.encodeConfig = nullptr;
  status = functionList.nvEncInitializeEncoder(encoderHandle, &params);
  if (status == NV_ENC_SUCCESS) return true;
  reportNvencFailure("NVENC initialize encoder", status, &functionList, encoderHandle);
  return false;
}

void NvencEncoder::destroySession() {
  if (functionList.nvEncDestroyEncoder != nullptr) {
    functionList.nvEncDestroyEncoder(encoderHandle);
    encoderHandle = nullptr;
  }
}
