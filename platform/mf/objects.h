// The platform's own makers of Media Foundation objects, for its transforms and for the objects
// themselves. Unlike the MFCreate* calls they pass no fault gate and count no call, so that a
// fault planned for the application's call isn't spent inside the platform. Each answers with
// one reference for the caller.
#pragma once

#include "mfobjects.h"

namespace platform::mf {

IMFAttributes* newAttributes();
IMFMediaType* newMediaType();
IMFSample* newSample();
// `maxLength` bytes, no valid data yet.
IMFMediaBuffer* newMemoryBuffer(DWORD maxLength);

}  // namespace platform::mf
