#include "platform/mf/encoder_record.h"

#include <mfapi.h>

#include <mutex>

#include "platform/control/mf_control.h"
#include "platform/mf/attribute_store.h"
#include "platform/mf/objects.h"

namespace platform::mf {
namespace {

struct Record {
  std::mutex mutex;
  control::MfEncoderRecord values;
};

Record& record() {
  static Record* instance = new Record;  // never destroyed: a host thread may still encode at exit
  return *instance;
}

// Read from the store itself, so that the fault plan and the call counts see nothing of it.
uint64_t numberOf(IMFAttributes* object, REFGUID key, MF_ATTRIBUTE_TYPE type) {
  AttributeValue found;
  AttributeStore* store = storeOf(object);
  if (store == nullptr || FAILED(store->get(key, type, &found))) return 0;
  return found.number;
}

}  // namespace

void recordOutputType(IMFMediaType* type) {
  Record& r = record();
  std::lock_guard<std::mutex> lock(r.mutex);
  control::MfEncoderRecord& v = r.values;
  v.profile = uint32_t(numberOf(type, MF_MT_MPEG2_PROFILE, MF_ATTRIBUTE_UINT32));
  v.level = uint32_t(numberOf(type, MF_MT_MPEG2_LEVEL, MF_ATTRIBUTE_UINT32));
  v.averageBitrate = uint32_t(numberOf(type, MF_MT_AVG_BITRATE, MF_ATTRIBUTE_UINT32));
  v.interlaceMode = uint32_t(numberOf(type, MF_MT_INTERLACE_MODE, MF_ATTRIBUTE_UINT32));
  v.lowLatency = uint32_t(numberOf(type, MF_LOW_LATENCY, MF_ATTRIBUTE_UINT32));
  v.frameSize = numberOf(type, MF_MT_FRAME_SIZE, MF_ATTRIBUTE_UINT64);
  v.frameRate = numberOf(type, MF_MT_FRAME_RATE, MF_ATTRIBUTE_UINT64);
}

void recordInputSample(IMFSample* sample) {
  LONGLONG time = 0, duration = 0;
  bool timed = timesOf(sample, &time, &duration);
  Record& r = record();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.values.inputSampleTimed = timed;
  r.values.lastSampleTime = timed ? time : 0;
  r.values.lastSampleDuration = timed ? duration : 0;
}

}  // namespace platform::mf

namespace platform::control {

MfEncoderRecord lastMfEncoderRecord() {
  mf::Record& r = mf::record();
  std::lock_guard<std::mutex> lock(r.mutex);
  return r.values;
}

}  // namespace platform::control
