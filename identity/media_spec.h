// MediaSpec: the 32-byte value form of an address or protocol everywhere in
// the system (packets, tables, interfaces, streams).
#pragma once

#include <cstring>

#include "platform/types.h"

struct MediaSpec {
  uint8_t fClass;   // 0 none, 1 protocol, 2 address, 3 the class of types 34 and 36
  uint8_t fType;    // form of the value; 0 none
  uint8_t fReserved[2];
  uint32_t fMask;   // which part of the value counts, from the top bit down
  uint8_t fData[24];
};
static_assert(sizeof(MediaSpec) == 32);
