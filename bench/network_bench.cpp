// One packet through a StatsContext that holds a NetworkStats, whose private
// ChannelStats counts per channel: the cost a host pays per packet for the
// capture totals and rates.
#include <benchmark/benchmark.h>

#include <vector>

#include "context/stats_context.h"
#include "engine/adapter_info.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "network/network_stats.h"

namespace {

using zemo::ComPtr;

// channels 0: an adapter without channels; otherwise one with that many, and
// the packets spread over them.
void BM_NetworkStatsPacket(benchmark::State& state) {
  const ULONG channels = static_cast<ULONG>(state.range(0));
  if (FAILED(zemo::RegisterEngineClasses())) return state.SkipWithError("engine classes");
  auto context = zemo::StatsContext::Create();
  if (channels > 0) {
    auto adapter = zemo::AdapterInfo::Create();
    std::vector<ULONG> numbers;
    for (ULONG n = 1; n <= channels; ++n) numbers.push_back(n);
    adapter->SetChannelNumbers(numbers);
    context->SetAdapterInfo(adapter.Get());
  }
  auto stats = zemo::MakeObject<zemo::NetworkStats, IZemoStats>();
  if (FAILED(context->AddStats(CLSID_NetworkStats, stats.Get()))) return state.SkipWithError("AddStats");

  zemo::PacketBuilder packet;
  packet.Length(512).Time(133000000000000000ull).Multicast();
  ULONG channel = 0;
  for (auto _ : state) {
    if (channels > 0) packet.Target().SetChannelNumber(channel++ % channels + 1);
    benchmark::DoNotOptimize(context->ProcessPacket(packet.Get()));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NetworkStatsPacket)->Arg(0)->Arg(2);

}  // namespace
