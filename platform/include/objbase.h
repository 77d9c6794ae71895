// COM for applications: the apartment models on top of COM's base calls.
#pragma once

#include "combaseapi.h"
#include "objidl.h"
#include "windows.h"

typedef enum tagCOINIT {
  COINIT_APARTMENTTHREADED = 0x2,
  COINIT_MULTITHREADED = 0x0,
  COINIT_DISABLE_OLE1DDE = 0x4,
  COINIT_SPEED_OVER_MEMORY = 0x8
} COINIT;
