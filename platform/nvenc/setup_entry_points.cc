// The driver library's exports and the session set-up part of its function table: opening a
// session on a D3D11 device, presets, initialise, bitstream buffers, the last error, destroy.
// Every entry passes the fault plan under its API name first and answers the planned status.
#include <cstring>
#include <string>

#include "platform/control/machine_control.h"
#include "platform/core/call_gate.h"
#include "platform/core/modules.h"
#include "platform/nvenc/session.h"

namespace platform::nvenc {
namespace {

bool same(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }

NVENCSTATUS NVENCAPI openEncodeSessionEx(NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS* params, void** encoder) {
  if (NVENCSTATUS planned = plannedStatus("nvEncOpenEncodeSessionEx")) {
    if (encoder != nullptr) *encoder = nullptr;
    return planned;
  }
  if (params == nullptr || encoder == nullptr) return NV_ENC_ERR_INVALID_PTR;
  *encoder = nullptr;
  // The session's own API version and the structure's word must both be ones this driver knows:
  // a client newer than the driver is refused, an older one is served.
  constexpr uint32_t kStructPart = 0xF0FF0000u;  // flags, the 7 tag and the structure number
  if ((params->version & kStructPart) != (NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS_VER & kStructPart))
    return NV_ENC_ERR_INVALID_VERSION;
  if (params->deviceType != NV_ENC_DEVICE_TYPE_DIRECTX) return NV_ENC_ERR_UNSUPPORTED_PARAM;
  if (params->device == nullptr) return NV_ENC_ERR_INVALID_PTR;
  d3d11::Device* device = d3d11::Device::from(static_cast<ID3D11Device*>(params->device));
  if (device == nullptr || device->destroyed() || device->references() == 0) return NV_ENC_ERR_INVALID_DEVICE;
  if (!structVersionAccepted(params->version, NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS_VER) ||
      !apiVersionSupported(params->apiVersion)) {
    // As the driver does, the refusal comes with a handle of the half-made session, which counts
    // as open until the client destroys it.
    auto refused = std::make_shared<Session>(device, params->apiVersion);
    refused->fail(NV_ENC_ERR_INVALID_VERSION, "the client's API version is newer than the driver's");
    *encoder = addSession(std::move(refused), control::currentMachine().nvencSessionLimit);
    return NV_ENC_ERR_INVALID_VERSION;
  }
  // Only NVIDIA's own GPUs have the encoder; a device of another vendor's adapter has none.
  if (device->adapter() == nullptr || device->adapter()->description().vendorId != 0x10DE)
    return NV_ENC_ERR_UNSUPPORTED_DEVICE;
  // Past the system's session limit the driver answers as if out of memory.
  *encoder = addSession(std::make_shared<Session>(device, params->apiVersion),
                        control::currentMachine().nvencSessionLimit);
  return *encoder != nullptr ? NV_ENC_SUCCESS : NV_ENC_ERR_OUT_OF_MEMORY;
}

NVENCSTATUS fillPresetConfig(void* encoder, const GUID& encodeGUID, const GUID& presetGUID, NV_ENC_TUNING_INFO tuning,
                             NV_ENC_PRESET_CONFIG* config) {
  std::shared_ptr<Session> session = findSession(encoder);
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  std::lock_guard<std::mutex> lock(session->mutex);
  if (config == nullptr) return session->fail(NV_ENC_ERR_INVALID_PTR, "preset configuration is null");
  if (!structVersionAccepted(config->version, NV_ENC_PRESET_CONFIG_VER) ||
      !structVersionAccepted(config->presetCfg.version, NV_ENC_CONFIG_VER))
    return session->fail(NV_ENC_ERR_INVALID_VERSION, "NV_ENC_PRESET_CONFIG or its NV_ENC_CONFIG has a bad version");
  if (!same(encodeGUID, NV_ENC_CODEC_H264_GUID))
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "this GPU encodes H.264 only");
  if (tuning < NV_ENC_TUNING_INFO_UNDEFINED || tuning >= NV_ENC_TUNING_INFO_COUNT)
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "unknown tuning info");
  if (!presetConfig(presetGUID, tuning, &config->presetCfg))
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "unknown preset GUID");
  return NV_ENC_SUCCESS;
}

NVENCSTATUS NVENCAPI getEncodePresetConfigEx(void* encoder, GUID encodeGUID, GUID presetGUID,
                                             NV_ENC_TUNING_INFO tuningInfo, NV_ENC_PRESET_CONFIG* presetConfig) {
  if (NVENCSTATUS planned = plannedStatus("nvEncGetEncodePresetConfigEx", encoder)) return planned;
  return fillPresetConfig(encoder, encodeGUID, presetGUID, tuningInfo, presetConfig);
}

// Without a tuning argument the driver configures for its default tuning, high quality.
NVENCSTATUS NVENCAPI getEncodePresetConfig(void* encoder, GUID encodeGUID, GUID presetGUID,
                                           NV_ENC_PRESET_CONFIG* presetConfig) {
  if (NVENCSTATUS planned = plannedStatus("nvEncGetEncodePresetConfig", encoder)) return planned;
  return fillPresetConfig(encoder, encodeGUID, presetGUID, NV_ENC_TUNING_INFO_HIGH_QUALITY, presetConfig);
}

NVENCSTATUS NVENCAPI createBitstreamBuffer(void* encoder, NV_ENC_CREATE_BITSTREAM_BUFFER* params) {
  if (NVENCSTATUS planned = plannedStatus("nvEncCreateBitstreamBuffer", encoder)) return planned;
  std::shared_ptr<Session> session = findSession(encoder);
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  std::lock_guard<std::mutex> lock(session->mutex);
  if (params == nullptr) return session->fail(NV_ENC_ERR_INVALID_PTR, "bitstream buffer parameters are null");
  if (!structVersionAccepted(params->version, NV_ENC_CREATE_BITSTREAM_BUFFER_VER))
    return session->fail(NV_ENC_ERR_INVALID_VERSION, "NV_ENC_CREATE_BITSTREAM_BUFFER has a bad version");
  if (!session->info.initialized)
    return session->fail(NV_ENC_ERR_ENCODER_NOT_INITIALIZED, "the encoder is not initialised");
  auto buffer = std::make_unique<BitstreamBuffer>();
  params->bitstreamBuffer = buffer.get();
  session->buffers.emplace(buffer.get(), std::move(buffer));
  session->refreshCounts();
  return NV_ENC_SUCCESS;
}

NVENCSTATUS NVENCAPI destroyBitstreamBuffer(void* encoder, NV_ENC_OUTPUT_PTR bitstreamBuffer) {
  if (NVENCSTATUS planned = plannedStatus("nvEncDestroyBitstreamBuffer", encoder)) return planned;
  std::shared_ptr<Session> session = findSession(encoder);
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  std::lock_guard<std::mutex> lock(session->mutex);
  if (session->buffers.erase(bitstreamBuffer) == 0)
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "no such bitstream buffer");
  session->refreshCounts();
  return NV_ENC_SUCCESS;
}

// Valid until the next call on the session, as the driver's own text is.
const char* NVENCAPI getLastErrorString(void* encoder) {
  int64_t value = 0;
  if (plannedFault("nvEncGetLastErrorString", &value)) return reinterpret_cast<const char*>(value);
  std::shared_ptr<Session> session = findSession(encoder);
  if (session == nullptr) return "";
  std::lock_guard<std::mutex> lock(session->mutex);
  return session->lastError.c_str();
}

NVENCSTATUS NVENCAPI destroyEncoder(void* encoder) {
  if (NVENCSTATUS planned = plannedStatus("nvEncDestroyEncoder")) return planned;
  std::shared_ptr<Session> session = removeSession(encoder);
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  std::lock_guard<std::mutex> lock(session->mutex);  // a call still running on it finishes first
  return NV_ENC_SUCCESS;
}

NVENCSTATUS NVENCAPI createInstance(NV_ENCODE_API_FUNCTION_LIST* functionList) {
  if (NVENCSTATUS planned = plannedStatus("NvEncodeAPICreateInstance")) return planned;
  if (functionList == nullptr) return NV_ENC_ERR_INVALID_PTR;
  if (!structVersionAccepted(functionList->version, NV_ENCODE_API_FUNCTION_LIST_VER))
    return NV_ENC_ERR_INVALID_VERSION;
  fillFunctionList(functionList);
  return NV_ENC_SUCCESS;
}

// (major << 4) | minor.
NVENCSTATUS NVENCAPI getMaxSupportedVersion(uint32_t* version) {
  if (NVENCSTATUS planned = plannedStatus("NvEncodeAPIGetMaxSupportedVersion")) return planned;
  if (version == nullptr) return NV_ENC_ERR_INVALID_PTR;
  uint32_t api = driverApiVersion();
  *version = ((api & 0xFFu) << 4) | ((api >> 24) & 0xFu);
  return NV_ENC_SUCCESS;
}

bool driverInstalled() { return control::currentMachine().nvencInstalled; }

template <class Function>
FARPROC exported(Function function) {
  return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

// The library is part of the machine: it loads where the machine description installs it.
const bool kLibraryInstalled = [] {
  installModule(L"nvEncodeAPI64.dll",
                {{"NvEncodeAPICreateInstance", exported(&createInstance)},
                 {"NvEncodeAPIGetMaxSupportedVersion", exported(&getMaxSupportedVersion)}},
                &driverInstalled);
  return true;
}();

}  // namespace

// The entries this driver has; the others stay null, as the slots of functions a driver lacks.
void fillFunctionList(NV_ENCODE_API_FUNCTION_LIST* list) {
  std::vector<std::string> missing = control::currentMachine().nvencMissingFunctions;
  auto offer = [&](auto& slot, auto function, const char* name) {
    bool absent = false;
    for (const std::string& entry : missing) absent = absent || entry == name;
    slot = absent ? nullptr : function;
  };
  offer(list->nvEncOpenEncodeSessionEx, &openEncodeSessionEx, "nvEncOpenEncodeSessionEx");
  offer(list->nvEncGetEncodePresetConfig, &getEncodePresetConfig, "nvEncGetEncodePresetConfig");
  offer(list->nvEncGetEncodePresetConfigEx, &getEncodePresetConfigEx, "nvEncGetEncodePresetConfigEx");
  offer(list->nvEncInitializeEncoder, &initializeEncoderEntry, "nvEncInitializeEncoder");
  offer(list->nvEncCreateBitstreamBuffer, &createBitstreamBuffer, "nvEncCreateBitstreamBuffer");
  offer(list->nvEncDestroyBitstreamBuffer, &destroyBitstreamBuffer, "nvEncDestroyBitstreamBuffer");
  offer(list->nvEncRegisterResource, &registerResource, "nvEncRegisterResource");
  offer(list->nvEncUnregisterResource, &unregisterResource, "nvEncUnregisterResource");
  offer(list->nvEncMapInputResource, &mapInputResource, "nvEncMapInputResource");
  offer(list->nvEncUnmapInputResource, &unmapInputResource, "nvEncUnmapInputResource");
  offer(list->nvEncEncodePicture, &encodePicture, "nvEncEncodePicture");
  offer(list->nvEncLockBitstream, &lockBitstream, "nvEncLockBitstream");
  offer(list->nvEncUnlockBitstream, &unlockBitstream, "nvEncUnlockBitstream");
  offer(list->nvEncGetLastErrorString, &getLastErrorString, "nvEncGetLastErrorString");
  offer(list->nvEncDestroyEncoder, &destroyEncoder, "nvEncDestroyEncoder");
}

}  // namespace platform::nvenc
