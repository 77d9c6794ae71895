// The control interface for JavaScript: loaded beside the add-on, it steers the same platform.
#include <napi.h>

#include "platform/control/com_control.h"
#include "platform/control/desktop_node_functions.h"
#include "platform/control/machine_control.h"
#include "platform/control/mf_control.h"
#include "platform/control/nvenc_control.h"
#include "platform/control/platform_control.h"
#include "platform/control/window_control.h"
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
  Napi::Object request = info[0].As<Napi::Object>();
  Napi::Value call = request.Get("call");
  if (!call.IsString()) {
    Napi::TypeError::New(env, "planFault: call must name a platform call").ThrowAsJavaScriptException();
    return env.Undefined();
  }
  control::Fault fault;
  fault.call = call.As<Napi::String>().Utf8Value();
  Napi::Value value = request.Get("value");
  if (value.IsNumber()) fault.value = value.As<Napi::Number>().Int64Value();
  fault.after = optionalUint(request, "after", 0);
  fault.times = optionalUint(request, "times", 1);
  fault.delayMs = optionalUint(request, "delayMs", 0);
  Napi::Value fails = request.Get("fails");
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

// Adapter descriptions are UTF-16 in JavaScript and wide strings (UTF-32 here) in the platform.
std::wstring wideFrom(const Napi::String& text) {
  std::u16string units = text.Utf16Value();
  std::wstring wide;
  for (size_t i = 0; i < units.size(); ++i) {
    char32_t c = units[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000)
      c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
    wide.push_back(wchar_t(c));
  }
  return wide;
}

Napi::String stringFrom(Napi::Env env, const std::wstring& wide) {
  std::u16string units;
  for (wchar_t w : wide) {
    char32_t c = char32_t(w);
    if (c >= 0x10000) {
      units.push_back(char16_t(0xD800 + ((c - 0x10000) >> 10)));
      units.push_back(char16_t(0xDC00 + ((c - 0x10000) & 0x3FF)));
    } else {
      units.push_back(char16_t(c));
    }
  }
  return Napi::String::New(env, units);
}

int32_t optionalInt(const Napi::Object& object, const char* key, int32_t fallback) {
  Napi::Value value = object.Get(key);
  return value.IsNumber() ? value.As<Napi::Number>().Int32Value() : fallback;
}

bool optionalBool(const Napi::Object& object, const char* key, bool fallback) {
  Napi::Value value = object.Get(key);
  return value.IsBoolean() ? value.As<Napi::Boolean>().Value() : fallback;
}

// setMachine({ adapters: [{ vendorId, deviceId, description, outputs: [{ width, height, left, top }] }],
//              display, refreshRate, nvencInstalled, mfSoftwareClass, mfSoftwareTransforms,
//              mfHardwareTransform, mfHardwareAdapter, mfSlicelessAfter, nvencApiVersion,
//              nvencMissingFunctions: [name, ...], nvencBitstreamLimit, nvencSessionLimit })
Napi::Value SetMachine(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  if (info.Length() < 1 || !info[0].IsObject() || !info[0].As<Napi::Object>().Get("adapters").IsArray()) {
    Napi::TypeError::New(env, "setMachine expects { adapters: [...] }").ThrowAsJavaScriptException();
    return env.Undefined();
  }
  Napi::Array adapters = info[0].As<Napi::Object>().Get("adapters").As<Napi::Array>();
  control::MachineDescription machine;
  for (uint32_t i = 0; i < adapters.Length(); ++i) {
    if (!adapters.Get(i).IsObject()) {
      Napi::TypeError::New(env, "setMachine: each adapter is an object").ThrowAsJavaScriptException();
      return env.Undefined();
    }
    Napi::Object source = adapters.Get(i).As<Napi::Object>();
    control::AdapterDescription adapter;
    adapter.vendorId = optionalUint(source, "vendorId", adapter.vendorId);
    adapter.deviceId = optionalUint(source, "deviceId", adapter.deviceId);
    if (source.Get("description").IsString()) adapter.description = wideFrom(source.Get("description").As<Napi::String>());
    Napi::Value outputs = source.Get("outputs");
    if (outputs.IsArray()) {
      Napi::Array list = outputs.As<Napi::Array>();
      for (uint32_t k = 0; k < list.Length(); ++k) {
        if (!list.Get(k).IsObject()) continue;
        Napi::Object o = list.Get(k).As<Napi::Object>();
        control::OutputDescription output;
        output.width = optionalInt(o, "width", output.width);
        output.height = optionalInt(o, "height", output.height);
        output.left = optionalInt(o, "left", output.left);
        output.top = optionalInt(o, "top", output.top);
        adapter.outputs.push_back(output);
      }
    }
    machine.adapters.push_back(adapter);
  }
  Napi::Object description = info[0].As<Napi::Object>();
  if (description.Get("display").IsString()) machine.display = description.Get("display").As<Napi::String>().Utf8Value();
  machine.refreshRate = optionalUint(description, "refreshRate", machine.refreshRate);
  machine.nvencInstalled = optionalBool(description, "nvencInstalled", machine.nvencInstalled);
  machine.mfSoftwareClass = optionalBool(description, "mfSoftwareClass", machine.mfSoftwareClass);
  machine.mfSoftwareTransforms = optionalBool(description, "mfSoftwareTransforms", machine.mfSoftwareTransforms);
  machine.mfHardwareTransform = optionalBool(description, "mfHardwareTransform", machine.mfHardwareTransform);
  machine.mfHardwareAdapter = optionalUint(description, "mfHardwareAdapter", machine.mfHardwareAdapter);
  machine.mfSlicelessAfter = optionalUint(description, "mfSlicelessAfter", machine.mfSlicelessAfter);
  // The NVENC driver: its API version and the table entries it lacks.
  machine.nvencApiVersion = optionalUint(description, "nvencApiVersion", machine.nvencApiVersion);
  machine.nvencBitstreamLimit = optionalUint(description, "nvencBitstreamLimit", machine.nvencBitstreamLimit);
  machine.nvencSessionLimit = optionalUint(description, "nvencSessionLimit", machine.nvencSessionLimit);
  if (description.Get("nvencMissingFunctions").IsArray()) {
    Napi::Array missing = description.Get("nvencMissingFunctions").As<Napi::Array>();
    for (uint32_t i = 0; i < missing.Length(); ++i)
      if (missing.Get(i).IsString()) machine.nvencMissingFunctions.push_back(missing.Get(i).As<Napi::String>());
  }
  control::setMachine(machine);
  return env.Undefined();
}

Napi::Value CurrentMachine(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  control::MachineDescription machine = control::currentMachine();
  Napi::Array adapters = Napi::Array::New(env, machine.adapters.size());
  for (uint32_t i = 0; i < machine.adapters.size(); ++i) {
    const control::AdapterDescription& adapter = machine.adapters[i];
    Napi::Object entry = Napi::Object::New(env);
    entry.Set("vendorId", Napi::Number::New(env, adapter.vendorId));
    entry.Set("deviceId", Napi::Number::New(env, adapter.deviceId));
    entry.Set("description", stringFrom(env, adapter.description));
    Napi::Array outputs = Napi::Array::New(env, adapter.outputs.size());
    for (uint32_t k = 0; k < adapter.outputs.size(); ++k) {
      Napi::Object o = Napi::Object::New(env);
      o.Set("width", Napi::Number::New(env, adapter.outputs[k].width));
      o.Set("height", Napi::Number::New(env, adapter.outputs[k].height));
      o.Set("left", Napi::Number::New(env, adapter.outputs[k].left));
      o.Set("top", Napi::Number::New(env, adapter.outputs[k].top));
      outputs.Set(k, o);
    }
    entry.Set("outputs", outputs);
    adapters.Set(i, entry);
  }
  Napi::Object result = Napi::Object::New(env);
  result.Set("adapters", adapters);
  result.Set("display", Napi::String::New(env, machine.display));
  result.Set("refreshRate", Napi::Number::New(env, machine.refreshRate));
  result.Set("nvencInstalled", Napi::Boolean::New(env, machine.nvencInstalled));
  result.Set("mfSoftwareClass", Napi::Boolean::New(env, machine.mfSoftwareClass));
  result.Set("mfSoftwareTransforms", Napi::Boolean::New(env, machine.mfSoftwareTransforms));
  result.Set("mfHardwareTransform", Napi::Boolean::New(env, machine.mfHardwareTransform));
  result.Set("mfHardwareAdapter", Napi::Number::New(env, machine.mfHardwareAdapter));
  result.Set("mfSlicelessAfter", Napi::Number::New(env, machine.mfSlicelessAfter));
  return result;
}

Napi::Value DebugLayerViolations(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), double(control::debugLayerViolations()));
}

Napi::Value DebugLayerMessages(const Napi::CallbackInfo& info) {
  std::vector<std::string> messages = control::debugLayerMessages();
  Napi::Array result = Napi::Array::New(info.Env(), messages.size());
  for (uint32_t i = 0; i < messages.size(); ++i) result.Set(i, Napi::String::New(info.Env(), messages[i]));
  return result;
}

Napi::Value LiveObjects(const Napi::CallbackInfo& info) {
  Napi::Object result = Napi::Object::New(info.Env());
  for (const auto& [name, count] : control::liveObjects()) result.Set(name, Napi::Number::New(info.Env(), double(count)));
  return result;
}

Napi::Value TotalLiveObjects(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), double(control::totalLiveObjects()));
}

Napi::Value OpenHandleCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), double(control::openHandleCount()));
}

// Open apartments across the process: the add-on's threads are not the caller's.
Napi::Value ApartmentCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), control::processApartmentCount());
}

Napi::Value LiveStringCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), double(control::liveStringCount()));
}

// Media Foundation startups not yet shut down, across the process.
// Winsock references not yet cleaned up, and sockets not yet closed.
Napi::Value WinsockStartupCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), control::winsockStartupCount());
}

Napi::Value OpenSocketCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), control::openSocketCount());
}

Napi::Value MfStartupCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), control::mfStartupCount());
}

// NVENC encode sessions not yet destroyed, across the process.
Napi::Value NvencOpenSessionCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), control::nvencOpenSessionCount());
}

Napi::Value CreateDeviceCalls(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  std::vector<control::CreateDeviceCall> calls = control::createDeviceCalls();
  Napi::Array result = Napi::Array::New(env, calls.size());
  for (uint32_t i = 0; i < calls.size(); ++i) {
    const control::CreateDeviceCall& call = calls[i];
    Napi::Object entry = Napi::Object::New(env);
    entry.Set("adapterGiven", Napi::Boolean::New(env, call.adapterGiven));
    entry.Set("driverType", Napi::Number::New(env, call.driverType));
    entry.Set("softwareModule", Napi::Boolean::New(env, call.softwareModule));
    entry.Set("flags", Napi::Number::New(env, call.flags));
    Napi::Array levels = Napi::Array::New(env, call.featureLevels.size());
    for (uint32_t k = 0; k < call.featureLevels.size(); ++k)
      levels.Set(k, Napi::Number::New(env, call.featureLevels[k]));
    entry.Set("featureLevels", levels);
    entry.Set("sdkVersion", Napi::Number::New(env, call.sdkVersion));
    result.Set(i, entry);
  }
  return result;
}

Napi::Value KeyedMutexCalls(const Napi::CallbackInfo& info) {
  Napi::Env env = info.Env();
  std::vector<control::KeyedMutexCall> calls = control::keyedMutexCalls();
  Napi::Array result = Napi::Array::New(env, calls.size());
  for (uint32_t i = 0; i < calls.size(); ++i) {
    Napi::Object entry = Napi::Object::New(env);
    entry.Set("release", Napi::Boolean::New(env, calls[i].release));
    entry.Set("key", Napi::Number::New(env, double(calls[i].key)));
    entry.Set("contextFlushed", Napi::Boolean::New(env, calls[i].contextFlushed));
    result.Set(i, entry);
  }
  return result;
}

Napi::Value ClearCallRecords(const Napi::CallbackInfo& info) {
  control::clearCallRecords();
  return info.Env().Undefined();
}

// Synthetic windows. Handles are below 2^53, so JavaScript numbers hold them exactly; colours
// are 0xAARRGGBB.
bool readNumbers(const Napi::CallbackInfo& info, size_t count, std::vector<double>* out) {
  for (size_t i = 0; i < count; ++i) {
    if (info.Length() <= i || !info[i].IsNumber()) {
      Napi::TypeError::New(info.Env(), "expected " + std::to_string(count) + " numbers").ThrowAsJavaScriptException();
      return false;
    }
    out->push_back(info[i].As<Napi::Number>().DoubleValue());
  }
  return true;
}

// openWindow(width, height, colour) -> handle, 0 for a bad size
Napi::Value OpenWindow(const Napi::CallbackInfo& info) {
  std::vector<double> n;
  if (!readNumbers(info, 3, &n)) return info.Env().Undefined();
  return Napi::Number::New(info.Env(), double(control::openWindow(int32_t(n[0]), int32_t(n[1]), uint32_t(n[2]))));
}

// fillWindow(handle, colour) -> boolean
Napi::Value FillWindow(const Napi::CallbackInfo& info) {
  std::vector<double> n;
  if (!readNumbers(info, 2, &n)) return info.Env().Undefined();
  return Napi::Boolean::New(info.Env(), control::fillWindow(uint64_t(n[0]), uint32_t(n[1])));
}

// drawWindowRect(handle, left, top, width, height, colour) -> boolean
Napi::Value DrawWindowRect(const Napi::CallbackInfo& info) {
  std::vector<double> n;
  if (!readNumbers(info, 6, &n)) return info.Env().Undefined();
  return Napi::Boolean::New(info.Env(), control::drawWindowRect(uint64_t(n[0]), int32_t(n[1]), int32_t(n[2]),
                                                                int32_t(n[3]), int32_t(n[4]), uint32_t(n[5])));
}

// resizeWindow(handle, width, height) -> boolean
Napi::Value ResizeWindow(const Napi::CallbackInfo& info) {
  std::vector<double> n;
  if (!readNumbers(info, 3, &n)) return info.Env().Undefined();
  return Napi::Boolean::New(info.Env(), control::resizeWindow(uint64_t(n[0]), int32_t(n[1]), int32_t(n[2])));
}

// closeWindow(handle) -> boolean
Napi::Value CloseWindow(const Napi::CallbackInfo& info) {
  std::vector<double> n;
  if (!readNumbers(info, 1, &n)) return info.Env().Undefined();
  return Napi::Boolean::New(info.Env(), control::closeWindow(uint64_t(n[0])));
}

Napi::Value OpenWindowCount(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), control::openWindowCount());
}

Napi::Value Reset(const Napi::CallbackInfo& info) {
  control::reset();
  return info.Env().Undefined();
}

Napi::Object Init(Napi::Env env, Napi::Object exports) {
  exports.Set("planFault", Napi::Function::New(env, PlanFault, "planFault"));
  exports.Set("winsockStartupCount", Napi::Function::New(env, WinsockStartupCount, "winsockStartupCount"));
  exports.Set("openSocketCount", Napi::Function::New(env, OpenSocketCount, "openSocketCount"));
  exports.Set("clearFaults", Napi::Function::New(env, ClearFaults, "clearFaults"));
  exports.Set("callCount", Napi::Function::New(env, CallCount, "callCount"));
  exports.Set("debugOutput", Napi::Function::New(env, DebugOutput, "debugOutput"));
  exports.Set("clearDebugOutput", Napi::Function::New(env, ClearDebugOutput, "clearDebugOutput"));
  exports.Set("writeDebugOutput", Napi::Function::New(env, WriteDebugOutput, "writeDebugOutput"));
  exports.Set("datagramsSent", Napi::Function::New(env, DatagramsSent, "datagramsSent"));
  exports.Set("setMachine", Napi::Function::New(env, SetMachine, "setMachine"));
  exports.Set("currentMachine", Napi::Function::New(env, CurrentMachine, "currentMachine"));
  exports.Set("debugLayerViolations", Napi::Function::New(env, DebugLayerViolations, "debugLayerViolations"));
  exports.Set("debugLayerMessages", Napi::Function::New(env, DebugLayerMessages, "debugLayerMessages"));
  exports.Set("liveObjects", Napi::Function::New(env, LiveObjects, "liveObjects"));
  exports.Set("totalLiveObjects", Napi::Function::New(env, TotalLiveObjects, "totalLiveObjects"));
  exports.Set("openHandleCount", Napi::Function::New(env, OpenHandleCount, "openHandleCount"));
  exports.Set("apartmentCount", Napi::Function::New(env, ApartmentCount, "apartmentCount"));
  exports.Set("liveStringCount", Napi::Function::New(env, LiveStringCount, "liveStringCount"));
  exports.Set("mfStartupCount", Napi::Function::New(env, MfStartupCount, "mfStartupCount"));
  exports.Set("nvencOpenSessionCount", Napi::Function::New(env, NvencOpenSessionCount, "nvencOpenSessionCount"));
  exports.Set("createDeviceCalls", Napi::Function::New(env, CreateDeviceCalls, "createDeviceCalls"));
  exports.Set("keyedMutexCalls", Napi::Function::New(env, KeyedMutexCalls, "keyedMutexCalls"));
  exports.Set("clearCallRecords", Napi::Function::New(env, ClearCallRecords, "clearCallRecords"));
  exports.Set("openWindow", Napi::Function::New(env, OpenWindow, "openWindow"));
  exports.Set("fillWindow", Napi::Function::New(env, FillWindow, "fillWindow"));
  exports.Set("drawWindowRect", Napi::Function::New(env, DrawWindowRect, "drawWindowRect"));
  exports.Set("resizeWindow", Napi::Function::New(env, ResizeWindow, "resizeWindow"));
  exports.Set("closeWindow", Napi::Function::New(env, CloseWindow, "closeWindow"));
  exports.Set("openWindowCount", Napi::Function::New(env, OpenWindowCount, "openWindowCount"));
  exports.Set("reset", Napi::Function::New(env, Reset, "reset"));
  // The desktop behind Desktop Duplication.
  platform::control::node::addDesktopFunctions(env, exports);
  return exports;
}

}  // namespace

NODE_API_MODULE(platform_control, Init)
