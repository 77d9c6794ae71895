// Everything that looks inside an encoded H.264 buffer: cutting Annex B into NAL units,
// finding NAL types, putting cached parameter sets in front of slices, and turning
// length-prefixed encoder output into Annex B. Only the first byte of a NAL unit is read.
#pragma once

#include <cstdint>
#include <vector>

// A view of one NAL unit inside a buffer that somebody else owns.
struct NalUnit {
  const uint8_t* data = nullptr;  // the NAL header byte, behind the start code
  uint64_t size = 0;              // header byte included, start code excluded
  uint8_t type = 0;               // nal_unit_type
  uint8_t nri = 0;                // nal_ref_idc
};

// The last SPS and PPS seen in encoder output, each one whole NAL unit without start code.
struct ParameterSetCache {
  std::vector<uint8_t> sps;
  std::vector<uint8_t> pps;
};

constexpr uint8_t kNalSliceNonIdr = 1;
constexpr uint8_t kNalSliceIdr = 5;
constexpr uint8_t kNalSps = 7;
constexpr uint8_t kNalPps = 8;

std::vector<NalUnit> scanAnnexB(const uint8_t* data, uint64_t size);
bool containsNalType(const uint8_t* data, uint64_t size, uint8_t type);
bool hasStartCode(const std::vector<uint8_t>& bytes);
// Puts the cached SPS and PPS in front of a slice-bearing frame that lacks one of them.
void prependParameterSets(const ParameterSetCache& cache, std::vector<uint8_t>& frame);
// Rewrites 4-byte length-prefixed NAL units as Annex B; Annex B input is copied unchanged.
void normalizeToAnnexB(const uint8_t* data, uint64_t size, std::vector<uint8_t>& out);
