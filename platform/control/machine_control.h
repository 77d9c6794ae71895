// The virtual machine that the platform serves: its adapters and their outputs, and what tests
// read back of the software GPU (debug-layer findings, recorded calls, live objects).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace platform::control {

struct OutputDescription {
  int32_t width = 1920;
  int32_t height = 1080;
  int32_t left = 0;  // position on the virtual desktop
  int32_t top = 0;
};

struct AdapterDescription {
  uint32_t vendorId = 0x10DE;
  uint32_t deviceId = 0x2484;
  std::wstring description;  // empty: the platform's default description
  std::vector<OutputDescription> outputs;
};

struct MachineDescription {
  std::vector<AdapterDescription> adapters;
  // The X display whose monitors and windows are the machine's (":99", say); empty: the built-in
  // synthetic desktop with animated content.
  std::string display;
  uint32_t refreshRate = 60;  // how often the synthetic desktop's content changes, per second
  bool nvencInstalled = true;  // whether the NVENC driver library can be loaded
  // Entries of the NVENC function table that the installed driver leaves empty, as an older one
  // does ("nvEncGetEncodePresetConfigEx", "nvEncGetLastErrorString", ...).
  std::vector<std::string> nvencMissingFunctions;
  // The newest NVENC API version the driver serves, spelt as the API does: 12 is 12.0, 0x0100000C
  // is 12.1. Clients of that version or older are served, newer ones refused.
  uint32_t nvencApiVersion = 12;
  // Bytes of each picture's bitstream that the NVENC driver hands out, the rest cut off; 0: all.
  // A stand-in for a driver whose output comes short or empty.
  uint32_t nvencBitstreamLimit = 0;
  // Encode sessions the driver allows open at once across the system, as consumer boards limit
  // them; 0: no limit.
  uint32_t nvencSessionLimit = 0;
  // The Media Foundation H.264 encoder transforms that exist.
  bool mfSoftwareClass = true;      // the software encoder, created by its CLSID (synchronous)
  bool mfSoftwareTransforms = false;  // software transforms found by enumeration (synchronous)
  bool mfHardwareTransform = false;   // an asynchronous hardware transform on the first adapter
  // Media Foundation: the adapter (enumeration index) the hardware transform is pinned to; it
  // takes only devices made on that adapter.
  uint32_t mfHardwareAdapter = 0;
  // Media Foundation: after this many pictures, every transform made afterwards gives SPS and
  // PPS but no slice for each picture, as a broken driver does (0: never).
  uint32_t mfSlicelessAfter = 0;
};

// One NVIDIA adapter with one output: the X display named by DISPLAY, or else a 1920x1080
// synthetic one; NVENC installed; the software transform present.
MachineDescription defaultMachine();
// The same without a display, whatever the environment says: what reset() restores, so that
// tests don't depend on the shell they run in.
MachineDescription syntheticMachine();
// Takes effect for every factory created afterwards.
void setMachine(const MachineDescription& machine);
MachineDescription currentMachine();

// Uses of Direct3D 11 and DXGI that the real runtime's debug layer would report.
uint64_t debugLayerViolations();
std::vector<std::string> debugLayerMessages();
void resetDebugLayer();

// The arguments of a D3D11CreateDevice call, as the caller passed them.
struct CreateDeviceCall {
  bool adapterGiven = false;
  int32_t driverType = 0;
  bool softwareModule = false;
  uint32_t flags = 0;
  std::vector<int32_t> featureLevels;  // empty for a null list
  uint32_t sdkVersion = 0;
};
// Every D3D11CreateDevice call since the last reset, in order, failed ones too.
std::vector<CreateDeviceCall> createDeviceCalls();

// An AcquireSync or ReleaseSync that got past the fault plan to the keyed mutex.
struct KeyedMutexCall {
  bool release = false;  // ReleaseSync; else AcquireSync
  uint64_t key = 0;
  // ReleaseSync only: the immediate context of the texture's device had flushed all the work it
  // queued, so that the other side could see it. Without the flush the work may still be queued.
  bool contextFlushed = false;
};
// The recent keyed-mutex calls since the last reset, in order, across all textures.
std::vector<KeyedMutexCall> keyedMutexCalls();
void clearCallRecords();

// Live COM objects of the software GPU, by interface name ("ID3D11Texture2D", ...).
std::map<std::string, int64_t> liveObjects();
int64_t liveObjectCount(const std::string& interfaceName);
int64_t totalLiveObjects();

}  // namespace platform::control
