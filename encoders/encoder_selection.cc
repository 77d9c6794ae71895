#include "encoders/encoder_selection.h"

#include <memory>
#include <string>

#include "encoders/mf_h264_encoder.h"
#include "encoders/nvenc_encoder.h"
#include "session/native_session.h"
#include "support/failure.h"
#include "support/log.h"

namespace {

// The session's signed values go to the encoder bit for bit.
bool initWithSessionValues(NativeSession& session) {
  const StartOptions& options = session.options;
  return session.encoder->init(session.encodeDevice(), static_cast<uint32_t>(options.width),
                               static_cast<uint32_t>(options.height), static_cast<uint32_t>(options.fps),
                               static_cast<uint32_t>(options.bitrate));
}

// Puts a new encoder into the slot (deleting what stood there) and initialises it with the
// session's values. Empty text on success, else the recorded cause or `fixedCause`.
std::string tryEncoder(NativeSession& session, std::unique_ptr<VideoEncoder> encoder, const char* usingLine,
                       const char* fixedCause) {
  session.encoder = std::move(encoder);
  if (initWithSessionValues(session)) {
    session.encoderName.store(session.encoder->name());
    logInfo(usingLine);
    return {};
  }
  std::string cause = threadLastFailure;
  threadLastFailure.clear();
  session.encoder.reset();
  return cause.empty() ? fixedCause : cause;
}

std::string tryNvenc(NativeSession& session) {
  if (!session.encodeDevice()->isNvidia()) return "NVENC requires an NVIDIA GPU";
  return tryEncoder(session, std::make_unique<NvencEncoder>(), "Using NVENC encoder", "NVENC init failed");
}

std::string tryMediaFoundation(NativeSession& session) {
  return tryEncoder(session, std::make_unique<MfH264Encoder>(), "Using MF H264 encoder", "MF H264 init failed");
}

}  // namespace

bool selectEncoder(NativeSession& session) {
  switch (session.options.encoder) {
    case EncoderPreference::Nvenc: {
      std::string cause = tryNvenc(session);
      if (cause.empty()) return true;
      session.lastError = "NVENC: " + cause;
      return false;
    }
    case EncoderPreference::MediaFoundation: {
      std::string cause = tryMediaFoundation(session);
      if (cause.empty()) return true;
      session.lastError = "MF: " + cause;
      return false;
    }
    case EncoderPreference::Auto:
      break;
  }
  std::string nvencCause;
  if (session.encodeDevice()->isNvidia()) {
    nvencCause = tryNvenc(session);
    if (nvencCause.empty()) return true;
  } else {
    logInfo("Skipping NVENC because encode device is not NVIDIA");
  }
  std::string mfCause = tryMediaFoundation(session);
  if (mfCause.empty()) return true;
  std::string text;
  if (!nvencCause.empty()) text = "NVENC: " + nvencCause;
  if (!text.empty()) text += " | ";
  text += "MF: " + mfCause;
  session.lastError = text;
  session.encoder.reset();
  return false;
}

bool switchToNvenc(NativeSession& session) {
  if (!session.encodeDevice()->isNvidia()) {
    logError("NVENC fallback unavailable on non-NVIDIA encode device");
    return false;
  }
  // The Media Foundation encoder is gone, with all its teardown, before NVENC exists.
  session.encoder.reset();
  session.encoder = std::make_unique<NvencEncoder>();
  if (!initWithSessionValues(session)) {
    logError("NVENC fallback encoder init failed");
    session.encoder.reset();
    return false;
  }
  session.requestKeyFrame();
  session.encoderName.store(session.encoder->name());
  logInfo("Switched from MF to NVENC encoder");
  return true;
}
