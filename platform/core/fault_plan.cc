#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "platform/control/clock_control.h"
#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "platform/control/window_control.h"
#include "platform/core/call_gate.h"

namespace platform {
namespace {

// One counter per call name. Sites live for the process, so a thread may cache their addresses.
struct CallSite {
  std::atomic<uint64_t> calls{0};
};

struct PlannedFault {
  control::Fault fault;
  uint64_t seen = 0;  // matching calls since planning
};

struct FaultPlan {
  std::mutex mutex;
  std::unordered_map<std::string, CallSite*> sites;
  std::deque<CallSite> siteStore;
  std::vector<PlannedFault> faults;
  std::atomic<size_t> plannedCount{0};  // lets the common case, no fault at all, skip the lock
  std::atomic<uint64_t> datagrams{0};
};

FaultPlan& plan() {
  // Never destroyed: threads of the host may still call in while the process exits.
  static FaultPlan* instance = new FaultPlan;
  return *instance;
}

CallSite& siteNamed(FaultPlan& p, const std::string& name) {
  CallSite*& site = p.sites[name];
  if (site == nullptr) site = &p.siteStore.emplace_back();
  return *site;
}

// Call names are string literals: each thread remembers the site of each literal it has used.
CallSite& siteOf(const char* call) {
  thread_local std::unordered_map<const char*, CallSite*> cache;
  auto found = cache.find(call);
  if (found != cache.end()) return *found->second;
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  CallSite& site = siteNamed(p, call);
  cache.emplace(call, &site);
  return site;
}

bool affects(const PlannedFault& planned) {
  const control::Fault& fault = planned.fault;
  if (planned.seen <= fault.after) return false;
  return fault.times == 0 || planned.seen <= uint64_t(fault.after) + fault.times;
}

}  // namespace

bool plannedFault(const char* call, int64_t* value) {
  siteOf(call).calls.fetch_add(1, std::memory_order_relaxed);
  FaultPlan& p = plan();
  if (p.plannedCount.load(std::memory_order_acquire) == 0) return false;
  uint32_t delayMs = 0;
  bool fails = false;
  {
    std::lock_guard<std::mutex> lock(p.mutex);
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

void countDatagram() { plan().datagrams.fetch_add(1, std::memory_order_relaxed); }

namespace control {

void planFault(const Fault& fault) {
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  p.faults.push_back({fault, 0});
  p.plannedCount.store(p.faults.size(), std::memory_order_release);
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
  p.plannedCount.store(0, std::memory_order_release);
}

uint64_t callCount(const std::string& call) {
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  auto found = p.sites.find(call);
  return found == p.sites.end() ? 0 : found->second->calls.load();
}

void resetCallCounts() {
  FaultPlan& p = plan();
  std::lock_guard<std::mutex> lock(p.mutex);
  for (CallSite& site : p.siteStore) site.calls.store(0);
  p.datagrams.store(0);
}

uint64_t datagramsSent() { return plan().datagrams.load(); }

void reset() {
  clearFaults();
  resetCallCounts();
  clearDebugOutput();
  setMachine(syntheticMachine());
  resetDebugLayer();
  clearCallRecords();
  resetPerformanceCounter();
  closeAllWindows();
}

}  // namespace control
}  // namespace platform
