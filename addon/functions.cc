#include "addon/functions.h"

#include <mutex>

#include "addon/node_api_errors.h"
#include "addon/start_options_parser.h"
#include "gpu/d3d_context.h"
#include "session/native_session.h"

namespace {

// The one session of the process, shared by every JavaScript environment that loads the module.
// Never destroyed: at process exit Windows has already killed the worker and holds the loader
// lock, where joins, MFShutdown and CoUninitialize are not safe. The environment's cleanup hook
// stops the session instead, on the JavaScript thread.
NativeSession& session = *new NativeSession;
// The environment whose start made the running session; its cleanup hook stops it.
napi_env sessionOwner = nullptr;

// Every JavaScript environment of the process (worker threads, Electron contexts) shares the one
// session: start and stop take this lock, so that one thread at a time starts, joins or restarts
// the worker. Recursive, because an option's getter may call stop() or start() inside a start.
// getMetrics reads only atomics and takes no lock.
std::recursive_mutex sessionCallLock;

void throwError(napi_env env, const char* message) { napi_throw_error(env, nullptr, message); }

void setNumber(napi_env env, napi_value object, const char* key, double number) {
  napi_value value;
  if (throwIfFailed(env, napi_create_double(env, number, &value))) return;
  throwIfFailed(env, napi_set_named_property(env, object, key, value));
}

// One record per registration, so that no two hooks share the (function, argument) pair that
// Node-API refuses twice.
struct CleanupRecord {
  napi_env env;
};

void stopOwnedSession(void* data) {
  auto* record = static_cast<CleanupRecord*>(data);
  {
    std::lock_guard<std::recursive_mutex> serialised(sessionCallLock);
    if (sessionOwner == record->env) {
      session.stop();
      sessionOwner = nullptr;
    }
  }
  delete record;
}

}  // namespace

Napi::Value isAvailable(const Napi::CallbackInfo& info) {
  bool available = false;
  {
    // The device and everything that came with it go before the answer does.
    D3DContext probe;
    available = probe.createOnFirstAdapter();
  }
  return Napi::Boolean::New(info.Env(), available);
}

Napi::Value start(const Napi::CallbackInfo& info) {
  napi_env env = info.Env();
  Napi::Value undefined = info.Env().Undefined();
  napi_valuetype type = napi_undefined;
  if (info.Length() >= 1 && throwIfFailed(env, napi_typeof(env, info[0], &type))) return undefined;
  if (type != napi_object && type != napi_function) {
    napi_throw_type_error(env, nullptr, "start(options) requires an options object");
    return undefined;
  }
  std::lock_guard<std::recursive_mutex> serialised(sessionCallLock);
  // A start that fails on its options has still ended the session before it.
  if (session.running.load()) session.stop();

  bool hasHandle = false;
  if (throwIfFailed(env, napi_has_named_property(env, info[0], "nativeHandle", &hasHandle))) return undefined;
  if (!hasHandle) {
    throwError(env, "nativeHandle is required");
    return undefined;
  }
  StartOptions options;
  if (!parseStartOptions(env, info[0], options)) return undefined;
  if (options.captureKind != CaptureKind::Screen && options.nativeHandle == 0) {
    throwError(env, "nativeHandle is required");
    return undefined;
  }
  sessionOwner = env;
  if (!session.start(options)) {
    std::string text = session.lastError.empty() ? "Failed to start native Kestrane session" : session.lastError;
    throwError(env, text.c_str());
  }
  return undefined;
}

Napi::Value stop(const Napi::CallbackInfo& info) {
  std::lock_guard<std::recursive_mutex> serialised(sessionCallLock);
  session.stop();
  return info.Env().Undefined();
}

bool addSessionCleanupHook(napi_env env) {
  auto* record = new CleanupRecord{env};
  if (throwIfFailed(env, napi_add_env_cleanup_hook(env, stopOwnedSession, record))) {
    delete record;
    return false;
  }
  return true;
}

Napi::Value getMetrics(const Napi::CallbackInfo& info) {
  napi_env env = info.Env();
  napi_value result;
  if (throwIfFailed(env, napi_create_object(env, &result))) return info.Env().Undefined();
  const SessionMetrics& metrics = session.metrics;
  setNumber(env, result, "captureFps", metrics.captureFps.load());
  setNumber(env, result, "encodeFps", metrics.encodeFps.load());
  setNumber(env, result, "rtpFps", metrics.rtpFps.load());
  setNumber(env, result, "droppedFrames", static_cast<double>(metrics.droppedFrames.load()));
  setNumber(env, result, "bitrate", metrics.bitrate.load());
  setNumber(env, result, "avgFrameBytes", metrics.avgFrameBytes.load());
  napi_value name;
  if (!throwIfFailed(env, napi_create_string_utf8(env, session.currentEncoderName(), NAPI_AUTO_LENGTH, &name)))
    throwIfFailed(env, napi_set_named_property(env, result, "encoderName", name));
  return Napi::Value(env, result);
}
