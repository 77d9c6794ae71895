// What `start(options)` tells the native side: the whole of it, read once per session.
#pragma once

#include <cstdint>
#include <string>

enum class CaptureKind : int32_t {
  Window = 0,  // one window, through Windows.Graphics.Capture
  Screen = 1,  // one monitor, through Desktop Duplication
};

enum class EncoderPreference : int32_t {
  Auto = 0,             // NVENC on an NVIDIA encode device, else Media Foundation
  Nvenc = 1,            // "nvenc"
  MediaFoundation = 2,  // "mf-h264"
};

// The initial values are what a session holds before its first start.
struct StartOptions {
  CaptureKind captureKind = CaptureKind::Window;
  int64_t nativeHandle = 0;  // a window handle, or the global output index for Screen
  int32_t width = 1920;
  int32_t height = 1080;
  int32_t fps = 80;
  int32_t bitrate = 33000000;
  std::string ip;  // the receiver's dotted IPv4 address, UTF-8, unchecked
  uint16_t port = 0;
  uint32_t ssrc = 0;
  uint8_t payloadType = 96;
  EncoderPreference encoder = EncoderPreference::Auto;
};
