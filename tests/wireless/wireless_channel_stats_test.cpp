#include "wireless/wireless_channel_stats.h"

#include <cmath>

#include "frame/xml_persist.h"
#include "support/scratch_dir.h"
#include "wireless/wireless_channel_stats2.h"
#include "wireless_fixture.h"

namespace zemo::testing {
namespace {

constexpr SWirelessChannel kCh1{1, 2412, 4}, kCh6{6, 2437, 4}, kCh11{11, 2462, 4};

class WirelessChannelStatsTest : public WirelessFixture {
 protected:
  const CWirelessChannelStats& Engine() { return static_cast<WirelessChannelStats2*>(second.Get())->Engine(); }
  ZemoWirelessChannelStatEntry2 Entry2(ULONG index) {
    ZemoWirelessChannelStatEntry2 e{};
    EXPECT_EQ(S_OK, second->GetChannelStat2(index, &e));
    return e;
  }
  std::vector<uint64_t> RowPackets(IWirelessChannelStats* s, SWirelessChannel channel) {
    ZemoWirelessChannelDataRateStat* rows = nullptr;
    ULONG count = 0;
    EXPECT_EQ(S_OK, s->GetChannelDataRates(channel, &rows, &count));
    std::vector<uint64_t> out;
    for (ULONG i = 0; i < count; ++i) out.push_back(rows[i].Packets);
    CoTaskMemFree(rows);
    return out;
  }
  std::vector<ULONG> Rates(IWirelessChannelStats* s) {
    ULONG* rates = nullptr;
    ULONG count = 0;
    EXPECT_EQ(S_OK, s->GetDataRates(&rates, &count));
    std::vector<ULONG> out(rates, rates + count);
    CoTaskMemFree(rates);
    return out;
  }
};

TEST_F(WirelessChannelStatsTest, BothGenerationsCountTheSamePacketsInTheirOwnOrder) {
  // Nothing yet: no rates, and no channel at any index.
  ULONG* rates = reinterpret_cast<ULONG*>(1);
  ULONG count = 9;
  EXPECT_EQ(S_OK, first->GetDataRates(&rates, &count));
  EXPECT_EQ(nullptr, rates);
  EXPECT_EQ(0u, count);
  ZemoWirelessChannelStat stat{};
  EXPECT_EQ(E_INVALIDARG, first->GetChannelStat(0, &stat));
  EXPECT_EQ(E_INVALIDARG, second.Query<IWirelessChannelStats>()->GetChannelStat(0, &stat));
  EXPECT_EQ(E_POINTER, first.Query<IProcessPacket>()->ProcessPacket(nullptr));
  EXPECT_EQ(E_POINTER, second.Query<IProcessPacket>()->ProcessPacket(nullptr));

  FeedBoth(Frame(kCh11, kBeacon, 0, 22, -40, -90));
  FeedBoth(Frame(kCh1, kData, kToDs | kRetry, 4, -60, -90));
  FeedBoth(Frame(kCh6, kData, kFromDs | kProtected, 108, -50, -95, 300));
  FeedBoth(Frame(kCh6, kAck, 0, 22, -127, -127, 14));
  EXPECT_EQ((std::vector<int>{1, 6, 11}), Numbers(first.Get()));
  EXPECT_EQ((std::vector<int>{11, 6, 1}), Numbers(second.Get()));
  EXPECT_EQ(E_INVALIDARG, first->GetChannelStat(3, &stat));
  EXPECT_EQ(E_INVALIDARG, second.Query<IWirelessChannelStats>()->GetChannelStat(3, &stat));

  // The same counters in both, channel by channel.
  auto a = Channels(first.Get()), b = Channels(second.Get());
  ASSERT_EQ(3u, b.size());
  for (size_t i = 0; i < 3; ++i) {
    const ZemoWirelessChannelStat& x = a[i];
    const ZemoWirelessChannelStat& y = b[2 - i];
    EXPECT_EQ(0, std::memcmp(&x.Counts, &y.Counts, sizeof x.Counts)) << "channel " << x.Channel.Channel;
    EXPECT_EQ(x.Channel, y.Channel);
  }
  const ZemoWirelessChannelCounts six = a[1].Counts;
  EXPECT_EQ(2u, +six.Packets);
  EXPECT_EQ(314u, +six.Bytes);
  EXPECT_EQ(1u, +six.DataPackets);
  EXPECT_EQ(1u, +six.CtrlPackets);
  EXPECT_EQ(1u, +six.FromDSPackets);
  EXPECT_EQ(1u, +six.LocalPackets);
  EXPECT_EQ(300u, +six.ProtectedBytes);
  EXPECT_EQ(1u, +a[0].Counts.RetryPackets);
  EXPECT_EQ(1u, +a[0].Counts.ToDSPackets);

  // Rates 22, 4, 108 stand ascending, and each row kept its counts at its rate.
  EXPECT_EQ((std::vector<ULONG>{4, 22, 108}), Rates(first.Get()));
  EXPECT_EQ((std::vector<ULONG>{4, 22, 108}), Rates(second.Query<IWirelessChannelStats>().Get()));
  EXPECT_EQ((std::vector<uint64_t>{0, 1, 1}), RowPackets(first.Get(), kCh6));
  EXPECT_EQ((std::vector<uint64_t>{0, 1, 1}), RowPackets(second.Query<IWirelessChannelStats>().Get(), kCh6));
  EXPECT_EQ((std::vector<uint64_t>{1, 0, 0}), RowPackets(first.Get(), kCh1));
  ZemoWirelessChannelDataRateStat* rows = nullptr;
  EXPECT_EQ(E_INVALIDARG, first->GetChannelDataRates({2, 2417, 4}, &rows, &count));
  EXPECT_EQ(E_INVALIDARG, second->GetChannelDataRates({2, 2417, 4}, &rows, &count));
  EXPECT_EQ(E_POINTER, second->GetChannelDataRates(kCh6, nullptr, &count));

  // Signal: the first generation's -127 means no reading; the second's
  // converted record carries what its all-time figures hold.
  EXPECT_EQ(-50, +a[1].SignaldBmMax);
  EXPECT_EQ(-50, +a[1].SignaldBmMin);
  EXPECT_EQ(-50, +a[1].SignaldBmCurrent);  // the ACK had no reading: current stays
  EXPECT_EQ(100u, +a[1].SignalSum);  // 100 % and 0 %
  EXPECT_EQ(0, +a[1].SignalMin);
  EXPECT_EQ(-50, +b[1].SignaldBmMax);

  // A frame captured short: the first generation counts it, the second
  // (which needs 3 bytes) drops it whole.
  ULONG before = 0, after = 0;
  second->GetUpdateCount(&before);
  packet.Data({0x08, 0x00});
  FeedBoth(packet.Get());
  second->GetUpdateCount(&after);
  EXPECT_EQ(before, after);
  EXPECT_EQ(3u, +Channels(first.Get())[1].Counts.Packets);
  EXPECT_EQ(2u, +Channels(second.Get())[1].Counts.Packets);

  // After a save and load the second generation lists its channels ascending.
  auto bytes = StreamBytes(second.Get());
  auto reloaded = Create<IWirelessChannelStats2>(CLSID_WirelessChannelStats2);
  ASSERT_EQ(S_OK, LoadStreamBytes(reloaded.Get(), bytes));
  EXPECT_EQ((std::vector<int>{1, 6, 11}), Numbers(reloaded.Get()));
  EXPECT_EQ(bytes, StreamBytes(reloaded.Get()));
}

TEST_F(WirelessChannelStatsTest, SignalFiguresDirectionsErrorsAndTheRunningInterval) {
  // A first reading without dBm makes the figure valid: the next real
  // reading is no longer the first, so a maximum of 0 stays.
  FeedBoth(Frame(kCh6, kData, kToDs, 22, -127, -127));
  FeedBoth(Frame(kCh6, kData, kToDs, 22, -60, -90));
  ZemoWirelessChannelStatEntry2 e = Entry2(0);
  EXPECT_EQ(1u, +e.AllSignals.Signal.Valid);
  EXPECT_EQ(0, +e.AllSignals.Signal.MaxDBm);
  EXPECT_EQ(-60, +e.AllSignals.Signal.MinDBm);
  EXPECT_NEAR(1e-6, +e.AllSignals.Signal.PowerSum, 1e-12);
  EXPECT_EQ(2u, +e.ToDSSignals.RecentCount);
  EXPECT_EQ(0u, +e.FromDSSignals.RecentCount);
  // The ratio: -127 gets no special treatment; -60 against -90 is 30 dB.
  EXPECT_EQ(30, +e.AllSignals.SNR.MaxDBm);
  EXPECT_EQ(0, +e.AllSignals.SNR.Max);  // a ratio has no percent
  // Rounded half up and truncated toward zero: -50 dB records -49.
  FeedBoth(Frame(kCh11, kData, 0, 22, -90, -40));
  EXPECT_EQ(-49, +Entry2(0).AllSignals.SNR.CurrentDBm);
  // The first generation: the first packet sets the minimum whatever it holds.
  auto a = Channels(first.Get());
  EXPECT_EQ(-60, +a[0].SignaldBmMin);
  EXPECT_EQ(-60, +a[0].SignaldBmMax);
  EXPECT_DOUBLE_EQ(1e-6, +a[0].SignalPower);

  // A bad checksum counts in Packets and CRC errors and in no class; packet
  // flags 0x4, 0x8 and 0x40 count as protected, ICV errors and flag 0x40.
  Frame(kCh1, kData, 0, 22);
  packet.Status(kPacketStatusCrc);
  FeedBoth(packet.Get());
  Frame(kCh1, kData, 0, 22);
  packet.Flags(0x4 | 0x8 | 0x40);
  FeedBoth(packet.Get());
  for (const auto& c : {Channels(first.Get())[0], Channels(second.Get())[2]}) {
    EXPECT_EQ(2u, +c.Counts.Packets);
    EXPECT_EQ(1u, +c.Counts.DataPackets);
    EXPECT_EQ(1u, +c.Counts.CRCErrors);
    EXPECT_EQ(1u, +c.Counts.ProtectedPackets);
    EXPECT_EQ(1u, +c.Counts.WEPICVErrors);
    EXPECT_EQ(1u, +c.Counts.Flag40Packets);
    EXPECT_EQ(1u, +c.Counts.NoFlag40Packets);
  }

  // The running interval: the first tick stamps it, one 10 s later rolls
  // it, seeding the new interval with the current reading.
  CWirelessChannelStats engine;
  IPacket* p = Frame(kCh6, kData, kToDs, 22, -60, -90);
  for (int i = 0; i < 3; ++i) {
    WirelessPacketView view(p);
    engine.ProcessPacket(view);
  }
  engine.ProcessTime(kWirelessT0);
  EXPECT_EQ(kWirelessT0, +engine.Record(0).RollTime);
  engine.ProcessTime(kWirelessT0 + 11 * kWirelessSecond);
  const ZemoWirelessChannelStatEntry2& rolled = engine.Record(0);
  EXPECT_EQ(240u, +rolled.ToDSSignals.PreviousSignal.PercentSum);  // three readings of 80 %
  EXPECT_EQ(-60, +rolled.ToDSSignals.PreviousSignal.MinDBm);
  EXPECT_EQ(1u, +rolled.ToDSSignals.RecentCount);
  EXPECT_EQ(-60, +rolled.ToDSSignals.RecentSignal.CurrentDBm);
  EXPECT_EQ(0u, +rolled.LocalSignals.RecentCount);
  EXPECT_EQ(-5, +rolled.LocalSignals.RecentSignal.MinDBm);  // cleared
}

TEST_F(WirelessChannelStatsTest, AccessPointsAdapterChannelsAndTheStream) {
  const MediaSpec ap1 = specs::Ethernet(std::array<uint8_t, 6>{2, 0, 0, 0, 0, 1}.data());
  const MediaSpec ap2 = specs::Ethernet(std::array<uint8_t, 6>{2, 0, 0, 0, 0, 2}.data());
  ULONG n = 9;
  EXPECT_EQ(S_OK, second->GetChannelNodeCount(kCh6, &n));
  EXPECT_EQ(0u, n);
  // An access point on a channel no packet brought creates its record.
  EXPECT_EQ(S_OK, second->AddChannelNode(kCh6, &ap1));
  EXPECT_EQ(S_OK, second->AddChannelNode(kCh6, &ap1));
  EXPECT_EQ(S_OK, second->AddChannelNode(kCh6, &ap2));
  EXPECT_EQ(S_OK, second->AddChannelNode(kCh11, &ap2));
  EXPECT_EQ(S_OK, second->GetChannelCount(&n));
  EXPECT_EQ(2u, n);
  EXPECT_EQ(S_OK, second->GetChannelNodeCount(kCh6, &n));
  EXPECT_EQ(2u, n);
  EXPECT_EQ(S_OK, second->GetChannelNodeIndex(kCh6, &ap2, &n));
  EXPECT_EQ(1u, n);
  EXPECT_EQ(S_OK, second->RemoveChannelNode(kCh6, &ap1));
  EXPECT_EQ(S_OK, second->GetChannelNodeIndex(kCh6, &ap1, &n));
  EXPECT_EQ(0xFFFFFFFFu, n);
  EXPECT_EQ(S_OK, second->GetMaxChannelNodeCount(&n));
  EXPECT_EQ(1u, n);
  EXPECT_EQ(E_POINTER, second->AddChannelNode(kCh6, nullptr));

  // The stream keeps the lists; a second tag that is wrong fails the load.
  auto bytes = StreamBytes(second.Get());
  auto copy = Create<IWirelessChannelStats2>(CLSID_WirelessChannelStats2);
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), bytes));
  EXPECT_EQ(S_OK, copy->GetChannelNodeIndex(kCh11, &ap2, &n));
  EXPECT_EQ(0u, n);
  auto bad = bytes;
  const size_t rateTag = 8 + 4 + 4 + 2 * sizeof(ZemoWirelessChannelStatEntry2);
  bad[rateTag] ^= 0xFF;
  EXPECT_EQ(E_UNEXPECTED, LoadStreamBytes(copy.Get(), bad));
  bad = bytes;
  bad.resize(bytes.size() - 3);
  EXPECT_NE(S_OK, LoadStreamBytes(copy.Get(), bad));
  // What survived a failed load still takes packets.
  EXPECT_EQ(S_OK, copy.Query<IProcessPacket>()->ProcessPacket(Frame(kCh1, kData, 0, 22)));
  EXPECT_EQ(E_UNEXPECTED, copy.Query<IPersistStream>()->Load(nullptr));

  // Reset starts from the adapter's channels and rates, with zero counters;
  // with no context there is nothing to start from.
  EXPECT_EQ(E_FAIL, second.Query<IZemoStats>()->Reset());
  auto adapter = AdapterInfo::Create();
  const SWirelessChannel planned[] = {kCh11, kCh1, {36, 5180, 3}};
  const ULONG plannedRates[] = {108, 2, 22};
  adapter->SetWirelessChannels(planned);
  adapter->SetDataRates(plannedRates);
  auto context = StatsContext::Create();
  ASSERT_EQ(S_OK, context->SetAdapterInfo(adapter.Get()));
  ASSERT_EQ(S_OK, second.Query<IZemoStats>()->SetContext(context.Get()));
  ASSERT_EQ(S_OK, second.Query<IZemoStats>()->Reset());
  EXPECT_EQ((std::vector<int>{36, 11, 1}), Numbers(second.Get()));
  EXPECT_EQ((std::vector<ULONG>{2, 22, 108}), Rates(second.Query<IWirelessChannelStats>().Get()));
  EXPECT_EQ(0u, +Entry2(0).Counts.Packets);
  EXPECT_EQ(S_OK, second->GetMaxChannelNodeCount(&n));
  EXPECT_EQ(0u, n);
}

TEST_F(WirelessChannelStatsTest, FirstGenerationStreamExportAndNoXml) {
  // No reading on any packet: no power, -127 in every dBm figure, 0 in the export.
  FeedBoth(Frame(kCh6, kData, 0, 11, -127, -127, 100, kWirelessT0));
  FeedBoth(Frame(kCh6, kData, 0, 22, -127, -127, 100, kWirelessT0 + kWirelessSecond));
  auto c = Channels(first.Get())[0];
  EXPECT_EQ(0.0, +c.SignalPower);
  EXPECT_EQ(-127, +c.SignaldBmMin);
  EXPECT_EQ(-127, +c.NoisedBmMax);

  testing_support::ScratchDir dir;
  ComPtr<IPersistFile> file = first.Query<IPersistFile>();
  EXPECT_EQ(E_INVALIDARG, +file->Save(dir.WideFile("channels.xml").c_str(), FALSE));
  EXPECT_TRUE(testing_support::ReadFile(dir.File("channels.xml")).empty());
  ASSERT_EQ(S_OK, file->Save(dir.WideFile("channels.txt").c_str(), FALSE));
  const std::string text = testing_support::ReadFile(dir.File("channels.txt"));
  EXPECT_NE(std::string::npos, text.find("CRC Errors\t5.5 Mbits/s Packets\t5.5 Mbits/s Bytes\t11 Mbits/s Packets\t"
                                         "11 Mbits/s Bytes\tWEP ICV Errors\tMin. Signal"));
  EXPECT_NE(std::string::npos, text.find("\n6\t2437\t4\t2\t200\t2\t200\t0\t0\t"));
  // Rates, ICV errors, then percent and dBm figures of signal and noise.
  EXPECT_NE(std::string::npos, text.find("\t1\t100\t1\t100\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t"));

  auto bytes = StreamBytes(first.Get());
  EXPECT_EQ(4 + 300 + 4 + 4 + 8 + 4 + 4 + 4 + 32u, bytes.size());
  auto copy = Create<IWirelessChannelStats>(CLSID_WirelessChannelStats);
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), bytes));
  EXPECT_EQ(bytes, StreamBytes(copy.Get()));
  // A row of another length than the rates is malformed.
  auto bad = bytes;
  bad[bytes.size() - 36] = 1;
  EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), bad));

  auto document = CreateXmlDocument();
  ComPtr<IPersistXml> xml = first.Query<IPersistXml>();
  EXPECT_EQ(E_NOTIMPL, +xml->Save(document.Get(), document.Get(), FALSE));
  EXPECT_EQ(E_NOTIMPL, +xml->Load(document.Get(), document.Get()));
  ZemoTime since = 0;
  EXPECT_EQ(E_NOTIMPL, first.Query<IPersistXmlDeltas>()->SaveDeltas(document.Get(), document.Get(), &since));
}

}  // namespace
}  // namespace zemo::testing
