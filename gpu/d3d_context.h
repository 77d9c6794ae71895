// One GPU as the system sees it: a DXGI adapter, the Direct3D 11 device made on it, that device's
// immediate context, and the number of the selected output on the adapter.
#pragma once

#include <d3d11.h>
#include <dxgi1_2.h>

#include <cstdint>

#include "support/counted_ref.h"

constexpr UINT kNvidiaVendorId = 0x10DE;

class D3DContext {
 public:
  D3DContext() = default;
  D3DContext(const D3DContext&) = delete;
  D3DContext& operator=(const D3DContext&) = delete;

  // Each answers true if `device` and `context` are usable.
  // The common last step: takes over `adapter` and makes the device on it.
  bool createDevice(CountedRef<IDXGIAdapter1> adapter, uint32_t outputIndex);
  bool createOnFirstAdapter();
  // `globalIndex` counts outputs across all adapters in enumeration order.
  bool createForGlobalOutput(uint32_t globalIndex);
  // The first NVIDIA adapter if there is one, else adapter 0.
  bool createPreferNvidia();

  // Whether `adapter` reports NVIDIA's vendor id; false when there is no adapter or no answer.
  bool isNvidia() const;

  // Declared in this order so that destruction releases context, then device, then adapter.
  CountedRef<IDXGIAdapter1> adapter;
  CountedRef<ID3D11Device> device;
  CountedRef<ID3D11DeviceContext> context;
  uint32_t outputIndex = 0;
};

// An NV12 texture of the given size for the GPU alone (DEFAULT usage, shader resource and render
// target, no CPU access): what the scaler writes and the encoders copy their input into.
D3D11_TEXTURE2D_DESC nv12TextureDesc(uint32_t width, uint32_t height);

// The first NVIDIA adapter in enumeration order. Logs nothing.
bool findNvidiaAdapter(CountedRef<IDXGIAdapter1>& adapter);
