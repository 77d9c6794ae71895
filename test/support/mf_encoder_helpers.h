// Helpers for tests of the Media Foundation encoder: machines with chosen encoder transforms,
// NV12 textures holding a drawn picture, and the debug lines an encoder wrote.
#pragma once

#include <d3d11.h>

#include <string>
#include <vector>

#include "platform/control/machine_control.h"
#include "support/counted_ref.h"
#include "test/support/desktop_frames.h"

namespace testing_support {

// The default machine with exactly the Media Foundation transforms named.
platform::control::MachineDescription mfMachine(bool softwareClass, bool softwareTransforms, bool hardware);

// A default-usage NV12 texture (shader resource, render target) holding `frame`, written
// through a staging texture.
CountedRef<ID3D11Texture2D> nv12Texture(ID3D11Device* device, ID3D11DeviceContext* context, const Nv12Frame& frame);

// Debug output lines that contain `text`.
int linesContaining(const std::string& text);

}  // namespace testing_support
