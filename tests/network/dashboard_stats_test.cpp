#include "network/dashboard_stats.h"

#include "frame/clsids.h"
#include "network/error_stats.h"
#include "network/size_stats.h"
#include "tests/network/counter_stats_support.h"
#include "tests/network/faulty_packet.h"

namespace sized {
namespace {

using zemo::DashboardStats;
using zemo::PacketBuilder;

class DashboardStatsTest : public StatsTest {
 protected:
  static ComPtr<IHistoryStats> Finest(DashboardStats* dashboard) {
    ComPtr<IHistoryStats> history;
    EXPECT_EQ(S_OK, dashboard->GetHistory(history.ReleaseAndGetAddressOf()));
    return history;
  }
  static LONG IntervalOf(IHistoryStats* history) {
    LONG interval = 0;
    EXPECT_EQ(S_OK, history->GetInterval(&interval));
    return interval;
  }
  static LONG CountOf(IHistoryStats* history) {
    LONG count = 0;
    EXPECT_EQ(S_OK, history->GetSampleCount(&count));
    return count;
  }
  // One packet a second from kBase up to and including `seconds`.
  static void PacketsEachSecond(IProcessPacket* stats, int from, int to, ZemoTime offset = 0) {
    PacketBuilder p;
    for (int s = from; s <= to; ++s) {
      p.Time(kBase + static_cast<ZemoTime>(s) * kSec + offset).Length(1000);
      ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
    }
  }
};

TEST_F(DashboardStatsTest, ANewDashboardHasTheWholeLadderAndShowsTheFinestRung) {
  auto dashboard = DashboardStats::Create();
  EXPECT_EQ(11u, dashboard->RungCount());
  EXPECT_EQ(1, IntervalOf(Finest(dashboard.Get()).Get()));
  const ULONG limits[] = {120, 120, 180, 120, 120, 180, 144, 144, 168, 124, 49710};
  ASSERT_EQ(11u, zemo::DashboardLadder().size());
  for (size_t i = 0; i < 11; ++i) EXPECT_EQ(limits[i], zemo::DashboardLadder()[i].SampleLimit()) << i;
  EXPECT_EQ(E_POINTER, dashboard->GetHistory(nullptr));
  EXPECT_EQ(E_INVALIDARG, dashboard->ProcessPacket(nullptr));
}

TEST_F(DashboardStatsTest, TheFirstRungDropsWhenItHoldsItsHundredAndTwentySamples) {
  auto dashboard = DashboardStats::Create();
  PacketsEachSecond(dashboard.Get(), 0, 120);
  // At exactly 120 seconds the span ending there is still open: 119 samples.
  EXPECT_EQ(11u, dashboard->RungCount());
  EXPECT_EQ(119, CountOf(Finest(dashboard.Get()).Get()));
  ASSERT_EQ(S_OK, dashboard->ProcessTime(kBase + 120 * kSec + 1));
  EXPECT_EQ(10u, dashboard->RungCount());
  // The next rung has had the whole capture: 24 samples of five seconds.
  auto history = Finest(dashboard.Get());
  EXPECT_EQ(5, IntervalOf(history.Get()));
  EXPECT_EQ(24, CountOf(history.Get()));
  ZemoTime start = 0;
  EXPECT_EQ(S_OK, history->GetStartTime(&start));
  EXPECT_EQ(kBase, start);
  double* data = nullptr;
  LONG n = 0;
  ASSERT_EQ(S_OK, history->GetSamples(&data, &n));
  // A packet exactly at the end of a span still counts in it: the first
  // span holds six packets, the others five.
  EXPECT_EQ(1200.0, data[0]);
  EXPECT_EQ(1000.0, data[1]);
  EXPECT_EQ(1000.0, data[n - 1]);
  CoTaskMemFree(data);
}

TEST_F(DashboardStatsTest, RungsDropOutInTurnAndReadThePacketOnceForAll) {
  auto dashboard = DashboardStats::Create();
  PacketBuilder p;
  p.Length(100).Time(kBase);
  auto packet = zemo::testing::FaultyPacket::Create(p.Get());
  ASSERT_EQ(S_OK, dashboard->ProcessPacket(packet.Get()));
  EXPECT_EQ(2, packet->calls);  // the time and the length, once for all 11 rungs
  // Ticks carry the ladder on; each rung drops once its span has passed.
  const ZemoTime spans[] = {120, 600, 1800, 3600, 7200, 21600, 43200, 86400, 604800, 2678400};
  for (size_t i = 0; i < std::size(spans); ++i) {
    ASSERT_EQ(S_OK, dashboard->ProcessTime(kBase + spans[i] * kSec));
    EXPECT_EQ(11 - i, dashboard->RungCount()) << "at " << spans[i] << " s";
    ASSERT_EQ(S_OK, dashboard->ProcessTime(kBase + spans[i] * kSec + 1));
    EXPECT_EQ(10 - i, dashboard->RungCount()) << "after " << spans[i] << " s";
  }
  EXPECT_EQ(86400, IntervalOf(Finest(dashboard.Get()).Get()));
}

// A packet years after the first fills only what is kept: the rungs it
// would fill drop out without it, and the last rung takes a sample a day.
TEST_F(DashboardStatsTest, APacketYearsLaterFillsOnlyTheRungThatStays) {
  auto dashboard = DashboardStats::Create();
  PacketBuilder p;
  p.Length(100).Time(kBase);
  ASSERT_EQ(S_OK, dashboard->ProcessPacket(p.Get()));
  p.Time(kBase + 3 * 365 * 86400 * kSec + kSec / 2);
  ASSERT_EQ(S_OK, dashboard->ProcessPacket(p.Get()));
  EXPECT_EQ(1u, dashboard->RungCount());
  auto history = Finest(dashboard.Get());
  EXPECT_EQ(86400, IntervalOf(history.Get()));
  EXPECT_EQ(3 * 365, CountOf(history.Get()));
}

TEST_F(DashboardStatsTest, ResetRebuildsTheLadder) {
  auto dashboard = DashboardStats::Create();
  ASSERT_EQ(S_OK, dashboard->ProcessTime(kBase));
  ASSERT_EQ(S_OK, dashboard->ProcessTime(kBase + 700 * kSec));
  EXPECT_EQ(9u, dashboard->RungCount());
  ASSERT_EQ(S_OK, static_cast<IResetProcessing*>(dashboard.Get())->Reset());
  EXPECT_EQ(11u, dashboard->RungCount());
  auto history = Finest(dashboard.Get());
  EXPECT_EQ(1, IntervalOf(history.Get()));
  EXPECT_EQ(0, CountOf(history.Get()));
}

TEST_F(DashboardStatsTest, SavingAndLoadingKeepsTheRungsAndTheirSeries) {
  auto dashboard = DashboardStats::Create();
  PacketsEachSecond(dashboard.Get(), 0, 130, kSec / 2);
  ASSERT_EQ(10u, dashboard->RungCount());
  const std::vector<uint8_t> bytes = StreamBytes(dashboard.Get());
  ASSERT_GE(bytes.size(), 8u);
  EXPECT_EQ((std::vector<uint8_t>{1, 0, 0, 0, 10, 0, 0, 0}), std::vector<uint8_t>(bytes.begin(), bytes.begin() + 8));
  ULARGE_INTEGER size{};
  size.QuadPart = 3;
  EXPECT_EQ(S_OK, dashboard->GetSizeMax(&size));
  EXPECT_EQ(0u, size.QuadPart);

  auto copy = DashboardStats::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), bytes));
  EXPECT_EQ(10u, copy->RungCount());
  EXPECT_EQ(bytes, StreamBytes(copy.Get()));
  auto history = Finest(copy.Get());
  EXPECT_EQ(5, IntervalOf(history.Get()));
  EXPECT_EQ(26, CountOf(history.Get()));

  // Loaded rungs go on from the end of their series and drop at the limit
  // of their interval: the five-second rung fills at 600 seconds.
  PacketsEachSecond(copy.Get(), 131, 599, kSec / 2);
  EXPECT_EQ(10u, copy->RungCount());
  EXPECT_EQ(119, CountOf(Finest(copy.Get()).Get()));
  PacketsEachSecond(copy.Get(), 600, 600, kSec / 2);
  EXPECT_EQ(9u, copy->RungCount());
  EXPECT_EQ(10, IntervalOf(Finest(copy.Get()).Get()));
  EXPECT_EQ(60, CountOf(Finest(copy.Get()).Get()));
}

TEST_F(DashboardStatsTest, LoadRefusesOtherVersionsAndKeepsTheRungsReadBeforeAFailure) {
  auto dashboard = DashboardStats::Create();
  PacketsEachSecond(dashboard.Get(), 0, 10);
  std::vector<uint8_t> bytes = StreamBytes(dashboard.Get());

  auto copy = DashboardStats::Create();
  std::vector<uint8_t> v2 = bytes;
  v2[0] = 2;
  EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), v2));
  EXPECT_EQ(11u, copy->RungCount());
  EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), {1, 0, 0}));
  EXPECT_EQ(11u, copy->RungCount());

  // Cut inside the third history: two rungs stay; cut in the last: ten.
  size_t third = 8;
  for (int k = 0; k < 2; ++k) {
    ULONG n = 0;
    std::memcpy(&n, bytes.data() + third + 16, sizeof n);
    third += 20 + 8 * size_t{n};
  }
  EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), std::vector<uint8_t>(bytes.begin(), bytes.begin() + third + 10)));
  EXPECT_EQ(2u, copy->RungCount());
  EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), std::vector<uint8_t>(bytes.begin(), bytes.end() - 1)));
  EXPECT_EQ(10u, copy->RungCount());

  // A count far past the rungs that follow fails at the first missing one.
  std::vector<uint8_t> many = bytes;
  many[7] = 0x7F;
  EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), many));
  EXPECT_EQ(11u, copy->RungCount());

  // No rung at all: nothing to show.
  EXPECT_EQ(S_OK, LoadStreamBytes(copy.Get(), {1, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(0u, copy->RungCount());
  ComPtr<IHistoryStats> none;
  EXPECT_EQ(E_INVALIDARG, copy->GetHistory(none.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_OK, copy->ProcessTime(kBase));
  EXPECT_EQ(E_POINTER, copy->Load(static_cast<IStream*>(nullptr)));
}

TEST_F(DashboardStatsTest, LimitsOfLoadedRungsComeFromTheirInterval) {
  EXPECT_EQ(120u, zemo::DashboardSampleLimit(1));
  EXPECT_EQ(180u, zemo::DashboardSampleLimit(10));
  EXPECT_EQ(49710u, zemo::DashboardSampleLimit(86400));
  EXPECT_EQ(0xFFFFFFFFu / 7, zemo::DashboardSampleLimit(7));  // not in the ladder: the last rung's span
  EXPECT_EQ(0u, zemo::DashboardSampleLimit(0));

  // One rung of interval 60 with 119 samples: the next sample fills it.
  std::vector<uint8_t> bytes;
  Put<ULONG>(bytes, 1);
  Put<ULONG>(bytes, 1);
  Put<ULONG>(bytes, 1);
  Put<ULONG>(bytes, 60);
  Put<ZemoTime>(bytes, kBase);
  Put<ULONG>(bytes, 119);
  for (int i = 0; i < 119; ++i) Put<double>(bytes, 1.0);
  auto dashboard = DashboardStats::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(dashboard.Get(), bytes));
  ASSERT_EQ(S_OK, dashboard->ProcessTime(kBase + 119 * 60 * kSec));
  EXPECT_EQ(1u, dashboard->RungCount());
  ASSERT_EQ(S_OK, dashboard->ProcessTime(kBase + 120 * 60 * kSec + 1));
  EXPECT_EQ(0u, dashboard->RungCount());
}

TEST_F(DashboardStatsTest, AContextHoldingAllFourCountsEachPacketOnce) {
  auto context = Context(0, 0, 1000000000);
  auto sizes = Create<ISizeStats>(CLSID_SizeStats);
  auto errors = Create<IErrorStats>(CLSID_ErrorStats);
  auto history = Create<IHistoryStats>(CLSID_HistoryStats);
  auto dashboard = Create<IDashboardStats>(CLSID_DashboardStats);
  ASSERT_TRUE(sizes && errors && history && dashboard);
  ASSERT_EQ(S_OK, context->AddStats(CLSID_SizeStats, sizes.Query<IZemoStats>().Get()));
  ASSERT_EQ(S_OK, context->AddStats(CLSID_ErrorStats, errors.Query<IZemoStats>().Get()));
  ASSERT_EQ(S_OK, context->AddStats(CLSID_HistoryStats, history.Query<IZemoStats>().Get()));
  ASSERT_EQ(S_OK, context->AddStats(CLSID_DashboardStats, dashboard.Query<IZemoStats>().Get()));
  PacketBuilder p;
  for (int i = 0; i < 4; ++i) {
    p.Clear().Time(kBase + kSec / 4 * static_cast<ZemoTime>(i)).Length(9000);
    if (i == 3) p.Error().Status(kPacketStatusRunt);
    ASSERT_EQ(S_OK, context->ProcessPacket(p.Get()));
  }
  ASSERT_EQ(S_OK, context->ProcessTime(kBase + 3 * kSec));

  ULONGLONG buckets[12] = {};
  ASSERT_EQ(S_OK, sizes->GetBuckets(12, buckets));
  EXPECT_EQ(4u, buckets[9]);  // 8192-9017 on a gigabit link
  ULONGLONG counters[5] = {};
  ASSERT_EQ(S_OK, errors->GetCounters(5, counters));
  EXPECT_EQ(1u, counters[0]);
  EXPECT_EQ(1u, counters[3]);
  LONG n = 0;
  ASSERT_EQ(S_OK, history->GetSampleCount(&n));
  EXPECT_EQ(2, n);
  ComPtr<IHistoryStats> finest;
  ASSERT_EQ(S_OK, dashboard->GetHistory(finest.ReleaseAndGetAddressOf()));
  EXPECT_EQ(2, CountOf(finest.Get()));
  ComPtr<IZemoStatsContext> back;
  ASSERT_EQ(S_OK, dashboard.Query<IZemoStats>()->GetContext(back.ReleaseAndGetAddressOf()));
  EXPECT_EQ(static_cast<IZemoStatsContext*>(context.Get()), back.Get());

  // Every class is registered by its scripts under its program identifiers.
  for (const char16_t* progId : {u"ZemoStats.SizeStats", u"ZemoStats.ErrorStats.1", u"ZemoStats.HistoryStats",
                                 u"ZemoStats.DashboardStats.1"}) {
    CLSID clsid{};
    EXPECT_EQ(S_OK, CLSIDFromProgID(progId, &clsid)) << zemo::ToUtf8(progId);
  }
}

}  // namespace
}  // namespace sized
