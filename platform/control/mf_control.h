// What tests read back of Media Foundation.
#pragma once

#include <cstdint>

namespace platform::control {

// Successful MFStartup calls not yet matched by MFShutdown, in the whole process. Like
// apartments, they belong to their callers, so reset() leaves them as they are.
int mfStartupCount();

}  // namespace platform::control

namespace platform::control {

// The next ProcessOutput of an encoder transform that has output ready answers
// MF_E_TRANSFORM_STREAM_CHANGE and clears its output type, as a transform does when its output
// format changes; the output waits until a type is set again. One request, one change.
void requestMfStreamChange();

}  // namespace platform::control

namespace platform::control {

// The latest encoder transform of the process: the output type it took (attributes, 0 where
// absent) and the times of the last sample that ProcessInput took.
struct MfEncoderRecord {
  uint32_t profile = 0, level = 0, averageBitrate = 0, interlaceMode = 0, lowLatency = 0;
  uint64_t frameSize = 0, frameRate = 0;  // packed as MFSetAttributeSize packs them
  bool inputSampleTimed = false;
  int64_t lastSampleTime = 0, lastSampleDuration = 0;
};
MfEncoderRecord lastMfEncoderRecord();

}  // namespace platform::control
