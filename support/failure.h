// The thread's last failure: the detail that travels upward past operations that only answer
// with a boolean, until the topmost reader turns it into the user's message.
#pragma once

#include <windows.h>

#include <string>

// Empty at the start of each thread; each write replaces the text before.
extern thread_local std::string threadLastFailure;

// Stores `text` as the thread's last failure and logs it as an error.
void recordFailure(const char* text);
// The same for "<text> (hr=0x........)", the HRESULT as eight lower-case hex digits.
void recordHresultFailure(const char* text, HRESULT hr);
