// The control interface for JavaScript: loaded beside the add-on, it steers the same platform.
#include <napi.h>

#include "platform/control/platform_control.h"
#include "windows.h"

namespace {

namespace control = platform::control;

bool requireString(const Napi::CallbackInfo& info, size_t index, std::string* out) {
  if (info.Length() <= index || !info[index].IsString()) {
    Napi::TypeError::New(info.Env(), "expected a string").ThrowAsJavaScriptException();
    return false;
  }
  *out = info[index].As<Napi::String>().Utf8Value();
  return true;
}

uint32_t optionalUint(const Napi::Object& object, const char* key, uint32_t fallback) {
  Napi::Value value = object.Get(key);
  return value.IsNumber() ? value.As<Napi::Number>().Uint32Value() : fallback;
}

// planFault({ call, value, after, times, delayMs, fails })
Napi::Value PlanFault(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  if (info.Length() < 1 || !info[0].IsObject()) {
    Napi::TypeError::New(env, "planFault expects { call, value, after, times, delayMs, fails }")
        .ThrowAsJavaScriptException();
    return env.Undefined();
  }
  Napi::Object spec = info[0].As<Napi::Object>();
  Napi::Value call = spec.Get("call");
  if (!call.IsString()) {
    Napi::TypeError::New(env, "planFault: call must name a platform call").ThrowAsJavaScriptException();
    return env.Undefined();
  }
  control::Fault fault;
  fault.call = call.As<Napi::String>().Utf8Value();
  Napi::Value value = spec.Get("value");
  if (value.IsNumber()) fault.value = value.As<Napi::Number>().Int64Value();
  fault.after = optionalUint(spec, "after", 0);
  fault.times = optionalUint(spec, "times", 1);
  fault.delayMs = optionalUint(spec, "delayMs", 0);
  Napi::Value fails = spec.Get("fails");
  fault.fails = fails.IsBoolean() ? fails.As<Napi::Boolean>().Value() : true;
  control::planFault(fault);
  return env.Undefined();
}

Napi::Value ClearFaults(const Napi::CallbackInfo& info) {
  control::clearFaults();
  return info.Env().Undefined();
}

Napi::Value CallCount(const Napi::CallbackInfo& info) {
  std::string call;
  if (!requireString(info, 0, &call)) return info.Env().Undefined();
  return Napi::Number::New(info.Env(), double(control::callCount(call)));
}

Napi::Value DebugOutput(const Napi::CallbackInfo& info) {
  std::vector<std::string> lines = control::debugOutput();
  Napi::Array result = Napi::Array::New(info.Env(), lines.size());
  for (uint32_t i = 0; i < lines.size(); ++i) result.Set(i, Napi::String::New(info.Env(), lines[i]));
  return result;
}

Napi::Value ClearDebugOutput(const Napi::CallbackInfo& info) {
  control::clearDebugOutput();
  return info.Env().Undefined();
}

// Writes through OutputDebugStringA, as any module of the process would.
Napi::Value WriteDebugOutput(const Napi::CallbackInfo& info) {
  std::string text;
  if (requireString(info, 0, &text)) OutputDebugStringA(text.c_str());
  return info.Env().Undefined();
}

Napi::Value DatagramsSent(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), double(control::datagramsSent()));
}

Napi::Value Reset(const Napi::CallbackInfo& info) {
  control::reset();
  return info.Env().Undefined();
}

Napi::Object Init(Napi::Env env, Napi::Object exports) {
  exports.Set("planFault", Napi::Function::New(env, PlanFault, "planFault"));
  exports.Set("clearFaults", Napi::Function::New(env, ClearFaults, "clearFaults"));
  exports.Set("callCount", Napi::Function::New(env, CallCount, "callCount"));
  exports.Set("debugOutput", Napi::Function::New(env, DebugOutput, "debugOutput"));
  exports.Set("clearDebugOutput", Napi::Function::New(env, ClearDebugOutput, "clearDebugOutput"));
  exports.Set("writeDebugOutput", Napi::Function::New(env, WriteDebugOutput, "writeDebugOutput"));
  exports.Set("datagramsSent", Napi::Function::New(env, DatagramsSent, "datagramsSent"));
  exports.Set("reset", Napi::Function::New(env, Reset, "reset"));
  return exports;
}

}  // namespace

NODE_API_MODULE(platform_control, Init)
