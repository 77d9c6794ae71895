// The machine description as DXGI serves it: what a factory sees when it is created.
#pragma once

#include <cstdint>

#include "platform/control/machine_control.h"
#include "windef.h"

namespace platform::dxgi {

struct MachineSnapshot {
  control::MachineDescription machine;
  uint32_t generation = 0;  // changes with every setMachine, so LUIDs of new adapters are new
};

MachineSnapshot machineSnapshot();

// Locally unique per adapter of one machine description, stable across factories.
LUID adapterLuid(uint32_t generation, uint32_t adapterIndex);

}  // namespace platform::dxgi
