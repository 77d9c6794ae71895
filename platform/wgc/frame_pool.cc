#include "platform/wgc/frame_pool.h"

#include "platform/wgc/capture_session.h"

namespace platform::wgc {
namespace {

// The formats a window can be captured in here: B8G8R8A8 as windows are, and R8G8B8A8 swizzled.
// Windows also offers R16G16B16A16Float for HDR content, which no window of this platform has.
bool formatFor(ABI::Windows::Graphics::DirectX::DirectXPixelFormat pixelFormat, DXGI_FORMAT* format, bool* swap) {
  switch (pixelFormat) {
    case ABI::Windows::Graphics::DirectX::DirectXPixelFormat_B8G8R8A8UIntNormalized:
      *format = DXGI_FORMAT_B8G8R8A8_UNORM;
      *swap = false;
      return true;
    case ABI::Windows::Graphics::DirectX::DirectXPixelFormat_R8G8B8A8UIntNormalized:
      *format = DXGI_FORMAT_R8G8B8A8_UNORM;
      *swap = true;
      return true;
    default:
      return false;
  }
}

// Direct3D 11's largest texture side.
constexpr INT32 kMaxSide = 16384;
// A pool is a handful of buffers; the bound keeps a bad count from asking for gigabytes.
constexpr INT32 kMaxBuffers = 64;

}  // namespace

CaptureFramePool::CaptureFramePool(std::shared_ptr<FramePoolCore> core)
    : ComObject("IDirect3D11CaptureFramePool"), shared(std::move(core)) {}

void* CaptureFramePool::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IInspectable || riid == __uuidof(IDirect3D11CaptureFramePool))
    return static_cast<IDirect3D11CaptureFramePool*>(this);
  if (riid == __uuidof(IClosable)) return static_cast<IClosable*>(this);
  if (riid == IID_IAgileObject) return static_cast<IAgileObject*>(this);
  return nullptr;
}

void CaptureFramePool::lastReference() { shared->close(); }

HRESULT CaptureFramePool::Recreate(IDirect3DDevice*, ABI::Windows::Graphics::DirectX::DirectXPixelFormat, INT32,
                                   SizeInt32) {
  // The system never recreates a pool: its capture keeps the size it started with.
  if (HRESULT hr = enter("IDirect3D11CaptureFramePool::Recreate"); hr != S_OK) return hr;
  return shared->closed() ? RO_E_CLOSED : E_NOTIMPL;
}

HRESULT CaptureFramePool::TryGetNextFrame(IDirect3D11CaptureFrame** result) {
  if (result == nullptr) return E_POINTER;
  *result = nullptr;
  if (HRESULT hr = enter("IDirect3D11CaptureFramePool::TryGetNextFrame"); hr != S_OK) return hr;
  if (shared->closed()) return RO_E_CLOSED;
  ReadyFrame frame;
  Pin<d3d11::Texture> texture;
  if (!shared->takeReady(&frame, &texture)) return S_OK;  // nothing waits: S_OK and null
  handOut(new CaptureFrame(shared, frame, texture.get()), result);
  return S_OK;
}

HRESULT CaptureFramePool::add_FrameArrived(FrameArrivedHandler* handler, EventRegistrationToken* token) {
  if (handler == nullptr || token == nullptr) return E_INVALIDARG;
  if (HRESULT hr = enter("IDirect3D11CaptureFramePool::add_FrameArrived"); hr != S_OK) return hr;
  if (shared->closed()) return RO_E_CLOSED;
  *token = shared->addHandler(handler);
  return S_OK;
}

HRESULT CaptureFramePool::remove_FrameArrived(EventRegistrationToken token) {
  if (HRESULT hr = enter("IDirect3D11CaptureFramePool::remove_FrameArrived"); hr != S_OK) return hr;
  shared->removeHandler(token);  // an unknown token is no error, as on Windows
  return S_OK;
}

HRESULT CaptureFramePool::CreateCaptureSession(IGraphicsCaptureItem* item, IGraphicsCaptureSession** result) {
  if (result == nullptr) return E_POINTER;
  *result = nullptr;
  if (HRESULT hr = enter("IDirect3D11CaptureFramePool::CreateCaptureSession"); hr != S_OK) return hr;
  if (item == nullptr) return E_INVALIDARG;
  if (shared->closed()) return RO_E_CLOSED;
  CaptureItem* own = CaptureItem::from(item);
  if (own == nullptr) return E_INVALIDARG;
  handOut(new CaptureSession(this, own), result);
  return S_OK;
}

HRESULT CaptureFramePool::get_DispatcherQueue(ABI::Windows::System::IDispatcherQueue** value) {
  if (value == nullptr) return E_POINTER;
  *value = nullptr;  // created on a thread without a dispatcher queue
  return enter("IDirect3D11CaptureFramePool::get_DispatcherQueue");
}

HRESULT CaptureFramePool::Close() {
  if (HRESULT hr = enter("IClosable::Close"); hr != S_OK) return hr;
  shared->close();
  return S_OK;
}

CaptureFrame::CaptureFrame(std::shared_ptr<FramePoolCore> core, const ReadyFrame& frame, d3d11::Texture* texture)
    : ComObject("IDirect3D11CaptureFrame"), pool(std::move(core)), frame(frame), surface(new Direct3DSurface(texture)) {
  surface->addRef();
}

void* CaptureFrame::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IInspectable || riid == __uuidof(IDirect3D11CaptureFrame))
    return static_cast<IDirect3D11CaptureFrame*>(this);
  if (riid == __uuidof(IClosable)) return static_cast<IClosable*>(this);
  if (riid == IID_IAgileObject) return static_cast<IAgileObject*>(this);
  return nullptr;
}

void CaptureFrame::giveBack() {
  std::shared_ptr<FramePoolCore> owner;
  Direct3DSurface* held = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex);
    owner = std::move(pool);
    held = std::exchange(surface, nullptr);
  }
  if (owner != nullptr) owner->returnBuffer(frame.slot);
  if (held != nullptr) held->release();
}

HRESULT CaptureFrame::get_Surface(IDirect3DSurface** value) {
  if (value == nullptr) return E_POINTER;
  *value = nullptr;
  if (HRESULT hr = enter("IDirect3D11CaptureFrame::get_Surface"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> lock(mutex);
  if (surface == nullptr) return RO_E_CLOSED;
  handOut(surface, value);
  return S_OK;
}

HRESULT CaptureFrame::get_SystemRelativeTime(ABI::Windows::Foundation::TimeSpan* value) {
  if (value == nullptr) return E_POINTER;
  if (HRESULT hr = enter("IDirect3D11CaptureFrame::get_SystemRelativeTime"); hr != S_OK) return hr;
  value->Duration = frame.time;
  return S_OK;
}

HRESULT CaptureFrame::get_ContentSize(SizeInt32* value) {
  if (value == nullptr) return E_POINTER;
  if (HRESULT hr = enter("IDirect3D11CaptureFrame::get_ContentSize"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> lock(mutex);
  if (pool == nullptr) return RO_E_CLOSED;
  *value = pool->size();
  return S_OK;
}

HRESULT CaptureFrame::Close() {
  if (HRESULT hr = enter("IClosable::Close"); hr != S_OK) return hr;
  giveBack();
  return S_OK;
}

void* FramePoolStatics::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IInspectable || riid == __uuidof(IDirect3D11CaptureFramePoolStatics))
    return static_cast<IDirect3D11CaptureFramePoolStatics*>(this);
  if (riid == IID_IAgileObject) return static_cast<IAgileObject*>(this);
  return nullptr;
}

HRESULT FramePoolStatics::Create(IDirect3DDevice* device,
                                 ABI::Windows::Graphics::DirectX::DirectXPixelFormat pixelFormat, INT32 numberOfBuffers,
                                 SizeInt32 size, IDirect3D11CaptureFramePool** result) {
  if (result == nullptr) return E_POINTER;
  *result = nullptr;
  if (HRESULT hr = enter("IDirect3D11CaptureFramePoolStatics::Create"); hr != S_OK) return hr;
  DXGI_FORMAT format = DXGI_FORMAT_UNKNOWN;
  bool swap = false;
  if (device == nullptr || !formatFor(pixelFormat, &format, &swap)) return E_INVALIDARG;
  if (numberOfBuffers < 1 || numberOfBuffers > kMaxBuffers) return E_INVALIDARG;
  if (size.Width < 1 || size.Height < 1 || size.Width > kMaxSide || size.Height > kMaxSide) return E_INVALIDARG;
  Pin<d3d11::Device> d3d = Direct3DDevice::deviceOf(device);
  if (!d3d) return E_INVALIDARG;
  auto core = std::make_shared<FramePoolCore>(d3d.get(), format, numberOfBuffers, size, swap);
  handOut(new CaptureFramePool(std::move(core)), result);
  return S_OK;
}

}  // namespace platform::wgc
