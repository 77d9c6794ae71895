// Finding the machine's encoder transforms: MFTEnumEx with its flags and types, the activation
// objects it hands out, and the software encoder's class for CoCreateInstance.
#include <vector>

#include "combaseapi.h"
#include "mfapi.h"
#include "mferror.h"
#include "platform/com/activation.h"
#include "platform/control/machine_control.h"
#include "platform/core/call_gate.h"
#include "platform/mf/attributes_object.h"
#include "platform/mf/transforms.h"
#include "wmcodecdsp.h"
#include "winerror.h"

namespace platform::mf {
namespace {

// Creates its transform on the first ActivateObject and answers with the same one until
// ShutdownObject or DetachObject, as Windows' activation objects do.
class TransformActivate final : public AttributesObject<IMFActivate> {
 public:
  TransformActivate(TransformKind kind, UINT adapter, const wchar_t* friendlyName)
      : AttributesObject("IMFActivate"), kind(kind), adapter(adapter) {
    AttributeValue name;
    name.type = MF_ATTRIBUTE_STRING;
    name.text = friendlyName;
    attributes().set(MFT_FRIENDLY_NAME_Attribute, name);
    if (kind == TransformKind::Hardware) {
      AttributeValue one;
      one.type = MF_ATTRIBUTE_UINT32;
      one.number = 1;
      attributes().set(MF_TRANSFORM_ASYNC, one);
    }
  }

  HRESULT STDMETHODCALLTYPE ActivateObject(REFIID riid, void** ppv) override {
    if (HRESULT hr = enter("IMFActivate::ActivateObject"); hr != S_OK) return hr;
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    if (object == nullptr) object = newH264Transform(kind, adapter);
    return object->QueryInterface(riid, ppv);
  }
  HRESULT STDMETHODCALLTYPE ShutdownObject() override {
    if (HRESULT hr = enter("IMFActivate::ShutdownObject"); hr != S_OK) return hr;
    drop();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE DetachObject() override {
    if (HRESULT hr = enter("IMFActivate::DetachObject"); hr != S_OK) return hr;
    drop();
    return S_OK;
  }

 private:
  void drop() {
    IMFTransform* old = nullptr;
    {
      std::lock_guard<std::mutex> lock(mutex);
      std::swap(old, object);
    }
    if (old != nullptr) old->Release();
  }
  void* interfaceFor(REFIID riid) override {
    if (riid == IID_IUnknown || riid == IID_IMFAttributes || riid == IID_IMFActivate)
      return static_cast<IMFActivate*>(this);
    return nullptr;
  }
  void releaseResources() override {
    drop();
    releaseAttributes();
  }

  const TransformKind kind;
  const UINT adapter;
  std::mutex mutex;
  IMFTransform* object = nullptr;  // one reference, once activated
};

struct Candidate {
  TransformKind kind;
  UINT32 enumFlag;  // the MFT_ENUM_FLAG_ kind that finds it
};

bool matches(const MFT_REGISTER_TYPE_INFO* wanted, const std::vector<GUID>& subtypes) {
  if (wanted == nullptr) return true;
  if (wanted->guidMajorType != GUID{} && wanted->guidMajorType != MFMediaType_Video) return false;
  if (wanted->guidSubtype == GUID{}) return true;
  for (const GUID& subtype : subtypes)
    if (subtype == wanted->guidSubtype) return true;
  return false;
}

// Registered with COM when the platform loads; present or absent per the machine description.
[[maybe_unused]] const bool softwareClassRegistered = [] {
  registerComClass(CLSID_CMSH264EncoderMFT, [](REFIID riid, void** ppv) -> HRESULT {
    if (!control::currentMachine().mfSoftwareClass) return REGDB_E_CLASSNOTREG;
    IMFTransform* made = newH264Transform(TransformKind::SoftwareClass, 0);
    HRESULT hr = made->QueryInterface(riid, ppv);
    made->Release();
    return hr;
  });
  return true;
}();

}  // namespace
}  // namespace platform::mf

HRESULT WINAPI MFTEnumEx(GUID guidCategory, UINT32 Flags, const MFT_REGISTER_TYPE_INFO* pInputType,
                         const MFT_REGISTER_TYPE_INFO* pOutputType, IMFActivate*** pppMFTActivate,
                         UINT32* pnumMFTActivate) {
  using namespace platform::mf;
  HRESULT planned = platform::plannedHresult("MFTEnumEx");
  if (pppMFTActivate != nullptr) *pppMFTActivate = nullptr;
  if (pnumMFTActivate != nullptr) *pnumMFTActivate = 0;
  if (planned != S_OK) return planned;
  if (pppMFTActivate == nullptr || pnumMFTActivate == nullptr) return E_POINTER;
  // No kind named: synchronous, local and sorted, as the documentation gives the default.
  if ((Flags & (MFT_ENUM_FLAG_SYNCMFT | MFT_ENUM_FLAG_ASYNCMFT | MFT_ENUM_FLAG_HARDWARE)) == 0)
    Flags |= MFT_ENUM_FLAG_SYNCMFT | MFT_ENUM_FLAG_LOCALMFT | MFT_ENUM_FLAG_SORTANDFILTER;
  if (guidCategory != MFT_CATEGORY_VIDEO_ENCODER) return S_OK;
  static const std::vector<GUID> inputs = {MFVideoFormat_IYUV, MFVideoFormat_YUY2, MFVideoFormat_NV12};
  static const std::vector<GUID> outputs = {MFVideoFormat_H264};
  if (!matches(pInputType, inputs) || !matches(pOutputType, outputs)) return S_OK;

  platform::control::MachineDescription machine = platform::control::currentMachine();
  // Sorted, hardware comes first, as Windows ranks it above software; then software.
  std::vector<IMFActivate*> found;
  bool hardwareExists = machine.mfHardwareTransform && machine.mfHardwareAdapter < machine.adapters.size();
  if ((Flags & MFT_ENUM_FLAG_HARDWARE) != 0 && hardwareExists) {
    IMFActivate* activate = nullptr;
    platform::handOut(new TransformActivate(TransformKind::Hardware, machine.mfHardwareAdapter, L"H264 Encoder (hardware)"),
                      &activate);
    found.push_back(activate);
  }
  if ((Flags & MFT_ENUM_FLAG_SYNCMFT) != 0 && machine.mfSoftwareTransforms) {
    IMFActivate* activate = nullptr;
    platform::handOut(new TransformActivate(TransformKind::SoftwareEnumerated, 0, L"H264 Encoder (software)"),
                      &activate);
    found.push_back(activate);
  }
  if (found.empty()) return S_OK;
  auto** array = static_cast<IMFActivate**>(CoTaskMemAlloc(sizeof(IMFActivate*) * found.size()));
  if (array == nullptr) {
    for (IMFActivate* activate : found) activate->Release();
    return E_OUTOFMEMORY;
  }
  for (size_t i = 0; i < found.size(); ++i) array[i] = found[i];
  *pppMFTActivate = array;
  *pnumMFTActivate = UINT32(found.size());
  return S_OK;
}
