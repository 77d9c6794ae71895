#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "platform/control/platform_control.h"
#include "platform/core/call_gate.h"

namespace platform {
namespace {

struct PlannedFault {
  control::Fault fault;
  uint64_t seen = 0;  // matching calls since planning
};

struct FaultPlan {
  std::mutex mutex;
  std::vector<PlannedFault> faults;
  std::unordered_map<std::string, uint64_t> counts;
  uint64_t datagrams = 0;
};

FaultPlan& plan() {
  static FaultPlan instance;
  return instance;
}

bool affects(const PlannedFault& planned) {
  const control::Fault& fault = planned.fault;
  if (planned.seen <= fault.after) return false;
  return fault.times == 0 || planned.seen <= uint64_t(fault.after) + fault.times;
}

}  // namespace

bool plannedFault(const char* call, int64_t* value) {
  FaultPlan& p = plan();
  uint32_t delayMs = 0;
  bool fails = false;
  {
    std::lock_guard<std::mutex> lock(p.mutex);
    ++p.counts[call];
    for (PlannedFault& planned : p.faults) {
      if (planned.fault.call != call) continue;
      ++planned.seen;
      if (!affects(planned)) continue;
      delayMs = std::max(delayMs, planned.fault.delayMs);
      if (planned.fault.fails && !fails) {
        fails = true;
        *value = planned.fault.value;
      }
    }
  }
  if (delayMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
  return fails;
}

int32_t plannedHresult(const char* call) {
  int64_t value = 0;
  return plannedFault(call, &value) ? int32_t(value) : 0;
}

void countDatagram() {
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  ++p.datagrams;
}

namespace control {

void planFault(const Fault& fault) {
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  p.faults.push_back({fault, 0});
}

void failOnce(const std::string& call, int64_t value) { failTimes(call, value, 1); }

void failTimes(const std::string& call, int64_t value, uint32_t times) {
  planFault({call, value, 0, times, 0, true});
}

void failFrom(const std::string& call, int64_t value, uint32_t nth) {
  planFault({call, value, nth > 0 ? nth - 1 : 0, 0, 0, true});
}

void delayCall(const std::string& call, uint32_t milliseconds, uint32_t times) {
  planFault({call, 0, 0, times, milliseconds, false});
}

void clearFaults() {
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  p.faults.clear();
}

uint64_t callCount(const std::string& call) {
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  auto found = p.counts.find(call);
  return found == p.counts.end() ? 0 : found->second;
}

void resetCallCounts() {
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  p.counts.clear();
  p.datagrams = 0;
}

uint64_t datagramsSent() {
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  return p.datagrams;
}

void reset() {
  clearFaults();
  resetCallCounts();
  clearDebugOutput();
}

}  // namespace control
}  // namespace platform
