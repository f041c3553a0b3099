// What the wireless statistics take from the context's adapter at a reset:
// its media, channels and data rates. Read before the statistic's own lock,
// since the context's lock comes first.
#pragma once

#include "frame/engine_interfaces.h"
#include "frame/stats_interfaces.h"
#include "platform/unknown.h"

namespace zemo {

struct AdapterFacts {
  AdapterFacts() = default;
  AdapterFacts(const AdapterFacts&) = delete;
  AdapterFacts& operator=(const AdapterFacts&) = delete;
  ~AdapterFacts() {
    CoTaskMemFree(channels);
    CoTaskMemFree(rates);
  }

  bool present = false;  // the context has an adapter
  ULONG mediaType = 0, mediaSubType = 0;
  SWirelessChannel* channels = nullptr;  // task memory, freed with the facts
  ULONG channelCount = 0;
  ULONG* rates = nullptr;
  ULONG rateCount = 0;
};

// Raises the failures of the context's and the adapter's calls.
void ReadAdapterFacts(IZemoStatsContext* context, AdapterFacts& facts);

}  // namespace zemo
