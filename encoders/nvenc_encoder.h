// The encoder on NVIDIA GPUs: the NVENC API of the driver's nvEncodeAPI64.dll, opened on the
// encode device's Direct3D 11 device. Setup (loading the library, the session, the preset and the
// bitstream buffer) is in nvenc_encoder.cc, the frame path in nvenc_encode.cc.
#pragma once

#include <d3d11.h>
#include <nvEncodeAPI.h>

#include <cstdint>
#include <vector>

#include "encoders/video_encoder.h"
#include "support/counted_ref.h"

// The driver library's entry point, found with GetProcAddress.
typedef NVENCSTATUS(NVENCAPI* NvencCreateInstanceFunction)(NV_ENCODE_API_FUNCTION_LIST* functionList);

// Records "<label> failed (<name>)" (or "(status=<n>)"), with the session's own error text after
// ": " where the list has nvEncGetLastErrorString and there is a session. True if `status` is a
// failure; a success records nothing.
bool reportNvencFailure(const char* label, NVENCSTATUS status, const NV_ENCODE_API_FUNCTION_LIST* list,
                        void* handle);

class NvencEncoder : public VideoEncoder {
 public:
  NvencEncoder() = default;
  ~NvencEncoder() override;
  NvencEncoder(const NvencEncoder&) = delete;
  NvencEncoder& operator=(const NvencEncoder&) = delete;

  bool init(D3DContext* d3d, uint32_t width, uint32_t height, uint32_t fps, uint32_t bitrate) override;
  bool encode(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame) override;
  void requestKeyFrame() override { keyFramePending = true; }
  bool usesGpuInput() const override { return false; }
  const char* name() const override { return "nvenc"; }

 private:
  bool loadFunctionList();
  bool openSession();
  // Destroys the session handle that a refused open left, if any.
  void destroyRefusedSession();
  bool initializeWithPreset(const GUID& preset);
  void destroySession();
  // The frame path's steps before the picture goes to the driver.
  bool prepareInputTexture(ID3D11Texture2D* texture);
  bool registerInputTexture();

  NV_ENCODE_API_FUNCTION_LIST functionList{};
  D3DContext* d3d = nullptr;
  CountedRef<ID3D11Texture2D> inputTexture;
  void* encoderHandle = nullptr;
  NV_ENC_OUTPUT_PTR bitstreamBuffer = nullptr;
  NV_ENC_REGISTERED_PTR registeredResource = nullptr;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t fps = 60;
  uint32_t bitrate = 0;
  uint64_t pictureCounter = 0;
  bool initialized = false;
  bool keyFramePending = true;
};
