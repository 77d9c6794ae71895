#include "addon/node_api_errors.h"

bool throwIfFailed(napi_env env, napi_status status) {
  if (status == napi_ok) return false;
  // The error info belongs to the last call, so it is read before asking about exceptions.
  const napi_extended_error_info* info = nullptr;
  const char* message = nullptr;
  if (napi_get_last_error_info(env, &info) == napi_ok && info != nullptr) message = info->error_message;
  if (message == nullptr) message = "Error in native callback";
  bool pending = false;
  if (napi_is_exception_pending(env, &pending) != napi_ok || pending) return true;
  switch (status) {
    case napi_object_expected:
    case napi_string_expected:
    case napi_number_expected:
    case napi_boolean_expected:
    case napi_bigint_expected:
      napi_throw_type_error(env, nullptr, message);
      break;
    default:
      napi_throw_error(env, nullptr, message);
      break;
  }
  return true;
}
