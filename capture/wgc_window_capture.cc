#include "capture/wgc_window_capture.h"

#include <dxgi.h>
#include <objbase.h>
#include <roapi.h>
#include <windows.h>
#include <winstring.h>

#include <cwchar>
#include <utility>

#include "capture/frame_arrived_handler.h"
#include "gpu/d3d_context.h"
#include "session/start_options.h"
#include "support/log.h"
#include "support/performance_time.h"
#include "windows.graphics.capture.h"
#include "windows.graphics.capture.interop.h"
#include "windows.graphics.directx.direct3d11.interop.h"

using ABI::Windows::Foundation::IClosable;
using ABI::Windows::Graphics::SizeInt32;
using ABI::Windows::Graphics::Capture::IDirect3D11CaptureFrame;
using ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool;
using ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePoolStatics;
using ABI::Windows::Graphics::Capture::IGraphicsCaptureItem;
using ABI::Windows::Graphics::Capture::IGraphicsCaptureSession;
using ABI::Windows::Graphics::Capture::IGraphicsCaptureSession2;
using ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DDevice;
using ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DSurface;
using ::Windows::Graphics::DirectX::Direct3D11::IDirect3DDxgiInterfaceAccess;

struct WgcWindowCapture::WgcObjects {
  // Declared so that deletion releases the session, then the pool, then the item.
  CountedRef<IGraphicsCaptureItem> item;
  CountedRef<IDirect3D11CaptureFramePool> framePool;
  CountedRef<IGraphicsCaptureSession> session;
};

namespace {

constexpr INT32 kFrameBuffers = 3;

// A failing HRESULT of a WinRT or COM call. It never leaves this file: each operation catches it.
struct WinrtFailure {
  HRESULT hr;
};

void check(HRESULT hr) {
  if (FAILED(hr)) throw WinrtFailure{hr};
}

// A class name made for one activation and deleted after it.
class ClassName {
 public:
  explicit ClassName(const wchar_t* text) { check(WindowsCreateString(text, UINT32(std::wcslen(text)), &string)); }
  ~ClassName() { WindowsDeleteString(string); }
  ClassName(const ClassName&) = delete;
  ClassName& operator=(const ClassName&) = delete;
  HSTRING get() const { return string; }

 private:
  HSTRING string = nullptr;
};

template <class Factory>
CountedRef<Factory> activationFactory(const wchar_t* className) {
  ClassName name(className);
  CountedRef<Factory> factory;
  check(RoGetActivationFactory(name.get(), __uuidof(Factory), factory.putVoid()));
  return factory;
}

HRESULT lastErrorResult() {
  HRESULT hr = HRESULT_FROM_WIN32(GetLastError());
  return FAILED(hr) ? hr : E_FAIL;
}

// The capture device as the Windows Runtime sees it; the wrapper lives only through init.
CountedRef<IDirect3DDevice> wrapDevice(ID3D11Device* d3dDevice) {
  CountedRef<IDXGIDevice> dxgiDevice;
  check(dxgiDevice.queryFrom(d3dDevice));
  // Found at run time: Wine's d3d11.dll lacks the export, and a static import would keep the
  // module from loading there.
  HMODULE library = LoadLibraryW(L"d3d11.dll");
  if (library == nullptr) throw WinrtFailure{lastErrorResult()};
  auto create = reinterpret_cast<PFN_CreateDirect3D11DeviceFromDXGIDevice>(
      reinterpret_cast<void*>(GetProcAddress(library, "CreateDirect3D11DeviceFromDXGIDevice")));
  CountedRef<IInspectable> inspectable;
  HRESULT hr = create != nullptr ? create(dxgiDevice.get(), inspectable.put()) : lastErrorResult();
  FreeLibrary(library);
  check(hr);
  CountedRef<IDirect3DDevice> device;
  check(device.queryFrom(inspectable.get()));
  return device;
}

bool sameShape(const D3D11_TEXTURE2D_DESC& a, const D3D11_TEXTURE2D_DESC& b) {
  return a.Width == b.Width && a.Height == b.Height && a.Format == b.Format;
}

}  // namespace

WgcWindowCapture::WgcWindowCapture() = default;

WgcWindowCapture::~WgcWindowCapture() {
  stop();
  objects.reset();
  frameTexture.reset();
  if (enteredApartment) CoUninitialize();
}

bool WgcWindowCapture::init(D3DContext* context, const StartOptions& options) {
  d3d = context;
  if (options.captureKind != CaptureKind::Window) {
    logError("WGC capture requires window target");
    return false;
  }
  HWND window = reinterpret_cast<HWND>(static_cast<intptr_t>(options.nativeHandle));
  if (!IsWindow(window)) {
    logError("Invalid capture window handle");
    return false;
  }
  try {
    // The source leaves the apartment as it entered it, in its destructor on the same worker:
    // a worker that ended inside it would leave the process's apartment count one higher for
    // every window session of a long-lived host.
    check(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    enteredApartment = true;
    auto fresh = std::make_unique<WgcObjects>();
    auto interop =
        activationFactory<IGraphicsCaptureItemInterop>(RuntimeClass_Windows_Graphics_Capture_GraphicsCaptureItem);
    check(interop->CreateForWindow(window, __uuidof(IGraphicsCaptureItem), fresh->item.putVoid()));
    // The pool keeps this size for the life of the capture.
    SizeInt32 size = {};
    check(fresh->item->get_Size(&size));
    CountedRef<IDirect3DDevice> device = wrapDevice(d3d != nullptr ? d3d->device.get() : nullptr);
    auto statics = activationFactory<IDirect3D11CaptureFramePoolStatics>(
        RuntimeClass_Windows_Graphics_Capture_Direct3D11CaptureFramePool);
    check(statics->Create(device.get(), ABI::Windows::Graphics::DirectX::DirectXPixelFormat_B8G8R8A8UIntNormalized,
                          kFrameBuffers, size, fresh->framePool.put()));
    check(fresh->framePool->CreateCaptureSession(fresh->item.get(), fresh->session.put()));
    CountedRef<IGraphicsCaptureSession2> cursorControl;
    check(cursorControl.queryFrom(fresh->session.get()));
    check(cursorControl->put_IsCursorCaptureEnabled(false));
    // Subscribed before capture starts; the token isn't kept, as closing the pool ends it.
    auto* handler = new FrameArrivedHandler(frameReadyFlag);
    EventRegistrationToken token = {};
    HRESULT subscribed = fresh->framePool->add_FrameArrived(handler, &token);
    handler->Release();
    check(subscribed);
    check(fresh->session->StartCapture());
    objects = std::move(fresh);
  } catch (const WinrtFailure&) {
    // What was made so far went with `fresh`, session first.
    logError("WGC initialize failed");
    stop();
    return false;
  }
  started = true;
  return true;
}

void WgcWindowCapture::setFrameRate(uint32_t) {}

bool WgcWindowCapture::acquireFrame(CountedRef<ID3D11Texture2D>& texture, int64_t& timestamp) {
  if (!started || objects == nullptr || !frameReady.load()) return false;
  std::lock_guard<std::mutex> lock(frameMutex);
  if (!frameReady.load()) return false;
  try {
    return copyNextFrame(texture, timestamp);
  } catch (const WinrtFailure&) {
    frameReady.store(false);
    return false;
  }
}

bool WgcWindowCapture::copyNextFrame(CountedRef<ID3D11Texture2D>& texture, int64_t& timestamp) {
  // Released in reverse: the texture, the surface, then the frame, whose buffer goes back to
  // the pool.
  CountedRef<IDirect3D11CaptureFrame> frame;
  check(objects->framePool->TryGetNextFrame(frame.put()));
  if (!frame) {
    frameReady.store(false);
    return false;
  }
  CountedRef<IDirect3DSurface> surface;
  check(frame->get_Surface(surface.put()));
  // On Windows the surface answers no QueryInterface for the texture behind it; only its
  // IDirect3DDxgiInterfaceAccess reaches it.
  CountedRef<IDirect3DDxgiInterfaceAccess> access;
  check(access.queryFrom(surface.get()));
  CountedRef<ID3D11Texture2D> source;
  check(access->GetInterface(__uuidof(ID3D11Texture2D), source.putVoid()));
  if (!source) {
    frameReady.store(false);
    return false;
  }

  D3D11_TEXTURE2D_DESC desc = {};
  source->GetDesc(&desc);
  if (frameTexture) {
    D3D11_TEXTURE2D_DESC own = {};
    frameTexture->GetDesc(&own);
    if (!sameShape(desc, own)) frameTexture.reset();
  }
  if (!frameTexture) {
    desc.Usage = D3D11_USAGE_DEFAULT;
    desc.BindFlags = D3D11_BIND_SHADER_RESOURCE;
    desc.CPUAccessFlags = 0;
    desc.MiscFlags = 0;
    if (FAILED(d3d->device->CreateTexture2D(&desc, nullptr, frameTexture.put()))) {
      frameTexture.reset();
      frameReady.store(false);
      return false;
    }
  }
  d3d->context->CopyResource(frameTexture.get(), source.get());
  int64_t time = performanceTimeNow();

  texture.share(frameTexture.get());
  timestamp = time;
  frameReady.store(false);
  return true;
}

void WgcWindowCapture::releaseFrame() {}

void WgcWindowCapture::stop() {
  if (objects != nullptr) {
    // A failure ends the closing where it is: a session that won't close leaves the pool as it is.
    try {
      CountedRef<IClosable> closable;
      check(closable.queryFrom(objects->session.get()));
      check(closable->Close());
      check(closable.queryFrom(objects->framePool.get()));
      check(closable->Close());
    } catch (const WinrtFailure&) {
      logError("WGC stop failed");
    }
  }
  objects.reset();
  frameReady.exchange(false);
  frameTexture.reset();
  started = false;
}
