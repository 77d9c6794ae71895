// Node-API failures as JavaScript exceptions, in Node-API's own words.
#pragma once

#include <node_api.h>

// False for napi_ok. Otherwise throws the error of the failed call (a TypeError where a value had
// the wrong type: "A number was expected", ...) unless an exception is already pending, and
// answers true, so that the caller stops where it is.
bool throwIfFailed(napi_env env, napi_status status);
