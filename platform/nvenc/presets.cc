// The presets P1 (fastest) to P7 (best) and the H.264 profiles the driver knows. A preset's
// configuration depends on the tuning: the low-latency tunings give CBR without B-frames, the
// others VBR, with B-frames from P3 on. The platform's encoder has no B-frames, so a session
// set up with them still gives P pictures only, in input order.
#include <cstring>

#include "platform/nvenc/session.h"

namespace platform::nvenc {
namespace {

// {F581CFB8-88D6-4381-93F0-DF13F9C27DAB}
constexpr GUID kPresetP2 = {0xf581cfb8, 0x88d6, 0x4381, {0x93, 0xf0, 0xdf, 0x13, 0xf9, 0xc2, 0x7d, 0xab}};
// {21C6E6B4-297A-4CBA-998F-B6CBDE72ADE3}
constexpr GUID kPresetP5 = {0x21c6e6b4, 0x297a, 0x4cba, {0x99, 0x8f, 0xb6, 0xcb, 0xde, 0x72, 0xad, 0xe3}};
// {8E75C279-6299-4AB6-8302-0B215A335CF5}
constexpr GUID kPresetP6 = {0x8e75c279, 0x6299, 0x4ab6, {0x83, 0x02, 0x0b, 0x21, 0x5a, 0x33, 0x5c, 0xf5}};
// {84848C12-6F71-4C13-931B-53E283F57974}
constexpr GUID kPresetP7 = {0x84848c12, 0x6f71, 0x4c13, {0x93, 0x1b, 0x53, 0xe2, 0x83, 0xf5, 0x79, 0x74}};

// {BFD6F8E7-233C-4341-8B3E-4818523803F4}
constexpr GUID kProfileAutoselect = {0xbfd6f8e7, 0x233c, 0x4341, {0x8b, 0x3e, 0x48, 0x18, 0x52, 0x38, 0x03, 0xf4}};
// {60B5C1D4-67FE-4790-94D5-C4726D7B6E6D}
constexpr GUID kProfileMain = {0x60b5c1d4, 0x67fe, 0x4790, {0x94, 0xd5, 0xc4, 0x72, 0x6d, 0x7b, 0x6e, 0x6d}};
// {E7CBC309-4F7A-4B89-AF2A-D537C92BE310}
constexpr GUID kProfileHigh = {0xe7cbc309, 0x4f7a, 0x4b89, {0xaf, 0x2a, 0xd5, 0x37, 0xc9, 0x2b, 0xe3, 0x10}};

// The driver's "infinite" GOP: no regular key frames.
constexpr uint32_t kInfiniteGop = 0xFFFFFFFFu;

bool same(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }

struct Preset {
  const GUID* guid;
  const char* name;
  int number;
};

const Preset kPresets[] = {
    {&NV_ENC_PRESET_P1_GUID, "P1", 1}, {&kPresetP2, "P2", 2}, {&NV_ENC_PRESET_P3_GUID, "P3", 3},
    {&NV_ENC_PRESET_P4_GUID, "P4", 4}, {&kPresetP5, "P5", 5}, {&kPresetP6, "P6", 6},
    {&kPresetP7, "P7", 7},
};

const Preset* findPreset(const GUID& guid) {
  for (const Preset& preset : kPresets)
    if (same(*preset.guid, guid)) return &preset;
  return nullptr;
}

}  // namespace

const char* presetName(const GUID& preset) {
  const Preset* found = findPreset(preset);
  return found == nullptr ? nullptr : found->name;
}

const char* profileName(const GUID& profile) {
  if (same(profile, NV_ENC_H264_PROFILE_BASELINE_GUID)) return "baseline";
  if (same(profile, kProfileMain)) return "main";
  if (same(profile, kProfileHigh)) return "high";
  if (same(profile, kProfileAutoselect)) return "autoselect";
  return nullptr;
}

bool presetConfig(const GUID& guid, NV_ENC_TUNING_INFO tuning, NV_ENC_CONFIG* config) {
  const Preset* preset = findPreset(guid);
  if (preset == nullptr) return false;
  bool lowLatency = tuning == NV_ENC_TUNING_INFO_LOW_LATENCY || tuning == NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY;
  uint32_t version = config->version;
  std::memset(config, 0, sizeof(*config));
  config->version = version;
  config->profileGUID = kProfileAutoselect;
  config->gopLength = kInfiniteGop;
  config->frameIntervalP = lowLatency || preset->number < 3 ? 1 : 3;
  config->frameFieldMode = NV_ENC_PARAMS_FRAME_FIELD_MODE_FRAME;
  config->mvPrecision = NV_ENC_MV_PRECISION_QUARTER_PEL;
  NV_ENC_RC_PARAMS& rc = config->rcParams;
  rc.version = NV_ENC_RC_PARAMS_VER;
  rc.rateControlMode = lowLatency ? NV_ENC_PARAMS_RC_CBR : NV_ENC_PARAMS_RC_VBR;
  // Zero rates and buffer: the driver works them out from size and frame rate at initialise.
  NV_ENC_CONFIG_H264& h264 = config->encodeCodecConfig.h264Config;
  h264.idrPeriod = kInfiniteGop;
  h264.entropyCodingMode = NV_ENC_H264_ENTROPY_CODING_MODE_AUTOSELECT;
  h264.chromaFormatIDC = 1;
  h264.maxNumRefFrames = lowLatency ? 1 : 0;
  return true;
}

}  // namespace platform::nvenc
