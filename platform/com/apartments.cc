// COM apartments per thread: CoInitializeEx and RoInitialize enter one, each success is counted
// and needs its own CoUninitialize or RoUninitialize.
#include <atomic>

#include "objbase.h"
#include "platform/com/apartment.h"
#include "platform/control/com_control.h"
#include "platform/core/call_gate.h"
#include "roapi.h"

namespace platform {
namespace {

enum class Model { None, SingleThreaded, MultiThreaded };

struct ThreadApartment {
  Model model = Model::None;
  int initializations = 0;
};

thread_local ThreadApartment apartment;

// Not decremented when a thread ends: a thread that leaves without uninitialising leaks its
// apartment on Windows too, and tests should see it.
std::atomic<int> openInitializations{0};

HRESULT enterApartment(Model model) {
  if (apartment.initializations > 0) {
    // A second model on the same thread is refused and, unlike S_FALSE, needs no uninitialise.
    if (apartment.model != model) return RPC_E_CHANGED_MODE;
    ++apartment.initializations;
    ++openInitializations;
    return S_FALSE;
  }
  apartment.model = model;
  apartment.initializations = 1;
  ++openInitializations;
  return S_OK;
}

// An uninitialise without a matching initialise does nothing, as on Windows.
void leaveApartment() {
  if (apartment.initializations == 0) return;
  if (--apartment.initializations == 0) apartment.model = Model::None;
  --openInitializations;
}

}  // namespace

bool threadHasApartment() { return apartment.initializations > 0; }

namespace control {

int threadApartmentCount() { return apartment.initializations; }
int processApartmentCount() { return openInitializations.load(); }

}  // namespace control
}  // namespace platform

HRESULT WINAPI CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit) {
  if (HRESULT planned = platform::plannedHresult("CoInitializeEx"); planned != S_OK) return planned;
  if (pvReserved != nullptr) return E_INVALIDARG;
  return platform::enterApartment((dwCoInit & COINIT_APARTMENTTHREADED) != 0 ? platform::Model::SingleThreaded
                                                                           : platform::Model::MultiThreaded);
}

void WINAPI CoUninitialize(void) {
  platform::plannedHresult("CoUninitialize");  // counted; there is no result to fail with
  platform::leaveApartment();
}

HRESULT WINAPI RoInitialize(RO_INIT_TYPE initType) {
  if (HRESULT planned = platform::plannedHresult("RoInitialize"); planned != S_OK) return planned;
  switch (initType) {
    case RO_INIT_SINGLETHREADED:
      return platform::enterApartment(platform::Model::SingleThreaded);
    case RO_INIT_MULTITHREADED:
      return platform::enterApartment(platform::Model::MultiThreaded);
  }
  return E_INVALIDARG;
}

void WINAPI RoUninitialize(void) {
  platform::plannedHresult("RoUninitialize");
  platform::leaveApartment();
}
