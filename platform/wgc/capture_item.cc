#include "platform/wgc/capture_item.h"

#include <cstdio>

#include "platform/window/capture_target.h"

namespace platform::wgc {

void* CaptureItem::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IInspectable || riid == __uuidof(IGraphicsCaptureItem))
    return static_cast<IGraphicsCaptureItem*>(this);
  if (riid == IID_IAgileObject) return static_cast<IAgileObject*>(this);
  return nullptr;
}

CaptureItem* CaptureItem::from(IGraphicsCaptureItem* item) { return dynamic_cast<CaptureItem*>(item); }

HRESULT CaptureItem::get_DisplayName(HSTRING* value) {
  if (value == nullptr) return E_POINTER;
  *value = nullptr;
  if (HRESULT hr = enter("IGraphicsCaptureItem::get_DisplayName"); hr != S_OK) return hr;
  wchar_t name[48];
  int length =
      std::swprintf(name, 48, L"Window 0x%llx", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(captured)));
  return WindowsCreateString(name, UINT32(length), value);
}

HRESULT CaptureItem::get_Size(ABI::Windows::Graphics::SizeInt32* value) {
  if (value == nullptr) return E_POINTER;
  if (HRESULT hr = enter("IGraphicsCaptureItem::get_Size"); hr != S_OK) return hr;
  // The window's size now; a window that has gone keeps the last size it had.
  std::lock_guard<std::mutex> lock(sizeMutex);
  window::WindowSize size;
  if (window::sizeOf(captured, &size)) lastSize = {size.width, size.height};
  *value = lastSize;
  return S_OK;
}

HRESULT CaptureItem::add_Closed(ItemClosedHandler* handler, EventRegistrationToken* token) {
  if (handler == nullptr || token == nullptr) return E_INVALIDARG;
  // The system doesn't subscribe to Closed; the platform doesn't raise it.
  if (HRESULT hr = enter("IGraphicsCaptureItem::add_Closed"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT CaptureItem::remove_Closed(EventRegistrationToken) {
  if (HRESULT hr = enter("IGraphicsCaptureItem::remove_Closed"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

void* CaptureItemFactory::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IInspectable) return static_cast<IInspectable*>(this);
  if (riid == __uuidof(IGraphicsCaptureItemInterop)) return static_cast<IGraphicsCaptureItemInterop*>(this);
  if (riid == IID_IAgileObject) return static_cast<IAgileObject*>(this);
  return nullptr;
}

HRESULT CaptureItemFactory::CreateForWindow(HWND window, REFIID riid, void** result) {
  if (result == nullptr) return E_POINTER;
  *result = nullptr;
  if (HRESULT hr = enter("IGraphicsCaptureItemInterop::CreateForWindow"); hr != S_OK) return hr;
  if (!window::exists(window)) return E_INVALIDARG;
  window::WindowSize size;
  window::sizeOf(window, &size);
  return answerNew(new CaptureItem(window, {size.width, size.height}), riid, result);
}

HRESULT CaptureItemFactory::CreateForMonitor(HMONITOR, REFIID, void** result) {
  if (result == nullptr) return E_POINTER;
  *result = nullptr;
  // Monitors are captured through Desktop Duplication here.
  if (HRESULT hr = enter("IGraphicsCaptureItemInterop::CreateForMonitor"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

}  // namespace platform::wgc
