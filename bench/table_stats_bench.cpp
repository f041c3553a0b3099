// One packet through a StatsContext holding every table statistic (NodeStats,
// ProtocolStats, ProtocolStatsByID, ConversationStats) whose tables already
// hold N records each: N/2 hosts of a MAC and an IPv4 address (N node
// records) and N/2 host pairs, each a logical and a physical conversation (N
// conversation records). Every packet is Ethernet II / IPv4 / TCP between a
// pair that is there already, so nothing is added while measuring.
//
// Two kinds of traffic pick the pair:
// - skewed (traffic:0): pair ranks log-uniform, so that a pair's share falls
//   as 1/rank, as in real captures, where a few hosts carry most packets;
//   the ranks are scattered over the tables, so hot records are not neighbours.
// - uniform (traffic:1): every pair alike, the worst case for the caches,
//   where each lookup of a large table is a trip to memory.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "bench_hosts.h"
#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "engine/proto_specs.h"
#include "frame/clsids.h"
#include "tables/conversation_stats.h"
#include "tables/node_stats.h"
#include "tables/protocol_stats.h"

namespace {

using namespace zemo;

using bench::HostIp;
using bench::HostMac;
using bench::Pair;

// The pairs the measured packets go between, in order.
std::vector<uint32_t> Traffic(uint32_t pairs, bool uniform) {
  constexpr size_t kPackets = 1 << 20;
  std::mt19937_64 random(7);
  std::vector<uint32_t> scatter(pairs);
  std::iota(scatter.begin(), scatter.end(), 0u);
  std::shuffle(scatter.begin(), scatter.end(), random);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<uint32_t> order(kPackets);
  for (uint32_t& pick : order) {
    double u = unit(random);
    auto rank = uniform ? static_cast<uint32_t>(u * pairs)
                        : static_cast<uint32_t>(std::exp(u * std::log(double(pairs) + 1.0)) - 1.0);
    pick = scatter[std::min(rank, pairs - 1)];
  }
  return order;
}

void BM_TableStatsPacket(benchmark::State& state) {
  if (RegisterEngineClasses() != S_OK) return state.SkipWithError("engine classes");
  const auto records = static_cast<uint32_t>(state.range(0));
  const uint32_t hosts = records / 2, pairs = records / 2;
  std::vector<MediaSpec> macs(hosts), ips(hosts);
  for (uint32_t i = 0; i < hosts; ++i) {
    macs[i] = HostMac(i);
    ips[i] = HostIp(i);
  }
  auto context = StatsContext::Create();
  auto nodes = NodeStats::Create();
  auto conversations = ConversationStats::Create();
  context->AddStats(CLSID_NodeStats, nodes.Get());
  context->AddStats(CLSID_ProtocolStats, ProtocolStats::Create().Get());
  context->AddStats(CLSID_ProtocolStatsByID, ProtocolStatsByID::Create().Get());
  context->AddStats(CLSID_ConversationStats, conversations.Get());

  PacketBuilder p;
  p.Time(130000000000000000ull).Length(512).Layers({proto::kEthernetII, proto::kIpv4, proto::kTcp});
  auto send = [&](Pair pair) {
    bench::SetHosts(p.Target(), macs[pair.from], ips[pair.from], macs[pair.to], ips[pair.to]);
    return context->ProcessPacket(p.Get());
  };
  for (uint32_t k = 0; k < pairs; ++k) send(bench::PairOf(k, hosts));
  ULONG nodeCount = 0, conversationCount = 0;
  nodes->GetNodeCount(&nodeCount);
  conversations->GetConversationCount(&conversationCount);
  if (nodeCount != records || conversationCount != records) return state.SkipWithError("the tables did not fill");

  const std::vector<uint32_t> order = Traffic(pairs, state.range(1) != 0);
  size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(send(bench::PairOf(order[next], hosts)));
    next = (next + 1) & (order.size() - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TableStatsPacket)
    ->ArgNames({"records", "traffic"})
    ->ArgsProduct({{1000, 10000, 100000, 1000000}, {0, 1}})
    ->Unit(benchmark::kNanosecond);

}  // namespace
