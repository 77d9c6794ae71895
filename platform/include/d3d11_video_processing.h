// The Direct3D 11 video processor (part of d3d11.h): enumerator, processor, input and output
// views, and the video device and video context that make and drive them.
#pragma once

#include "d3d11.h"

typedef enum D3D11_VIDEO_FRAME_FORMAT {
  D3D11_VIDEO_FRAME_FORMAT_PROGRESSIVE = 0,
  D3D11_VIDEO_FRAME_FORMAT_INTERLACED_TOP_FIELD_FIRST = 1,
  D3D11_VIDEO_FRAME_FORMAT_INTERLACED_BOTTOM_FIELD_FIRST = 2
} D3D11_VIDEO_FRAME_FORMAT;

typedef enum D3D11_VIDEO_USAGE {
  D3D11_VIDEO_USAGE_PLAYBACK_NORMAL = 0,
  D3D11_VIDEO_USAGE_OPTIMAL_SPEED = 1,
  D3D11_VIDEO_USAGE_OPTIMAL_QUALITY = 2
} D3D11_VIDEO_USAGE;

typedef struct D3D11_VIDEO_PROCESSOR_CONTENT_DESC {
  D3D11_VIDEO_FRAME_FORMAT InputFrameFormat;
  DXGI_RATIONAL InputFrameRate;
  UINT InputWidth;
  UINT InputHeight;
  DXGI_RATIONAL OutputFrameRate;
  UINT OutputWidth;
  UINT OutputHeight;
  D3D11_VIDEO_USAGE Usage;
} D3D11_VIDEO_PROCESSOR_CONTENT_DESC;

typedef enum D3D11_VIDEO_PROCESSOR_FORMAT_SUPPORT {
  D3D11_VIDEO_PROCESSOR_FORMAT_SUPPORT_INPUT = 0x1,
  D3D11_VIDEO_PROCESSOR_FORMAT_SUPPORT_OUTPUT = 0x2
} D3D11_VIDEO_PROCESSOR_FORMAT_SUPPORT;

typedef enum D3D11_VIDEO_PROCESSOR_DEVICE_CAPS {
  D3D11_VIDEO_PROCESSOR_DEVICE_CAPS_LINEAR_SPACE = 0x1,
  D3D11_VIDEO_PROCESSOR_DEVICE_CAPS_xvYCC = 0x2,
  D3D11_VIDEO_PROCESSOR_DEVICE_CAPS_RGB_RANGE_CONVERSION = 0x4,
  D3D11_VIDEO_PROCESSOR_DEVICE_CAPS_YCbCr_MATRIX_CONVERSION = 0x8,
  D3D11_VIDEO_PROCESSOR_DEVICE_CAPS_NOMINAL_RANGE = 0x10
} D3D11_VIDEO_PROCESSOR_DEVICE_CAPS;

typedef enum D3D11_VIDEO_PROCESSOR_FEATURE_CAPS {
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_ALPHA_FILL = 0x1,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_CONSTRICTION = 0x2,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_LUMA_KEY = 0x4,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_ALPHA_PALETTE = 0x8,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_LEGACY = 0x10,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_STEREO = 0x20,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_ROTATION = 0x40,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_ALPHA_STREAM = 0x80,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_PIXEL_ASPECT_RATIO = 0x100,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_MIRROR = 0x200,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_SHADER_USAGE = 0x400,
  D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_METADATA_HDR10 = 0x800
} D3D11_VIDEO_PROCESSOR_FEATURE_CAPS;

typedef struct D3D11_VIDEO_PROCESSOR_CAPS {
  UINT DeviceCaps;
  UINT FeatureCaps;
  UINT FilterCaps;
  UINT InputFormatCaps;
  UINT AutoStreamCaps;
  UINT StereoCaps;
  UINT RateConversionCapsCount;
  UINT MaxInputStreams;
  UINT MaxStreamStates;
} D3D11_VIDEO_PROCESSOR_CAPS;

typedef struct D3D11_VIDEO_PROCESSOR_RATE_CONVERSION_CAPS {
  UINT PastFrames;
  UINT FutureFrames;
  UINT ProcessorCaps;
  UINT ITelecineCaps;
  UINT CustomRateCount;
} D3D11_VIDEO_PROCESSOR_RATE_CONVERSION_CAPS;

typedef struct D3D11_VIDEO_PROCESSOR_CUSTOM_RATE {
  DXGI_RATIONAL CustomRate;
  UINT OutputFrames;
  BOOL InputInterlaced;
  UINT InputFramesOrFields;
} D3D11_VIDEO_PROCESSOR_CUSTOM_RATE;

typedef enum D3D11_VIDEO_PROCESSOR_FILTER {
  D3D11_VIDEO_PROCESSOR_FILTER_BRIGHTNESS = 0,
  D3D11_VIDEO_PROCESSOR_FILTER_CONTRAST = 1,
  D3D11_VIDEO_PROCESSOR_FILTER_HUE = 2,
  D3D11_VIDEO_PROCESSOR_FILTER_SATURATION = 3,
  D3D11_VIDEO_PROCESSOR_FILTER_NOISE_REDUCTION = 4,
  D3D11_VIDEO_PROCESSOR_FILTER_EDGE_ENHANCEMENT = 5,
  D3D11_VIDEO_PROCESSOR_FILTER_ANAMORPHIC_SCALING = 6,
  D3D11_VIDEO_PROCESSOR_FILTER_STEREO_ADJUSTMENT = 7
} D3D11_VIDEO_PROCESSOR_FILTER;

typedef struct D3D11_VIDEO_PROCESSOR_FILTER_RANGE {
  int Minimum;
  int Maximum;
  int Default;
  float Multiplier;
} D3D11_VIDEO_PROCESSOR_FILTER_RANGE;

typedef enum D3D11_VIDEO_PROCESSOR_NOMINAL_RANGE {
  D3D11_VIDEO_PROCESSOR_NOMINAL_RANGE_UNDEFINED = 0,
  D3D11_VIDEO_PROCESSOR_NOMINAL_RANGE_16_235 = 1,
  D3D11_VIDEO_PROCESSOR_NOMINAL_RANGE_0_255 = 2
} D3D11_VIDEO_PROCESSOR_NOMINAL_RANGE;

typedef struct D3D11_VIDEO_PROCESSOR_COLOR_SPACE {
  UINT Usage : 1;
  UINT RGB_Range : 1;
  UINT YCbCr_Matrix : 1;
  UINT YCbCr_xvYCC : 1;
  UINT Nominal_Range : 2;
  UINT Reserved : 26;
} D3D11_VIDEO_PROCESSOR_COLOR_SPACE;

typedef enum D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE {
  D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE_OPAQUE = 0,
  D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE_BACKGROUND = 1,
  D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE_DESTINATION = 2,
  D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE_SOURCE_STREAM = 3
} D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE;

typedef enum D3D11_VIDEO_PROCESSOR_OUTPUT_RATE {
  D3D11_VIDEO_PROCESSOR_OUTPUT_RATE_NORMAL = 0,
  D3D11_VIDEO_PROCESSOR_OUTPUT_RATE_HALF = 1,
  D3D11_VIDEO_PROCESSOR_OUTPUT_RATE_CUSTOM = 2
} D3D11_VIDEO_PROCESSOR_OUTPUT_RATE;

typedef enum D3D11_VIDEO_PROCESSOR_STEREO_FORMAT {
  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT_MONO = 0,
  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT_HORIZONTAL = 1,
  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT_VERTICAL = 2,
  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT_SEPARATE = 3,
  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT_MONO_OFFSET = 4,
  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT_ROW_INTERLEAVED = 5,
  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT_COLUMN_INTERLEAVED = 6,
  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT_CHECKERBOARD = 7
} D3D11_VIDEO_PROCESSOR_STEREO_FORMAT;

typedef enum D3D11_VIDEO_PROCESSOR_STEREO_FLIP_MODE {
  D3D11_VIDEO_PROCESSOR_STEREO_FLIP_NONE = 0,
  D3D11_VIDEO_PROCESSOR_STEREO_FLIP_FRAME0 = 1,
  D3D11_VIDEO_PROCESSOR_STEREO_FLIP_FRAME1 = 2
} D3D11_VIDEO_PROCESSOR_STEREO_FLIP_MODE;

typedef enum D3D11_VIDEO_PROCESSOR_ROTATION {
  D3D11_VIDEO_PROCESSOR_ROTATION_IDENTITY = 0,
  D3D11_VIDEO_PROCESSOR_ROTATION_90 = 1,
  D3D11_VIDEO_PROCESSOR_ROTATION_180 = 2,
  D3D11_VIDEO_PROCESSOR_ROTATION_270 = 3
} D3D11_VIDEO_PROCESSOR_ROTATION;

typedef struct D3D11_VIDEO_COLOR_YCbCrA {
  float Y;
  float Cb;
  float Cr;
  float A;
} D3D11_VIDEO_COLOR_YCbCrA;

typedef struct D3D11_VIDEO_COLOR_RGBA {
  float R;
  float G;
  float B;
  float A;
} D3D11_VIDEO_COLOR_RGBA;

typedef struct D3D11_VIDEO_COLOR {
  union {
    D3D11_VIDEO_COLOR_YCbCrA YCbCr;
    D3D11_VIDEO_COLOR_RGBA RGBA;
  };
} D3D11_VIDEO_COLOR;

typedef enum D3D11_VPIV_DIMENSION { D3D11_VPIV_DIMENSION_UNKNOWN = 0, D3D11_VPIV_DIMENSION_TEXTURE2D = 1 } D3D11_VPIV_DIMENSION;

typedef struct D3D11_TEX2D_VPIV {
  UINT MipSlice;
  UINT ArraySlice;
} D3D11_TEX2D_VPIV;

typedef struct D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC {
  UINT FourCC;
  D3D11_VPIV_DIMENSION ViewDimension;
  union {
    D3D11_TEX2D_VPIV Texture2D;
  };
} D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC;

typedef enum D3D11_VPOV_DIMENSION {
  D3D11_VPOV_DIMENSION_UNKNOWN = 0,
  D3D11_VPOV_DIMENSION_TEXTURE2D = 1,
  D3D11_VPOV_DIMENSION_TEXTURE2DARRAY = 2
} D3D11_VPOV_DIMENSION;

typedef struct D3D11_TEX2D_VPOV {
  UINT MipSlice;
} D3D11_TEX2D_VPOV;

typedef struct D3D11_TEX2D_ARRAY_VPOV {
  UINT MipSlice;
  UINT FirstArraySlice;
  UINT ArraySize;
} D3D11_TEX2D_ARRAY_VPOV;

typedef struct D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC {
  D3D11_VPOV_DIMENSION ViewDimension;
  union {
    D3D11_TEX2D_VPOV Texture2D;
    D3D11_TEX2D_ARRAY_VPOV Texture2DArray;
  };
} D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC;

struct ID3D11VideoProcessorInputView;

typedef struct D3D11_VIDEO_PROCESSOR_STREAM {
  BOOL Enable;
  UINT OutputIndex;
  UINT InputFrameOrField;
  UINT PastFrames;
  UINT FutureFrames;
  ID3D11VideoProcessorInputView** ppPastSurfaces;
  ID3D11VideoProcessorInputView* pInputSurface;
  ID3D11VideoProcessorInputView** ppFutureSurfaces;
  ID3D11VideoProcessorInputView** ppPastSurfacesRight;
  ID3D11VideoProcessorInputView* pInputSurfaceRight;
  ID3D11VideoProcessorInputView** ppFutureSurfacesRight;
} D3D11_VIDEO_PROCESSOR_STREAM;

MIDL_INTERFACE("31627037-53ab-4200-9061-05faa9ab45f9")
ID3D11VideoProcessorEnumerator : public ID3D11DeviceChild {
  virtual HRESULT STDMETHODCALLTYPE GetVideoProcessorContentDesc(D3D11_VIDEO_PROCESSOR_CONTENT_DESC* pContentDesc) = 0;
  virtual HRESULT STDMETHODCALLTYPE CheckVideoProcessorFormat(DXGI_FORMAT Format, UINT* pFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVideoProcessorCaps(D3D11_VIDEO_PROCESSOR_CAPS* pCaps) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVideoProcessorRateConversionCaps(
      UINT TypeIndex, D3D11_VIDEO_PROCESSOR_RATE_CONVERSION_CAPS* pCaps) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVideoProcessorCustomRate(UINT TypeIndex, UINT CustomRateIndex,
                                                                D3D11_VIDEO_PROCESSOR_CUSTOM_RATE* pRate) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVideoProcessorFilterRange(D3D11_VIDEO_PROCESSOR_FILTER Filter,
                                                                 D3D11_VIDEO_PROCESSOR_FILTER_RANGE* pRange) = 0;
};
__CRT_UUID_DECL(ID3D11VideoProcessorEnumerator, 0x31627037, 0x53AB, 0x4200, 0x90, 0x61, 0x05, 0xFA, 0xA9, 0xAB, 0x45, 0xF9)
DEFINE_GUID(IID_ID3D11VideoProcessorEnumerator, 0x31627037, 0x53AB, 0x4200, 0x90, 0x61, 0x05, 0xFA, 0xA9, 0xAB, 0x45, 0xF9);

MIDL_INTERFACE("1d7b0652-185f-41c6-85ce-0c5be3d4ae6c")
ID3D11VideoProcessor : public ID3D11DeviceChild {
  virtual void STDMETHODCALLTYPE GetContentDesc(D3D11_VIDEO_PROCESSOR_CONTENT_DESC* pDesc) = 0;
  virtual void STDMETHODCALLTYPE GetRateConversionCaps(D3D11_VIDEO_PROCESSOR_RATE_CONVERSION_CAPS* pCaps) = 0;
};
__CRT_UUID_DECL(ID3D11VideoProcessor, 0x1D7B0652, 0x185F, 0x41C6, 0x85, 0xCE, 0x0C, 0x5B, 0xE3, 0xD4, 0xAE, 0x6C)
DEFINE_GUID(IID_ID3D11VideoProcessor, 0x1D7B0652, 0x185F, 0x41C6, 0x85, 0xCE, 0x0C, 0x5B, 0xE3, 0xD4, 0xAE, 0x6C);

MIDL_INTERFACE("11ec5a5f-51dc-4945-ab34-6e8c21300ea5")
ID3D11VideoProcessorInputView : public ID3D11View {
  virtual void STDMETHODCALLTYPE GetDesc(D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC* pDesc) = 0;
};
__CRT_UUID_DECL(ID3D11VideoProcessorInputView, 0x11EC5A5F, 0x51DC, 0x4945, 0xAB, 0x34, 0x6E, 0x8C, 0x21, 0x30, 0x0E, 0xA5)
DEFINE_GUID(IID_ID3D11VideoProcessorInputView, 0x11EC5A5F, 0x51DC, 0x4945, 0xAB, 0x34, 0x6E, 0x8C, 0x21, 0x30, 0x0E, 0xA5);

MIDL_INTERFACE("a048285e-25a9-4527-bd93-d68b68c44254")
ID3D11VideoProcessorOutputView : public ID3D11View {
  virtual void STDMETHODCALLTYPE GetDesc(D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC* pDesc) = 0;
};
__CRT_UUID_DECL(ID3D11VideoProcessorOutputView, 0xA048285E, 0x25A9, 0x4527, 0xBD, 0x93, 0xD6, 0x8B, 0x68, 0xC4, 0x42, 0x54)
DEFINE_GUID(IID_ID3D11VideoProcessorOutputView, 0xA048285E, 0x25A9, 0x4527, 0xBD, 0x93, 0xD6, 0x8B, 0x68, 0xC4, 0x42, 0x54);

MIDL_INTERFACE("61F21C45-3C0E-4a74-9CEA-67100D9AD5E4")
ID3D11VideoContext : public ID3D11DeviceChild {
  virtual void STDMETHODCALLTYPE VideoProcessorSetOutputTargetRect(ID3D11VideoProcessor* pVideoProcessor,
                                                                   BOOL Enable, const RECT* pRect) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetOutputBackgroundColor(ID3D11VideoProcessor* pVideoProcessor,
                                                                        BOOL YCbCr,
                                                                        const D3D11_VIDEO_COLOR* pColor) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetOutputColorSpace(
      ID3D11VideoProcessor* pVideoProcessor, const D3D11_VIDEO_PROCESSOR_COLOR_SPACE* pColorSpace) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetOutputAlphaFillMode(
      ID3D11VideoProcessor* pVideoProcessor, D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE AlphaFillMode,
      UINT StreamIndex) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetOutputConstriction(ID3D11VideoProcessor* pVideoProcessor,
                                                                     BOOL Enable, SIZE Size) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetOutputStereoMode(ID3D11VideoProcessor* pVideoProcessor,
                                                                   BOOL Enable) = 0;
  virtual HRESULT STDMETHODCALLTYPE VideoProcessorSetOutputExtension(ID3D11VideoProcessor* pVideoProcessor,
                                                                     const GUID* pExtensionGuid, UINT DataSize,
                                                                     void* pData) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetOutputTargetRect(ID3D11VideoProcessor* pVideoProcessor,
                                                                   BOOL* Enabled, RECT* pRect) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetOutputBackgroundColor(ID3D11VideoProcessor* pVideoProcessor,
                                                                        BOOL* pYCbCr, D3D11_VIDEO_COLOR* pColor) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetOutputColorSpace(
      ID3D11VideoProcessor* pVideoProcessor, D3D11_VIDEO_PROCESSOR_COLOR_SPACE* pColorSpace) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetOutputAlphaFillMode(
      ID3D11VideoProcessor* pVideoProcessor, D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE* pAlphaFillMode,
      UINT* pStreamIndex) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetOutputConstriction(ID3D11VideoProcessor* pVideoProcessor,
                                                                     BOOL* pEnabled, SIZE* pSize) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetOutputStereoMode(ID3D11VideoProcessor* pVideoProcessor,
                                                                   BOOL* pEnabled) = 0;
  virtual HRESULT STDMETHODCALLTYPE VideoProcessorGetOutputExtension(ID3D11VideoProcessor* pVideoProcessor,
                                                                     const GUID* pExtensionGuid, UINT DataSize,
                                                                     void* pData) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamFrameFormat(ID3D11VideoProcessor* pVideoProcessor,
                                                                    UINT StreamIndex,
                                                                    D3D11_VIDEO_FRAME_FORMAT FrameFormat) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamColorSpace(
      ID3D11VideoProcessor* pVideoProcessor, UINT StreamIndex, const D3D11_VIDEO_PROCESSOR_COLOR_SPACE* pColorSpace) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamOutputRate(ID3D11VideoProcessor* pVideoProcessor,
                                                                   UINT StreamIndex,
                                                                   D3D11_VIDEO_PROCESSOR_OUTPUT_RATE OutputRate,
                                                                   BOOL RepeatFrame,
                                                                   const DXGI_RATIONAL* pCustomRate) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamSourceRect(ID3D11VideoProcessor* pVideoProcessor,
                                                                   UINT StreamIndex, BOOL Enable,
                                                                   const RECT* pRect) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamDestRect(ID3D11VideoProcessor* pVideoProcessor,
                                                                 UINT StreamIndex, BOOL Enable, const RECT* pRect) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamAlpha(ID3D11VideoProcessor* pVideoProcessor,
                                                              UINT StreamIndex, BOOL Enable, FLOAT Alpha) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamPalette(ID3D11VideoProcessor* pVideoProcessor,
                                                                UINT StreamIndex, UINT Count,
                                                                const UINT* pEntries) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamPixelAspectRatio(
      ID3D11VideoProcessor* pVideoProcessor, UINT StreamIndex, BOOL Enable, const DXGI_RATIONAL* pSourceAspectRatio,
      const DXGI_RATIONAL* pDestinationAspectRatio) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamLumaKey(ID3D11VideoProcessor* pVideoProcessor,
                                                                UINT StreamIndex, BOOL Enable, FLOAT Lower,
                                                                FLOAT Upper) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamStereoFormat(
      ID3D11VideoProcessor* pVideoProcessor, UINT StreamIndex, BOOL Enable, D3D11_VIDEO_PROCESSOR_STEREO_FORMAT Format,
      BOOL LeftViewFrame0, BOOL BaseViewFrame0, D3D11_VIDEO_PROCESSOR_STEREO_FLIP_MODE FlipMode, int MonoOffset) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamAutoProcessingMode(ID3D11VideoProcessor* pVideoProcessor,
                                                                           UINT StreamIndex, BOOL Enable) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamFilter(ID3D11VideoProcessor* pVideoProcessor,
                                                               UINT StreamIndex, D3D11_VIDEO_PROCESSOR_FILTER Filter,
                                                               BOOL Enable, int Level) = 0;
  virtual HRESULT STDMETHODCALLTYPE VideoProcessorSetStreamExtension(ID3D11VideoProcessor* pVideoProcessor,
                                                                     UINT StreamIndex, const GUID* pExtensionGuid,
                                                                     UINT DataSize, void* pData) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamFrameFormat(ID3D11VideoProcessor* pVideoProcessor,
                                                                    UINT StreamIndex,
                                                                    D3D11_VIDEO_FRAME_FORMAT* pFrameFormat) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamColorSpace(
      ID3D11VideoProcessor* pVideoProcessor, UINT StreamIndex, D3D11_VIDEO_PROCESSOR_COLOR_SPACE* pColorSpace) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamOutputRate(ID3D11VideoProcessor* pVideoProcessor,
                                                                   UINT StreamIndex,
                                                                   D3D11_VIDEO_PROCESSOR_OUTPUT_RATE* pOutputRate,
                                                                   BOOL* pRepeatFrame, DXGI_RATIONAL* pCustomRate) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamSourceRect(ID3D11VideoProcessor* pVideoProcessor,
                                                                   UINT StreamIndex, BOOL* pEnabled, RECT* pRect) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamDestRect(ID3D11VideoProcessor* pVideoProcessor,
                                                                 UINT StreamIndex, BOOL* pEnabled, RECT* pRect) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamAlpha(ID3D11VideoProcessor* pVideoProcessor,
                                                              UINT StreamIndex, BOOL* pEnabled, FLOAT* pAlpha) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamPalette(ID3D11VideoProcessor* pVideoProcessor,
                                                                UINT StreamIndex, UINT Count, UINT* pEntries) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamPixelAspectRatio(ID3D11VideoProcessor* pVideoProcessor,
                                                                         UINT StreamIndex, BOOL* pEnabled,
                                                                         DXGI_RATIONAL* pSourceAspectRatio,
                                                                         DXGI_RATIONAL* pDestinationAspectRatio) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamLumaKey(ID3D11VideoProcessor* pVideoProcessor,
                                                                UINT StreamIndex, BOOL* pEnabled, FLOAT* pLower,
                                                                FLOAT* pUpper) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamStereoFormat(
      ID3D11VideoProcessor* pVideoProcessor, UINT StreamIndex, BOOL* pEnabled,
      D3D11_VIDEO_PROCESSOR_STEREO_FORMAT* pFormat, BOOL* pLeftViewFrame0, BOOL* pBaseViewFrame0,
      D3D11_VIDEO_PROCESSOR_STEREO_FLIP_MODE* pFlipMode, int* MonoOffset) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamAutoProcessingMode(ID3D11VideoProcessor* pVideoProcessor,
                                                                           UINT StreamIndex, BOOL* pEnabled) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamFilter(ID3D11VideoProcessor* pVideoProcessor,
                                                               UINT StreamIndex, D3D11_VIDEO_PROCESSOR_FILTER Filter,
                                                               BOOL* pEnabled, int* pLevel) = 0;
  virtual HRESULT STDMETHODCALLTYPE VideoProcessorGetStreamExtension(ID3D11VideoProcessor* pVideoProcessor,
                                                                     UINT StreamIndex, const GUID* pExtensionGuid,
                                                                     UINT DataSize, void* pData) = 0;
  virtual HRESULT STDMETHODCALLTYPE VideoProcessorBlt(ID3D11VideoProcessor* pVideoProcessor,
                                                      ID3D11VideoProcessorOutputView* pView, UINT OutputFrame,
                                                      UINT StreamCount,
                                                      const D3D11_VIDEO_PROCESSOR_STREAM* pStreams) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorSetStreamRotation(ID3D11VideoProcessor* pVideoProcessor,
                                                                 UINT StreamIndex, BOOL Enable,
                                                                 D3D11_VIDEO_PROCESSOR_ROTATION Rotation) = 0;
  virtual void STDMETHODCALLTYPE VideoProcessorGetStreamRotation(ID3D11VideoProcessor* pVideoProcessor,
                                                                 UINT StreamIndex, BOOL* pEnable,
                                                                 D3D11_VIDEO_PROCESSOR_ROTATION* pRotation) = 0;
};
__CRT_UUID_DECL(ID3D11VideoContext, 0x61F21C45, 0x3C0E, 0x4A74, 0x9C, 0xEA, 0x67, 0x10, 0x0D, 0x9A, 0xD5, 0xE4)
DEFINE_GUID(IID_ID3D11VideoContext, 0x61F21C45, 0x3C0E, 0x4A74, 0x9C, 0xEA, 0x67, 0x10, 0x0D, 0x9A, 0xD5, 0xE4);

MIDL_INTERFACE("10EC4D5B-975A-4689-B9E4-D0AAC30FE333")
ID3D11VideoDevice : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateVideoProcessor(ID3D11VideoProcessorEnumerator* pEnum,
                                                         UINT RateConversionIndex,
                                                         ID3D11VideoProcessor** ppVideoProcessor) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateVideoProcessorInputView(ID3D11Resource* pResource,
                                                                  ID3D11VideoProcessorEnumerator* pEnum,
                                                                  const D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC* pDesc,
                                                                  ID3D11VideoProcessorInputView** ppVIView) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateVideoProcessorOutputView(
      ID3D11Resource* pResource, ID3D11VideoProcessorEnumerator* pEnum,
      const D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC* pDesc, ID3D11VideoProcessorOutputView** ppVPOView) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateVideoProcessorEnumerator(const D3D11_VIDEO_PROCESSOR_CONTENT_DESC* pDesc,
                                                                   ID3D11VideoProcessorEnumerator** ppEnum) = 0;
  virtual UINT STDMETHODCALLTYPE GetVideoDecoderProfileCount() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVideoDecoderProfile(UINT Index, GUID* pDecoderProfile) = 0;
  virtual HRESULT STDMETHODCALLTYPE CheckVideoDecoderFormat(const GUID* pDecoderProfile, DXGI_FORMAT Format,
                                                            BOOL* pSupported) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID guid, UINT DataSize, const void* pData) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID guid, const IUnknown* pData) = 0;
};
__CRT_UUID_DECL(ID3D11VideoDevice, 0x10EC4D5B, 0x975A, 0x4689, 0xB9, 0xE4, 0xD0, 0xAA, 0xC3, 0x0F, 0xE3, 0x33)
DEFINE_GUID(IID_ID3D11VideoDevice, 0x10EC4D5B, 0x975A, 0x4689, 0xB9, 0xE4, 0xD0, 0xAA, 0xC3, 0x0F, 0xE3, 0x33);
