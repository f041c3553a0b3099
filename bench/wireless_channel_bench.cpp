// One 802.11 packet through a StatsContext holding both generations of
// channel statistics, with 10 and with 200 channels in their tables. The
// packets go round the channels and eight data rates, so every lookup finds
// a record that is there.
#include <benchmark/benchmark.h>

#include <vector>

#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "platform/class_store.h"
#include "wireless/wireless_interfaces.h"

namespace {

using zemo::ComPtr;

void BM_WirelessChannelPacket(benchmark::State& state) {
  if (FAILED(DllRegisterServer()) || FAILED(zemo::RegisterEngineClasses())) return state.SkipWithError("register");
  auto context = zemo::StatsContext::Create();
  context->SetMediaType(0);
  context->SetMediaSubType(3);
  for (const CLSID& clsid : {CLSID_WirelessChannelStats, CLSID_WirelessChannelStats2}) {
    ComPtr<IZemoStats> stats;
    if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IZemoStats::iid, stats.OutVoid())) ||
        FAILED(context->AddStats(clsid, stats.Get())))
      return state.SkipWithError("statistics");
  }
  const auto channels = static_cast<int16_t>(state.range(0));
  static constexpr USHORT kRates[] = {2, 4, 11, 22, 108, 130, 144, 300};
  // A data frame to the distribution system on each channel, at each rate.
  std::vector<zemo::PacketBuilder> packets(static_cast<size_t>(channels) * std::size(kRates));
  for (size_t i = 0; i < packets.size(); ++i) {
    const auto number = static_cast<int16_t>(1 + i % static_cast<size_t>(channels));
    std::vector<BYTE> frame(64, 0);
    frame[0] = 0x08;
    frame[1] = 0x01;
    packets[i]
        .Time(130000000000000000ull + i * 1000)
        .Length(512)
        .Data(frame)
        .Wireless({number, 5000u + 5u * uint32_t(number), 3}, kRates[i / static_cast<size_t>(channels)], 70, -65, 10,
                  -95);
    context->ProcessPacket(packets[i].Get());  // the channel and rate are in the tables before timing
  }
  size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(context->ProcessPacket(packets[next].Get()));
    if (++next == packets.size()) next = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WirelessChannelPacket)->Arg(10)->Arg(200);

}  // namespace
