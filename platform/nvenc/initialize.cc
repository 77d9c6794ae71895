// nvEncInitializeEncoder: checks the parameters and the configuration as the driver does, and
// opens the platform's H.264 encoder with the rate, GOP and IDR period they give.
#include <algorithm>
#include <cstring>
#include <string>

#include "platform/nvenc/session.h"

namespace platform::nvenc {
namespace {

constexpr uint32_t kInfinite = 0xFFFFFFFFu;
constexpr uint32_t kMaxSize = 4096;  // the largest H.264 picture side the encoder takes

bool same(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }

// Rates the driver works out where a configuration leaves them at zero.
uint32_t defaultBitrate(uint32_t width, uint32_t height, uint32_t fps) {
  uint64_t bits = uint64_t(width) * height * fps / 8;
  return uint32_t(std::min<uint64_t>(std::max<uint64_t>(bits, 100000), 100000000));
}

NVENCSTATUS checkParams(Session& session, const NV_ENC_INITIALIZE_PARAMS& params) {
  if (!same(params.encodeGUID, NV_ENC_CODEC_H264_GUID))
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "this GPU encodes H.264 only");
  if (presetName(params.presetGUID) == nullptr) return session.fail(NV_ENC_ERR_INVALID_PARAM, "unknown preset GUID");
  if (params.encodeWidth == 0 || params.encodeHeight == 0 || params.encodeWidth > kMaxSize ||
      params.encodeHeight > kMaxSize || params.encodeWidth % 2 != 0 || params.encodeHeight % 2 != 0)
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "encode size " + std::to_string(params.encodeWidth) + "x" +
                                                      std::to_string(params.encodeHeight) + " is not supported");
  if (params.frameRateNum == 0 || params.frameRateDen == 0)
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "frame rate must not be zero");
  if (params.maxEncodeWidth != 0 && params.maxEncodeWidth < params.encodeWidth)
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "maxEncodeWidth is below encodeWidth");
  if (params.maxEncodeHeight != 0 && params.maxEncodeHeight < params.encodeHeight)
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "maxEncodeHeight is below encodeHeight");
  if (params.tuningInfo < NV_ENC_TUNING_INFO_UNDEFINED || params.tuningInfo >= NV_ENC_TUNING_INFO_COUNT)
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "unknown tuning info");
  // The platform encodes each picture within the call; completion events have nothing to signal.
  if (params.enableEncodeAsync != 0)
    return session.fail(NV_ENC_ERR_UNSUPPORTED_PARAM, "asynchronous encoding is not supported");
  if (params.enablePTD != 1)
    return session.fail(NV_ENC_ERR_UNSUPPORTED_PARAM, "picture types chosen by the client are not supported");
  return NV_ENC_SUCCESS;
}

NVENCSTATUS checkConfig(Session& session, const NV_ENC_CONFIG& config) {
  if (!structVersionAccepted(config.version, NV_ENC_CONFIG_VER))
    return session.fail(NV_ENC_ERR_INVALID_VERSION, "NV_ENC_CONFIG has a bad version");
  if (profileName(config.profileGUID) == nullptr)
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "unknown H.264 profile GUID");
  if (config.gopLength == 0) return session.fail(NV_ENC_ERR_INVALID_PARAM, "gopLength must not be zero");
  if (config.frameIntervalP < 1) return session.fail(NV_ENC_ERR_INVALID_PARAM, "frameIntervalP must be at least 1");
  const NV_ENC_RC_PARAMS& rc = config.rcParams;
  if (rc.rateControlMode != NV_ENC_PARAMS_RC_CONSTQP && rc.rateControlMode != NV_ENC_PARAMS_RC_VBR &&
      rc.rateControlMode != NV_ENC_PARAMS_RC_CBR)
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "unknown rate control mode");
  if (rc.maxBitRate != 0 && rc.maxBitRate < rc.averageBitRate)
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "maxBitRate is below averageBitRate");
  if (config.encodeCodecConfig.h264Config.idrPeriod == 0)
    return session.fail(NV_ENC_ERR_INVALID_PARAM, "idrPeriod must not be zero");
  return NV_ENC_SUCCESS;
}

}  // namespace

NVENCSTATUS NVENCAPI initializeEncoderEntry(void* encoder, NV_ENC_INITIALIZE_PARAMS* params) {
  if (NVENCSTATUS planned = plannedStatus("nvEncInitializeEncoder", encoder)) return planned;
  std::shared_ptr<Session> session = findSession(encoder);
  if (session == nullptr) return NV_ENC_ERR_INVALID_ENCODERDEVICE;
  std::lock_guard<std::mutex> lock(session->mutex);
  if (params == nullptr) return session->fail(NV_ENC_ERR_INVALID_PTR, "initialise parameters are null");
  if (!structVersionAccepted(params->version, NV_ENC_INITIALIZE_PARAMS_VER))
    return session->fail(NV_ENC_ERR_INVALID_VERSION, "NV_ENC_INITIALIZE_PARAMS has a bad version");
  if (session->info.initialized) return session->fail(NV_ENC_ERR_INVALID_CALL, "the encoder is initialised already");
  if (NVENCSTATUS status = checkParams(*session, *params)) return status;

  // Without a configuration the session runs on the preset's own, for the tuning given.
  NV_ENC_CONFIG config{};
  config.version = NV_ENC_CONFIG_VER;
  bool presetOwn = params->encodeConfig == nullptr;
  if (presetOwn) {
    presetConfig(params->presetGUID, params->tuningInfo, &config);
  } else {
    if (NVENCSTATUS status = checkConfig(*session, *params->encodeConfig)) return status;
    config = *params->encodeConfig;
  }

  control::NvencSessionInfo& info = session->info;
  const NV_ENC_RC_PARAMS& rc = config.rcParams;
  uint32_t fps = std::max(1u, params->frameRateNum / params->frameRateDen);
  info.preset = presetName(params->presetGUID);
  info.tuningInfo = params->tuningInfo;
  info.presetConfiguration = presetOwn;
  info.profile = profileName(config.profileGUID);
  info.width = params->encodeWidth;
  info.height = params->encodeHeight;
  info.frameRateNum = params->frameRateNum;
  info.frameRateDen = params->frameRateDen;
  info.enableEncodeAsync = params->enableEncodeAsync;
  info.enablePTD = params->enablePTD;
  info.rateControlMode = rc.rateControlMode;
  info.averageBitRate = rc.averageBitRate != 0 ? rc.averageBitRate : defaultBitrate(info.width, info.height, fps);
  info.maxBitRate = rc.maxBitRate;
  info.vbvBufferSize = rc.vbvBufferSize;
  info.vbvInitialDelay = rc.vbvInitialDelay;
  info.gopLength = config.gopLength;
  info.idrPeriod = config.encodeCodecConfig.h264Config.idrPeriod;
  info.frameIntervalP = config.frameIntervalP;
  info.repeatSPSPPS = config.encodeCodecConfig.h264Config.repeatSPSPPS != 0;

  video::H264EncoderSettings settings;
  settings.width = int(info.width);
  settings.height = int(info.height);
  settings.fps = int(std::min(fps, 240u));
  settings.bitrate = int(std::min<uint32_t>(info.averageBitRate, 0x7FFFFFFF));
  // Every picture of this encoder is an IDR or a P picture, so the GOP ends at the IDR period.
  uint32_t interval = std::min(info.idrPeriod, info.gopLength);
  settings.idrInterval = interval == kInfinite ? 0 : int(std::min<uint32_t>(interval, 0x7FFFFFFF));
  auto h264 = std::make_unique<video::H264Encoder>();
  if (!h264->open(settings)) return session->fail(NV_ENC_ERR_INVALID_PARAM, "encoder refused: " + h264->error());
  session->encoder = std::move(h264);
  info.initialized = true;
  return NV_ENC_SUCCESS;
}

}  // namespace platform::nvenc
