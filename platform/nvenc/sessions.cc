#include <algorithm>

#include "platform/control/machine_control.h"
#include "platform/core/call_gate.h"
#include "platform/nvenc/session.h"

namespace platform::nvenc {
namespace {

struct SessionTable {
  std::mutex mutex;
  std::vector<std::shared_ptr<Session>> sessions;  // in opening order
};

// Never destroyed: sessions a process leaks stay findable while it exits.
SessionTable& table() {
  static SessionTable* instance = new SessionTable;
  return *instance;
}

// Major in the low byte, minor in bits 24..27; compared as the pair (major, minor).
uint32_t orderOf(uint32_t apiVersion) { return ((apiVersion & 0xFFu) << 4) | ((apiVersion >> 24) & 0xFu); }

}  // namespace

Session::Session(d3d11::Device* device, uint32_t apiVersion) : device(device) { info.apiVersion = apiVersion; }

// Destroying the session gives back everything made on it, as nvEncDestroyEncoder does.
Session::~Session() {
  registrations.clear();
  buffers.clear();
  encoder.reset();
}

NVENCSTATUS Session::fail(NVENCSTATUS status, const std::string& text) {
  lastError = text;
  return status;
}

Registration* Session::registrationMappedAs(void* mappedHandle) {
  for (auto& [handle, registration] : registrations)
    if (registration->mapped && &registration->mappedToken == mappedHandle) return registration.get();
  return nullptr;
}

BitstreamBuffer* Session::buffer(void* handle) {
  auto found = buffers.find(handle);
  return found == buffers.end() ? nullptr : found->second.get();
}

void Session::refreshCounts() {
  info.registeredResources = uint32_t(registrations.size());
  info.mappedResources = uint32_t(std::count_if(registrations.begin(), registrations.end(),
                                                [](const auto& entry) { return entry.second->mapped; }));
  info.bitstreamBuffers = uint32_t(buffers.size());
  info.lockedBitstreams = uint32_t(
      std::count_if(buffers.begin(), buffers.end(), [](const auto& entry) { return entry.second->locked; }));
}

void* addSession(std::shared_ptr<Session> session, uint32_t limit) {
  SessionTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  if (limit != 0 && t.sessions.size() >= limit) return nullptr;
  void* handle = session.get();
  t.sessions.push_back(std::move(session));
  return handle;
}

std::shared_ptr<Session> findSession(void* handle) {
  if (handle == nullptr) return nullptr;
  SessionTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  for (const auto& session : t.sessions)
    if (session.get() == handle) return session;
  return nullptr;
}

std::shared_ptr<Session> removeSession(void* handle) {
  SessionTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  for (auto it = t.sessions.begin(); it != t.sessions.end(); ++it) {
    if (it->get() != handle) continue;
    std::shared_ptr<Session> session = std::move(*it);
    t.sessions.erase(it);
    return session;
  }
  return nullptr;
}

uint32_t driverApiVersion() { return control::currentMachine().nvencApiVersion; }

bool apiVersionSupported(uint32_t apiVersion) {
  if ((apiVersion & 0xF0FFFF00u) != 0) return false;  // bits that no version word of the API uses
  return (apiVersion & 0xFFu) != 0 && orderOf(apiVersion) <= orderOf(driverApiVersion());
}

bool structVersionAccepted(uint32_t word, uint32_t expected) {
  constexpr uint32_t kStructPart = 0xF0FF0000u;  // flags, the 7 tag and the structure number
  if ((word & kStructPart) != (expected & kStructPart)) return false;
  return apiVersionSupported(word & ~kStructPart);
}

const char* statusName(NVENCSTATUS status) {
  static const char* const names[] = {
      "NV_ENC_SUCCESS",
      "NV_ENC_ERR_NO_ENCODE_DEVICE",
      "NV_ENC_ERR_UNSUPPORTED_DEVICE",
      "NV_ENC_ERR_INVALID_ENCODERDEVICE",
      "NV_ENC_ERR_INVALID_DEVICE",
      "NV_ENC_ERR_DEVICE_NOT_EXIST",
      "NV_ENC_ERR_INVALID_PTR",
      "NV_ENC_ERR_INVALID_EVENT",
      "NV_ENC_ERR_INVALID_PARAM",
      "NV_ENC_ERR_INVALID_CALL",
      "NV_ENC_ERR_OUT_OF_MEMORY",
      "NV_ENC_ERR_ENCODER_NOT_INITIALIZED",
      "NV_ENC_ERR_UNSUPPORTED_PARAM",
      "NV_ENC_ERR_LOCK_BUSY",
      "NV_ENC_ERR_NOT_ENOUGH_BUFFER",
      "NV_ENC_ERR_INVALID_VERSION",
      "NV_ENC_ERR_MAP_FAILED",
      "NV_ENC_ERR_NEED_MORE_INPUT",
      "NV_ENC_ERR_ENCODER_BUSY",
      "NV_ENC_ERR_EVENT_NOT_REGISTERD",
      "NV_ENC_ERR_GENERIC",
      "NV_ENC_ERR_INCOMPATIBLE_CLIENT_KEY",
      "NV_ENC_ERR_UNIMPLEMENTED",
      "NV_ENC_ERR_RESOURCE_REGISTER_FAILED",
      "NV_ENC_ERR_RESOURCE_NOT_REGISTERED",
      "NV_ENC_ERR_RESOURCE_NOT_MAPPED",
  };
  size_t index = size_t(status);
  return index < sizeof(names) / sizeof(names[0]) ? names[index] : "NV_ENC_ERR_GENERIC";
}

NVENCSTATUS plannedStatus(const char* call) {
  int64_t value = 0;
  return plannedFault(call, &value) ? NVENCSTATUS(value) : NV_ENC_SUCCESS;
}

NVENCSTATUS plannedStatus(const char* call, void* encoder) {
  NVENCSTATUS status = plannedStatus(call);
  if (status == NV_ENC_SUCCESS) return status;
  if (std::shared_ptr<Session> session = findSession(encoder)) {
    std::lock_guard<std::mutex> lock(session->mutex);
    session->lastError = std::string(call) + ": " + statusName(status);
  }
  return status;
}

}  // namespace platform::nvenc

namespace platform::control {

int nvencOpenSessionCount() {
  nvenc::SessionTable& t = nvenc::table();
  std::lock_guard<std::mutex> lock(t.mutex);
  return int(t.sessions.size());
}

std::vector<NvencSessionInfo> nvencSessions() {
  std::vector<std::shared_ptr<nvenc::Session>> sessions;
  {
    nvenc::SessionTable& t = nvenc::table();
    std::lock_guard<std::mutex> lock(t.mutex);
    sessions = t.sessions;
  }
  std::vector<NvencSessionInfo> result;
  for (const auto& session : sessions) {
    std::lock_guard<std::mutex> lock(session->mutex);
    result.push_back(session->info);
  }
  return result;
}

}  // namespace platform::control
