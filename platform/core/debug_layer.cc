#include "platform/core/debug_layer.h"

#include <deque>
#include <mutex>

#include "platform/control/machine_control.h"
#include "windows.h"

namespace platform {
namespace {

constexpr size_t kKeptMessages = 10000;

struct DebugLayer {
  std::mutex mutex;
  uint64_t violations = 0;
  std::deque<std::string> messages;
};

DebugLayer& layer() {
  static DebugLayer* instance = new DebugLayer;  // outlives objects destroyed at exit
  return *instance;
}

}  // namespace

void debugLayerViolation(const std::string& what) {
  {
    DebugLayer& l = layer();
    std::lock_guard<std::mutex> lock(l.mutex);
    ++l.violations;
    l.messages.push_back(what);
    if (l.messages.size() > kKeptMessages) l.messages.pop_front();
  }
  OutputDebugStringA(("D3D11 ERROR: " + what + "\n").c_str());
}

namespace control {

uint64_t debugLayerViolations() {
  DebugLayer& l = layer();
  std::lock_guard<std::mutex> lock(l.mutex);
  return l.violations;
}

std::vector<std::string> debugLayerMessages() {
  DebugLayer& l = layer();
  std::lock_guard<std::mutex> lock(l.mutex);
  return {l.messages.begin(), l.messages.end()};
}

void resetDebugLayer() {
  DebugLayer& l = layer();
  std::lock_guard<std::mutex> lock(l.mutex);
  l.violations = 0;
  l.messages.clear();
}

}  // namespace control
}  // namespace platform
