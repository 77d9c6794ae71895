#include "platform/core/com_object.h"

#include <deque>
#include <map>
#include <mutex>
#include <string>

#include "d3d11_1.h"
#include "dxgi1_2.h"
#include "inspectable.h"
#include "mfobjects.h"
#include "mftransform.h"
#include "strmif.h"
#include "objidl.h"
#include "platform/control/machine_control.h"
#include "platform/core/call_gate.h"
#include "platform/core/debug_layer.h"
#include "windows.graphics.capture.h"
#include "windows.graphics.capture.interop.h"
#include "windows.graphics.directx.direct3d11.interop.h"

namespace platform {
namespace {

// The last dead shells stay allocated so that a late call through a stale pointer lands on a
// real object; older ones are freed.
constexpr size_t kQuarantinedShells = 4096;

struct Registry {
  std::mutex mutex;
  std::map<std::string, int64_t> live;
  std::deque<ComObject*> quarantine;
};

// Never destroyed: objects may be released while the process exits.
Registry& registry() {
  static Registry* instance = new Registry;
  return *instance;
}

struct NamedInterface {
  const IID* iid;
  const char* queryName;
};

#define NAMED(type) {&IID_##type, "QueryInterface(" #type ")"}
const NamedInterface kInterfaces[] = {
    NAMED(IUnknown),
    NAMED(IInspectable),
    NAMED(IAgileObject),
    NAMED(IMarshal),
    NAMED(IDXGIObject),
    NAMED(IDXGIDeviceSubObject),
    NAMED(IDXGIResource),
    NAMED(IDXGIResource1),
    NAMED(IDXGIKeyedMutex),
    NAMED(IDXGISurface),
    NAMED(IDXGIAdapter),
    NAMED(IDXGIAdapter1),
    NAMED(IDXGIOutput),
    NAMED(IDXGIOutput1),
    NAMED(IDXGIOutputDuplication),
    NAMED(IDXGIFactory),
    NAMED(IDXGIFactory1),
    NAMED(IDXGIDevice),
    NAMED(IDXGIDevice1),
    NAMED(ID3D11DeviceChild),
    NAMED(ID3D11Resource),
    NAMED(ID3D11Texture2D),
    NAMED(ID3D11View),
    NAMED(ID3D11Asynchronous),
    NAMED(ID3D11Query),
    NAMED(ID3D11DeviceContext),
    NAMED(ID3D11DeviceContext1),
    NAMED(ID3D11Device),
    NAMED(ID3D11Device1),
    NAMED(ID3D11VideoDevice),
    NAMED(ID3D11VideoContext),
    NAMED(ID3D11VideoProcessorEnumerator),
    NAMED(ID3D11VideoProcessor),
    NAMED(ID3D11VideoProcessorInputView),
    NAMED(ID3D11VideoProcessorOutputView),
    NAMED(ID3D10Blob),
    NAMED(IMFAttributes),
    NAMED(IMFMediaType),
    NAMED(IMFMediaBuffer),
    NAMED(IMFSample),
    NAMED(IMF2DBuffer),
    NAMED(IMFDXGIBuffer),
    // Windows.Graphics.Capture and its Direct3D interop, declared by uuid in sdk/.
    {&__uuidof(IGraphicsCaptureItemInterop), "QueryInterface(IGraphicsCaptureItemInterop)"},
    {&__uuidof(ABI::Windows::Graphics::Capture::IGraphicsCaptureItem), "QueryInterface(IGraphicsCaptureItem)"},
    {&__uuidof(ABI::Windows::Graphics::Capture::IGraphicsCaptureSession), "QueryInterface(IGraphicsCaptureSession)"},
    {&__uuidof(ABI::Windows::Graphics::Capture::IGraphicsCaptureSession2), "QueryInterface(IGraphicsCaptureSession2)"},
    {&__uuidof(ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool),
     "QueryInterface(IDirect3D11CaptureFramePool)"},
    {&__uuidof(ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePoolStatics),
     "QueryInterface(IDirect3D11CaptureFramePoolStatics)"},
    {&__uuidof(ABI::Windows::Graphics::Capture::IDirect3D11CaptureFrame), "QueryInterface(IDirect3D11CaptureFrame)"},
    {&__uuidof(ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DDevice), "QueryInterface(IDirect3DDevice)"},
    {&__uuidof(ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DSurface), "QueryInterface(IDirect3DSurface)"},
    {&__uuidof(::Windows::Graphics::DirectX::Direct3D11::IDirect3DDxgiInterfaceAccess),
     "QueryInterface(IDirect3DDxgiInterfaceAccess)"},
    {&__uuidof(ABI::Windows::Foundation::IClosable), "QueryInterface(IClosable)"},
    {&__uuidof(__FITypedEventHandler_2_Windows__CGraphics__CCapture__CDirect3D11CaptureFramePool_IInspectable),
     "QueryInterface(ITypedEventHandler<Direct3D11CaptureFramePool, IInspectable>)"},
    NAMED(IMFTransform),
    NAMED(IMFMediaEventGenerator),
    NAMED(IMFMediaEvent),
    NAMED(IMFActivate),
    NAMED(IMFDXGIDeviceManager),
    NAMED(ICodecAPI),
};
#undef NAMED

}  // namespace

const char* queryInterfaceCallName(REFIID riid) {
  for (const NamedInterface& known : kInterfaces)
    if (IsEqualIID(*known.iid, riid)) return known.queryName;
  return "QueryInterface(unknown)";
}

ComObject::ComObject(const char* interfaceName) : objectName(interfaceName) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  ++r.live[objectName];
}

ULONG ComObject::addRef() {
  uint64_t before = counts.fetch_add(1);
  if ((before & kReferenceMask) == 0) firstReference();
  return ULONG((before & kReferenceMask) + 1);
}

ULONG ComObject::release() {
  uint64_t before = counts.load();
  do {
    if ((before & kReferenceMask) == 0) return 0;
  } while (!counts.compare_exchange_weak(before, before - 1));
  uint64_t after = before - 1;
  if ((after & kReferenceMask) == 0) lastReference();
  if (after == 0) destroy();
  return ULONG(after & kReferenceMask);
}

void ComObject::pin() { counts.fetch_add(kPin); }

void ComObject::unpin() {
  if (counts.fetch_sub(kPin) - kPin == 0) destroy();
}

void ComObject::destroy() {
  if (gone.exchange(true)) return;
  releaseResources();
  Registry& r = registry();
  ComObject* freed = nullptr;
  {
    std::lock_guard<std::mutex> lock(r.mutex);
    --r.live[objectName];
    r.quarantine.push_back(this);
    if (r.quarantine.size() > kQuarantinedShells) {
      freed = r.quarantine.front();
      r.quarantine.pop_front();
    }
  }
  delete freed;
}

bool ComObject::callable() const {
  return !gone.load() && (references() > 0 || callableWithoutReferences());
}

void ComObject::releaseViolation(const char* call) {
  debugLayerViolation(std::string(call) + ": called on " + objectName + " after its final Release");
}

HRESULT ComObject::enter(const char* call) {
  if (HRESULT planned = plannedHresult(call); planned != S_OK) return planned;
  if (!callable()) {
    releaseViolation(call);
    return E_POINTER;
  }
  return S_OK;
}

bool ComObject::enterVoid(const char* call) {
  int64_t ignored = 0;
  plannedFault(call, &ignored);  // counted and possibly delayed; there is no result to fail with
  if (!callable()) {
    releaseViolation(call);
    return false;
  }
  return true;
}

HRESULT ComObject::queryInterface(REFIID riid, void** ppvObject) {
  if (ppvObject == nullptr) return E_POINTER;
  *ppvObject = nullptr;
  if (HRESULT hr = enter(queryInterfaceCallName(riid)); hr != S_OK) return hr;
  void* found = interfaceFor(riid);
  if (found == nullptr) return E_NOINTERFACE;
  addRef();
  *ppvObject = found;
  return S_OK;
}

HRESULT ComObject::answerAs(REFIID riid, void** out) {
  *out = nullptr;
  void* found = interfaceFor(riid);
  if (found == nullptr) return E_NOINTERFACE;
  addRef();
  *out = found;
  return S_OK;
}

ULONG ComObject::externalAddRef() {
  if (!callable()) {
    releaseViolation("IUnknown::AddRef");
    return 0;
  }
  return addRef();
}

ULONG ComObject::externalRelease() {
  if (gone.load() || references() == 0) {
    releaseViolation("IUnknown::Release");
    return 0;
  }
  return release();
}

namespace control {

std::map<std::string, int64_t> liveObjects() {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  std::map<std::string, int64_t> result;
  for (const auto& [name, count] : r.live)
    if (count != 0) result.emplace(name, count);
  return result;
}

int64_t liveObjectCount(const std::string& interfaceName) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto found = r.live.find(interfaceName);
  return found == r.live.end() ? 0 : found->second;
}

int64_t totalLiveObjects() {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  int64_t total = 0;
  for (const auto& entry : r.live) total += entry.second;
  return total;
}

}  // namespace control
}  // namespace platform
