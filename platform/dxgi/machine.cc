#include "platform/dxgi/machine.h"

#include <cstdlib>
#include <mutex>

#include "platform/desktop/desktop_model.h"
#include "platform/desktop/x_screen.h"

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

MachineDescription syntheticMachine() {
  AdapterDescription adapter;
  adapter.outputs.push_back(OutputDescription{});
  MachineDescription machine;
  machine.adapters.push_back(adapter);
  return machine;
}

MachineDescription defaultMachine() {
  MachineDescription machine = syntheticMachine();
  const char* display = std::getenv("DISPLAY");
  if (display == nullptr || display[0] == '\0') return machine;
  machine.display = display;
  uint32_t width = 0, height = 0;
  if (desktop::xScreenSize(machine.display, width, height)) {
    machine.adapters[0].outputs[0].width = int32_t(width);
    machine.adapters[0].outputs[0].height = int32_t(height);
  }
  return machine;
}

void setMachine(const MachineDescription& machine) {
  {
    dxgi::MachineState& s = dxgi::state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.machine = machine;
    ++s.generation;
  }
  // Duplications of the old machine's outputs are lost at once, waits included.
  desktop::retireAll();
}

MachineDescription currentMachine() {
  dxgi::MachineState& s = dxgi::state();
  std::lock_guard<std::mutex> lock(s.mutex);
  return s.machine;
}

}  // namespace control
}  // namespace platform
