// MFStartup and MFShutdown: a process-wide count, one MFShutdown for each successful MFStartup.
#include <atomic>

#include "mfapi.h"
#include "mferror.h"
#include "platform/control/mf_control.h"
#include "platform/core/call_gate.h"

namespace platform {
namespace {

std::atomic<int> startups{0};

// The versions Windows accepts: this SDK's, and the one of the first release's headers.
constexpr ULONG kVistaVersion = 0x0001 << 16 | MF_API_VERSION;

}  // namespace

namespace control {

int mfStartupCount() { return startups.load(); }

}  // namespace control
}  // namespace platform

HRESULT WINAPI MFStartup(ULONG Version, DWORD dwFlags) {
  (void)dwFlags;  // sockets and the rest come up together on this platform
  if (HRESULT planned = platform::plannedHresult("MFStartup"); planned != S_OK) return planned;
  if (Version != MF_VERSION && Version != platform::kVistaVersion) return MF_E_BAD_STARTUP_VERSION;
  ++platform::startups;
  return S_OK;
}

// A shutdown without a startup does nothing, as the documentation allows.
HRESULT WINAPI MFShutdown(void) {
  if (HRESULT planned = platform::plannedHresult("MFShutdown"); planned != S_OK) return planned;
  int open = platform::startups.load();
  while (open > 0 && !platform::startups.compare_exchange_weak(open, open - 1)) {
  }
  return S_OK;
}
