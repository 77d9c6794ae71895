#include "platform/core/handles.h"

#include <mutex>
#include <unordered_map>

#include "platform/control/platform_control.h"
#include "platform/core/call_gate.h"
#include "windows.h"

namespace platform {
namespace {

struct HandleTable {
  std::mutex mutex;
  std::unordered_map<uintptr_t, std::shared_ptr<KernelObject>> open;
  uintptr_t next = 0x100;
};

HandleTable& table() {
  // Never destroyed: threads of the host may still call in while the process exits.
  static HandleTable* instance = new HandleTable;
  return *instance;
}

}  // namespace

HANDLE createHandle(std::shared_ptr<KernelObject> object) {
  HandleTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  t.next += 4;  // NT handles are multiples of four
  t.open.emplace(t.next, std::move(object));
  return reinterpret_cast<HANDLE>(t.next);
}

std::shared_ptr<KernelObject> objectFromHandle(HANDLE handle) {
  HandleTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  auto found = t.open.find(reinterpret_cast<uintptr_t>(handle));
  return found == t.open.end() ? nullptr : found->second;
}

namespace control {

size_t openHandleCount() {
  HandleTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  return t.open.size();
}

}  // namespace control

}  // namespace platform

BOOL WINAPI CloseHandle(HANDLE hObject) {
  int64_t value = 0;
  if (platform::plannedFault("CloseHandle", &value)) return BOOL(value);
  std::shared_ptr<platform::KernelObject> closing;  // released outside the lock
  {
    platform::HandleTable& t = platform::table();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto found = t.open.find(reinterpret_cast<uintptr_t>(hObject));
    if (found == t.open.end()) {
      SetLastError(ERROR_INVALID_HANDLE);
      return FALSE;
    }
    closing = std::move(found->second);
    t.open.erase(found);
  }
  return TRUE;
}
