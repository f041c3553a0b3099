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

struct Hosts {
  explicit Hosts(uint32_t n) : macs(n), ips(n) {
    for (uint32_t i = 0; i < n; ++i) {
      macs[i] = bench::HostMac(i);
      ips[i] = bench::HostIp(i);
    }
  }
  // A packet from host `from` to host `to` at time t into target.
  HRESULT Send(PacketBuilder& p, IProcessPacket* target, uint32_t from, uint32_t to, ZemoTime t) {
    p.Time(t);
    bench::SetHosts(p.Target(), macs[from], ips[from], macs[to], ips[to]);
    return target->ProcessPacket(p.Get());
  }
  std::vector<MediaSpec> macs, ips;
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
  PacketBuilder p;
  p.Length(512).Layers({proto::kEthernetII, proto::kIpv4, proto::kTcp});
  for (uint32_t i = 0; i < hosts; ++i) h.Send(p, context.Get(), i, (i + 1) % hosts, kT0);

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
    benchmark::DoNotOptimize(h.Send(p, context.Get(), from, to, kT0 + kSecond));
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
  const auto nodes = static_cast<uint32_t>(state.range(0));
  const uint32_t hosts = nodes / 2;
  Hosts h(hosts);
  auto context = StatsContext::Create();
  auto ring = RollingNodeStats::Create();
  context->AddStats(CLSID_RollingNodeStats, ring.Get());
  ComPtr<IProcessPacket> packets = ring.Query<IProcessPacket>();
  PacketBuilder p;
  p.Length(512).Layers({proto::kEthernetII, proto::kIpv4, proto::kTcp});
  ZemoTime slot = kT0;
  for (auto _ : state) {
    // The bucket the ring enters next is filled a whole turn before.
    state.PauseTiming();
    for (uint32_t i = 0; i < hosts; ++i) h.Send(p, packets.Get(), i, (i + 1) % hosts, slot);
    for (int s = 1; s < RollingNodeStats::kDefaultBuckets; ++s) h.Send(p, packets.Get(), 0, 1, slot + s * kBucket);
    slot += RollingNodeStats::kDefaultBuckets * kBucket;
    state.ResumeTiming();
    benchmark::DoNotOptimize(h.Send(p, packets.Get(), 0, 1, slot));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RollingWindowMove)->ArgNames({"nodes"})->Arg(10000)->Iterations(2000)->Unit(benchmark::kMicrosecond);

void BM_RollingRebuild(benchmark::State& state) {
  if (!Ready(state)) return;
  const auto nodes = static_cast<uint32_t>(state.range(0));
  const uint32_t hosts = nodes / 2;
  Hosts h(hosts);
  auto context = StatsContext::Create();
  auto ring = RollingNodeStats::Create();
  context->AddStats(CLSID_RollingNodeStats, ring.Get());
  PacketBuilder p;
  p.Length(512).Layers({proto::kEthernetII, proto::kIpv4, proto::kTcp});
  for (int s = 0; s < RollingNodeStats::kDefaultBuckets; ++s)
    for (uint32_t i = 0; i < hosts; ++i) h.Send(p, context.Get(), i, (i + 1) % hosts, kT0 + s * kBucket);
  for (auto _ : state) benchmark::DoNotOptimize(ring->Rebuild());
  ULONG count = 0;
  ring->GetNodeCount(&count);
  if (count != nodes) state.SkipWithError("the window did not fill");
  state.counters["records_merged"] = double(nodes) * RollingNodeStats::kDefaultBuckets;
}
BENCHMARK(BM_RollingRebuild)->ArgNames({"nodes"})->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace
