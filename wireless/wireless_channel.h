// SWirelessChannel: the 10 packed bytes that name a radio channel. Two
// channels are equal exactly when their bytes are.
#pragma once

#include <cstring>

#include "platform/types.h"

#pragma pack(push, 1)
struct SWirelessChannel {
  int16_t Channel;
  uint32_t Frequency;  // MHz; 0 when unknown
  uint32_t Band;       // band code

  friend bool operator==(const SWirelessChannel& a, const SWirelessChannel& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
  }
};
#pragma pack(pop)
static_assert(sizeof(SWirelessChannel) == 10);
