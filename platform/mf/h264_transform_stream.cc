// The H.264 transform's frame path: input samples in, encoded samples out. The synchronous kinds
// encode inside ProcessInput; the asynchronous one hands the sample to its own thread, which
// raises METransformHaveOutput for the picture and then METransformNeedInput for the next one.
#include <atomic>
#include <cstring>

#include "d3d11.h"
#include "mfapi.h"
#include "mferror.h"
#include "platform/control/mf_control.h"
#include "platform/d3d11/texture.h"
#include "platform/mf/encoder_record.h"
#include "platform/mf/h264_transform.h"
#include "platform/mf/objects.h"

namespace platform::mf {
namespace {

std::atomic<int> streamChangesRequested{0};

bool takeStreamChange() {
  int pending = streamChangesRequested.load();
  while (pending > 0 && !streamChangesRequested.compare_exchange_weak(pending, pending - 1)) {
  }
  return pending > 0;
}

// NV12 rows without padding, read from a texture of the software GPU.
bool readTexture(ID3D11Texture2D* texture, UINT32 width, UINT32 height, std::vector<BYTE>& nv12) {
  d3d11::Texture* own = d3d11::Texture::from(texture);
  if (own == nullptr || !own->layout().nv12 || own->layout().width != width || own->layout().height != height)
    return false;
  d3d11::PixelStore& store = own->store();
  std::lock_guard<std::mutex> pixels(store.mutex);
  nv12.resize(size_t(width) * height * 3 / 2);
  for (UINT32 row = 0; row < height; ++row)
    std::memcpy(nv12.data() + size_t(row) * width, store.bytes.data() + size_t(row) * store.layout.rowPitch, width);
  for (UINT32 row = 0; row < height / 2; ++row)
    std::memcpy(nv12.data() + size_t(height + row) * width,
                store.bytes.data() + store.layout.chromaOffset() + size_t(row) * store.layout.rowPitch, width);
  return true;
}

// Where each NAL unit of Annex B bytes starts (its start code) and where its header byte is.
struct NalPlace {
  size_t code;
  size_t header;
};

std::vector<NalPlace> nalPlaces(const std::vector<BYTE>& annexB) {
  std::vector<NalPlace> places;
  for (size_t i = 0; i + 2 < annexB.size(); ++i) {
    if (annexB[i] == 0 && annexB[i + 1] == 0 && annexB[i + 2] == 1) {
      places.push_back({i > 0 && annexB[i - 1] == 0 ? i - 1 : i, i + 3});
      i += 2;
    }
  }
  return places;
}

// The SPS and PPS units of Annex B bytes, with their start codes; empty if there are none.
std::vector<BYTE> parameterSetsIn(const std::vector<BYTE>& annexB) {
  std::vector<NalPlace> places = nalPlaces(annexB);
  std::vector<BYTE> sets;
  for (size_t k = 0; k < places.size(); ++k) {
    if (places[k].header >= annexB.size()) continue;
    BYTE type = annexB[places[k].header] & 0x1F;
    if (type != 7 && type != 8) continue;
    size_t end = k + 1 < places.size() ? places[k + 1].code : annexB.size();
    sets.insert(sets.end(), annexB.begin() + long(places[k].code), annexB.begin() + long(end));
  }
  return sets;
}

// Annex B to 4-byte big-endian length prefixes.
std::vector<BYTE> lengthPrefixed(const std::vector<BYTE>& annexB) {
  std::vector<NalPlace> places = nalPlaces(annexB);
  std::vector<BYTE> out;
  out.reserve(annexB.size() + places.size());
  for (size_t k = 0; k < places.size(); ++k) {
    size_t end = k + 1 < places.size() ? places[k + 1].code : annexB.size();
    uint32_t length = uint32_t(end - places[k].header);
    BYTE prefix[4] = {BYTE(length >> 24), BYTE(length >> 16), BYTE(length >> 8), BYTE(length)};
    out.insert(out.end(), prefix, prefix + 4);
    out.insert(out.end(), annexB.begin() + long(places[k].header), annexB.begin() + long(end));
  }
  return out;
}

}  // namespace

void H264Transform::frame(std::vector<BYTE>& bytes) const {
  if (kind == TransformKind::SoftwareEnumerated) bytes = lengthPrefixed(bytes);
}

HRESULT H264Transform::readPicture(IMFSample* sample, const PictureTarget& target, std::vector<BYTE>& nv12) const {
  std::vector<IMFMediaBuffer*> buffers = buffersOf(sample);
  HRESULT hr = S_OK;
  size_t expected = size_t(target.width) * target.height * 3 / 2;
  if (buffers.empty()) {
    hr = E_INVALIDARG;
  } else if (async() && surfaceOf(buffers[0]) != nullptr) {
    // The hardware encoder reaches the texture as a D3D-aware transform does, through the
    // buffer's IMFDXGIBuffer, and reads only textures of the device its manager holds.
    IMFDXGIBuffer* dxgi = nullptr;
    ID3D11Texture2D* texture = nullptr;
    hr = buffers[0]->QueryInterface(IID_IMFDXGIBuffer, reinterpret_cast<void**>(&dxgi));
    if (SUCCEEDED(hr)) hr = dxgi->GetResource(IID_ID3D11Texture2D, reinterpret_cast<void**>(&texture));
    if (SUCCEEDED(hr)) {
      ID3D11Device* device = nullptr;
      texture->GetDevice(&device);
      if (device == nullptr || device != target.device) hr = E_INVALIDARG;
      if (device != nullptr) device->Release();
    }
    if (SUCCEEDED(hr) && !readTexture(texture, target.width, target.height, nv12)) hr = E_INVALIDARG;
    if (texture != nullptr) texture->Release();
    if (dxgi != nullptr) dxgi->Release();
  } else if (IUnknown* surface = surfaceOf(buffers[0])) {
    if (!readTexture(static_cast<ID3D11Texture2D*>(surface), target.width, target.height, nv12)) hr = E_INVALIDARG;
  } else if (!readValidBytes(buffers[0], nv12) || nv12.size() < expected) {
    hr = E_INVALIDARG;
  }
  for (IMFMediaBuffer* buffer : buffers) buffer->Release();
  return hr;
}

// Runs with `mutex` held.
HRESULT H264Transform::encodePicture(IMFSample* sample, const std::vector<BYTE>& nv12, EncodedOutput& output) {
  if (!codec) {
    video::H264EncoderSettings settings;
    settings.width = int(format.width);
    settings.height = int(format.height);
    UINT32 fps = format.rateNumerator / format.rateDenominator;
    settings.fps = fps == 0 ? 1 : int(fps);
    settings.bitrate = int(format.bitrate);
    // The transform's default spacing: one key frame every two seconds.
    settings.idrInterval = format.keyFrameSpacing != 0 ? int(format.keyFrameSpacing) : settings.fps * 2;
    codec = std::make_unique<video::H264Encoder>();
    if (!codec->open(settings)) {
      codec.reset();
      return E_FAIL;
    }
  }
  if (keyFramePending) codec->requestKeyFrame();
  keyFramePending = false;
  video::Nv12Picture picture;
  picture.width = int(format.width);
  picture.height = int(format.height);
  picture.luma = nv12.data();
  picture.lumaPitch = format.width;
  picture.chroma = nv12.data() + size_t(format.width) * format.height;
  picture.chromaPitch = format.width;
  bool keyFrame = false;
  if (!codec->encode(picture, output.bytes, keyFrame)) return E_FAIL;
  if (keyFrame) parameterSets = parameterSetsIn(output.bytes);
  // A machine whose driver loses its slices: the parameter sets come, the picture doesn't.
  if (slicelessAfter != 0 && ++picturesEncoded > slicelessAfter) output.bytes = parameterSets;
  frame(output.bytes);
  output.timed = timesOf(sample, &output.time, &output.duration);
  return S_OK;
}

HRESULT H264Transform::ProcessInput(DWORD dwInputStreamID, IMFSample* pSample, DWORD dwFlags) {
  if (HRESULT gated = enter("IMFTransform::ProcessInput"); gated != S_OK) return gated;
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwInputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if (pSample == nullptr) return E_POINTER;
  if (dwFlags != 0) return E_INVALIDARG;
  std::unique_lock<std::mutex> lock(mutex);
  if (inputType == nullptr || outputType == nullptr) return MF_E_TRANSFORM_TYPE_NOT_SET;
  if (!async()) {
    // One picture at a time: its output has to be fetched before the next goes in.
    if (!outputs.empty() || draining) return MF_E_NOTACCEPTING;
    EncodedOutput output;
    std::vector<BYTE> nv12;
    HRESULT hr = readPicture(pSample, pictureTarget(), nv12);
    if (SUCCEEDED(hr)) hr = encodePicture(pSample, nv12, output);
    if (FAILED(hr)) return hr;
    outputs.push_back(std::move(output));
    recordInputSample(pSample);
    return S_OK;
  }
  if (managerDevice == nullptr) return MF_E_DXGI_DEVICE_NOT_INITIALIZED;
  // Input only against a METransformNeedInput that hasn't been answered yet.
  if (credits == 0 || draining) return MF_E_NOTACCEPTING;
  --credits;
  pSample->AddRef();
  inputs.push_back(pSample);
  recordInputSample(pSample);
  lock.unlock();
  workArrived.notify_all();
  return S_OK;
}

HRESULT H264Transform::deliver(MFT_OUTPUT_DATA_BUFFER& buffer, EncodedOutput& output) {
  if (async()) {
    // Provides its samples: the caller passes none.
    if (buffer.pSample != nullptr) return E_INVALIDARG;
    IMFSample* sample = newSample();
    IMFMediaBuffer* media = newMemoryBuffer(DWORD(output.bytes.size()));
    writeValidBytes(media, output.bytes.data(), output.bytes.size());
    sample->AddBuffer(media);
    media->Release();
    if (output.timed) setTimes(sample, output.time, output.duration);
    buffer.pSample = sample;
    return S_OK;
  }
  if (buffer.pSample == nullptr) return E_INVALIDARG;
  std::vector<IMFMediaBuffer*> buffers = buffersOf(buffer.pSample);
  HRESULT hr = buffers.empty() ? E_INVALIDARG : writeValidBytes(buffers[0], output.bytes.data(), output.bytes.size());
  for (IMFMediaBuffer* media : buffers) media->Release();
  if (SUCCEEDED(hr) && output.timed) setTimes(buffer.pSample, output.time, output.duration);
  return hr;
}

HRESULT H264Transform::ProcessOutput(DWORD dwFlags, DWORD cOutputBufferCount, MFT_OUTPUT_DATA_BUFFER* pOutputSamples,
                                     DWORD* pdwStatus) {
  if (HRESULT gated = enter("IMFTransform::ProcessOutput"); gated != S_OK) return gated;
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (pOutputSamples == nullptr || pdwStatus == nullptr) return E_POINTER;
  if (cOutputBufferCount != 1 || (dwFlags & ~DWORD(MFT_PROCESS_OUTPUT_DISCARD_WHEN_NO_BUFFER)) != 0)
    return E_INVALIDARG;
  if (pOutputSamples[0].dwStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  *pdwStatus = 0;
  pOutputSamples[0].dwStatus = 0;
  std::lock_guard<std::mutex> lock(mutex);
  if (outputType == nullptr) return MF_E_TRANSFORM_TYPE_NOT_SET;
  if (outputs.empty()) {
    // Asynchronous: output is fetched only against a METransformHaveOutput.
    return async() ? E_UNEXPECTED : MF_E_TRANSFORM_NEED_MORE_INPUT;
  }
  if (takeStreamChange()) {
    IMFMediaType* old = outputType;
    outputType = nullptr;
    old->Release();
    pOutputSamples[0].dwStatus = MFT_OUTPUT_DATA_BUFFER_FORMAT_CHANGE;
    announceAfterTypeSet = async();
    return MF_E_TRANSFORM_STREAM_CHANGE;
  }
  if (HRESULT hr = deliver(pOutputSamples[0], outputs.front()); FAILED(hr)) return hr;
  outputs.pop_front();
  if (!async() && draining && outputs.empty()) draining = false;
  return S_OK;
}

// The asynchronous kind asks for its first picture when the stream starts.
void H264Transform::startOfStream() {
  if (!async()) return;
  startWorker();
  std::lock_guard<std::mutex> lock(mutex);
  draining = false;
  if (credits == 0 && inputs.empty()) {
    credits = 1;
    events.queue(METransformNeedInput);
  }
}

// No latency: every picture taken is out already, or will be once the thread has encoded it.
void H264Transform::drain() {
  std::unique_lock<std::mutex> lock(mutex);
  if (!async()) {
    draining = !outputs.empty();
    return;
  }
  draining = true;
  credits = 0;
  lock.unlock();
  workArrived.notify_all();
}

void H264Transform::flush() {
  std::vector<IMFSample*> dropped;
  {
    std::lock_guard<std::mutex> lock(mutex);
    outputs.clear();
    dropped.assign(inputs.begin(), inputs.end());
    inputs.clear();
    credits = 0;
    draining = false;
    ++flushes;
  }
  for (IMFSample* sample : dropped) sample->Release();
}

void H264Transform::startWorker() {
  std::lock_guard<std::mutex> lock(mutex);
  if (worker.joinable()) return;
  stopping = false;
  worker = std::thread([this] { work(); });
}

void H264Transform::stopWorker() {
  {
    std::lock_guard<std::mutex> lock(mutex);
    stopping = true;
  }
  workArrived.notify_all();
  if (worker.joinable()) worker.join();
  std::lock_guard<std::mutex> lock(mutex);
  for (IMFSample* sample : inputs) sample->Release();
  inputs.clear();
}

void H264Transform::work() {
  std::unique_lock<std::mutex> lock(mutex);
  for (;;) {
    workArrived.wait(lock, [&] { return stopping || !inputs.empty() || draining; });
    if (stopping) return;
    if (inputs.empty()) {
      // Draining with nothing left: done, and no new input is asked for.
      draining = false;
      events.queue(METransformDrainComplete);
      continue;
    }
    IMFSample* sample = inputs.front();
    inputs.pop_front();
    // The picture comes off the GPU without the lock, as hardware reads it beside its caller:
    // ProcessInput, ProcessOutput and the events don't wait for it.
    const PictureTarget target = pictureTarget();
    const UINT64 flushesBefore = flushes;
    lock.unlock();
    std::vector<BYTE> nv12;
    HRESULT hr = readPicture(sample, target, nv12);
    lock.lock();
    if (stopping || flushes != flushesBefore) {
      sample->Release();
      continue;  // flushed or stopping meanwhile: the picture goes with the rest
    }
    // A type set while the picture was read makes it the wrong size.
    if (SUCCEEDED(hr) && (target.width != format.width || target.height != format.height)) hr = E_INVALIDARG;
    EncodedOutput output;
    if (SUCCEEDED(hr)) hr = encodePicture(sample, nv12, output);
    sample->Release();
    if (FAILED(hr)) {
      events.queue(MEError, hr);
      continue;
    }
    outputs.push_back(std::move(output));
    events.queue(METransformHaveOutput);
    if (!draining) {
      ++credits;
      events.queue(METransformNeedInput);
    }
  }
}

}  // namespace platform::mf

namespace platform::control {

void requestMfStreamChange() { ++mf::streamChangesRequested; }

}  // namespace platform::control
