// The module entry: the Node-API version the module asks for and the registration of its
// functions. Module load builds nothing else: no thread, device, apartment or socket.
#include <napi.h>

#include "addon/functions.h"
#include "addon/node_api_errors.h"

namespace {

using Callback = Napi::Value (*)(const Napi::CallbackInfo&);

// The heap record of one function object, freed by the object's finalizer.
struct FunctionRecord {
  Callback callback;
};

napi_value invoke(napi_env env, napi_callback_info rawInfo) {
  Napi::CallbackInfo info(env, rawInfo);
  auto* record = static_cast<FunctionRecord*>(info.Data());
  return record->callback(info);
}

void freeRecord(napi_env, void* data, void*) { delete static_cast<FunctionRecord*>(data); }

// Defines one function on `exports`. A failure is thrown and registration goes on with the next.
void defineFunction(napi_env env, napi_value exports, const char* name, Callback callback) {
  auto* record = new FunctionRecord{callback};
  napi_value function = nullptr;
  napi_status status = napi_create_function(env, nullptr, NAPI_AUTO_LENGTH, invoke, record, &function);
  if (status == napi_ok) status = napi_add_finalizer(env, function, record, freeRecord, nullptr, nullptr);
  if (status != napi_ok) {
    delete record;
    throwIfFailed(env, status);
    return;
  }
  throwIfFailed(env, napi_set_named_property(env, exports, name, function));
}

}  // namespace

extern "C" {

NAPI_MODULE_EXPORT int32_t node_api_module_get_api_version_v1(void) { return 8; }

NAPI_MODULE_EXPORT napi_value napi_register_module_v1(napi_env env, napi_value exports) {
  defineFunction(env, exports, "isAvailable", isAvailable);
  defineFunction(env, exports, "start", start);
  defineFunction(env, exports, "stop", stop);
  defineFunction(env, exports, "getMetrics", getMetrics);
  addSessionCleanupHook(env);
  return exports;
}

}  // extern "C"
