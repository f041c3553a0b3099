// A radio header reader under arbitrary bytes, copied to a buffer of
// exactly their size so that a read past it is a report. What it reads must
// hold together.
#pragma once

#include <cstdlib>
#include <vector>

#include "engine/radio_reading.h"

namespace zemo::fuzz {

inline void FuzzRadioHeader(RadioReading (*read)(const uint8_t*, uint32_t) noexcept, const uint8_t* data,
                            size_t size) {
  const std::vector<uint8_t> bytes(data, data + size);
  const auto length = static_cast<uint32_t>(bytes.size());
  const RadioReading r = read(bytes.empty() ? nullptr : bytes.data(), length);
  // The frame starts within what was captured, and behind a whole header.
  if (r.headerLength > length) std::abort();
  if (r.known && r.headerLength < 8) std::abort();
  if (!r.haveChannel && !(r.channel == kUnknownChannel)) std::abort();
}

}  // namespace zemo::fuzz
