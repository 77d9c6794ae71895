#include "gpu/cross_adapter_copy.h"

#include <windows.h>

#include "support/failure.h"
#include "support/log.h"

namespace {

// The key says whose turn it is: the source side writes at 0, the destination side reads at 1.
constexpr UINT64 kSourceKey = 0;
constexpr UINT64 kDestinationKey = 1;

constexpr UINT kBindFlags = D3D11_BIND_SHADER_RESOURCE | D3D11_BIND_RENDER_TARGET;
constexpr UINT kSharedMiscFlags = D3D11_RESOURCE_MISC_SHARED_NTHANDLE | D3D11_RESOURCE_MISC_SHARED_KEYEDMUTEX;
constexpr DWORD kSharedAccess = DXGI_SHARED_RESOURCE_READ | DXGI_SHARED_RESOURCE_WRITE;

D3D11_TEXTURE2D_DESC plainDescriptor(const D3D11_TEXTURE2D_DESC& frame, UINT miscFlags) {
  D3D11_TEXTURE2D_DESC desc = frame;
  desc.Usage = D3D11_USAGE_DEFAULT;
  desc.BindFlags = kBindFlags;
  desc.CPUAccessFlags = 0;
  desc.MiscFlags = miscFlags;
  return desc;
}

// AcquireSync answers WAIT_ABANDONED and WAIT_TIMEOUT as success codes; neither gives the key.
bool acquired(HRESULT hr) { return hr == S_OK; }

}  // namespace

CrossAdapterCopy::~CrossAdapterCopy() { releaseResources(); }

void CrossAdapterCopy::releaseResources() {
  if (sharedHandle != nullptr) {
    CloseHandle(sharedHandle);
    sharedHandle = nullptr;
  }
  sharedSource.reset();
  sharedDestination.reset();
  localDestination.reset();
  width = 0;
  height = 0;
  format = 0;
}

bool CrossAdapterCopy::copyToEncodeDevice(ID3D11Texture2D* texture, CountedRef<ID3D11Texture2D>* result) {
  if (texture == nullptr || result == nullptr) return false;
  if (sameDevice) {
    result->share(texture);
    return true;
  }

  D3D11_TEXTURE2D_DESC desc = {};
  texture->GetDesc(&desc);
  if (!ensureSharedTexture(desc)) return false;

  if (!localDestination) {
    D3D11_TEXTURE2D_DESC localDesc = plainDescriptor(desc, 0);
    if (FAILED(destination->device->CreateTexture2D(&localDesc, nullptr, localDestination.put()))) {
      localDestination.reset();
      logError("Cross-adapter local destination texture creation failed");
      return false;
    }
  }

  if (!copyUnderMutex(texture)) return false;
  result->share(localDestination.get());
  return true;
}

// A failed step ends the call at once and leaves the textures as they are. Whoever holds the key
// after that is in doubt: a release that failed leaves it held, and an acquire that failed may or
// may not have taken it. Waiting on that key again could wait for ever, since no other party will
// ever release it. So the textures are condemned instead: the next frame makes a new shared
// texture, whose mutex starts free at key 0, with a new handle and a new local texture. The
// INFINITE waits stay safe because every acquire then meets a key that this thread itself left
// free, and the frame loop keeps reaching its stop check.
bool CrossAdapterCopy::copyUnderMutex(ID3D11Texture2D* texture) {
  CountedRef<IDXGIKeyedMutex> sourceMutex;
  CountedRef<IDXGIKeyedMutex> destinationMutex;
  if (FAILED(sourceMutex.queryFrom(sharedSource.get())) ||
      FAILED(destinationMutex.queryFrom(sharedDestination.get()))) {
    logError("IDXGIKeyedMutex unavailable on cross-adapter texture");
    return false;
  }

  HRESULT hr = sourceMutex->AcquireSync(kSourceKey, INFINITE);
  if (!acquired(hr)) {
    mutexInDoubt = true;
    recordHresultFailure("Cross-adapter source mutex acquire failed", hr);
    return false;
  }
  source->context->CopyResource(sharedSource.get(), texture);
  source->context->Flush();
  hr = sourceMutex->ReleaseSync(kDestinationKey);
  if (FAILED(hr)) {
    mutexInDoubt = true;
    recordHresultFailure("Cross-adapter source mutex release failed", hr);
    return false;
  }

  hr = destinationMutex->AcquireSync(kDestinationKey, INFINITE);
  if (!acquired(hr)) {
    mutexInDoubt = true;
    recordHresultFailure("Cross-adapter destination mutex acquire failed", hr);
    return false;
  }
  destination->context->CopyResource(localDestination.get(), sharedDestination.get());
  destination->context->Flush();
  hr = destinationMutex->ReleaseSync(kSourceKey);
  if (FAILED(hr)) {
    mutexInDoubt = true;
    recordHresultFailure("Cross-adapter destination mutex release failed", hr);
    return false;
  }
  return true;
}

bool CrossAdapterCopy::ensureSharedTexture(const D3D11_TEXTURE2D_DESC& desc) {
  if (sameDevice) return true;
  if (source == nullptr || destination == nullptr) return false;
  if (sharedDestination && !mutexInDoubt && width == desc.Width && height == desc.Height &&
      format == static_cast<uint32_t>(desc.Format)) {
    return true;
  }

  releaseResources();
  mutexInDoubt = false;

  CountedRef<ID3D11Device1> sourceDevice;
  if (FAILED(sourceDevice.queryFrom(source->device.get()))) {
    logError("Cross-adapter copy requires ID3D11Device1 on source adapter");
    return false;
  }
  D3D11_TEXTURE2D_DESC sharedDesc = plainDescriptor(desc, kSharedMiscFlags);
  if (FAILED(sourceDevice->CreateTexture2D(&sharedDesc, nullptr, sharedSource.put()))) {
    releaseResources();
    logError("Cross-adapter shared texture creation failed on source adapter");
    return false;
  }
  sourceDevice.reset();

  CountedRef<IDXGIResource1> resource;
  if (FAILED(resource.queryFrom(sharedSource.get()))) {
    releaseResources();
    logError("QueryInterface IDXGIResource1 failed");
    return false;
  }
  if (FAILED(resource->CreateSharedHandle(nullptr, kSharedAccess, nullptr, &sharedHandle))) {
    sharedHandle = nullptr;
    releaseResources();
    logError("CreateSharedHandle failed for cross-adapter texture");
    return false;
  }
  resource.reset();

  CountedRef<ID3D11Device1> destinationDevice;
  if (FAILED(destinationDevice.queryFrom(destination->device.get()))) {
    releaseResources();
    logError("Cross-adapter copy requires ID3D11Device1 on destination adapter");
    return false;
  }
  if (FAILED(destinationDevice->OpenSharedResource1(sharedHandle, __uuidof(ID3D11Texture2D),
                                                    sharedDestination.putVoid()))) {
    releaseResources();
    logError("OpenSharedResource1 failed for cross-adapter texture");
    return false;
  }

  width = desc.Width;
  height = desc.Height;
  format = static_cast<uint32_t>(desc.Format);
  return true;
}
