// The one interface behind which the two ways of getting pixels stand: a whole monitor or one
// window. A source hands over GPU textures on the capture device and nothing else.
#pragma once

#include <d3d11.h>

#include <cstdint>

#include "support/counted_ref.h"

class D3DContext;
struct StartOptions;

class CaptureSource {
 public:
  // Ends the capture and gives back every platform object; safe after a failed init.
  virtual ~CaptureSource() = default;

  // Keeps `d3d` (not owned, it outlives the source), checks that the options ask for this kind of
  // source, and opens the capture. False: logged, and the source is fit only for deletion.
  virtual bool init(D3DContext* d3d, const StartOptions& options) = 0;
  // The session's rate, at least 1.
  virtual void setFrameRate(uint32_t fps) = 0;
  // True: a new frame was copied into the source's own texture, which `texture` now shares, and
  // `timestamp` holds its time in 100 ns ticks of the performance counter (0: no time). False: no
  // frame this time, and both out-parameters are untouched.
  virtual bool acquireFrame(CountedRef<ID3D11Texture2D>& texture, int64_t& timestamp) = 0;
  // Gives back what the source still holds of the frame; the texture handed out stays valid.
  virtual void releaseFrame() = 0;
};
