// The plain attribute store that MFCreateAttributes makes.
#include "mfapi.h"
#include "platform/core/call_gate.h"
#include "platform/mf/attributes_object.h"
#include "platform/mf/objects.h"

namespace platform::mf {
namespace {

class Attributes final : public AttributesObject<IMFAttributes> {
 public:
  Attributes() : AttributesObject("IMFAttributes") {}

 private:
  void* interfaceFor(REFIID riid) override {
    if (riid == IID_IUnknown || riid == IID_IMFAttributes) return static_cast<IMFAttributes*>(this);
    return nullptr;
  }
  void releaseResources() override { releaseAttributes(); }
};

}  // namespace

IMFAttributes* newAttributes() {
  IMFAttributes* made = nullptr;
  handOut(new Attributes(), &made);
  return made;
}

AttributeStore* storeOf(IMFAttributes* object) {
  if (object == nullptr) return nullptr;
  if (auto* store = dynamic_cast<AttributesObject<IMFAttributes>*>(object)) return &store->attributes();
  if (auto* type = dynamic_cast<AttributesObject<IMFMediaType>*>(object)) return &type->attributes();
  if (auto* sample = dynamic_cast<AttributesObject<IMFSample>*>(object)) return &sample->attributes();
  if (auto* event = dynamic_cast<AttributesObject<IMFMediaEvent>*>(object)) return &event->attributes();
  if (auto* activate = dynamic_cast<AttributesObject<IMFActivate>*>(object)) return &activate->attributes();
  return nullptr;
}

}  // namespace platform::mf

// cInitialSize only sizes the first allocation; the store grows as items come.
HRESULT WINAPI MFCreateAttributes(IMFAttributes** ppMFAttributes, UINT32 cInitialSize) {
  (void)cInitialSize;
  HRESULT planned = platform::plannedHresult("MFCreateAttributes");
  if (ppMFAttributes != nullptr) *ppMFAttributes = nullptr;
  if (planned != S_OK) return planned;
  if (ppMFAttributes == nullptr) return E_POINTER;
  *ppMFAttributes = platform::mf::newAttributes();
  return S_OK;
}
