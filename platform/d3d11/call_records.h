// Arguments of calls that tests read back through the control interface, where a call count
// alone can't tell a right call from a wrong one.
#pragma once

#include "platform/control/machine_control.h"

namespace platform::d3d11 {

void recordCreateDevice(const control::CreateDeviceCall& call);
void recordKeyedMutex(const control::KeyedMutexCall& call);

}  // namespace platform::d3d11
