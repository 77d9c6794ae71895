#include "addon/functions.h"

#include "gpu/d3d_context.h"

Napi::Value isAvailable(const Napi::CallbackInfo& info) {
  bool available = false;
  {
    // The device and everything that came with it go before the answer does.
    D3DContext probe;
    available = probe.createOnFirstAdapter();
  }
  return Napi::Boolean::New(info.Env(), available);
}
