// The sdk/ NVENC declarations against the published 12.0 API: layout (checked at compile time
// in nvenc_layout.h), version words, GUIDs, the bit-fields the encoder sets, and the function
// table as a driver fills it.
#include <guiddef.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "nvEncodeAPI.h"
#include "test/support/guid_text.h"
#include "test/support/nvenc_layout.h"

#ifndef GUID_DEFINED
#error "guiddef.h must define GUID_DEFINED, as the SDK's does"
#endif

namespace {


template <typename T>
uint32_t wordAt(const T& structure, size_t offset) {
  uint32_t word;
  std::memcpy(&word, reinterpret_cast<const unsigned char*>(&structure) + offset, sizeof word);
  return word;
}

TEST(NvencDeclarations, VersionWordsAreThoseOfApi12_0) {
  EXPECT_EQ(NVENCAPI_VERSION, 12u);
  // Structure number in bits 16-23, 0x7 in the top nibble, the API version below.
  EXPECT_EQ(NVENCAPI_STRUCT_VERSION(1), 0x7001000Cu);
  EXPECT_EQ(NV_ENCODE_API_FUNCTION_LIST_VER, 0x7002000Cu);
  EXPECT_EQ(NV_ENC_CONFIG_VER, 0xF008000Cu);
  EXPECT_EQ(NV_ENC_RC_PARAMS_VER, NVENCAPI_STRUCT_VERSION(1));
  EXPECT_EQ(NV_ENC_CREATE_BITSTREAM_BUFFER_VER, NVENCAPI_STRUCT_VERSION(1));
}

TEST(NvencDeclarations, GuidsAreThePublishedOnes) {
  EXPECT_EQ(guidText(NV_ENC_CODEC_H264_GUID), "6bc82762-4e63-4ca4-aa85-1e50f321f6bf");
  EXPECT_EQ(guidText(NV_ENC_PRESET_P1_GUID), "fc0a8d3e-45f8-4cf8-80c7-298871590ebf");
  EXPECT_EQ(guidText(NV_ENC_PRESET_P3_GUID), "36850110-3a07-441f-94d5-3670631f91f6");
  EXPECT_EQ(guidText(NV_ENC_PRESET_P4_GUID), "90a7b826-df06-4862-b9d2-cd6d73a08681");
  EXPECT_EQ(guidText(NV_ENC_H264_PROFILE_BASELINE_GUID), "0727bcaa-78c4-4c83-8c2f-ef3dff267c6a");
  // One GUID type for both headers, so the platform's comparison takes the NVENC ones.
  EXPECT_TRUE(IsEqualGUID(NV_ENC_PRESET_P1_GUID, NV_ENC_PRESET_P1_GUID));
  EXPECT_FALSE(IsEqualGUID(NV_ENC_PRESET_P1_GUID, NV_ENC_PRESET_P4_GUID));
}

// The encoder sets repeatSPSPPS on top of a preset's configuration and must leave the other
// bits of that word as the preset gave them.
TEST(NvencDeclarations, RepeatSpsPpsIsBitTwelveOfTheFirstH264Word) {
  NV_ENC_CONFIG config;
  std::memset(&config, 0, sizeof config);
  const uint32_t presetBits = 0xFFFFFFFFu & ~(1u << 12);
  const size_t wordOffset = offsetof(NV_ENC_CONFIG, encodeCodecConfig);
  std::memcpy(reinterpret_cast<unsigned char*>(&config) + wordOffset, &presetBits, sizeof presetBits);

  config.encodeCodecConfig.h264Config.repeatSPSPPS = 1;
  EXPECT_EQ(wordAt(config, wordOffset), 0xFFFFFFFFu);
  config.encodeCodecConfig.h264Config.repeatSPSPPS = 0;
  EXPECT_EQ(wordAt(config, wordOffset), presetBits);
}

TEST(NvencDeclarations, NestedFieldsSitWhereTheDriverReadsThem) {
  NV_ENC_CONFIG config;
  std::memset(&config, 0, sizeof config);
  config.rcParams.vbvBufferSize = 0x11111111u;
  config.encodeCodecConfig.h264Config.idrPeriod = 0x22222222u;
  EXPECT_EQ(wordAt(config, 40 + 28), 0x11111111u);
  EXPECT_EQ(wordAt(config, 168 + 8), 0x22222222u);

  NV_ENC_LOCK_BITSTREAM lock;
  std::memset(&lock, 0, sizeof lock);
  lock.doNotWait = 1;
  EXPECT_EQ(wordAt(lock, 4), 1u);
}

// A driver fills the table by offset; the encoder calls by field name, with GUIDs by value.
namespace fake {
GUID lastCodec, lastPreset;
NV_ENC_TUNING_INFO lastTuning;

NVENCSTATUS NVENCAPI presetConfigEx(void*, GUID codec, GUID preset, NV_ENC_TUNING_INFO tuning,
                                    NV_ENC_PRESET_CONFIG* config) {
  lastCodec = codec;
  lastPreset = preset;
  lastTuning = tuning;
  config->presetCfg.gopLength = 60;
  return NV_ENC_SUCCESS;
}

const char* NVENCAPI lastError(void*) { return "driver text"; }

NVENCSTATUS NVENCAPI openSessionEx(NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS* params, void** encoder) {
  *encoder = params->device;
  return params->apiVersion == NVENCAPI_VERSION ? NV_ENC_SUCCESS : NV_ENC_ERR_INVALID_VERSION;
}
}  // namespace fake

template <typename Function>
void writeSlot(unsigned char* table, size_t offset, Function function) {
  std::memcpy(table + offset, &function, sizeof function);
}

TEST(NvencDeclarations, FunctionTableSlotsCallTheDriversFunctions) {
  alignas(NV_ENCODE_API_FUNCTION_LIST) unsigned char table[2552] = {};
  writeSlot(table, 240, &fake::openSessionEx);
  writeSlot(table, 304, &fake::lastError);
  writeSlot(table, 320, &fake::presetConfigEx);
  NV_ENCODE_API_FUNCTION_LIST list;
  std::memcpy(&list, table, sizeof list);
  EXPECT_EQ(list.nvEncGetEncodePresetConfig, nullptr);

  int device = 0;
  NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS open;
  std::memset(&open, 0, sizeof open);
  open.version = NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS_VER;
  open.deviceType = NV_ENC_DEVICE_TYPE_DIRECTX;
  open.device = &device;
  open.apiVersion = NVENCAPI_VERSION;
  void* session = nullptr;
  ASSERT_EQ(list.nvEncOpenEncodeSessionEx(&open, &session), NV_ENC_SUCCESS);
  EXPECT_EQ(session, &device);

  NV_ENC_PRESET_CONFIG preset;
  std::memset(&preset, 0, sizeof preset);
  ASSERT_EQ(list.nvEncGetEncodePresetConfigEx(session, NV_ENC_CODEC_H264_GUID, NV_ENC_PRESET_P4_GUID,
                                              NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY, &preset),
            NV_ENC_SUCCESS);
  EXPECT_EQ(guidText(fake::lastCodec), guidText(NV_ENC_CODEC_H264_GUID));
  EXPECT_EQ(guidText(fake::lastPreset), guidText(NV_ENC_PRESET_P4_GUID));
  EXPECT_EQ(fake::lastTuning, NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY);
  EXPECT_EQ(preset.presetCfg.gopLength, 60u);
  EXPECT_STREQ(list.nvEncGetLastErrorString(session), "driver text");
}

}  // namespace
