// Codec settings addressed through ICodecAPI, and the values of H.264 profile and level.
#pragma once

#include "guiddef.h"

enum eAVEncH264VProfile {
  eAVEncH264VProfile_unknown = 0,
  eAVEncH264VProfile_Simple = 66,
  eAVEncH264VProfile_Base = 66,
  eAVEncH264VProfile_Main = 77,
  eAVEncH264VProfile_High = 100
};

enum eAVEncH264VLevel {
  eAVEncH264VLevel4 = 40,
  eAVEncH264VLevel4_1 = 41,
  eAVEncH264VLevel4_2 = 42,
  eAVEncH264VLevel5 = 50,
  eAVEncH264VLevel5_1 = 51,
  eAVEncH264VLevel5_2 = 52
};

// A key frame for the next picture: VT_UI4, 1.
DEFINE_GUID(CODECAPI_AVEncVideoForceKeyFrame, 0x398c1b98, 0x8353, 0x475a, 0x9e, 0xf2, 0x8f, 0x26, 0x5d, 0x26, 0x03,
            0x45);
