// DXGI 1.2: Desktop Duplication, outputs that offer it, and resources shared by NT handle.
#pragma once

#include "dxgi.h"

#define DXGI_SHARED_RESOURCE_READ 0x80000000UL
#define DXGI_SHARED_RESOURCE_WRITE 1UL

typedef struct DXGI_OUTDUPL_MOVE_RECT {
  POINT SourcePoint;
  RECT DestinationRect;
} DXGI_OUTDUPL_MOVE_RECT;

typedef struct DXGI_OUTDUPL_DESC {
  DXGI_MODE_DESC ModeDesc;
  DXGI_MODE_ROTATION Rotation;
  BOOL DesktopImageInSystemMemory;
} DXGI_OUTDUPL_DESC;

typedef struct DXGI_OUTDUPL_POINTER_POSITION {
  POINT Position;
  BOOL Visible;
} DXGI_OUTDUPL_POINTER_POSITION;

typedef enum DXGI_OUTDUPL_POINTER_SHAPE_TYPE {
  DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MONOCHROME = 0x1,
  DXGI_OUTDUPL_POINTER_SHAPE_TYPE_COLOR = 0x2,
  DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MASKED_COLOR = 0x4
} DXGI_OUTDUPL_POINTER_SHAPE_TYPE;

typedef struct DXGI_OUTDUPL_POINTER_SHAPE_INFO {
  UINT Type;
  UINT Width;
  UINT Height;
  UINT Pitch;
  POINT HotSpot;
} DXGI_OUTDUPL_POINTER_SHAPE_INFO;

typedef struct DXGI_OUTDUPL_FRAME_INFO {
  LARGE_INTEGER LastPresentTime;
  LARGE_INTEGER LastMouseUpdateTime;
  UINT AccumulatedFrames;
  BOOL RectsCoalesced;
  BOOL ProtectedContentMaskedOut;
  DXGI_OUTDUPL_POINTER_POSITION PointerPosition;
  UINT TotalMetadataBufferSize;
  UINT PointerShapeBufferSize;
} DXGI_OUTDUPL_FRAME_INFO;

typedef struct DXGI_MODE_DESC1 {
  UINT Width;
  UINT Height;
  DXGI_RATIONAL RefreshRate;
  DXGI_FORMAT Format;
  DXGI_MODE_SCANLINE_ORDER ScanlineOrdering;
  DXGI_MODE_SCALING Scaling;
  BOOL Stereo;
} DXGI_MODE_DESC1;

struct IDXGISurface2;  // not served by the platform

MIDL_INTERFACE("191cfac3-a341-470d-b26e-a864f428319c")
IDXGIOutputDuplication : public IDXGIObject {
  virtual void STDMETHODCALLTYPE GetDesc(DXGI_OUTDUPL_DESC* pDesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE AcquireNextFrame(UINT TimeoutInMilliseconds, DXGI_OUTDUPL_FRAME_INFO* pFrameInfo,
                                                     IDXGIResource** ppDesktopResource) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFrameDirtyRects(UINT DirtyRectsBufferSize, RECT* pDirtyRectsBuffer,
                                                       UINT* pDirtyRectsBufferSizeRequired) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFrameMoveRects(UINT MoveRectsBufferSize,
                                                      DXGI_OUTDUPL_MOVE_RECT* pMoveRectBuffer,
                                                      UINT* pMoveRectsBufferSizeRequired) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFramePointerShape(UINT PointerShapeBufferSize, void* pPointerShapeBuffer,
                                                         UINT* pPointerShapeBufferSizeRequired,
                                                         DXGI_OUTDUPL_POINTER_SHAPE_INFO* pPointerShapeInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE MapDesktopSurface(DXGI_MAPPED_RECT* pLockedRect) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnMapDesktopSurface() = 0;
  virtual HRESULT STDMETHODCALLTYPE ReleaseFrame() = 0;
};
__CRT_UUID_DECL(IDXGIOutputDuplication, 0x191CFAC3, 0xA341, 0x470D, 0xB2, 0x6E, 0xA8, 0x64, 0xF4, 0x28, 0x31, 0x9C)
DEFINE_GUID(IID_IDXGIOutputDuplication, 0x191CFAC3, 0xA341, 0x470D, 0xB2, 0x6E, 0xA8, 0x64, 0xF4, 0x28, 0x31, 0x9C);

MIDL_INTERFACE("30961379-4609-4a41-998e-54fe567ee0c1")
IDXGIResource1 : public IDXGIResource {
  virtual HRESULT STDMETHODCALLTYPE CreateSubresourceSurface(UINT index, IDXGISurface2** ppSurface) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateSharedHandle(const SECURITY_ATTRIBUTES* pAttributes, DWORD dwAccess,
                                                       LPCWSTR lpName, HANDLE* pHandle) = 0;
};
__CRT_UUID_DECL(IDXGIResource1, 0x30961379, 0x4609, 0x4A41, 0x99, 0x8E, 0x54, 0xFE, 0x56, 0x7E, 0xE0, 0xC1)
DEFINE_GUID(IID_IDXGIResource1, 0x30961379, 0x4609, 0x4A41, 0x99, 0x8E, 0x54, 0xFE, 0x56, 0x7E, 0xE0, 0xC1);

MIDL_INTERFACE("00cddea8-939b-4b83-a340-a685226666cc")
IDXGIOutput1 : public IDXGIOutput {
  virtual HRESULT STDMETHODCALLTYPE GetDisplayModeList1(DXGI_FORMAT EnumFormat, UINT Flags, UINT* pNumModes,
                                                        DXGI_MODE_DESC1* pDesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindClosestMatchingMode1(const DXGI_MODE_DESC1* pModeToMatch,
                                                             DXGI_MODE_DESC1* pClosestMatch,
                                                             IUnknown* pConcernedDevice) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDisplaySurfaceData1(IDXGIResource* pDestination) = 0;
  virtual HRESULT STDMETHODCALLTYPE DuplicateOutput(IUnknown* pDevice,
                                                    IDXGIOutputDuplication** ppOutputDuplication) = 0;
};
__CRT_UUID_DECL(IDXGIOutput1, 0x00CDDEA8, 0x939B, 0x4B83, 0xA3, 0x40, 0xA6, 0x85, 0x22, 0x66, 0x66, 0xCC)
DEFINE_GUID(IID_IDXGIOutput1, 0x00CDDEA8, 0x939B, 0x4B83, 0xA3, 0x40, 0xA6, 0x85, 0x22, 0x66, 0x66, 0xCC);
