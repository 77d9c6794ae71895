// The frame path of the driver's function table: registering D3D11 NV12 textures, mapping them
// for a picture, encoding it (within the call: there is no asynchronous mode) and handing the
// bitstream out through lock and unlock.
#include <string>

#include "platform/control/machine_control.h"
#include "platform/core/debug_layer.h"
#include "platform/nvenc/session.h"

namespace platform::nvenc {
namespace {

struct LockedSession {
  std::shared_ptr<Session> session;
  std::unique_lock<std::mutex> lock;
};

LockedSession lockSession(void* encoder) {
  std::shared_ptr<Session> session = findSession(encoder);
  if (session == nullptr) return {};
  std::unique_lock<std::mutex> lock(session->mutex);
  return {std::move(session), std::move(lock)};
}

// Without repeatSPSPPS the driver writes SPS and PPS with the first IDR picture only (or when a
// picture asks for them); the platform's encoder writes them with every IDR. Its output has
// four-byte start codes throughout.
void dropParameterSets(std::vector<uint8_t>& bytes) {
  std::vector<size_t> starts;
  for (size_t i = 0; i + 4 <= bytes.size(); ++i)
    if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 0 && bytes[i + 3] == 1) starts.push_back(i);
  std::vector<uint8_t> kept;
  for (size_t n = 0; n < starts.size(); ++n) {
    size_t begin = starts[n];
    size_t end = n + 1 < starts.size() ? starts[n + 1] : bytes.size();
    uint8_t type = begin + 4 < bytes.size() ? bytes[begin + 4] & 0x1F : 0;
    if (type == 7 || type == 8) continue;
    kept.insert(kept.end(), bytes.begin() + long(begin), bytes.begin() + long(end));
  }
  bytes = std::move(kept);
}

}  // namespace

NVENCSTATUS NVENCAPI registerResource(void* encoder, NV_ENC_REGISTER_RESOURCE* params) {
  if (NVENCSTATUS planned = plannedStatus("nvEncRegisterResource", encoder)) return planned;
  LockedSession locked = lockSession(encoder);
  Session* session = locked.session.get();
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  if (params == nullptr || params->resourceToRegister == nullptr)
    return session->fail(NV_ENC_ERR_INVALID_PTR, "no resource to register");
  if (!structVersionAccepted(params->version, NV_ENC_REGISTER_RESOURCE_VER))
    return session->fail(NV_ENC_ERR_INVALID_VERSION, "NV_ENC_REGISTER_RESOURCE has a bad version");
  if (params->resourceType != NV_ENC_INPUT_RESOURCE_TYPE_DIRECTX)
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "a DirectX session registers DirectX resources only");
  if (params->bufferUsage != NV_ENC_INPUT_IMAGE || params->subResourceIndex != 0)
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "only whole input images can be registered");
  d3d11::Texture* texture =
      d3d11::Texture::from(static_cast<ID3D11Resource*>(static_cast<ID3D11Texture2D*>(params->resourceToRegister)));
  if (texture == nullptr || texture->references() == 0 || texture->device() != session->device.get())
    return session->fail(NV_ENC_ERR_RESOURCE_REGISTER_FAILED, "the resource is no texture of the session's device");
  const D3D11_TEXTURE2D_DESC& desc = texture->desc();
  if (params->bufferFormat != NV_ENC_BUFFER_FORMAT_NV12 || desc.Format != DXGI_FORMAT_NV12)
    return session->fail(NV_ENC_ERR_UNSUPPORTED_PARAM, "only NV12 textures can be registered");
  if (params->width == 0 || params->height == 0 || params->width > desc.Width || params->height > desc.Height)
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "the registered size exceeds the texture");
  if (desc.Usage == D3D11_USAGE_STAGING)
    return session->fail(NV_ENC_ERR_RESOURCE_REGISTER_FAILED, "staging textures can't be registered");
  auto registration = std::make_unique<Registration>();
  registration->texture.reset(texture);
  registration->format = params->bufferFormat;
  registration->width = params->width;
  registration->height = params->height;
  params->registeredResource = registration.get();
  session->registrations.emplace(registration.get(), std::move(registration));
  session->refreshCounts();
  return NV_ENC_SUCCESS;
}

NVENCSTATUS NVENCAPI unregisterResource(void* encoder, NV_ENC_REGISTERED_PTR registered) {
  if (NVENCSTATUS planned = plannedStatus("nvEncUnregisterResource", encoder)) return planned;
  LockedSession locked = lockSession(encoder);
  Session* session = locked.session.get();
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  auto found = session->registrations.find(registered);
  if (found == session->registrations.end())
    return session->fail(NV_ENC_ERR_RESOURCE_NOT_REGISTERED, "the resource is not registered");
  // The application must keep the texture while it is registered.
  if (found->second->texture->references() == 0)
    debugLayerViolation("nvEncUnregisterResource: the texture was released while it was registered");
  session->registrations.erase(found);
  session->refreshCounts();
  return NV_ENC_SUCCESS;
}

NVENCSTATUS NVENCAPI mapInputResource(void* encoder, NV_ENC_MAP_INPUT_RESOURCE* params) {
  if (NVENCSTATUS planned = plannedStatus("nvEncMapInputResource", encoder)) return planned;
  LockedSession locked = lockSession(encoder);
  Session* session = locked.session.get();
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  if (params == nullptr) return session->fail(NV_ENC_ERR_INVALID_PTR, "map parameters are null");
  if (!structVersionAccepted(params->version, NV_ENC_MAP_INPUT_RESOURCE_VER))
    return session->fail(NV_ENC_ERR_INVALID_VERSION, "NV_ENC_MAP_INPUT_RESOURCE has a bad version");
  auto found = session->registrations.find(params->registeredResource);
  if (found == session->registrations.end())
    return session->fail(NV_ENC_ERR_RESOURCE_NOT_REGISTERED, "the resource is not registered");
  Registration& registration = *found->second;
  if (registration.mapped) return session->fail(NV_ENC_ERR_MAP_FAILED, "the resource is mapped already");
  if (!registration.texture->accessible())
    return session->fail(NV_ENC_ERR_MAP_FAILED, "the texture's keyed mutex is not held by its device");
  registration.mapped = true;
  params->mappedResource = &registration.mappedToken;
  params->mappedBufferFmt = registration.format;
  session->refreshCounts();
  return NV_ENC_SUCCESS;
}

NVENCSTATUS NVENCAPI unmapInputResource(void* encoder, NV_ENC_INPUT_PTR mapped) {
  if (NVENCSTATUS planned = plannedStatus("nvEncUnmapInputResource", encoder)) return planned;
  LockedSession locked = lockSession(encoder);
  Session* session = locked.session.get();
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  Registration* registration = session->registrationMappedAs(mapped);
  if (registration == nullptr) return session->fail(NV_ENC_ERR_RESOURCE_NOT_MAPPED, "the resource is not mapped");
  registration->mapped = false;
  session->refreshCounts();
  return NV_ENC_SUCCESS;
}

NVENCSTATUS NVENCAPI encodePicture(void* encoder, NV_ENC_PIC_PARAMS* params) {
  if (NVENCSTATUS planned = plannedStatus("nvEncEncodePicture", encoder)) return planned;
  LockedSession locked = lockSession(encoder);
  Session* session = locked.session.get();
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  if (params == nullptr) return session->fail(NV_ENC_ERR_INVALID_PTR, "picture parameters are null");
  if (!structVersionAccepted(params->version, NV_ENC_PIC_PARAMS_VER))
    return session->fail(NV_ENC_ERR_INVALID_VERSION, "NV_ENC_PIC_PARAMS has a bad version");
  if (!session->info.initialized || session->encoder == nullptr)
    return session->fail(NV_ENC_ERR_ENCODER_NOT_INITIALIZED, "the encoder is not initialised");
  // End of stream: nothing is held back, so there is nothing to flush.
  if ((params->encodePicFlags & NV_ENC_PIC_FLAG_EOS) != 0) return NV_ENC_SUCCESS;
  Registration* input = session->registrationMappedAs(params->inputBuffer);
  if (input == nullptr) return session->fail(NV_ENC_ERR_RESOURCE_NOT_MAPPED, "the input buffer is not mapped");
  BitstreamBuffer* output = session->buffer(params->outputBitstream);
  if (output == nullptr) return session->fail(NV_ENC_ERR_INVALID_PARAM, "no such bitstream buffer");
  if (output->locked) return session->fail(NV_ENC_ERR_LOCK_BUSY, "the bitstream buffer is still locked");
  if (params->inputWidth != session->info.width || params->inputHeight != session->info.height ||
      input->width < params->inputWidth || input->height < params->inputHeight)
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "the picture size differs from the encode size");
  if (params->bufferFmt != input->format)
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "bufferFmt differs from the mapped resource's format");
  if (params->pictureStruct != NV_ENC_PIC_STRUCT_FRAME)
    return session->fail(NV_ENC_ERR_UNSUPPORTED_PARAM, "only progressive frames are encoded");
  if (params->completionEvent != nullptr)
    return session->fail(NV_ENC_ERR_INVALID_PARAM, "a completion event needs asynchronous encoding");

  if ((params->encodePicFlags & (NV_ENC_PIC_FLAG_FORCEIDR | NV_ENC_PIC_FLAG_FORCEINTRA)) != 0)
    session->encoder->requestKeyFrame();
  std::vector<uint8_t> bytes;
  bool keyFrame = false;
  bool encoded;
  {
    d3d11::PixelStore& store = input->texture->store();
    std::lock_guard<std::mutex> pixels(store.mutex);
    const d3d11::TextureLayout& layout = store.layout;
    video::Nv12Picture picture;
    picture.luma = store.bytes.data();
    picture.lumaPitch = layout.rowPitch;
    picture.chroma = store.bytes.data() + layout.chromaOffset();
    picture.chromaPitch = layout.rowPitch;
    picture.width = int(params->inputWidth);
    picture.height = int(params->inputHeight);
    encoded = session->encoder->encode(picture, bytes, keyFrame);
  }
  session->info.pictures++;
  session->info.lastPictureFlags = params->encodePicFlags;
  session->info.lastInputTimeStamp = params->inputTimeStamp;
  if (!encoded) return session->fail(NV_ENC_ERR_GENERIC, "encoding failed: " + session->encoder->error());
  bool wantParameterSets = session->info.repeatSPSPPS || !session->parameterSetsSent ||
                           (params->encodePicFlags & NV_ENC_PIC_FLAG_OUTPUT_SPSPPS) != 0;
  if (keyFrame && !wantParameterSets) dropParameterSets(bytes);
  if (keyFrame) session->parameterSetsSent = true;
  uint32_t limit = control::currentMachine().nvencBitstreamLimit;
  if (limit != 0 && bytes.size() > limit) bytes.resize(limit);
  output->bytes = std::move(bytes);
  output->holdsPicture = true;
  output->pictureType = keyFrame ? NV_ENC_PIC_TYPE_IDR : NV_ENC_PIC_TYPE_P;
  output->timeStamp = params->inputTimeStamp;
  output->frameIdx = params->frameIdx;
  return NV_ENC_SUCCESS;
}

// Encoding finished within nvEncEncodePicture, so the lock never has to wait for the GPU.
NVENCSTATUS NVENCAPI lockBitstream(void* encoder, NV_ENC_LOCK_BITSTREAM* params) {
  if (NVENCSTATUS planned = plannedStatus("nvEncLockBitstream", encoder)) return planned;
  LockedSession locked = lockSession(encoder);
  Session* session = locked.session.get();
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  if (params == nullptr) return session->fail(NV_ENC_ERR_INVALID_PTR, "lock parameters are null");
  if (!structVersionAccepted(params->version, NV_ENC_LOCK_BITSTREAM_VER))
    return session->fail(NV_ENC_ERR_INVALID_VERSION, "NV_ENC_LOCK_BITSTREAM has a bad version");
  BitstreamBuffer* buffer = session->buffer(params->outputBitstream);
  if (buffer == nullptr) return session->fail(NV_ENC_ERR_INVALID_PARAM, "no such bitstream buffer");
  if (buffer->locked) return session->fail(NV_ENC_ERR_LOCK_BUSY, "the bitstream buffer is locked already");
  if (!buffer->holdsPicture) return session->fail(NV_ENC_ERR_INVALID_CALL, "no picture was encoded into the buffer");
  buffer->locked = true;
  params->bitstreamBufferPtr = buffer->bytes.data();
  params->bitstreamSizeInBytes = uint32_t(buffer->bytes.size());
  params->pictureType = buffer->pictureType;
  params->pictureStruct = NV_ENC_PIC_STRUCT_FRAME;
  params->outputTimeStamp = buffer->timeStamp;
  params->frameIdx = buffer->frameIdx;
  params->numSlices = 1;
  session->refreshCounts();
  return NV_ENC_SUCCESS;
}

NVENCSTATUS NVENCAPI unlockBitstream(void* encoder, NV_ENC_OUTPUT_PTR bitstreamBuffer) {
  if (NVENCSTATUS planned = plannedStatus("nvEncUnlockBitstream", encoder)) return planned;
  LockedSession locked = lockSession(encoder);
  Session* session = locked.session.get();
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  BitstreamBuffer* buffer = session->buffer(bitstreamBuffer);
  if (buffer == nullptr) return session->fail(NV_ENC_ERR_INVALID_PARAM, "no such bitstream buffer");
  if (!buffer->locked) return session->fail(NV_ENC_ERR_INVALID_CALL, "the bitstream buffer is not locked");
  buffer->locked = false;
  session->refreshCounts();
  return NV_ENC_SUCCESS;
}

}  // namespace platform::nvenc
