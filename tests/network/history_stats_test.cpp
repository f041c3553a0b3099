#include "network/history_stats.h"

#include <algorithm>

#include "frame/clsids.h"
#include "tests/network/counter_stats_support.h"

namespace sized {
namespace {

using zemo::HistoryStats;
using zemo::PacketBuilder;

class HistoryStatsTest : public StatsTest {
 protected:
  static std::vector<double> Samples(IHistoryStats* history) {
    double* data = nullptr;
    LONG count = -1;
    EXPECT_EQ(S_OK, history->GetSamples(&data, &count));
    std::vector<double> out(data, data + count);
    CoTaskMemFree(data);
    return out;
  }

  static HRESULT Packet(IProcessPacket* stats, ZemoTime t, USHORT length) {
    PacketBuilder p;
    p.Time(t).Length(length);
    return stats->ProcessPacket(p.Get());
  }

  static std::vector<uint8_t> Stream(ULONG version, ULONG interval, ZemoTime start, const std::vector<double>& samples,
                                     ULONG count) {
    std::vector<uint8_t> out;
    Put(out, version);
    Put(out, interval);
    Put(out, start);
    Put(out, count);
    for (double s : samples) Put(out, s);
    return out;
  }
};

TEST_F(HistoryStatsTest, ASteadyRateGivesThatRateOnceTheFirstSpanIsPast) {
  auto history = HistoryStats::Create();
  ZemoTime start = 0;
  EXPECT_EQ(S_OK, history->GetStartTime(&start));
  EXPECT_EQ(0u, start);
  // Four packets of 1000 bytes a second, the first five eighths of a second in.
  for (int i = 2; i < 4 * 6; ++i) ASSERT_EQ(S_OK, Packet(history.Get(), kBase + kSec / 8 + kSec / 4 * i, 1000));
  EXPECT_EQ(S_OK, history->GetStartTime(&start));
  EXPECT_EQ(kBase + kSec / 8 * 5, start);
  // The first span held two packets in its three eighths of a second.
  std::vector<double> samples = Samples(history.Get());
  ASSERT_EQ(5u, samples.size());
  EXPECT_DOUBLE_EQ(2000 / 0.375, samples[0]);
  EXPECT_EQ((std::vector<double>{4000, 4000, 4000, 4000}), std::vector<double>(samples.begin() + 1, samples.end()));

  auto slow = HistoryStats::Create();
  ASSERT_EQ(S_OK, slow->SetInterval(10));
  for (int i = 0; i < 40; ++i) ASSERT_EQ(S_OK, Packet(slow.Get(), kBase + kSec * i + 3 * kSec / 4, 250));
  samples = Samples(slow.Get());
  ASSERT_EQ(3u, samples.size());
  EXPECT_DOUBLE_EQ(2500 / 9.25, samples[0]);
  EXPECT_EQ(250.0, samples[1]);
  EXPECT_EQ(250.0, samples[2]);
  LONG interval = 0;
  EXPECT_EQ(S_OK, slow->GetInterval(&interval));
  EXPECT_EQ(10, interval);
}

TEST_F(HistoryStatsTest, TicksExactlyAtTheNextTimeTakeNoSample) {
  auto history = HistoryStats::Create();
  ASSERT_EQ(S_OK, history->ProcessTime(kBase));  // a tick starts the series too
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase, 600));
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + kSec));
  LONG count = -1;
  EXPECT_EQ(S_OK, history->GetSampleCount(&count));
  EXPECT_EQ(0, count);
  // A packet at the end still counts in the open span.
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase + kSec, 400));
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + kSec + 1));
  EXPECT_EQ((std::vector<double>{1000}), Samples(history.Get()));
  // A tick older than the next time does nothing.
  ASSERT_EQ(S_OK, history->ProcessTime(kBase));
  EXPECT_EQ((std::vector<double>{1000}), Samples(history.Get()));
}

TEST_F(HistoryStatsTest, OneLatePacketAppendsTheOpenSpanAndAZeroForEachEmptyOne) {
  auto history = HistoryStats::Create();
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase, 300));
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase + kSec + 9 * kSec + kSec / 2, 7));  // next time + 9.5 intervals
  std::vector<double> expected(10, 0.0);
  expected[0] = 300;
  EXPECT_EQ(expected, Samples(history.Get()));
  // Its own bytes wait in the span that it falls in.
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 11 * kSec + 1));
  EXPECT_EQ(7.0, Samples(history.Get()).back());
}

TEST_F(HistoryStatsTest, GapsOfManyIntervalsGiveOneSampleForEachAndGrowInSteps) {
  auto history = HistoryStats::Create();
  ASSERT_EQ(S_OK, history->SetInterval(5));
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 2 * kSec));  // first span ends at kBase + 7
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase + 3 * kSec, 500));
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 7 * kSec + 1000 * 5 * kSec));
  std::vector<double> samples = Samples(history.Get());
  ASSERT_EQ(1000u, samples.size());
  EXPECT_EQ(100.0, samples[0]);  // 500 bytes over the 5 seconds from the tick
  for (size_t i = 1; i < samples.size(); ++i) ASSERT_EQ(0.0, samples[i]);
  // The clock stays on its five-second grid across the gap.
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 7 * kSec + 1001 * 5 * kSec));
  EXPECT_EQ(1001u, Samples(history.Get()).size());
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 7 * kSec + 1001 * 5 * kSec + 1));
  EXPECT_EQ(1002u, Samples(history.Get()).size());

  // Long runs of empty spans come out whole after more samples, in the
  // series, in the stream and in a copy loaded from it.
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase + 7 * kSec + 1001 * 5 * kSec + 2, 50));
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 7 * kSec + 3001 * 5 * kSec + 1));
  samples = Samples(history.Get());
  ASSERT_EQ(3002u, samples.size());
  EXPECT_EQ(100.0, samples[0]);
  EXPECT_EQ(10.0, samples[1002]);
  EXPECT_EQ(3000u, size_t(std::count(samples.begin(), samples.end(), 0.0)));
  std::vector<uint8_t> saved = StreamBytes(history.Get());
  EXPECT_EQ(20u + 8 * 3002, saved.size());
  auto copy = HistoryStats::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), saved));
  EXPECT_EQ(samples, Samples(copy.Get()));
}

TEST_F(HistoryStatsTest, AGapPastTheLargestSeriesIsRefusedAndKeepsTheSamples) {
  auto history = HistoryStats::Create();
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase, 100));
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 2 * kSec));
  const ZemoTime farAhead = kBase + (HistoryStats::kMaxSamples + 5) * kSec;
  EXPECT_EQ(E_OUTOFMEMORY, history->ProcessTime(farAhead));
  EXPECT_EQ(E_OUTOFMEMORY, Packet(history.Get(), farAhead, 1));
  EXPECT_EQ((std::vector<double>{100}), Samples(history.Get()));
  // A time stamp at the very top of the range is one too.
  EXPECT_EQ(E_OUTOFMEMORY, history->ProcessTime(~0ull));
}

TEST_F(HistoryStatsTest, ResetAndSetIntervalStartOver) {
  auto history = HistoryStats::Create();
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase, 100));
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 3 * kSec));
  ASSERT_EQ(S_OK, history->SetInterval(1));  // the same interval still throws the samples away
  LONG count = -1;
  EXPECT_EQ(S_OK, history->GetSampleCount(&count));
  EXPECT_EQ(0, count);
  ZemoTime start = 1;
  EXPECT_EQ(S_OK, history->GetStartTime(&start));
  EXPECT_EQ(0u, start);
  EXPECT_EQ(E_INVALIDARG, history->SetInterval(0));
  EXPECT_EQ(E_INVALIDARG, history->SetInterval(-5));
  ASSERT_EQ(S_OK, history->SetInterval(30));
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase, 100));
  ASSERT_EQ(S_OK, history->Reset());
  LONG interval = 0;
  EXPECT_EQ(S_OK, history->GetInterval(&interval));
  EXPECT_EQ(30, interval);  // Reset keeps the interval
  EXPECT_EQ(S_OK, history->GetStartTime(&start));
  EXPECT_EQ(0u, start);

  double* data = reinterpret_cast<double*>(8);
  count = 5;
  EXPECT_EQ(S_OK, history->GetSamples(&data, &count));
  EXPECT_EQ(nullptr, data);
  EXPECT_EQ(0, count);
  EXPECT_EQ(E_POINTER, history->GetSamples(nullptr, &count));
  EXPECT_EQ(E_POINTER, history->GetSamples(&data, nullptr));
  EXPECT_EQ(E_POINTER, history->GetInterval(nullptr));
  EXPECT_EQ(E_POINTER, history->GetStartTime(nullptr));
  EXPECT_EQ(E_POINTER, history->GetSampleCount(nullptr));
  EXPECT_EQ(E_INVALIDARG, history->ProcessPacket(nullptr));
}

TEST_F(HistoryStatsTest, StreamHoldsVersionIntervalStartAndSamples) {
  auto history = HistoryStats::Create();
  ASSERT_EQ(S_OK, history->SetInterval(2));
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase, 100));
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 4 * kSec + 1));
  const std::vector<uint8_t> expected = Stream(1, 2, kBase, {50, 0}, 2);
  EXPECT_EQ(expected, StreamBytes(history.Get()));
  ULARGE_INTEGER size{};
  size.QuadPart = 9;
  EXPECT_EQ(S_OK, history->GetSizeMax(&size));
  EXPECT_EQ(0u, size.QuadPart);

  auto copy = HistoryStats::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), expected));
  EXPECT_EQ(expected, StreamBytes(copy.Get()));

  // Refused, leaving the loaded series: another version, a zero interval,
  // samples without a start, a count the bytes do not hold, short headers.
  const std::vector<uint8_t> refused[] = {
      Stream(2, 2, kBase, {1}, 1),
      Stream(0, 2, kBase, {1}, 1),
      Stream(1, 0, kBase, {1}, 1),
      Stream(1, 2, 0, {1}, 1),
      Stream(1, 2, kBase, {1, 2}, 3),
      Stream(1, 2, kBase, {1}, 0xFFFFFFFF),
      Stream(1, 0x80000000u, kBase, {}, 0),
      std::vector<uint8_t>(expected.begin(), expected.begin() + 19),
      {},
  };
  for (const auto& bytes : refused) {
    EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), bytes));
    EXPECT_EQ(expected, StreamBytes(copy.Get()));
  }
  // An empty series with no start loads as a history that has not started.
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), Stream(1, 3, 0, {}, 0)));
  ASSERT_EQ(S_OK, copy->ProcessTime(kBase + kSec / 2));
  ZemoTime start = 0;
  EXPECT_EQ(S_OK, copy->GetStartTime(&start));
  EXPECT_EQ(kBase + kSec / 2, start);
}

TEST_F(HistoryStatsTest, ALoadedSeriesResumesAtItsOwnEnd) {
  // Three one-second samples from a start half a second in: the series ends
  // on kBase + 3 s.
  auto history = HistoryStats::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(history.Get(), Stream(1, 1, kBase + kSec / 2, {10, 20, 30}, 3)));
  // Nothing older than its end takes a sample, or loses one.
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + kSec));
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase + 3 * kSec, 400));
  EXPECT_EQ((std::vector<double>{10, 20, 30}), Samples(history.Get()));
  // The next span ends at kBase + 4 s; two empty spans follow before the tick.
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 6 * kSec + kSec / 2));
  EXPECT_EQ((std::vector<double>{10, 20, 30, 400, 0, 0}), Samples(history.Get()));
  ZemoTime start = 0;
  EXPECT_EQ(S_OK, history->GetStartTime(&start));
  EXPECT_EQ(kBase + kSec / 2, start);

  // An empty loaded series with a start resumes in its first span.
  auto empty = HistoryStats::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(empty.Get(), Stream(1, 5, kBase + 2 * kSec, {}, 0)));
  ASSERT_EQ(S_OK, Packet(empty.Get(), kBase + 4 * kSec, 50));
  ASSERT_EQ(S_OK, empty->ProcessTime(kBase + 7 * kSec));
  EXPECT_EQ(std::vector<double>{}, Samples(empty.Get()));
  ASSERT_EQ(S_OK, empty->ProcessTime(kBase + 7 * kSec + 1));
  EXPECT_EQ((std::vector<double>{10}), Samples(empty.Get()));  // 50 bytes over the 5 s from the start

  // A loaded series at the top of the time range stops instead of wrapping.
  auto top = HistoryStats::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(top.Get(), Stream(1, 86400, ~0ull - kSec, {1, 2}, 2)));
  ASSERT_EQ(S_OK, top->ProcessTime(~0ull));
  EXPECT_EQ((std::vector<double>{1, 2}), Samples(top.Get()));
}

TEST_F(HistoryStatsTest, XmlHasNoContentAndTheTextIsOneLinePerSample) {
  auto history = HistoryStats::Create();
  ASSERT_EQ(S_OK, Packet(history.Get(), kBase, 1500));
  ASSERT_EQ(S_OK, history->ProcessTime(kBase + 2 * kSec + 1));
  ComPtr<IXMLDOMDocument> document;
  auto root = XmlRoot(document);
  EXPECT_EQ(S_OK, history->Save(document.Get(), root.Get(), TRUE));
  EXPECT_EQ(S_OK, history->Load(document.Get(), root.Get()));
  ComPtr<IXMLDOMNode> child;
  EXPECT_TRUE(SUCCEEDED(root->get_firstChild(child.ReleaseAndGetAddressOf())));
  EXPECT_FALSE(child);
  EXPECT_EQ(E_NOINTERFACE, history->Load(history->GetUnknown(), root.Get()));

  EXPECT_EQ(S_OK, history->Save(File("history.dat").c_str(), FALSE));
  EXPECT_EQ("1500.000000\n0.000000\n", Contents(File("history.dat")));
  EXPECT_FAILS(history->Save(File("no/such/dir.txt").c_str(), FALSE));
  EXPECT_EQ(E_NOTIMPL, history->Load(File("history.dat").c_str(), 0));
}

}  // namespace
}  // namespace sized
