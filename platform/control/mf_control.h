// What tests read back of Media Foundation.
#pragma once

namespace platform::control {

// Successful MFStartup calls not yet matched by MFShutdown, in the whole process. Like
// apartments, they belong to their callers, so reset() leaves them as they are.
int mfStartupCount();

}  // namespace platform::control
