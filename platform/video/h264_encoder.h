// The platform's one H.264 encoder, shared by its encoder transforms and its NVENC driver:
// OpenH264 set for low delay. Baseline profile, CAVLC, no B-frames, and every input picture gives
// exactly one picture out (no frame skipping), so that what goes in with a call is out when it
// returns. A picture is cut into one slice per thread and the slices are encoded side by side,
// as the hardware it stands for works beside the CPU.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class ISVCEncoder;

namespace platform::video {

// What the codec's rate control and mode decisions are tuned for.
enum class H264Content { Camera, Screen };

// Threads (and slices) for an encoder whose settings leave it open: the cores, at most four.
int defaultH264Threads();

struct H264EncoderSettings {
  int width = 0;        // even
  int height = 0;       // even
  int fps = 30;         // the rate the bitrate is spread over, at least 1
  int bitrate = 0;      // bits per second, at least 1
  int idrInterval = 0;  // pictures from one IDR to the next, requested ones included; 0: none regular
  int threads = 0;      // threads and slices a picture; 0: defaultH264Threads()
  H264Content content = H264Content::Camera;
};

// One NV12 picture in memory that somebody else owns: luma rows, then rows of Cb,Cr pairs.
struct Nv12Picture {
  const uint8_t* luma = nullptr;
  size_t lumaPitch = 0;
  const uint8_t* chroma = nullptr;
  size_t chromaPitch = 0;
  int width = 0;
  int height = 0;
};

// Settings are fixed for an encoder's life: a new size, rate or bitrate takes a new encoder.
class H264Encoder {
 public:
  H264Encoder() = default;
  ~H264Encoder();
  H264Encoder(const H264Encoder&) = delete;
  H264Encoder& operator=(const H264Encoder&) = delete;

  // False, with error() saying why, for settings it can't take or a codec that won't start.
  bool open(const H264EncoderSettings& settings);
  // The next picture is an IDR; the interval counts on from it.
  void requestKeyFrame() { keyFramePending = true; }
  // Appends the picture's Annex B bytes to `out`; an IDR comes with SPS and PPS in front and sets
  // `keyFrame`. False, with error() and `out` unchanged, for a picture of another size or a codec
  // failure.
  bool encode(const Nv12Picture& picture, std::vector<uint8_t>& out, bool& keyFrame);

  const std::string& error() const { return lastError; }
  const H264EncoderSettings& settings() const { return current; }

 private:
  bool fail(const std::string& text);
  void close();

  ISVCEncoder* codec = nullptr;
  H264EncoderSettings current;
  std::vector<uint8_t> planes;  // the Cb and Cr planes of the picture being encoded
  int64_t pictureIndex = 0;
  int picturesSinceIdr = 0;
  bool keyFramePending = true;
  std::string lastError;
  std::string codecMessage;  // the codec's first error line since the last failure
};

}  // namespace platform::video
