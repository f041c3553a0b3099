// One 802.11 packet through a StatsContext holding both generations of node
// statistics (and the channel statistics they report access points to),
// with 100, 10,000 and 1,000,000 stations already in their tables. The
// timed packets are data frames of stations already there, so every lookup
// finds its node and nothing is added: 1024 stations picked across the
// whole table (each packet's records far apart in memory), or the same 16
// stations over and over (the records stay in the caches, so what is left
// is the work a packet does, whatever the table's size).
#include <benchmark/benchmark.h>

#include <vector>

#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "platform/class_store.h"

namespace {

using zemo::ComPtr;
using Mac = zemo::PacketBuilder::Mac;

Mac Station(uint32_t n) {
  return Mac{0x02, 0x00, static_cast<uint8_t>(n >> 24), static_cast<uint8_t>(n >> 16), static_cast<uint8_t>(n >> 8),
             static_cast<uint8_t>(n)};
}

void DataFrame(zemo::PacketBuilder& p, uint32_t station, ZemoTime time) {
  static const Mac kAccessPoint{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  std::vector<BYTE> frame(64, 0);
  frame[0] = 0x08;
  frame[1] = 0x01;  // To DS
  p.Clear().Time(time).Length(512).Data(frame).Wireless({6, 2437, 4}, 108, 70, -65, 10, -95).Class(3);
  p.FrameKind(0x08).Protocol(0x08).Transmitter(Station(station)).Receiver(kAccessPoint).Bssid(kAccessPoint);
}

void BM_WirelessNodePacket(benchmark::State& state) {
  if (FAILED(DllRegisterServer()) || FAILED(zemo::RegisterEngineClasses())) return state.SkipWithError("register");
  auto context = zemo::StatsContext::Create();
  for (const CLSID& clsid : {CLSID_WirelessChannelStats2, CLSID_WirelessNodeStats, CLSID_WirelessNodeStats2}) {
    ComPtr<IZemoStats> stats;
    if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IZemoStats::iid, stats.OutVoid())) ||
        FAILED(context->AddStats(clsid, stats.Get())))
      return state.SkipWithError("statistics");
  }
  const auto stations = static_cast<uint32_t>(state.range(0));
  ZemoTime time = 130000000000000000ull;
  zemo::PacketBuilder fill;
  for (uint32_t n = 0; n < stations; ++n) {
    DataFrame(fill, n, time += 1000);
    context->ProcessPacket(fill.Get());
  }
  const auto picked = static_cast<size_t>(state.range(1));
  std::vector<zemo::PacketBuilder> packets(picked);
  for (size_t i = 0; i < packets.size(); ++i)
    DataFrame(packets[i], static_cast<uint32_t>((i * 2654435761u) % stations), time + i);
  size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(context->ProcessPacket(packets[next].Get()));
    if (++next == packets.size()) next = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WirelessNodePacket)
    ->ArgsProduct({{100, 10000, 1000000}, {1024, 16}})
    ->ArgNames({"stations", "picked"})
    ->Unit(benchmark::kNanosecond);

}  // namespace
