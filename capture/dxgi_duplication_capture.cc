#include "capture/dxgi_duplication_capture.h"

#include <algorithm>

#include "gpu/d3d_context.h"
#include "session/start_options.h"
#include "support/failure.h"
#include "support/log.h"
#include "support/performance_time.h"

DxgiDuplicationCapture::~DxgiDuplicationCapture() {
  // The duplication goes before the texture; a held frame dies with the duplication.
  duplication.reset();
  stagingTexture.reset();
}

bool DxgiDuplicationCapture::init(D3DContext* context, const StartOptions& options) {
  d3d = context;
  if (options.captureKind != CaptureKind::Screen) {
    logError("DXGI capture requires monitor target");
    return false;
  }
  outputIndex = d3d->outputIndex;
  return createDuplication(d3d, outputIndex);
}

uint32_t DxgiDuplicationCapture::acquireTimeoutFor(uint32_t fps) {
  uint32_t rate = std::max<uint32_t>(fps, 1);
  // 64-bit so that the rounding up can't wrap for the largest rates.
  uint64_t frameMs = (uint64_t(rate) + 999) / rate;
  return std::max<uint32_t>(1, uint32_t(frameMs / 2));
}

void DxgiDuplicationCapture::setFrameRate(uint32_t fps) { acquireTimeoutMs = acquireTimeoutFor(fps); }

bool DxgiDuplicationCapture::createDuplication(D3DContext* context, uint32_t index) {
  if (context == nullptr || !context->device) return false;
  CountedRef<IDXGIDevice> dxgiDevice;
  if (FAILED(dxgiDevice.queryFrom(context->device.get()))) {
    logError("QueryInterface IDXGIDevice failed");
    return false;
  }
  CountedRef<IDXGIAdapter> adapter;
  if (FAILED(dxgiDevice->GetAdapter(adapter.put()))) {
    logError("GetAdapter failed");
    return false;
  }
  CountedRef<IDXGIOutput> output;
  if (FAILED(adapter->EnumOutputs(index, output.put()))) {
    logError("EnumOutputs failed");
    return false;
  }
  CountedRef<IDXGIOutput1> output1;
  if (FAILED(output1.queryFrom(output.get()))) {
    logError("QueryInterface IDXGIOutput1 failed");
    return false;
  }
  duplication.reset();
  HRESULT hr = output1->DuplicateOutput(context->device.get(), duplication.put());
  if (FAILED(hr)) {
    duplication.reset();
    recordHresultFailure("DuplicateOutput failed", hr);
    return false;
  }
  duplicationDesc = {};
  duplication->GetDesc(&duplicationDesc);
  return true;
}

void DxgiDuplicationCapture::giveBackFrame() {
  duplication->ReleaseFrame();
  frameHeld = false;
}

bool DxgiDuplicationCapture::stagingFits(const D3D11_TEXTURE2D_DESC& frame) const {
  if (!stagingTexture) return false;
  if (frame.Width != duplicationDesc.ModeDesc.Width || frame.Height != duplicationDesc.ModeDesc.Height) return false;
  D3D11_TEXTURE2D_DESC own{};
  stagingTexture->GetDesc(&own);
  return own.Width == frame.Width && own.Height == frame.Height && own.Format == frame.Format &&
         own.MipLevels == frame.MipLevels && own.ArraySize == frame.ArraySize;
}

bool DxgiDuplicationCapture::acquireFrame(CountedRef<ID3D11Texture2D>& texture, int64_t& timestamp) {
  if (!duplication || d3d == nullptr) return false;
  if (frameHeld) giveBackFrame();

  DXGI_OUTDUPL_FRAME_INFO info{};
  CountedRef<IDXGIResource> resource;
  HRESULT hr = duplication->AcquireNextFrame(acquireTimeoutMs, &info, resource.put());
  if (hr == DXGI_ERROR_WAIT_TIMEOUT) return false;
  if (hr == DXGI_ERROR_ACCESS_LOST) {
    // One immediate re-opening; if it fails the source stays dead.
    duplication.reset();
    createDuplication(d3d, outputIndex);
    return false;
  }
  if (FAILED(hr)) return false;
  frameHeld = true;

  CountedRef<ID3D11Texture2D> frame;
  if (FAILED(frame.queryFrom(resource.get()))) {
    giveBackFrame();
    return false;
  }
  D3D11_TEXTURE2D_DESC desc{};
  frame->GetDesc(&desc);

  if (!stagingFits(desc)) {
    stagingTexture.reset();
    D3D11_TEXTURE2D_DESC stagingDesc = desc;
    // Default usage, not staging: the copy stays on the GPU for the scaler.
    stagingDesc.Usage = D3D11_USAGE_DEFAULT;
    stagingDesc.BindFlags = 0;
    stagingDesc.CPUAccessFlags = 0;
    stagingDesc.MiscFlags = 0;
    if (FAILED(d3d->device->CreateTexture2D(&stagingDesc, nullptr, stagingTexture.put()))) {
      stagingTexture.reset();
      giveBackFrame();
      logError("CreateTexture2D staging failed");
      return false;
    }
  }

  d3d->context->CopyResource(stagingTexture.get(), frame.get());
  texture.share(stagingTexture.get());
  // The present time is in performance-counter ticks; the frame loop schedules in 100 ns ticks.
  // 0 (only the pointer moved) stays 0.
  timestamp = performanceCounterTo100ns(info.LastPresentTime.QuadPart);
  return true;
}

void DxgiDuplicationCapture::releaseFrame() {
  if (frameHeld && duplication) giveBackFrame();
}
