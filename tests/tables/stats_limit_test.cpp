#include "tables/stats_limit.h"

#include <gtest/gtest.h>

#include "engine/notify_sink.h"
#include "platform/clock.h"
#include "tests/tables/node_fixture.h"

namespace {

using namespace zemo::testing;
using zemo::ComPtr;
using zemo::NodeStats;
using zemo::NotifySink;
using zemo::ZemoStatsLimitSettings;

constexpr GUID kContextId = MakeGuid("C0000000-1111-2222-3333-444444444444");

class StatsLimits : public NodeStatsFixture {
 protected:
  void SetUp() override {
    NodeStatsFixture::SetUp();
    settings = ZemoStatsLimitSettings::Create();
    sink = NotifySink::Create();
    Arm(stats.Get());
  }
  void Arm(NodeStats* s) {
    ASSERT_EQ(S_OK, s->SetSettings(settings.Get()));
    ASSERT_EQ(S_OK, s->SetNotifySink(sink.Get()));
    ASSERT_EQ(S_OK, s->SetContextId(kContextId));
  }
  // Limit, Enabled, Reset, Notify with severity 5.
  void Configure(ULONG limit, LONG enabled, LONG reset, LONG notify) {
    settings->SetLimit(limit);
    settings->SetEnabled(enabled);
    settings->SetReset(reset);
    settings->SetNotify(notify, 5);
  }
  ULONG Resets(NodeStats* s) {
    ULONG n = 0;
    EXPECT_EQ(S_OK, s->GetResetCount(&n));
    return n;
  }

  ComPtr<ZemoStatsLimitSettings> settings;
  ComPtr<NotifySink> sink;
};

TEST_F(StatsLimits, WithoutSettingsATableIsNeverLimited) {
  auto free = Sibling();
  ASSERT_EQ(S_OK, free->SetNotifySink(sink.Get()));
  for (int i = 0; i < 300; ++i) {
    MediaSpec from = zemo::specs::Make(10, {0x02, 0, 0, 0, uint8_t(i >> 8), uint8_t(i)});
    MediaSpec to = zemo::specs::Make(10, {0x04, 0, 0, 0, uint8_t(i >> 8), uint8_t(i)});
    ASSERT_EQ(S_OK, Send(from, kNone, to, kNone, 64, kT0, free.Get()));
  }
  EXPECT_EQ(600u, Count(free.Get()));
  EXPECT_FALSE(free->IsPaused());
  EXPECT_EQ(0u, sink->Count());
  ComPtr<IZemoStatsLimitSettings> none;
  EXPECT_EQ(S_OK, free->GetSettings(none.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(none);
}

TEST_F(StatsLimits, ALimitThatStopsCountingNotifiesOnceWithTheExactText) {
  Configure(4, 1, 0, 1);
  zemo::SetNowForTesting(kT0 + 77);
  ASSERT_EQ(S_OK, SendMac(1, 2));
  ASSERT_EQ(S_OK, SendMac(3, 4));  // 2 records before, 4 after: the test comes first
  EXPECT_EQ(0u, sink->Count());
  EXPECT_EQ(S_FALSE, SendMac(5, 6));
  zemo::SetNowForTesting(0);
  EXPECT_EQ(4u, Count(stats.Get()));
  EXPECT_TRUE(stats->IsPaused());
  EXPECT_EQ(kT0 + 77, stats->ReachedTime());  // the wall clock, not the packet's time

  ASSERT_EQ(1u, sink->Count());
  zemo::Notification n = sink->At(0);
  EXPECT_EQ(u"The Node Statistics limit was reached.", n.shortMessage);
  EXPECT_EQ(u"", n.longMessage);
  EXPECT_EQ(kContextId, n.context);
  EXPECT_EQ(GUID_NULL, n.source);
  EXPECT_EQ(0u, n.value);
  EXPECT_EQ(0u, n.time);
  EXPECT_EQ(5, n.severity);

  // Paused: every further packet is skipped without a word, even under a higher limit.
  settings->SetLimit(1000);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(S_FALSE, SendMac(7, 8));
  EXPECT_EQ(4u, Count(stats.Get()));
  EXPECT_EQ(1u, sink->Count());

  // A reset arms it again: the table counts until it reaches the limit anew.
  settings->SetLimit(2);
  ASSERT_EQ(S_OK, stats->Reset());
  EXPECT_FALSE(stats->IsPaused());
  EXPECT_EQ(S_OK, SendMac(9, 10));
  EXPECT_EQ(S_FALSE, SendMac(11, 12));
  EXPECT_EQ(2u, sink->Count());
}

TEST_F(StatsLimits, ALimitOfZeroTripsOnTheFirstPacketBeforeAnythingCounts) {
  Configure(0, 1, 0, 1);
  EXPECT_EQ(S_FALSE, SendMac(1, 2));
  EXPECT_EQ(0u, Count(stats.Get()));
  EXPECT_EQ(1u, sink->Count());
}

TEST_F(StatsLimits, AResettingLimitEmptiesTheTableAndCountsThePacketThatTrippedIt) {
  Configure(3, 1, 1, 1);
  ULONG before = Resets(stats.Get());
  ASSERT_EQ(S_OK, SendMac(1, 2));
  ASSERT_EQ(S_OK, SendMac(3, 4));
  ASSERT_EQ(4u, Count(stats.Get()));
  ASSERT_EQ(S_OK, SendMac(5, 6));
  EXPECT_EQ(2u, Count(stats.Get()));  // the packet's own records only
  EXPECT_EQ(1u, Record(Mac(5)).Stat.PacketsSent);
  EXPECT_EQ(before + 1, Resets(stats.Get()));
  EXPECT_FALSE(stats->IsPaused());
  ASSERT_EQ(1u, sink->Count());
  EXPECT_EQ(u"The Node Statistics limit was reached and reset.", sink->At(0).shortMessage);

  // Armed again at once: the next crossing resets again and notifies again.
  ASSERT_EQ(S_OK, SendMac(7, 8));
  ASSERT_EQ(S_OK, SendMac(9, 10));
  EXPECT_EQ(2u, Count(stats.Get()));
  EXPECT_EQ(before + 2, Resets(stats.Get()));
  EXPECT_EQ(2u, sink->Count());
}

TEST_F(StatsLimits, AnUnenforcedLimitNotifiesOnceAndLetsTheTableGrow) {
  Configure(2, 0, 0, 1);
  for (int i = 0; i < 10; ++i) ASSERT_EQ(S_OK, SendMac(uint8_t(2 * i), uint8_t(2 * i + 1)));
  EXPECT_EQ(20u, Count(stats.Get()));
  EXPECT_EQ(1u, sink->Count());
  ASSERT_EQ(S_OK, stats->Reset());
  ASSERT_EQ(S_OK, SendMac(1, 2));
  ASSERT_EQ(S_OK, SendMac(3, 4));
  EXPECT_EQ(2u, sink->Count());

  // With Reset set but not enforced: the "and reset" text, and nothing is reset.
  Configure(0, 0, 1, 1);
  ASSERT_EQ(S_OK, stats->Reset());
  ULONG resets = Resets(stats.Get());
  ASSERT_EQ(S_OK, SendMac(1, 2));
  EXPECT_EQ(2u, Count(stats.Get()));
  EXPECT_EQ(resets, Resets(stats.Get()));
  ASSERT_EQ(3u, sink->Count());
  EXPECT_EQ(u"The Node Statistics limit was reached and reset.", sink->At(2).shortMessage);
}

TEST_F(StatsLimits, WithoutNotifyOrSinkTheLimitActsSilently) {
  Configure(0, 1, 0, 0);
  EXPECT_EQ(S_FALSE, SendMac(1, 2));
  EXPECT_TRUE(stats->IsPaused());
  EXPECT_EQ(0u, sink->Count());

  ASSERT_EQ(S_OK, stats->SetNotifySink(nullptr));
  Configure(0, 1, 0, 1);
  ASSERT_EQ(S_OK, stats->Reset());
  EXPECT_EQ(S_FALSE, SendMac(1, 2));
  EXPECT_EQ(0u, sink->Count());
  ComPtr<INotify> none;
  EXPECT_EQ(S_OK, stats->GetNotifySink(none.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(none);
}

TEST_F(StatsLimits, AFailingSinkFailsThePacketOnceAndTheCheckDoesNotRepeat) {
  Configure(0, 1, 0, 1);
  const HRESULT kSinkFailure = static_cast<HRESULT>(0x80045678);
  sink->SetResult(kSinkFailure);
  EXPECT_EQ(kSinkFailure, SendMac(1, 2));
  EXPECT_FALSE(stats->IsPaused());  // the failure came before the enforcement
  // Reached stays set: the next packet is counted and notifies nobody.
  EXPECT_EQ(S_OK, SendMac(1, 2));
  EXPECT_EQ(2u, Count(stats.Get()));
  EXPECT_EQ(1u, sink->Count());  // the failing call reached the sink, and no other
}

TEST_F(StatsLimits, LinkedStatisticsArePausedOrResetWithTheTable) {
  auto linked = Sibling();
  ASSERT_EQ(S_OK, SendMac(0x40, 0x41, 64, kT0, linked.Get()));
  // Neither IZemoStats nor IZemoStatsLimit: passed over.
  ASSERT_EQ(S_OK, stats->AddLinkedStatistic(settings->GetUnknown()));
  ASSERT_EQ(S_OK, stats->AddLinkedStatistic(static_cast<INodeStats*>(linked.Get())));
  EXPECT_EQ(E_POINTER, stats->AddLinkedStatistic(nullptr));

  Configure(0, 1, 0, 1);
  EXPECT_EQ(S_FALSE, SendMac(1, 2));
  EXPECT_TRUE(linked->IsPaused());
  EXPECT_EQ(S_FALSE, SendMac(0x40, 0x41, 64, kT0, linked.Get()));
  EXPECT_EQ(2u, Count(linked.Get()));  // paused, not emptied
  EXPECT_EQ(1u, sink->Count());        // the linked statistic has no sink of its own here

  // A reset of one does not resume the other.
  ASSERT_EQ(S_OK, stats->Reset());
  EXPECT_TRUE(linked->IsPaused());
  ASSERT_EQ(S_OK, linked->Reset());

  // With Reset set the linked table is emptied and its reset count grows.
  Configure(0, 1, 1, 1);
  ASSERT_EQ(S_OK, stats->Reset());
  ASSERT_EQ(S_OK, SendMac(0x40, 0x41, 64, kT0, linked.Get()));
  ULONG linkedResets = Resets(linked.Get());
  ASSERT_EQ(S_OK, SendMac(1, 2));
  EXPECT_EQ(0u, Count(linked.Get()));
  EXPECT_EQ(linkedResets + 1, Resets(linked.Get()));
  EXPECT_FALSE(linked->IsPaused());
}

TEST_F(StatsLimits, AccessorsGuardTheirArguments) {
  ComPtr<IZemoStatsLimitSettings> got;
  ASSERT_EQ(S_OK, stats->GetSettings(got.ReleaseAndGetAddressOf()));
  EXPECT_EQ(static_cast<IZemoStatsLimitSettings*>(settings.Get()), got.Get());
  // A null settings object is refused and the old one stays.
  EXPECT_EQ(E_POINTER, stats->SetSettings(nullptr));
  ASSERT_EQ(S_OK, stats->GetSettings(got.ReleaseAndGetAddressOf()));
  EXPECT_TRUE(got);
  GUID id{};
  ASSERT_EQ(S_OK, stats->GetContextId(&id));
  EXPECT_EQ(kContextId, id);
  EXPECT_EQ(E_POINTER, stats->GetContextId(nullptr));
  EXPECT_EQ(E_POINTER, stats->GetResetCount(nullptr));
  EXPECT_EQ(E_POINTER, stats->GetSettings(nullptr));
  EXPECT_EQ(E_POINTER, stats->GetNotifySink(nullptr));

  // Pause from outside stops the table until a reset; the reached time stays.
  ASSERT_EQ(S_OK, stats->Pause());
  EXPECT_EQ(S_FALSE, SendMac(1, 2));
  EXPECT_EQ(zemo::StatsLimit::kNotReached, stats->ReachedTime());
  ASSERT_EQ(S_OK, static_cast<IZemoStatsLimit*>(stats.Get())->Reset());
  EXPECT_EQ(S_OK, SendMac(1, 2));
}

}  // namespace
