// The 64-bit layout of the NVENC 12.0 structures, checked where it is compiled: the Linux
// tests and the Windows build both include this, so gcc and mingw-w64 must agree with the
// driver. A field at the wrong offset would not fail a call; the driver would read the wrong
// word.
#pragma once

#include <stddef.h>

#include "nvEncodeAPI.h"

// Function table: each slot where the driver writes it.
static_assert(sizeof(NV_ENCODE_API_FUNCTION_LIST) == 2552);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncOpenEncodeSession) == 8);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncGetEncodePresetConfig) == 88);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncInitializeEncoder) == 96);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncCreateBitstreamBuffer) == 120);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncEncodePicture) == 136);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncLockBitstream) == 144);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncUnlockBitstream) == 152);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncMapInputResource) == 208);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncUnmapInputResource) == 216);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncDestroyEncoder) == 224);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncOpenEncodeSessionEx) == 240);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncRegisterResource) == 248);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncUnregisterResource) == 256);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncGetLastErrorString) == 304);
static_assert(offsetof(NV_ENCODE_API_FUNCTION_LIST, nvEncGetEncodePresetConfigEx) == 320);

// Session and set-up.
static_assert(sizeof(NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS) == 1552);
static_assert(offsetof(NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS, deviceType) == 4);
static_assert(offsetof(NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS, device) == 8);
static_assert(offsetof(NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS, apiVersion) == 24);

static_assert(sizeof(NV_ENC_PRESET_CONFIG) == 5128);
static_assert(offsetof(NV_ENC_PRESET_CONFIG, presetCfg) == 8);

static_assert(sizeof(NV_ENC_CONFIG) == 3584);
static_assert(offsetof(NV_ENC_CONFIG, profileGUID) == 4);
static_assert(offsetof(NV_ENC_CONFIG, gopLength) == 20);
static_assert(offsetof(NV_ENC_CONFIG, frameIntervalP) == 24);
static_assert(offsetof(NV_ENC_CONFIG, rcParams) == 40);
static_assert(offsetof(NV_ENC_CONFIG, encodeCodecConfig) == 168);

static_assert(sizeof(NV_ENC_RC_PARAMS) == 128);
static_assert(offsetof(NV_ENC_RC_PARAMS, rateControlMode) == 4);
static_assert(offsetof(NV_ENC_RC_PARAMS, averageBitRate) == 20);
static_assert(offsetof(NV_ENC_RC_PARAMS, maxBitRate) == 24);
static_assert(offsetof(NV_ENC_RC_PARAMS, vbvBufferSize) == 28);
static_assert(offsetof(NV_ENC_RC_PARAMS, vbvInitialDelay) == 32);

static_assert(sizeof(NV_ENC_CODEC_CONFIG) == 1792);
static_assert(sizeof(NV_ENC_CONFIG_H264) == 1792);
static_assert(offsetof(NV_ENC_CONFIG_H264, idrPeriod) == 8);
static_assert(offsetof(NV_ENC_CONFIG_H264, sliceMode) == 64);
static_assert(offsetof(NV_ENC_CONFIG_H264, sliceModeData) == 68);
static_assert(offsetof(NV_ENC_CONFIG_H264, h264VUIParameters) == 72);
static_assert(sizeof(NV_ENC_CONFIG_H264_VUI_PARAMETERS) == 112);

static_assert(sizeof(NV_ENC_INITIALIZE_PARAMS) == 1808);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, encodeGUID) == 4);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, presetGUID) == 20);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, encodeWidth) == 36);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, encodeHeight) == 40);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, darWidth) == 44);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, darHeight) == 48);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, frameRateNum) == 52);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, frameRateDen) == 56);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, enableEncodeAsync) == 60);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, enablePTD) == 64);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, encodeConfig) == 88);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, maxEncodeWidth) == 96);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, maxEncodeHeight) == 100);
static_assert(offsetof(NV_ENC_INITIALIZE_PARAMS, tuningInfo) == 136);

static_assert(sizeof(NV_ENC_CREATE_BITSTREAM_BUFFER) == 776);
static_assert(offsetof(NV_ENC_CREATE_BITSTREAM_BUFFER, bitstreamBuffer) == 16);

// Frame path.
static_assert(sizeof(NV_ENC_REGISTER_RESOURCE) == 1536);
static_assert(offsetof(NV_ENC_REGISTER_RESOURCE, resourceType) == 4);
static_assert(offsetof(NV_ENC_REGISTER_RESOURCE, width) == 8);
static_assert(offsetof(NV_ENC_REGISTER_RESOURCE, height) == 12);
static_assert(offsetof(NV_ENC_REGISTER_RESOURCE, pitch) == 16);
static_assert(offsetof(NV_ENC_REGISTER_RESOURCE, subResourceIndex) == 20);
static_assert(offsetof(NV_ENC_REGISTER_RESOURCE, resourceToRegister) == 24);
static_assert(offsetof(NV_ENC_REGISTER_RESOURCE, registeredResource) == 32);
static_assert(offsetof(NV_ENC_REGISTER_RESOURCE, bufferFormat) == 40);

static_assert(sizeof(NV_ENC_MAP_INPUT_RESOURCE) == 1544);
static_assert(offsetof(NV_ENC_MAP_INPUT_RESOURCE, registeredResource) == 16);
static_assert(offsetof(NV_ENC_MAP_INPUT_RESOURCE, mappedResource) == 24);
static_assert(offsetof(NV_ENC_MAP_INPUT_RESOURCE, mappedBufferFmt) == 32);

static_assert(sizeof(NV_ENC_PIC_PARAMS) == 3360);
static_assert(offsetof(NV_ENC_PIC_PARAMS, inputWidth) == 4);
static_assert(offsetof(NV_ENC_PIC_PARAMS, inputHeight) == 8);
static_assert(offsetof(NV_ENC_PIC_PARAMS, inputPitch) == 12);
static_assert(offsetof(NV_ENC_PIC_PARAMS, encodePicFlags) == 16);
static_assert(offsetof(NV_ENC_PIC_PARAMS, frameIdx) == 20);
static_assert(offsetof(NV_ENC_PIC_PARAMS, inputTimeStamp) == 24);
static_assert(offsetof(NV_ENC_PIC_PARAMS, inputDuration) == 32);
static_assert(offsetof(NV_ENC_PIC_PARAMS, inputBuffer) == 40);
static_assert(offsetof(NV_ENC_PIC_PARAMS, outputBitstream) == 48);
static_assert(offsetof(NV_ENC_PIC_PARAMS, completionEvent) == 56);
static_assert(offsetof(NV_ENC_PIC_PARAMS, bufferFmt) == 64);
static_assert(offsetof(NV_ENC_PIC_PARAMS, pictureStruct) == 68);
static_assert(offsetof(NV_ENC_PIC_PARAMS, pictureType) == 72);
static_assert(offsetof(NV_ENC_PIC_PARAMS, codecPicParams) == 80);
static_assert(sizeof(NV_ENC_CODEC_PIC_PARAMS) == 1552);
static_assert(sizeof(NVENC_EXTERNAL_ME_HINT_COUNTS_PER_BLOCKTYPE) == 16);

static_assert(sizeof(NV_ENC_LOCK_BITSTREAM) == 1544);
static_assert(offsetof(NV_ENC_LOCK_BITSTREAM, outputBitstream) == 8);
static_assert(offsetof(NV_ENC_LOCK_BITSTREAM, bitstreamSizeInBytes) == 36);
static_assert(offsetof(NV_ENC_LOCK_BITSTREAM, outputTimeStamp) == 40);
static_assert(offsetof(NV_ENC_LOCK_BITSTREAM, bitstreamBufferPtr) == 56);
static_assert(offsetof(NV_ENC_LOCK_BITSTREAM, pictureType) == 64);

// Enumerations travel as 32-bit words, with the values the encoder writes and reads.
static_assert(sizeof(NVENCSTATUS) == 4 && sizeof(NV_ENC_BUFFER_FORMAT) == 4 && sizeof(NV_ENC_TUNING_INFO) == 4);
static_assert(NV_ENC_ERR_NO_ENCODE_DEVICE == 1 && NV_ENC_ERR_UNSUPPORTED_DEVICE == 2 &&
              NV_ENC_ERR_INVALID_ENCODERDEVICE == 3 && NV_ENC_ERR_INVALID_DEVICE == 4 &&
              NV_ENC_ERR_INVALID_PARAM == 8 && NV_ENC_ERR_INVALID_VERSION == 15 &&
              NV_ENC_ERR_NEED_MORE_INPUT == 17 && NV_ENC_ERR_RESOURCE_NOT_MAPPED == 25);
static_assert(NV_ENC_DEVICE_TYPE_DIRECTX == 0 && NV_ENC_INPUT_RESOURCE_TYPE_DIRECTX == 0);
static_assert(NV_ENC_BUFFER_FORMAT_NV12 == 1 && NV_ENC_PARAMS_RC_CBR == 2 && NV_ENC_PIC_FLAG_FORCEIDR == 2 &&
              NV_ENC_PIC_STRUCT_FRAME == 1 && NV_ENC_PIC_TYPE_I == 2 && NV_ENC_PIC_TYPE_IDR == 3 &&
              NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY == 3);
