// h264_snapshot: decodes an H.264 Annex B stream and writes its last picture as a binary PPM.
//   h264_snapshot [input.h264 | -] [-o out.ppm]
// The input is read from stdin when it is "-" or missing; the picture goes to stdout unless -o
// names a file. The streamer's --snapshot turns the PPM into a PNG.
#include <wels/codec_api.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct NalSpan {
  size_t begin = 0;  // the start code's first byte
  size_t header = 0;  // the NAL header byte
  size_t end = 0;
};

struct RgbPicture {
  int width = 0, height = 0;
  std::vector<uint8_t> rgb;
};

int fail(const std::string& message) {
  std::fprintf(stderr, "h264_snapshot: %s\n", message.c_str());
  return 1;
}

bool readAll(std::FILE* file, std::vector<uint8_t>& out) {
  uint8_t chunk[1 << 16];
  size_t got;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) out.insert(out.end(), chunk, chunk + got);
  return std::ferror(file) == 0;
}

// NAL units between 3- or 4-byte start codes.
std::vector<NalSpan> scanNalUnits(const std::vector<uint8_t>& s) {
  std::vector<NalSpan> nals;
  for (size_t i = 0; i + 3 <= s.size(); ++i) {
    if (s[i] != 0 || s[i + 1] != 0 || s[i + 2] != 1) continue;
    const size_t begin = (i > 0 && s[i - 1] == 0) ? i - 1 : i;
    if (!nals.empty()) nals.back().end = begin;
    nals.push_back({begin, i + 3, s.size()});
    i += 2;
  }
  // Trailing zeros before a start code belong to no unit; an empty unit carries nothing.
  nals.erase(std::remove_if(nals.begin(), nals.end(), [](const NalSpan& n) { return n.header >= n.end; }), nals.end());
  return nals;
}

int nalType(const std::vector<uint8_t>& s, const NalSpan& n) { return s[n.header] & 0x1f; }
bool isSlice(int type) { return type == 1 || type == 5; }
// first_mb_in_slice is the first Exp-Golomb number of the slice header: 0 is a single 1 bit.
bool startsPicture(const std::vector<uint8_t>& s, const NalSpan& n) {
  return n.header + 1 < n.end && (s[n.header + 1] & 0x80) != 0;
}

uint8_t clamp(double v) { return uint8_t(std::clamp(v + 0.5, 0.0, 255.0)); }

// BT.709, studio range: what the capture side converts into.
RgbPicture toRgb(unsigned char* planes[3], const SBufferInfo& info) {
  const SSysMEMBuffer& layout = info.UsrData.sSystemBuffer;
  RgbPicture picture{layout.iWidth, layout.iHeight, {}};
  picture.rgb.resize(size_t(picture.width) * size_t(picture.height) * 3);
  for (int y = 0; y < picture.height; ++y) {
    const uint8_t* luma = planes[0] + size_t(y) * size_t(layout.iStride[0]);
    const uint8_t* cb = planes[1] + size_t(y / 2) * size_t(layout.iStride[1]);
    const uint8_t* cr = planes[2] + size_t(y / 2) * size_t(layout.iStride[1]);
    uint8_t* out = &picture.rgb[size_t(y) * size_t(picture.width) * 3];
    for (int x = 0; x < picture.width; ++x) {
      const double l = 1.164383 * (luma[x] - 16), u = cb[x / 2] - 128.0, v = cr[x / 2] - 128.0;
      *out++ = clamp(l + 1.792741 * v);
      *out++ = clamp(l - 0.213249 * u - 0.532909 * v);
      *out++ = clamp(l + 2.112402 * u);
    }
  }
  return picture;
}

}  // namespace

int main(int argc, char** argv) {
  std::string input = "-", output;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-o" && i + 1 < argc) output = argv[++i];
    else if (arg == "-h" || arg == "--help") return std::printf("usage: h264_snapshot [input.h264|-] [-o out.ppm]\n"), 0;
    else if (!arg.empty() && arg[0] == '-' && arg != "-") return fail("unknown option " + arg);
    else input = arg;
  }

  std::vector<uint8_t> stream;
  std::FILE* in = input == "-" ? stdin : std::fopen(input.c_str(), "rb");
  if (in == nullptr) return fail("cannot open " + input);
  const bool read = readAll(in, stream);
  if (in != stdin) std::fclose(in);
  if (!read) return fail("cannot read " + input);

  ISVCDecoder* decoder = nullptr;
  if (WelsCreateDecoder(&decoder) != 0 || decoder == nullptr) return fail("the decoder could not be created");
  SDecodingParam param{};
  param.uiTargetDqLayer = 0xFF;
  param.eEcActiveIdc = ERROR_CON_DISABLE;  // a broken picture must not pass as the last good one
  param.sVideoProperty.size = sizeof(param.sVideoProperty);
  param.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
  if (decoder->Initialize(&param) != 0) {
    WelsDestroyDecoder(decoder);
    return fail("the decoder could not be initialised");
  }

  // Decoded one access unit at a time: a picture begins at a non-slice unit after a slice, or at
  // a slice whose first macroblock is 0.
  RgbPicture last;
  int pictures = 0, errors = 0;
  const std::vector<NalSpan> nals = scanNalUnits(stream);
  size_t unitBegin = nals.empty() ? 0 : nals.front().begin;
  bool sliceSeen = false;
  for (size_t i = 0; i <= nals.size(); ++i) {
    const bool atEnd = i == nals.size();
    if (sliceSeen && (atEnd || !isSlice(nalType(stream, nals[i])) || startsPicture(stream, nals[i]))) {
      const size_t unitEnd = atEnd ? stream.size() : nals[i].begin;
      unsigned char* planes[3] = {};
      SBufferInfo info{};
      const DECODING_STATE state =
          decoder->DecodeFrameNoDelay(stream.data() + unitBegin, int(unitEnd - unitBegin), planes, &info);
      if (state != dsErrorFree) ++errors;
      else if (info.iBufferStatus == 1) last = toRgb(planes, info), ++pictures;
      unitBegin = unitEnd;
      sliceSeen = false;
    }
    if (!atEnd && isSlice(nalType(stream, nals[i]))) sliceSeen = true;
  }
  decoder->Uninitialize();
  WelsDestroyDecoder(decoder);
  if (pictures == 0) {
    return fail("no picture could be decoded from " + std::to_string(stream.size()) + " bytes (" +
                std::to_string(errors) + " decoding errors)");
  }

  std::FILE* out = output.empty() ? stdout : std::fopen(output.c_str(), "wb");
  if (out == nullptr) return fail("cannot write " + output);
  std::fprintf(out, "P6\n%d %d\n255\n", last.width, last.height);
  const bool written = std::fwrite(last.rgb.data(), 1, last.rgb.size(), out) == last.rgb.size();
  if (out != stdout) std::fclose(out);
  else std::fflush(stdout);
  return written ? 0 : fail("cannot write the picture");
}
