// Media buffers in system memory, as MFCreateMemoryBuffer makes them.
#pragma once

#include "mfobjects.h"

namespace platform::mf {

// A new buffer of `maxLength` bytes with no valid data, with one reference for the caller.
IMFMediaBuffer* newMemoryBuffer(DWORD maxLength);

}  // namespace platform::mf
