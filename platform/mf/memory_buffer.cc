#include "platform/mf/objects.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "mfapi.h"
#include "mferror.h"
#include "platform/core/call_gate.h"
#include "platform/core/com_object.h"

namespace platform::mf {
namespace {

class MemoryBuffer final : public ComObject, public IMFMediaBuffer {
 public:
  explicit MemoryBuffer(DWORD maxLength) : ComObject("IMFMediaBuffer"), bytes(maxLength) {}
  PLATFORM_IUNKNOWN_METHODS

  // Locks nest; the memory stays where it is, so every Lock gives the same pointer.
  HRESULT STDMETHODCALLTYPE Lock(BYTE** ppbBuffer, DWORD* pcbMaxLength, DWORD* pcbCurrentLength) override {
    if (HRESULT hr = enter("IMFMediaBuffer::Lock"); hr != S_OK) return hr;
    if (ppbBuffer == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex);
    ++locks;
    *ppbBuffer = bytes.data();
    if (pcbMaxLength != nullptr) *pcbMaxLength = DWORD(bytes.size());
    if (pcbCurrentLength != nullptr) *pcbCurrentLength = currentLength;
    return S_OK;
  }

  // The documentation calls an Unlock without a Lock an error; it is refused.
  HRESULT STDMETHODCALLTYPE Unlock() override {
    if (HRESULT hr = enter("IMFMediaBuffer::Unlock"); hr != S_OK) return hr;
    std::lock_guard<std::mutex> lock(mutex);
    if (locks == 0) return MF_E_INVALIDREQUEST;
    --locks;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetCurrentLength(DWORD* pcbCurrentLength) override {
    if (HRESULT hr = enter("IMFMediaBuffer::GetCurrentLength"); hr != S_OK) return hr;
    if (pcbCurrentLength == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex);
    *pcbCurrentLength = currentLength;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE SetCurrentLength(DWORD cbCurrentLength) override {
    if (HRESULT hr = enter("IMFMediaBuffer::SetCurrentLength"); hr != S_OK) return hr;
    std::lock_guard<std::mutex> lock(mutex);
    if (cbCurrentLength > bytes.size()) return E_INVALIDARG;
    currentLength = cbCurrentLength;
    return S_OK;
  }

  bool read(std::vector<BYTE>& out) {
    std::lock_guard<std::mutex> lock(mutex);
    out.assign(bytes.begin(), bytes.begin() + currentLength);
    return true;
  }
  HRESULT write(const BYTE* data, size_t size) {
    std::lock_guard<std::mutex> lock(mutex);
    if (size > bytes.size()) return MF_E_BUFFERTOOSMALL;
    if (size > 0) std::copy(data, data + size, bytes.begin());
    currentLength = DWORD(size);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetMaxLength(DWORD* pcbMaxLength) override {
    if (HRESULT hr = enter("IMFMediaBuffer::GetMaxLength"); hr != S_OK) return hr;
    if (pcbMaxLength == nullptr) return E_POINTER;
    *pcbMaxLength = DWORD(bytes.size());
    return S_OK;
  }

 private:
  void* interfaceFor(REFIID riid) override {
    if (riid == IID_IUnknown || riid == IID_IMFMediaBuffer) return static_cast<IMFMediaBuffer*>(this);
    return nullptr;
  }
  void releaseResources() override { std::vector<BYTE>().swap(bytes); }

  std::mutex mutex;
  std::vector<BYTE> bytes;  // zeroed, so that unwritten bytes read the same on every run
  DWORD currentLength = 0;
  int locks = 0;
};

}  // namespace

IMFMediaBuffer* newMemoryBuffer(DWORD maxLength) {
  IMFMediaBuffer* buffer = nullptr;
  handOut(new MemoryBuffer(maxLength), &buffer);
  return buffer;
}

bool readValidBytes(IMFMediaBuffer* buffer, std::vector<BYTE>& out) {
  auto* own = dynamic_cast<MemoryBuffer*>(buffer);
  return own != nullptr && own->read(out);
}

HRESULT writeValidBytes(IMFMediaBuffer* buffer, const BYTE* data, size_t size) {
  auto* own = dynamic_cast<MemoryBuffer*>(buffer);
  return own == nullptr ? E_INVALIDARG : own->write(data, size);
}

}  // namespace platform::mf

HRESULT WINAPI MFCreateMemoryBuffer(DWORD cbMaxLength, IMFMediaBuffer** ppBuffer) {
  HRESULT planned = platform::plannedHresult("MFCreateMemoryBuffer");
  if (ppBuffer != nullptr) *ppBuffer = nullptr;
  if (planned != S_OK) return planned;
  if (ppBuffer == nullptr) return E_POINTER;
  *ppBuffer = platform::mf::newMemoryBuffer(cbMaxLength);
  return S_OK;
}
