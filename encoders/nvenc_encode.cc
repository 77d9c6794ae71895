// The frame path: one picture per call, finished before the call returns. The caller's texture
// is copied into the encoder's own, which is registered with NVENC once and mapped per picture.
#include <windows.h>

#include "encoders/nvenc_encoder.h"
#include "gpu/d3d_context.h"
#include "rtp/annexb.h"
#include "support/failure.h"
#include "support/format_bounded.h"
#include "support/log.h"

namespace {

constexpr uint32_t kRegisterResourceVersion = 0x7004000C;
constexpr uint32_t kMapInputResourceVersion = 0x7004000C;
constexpr uint32_t kPicParamsVersion = 0xF006000C;
constexpr uint32_t kLockBitstreamVersion = 0x7002000C;

// Bitstreams shorter than this are logged: a real picture of a screen is rarely that small.
constexpr uint32_t kTinyBitstreamBytes = 256;

}  // namespace

bool NvencEncoder::prepareInputTexture(ID3D11Texture2D* texture) {
  if (!inputTexture) {
    D3D11_TEXTURE2D_DESC desc = nv12TextureDesc(width, height);
    HRESULT hr = d3d->device->CreateTexture2D(&desc, nullptr, inputTexture.put());
    if (FAILED(hr)) {
      inputTexture.reset();
      recordHresultFailure("NVENC input texture creation failed", hr);
      return false;
    }
  }
  d3d->context->CopyResource(inputTexture.get(), texture);
  d3d->context->Flush();
  return true;
}

bool NvencEncoder::registerInputTexture() {
  if (registeredResource != nullptr) return true;
  NV_ENC_REGISTER_RESOURCE reg{};
  reg.version = kRegisterResourceVersion;
  reg.resourceType = NV_ENC_INPUT_RESOURCE_TYPE_DIRECTX;
  reg.width = width;
  reg.height = height;
  reg.pitch = 0;
  reg.subResourceIndex = 0;
  reg.resourceToRegister = inputTexture.get();
  reg.bufferFormat = NV_ENC_BUFFER_FORMAT_NV12;
  NVENCSTATUS status = functionList.nvEncRegisterResource != nullptr
                           ? functionList.nvEncRegisterResource(encoderHandle, &reg)
                           : NV_ENC_ERR_INVALID_PTR;
  if (reportNvencFailure("NVENC register resource", status, &functionList, encoderHandle)) return false;
  registeredResource = reg.registeredResource;
  return true;
}

bool NvencEncoder::encode(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame) {
  if (!initialized || encoderHandle == nullptr || texture == nullptr || out == nullptr) return false;
  if (functionList.nvEncMapInputResource == nullptr || functionList.nvEncUnmapInputResource == nullptr ||
      functionList.nvEncEncodePicture == nullptr || functionList.nvEncLockBitstream == nullptr ||
      functionList.nvEncUnlockBitstream == nullptr)
    return false;
  if (!prepareInputTexture(texture) || !registerInputTexture()) return false;

  NV_ENC_MAP_INPUT_RESOURCE map{};
  map.version = kMapInputResourceVersion;
  map.registeredResource = registeredResource;
  if (functionList.nvEncMapInputResource(encoderHandle, &map) != NV_ENC_SUCCESS) return false;

  NV_ENC_PIC_PARAMS picture{};
  picture.version = kPicParamsVersion;
  picture.inputWidth = width;
  picture.inputHeight = height;
  picture.inputPitch = 0;
  picture.encodePicFlags = keyFramePending ? NV_ENC_PIC_FLAG_FORCEIDR : 0;
  picture.frameIdx = 0;
  picture.inputTimeStamp = pictureCounter++;
  picture.inputDuration = 0;
  picture.inputBuffer = map.mappedResource;
  picture.outputBitstream = bitstreamBuffer;
  picture.completionEvent = nullptr;
  picture.bufferFmt = map.mappedBufferFmt;
  picture.pictureStruct = NV_ENC_PIC_STRUCT_FRAME;
  // The request is used up by this submission, whatever the driver answers.
  keyFramePending = false;
  if (functionList.nvEncEncodePicture(encoderHandle, &picture) != NV_ENC_SUCCESS) {
    functionList.nvEncUnmapInputResource(encoderHandle, map.mappedResource);
    return false;
  }

  NV_ENC_LOCK_BITSTREAM lock{};
  lock.version = kLockBitstreamVersion;
  lock.outputBitstream = bitstreamBuffer;
  lock.doNotWait = 0;
  if (functionList.nvEncLockBitstream(encoderHandle, &lock) != NV_ENC_SUCCESS || lock.bitstreamBufferPtr == nullptr) {
    functionList.nvEncUnmapInputResource(encoderHandle, map.mappedResource);
    return false;
  }
  if (lock.bitstreamSizeInBytes < kTinyBitstreamBytes) {
    char line[128];
    formatBounded(line, sizeof(line), "NVENC tiny bitstream (%u bytes)", lock.bitstreamSizeInBytes);
    logError(line);
  }
  // Copied out before the buffer goes back to the driver.
  normalizeToAnnexB(static_cast<const uint8_t*>(lock.bitstreamBufferPtr), lock.bitstreamSizeInBytes, *out);
  if (keyFrame != nullptr) *keyFrame = lock.pictureType == NV_ENC_PIC_TYPE_IDR;
  functionList.nvEncUnlockBitstream(encoderHandle, bitstreamBuffer);
  functionList.nvEncUnmapInputResource(encoderHandle, map.mappedResource);
  return !out->empty();
}
