// Samples: an attribute store with a time, a duration, flags and an ordered list of buffers.
#include <cstring>
#include <utility>
#include <mutex>
#include <optional>
#include <vector>

#include "mfapi.h"
#include "mferror.h"
#include "platform/core/call_gate.h"
#include "platform/mf/attributes_object.h"
#include "platform/mf/objects.h"

namespace platform::mf {
namespace {

// Appends the valid bytes of `buffer` to `target`.
HRESULT appendBytes(IMFMediaBuffer* buffer, std::vector<BYTE>* target) {
  BYTE* data = nullptr;
  DWORD length = 0;
  if (HRESULT hr = buffer->Lock(&data, nullptr, &length); FAILED(hr)) return hr;
  target->insert(target->end(), data, data + length);
  return buffer->Unlock();
}

class Sample final : public AttributesObject<IMFSample> {
 public:
  Sample() : AttributesObject("IMFSample") {}

  HRESULT STDMETHODCALLTYPE GetSampleFlags(DWORD* pdwSampleFlags) override {
    if (HRESULT hr = enter("IMFSample::GetSampleFlags"); hr != S_OK) return hr;
    if (pdwSampleFlags == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex);
    *pdwSampleFlags = flags;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetSampleFlags(DWORD dwSampleFlags) override {
    if (HRESULT hr = enter("IMFSample::SetSampleFlags"); hr != S_OK) return hr;
    std::lock_guard<std::mutex> lock(mutex);
    flags = dwSampleFlags;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetSampleTime(LONGLONG* phnsSampleTime) override {
    if (HRESULT hr = enter("IMFSample::GetSampleTime"); hr != S_OK) return hr;
    return read(time, phnsSampleTime, MF_E_NO_SAMPLE_TIMESTAMP);
  }
  HRESULT STDMETHODCALLTYPE SetSampleTime(LONGLONG hnsSampleTime) override {
    if (HRESULT hr = enter("IMFSample::SetSampleTime"); hr != S_OK) return hr;
    std::lock_guard<std::mutex> lock(mutex);
    time = hnsSampleTime;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetSampleDuration(LONGLONG* phnsSampleDuration) override {
    if (HRESULT hr = enter("IMFSample::GetSampleDuration"); hr != S_OK) return hr;
    return read(duration, phnsSampleDuration, MF_E_NO_SAMPLE_DURATION);
  }
  HRESULT STDMETHODCALLTYPE SetSampleDuration(LONGLONG hnsSampleDuration) override {
    if (HRESULT hr = enter("IMFSample::SetSampleDuration"); hr != S_OK) return hr;
    std::lock_guard<std::mutex> lock(mutex);
    duration = hnsSampleDuration;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetBufferCount(DWORD* pdwBufferCount) override {
    if (HRESULT hr = enter("IMFSample::GetBufferCount"); hr != S_OK) return hr;
    if (pdwBufferCount == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex);
    *pdwBufferCount = DWORD(buffers.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetBufferByIndex(DWORD dwIndex, IMFMediaBuffer** ppBuffer) override {
    if (HRESULT hr = enter("IMFSample::GetBufferByIndex"); hr != S_OK) return hr;
    if (ppBuffer == nullptr) return E_POINTER;
    *ppBuffer = nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    if (dwIndex >= buffers.size()) return E_INVALIDARG;
    buffers[dwIndex]->AddRef();
    *ppBuffer = buffers[dwIndex];
    return S_OK;
  }

  // One buffer is handed out as it is; several are copied into one new buffer that then
  // replaces them all.
  HRESULT STDMETHODCALLTYPE ConvertToContiguousBuffer(IMFMediaBuffer** ppBuffer) override {
    if (HRESULT hr = enter("IMFSample::ConvertToContiguousBuffer"); hr != S_OK) return hr;
    if (ppBuffer == nullptr) return E_POINTER;
    *ppBuffer = nullptr;
    std::vector<IMFMediaBuffer*> old = takeBuffers();
    if (old.empty()) return E_UNEXPECTED;
    if (old.size() == 1) {
      old[0]->AddRef();
      *ppBuffer = old[0];
      putBack(std::move(old));
      return S_OK;
    }
    std::vector<BYTE> joined;
    for (IMFMediaBuffer* buffer : old) {
      if (HRESULT hr = appendBytes(buffer, &joined); FAILED(hr)) {
        putBack(std::move(old));
        return hr;
      }
    }
    IMFMediaBuffer* contiguous = newMemoryBuffer(DWORD(joined.size()));
    BYTE* data = nullptr;
    if (HRESULT hr = contiguous->Lock(&data, nullptr, nullptr); FAILED(hr)) {
      contiguous->Release();
      putBack(std::move(old));
      return hr;
    }
    if (!joined.empty()) std::memcpy(data, joined.data(), joined.size());
    contiguous->Unlock();
    contiguous->SetCurrentLength(DWORD(joined.size()));
    for (IMFMediaBuffer* buffer : old) buffer->Release();
    contiguous->AddRef();
    putBack({contiguous});
    *ppBuffer = contiguous;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE AddBuffer(IMFMediaBuffer* pBuffer) override {
    if (HRESULT hr = enter("IMFSample::AddBuffer"); hr != S_OK) return hr;
    if (pBuffer == nullptr) return E_POINTER;
    pBuffer->AddRef();
    std::lock_guard<std::mutex> lock(mutex);
    buffers.push_back(pBuffer);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE RemoveBufferByIndex(DWORD dwIndex) override {
    if (HRESULT hr = enter("IMFSample::RemoveBufferByIndex"); hr != S_OK) return hr;
    IMFMediaBuffer* removed = nullptr;
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (dwIndex >= buffers.size()) return E_INVALIDARG;
      removed = buffers[dwIndex];
      buffers.erase(buffers.begin() + dwIndex);
    }
    removed->Release();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE RemoveAllBuffers() override {
    if (HRESULT hr = enter("IMFSample::RemoveAllBuffers"); hr != S_OK) return hr;
    for (IMFMediaBuffer* buffer : takeBuffers()) buffer->Release();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetTotalLength(DWORD* pcbTotalLength) override {
    if (HRESULT hr = enter("IMFSample::GetTotalLength"); hr != S_OK) return hr;
    if (pcbTotalLength == nullptr) return E_POINTER;
    *pcbTotalLength = 0;
    for (IMFMediaBuffer* buffer : copyBuffers()) {
      DWORD length = 0;
      HRESULT hr = buffer->GetCurrentLength(&length);
      buffer->Release();
      if (FAILED(hr)) return hr;
      *pcbTotalLength += length;
    }
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE CopyToBuffer(IMFMediaBuffer* pBuffer) override {
    if (HRESULT hr = enter("IMFSample::CopyToBuffer"); hr != S_OK) return hr;
    if (pBuffer == nullptr) return E_POINTER;
    std::vector<BYTE> joined;
    HRESULT hr = S_OK;
    for (IMFMediaBuffer* buffer : copyBuffers()) {
      if (SUCCEEDED(hr)) hr = appendBytes(buffer, &joined);
      buffer->Release();
    }
    if (FAILED(hr)) return hr;
    BYTE* data = nullptr;
    DWORD maxLength = 0;
    if (hr = pBuffer->Lock(&data, &maxLength, nullptr); FAILED(hr)) return hr;
    if (maxLength < joined.size()) {
      pBuffer->Unlock();
      return MF_E_BUFFERTOOSMALL;
    }
    if (!joined.empty()) std::memcpy(data, joined.data(), joined.size());
    pBuffer->Unlock();
    return pBuffer->SetCurrentLength(DWORD(joined.size()));
  }

  std::vector<IMFMediaBuffer*> buffersForPlatform() { return copyBuffers(); }
  bool times(LONGLONG* t, LONGLONG* d) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!time || !duration) return false;
    *t = *time;
    *d = *duration;
    return true;
  }
  void setTimes(LONGLONG t, LONGLONG d) {
    std::lock_guard<std::mutex> lock(mutex);
    time = t;
    duration = d;
  }

 private:
  HRESULT read(const std::optional<LONGLONG>& value, LONGLONG* out, HRESULT absent) {
    if (out == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex);
    if (!value) return absent;
    *out = *value;
    return S_OK;
  }

  // Buffers are called outside the sample's lock: a buffer may be any implementation.
  std::vector<IMFMediaBuffer*> takeBuffers() {
    std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(buffers, {});
  }
  void putBack(std::vector<IMFMediaBuffer*> taken) {
    std::lock_guard<std::mutex> lock(mutex);
    buffers.insert(buffers.begin(), taken.begin(), taken.end());
  }
  // A reference of its own to each buffer, for the caller to release.
  std::vector<IMFMediaBuffer*> copyBuffers() {
    std::lock_guard<std::mutex> lock(mutex);
    for (IMFMediaBuffer* buffer : buffers) buffer->AddRef();
    return buffers;
  }

  void* interfaceFor(REFIID riid) override {
    if (riid == IID_IUnknown || riid == IID_IMFAttributes || riid == IID_IMFSample)
      return static_cast<IMFSample*>(this);
    return nullptr;
  }
  void releaseResources() override {
    for (IMFMediaBuffer* buffer : takeBuffers()) buffer->Release();
    releaseAttributes();
  }

  std::mutex mutex;
  std::vector<IMFMediaBuffer*> buffers;  // one reference each
  std::optional<LONGLONG> time;
  std::optional<LONGLONG> duration;
  DWORD flags = 0;
};

}  // namespace

std::vector<IMFMediaBuffer*> buffersOf(IMFSample* sample) {
  auto* own = dynamic_cast<Sample*>(sample);
  return own == nullptr ? std::vector<IMFMediaBuffer*>() : own->buffersForPlatform();
}

bool timesOf(IMFSample* sample, LONGLONG* time, LONGLONG* duration) {
  auto* own = dynamic_cast<Sample*>(sample);
  return own != nullptr && own->times(time, duration);
}

void setTimes(IMFSample* sample, LONGLONG time, LONGLONG duration) {
  if (auto* own = dynamic_cast<Sample*>(sample)) own->setTimes(time, duration);
}

IMFSample* newSample() {
  IMFSample* made = nullptr;
  handOut(new Sample(), &made);
  return made;
}

}  // namespace platform::mf

HRESULT WINAPI MFCreateSample(IMFSample** ppIMFSample) {
  HRESULT planned = platform::plannedHresult("MFCreateSample");
  if (ppIMFSample != nullptr) *ppIMFSample = nullptr;
  if (planned != S_OK) return planned;
  if (ppIMFSample == nullptr) return E_POINTER;
  *ppIMFSample = platform::mf::newSample();
  return S_OK;
}
