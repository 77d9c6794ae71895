// The platform's H.264 encoder transform, over the codec core of platform/video. One class
// serves the three kinds of transforms.h; the kind decides its threading, its output framing
// and who allocates output samples.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "mfobjects.h"
#include "mftransform.h"
#include "platform/core/com_object.h"
#include "platform/mf/event_queue.h"
#include "platform/mf/transforms.h"
#include "platform/video/h264_encoder.h"
#include "strmif.h"

namespace platform::mf {

// What the output type fixes: the encoder's settings.
struct StreamFormat {
  UINT32 width = 0;
  UINT32 height = 0;
  UINT32 rateNumerator = 0;
  UINT32 rateDenominator = 0;
  UINT32 bitrate = 0;
  UINT32 keyFrameSpacing = 0;  // 0: the transform's default
};

struct EncodedOutput {
  std::vector<BYTE> bytes;
  LONGLONG time = 0;
  LONGLONG duration = 0;
  bool timed = false;
};

class H264Transform final : public ComObject, public IMFTransform, public ICodecAPI, public IMFMediaEventGenerator {
 public:
  H264Transform(TransformKind kind, UINT pinnedAdapter);
  PLATFORM_IUNKNOWN_METHODS

  // IMFTransform
  HRESULT STDMETHODCALLTYPE GetStreamLimits(DWORD* pdwInputMinimum, DWORD* pdwInputMaximum, DWORD* pdwOutputMinimum,
                                            DWORD* pdwOutputMaximum) override;
  HRESULT STDMETHODCALLTYPE GetStreamCount(DWORD* pcInputStreams, DWORD* pcOutputStreams) override;
  HRESULT STDMETHODCALLTYPE GetStreamIDs(DWORD dwInputIDArraySize, DWORD* pdwInputIDs, DWORD dwOutputIDArraySize,
                                         DWORD* pdwOutputIDs) override;
  HRESULT STDMETHODCALLTYPE GetInputStreamInfo(DWORD dwInputStreamID, MFT_INPUT_STREAM_INFO* pStreamInfo) override;
  HRESULT STDMETHODCALLTYPE GetOutputStreamInfo(DWORD dwOutputStreamID, MFT_OUTPUT_STREAM_INFO* pStreamInfo) override;
  HRESULT STDMETHODCALLTYPE GetAttributes(IMFAttributes** pAttributes) override;
  HRESULT STDMETHODCALLTYPE GetInputStreamAttributes(DWORD dwInputStreamID, IMFAttributes** pAttributes) override;
  HRESULT STDMETHODCALLTYPE GetOutputStreamAttributes(DWORD dwOutputStreamID, IMFAttributes** pAttributes) override;
  HRESULT STDMETHODCALLTYPE DeleteInputStream(DWORD dwStreamID) override;
  HRESULT STDMETHODCALLTYPE AddInputStreams(DWORD cStreams, DWORD* adwStreamIDs) override;
  HRESULT STDMETHODCALLTYPE GetInputAvailableType(DWORD dwInputStreamID, DWORD dwTypeIndex,
                                                  IMFMediaType** ppType) override;
  HRESULT STDMETHODCALLTYPE GetOutputAvailableType(DWORD dwOutputStreamID, DWORD dwTypeIndex,
                                                   IMFMediaType** ppType) override;
  HRESULT STDMETHODCALLTYPE SetInputType(DWORD dwInputStreamID, IMFMediaType* pType, DWORD dwFlags) override;
  HRESULT STDMETHODCALLTYPE SetOutputType(DWORD dwOutputStreamID, IMFMediaType* pType, DWORD dwFlags) override;
  HRESULT STDMETHODCALLTYPE GetInputCurrentType(DWORD dwInputStreamID, IMFMediaType** ppType) override;
  HRESULT STDMETHODCALLTYPE GetOutputCurrentType(DWORD dwOutputStreamID, IMFMediaType** ppType) override;
  HRESULT STDMETHODCALLTYPE GetInputStatus(DWORD dwInputStreamID, DWORD* pdwFlags) override;
  HRESULT STDMETHODCALLTYPE GetOutputStatus(DWORD* pdwFlags) override;
  HRESULT STDMETHODCALLTYPE SetOutputBounds(LONGLONG hnsLowerBound, LONGLONG hnsUpperBound) override;
  HRESULT STDMETHODCALLTYPE ProcessEvent(DWORD dwInputStreamID, IMFMediaEvent* pEvent) override;
  HRESULT STDMETHODCALLTYPE ProcessMessage(MFT_MESSAGE_TYPE eMessage, ULONG_PTR ulParam) override;
  HRESULT STDMETHODCALLTYPE ProcessInput(DWORD dwInputStreamID, IMFSample* pSample, DWORD dwFlags) override;
  HRESULT STDMETHODCALLTYPE ProcessOutput(DWORD dwFlags, DWORD cOutputBufferCount, MFT_OUTPUT_DATA_BUFFER* pOutputSamples,
                                          DWORD* pdwStatus) override;

  // ICodecAPI: only CODECAPI_AVEncVideoForceKeyFrame is supported.
  HRESULT STDMETHODCALLTYPE IsSupported(const GUID* Api) override;
  HRESULT STDMETHODCALLTYPE IsModifiable(const GUID* Api) override;
  HRESULT STDMETHODCALLTYPE GetParameterRange(const GUID* Api, VARIANT* ValueMin, VARIANT* ValueMax,
                                              VARIANT* SteppingDelta) override;
  HRESULT STDMETHODCALLTYPE GetParameterValues(const GUID* Api, VARIANT** Values, ULONG* ValuesCount) override;
  HRESULT STDMETHODCALLTYPE GetDefaultValue(const GUID* Api, VARIANT* Value) override;
  HRESULT STDMETHODCALLTYPE GetValue(const GUID* Api, VARIANT* Value) override;
  HRESULT STDMETHODCALLTYPE SetValue(const GUID* Api, VARIANT* Value) override;
  HRESULT STDMETHODCALLTYPE RegisterForEvent(const GUID* Api, LONG_PTR userData) override;
  HRESULT STDMETHODCALLTYPE UnregisterForEvent(const GUID* Api) override;
  HRESULT STDMETHODCALLTYPE SetAllDefaults() override;
  HRESULT STDMETHODCALLTYPE SetValueWithNotify(const GUID* Api, VARIANT* Value, GUID** ChangedParam,
                                               ULONG* ChangedParamCount) override;
  HRESULT STDMETHODCALLTYPE SetAllDefaultsWithNotify(GUID** ChangedParam, ULONG* ChangedParamCount) override;
  HRESULT STDMETHODCALLTYPE GetAllSettings(IStream* stream) override;
  HRESULT STDMETHODCALLTYPE SetAllSettings(IStream* stream) override;
  HRESULT STDMETHODCALLTYPE SetAllSettingsWithNotify(IStream* stream, GUID** ChangedParam,
                                                     ULONG* ChangedParamCount) override;

  // IMFMediaEventGenerator, offered by the asynchronous kind only.
  HRESULT STDMETHODCALLTYPE GetEvent(DWORD dwFlags, IMFMediaEvent** ppEvent) override;
  HRESULT STDMETHODCALLTYPE BeginGetEvent(IMFAsyncCallback* pCallback, IUnknown* punkState) override;
  HRESULT STDMETHODCALLTYPE EndGetEvent(IMFAsyncResult* pResult, IMFMediaEvent** ppEvent) override;
  HRESULT STDMETHODCALLTYPE QueueEvent(MediaEventType met, REFGUID guidExtendedType, HRESULT hrStatus,
                                       const PROPVARIANT* pvValue) override;

 private:
  bool async() const { return kind == TransformKind::Hardware; }
  // MF_E_TRANSFORM_ASYNC_LOCKED until the client has written MF_TRANSFORM_ASYNC_UNLOCK.
  HRESULT lockedAnswer() const;
  HRESULT checkOutputType(IMFMediaType* type, StreamFormat* format) const;
  HRESULT checkInputType(IMFMediaType* type) const;
  IMFMediaType* makeOutputType() const;   // the type offered at index 0 of the output
  IMFMediaType* makeInputType(REFGUID subtype) const;
  const std::vector<GUID>& inputSubtypes() const;
  HRESULT setManager(ULONG_PTR param);
  void startOfStream();
  void drain();
  void flush();

  // The frame path (h264_transform_stream.cc).
  // What a picture is read against; taken under the lock, so that the reading needs none.
  struct PictureTarget {
    UINT32 width;
    UINT32 height;
    ID3D11Device* device;  // compared only, never called
  };
  PictureTarget pictureTarget() const { return {format.width, format.height, managerDevice}; }
  HRESULT readPicture(IMFSample* sample, const PictureTarget& target, std::vector<BYTE>& nv12) const;
  HRESULT encodePicture(IMFSample* sample, const std::vector<BYTE>& nv12, EncodedOutput& output);
  void frame(std::vector<BYTE>& bytes) const;  // Annex B as this kind writes it
  HRESULT deliver(MFT_OUTPUT_DATA_BUFFER& buffer, EncodedOutput& output);
  void startWorker();
  void stopWorker();
  void work();

  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;

  const TransformKind kind;
  const UINT pinnedAdapter;
  const UINT32 slicelessAfter;  // from the machine description; 0: never
  IMFAttributes* attributes;  // one reference; the transform's attribute store

  std::mutex mutex;  // everything below
  IMFMediaType* outputType = nullptr;  // one reference each, or null
  IMFMediaType* inputType = nullptr;
  StreamFormat format;
  IMFDXGIDeviceManager* manager = nullptr;
  ID3D11Device* managerDevice = nullptr;
  std::unique_ptr<video::H264Encoder> codec;
  bool keyFramePending = false;
  UINT64 picturesEncoded = 0;
  std::vector<BYTE> parameterSets;  // the last SPS and PPS written, Annex B
  bool streaming = false;
  bool draining = false;
  std::deque<EncodedOutput> outputs;  // ready; for the async kind, announced by METransformHaveOutput
  bool announceAfterTypeSet = false;   // a stream change took an announced output's event

  // The asynchronous kind.
  EventQueue events;
  int credits = 0;                  // METransformNeedInput sent and not yet answered by ProcessInput
  UINT64 flushes = 0;               // a picture read during a flush is dropped
  std::deque<IMFSample*> inputs;    // taken, not yet encoded; one reference each
  std::condition_variable workArrived;
  std::thread worker;
  bool stopping = false;
};

}  // namespace platform::mf
