// One tick of a StatsServer with N node trackers in its list and N alarms,
// each alarm on a tracker of its own: the context's summary, N tracker
// updates, then N alarm updates and evaluations of one round each. The
// context holds a NodeStats of N hosts (2N records); every tracker follows
// one host's bytes. Alarms test the rate against a threshold that the
// traffic stays under, as most alarms do most of the time; a second case
// flips every alarm to Problem and back on alternate ticks, so each
// evaluation also changes state, builds its message and notifies.
#include <benchmark/benchmark.h>

#include <vector>

#include "alarms/alarm.h"
#include "alarms/node_stats_tracker.h"
#include "alarms/stats_server.h"
#include "bench_hosts.h"
#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/notify_sink.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "tables/node_stats.h"

namespace {

using namespace zemo;

constexpr ZemoTime kT0 = 130000000000000000ull;
constexpr ZemoTime kSecond = 1000000000ull;

// A sink that only counts: a host's sink should not be what is measured.
class CountingSink final : public Object<CountingSink, INotify> {
 public:
  HRESULT Notify(const GUID&, const GUID&, ULONG, ZemoTime, LONG, LPCOLESTR, LPCOLESTR) override {
    ++count;
    return S_OK;
  }
  uint64_t count = 0;
};

void BM_ServerTick(benchmark::State& state) {
  if (RegisterEngineClasses() != S_OK) return state.SkipWithError("engine classes");
  const uint32_t n = static_cast<uint32_t>(state.range(0));
  const bool changing = state.range(1) != 0;
  auto context = StatsContext::Create();
  auto stats = NodeStats::Create();
  context->AddStats(CLSID_NodeStats, stats.Get());
  PacketBuilder p;
  p.Time(kT0).Length(500);
  for (uint32_t i = 0; i < n; ++i) {
    bench::SetHosts(p.Target(), bench::HostMac(i), bench::HostIp(i), bench::HostMac((i + 1) % n),
                    bench::HostIp((i + 1) % n));
    context->ProcessPacket(p.Get());
  }

  auto server = StatsServer::Create();
  server->SetContext(context.Get());
  auto sink = CountingSink::Create();
  auto tracker = [&](uint32_t host) {
    auto t = NodeStatsTracker::Create();
    t->SetKey(bench::HostIp(host));
    t->SetStatType(kNodeTotalBytes);
    return ComPtr<IZemoStatsTracker>(t.Get());
  };
  std::vector<ComPtr<Alarm>> alarms;
  for (uint32_t i = 0; i < n; ++i) {
    server->AddTracker(tracker(i).Get());
    auto alarm = Alarm::Create();
    alarm->SetTrackType(kAlarmTrackRate);
    alarm->SetCondition(kAlarmProblem, 0, kAlarmGreater, 100000, 2);
    alarm->SetConditionEnabled(kAlarmProblem, 1);
    alarm->SetCondition(kAlarmResolve, 0, kAlarmLess, 100000, 0);
    alarm->SetConditionEnabled(kAlarmResolve, 1);
    alarm->SetCondition(kAlarmSuspect, 1000000, kAlarmGreater, 100000, 1);
    alarm->SetStatsTracker(tracker(i).Get());
    alarm->SetNotifySink(sink.Get());
    server->AddAlarm(alarm.Get());
    alarms.push_back(alarm);
  }
  ZemoTime now = kT0 + kSecond;
  server->ProcessTime(now);  // the trackers find their rows, the alarms start their clocks

  uint64_t ticks = 0;
  for (auto _ : state) {
    if (changing) {
      // Outside the timing: alternate ticks flip the threshold under and over the traffic.
      state.PauseTiming();
      const double threshold = ticks % 2 ? 100000 : -1;  // no traffic between ticks: rates are 0
      for (auto& a : alarms) {
        a->SetCondition(kAlarmProblem, 0, kAlarmGreater, threshold, 2);
        a->SetCondition(kAlarmResolve, 0, kAlarmLess, threshold + 1, 0);
      }
      state.ResumeTiming();
    }
    now += kSecond;
    benchmark::DoNotOptimize(server->ProcessTime(now));
    ++ticks;
  }
  state.SetItemsProcessed(state.iterations());
  // The time of one tracker and one alarm of the tick.
  state.counters["per_pair"] =
      benchmark::Counter(double(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["notifications_per_tick"] = double(sink->count) / double(ticks ? ticks : 1);
}
BENCHMARK(BM_ServerTick)
    ->ArgsProduct({{100, 1000, 10000}, {0, 1}})
    ->ArgNames({"n", "changing"})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
