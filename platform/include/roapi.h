// The Windows Runtime's apartment and activation calls.
#pragma once

#include "hstring.h"
#include "inspectable.h"
#include "windows.h"

typedef enum RO_INIT_TYPE {
  RO_INIT_SINGLETHREADED = 0,
  RO_INIT_MULTITHREADED = 1
} RO_INIT_TYPE;

WINBASEAPI HRESULT WINAPI RoInitialize(RO_INIT_TYPE initType);
WINBASEAPI void WINAPI RoUninitialize(void);
WINBASEAPI HRESULT WINAPI RoGetActivationFactory(HSTRING activatableClassId, REFIID iid, void** factory);
