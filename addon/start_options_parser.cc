#include "addon/start_options_parser.h"

#include <string>

#include "addon/node_api_errors.h"

namespace {

// Each reader answers false with the Node-API error pending.
class OptionReader {
 public:
  OptionReader(napi_env env, napi_value object) : env(env), object(object) {}

  bool has(const char* key, bool& present) { return !throwIfFailed(env, napi_has_named_property(env, object, key, &present)); }
  bool value(const char* key, napi_value& result) {
    return !throwIfFailed(env, napi_get_named_property(env, object, key, &result));
  }
  bool int32(const char* key, int32_t& result) {
    napi_value v;
    return value(key, v) && !throwIfFailed(env, napi_get_value_int32(env, v, &result));
  }
  bool uint32(const char* key, uint32_t& result) {
    napi_value v;
    return value(key, v) && !throwIfFailed(env, napi_get_value_uint32(env, v, &result));
  }
  bool int64(const char* key, int64_t& result) {
    napi_value v;
    return value(key, v) && !throwIfFailed(env, napi_get_value_int64(env, v, &result));
  }
  // Asks for the length first, then reads into a buffer one byte longer.
  bool string(const char* key, std::string& result) {
    napi_value v;
    size_t length = 0;
    if (!value(key, v) || throwIfFailed(env, napi_get_value_string_utf8(env, v, nullptr, 0, &length))) return false;
    std::string text(length + 1, '\0');
    size_t copied = 0;
    if (throwIfFailed(env, napi_get_value_string_utf8(env, v, text.data(), text.size(), &copied))) return false;
    text.resize(copied);
    result = std::move(text);
    return true;
  }
  // An optional key: absent leaves `present` false and reads nothing.
  bool optionalString(const char* key, bool& present, std::string& result) {
    return has(key, present) && (!present || string(key, result));
  }

 private:
  napi_env env;
  napi_value object;
};

}  // namespace

bool parseStartOptions(napi_env env, napi_value object, StartOptions& options) {
  OptionReader reader(env, object);
  bool present = false;
  std::string text;

  if (!reader.optionalString("captureKind", present, text)) return false;
  options.captureKind = present && text == "screen" ? CaptureKind::Screen : CaptureKind::Window;
  if (!reader.has("nativeHandle", present)) return false;
  options.nativeHandle = 0;
  if (present && !reader.int64("nativeHandle", options.nativeHandle)) return false;
  if (!reader.int32("width", options.width) || !reader.int32("height", options.height) ||
      !reader.int32("fps", options.fps) || !reader.int32("bitrate", options.bitrate))
    return false;

  text.clear();
  if (!reader.optionalString("encoder", present, text)) return false;
  options.encoder = text == "nvenc"     ? EncoderPreference::Nvenc
                    : text == "mf-h264" ? EncoderPreference::MediaFoundation
                                        : EncoderPreference::Auto;

  napi_value rtpTarget;
  napi_valuetype type = napi_undefined;
  if (!reader.value("rtpTarget", rtpTarget) || throwIfFailed(env, napi_typeof(env, rtpTarget, &type))) return false;
  // Reading a key of undefined would throw V8's own words; a primitive would be wrapped. Neither
  // is an object, and the error says so as Node-API does.
  if (type != napi_object && type != napi_function) {
    napi_throw_type_error(env, nullptr, "An object was expected");
    return false;
  }
  OptionReader target(env, rtpTarget);
  uint32_t port = 0;
  if (!target.string("ip", options.ip) || !target.uint32("port", port)) return false;
  options.port = static_cast<uint16_t>(port & 0xFFFF);

  uint32_t payloadType = 0;
  if (!reader.uint32("ssrc", options.ssrc) || !reader.uint32("payloadType", payloadType)) return false;
  options.payloadType = static_cast<uint8_t>(payloadType & 0xFF);
  return true;
}
