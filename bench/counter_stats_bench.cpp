// One packet through a context holding SizeStats, ErrorStats, HistoryStats
// and DashboardStats, in nanoseconds per packet; and the dashboard alone at
// the start of a capture (all 11 rungs) and a month in (the last rung only).
#include <benchmark/benchmark.h>

#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "network/dashboard_stats.h"
#include "network/error_stats.h"
#include "network/history_stats.h"
#include "network/size_stats.h"

namespace {

using zemo::ComPtr;

constexpr ZemoTime kStart = 133500000000000000ull;
constexpr ZemoTime kSecond = 1000000000ull;

void Register() {
  if (DllRegisterServer() != S_OK || zemo::RegisterEngineClasses() != S_OK) std::abort();
}

template <class T>
void Add(zemo::StatsContext* context, REFCLSID clsid) {
  auto stats = T::Create();
  if (context->AddStats(clsid, stats.Get()) != S_OK) std::abort();
}

// 100000 packets a second of a mix of sizes, one in a hundred damaged: the
// spans close about once every 100000 packets, as on a busy link.
void BM_FourStatsPerPacket(benchmark::State& state) {
  Register();
  auto context = zemo::StatsContext::Create();
  context->SetMediaType(0);
  context->SetMediaSubType(0);
  context->SetLinkSpeed(1000000000);
  Add<zemo::SizeStats>(context.Get(), CLSID_SizeStats);
  Add<zemo::ErrorStats>(context.Get(), CLSID_ErrorStats);
  Add<zemo::HistoryStats>(context.Get(), CLSID_HistoryStats);
  Add<zemo::DashboardStats>(context.Get(), CLSID_DashboardStats);
  zemo::PacketBuilder p;
  static constexpr USHORT kLengths[] = {64, 590, 1514, 60, 1514, 128, 9000, 1514};
  ZemoTime t = kStart;
  uint64_t n = 0;
  for (auto _ : state) {
    zemo::Packet& packet = p.Target();
    packet.SetTimeStamp(t += 10000);
    packet.SetPacketLength(kLengths[n & 7]);
    packet.SetError(n % 100 == 0);
    ++n;
    benchmark::DoNotOptimize(context->ProcessPacket(p.Get()));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FourStatsPerPacket);

// The dashboard alone: arg 0 at the start of a capture, arg 1 a month in.
// Packets stay within one second so that no span closes in the loop.
void BM_DashboardPerPacket(benchmark::State& state) {
  Register();
  auto dashboard = zemo::DashboardStats::Create();
  ZemoTime t = kStart;
  dashboard->ProcessTime(t);
  if (state.range(0)) {
    t += 31ull * 86400 * kSecond + 1;
    dashboard->ProcessTime(t);
  }
  state.counters["rungs"] = static_cast<double>(dashboard->RungCount());
  zemo::PacketBuilder p;
  p.Time(t).Length(1000);
  for (auto _ : state) {
    p.Target().SetTimeStamp(++t);
    benchmark::DoNotOptimize(dashboard->ProcessPacket(p.Get()));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DashboardPerPacket)->Arg(0)->Arg(1);

}  // namespace
