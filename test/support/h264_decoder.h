// A real H.264 decoder for tests: Annex B in, pictures out, one access unit at a time, and the
// PSNR of what came out against what went in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class ISVCDecoder;

namespace testing_support {

struct Nv12Frame;

// Tight I420 planes.
struct DecodedPicture {
  int width = 0, height = 0;
  std::vector<uint8_t> y, cb, cr;
};

class H264Decoder {
 public:
  H264Decoder();
  ~H264Decoder();
  H264Decoder(const H264Decoder&) = delete;
  H264Decoder& operator=(const H264Decoder&) = delete;

  // Decodes one access unit. True when it decoded without error; `pictures` gains the picture
  // that it completed, if any.
  bool decode(const uint8_t* data, size_t size, std::vector<DecodedPicture>& pictures);
  // Cuts a stream into access units (a picture begins at a parameter set after a slice, or at a
  // slice whose first macroblock is 0) and decodes them in turn. False on the first error.
  bool decodeStream(const std::vector<uint8_t>& stream, std::vector<DecodedPicture>& pictures);

  const std::string& error() const { return lastError; }

 private:
  ISVCDecoder* codec = nullptr;
  std::string lastError;
};

// Peak signal-to-noise ratio of two 8-bit planes, in dB; 99 for equal planes.
double planePsnr(const uint8_t* a, size_t aPitch, const uint8_t* b, size_t bPitch, int width, int height);
double psnrY(const Nv12Frame& source, const DecodedPicture& decoded);
// The lower of the Cb and Cr figures.
double psnrChroma(const Nv12Frame& source, const DecodedPicture& decoded);

}  // namespace testing_support
