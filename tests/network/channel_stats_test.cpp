#include "network/channel_stats.h"

#include <cstring>
#include <utility>

#include "network/faulty_packet.h"
#include "network/network_fixture.h"

namespace zemo::testing {
namespace {

// An adapter whose channel list a test spells out, failure and all.
class ScriptedAdapter final : public Object<ScriptedAdapter, IAdapterInfo> {
 public:
  HRESULT GetMediaType(ULONG* t) override { return *t = 0, S_OK; }
  HRESULT GetMediaSubType(ULONG* t) override { return *t = 0, S_OK; }
  HRESULT GetLinkSpeed(ULONGLONG* s) override { return *s = 0, S_OK; }
  HRESULT GetChannelNumbers(ULONG* count, ULONG** numbers) override {
    *count = count_;
    *numbers = nullArray ? nullptr : static_cast<ULONG*>(CoTaskMemAlloc(sizeof(ULONG) * 4));
    if (*numbers) std::memcpy(*numbers, values, sizeof values);
    return result;
  }
  HRESULT GetWirelessChannels(SWirelessChannel**, ULONG*) override { return E_NOTIMPL; }
  HRESULT GetDataRates(ULONG**, ULONG*) override { return E_NOTIMPL; }

  ULONG count_ = 0;
  ULONG values[4] = {};
  bool nullArray = false;
  HRESULT result = S_OK;
};

class ChannelStatsTest : public NetworkFixture {
 protected:
  void SetUp() override {
    NetworkFixture::SetUp();
    stats = Create<IChannelStats>(CLSID_ChannelStats);
    ASSERT_TRUE(stats);
  }
  HRESULT Join(IZemoStatsContext* context) { return stats.Query<IZemoStats>()->SetContext(context); }
  HRESULT Feed(IPacket* p) { return stats.Query<IProcessPacket>()->ProcessPacket(p); }
  ULONG Count() {
    ULONG n = 99;
    EXPECT_EQ(S_OK, stats->GetChannelCount(&n));
    return n;
  }
  ChannelCounters Channel(ULONG index) {
    ChannelCounters c{};
    EXPECT_EQ(S_OK, stats->GetChannelCounters(index, &c));
    return c;
  }
  std::vector<ULONG> Numbers() {
    std::vector<ULONG> out;
    for (ULONG i = 0; i < Count(); ++i) out.push_back(Channel(i).Number);
    return out;
  }

  ComPtr<IChannelStats> stats;
};

TEST_F(ChannelStatsTest, WithoutAdapterChannelsEveryPacketPassesUncounted) {
  EXPECT_EQ(0u, Count());
  auto bare = StatsContext::Create();
  ASSERT_EQ(S_OK, Join(bare.Get()));
  EXPECT_EQ(0u, Count());
  packet.Clear().Length(10).ChannelNumber(9);
  EXPECT_EQ(S_OK, Feed(packet.Get()));
  EXPECT_EQ(E_INVALIDARG, Feed(nullptr));
  ChannelCounters c{};
  EXPECT_EQ(E_INVALIDARG, stats->GetChannelCounters(0, &c));
  NetworkRates r{};
  EXPECT_EQ(E_INVALIDARG, stats->GetChannelRates(0, &r));
  EXPECT_EQ(E_POINTER, stats->GetChannelCount(nullptr));
  EXPECT_EQ(E_POINTER, Join(nullptr));
}

TEST_F(ChannelStatsTest, PacketsCountOnTheirChannelOrLine) {
  auto context = ContextWithChannels({1, 2, 3});
  ASSERT_EQ(S_OK, Join(context.Get()));
  EXPECT_EQ((std::vector<ULONG>{1, 2, 3}), Numbers());

  packet.Clear().Length(100).ChannelNumber(3).Broadcast();
  EXPECT_EQ(S_OK, Feed(packet.Get()));
  EXPECT_EQ(Counters(1, 100, 1, 100, 0, 0), CountersOf(Channel(2)));

  packet.Clear().Length(20).LineNumber(1).Multicast();
  EXPECT_EQ(S_OK, Feed(packet.Get()));
  EXPECT_EQ(Counters(1, 20, 0, 0, 1, 20), CountersOf(Channel(0)));

  packet.Clear().Length(30).ChannelNumber(2).LineNumber(1);  // the channel wins
  EXPECT_EQ(S_OK, Feed(packet.Get()));
  EXPECT_EQ(30u, CountersOf(Channel(1)).TotalBytes);
  EXPECT_EQ(1u, CountersOf(Channel(0)).TotalPackets);

  packet.Clear().Length(30);  // names no channel
  EXPECT_EQ(S_OK, Feed(packet.Get()));
  for (ULONG wrong : {4u, 0u, 0xFFFFFFFFu}) {
    packet.Clear().Length(30).ChannelNumber(wrong);
    EXPECT_EQ(E_INVALIDARG, Feed(packet.Get())) << wrong;
  }
  packet.Clear().Length(30).LineNumber(0);
  EXPECT_EQ(E_INVALIDARG, Feed(packet.Get()));
  EXPECT_EQ(3u, CountersOf(Channel(0)).TotalPackets + CountersOf(Channel(1)).TotalPackets +
                    CountersOf(Channel(2)).TotalPackets);
}

TEST_F(ChannelStatsTest, AFailingPacketEndsTheCount) {
  auto context = ContextWithChannels({1, 2});
  ASSERT_EQ(S_OK, Join(context.Get()));
  PacketBuilder inner;
  inner.Length(10).ChannelNumber(2);
  auto p = FaultyPacket::Create(inner.Get());
  for (const char* op : {"HasChannelNumber", "GetChannelNumber", "GetPacketLength"}) {
    p->failing = {op};
    EXPECT_EQ(kPacketFailure, Feed(p.Get())) << op;
  }
  inner.Clear().Length(10).LineNumber(1);
  for (const char* op : {"HasLineNumber", "GetLineNumber"}) {
    p->failing = {op};
    EXPECT_EQ(kPacketFailure, Feed(p.Get())) << op;
  }
  EXPECT_EQ(NetworkCounters{}, CountersOf(Channel(0)));
  EXPECT_EQ(NetworkCounters{}, CountersOf(Channel(1)));
}

TEST_F(ChannelStatsTest, AdaptersThatNumberWronglyAreRefused) {
  struct Case {
    std::vector<ULONG> numbers;
    HRESULT result;
    std::vector<ULONG> kept;  // the records as SetContext leaves them
  };
  const Case cases[] = {
      {{1, 2, 4}, E_FAIL, {1, 2, 0}},  // a gap
      {{2, 3}, E_FAIL, {0, 0}},        // not from 1
      {{0}, E_FAIL, {0}},              // from 0
      {{1, 1}, E_FAIL, {1, 0}},        // twice the same
      {{2, 1}, E_FAIL, {0, 0}},        // out of order
      {{}, S_OK, {}},                  // none at all
  };
  for (const Case& c : cases) {
    auto fresh = Create<IChannelStats>(CLSID_ChannelStats);
    stats = fresh;
    auto adapter = MakeObject<ScriptedAdapter, IAdapterInfo>();
    auto* a = static_cast<ScriptedAdapter*>(adapter.Get());
    a->count_ = static_cast<ULONG>(c.numbers.size());
    std::copy(c.numbers.begin(), c.numbers.end(), a->values);
    auto context = StatsContext::Create();
    context->SetAdapterInfo(adapter.Get());
    EXPECT_EQ(c.result, Join(context.Get()));
    EXPECT_EQ(c.kept, Numbers());
    // A context does not take a statistic that fails to join.
    auto other = StatsContext::Create();
    other->SetAdapterInfo(adapter.Get());
    EXPECT_EQ(c.result, other->AddStats(CLSID_ChannelStats, stats.Query<IZemoStats>().Get()));
    ULONG inContext = 9;
    other->GetStatsCount(&inContext);
    EXPECT_EQ(c.result == S_OK ? 1u : 0u, inContext);
  }
}

TEST_F(ChannelStatsTest, AnAdapterThatCannotTellGivesNoChannelsAndNoError) {
  auto adapter = MakeObject<ScriptedAdapter, IAdapterInfo>();
  auto* a = static_cast<ScriptedAdapter*>(adapter.Get());
  a->count_ = 2;
  a->values[0] = 1;
  a->values[1] = 2;
  a->result = E_NOTIMPL;
  auto context = StatsContext::Create();
  context->SetAdapterInfo(adapter.Get());
  EXPECT_EQ(S_OK, Join(context.Get()));
  EXPECT_EQ(0u, Count());

  // A count with no array behind it is a lie, not a silence.
  a->result = S_OK;
  a->nullArray = true;
  auto again = StatsContext::Create();
  again->SetAdapterInfo(adapter.Get());
  EXPECT_EQ(E_FAIL, Join(again.Get()));
  EXPECT_EQ(0u, Count());
}

TEST_F(ChannelStatsTest, TheSameContextKeepsCountsAndANewOneDropsThem) {
  auto context = ContextWithChannels({1, 2});
  ASSERT_EQ(S_OK, Join(context.Get()));
  packet.Clear().Length(10).ChannelNumber(1);
  Feed(packet.Get());
  ASSERT_EQ(S_OK, Join(context.Get()));
  EXPECT_EQ(1u, CountersOf(Channel(0)).TotalPackets);

  auto wider = ContextWithChannels({1, 2, 3, 4});
  ASSERT_EQ(S_OK, Join(wider.Get()));
  EXPECT_EQ(4u, Count());
  EXPECT_EQ(0u, CountersOf(Channel(0)).TotalPackets);
  ComPtr<IZemoStatsContext> back;
  stats.Query<IZemoStats>()->GetContext(back.ReleaseAndGetAddressOf());
  EXPECT_EQ(static_cast<IZemoStatsContext*>(wider.Get()), back.Get());
}

TEST_F(ChannelStatsTest, ResetsKeepTheChannelsAndTicksSampleEachOne) {
  auto context = ContextWithChannels({1, 2});
  ASSERT_EQ(S_OK, Join(context.Get()));
  NetworkRates r{};
  ASSERT_EQ(S_OK, stats->GetChannelRates(1, &r));
  EXPECT_EQ(0.0, r.TotalPacketsPerSecond);

  auto tick = stats.Query<IProcessTime>();
  tick->ProcessTime(kT0);
  packet.Clear().Length(100).ChannelNumber(2);
  for (int i = 0; i < 4; ++i) Feed(packet.Get());
  ASSERT_EQ(S_OK, tick->ProcessTime(kT0 + kSecond / 4));
  ASSERT_EQ(S_OK, stats->GetChannelRates(1, &r));
  EXPECT_DOUBLE_EQ(16.0, r.TotalPacketsPerSecond);
  EXPECT_DOUBLE_EQ((400.0 + 32) * 8 * 4, r.TotalBitsPerSecond);
  ASSERT_EQ(S_OK, stats->GetChannelRates(0, &r));
  EXPECT_EQ(0.0, r.TotalPacketsPerSecond);

  using ResetFn = HRESULT (*)(const ComPtr<IChannelStats>&);
  for (ResetFn reset : {+[](const ComPtr<IChannelStats>& s) { return s.Query<IZemoStats>()->Reset(); },
                        +[](const ComPtr<IChannelStats>& s) { return s.Query<IResetProcessing>()->Reset(); }}) {
    Feed(packet.Get());
    ASSERT_EQ(S_OK, reset(stats));
    EXPECT_EQ((std::vector<ULONG>{1, 2}), Numbers());
    EXPECT_EQ(NetworkCounters{}, CountersOf(Channel(1)));
    ASSERT_EQ(S_OK, stats->GetChannelRates(1, &r));
    EXPECT_EQ(0.0, r.TotalBitsPerSecond);
  }
}

// ---- persistence ----------------------------------------------------------

class ChannelStatsPersistTest : public ChannelStatsTest {
 protected:
  void Fill() {
    context = ContextWithChannels({1, 2, 3});
    ASSERT_EQ(S_OK, Join(context.Get()));
    auto tick = stats.Query<IProcessTime>();
    tick->ProcessTime(kT0);
    packet.Clear().Length(100).ChannelNumber(2).Multicast();
    Feed(packet.Get());
    packet.Clear().Length(55).LineNumber(3).Broadcast();
    Feed(packet.Get());
    tick->ProcessTime(kT0 + kSecond);
  }
  ComPtr<StatsContext> context;
};

TEST_F(ChannelStatsPersistTest, TheStreamHoldsCountRecordsThenTrackers) {
  Fill();
  std::vector<uint8_t> bytes = StreamBytes(stats.Get());
  ASSERT_EQ(4u + 3 * 52 + 3 * 112, bytes.size());
  ULARGE_INTEGER max{};
  EXPECT_EQ(S_OK, stats.Query<IPersistStream>()->GetSizeMax(&max));
  EXPECT_EQ(bytes.size(), max.QuadPart);
  uint32_t count, number2;
  uint64_t packets2, time1;
  std::memcpy(&count, bytes.data(), 4);
  std::memcpy(&number2, bytes.data() + 4 + 52, 4);
  std::memcpy(&packets2, bytes.data() + 4 + 52 + 4, 8);
  std::memcpy(&time1, bytes.data() + 4 + 3 * 52, 8);
  EXPECT_EQ(3u, count);
  EXPECT_EQ(2u, number2);
  EXPECT_EQ(1u, packets2);
  EXPECT_EQ(kT0, time1);

  auto copy = Create<IChannelStats>(CLSID_ChannelStats);
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), bytes));
  EXPECT_EQ(bytes, StreamBytes(copy.Get()));
  NetworkRates a{}, b{};
  stats->GetChannelRates(2, &a);
  copy->GetChannelRates(2, &b);
  EXPECT_DOUBLE_EQ(a.BroadcastBitsPerSecond, b.BroadcastBitsPerSecond);
  EXPECT_GT(b.BroadcastBitsPerSecond, 0.0);
}

TEST_F(ChannelStatsPersistTest, NumbersInAStreamAreTakenAsTheyStand) {
  Fill();
  std::vector<uint8_t> bytes = StreamBytes(stats.Get());
  uint32_t odd = 7;
  std::memcpy(bytes.data() + 4, &odd, 4);
  auto copy = Create<IChannelStats>(CLSID_ChannelStats);
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), bytes));
  ChannelCounters c{};
  copy->GetChannelCounters(0, &c);
  EXPECT_EQ(7u, c.Number);
}

TEST_F(ChannelStatsPersistTest, AShortOrHostileStreamFailsAndKeepsTheChannels) {
  Fill();
  std::vector<uint8_t> bytes = StreamBytes(stats.Get());
  for (size_t n = 0; n < bytes.size(); ++n)
    ASSERT_EQ(E_FAIL, LoadStreamBytes(stats.Get(), std::vector<uint8_t>(bytes.begin(), bytes.begin() + n))) << n;
  EXPECT_EQ(bytes, StreamBytes(stats.Get()));
  for (uint32_t count : {0xFFFFFFFFu, 0x80000000u, 4u}) {
    std::vector<uint8_t> hostile = bytes;
    std::memcpy(hostile.data(), &count, 4);
    EXPECT_EQ(E_FAIL, LoadStreamBytes(stats.Get(), hostile)) << count;
  }
  EXPECT_EQ(3u, Count());
  EXPECT_EQ(S_OK, LoadStreamBytes(stats.Get(), {0, 0, 0, 0}));
  EXPECT_EQ(0u, Count());
}

TEST_F(ChannelStatsPersistTest, XmlRoundTripsAndInsistsOnOrder) {
  Fill();
  std::string xml = XmlOf(stats.Get());
  EXPECT_NE(std::string::npos, xml.find("<ZemoStats.ChannelStats.1><Channel Number=\"1\"><NetworkStats>")) << xml;
  auto copy = Create<IChannelStats>(CLSID_ChannelStats);
  ASSERT_EQ(S_OK, LoadXml(copy.Get(), xml));
  EXPECT_EQ(xml, XmlOf(copy.Get()));
  EXPECT_EQ(StreamBytes(stats.Get()), StreamBytes(copy.Get()));

  for (const auto& [from, to] : std::initializer_list<std::pair<const char*, const char*>>{
           {"Number=\"2\"", "Number=\"3\""},       // out of order
           {"Number=\"1\"", "Number=\"0\""},       // from 0
           {"Number=\"1\"", "Numbr=\"1\""},        // no number
           {"Number=\"1\"", "Number=\"one\""},     // no number either
           {"<SampleTracker>", "<SampleTracker/><X>"},  // an empty tracker
           {"<Sample1 ", "<Sample0 "},
           {"<ZemoStats.ChannelStats.1>", "<ZemoStats.ChannelStats.2>"}}) {
    std::string edited = Edited(xml, from, to);
    if (std::string(from) == "<SampleTracker>") edited = Edited(edited, "</SampleTracker>", "</X>");
    if (std::string(from) == "<Sample1 ") edited = Edited(edited, "</Sample1>", "</Sample0>");
    if (std::string(from) == "<ZemoStats.ChannelStats.1>")
      edited = Edited(edited, "</ZemoStats.ChannelStats.1>", "</ZemoStats.ChannelStats.2>");
    HRESULT hr = LoadXml(copy.Get(), edited);
    EXPECT_TRUE(FAILED(hr) && hr != E_UNEXPECTED) << from << " " << std::hex << hr;
  }
  // What failed left the last good load alone.
  EXPECT_EQ(xml, XmlOf(copy.Get()));
  ASSERT_EQ(S_OK, LoadXml(copy.Get(), "<ZemoStats.ChannelStats.1/>"));
  ULONG n = 5;
  copy->GetChannelCount(&n);
  EXPECT_EQ(0u, n);
}

}  // namespace
}  // namespace zemo::testing
