// OutputDebugStringA: the platform keeps every text for the control interface, and echoes it
// to stderr when KESTRANE_PLATFORM_ECHO is set (what a debugger would show on Windows).
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>

#include "platform/control/platform_control.h"
#include "platform/core/call_gate.h"
#include "windows.h"

namespace {

constexpr size_t kKeptLines = 100000;

struct DebugOutput {
  std::mutex mutex;
  std::deque<std::string> lines;
  bool echo = std::getenv("KESTRANE_PLATFORM_ECHO") != nullptr;
};

DebugOutput& output() {
  // Never destroyed: threads of the host may still call in while the process exits.
  static DebugOutput* instance = new DebugOutput;
  return *instance;
}

}  // namespace

void WINAPI OutputDebugStringA(LPCSTR lpOutputString) {
  // It has no result to fail with: a planned failure loses the text, as it goes nowhere on
  // Windows when nobody listens.
  int64_t ignored = 0;
  if (platform::plannedFault("OutputDebugStringA", &ignored) || lpOutputString == nullptr) return;
  DebugOutput& out = output();
  std::lock_guard<std::mutex> lock(out.mutex);
  out.lines.emplace_back(lpOutputString);
  if (out.lines.size() > kKeptLines) out.lines.pop_front();
  if (out.echo) std::fputs(lpOutputString, stderr);
}

namespace platform::control {

std::vector<std::string> debugOutput() {
  DebugOutput& out = output();
  std::lock_guard<std::mutex> lock(out.mutex);
  return {out.lines.begin(), out.lines.end()};
}

void clearDebugOutput() {
  DebugOutput& out = output();
  std::lock_guard<std::mutex> lock(out.mutex);
  out.lines.clear();
}

}  // namespace platform::control
