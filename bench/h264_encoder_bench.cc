// The platform's H.264 encoder: time per picture on changing desktop content, for one thread and
// for its default threads and slices, tuned for camera or for screen content, with the bitrate
// out and the picture quality (luma PSNR of the decoded stream); and how close the bytes out come
// to the bitrate asked for, window by window. Prints figures; asserts nothing.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "platform/video/h264_encoder.h"
#include "test/support/desktop_frames.h"
#include "test/support/h264_decoder.h"

using Clock = std::chrono::steady_clock;
namespace video = platform::video;
using testing_support::Nv12Frame;

namespace {

constexpr int kDistinctFrames = 24;  // drawn before timing, then taken in turn

std::string loadAverage() {
  std::ifstream file("/proc/loadavg");
  std::string one, five;
  file >> one >> five;
  return one + " (1 min), " + five + " (5 min)";
}

std::vector<Nv12Frame> desktopFrames(int width, int height, bool video) {
  std::vector<Nv12Frame> frames;
  for (int i = 0; i < kDistinctFrames; ++i) {
    frames.emplace_back(width, height, 256 - width % 256, 256 - width % 256);  // pitch as the GPU lays it out
    testing_support::drawDesktop(frames.back(), i, video);
  }
  return frames;
}

struct Tuning {
  int threads = 0;  // 0: the encoder's default
  video::H264Content content = video::H264Content::Camera;
};

std::string describe(const Tuning& tuning) {
  std::string threads = tuning.threads == 0 ? std::to_string(video::defaultH264Threads()) + " (default)"
                                            : std::to_string(tuning.threads);
  return (tuning.content == video::H264Content::Screen ? "screen, threads " : "camera, threads ") + threads;
}

bool openEncoder(video::H264Encoder& encoder, int width, int height, int fps, int bitrate, Tuning tuning = {}) {
  video::H264EncoderSettings s;
  s.threads = tuning.threads;
  s.content = tuning.content;
  s.width = width;
  s.height = height;
  s.fps = fps;
  s.bitrate = bitrate;
  s.idrInterval = fps * 2;
  if (encoder.open(s)) return true;
  std::printf("open failed: %s\n", encoder.error().c_str());
  return false;
}

void measureSpeed(int width, int height, int fps, int bitrate, int pictures, bool video) {
  const std::vector<Nv12Frame> frames = desktopFrames(width, height, video);
  video::H264Encoder encoder;
  if (!openEncoder(encoder, width, height, fps, bitrate)) return;
  std::vector<uint8_t> out;
  bool keyFrame = false;
  double slowest = 0;
  const auto start = Clock::now();
  for (int i = 0; i < pictures; ++i) {
    out.clear();
    const auto before = Clock::now();
    if (!encoder.encode(frames[size_t(i % kDistinctFrames)].picture(), out, keyFrame)) {
      std::printf("encode failed: %s\n", encoder.error().c_str());
      return;
    }
    slowest = std::max(slowest, std::chrono::duration<double, std::milli>(Clock::now() - before).count());
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  std::printf("speed   %-7s %4dx%-4d %3d fps %5.1f Mbit/s: %6.1f pictures/s, mean %5.2f ms, slowest %5.2f ms\n", video ? "+video" : "desktop", width,
              height, fps, bitrate / 1e6, pictures / seconds, 1000 * seconds / pictures, slowest);
}

// One tuning on the same pictures: median and 90th percentile time a picture, the bitrate out over
// the run, and the mean luma PSNR of every decoded picture against its source.
void compareTuning(const std::vector<Nv12Frame>& frames, int fps, int bitrate, int pictures, Tuning tuning) {
  const int width = frames[0].width, height = frames[0].height;
  video::H264Encoder encoder;
  if (!openEncoder(encoder, width, height, fps, bitrate, tuning)) return;
  testing_support::H264Decoder decoder;
  std::vector<double> times;
  std::vector<uint8_t> out;
  bool keyFrame = false;
  size_t bytes = 0;
  double psnrSum = 0;
  int decoded = 0;
  for (int i = 0; i < pictures; ++i) {
    out.clear();
    const Nv12Frame& frame = frames[size_t(i % kDistinctFrames)];
    const auto before = Clock::now();
    if (!encoder.encode(frame.picture(), out, keyFrame)) {
      std::printf("encode failed: %s\n", encoder.error().c_str());
      return;
    }
    times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - before).count());
    bytes += out.size();
    std::vector<testing_support::DecodedPicture> got;
    if (!decoder.decodeStream(out, got) || got.size() != 1) {
      std::printf("decode failed at picture %d: %s\n", i, decoder.error().c_str());
      return;
    }
    psnrSum += testing_support::psnrY(frame, got[0]);
    ++decoded;
  }
  std::sort(times.begin(), times.end());
  std::printf("tuning  %4dx%-4d %-24s median %5.2f ms, p90 %5.2f ms, %6.2f Mbit/s, PSNR Y %5.2f dB\n", width, height,
              describe(tuning).c_str(), times[times.size() / 2], times[times.size() * 9 / 10],
              double(bytes) * 8 * fps / pictures / 1e6, psnrSum / decoded);
}

// Bytes out per window of two seconds of pictures, against the bitrate asked for.
void measureBitrate(int width, int height, int fps, int bitrate, int windows, bool video) {
  const std::vector<Nv12Frame> frames = desktopFrames(width, height, video);
  video::H264Encoder encoder;
  if (!openEncoder(encoder, width, height, fps, bitrate)) return;
  std::printf("bitrate %-7s %4dx%-4d %3d fps %5.1f Mbit/s:", video ? "+video" : "desktop", width, height, fps, bitrate / 1e6);
  std::vector<uint8_t> out;
  bool keyFrame = false;
  int picture = 0;
  for (int w = 0; w < windows; ++w) {
    size_t bytes = 0;
    for (int i = 0; i < 2 * fps; ++i, ++picture) {
      out.clear();
      if (!encoder.encode(frames[size_t(picture % kDistinctFrames)].picture(), out, keyFrame)) {
        std::printf(" encode failed: %s\n", encoder.error().c_str());
        return;
      }
      bytes += out.size();
    }
    std::printf("  %+5.1f%%", 100.0 * (double(bytes) * 8 / 2 - bitrate) / bitrate);
  }
  std::printf("  (per 2 s window, against the target)\n");
}

}  // namespace

int main() {
  std::printf("load average before: %s\n", loadAverage().c_str());
  {
    const std::vector<Nv12Frame> frames = desktopFrames(1920, 1080, false);
    for (video::H264Content content : {video::H264Content::Camera, video::H264Content::Screen}) {
      for (int threads : {1, 0}) compareTuning(frames, 80, 33'000'000, 240, Tuning{threads, content});
    }
  }
  for (bool video : {false, true}) {
    measureSpeed(1920, 1080, 60, 33'000'000, 400, video);
    measureSpeed(1280, 720, 60, 8'000'000, 600, video);
  }
  for (bool video : {false, true}) {
    measureBitrate(1920, 1080, 60, 33'000'000, 3, video);
    measureBitrate(1920, 1080, 80, 33'000'000, 3, video);
    measureBitrate(1920, 1080, 60, 8'000'000, 3, video);
    measureBitrate(1280, 720, 60, 8'000'000, 3, video);
  }
  std::printf("load average after: %s\n", loadAverage().c_str());
}
