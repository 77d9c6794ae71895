// Which encoder a session runs, and the move to NVENC when Media Foundation gives no pictures.
#pragma once

class NativeSession;

// At bring-up, by the session's encoder preference and whether the encode device is NVIDIA.
// True: the session's encoder slot holds an initialised encoder. False: lastError says why.
bool selectEncoder(NativeSession& session);
// From the frame loop: replaces the Media Foundation encoder by NVENC. True: NVENC runs now.
// On false the slot may be empty; the caller must not use it then.
bool switchToNvenc(NativeSession& session);
