// The calling thread's COM apartment, as the platform's activation calls see it.
#pragma once

namespace platform {

// True while the calling thread has an initialisation of COM or the Windows Runtime that no
// uninitialisation has matched yet.
bool threadHasApartment();

}  // namespace platform
