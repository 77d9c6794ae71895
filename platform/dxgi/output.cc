// A DXGI output: one monitor of an adapter, placed on the virtual desktop.
#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "platform/desktop/output_duplication.h"
#include "platform/dxgi/dxgi_objects.h"

namespace platform::dxgi {
namespace {

bool listedFormat(DXGI_FORMAT format) {
  return format == DXGI_FORMAT_B8G8R8A8_UNORM || format == DXGI_FORMAT_B8G8R8A8_UNORM_SRGB ||
         format == DXGI_FORMAT_R8G8B8A8_UNORM || format == DXGI_FORMAT_R8G8B8A8_UNORM_SRGB;
}

}  // namespace

Output::Output(Adapter* adapter, UINT index) : ComObject("IDXGIOutput1"), parent(adapter), outputIndex(index) {}

void* Output::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IDXGIObject || riid == IID_IDXGIOutput || riid == IID_IDXGIOutput1)
    return static_cast<IDXGIOutput1*>(this);
  return nullptr;
}

void Output::releaseResources() {
  privateData.clear();
  parent.reset();
}

const control::OutputDescription& Output::description() const {
  return parent->description().outputs[outputIndex];
}

UINT Output::desktopNumber() const {
  UINT number = outputIndex;
  const auto& adapters = machineSnapshot().machine.adapters;
  for (UINT i = 0; i < parent->index() && i < adapters.size(); ++i) number += UINT(adapters[i].outputs.size());
  return number;
}

HRESULT Output::SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) {
  if (HRESULT hr = enter("IDXGIObject::SetPrivateData"); hr != S_OK) return hr;
  return privateData.set(Name, DataSize, pData);
}

HRESULT Output::SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) {
  if (HRESULT hr = enter("IDXGIObject::SetPrivateDataInterface"); hr != S_OK) return hr;
  return privateData.setInterface(Name, pUnknown);
}

HRESULT Output::GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) {
  if (HRESULT hr = enter("IDXGIObject::GetPrivateData"); hr != S_OK) return hr;
  return privateData.get(Name, pDataSize, pData);
}

HRESULT Output::GetParent(REFIID riid, void** ppParent) {
  if (ppParent != nullptr) *ppParent = nullptr;
  if (HRESULT hr = enter("IDXGIObject::GetParent"); hr != S_OK) return hr;
  if (ppParent == nullptr) return DXGI_ERROR_INVALID_CALL;
  return parent->answerAs(riid, ppParent);
}

HRESULT Output::GetDesc(DXGI_OUTPUT_DESC* pDesc) {
  if (HRESULT hr = enter("IDXGIOutput::GetDesc"); hr != S_OK) return hr;
  if (pDesc == nullptr) return E_INVALIDARG;
  *pDesc = {};
  const control::OutputDescription& output = description();
  std::wstring name = L"\\\\.\\DISPLAY" + std::to_wstring(desktopNumber() + 1);
  name.copy(pDesc->DeviceName, std::size(pDesc->DeviceName) - 1);
  DXGI_MODE_DESC mode = currentMode();
  pDesc->DesktopCoordinates = {output.left, output.top, output.left + LONG(mode.Width), output.top + LONG(mode.Height)};
  pDesc->AttachedToDesktop = TRUE;
  pDesc->Rotation = DXGI_MODE_ROTATION_IDENTITY;
  pDesc->Monitor = reinterpret_cast<HMONITOR>(uintptr_t(0x10000 + desktopNumber()));
  return S_OK;
}

DXGI_MODE_DESC Output::currentMode() const {
  const control::OutputDescription& output = description();
  DXGI_MODE_DESC mode{};
  mode.Width = UINT(output.width);
  mode.Height = UINT(output.height);
  desktop::changedMode(desktopNumber(), mode.Width, mode.Height);
  mode.RefreshRate = {kRefreshNumerator, 1};
  mode.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  mode.ScanlineOrdering = DXGI_MODE_SCANLINE_ORDER_PROGRESSIVE;
  mode.Scaling = DXGI_MODE_SCALING_UNSPECIFIED;
  return mode;
}

// The output offers its current mode only, in the 8-bit RGB formats a desktop takes. Both
// GetDisplayModeList calls answer through this, with the count protocol of the SDK.
namespace {

template <class Mode, class Fill>
HRESULT listModes(DXGI_FORMAT format, UINT* count, Mode* modes, Fill fill) {
  if (count == nullptr) return DXGI_ERROR_INVALID_CALL;
  UINT available = listedFormat(format) ? 1 : 0;
  if (modes == nullptr) {
    *count = available;
    return S_OK;
  }
  if (*count < available) {
    *count = available;
    return DXGI_ERROR_MORE_DATA;
  }
  *count = available;
  if (available == 1) fill(modes);
  return S_OK;
}

}  // namespace

HRESULT Output::GetDisplayModeList(DXGI_FORMAT EnumFormat, UINT, UINT* pNumModes, DXGI_MODE_DESC* pDesc) {
  if (HRESULT hr = enter("IDXGIOutput::GetDisplayModeList"); hr != S_OK) return hr;
  return listModes(EnumFormat, pNumModes, pDesc, [&](DXGI_MODE_DESC* mode) {
    *mode = currentMode();
    mode->Format = EnumFormat;
  });
}

HRESULT Output::FindClosestMatchingMode(const DXGI_MODE_DESC* pModeToMatch, DXGI_MODE_DESC* pClosestMatch,
                                        IUnknown* pConcernedDevice) {
  if (HRESULT hr = enter("IDXGIOutput::FindClosestMatchingMode"); hr != S_OK) return hr;
  if (pModeToMatch == nullptr || pClosestMatch == nullptr) return DXGI_ERROR_INVALID_CALL;
  if (pModeToMatch->Format == DXGI_FORMAT_UNKNOWN && pConcernedDevice == nullptr) return DXGI_ERROR_INVALID_CALL;
  *pClosestMatch = currentMode();
  if (listedFormat(pModeToMatch->Format)) pClosestMatch->Format = pModeToMatch->Format;
  return S_OK;
}

HRESULT Output::WaitForVBlank() {
  if (HRESULT hr = enter("IDXGIOutput::WaitForVBlank"); hr != S_OK) return hr;
  using namespace std::chrono;
  auto period = nanoseconds(1000000000 / kRefreshNumerator);
  auto now = steady_clock::now().time_since_epoch();
  std::this_thread::sleep_for(period - now % period);
  return S_OK;
}

HRESULT Output::TakeOwnership(IUnknown*, BOOL) {
  if (HRESULT hr = enter("IDXGIOutput::TakeOwnership"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

void Output::ReleaseOwnership() { enterVoid("IDXGIOutput::ReleaseOwnership"); }

HRESULT Output::GetGammaControlCapabilities(DXGI_GAMMA_CONTROL_CAPABILITIES*) {
  if (HRESULT hr = enter("IDXGIOutput::GetGammaControlCapabilities"); hr != S_OK) return hr;
  return DXGI_ERROR_INVALID_CALL;  // only a full-screen swap chain's output has gamma control
}

HRESULT Output::SetGammaControl(const DXGI_GAMMA_CONTROL*) {
  if (HRESULT hr = enter("IDXGIOutput::SetGammaControl"); hr != S_OK) return hr;
  return DXGI_ERROR_INVALID_CALL;
}

HRESULT Output::GetGammaControl(DXGI_GAMMA_CONTROL*) {
  if (HRESULT hr = enter("IDXGIOutput::GetGammaControl"); hr != S_OK) return hr;
  return DXGI_ERROR_INVALID_CALL;
}

HRESULT Output::SetDisplaySurface(IDXGISurface*) {
  if (HRESULT hr = enter("IDXGIOutput::SetDisplaySurface"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT Output::GetDisplaySurfaceData(IDXGISurface*) {
  if (HRESULT hr = enter("IDXGIOutput::GetDisplaySurfaceData"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT Output::GetFrameStatistics(DXGI_FRAME_STATISTICS*) {
  if (HRESULT hr = enter("IDXGIOutput::GetFrameStatistics"); hr != S_OK) return hr;
  return DXGI_ERROR_INVALID_CALL;
}

HRESULT Output::GetDisplayModeList1(DXGI_FORMAT EnumFormat, UINT, UINT* pNumModes, DXGI_MODE_DESC1* pDesc) {
  if (HRESULT hr = enter("IDXGIOutput1::GetDisplayModeList1"); hr != S_OK) return hr;
  return listModes(EnumFormat, pNumModes, pDesc, [&](DXGI_MODE_DESC1* mode) {
    DXGI_MODE_DESC current = currentMode();
    *mode = {current.Width, current.Height, current.RefreshRate, EnumFormat, current.ScanlineOrdering,
             current.Scaling, FALSE};
  });
}

HRESULT Output::FindClosestMatchingMode1(const DXGI_MODE_DESC1* pModeToMatch, DXGI_MODE_DESC1* pClosestMatch,
                                         IUnknown*) {
  if (HRESULT hr = enter("IDXGIOutput1::FindClosestMatchingMode1"); hr != S_OK) return hr;
  if (pModeToMatch == nullptr || pClosestMatch == nullptr) return DXGI_ERROR_INVALID_CALL;
  DXGI_MODE_DESC mode = currentMode();
  *pClosestMatch = {mode.Width, mode.Height, mode.RefreshRate, mode.Format, mode.ScanlineOrdering, mode.Scaling, FALSE};
  if (listedFormat(pModeToMatch->Format)) pClosestMatch->Format = pModeToMatch->Format;
  return S_OK;
}

HRESULT Output::GetDisplaySurfaceData1(IDXGIResource*) {
  if (HRESULT hr = enter("IDXGIOutput1::GetDisplaySurfaceData1"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT Output::DuplicateOutput(IUnknown* pDevice, IDXGIOutputDuplication** ppOutputDuplication) {
  if (ppOutputDuplication != nullptr) *ppOutputDuplication = nullptr;
  if (HRESULT hr = enter("IDXGIOutput1::DuplicateOutput"); hr != S_OK) return hr;
  if (pDevice == nullptr || ppOutputDuplication == nullptr) return E_INVALIDARG;
  return desktop::duplicateOutput(this, pDevice, ppOutputDuplication);
}

}  // namespace platform::dxgi
