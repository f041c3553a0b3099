// What the tracker, alarm and server tests share: a context with a NodeStats,
// a tracker of the bytes one address sends, and seconds played into it, so
// that the value a tracker gives at a second is whatever bytes the test sent.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "alarms/alarm.h"
#include "alarms/node_stats_tracker.h"
#include "engine/notify_sink.h"
#include "tests/tables/node_fixture.h"

namespace zemo::testing {

// Second s of the tests' time.
inline ZemoTime At(uint64_t s) { return kT0 + s * kSecond; }

class TrackerFixture : public NodeStatsFixture {
 public:
  void SetUp() override {
    NodeStatsFixture::SetUp();
    tracker = Tracker(Mac(0x01), kNodeBytesSent);
  }

  // A node tracker bound to the context.
  ComPtr<IZemoStatsTracker> Tracker(const MediaSpec& key, LONG stat) {
    auto t = NodeStatsTracker::Create();
    EXPECT_EQ(S_OK, t->SetKey(key));
    EXPECT_EQ(S_OK, t->SetStatType(stat));
    EXPECT_EQ(S_OK, t->SetContext(context.Get()));
    return ComPtr<IZemoStatsTracker>(t.Get());
  }

  // Address 1 sends `bytes` at second s (nothing for 0); the tracker samples.
  HRESULT Play(uint64_t s, USHORT bytes) {
    if (bytes) {
      EXPECT_EQ(S_OK, SendMac(0x01, 0x02, bytes, At(s)));
    }
    return tracker->Update(At(s));
  }

  double Value(uint64_t s) {
    double v = -1;
    EXPECT_EQ(S_OK, tracker->GetValue(At(s), &v)) << "second " << s;
    return v;
  }

  ComPtr<IZemoStatsTracker> tracker;
};

// An alarm on the fixture's tracker, testing its rate (bytes a second).
class AlarmFixture : public TrackerFixture {
 public:
  void SetUp() override {
    TrackerFixture::SetUp();
    alarm = Alarm::Create();
    sink = NotifySink::Create();
    CBstr name(u"Busy");
    ASSERT_EQ(S_OK, alarm->SetName(name.Get()));
    ASSERT_EQ(S_OK, alarm->SetTrackType(kAlarmTrackRate));
    ASSERT_EQ(S_OK, alarm->SetStatsTracker(tracker.Get()));
    ASSERT_EQ(S_OK, alarm->SetNotifySink(sink.Get()));
    // Suspect out of the way unless a test sets it: its count rises with
    // every Problem round, and its duration starts at 0.
    Condition(kAlarmSuspect, 1000, kAlarmGreater, 0, 0, false);
  }

  void Condition(AlarmConditionKind kind, LONG duration, AlarmComparison comparison, double threshold,
                 LONG severity = 0, bool enabled = true) {
    ASSERT_EQ(S_OK, alarm->SetCondition(kind, duration, comparison, threshold, severity));
    ASSERT_EQ(S_OK, alarm->SetConditionEnabled(kind, enabled ? 1 : 0));
  }

  struct Change {
    uint64_t second;
    AlarmConditionKind state;
    bool operator==(const Change&) const = default;
  };

  // One second each, from second 0: the bytes sent, a sample and an
  // evaluation; the changes of state, by second.
  std::vector<Change> Run(const std::vector<USHORT>& bytes) {
    std::vector<Change> changes;
    for (size_t s = 0; s < bytes.size(); ++s) {
      EXPECT_EQ(S_OK, Play(s, bytes[s]));
      LONG changed = 0;
      AlarmConditionKind state = static_cast<AlarmConditionKind>(0);
      EXPECT_EQ(S_OK, alarm->Evaluate(At(s), &changed, &state));
      if (changed) changes.push_back({s, state});
    }
    return changes;
  }

  ComPtr<Alarm> alarm;
  ComPtr<NotifySink> sink;
};

}  // namespace zemo::testing
