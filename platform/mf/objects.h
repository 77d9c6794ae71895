// The platform's own makers of Media Foundation objects, for its transforms and for the objects
// themselves. Unlike the MFCreate* calls they pass no fault gate and count no call, so that a
// fault planned for the application's call isn't spent inside the platform. Each answers with
// one reference for the caller.
#pragma once

#include <vector>

#include "mfobjects.h"

namespace platform::mf {

class AttributeStore;

IMFAttributes* newAttributes();
IMFMediaType* newMediaType();
IMFSample* newSample();
// `maxLength` bytes, no valid data yet.
IMFMediaBuffer* newMemoryBuffer(DWORD maxLength);

// What a transform reads and writes of the application's objects, as the object's own code
// would, without the gate: a transform's inner work spends no fault planned for the application.
// The store of a platform attribute object (store, media type, sample), or null for another.
AttributeStore* storeOf(IMFAttributes* object);
// A platform memory buffer's valid bytes; false for any other buffer.
bool readValidBytes(IMFMediaBuffer* buffer, std::vector<BYTE>& out);
// Replaces a platform memory buffer's valid bytes: MF_E_BUFFERTOOSMALL when they don't fit,
// E_INVALIDARG for any other buffer.
HRESULT writeValidBytes(IMFMediaBuffer* buffer, const BYTE* data, size_t size);
// The texture behind a platform surface buffer, without a reference; null for any other buffer.
IUnknown* surfaceOf(IMFMediaBuffer* buffer);
// A platform sample's buffers, each with a reference for the caller; empty for another sample.
std::vector<IMFMediaBuffer*> buffersOf(IMFSample* sample);
// A platform sample's time and duration; false where one is missing or the sample isn't ours.
bool timesOf(IMFSample* sample, LONGLONG* time, LONGLONG* duration);
void setTimes(IMFSample* sample, LONGLONG time, LONGLONG duration);

}  // namespace platform::mf
