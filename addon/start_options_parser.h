// Turns the options object of start() into StartOptions. Values are never coerced: a number must
// be a JavaScript number, a string a JavaScript string.
#pragma once

#include <node_api.h>

#include "session/start_options.h"

// False: a key couldn't be read; its Node-API error is pending and the later keys weren't read.
bool parseStartOptions(napi_env env, napi_value object, StartOptions& options);
