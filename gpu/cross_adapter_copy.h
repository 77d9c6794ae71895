// Carries a frame from the capture device to the encode device when they sit on different
// adapters: a texture made on the capture device is shared by an NT handle with the encode
// device and guarded by a keyed mutex; each frame goes source texture, shared texture, local
// texture on the encode device.
#pragma once

#include <d3d11_1.h>
#include <dxgi1_2.h>

#include <cstdint>

#include "gpu/d3d_context.h"
#include "support/counted_ref.h"

class CrossAdapterCopy {
 public:
  CrossAdapterCopy() = default;
  ~CrossAdapterCopy();
  CrossAdapterCopy(const CrossAdapterCopy&) = delete;
  CrossAdapterCopy& operator=(const CrossAdapterCopy&) = delete;

  // On true `result` holds a reference of its own to the texture the pipeline goes on with;
  // on false it is unchanged.
  bool copyToEncodeDevice(ID3D11Texture2D* texture, CountedRef<ID3D11Texture2D>* result);
  // Makes the shared texture and its opened twin fit `desc`, unless they already do; a new pair
  // empties the local texture so that the next copy makes it anew. After a failure the object
  // holds nothing, and the next frame starts over.
  bool ensureSharedTexture(const D3D11_TEXTURE2D_DESC& desc);

  D3DContext* source = nullptr;
  D3DContext* destination = nullptr;
  bool sameDevice = true;
  CountedRef<ID3D11Texture2D> sharedSource;
  CountedRef<ID3D11Texture2D> sharedDestination;
  CountedRef<ID3D11Texture2D> localDestination;
  HANDLE sharedHandle = nullptr;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t format = 0;
  // Set when a mutex step failed: the key of the shared texture is then in doubt, so the next
  // frame builds new textures instead of waiting on it.
  bool mutexInDoubt = false;

 private:
  void releaseResources();
  bool copyUnderMutex(ID3D11Texture2D* texture);
};
