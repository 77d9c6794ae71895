// The text of an HSTRING for the platform's own use, without passing the fault plan.
#pragma once

#include <string>

#include "hstring.h"

namespace platform {

std::wstring stringText(HSTRING string);

}  // namespace platform
