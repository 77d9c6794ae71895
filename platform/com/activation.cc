#include "platform/com/activation.h"

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "objbase.h"
#include "platform/com/apartment.h"
#include "platform/com/string_text.h"
#include "platform/core/call_gate.h"
#include "roapi.h"

namespace platform {
namespace {

struct ComClass {
  CLSID clsid;
  ComClassMaker make;
};

struct ClassTable {
  std::mutex mutex;
  std::map<std::wstring, ActivationFactoryMaker> runtimeClasses;
  std::vector<ComClass> comClasses;
};

// Never destroyed: registrations may be looked up while the process exits.
ClassTable& table() {
  static ClassTable* instance = new ClassTable;
  return *instance;
}

ActivationFactoryMaker runtimeClassMaker(const std::wstring& classId) {
  ClassTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  auto found = t.runtimeClasses.find(classId);
  return found == t.runtimeClasses.end() ? ActivationFactoryMaker() : found->second;
}

ComClassMaker comClassMaker(REFCLSID rclsid) {
  ClassTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  for (const ComClass& entry : t.comClasses)
    if (IsEqualGUID(entry.clsid, rclsid)) return entry.make;
  return ComClassMaker();
}

}  // namespace

void registerActivationFactory(const std::wstring& classId, ActivationFactoryMaker make) {
  ClassTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  t.runtimeClasses[classId] = std::move(make);
}

void unregisterActivationFactory(const std::wstring& classId) {
  ClassTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  t.runtimeClasses.erase(classId);
}

void registerComClass(REFCLSID rclsid, ComClassMaker make) {
  ClassTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  for (ComClass& entry : t.comClasses) {
    if (IsEqualGUID(entry.clsid, rclsid)) {
      entry.make = std::move(make);
      return;
    }
  }
  t.comClasses.push_back({rclsid, std::move(make)});
}

void unregisterComClass(REFCLSID rclsid) {
  ClassTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  std::erase_if(t.comClasses, [&](const ComClass& entry) { return IsEqualGUID(entry.clsid, rclsid); });
}

}  // namespace platform

HRESULT WINAPI RoGetActivationFactory(HSTRING activatableClassId, REFIID iid, void** factory) {
  HRESULT planned = platform::plannedHresult("RoGetActivationFactory");
  if (factory != nullptr) *factory = nullptr;
  if (planned != S_OK) return planned;
  if (factory == nullptr) return E_POINTER;
  if (activatableClassId == nullptr) return E_INVALIDARG;
  // Windows would also accept a thread inside another thread's multithreaded apartment; the
  // platform asks for the caller's own, so that a forgotten initialisation shows in tests.
  if (!platform::threadHasApartment()) return CO_E_NOTINITIALIZED;
  platform::ActivationFactoryMaker make = platform::runtimeClassMaker(platform::stringText(activatableClassId));
  if (!make) return REGDB_E_CLASSNOTREG;
  IInspectable* made = nullptr;
  HRESULT hr = make(&made);
  if (FAILED(hr)) return hr;
  if (made == nullptr) return E_UNEXPECTED;
  hr = made->QueryInterface(iid, factory);
  made->Release();
  return hr;
}

HRESULT WINAPI CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid, LPVOID* ppv) {
  HRESULT planned = platform::plannedHresult("CoCreateInstance");
  if (ppv != nullptr) *ppv = nullptr;
  if (planned != S_OK) return planned;
  if (ppv == nullptr) return E_POINTER;
  if (!platform::threadHasApartment()) return CO_E_NOTINITIALIZED;
  // Every class of the platform is an in-process server: other contexts find none registered.
  platform::ComClassMaker make =
      (dwClsContext & CLSCTX_INPROC_SERVER) != 0 ? platform::comClassMaker(rclsid) : platform::ComClassMaker();
  if (!make) return REGDB_E_CLASSNOTREG;
  if (pUnkOuter != nullptr) return CLASS_E_NOAGGREGATION;
  HRESULT hr = make(riid, ppv);
  if (FAILED(hr)) *ppv = nullptr;
  return hr;
}
