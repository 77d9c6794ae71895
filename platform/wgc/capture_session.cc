#include "platform/wgc/capture_session.h"

#include <atomic>
#include <utility>

#include "platform/control/window_control.h"

namespace platform::wgc {
namespace {

// Captures that started with the pointer in their frames, for tests that the pointer is left out.
std::atomic<uint64_t> startedWithCursor{0};

}  // namespace

CaptureSession::CaptureSession(CaptureFramePool* pool, CaptureItem* item)
    : ComObject("IGraphicsCaptureSession"), pool(pool), item(item) {
  pool->addRef();
  item->addRef();
}

void* CaptureSession::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IInspectable || riid == __uuidof(IGraphicsCaptureSession))
    return static_cast<IGraphicsCaptureSession*>(this);
  if (riid == __uuidof(IGraphicsCaptureSession2)) return static_cast<IGraphicsCaptureSession2*>(this);
  if (riid == __uuidof(IClosable)) return static_cast<IClosable*>(this);
  if (riid == IID_IAgileObject) return static_cast<IAgileObject*>(this);
  return nullptr;
}

HRESULT CaptureSession::StartCapture() {
  if (HRESULT hr = enter("IGraphicsCaptureSession::StartCapture"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> lock(mutex);
  if (pool == nullptr || pool->core()->closed()) return RO_E_CLOSED;
  if (started) return E_ILLEGAL_METHOD_CALL;
  std::unique_ptr<window::CaptureTarget> target = window::openTarget(item->window());
  // A window that has gone by now gives a session that captures nothing, as a closed item does.
  if (target != nullptr && !pool->core()->startCapture(std::move(target), pool)) return RO_E_CLOSED;
  started = true;
  if (cursorCaptureEnabled) startedWithCursor.fetch_add(1);
  return S_OK;
}

HRESULT CaptureSession::get_IsCursorCaptureEnabled(boolean* value) {
  if (value == nullptr) return E_POINTER;
  if (HRESULT hr = enter("IGraphicsCaptureSession2::get_IsCursorCaptureEnabled"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> lock(mutex);
  if (pool == nullptr) return RO_E_CLOSED;
  *value = cursorCaptureEnabled;
  return S_OK;
}

HRESULT CaptureSession::put_IsCursorCaptureEnabled(boolean value) {
  if (HRESULT hr = enter("IGraphicsCaptureSession2::put_IsCursorCaptureEnabled"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> lock(mutex);
  if (pool == nullptr) return RO_E_CLOSED;
  cursorCaptureEnabled = value != 0;
  return S_OK;
}

void CaptureSession::releaseResources() {
  CaptureFramePool* heldPool = nullptr;
  CaptureItem* heldItem = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex);
    heldPool = std::exchange(pool, nullptr);
    heldItem = std::exchange(item, nullptr);
  }
  if (heldPool != nullptr) {
    heldPool->core()->stopCapture();
    heldPool->release();
  }
  if (heldItem != nullptr) heldItem->release();
}

void CaptureSession::lastReference() { releaseResources(); }

HRESULT CaptureSession::Close() {
  if (HRESULT hr = enter("IClosable::Close"); hr != S_OK) return hr;
  releaseResources();
  return S_OK;
}

}  // namespace platform::wgc

namespace platform::control {

uint64_t capturesStartedWithCursor() { return wgc::startedWithCursor.load(); }

}  // namespace platform::control
