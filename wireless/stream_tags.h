// The section tags of the second-generation wireless streams (inside the
// block frame of frame/block_frame.h), shared by the channel and node
// engines. Tags are u32, little-endian: 0x73746174 stands in the stream as
// the bytes 74 61 74 73.
#pragma once

#include <cstdint>

namespace zemo::wireless_tags {

inline constexpr uint32_t kStats = 0x73746174;   // the records
inline constexpr uint32_t kRates = 0x72617465;   // the data rates
inline constexpr uint32_t kCounts = 0x626F7265;  // the counts of changes
inline constexpr uint32_t kEnd = 0x656E646F;     // the end of the sections

}  // namespace zemo::wireless_tags
