// MfH264Encoder's frame path for synchronous transforms, and what both paths share: the key-frame
// request, fetching one output, and the failure log limited to one line a second.
#include "encoders/mf_h264_encoder.h"

#include <codecapi.h>
#include <mferror.h>
#include <oleauto.h>
#include <strmif.h>

#include "rtp/annexb.h"
#include "support/failure.h"
#include "support/log.h"

namespace {

// A drain polls "nothing ready yet" at most this often before giving the picture up.
constexpr uint32_t kDrainRounds = 32;
// One picture gives one output, or a few; a transform that keeps giving must not trap the worker.
constexpr uint32_t kMaxDrainOutputs = 16;
// ProcessInput refused this often, with a discarding drain between, ends the picture.
constexpr uint32_t kInputRounds = 16;
// The search for a new output type after a stream change ends at MF_E_NO_MORE_TYPES or an
// accepted type; the cap keeps a transform that fails every index from holding the frame.
constexpr DWORD kMaxStreamChangeTypes = 64;
constexpr ULONGLONG kFailureLogIntervalMs = 1000;

// True when the bytes added from `from` on hold a four-byte start code before an IDR slice.
bool hasIdrBehindFourByteStartCode(const std::vector<uint8_t>& bytes, size_t from) {
  size_t added = bytes.size() - from;
  if (added <= 4) return false;
  const uint8_t* data = bytes.data() + from;
  for (size_t p = 0; p + 4 < added; ++p) {
    if (data[p] == 0 && data[p + 1] == 0 && data[p + 2] == 0 && data[p + 3] == 1 && (data[p + 4] & 0x1F) == 5)
      return true;
  }
  return false;
}

}  // namespace

bool MfH264Encoder::encode(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame) {
  if (!transform || texture == nullptr || out == nullptr) return false;
  out->clear();
  if (keyFrame != nullptr) *keyFrame = false;
  return eventDriven ? encodeEventDriven(texture, out, keyFrame) : encodeDirect(texture, out, keyFrame);
}

bool MfH264Encoder::encodeDirect(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame) {
  heldSample.reset();
  CountedRef<IMFSample> sample;
  if (!createInputSample(texture, sample)) return false;
  ++sampleIndex;
  applyKeyFrameRequest();
  if (!feedInput(sample.get())) return false;
  heldSample = std::move(sample);
  drainOutput(out, keyFrame);
  waitForGpu();
  heldSample.reset();
  return true;
}

void MfH264Encoder::drainOutput(std::vector<uint8_t>* out, bool* keyFrame) {
  uint32_t count = 0;
  for (uint32_t outputs = 0;;) {
    HRESULT hr = S_OK;
    if (pullOutput(out, keyFrame, true, &hr)) {
      count = 1;
      if (++outputs < kMaxDrainOutputs) continue;
      logFailureLimited("MF output drain stopped: the transform keeps giving output", E_UNEXPECTED);
      return;
    }
    if (hr == MF_E_TRANSFORM_NEED_MORE_INPUT) return;
    if (hr == E_UNEXPECTED) {
      waitForGpu();
      Sleep(1);
      if (++count < kDrainRounds) continue;
      return;
    }
    if (FAILED(hr)) logFailureLimited("MF ProcessOutput failed", hr);
    return;
  }
}

bool MfH264Encoder::feedInput(IMFSample* sample) {
  for (uint32_t round = 0; round < kInputRounds; ++round) {
    HRESULT hr = transform->ProcessInput(0, sample, 0);
    if (SUCCEEDED(hr)) return true;
    if (hr != MF_E_NOTACCEPTING) {
      logFailureLimited("MF ProcessInput failed", hr);
      return false;
    }
    // The transform wants its output fetched first: the pictures it had ready are lost to make
    // room for this one.
    drainOutput(nullptr, nullptr);
    waitForGpu();
  }
  logFailureLimited("MF ProcessInput still not accepting after draining output", MF_E_NOTACCEPTING);
  return false;
}

void MfH264Encoder::applyKeyFrameRequest() {
  if (!keyFramePending || !transform) return;
  CountedRef<ICodecAPI> codecApi;
  // By its IID: the SDK's strmif.h gives ICodecAPI no __uuidof.
  if (SUCCEEDED(transform->QueryInterface(IID_ICodecAPI, codecApi.putVoid())) && codecApi) {
    // VT_UI4 is the documented type of this setting; encoders that ship with Windows refuse
    // VT_BOOL for it.
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_UI4;
    value.ulVal = 1;
    codecApi->SetValue(&CODECAPI_AVEncVideoForceKeyFrame, &value);
  }
  keyFramePending = false;
}

bool MfH264Encoder::pullOutput(std::vector<uint8_t>* out, bool* keyFrame, bool append, HRESULT* hr) {
  HRESULT ignored = S_OK;
  if (hr == nullptr) hr = &ignored;
  if (!transform) {
    *hr = E_FAIL;
    return false;
  }
  size_t before = out != nullptr ? out->size() : 0;
  if (out != nullptr && keyFrame != nullptr && !append) *keyFrame = false;

  MFT_OUTPUT_DATA_BUFFER buffer = {};
  CountedRef<IMFSample> ownSample;
  CountedRef<IMFMediaBuffer> ownBuffer;
  if (!transformProvidesSamples) {
    MFCreateSample(ownSample.put());
    MFCreateMemoryBuffer(outputBufferSize, ownBuffer.put());
    if (ownSample && ownBuffer) ownSample->AddBuffer(ownBuffer.get());
    buffer.pSample = ownSample.get();
  }
  DWORD status = 0;
  *hr = transform->ProcessOutput(0, 1, &buffer, &status);
  // A sample the transform provided is ours to release, whatever happens below.
  CountedRef<IMFSample> provided;
  if (transformProvidesSamples && buffer.pSample != nullptr) provided = CountedRef<IMFSample>::adopt(buffer.pSample);
  if (buffer.pEvents != nullptr) buffer.pEvents->Release();

  if (*hr == MF_E_TRANSFORM_NEED_MORE_INPUT) return false;
  if (*hr == MF_E_TRANSFORM_STREAM_CHANGE) {
    logInfo("MF output stream changed, reconfiguring output type");
    reconfigureOutputAfterStreamChange();
    return false;
  }
  if (FAILED(*hr)) return false;
  if (out == nullptr) return true;

  CountedRef<IMFMediaBuffer> readable;
  if (transformProvidesSamples) {
    if (provided && FAILED(provided->ConvertToContiguousBuffer(readable.put()))) {
      logFailureLimited("MF ConvertToContiguousBuffer failed", E_FAIL);
      readable.reset();
    }
  } else {
    readable = ownBuffer;
  }
  BYTE* data = nullptr;
  DWORD length = 0;
  if (readable && SUCCEEDED(readable->Lock(&data, nullptr, &length))) {
    std::vector<uint8_t> normalized;
    normalizeToAnnexB(data, length, normalized);
    out->insert(out->end(), normalized.begin(), normalized.end());
    readable->Unlock();
  }
  if (keyFrame != nullptr && out->size() > before && !*keyFrame)
    *keyFrame = hasIdrBehindFourByteStartCode(*out, before);
  return out->size() > before;
}

// The type is taken as offered: the transform knows the stream it now makes.
void MfH264Encoder::reconfigureOutputAfterStreamChange() {
  for (DWORD index = 0; index < kMaxStreamChangeTypes; ++index) {
    CountedRef<IMFMediaType> type;
    HRESULT hr = transform->GetOutputAvailableType(0, index, type.put());
    if (hr == MF_E_NO_MORE_TYPES) return;
    if (FAILED(hr) || !type) continue;
    if (SUCCEEDED(transform->SetOutputType(0, type.get(), 0))) return;
  }
}

void MfH264Encoder::logFailureLimited(const char* text, HRESULT hr) {
  ULONGLONG now = GetTickCount64();
  if (now < lastFailureLogTick + kFailureLogIntervalMs) return;
  recordHresultFailure(text, hr);
  lastFailureLogTick = now;
}
