#include "test/support/scripted_pipeline.h"

#include <windows.h>

#include <algorithm>

namespace testing_support {
namespace {

std::vector<uint8_t> unit(std::initializer_list<uint8_t> body) {
  std::vector<uint8_t> bytes(4 + body.size(), 0);
  bytes[3] = 1;
  std::copy(body.begin(), body.end(), bytes.begin() + 4);
  return bytes;
}

}  // namespace

bool ScriptedEncoder::encode(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame) {
  ++encodeCalls;
  if (texture) texture->GetDesc(&lastInput);
  ScriptedOutput next;
  if (!script.empty()) {
    next = script.front();
    script.pop_front();
  } else {
    next.bytes = pSlice();
  }
  if (next.delayMs) Sleep(next.delayMs);
  if (!next.ok) return false;
  *out = next.bytes;
  if (keyFrame) *keyFrame = false;
  return true;
}

bool ScriptedCapture::acquireFrame(CountedRef<ID3D11Texture2D>& slot, int64_t& timestamp) {
  if (timestamps.empty()) return false;
  slot.share(texture.get());
  timestamp = timestamps.front();
  timestamps.pop_front();
  return true;
}

std::vector<uint8_t> spsPps() { return concat({unit({0x67, 0x42, 0xC0, 0x1F, 0xDA}), unit({0x68, 0xCE, 0x3C, 0x80})}); }
std::vector<uint8_t> idrSlice() { return unit({0x65, 0x88, 0x84, 0x00, 0x33}); }
std::vector<uint8_t> pSlice() { return unit({0x41, 0x9A, 0x02, 0x04}); }

std::vector<uint8_t> concat(std::vector<std::vector<uint8_t>> parts) {
  std::vector<uint8_t> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

}  // namespace testing_support
