// The one interface behind which H.264 encoding stands: NV12 textures in, Annex B bytes out.
#pragma once

#include <d3d11.h>

#include <cstdint>
#include <vector>

class D3DContext;

class VideoEncoder {
 public:
  // Gives back every platform object; safe after a failed init and without any init.
  virtual ~VideoEncoder() = default;

  // Empties threadLastFailure, then brings the encoder up on `d3d` (not owned, it outlives the
  // encoder). False: the reason stands in threadLastFailure if one was recorded.
  virtual bool init(D3DContext* d3d, uint32_t width, uint32_t height, uint32_t fps, uint32_t bitrate) = 0;
  // One NV12 picture of the init size on the init device. True with bytes: Annex B output, and
  // `*keyFrame` (if given) says whether an IDR picture stands in it. True and empty: accepted, but
  // nothing delivered yet. False: nothing reached the encoder or nothing could be fetched.
  virtual bool encode(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame) = 0;
  // Asks for a key frame on the next picture; several requests give one. Calls nothing.
  virtual void requestKeyFrame() = 0;
  // Whether the encoder takes GPU textures through a device manager (Media Foundation only).
  virtual bool usesGpuInput() const = 0;
  // "nvenc" or "mf-h264": static text that outlives the object.
  virtual const char* name() const = 0;
};
