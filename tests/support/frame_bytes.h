// Frames and records put together byte by byte: runs of bytes joined with
// +, and numbers in either byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zemo::testing_support {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
inline Bytes Zeros(size_t n) { return Bytes(n, 0); }
inline Bytes Be16(uint16_t v) { return {uint8_t(v >> 8), uint8_t(v)}; }
inline Bytes Be32(uint32_t v) { return {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)}; }
inline Bytes Le16(uint16_t v) { return {uint8_t(v), uint8_t(v >> 8)}; }
inline Bytes Le32(uint32_t v) { return Le16(uint16_t(v)) + Le16(uint16_t(v >> 16)); }

}  // namespace zemo::testing_support
