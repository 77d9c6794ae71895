// The platform's NVENC driver library through its exports and function table, as any client
// calls it: where it loads, the version words it takes, the devices it serves, and the rules of
// its frame path.
#include <gtest/gtest.h>
#include <nvEncodeAPI.h>
#include <windows.h>

#include <cstring>
#include <vector>

#include "platform/control/machine_control.h"
#include "platform/control/nvenc_control.h"
#include "platform/control/platform_control.h"
#include "rtp/annexb.h"
#include "test/support/desktop_frames.h"
#include "test/support/gpu_test_helpers.h"
#include "test/support/nv12_texture.h"

namespace control = platform::control;
using testing_support::D3D;

namespace {

typedef NVENCSTATUS(NVENCAPI* CreateInstance)(NV_ENCODE_API_FUNCTION_LIST*);
typedef NVENCSTATUS(NVENCAPI* GetMaxSupportedVersion)(uint32_t*);

template <class Function>
Function entry(const char* name) {
  HMODULE library = LoadLibraryW(L"nvEncodeAPI64.dll");
  if (library == nullptr) return nullptr;
  return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(library, name)));
}

NV_ENCODE_API_FUNCTION_LIST functionList() {
  NV_ENCODE_API_FUNCTION_LIST list{};
  list.version = NV_ENCODE_API_FUNCTION_LIST_VER;
  CreateInstance create = entry<CreateInstance>("NvEncodeAPICreateInstance");
  EXPECT_NE(create, nullptr);
  if (create != nullptr) {
    EXPECT_EQ(create(&list), NV_ENC_SUCCESS);
  }
  return list;
}

NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS openParams(ID3D11Device* device, uint32_t apiVersion = NVENCAPI_VERSION) {
  NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS params{};
  params.version = NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS_VER;
  params.deviceType = NV_ENC_DEVICE_TYPE_DIRECTX;
  params.device = device;
  params.apiVersion = apiVersion;
  return params;
}

class NvencDriverTest : public testing_support::GpuTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(control::nvencOpenSessionCount(), 0);
    GpuTest::TearDown();
  }

  // An initialised 160x96 session on `device`, on P1's configuration.
  void* initialisedSession(ID3D11Device* device, bool repeatSPSPPS = true) {
    void* session = nullptr;
    NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS open = openParams(device);
    EXPECT_EQ(list.nvEncOpenEncodeSessionEx(&open, &session), NV_ENC_SUCCESS);
    NV_ENC_PRESET_CONFIG preset{};
    preset.version = NV_ENC_PRESET_CONFIG_VER;
    preset.presetCfg.version = NV_ENC_CONFIG_VER;
    EXPECT_EQ(list.nvEncGetEncodePresetConfigEx(session, NV_ENC_CODEC_H264_GUID, NV_ENC_PRESET_P1_GUID,
                                                NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY, &preset),
              NV_ENC_SUCCESS);
    NV_ENC_CONFIG config = preset.presetCfg;
    config.encodeCodecConfig.h264Config.repeatSPSPPS = repeatSPSPPS ? 1 : 0;
    NV_ENC_INITIALIZE_PARAMS init = initParams(&config);
    EXPECT_EQ(list.nvEncInitializeEncoder(session, &init), NV_ENC_SUCCESS);
    return session;
  }

  static NV_ENC_INITIALIZE_PARAMS initParams(NV_ENC_CONFIG* config) {
    NV_ENC_INITIALIZE_PARAMS init{};
    init.version = NV_ENC_INITIALIZE_PARAMS_VER;
    init.encodeGUID = NV_ENC_CODEC_H264_GUID;
    init.presetGUID = NV_ENC_PRESET_P1_GUID;
    init.encodeWidth = init.darWidth = 160;
    init.encodeHeight = init.darHeight = 96;
    init.frameRateNum = 30;
    init.frameRateDen = 1;
    init.enablePTD = 1;
    init.encodeConfig = config;
    init.tuningInfo = NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY;
    return init;
  }

  NV_ENC_REGISTERED_PTR registerTexture(void* session, ID3D11Texture2D* texture, NVENCSTATUS expected) {
    NV_ENC_REGISTER_RESOURCE reg{};
    reg.version = NV_ENC_REGISTER_RESOURCE_VER;
    reg.resourceType = NV_ENC_INPUT_RESOURCE_TYPE_DIRECTX;
    reg.width = 160;
    reg.height = 96;
    reg.resourceToRegister = texture;
    reg.bufferFormat = NV_ENC_BUFFER_FORMAT_NV12;
    EXPECT_EQ(list.nvEncRegisterResource(session, &reg), expected);
    return reg.registeredResource;
  }

  // Encodes the mapped picture into `buffer` and gives the bitstream, or nothing on a failure.
  std::vector<uint8_t> encode(void* session, NV_ENC_MAP_INPUT_RESOURCE& map, NV_ENC_OUTPUT_PTR buffer,
                              uint32_t flags, NV_ENC_PIC_TYPE* type = nullptr) {
    NV_ENC_PIC_PARAMS pic{};
    pic.version = NV_ENC_PIC_PARAMS_VER;
    pic.inputWidth = 160;
    pic.inputHeight = 96;
    pic.encodePicFlags = flags;
    pic.inputBuffer = map.mappedResource;
    pic.outputBitstream = buffer;
    pic.bufferFmt = map.mappedBufferFmt;
    pic.pictureStruct = NV_ENC_PIC_STRUCT_FRAME;
    if (list.nvEncEncodePicture(session, &pic) != NV_ENC_SUCCESS) return {};
    NV_ENC_LOCK_BITSTREAM lock{};
    lock.version = NV_ENC_LOCK_BITSTREAM_VER;
    lock.outputBitstream = buffer;
    if (list.nvEncLockBitstream(session, &lock) != NV_ENC_SUCCESS) return {};
    const uint8_t* bytes = static_cast<const uint8_t*>(lock.bitstreamBufferPtr);
    std::vector<uint8_t> out(bytes, bytes + lock.bitstreamSizeInBytes);
    if (type != nullptr) *type = lock.pictureType;
    EXPECT_EQ(list.nvEncUnlockBitstream(session, buffer), NV_ENC_SUCCESS);
    return out;
  }

  NV_ENCODE_API_FUNCTION_LIST list{};
};

TEST_F(NvencDriverTest, LibraryLoadsWhereTheMachineInstallsIt) {
  control::MachineDescription machine = control::defaultMachine();
  machine.nvencInstalled = false;
  control::setMachine(machine);
  EXPECT_EQ(LoadLibraryW(L"nvEncodeAPI64.dll"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD(ERROR_MOD_NOT_FOUND));

  machine.nvencInstalled = true;
  control::setMachine(machine);
  EXPECT_NE(LoadLibraryW(L"C:\\Windows\\System32\\NVENCODEAPI64.DLL"), nullptr);
  GetMaxSupportedVersion maxVersion = entry<GetMaxSupportedVersion>("NvEncodeAPIGetMaxSupportedVersion");
  ASSERT_NE(maxVersion, nullptr);
  uint32_t version = 0;
  EXPECT_EQ(maxVersion(&version), NV_ENC_SUCCESS);
  EXPECT_EQ(version, 0xC0u);
  machine.nvencApiVersion = 0x0100000C;
  control::setMachine(machine);
  EXPECT_EQ(maxVersion(&version), NV_ENC_SUCCESS);
  EXPECT_EQ(version, 0xC1u);
  EXPECT_EQ(maxVersion(nullptr), NV_ENC_ERR_INVALID_PTR);
}

TEST_F(NvencDriverTest, FunctionListTakesOnlyVersionsItKnows) {
  CreateInstance create = entry<CreateInstance>("NvEncodeAPICreateInstance");
  ASSERT_NE(create, nullptr);
  EXPECT_EQ(create(nullptr), NV_ENC_ERR_INVALID_PTR);
  NV_ENCODE_API_FUNCTION_LIST list{};
  EXPECT_EQ(create(&list), NV_ENC_ERR_INVALID_VERSION);
  list.version = NVENCAPI_STRUCT_VERSION(1);  // another structure's number
  EXPECT_EQ(create(&list), NV_ENC_ERR_INVALID_VERSION);
  list.version = 13 | (2 << 16) | (7u << 28);  // a client newer than the driver
  EXPECT_EQ(create(&list), NV_ENC_ERR_INVALID_VERSION);
  EXPECT_EQ(list.nvEncOpenEncodeSessionEx, nullptr);
  list.version = NV_ENCODE_API_FUNCTION_LIST_VER;
  EXPECT_EQ(create(&list), NV_ENC_SUCCESS);
  EXPECT_NE(list.nvEncOpenEncodeSessionEx, nullptr);
  EXPECT_NE(list.nvEncGetEncodePresetConfigEx, nullptr);
  EXPECT_NE(list.nvEncGetLastErrorString, nullptr);

  control::MachineDescription machine = control::defaultMachine();
  machine.nvencMissingFunctions = {"nvEncGetEncodePresetConfigEx"};
  control::setMachine(machine);
  EXPECT_EQ(create(&list), NV_ENC_SUCCESS);
  EXPECT_EQ(list.nvEncGetEncodePresetConfigEx, nullptr);
  EXPECT_NE(list.nvEncGetEncodePresetConfig, nullptr);
}

TEST_F(NvencDriverTest, SessionsOpenOnNvidiaDevicesOfKnownVersions) {
  control::setMachine(testing_support::machineOf(
      {testing_support::adapter(0x1002, 0x73BF, 1), testing_support::adapter(0x10DE, 0x2484, 1)}));
  list = functionList();
  D3D amd = testing_support::makeDevice(testing_support::adapterAt(0).get());
  D3D nvidia = testing_support::makeDevice(testing_support::adapterAt(1).get());
  void* session = reinterpret_cast<void*>(1);

  NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS params = openParams(amd.device.get());
  EXPECT_EQ(list.nvEncOpenEncodeSessionEx(&params, &session), NV_ENC_ERR_UNSUPPORTED_DEVICE);
  EXPECT_EQ(session, nullptr);
  params = openParams(nvidia.device.get(), 0x0100000C);  // 12.1 on a 12.0 driver
  EXPECT_EQ(list.nvEncOpenEncodeSessionEx(&params, &session), NV_ENC_ERR_INVALID_VERSION);
  // As the driver does, that refusal hands out a half-made session, open until destroyed.
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(control::nvencOpenSessionCount(), 1);
  EXPECT_EQ(list.nvEncDestroyEncoder(session), NV_ENC_SUCCESS);
  params = openParams(nvidia.device.get());
  params.version = NV_ENC_INITIALIZE_PARAMS_VER;
  EXPECT_EQ(list.nvEncOpenEncodeSessionEx(&params, &session), NV_ENC_ERR_INVALID_VERSION);
  params = openParams(nullptr);
  EXPECT_EQ(list.nvEncOpenEncodeSessionEx(&params, &session), NV_ENC_ERR_INVALID_PTR);
  params = openParams(nvidia.device.get());
  params.deviceType = NV_ENC_DEVICE_TYPE_CUDA;
  EXPECT_EQ(list.nvEncOpenEncodeSessionEx(&params, &session), NV_ENC_ERR_UNSUPPORTED_PARAM);
  EXPECT_EQ(control::nvencOpenSessionCount(), 0);

  // An older client is served, with the structure words of its version.
  params = openParams(nvidia.device.get(), 11);
  params.version = 11 | (1 << 16) | (7u << 28);
  ASSERT_EQ(list.nvEncOpenEncodeSessionEx(&params, &session), NV_ENC_SUCCESS);
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(control::nvencOpenSessionCount(), 1);
  // The session keeps its device alive, as the driver holds it.
  nvidia = D3D{};
  EXPECT_EQ(control::liveObjectCount("ID3D11Device"), 2);
  EXPECT_EQ(list.nvEncDestroyEncoder(session), NV_ENC_SUCCESS);
  EXPECT_EQ(control::liveObjectCount("ID3D11Device"), 1);
  EXPECT_EQ(list.nvEncDestroyEncoder(session), NV_ENC_ERR_INVALID_ENCODERDEVICE);
}

TEST_F(NvencDriverTest, InitialiseChecksItsParameters) {
  list = functionList();
  D3D d3d = testing_support::makeDevice();
  void* session = nullptr;
  NV_ENC_OPEN_ENCODE_SESSION_EX_PARAMS open = openParams(d3d.device.get());
  ASSERT_EQ(list.nvEncOpenEncodeSessionEx(&open, &session), NV_ENC_SUCCESS);

  NV_ENC_CREATE_BITSTREAM_BUFFER create{};
  create.version = NV_ENC_CREATE_BITSTREAM_BUFFER_VER;
  EXPECT_EQ(list.nvEncCreateBitstreamBuffer(session, &create), NV_ENC_ERR_ENCODER_NOT_INITIALIZED);

  NV_ENC_PRESET_CONFIG preset{};
  preset.version = NV_ENC_PRESET_CONFIG_VER;
  EXPECT_EQ(list.nvEncGetEncodePresetConfigEx(session, NV_ENC_CODEC_H264_GUID, NV_ENC_PRESET_P1_GUID,
                                              NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY, &preset),
            NV_ENC_ERR_INVALID_VERSION);
  preset.presetCfg.version = NV_ENC_CONFIG_VER;
  EXPECT_EQ(list.nvEncGetEncodePresetConfigEx(session, NV_ENC_CODEC_H264_GUID, NV_ENC_CODEC_H264_GUID,
                                              NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY, &preset),
            NV_ENC_ERR_INVALID_PARAM);
  EXPECT_STREQ(list.nvEncGetLastErrorString(session), "unknown preset GUID");
  ASSERT_EQ(list.nvEncGetEncodePresetConfigEx(session, NV_ENC_CODEC_H264_GUID, NV_ENC_PRESET_P4_GUID,
                                              NV_ENC_TUNING_INFO_ULTRA_LOW_LATENCY, &preset),
            NV_ENC_SUCCESS);
  EXPECT_EQ(preset.presetCfg.rcParams.rateControlMode, NV_ENC_PARAMS_RC_CBR);
  EXPECT_EQ(preset.presetCfg.frameIntervalP, 1);

  NV_ENC_CONFIG config = preset.presetCfg;
  NV_ENC_INITIALIZE_PARAMS init = initParams(&config);
  init.encodeWidth = 161;
  EXPECT_EQ(list.nvEncInitializeEncoder(session, &init), NV_ENC_ERR_INVALID_PARAM);
  EXPECT_STREQ(list.nvEncGetLastErrorString(session), "encode size 161x96 is not supported");
  init = initParams(&config);
  init.enableEncodeAsync = 1;
  EXPECT_EQ(list.nvEncInitializeEncoder(session, &init), NV_ENC_ERR_UNSUPPORTED_PARAM);
  init = initParams(&config);
  init.frameRateDen = 0;
  EXPECT_EQ(list.nvEncInitializeEncoder(session, &init), NV_ENC_ERR_INVALID_PARAM);
  init = initParams(&config);
  config.version = NV_ENC_PRESET_CONFIG_VER;
  EXPECT_EQ(list.nvEncInitializeEncoder(session, &init), NV_ENC_ERR_INVALID_VERSION);
  config.version = NV_ENC_CONFIG_VER;
  config.encodeCodecConfig.h264Config.idrPeriod = 0;
  EXPECT_EQ(list.nvEncInitializeEncoder(session, &init), NV_ENC_ERR_INVALID_PARAM);
  config.encodeCodecConfig.h264Config.idrPeriod = 30;
  EXPECT_EQ(list.nvEncInitializeEncoder(session, &init), NV_ENC_SUCCESS);
  EXPECT_EQ(list.nvEncInitializeEncoder(session, &init), NV_ENC_ERR_INVALID_CALL);
  EXPECT_EQ(list.nvEncCreateBitstreamBuffer(session, &create), NV_ENC_SUCCESS);
  EXPECT_NE(create.bitstreamBuffer, nullptr);
  EXPECT_EQ(list.nvEncDestroyEncoder(session), NV_ENC_SUCCESS);
}

TEST_F(NvencDriverTest, FramePathRules) {
  list = functionList();
  D3D d3d = testing_support::makeDevice();
  D3D other = testing_support::makeDevice();
  void* session = initialisedSession(d3d.device.get());
  testing_support::Nv12Frame frame{160, 96};
  testing_support::drawDesktop(frame, 0);
  CountedRef<ID3D11Texture2D> texture = testing_support::nv12Texture(d3d.device.get(), frame);
  CountedRef<ID3D11Texture2D> foreign = testing_support::nv12Texture(other.device.get(), frame);
  CountedRef<ID3D11Texture2D> bgra =
      testing_support::makeTexture(d3d.device.get(), testing_support::textureDesc(160, 96));

  registerTexture(session, foreign.get(), NV_ENC_ERR_RESOURCE_REGISTER_FAILED);
  registerTexture(session, bgra.get(), NV_ENC_ERR_UNSUPPORTED_PARAM);
  NV_ENC_REGISTERED_PTR registered = registerTexture(session, texture.get(), NV_ENC_SUCCESS);

  NV_ENC_CREATE_BITSTREAM_BUFFER create{};
  create.version = NV_ENC_CREATE_BITSTREAM_BUFFER_VER;
  ASSERT_EQ(list.nvEncCreateBitstreamBuffer(session, &create), NV_ENC_SUCCESS);
  NV_ENC_LOCK_BITSTREAM lock{};
  lock.version = NV_ENC_LOCK_BITSTREAM_VER;
  lock.outputBitstream = create.bitstreamBuffer;
  EXPECT_EQ(list.nvEncLockBitstream(session, &lock), NV_ENC_ERR_INVALID_CALL);  // nothing encoded yet

  NV_ENC_MAP_INPUT_RESOURCE map{};
  map.version = NV_ENC_MAP_INPUT_RESOURCE_VER;
  map.registeredResource = registered;
  ASSERT_EQ(list.nvEncMapInputResource(session, &map), NV_ENC_SUCCESS);
  EXPECT_EQ(map.mappedBufferFmt, NV_ENC_BUFFER_FORMAT_NV12);
  NV_ENC_MAP_INPUT_RESOURCE again = map;
  EXPECT_EQ(list.nvEncMapInputResource(session, &again), NV_ENC_ERR_MAP_FAILED);

  NV_ENC_PIC_TYPE type = NV_ENC_PIC_TYPE_UNKNOWN;
  std::vector<uint8_t> first = encode(session, map, create.bitstreamBuffer, 0, &type);
  EXPECT_EQ(type, NV_ENC_PIC_TYPE_IDR);  // the first picture is an IDR without being asked
  EXPECT_TRUE(containsNalType(first.data(), first.size(), kNalSps));

  // The buffer can't take a picture while it is locked.
  NV_ENC_PIC_PARAMS pic{};
  pic.version = NV_ENC_PIC_PARAMS_VER;
  pic.inputWidth = 160;
  pic.inputHeight = 96;
  pic.inputBuffer = map.mappedResource;
  pic.outputBitstream = create.bitstreamBuffer;
  pic.bufferFmt = NV_ENC_BUFFER_FORMAT_NV12;
  pic.pictureStruct = NV_ENC_PIC_STRUCT_FRAME;
  ASSERT_EQ(list.nvEncEncodePicture(session, &pic), NV_ENC_SUCCESS);
  ASSERT_EQ(list.nvEncLockBitstream(session, &lock), NV_ENC_SUCCESS);
  EXPECT_EQ(lock.pictureType, NV_ENC_PIC_TYPE_P);
  EXPECT_EQ(list.nvEncLockBitstream(session, &lock), NV_ENC_ERR_LOCK_BUSY);
  EXPECT_EQ(list.nvEncEncodePicture(session, &pic), NV_ENC_ERR_LOCK_BUSY);
  EXPECT_EQ(list.nvEncUnlockBitstream(session, create.bitstreamBuffer), NV_ENC_SUCCESS);
  EXPECT_EQ(list.nvEncUnlockBitstream(session, create.bitstreamBuffer), NV_ENC_ERR_INVALID_CALL);
  pic.inputWidth = 158;
  EXPECT_EQ(list.nvEncEncodePicture(session, &pic), NV_ENC_ERR_INVALID_PARAM);
  pic.inputWidth = 160;
  pic.version = NV_ENC_LOCK_BITSTREAM_VER;
  EXPECT_EQ(list.nvEncEncodePicture(session, &pic), NV_ENC_ERR_INVALID_VERSION);
  pic.version = NV_ENC_PIC_PARAMS_VER;

  EXPECT_EQ(list.nvEncUnmapInputResource(session, map.mappedResource), NV_ENC_SUCCESS);
  EXPECT_EQ(list.nvEncUnmapInputResource(session, map.mappedResource), NV_ENC_ERR_RESOURCE_NOT_MAPPED);
  EXPECT_EQ(list.nvEncEncodePicture(session, &pic), NV_ENC_ERR_RESOURCE_NOT_MAPPED);

  EXPECT_EQ(list.nvEncUnregisterResource(session, registered), NV_ENC_SUCCESS);
  EXPECT_EQ(list.nvEncUnregisterResource(session, registered), NV_ENC_ERR_RESOURCE_NOT_REGISTERED);
  EXPECT_EQ(list.nvEncDestroyEncoder(session), NV_ENC_SUCCESS);
}

// SPS and PPS come with every IDR picture only with repeatSPSPPS; otherwise with the first one
// and where a picture asks for them.
TEST_F(NvencDriverTest, ParameterSetsRepeatOnlyWhenConfigured) {
  list = functionList();
  D3D d3d = testing_support::makeDevice();
  testing_support::Nv12Frame frame{160, 96};
  testing_support::drawDesktop(frame, 0);
  CountedRef<ID3D11Texture2D> texture = testing_support::nv12Texture(d3d.device.get(), frame);
  for (bool repeat : {false, true}) {
    SCOPED_TRACE(repeat);
    void* session = initialisedSession(d3d.device.get(), repeat);
    NV_ENC_REGISTERED_PTR registered = registerTexture(session, texture.get(), NV_ENC_SUCCESS);
    NV_ENC_CREATE_BITSTREAM_BUFFER create{};
    create.version = NV_ENC_CREATE_BITSTREAM_BUFFER_VER;
    ASSERT_EQ(list.nvEncCreateBitstreamBuffer(session, &create), NV_ENC_SUCCESS);
    NV_ENC_MAP_INPUT_RESOURCE map{};
    map.version = NV_ENC_MAP_INPUT_RESOURCE_VER;
    map.registeredResource = registered;
    ASSERT_EQ(list.nvEncMapInputResource(session, &map), NV_ENC_SUCCESS);
    std::vector<uint8_t> first = encode(session, map, create.bitstreamBuffer, NV_ENC_PIC_FLAG_FORCEIDR);
    NV_ENC_PIC_TYPE type = NV_ENC_PIC_TYPE_UNKNOWN;
    std::vector<uint8_t> forced = encode(session, map, create.bitstreamBuffer, NV_ENC_PIC_FLAG_FORCEIDR, &type);
    std::vector<uint8_t> asked =
        encode(session, map, create.bitstreamBuffer, NV_ENC_PIC_FLAG_FORCEIDR | NV_ENC_PIC_FLAG_OUTPUT_SPSPPS);
    EXPECT_EQ(type, NV_ENC_PIC_TYPE_IDR);
    EXPECT_TRUE(containsNalType(first.data(), first.size(), kNalSps));
    EXPECT_TRUE(containsNalType(forced.data(), forced.size(), kNalSliceIdr));
    EXPECT_EQ(containsNalType(forced.data(), forced.size(), kNalSps), repeat);
    EXPECT_EQ(containsNalType(forced.data(), forced.size(), kNalPps), repeat);
    EXPECT_TRUE(containsNalType(asked.data(), asked.size(), kNalPps));
    EXPECT_EQ(list.nvEncUnmapInputResource(session, map.mappedResource), NV_ENC_SUCCESS);
    EXPECT_EQ(list.nvEncUnregisterResource(session, registered), NV_ENC_SUCCESS);
    EXPECT_EQ(list.nvEncDestroyEncoder(session), NV_ENC_SUCCESS);
  }
}

// The driver uses a registered texture until it is unregistered: a client that releases it first
// is told by the debug layer. Destroying the session gives back what is still registered.
TEST_F(NvencDriverTest, RegisteredTexturesStayUntilUnregistered) {
  list = functionList();
  D3D d3d = testing_support::makeDevice();
  testing_support::Nv12Frame frame{160, 96};
  testing_support::drawDesktop(frame, 0);
  void* session = initialisedSession(d3d.device.get());
  CountedRef<ID3D11Texture2D> texture = testing_support::nv12Texture(d3d.device.get(), frame);
  NV_ENC_REGISTERED_PTR registered = registerTexture(session, texture.get(), NV_ENC_SUCCESS);
  texture.reset();
  EXPECT_EQ(list.nvEncUnregisterResource(session, registered), NV_ENC_SUCCESS);
  EXPECT_EQ(control::debugLayerViolations(), 1u);
  control::resetDebugLayer();

  texture = testing_support::nv12Texture(d3d.device.get(), frame);
  registerTexture(session, texture.get(), NV_ENC_SUCCESS);
  EXPECT_EQ(control::nvencSessions().at(0).registeredResources, 1u);
  EXPECT_EQ(list.nvEncDestroyEncoder(session), NV_ENC_SUCCESS);
  texture.reset();
}

}  // namespace
