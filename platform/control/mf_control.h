// What tests read back of Media Foundation.
#pragma once

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
