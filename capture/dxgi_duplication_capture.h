// The capture source for a whole monitor: duplicates one output with DXGI Desktop Duplication and
// copies each frame that the platform gives into a texture of its own, on the capture device.
#pragma once

#include <d3d11.h>
#include <dxgi1_2.h>

#include <cstdint>

#include "capture/capture_source.h"
#include "support/counted_ref.h"

class DxgiDuplicationCapture : public CaptureSource {
 public:
  DxgiDuplicationCapture() = default;
  DxgiDuplicationCapture(const DxgiDuplicationCapture&) = delete;
  DxgiDuplicationCapture& operator=(const DxgiDuplicationCapture&) = delete;
  ~DxgiDuplicationCapture() override;

  bool init(D3DContext* d3d, const StartOptions& options) override;
  // Half a frame time, the frame time first taken up to whole milliseconds; never below 1 ms.
  void setFrameRate(uint32_t fps) override;
  bool acquireFrame(CountedRef<ID3D11Texture2D>& texture, int64_t& timestamp) override;
  void releaseFrame() override;

  // Opens the duplication of output `outputIndex` of the adapter that `d3d`'s device lives on.
  bool createDuplication(D3DContext* d3d, uint32_t outputIndex);

  // The wait that setFrameRate derives from `fps`.
  static uint32_t acquireTimeoutFor(uint32_t fps);

 private:
  // The copy needs a texture of the frame's own size: checked against both the duplication's
  // mode and the texture itself, so that a re-opening at a new size can't freeze the frames.
  bool stagingFits(const D3D11_TEXTURE2D_DESC& frame) const;
  void giveBackFrame();

  D3DContext* d3d = nullptr;
  CountedRef<IDXGIOutputDuplication> duplication;
  CountedRef<ID3D11Texture2D> stagingTexture;
  DXGI_OUTDUPL_DESC duplicationDesc{};
  uint32_t outputIndex = 0;
  uint32_t acquireTimeoutMs = 8;
  bool frameHeld = false;
};
