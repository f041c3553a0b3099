// One packet through a StatsContext holding every table statistic (NodeStats,
// ProtocolStats, ProtocolStatsByID, ConversationStats) whose tables already
// hold N records each: N/2 hosts of a MAC and an IPv4 address (N node
// records) and N/2 host pairs, each a logical and a physical conversation (N
// conversation records). Every packet is Ethernet II / IPv4 / TCP between a
// pair that is there already, so nothing is added while measuring.
//
// Three kinds of traffic pick the pair:
// - busy, first met (traffic:0): the 1,000 pairs the tables met first carry
//   all packets alike, as long conversations of a capture do: the same work
//   on the same memory at every table size, so what grows with the tables
//   is the cost of finding a record among more, and nothing else.
// - busy, scattered (traffic:1): 1,000 pairs picked at random from all, so
//   that their records lie all over the tables: the same work, but on more
//   pages and cache lines as the tables grow.
// - uniform (traffic:2): every pair alike, the worst case for the caches,
//   where at a million records each lookup is a trip to memory.
#include <benchmark/benchmark.h>

#include <algorithm>
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
std::vector<uint32_t> Traffic(uint32_t pairs, int kind) {
  constexpr size_t kPackets = 1 << 20;
  constexpr uint32_t kBusy = 1000;
  std::mt19937_64 random(7);
  std::vector<uint32_t> busy(std::min(kBusy, pairs));
  for (uint32_t i = 0; i < busy.size(); ++i)
    busy[i] = kind == 0 ? i : std::uniform_int_distribution<uint32_t>(0, pairs - 1)(random);
  std::vector<uint32_t> order(kPackets);
  for (uint32_t& pick : order)
    pick = kind == 2 ? std::uniform_int_distribution<uint32_t>(0, pairs - 1)(random)
                     : busy[std::uniform_int_distribution<size_t>(0, busy.size() - 1)(random)];
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

  const std::vector<uint32_t> order = Traffic(pairs, static_cast<int>(state.range(1)));
  size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(send(bench::PairOf(order[next], hosts)));
    next = (next + 1) & (order.size() - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TableStatsPacket)
    ->ArgNames({"records", "traffic"})
    ->ArgsProduct({{1000, 10000, 100000, 1000000}, {0, 1, 2}})
    ->Unit(benchmark::kNanosecond);

}  // namespace
