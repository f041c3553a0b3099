#include "support/scratch_dir.h"
#include "support/table_cells.h"
#include "network/network_stats.h"

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "network/faulty_packet.h"
#include "network/network_fixture.h"

namespace zemo::testing {
namespace {

class NetworkStatsTest : public NetworkFixture {
 protected:
  void SetUp() override {
    NetworkFixture::SetUp();
    stats = Create<INetworkStats>(CLSID_NetworkStats);
    ASSERT_TRUE(stats);
  }

  template <class I>
  ComPtr<I> As() const {
    return stats.Query<I>();
  }
  NetworkCounters Read() const {
    NetworkCounters c{};
    EXPECT_EQ(S_OK, stats->GetNetworkCounters(&c));
    return c;
  }
  NetworkRates Rates() const {
    NetworkRates r{};
    EXPECT_EQ(S_OK, stats->GetNetworkRates(&r));
    return r;
  }
  HRESULT Feed(IPacket* p) { return As<IProcessPacket>()->ProcessPacket(p); }
  // n packets of `length` bytes, plain unless the builder was set otherwise.
  void FeedPlain(int n, ULONG length) {
    packet.Clear().Length(length);
    for (int i = 0; i < n; ++i) ASSERT_EQ(S_OK, Feed(packet.Get()));
  }
  HRESULT Tick(ZemoTime t) { return As<IProcessTime>()->ProcessTime(t); }
  ChannelCounters Channel(ULONG index, IUnknown* of = nullptr) {
    ComPtr<IChannelStats> channels;
    EXPECT_EQ(S_OK, QueryTo(of ? of : stats.Get(), &channels));
    ChannelCounters c{};
    EXPECT_EQ(S_OK, channels->GetChannelCounters(index, &c));
    return c;
  }
  // The statistic inside a context whose adapter has channels 1 and 2.
  ComPtr<StatsContext> Join() {
    auto context = ContextWithChannels({1, 2});
    EXPECT_EQ(S_OK, context->AddStats(CLSID_NetworkStats, As<IZemoStats>().Get()));
    return context;
  }

  ComPtr<INetworkStats> stats;
};

TEST_F(NetworkStatsTest, AFreshObjectHasNothingAndNoChannels) {
  EXPECT_EQ(NetworkCounters{}, Read());
  NetworkRates r = Rates(), zero{};
  EXPECT_EQ(0, std::memcmp(&r, &zero, sizeof r));
  ULONG count = 7;
  EXPECT_EQ(S_OK, As<IChannelStats>()->GetChannelCount(&count));
  EXPECT_EQ(0u, count);
  ComPtr<IZemoStatsContext> context;
  EXPECT_EQ(S_OK, As<IZemoStats>()->GetContext(context.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(context);
}

TEST_F(NetworkStatsTest, CountsTotalsAndBothAddressPairs) {
  FeedPlain(3, 100);
  packet.Clear().Length(60).Broadcast();
  Feed(packet.Get());
  packet.Clear().Length(70).Multicast();
  Feed(packet.Get());
  packet.Clear().Length(80).Multicast().Broadcast();  // in both pairs
  Feed(packet.Get());
  packet.Clear().Length(90).Error();  // not 802.11: counted in full
  Feed(packet.Get());
  EXPECT_EQ(Counters(7, 600, 2, 140, 2, 150), Read());
}

TEST_F(NetworkStatsTest, ADamaged80211FrameCountsInTheTotalsOnly) {
  auto context = Join();
  packet.Clear().Length(50).Broadcast().Multicast().Error().ChannelNumber(2);
  packet.Target().SetWireless(true);
  EXPECT_EQ(S_OK, Feed(packet.Get()));
  EXPECT_EQ(Counters(1, 50, 0, 0, 0, 0), Read());
  EXPECT_EQ(NetworkCounters{}, CountersOf(Channel(1)));

  packet.Target().SetError(false);  // the same frame undamaged counts everywhere
  EXPECT_EQ(S_OK, Feed(packet.Get()));
  EXPECT_EQ(Counters(2, 100, 1, 50, 1, 50), Read());
  EXPECT_EQ(Counters(1, 50, 1, 50, 1, 50), CountersOf(Channel(1)));
}

TEST_F(NetworkStatsTest, PacketFailuresEndTheCountOrSkipAPair) {
  PacketBuilder inner;
  inner.Length(40).Broadcast().Multicast();
  auto p = FaultyPacket::Create(inner.Get());

  EXPECT_EQ(E_INVALIDARG, Feed(nullptr));
  for (const char* op : {"IsWireless", "GetPacketLength"}) {
    p->failing = {op};
    EXPECT_EQ(kPacketFailure, Feed(p.Get())) << op;
  }
  EXPECT_EQ(NetworkCounters{}, Read());

  inner.Target().SetWireless(true);
  p->failing = {"IsError"};
  EXPECT_EQ(kPacketFailure, Feed(p.Get()));
  EXPECT_EQ(NetworkCounters{}, Read());

  // A packet that can't say multicast or broadcast leaves that pair alone.
  p->failing = {"IsMulticast"};
  EXPECT_EQ(S_OK, Feed(p.Get()));
  p->failing = {"IsBroadcast"};
  EXPECT_EQ(S_OK, Feed(p.Get()));
  EXPECT_EQ(Counters(2, 80, 1, 40, 1, 40), Read());

  // Never more than five questions to the packet.
  p->failing.clear();
  p->calls = 0;
  EXPECT_EQ(S_OK, Feed(p.Get()));
  EXPECT_LE(p->calls, 5);
}

TEST_F(NetworkStatsTest, AnUnknownChannelFailsAfterTheTotalsAreCounted) {
  auto context = Join();
  packet.Clear().Length(64).ChannelNumber(3);
  EXPECT_EQ(E_INVALIDARG, Feed(packet.Get()));
  EXPECT_EQ(Counters(1, 64, 0, 0, 0, 0), Read());
  // Through the context the failure does not show, and the context counts too.
  EXPECT_EQ(S_OK, context->ProcessPacket(packet.Get()));
  EXPECT_EQ(2u, Read().TotalPackets);
  ULONGLONG total = 0;
  context->GetTotalPackets(&total);
  EXPECT_EQ(1u, total);
}

TEST_F(NetworkStatsTest, RatesOverOneSecondBeforeTheSecondTick) {
  FeedPlain(10, 100);
  ASSERT_EQ(S_OK, Tick(kT0));
  NetworkRates r = Rates();
  EXPECT_DOUBLE_EQ(10.0, r.TotalPacketsPerSecond);
  EXPECT_DOUBLE_EQ((1000.0 + 8 * 10) * 8, r.TotalBitsPerSecond);
  EXPECT_DOUBLE_EQ(0.0, r.BroadcastPacketsPerSecond);
}

TEST_F(NetworkStatsTest, RatesFollowTheIntervalBetweenTheTwoTicks) {
  ASSERT_EQ(S_OK, Tick(kT0));
  packet.Clear().Length(100).Broadcast();
  for (int i = 0; i < 10; ++i) Feed(packet.Get());
  ASSERT_EQ(S_OK, Tick(kT0 + kSecond / 2));
  NetworkRates half = Rates();
  EXPECT_DOUBLE_EQ(20.0, half.TotalPacketsPerSecond);  // twice what one second shows
  EXPECT_DOUBLE_EQ(2 * 8640.0, half.TotalBitsPerSecond);
  EXPECT_DOUBLE_EQ(20.0, half.BroadcastPacketsPerSecond);
  EXPECT_DOUBLE_EQ(2 * 8640.0, half.BroadcastBitsPerSecond);
  EXPECT_DOUBLE_EQ(0.0, half.MulticastBitsPerSecond);

  // An unequal interval: 30 packets over a second and a half.
  packet.Clear().Length(100).Multicast();
  for (int i = 0; i < 30; ++i) Feed(packet.Get());
  ASSERT_EQ(S_OK, Tick(kT0 + 2 * kSecond));
  NetworkRates slow = Rates();
  EXPECT_DOUBLE_EQ(20.0, slow.TotalPacketsPerSecond);
  EXPECT_DOUBLE_EQ(20.0, slow.MulticastPacketsPerSecond);
  EXPECT_DOUBLE_EQ((3000.0 + 240) * 8 / 1.5, slow.MulticastBitsPerSecond);
  EXPECT_DOUBLE_EQ(0.0, slow.BroadcastPacketsPerSecond);
}

TEST_F(NetworkStatsTest, TwoTicksAtOneTimeGiveNoRateAndATickOfZeroFallsBackToOneSecond) {
  ASSERT_EQ(S_OK, Tick(kT0));
  FeedPlain(5, 200);
  ASSERT_EQ(S_OK, Tick(kT0));
  NetworkRates r = Rates();
  for (double v : {r.TotalPacketsPerSecond, r.TotalBitsPerSecond, r.BroadcastPacketsPerSecond,
                   r.BroadcastBitsPerSecond, r.MulticastPacketsPerSecond, r.MulticastBitsPerSecond})
    EXPECT_EQ(0.0, v);

  // A host that clears its clock ticks 0: the newer sample has no time.
  FeedPlain(3, 200);
  ASSERT_EQ(S_OK, Tick(0));
  EXPECT_DOUBLE_EQ(3.0, Rates().TotalPacketsPerSecond);
  FeedPlain(4, 200);
  ASSERT_EQ(S_OK, Tick(kT0 + kSecond));  // the older sample has none now
  EXPECT_DOUBLE_EQ(4.0, Rates().TotalPacketsPerSecond);
}

TEST_F(NetworkStatsTest, BothResetsClearSamplesAndReachThePrivateChannels) {
  auto context = Join();
  using ResetFn = HRESULT (*)(const ComPtr<INetworkStats>&);
  for (ResetFn reset : {+[](const ComPtr<INetworkStats>& s) { return s.Query<IZemoStats>()->Reset(); },
                        +[](const ComPtr<INetworkStats>& s) { return s.Query<IResetProcessing>()->Reset(); }}) {
    packet.Clear().Length(100).ChannelNumber(1);
    for (int i = 0; i < 6; ++i) Feed(packet.Get());
    Tick(kT0);
    Tick(kT0 + kSecond);
    ASSERT_EQ(S_OK, reset(stats));
    EXPECT_EQ(NetworkCounters{}, Read());
    EXPECT_EQ(0.0, Rates().TotalPacketsPerSecond);
    ChannelCounters kept = Channel(0);
    EXPECT_EQ(1u, kept.Number);
    EXPECT_EQ(NetworkCounters{}, CountersOf(kept));

    // The next tick is the first sample again: a difference from zero over a second.
    FeedPlain(4, 100);
    Tick(kT0 + 5 * kSecond);
    EXPECT_DOUBLE_EQ(4.0, Rates().TotalPacketsPerSecond);
    As<IZemoStats>()->Reset();
  }
}

TEST_F(NetworkStatsTest, ContextDrivesItFromPacketsAndTicksStampedZero) {
  auto context = StatsContext::Create();
  ASSERT_EQ(S_OK, context->AddStats(CLSID_NetworkStats, As<IZemoStats>().Get()));
  ComPtr<IZemoStatsContext> back;
  As<IZemoStats>()->GetContext(back.ReleaseAndGetAddressOf());
  EXPECT_EQ(static_cast<IZemoStatsContext*>(context.Get()), back.Get());

  packet.Clear().Length(100).Time(0);
  context->ProcessPacket(packet.Get());
  ZemoTime start = 1, stop = 1;
  context->GetStartDateTime(&start);
  EXPECT_EQ(0u, start);  // a packet stamped 0 sets no start
  packet.Time(kT0);
  context->ProcessPacket(packet.Get());
  context->ProcessTime(kT0 + kSecond);
  context->GetStartDateTime(&start);
  context->GetStopDateTime(&stop);
  EXPECT_EQ(kT0, start);
  EXPECT_EQ(kT0 + kSecond, stop);
  EXPECT_EQ(2u, Read().TotalPackets);
  EXPECT_DOUBLE_EQ(2.0, Rates().TotalPacketsPerSecond);

  context->ProcessTime(0);  // clears both times, and the statistic samples 0
  context->GetStartDateTime(&start);
  EXPECT_EQ(0u, start);
  EXPECT_DOUBLE_EQ(0.0, Rates().TotalPacketsPerSecond);

  ComPtr<INetworkStats> found;
  ASSERT_EQ(S_OK, context->GetStats(CLSID_NetworkStats, INetworkStats::iid, found.OutVoid()));
  EXPECT_EQ(stats.Get(), found.Get());
  ASSERT_EQ(S_OK, static_cast<IZemoStatsContext*>(context.Get())->Reset());
  EXPECT_EQ(NetworkCounters{}, Read());
}

// ---- persistence ----------------------------------------------------------

class NetworkStatsPersistTest : public NetworkStatsTest {
 protected:
  // The first element named tag renamed, with its closing tag.
  static std::string Renamed(std::string xml, const std::string& tag) {
    size_t open = xml.find("<" + tag);
    size_t close = xml.find("</" + tag + ">", open);
    EXPECT_TRUE(open != std::string::npos && close != std::string::npos) << tag;
    if (open == std::string::npos || close == std::string::npos) return xml;
    xml.insert(close + 2, "x");
    xml.insert(open + 1, "x");
    return xml;
  }

  // Traffic on two channels with two samples, so that every field differs.
  void Fill() {
    context = Join();
    Tick(kT0);
    packet.Clear().Length(100).ChannelNumber(1).Broadcast();
    for (int i = 0; i < 3; ++i) Feed(packet.Get());
    packet.Clear().Length(300).LineNumber(2).Multicast();
    Feed(packet.Get());
    Tick(kT0 + 2 * kSecond);
    FeedPlain(1, 7);
  }
  ComPtr<StatsContext> context;
};

TEST_F(NetworkStatsPersistTest, TheStreamHoldsCountersSamplesThenChannels) {
  Fill();
  std::vector<uint8_t> bytes = StreamBytes(stats.Get());
  ASSERT_EQ(48u + 112 + 4 + 2 * (52 + 112), bytes.size());
  ULARGE_INTEGER max{};
  EXPECT_EQ(S_OK, As<IPersistStream>()->GetSizeMax(&max));
  EXPECT_EQ(bytes.size(), max.QuadPart);

  auto at = [&](size_t offset) {
    uint64_t v;
    std::memcpy(&v, bytes.data() + offset, 8);
    return v;
  };
  EXPECT_EQ(5u, at(0));                  // TotalPackets
  EXPECT_EQ(3u, at(16));                 // BroadcastPackets
  EXPECT_EQ(kT0, at(48));                // time1, right before stats1
  EXPECT_EQ(0u, at(56));                 // stats1.TotalPackets
  EXPECT_EQ(kT0 + 2 * kSecond, at(104));  // time2
  EXPECT_EQ(4u, at(112));                // stats2.TotalPackets
  uint32_t channels;
  std::memcpy(&channels, bytes.data() + 160, 4);
  EXPECT_EQ(2u, channels);

  auto copy = Create<INetworkStats>(CLSID_NetworkStats);
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), bytes));
  NetworkCounters c{};
  copy->GetNetworkCounters(&c);
  EXPECT_EQ(Read(), c);
  NetworkRates r{};
  copy->GetNetworkRates(&r);
  EXPECT_DOUBLE_EQ(Rates().TotalBitsPerSecond, r.TotalBitsPerSecond);
  EXPECT_EQ(CountersOf(Channel(1)), CountersOf(Channel(1, copy.Get())));
  EXPECT_EQ(bytes, StreamBytes(copy.Get()));

  // The loaded channels count from now on, without any context.
  packet.Clear().Length(10).ChannelNumber(2);
  ASSERT_EQ(S_OK, copy.Query<IProcessPacket>()->ProcessPacket(packet.Get()));
  EXPECT_EQ(CountersOf(Channel(1)).TotalPackets + 1, CountersOf(Channel(1, copy.Get())).TotalPackets);
  packet.Clear().Length(10).ChannelNumber(3);
  EXPECT_EQ(E_INVALIDARG, copy.Query<IProcessPacket>()->ProcessPacket(packet.Get()));
}

TEST_F(NetworkStatsPersistTest, AShortOrHostileStreamFailsWithoutHarm) {
  Fill();
  std::vector<uint8_t> bytes = StreamBytes(stats.Get());
  auto copy = Create<INetworkStats>(CLSID_NetworkStats);
  for (size_t n = 0; n < bytes.size(); ++n)
    ASSERT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), std::vector<uint8_t>(bytes.begin(), bytes.begin() + n))) << n;

  // A channel count of four billion behind a few bytes.
  std::vector<uint8_t> hostile(bytes.begin(), bytes.begin() + 160);
  hostile.insert(hostile.end(), {0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0});
  EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), hostile));

  // Still whole: a good stream loads after all that.
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), bytes));
  EXPECT_EQ(bytes, StreamBytes(copy.Get()));
}

TEST_F(NetworkStatsPersistTest, XmlRoundTripsEveryField) {
  Fill();
  std::string xml = XmlOf(stats.Get());
  EXPECT_NE(std::string::npos, xml.find("<ZemoStats.NetworkStats.1><NetworkStats><TotalPackets>5</TotalPackets>"))
      << xml;
  EXPECT_NE(std::string::npos, xml.find("<Sample1 Time=\"" + std::to_string(kT0) + "\">")) << xml;
  EXPECT_NE(std::string::npos, xml.find("<ZemoStats.ChannelStats.1><Channel Number=\"1\">")) << xml;

  auto copy = Create<INetworkStats>(CLSID_NetworkStats);
  ASSERT_EQ(S_OK, LoadXml(copy.Get(), xml));
  EXPECT_EQ(xml, XmlOf(copy.Get()));
  EXPECT_EQ(StreamBytes(stats.Get()), StreamBytes(copy.Get()));
}

TEST_F(NetworkStatsPersistTest, XmlWithAnyPieceMissingOrWrongFails) {
  Fill();
  const std::string xml = XmlOf(stats.Get());
  auto copy = Create<INetworkStats>(CLSID_NetworkStats);
  // Each element in turn, renamed where it first occurs (its own closing tag too).
  for (const char* tag : {"TotalBytes", "Sample2", "SampleTracker", "NetworkStats", "ZemoStats.ChannelStats.1"})
    EXPECT_EQ(E_FAIL, LoadXml(copy.Get(), Renamed(xml, tag))) << tag;
  EXPECT_EQ(E_FAIL, LoadXml(copy.Get(), Edited(xml, " Time=", " Tine="))) << "the time of a sample";
  HRESULT hr = LoadXml(copy.Get(), Edited(xml, "<TotalPackets>5<", "<TotalPackets>five<"));
  EXPECT_TRUE(FAILED(hr) && hr != E_UNEXPECTED) << std::hex << hr;
  hr = LoadXml(copy.Get(), Edited(xml, "<TotalPackets>5<", "<TotalPackets>99999999999999999999999<"));
  EXPECT_TRUE(FAILED(hr) && hr != E_UNEXPECTED) << std::hex << hr;
  EXPECT_EQ(E_FAIL, LoadXml(copy.Get(), "<ZemoStats.SizeStats.1/>"));
}

TEST_F(NetworkStatsPersistTest, TextExportWritesSixLinesToTxtOnly) {
  Fill();
  auto file = As<IPersistFile>();
  zemo::testing_support::ScratchDir scratch;
  const std::string& dir = scratch.Path();
  std::u16string name = FromUtf8(dir + "/counters.TXT");
  ASSERT_EQ(S_OK, file->Save(name.c_str(), TRUE));
  EXPECT_EQ("5\n607\n3\n300\n1\n300\n", zemo::testing_support::ReadFile(name));

  EXPECT_EQ(E_INVALIDARG, file->Save(FromUtf8(dir + "/counters.csv").c_str(), TRUE));
  EXPECT_FALSE(std::filesystem::exists(dir + "/counters.csv"));
  EXPECT_EQ(E_FAIL, file->Save(FromUtf8(dir + "/no/such/dir/x.txt").c_str(), TRUE));
  EXPECT_EQ(E_NOTIMPL, file->Load(name.c_str(), 0));
  EXPECT_EQ(S_OK, file->SaveCompleted(name.c_str()));
  EXPECT_EQ(S_OK, file->IsDirty());
}

TEST_F(NetworkStatsPersistTest, TheTableHoldsTheCounters) {
  Fill();
  auto t = testing_support::ReadTable(As<ISelectableObject>().Get());
  ASSERT_EQ(2u, t.types.size());
  EXPECT_EQ(VT_UI8, t.types[1]);
  ASSERT_EQ(6u, t.rows.size());
  const ULONGLONG expected[] = {5, 607, 3, 300, 1, 300};
  for (size_t i = 0; i < t.rows.size(); ++i) {
    EXPECT_EQ(kNetworkCounterFields[i].name, t.Text(i, 0));
    EXPECT_EQ(expected[i], t.rows[i][1].ullVal);
  }
}

}  // namespace
}  // namespace zemo::testing
