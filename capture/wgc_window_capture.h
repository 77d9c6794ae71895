// Window capture through Windows.Graphics.Capture, at the WinRT ABI. The platform says by
// FrameArrived, on a thread of its own, that a frame waits; acquireFrame copies it into a
// texture of the source's own and hands the platform's frame back before it returns.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "capture/capture_source.h"

class WgcWindowCapture : public CaptureSource {
 public:
  // Does no platform work.
  WgcWindowCapture();
  ~WgcWindowCapture() override;
  WgcWindowCapture(const WgcWindowCapture&) = delete;
  WgcWindowCapture& operator=(const WgcWindowCapture&) = delete;

  bool init(D3DContext* d3d, const StartOptions& options) override;
  // The rate is left to the platform and the frame loop's pacing.
  void setFrameRate(uint32_t fps) override;
  // Never waits on the platform: without a frame ready it answers false at once, without a lock.
  bool acquireFrame(CountedRef<ID3D11Texture2D>& texture, int64_t& timestamp) override;
  // Nothing is held between calls.
  void releaseFrame() override;

 private:
  struct WgcObjects;

  // Closes the session, then the pool, so that no handler runs once it returns. Safe to repeat.
  void stop();
  bool copyNextFrame(CountedRef<ID3D11Texture2D>& texture, int64_t& timestamp);

  D3DContext* d3d = nullptr;
  CountedRef<ID3D11Texture2D> frameTexture;
  std::mutex frameMutex;
  // Set by the platform's thread when a frame arrives, cleared by the worker. Shared with the
  // FrameArrived handler, which may outlive this source.
  std::shared_ptr<std::atomic<bool>> frameReadyFlag = std::make_shared<std::atomic<bool>>(false);
  std::atomic<bool>& frameReady = *frameReadyFlag;
  bool started = false;
  bool enteredApartment = false;
  std::unique_ptr<WgcObjects> objects;
};
