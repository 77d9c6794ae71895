// The desktop's control functions for JavaScript; included by the control module only.
#pragma once

#include <napi.h>

#include "platform/control/desktop_control.h"

namespace platform::control::node {

// The unsigned 32-bit arguments from `first` on; false (with a TypeError pending) if one is missing.
inline bool uintArguments(const Napi::CallbackInfo& info, size_t first, size_t count, uint32_t* out) {
  for (size_t i = 0; i < count; ++i) {
    if (info.Length() <= first + i || !info[first + i].IsNumber()) {
      Napi::TypeError::New(info.Env(), "expected numbers").ThrowAsJavaScriptException();
      return false;
    }
    out[i] = info[first + i].As<Napi::Number>().Uint32Value();
  }
  return true;
}

// fillOutput(output, 0xAARRGGBB) -> bool
inline Napi::Value FillOutput(const Napi::CallbackInfo& info) {
  uint32_t a[2];
  if (!uintArguments(info, 0, 2, a)) return info.Env().Undefined();
  return Napi::Boolean::New(info.Env(), fillOutput(a[0], a[1]));
}

inline Napi::Value FreezeOutput(const Napi::CallbackInfo& info) {
  uint32_t a[1];
  if (!uintArguments(info, 0, 1, a)) return info.Env().Undefined();
  return Napi::Boolean::New(info.Env(), freezeOutput(a[0]));
}

inline Napi::Value AnimateOutput(const Napi::CallbackInfo& info) {
  uint32_t a[1];
  if (!uintArguments(info, 0, 1, a)) return info.Env().Undefined();
  return Napi::Boolean::New(info.Env(), animateOutput(a[0]));
}

// movePointer(output, x, y) -> bool
inline Napi::Value MovePointer(const Napi::CallbackInfo& info) {
  uint32_t a[1];
  if (!uintArguments(info, 0, 1, a)) return info.Env().Undefined();
  if (info.Length() < 3 || !info[1].IsNumber() || !info[2].IsNumber()) {
    Napi::TypeError::New(info.Env(), "expected numbers").ThrowAsJavaScriptException();
    return info.Env().Undefined();
  }
  return Napi::Boolean::New(info.Env(), movePointer(a[0], info[1].As<Napi::Number>().Int32Value(),
                                                    info[2].As<Napi::Number>().Int32Value()));
}

// setOutputMode(output, width, height) -> bool
inline Napi::Value SetOutputMode(const Napi::CallbackInfo& info) {
  uint32_t a[3];
  if (!uintArguments(info, 0, 3, a)) return info.Env().Undefined();
  return Napi::Boolean::New(info.Env(), setOutputMode(a[0], a[1], a[2]));
}

inline Napi::Value SwitchDesktop(const Napi::CallbackInfo& info) {
  switchDesktop();
  return info.Env().Undefined();
}

// latestPresentTime(output) -> performance-counter ticks (10 MHz), exact below 2^53
inline Napi::Value LatestPresentTime(const Napi::CallbackInfo& info) {
  uint32_t a[1];
  if (!uintArguments(info, 0, 1, a)) return info.Env().Undefined();
  return Napi::Number::New(info.Env(), double(latestPresentTime(a[0])));
}

inline void addDesktopFunctions(Napi::Env env, Napi::Object exports) {
  exports.Set("fillOutput", Napi::Function::New(env, FillOutput, "fillOutput"));
  exports.Set("freezeOutput", Napi::Function::New(env, FreezeOutput, "freezeOutput"));
  exports.Set("animateOutput", Napi::Function::New(env, AnimateOutput, "animateOutput"));
  exports.Set("movePointer", Napi::Function::New(env, MovePointer, "movePointer"));
  exports.Set("setOutputMode", Napi::Function::New(env, SetOutputMode, "setOutputMode"));
  exports.Set("switchDesktop", Napi::Function::New(env, SwitchDesktop, "switchDesktop"));
  exports.Set("latestPresentTime", Napi::Function::New(env, LatestPresentTime, "latestPresentTime"));
}

}  // namespace platform::control::node
