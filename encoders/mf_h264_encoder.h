// The VideoEncoder that encodes through a Media Foundation H.264 transform: the software class,
// a software transform found by enumeration, or a hardware transform, tried in that order.
// Synchronous transforms are driven by ProcessInput and ProcessOutput in turn; an asynchronous
// hardware transform by its events, polled without ever blocking in its queue.
#pragma once

#include <d3d11.h>
#include <mfapi.h>
#include <mftransform.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "encoders/video_encoder.h"
#include "support/counted_ref.h"

class MfH264Encoder : public VideoEncoder {
 public:
  MfH264Encoder() = default;
  ~MfH264Encoder() override;
  MfH264Encoder(const MfH264Encoder&) = delete;
  MfH264Encoder& operator=(const MfH264Encoder&) = delete;

  bool init(D3DContext* d3d, uint32_t width, uint32_t height, uint32_t fps, uint32_t bitrate) override;
  bool encode(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame) override;
  void requestKeyFrame() override { keyFramePending = true; }
  bool usesGpuInput() const override { return gpuInput; }
  const char* name() const override { return "mf-h264"; }

 private:
  using Finder = std::function<bool(CountedRef<IMFTransform>&)>;

  // Setup (mf_h264_encoder_setup.cc).
  bool tryTransform(const char* label, bool hardware, const Finder& finder);
  bool enumerateTransform(UINT32 flags, CountedRef<IMFTransform>& out);
  bool configureTransform(IMFTransform* candidate, bool hardware);
  bool unlockAsync(IMFAttributes* attributes);
  bool giveDeviceManager(IMFTransform* candidate);
  bool negotiateOutputType(IMFTransform* candidate);
  bool negotiateInputType(IMFTransform* candidate);

  // The frame path (mf_h264_encoder_frame.cc, mf_h264_encoder_events.cc, mf_h264_encoder_input.cc).
  bool encodeDirect(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame);
  bool encodeEventDriven(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame);
  bool createInputSample(ID3D11Texture2D* texture, CountedRef<IMFSample>& sample);
  bool addGpuBuffer(ID3D11Texture2D* texture, IMFSample* sample);
  bool addCpuBuffer(ID3D11Texture2D* texture, IMFSample* sample);
  void applyKeyFrameRequest();
  bool feedInput(IMFSample* sample);
  // Fetches until the transform has nothing more: into `out` when given, else discarded.
  void drainOutput(std::vector<uint8_t>* out, bool* keyFrame);
  bool pullOutput(std::vector<uint8_t>* out, bool* keyFrame, bool append, HRESULT* hr);
  void reconfigureOutputAfterStreamChange();
  bool pumpEvents(std::vector<uint8_t>* out, bool* keyFrame, bool append, bool& needInput);
  bool waitForNeedInput();
  void waitForGpu();
  void logFailureLimited(const char* text, HRESULT hr);

  D3DContext* d3d = nullptr;
  CountedRef<IMFTransform> transform;
  CountedRef<IMFDXGIDeviceManager> deviceManager;
  CountedRef<ID3D11Texture2D> inputTexture;
  CountedRef<ID3D11Query> gpuDoneQuery;
  CountedRef<IMFSample> heldSample;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t fps = 60;
  uint32_t bitrate = 0;
  uint32_t outputBufferSize = 2097152;
  bool transformProvidesSamples = false;
  bool asyncTransform = false;
  bool eventDriven = false;
  bool gpuInput = false;
  uint64_t sampleIndex = 0;
  bool comInitialized = false;
  bool mfStarted = false;
  bool keyFramePending = true;
  uint64_t lastFailureLogTick = 0;
  // METransformNeedInput events taken and not yet answered with ProcessInput. An asynchronous
  // transform sends one per sample it can take and never repeats it, so one taken while
  // collecting a picture's output is the next picture's permission.
  uint32_t needInputCredits = 0;
};
