// The gate that every platform entry point passes first: the call is counted, a planned delay
// is served, and a planned fault is reported with the value the call must answer.
#pragma once

#include <cstdint>

namespace platform {

// True when the fault plan makes this call fail; `value` then holds what it answers. `call` must
// have static storage (a literal or a table entry): threads remember call sites by its address.
bool plannedFault(const char* call, int64_t* value);

// HRESULT-returning calls: the planned HRESULT, or S_OK (0) when the call is to run.
int32_t plannedHresult(const char* call);

void countDatagram();

}  // namespace platform
