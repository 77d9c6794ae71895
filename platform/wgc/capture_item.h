// GraphicsCaptureItem for a window, and the factory that makes it through
// IGraphicsCaptureItemInterop.
#pragma once

#include <mutex>

#include "objidl.h"
#include "platform/core/com_object.h"
#include "platform/wgc/runtime_object.h"
#include "windows.graphics.capture.h"
#include "windows.graphics.capture.interop.h"

namespace platform::wgc {

using ABI::Windows::Graphics::Capture::IGraphicsCaptureItem;
using ItemClosedHandler =
    ABI::Windows::Foundation::ITypedEventHandler<ABI::Windows::Graphics::Capture::GraphicsCaptureItem*, IInspectable*>;

class CaptureItem final : public IGraphicsCaptureItem, public IAgileObject, public ComObject {
 public:
  CaptureItem(HWND window, ABI::Windows::Graphics::SizeInt32 size)
      : ComObject("IGraphicsCaptureItem"), captured(window), lastSize(size) {}
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_IINSPECTABLE_METHODS(L"Windows.Graphics.Capture.GraphicsCaptureItem")

  HRESULT STDMETHODCALLTYPE get_DisplayName(HSTRING* value) override;
  HRESULT STDMETHODCALLTYPE get_Size(ABI::Windows::Graphics::SizeInt32* value) override;
  HRESULT STDMETHODCALLTYPE add_Closed(ItemClosedHandler* handler, EventRegistrationToken* token) override;
  HRESULT STDMETHODCALLTYPE remove_Closed(EventRegistrationToken token) override;

  HWND window() const { return captured; }
  static CaptureItem* from(IGraphicsCaptureItem* item);

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override {}

  const HWND captured;
  std::mutex sizeMutex;
  ABI::Windows::Graphics::SizeInt32 lastSize;  // what Size answers once the window has gone
};

class CaptureItemFactory final : public IInspectable,
                                 public IGraphicsCaptureItemInterop,
                                 public IAgileObject,
                                 public ComObject {
 public:
  CaptureItemFactory() : ComObject("IGraphicsCaptureItemInterop") {}
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_IINSPECTABLE_METHODS(L"Windows.Graphics.Capture.GraphicsCaptureItem")

  HRESULT STDMETHODCALLTYPE CreateForWindow(HWND window, REFIID riid, void** result) override;
  HRESULT STDMETHODCALLTYPE CreateForMonitor(HMONITOR monitor, REFIID riid, void** result) override;

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override {}
};

}  // namespace platform::wgc
