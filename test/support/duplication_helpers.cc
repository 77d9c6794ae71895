#include "test/support/duplication_helpers.h"

namespace control = platform::control;

namespace testing_support {

control::MachineDescription smallDesktop(uint32_t width, uint32_t height, uint32_t refreshRate, int outputs) {
  control::AdapterDescription nvidia = adapter(0x10DE, 0x2484, outputs);
  for (control::OutputDescription& output : nvidia.outputs) {
    output.width = int32_t(width);
    output.height = int32_t(height);
  }
  control::MachineDescription machine = machineOf({nvidia});
  machine.refreshRate = refreshRate;
  return machine;
}

DuplicationTarget duplicationTarget(UINT adapterIndex, UINT outputIndex) {
  DuplicationTarget target;
  CountedRef<IDXGIAdapter1> adapter = adapterAt(adapterIndex);
  if (!adapter) return target;
  target.d3d = makeDevice(adapter.get());
  CountedRef<IDXGIOutput> output;
  if (FAILED(adapter->EnumOutputs(outputIndex, output.put()))) return target;
  target.output.queryFrom(output.get());
  return target;
}

double millisecondsOf(const std::function<void()>& body) {
  auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace testing_support
