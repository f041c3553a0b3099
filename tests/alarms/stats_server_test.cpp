// StatsServer: the tick and its order, the alarm states with their cursor,
// reset, selection, and a server ticking while packets flow and readers read.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "alarms/alarm_collection.h"
#include "alarms/stats_server.h"
#include "frame/module.h"
#include "frame/selection.h"
#include "platform/class_store.h"
#include "tests/alarms/alarm_fixture.h"
#include "tests/support/table_cells.h"

namespace {

using namespace zemo;
using namespace zemo::testing;

class CountingUpdater final : public Object<CountingUpdater, IStatsUpdater> {
 public:
  HRESULT Update(IZemoStatsContext*) override {
    ++updates;
    return S_OK;
  }
  std::atomic<int> updates{0};
};

class Server : public AlarmFixture {
 public:
  void SetUp() override {
    AlarmFixture::SetUp();
    server = StatsServer::Create();
    updater = CountingUpdater::Create();
    ASSERT_EQ(S_OK, context->SetStatsUpdater(updater->GetUnknown()));
    ASSERT_EQ(S_OK, server->SetContext(context.Get()));
    Condition(kAlarmProblem, 0, kAlarmGreater, 100, 7);
  }

  // Address 1 sends `bytes` in second s, then the server ticks.
  HRESULT Tick(uint64_t s, USHORT bytes) {
    if (bytes) {
      EXPECT_EQ(S_OK, SendMac(0x01, 0x02, bytes, At(s)));
    }
    return server->ProcessTime(At(s));
  }

  AlarmConditionKind State(IAlarm* a) {
    AlarmConditionKind state{};
    LONG severity = 0;
    EXPECT_EQ(S_OK, a->GetAlarmState(&state, &severity));
    return state;
  }

  std::vector<AlarmStateEntry> States(ZemoTime* since) {
    ComPtr<IAlarmStates> states;
    EXPECT_EQ(S_OK, server->GetAlarmStates(states.ReleaseAndGetAddressOf(), since));
    LONG n = 0;
    EXPECT_EQ(S_OK, states->GetStateCount(&n));
    std::vector<AlarmStateEntry> out(static_cast<size_t>(n));
    for (LONG i = 0; i < n; ++i) EXPECT_EQ(S_OK, states->GetState(i, &out[i].id, &out[i].condition, &out[i].severity));
    return out;
  }

  ComPtr<StatsServer> server;
  ComPtr<CountingUpdater> updater;
};

TEST_F(Server, TicksTheSummaryThenTrackersThenAlarms) {
  // Nothing to run: the context is not touched.
  ASSERT_EQ(S_OK, Tick(0, 50));
  EXPECT_EQ(0, updater->updates);

  // One alarm and no trackers: the summary and the alarm's tracker run; the
  // first tick starts the alarm's clock, the second may change its state.
  ASSERT_EQ(S_OK, server->AddAlarm(alarm.Get()));
  ASSERT_EQ(S_OK, Tick(1, 200));
  EXPECT_EQ(1, updater->updates);
  ZemoTime last = 0;
  ASSERT_EQ(S_OK, tracker->GetLastTime(&last));
  EXPECT_EQ(At(1), last);
  EXPECT_EQ(kAlarmResolve, State(alarm.Get()));
  ASSERT_EQ(S_OK, Tick(2, 200));
  EXPECT_EQ(kAlarmProblem, State(alarm.Get()));

  // A second alarm, whose node never appears, never runs and is never reported.
  auto quiet = Alarm::Create();
  ASSERT_EQ(S_OK, quiet->SetTrackType(kAlarmTrackRate));
  ASSERT_EQ(S_OK, quiet->SetStatsTracker(Tracker(Mac(0x09), kNodeBytesSent).Get()));
  ASSERT_EQ(S_OK, server->AddAlarm(quiet.Get()));
  ASSERT_EQ(S_OK, Tick(3, 10));
  ZemoTime since = 0;
  std::vector<AlarmStateEntry> states = States(&since);
  ASSERT_EQ(1u, states.size());
  GUID id{};
  ASSERT_EQ(S_OK, alarm->GetID(&id));
  EXPECT_EQ(id, states[0].id);
  EXPECT_EQ(ULONG{kAlarmProblem}, states[0].condition);
  EXPECT_EQ(7u, states[0].severity);
  EXPECT_EQ(At(2), since);
  // The cursor reports the alarm that set it once more; a later one nothing.
  EXPECT_EQ(1u, States(&since).size());
  since = At(2) + 1;
  EXPECT_TRUE(States(&since).empty());
  EXPECT_EQ(At(2) + 1, since);
  ComPtr<IIdList> ids;
  ASSERT_EQ(S_OK, server->GetAlarmIDs(ids.ReleaseAndGetAddressOf()));
  LONG count = 0;
  ASSERT_EQ(S_OK, ids->GetCount(&count));
  EXPECT_EQ(2, count);
  EXPECT_EQ(S_OK, server->GetAlarmIDs(nullptr));

  // A tracker in the list and on an alarm takes two slots a tick.
  ASSERT_EQ(S_OK, server->AddTracker(tracker.Get()));
  ASSERT_EQ(S_OK, Tick(4, 0));
  ASSERT_EQ(S_OK, tracker->GetLastTime(&last));
  EXPECT_EQ(At(5), last);
  EXPECT_EQ(S_OK, server->RemoveTracker(Tracker(Mac(0x01), kNodeBytesSent).Get()));  // not in the list
  ASSERT_EQ(S_OK, server->RemoveTracker(tracker.Get()));

  // Reset keeps the lists: the rings start empty, the alarms from Resolve
  // with their clocks stopped.
  ComPtr<IZemoStatsTracker> listed = Tracker(Mac(0x01), kNodeBytesSent);
  ASSERT_EQ(S_OK, server->AddTracker(listed.Get()));
  ASSERT_EQ(S_OK, Tick(6, 0));
  ASSERT_EQ(S_OK, server->Reset());
  ASSERT_EQ(S_OK, listed->GetLastTime(&last));
  EXPECT_EQ(0u, last);
  EXPECT_EQ(kAlarmResolve, State(alarm.Get()));
  ASSERT_EQ(S_OK, Tick(10, 200));
  EXPECT_EQ(kAlarmResolve, State(alarm.Get()));
  ASSERT_EQ(S_OK, Tick(11, 200));
  EXPECT_EQ(kAlarmProblem, State(alarm.Get()));

  // An alarm that fails ends the tick: the alarms behind it wait.
  ASSERT_EQ(S_OK, server->RemoveAllAlarms());
  ASSERT_EQ(S_OK, ids->GetCount(&count));
  EXPECT_EQ(0, count);
  auto broken = Alarm::Create();
  ASSERT_EQ(S_OK, broken->SetStatsTracker(Tracker(Mac(0x01), kNodeBytesSent).Get()));
  ASSERT_EQ(S_OK, server->AddAlarm(broken.Get()));
  ASSERT_EQ(S_OK, alarm->ResetState());
  ASSERT_EQ(S_OK, server->AddAlarm(alarm.Get()));
  ASSERT_EQ(S_OK, Tick(12, 200));  // clocks start
  EXPECT_EQ(E_FAIL, Tick(13, 200));  // no track type
  EXPECT_EQ(kAlarmResolve, State(alarm.Get()));
  // The tracker list stayed through all of it.
  const int before = updater->updates;
  ASSERT_EQ(S_OK, server->RemoveAllAlarms());
  ASSERT_EQ(S_OK, Tick(14, 0));
  EXPECT_EQ(before + 1, updater->updates);

  // The server's id list is the engine's; without it there is no server.
  ASSERT_EQ(S_OK, UnregisterEngineClasses());
  ComPtr<IUnknown> none;
  EXPECT_TRUE(FAILED(CreateModuleInstance(CLSID_StatsServer, IUnknown::iid, none.OutVoid())));
  ASSERT_EQ(S_OK, RegisterEngineClasses());
}

TEST_F(Server, SelectsItsContextAndAlarmsAndTablesTheirStates) {
  ASSERT_EQ(S_OK, server->AddAlarm(alarm.Get()));
  ASSERT_EQ(S_OK, Tick(0, 50));
  ASSERT_EQ(S_OK, Tick(1, 200));
  auto calm = Alarm::Create();
  CBstr name(u"Calm");
  ASSERT_EQ(S_OK, calm->SetName(name.Get()));
  ASSERT_EQ(S_OK, server->AddAlarm(calm.Get()));

  ComPtr<ISelectParams> offered;
  ASSERT_EQ(S_OK, server->GetSelectParams(offered.ReleaseAndGetAddressOf()));
  CBstr step;
  ComPtr<IPropertyBag> bag;
  ASSERT_EQ(S_OK, offered->NextItem(step.Out(), bag.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"statscontext", step.View());
  EXPECT_FALSE(bag);
  ASSERT_EQ(S_OK, offered->NextItem(step.Out(), bag.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"alarm", step.View());
  CVariant type;
  ASSERT_EQ(S_OK, bag->Read(u"id", &type, nullptr));
  EXPECT_EQ(VT_CLSID, type.lVal);

  auto select = [&](const char16_t* first, const char16_t* alarmName) {
    ComPtr<ISelectParams> params = NewSelectParams();
    ComPtr<IPropertyBag> properties;
    if (alarmName) {
      properties = NewTypeBag({});
      CVariant v = CVariant::Str(alarmName);
      EXPECT_EQ(S_OK, properties->Write(u"name", &v));
    }
    AddSelectStep(params.Get(), first, properties.Get());
    ComPtr<IUnknown> out;
    HRESULT hr = server->Select(params.Get(), out.ReleaseAndGetAddressOf());
    return hr == S_OK ? out : ComPtr<IUnknown>();
  };
  EXPECT_TRUE(SameObject(context->GetUnknown(), select(u"StatsContext", nullptr).Get()));
  EXPECT_TRUE(SameObject(calm->GetUnknown(), select(u"alarm", u"calm").Get()));
  EXPECT_FALSE(select(u"alarm", nullptr));

  auto t = zemo::testing_support::ReadTable(server.Get());
  ASSERT_EQ(2u, t.rows.size());
  EXPECT_EQ(u"problem: 7", t.Text(0, 2));
  EXPECT_EQ(u"resolved: 0", t.Text(1, 2));
}

// Packets on one thread, ticks on another, readers on a third: each object
// takes its own lock, server before tracker or alarm before statistic, so
// nothing deadlocks; under ThreadSanitizer an inversion fails the run. In
// the end the trackers hold what the table holds.
TEST_F(Server, TicksWhilePacketsFlowAndReadersRead) {
  constexpr uint64_t kSeconds = 120;
  constexpr int kNodes = 6;
  std::vector<ComPtr<IZemoStatsTracker>> trackers;
  ASSERT_EQ(S_OK, SendMac(0x01, 0x02, 60, At(0)));
  for (int n = 1; n <= kNodes; ++n) {
    ASSERT_EQ(S_OK, SendMac(static_cast<uint8_t>(n), 0x02, 60, At(0)));
    trackers.push_back(Tracker(Mac(static_cast<uint8_t>(n)), kNodeBytesSent));
    ASSERT_EQ(S_OK, server->AddTracker(trackers.back().Get()));
  }
  ASSERT_EQ(S_OK, server->AddAlarm(alarm.Get()));

  // The packets of a second follow the tick of the second before, as a
  // host's do: a tick never sees a later second's bytes, so the rates and
  // the alarm's end state do not depend on how the threads are scheduled.
  std::atomic<uint64_t> second{0}, ticked{0};
  std::atomic<bool> done{false};
  std::thread packets([&] {
    for (uint64_t s = 1; s <= kSeconds; ++s) {
      while (ticked.load() + 1 < s) std::this_thread::yield();
      for (int n = 1; n <= kNodes; ++n) SendMac(static_cast<uint8_t>(n), 0x02, static_cast<USHORT>(60 + s), At(s));
      second = s;
    }
  });
  std::thread ticks([&] {
    for (uint64_t s = 1; s <= kSeconds;) {
      if (second.load() >= s) {
        server->ProcessTime(At(s));
        ticked = s++;
      } else {
        std::this_thread::yield();
      }
    }
  });
  std::thread readers([&] {
    while (!done) {
      double v = 0;
      for (auto& t : trackers) t->GetValueRate(At(second.load()), &v);
      ZemoTime since = 0;
      ComPtr<IAlarmStates> states;
      server->GetAlarmStates(states.ReleaseAndGetAddressOf(), &since);
      ComPtr<IDataTable> table;
      server->GetTable(table.ReleaseAndGetAddressOf());
    }
  });
  packets.join();
  ticks.join();
  done = true;
  readers.join();
  for (int n = 1; n <= kNodes; ++n) {
    double v = 0;
    ASSERT_EQ(S_OK, trackers[n - 1]->GetValue(At(kSeconds), &v));
    EXPECT_EQ(double(Record(Mac(static_cast<uint8_t>(n))).Stat.BytesSent), v) << n;
  }
  EXPECT_EQ(kAlarmProblem, State(alarm.Get()));
}

}  // namespace
