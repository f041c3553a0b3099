// One run of the summary updater on a context that holds every statistic
// the module serves, the expert statistic and a site with the capture's
// figures, after traffic among N/2 hosts (N node records: a MAC and an IPv4
// address each). The summary's items exist from the first run on, so a run
// replaces values; none of its reads walks a table.
#include <benchmark/benchmark.h>

#include "bench_hosts.h"
#include "context/stats_context.h"
#include "engine/capture_facts.h"
#include "engine/engine.h"
#include "engine/expert_stats.h"
#include "engine/packet_builder.h"
#include "engine/proto_specs.h"
#include "engine/site.h"
#include "frame/class_table.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "platform/class_store.h"
#include "summary/summary_interfaces.h"

namespace {

using namespace zemo;

void BM_SummaryUpdate(benchmark::State& state) {
  if (DllRegisterServer() != S_OK || RegisterEngineClasses() != S_OK) return state.SkipWithError("registration");
  const uint32_t hosts = static_cast<uint32_t>(state.range(0)) / 2;
  auto context = StatsContext::Create();
  context->SetLinkSpeed(100000000);
  for (const ClassInfo& row : ClassTable()) {
    ComPtr<IZemoStats> stats;
    if (row.clsid == CLSID_StatsContext ||
        FAILED(CoCreateInstance(row.clsid, nullptr, CLSCTX_ALL, IZemoStats::iid, stats.OutVoid())))
      continue;
    context->AddStats(row.clsid, stats.Get());
  }
  auto expert = ExpertStats::Create();
  context->AddStats(CLSID_KorvantExpertStats, expert.Get());
  auto facts = CaptureFacts::Create();
  facts->Set({u"File bench.pcap", 1, u"EN10MB", 0, 123456789, false, 0});
  auto site = Site::Create();
  site->SetService(kServiceUpdateSummaryStats, facts->GetUnknown());
  site->SetProperty(u"Duration", CVariant::I8(60000000000ll));
  context->SetSite(static_cast<IServiceProvider*>(site.Get()));

  // Each host talks to its neighbour, a second apart, over three protocols.
  PacketBuilder p;
  const uint16_t protocols[] = {proto::kTcp, proto::kUdp, proto::kArp};
  const ZemoTime t0 = 133000000000000000ull;
  for (uint32_t i = 0; i < hosts; ++i) {
    const uint32_t to = (i + 1) % hosts;
    p.Clear().Time(t0 + ZemoTime(i) * 1000000).Length(64 + i % 1400).Protocol(protocols[i % 3]);
    bench::SetHosts(p.Target(), bench::HostMac(i), bench::HostIp(i), bench::HostMac(to), bench::HostIp(to));
    if (i % 50 == 0) p.Broadcast();
    context->ProcessPacket(p.Get());
    if (i % 1000 == 999) context->ProcessTime(t0 + ZemoTime(i + 1) * 1000000);
  }
  if (context->UpdateStats() != S_OK) return state.SkipWithError("the update failed");
  for (auto _ : state) benchmark::DoNotOptimize(context->UpdateStats());

  ComPtr<ISummaryStats> summary;
  ComPtr<ISummaryStatsSnapshot> snapshot;
  LONG items = 0;
  context->GetStats(CLSID_SummaryStats, ISummaryStats::iid, summary.OutVoid());
  summary->GetSnapshot(0, snapshot.ReleaseAndGetAddressOf());
  snapshot->GetItemCount(&items);
  state.counters["items"] = items;
  state.counters["nodes"] = 2.0 * hosts;
}
BENCHMARK(BM_SummaryUpdate)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace
