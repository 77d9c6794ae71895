// What a capture frame pool is behind its ABI object: its buffers, the frames that wait, the
// FrameArrived subscribers, and the thread that fills buffers from the captured window.
//
// On Windows a pool made with Create raises FrameArrived through the dispatcher queue of the
// thread that created it. The add-on's worker has no dispatcher queue and pumps nothing, so the
// platform raises the event from the pool's own delivery thread, as a pool made with
// CreateFreeThreaded would; the add-on's handler is agile and only sets a flag.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "eventtoken.h"
#include "platform/core/com_object.h"
#include "platform/d3d11/device.h"
#include "platform/d3d11/texture.h"
#include "platform/window/capture_target.h"
#include "windows.graphics.capture.h"

namespace platform::wgc {

using ABI::Windows::Graphics::SizeInt32;
using FrameArrivedHandler =
    ABI::Windows::Foundation::ITypedEventHandler<ABI::Windows::Graphics::Capture::Direct3D11CaptureFramePool*,
                                                 IInspectable*>;

struct ReadyFrame {
  int slot = -1;
  int64_t time = 0;  // performance counter ticks at the grab, in 100 ns units
};

class FramePoolCore : public std::enable_shared_from_this<FramePoolCore> {
 public:
  // `swapRedBlue`: the pool's format is R8G8B8A8, and windows are grabbed as B8G8R8A8.
  FramePoolCore(d3d11::Device* device, DXGI_FORMAT format, int buffers, SizeInt32 size, bool swapRedBlue);
  ~FramePoolCore();
  FramePoolCore(const FramePoolCore&) = delete;
  FramePoolCore& operator=(const FramePoolCore&) = delete;

  SizeInt32 size() const { return bufferSize; }
  bool closed();

  EventRegistrationToken addHandler(FrameArrivedHandler* handler);
  bool removeHandler(EventRegistrationToken token);

  // The oldest waiting frame, with a pin on its buffer's texture; false when none waits.
  bool takeReady(ReadyFrame* frame, Pin<d3d11::Texture>* texture);
  // A frame's buffer goes back to the pool; the delivery thread may fill it again.
  void returnBuffer(int slot);

  // Starts the delivery thread for `target`; `sender` is the pool's ABI pointer, passed to
  // handlers. False when the pool is closed or capture already runs.
  bool startCapture(std::unique_ptr<window::CaptureTarget> target,
                    ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool* sender);
  // Ends delivery. Returns only once no handler runs, unless called from inside one.
  void stopCapture();
  // stopCapture, then drops waiting frames, subscribers and buffers.
  void close();

 private:
  struct Slot {
    Pin<d3d11::Texture> texture;
    bool free = true;
  };

  void deliver(std::unique_ptr<window::CaptureTarget> target,
               ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool* sender);
  int freeSlot() const;
  bool grabInto(window::CaptureTarget& target, int slot);
  std::vector<FrameArrivedHandler*> subscribersWithReferences();

  const SizeInt32 bufferSize;
  const bool swapRedBlue;
  std::mutex mutex;
  std::condition_variable changed;  // a buffer came back, delivery ended, or a stop was asked
  std::vector<Slot> slots;
  std::deque<ReadyFrame> ready;
  std::map<int64_t, FrameArrivedHandler*> handlers;  // each holds a reference
  int64_t nextToken = 1;
  bool isClosed = false;
  bool captureStarted = false;
  bool stopping = false;
  bool delivering = false;
  std::thread::id deliveryThread;
};

}  // namespace platform::wgc
