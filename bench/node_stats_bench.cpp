// One packet through a StatsContext holding NodeStats, with the table
// already holding N records: the packet path's four finds in the context's
// EntityTable and four in the node table, none of them adding.
// Hosts have a MAC and an IPv4 address, so N records are N/2 hosts; each
// measured packet goes between two hosts picked at random.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <vector>

#include "bench_hosts.h"
#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "tables/node_stats.h"

namespace {

using namespace zemo;

using bench::HostIp;
using bench::HostMac;

void SetHosts(Packet& p, const MediaSpec* macs, const MediaSpec* ips, uint32_t from, uint32_t to) {
  bench::SetHosts(p, macs[from], ips[from], macs[to], ips[to]);
}

void BM_NodeStatsPacket(benchmark::State& state) {
  if (RegisterEngineClasses() != S_OK) return state.SkipWithError("engine classes");
  const uint32_t records = static_cast<uint32_t>(state.range(0));
  const uint32_t hosts = records / 2;
  std::vector<MediaSpec> macs(hosts), ips(hosts);
  for (uint32_t i = 0; i < hosts; ++i) {
    macs[i] = HostMac(i);
    ips[i] = HostIp(i);
  }

  const size_t heapBefore = mallinfo2().uordblks;
  auto context = StatsContext::Create();
  auto stats = NodeStats::Create();
  context->AddStats(CLSID_NodeStats, stats.Get());
  PacketBuilder p;
  p.Time(130000000000000000ull).Length(512);
  for (uint32_t i = 0; i < hosts; ++i) {
    SetHosts(p.Target(), macs.data(), ips.data(), i, (i + 1) % hosts);
    context->ProcessPacket(p.Get());
  }
  ULONG count = 0;
  stats->GetNodeCount(&count);
  if (count != records) return state.SkipWithError("the table did not fill");
  const size_t heapAfter = mallinfo2().uordblks;

  uint64_t seed = 88172645463325252ull;
  for (auto _ : state) {
    seed ^= seed << 13;
    seed ^= seed >> 7;
    seed ^= seed << 17;
    SetHosts(p.Target(), macs.data(), ips.data(), uint32_t(seed % hosts), uint32_t((seed >> 32) % hosts));
    benchmark::DoNotOptimize(context->ProcessPacket(p.Get()));
  }
  state.SetItemsProcessed(state.iterations());
  // Everything the filled context took on the heap (node table and entity
  // table), spread over the node records.
  state.counters["heap_bytes_per_record"] = double(heapAfter - heapBefore) / records;
}
BENCHMARK(BM_NodeStatsPacket)->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kNanosecond);

// The node table's own part of a packet: one find through its index for a
// key that is there, at N records, keys as the entity table numbers
// Ethernet addresses.
void BM_NodeTableFind(benchmark::State& state) {
  const uint32_t records = static_cast<uint32_t>(state.range(0));
  CNodeTable table;
  for (uint32_t i = 0; i < records; ++i) table.Add(0x05000000u + i);
  uint64_t seed = 88172645463325252ull;
  for (auto _ : state) {
    seed ^= seed << 13;
    seed ^= seed >> 7;
    seed ^= seed << 17;
    benchmark::DoNotOptimize(table.Find(0x05000000u + uint32_t(seed % records)));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NodeTableFind)->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kNanosecond);

}  // namespace
