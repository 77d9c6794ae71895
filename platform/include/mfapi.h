// Media Foundation's platform calls: start-up, object creation, the attribute GUIDs of media
// types, and the helpers that pack two 32-bit values into one UINT64 attribute.
#pragma once

#include "mfobjects.h"
#include "unknwn.h"
#include "windef.h"

#define MF_SDK_VERSION 0x0002
#define MF_API_VERSION 0x0070
#define MF_VERSION (MF_SDK_VERSION << 16 | MF_API_VERSION)

#define MFSTARTUP_NOSOCKET 0x1
#define MFSTARTUP_LITE (MFSTARTUP_NOSOCKET)
#define MFSTARTUP_FULL 0

WINBASEAPI HRESULT WINAPI MFStartup(ULONG Version, DWORD dwFlags = MFSTARTUP_FULL);
WINBASEAPI HRESULT WINAPI MFShutdown(void);

WINBASEAPI HRESULT WINAPI MFCreateAttributes(IMFAttributes** ppMFAttributes, UINT32 cInitialSize);
WINBASEAPI HRESULT WINAPI MFCreateMediaType(IMFMediaType** ppMFType);
WINBASEAPI HRESULT WINAPI MFCreateSample(IMFSample** ppIMFSample);
WINBASEAPI HRESULT WINAPI MFCreateMemoryBuffer(DWORD cbMaxLength, IMFMediaBuffer** ppBuffer);
WINBASEAPI HRESULT WINAPI MFCreateDXGISurfaceBuffer(REFIID riid, IUnknown* punkSurface, UINT uSubresourceIndex,
                                                    BOOL fBottomUpWhenLinear, IMFMediaBuffer** ppBuffer);
WINBASEAPI HRESULT WINAPI MFCreateDXGIDeviceManager(UINT* resetToken, IMFDXGIDeviceManager** ppDeviceManager);

// Finding transforms: by category, kind and the types they convert between.
enum _MFT_ENUM_FLAG {
  MFT_ENUM_FLAG_SYNCMFT = 0x00000001,
  MFT_ENUM_FLAG_ASYNCMFT = 0x00000002,
  MFT_ENUM_FLAG_HARDWARE = 0x00000004,
  MFT_ENUM_FLAG_FIELDOFUSE = 0x00000008,
  MFT_ENUM_FLAG_LOCALMFT = 0x00000010,
  MFT_ENUM_FLAG_TRANSCODE_ONLY = 0x00000020,
  MFT_ENUM_FLAG_SORTANDFILTER = 0x00000040,
  MFT_ENUM_FLAG_SORTANDFILTER_APPROVED_ONLY = 0x000000C0,
  MFT_ENUM_FLAG_SORTANDFILTER_WEB_ONLY = 0x00000140,
  MFT_ENUM_FLAG_ALL = 0x0000003F
};

WINBASEAPI HRESULT WINAPI MFTEnumEx(GUID guidCategory, UINT32 Flags, const MFT_REGISTER_TYPE_INFO* pInputType,
                                    const MFT_REGISTER_TYPE_INFO* pOutputType, IMFActivate*** pppMFTActivate,
                                    UINT32* pnumMFTActivate);

DEFINE_GUID(MFT_CATEGORY_VIDEO_ENCODER, 0xf79eac7d, 0xe545, 0x4387, 0xbd, 0xee, 0xd6, 0x47, 0xd7, 0xbd, 0xe4, 0x2a);

// Major types and subtypes. Video subtypes are a FOURCC in Data1 of the media-type base GUID:
// 0x3231564E is 'NV12', 0x34363248 is 'H264', 0x56555949 'IYUV', 0x32595559 'YUY2'.
#define DEFINE_MEDIATYPE_GUID(name, format) \
  DEFINE_GUID(name, format, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71)

DEFINE_GUID(MFMediaType_Video, 0x73646976, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71);
DEFINE_MEDIATYPE_GUID(MFVideoFormat_NV12, 0x3231564E);
DEFINE_MEDIATYPE_GUID(MFVideoFormat_H264, 0x34363248);
DEFINE_MEDIATYPE_GUID(MFVideoFormat_IYUV, 0x56555949);
DEFINE_MEDIATYPE_GUID(MFVideoFormat_YUY2, 0x32595559);

// Media type attributes.
DEFINE_GUID(MF_MT_MAJOR_TYPE, 0x48eba18e, 0xf8c9, 0x4687, 0xbf, 0x11, 0x0a, 0x74, 0xc9, 0xf9, 0x6a, 0x8f);
DEFINE_GUID(MF_MT_SUBTYPE, 0xf7e34c9a, 0x42e8, 0x4714, 0xb7, 0x4b, 0xcb, 0x29, 0xd7, 0x2c, 0x35, 0xe5);
DEFINE_GUID(MF_MT_ALL_SAMPLES_INDEPENDENT, 0xc9173739, 0x5e56, 0x461c, 0xb7, 0x13, 0x46, 0xfb, 0x99, 0x5c, 0xb9, 0x5f);
DEFINE_GUID(MF_MT_COMPRESSED, 0x3afd0cee, 0x18f2, 0x4ba5, 0xa1, 0x10, 0x8b, 0xea, 0x50, 0x2e, 0x1f, 0x92);
DEFINE_GUID(MF_MT_FRAME_SIZE, 0x1652c33d, 0xd6b2, 0x4012, 0xb8, 0x34, 0x72, 0x03, 0x08, 0x49, 0xa3, 0x7d);
DEFINE_GUID(MF_MT_FRAME_RATE, 0xc459a2e8, 0x3d2c, 0x4e44, 0xb1, 0x32, 0xfe, 0xe5, 0x15, 0x6c, 0x7b, 0xb0);
DEFINE_GUID(MF_MT_FRAME_RATE_RANGE_MIN, 0xd2e7558c, 0xdc1f, 0x403f, 0x9a, 0x72, 0xd2, 0x8b, 0xb1, 0xeb, 0x3b, 0x5e);
DEFINE_GUID(MF_MT_FRAME_RATE_RANGE_MAX, 0xe3371d41, 0xb4cf, 0x4a05, 0xbd, 0x4e, 0x20, 0xb8, 0x8b, 0xb2, 0xc4, 0xd6);
DEFINE_GUID(MF_MT_INTERLACE_MODE, 0xe2724bb8, 0xe676, 0x4806, 0xb4, 0xb2, 0xa8, 0xd6, 0xef, 0xb4, 0x4c, 0xcd);
DEFINE_GUID(MF_MT_AVG_BITRATE, 0x20332624, 0xfb0d, 0x4d9e, 0xbd, 0x0d, 0xcb, 0xf6, 0x78, 0x6c, 0x10, 0x2e);
DEFINE_GUID(MF_MT_MAX_KEYFRAME_SPACING, 0xc16eb52b, 0x73a1, 0x476f, 0x8d, 0x62, 0x83, 0x9d, 0x6a, 0x02, 0x06, 0x52);
DEFINE_GUID(MF_MT_USER_DATA, 0xb6bc765f, 0x4c3b, 0x40a4, 0xbd, 0x51, 0x25, 0x35, 0xb6, 0x6f, 0xe0, 0x9d);
DEFINE_GUID(MF_MT_MPEG2_PROFILE, 0xad76a80b, 0x2d5c, 0x4e0b, 0xb3, 0x75, 0x64, 0xe5, 0x20, 0x13, 0x70, 0x36);
DEFINE_GUID(MF_MT_MPEG2_LEVEL, 0x96f66574, 0x11c5, 0x4015, 0x86, 0x66, 0xbf, 0xf5, 0x16, 0x43, 0x6d, 0xa7);
DEFINE_GUID(MF_LOW_LATENCY, 0x9c27891a, 0xed7a, 0x40e1, 0x88, 0xe8, 0xb2, 0x27, 0x27, 0xa0, 0x24, 0xee);

// Two 32-bit values in one UINT64: the first in the high half. A frame size is width then
// height, a ratio numerator then denominator.
inline UINT32 HI32(UINT64 unPacked) { return (UINT32)(unPacked >> 32); }
inline UINT32 LO32(UINT64 unPacked) { return (UINT32)unPacked; }
inline UINT64 Pack2UINT32AsUINT64(UINT32 unHigh, UINT32 unLow) { return ((UINT64)unHigh << 32) | unLow; }
inline void Unpack2UINT32AsUINT64(UINT64 unPacked, UINT32* punHigh, UINT32* punLow) {
  *punHigh = HI32(unPacked);
  *punLow = LO32(unPacked);
}
inline UINT64 PackSize(UINT32 unWidth, UINT32 unHeight) { return Pack2UINT32AsUINT64(unWidth, unHeight); }
inline void UnpackSize(UINT64 unPacked, UINT32* punWidth, UINT32* punHeight) {
  Unpack2UINT32AsUINT64(unPacked, punWidth, punHeight);
}

inline UINT32 MFGetAttributeUINT32(IMFAttributes* pAttributes, REFGUID guidKey, UINT32 unDefault) {
  UINT32 unRet;
  if (FAILED(pAttributes->GetUINT32(guidKey, &unRet))) unRet = unDefault;
  return unRet;
}
inline UINT64 MFGetAttributeUINT64(IMFAttributes* pAttributes, REFGUID guidKey, UINT64 unDefault) {
  UINT64 unRet;
  if (FAILED(pAttributes->GetUINT64(guidKey, &unRet))) unRet = unDefault;
  return unRet;
}
inline HRESULT MFGetAttribute2UINT32asUINT64(IMFAttributes* pAttributes, REFGUID guidKey, UINT32* punHigh32,
                                             UINT32* punLow32) {
  UINT64 unPacked = 0;
  HRESULT hr = pAttributes->GetUINT64(guidKey, &unPacked);
  if (FAILED(hr)) return hr;
  Unpack2UINT32AsUINT64(unPacked, punHigh32, punLow32);
  return hr;
}
inline HRESULT MFSetAttribute2UINT32asUINT64(IMFAttributes* pAttributes, REFGUID guidKey, UINT32 unHigh32,
                                             UINT32 unLow32) {
  return pAttributes->SetUINT64(guidKey, Pack2UINT32AsUINT64(unHigh32, unLow32));
}
inline HRESULT MFGetAttributeSize(IMFAttributes* pAttributes, REFGUID guidKey, UINT32* punWidth, UINT32* punHeight) {
  return MFGetAttribute2UINT32asUINT64(pAttributes, guidKey, punWidth, punHeight);
}
inline HRESULT MFSetAttributeSize(IMFAttributes* pAttributes, REFGUID guidKey, UINT32 unWidth, UINT32 unHeight) {
  return MFSetAttribute2UINT32asUINT64(pAttributes, guidKey, unWidth, unHeight);
}
inline HRESULT MFGetAttributeRatio(IMFAttributes* pAttributes, REFGUID guidKey, UINT32* punNumerator,
                                   UINT32* punDenominator) {
  return MFGetAttribute2UINT32asUINT64(pAttributes, guidKey, punNumerator, punDenominator);
}
inline HRESULT MFSetAttributeRatio(IMFAttributes* pAttributes, REFGUID guidKey, UINT32 unNumerator,
                                   UINT32 unDenominator) {
  return MFSetAttribute2UINT32asUINT64(pAttributes, guidKey, unNumerator, unDenominator);
}
