// One encode session of the NVENC driver library: the D3D11 device it was opened on, its
// configuration, the platform's H.264 encoder behind it, and the resources and bitstream buffers
// made on it. The handles the API hands out are addresses of objects the session owns, looked up
// before use, so that a stale or foreign handle is refused instead of followed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/control/nvenc_control.h"
#include "platform/core/com_object.h"
#include "platform/d3d11/device.h"
#include "platform/d3d11/texture.h"
#include "platform/video/h264_encoder.h"
#include "sdk/nvEncodeAPI.h"

namespace platform::nvenc {

struct Registration {
  Pin<d3d11::Texture> texture;
  NV_ENC_BUFFER_FORMAT format = NV_ENC_BUFFER_FORMAT_UNDEFINED;
  uint32_t width = 0, height = 0;
  bool mapped = false;
  char mappedToken = 0;  // its address is the mapped resource's handle
};

struct BitstreamBuffer {
  std::vector<uint8_t> bytes;
  bool holdsPicture = false;
  bool locked = false;
  NV_ENC_PIC_TYPE pictureType = NV_ENC_PIC_TYPE_P;
  uint64_t timeStamp = 0;
  uint32_t frameIdx = 0;
};

class Session {
 public:
  Session(d3d11::Device* device, uint32_t apiVersion);
  ~Session();

  // Remembers `text` for nvEncGetLastErrorString and answers `status`.
  NVENCSTATUS fail(NVENCSTATUS status, const std::string& text);

  std::mutex mutex;  // one call at a time on a session, as the driver serialises them
  Pin<d3d11::Device> device;
  control::NvencSessionInfo info;
  std::unique_ptr<video::H264Encoder> encoder;
  bool parameterSetsSent = false;  // SPS and PPS went out once; without repeatSPSPPS that is all
  std::map<void*, std::unique_ptr<Registration>> registrations;
  std::map<void*, std::unique_ptr<BitstreamBuffer>> buffers;
  std::string lastError;

  Registration* registrationMappedAs(void* mappedHandle);
  BitstreamBuffer* buffer(void* handle);
  void refreshCounts();
};

// The registry of open sessions, in opening order. Adding gives the handle, or null when
// `limit` sessions (0: no limit) are open already.
void* addSession(std::shared_ptr<Session> session, uint32_t limit);
std::shared_ptr<Session> findSession(void* handle);
std::shared_ptr<Session> removeSession(void* handle);

// The driver's API version comes from the machine description. It takes structure words of its
// own version and of older clients.
uint32_t driverApiVersion();
bool apiVersionSupported(uint32_t apiVersion);
// `word` has the structure number and flags of `expected` and an API part the driver knows.
bool structVersionAccepted(uint32_t word, uint32_t expected);

const char* statusName(NVENCSTATUS status);
// The planned fault of `call`, if any, as a status (0 when the call is to run).
NVENCSTATUS plannedStatus(const char* call);
// The same for a call on a session: a planned failure is also the session's last error.
NVENCSTATUS plannedStatus(const char* call, void* encoder);

// Entries of the function table that live in files of their own.
NVENCSTATUS NVENCAPI initializeEncoderEntry(void* encoder, NV_ENC_INITIALIZE_PARAMS* params);
NVENCSTATUS NVENCAPI registerResource(void* encoder, NV_ENC_REGISTER_RESOURCE* params);
NVENCSTATUS NVENCAPI unregisterResource(void* encoder, NV_ENC_REGISTERED_PTR registered);
NVENCSTATUS NVENCAPI mapInputResource(void* encoder, NV_ENC_MAP_INPUT_RESOURCE* params);
NVENCSTATUS NVENCAPI unmapInputResource(void* encoder, NV_ENC_INPUT_PTR mapped);
NVENCSTATUS NVENCAPI encodePicture(void* encoder, NV_ENC_PIC_PARAMS* params);
NVENCSTATUS NVENCAPI lockBitstream(void* encoder, NV_ENC_LOCK_BITSTREAM* params);
NVENCSTATUS NVENCAPI unlockBitstream(void* encoder, NV_ENC_OUTPUT_PTR bitstreamBuffer);

// The function table as this driver fills it.
void fillFunctionList(NV_ENCODE_API_FUNCTION_LIST* list);

// Preset configuration of P1..P7 for a tuning; false for a GUID that is no preset.
bool presetConfig(const GUID& preset, NV_ENC_TUNING_INFO tuning, NV_ENC_CONFIG* config);
const char* presetName(const GUID& preset);  // null for a GUID that is no preset
const char* profileName(const GUID& profile);  // null for an unknown profile

}  // namespace platform::nvenc
