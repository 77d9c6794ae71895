#include "platform/core/modules.h"

#include <cwctype>
#include <mutex>

#include "platform/core/call_gate.h"
#include "windows.h"

namespace platform {
namespace {

struct Module {
  std::map<std::string, FARPROC> exports;
  bool (*present)() = nullptr;
  int loads = 0;
};

struct ModuleTable {
  std::mutex mutex;
  std::map<std::wstring, Module> modules;  // node addresses are stable: they serve as HMODULE
};

ModuleTable& table() {
  // Never destroyed: threads of the host may still call in while the process exits.
  static ModuleTable* instance = new ModuleTable;
  return *instance;
}

std::wstring lowerCase(const std::wstring& text) {
  std::wstring lower = text;
  for (wchar_t& c : lower) c = wchar_t(std::towlower(wint_t(c)));
  return lower;
}

// A module is loaded by its file name alone; a path in front of it is ignored.
std::wstring fileNameOf(const wchar_t* path) {
  std::wstring text(path);
  size_t slash = text.find_last_of(L"\\/");
  return lowerCase(slash == std::wstring::npos ? text : text.substr(slash + 1));
}

Module* moduleFromHandle(ModuleTable& t, HMODULE handle) {
  for (auto& entry : t.modules)
    if (reinterpret_cast<HMODULE>(&entry.second) == handle) return &entry.second;
  return nullptr;
}

}  // namespace

void installModule(const std::wstring& fileName, std::map<std::string, FARPROC> exports, bool (*present)()) {
  ModuleTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  Module& module = t.modules[lowerCase(fileName)];
  module.exports = std::move(exports);
  module.present = present;
}

void uninstallModule(const std::wstring& fileName) {
  ModuleTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  t.modules.erase(lowerCase(fileName));
}

}  // namespace platform

HMODULE WINAPI LoadLibraryW(LPCWSTR lpLibFileName) {
  int64_t value = 0;
  if (platform::plannedFault("LoadLibraryW", &value)) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return reinterpret_cast<HMODULE>(value);
  }
  if (lpLibFileName == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  platform::ModuleTable& t = platform::table();
  std::lock_guard<std::mutex> lock(t.mutex);
  auto found = t.modules.find(platform::fileNameOf(lpLibFileName));
  if (found == t.modules.end() || (found->second.present != nullptr && !found->second.present())) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  ++found->second.loads;
  return reinterpret_cast<HMODULE>(&found->second);
}

FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
  int64_t value = 0;
  if (platform::plannedFault("GetProcAddress", &value)) {
    SetLastError(ERROR_PROC_NOT_FOUND);
    return reinterpret_cast<FARPROC>(value);
  }
  platform::ModuleTable& t = platform::table();
  std::lock_guard<std::mutex> lock(t.mutex);
  platform::Module* module = platform::moduleFromHandle(t, hModule);
  if (module == nullptr || lpProcName == nullptr) {
    SetLastError(module == nullptr ? ERROR_INVALID_HANDLE : ERROR_PROC_NOT_FOUND);
    return nullptr;
  }
  auto found = module->exports.find(lpProcName);
  if (found == module->exports.end()) {
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
  }
  return found->second;
}

BOOL WINAPI FreeLibrary(HMODULE hLibModule) {
  int64_t value = 0;
  if (platform::plannedFault("FreeLibrary", &value)) return BOOL(value);
  platform::ModuleTable& t = platform::table();
  std::lock_guard<std::mutex> lock(t.mutex);
  platform::Module* module = platform::moduleFromHandle(t, hLibModule);
  if (module == nullptr || module->loads == 0) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  --module->loads;
  return TRUE;
}
