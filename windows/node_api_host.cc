// Binds the module's Node-API imports to whichever process loaded it. The import library names
// node.exe, but the host may be an Electron executable of any name, or link Node-API from
// libnode.dll; so the imports are delay-loaded and this hook hands the loader the module that
// really exports them. On hosts whose loader binds symbols by name alone nothing of this is needed.
#include <windows.h>

#include <delayimp.h>

namespace {

FARPROC WINAPI bindToHost(unsigned notification, PDelayLoadInfo info) {
  if (notification != dliNotePreLoadLibrary || lstrcmpiA(info->szDll, "node.exe") != 0) return nullptr;
  HMODULE host = GetModuleHandleW(L"libnode.dll");
  if (host == nullptr) host = GetModuleHandleW(nullptr);
  return reinterpret_cast<FARPROC>(host);
}

}  // namespace

// Declared extern "C" by delayimp.h; defining it here replaces the runtime's empty hook.
PfnDliHook __pfnDliNotifyHook2 = bindToHost;
