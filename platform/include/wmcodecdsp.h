// Classes of the codecs that ship with Windows: here, the H.264 encoder transform.
#pragma once

#include "guiddef.h"

DEFINE_GUID(CLSID_CMSH264EncoderMFT, 0x6ca50344, 0x051a, 0x4ded, 0x97, 0x79, 0xa4, 0x33, 0x05, 0x16, 0x5e, 0x35);
