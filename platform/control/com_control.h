// What tests read back of COM and the Windows Runtime: open apartments and live strings.
#pragma once

#include <cstdint>

namespace platform::control {

// Successful CoInitializeEx and RoInitialize calls, S_FALSE included, not yet matched by an
// uninitialise: on the calling thread, and in the whole process. Apartments belong to their
// threads, so reset() leaves them as they are.
int threadApartmentCount();
int processApartmentCount();

// HSTRINGs made by WindowsCreateString and not yet deleted; string references don't count.
// Their owners hold them across a reset too.
int64_t liveStringCount();

}  // namespace platform::control
