// Loadable modules: the platform decides which DLLs exist (the virtual machine's drivers) and
// what GetProcAddress finds in them.
#pragma once

#include <map>
#include <string>

#include "windef.h"

namespace platform {

// Makes `fileName` loadable (matched without regard to case), or replaces its exports. With
// `present`, LoadLibraryW finds the module only while it answers true: a driver library that the
// machine description may or may not have installed.
void installModule(const std::wstring& fileName, std::map<std::string, FARPROC> exports,
                   bool (*present)() = nullptr);
void uninstallModule(const std::wstring& fileName);

}  // namespace platform
