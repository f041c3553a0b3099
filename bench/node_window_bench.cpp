// The two node tables that look past single addresses.
//
// BM_NodeClassPacket: one packet through a StatsContext holding only
// NodeStatsHierarchy (class:0) or RollingNodeStats (class:1), whose tables
// already hold the given number of nodes: nodes/2 hosts of a MAC and an IPv4
// address each (a physical and a pair record in the hierarchy; a MAC and an
// IP record in the window's bucket). Packets go between random pairs of
// hosts that are all there already, so nothing is added while measuring,
// and all fall in one bucket of the window.
//
// BM_RollingWindowMove: the packet that moves the window into its next
// bucket when that bucket still holds the given number of nodes from the
// ring's last turn: the cost of emptying it (and of counting the packet in
// it anew). BM_RollingRebuild: merging six full buckets into the table
// readers see.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "bench_hosts.h"
#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "engine/proto_specs.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "tables/node_stats_hierarchy.h"
#include "tables/rolling_node_stats.h"

namespace {

using namespace zemo;

constexpr ZemoTime kT0 = 130000000000000000ull;
constexpr ZemoTime kSecond = 1000000000ull;
constexpr ZemoTime kBucket = 300 * kSecond;

// The hosts of a run and the packet sent between them.
struct Hosts {
  explicit Hosts(uint32_t n) : macs(n), ips(n) {
    for (uint32_t i = 0; i < n; ++i) {
      macs[i] = bench::HostMac(i);
      ips[i] = bench::HostIp(i);
    }
    packet.Length(512).Layers({proto::kEthernetII, proto::kIpv4, proto::kTcp});
  }
  // A packet from host `from` to host `to` at time t into target.
  HRESULT Send(IProcessPacket* target, uint32_t from, uint32_t to, ZemoTime t) {
    packet.Time(t);
    bench::SetHosts(packet.Target(), macs[from], ips[from], macs[to], ips[to]);
    return target->ProcessPacket(packet.Get());
  }
  // Every host to its neighbour at time t: both addresses of every host in the tables.
  void Fill(IProcessPacket* target, ZemoTime t) {
    const auto n = static_cast<uint32_t>(macs.size());
    for (uint32_t i = 0; i < n; ++i) Send(target, i, (i + 1) % n, t);
  }
  std::vector<MediaSpec> macs, ips;
  PacketBuilder packet;
};

// A context holding only a RollingNodeStats of the default shape.
struct Ring {
  Ring() { context->AddStats(CLSID_RollingNodeStats, ring.Get()); }
  ComPtr<StatsContext> context = StatsContext::Create();
  ComPtr<RollingNodeStats> ring = RollingNodeStats::Create();
};

bool Ready(benchmark::State& state) {
  if (RegisterEngineClasses() != S_OK || DllRegisterServer() != S_OK) {
    state.SkipWithError("registration");
    return false;
  }
  return true;
}

void BM_NodeClassPacket(benchmark::State& state) {
  if (!Ready(state)) return;
  const bool rolling = state.range(0) == 1;
  const auto nodes = static_cast<uint32_t>(state.range(1));
  const uint32_t hosts = nodes / 2;
  Hosts h(hosts);
  auto context = StatsContext::Create();
  ComPtr<IZemoStats> stats;
  if (rolling)
    stats = RollingNodeStats::Create();
  else
    stats = NodeStatsHierarchy::Create();
  context->AddStats(rolling ? CLSID_RollingNodeStats : CLSID_NodeStatsHierarchy, stats.Get());
  h.Fill(context.Get(), kT0);

  ULONG count = 0;
  if (rolling) {
    auto ring = stats.Query<IRollingNodeStats>();
    ring->Rebuild();
    stats.Query<INodeStats>()->GetNodeCount(&count);
    if (count != nodes) return state.SkipWithError("the window did not fill");
  } else {
    stats.Query<INodeStatsHierarchy>()->GetNodeCount(&count);
    if (count != nodes) return state.SkipWithError("the hierarchy did not fill");
  }
  std::mt19937_64 random(7);
  std::vector<std::pair<uint32_t, uint32_t>> order(1 << 20);
  for (auto& [from, to] : order) {
    from = std::uniform_int_distribution<uint32_t>(0, hosts - 1)(random);
    to = (from + 1) % hosts;
  }
  size_t next = 0;
  for (auto _ : state) {
    const auto& [from, to] = order[next];
    benchmark::DoNotOptimize(h.Send(context.Get(), from, to, kT0 + kSecond));
    next = (next + 1) & (order.size() - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NodeClassPacket)
    ->ArgNames({"class", "nodes"})
    ->ArgsProduct({{0, 1}, {10000, 1000000}})
    ->Unit(benchmark::kNanosecond);

void BM_RollingWindowMove(benchmark::State& state) {
  if (!Ready(state)) return;
  Hosts h(static_cast<uint32_t>(state.range(0)) / 2);
  Ring r;
  ComPtr<IProcessPacket> packets = r.ring.Query<IProcessPacket>();
  ZemoTime slot = kT0;
  for (auto _ : state) {
    // The bucket the ring enters next is filled a whole turn before.
    state.PauseTiming();
    h.Fill(packets.Get(), slot);
    for (int s = 1; s < RollingNodeStats::kDefaultBuckets; ++s) h.Send(packets.Get(), 0, 1, slot + s * kBucket);
    slot += RollingNodeStats::kDefaultBuckets * kBucket;
    state.ResumeTiming();
    benchmark::DoNotOptimize(h.Send(packets.Get(), 0, 1, slot));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RollingWindowMove)->ArgNames({"nodes"})->Arg(10000)->Iterations(2000)->Unit(benchmark::kMicrosecond);

void BM_RollingRebuild(benchmark::State& state) {
  if (!Ready(state)) return;
  const auto nodes = static_cast<uint32_t>(state.range(0));
  Hosts h(nodes / 2);
  Ring r;
  for (int s = 0; s < RollingNodeStats::kDefaultBuckets; ++s) h.Fill(r.context.Get(), kT0 + s * kBucket);
  auto& ring = r.ring;
  for (auto _ : state) benchmark::DoNotOptimize(ring->Rebuild());
  ULONG count = 0;
  ring->GetNodeCount(&count);
  if (count != nodes) state.SkipWithError("the window did not fill");
  state.counters["records_merged"] = double(nodes) * RollingNodeStats::kDefaultBuckets;
}
BENCHMARK(BM_RollingRebuild)->ArgNames({"nodes"})->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace
