// What the wireless statistics take from the context's adapter at a reset:
// its media, channels and data rates. Read before the statistic's own lock,
// since the context's lock comes first.
#pragma once

#include "frame/engine_interfaces.h"
#include "frame/stats_interfaces.h"
#include "platform/object.h"

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

// The reset of a second-generation statistic: its engine starts from the
// adapter's channels and rates, or empty when the context has no adapter.
// Without a context there is nothing to start from: E_FAIL, and no change.
// lock(body) runs body under the statistic's lock, taken after the
// adapter was read.
template <class Engine, class Lock>
HRESULT ResetFromAdapter(IZemoStatsContext* context, Engine& engine, Lock&& lock) {
  if (!context) return E_FAIL;
  return Boundary([&]() -> HRESULT {
    AdapterFacts facts;
    ReadAdapterFacts(context, facts);
    return lock([&] {
      if (!facts.present)
        engine.Clear();
      else
        engine.Init(facts.mediaType, facts.mediaSubType, facts.channels, facts.channelCount, facts.rates,
                    facts.rateCount, nullptr, 0);
    });
  });
}

}  // namespace zemo
