// MfH264Encoder's input samples, as DXGI surfaces of its own NV12 texture or as CPU buffers of
// tightly packed NV12, and the bounded wait for the GPU.
#include "encoders/mf_h264_encoder.h"

#include <cstring>

#include "gpu/d3d_context.h"

namespace {

constexpr LONGLONG kTicksPerSecond = 10000000;
constexpr int kGpuWaitPolls = 500;

}  // namespace

bool MfH264Encoder::createInputSample(ID3D11Texture2D* texture, CountedRef<IMFSample>& sample) {
  CountedRef<IMFSample> made;
  if (FAILED(MFCreateSample(made.put())) || !made) return false;
  made->SetSampleTime(LONGLONG(sampleIndex * uint64_t(kTicksPerSecond) / fps));
  made->SetSampleDuration(LONGLONG(uint64_t(kTicksPerSecond) / fps));
  if (!(gpuInput ? addGpuBuffer(texture, made.get()) : addCpuBuffer(texture, made.get()))) return false;
  sample = std::move(made);
  return true;
}

bool MfH264Encoder::addGpuBuffer(ID3D11Texture2D* texture, IMFSample* sample) {
  if (d3d == nullptr || !d3d->device || !d3d->context) return false;
  if (!inputTexture) {
    D3D11_TEXTURE2D_DESC desc = nv12TextureDesc(width, height);
    HRESULT hr = d3d->device->CreateTexture2D(&desc, nullptr, inputTexture.put());
    if (FAILED(hr)) {
      logFailureLimited("MF encoder CreateTexture2D NV12 input failed", hr);
      return false;
    }
  }
  d3d->context->CopyResource(inputTexture.get(), texture);
  d3d->context->Flush();
  CountedRef<IMFMediaBuffer> buffer;
  HRESULT hr = MFCreateDXGISurfaceBuffer(__uuidof(ID3D11Texture2D), inputTexture.get(), 0, FALSE, buffer.put());
  if (FAILED(hr)) {
    logFailureLimited("MFCreateDXGISurfaceBuffer failed", hr);
    return false;
  }
  sample->AddBuffer(buffer.get());
  return true;
}

bool MfH264Encoder::addCpuBuffer(ID3D11Texture2D* texture, IMFSample* sample) {
  if (d3d == nullptr || !d3d->device || !d3d->context) return false;
  D3D11_TEXTURE2D_DESC desc = {};
  texture->GetDesc(&desc);
  ID3D11Texture2D* readable = texture;
  CountedRef<ID3D11Texture2D> staging;
  // The frame loop's readback texture can be read as it is; anything else is copied first.
  if (!(desc.Usage == D3D11_USAGE_STAGING && (desc.CPUAccessFlags & D3D11_CPU_ACCESS_READ) != 0)) {
    D3D11_TEXTURE2D_DESC copyDesc = desc;
    copyDesc.Usage = D3D11_USAGE_STAGING;
    copyDesc.BindFlags = 0;
    copyDesc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    copyDesc.MiscFlags = 0;
    if (SUCCEEDED(d3d->device->CreateTexture2D(&copyDesc, nullptr, staging.put())) && staging) {
      d3d->context->CopyResource(staging.get(), texture);
      readable = staging.get();
    }
  }
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  if (FAILED(d3d->context->Map(readable, 0, D3D11_MAP_READ, 0, &mapped))) {
    logFailureLimited("MF encoder failed to map NV12 texture", E_FAIL);
    return false;
  }
  uint32_t size = (width * height * 3) / 2;
  CountedRef<IMFMediaBuffer> buffer;
  if (FAILED(MFCreateMemoryBuffer(size, buffer.put())) || !buffer) {
    d3d->context->Unmap(readable, 0);
    return false;
  }
  BYTE* data = nullptr;
  HRESULT hr = buffer->Lock(&data, nullptr, nullptr);
  if (FAILED(hr)) {
    // The buffer holds nothing of the picture: the frame fails rather than encode garbage.
    d3d->context->Unmap(readable, 0);
    logFailureLimited("MF encoder failed to lock its input buffer", hr);
    return false;
  }
  const auto* source = static_cast<const BYTE*>(mapped.pData);
  for (uint32_t y = 0; y < height; ++y)
    std::memcpy(data + size_t(y) * width, source + size_t(y) * mapped.RowPitch, width);
  for (uint32_t y = 0; y < height / 2; ++y)
    std::memcpy(data + size_t(height + y) * width, source + size_t(height + y) * mapped.RowPitch, width);
  buffer->Unlock();
  buffer->SetCurrentLength(size);
  d3d->context->Unmap(readable, 0);
  sample->AddBuffer(buffer.get());
  return true;
}

void MfH264Encoder::waitForGpu() {
  if (d3d == nullptr || !d3d->device || !d3d->context) return;
  if (!gpuDoneQuery) {
    D3D11_QUERY_DESC desc = {D3D11_QUERY_EVENT, 0};
    if (FAILED(d3d->device->CreateQuery(&desc, gpuDoneQuery.put()))) {
      d3d->context->Flush();
      return;
    }
  }
  d3d->context->End(gpuDoneQuery.get());
  for (int poll = 0; poll < kGpuWaitPolls; ++poll) {
    if (d3d->context->GetData(gpuDoneQuery.get(), nullptr, 0, 0) != S_FALSE) return;
    Sleep(1);
  }
  logFailureLimited("MF GPU wait timed out", E_FAIL);
}
