// The software GPU's debug layer: uses of Direct3D 11 and DXGI that the real runtime's debug
// layer would report are counted, kept, and written to the debug output as it writes them.
#pragma once

#include <string>

namespace platform {

// `what` starts with the call, e.g. "ID3D11DeviceContext::CopyResource: ...".
void debugLayerViolation(const std::string& what);

}  // namespace platform
