// The functions that JavaScript calls. Each is thin: it turns its arguments into a call on the
// system and its answer into a JavaScript value.
#pragma once

#include <napi.h>

// True when a Direct3D 11 device can be made on the first adapter; nothing more is tested.
Napi::Value isAvailable(const Napi::CallbackInfo& info);
// Stops a running session, then brings up a new one from the options; throws why it can't.
Napi::Value start(const Napi::CallbackInfo& info);
// Stops a running session; harmless when none runs.
Napi::Value stop(const Napi::CallbackInfo& info);
// The session's rates and counters as a new plain object, read without a lock.
Napi::Value getMetrics(const Napi::CallbackInfo& info);
// Registers the environment's cleanup hook: when the environment goes (a worker thread ends, the
// host shuts down) a session that it started is stopped on its own thread. False, with a
// JavaScript exception pending, if Node-API refused.
bool addSessionCleanupHook(napi_env env);
