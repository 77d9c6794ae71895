// MfH264Encoder's frame path for an asynchronous hardware transform: its events are polled with
// MF_EVENT_FLAG_NO_WAIT, input goes in against METransformNeedInput and output comes out against
// METransformHaveOutput, all within fixed bounds.
#include "encoders/mf_h264_encoder.h"

#include <mferror.h>


namespace {

constexpr DWORD kEventWaitMs = 5000;
constexpr int kEventsPerPump = 8;

}  // namespace

bool MfH264Encoder::encodeEventDriven(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame) {
  heldSample.reset();
  CountedRef<IMFSample> sample;
  if (!createInputSample(texture, sample)) return false;
  ++sampleIndex;
  applyKeyFrameRequest();
  bool needInput = false;
  pumpEvents(out, keyFrame, false, needInput);  // what queued up since the last picture
  if (!waitForNeedInput()) {
    logFailureLimited("MF timeout waiting for NeedInput", E_FAIL);
    return false;
  }
  HRESULT hr = transform->ProcessInput(0, sample.get(), 0);
  if (FAILED(hr)) {
    // Refused for want of a credit: the one we counted wasn't the transform's.
    if (hr == MF_E_NOTACCEPTING) needInputCredits = 0;
    logFailureLimited("MF ProcessInput failed", hr);
    return false;
  }
  --needInputCredits;
  heldSample = std::move(sample);

  DWORD start = GetTickCount();
  while (DWORD(GetTickCount() - start) < kEventWaitMs) {
    bool pumped = pumpEvents(out, keyFrame, true, needInput);
    if (pumped && needInput) break;  // the transform has moved on to the next picture
    if (pumped) continue;
    waitForGpu();
    Sleep(1);
  }
  waitForGpu();
  heldSample.reset();
  return true;
}

bool MfH264Encoder::pumpEvents(std::vector<uint8_t>* out, bool* keyFrame, bool append, bool& needInput) {
  needInput = false;
  if (!transform) return false;
  CountedRef<IMFMediaEventGenerator> generator;
  if (FAILED(generator.queryFrom(transform.get())) || !generator) return false;
  bool result = false;
  for (int round = 0; round < kEventsPerPump; ++round) {
    CountedRef<IMFMediaEvent> event;
    HRESULT hr = generator->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.put());
    if (hr == MF_E_NO_EVENTS_AVAILABLE) return result;
    if (FAILED(hr) || !event) {
      logFailureLimited("MF GetEvent failed", hr);
      return false;
    }
    MediaEventType type = MEUnknown;
    event->GetType(&type);
    if (type == MEError) {
      logFailureLimited("MF transform reported MEError", E_FAIL);
      return false;
    }
    if (type == METransformHaveOutput) {
      HRESULT pulled = S_OK;
      if (pullOutput(out, keyFrame, append, &pulled)) {
        result = true;
        append = true;
      } else if (FAILED(pulled) && pulled != MF_E_TRANSFORM_NEED_MORE_INPUT && pulled != E_UNEXPECTED) {
        logFailureLimited("MF ProcessOutput failed", pulled);
      }
    } else if (type == METransformNeedInput) {
      ++needInputCredits;
      needInput = true;
      return true;
    }
  }
  return result;
}

bool MfH264Encoder::waitForNeedInput() {
  if (!transform) return false;
  // A METransformNeedInput taken while collecting the last picture's output is this picture's.
  if (needInputCredits > 0) return true;
  CountedRef<IMFMediaEventGenerator> generator;
  if (FAILED(generator.queryFrom(transform.get())) || !generator) return false;
  DWORD start = GetTickCount();
  for (;;) {
    CountedRef<IMFMediaEvent> event;
    HRESULT hr = generator->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.put());
    if (hr == MF_E_NO_EVENTS_AVAILABLE) {
      waitForGpu();
      Sleep(1);
    } else if (FAILED(hr) || !event) {
      logFailureLimited("MF GetEvent failed", hr);
      return false;
    } else {
      MediaEventType type = MEUnknown;
      event->GetType(&type);
      if (type == MEError) {
        logFailureLimited("MF transform reported MEError", E_FAIL);
        return false;
      }
      // Output of an earlier picture has no array to go to here: fetched and discarded.
      if (type == METransformHaveOutput) pullOutput(nullptr, nullptr, false, nullptr);
      if (type == METransformNeedInput) {
        ++needInputCredits;
        return true;
      }
    }
    if (DWORD(GetTickCount() - start) >= kEventWaitMs) return false;
  }
}
