#include "platform/dxgi/machine.h"

#include <mutex>

namespace platform {
namespace dxgi {
namespace {

struct MachineState {
  std::mutex mutex;
  control::MachineDescription machine = control::defaultMachine();
  uint32_t generation = 1;
};

MachineState& state() {
  static MachineState* instance = new MachineState;
  return *instance;
}

}  // namespace

MachineSnapshot machineSnapshot() {
  MachineState& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  return {s.machine, s.generation};
}

LUID adapterLuid(uint32_t generation, uint32_t adapterIndex) {
  return {DWORD(0x00010000u + (generation << 8) + adapterIndex), 0};
}

}  // namespace dxgi

namespace control {

MachineDescription defaultMachine() {
  AdapterDescription adapter;
  adapter.outputs.push_back(OutputDescription{});
  MachineDescription machine;
  machine.adapters.push_back(adapter);
  return machine;
}

void setMachine(const MachineDescription& machine) {
  dxgi::MachineState& s = dxgi::state();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.machine = machine;
  ++s.generation;
}

MachineDescription currentMachine() {
  dxgi::MachineState& s = dxgi::state();
  std::lock_guard<std::mutex> lock(s.mutex);
  return s.machine;
}

}  // namespace control
}  // namespace platform
