// Loadable modules: the platform decides which DLLs exist (the virtual machine's drivers) and
// what GetProcAddress finds in them.
#pragma once

#include <map>
#include <string>

#include "windef.h"

namespace platform {

// Makes `fileName` loadable (matched without regard to case), or replaces its exports.
void installModule(const std::wstring& fileName, std::map<std::string, FARPROC> exports);
void uninstallModule(const std::wstring& fileName);

}  // namespace platform
