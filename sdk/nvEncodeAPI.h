// The NVENC API as the driver's nvEncodeAPI64.dll exports it, version 12.0: the entry point,
// the function table and the structures the encoder passes through it. Only what the encoder
// uses is spelled out; every structure still has its full 12.0 size, the rest standing in
// reserved space, because the driver reads and writes the whole of each one it is given.
#pragma once

#include <stdint.h>
#include <windows.h>

// The driver's calling convention: WINAPI's, which on x64 is the one convention there is.
#define NVENCAPI WINAPI

#ifdef __cplusplus
extern "C" {
#endif

#define NVENCAPI_MAJOR_VERSION 12
#define NVENCAPI_MINOR_VERSION 0
// The minor version goes in the high byte, so 12.1 is 0x0100000C.
#define NVENCAPI_VERSION (NVENCAPI_MAJOR_VERSION | (NVENCAPI_MINOR_VERSION << 24))
#define NVENCAPI_STRUCT_VERSION(ver) ((uint32_t)NVENCAPI_VERSION | ((ver) << 16) | (0x7 << 28))

#define NV_ENCODE_API_FUNCTION_LIST_VER NVENCAPI_STRUCT_VERSION(2)
#define NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS_VER NVENCAPI_STRUCT_VERSION(1)
#define NV_ENC_RC_PARAMS_VER NVENCAPI_STRUCT_VERSION(1)
#define NV_ENC_CONFIG_VER (NVENCAPI_STRUCT_VERSION(8) | (1u << 31))
#define NV_ENC_PRESET_CONFIG_VER (NVENCAPI_STRUCT_VERSION(4) | (1u << 31))
#define NV_ENC_INITIALIZE_PARAMS_VER (NVENCAPI_STRUCT_VERSION(5) | (1u << 31))
#define NV_ENC_CREATE_BITSTREAM_BUFFER_VER NVENCAPI_STRUCT_VERSION(1)
#define NV_ENC_REGISTER_RESOURCE_VER NVENCAPI_STRUCT_VERSION(4)
#define NV_ENC_MAP_INPUT_RESOURCE_VER NVENCAPI_STRUCT_VERSION(4)
#define NV_ENC_PIC_PARAMS_VER (NVENCAPI_STRUCT_VERSION(6) | (1u << 31))
#define NV_ENC_LOCK_BITSTREAM_VER NVENCAPI_STRUCT_VERSION(2)

// {6BC82762-4E63-4CA4-AA85-1E50F321F6BF}
static const GUID NV_ENC_CODEC_H264_GUID = {0x6bc82762, 0x4e63, 0x4ca4, {0xaa, 0x85, 0x1e, 0x50, 0xf3, 0x21, 0xf6, 0xbf}};
// {0727BCAA-78C4-4C83-8C2F-EF3DFF267C6A}
static const GUID NV_ENC_H264_PROFILE_BASELINE_GUID = {0x0727bcaa, 0x78c4, 0x4c83, {0x8c, 0x2f, 0xef, 0x3d, 0xff, 0x26, 0x7c, 0x6a}};
// {FC0A8D3E-45F8-4CF8-80C7-298871590EBF}
static const GUID NV_ENC_PRESET_P1_GUID = {0xfc0a8d3e, 0x45f8, 0x4cf8, {0x80, 0xc7, 0x29, 0x88, 0x71, 0x59, 0x0e, 0xbf}};
// {36850110-3A07-441F-94D5-3670631F91F6}
static const GUID NV_ENC_PRESET_P3_GUID = {0x36850110, 0x3a07, 0x441f, {0x94, 0xd5, 0x36, 0x70, 0x63, 0x1f, 0x91, 0xf6}};
// {90A7B826-DF06-4862-B9D2-CD6D73A08681}
static const GUID NV_ENC_PRESET_P4_GUID = {0x90a7b826, 0xdf06, 0x4862, {0xb9, 0xd2, 0xcd, 0x6d, 0x73, 0xa0, 0x86, 0x81}};

typedef void* NV_ENC_INPUT_PTR;
typedef void* NV_ENC_OUTPUT_PTR;
typedef void* NV_ENC_REGISTERED_PTR;
typedef void* NV_ENC_CUSTREAM_PTR;

typedef enum _NVENCSTATUS {
  NV_ENC_SUCCESS,
  NV_ENC_ERR_NO_ENCODE_DEVICE,
  NV_ENC_ERR_UNSUPPORTED_DEVICE,
  NV_ENC_ERR_INVALID_ENCODERDEVICE,
  NV_ENC_ERR_INVALID_DEVICE,
  NV_ENC_ERR_DEVICE_NOT_EXIST,
  NV_ENC_ERR_INVALID_PTR,
  NV_ENC_ERR_INVALID_EVENT,
  NV_ENC_ERR_INVALID_PARAM,
  NV_ENC_ERR_INVALID_CALL,
  NV_ENC_ERR_OUT_OF_MEMORY,
  NV_ENC_ERR_ENCODER_NOT_INITIALIZED,
  NV_ENC_ERR_UNSUPPORTED_PARAM,
  NV_ENC_ERR_LOCK_BUSY,
  NV_ENC_ERR_NOT_ENOUGH_BUFFER,
  NV_ENC_ERR_INVALID_VERSION,
  NV_ENC_ERR_MAP_FAILED,
  NV_ENC_ERR_NEED_MORE_INPUT,
  NV_ENC_ERR_ENCODER_BUSY,
  NV_ENC_ERR_EVENT_NOT_REGISTERD,
  NV_ENC_ERR_GENERIC,
  NV_ENC_ERR_INCOMPATIBLE_CLIENT_KEY,
  NV_ENC_ERR_UNIMPLEMENTED,
  NV_ENC_ERR_RESOURCE_REGISTER_FAILED,
  NV_ENC_ERR_RESOURCE_NOT_REGISTERED,
  NV_ENC_ERR_RESOURCE_NOT_MAPPED,
} NVENCSTATUS;

typedef enum _NV_ENC_PARAMS_FRAME_FIELD_MODE {
  NV_ENC_PARAMS_FRAME_FIELD_MODE_FRAME = 0x01,
  NV_ENC_PARAMS_FRAME_FIELD_MODE_FIELD = 0x02,
  NV_ENC_PARAMS_FRAME_FIELD_MODE_MBAFF = 0x03,
} NV_ENC_PARAMS_FRAME_FIELD_MODE;

typedef enum _NV_ENC_PARAMS_RC_MODE {
  NV_ENC_PARAMS_RC_CONSTQP = 0x0,
  NV_ENC_PARAMS_RC_VBR = 0x1,
  NV_ENC_PARAMS_RC_CBR = 0x2,
} NV_ENC_PARAMS_RC_MODE;

typedef enum _NV_ENC_MULTI_PASS {
  NV_ENC_MULTI_PASS_DISABLED = 0x0,
  NV_ENC_TWO_PASS_QUARTER_RESOLUTION = 0x1,
  NV_ENC_TWO_PASS_FULL_RESOLUTION = 0x2,
} NV_ENC_MULTI_PASS;

typedef enum _NV_ENC_QP_MAP_MODE {
  NV_ENC_QP_MAP_DISABLED = 0x0,
  NV_ENC_QP_MAP_EMPHASIS = 0x1,
  NV_ENC_QP_MAP_DELTA = 0x2,
  NV_ENC_QP_MAP = 0x3,
} NV_ENC_QP_MAP_MODE;

typedef enum _NV_ENC_PIC_STRUCT {
  NV_ENC_PIC_STRUCT_FRAME = 0x01,
  NV_ENC_PIC_STRUCT_FIELD_TOP_BOTTOM = 0x02,
  NV_ENC_PIC_STRUCT_FIELD_BOTTOM_TOP = 0x03,
} NV_ENC_PIC_STRUCT;

typedef enum _NV_ENC_PIC_TYPE {
  NV_ENC_PIC_TYPE_P = 0x0,
  NV_ENC_PIC_TYPE_B = 0x01,
  NV_ENC_PIC_TYPE_I = 0x02,
  NV_ENC_PIC_TYPE_IDR = 0x03,
  NV_ENC_PIC_TYPE_BI = 0x04,
  NV_ENC_PIC_TYPE_SKIPPED = 0x05,
  NV_ENC_PIC_TYPE_INTRA_REFRESH = 0x06,
  NV_ENC_PIC_TYPE_NONREF_P = 0x07,
  NV_ENC_PIC_TYPE_UNKNOWN = 0xFF,
} NV_ENC_PIC_TYPE;

typedef enum _NV_ENC_MV_PRECISION {
  NV_ENC_MV_PRECISION_DEFAULT = 0x0,
  NV_ENC_MV_PRECISION_FULL_PEL = 0x01,
  NV_ENC_MV_PRECISION_HALF_PEL = 0x02,
  NV_ENC_MV_PRECISION_QUARTER_PEL = 0x03,
} NV_ENC_MV_PRECISION;

typedef enum _NV_ENC_BUFFER_FORMAT {
  NV_ENC_BUFFER_FORMAT_UNDEFINED = 0x00000000,
  NV_ENC_BUFFER_FORMAT_NV12 = 0x00000001,
  NV_ENC_BUFFER_FORMAT_YV12 = 0x00000010,
  NV_ENC_BUFFER_FORMAT_IYUV = 0x00000100,
  NV_ENC_BUFFER_FORMAT_YUV444 = 0x00001000,
  NV_ENC_BUFFER_FORMAT_YUV420_10BIT = 0x00010000,
  NV_ENC_BUFFER_FORMAT_YUV444_10BIT = 0x00100000,
  NV_ENC_BUFFER_FORMAT_ARGB = 0x01000000,
  NV_ENC_BUFFER_FORMAT_ARGB10 = 0x02000000,
  NV_ENC_BUFFER_FORMAT_AYUV = 0x04000000,
  NV_ENC_BUFFER_FORMAT_ABGR = 0x10000000,
  NV_ENC_BUFFER_FORMAT_ABGR10 = 0x20000000,
  NV_ENC_BUFFER_FORMAT_U8 = 0x40000000,
} NV_ENC_BUFFER_FORMAT;

typedef enum _NV_ENC_PIC_FLAGS {
  NV_ENC_PIC_FLAG_FORCEINTRA = 0x1,
  NV_ENC_PIC_FLAG_FORCEIDR = 0x2,
  NV_ENC_PIC_FLAG_OUTPUT_SPSPPS = 0x4,
  NV_ENC_PIC_FLAG_EOS = 0x8,
} NV_ENC_PIC_FLAGS;

typedef enum _NV_ENC_MEMORY_HEAP {
  NV_ENC_MEMORY_HEAP_AUTOSELECT = 0,
  NV_ENC_MEMORY_HEAP_VID = 1,
  NV_ENC_MEMORY_HEAP_SYSMEM_CACHED = 2,
  NV_ENC_MEMORY_HEAP_SYSMEM_UNCACHED = 3,
} NV_ENC_MEMORY_HEAP;

typedef enum _NV_ENC_H264_ENTROPY_CODING_MODE {
  NV_ENC_H264_ENTROPY_CODING_MODE_AUTOSELECT = 0x0,
  NV_ENC_H264_ENTROPY_CODING_MODE_CABAC = 0x1,
  NV_ENC_H264_ENTROPY_CODING_MODE_CAVLC = 0x2,
} NV_ENC_H264_ENTROPY_CODING_MODE;

typedef enum _NV_ENC_H264_BDIRECT_MODE {
  NV_ENC_H264_BDIRECT_MODE_AUTOSELECT = 0x0,
  NV_ENC_H264_BDIRECT_MODE_DISABLE = 0x1,
  NV_ENC_H264_BDIRECT_MODE_TEMPORAL = 0x2,
  NV_ENC_H264_BDIRECT_MODE_SPATIAL = 0x3,
} NV_ENC_H264_BDIRECT_MODE;

typedef enum _NV_ENC_H264_FMO_MODE {
  NV_ENC_H264_FMO_AUTOSELECT = 0x0,
  NV_ENC_H264_FMO_ENABLE = 0x1,
  NV_ENC_H264_FMO_DISABLE = 0x2,
} NV_ENC_H264_FMO_MODE;

typedef enum _NV_ENC_H264_ADAPTIVE_TRANSFORM_MODE {
  NV_ENC_H264_ADAPTIVE_TRANSFORM_AUTOSELECT = 0x0,
  NV_ENC_H264_ADAPTIVE_TRANSFORM_DISABLE = 0x1,
  NV_ENC_H264_ADAPTIVE_TRANSFORM_ENABLE = 0x2,
} NV_ENC_H264_ADAPTIVE_TRANSFORM_MODE;

typedef enum _NV_ENC_STEREO_PACKING_MODE {
  NV_ENC_STEREO_PACKING_MODE_NONE = 0x0,
} NV_ENC_STEREO_PACKING_MODE;

typedef enum _NV_ENC_INPUT_RESOURCE_TYPE {
  NV_ENC_INPUT_RESOURCE_TYPE_DIRECTX = 0x0,
  NV_ENC_INPUT_RESOURCE_TYPE_CUDADEVICEPTR = 0x1,
  NV_ENC_INPUT_RESOURCE_TYPE_CUDAARRAY = 0x2,
  NV_ENC_INPUT_RESOURCE_TYPE_OPENGL_TEX = 0x3,
} NV_ENC_INPUT_RESOURCE_TYPE;

typedef enum _NV_ENC_BUFFER_USAGE {
  NV_ENC_INPUT_IMAGE = 0x0,
  NV_ENC_OUTPUT_MOTION_VECTOR = 0x1,
  NV_ENC_OUTPUT_BITSTREAM = 0x2,
} NV_ENC_BUFFER_USAGE;

typedef enum _NV_ENC_DEVICE_TYPE {
  NV_ENC_DEVICE_TYPE_DIRECTX = 0x0,
  NV_ENC_DEVICE_TYPE_CUDA = 0x1,
  NV_ENC_DEVICE_TYPE_OPENGL = 0x2,
} NV_ENC_DEVICE_TYPE;

typedef enum _NV_ENC_NUM_REF_FRAMES {
  NV_ENC_NUM_REF_FRAMES_AUTOSELECT = 0x0,
} NV_ENC_NUM_REF_FRAMES;

typedef enum _NV_ENC_BFRAME_REF_MODE {
  NV_ENC_BFRAME_REF_MODE_DISABLED = 0x0,
  NV_ENC_BFRAME_REF_MODE_EACH = 0x1,
  NV_ENC_BFRAME_REF_MODE_MIDDLE = 0x2,
} NV_ENC_BFRAME_REF_MODE;

typedef enum NV_ENC_TUNING_INFO {
  NV_ENC_TUNING_INFO_UNDEFINED = 0,
  NV_ENC_TUNING_INFO_HIGH_QUALITY = 1,
  NV_ENC_TUNING_INFO_LOW_LATENCY = 2,
  NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY = 3,
  NV_ENC_TUNING_INFO_LOSSLESS = 4,
  NV_ENC_TUNING_INFO_COUNT
} NV_ENC_TUNING_INFO;

// Only passed by pointer to functions the encoder never calls: their table slots must exist,
// their contents need not.
typedef struct _NV_ENC_CAPS_PARAM NV_ENC_CAPS_PARAM;
typedef struct _NV_ENC_CREATE_INPUT_BUFFER NV_ENC_CREATE_INPUT_BUFFER;
typedef struct _NV_ENC_LOCK_INPUT_BUFFER NV_ENC_LOCK_INPUT_BUFFER;
typedef struct _NV_ENC_STAT NV_ENC_STAT;
typedef struct _NV_ENC_SEQUENCE_PARAM_PAYLOAD NV_ENC_SEQUENCE_PARAM_PAYLOAD;
typedef struct _NV_ENC_EVENT_PARAMS NV_ENC_EVENT_PARAMS;
typedef struct _NV_ENC_RECONFIGURE_PARAMS NV_ENC_RECONFIGURE_PARAMS;
typedef struct _NV_ENC_CREATE_MV_BUFFER NV_ENC_CREATE_MV_BUFFER;
typedef struct _NV_ENC_MEONLY_PARAMS NV_ENC_MEONLY_PARAMS;
typedef struct _NVENC_EXTERNAL_ME_HINT NVENC_EXTERNAL_ME_HINT;
typedef struct _NVENC_EXTERNAL_ME_SB_HINT NVENC_EXTERNAL_ME_SB_HINT;
typedef struct _NV_ENC_FENCE_POINT_D3D12 NV_ENC_FENCE_POINT_D3D12;

typedef struct _NV_ENC_QP {
  uint32_t qpInterP;
  uint32_t qpInterB;
  uint32_t qpIntra;
} NV_ENC_QP;

typedef struct _NVENC_EXTERNAL_ME_HINT_COUNTS_PER_BLOCKTYPE {
  uint32_t numCandsPerBlk16x16 : 4;
  uint32_t numCandsPerBlk16x8 : 4;
  uint32_t numCandsPerBlk8x16 : 4;
  uint32_t numCandsPerBlk8x8 : 4;
  uint32_t reserved : 16;
  uint32_t reserved1[3];
} NVENC_EXTERNAL_ME_HINT_COUNTS_PER_BLOCKTYPE;

typedef struct _NV_ENC_RC_PARAMS {
  uint32_t version;
  NV_ENC_PARAMS_RC_MODE rateControlMode;
  NV_ENC_QP constQP;
  uint32_t averageBitRate;
  uint32_t maxBitRate;
  uint32_t vbvBufferSize;
  uint32_t vbvInitialDelay;
  uint32_t enableMinQP : 1;
  uint32_t enableMaxQP : 1;
  uint32_t enableInitialRCQP : 1;
  uint32_t enableAQ : 1;
  uint32_t reservedBitField1 : 1;
  uint32_t enableLookahead : 1;
  uint32_t disableIadapt : 1;
  uint32_t disableBadapt : 1;
  uint32_t enableTemporalAQ : 1;
  uint32_t zeroReorderDelay : 1;
  uint32_t enableNonRefP : 1;
  uint32_t strictGOPTarget : 1;
  uint32_t aqStrength : 4;
  uint32_t reservedBitFields : 16;
  NV_ENC_QP minQP;
  NV_ENC_QP maxQP;
  NV_ENC_QP initialRCQP;
  uint32_t temporallayerIdxMask;
  uint8_t temporalLayerQP[8];
  uint8_t targetQuality;
  uint8_t targetQualityLSB;
  uint16_t lookaheadDepth;
  uint8_t lowDelayKeyFrameScale;
  int8_t yDcQPIndexOffset;
  int8_t uDcQPIndexOffset;
  int8_t vDcQPIndexOffset;
  NV_ENC_QP_MAP_MODE qpMapMode;
  NV_ENC_MULTI_PASS multiPass;
  uint32_t alphaLayerBitrateRatio;
  int8_t cbQPIndexOffset;
  int8_t crQPIndexOffset;
  uint16_t reserved2;
  uint32_t reserved[4];
} NV_ENC_RC_PARAMS;

// The colour fields are enumerations in the API; each is one 32-bit word either way.
typedef struct _NV_ENC_CONFIG_H264_VUI_PARAMETERS {
  uint32_t overscanInfoPresentFlag;
  uint32_t overscanInfo;
  uint32_t videoSignalTypePresentFlag;
  uint32_t videoFormat;
  uint32_t videoFullRangeFlag;
  uint32_t colourDescriptionPresentFlag;
  uint32_t colourPrimaries;
  uint32_t transferCharacteristics;
  uint32_t colourMatrix;
  uint32_t chromaSampleLocationFlag;
  uint32_t chromaSampleLocationTop;
  uint32_t chromaSampleLocationBot;
  uint32_t bitstreamRestrictionFlag;
  uint32_t reserved[15];
} NV_ENC_CONFIG_H264_VUI_PARAMETERS;

typedef struct _NV_ENC_CONFIG_H264 {
  uint32_t enableTemporalSVC : 1;
  uint32_t enableStereoMVC : 1;
  uint32_t hierarchicalPFrames : 1;
  uint32_t hierarchicalBFrames : 1;
  uint32_t outputBufferingPeriodSEI : 1;
  uint32_t outputPictureTimingSEI : 1;
  uint32_t outputAUD : 1;
  uint32_t disableSPSPPS : 1;
  uint32_t outputFramePackingSEI : 1;
  uint32_t outputRecoveryPointSEI : 1;
  uint32_t enableIntraRefresh : 1;
  uint32_t enableConstrainedEncoding : 1;
  uint32_t repeatSPSPPS : 1;
  uint32_t enableVFR : 1;
  uint32_t enableLTR : 1;
  uint32_t qpPrimeYZeroTransformBypassFlag : 1;
  uint32_t useConstrainedIntraPred : 1;
  uint32_t enableFillerDataInsertion : 1;
  uint32_t disableSVCPrefixNalu : 1;
  uint32_t enableScalabilityInfoSEI : 1;
  uint32_t singleSliceIntraRefresh : 1;
  uint32_t enableTimeCode : 1;
  uint32_t reservedBitFields : 10;
  uint32_t level;
  uint32_t idrPeriod;
  uint32_t separateColourPlaneFlag;
  uint32_t disableDeblockingFilterIDC;
  uint32_t numTemporalLayers;
  uint32_t spsId;
  uint32_t ppsId;
  NV_ENC_H264_ADAPTIVE_TRANSFORM_MODE adaptiveTransformMode;
  NV_ENC_H264_FMO_MODE fmoMode;
  NV_ENC_H264_BDIRECT_MODE bdirectMode;
  NV_ENC_H264_ENTROPY_CODING_MODE entropyCodingMode;
  NV_ENC_STEREO_PACKING_MODE stereoMode;
  uint32_t intraRefreshPeriod;
  uint32_t intraRefreshCnt;
  uint32_t maxNumRefFrames;
  uint32_t sliceMode;
  uint32_t sliceModeData;
  NV_ENC_CONFIG_H264_VUI_PARAMETERS h264VUIParameters;
  uint32_t ltrNumFrames;
  uint32_t ltrTrustMode;
  uint32_t chromaFormatIDC;
  uint32_t maxTemporalLayers;
  NV_ENC_BFRAME_REF_MODE useBFramesAsRef;
  NV_ENC_NUM_REF_FRAMES numRefL0;
  NV_ENC_NUM_REF_FRAMES numRefL1;
  uint32_t reserved1[267];
  void* reserved2[64];
} NV_ENC_CONFIG_H264;

// The HEVC, AV1 and motion-estimation members are left out: none is larger than the H.264 one.
typedef union _NV_ENC_CODEC_CONFIG {
  NV_ENC_CONFIG_H264 h264Config;
  uint32_t reserved[320];
} NV_ENC_CODEC_CONFIG;

typedef struct _NV_ENC_CONFIG {
  uint32_t version;
  GUID profileGUID;
  uint32_t gopLength;
  int32_t frameIntervalP;
  uint32_t monoChromeEncoding;
  NV_ENC_PARAMS_FRAME_FIELD_MODE frameFieldMode;
  NV_ENC_MV_PRECISION mvPrecision;
  NV_ENC_RC_PARAMS rcParams;
  NV_ENC_CODEC_CONFIG encodeCodecConfig;
  uint32_t reserved[278];
  void* reserved2[64];
} NV_ENC_CONFIG;

typedef struct _NV_ENC_INITIALIZE_PARAMS {
  uint32_t version;
  GUID encodeGUID;
  GUID presetGUID;
  uint32_t encodeWidth;
  uint32_t encodeHeight;
  uint32_t darWidth;
  uint32_t darHeight;
  uint32_t frameRateNum;
  uint32_t frameRateDen;
  uint32_t enableEncodeAsync;
  uint32_t enablePTD;
  uint32_t reportSliceOffsets : 1;
  uint32_t enableSubFrameWrite : 1;
  uint32_t enableExternalMEHints : 1;
  uint32_t enableMEOnlyMode : 1;
  uint32_t enableWeightedPrediction : 1;
  uint32_t enableOutputInVidmem : 1;
  uint32_t reservedBitFields : 26;
  uint32_t privDataSize;
  void* privData;
  NV_ENC_CONFIG* encodeConfig;
  uint32_t maxEncodeWidth;
  uint32_t maxEncodeHeight;
  NVENC_EXTERNAL_ME_HINT_COUNTS_PER_BLOCKTYPE maxMEHintCountsPerBlock[2];
  NV_ENC_TUNING_INFO tuningInfo;
  NV_ENC_BUFFER_FORMAT bufferFormat;
  uint32_t reserved[287];
  void* reserved2[64];
} NV_ENC_INITIALIZE_PARAMS;

typedef struct _NV_ENC_PRESET_CONFIG {
  uint32_t version;
  NV_ENC_CONFIG presetCfg;
  uint32_t reserved1[255];
  void* reserved2[64];
} NV_ENC_PRESET_CONFIG;

typedef struct _NV_ENC_OPEN_ENCODE_SESSIONEX_PARAMS {
  uint32_t version;
  NV_ENC_DEVICE_TYPE deviceType;
  void* device;
  void* reserved;
  uint32_t apiVersion;
  uint32_t reserved1[253];
  void* reserved2[64];
} NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS;

typedef struct _NV_ENC_CREATE_BITSTREAM_BUFFER {
  uint32_t version;
  uint32_t size;
  NV_ENC_MEMORY_HEAP memoryHeap;
  uint32_t reserved;
  NV_ENC_OUTPUT_PTR bitstreamBuffer;
  void* bitstreamBufferPtr;
  uint32_t reserved1[58];
  void* reserved2[64];
} NV_ENC_CREATE_BITSTREAM_BUFFER;

typedef struct _NV_ENC_REGISTER_RESOURCE {
  uint32_t version;
  NV_ENC_INPUT_RESOURCE_TYPE resourceType;
  uint32_t width;
  uint32_t height;
  uint32_t pitch;
  uint32_t subResourceIndex;
  void* resourceToRegister;
  NV_ENC_REGISTERED_PTR registeredResource;
  NV_ENC_BUFFER_FORMAT bufferFormat;
  NV_ENC_BUFFER_USAGE bufferUsage;
  NV_ENC_FENCE_POINT_D3D12* pInputFencePoint;
  uint32_t reserved1[247];
  void* reserved2[61];
} NV_ENC_REGISTER_RESOURCE;

typedef struct _NV_ENC_MAP_INPUT_RESOURCE {
  uint32_t version;
  uint32_t subResourceIndex;
  void* inputResource;
  NV_ENC_REGISTERED_PTR registeredResource;
  NV_ENC_INPUT_PTR mappedResource;
  NV_ENC_BUFFER_FORMAT mappedBufferFmt;
  uint32_t reserved1[251];
  void* reserved2[63];
} NV_ENC_MAP_INPUT_RESOURCE;

// Per-picture H.264 controls. The encoder writes none of them; past forceIntraSliceIdx the
// extension parameters, time code and reserved words of 12.0 stand in one reserved block.
typedef struct _NV_ENC_PIC_PARAMS_H264 {
  uint32_t displayPOCSyntax;
  uint32_t reserved3;
  uint32_t refPicFlag;
  uint32_t colourPlaneId;
  uint32_t forceIntraRefreshWithFrameCnt;
  uint32_t constrainedFrame : 1;
  uint32_t sliceModeDataUpdate : 1;
  uint32_t ltrMarkFrame : 1;
  uint32_t ltrUseFrames : 1;
  uint32_t reservedBitFields : 28;
  uint8_t* sliceTypeData;
  uint32_t sliceTypeArrayCnt;
  uint32_t seiPayloadArrayCnt;
  void* seiPayloadArray;
  uint32_t sliceMode;
  uint32_t sliceModeData;
  uint32_t ltrMarkFrameIdx;
  uint32_t ltrUseFrameBitmap;
  uint32_t ltrUsageMode;
  uint32_t forceIntraSliceCount;
  uint32_t* forceIntraSliceIdx;
  uint32_t reserved[368];
} NV_ENC_PIC_PARAMS_H264;

typedef union _NV_ENC_CODEC_PIC_PARAMS {
  NV_ENC_PIC_PARAMS_H264 h264PicParams;
  uint32_t reserved[256];
} NV_ENC_CODEC_PIC_PARAMS;

typedef struct _NV_ENC_PIC_PARAMS {
  uint32_t version;
  uint32_t inputWidth;
  uint32_t inputHeight;
  uint32_t inputPitch;
  uint32_t encodePicFlags;
  uint32_t frameIdx;
  uint64_t inputTimeStamp;
  uint64_t inputDuration;
  NV_ENC_INPUT_PTR inputBuffer;
  NV_ENC_OUTPUT_PTR outputBitstream;
  void* completionEvent;
  NV_ENC_BUFFER_FORMAT bufferFmt;
  NV_ENC_PIC_STRUCT pictureStruct;
  NV_ENC_PIC_TYPE pictureType;
  NV_ENC_CODEC_PIC_PARAMS codecPicParams;
  NVENC_EXTERNAL_ME_HINT_COUNTS_PER_BLOCKTYPE meHintCountsPerBlock[2];
  NVENC_EXTERNAL_ME_HINT* meExternalHints;
  uint32_t reserved1[6];
  void* reserved2[2];
  int8_t* qpDeltaMap;
  uint32_t qpDeltaMapSize;
  uint32_t reservedBitFields;
  uint16_t meHintRefPicDist[2];
  NV_ENC_INPUT_PTR alphaBuffer;
  NVENC_EXTERNAL_ME_SB_HINT* meExternalSbHints;
  uint32_t meSbHintsCount;
  uint32_t reserved3[285];
  void* reserved4[58];
} NV_ENC_PIC_PARAMS;

typedef struct _NV_ENC_LOCK_BITSTREAM {
  uint32_t version;
  uint32_t doNotWait : 1;
  uint32_t ltrFrame : 1;
  uint32_t reservedBitFields : 30;
  void* outputBitstream;
  uint32_t* sliceOffsets;
  uint32_t frameIdx;
  uint32_t hwEncodeStatus;
  uint32_t numSlices;
  uint32_t bitstreamSizeInBytes;
  uint64_t outputTimeStamp;
  uint64_t outputDuration;
  void* bitstreamBufferPtr;
  NV_ENC_PIC_TYPE pictureType;
  NV_ENC_PIC_STRUCT pictureStruct;
  uint32_t frameAvgQP;
  uint32_t frameSatd;
  uint32_t ltrFrameIdx;
  uint32_t ltrFrameBitmap;
  uint32_t temporalId;
  uint32_t reserved[12];
  uint32_t intraMBCount;
  uint32_t interMBCount;
  int32_t averageMVX;
  int32_t averageMVY;
  uint32_t alphaLayerSizeInBytes;
  uint32_t reserved1[218];
  void* reserved2[64];
} NV_ENC_LOCK_BITSTREAM;

typedef NVENCSTATUS(NVENCAPI* PNVENCOPENENCODESESSION)(void* device, uint32_t deviceType, void** encoder);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODEGUIDCOUNT)(void* encoder, uint32_t* encodeGUIDCount);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODEGUIDS)(void* encoder, GUID* GUIDs, uint32_t guidArraySize,
                                                    uint32_t* GUIDCount);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODEPROFILEGUIDCOUNT)(void* encoder, GUID encodeGUID,
                                                               uint32_t* encodeProfileGUIDCount);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODEPROFILEGUIDS)(void* encoder, GUID encodeGUID, GUID* profileGUIDs,
                                                           uint32_t guidArraySize, uint32_t* GUIDCount);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETINPUTFORMATCOUNT)(void* encoder, GUID encodeGUID, uint32_t* inputFmtCount);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETINPUTFORMATS)(void* encoder, GUID encodeGUID, NV_ENC_BUFFER_FORMAT* inputFmts,
                                                     uint32_t inputFmtArraySize, uint32_t* inputFmtCount);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODECAPS)(void* encoder, GUID encodeGUID, NV_ENC_CAPS_PARAM* capsParam,
                                                   int* capsVal);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODEPRESETCOUNT)(void* encoder, GUID encodeGUID,
                                                          uint32_t* encodePresetGUIDCount);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODEPRESETGUIDS)(void* encoder, GUID encodeGUID, GUID* presetGUIDs,
                                                          uint32_t guidArraySize, uint32_t* encodePresetGUIDCount);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODEPRESETCONFIG)(void* encoder, GUID encodeGUID, GUID presetGUID,
                                                           NV_ENC_PRESET_CONFIG* presetConfig);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODEPRESETCONFIGEX)(void* encoder, GUID encodeGUID, GUID presetGUID,
                                                             NV_ENC_TUNING_INFO tuningInfo,
                                                             NV_ENC_PRESET_CONFIG* presetConfig);
typedef NVENCSTATUS(NVENCAPI* PNVENCINITIALIZEENCODER)(void* encoder, NV_ENC_INITIALIZE_PARAMS* createEncodeParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCCREATEINPUTBUFFER)(void* encoder,
                                                       NV_ENC_CREATE_INPUT_BUFFER* createInputBufferParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCDESTROYINPUTBUFFER)(void* encoder, NV_ENC_INPUT_PTR inputBuffer);
typedef NVENCSTATUS(NVENCAPI* PNVENCCREATEBITSTREAMBUFFER)(void* encoder,
                                                           NV_ENC_CREATE_BITSTREAM_BUFFER* createBitstreamBufferParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCDESTROYBITSTREAMBUFFER)(void* encoder, NV_ENC_OUTPUT_PTR bitstreamBuffer);
typedef NVENCSTATUS(NVENCAPI* PNVENCENCODEPICTURE)(void* encoder, NV_ENC_PIC_PARAMS* encodePicParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCLOCKBITSTREAM)(void* encoder, NV_ENC_LOCK_BITSTREAM* lockBitstreamBufferParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCUNLOCKBITSTREAM)(void* encoder, NV_ENC_OUTPUT_PTR bitstreamBuffer);
typedef NVENCSTATUS(NVENCAPI* PNVENCLOCKINPUTBUFFER)(void* encoder, NV_ENC_LOCK_INPUT_BUFFER* lockInputBufferParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCUNLOCKINPUTBUFFER)(void* encoder, NV_ENC_INPUT_PTR inputBuffer);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETENCODESTATS)(void* encoder, NV_ENC_STAT* encodeStats);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETSEQUENCEPARAMS)(void* encoder,
                                                       NV_ENC_SEQUENCE_PARAM_PAYLOAD* sequenceParamPayload);
typedef NVENCSTATUS(NVENCAPI* PNVENCREGISTERASYNCEVENT)(void* encoder, NV_ENC_EVENT_PARAMS* eventParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCUNREGISTERASYNCEVENT)(void* encoder, NV_ENC_EVENT_PARAMS* eventParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCMAPINPUTRESOURCE)(void* encoder, NV_ENC_MAP_INPUT_RESOURCE* mapInputResParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCUNMAPINPUTRESOURCE)(void* encoder, NV_ENC_INPUT_PTR mappedInputBuffer);
typedef NVENCSTATUS(NVENCAPI* PNVENCDESTROYENCODER)(void* encoder);
typedef NVENCSTATUS(NVENCAPI* PNVENCINVALIDATEREFFRAMES)(void* encoder, uint64_t invalidRefFrameTimeStamp);
typedef NVENCSTATUS(NVENCAPI* PNVENCOPENENCODESESSIONEX)(NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS* openSessionExParams,
                                                         void** encoder);
typedef NVENCSTATUS(NVENCAPI* PNVENCREGISTERRESOURCE)(void* encoder, NV_ENC_REGISTER_RESOURCE* registerResParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCUNREGISTERRESOURCE)(void* encoder, NV_ENC_REGISTERED_PTR registeredRes);
typedef NVENCSTATUS(NVENCAPI* PNVENCRECONFIGUREENCODER)(void* encoder, NV_ENC_RECONFIGURE_PARAMS* reInitEncodeParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCCREATEMVBUFFER)(void* encoder, NV_ENC_CREATE_MV_BUFFER* createMVBufferParams);
typedef NVENCSTATUS(NVENCAPI* PNVENCDESTROYMVBUFFER)(void* encoder, NV_ENC_OUTPUT_PTR mvBuffer);
typedef NVENCSTATUS(NVENCAPI* PNVENCRUNMOTIONESTIMATIONONLY)(void* encoder, NV_ENC_MEONLY_PARAMS* meOnlyParams);
typedef const char*(NVENCAPI* PNVENCGETLASTERROR)(void* encoder);
typedef NVENCSTATUS(NVENCAPI* PNVENCSETIOCUDASTREAMS)(void* encoder, NV_ENC_CUSTREAM_PTR inputStream,
                                                      NV_ENC_CUSTREAM_PTR outputStream);
typedef NVENCSTATUS(NVENCAPI* PNVENCGETSEQUENCEPARAMEX)(void* encoder, NV_ENC_INITIALIZE_PARAMS* encInitParams,
                                                        NV_ENC_SEQUENCE_PARAM_PAYLOAD* sequenceParamPayload);

// Filled by NvEncodeAPICreateInstance. A driver older than the caller's version leaves the
// slots it does not know null, which is why the encoder tests each one it may do without.
typedef struct _NV_ENCODE_API_FUNCTION_LIST {
  uint32_t version;
  uint32_t reserved;
  PNVENCOPENENCODESESSION nvEncOpenEncodeSession;
  PNVENCGETENCODEGUIDCOUNT nvEncGetEncodeGUIDCount;
  PNVENCGETENCODEPROFILEGUIDCOUNT nvEncGetEncodeProfileGUIDCount;
  PNVENCGETENCODEPROFILEGUIDS nvEncGetEncodeProfileGUIDs;
  PNVENCGETENCODEGUIDS nvEncGetEncodeGUIDs;
  PNVENCGETINPUTFORMATCOUNT nvEncGetInputFormatCount;
  PNVENCGETINPUTFORMATS nvEncGetInputFormats;
  PNVENCGETENCODECAPS nvEncGetEncodeCaps;
  PNVENCGETENCODEPRESETCOUNT nvEncGetEncodePresetCount;
  PNVENCGETENCODEPRESETGUIDS nvEncGetEncodePresetGUIDs;
  PNVENCGETENCODEPRESETCONFIG nvEncGetEncodePresetConfig;
  PNVENCINITIALIZEENCODER nvEncInitializeEncoder;
  PNVENCCREATEINPUTBUFFER nvEncCreateInputBuffer;
  PNVENCDESTROYINPUTBUFFER nvEncDestroyInputBuffer;
  PNVENCCREATEBITSTREAMBUFFER nvEncCreateBitstreamBuffer;
  PNVENCDESTROYBITSTREAMBUFFER nvEncDestroyBitstreamBuffer;
  PNVENCENCODEPICTURE nvEncEncodePicture;
  PNVENCLOCKBITSTREAM nvEncLockBitstream;
  PNVENCUNLOCKBITSTREAM nvEncUnlockBitstream;
  PNVENCLOCKINPUTBUFFER nvEncLockInputBuffer;
  PNVENCUNLOCKINPUTBUFFER nvEncUnlockInputBuffer;
  PNVENCGETENCODESTATS nvEncGetEncodeStats;
  PNVENCGETSEQUENCEPARAMS nvEncGetSequenceParams;
  PNVENCREGISTERASYNCEVENT nvEncRegisterAsyncEvent;
  PNVENCUNREGISTERASYNCEVENT nvEncUnregisterAsyncEvent;
  PNVENCMAPINPUTRESOURCE nvEncMapInputResource;
  PNVENCUNMAPINPUTRESOURCE nvEncUnmapInputResource;
  PNVENCDESTROYENCODER nvEncDestroyEncoder;
  PNVENCINVALIDATEREFFRAMES nvEncInvalidateRefFrames;
  PNVENCOPENENCODESESSIONEX nvEncOpenEncodeSessionEx;
  PNVENCREGISTERRESOURCE nvEncRegisterResource;
  PNVENCUNREGISTERRESOURCE nvEncUnregisterResource;
  PNVENCRECONFIGUREENCODER nvEncReconfigureEncoder;
  void* reserved1;
  PNVENCCREATEMVBUFFER nvEncCreateMVBuffer;
  PNVENCDESTROYMVBUFFER nvEncDestroyMVBuffer;
  PNVENCRUNMOTIONESTIMATIONONLY nvEncRunMotionEstimationOnly;
  PNVENCGETLASTERROR nvEncGetLastErrorString;
  PNVENCSETIOCUDASTREAMS nvEncSetIOCudaStreams;
  PNVENCGETENCODEPRESETCONFIGEX nvEncGetEncodePresetConfigEx;
  PNVENCGETSEQUENCEPARAMEX nvEncGetSequenceParamEx;
  void* reserved2[277];
} NV_ENCODE_API_FUNCTION_LIST;

// The library's one export; the encoder finds it with GetProcAddress, so it is never linked.
NVENCSTATUS NVENCAPI NvEncodeAPICreateInstance(NV_ENCODE_API_FUNCTION_LIST* functionList);

#ifdef __cplusplus
}
#endif
