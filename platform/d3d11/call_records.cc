#include "platform/d3d11/call_records.h"

#include <deque>
#include <mutex>

namespace platform::d3d11 {
namespace {

// A session's frame loop takes the keyed mutex four times a frame: keep the recent calls only.
constexpr size_t kKeptRecords = 10000;

struct CallRecords {
  std::mutex mutex;
  std::deque<control::CreateDeviceCall> createDevice;
  std::deque<control::KeyedMutexCall> keyedMutex;
};

CallRecords& records() {
  static CallRecords* instance = new CallRecords;  // outlives objects destroyed at exit
  return *instance;
}

template <class Record>
void keep(std::deque<Record>& list, const Record& record) {
  list.push_back(record);
  if (list.size() > kKeptRecords) list.pop_front();
}

}  // namespace

void recordCreateDevice(const control::CreateDeviceCall& call) {
  std::lock_guard<std::mutex> lock(records().mutex);
  keep(records().createDevice, call);
}

void recordKeyedMutex(const control::KeyedMutexCall& call) {
  std::lock_guard<std::mutex> lock(records().mutex);
  keep(records().keyedMutex, call);
}

}  // namespace platform::d3d11

namespace platform::control {

std::vector<CreateDeviceCall> createDeviceCalls() {
  std::lock_guard<std::mutex> lock(d3d11::records().mutex);
  return {d3d11::records().createDevice.begin(), d3d11::records().createDevice.end()};
}

std::vector<KeyedMutexCall> keyedMutexCalls() {
  std::lock_guard<std::mutex> lock(d3d11::records().mutex);
  return {d3d11::records().keyedMutex.begin(), d3d11::records().keyedMutex.end()};
}

void clearCallRecords() {
  std::lock_guard<std::mutex> lock(d3d11::records().mutex);
  d3d11::records().createDevice.clear();
  d3d11::records().keyedMutex.clear();
}

}  // namespace platform::control
