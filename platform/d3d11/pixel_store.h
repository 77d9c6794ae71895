// The memory behind a texture, in its format's real layout, and the keyed mutex that guards it
// when it is shared. Textures opened from one shared handle on several devices hold one store.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "d3d11.h"
#include "platform/core/handles.h"

namespace platform::d3d11 {

// Rows start at multiples of this, as a GPU lays them out; Map hands out the same pitch.
constexpr uint32_t kRowAlignment = 256;

struct TextureLayout {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t bytesPerPixel = 0;  // of the first plane: 4 for the RGB formats, 1 for NV12 luma
  bool nv12 = false;           // then a CbCr plane of height/2 rows follows at rowPitch * height
  uint32_t rowPitch = 0;
  size_t size = 0;

  size_t chromaOffset() const { return size_t(rowPitch) * height; }
  uint32_t planeRows(int plane) const { return plane == 0 ? height : height / 2; }
  int planes() const { return nv12 ? 2 : 1; }
};

// The formats textures of this GPU can have.
bool supportedFormat(DXGI_FORMAT format);
// Formats CopyResource may copy between: equal, or of one typeless family.
bool copyCompatible(DXGI_FORMAT a, DXGI_FORMAT b);
TextureLayout layoutFor(DXGI_FORMAT format, uint32_t width, uint32_t height);

// IDXGIKeyedMutex's state, shared by every texture object opened on the store. `owner` is the
// texture object (one per device) that holds it.
class KeyedMutex {
 public:
  // S_OK, WAIT_TIMEOUT, WAIT_ABANDONED, or E_FAIL when `owner` already holds it.
  HRESULT acquire(const void* owner, UINT64 key, DWORD milliseconds);
  // E_FAIL when `owner` doesn't hold it.
  HRESULT release(const void* owner, UINT64 key);
  bool heldBy(const void* owner);
  // The owner went away holding it: the next acquire answers WAIT_ABANDONED.
  void abandon(const void* owner);

 private:
  std::mutex mutex;
  std::condition_variable released;
  const void* owner = nullptr;
  UINT64 key = 0;
  bool abandoned = false;
};

class PixelStore {
 public:
  PixelStore(const D3D11_TEXTURE2D_DESC& desc, const TextureLayout& layout)
      : desc(desc), layout(layout), bytes(layout.size, 0) {}

  const D3D11_TEXTURE2D_DESC desc;
  const TextureLayout layout;
  std::vector<uint8_t> bytes;
  std::mutex mutex;  // held while pixels are copied in or out
  KeyedMutex keyedMutex;
};

// What an NT handle from IDXGIResource1::CreateSharedHandle refers to.
class SharedTextureObject : public KernelObject {
 public:
  explicit SharedTextureObject(std::shared_ptr<PixelStore> store) : store(std::move(store)) {}
  const std::shared_ptr<PixelStore> store;
};

}  // namespace platform::d3d11
