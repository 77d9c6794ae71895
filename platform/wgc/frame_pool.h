// Direct3D11CaptureFramePool, its frames and its statics: thin ABI objects over FramePoolCore.
#pragma once

#include <memory>

#include "platform/core/com_object.h"
#include "platform/wgc/direct3d_interop.h"
#include "platform/wgc/frame_pool_core.h"
#include "platform/wgc/runtime_object.h"

namespace platform::wgc {

using ABI::Windows::Graphics::Capture::IDirect3D11CaptureFrame;
using ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool;
using ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePoolStatics;
using ABI::Windows::Graphics::Capture::IGraphicsCaptureItem;
using ABI::Windows::Graphics::Capture::IGraphicsCaptureSession;

class CaptureFramePool final : public IDirect3D11CaptureFramePool,
                               public IClosable,
                               public IAgileObject,
                               public ComObject {
 public:
  explicit CaptureFramePool(std::shared_ptr<FramePoolCore> core);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_IINSPECTABLE_METHODS(L"Windows.Graphics.Capture.Direct3D11CaptureFramePool")

  HRESULT STDMETHODCALLTYPE Recreate(IDirect3DDevice* device,
                                     ABI::Windows::Graphics::DirectX::DirectXPixelFormat pixelFormat,
                                     INT32 numberOfBuffers, SizeInt32 size) override;
  HRESULT STDMETHODCALLTYPE TryGetNextFrame(IDirect3D11CaptureFrame** result) override;
  HRESULT STDMETHODCALLTYPE add_FrameArrived(FrameArrivedHandler* handler, EventRegistrationToken* token) override;
  HRESULT STDMETHODCALLTYPE remove_FrameArrived(EventRegistrationToken token) override;
  HRESULT STDMETHODCALLTYPE CreateCaptureSession(IGraphicsCaptureItem* item, IGraphicsCaptureSession** result) override;
  HRESULT STDMETHODCALLTYPE get_DispatcherQueue(ABI::Windows::System::IDispatcherQueue** value) override;
  HRESULT STDMETHODCALLTYPE Close() override;

  const std::shared_ptr<FramePoolCore>& core() const { return shared; }

 private:
  void* interfaceFor(REFIID riid) override;
  // The last reference closes the pool, as disposing it does on Windows.
  void lastReference() override;
  void releaseResources() override {}

  std::shared_ptr<FramePoolCore> shared;
};

class CaptureFrame final : public IDirect3D11CaptureFrame, public IClosable, public IAgileObject, public ComObject {
 public:
  CaptureFrame(std::shared_ptr<FramePoolCore> core, const ReadyFrame& frame, d3d11::Texture* texture);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_IINSPECTABLE_METHODS(L"Windows.Graphics.Capture.Direct3D11CaptureFrame")

  HRESULT STDMETHODCALLTYPE get_Surface(IDirect3DSurface** value) override;
  HRESULT STDMETHODCALLTYPE get_SystemRelativeTime(ABI::Windows::Foundation::TimeSpan* value) override;
  HRESULT STDMETHODCALLTYPE get_ContentSize(SizeInt32* value) override;
  HRESULT STDMETHODCALLTYPE Close() override;

 private:
  void* interfaceFor(REFIID riid) override;
  // The buffer goes back to the pool on the frame's last Release.
  void lastReference() override { giveBack(); }
  void releaseResources() override { giveBack(); }
  void giveBack();

  std::mutex mutex;
  std::shared_ptr<FramePoolCore> pool;  // null once the buffer went back
  const ReadyFrame frame;
  Direct3DSurface* surface;  // a reference; null once given back
};

class FramePoolStatics final : public IDirect3D11CaptureFramePoolStatics, public IAgileObject, public ComObject {
 public:
  FramePoolStatics() : ComObject("IDirect3D11CaptureFramePoolStatics") {}
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_IINSPECTABLE_METHODS(L"Windows.Graphics.Capture.Direct3D11CaptureFramePool")

  HRESULT STDMETHODCALLTYPE Create(IDirect3DDevice* device,
                                   ABI::Windows::Graphics::DirectX::DirectXPixelFormat pixelFormat,
                                   INT32 numberOfBuffers, SizeInt32 size,
                                   IDirect3D11CaptureFramePool** result) override;

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override {}
};

}  // namespace platform::wgc
