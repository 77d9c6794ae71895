#include "test/support/h264_decoder.h"

#include <wels/codec_api.h>

#include <algorithm>
#include <cmath>

#include "rtp/annexb.h"
#include "test/support/desktop_frames.h"

namespace testing_support {

namespace {

bool isSlice(const NalUnit& nal) { return nal.type == kNalSliceNonIdr || nal.type == kNalSliceIdr; }
// first_mb_in_slice is the first Exp-Golomb number of the header: 0 is coded as a single 1 bit.
bool startsPicture(const NalUnit& nal) { return nal.size > 1 && (nal.data[1] & 0x80) != 0; }

void copyPlane(const uint8_t* from, int stride, int width, int height, std::vector<uint8_t>& to) {
  to.resize(size_t(width) * size_t(height));
  for (int y = 0; y < height; ++y) std::copy_n(from + size_t(y) * size_t(stride), width, &to[size_t(y) * size_t(width)]);
}

}  // namespace

H264Decoder::H264Decoder() {
  if (WelsCreateDecoder(&codec) != 0 || codec == nullptr) {
    codec = nullptr;
    lastError = "decoder could not be created";
    return;
  }
  SDecodingParam param{};
  param.uiTargetDqLayer = 0xFF;
  param.eEcActiveIdc = ERROR_CON_DISABLE;  // a broken stream must show, not be hidden
  param.sVideoProperty.size = sizeof(param.sVideoProperty);
  param.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
  if (codec->Initialize(&param) != 0) {
    WelsDestroyDecoder(codec);
    codec = nullptr;
    lastError = "decoder could not be initialised";
  }
}

H264Decoder::~H264Decoder() {
  if (codec == nullptr) return;
  codec->Uninitialize();
  WelsDestroyDecoder(codec);
}

bool H264Decoder::decode(const uint8_t* data, size_t size, std::vector<DecodedPicture>& pictures) {
  if (codec == nullptr) return false;
  unsigned char* planes[3] = {};
  SBufferInfo info{};
  const DECODING_STATE state = codec->DecodeFrameNoDelay(data, int(size), planes, &info);
  if (state != dsErrorFree) {
    lastError = "decoding state 0x" + std::to_string(int(state));
    return false;
  }
  if (info.iBufferStatus != 1) return true;
  const SSysMEMBuffer& layout = info.UsrData.sSystemBuffer;
  DecodedPicture picture;
  picture.width = layout.iWidth;
  picture.height = layout.iHeight;
  copyPlane(planes[0], layout.iStride[0], layout.iWidth, layout.iHeight, picture.y);
  copyPlane(planes[1], layout.iStride[1], layout.iWidth / 2, layout.iHeight / 2, picture.cb);
  copyPlane(planes[2], layout.iStride[1], layout.iWidth / 2, layout.iHeight / 2, picture.cr);
  pictures.push_back(std::move(picture));
  return true;
}

bool H264Decoder::decodeStream(const std::vector<uint8_t>& stream, std::vector<DecodedPicture>& pictures) {
  const std::vector<NalUnit> nals = scanAnnexB(stream.data(), stream.size());
  // A NAL unit runs up to the next one's start code, so access units meet where NAL units end.
  const uint8_t* begin = stream.data();
  bool sliceSeen = false;
  for (size_t i = 0; i <= nals.size(); ++i) {
    const bool last = i == nals.size();
    if (sliceSeen && (last || !isSlice(nals[i]) || startsPicture(nals[i]))) {
      const uint8_t* end = last ? stream.data() + stream.size() : nals[i - 1].data + nals[i - 1].size;
      if (!decode(begin, size_t(end - begin), pictures)) return false;
      begin = end;
      sliceSeen = false;
    }
    if (!last && isSlice(nals[i])) sliceSeen = true;
  }
  return true;
}

double planePsnr(const uint8_t* a, size_t aPitch, const uint8_t* b, size_t bPitch, int width, int height) {
  double squared = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int d = int(a[size_t(y) * aPitch + size_t(x)]) - int(b[size_t(y) * bPitch + size_t(x)]);
      squared += double(d * d);
    }
  }
  if (squared == 0) return 99;
  return 10 * std::log10(255.0 * 255.0 * double(width) * double(height) / squared);
}

double psnrY(const Nv12Frame& source, const DecodedPicture& decoded) {
  if (decoded.width != source.width || decoded.height != source.height) return 0;
  return planePsnr(source.luma.data(), source.lumaPitch, decoded.y.data(), size_t(decoded.width), source.width,
                   source.height);
}

double psnrChroma(const Nv12Frame& source, const DecodedPicture& decoded) {
  if (decoded.width != source.width || decoded.height != source.height) return 0;
  const int w = source.width / 2, h = source.height / 2;
  std::vector<uint8_t> cb(size_t(w) * size_t(h)), cr(cb.size());
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      cb[size_t(y) * size_t(w) + size_t(x)] = source.chroma[size_t(y) * source.chromaPitch + size_t(2 * x)];
      cr[size_t(y) * size_t(w) + size_t(x)] = source.chroma[size_t(y) * source.chromaPitch + size_t(2 * x + 1)];
    }
  }
  return std::min(planePsnr(cb.data(), size_t(w), decoded.cb.data(), size_t(w), w, h),
                  planePsnr(cr.data(), size_t(w), decoded.cr.data(), size_t(w), w, h));
}

}  // namespace testing_support
