#include "rtp/annexb.h"

#include <cstring>

namespace {

constexpr uint8_t kStartCode[4] = {0, 0, 0, 1};

// The first position `next` >= `from` with next + 3 < size where 00 00 01 or 00 00 00 01 begins,
// or `size`. Every start code ends in a 1, so the search jumps from one 1 byte to the next
// with memchr instead of testing each position.
uint64_t findStartCode(const uint8_t* data, uint64_t from, uint64_t size) {
  for (uint64_t one = from + 2; one < size; ++one) {
    const void* hit = std::memchr(data + one, 1, size - one);
    if (hit == nullptr) break;
    one = uint64_t(static_cast<const uint8_t*>(hit) - data);
    bool twoZeros = data[one - 1] == 0 && data[one - 2] == 0;
    if (!twoZeros) continue;
    if (one >= from + 3 && data[one - 3] == 0) return one - 3;  // the four-byte code begins earlier
    if (one + 1 < size) return one - 2;
  }
  return size;
}

NalUnit nalAt(const uint8_t* data, uint64_t start, uint64_t end) {
  uint8_t header = data[start];
  return NalUnit{data + start, end - start, uint8_t(header & 0x1F), uint8_t((header >> 5) & 3)};
}

uint32_t readBigEndian32(const uint8_t* bytes) {
  return (uint32_t(bytes[0]) << 24) | (uint32_t(bytes[1]) << 16) | (uint32_t(bytes[2]) << 8) | bytes[3];
}

void appendWithStartCode(std::vector<uint8_t>& out, const std::vector<uint8_t>& nal) {
  if (!hasStartCode(nal)) out.insert(out.end(), kStartCode, kStartCode + 4);
  out.insert(out.end(), nal.begin(), nal.end());
}

}  // namespace

std::vector<NalUnit> scanAnnexB(const uint8_t* data, uint64_t size) {
  std::vector<NalUnit> nals;
  if (data == nullptr || size < 4) return nals;
  uint64_t pos = 0;
  while (true) {
    // Only the first pass can stand on bytes that are no start code; those bytes are a NAL unit.
    uint64_t start = pos;
    if (data[pos] == 0 && data[pos + 1] == 0) start = data[pos + 2] == 1 ? pos + 3 : pos + 4;
    uint64_t end = findStartCode(data, start + 1, size);
    if (end <= start) break;  // a start code with nothing behind it
    nals.push_back(nalAt(data, start, end));
    pos = end;
    if (pos + 3 >= size) break;
  }
  return nals;
}

bool containsNalType(const uint8_t* data, uint64_t size, uint8_t type) {
  if (data == nullptr || size <= 4) return false;
  for (uint64_t p = 0; p + 4 < size; ++p) {
    if (data[p] != 0 || data[p + 1] != 0) continue;
    uint64_t header;
    if (data[p + 2] == 0) {
      if (data[p + 3] != 1) continue;
      header = p + 4;
    } else if (data[p + 2] == 1) {
      header = p + 3;
    } else {
      continue;
    }
    if ((data[header] & 0x1F) == type) return true;
  }
  return false;
}

bool hasStartCode(const std::vector<uint8_t>& bytes) {
  if (bytes.size() >= 4 && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0 && bytes[3] == 1) return true;
  return bytes.size() >= 3 && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1;
}

void prependParameterSets(const ParameterSetCache& cache, std::vector<uint8_t>& frame) {
  if (cache.sps.empty() || cache.pps.empty()) return;
  if (frame.size() <= 4) return;
  const uint8_t* data = frame.data();
  if (!containsNalType(data, frame.size(), kNalSliceNonIdr) && !containsNalType(data, frame.size(), kNalSliceIdr))
    return;
  if (containsNalType(data, frame.size(), kNalSps) && containsNalType(data, frame.size(), kNalPps)) return;
  std::vector<uint8_t> joined;
  joined.reserve(cache.sps.size() + cache.pps.size() + 8 + frame.size());
  appendWithStartCode(joined, cache.sps);
  appendWithStartCode(joined, cache.pps);
  joined.insert(joined.end(), frame.begin(), frame.end());
  frame.swap(joined);
}

void normalizeToAnnexB(const uint8_t* data, uint64_t size, std::vector<uint8_t>& out) {
  out.clear();
  if (data == nullptr || size < 4) return;
  uint64_t pos = 0;
  bool walkedToEnd = false;
  while (true) {
    uint32_t length = readBigEndian32(data + pos);
    pos += 4;
    if (length == 0 || pos + length > size) break;
    out.insert(out.end(), kStartCode, kStartCode + 4);
    out.insert(out.end(), data + pos, data + pos + length);
    pos += length;
    if (pos + 4 <= size) continue;
    walkedToEnd = pos == size;
    break;
  }
  if (walkedToEnd) return;
  // The length walk broke off: input that begins with a start code was Annex B all along.
  bool beginsWithStartCode =
      data[0] == 0 && data[1] == 0 && (data[2] == 1 || (data[2] == 0 && data[3] == 1));
  if (beginsWithStartCode) out.assign(data, data + size);
}
