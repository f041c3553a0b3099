// The present time as a ZemoTime, from the system clock. Tests may set it,
// since tables stamp records with the wall clock.
#pragma once

#include "platform/types.h"

namespace zemo {

// Nanoseconds between 1601-01-01 and 1970-01-01.
inline constexpr ZemoTime kUnixEpochAsZemoTime = 11644473600ull * 1000000000ull;

ZemoTime Now();

// A fixed present for tests; 0 returns to the system clock.
void SetNowForTesting(ZemoTime fixed);

}  // namespace zemo
