// HSTRINGs: immutable strings that either own a copy of their text or, as fast-pass string
// references, point at the caller's text from a header in the caller's storage.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "platform/com/string_text.h"
#include "platform/control/com_control.h"
#include "platform/core/call_gate.h"
#include "winstring.h"

namespace platform {
namespace {

constexpr uint32_t kReference = 1;

// What an HSTRING points at. For a reference it lives in the caller's HSTRING_HEADER; for a
// created string it heads the allocation that also holds the text.
struct StringHeader {
  uint32_t flags;
  UINT32 length;
  PCWSTR text;
};
static_assert(sizeof(StringHeader) <= sizeof(HSTRING_HEADER), "a reference's header must fit the caller's");

std::atomic<int64_t> liveStrings{0};

StringHeader* headerOf(HSTRING string) { return reinterpret_cast<StringHeader*>(string); }

}  // namespace

std::wstring stringText(HSTRING string) {
  if (string == nullptr) return std::wstring();
  const StringHeader* header = headerOf(string);
  return std::wstring(header->text, header->length);
}

namespace control {

int64_t liveStringCount() { return liveStrings.load(); }

}  // namespace control
}  // namespace platform

HRESULT WINAPI WindowsCreateString(LPCWSTR sourceString, UINT32 length, HSTRING* string) {
  HRESULT planned = platform::plannedHresult("WindowsCreateString");
  if (string != nullptr) *string = nullptr;
  if (planned != S_OK) return planned;
  if (string == nullptr) return E_INVALIDARG;
  if (sourceString == nullptr && length != 0) return E_POINTER;
  if (length == 0) return S_OK;  // the null HSTRING is the empty string
  size_t bytes = sizeof(platform::StringHeader) + (size_t(length) + 1) * sizeof(WCHAR);
  auto* header = static_cast<platform::StringHeader*>(std::malloc(bytes));
  if (header == nullptr) return E_OUTOFMEMORY;
  auto* text = reinterpret_cast<WCHAR*>(header + 1);
  std::memcpy(text, sourceString, size_t(length) * sizeof(WCHAR));
  text[length] = L'\0';
  *header = {0, length, text};
  ++platform::liveStrings;
  *string = reinterpret_cast<HSTRING>(header);
  return S_OK;
}

HRESULT WINAPI WindowsCreateStringReference(PCWSTR sourceString, UINT32 length, HSTRING_HEADER* hstringHeader,
                                            HSTRING* string) {
  HRESULT planned = platform::plannedHresult("WindowsCreateStringReference");
  if (string != nullptr) *string = nullptr;
  if (planned != S_OK) return planned;
  if (string == nullptr || hstringHeader == nullptr) return E_INVALIDARG;
  if (sourceString == nullptr && length != 0) return E_POINTER;
  if (length == 0) return S_OK;
  // The text is used in place, so it must already end where an HSTRING's text ends.
  if (sourceString[length] != L'\0') return E_INVALIDARG;
  auto* header = reinterpret_cast<platform::StringHeader*>(hstringHeader);
  *header = {platform::kReference, length, sourceString};
  *string = reinterpret_cast<HSTRING>(header);
  return S_OK;
}

HRESULT WINAPI WindowsDeleteString(HSTRING string) {
  if (HRESULT planned = platform::plannedHresult("WindowsDeleteString"); planned != S_OK) return planned;
  if (string == nullptr) return S_OK;
  platform::StringHeader* header = platform::headerOf(string);
  if ((header->flags & platform::kReference) != 0) return S_OK;  // the caller owns a reference's storage
  std::free(header);
  --platform::liveStrings;
  return S_OK;
}

PCWSTR WINAPI WindowsGetStringRawBuffer(HSTRING string, UINT32* length) {
  int64_t value = 0;
  if (platform::plannedFault("WindowsGetStringRawBuffer", &value)) {
    if (length != nullptr) *length = 0;
    return reinterpret_cast<PCWSTR>(value);
  }
  if (string == nullptr) {
    if (length != nullptr) *length = 0;
    return L"";
  }
  const platform::StringHeader* header = platform::headerOf(string);
  if (length != nullptr) *length = header->length;
  return header->text;
}
