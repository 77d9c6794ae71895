// The H.264 encoder transforms of the virtual machine and what they share with the rest of the
// platform's Media Foundation.
#pragma once

#include "d3d11.h"
#include "mfobjects.h"
#include "mftransform.h"

namespace platform::mf {

// The three kinds a machine may have:
// - SoftwareClass: made by CoCreateInstance of CLSID_CMSH264EncoderMFT; synchronous; writes
//   Annex B; the caller allocates output samples, sized by GetOutputStreamInfo.
// - SoftwareEnumerated: found by MFTEnumEx with MFT_ENUM_FLAG_SYNCMFT; synchronous; writes
//   4-byte length prefixes; gives no output size.
// - Hardware: found with MFT_ENUM_FLAG_HARDWARE; asynchronous (its own thread and events),
//   locked until MF_TRANSFORM_ASYNC_UNLOCK, needs a device manager on its adapter, provides
//   its output samples; writes Annex B.
enum class TransformKind { SoftwareClass, SoftwareEnumerated, Hardware };

// A new transform; one reference for the caller.
IMFTransform* newH264Transform(TransformKind kind, UINT pinnedAdapter);

// The device bound to a platform device manager, with a reference; null when none is bound or
// the manager isn't the platform's.
ID3D11Device* managedDevice(IMFDXGIDeviceManager* manager);

}  // namespace platform::mf
