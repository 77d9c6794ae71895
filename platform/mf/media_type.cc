// Media types: attribute stores that name a format by major type and subtype.
#include "mfapi.h"
#include "mferror.h"
#include "platform/core/call_gate.h"
#include "platform/mf/attributes_object.h"
#include "platform/mf/objects.h"

namespace platform::mf {
namespace {

// Left out of the format-data comparison of IsEqual, as the documentation lists them.
bool outsideFormatData(REFGUID key) {
  return key == MF_MT_USER_DATA || key == MF_MT_FRAME_RATE_RANGE_MIN || key == MF_MT_FRAME_RATE_RANGE_MAX;
}

// The items of the type with fewer of them are all in the other, with equal values. The items
// left out count on neither side.
bool formatDataMatches(AttributeItems a, AttributeItems b) {
  auto leftOut = [](const AttributeItem& item) { return outsideFormatData(item.key); };
  std::erase_if(a, leftOut);
  std::erase_if(b, leftOut);
  const AttributeItems& smaller = a.size() <= b.size() ? a : b;
  const AttributeItems& larger = a.size() <= b.size() ? b : a;
  for (const AttributeItem& item : smaller) {
    const AttributeValue* other = findItem(larger, item.key);
    if (other == nullptr || !(*other == item.value)) return false;
  }
  return true;
}

class MediaType final : public AttributesObject<IMFMediaType> {
 public:
  MediaType() : AttributesObject("IMFMediaType") {}

  HRESULT STDMETHODCALLTYPE GetMajorType(GUID* pguidMajorType) override {
    if (HRESULT hr = enter("IMFMediaType::GetMajorType"); hr != S_OK) return hr;
    if (pguidMajorType == nullptr) return E_POINTER;
    AttributeValue value;
    if (HRESULT hr = attributes().get(MF_MT_MAJOR_TYPE, MF_ATTRIBUTE_GUID, &value); FAILED(hr)) return hr;
    *pguidMajorType = value.guid;
    return S_OK;
  }

  // Temporal compression, as the documentation defines it: everything but a type whose
  // samples are all independent.
  HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* pfCompressed) override {
    if (HRESULT hr = enter("IMFMediaType::IsCompressedFormat"); hr != S_OK) return hr;
    if (pfCompressed == nullptr) return E_POINTER;
    AttributeValue value;
    bool independent = SUCCEEDED(attributes().get(MF_MT_ALL_SAMPLES_INDEPENDENT, MF_ATTRIBUTE_UINT32, &value)) &&
                       value.number != 0;
    *pfCompressed = independent ? FALSE : TRUE;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE IsEqual(IMFMediaType* pIMediaType, DWORD* pdwFlags) override {
    if (HRESULT hr = enter("IMFMediaType::IsEqual"); hr != S_OK) return hr;
    if (pdwFlags == nullptr) return E_POINTER;
    *pdwFlags = 0;
    if (pIMediaType == nullptr) return E_POINTER;
    AttributeItems ours = attributes().items();
    AttributeItems theirs;
    if (HRESULT hr = readItems(pIMediaType, &theirs); FAILED(hr)) return hr;
    const AttributeValue* ourMajor = findItem(ours, MF_MT_MAJOR_TYPE);
    const AttributeValue* theirMajor = findItem(theirs, MF_MT_MAJOR_TYPE);
    if (ourMajor == nullptr || theirMajor == nullptr) return E_INVALIDARG;

    DWORD flags = 0;
    if (*ourMajor == *theirMajor) flags |= MF_MEDIATYPE_EQUAL_MAJOR_TYPES;
    if (sameOrBothAbsent(ours, theirs, MF_MT_SUBTYPE)) flags |= MF_MEDIATYPE_EQUAL_FORMAT_TYPES;
    if (formatDataMatches(ours, theirs)) flags |= MF_MEDIATYPE_EQUAL_FORMAT_DATA;
    if (sameOrBothAbsent(ours, theirs, MF_MT_USER_DATA)) flags |= MF_MEDIATYPE_EQUAL_FORMAT_USER_DATA;
    *pdwFlags = flags;
    constexpr DWORD kAll = MF_MEDIATYPE_EQUAL_MAJOR_TYPES | MF_MEDIATYPE_EQUAL_FORMAT_TYPES |
                           MF_MEDIATYPE_EQUAL_FORMAT_DATA | MF_MEDIATYPE_EQUAL_FORMAT_USER_DATA;
    return flags == kAll ? S_OK : S_FALSE;
  }

  // Format blocks of other frameworks (AM_MEDIA_TYPE and the like) are not served.
  HRESULT STDMETHODCALLTYPE GetRepresentation(GUID, LPVOID* ppvRepresentation) override {
    if (HRESULT hr = enter("IMFMediaType::GetRepresentation"); hr != S_OK) return hr;
    if (ppvRepresentation != nullptr) *ppvRepresentation = nullptr;
    return MF_E_UNSUPPORTED_REPRESENTATION;
  }
  HRESULT STDMETHODCALLTYPE FreeRepresentation(GUID, LPVOID) override {
    if (HRESULT hr = enter("IMFMediaType::FreeRepresentation"); hr != S_OK) return hr;
    return MF_E_UNSUPPORTED_REPRESENTATION;
  }

 private:
  static bool sameOrBothAbsent(const AttributeItems& a, const AttributeItems& b, REFGUID key) {
    const AttributeValue* left = findItem(a, key);
    const AttributeValue* right = findItem(b, key);
    if (left == nullptr || right == nullptr) return left == right;
    return *left == *right;
  }

  void* interfaceFor(REFIID riid) override {
    if (riid == IID_IUnknown || riid == IID_IMFAttributes || riid == IID_IMFMediaType)
      return static_cast<IMFMediaType*>(this);
    return nullptr;
  }
  void releaseResources() override { releaseAttributes(); }
};

}  // namespace

IMFMediaType* newMediaType() {
  IMFMediaType* made = nullptr;
  handOut(new MediaType(), &made);
  return made;
}

}  // namespace platform::mf

HRESULT WINAPI MFCreateMediaType(IMFMediaType** ppMFType) {
  HRESULT planned = platform::plannedHresult("MFCreateMediaType");
  if (ppMFType != nullptr) *ppMFType = nullptr;
  if (planned != S_OK) return planned;
  if (ppMFType == nullptr) return E_INVALIDARG;
  *ppMFType = platform::mf::newMediaType();
  return S_OK;
}
