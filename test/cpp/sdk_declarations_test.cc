// The sdk/ declarations against the published ABI: interface ids, the vtable slot of each
// method the add-on calls, and the layout of the types passed by value. Methods are called
// the way the other side of the ABI calls them, by slot number through the table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <eventtoken.h>
#include <hstring.h>
#include <inspectable.h>
#include <objbase.h>
#include <windows.foundation.h>
#include <windows.h>

#include <cstddef>
#include <cstdio>
#include <string>

#include "windows.graphics.capture.h"
#include "windows.graphics.capture.interop.h"
#include "windows.graphics.directx.direct3d11.h"
#include "windows.graphics.directx.direct3d11.interop.h"
#include "test/support/guid_text.h"

namespace {

using namespace ABI::Windows::Graphics::Capture;
using ABI::Windows::Foundation::IClosable;
using ABI::Windows::Foundation::TimeSpan;
using ABI::Windows::Graphics::SizeInt32;
using ABI::Windows::Graphics::DirectX::DirectXPixelFormat;
using ABI::Windows::Graphics::DirectX::DirectXPixelFormat_B8G8R8A8UIntNormalized;
using ABI::Windows::Graphics::DirectX::Direct3D11::Direct3DSurfaceDescription;
using ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DDevice;
using ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DSurface;
using ::Windows::Graphics::DirectX::Direct3D11::IDirect3DDxgiInterfaceAccess;
using FrameArrivedHandler = __FITypedEventHandler_2_Windows__CGraphics__CCapture__CDirect3D11CaptureFramePool_IInspectable;
using ClosedHandler = __FITypedEventHandler_2_Windows__CGraphics__CCapture__CGraphicsCaptureItem_IInspectable;
using testing::AllOf;
using testing::Field;
using testing::Ref;
using testing::Return;
using testing::StrictMock;

// What travels by value must have the size and layout it has on 64-bit Windows.
static_assert(sizeof(SizeInt32) == 8 && offsetof(SizeInt32, Height) == 4);
static_assert(sizeof(EventRegistrationToken) == 8);
static_assert(sizeof(TimeSpan) == 8);
static_assert(sizeof(DirectXPixelFormat) == 4 && DirectXPixelFormat_B8G8R8A8UIntNormalized == 87);
static_assert(sizeof(Direct3DSurfaceDescription) == 20 && offsetof(Direct3DSurfaceDescription, Format) == 8);
static_assert(sizeof(boolean) == 1);
static_assert(sizeof(HSTRING_HEADER) == 24);


// Calls the method in `slot` as a caller that knows only the published slot numbers does: the
// function pointer from the table, the interface pointer as first argument.
template <typename... Args>
HRESULT callSlot(void* object, size_t slot, Args... args) {
  using Method = HRESULT (*)(void*, Args...);
  return reinterpret_cast<Method>((*static_cast<void***>(object))[slot])(object, args...);
}

template <class Interface>
struct UnknownMock : Interface {
  MOCK_METHOD(HRESULT, QueryInterface, (REFIID, void**), (override));
  MOCK_METHOD(ULONG, AddRef, (), (override));
  MOCK_METHOD(ULONG, Release, (), (override));
};

template <class Interface>
struct InspectableMock : UnknownMock<Interface> {
  MOCK_METHOD(HRESULT, GetIids, (ULONG*, IID**), (override));
  MOCK_METHOD(HRESULT, GetRuntimeClassName, (HSTRING*), (override));
  MOCK_METHOD(HRESULT, GetTrustLevel, (TrustLevel*), (override));
};

struct FramePoolMock : InspectableMock<IDirect3D11CaptureFramePool> {
  MOCK_METHOD(HRESULT, Recreate, (IDirect3DDevice*, DirectXPixelFormat, INT32, SizeInt32), (override));
  MOCK_METHOD(HRESULT, TryGetNextFrame, (IDirect3D11CaptureFrame**), (override));
  MOCK_METHOD(HRESULT, add_FrameArrived, (FrameArrivedHandler*, EventRegistrationToken*), (override));
  MOCK_METHOD(HRESULT, remove_FrameArrived, (EventRegistrationToken), (override));
  MOCK_METHOD(HRESULT, CreateCaptureSession, (IGraphicsCaptureItem*, IGraphicsCaptureSession**), (override));
  MOCK_METHOD(HRESULT, get_DispatcherQueue, (ABI::Windows::System::IDispatcherQueue**), (override));
};

struct FramePoolStaticsMock : InspectableMock<IDirect3D11CaptureFramePoolStatics> {
  MOCK_METHOD(HRESULT, Create,
              (IDirect3DDevice*, DirectXPixelFormat, INT32, SizeInt32, IDirect3D11CaptureFramePool**), (override));
};

struct FramePoolStatics2Mock : InspectableMock<IDirect3D11CaptureFramePoolStatics2> {
  MOCK_METHOD(HRESULT, CreateFreeThreaded,
              (IDirect3DDevice*, DirectXPixelFormat, INT32, SizeInt32, IDirect3D11CaptureFramePool**), (override));
};

struct FrameMock : InspectableMock<IDirect3D11CaptureFrame> {
  MOCK_METHOD(HRESULT, get_Surface, (IDirect3DSurface**), (override));
  MOCK_METHOD(HRESULT, get_SystemRelativeTime, (TimeSpan*), (override));
  MOCK_METHOD(HRESULT, get_ContentSize, (SizeInt32*), (override));
};

struct ItemMock : InspectableMock<IGraphicsCaptureItem> {
  MOCK_METHOD(HRESULT, get_DisplayName, (HSTRING*), (override));
  MOCK_METHOD(HRESULT, get_Size, (SizeInt32*), (override));
  MOCK_METHOD(HRESULT, add_Closed, (ClosedHandler*, EventRegistrationToken*), (override));
  MOCK_METHOD(HRESULT, remove_Closed, (EventRegistrationToken), (override));
};

struct SessionMock : InspectableMock<IGraphicsCaptureSession> {
  MOCK_METHOD(HRESULT, StartCapture, (), (override));
};

struct Session2Mock : InspectableMock<IGraphicsCaptureSession2> {
  MOCK_METHOD(HRESULT, get_IsCursorCaptureEnabled, (boolean*), (override));
  MOCK_METHOD(HRESULT, put_IsCursorCaptureEnabled, (boolean), (override));
};

struct ClosableMock : InspectableMock<IClosable> {
  MOCK_METHOD(HRESULT, Close, (), (override));
};

struct SurfaceMock : InspectableMock<IDirect3DSurface> {
  MOCK_METHOD(HRESULT, get_Description, (Direct3DSurfaceDescription*), (override));
};

struct FrameArrivedHandlerMock : UnknownMock<FrameArrivedHandler> {
  MOCK_METHOD(HRESULT, Invoke, (IDirect3D11CaptureFramePool*, IInspectable*), (override));
};

struct ItemInteropMock : UnknownMock<IGraphicsCaptureItemInterop> {
  MOCK_METHOD(HRESULT, CreateForWindow, (HWND, REFIID, void**), (override));
  MOCK_METHOD(HRESULT, CreateForMonitor, (HMONITOR, REFIID, void**), (override));
};

struct DxgiInterfaceAccessMock : UnknownMock<IDirect3DDxgiInterfaceAccess> {
  MOCK_METHOD(HRESULT, GetInterface, (REFIID, void**), (override));
};

// Slot numbers as published: IUnknown takes 0-2, IInspectable 3-5.
constexpr size_t kFirstUnknownSlot = 3;
constexpr size_t kFirstInspectableSlot = 6;

TEST(SdkDeclarations, InterfaceIdsAreThePublishedOnes) {
  EXPECT_EQ(guidText(__uuidof(IInspectable)), "af86e2e0-b12d-4c6a-9c5a-d7aa65101e90");
  EXPECT_EQ(guidText(__uuidof(IAgileObject)), "94ea2b94-e9cc-49e0-c0ff-ee64ca8f5b90");
  EXPECT_EQ(guidText(__uuidof(IClosable)), "30d5a829-7fa4-4026-83bb-d75bae4ea99e");
  EXPECT_EQ(guidText(__uuidof(IGraphicsCaptureItemInterop)), "3628e81b-3cac-4c60-b7f4-23ce0e0c3356");
  EXPECT_EQ(guidText(__uuidof(IGraphicsCaptureItem)), "79c3f95b-31f7-4ec2-a464-632ef5d30760");
  EXPECT_EQ(guidText(__uuidof(IGraphicsCaptureSession)), "814e42a9-f70f-4ad7-939b-fddcc6eb880d");
  EXPECT_EQ(guidText(__uuidof(IGraphicsCaptureSession2)), "2c39ae40-7d2e-5044-804e-8b6799d4cf9e");
  EXPECT_EQ(guidText(__uuidof(IDirect3D11CaptureFramePool)), "24eb6d22-1975-422e-82e7-780dbd8ddf24");
  EXPECT_EQ(guidText(__uuidof(IDirect3D11CaptureFramePoolStatics)), "7784056a-67aa-4d53-ae54-1088d5a8ca21");
  EXPECT_EQ(guidText(__uuidof(IDirect3D11CaptureFramePoolStatics2)), "589b103f-6bbc-5df5-a991-02e28b3b66d5");
  EXPECT_EQ(guidText(__uuidof(IDirect3D11CaptureFrame)), "fa50c623-38da-4b32-acf3-fa9734ad800e");
  EXPECT_EQ(guidText(__uuidof(FrameArrivedHandler)), "51a947f7-79cf-5a3e-a3a5-1289cfa6dfe8");
  EXPECT_EQ(guidText(__uuidof(ClosedHandler)), "e9c610c0-a68c-5bd9-8021-8589346eeee2");
  EXPECT_EQ(guidText(__uuidof(IDirect3DDevice)), "a37624ab-8d5f-4650-9d3e-9eae3d9bc670");
  EXPECT_EQ(guidText(__uuidof(IDirect3DSurface)), "0bf4a146-13c1-4694-bee3-7abf15eaf586");
  EXPECT_EQ(guidText(__uuidof(IDirect3DDxgiInterfaceAccess)), "a9b3d012-3df2-4ee3-b8d1-8695f457d3c1");
}

TEST(SdkDeclarations, FramePoolMethodsSitInThePublishedSlots) {
  StrictMock<FramePoolMock> pool;
  IDirect3D11CaptureFramePool* abi = &pool;
  IDirect3D11CaptureFrame* frame = nullptr;
  auto* handler = reinterpret_cast<FrameArrivedHandler*>(0x10);
  auto* item = reinterpret_cast<IGraphicsCaptureItem*>(0x20);
  IGraphicsCaptureSession* session = nullptr;
  EventRegistrationToken token{};

  EXPECT_CALL(pool, TryGetNextFrame(&frame)).WillOnce(Return(S_FALSE));
  EXPECT_EQ(callSlot(abi, kFirstInspectableSlot + 1, &frame), S_FALSE);
  EXPECT_CALL(pool, add_FrameArrived(handler, &token)).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(abi, kFirstInspectableSlot + 2, handler, &token), S_OK);
  EXPECT_CALL(pool, remove_FrameArrived(Field(&EventRegistrationToken::value, 42))).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(abi, kFirstInspectableSlot + 3, EventRegistrationToken{42}), S_OK);
  EXPECT_CALL(pool, CreateCaptureSession(item, &session)).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(abi, kFirstInspectableSlot + 4, item, &session), S_OK);
}

TEST(SdkDeclarations, PoolFactoriesTakeDeviceFormatBufferCountAndSizeInThatOrder) {
  auto* device = reinterpret_cast<IDirect3DDevice*>(0x30);
  IDirect3D11CaptureFramePool* created = nullptr;
  const auto size = AllOf(Field(&SizeInt32::Width, 1280), Field(&SizeInt32::Height, 720));

  StrictMock<FramePoolStaticsMock> statics;
  EXPECT_CALL(statics, Create(device, DirectXPixelFormat_B8G8R8A8UIntNormalized, 3, size, &created))
      .WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(static_cast<IDirect3D11CaptureFramePoolStatics*>(&statics), kFirstInspectableSlot, device,
                     DirectXPixelFormat_B8G8R8A8UIntNormalized, INT32{3}, SizeInt32{1280, 720}, &created),
            S_OK);

  StrictMock<FramePoolStatics2Mock> statics2;
  EXPECT_CALL(statics2, CreateFreeThreaded(device, DirectXPixelFormat_B8G8R8A8UIntNormalized, 3, size, &created))
      .WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(static_cast<IDirect3D11CaptureFramePoolStatics2*>(&statics2), kFirstInspectableSlot, device,
                     DirectXPixelFormat_B8G8R8A8UIntNormalized, INT32{3}, SizeInt32{1280, 720}, &created),
            S_OK);
}

TEST(SdkDeclarations, ItemFrameSessionAndSurfaceMembersSitInThePublishedSlots) {
  SizeInt32 size{};
  StrictMock<ItemMock> item;
  EXPECT_CALL(item, get_Size(&size)).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(static_cast<IGraphicsCaptureItem*>(&item), kFirstInspectableSlot + 1, &size), S_OK);

  IDirect3DSurface* surface = nullptr;
  TimeSpan time{};
  StrictMock<FrameMock> frame;
  EXPECT_CALL(frame, get_Surface(&surface)).WillOnce(Return(S_OK));
  EXPECT_CALL(frame, get_SystemRelativeTime(&time)).WillOnce(Return(S_OK));
  EXPECT_CALL(frame, get_ContentSize(&size)).WillOnce(Return(S_OK));
  IDirect3D11CaptureFrame* frameAbi = &frame;
  EXPECT_EQ(callSlot(frameAbi, kFirstInspectableSlot, &surface), S_OK);
  EXPECT_EQ(callSlot(frameAbi, kFirstInspectableSlot + 1, &time), S_OK);
  EXPECT_EQ(callSlot(frameAbi, kFirstInspectableSlot + 2, &size), S_OK);

  StrictMock<SessionMock> session;
  EXPECT_CALL(session, StartCapture()).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(static_cast<IGraphicsCaptureSession*>(&session), kFirstInspectableSlot), S_OK);

  StrictMock<Session2Mock> session2;
  EXPECT_CALL(session2, put_IsCursorCaptureEnabled(boolean(0))).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(static_cast<IGraphicsCaptureSession2*>(&session2), kFirstInspectableSlot + 1, boolean(0)), S_OK);

  StrictMock<ClosableMock> closable;
  EXPECT_CALL(closable, Close()).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(static_cast<IClosable*>(&closable), kFirstInspectableSlot), S_OK);

  Direct3DSurfaceDescription description{};
  StrictMock<SurfaceMock> surfaceObject;
  EXPECT_CALL(surfaceObject, get_Description(&description)).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(static_cast<IDirect3DSurface*>(&surfaceObject), kFirstInspectableSlot, &description), S_OK);
}

TEST(SdkDeclarations, DelegateAndInteropMethodsFollowIUnknownDirectly) {
  auto* pool = reinterpret_cast<IDirect3D11CaptureFramePool*>(0x40);
  StrictMock<FrameArrivedHandlerMock> handler;
  EXPECT_CALL(handler, Invoke(pool, nullptr)).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(static_cast<FrameArrivedHandler*>(&handler), kFirstUnknownSlot, pool,
                     static_cast<IInspectable*>(nullptr)),
            S_OK);

  auto window = reinterpret_cast<HWND>(0x50);
  auto monitor = reinterpret_cast<HMONITOR>(0x60);
  void* result = nullptr;
  StrictMock<ItemInteropMock> interop;
  const IID* itemId = &__uuidof(IGraphicsCaptureItem);
  EXPECT_CALL(interop, CreateForWindow(window, Ref(*itemId), &result)).WillOnce(Return(S_OK));
  EXPECT_CALL(interop, CreateForMonitor(monitor, Ref(*itemId), &result)).WillOnce(Return(E_INVALIDARG));
  IGraphicsCaptureItemInterop* interopAbi = &interop;
  EXPECT_EQ(callSlot(interopAbi, kFirstUnknownSlot, window, itemId, &result), S_OK);
  EXPECT_EQ(callSlot(interopAbi, kFirstUnknownSlot + 1, monitor, itemId, &result), E_INVALIDARG);

  StrictMock<DxgiInterfaceAccessMock> access;
  EXPECT_CALL(access, GetInterface(Ref(*itemId), &result)).WillOnce(Return(S_OK));
  EXPECT_EQ(callSlot(static_cast<IDirect3DDxgiInterfaceAccess*>(&access), kFirstUnknownSlot, itemId, &result), S_OK);
}

}  // namespace
