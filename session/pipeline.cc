#include "session/pipeline.h"

#include "capture/dxgi_duplication_capture.h"
#include "capture/wgc_window_capture.h"
#include "encoders/encoder_selection.h"
#include "session/native_session.h"
#include "support/log.h"

namespace {

bool fail(NativeSession& session, const char* message) {
  session.reportInitFailure(message);
  return false;
}

// Decides the encode device when the capture adapter isn't NVIDIA: an NVIDIA adapter beside it
// gets its own context and a copy carries frames across; without one the capture device encodes.
bool bringUpEncodeDevice(NativeSession& session) {
  session.encodeContext = std::make_unique<D3DContext>();
  CountedRef<IDXGIAdapter1> nvidia;
  bool haveDevice = false;
  if (!findNvidiaAdapter(nvidia)) {
    logError("NVIDIA adapter not found");
  } else {
    logInfo("Using NVIDIA adapter for encode path");
    haveDevice = session.encodeContext->createDevice(std::move(nvidia), 0);
  }
  if (!haveDevice) {
    session.encodeContext.reset();
    logInfo("NVIDIA encode device unavailable, using capture adapter for encode");
    return true;
  }
  session.crossAdapterCopy = std::make_unique<CrossAdapterCopy>();
  CrossAdapterCopy& copy = *session.crossAdapterCopy;
  copy.source = session.captureContext.get();
  copy.destination = session.encodeContext.get();
  copy.sameDevice = copy.source && copy.destination && copy.source->device.get() == copy.destination->device.get();
  logInfo(copy.sameDevice ? "Cross-adapter copy not needed (same D3D device)"
                          : "Cross-adapter copy enabled for NVIDIA encode path");
  if (!copy.source || !copy.destination) return fail(session, "Cross-adapter copy init failed");
  return true;
}

}  // namespace

bool bringUpPipeline(NativeSession& session) {
  const StartOptions& options = session.options;
  bool screen = options.captureKind == CaptureKind::Screen;

  // A failed earlier bring-up was torn down, so every slot starts empty here and no copy can be
  // left holding contexts that are gone.
  session.captureContext = std::make_unique<D3DContext>();
  if (screen) {
    if (!session.captureContext->createForGlobalOutput(static_cast<uint32_t>(options.nativeHandle)))
      return fail(session, "D3D device init failed for monitor capture");
  } else if (!session.captureContext->createPreferNvidia()) {
    return fail(session, "D3D device init failed");
  }
  if (!session.captureContext->isNvidia() && !bringUpEncodeDevice(session)) return false;

  if (screen) {
    session.capture = std::make_unique<DxgiDuplicationCapture>();
  } else {
    session.capture = std::make_unique<WgcWindowCapture>();
  }
  if (!session.capture->init(session.captureContext.get(), options)) {
    return fail(session, screen ? "Screen capture init failed (DXGI duplication). Close other capture tools and retry."
                                : "Window capture init failed (WGC). Try sharing the full screen instead.");
  }
  session.capture->setFrameRate(options.fps < 1 ? 1u : static_cast<uint32_t>(options.fps));

  session.scaler = std::make_unique<VideoScaler>();
  if (!session.scaler->init(session.encodeDevice(), options.width, options.height))
    return fail(session, "Video scaler init failed");

  if (!selectEncoder(session)) {
    std::string reason = session.lastError;
    return fail(session, reason.c_str());
  }

  session.rtp = std::make_unique<RtpSender>();
  if (!session.rtp->open(options.ip, options.port, options.ssrc, options.payloadType))
    return fail(session, "RTP sender init failed");
  return true;
}

void tearDownPipeline(NativeSession& session) {
  session.capture.reset();
  session.encoder.reset();
  session.scaler.reset();
  session.crossAdapterCopy.reset();
  session.rtp.reset();
  session.encodeContext.reset();
  session.captureContext.reset();
  session.running.store(false);
}
