// SummaryStatsUpdater: what each medium writes, the figures against the
// statistics they come from (on made-up traffic and on real captures), the
// components it hands the snapshot to, and what ends a run.
#include "summary/summary_stats_updater.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "cli/analysis.h"
#include "engine/site.h"
#include "identity/identity_interfaces.h"
#include "network/error_stats.h"
#include "network/network_fixture.h"
#include "network/size_stats.h"
#include "summary/stat_map.h"
#include "summary/summary_items.h"
#include "summary/summary_stats.h"
#include "tables/protocol_stats.h"
#include "wireless/wireless_node_interfaces.h"

namespace zemo::testing {
namespace {

namespace items = summary_items;

// A statistic that offers the wireless node totals, or fails to.
class FakeWirelessNodes final : public Object<FakeWirelessNodes, IZemoStats, IWirelessNodeStats> {
 public:
  HRESULT GetContext(IZemoStatsContext**) override { return E_NOTIMPL; }
  HRESULT SetContext(IZemoStatsContext*) override { return S_OK; }
  HRESULT Reset() override { return S_OK; }
  HRESULT GetEntityTable(IEntityTable**) override { return E_NOTIMPL; }
  HRESULT GetAssociationTable(IWirelessNodeAssociationTable**) override { return E_NOTIMPL; }
  HRESULT GetNodeCount(ULONG*) override { return E_NOTIMPL; }
  HRESULT GetRateChangeCount(ULONG*) override { return E_NOTIMPL; }
  HRESULT GetUnknownBSSIDIndex(ULONG*) override { return E_NOTIMPL; }
  HRESULT GetUnknownESSIDIndex(ULONG*) override { return E_NOTIMPL; }
  HRESULT GetNodeIndex(ULONG, ULONG*, BOOL*) override { return E_NOTIMPL; }
  HRESULT GetNodeStat(ULONG, ZemoWirelessNodeStatEntry*) override { return E_NOTIMPL; }
  HRESULT GetTotals(ZemoWirelessNodeTotals* totals) override {
    ULONG fields[14];
    for (ULONG i = 0; i < 14; ++i) fields[i] = 100 + i;
    std::memcpy(totals, fields, sizeof fields);
    return result;
  }
  HRESULT GetDataRates(ULONG**, ULONG*) override { return E_NOTIMPL; }
  HRESULT GetNodeDataRates(ULONG, ZemoWirelessNodeDataRateStat**, ULONG*) override { return E_NOTIMPL; }
  HRESULT result = S_OK;
};

std::u16string IdText(REFGUID id) {
  OLECHAR text[39];
  StringFromGUID2(id, text, 39);
  return std::u16string(text, 38);
}

class UpdaterTest : public NetworkFixture {
 protected:
  // A context on the medium whose adapter numbers these channels, holding
  // these statistics under their classes.
  static ComPtr<StatsContext> Context(ULONG type, ULONG subType, ULONGLONG speed, std::vector<ULONG> channels,
                                      std::initializer_list<CLSID> statistics) {
    auto adapter = AdapterInfo::Create();
    adapter->SetMediaType(type);
    adapter->SetMediaSubType(subType);
    adapter->SetLinkSpeed(speed);
    adapter->SetChannelNumbers(channels);
    auto context = StatsContext::Create();
    EXPECT_EQ(S_OK, context->SetAdapterInfo(adapter.Get()));
    for (const CLSID& clsid : statistics) EXPECT_EQ(S_OK, context->AddStats(clsid, Create<IZemoStats>(clsid).Get()));
    return context;
  }
  template <class I>
  static ComPtr<I> Stats(StatsContext* context, REFCLSID clsid) {
    ComPtr<I> out;
    EXPECT_EQ(S_OK, context->GetStats(clsid, I::iid, out.OutVoid()));
    return out;
  }
  static ComPtr<ISummaryStatsSnapshot> Current(StatsContext* context) {
    ComPtr<ISummaryStatsSnapshot> s;
    EXPECT_EQ(S_OK, Stats<ISummaryStats>(context, CLSID_SummaryStats)->GetSnapshot(0, s.ReleaseAndGetAddressOf()));
    return s;
  }
  static bool Has(ISummaryStatsSnapshot* s, REFGUID id) {
    LONG has = 0;
    s->HasItem(id, &has);
    return has != 0;
  }
  static SummaryStatValue Value(ISummaryStatsSnapshot* s, REFGUID id) {
    SummaryStatValue v = SummaryValue(99);
    EXPECT_EQ(S_OK, s->GetValue(id, &v));
    return v;
  }
  static uint64_t CountOf(ISummaryStatsSnapshot* s, REFGUID id) { return Value(s, id).Count; }
  static double DoubleOf(ISummaryStatsSnapshot* s, REFGUID id) {
    SummaryStatValue v = Value(s, id);
    EXPECT_EQ(ULONG{kSummaryDouble}, v.Type);
    return v.Double;
  }
  static std::u16string LabelOf(ISummaryStatsSnapshot* s, REFGUID id) {
    CBstr label;
    EXPECT_EQ(S_OK, s->GetLabel(id, label.Out()));
    return std::u16string(label.View());
  }
  static std::vector<GUID> Order(ISummaryStatsSnapshot* s) {
    LONG count = 0;
    s->GetItemCount(&count);
    std::vector<GUID> ids(static_cast<size_t>(count));
    for (LONG i = 0; i < count; ++i) s->GetItemID(i, &ids[static_cast<size_t>(i)]);
    return ids;
  }
};

TEST_F(UpdaterTest, WhatEndsARunAndWhatItLeaves) {
  auto updater = SummaryStatsUpdater::Create();
  EXPECT_EQ(E_FAIL, updater->Update(nullptr));
  // No SummaryStats: nothing to write into.
  EXPECT_EQ(E_FAIL, Context(0, 0, 0, {}, {})->UpdateStats());

  // SummaryStats alone: the start of the capture and the context's entity counts.
  auto alone = Context(0, 0, 0, {}, {CLSID_SummaryStats});
  alone->SetStartDateTime(kT0);
  ASSERT_EQ(S_OK, alone->UpdateStats());
  auto snapshot = Current(alone.Get());
  EXPECT_EQ((std::vector<GUID>{items::kGeneralGroup, items::kStartDate, items::kStartTime, items::kCountsGroup,
                               items::kPhysicalAddresses, items::kIpAddresses, items::kIpv6Addresses,
                               items::kType20Addresses, items::kType22Addresses, items::kType25Addresses}),
            Order(snapshot.Get()));
  EXPECT_EQ(ULONG{kSummaryDate}, Value(snapshot.Get(), items::kStartDate).Type);
  EXPECT_EQ(ULONG{kSummaryTime}, Value(snapshot.Get(), items::kStartTime).Type);
  EXPECT_EQ(kT0, CountOf(snapshot.Get(), items::kStartTime));

  // Without the expert component's class the run ends there, before the
  // site's items, after its own.
  auto site = Site::Create();
  auto facts = CaptureFacts::Create();
  site->SetService(kServiceUpdateSummaryStats, facts->GetUnknown());
  alone->SetSite(static_cast<IServiceProvider*>(site.Get()));
  ASSERT_EQ(S_OK, UnregisterEngineClasses());
  EXPECT_EQ(CO_E_CLASSSTRING, alone->UpdateStats());
  EXPECT_FALSE(Has(snapshot.Get(), capture_items::kGroup));
  ASSERT_EQ(S_OK, RegisterEngineClasses());
  EXPECT_EQ(S_OK, alone->UpdateStats());
  EXPECT_TRUE(Has(snapshot.Get(), capture_items::kGroup));

  // A medium outside the error table fails step 4: the network's items stand.
  auto odd = Context(7, 0, 0, {}, {CLSID_SummaryStats, CLSID_NetworkStats, CLSID_ErrorStats});
  EXPECT_EQ(E_FAIL, odd->UpdateStats());
  snapshot = Current(odd.Get());
  EXPECT_TRUE(Has(snapshot.Get(), items::kTotalBytes));
  EXPECT_FALSE(Has(snapshot.Get(), items::kCountsGroup));
}

TEST_F(UpdaterTest, NetworkAndChannelFiguresFollowTheMedium) {
  struct Case {
    ULONG type, subType;
    ULONGLONG speed;
    std::vector<ULONG> channels;
    bool groupTraffic;  // broadcast and multicast items
    std::u16string firstLabel, secondLabel;
  };
  const Case cases[] = {
      {3, 0, 1000000, {1, 2}, false, u"To DTE", u"To DCE"},
      {12, 0, 2000000, {1, 2}, false, u"To DTE", u"To DCE"},
      {0, 0, 10000000, {1, 2}, true, u"Channel 1", u"Channel 2"},
      {0, 0, 0, {}, true, u"", u""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "medium " << c.type << " speed " << c.speed);
    auto context = Context(c.type, c.subType, c.speed, c.channels, {CLSID_SummaryStats, CLSID_NetworkStats});
    auto process = context.Query<IProcessPacket>();
    auto tick = context.Query<IProcessTime>();
    for (int i = 0; i < 30; ++i) {
      packet.Clear().Time(kT0 + i * kSecond / 10).Length(100 + i);
      if (!c.channels.empty()) packet.ChannelNumber(1 + i % 2);
      if (i % 3 == 0) packet.Broadcast();
      ASSERT_EQ(S_OK, process->ProcessPacket(packet.Get()));
      if (i % 10 == 9) tick->ProcessTime(kT0 + (i + 1) * kSecond / 10);
    }
    ASSERT_EQ(S_OK, context->UpdateStats());
    auto s = Current(context.Get());
    auto network = Stats<INetworkStats>(context.Get(), CLSID_NetworkStats);
    NetworkCounters counters{};
    NetworkRates rates{};
    network->GetNetworkCounters(&counters);
    network->GetNetworkRates(&rates);
    ULONGLONG duration = 0;
    context->GetDuration(&duration);
    ASSERT_GT(duration, 0u);
    EXPECT_EQ(counters.TotalBytes, CountOf(s.Get(), items::kTotalBytes));
    EXPECT_EQ(counters.TotalPackets, CountOf(s.Get(), items::kTotalPackets));
    EXPECT_EQ(c.groupTraffic, Has(s.Get(), items::kBroadcast));
    EXPECT_EQ(c.groupTraffic, Has(s.Get(), items::kMulticast));
    if (c.groupTraffic) {
      EXPECT_EQ(10u, uint64_t{Value(s.Get(), items::kBroadcast).Pair.Packets});
    }
    const double bps = (counters.TotalBytes + 8.0 * counters.TotalPackets) * 8.0 * 1e9 / double(duration);
    const double capacity = double(c.channels.empty() ? c.speed : c.channels.size() * c.speed);
    EXPECT_DOUBLE_EQ(bps, DoubleOf(s.Get(), items::kAverageBitsPerSecond));
    // Shares are of n channels' capacity; with no link speed they are 0.
    EXPECT_DOUBLE_EQ(c.speed ? bps / capacity * 100 : 0.0, DoubleOf(s.Get(), items::kAverageUtilization));
    EXPECT_DOUBLE_EQ(c.speed ? rates.TotalBitsPerSecond / capacity * 100 : 0.0,
                     DoubleOf(s.Get(), items::kCurrentUtilization));
    EXPECT_EQ(uint64_t(rates.TotalBitsPerSecond), CountOf(s.Get(), items::kCurrentBitsPerSecond));

    auto channels = network.Query<IChannelStats>();
    for (ULONG i = 0; i < c.channels.size(); ++i) {
      const GUID group = items::ChannelItem(items::kChannelGroup, i);
      EXPECT_EQ(group.Data1, items::kChannelGroup.Data1 + i);
      EXPECT_EQ(i == 0 ? c.firstLabel : c.secondLabel, LabelOf(s.Get(), group));
      ChannelCounters record{};
      NetworkRates channelRates{};
      channels->GetChannelCounters(i, &record);
      channels->GetChannelRates(i, &channelRates);
      const NetworkCounters cc = CountersOf(record);
      const double b = (cc.TotalBytes + 8.0 * cc.TotalPackets) * 8.0 * 1e9 / double(duration);
      auto item = [&](const GUID& base) { return items::ChannelItem(base, i); };
      EXPECT_EQ(cc.TotalBytes, CountOf(s.Get(), item(items::kChannelBytes)));
      EXPECT_EQ(IdText(items::kTotalBytes), LabelOf(s.Get(), item(items::kChannelBytes)));
      EXPECT_EQ(c.groupTraffic, Has(s.Get(), item(items::kChannelBroadcast)));
      // A channel's share is of the plain link speed.
      EXPECT_DOUBLE_EQ(b * 100 / double(c.speed), DoubleOf(s.Get(), item(items::kChannelAverageUtilization)));
      EXPECT_DOUBLE_EQ(channelRates.TotalBitsPerSecond, DoubleOf(s.Get(), item(items::kChannelCurrentBitsPerSecond)));
    }
    // Another run changes values only.
    const std::vector<GUID> order = Order(s.Get());
    ASSERT_EQ(S_OK, context->UpdateStats());
    EXPECT_EQ(order, Order(s.Get()));
    if (!c.channels.empty()) {
      EXPECT_EQ(c.secondLabel, LabelOf(s.Get(), items::ChannelItem(items::kChannelGroup, 1)));
    }
  }
  // Before any packet the duration is 0, and so is the average rate.
  auto idle = Context(0, 0, 1000, {}, {CLSID_SummaryStats, CLSID_NetworkStats});
  ASSERT_EQ(S_OK, idle->UpdateStats());
  EXPECT_EQ(0.0, DoubleOf(Current(idle.Get()).Get(), items::kAverageBitsPerSecond));
}

TEST_F(UpdaterTest, TheSiteExpertAndWirelessStatisticsAddTheirs) {
  auto context = Context(0, 0, 0, {}, {CLSID_SummaryStats});
  auto expert = ExpertStats::Create();
  ASSERT_EQ(S_OK, context->AddStats(CLSID_KorvantExpertStats, expert.Get()));
  expert->Count(kFaultMalformed | kFaultTruncated);
  // The site answers some of its figures, one in another type than asked.
  auto site = Site::Create();
  site->SetProperty(u"Duration", CVariant::I8(5 * kSecond));
  site->SetProperty(u"TriggerDuration", CVariant::I4(7));
  site->SetProperty(u"PacketsDropped", CVariant::UI8(12));
  context->SetSite(static_cast<IServiceProvider*>(site.Get()));
  // The context lacks the wireless statistics: their step writes nothing.
  ASSERT_EQ(S_OK, context->UpdateStats());
  auto s = Current(context.Get());
  EXPECT_EQ(5 * kSecond, CountOf(s.Get(), items::kSiteDuration));
  EXPECT_EQ(7u, CountOf(s.Get(), items::kTriggerDuration));
  EXPECT_EQ(ULONG{kSummaryDuration}, Value(s.Get(), items::kTriggerDuration).Type);
  EXPECT_EQ(12u, CountOf(s.Get(), items::kPacketsDropped));
  EXPECT_FALSE(Has(s.Get(), items::kTriggerCount));
  EXPECT_EQ(1u, CountOf(s.Get(), expert_items::kFaults[0]));
  EXPECT_FALSE(Has(s.Get(), items::kWireless.group));

  // The second generation first, then the first; each field an integer.
  for (const CLSID& clsid : {CLSID_WirelessNodeStats, CLSID_WirelessNodeStats2}) {
    auto nodes = FakeWirelessNodes::Create();
    ASSERT_EQ(S_OK, context->AddStats(clsid, nodes.Get()));
    ASSERT_EQ(S_OK, context->UpdateStats());
    for (ULONG i = 0; i < 14; ++i) {
      EXPECT_EQ(ULONG{kSummaryInt}, Value(s.Get(), items::kWirelessItems[i]).Type);
      EXPECT_EQ(100u + i, CountOf(s.Get(), items::kWirelessItems[i]));
    }
    nodes->result = E_NOTIMPL;
    EXPECT_EQ(E_NOTIMPL, context->UpdateStats());
  }
}

// The summary of a real capture agrees with the statistics it comes from.
TEST_F(UpdaterTest, TheFiguresOfRealCapturesAgreeWithTheirStatistics) {
  const std::string root = ZEMO_SHARED_DIR "/captures/";
  if (!std::filesystem::exists(root)) GTEST_SKIP() << "no captures at " << root;
  for (const char* name : {"tcpdump/afs.pcap", "tcpdump/bigtcp-ipv4.pcap", "aircrack/wpa-psk-linksys.cap"}) {
    SCOPED_TRACE(name);
    std::string error;
    auto source = cli::CaptureSource::OpenFile(root + name, &error);
    ASSERT_TRUE(source) << error;
    cli::Analysis analysis;
    ASSERT_TRUE(analysis.Start(uint32_t(source->LinkType()), 0, &error)) << error;
    cli::DecodedFrame decoded;
    decoded.packet = Packet::Create();
    cli::CaptureFrame frame{};
    ExpertStats::Counts faults{};
    while (source->Next(&frame) == cli::ReadResult::kFrame) {
      analysis.Decode(frame, decoded);
      for (size_t i = 0; i < kFrameFaultKinds; ++i) faults[i] += (decoded.faults >> i) & 1;
      analysis.Process(decoded);
    }
    analysis.Finish();
    ASSERT_EQ(S_OK, analysis.UpdateSummary());
    IZemoStatsContext* context = analysis.Context();
    ComPtr<ISummaryStatsSnapshot> s;
    analysis.Summary()->GetSnapshot(0, s.ReleaseAndGetAddressOf());

    NetworkCounters c{};
    ComPtr<INetworkStats> network;
    ASSERT_EQ(S_OK, context->GetStats(CLSID_NetworkStats, INetworkStats::iid, network.OutVoid()));
    network->GetNetworkCounters(&c);
    ULONGLONG packets = 0;
    context->GetTotalPackets(&packets);
    EXPECT_EQ(packets, c.TotalPackets);
    EXPECT_EQ(c.TotalPackets, CountOf(s.Get(), items::kTotalPackets));
    EXPECT_EQ(c.TotalBytes, CountOf(s.Get(), items::kTotalBytes));
    EXPECT_EQ(c.MulticastBytes, uint64_t{Value(s.Get(), items::kMulticast).Pair.Bytes});
    EXPECT_EQ(c.BroadcastPackets, uint64_t{Value(s.Get(), items::kBroadcast).Pair.Packets});
    ZemoTime start = 0;
    context->GetStartDateTime(&start);
    EXPECT_EQ(start, CountOf(s.Get(), items::kStartDate));

    ULONG type = 0, subType = 0;
    context->GetMediaType(&type);
    context->GetMediaSubType(&subType);
    const items::MediumItems& errorItems = subType == 0 ? items::kErrors00 : items::kErrors0x;
    const items::MediumItems& sizeItems = subType == 0 ? items::kSizes1 : items::kSizes3;
    ComPtr<IErrorStats> errors;
    ComPtr<ISizeStats> sizes;
    ASSERT_EQ(S_OK, context->GetStats(CLSID_ErrorStats, IErrorStats::iid, errors.OutVoid()));
    ASSERT_EQ(S_OK, context->GetStats(CLSID_SizeStats, ISizeStats::iid, sizes.OutVoid()));
    ULONGLONG counts[13] = {};
    errors->GetCounters(13, counts);
    for (size_t i = 0; i < errorItems.items.size(); ++i) EXPECT_EQ(counts[i], CountOf(s.Get(), errorItems.items[i]));
    sizes->GetBuckets(12, counts);
    uint64_t sized = 0;
    for (size_t i = 0; i < sizeItems.items.size(); ++i) {
      EXPECT_EQ(counts[i], CountOf(s.Get(), sizeItems.items[i]));
      sized += counts[i];
    }
    EXPECT_EQ(c.TotalPackets, sized);

    ComPtr<IEntityTable> entities;
    context->GetEntityTable(entities.ReleaseAndGetAddressOf());
    auto entityCount = [&](ULONG t) {
      ULONG n = 0;
      entities->GetCount(t, &n);
      return uint64_t{n};
    };
    EXPECT_EQ(entityCount(10) + entityCount(13) + entityCount(43), CountOf(s.Get(), items::kPhysicalAddresses));
    EXPECT_EQ(entityCount(21), CountOf(s.Get(), items::kIpAddresses));
    EXPECT_EQ(entityCount(24), CountOf(s.Get(), items::kIpv6Addresses));
    ComPtr<IProtocolStats> protocols;
    ASSERT_EQ(S_OK, context->GetStats(CLSID_ProtocolStatsByID, IProtocolStats::iid, protocols.OutVoid()));
    ULONG protocolCount = 0;
    protocols->GetProtocolCount(&protocolCount);
    EXPECT_LT(0u, protocolCount);
    EXPECT_EQ(protocolCount, CountOf(s.Get(), items::kProtocols));
    for (size_t i = 0; i < kFrameFaultKinds; ++i) EXPECT_EQ(faults[i], CountOf(s.Get(), expert_items::kFaults[i]));
  }
}

// The shipped stat map names every item the updater, the expert statistic
// and the capture's facts write.
TEST(ShippedStatMap, NamesEveryItem) {
  // This file is tests/summary/<name> of the source tree.
  std::string source = __FILE__;
  source = source.substr(0, source.rfind("/tests/summary/"));
  CStatMap map;
  ASSERT_EQ(S_OK, map.Load(FromUtf8(source + "/summary/Statmap.xml")));
  std::vector<GUID> ids = {items::kGeneralGroup,    items::kStartDate,          items::kStartTime,
                           items::kSiteDuration,    items::kTriggerCount,       items::kTriggerDuration,
                           items::kPacketsDropped,  items::kNetworkGroup,       items::kTotalBytes,
                           items::kTotalPackets,    items::kBroadcast,          items::kMulticast,
                           items::kAverageUtilization, items::kAverageBitsPerSecond, items::kCurrentUtilization,
                           items::kCurrentBitsPerSecond, items::kChannelGroup, items::kChannelBytes,
                           items::kChannelPackets,  items::kChannelBroadcast,   items::kChannelMulticast,
                           items::kChannelAverageUtilization, items::kChannelAverageBitsPerSecond,
                           items::kChannelCurrentUtilization, items::kChannelCurrentBitsPerSecond,
                           items::kCountsGroup,     items::kPhysicalAddresses,  items::kIpAddresses,
                           items::kIpv6Addresses,   items::kType20Addresses,    items::kType22Addresses,
                           items::kType25Addresses, items::kProtocols,          expert_items::kGroup,
                           capture_items::kGroup,   capture_items::kLinkType,   capture_items::kLinkSpeed,
                           capture_items::kFileSize, capture_items::kInterfaceReceived};
  for (const items::MediumItems* group : {&items::kErrors00, &items::kErrors0x, &items::kErrors1, &items::kErrors3,
                                          &items::kSizes1, &items::kSizes2, &items::kSizes3, &items::kSizes4,
                                          &items::kSizes5, &items::kWireless}) {
    ids.push_back(group->group);
    ids.insert(ids.end(), group->items.begin(), group->items.end());
  }
  ids.insert(ids.end(), std::begin(expert_items::kFaults), std::end(expert_items::kFaults));
  for (const GUID& id : ids) {
    std::u16string name;
    EXPECT_EQ(S_OK, map.Lookup(id, name)) << ToUtf8(IdText(id));
    EXPECT_FALSE(name.empty());
  }
  EXPECT_EQ(ids.size() - 1, map.Count());  // two size sets share a group
}

}  // namespace
}  // namespace zemo::testing
