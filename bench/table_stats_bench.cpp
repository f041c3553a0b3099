// One packet through a StatsContext holding the table statistics, with the
// tables already full: 5,000 hosts of a MAC and an IPv4 address each (10,000
// node records) and 25,000 directed host pairs, each a logical and a
// physical conversation (50,000 conversation records). Every packet is
// Ethernet II / IPv4 / TCP between a pair picked at random, so nothing is
// added while measuring.
#include <benchmark/benchmark.h>

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

constexpr uint32_t kHosts = 5000;
constexpr uint32_t kPairs = 25000;

using bench::HostIp;
using bench::HostMac;
using bench::Pair;

Pair PairOf(uint32_t k) { return bench::PairOf(k, kHosts); }

// state.range(0): 1 adds NodeStats to the three.
void BM_TableStatsPacket(benchmark::State& state) {
  if (RegisterEngineClasses() != S_OK) return state.SkipWithError("engine classes");
  std::vector<MediaSpec> macs(kHosts), ips(kHosts);
  for (uint32_t i = 0; i < kHosts; ++i) {
    macs[i] = HostMac(i);
    ips[i] = HostIp(i);
  }
  auto context = StatsContext::Create();
  auto conversations = ConversationStats::Create();
  if (state.range(0)) context->AddStats(CLSID_NodeStats, NodeStats::Create().Get());
  context->AddStats(CLSID_ProtocolStats, ProtocolStats::Create().Get());
  context->AddStats(CLSID_ProtocolStatsByID, ProtocolStatsByID::Create().Get());
  context->AddStats(CLSID_ConversationStats, conversations.Get());

  PacketBuilder p;
  p.Time(130000000000000000ull).Length(512).Layers({proto::kEthernetII, proto::kIpv4, proto::kTcp});
  auto send = [&](Pair pair) {
    bench::SetHosts(p.Target(), macs[pair.from], ips[pair.from], macs[pair.to], ips[pair.to]);
    return context->ProcessPacket(p.Get());
  };
  for (uint32_t k = 0; k < kPairs; ++k) send(PairOf(k));
  ULONG count = 0;
  conversations->GetConversationCount(&count);
  if (count != 2 * kPairs) return state.SkipWithError("the conversation table did not fill");

  uint64_t seed = 88172645463325252ull;
  for (auto _ : state) {
    seed ^= seed << 13;
    seed ^= seed >> 7;
    seed ^= seed << 17;
    benchmark::DoNotOptimize(send(PairOf(uint32_t(seed % kPairs))));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TableStatsPacket)->ArgName("withNodeStats")->Arg(0)->Arg(1)->Unit(benchmark::kNanosecond);

}  // namespace
