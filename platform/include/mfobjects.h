// Media Foundation's basic objects: attribute stores, media types, media buffers and samples.
#pragma once

#include "guiddef.h"
#include "propidl.h"
#include "unknwn.h"
#include "windef.h"

typedef enum _MF_ATTRIBUTE_TYPE {
  MF_ATTRIBUTE_UINT32 = VT_UI4,
  MF_ATTRIBUTE_UINT64 = VT_UI8,
  MF_ATTRIBUTE_DOUBLE = VT_R8,
  MF_ATTRIBUTE_GUID = VT_CLSID,
  MF_ATTRIBUTE_STRING = VT_LPWSTR,
  MF_ATTRIBUTE_BLOB = VT_VECTOR | VT_UI1,
  MF_ATTRIBUTE_IUNKNOWN = VT_UNKNOWN
} MF_ATTRIBUTE_TYPE;

typedef enum _MF_ATTRIBUTES_MATCH_TYPE {
  MF_ATTRIBUTES_MATCH_OUR_ITEMS = 0,
  MF_ATTRIBUTES_MATCH_THEIR_ITEMS = 1,
  MF_ATTRIBUTES_MATCH_ALL_ITEMS = 2,
  MF_ATTRIBUTES_MATCH_INTERSECTION = 3,
  MF_ATTRIBUTES_MATCH_SMALLER = 4
} MF_ATTRIBUTES_MATCH_TYPE;

MIDL_INTERFACE("2cd2d921-c447-44a7-a13c-4adabfc247e3")
IMFAttributes : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetItem(REFGUID guidKey, PROPVARIANT* pValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetItemType(REFGUID guidKey, MF_ATTRIBUTE_TYPE* pType) = 0;
  virtual HRESULT STDMETHODCALLTYPE CompareItem(REFGUID guidKey, REFPROPVARIANT Value, BOOL* pbResult) = 0;
  virtual HRESULT STDMETHODCALLTYPE Compare(IMFAttributes* pTheirs, MF_ATTRIBUTES_MATCH_TYPE MatchType,
                                            BOOL* pbResult) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetUINT32(REFGUID guidKey, UINT32* punValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetUINT64(REFGUID guidKey, UINT64* punValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDouble(REFGUID guidKey, double* pfValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetGUID(REFGUID guidKey, GUID* pguidValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetStringLength(REFGUID guidKey, UINT32* pcchLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetString(REFGUID guidKey, LPWSTR pwszValue, UINT32 cchBufSize,
                                              UINT32* pcchLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAllocatedString(REFGUID guidKey, LPWSTR* ppwszValue, UINT32* pcchLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBlobSize(REFGUID guidKey, UINT32* pcbBlobSize) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBlob(REFGUID guidKey, UINT8* pBuf, UINT32 cbBufSize, UINT32* pcbBlobSize) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAllocatedBlob(REFGUID guidKey, UINT8** ppBuf, UINT32* pcbSize) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetUnknown(REFGUID guidKey, REFIID riid, LPVOID* ppv) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetItem(REFGUID guidKey, REFPROPVARIANT Value) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteItem(REFGUID guidKey) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteAllItems() = 0;
  virtual HRESULT STDMETHODCALLTYPE SetUINT32(REFGUID guidKey, UINT32 unValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetUINT64(REFGUID guidKey, UINT64 unValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetDouble(REFGUID guidKey, double fValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetGUID(REFGUID guidKey, REFGUID guidValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetString(REFGUID guidKey, LPCWSTR wszValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBlob(REFGUID guidKey, const UINT8* pBuf, UINT32 cbBufSize) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetUnknown(REFGUID guidKey, IUnknown* pUnknown) = 0;
  virtual HRESULT STDMETHODCALLTYPE LockStore() = 0;
  virtual HRESULT STDMETHODCALLTYPE UnlockStore() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCount(UINT32* pcItems) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetItemByIndex(UINT32 unIndex, GUID* pguidKey, PROPVARIANT* pValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE CopyAllItems(IMFAttributes* pDest) = 0;
};
__CRT_UUID_DECL(IMFAttributes, 0x2cd2d921, 0xc447, 0x44a7, 0xa1, 0x3c, 0x4a, 0xda, 0xbf, 0xc2, 0x47, 0xe3)
DEFINE_GUID(IID_IMFAttributes, 0x2cd2d921, 0xc447, 0x44a7, 0xa1, 0x3c, 0x4a, 0xda, 0xbf, 0xc2, 0x47, 0xe3);

MIDL_INTERFACE("045fa593-8799-42b8-bc8d-8968c6453507")
IMFMediaBuffer : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Lock(BYTE** ppbBuffer, DWORD* pcbMaxLength, DWORD* pcbCurrentLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE Unlock() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCurrentLength(DWORD* pcbCurrentLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetCurrentLength(DWORD cbCurrentLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetMaxLength(DWORD* pcbMaxLength) = 0;
};
__CRT_UUID_DECL(IMFMediaBuffer, 0x045fa593, 0x8799, 0x42b8, 0xbc, 0x8d, 0x89, 0x68, 0xc6, 0x45, 0x35, 0x07)
DEFINE_GUID(IID_IMFMediaBuffer, 0x045fa593, 0x8799, 0x42b8, 0xbc, 0x8d, 0x89, 0x68, 0xc6, 0x45, 0x35, 0x07);

MIDL_INTERFACE("c40a00f2-b93a-4d80-ae8c-5a1c634f58e4")
IMFSample : public IMFAttributes {
  virtual HRESULT STDMETHODCALLTYPE GetSampleFlags(DWORD* pdwSampleFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSampleFlags(DWORD dwSampleFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSampleTime(LONGLONG* phnsSampleTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSampleTime(LONGLONG hnsSampleTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSampleDuration(LONGLONG* phnsSampleDuration) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSampleDuration(LONGLONG hnsSampleDuration) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBufferCount(DWORD* pdwBufferCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBufferByIndex(DWORD dwIndex, IMFMediaBuffer** ppBuffer) = 0;
  virtual HRESULT STDMETHODCALLTYPE ConvertToContiguousBuffer(IMFMediaBuffer** ppBuffer) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddBuffer(IMFMediaBuffer* pBuffer) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveBufferByIndex(DWORD dwIndex) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveAllBuffers() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTotalLength(DWORD* pcbTotalLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE CopyToBuffer(IMFMediaBuffer* pBuffer) = 0;
};
__CRT_UUID_DECL(IMFSample, 0xc40a00f2, 0xb93a, 0x4d80, 0xae, 0x8c, 0x5a, 0x1c, 0x63, 0x4f, 0x58, 0xe4)
DEFINE_GUID(IID_IMFSample, 0xc40a00f2, 0xb93a, 0x4d80, 0xae, 0x8c, 0x5a, 0x1c, 0x63, 0x4f, 0x58, 0xe4);

// Declared for its interface id: the platform's surface buffers don't offer it.
MIDL_INTERFACE("7dc9d5f9-9ed9-44ec-9bbf-0600bb589fbb")
IMF2DBuffer : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Lock2D(BYTE** ppbScanline0, LONG* plPitch) = 0;
  virtual HRESULT STDMETHODCALLTYPE Unlock2D() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetScanline0AndPitch(BYTE** pbScanline0, LONG* plPitch) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsContiguousFormat(BOOL* pfIsContiguous) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetContiguousLength(DWORD* pcbLength) = 0;
  virtual HRESULT STDMETHODCALLTYPE ContiguousCopyTo(BYTE* pbDestBuffer, DWORD cbDestBuffer) = 0;
  virtual HRESULT STDMETHODCALLTYPE ContiguousCopyFrom(const BYTE* pbSrcBuffer, DWORD cbSrcBuffer) = 0;
};
__CRT_UUID_DECL(IMF2DBuffer, 0x7dc9d5f9, 0x9ed9, 0x44ec, 0x9b, 0xbf, 0x06, 0x00, 0xbb, 0x58, 0x9f, 0xbb)
DEFINE_GUID(IID_IMF2DBuffer, 0x7dc9d5f9, 0x9ed9, 0x44ec, 0x9b, 0xbf, 0x06, 0x00, 0xbb, 0x58, 0x9f, 0xbb);

MIDL_INTERFACE("e7174cfa-1c9e-48b1-8866-626226bfc258")
IMFDXGIBuffer : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetResource(REFIID riid, LPVOID* ppvObject) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSubresourceIndex(UINT* puSubresource) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetUnknown(REFIID guid, REFIID riid, LPVOID* ppvObject) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetUnknown(REFIID guid, IUnknown* pUnkData) = 0;
};
__CRT_UUID_DECL(IMFDXGIBuffer, 0xe7174cfa, 0x1c9e, 0x48b1, 0x88, 0x66, 0x62, 0x62, 0x26, 0xbf, 0xc2, 0x58)
DEFINE_GUID(IID_IMFDXGIBuffer, 0xe7174cfa, 0x1c9e, 0x48b1, 0x88, 0x66, 0x62, 0x62, 0x26, 0xbf, 0xc2, 0x58);

MIDL_INTERFACE("44ae0fa8-ea31-4109-8d2e-4cae4997c555")
IMFMediaType : public IMFAttributes {
  virtual HRESULT STDMETHODCALLTYPE GetMajorType(GUID* pguidMajorType) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* pfCompressed) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsEqual(IMFMediaType* pIMediaType, DWORD* pdwFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRepresentation(GUID guidRepresentation, LPVOID* ppvRepresentation) = 0;
  virtual HRESULT STDMETHODCALLTYPE FreeRepresentation(GUID guidRepresentation, LPVOID pvRepresentation) = 0;
};
__CRT_UUID_DECL(IMFMediaType, 0x44ae0fa8, 0xea31, 0x4109, 0x8d, 0x2e, 0x4c, 0xae, 0x49, 0x97, 0xc5, 0x55)
DEFINE_GUID(IID_IMFMediaType, 0x44ae0fa8, 0xea31, 0x4109, 0x8d, 0x2e, 0x4c, 0xae, 0x49, 0x97, 0xc5, 0x55);

#define MF_MEDIATYPE_EQUAL_MAJOR_TYPES 0x00000001
#define MF_MEDIATYPE_EQUAL_FORMAT_TYPES 0x00000002
#define MF_MEDIATYPE_EQUAL_FORMAT_DATA 0x00000004
#define MF_MEDIATYPE_EQUAL_FORMAT_USER_DATA 0x00000008

typedef enum _MFVideoInterlaceMode {
  MFVideoInterlace_Unknown = 0,
  MFVideoInterlace_Progressive = 2,
  MFVideoInterlace_FieldInterleavedUpperFirst = 3,
  MFVideoInterlace_FieldInterleavedLowerFirst = 4,
  MFVideoInterlace_FieldSingleUpper = 5,
  MFVideoInterlace_FieldSingleLower = 6,
  MFVideoInterlace_MixedInterlaceOrProgressive = 7
} MFVideoInterlaceMode;

// Events: what an asynchronous transform tells its client through its event generator.
typedef DWORD MediaEventType;
enum {
  MEUnknown = 0,
  MEError = 1,
  METransformUnknown = 600,
  METransformNeedInput = 601,
  METransformHaveOutput = 602,
  METransformDrainComplete = 603,
  METransformMarker = 604
};

#define MF_EVENT_FLAG_NO_WAIT 0x00000001

// Declared for the signatures that name them; the platform's generators don't serve callbacks.
struct IMFAsyncResult;
struct IMFAsyncCallback;

MIDL_INTERFACE("5bc8a76b-869a-46a3-9b03-fa218a66aebe")
IMFCollection : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetElementCount(DWORD* pcElements) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetElement(DWORD dwElementIndex, IUnknown** ppUnkElement) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddElement(IUnknown* pUnkElement) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveElement(DWORD dwElementIndex, IUnknown** ppUnkElement) = 0;
  virtual HRESULT STDMETHODCALLTYPE InsertElementAt(DWORD dwIndex, IUnknown* pUnknown) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveAllElements() = 0;
};
__CRT_UUID_DECL(IMFCollection, 0x5bc8a76b, 0x869a, 0x46a3, 0x9b, 0x03, 0xfa, 0x21, 0x8a, 0x66, 0xae, 0xbe)
DEFINE_GUID(IID_IMFCollection, 0x5bc8a76b, 0x869a, 0x46a3, 0x9b, 0x03, 0xfa, 0x21, 0x8a, 0x66, 0xae, 0xbe);

MIDL_INTERFACE("df598932-f10c-4e39-bba2-c308f101daa3")
IMFMediaEvent : public IMFAttributes {
  virtual HRESULT STDMETHODCALLTYPE GetType(MediaEventType* pmet) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetExtendedType(GUID* pguidExtendedType) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetStatus(HRESULT* phrStatus) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetValue(PROPVARIANT* pvValue) = 0;
};
__CRT_UUID_DECL(IMFMediaEvent, 0xdf598932, 0xf10c, 0x4e39, 0xbb, 0xa2, 0xc3, 0x08, 0xf1, 0x01, 0xda, 0xa3)
DEFINE_GUID(IID_IMFMediaEvent, 0xdf598932, 0xf10c, 0x4e39, 0xbb, 0xa2, 0xc3, 0x08, 0xf1, 0x01, 0xda, 0xa3);

MIDL_INTERFACE("2cd0bd52-bcd5-4b89-b62c-eadc0c031e7d")
IMFMediaEventGenerator : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetEvent(DWORD dwFlags, IMFMediaEvent** ppEvent) = 0;
  virtual HRESULT STDMETHODCALLTYPE BeginGetEvent(IMFAsyncCallback* pCallback, IUnknown* punkState) = 0;
  virtual HRESULT STDMETHODCALLTYPE EndGetEvent(IMFAsyncResult* pResult, IMFMediaEvent** ppEvent) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueueEvent(MediaEventType met, REFGUID guidExtendedType, HRESULT hrStatus,
                                               const PROPVARIANT* pvValue) = 0;
};
__CRT_UUID_DECL(IMFMediaEventGenerator, 0x2cd0bd52, 0xbcd5, 0x4b89, 0xb6, 0x2c, 0xea, 0xdc, 0x0c, 0x03, 0x1e, 0x7d)
DEFINE_GUID(IID_IMFMediaEventGenerator, 0x2cd0bd52, 0xbcd5, 0x4b89, 0xb6, 0x2c, 0xea, 0xdc, 0x0c, 0x03, 0x1e, 0x7d);

MIDL_INTERFACE("7fee9e9a-4a89-47a6-899c-b6a53a70fb67")
IMFActivate : public IMFAttributes {
  virtual HRESULT STDMETHODCALLTYPE ActivateObject(REFIID riid, void** ppv) = 0;
  virtual HRESULT STDMETHODCALLTYPE ShutdownObject() = 0;
  virtual HRESULT STDMETHODCALLTYPE DetachObject() = 0;
};
__CRT_UUID_DECL(IMFActivate, 0x7fee9e9a, 0x4a89, 0x47a6, 0x89, 0x9c, 0xb6, 0xa5, 0x3a, 0x70, 0xfb, 0x67)
DEFINE_GUID(IID_IMFActivate, 0x7fee9e9a, 0x4a89, 0x47a6, 0x89, 0x9c, 0xb6, 0xa5, 0x3a, 0x70, 0xfb, 0x67);

MIDL_INTERFACE("eb533d5d-2db6-40f8-97a9-494692014f07")
IMFDXGIDeviceManager : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CloseDeviceHandle(HANDLE hDevice) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVideoService(HANDLE hDevice, REFIID riid, void** ppService) = 0;
  virtual HRESULT STDMETHODCALLTYPE LockDevice(HANDLE hDevice, REFIID riid, void** ppUnkDevice, BOOL fBlock) = 0;
  virtual HRESULT STDMETHODCALLTYPE OpenDeviceHandle(HANDLE* phDevice) = 0;
  virtual HRESULT STDMETHODCALLTYPE ResetDevice(IUnknown* pUnkDevice, UINT resetToken) = 0;
  virtual HRESULT STDMETHODCALLTYPE TestDevice(HANDLE hDevice) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnlockDevice(HANDLE hDevice, BOOL fSaveState) = 0;
};
__CRT_UUID_DECL(IMFDXGIDeviceManager, 0xeb533d5d, 0x2db6, 0x40f8, 0x97, 0xa9, 0x49, 0x46, 0x92, 0x01, 0x4f, 0x07)
DEFINE_GUID(IID_IMFDXGIDeviceManager, 0xeb533d5d, 0x2db6, 0x40f8, 0x97, 0xa9, 0x49, 0x46, 0x92, 0x01, 0x4f, 0x07);

typedef struct _MFT_REGISTER_TYPE_INFO {
  GUID guidMajorType;
  GUID guidSubtype;
} MFT_REGISTER_TYPE_INFO;
