// What tests read back of the NVENC driver library: its open encode sessions and how each was
// set up, as the driver took it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform::control {

struct NvencSessionInfo {
  uint32_t apiVersion = 0;  // as nvEncOpenEncodeSessionEx was given it
  bool initialized = false;
  // Set by nvEncInitializeEncoder.
  std::string preset;        // "P1" .. "P7"
  uint32_t tuningInfo = 0;
  bool presetConfiguration = false;  // initialised without a configuration: the preset's own
  std::string profile;               // "baseline", "main", "high" or "autoselect"
  uint32_t width = 0, height = 0;
  uint32_t frameRateNum = 0, frameRateDen = 0;
  uint32_t enableEncodeAsync = 0, enablePTD = 0;
  uint32_t rateControlMode = 0;
  uint32_t averageBitRate = 0, maxBitRate = 0;
  uint32_t vbvBufferSize = 0, vbvInitialDelay = 0;
  uint32_t gopLength = 0, idrPeriod = 0;
  int32_t frameIntervalP = 0;
  bool repeatSPSPPS = false;
  // Objects the session holds now.
  uint32_t registeredResources = 0, mappedResources = 0, bitstreamBuffers = 0, lockedBitstreams = 0;
  // Pictures that nvEncEncodePicture took, and the flags and time stamp of the last one.
  uint64_t pictures = 0;
  uint32_t lastPictureFlags = 0;
  uint64_t lastInputTimeStamp = 0;
};

// Sessions opened and not yet destroyed, in the whole process. Sessions belong to their callers,
// so reset() leaves them as they are.
int nvencOpenSessionCount();
// The open sessions, oldest first.
std::vector<NvencSessionInfo> nvencSessions();

}  // namespace platform::control
