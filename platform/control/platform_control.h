// The control interface of the platform: how tests and tools steer it. The add-on never
// includes this header; it sees the platform only through the SDK-named headers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace platform::control {

// One entry of the fault plan. `call` names a platform call as the SDK spells it: a free
// function ("sendto", "D3D11CreateDevice") or a method ("ID3D11Device::CreateTexture2D").
struct Fault {
  std::string call;
  int64_t value = 0;     // what the call answers instead: an HRESULT, a status or a return value
  uint32_t after = 0;    // matching calls that run normally before the fault takes effect
  uint32_t times = 1;    // matching calls the fault takes; 0 means every one from then on
  uint32_t delayMs = 0;  // time each affected call takes before it answers
  bool fails = true;     // false: the call only takes delayMs and then runs normally
};

void planFault(const Fault& fault);
void failOnce(const std::string& call, int64_t value);
void failTimes(const std::string& call, int64_t value, uint32_t times);
// The nth matching call (counted from 1 after planning) and every one after it fail.
void failFrom(const std::string& call, int64_t value, uint32_t nth);
void delayCall(const std::string& call, uint32_t milliseconds, uint32_t times = 0);
void clearFaults();

// Calls made per platform function since the last reset, whether they failed or not.
uint64_t callCount(const std::string& call);
void resetCallCounts();

// Every OutputDebugStringA text, in order (the most recent 100000).
std::vector<std::string> debugOutput();
void clearDebugOutput();

// Datagrams that left through sendto since the last reset.
uint64_t datagramsSent();

// Open Winsock references (WSAStartup calls not yet matched by WSACleanup) and open sockets.
int winsockStartupCount();
int openSocketCount();

// Open NT handles: handed out (by CreateSharedHandle, say) and not yet closed by CloseHandle.
size_t openHandleCount();

// Back to a fresh platform state: no faults, zero counters, empty debug output, the default
// machine without a display (syntheticMachine), a debug layer that has found nothing, no
// recorded calls.
void reset();

}  // namespace platform::control
