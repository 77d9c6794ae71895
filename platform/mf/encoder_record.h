// What tests read back of the latest encoder transform: the output type it was given and the
// times of the last picture it took.
#pragma once

#include <mfobjects.h>

namespace platform::mf {

void recordOutputType(IMFMediaType* type);
void recordInputSample(IMFSample* sample);

}  // namespace platform::mf
