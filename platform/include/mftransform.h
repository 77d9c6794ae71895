// Media Foundation transforms: IMFTransform with its stream structures, messages and flags, and the
// attributes of asynchronous transforms.
#pragma once

#include "mfobjects.h"
#include "unknwn.h"
#include "windef.h"

typedef struct _MFT_INPUT_STREAM_INFO {
  LONGLONG hnsMaxLatency;
  DWORD dwFlags;
  DWORD cbSize;
  DWORD cbMaxLookahead;
  DWORD cbAlignment;
} MFT_INPUT_STREAM_INFO;

typedef struct _MFT_OUTPUT_STREAM_INFO {
  DWORD dwFlags;
  DWORD cbSize;
  DWORD cbAlignment;
} MFT_OUTPUT_STREAM_INFO;

typedef struct _MFT_OUTPUT_DATA_BUFFER {
  DWORD dwStreamID;
  IMFSample* pSample;
  DWORD dwStatus;
  IMFCollection* pEvents;
} MFT_OUTPUT_DATA_BUFFER, *PMFT_OUTPUT_DATA_BUFFER;

typedef enum _MFT_MESSAGE_TYPE {
  MFT_MESSAGE_COMMAND_FLUSH = 0,
  MFT_MESSAGE_COMMAND_DRAIN = 0x1,
  MFT_MESSAGE_SET_D3D_MANAGER = 0x2,
  MFT_MESSAGE_DROP_SAMPLES = 0x3,
  MFT_MESSAGE_COMMAND_TICK = 0x4,
  MFT_MESSAGE_NOTIFY_BEGIN_STREAMING = 0x10000000,
  MFT_MESSAGE_NOTIFY_END_STREAMING = 0x10000001,
  MFT_MESSAGE_NOTIFY_END_OF_STREAM = 0x10000002,
  MFT_MESSAGE_NOTIFY_START_OF_STREAM = 0x10000003,
  MFT_MESSAGE_COMMAND_MARKER = 0x20000000
} MFT_MESSAGE_TYPE;

enum _MFT_SET_TYPE_FLAGS { MFT_SET_TYPE_TEST_ONLY = 0x1 };

enum _MFT_INPUT_STREAM_INFO_FLAGS {
  MFT_INPUT_STREAM_WHOLE_SAMPLES = 0x1,
  MFT_INPUT_STREAM_SINGLE_SAMPLE_PER_BUFFER = 0x2,
  MFT_INPUT_STREAM_FIXED_SAMPLE_SIZE = 0x4,
  MFT_INPUT_STREAM_HOLDS_BUFFERS = 0x8,
  MFT_INPUT_STREAM_DOES_NOT_ADDREF = 0x100,
  MFT_INPUT_STREAM_REMOVABLE = 0x200,
  MFT_INPUT_STREAM_OPTIONAL = 0x400,
  MFT_INPUT_STREAM_PROCESSES_IN_PLACE = 0x800
};

enum _MFT_OUTPUT_STREAM_INFO_FLAGS {
  MFT_OUTPUT_STREAM_WHOLE_SAMPLES = 0x1,
  MFT_OUTPUT_STREAM_SINGLE_SAMPLE_PER_BUFFER = 0x2,
  MFT_OUTPUT_STREAM_FIXED_SAMPLE_SIZE = 0x4,
  MFT_OUTPUT_STREAM_DISCARDABLE = 0x8,
  MFT_OUTPUT_STREAM_OPTIONAL = 0x10,
  MFT_OUTPUT_STREAM_PROVIDES_SAMPLES = 0x100,
  MFT_OUTPUT_STREAM_CAN_PROVIDE_SAMPLES = 0x200,
  MFT_OUTPUT_STREAM_LAZY_READ = 0x400,
  MFT_OUTPUT_STREAM_REMOVABLE = 0x800
};

enum _MFT_INPUT_STATUS_FLAGS { MFT_INPUT_STATUS_ACCEPT_DATA = 0x1 };
enum _MFT_OUTPUT_STATUS_FLAGS { MFT_OUTPUT_STATUS_SAMPLE_READY = 0x1 };
enum _MFT_PROCESS_OUTPUT_FLAGS { MFT_PROCESS_OUTPUT_DISCARD_WHEN_NO_BUFFER = 0x1 };
enum _MFT_PROCESS_OUTPUT_STATUS { MFT_PROCESS_OUTPUT_STATUS_NEW_STREAMS = 0x100 };
enum _MFT_OUTPUT_DATA_BUFFER_FLAGS {
  MFT_OUTPUT_DATA_BUFFER_INCOMPLETE = 0x1000000,
  MFT_OUTPUT_DATA_BUFFER_FORMAT_CHANGE = 0x100,
  MFT_OUTPUT_DATA_BUFFER_STREAM_END = 0x200,
  MFT_OUTPUT_DATA_BUFFER_NO_SAMPLE = 0x300
};

MIDL_INTERFACE("bf94c121-5b05-4e6f-8000-ba598961414d")
IMFTransform : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetStreamLimits(DWORD* pdwInputMinimum, DWORD* pdwInputMaximum,
                                                    DWORD* pdwOutputMinimum, DWORD* pdwOutputMaximum) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetStreamCount(DWORD* pcInputStreams, DWORD* pcOutputStreams) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetStreamIDs(DWORD dwInputIDArraySize, DWORD* pdwInputIDs,
                                                 DWORD dwOutputIDArraySize, DWORD* pdwOutputIDs) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetInputStreamInfo(DWORD dwInputStreamID, MFT_INPUT_STREAM_INFO* pStreamInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetOutputStreamInfo(DWORD dwOutputStreamID,
                                                        MFT_OUTPUT_STREAM_INFO* pStreamInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAttributes(IMFAttributes** pAttributes) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetInputStreamAttributes(DWORD dwInputStreamID, IMFAttributes** pAttributes) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetOutputStreamAttributes(DWORD dwOutputStreamID,
                                                              IMFAttributes** pAttributes) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteInputStream(DWORD dwStreamID) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddInputStreams(DWORD cStreams, DWORD* adwStreamIDs) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetInputAvailableType(DWORD dwInputStreamID, DWORD dwTypeIndex,
                                                          IMFMediaType** ppType) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetOutputAvailableType(DWORD dwOutputStreamID, DWORD dwTypeIndex,
                                                           IMFMediaType** ppType) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetInputType(DWORD dwInputStreamID, IMFMediaType* pType, DWORD dwFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetOutputType(DWORD dwOutputStreamID, IMFMediaType* pType, DWORD dwFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetInputCurrentType(DWORD dwInputStreamID, IMFMediaType** ppType) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetOutputCurrentType(DWORD dwOutputStreamID, IMFMediaType** ppType) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetInputStatus(DWORD dwInputStreamID, DWORD* pdwFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetOutputStatus(DWORD* pdwFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetOutputBounds(LONGLONG hnsLowerBound, LONGLONG hnsUpperBound) = 0;
  virtual HRESULT STDMETHODCALLTYPE ProcessEvent(DWORD dwInputStreamID, IMFMediaEvent* pEvent) = 0;
  virtual HRESULT STDMETHODCALLTYPE ProcessMessage(MFT_MESSAGE_TYPE eMessage, ULONG_PTR ulParam) = 0;
  virtual HRESULT STDMETHODCALLTYPE ProcessInput(DWORD dwInputStreamID, IMFSample* pSample, DWORD dwFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE ProcessOutput(DWORD dwFlags, DWORD cOutputBufferCount,
                                                  MFT_OUTPUT_DATA_BUFFER* pOutputSamples, DWORD* pdwStatus) = 0;
};
__CRT_UUID_DECL(IMFTransform, 0xbf94c121, 0x5b05, 0x4e6f, 0x80, 0x00, 0xba, 0x59, 0x89, 0x61, 0x41, 0x4d)
DEFINE_GUID(IID_IMFTransform, 0xbf94c121, 0x5b05, 0x4e6f, 0x80, 0x00, 0xba, 0x59, 0x89, 0x61, 0x41, 0x4d);

// Attributes of a transform's attribute store.
DEFINE_GUID(MF_TRANSFORM_ASYNC, 0xf81a699a, 0x649a, 0x497d, 0x8c, 0x73, 0x29, 0xf8, 0xfe, 0xd6, 0xad, 0x7a);
DEFINE_GUID(MF_TRANSFORM_ASYNC_UNLOCK, 0xe5666d6b, 0x3422, 0x4eb6, 0xa4, 0x21, 0xda, 0x7d, 0xb1, 0xf8, 0xe2, 0x07);
DEFINE_GUID(MF_SA_D3D11_AWARE, 0x206b4fc8, 0xfcf9, 0x4c51, 0xaf, 0xe3, 0x97, 0x64, 0x36, 0x9e, 0x33, 0xa0);
DEFINE_GUID(MFT_FRIENDLY_NAME_Attribute, 0x314ffbae, 0x5b41, 0x4c95, 0x9c, 0x19, 0x4e, 0x7d, 0x58, 0x6f, 0xac, 0xe3);
