// The token that an event's add_ method hands back for the matching remove_.
#pragma once

#include "windef.h"

struct EventRegistrationToken {
  INT64 value;
};
typedef struct EventRegistrationToken EventRegistrationToken;
