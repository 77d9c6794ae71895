// The duplication's IDXGIObject face, its description, and what it tells of a frame beside the
// image: no dirty or move rectangles are kept, the pointer's shape never changes, and the image
// lives in video memory.
#include "platform/desktop/output_duplication.h"

namespace platform::desktop {

HRESULT OutputDuplication::SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) {
  if (HRESULT hr = enter("IDXGIObject::SetPrivateData"); hr != S_OK) return hr;
  return privateData.set(Name, DataSize, pData);
}

HRESULT OutputDuplication::SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) {
  if (HRESULT hr = enter("IDXGIObject::SetPrivateDataInterface"); hr != S_OK) return hr;
  return privateData.setInterface(Name, pUnknown);
}

HRESULT OutputDuplication::GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) {
  if (HRESULT hr = enter("IDXGIObject::GetPrivateData"); hr != S_OK) return hr;
  return privateData.get(Name, pDataSize, pData);
}

HRESULT OutputDuplication::GetParent(REFIID riid, void** ppParent) {
  if (ppParent != nullptr) *ppParent = nullptr;
  if (HRESULT hr = enter("IDXGIObject::GetParent"); hr != S_OK) return hr;
  if (ppParent == nullptr) return DXGI_ERROR_INVALID_CALL;
  return output->answerAs(riid, ppParent);
}

void OutputDuplication::GetDesc(DXGI_OUTDUPL_DESC* pDesc) {
  if (!enterVoid("IDXGIOutputDuplication::GetDesc") || pDesc == nullptr) return;
  *pDesc = {};
  pDesc->ModeDesc.Width = width;
  pDesc->ModeDesc.Height = height;
  pDesc->ModeDesc.RefreshRate = {desktop->refreshRate, 1};
  pDesc->ModeDesc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  pDesc->ModeDesc.ScanlineOrdering = DXGI_MODE_SCANLINE_ORDER_PROGRESSIVE;
  pDesc->Rotation = DXGI_MODE_ROTATION_IDENTITY;
  pDesc->DesktopImageInSystemMemory = FALSE;
}

HRESULT OutputDuplication::GetFrameDirtyRects(UINT, RECT*, UINT* pDirtyRectsBufferSizeRequired) {
  if (HRESULT hr = enter("IDXGIOutputDuplication::GetFrameDirtyRects"); hr != S_OK) return hr;
  if (pDirtyRectsBufferSizeRequired == nullptr) return E_INVALIDARG;
  std::lock_guard<std::mutex> call(callMutex);
  if (!held) return DXGI_ERROR_INVALID_CALL;
  *pDirtyRectsBufferSizeRequired = 0;  // the whole image counts as new; no rectangles are kept
  return S_OK;
}

HRESULT OutputDuplication::GetFrameMoveRects(UINT, DXGI_OUTDUPL_MOVE_RECT*, UINT* pMoveRectsBufferSizeRequired) {
  if (HRESULT hr = enter("IDXGIOutputDuplication::GetFrameMoveRects"); hr != S_OK) return hr;
  if (pMoveRectsBufferSizeRequired == nullptr) return E_INVALIDARG;
  std::lock_guard<std::mutex> call(callMutex);
  if (!held) return DXGI_ERROR_INVALID_CALL;
  *pMoveRectsBufferSizeRequired = 0;
  return S_OK;
}

HRESULT OutputDuplication::GetFramePointerShape(UINT, void*, UINT* pPointerShapeBufferSizeRequired,
                                                DXGI_OUTDUPL_POINTER_SHAPE_INFO* pPointerShapeInfo) {
  if (HRESULT hr = enter("IDXGIOutputDuplication::GetFramePointerShape"); hr != S_OK) return hr;
  if (pPointerShapeBufferSizeRequired == nullptr || pPointerShapeInfo == nullptr) return E_INVALIDARG;
  std::lock_guard<std::mutex> call(callMutex);
  if (!held) return DXGI_ERROR_INVALID_CALL;
  *pPointerShapeBufferSizeRequired = 0;  // the shape never changes, so no frame carries one
  *pPointerShapeInfo = {};
  return S_OK;
}

HRESULT OutputDuplication::MapDesktopSurface(DXGI_MAPPED_RECT*) {
  if (HRESULT hr = enter("IDXGIOutputDuplication::MapDesktopSurface"); hr != S_OK) return hr;
  return DXGI_ERROR_UNSUPPORTED;  // the image is in video memory (DesktopImageInSystemMemory is FALSE)
}

HRESULT OutputDuplication::UnMapDesktopSurface() {
  if (HRESULT hr = enter("IDXGIOutputDuplication::UnMapDesktopSurface"); hr != S_OK) return hr;
  return DXGI_ERROR_INVALID_CALL;
}

}  // namespace platform::desktop
