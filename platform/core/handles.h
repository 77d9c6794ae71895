// Kernel handles of the platform: what CloseHandle closes. Anything that hands out an NT handle
// (a shared texture, an event) registers its object here.
#pragma once

#include <memory>

#include "windef.h"

namespace platform {

class KernelObject {
 public:
  virtual ~KernelObject() = default;
};

HANDLE createHandle(std::shared_ptr<KernelObject> object);
// The object behind an open handle, or null for a closed or unknown one.
std::shared_ptr<KernelObject> objectFromHandle(HANDLE handle);

}  // namespace platform
