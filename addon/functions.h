// The functions that JavaScript calls. Each is thin: it turns its arguments into a call on the
// system and its answer into a JavaScript value.
#pragma once

#include <napi.h>

// True when a Direct3D 11 device can be made on the first adapter; nothing more is tested.
Napi::Value isAvailable(const Napi::CallbackInfo& info);
