#include <gtest/gtest.h>
#include <objbase.h>
#include <roapi.h>
#include <winstring.h>

#include <atomic>
#include <cwchar>
#include <thread>

#include "platform/com/activation.h"
#include "platform/control/com_control.h"
#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"

namespace control = platform::control;

// An interface of the test's own classes, so that answers for it come from them alone.
MIDL_INTERFACE("6f4b2a31-8c1e-4d8a-9a55-2e0c3b7d9f10")
ITestAnswer : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE Answer(INT32 * value) = 0;
};
__CRT_UUID_DECL(ITestAnswer, 0x6f4b2a31, 0x8c1e, 0x4d8a, 0x9a, 0x55, 0x2e, 0x0c, 0x3b, 0x7d, 0x9f, 0x10)

namespace {

constexpr CLSID kAnswererClass = {0x1b2c3d4e, 0x5f60, 0x4a7b, {0x8c, 0x9d, 0xae, 0xbf, 0xc0, 0xd1, 0xe2, 0xf3}};
const wchar_t kAnswererClassId[] = L"Kestrane.Test.Answerer";

// A small WinRT object: an activation factory or a created instance, counted while it lives.
class Answerer final : public ITestAnswer {
 public:
  static std::atomic<int> live;

  Answerer() { ++live; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
    if (ppvObject == nullptr) return E_POINTER;
    *ppvObject = nullptr;
    if (riid != IID_IUnknown && riid != IID_IInspectable && riid != __uuidof(ITestAnswer)) return E_NOINTERFACE;
    AddRef();
    *ppvObject = static_cast<ITestAnswer*>(this);
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --references;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE GetIids(ULONG*, IID**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* trustLevel) override {
    *trustLevel = BaseTrust;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Answer(INT32* value) override {
    *value = 42;
    return S_OK;
  }

 private:
  ~Answerer() { --live; }
  std::atomic<ULONG> references{1};
};
std::atomic<int> Answerer::live{0};

// An agile object that aggregates the free-threaded marshaler on its first IMarshal query, the
// way an event handler handed to another thread does.
class AgileHandler final : public IAgileObject {
 public:
  explicit AgileHandler(bool* destroyed) : destroyed(destroyed) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
    if (ppvObject == nullptr) return E_POINTER;
    *ppvObject = nullptr;
    if (riid == IID_IUnknown || riid == IID_IAgileObject) {
      AddRef();
      *ppvObject = static_cast<IAgileObject*>(this);
      return S_OK;
    }
    if (riid != IID_IMarshal) return E_NOINTERFACE;
    if (marshaler == nullptr) {
      if (HRESULT hr = CoCreateFreeThreadedMarshaler(this, &marshaler); FAILED(hr)) return hr;
    }
    return marshaler->QueryInterface(riid, ppvObject);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --references;
    if (left == 0) delete this;
    return left;
  }

 private:
  ~AgileHandler() {
    if (marshaler != nullptr) marshaler->Release();
    *destroyed = true;
  }
  std::atomic<ULONG> references{1};
  IUnknown* marshaler = nullptr;
  bool* destroyed;
};

class ComCoreTest : public testing::Test {
 protected:
  // Counts are compared with where the test began, so that one test's leak fails that test alone.
  void SetUp() override {
    control::reset();
    ASSERT_EQ(control::threadApartmentCount(), 0);
    processApartmentsBefore = control::processApartmentCount();
    stringsBefore = control::liveStringCount();
    marshalersBefore = control::liveObjectCount("IMarshal");
    Answerer::live = 0;
  }
  void TearDown() override {
    EXPECT_EQ(control::threadApartmentCount(), 0) << "every test leaves its apartments";
    EXPECT_EQ(openedApartments(), 0);
    EXPECT_EQ(control::liveStringCount(), stringsBefore);
    EXPECT_EQ(Answerer::live.load(), 0);
    EXPECT_EQ(control::liveObjectCount("IMarshal"), marshalersBefore);
    while (control::threadApartmentCount() > 0) CoUninitialize();
    platform::unregisterActivationFactory(kAnswererClassId);
    platform::unregisterComClass(kAnswererClass);
    control::reset();
  }

  int openedApartments() const { return control::processApartmentCount() - processApartmentsBefore; }
  int64_t liveStrings() const { return control::liveStringCount() - stringsBefore; }
  int64_t liveMarshalers() const { return control::liveObjectCount("IMarshal") - marshalersBefore; }

  // Registers Answerer as a runtime class and a COM class; `makes` counts the factory's makes.
  void registerAnswerer() {
    platform::registerActivationFactory(kAnswererClassId, [this](IInspectable** factory) {
      ++makes;
      *factory = new Answerer();
      return S_OK;
    });
    platform::registerComClass(kAnswererClass, [](REFIID riid, void** ppv) {
      Answerer* made = new Answerer();
      HRESULT hr = made->QueryInterface(riid, ppv);
      made->Release();
      return hr;
    });
  }

  int processApartmentsBefore = 0;
  int64_t stringsBefore = 0;
  int64_t marshalersBefore = 0;
  std::atomic<int> makes{0};
};

// --- apartments ---

TEST_F(ComCoreTest, ASecondInitializationOfTheSameModelAnswersSFalseAndIsCountedLikeTheFirst) {
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED | COINIT_DISABLE_OLE1DDE), S_FALSE);
  EXPECT_EQ(RoInitialize(RO_INIT_MULTITHREADED), S_FALSE) << "RO_INIT_MULTITHREADED is the same apartment";
  EXPECT_EQ(control::threadApartmentCount(), 3);
  EXPECT_EQ(openedApartments(), 3);

  CoUninitialize();
  RoUninitialize();
  EXPECT_EQ(control::threadApartmentCount(), 1) << "S_FALSE needs its own uninitialize";
  CoUninitialize();
  EXPECT_EQ(control::threadApartmentCount(), 0);
  EXPECT_EQ(openedApartments(), 0);

  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK) << "a thread that left may choose again";
  CoUninitialize();
}

TEST_F(ComCoreTest, TheOtherModelIsRefusedAndNeedsNoUninitialize) {
  EXPECT_EQ(RoInitialize(RO_INIT_SINGLETHREADED), S_OK);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
  EXPECT_EQ(RoInitialize(RO_INIT_MULTITHREADED), RPC_E_CHANGED_MODE);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
  EXPECT_EQ(control::threadApartmentCount(), 2);
  EXPECT_EQ(openedApartments(), 2);

  CoUninitialize();
  CoUninitialize();
  CoUninitialize();  // unmatched: ignored, as on Windows
  EXPECT_EQ(control::threadApartmentCount(), 0);
  EXPECT_EQ(openedApartments(), 0);
}

TEST_F(ComCoreTest, BadArgumentsEnterNoApartment) {
  int reserved = 0;
  EXPECT_EQ(CoInitializeEx(&reserved, COINIT_MULTITHREADED), E_INVALIDARG);
  EXPECT_EQ(RoInitialize(RO_INIT_TYPE(7)), E_INVALIDARG);
  EXPECT_EQ(control::threadApartmentCount(), 0);
  EXPECT_EQ(openedApartments(), 0);
}

TEST_F(ComCoreTest, EachThreadHasItsOwnApartmentAndTheProcessCountsThemAll) {
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  HRESULT otherFirst = E_FAIL, otherSecond = E_FAIL;
  int otherCount = -1, processWhileOpen = -1;
  std::thread other([&] {
    otherFirst = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);  // another thread's MTA doesn't matter
    otherSecond = RoInitialize(RO_INIT_SINGLETHREADED);
    otherCount = control::threadApartmentCount();
    processWhileOpen = openedApartments();
    RoUninitialize();
    CoUninitialize();
  });
  other.join();
  EXPECT_EQ(otherFirst, S_OK);
  EXPECT_EQ(otherSecond, S_FALSE);
  EXPECT_EQ(otherCount, 2);
  EXPECT_EQ(processWhileOpen, 3);
  EXPECT_EQ(control::threadApartmentCount(), 1);
  EXPECT_EQ(openedApartments(), 1);
  CoUninitialize();
  EXPECT_EQ(openedApartments(), 0);

  std::thread leaver([] { CoInitializeEx(nullptr, COINIT_MULTITHREADED); });
  leaver.join();
  EXPECT_EQ(openedApartments(), 1) << "a thread that ends inside its apartment leaks it";
  processApartmentsBefore += 1;
}

// --- strings ---

TEST_F(ComCoreTest, ACreatedStringOwnsACopyOfItsTextAndCountsUntilDeleted) {
  wchar_t source[] = L"Windows.Graphics";
  HSTRING string = nullptr;
  ASSERT_EQ(WindowsCreateString(source, 7, &string), S_OK) << "the source needn't end at length";
  EXPECT_EQ(liveStrings(), 1);
  source[0] = L'X';

  UINT32 length = 0;
  PCWSTR text = WindowsGetStringRawBuffer(string, &length);
  EXPECT_EQ(length, 7u);
  EXPECT_EQ(std::wstring(text), L"Windows") << "a copy, ended by a null character";
  EXPECT_EQ(std::wstring(WindowsGetStringRawBuffer(string, nullptr)), L"Windows");

  EXPECT_EQ(WindowsDeleteString(string), S_OK);
  EXPECT_EQ(liveStrings(), 0);
}

TEST_F(ComCoreTest, TheEmptyStringIsTheNullHandle) {
  HSTRING string = reinterpret_cast<HSTRING>(0x1);
  EXPECT_EQ(WindowsCreateString(nullptr, 0, &string), S_OK);
  EXPECT_EQ(string, nullptr);
  string = reinterpret_cast<HSTRING>(0x1);
  EXPECT_EQ(WindowsCreateString(L"unused", 0, &string), S_OK);
  EXPECT_EQ(string, nullptr);
  HSTRING_HEADER header;
  EXPECT_EQ(WindowsCreateStringReference(nullptr, 0, &header, &string), S_OK);
  EXPECT_EQ(string, nullptr);

  UINT32 length = 99;
  PCWSTR text = WindowsGetStringRawBuffer(nullptr, &length);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(text[0], L'\0');
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(WindowsDeleteString(nullptr), S_OK);
  EXPECT_EQ(liveStrings(), 0);
}

TEST_F(ComCoreTest, AReferenceUsesTheCallersTextAndHeaderAndItsDeleteDoesNothing) {
  static const wchar_t source[] = L"Windows.Foundation";
  HSTRING_HEADER header;
  HSTRING string = nullptr;
  ASSERT_EQ(WindowsCreateStringReference(source, 18, &header, &string), S_OK);
  EXPECT_EQ(liveStrings(), 0) << "a reference allocates nothing";
  UINT32 length = 0;
  EXPECT_EQ(WindowsGetStringRawBuffer(string, &length), source);
  EXPECT_EQ(length, 18u);

  EXPECT_EQ(WindowsDeleteString(string), S_OK);
  EXPECT_EQ(WindowsDeleteString(string), S_OK);
  EXPECT_EQ(WindowsGetStringRawBuffer(string, &length), source) << "the caller's storage still holds it";
  EXPECT_EQ(liveStrings(), 0);
}

TEST_F(ComCoreTest, StringArgumentsAreCheckedAsWindowsChecksThem) {
  HSTRING_HEADER header;
  HSTRING string = reinterpret_cast<HSTRING>(0x1);
  static const wchar_t source[] = L"Windows.Foundation";
  EXPECT_EQ(WindowsCreateStringReference(source, 7, &header, &string), E_INVALIDARG)
      << "a reference's text must end at its length";
  EXPECT_EQ(string, nullptr) << "a failed call leaves a null string";
  EXPECT_EQ(WindowsCreateStringReference(source, 18, nullptr, &string), E_INVALIDARG);
  EXPECT_EQ(WindowsCreateStringReference(source, 18, &header, nullptr), E_INVALIDARG);
  EXPECT_EQ(WindowsCreateStringReference(nullptr, 3, &header, &string), E_POINTER);
  EXPECT_EQ(WindowsCreateString(source, 7, nullptr), E_INVALIDARG);
  EXPECT_EQ(WindowsCreateString(nullptr, 3, &string), E_POINTER);
  EXPECT_EQ(string, nullptr);
  EXPECT_EQ(liveStrings(), 0);
}

// --- activation ---

TEST_F(ComCoreTest, RoGetActivationFactoryNeedsTheCallersApartmentAndARegisteredClass) {
  registerAnswerer();
  HSTRING_HEADER header;
  HSTRING classId = nullptr;
  ASSERT_EQ(WindowsCreateStringReference(kAnswererClassId, UINT32(wcslen(kAnswererClassId)), &header, &classId), S_OK);

  ITestAnswer* factory = reinterpret_cast<ITestAnswer*>(0x1);
  EXPECT_EQ(RoGetActivationFactory(classId, IID_PPV_ARGS(&factory)), CO_E_NOTINITIALIZED);
  EXPECT_EQ(factory, nullptr);
  EXPECT_EQ(makes.load(), 0);

  ASSERT_EQ(RoInitialize(RO_INIT_MULTITHREADED), S_OK);
  HRESULT fromOtherThread = S_OK;
  std::thread other([&] {
    ITestAnswer* unused = nullptr;
    fromOtherThread = RoGetActivationFactory(classId, IID_PPV_ARGS(&unused));
  });
  other.join();
  EXPECT_EQ(fromOtherThread, CO_E_NOTINITIALIZED) << "another thread's apartment isn't the caller's";

  HSTRING_HEADER unknownHeader;
  HSTRING unknown = nullptr;
  ASSERT_EQ(WindowsCreateStringReference(L"Kestrane.Test.Absent", 20, &unknownHeader, &unknown), S_OK);
  EXPECT_EQ(RoGetActivationFactory(unknown, IID_PPV_ARGS(&factory)), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(RoGetActivationFactory(nullptr, IID_PPV_ARGS(&factory)), E_INVALIDARG);
  EXPECT_EQ(RoGetActivationFactory(classId, __uuidof(ITestAnswer), nullptr), E_POINTER);

  ASSERT_EQ(RoGetActivationFactory(classId, IID_PPV_ARGS(&factory)), S_OK);
  INT32 value = 0;
  EXPECT_EQ(factory->Answer(&value), S_OK);
  EXPECT_EQ(value, 42);
  EXPECT_EQ(factory->Release(), 0u) << "the platform keeps no reference of its own";

  IAgileObject* agile = reinterpret_cast<IAgileObject*>(0x1);
  EXPECT_EQ(RoGetActivationFactory(classId, IID_PPV_ARGS(&agile)), E_NOINTERFACE);
  EXPECT_EQ(agile, nullptr);
  EXPECT_EQ(Answerer::live.load(), 0);

  platform::unregisterActivationFactory(kAnswererClassId);
  EXPECT_EQ(RoGetActivationFactory(classId, IID_PPV_ARGS(&factory)), REGDB_E_CLASSNOTREG);
  RoUninitialize();
}

TEST_F(ComCoreTest, AFactoryThatCannotBeMadeFailsActivationWithItsOwnResult) {
  platform::registerActivationFactory(kAnswererClassId, [](IInspectable** factory) {
    *factory = nullptr;
    return E_OUTOFMEMORY;
  });
  HSTRING classId = nullptr;
  ASSERT_EQ(WindowsCreateString(kAnswererClassId, UINT32(wcslen(kAnswererClassId)), &classId), S_OK);
  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
  ITestAnswer* factory = nullptr;
  EXPECT_EQ(RoGetActivationFactory(classId, IID_PPV_ARGS(&factory)), E_OUTOFMEMORY);
  EXPECT_EQ(factory, nullptr);
  CoUninitialize();
  WindowsDeleteString(classId);
}

TEST_F(ComCoreTest, CoCreateInstanceMakesRegisteredInProcessClassesWithoutAggregation) {
  registerAnswerer();
  ITestAnswer* instance = reinterpret_cast<ITestAnswer*>(0x1);
  EXPECT_EQ(CoCreateInstance(kAnswererClass, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&instance)),
            CO_E_NOTINITIALIZED);
  EXPECT_EQ(instance, nullptr);

  ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  constexpr CLSID absent = {0x0badc0de, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
  EXPECT_EQ(CoCreateInstance(absent, nullptr, CLSCTX_ALL, IID_PPV_ARGS(&instance)), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(CoCreateInstance(kAnswererClass, nullptr, CLSCTX_LOCAL_SERVER, IID_PPV_ARGS(&instance)),
            REGDB_E_CLASSNOTREG)
      << "no out-of-process server is registered";
  bool outerDestroyed = false;
  IUnknown* outer = new AgileHandler(&outerDestroyed);
  IUnknown* inner = nullptr;
  EXPECT_EQ(CoCreateInstance(kAnswererClass, outer, CLSCTX_INPROC_SERVER, IID_IUnknown,
                             reinterpret_cast<void**>(&inner)),
            CLASS_E_NOAGGREGATION);
  EXPECT_EQ(inner, nullptr);
  outer->Release();
  EXPECT_TRUE(outerDestroyed);

  IAgileObject* agile = reinterpret_cast<IAgileObject*>(0x1);
  EXPECT_EQ(CoCreateInstance(kAnswererClass, nullptr, CLSCTX_ALL, IID_PPV_ARGS(&agile)), E_NOINTERFACE);
  EXPECT_EQ(agile, nullptr);
  ASSERT_EQ(CoCreateInstance(kAnswererClass, nullptr, CLSCTX_ALL, IID_PPV_ARGS(&instance)), S_OK);
  EXPECT_EQ(Answerer::live.load(), 1);
  EXPECT_EQ(instance->Release(), 0u);
  CoUninitialize();
}

// --- the free-threaded marshaler ---

TEST_F(ComCoreTest, TheMarshalerAnswersIMarshalForItsOuterObjectAndCountsThere) {
  bool destroyed = false;
  AgileHandler* handler = new AgileHandler(&destroyed);
  IUnknown* identity = nullptr;
  ASSERT_EQ(handler->QueryInterface(IID_PPV_ARGS(&identity)), S_OK);

  IMarshal* marshal = nullptr;
  ASSERT_EQ(handler->QueryInterface(IID_PPV_ARGS(&marshal)), S_OK);
  EXPECT_EQ(liveMarshalers(), 1);
  EXPECT_EQ(handler->AddRef(), 4u) << "the IMarshal reference is one of the outer object's";
  EXPECT_EQ(marshal->AddRef(), 5u);
  EXPECT_EQ(marshal->Release(), 4u);
  EXPECT_EQ(handler->Release(), 3u);

  IUnknown* throughMarshal = nullptr;
  ASSERT_EQ(marshal->QueryInterface(IID_PPV_ARGS(&throughMarshal)), S_OK);
  EXPECT_EQ(throughMarshal, identity) << "IMarshal's QueryInterface is the outer object's";
  IAgileObject* agile = nullptr;
  ASSERT_EQ(marshal->QueryInterface(IID_PPV_ARGS(&agile)), S_OK);
  IMarshal* again = nullptr;
  ASSERT_EQ(agile->QueryInterface(IID_PPV_ARGS(&again)), S_OK);
  EXPECT_EQ(again, marshal);
  EXPECT_EQ(liveMarshalers(), 1) << "made once, on demand";

  again->Release();
  agile->Release();
  throughMarshal->Release();
  marshal->Release();
  identity->Release();
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(handler->Release(), 0u);
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(liveMarshalers(), 0) << "the outer object's last Release frees the marshaler";
}

TEST_F(ComCoreTest, TheMarshalersOwnUnknownIsNonDelegating) {
  bool destroyed = false;
  AgileHandler* handler = new AgileHandler(&destroyed);
  IUnknown* inner = nullptr;
  ASSERT_EQ(CoCreateFreeThreadedMarshaler(handler, &inner), S_OK);
  EXPECT_EQ(inner->AddRef(), 2u) << "the inner object counts its own references";
  EXPECT_EQ(inner->Release(), 1u);
  EXPECT_EQ(handler->AddRef(), 2u) << "and holds none on its outer object";
  handler->Release();

  IUnknown* innerAgain = nullptr;
  ASSERT_EQ(inner->QueryInterface(IID_PPV_ARGS(&innerAgain)), S_OK);
  EXPECT_EQ(innerAgain, inner);
  EXPECT_EQ(innerAgain->Release(), 1u);
  IAgileObject* agile = reinterpret_cast<IAgileObject*>(0x1);
  EXPECT_EQ(inner->QueryInterface(IID_PPV_ARGS(&agile)), E_NOINTERFACE) << "the outer object's interfaces aren't its";
  EXPECT_EQ(agile, nullptr);

  EXPECT_EQ(inner->Release(), 0u);
  EXPECT_EQ(liveMarshalers(), 0);
  EXPECT_EQ(handler->Release(), 0u);
  EXPECT_EQ(CoCreateFreeThreadedMarshaler(nullptr, nullptr), E_INVALIDARG);
}

TEST_F(ComCoreTest, AMarshalerWithoutAnOuterObjectControlsItself) {
  IUnknown* unknown = nullptr;
  ASSERT_EQ(CoCreateFreeThreadedMarshaler(nullptr, &unknown), S_OK);
  IMarshal* marshal = nullptr;
  ASSERT_EQ(unknown->QueryInterface(IID_PPV_ARGS(&marshal)), S_OK);
  IUnknown* identity = nullptr;
  ASSERT_EQ(marshal->QueryInterface(IID_PPV_ARGS(&identity)), S_OK);
  EXPECT_EQ(identity, unknown);
  EXPECT_EQ(identity->Release(), 2u);
  EXPECT_EQ(marshal->Release(), 1u);
  EXPECT_EQ(unknown->Release(), 0u);
  EXPECT_EQ(liveMarshalers(), 0);
}

// --- the fault plan ---

TEST_F(ComCoreTest, PlannedFaultsReachTheCallerAndLeaveNothingBehind) {
  control::failOnce("CoInitializeEx", E_OUTOFMEMORY);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), E_OUTOFMEMORY);
  EXPECT_EQ(control::threadApartmentCount(), 0) << "a failed initialize enters nothing";
  control::failOnce("RoInitialize", E_OUTOFMEMORY);
  EXPECT_EQ(RoInitialize(RO_INIT_MULTITHREADED), E_OUTOFMEMORY);
  ASSERT_EQ(RoInitialize(RO_INIT_MULTITHREADED), S_OK);

  control::failOnce("WindowsCreateString", E_OUTOFMEMORY);
  HSTRING classId = reinterpret_cast<HSTRING>(0x1);
  EXPECT_EQ(WindowsCreateString(kAnswererClassId, UINT32(wcslen(kAnswererClassId)), &classId), E_OUTOFMEMORY);
  EXPECT_EQ(classId, nullptr);
  EXPECT_EQ(liveStrings(), 0);
  ASSERT_EQ(WindowsCreateString(kAnswererClassId, UINT32(wcslen(kAnswererClassId)), &classId), S_OK);

  registerAnswerer();
  control::failOnce("RoGetActivationFactory", E_ACCESSDENIED);
  ITestAnswer* factory = reinterpret_cast<ITestAnswer*>(0x1);
  EXPECT_EQ(RoGetActivationFactory(classId, IID_PPV_ARGS(&factory)), E_ACCESSDENIED);
  EXPECT_EQ(factory, nullptr);
  EXPECT_EQ(makes.load(), 0);
  control::failOnce("CoCreateInstance", E_OUTOFMEMORY);
  EXPECT_EQ(CoCreateInstance(kAnswererClass, nullptr, CLSCTX_ALL, IID_PPV_ARGS(&factory)), E_OUTOFMEMORY);
  EXPECT_EQ(factory, nullptr);

  control::failOnce("WindowsDeleteString", E_FAIL);
  EXPECT_EQ(WindowsDeleteString(classId), E_FAIL);
  EXPECT_EQ(liveStrings(), 1) << "a failed delete frees nothing";
  EXPECT_EQ(WindowsDeleteString(classId), S_OK);

  bool destroyed = false;
  AgileHandler* handler = new AgileHandler(&destroyed);
  IMarshal* marshal = nullptr;
  control::failOnce("CoCreateFreeThreadedMarshaler", E_OUTOFMEMORY);
  EXPECT_EQ(handler->QueryInterface(IID_PPV_ARGS(&marshal)), E_OUTOFMEMORY);
  control::failOnce("QueryInterface(IMarshal)", E_NOINTERFACE);
  EXPECT_EQ(handler->QueryInterface(IID_PPV_ARGS(&marshal)), E_NOINTERFACE);
  EXPECT_EQ(marshal, nullptr);
  ASSERT_EQ(handler->QueryInterface(IID_PPV_ARGS(&marshal)), S_OK);
  marshal->Release();
  EXPECT_EQ(handler->Release(), 0u);

  RoUninitialize();
  EXPECT_EQ(control::callCount("CoInitializeEx"), 1u);
  EXPECT_EQ(control::callCount("RoInitialize"), 2u);
  EXPECT_EQ(control::callCount("RoUninitialize"), 1u);
  EXPECT_EQ(control::callCount("WindowsCreateString"), 2u);
  EXPECT_EQ(control::callCount("WindowsDeleteString"), 2u);
  EXPECT_EQ(control::callCount("RoGetActivationFactory"), 1u);
  EXPECT_EQ(control::callCount("CoCreateInstance"), 1u);
  EXPECT_EQ(control::callCount("CoCreateFreeThreadedMarshaler"), 2u) << "the handler keeps the one it made";
}

}  // namespace
