// EntityTable::FindOrAdd, the identity step on every table statistic's
// packet path, through its interface as a statistic calls it: for values that
// are there (hits) and for values that are not (new entities), at table sizes
// from a thousand to a million IPv4 addresses. The 3079 chain heads are
// fixed, so the mean chain holds size / 3079 entities; the counters show the
// chains each run walked.
#include <benchmark/benchmark.h>

#include <vector>

#include "engine/engine.h"
#include "engine/spec_values.h"
#include "identity/entity_table.h"

namespace {

using zemo::ComPtr;

// Entity tables need the host's protocol tree, as do the contexts that own them.
const bool kEngineRegistered = zemo::RegisterEngineClasses() == S_OK;

// Distinct, well-spread addresses: a bijective mix of the index.
MediaSpec Address(uint32_t i) {
  uint32_t x = i * 0x9E3779B1u;
  x ^= x >> 15;
  x *= 0x85EBCA77u;
  x ^= x >> 13;
  return zemo::specs::Ipv4(uint8_t(x >> 24), uint8_t(x >> 16), uint8_t(x >> 8), uint8_t(x));
}

struct Filled {
  ComPtr<IEntityTable> table;
  std::vector<MediaSpec> specs;
};

Filled Fill(uint32_t size) {
  Filled f{zemo::MakeObject<zemo::EntityTable, IEntityTable>(), {}};
  f.specs.reserve(size);
  for (uint32_t i = 0; i < size; ++i) {
    f.specs.push_back(Address(i));
    ULONG id;
    f.table->FindOrAdd(&f.specs.back(), 1, &id);
  }
  return f;
}

void ChainCounters(benchmark::State& state, IEntityTable* table) {
  auto shape = static_cast<zemo::EntityTable*>(table)->SubTable(zemo::EntitySubTableOf(21)).GetShape();
  ULONG count = 0;
  table->GetCount(21, &count);
  state.counters["mean_chain"] = double(count) / zemo::CChainTable::kHeadCount;
  state.counters["longest_chain"] = shape.longest;
}

void BM_EntityFindOrAddHit(benchmark::State& state) {
  if (!kEngineRegistered) return state.SkipWithError("engine classes not registered");
  const uint32_t size = static_cast<uint32_t>(state.range(0));
  Filled f = Fill(size);
  // Every entity in turn, in an order unrelated to when it was added.
  std::vector<uint32_t> order(size);
  for (uint32_t i = 0; i < size; ++i) order[i] = static_cast<uint32_t>((uint64_t(i) * 2654435761u) % size);
  size_t next = 0;
  for (auto _ : state) {
    ULONG id;
    benchmark::DoNotOptimize(f.table->FindOrAdd(&f.specs[order[next]], 1, &id));
    benchmark::DoNotOptimize(id);
    if (++next == size) next = 0;
  }
  state.SetItemsProcessed(state.iterations());
  ChainCounters(state, f.table.Get());
}

// Each round starts from a table of the size and adds 1000 new entities to
// it; only the adding is timed.
void BM_EntityFindOrAddNew(benchmark::State& state) {
  if (!kEngineRegistered) return state.SkipWithError("engine classes not registered");
  constexpr uint32_t kAdded = 1000;
  const uint32_t size = static_cast<uint32_t>(state.range(0));
  Filled f = Fill(size);
  std::vector<MediaSpec> fresh;
  for (uint32_t i = 0; i < kAdded; ++i) fresh.push_back(Address(size + i));
  for (auto _ : state) {
    state.PauseTiming();
    f.table->Reset();
    for (const MediaSpec& s : f.specs) {
      ULONG id;
      f.table->FindOrAdd(&s, 1, &id);
    }
    state.ResumeTiming();
    for (const MediaSpec& s : fresh) {
      ULONG id;
      benchmark::DoNotOptimize(f.table->FindOrAdd(&s, 1, &id));
    }
  }
  state.SetItemsProcessed(state.iterations() * kAdded);
  ChainCounters(state, f.table.Get());
}

BENCHMARK(BM_EntityFindOrAddHit)->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_EntityFindOrAddNew)->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000)->Iterations(5);

}  // namespace
