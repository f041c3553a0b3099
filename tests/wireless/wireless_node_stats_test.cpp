#include <cstring>

#include "engine/address_book.h"
#include "engine/site.h"
#include "frame/xml_persist.h"
#include "support/scratch_dir.h"
#include "wireless/wireless_association.h"
#include "wireless/wireless_node_stats.h"
#include "wireless/wireless_node_stats2.h"
#include "wireless_fixture.h"

namespace zemo::testing {
namespace {

using Mac = PacketBuilder::Mac;
constexpr uint32_t kAny = 0xFFFFFFFFu;
constexpr SWirelessChannel kCh6{6, 2437, 4};
const Mac kAP{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}, kAP2{0x00, 0x11, 0x22, 0x33, 0x44, 0x66};
const Mac kSta{0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0x01}, kSta2{0x00, 0xAA, 0xBB, 0xCC, 0xDD, 0x02};
const Mac kAll{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, kGroup{0x01, 0x00, 0x5E, 0x00, 0x00, 0x01};
constexpr uint8_t kAssocResponse = 0x10, kProbeResp = 0x50, kProbeReq = 0x40;

TEST(WirelessAssociationSet, FirmTiesReplaceLooseOnesAndTheFormsKeepTheRecords) {
  using A = ZemoWirelessNodeAssociation;
  struct Step {
    uint32_t essid, bssid, node;
    uint16_t kind;
    std::vector<A> after;
    uint32_t changes;  // change count after the step
  };
  // Station 7, BSSID 3, ESSID 9; each case starts from the set the previous left.
  const Step steps[] = {
      {kAny, 3, 7, 0x08, {{kAny, 3, 7, 2}}, 1},
      {kAny, 3, 7, 0x08, {{kAny, 3, 7, 2}}, 2},                      // the same tie again: still counted
      {9, kAny, 7, kFrameProbeRequest, {{kAny, 3, 7, 2}}, 2},        // a firmly tied station gets no loose tie
      {9, kAny, 8, kFrameProbeRequest, {{kAny, 3, 7, 2}, {9, kAny, 8, 1}}, 3},
      {kAny, 3, 8, 0x08, {{kAny, 3, 7, 2}, {kAny, 3, 8, 2}}, 5},     // firm tie added, loose one dropped
      {9, 4, 4, kFrameBeacon, {{kAny, 3, 7, 2}, {kAny, 3, 8, 2}, {kAny, 4, 4, 2}, {9, 4, kAny, 2}}, 7},
  };
  WirelessAssociationSet set;
  for (const Step& s : steps) {
    RecordAssociation(set, s.essid, s.bssid, s.node, s.kind);
    EXPECT_EQ(s.after, set.Records()) << "node " << s.node << " kind " << s.kind;
    EXPECT_EQ(s.changes, set.ChangeCount()) << "node " << s.node << " kind " << s.kind;
  }
  // An all-any pattern touches every record; adjacent matches all go.
  EXPECT_EQ(4u, set.UpdateMatching({kAny, kAny, kAny, kAny}, {kAny, kAny, kAny, 1}));
  EXPECT_EQ(4u, set.RemoveMatching({kAny, kAny, kAny, 1}));
  EXPECT_EQ(0u, set.Count());

  auto table = WirelessNodeAssociationTable::Create();
  table->Set().Append({9, kAny, 7, 1});
  table->Set().Append({kAny, 3, 7, 2});
  auto document = CreateXmlDocument();
  ASSERT_EQ(S_OK, table->Save(document.Get(), document.Get(), FALSE));
  auto element = SelectXmlElement(document.Get(), u"WirelessNodeAssociationTable/WirelessNodeAssociation");
  ASSERT_TRUE(element);
  EXPECT_FALSE(SelectXmlElement(element.Get(), u"BSSIDIndex"));
  auto copy = WirelessNodeAssociationTable::Create();
  ASSERT_EQ(S_OK, copy->Load(document.Get(), document.Get()));
  EXPECT_EQ(table->Set().Records(), copy->Set().Records());
  EXPECT_EQ(E_FAIL, copy->Load(document.Get(), element.Get()));  // no table under it

  auto stream = CreateMemoryStream();
  ASSERT_EQ(S_OK, table->Save(stream.Get(), FALSE));
  auto bytes = MemoryStreamBytes(stream.Get());
  EXPECT_EQ(4 + 2 * 16u, bytes.size());
  bytes.resize(bytes.size() - 1);
  EXPECT_EQ(E_FAIL, LoadObjectFromStream(static_cast<IPersistStream*>(copy.Get()), CreateReadOnlyStream(bytes.data(), bytes.size()).Get()));
  EXPECT_EQ(1u, copy->Set().Count());  // what was read stays
  ZemoWirelessNodeAssociation r{};
  EXPECT_EQ(E_INVALIDARG, copy->GetAssociation(1, &r));

  testing_support::ScratchDir dir;
  EXPECT_EQ(S_OK, table->Save(dir.WideFile("ties.txt").c_str(), FALSE));
  EXPECT_TRUE(testing_support::ReadFile(dir.File("ties.txt")).empty());
  EXPECT_EQ(E_INVALIDARG, table->Save(dir.WideFile("ties.csv").c_str(), FALSE));
}

// Both generations of node statistics in one context, beside the second
// generation's channel statistics.
class WirelessNodeStatsTest : public WirelessFixture {
 protected:
  void SetUp() override {
    WirelessFixture::SetUp();
    context = StatsContext::Create();
    ASSERT_EQ(S_OK, context->AddStats(CLSID_WirelessChannelStats2, second.Query<IZemoStats>().Get()));
    nodes = Create<IWirelessNodeStats>(CLSID_WirelessNodeStats);
    nodes2 = Create<IWirelessNodeStats2>(CLSID_WirelessNodeStats2);
    ASSERT_EQ(S_OK, context->AddStats(CLSID_WirelessNodeStats, nodes.Query<IZemoStats>().Get()));
    ASSERT_EQ(S_OK, context->AddStats(CLSID_WirelessNodeStats2, nodes2.Query<IZemoStats>().Get()));
  }

  // An 802.11 frame: header, body (elements of a management frame behind
  // its 12 fixed bytes, whose capability is cap) and checksum.
  IPacket* Frame80211(uint8_t fc0, uint8_t fc1, const Mac& ta, const Mac& ra, const Mac& bssid, uint16_t kind,
                      std::vector<BYTE> elements = {}, ZemoTime time = kWirelessT0, USHORT rate = 22,
                      uint8_t cap = 0x01, std::vector<BYTE> tail = {}) {
    std::vector<BYTE> bytes(24, 0);
    bytes[0] = fc0;
    bytes[1] = fc1;
    const bool management = (fc0 & 0x0C) == 0;
    if (management && fc0 != kProbeReq) {
      bytes.resize(36, 0);
      bytes[34] = cap;
    }
    bytes.insert(bytes.end(), elements.begin(), elements.end());
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    bytes.resize(bytes.size() + 4, 0);  // checksum
    packet.Clear().Time(time).Length(static_cast<ULONG>(bytes.size())).Data(bytes);
    packet.Wireless(kCh6, rate, 60, -60, 10, -95).Class(management ? 1 : 3).FrameKind(kind).Protocol(kind);
    packet.Transmitter(ta).Receiver(ra).Bssid(bssid);
    return packet.Get();
  }
  static std::vector<BYTE> Ssid(std::string_view name) {
    std::vector<BYTE> e{0, static_cast<BYTE>(name.size())};
    e.insert(e.end(), name.begin(), name.end());
    return e;
  }
  void Feed(IPacket* p) { ASSERT_EQ(S_OK, context->ProcessPacket(p)); }

  ULONG Entity(const Mac& mac) {
    ComPtr<IEntityTable> table;
    EXPECT_EQ(S_OK, nodes2->GetEntityTable(table.ReleaseAndGetAddressOf()));
    const MediaSpec spec = specs::Ethernet(mac.data());
    ULONG id = kAny;
    EXPECT_EQ(S_OK, table->FindOrAdd(&spec, 0, &id));
    return id;
  }
  ULONG Index2(const Mac& mac) {
    ULONG index = kAny;
    EXPECT_EQ(S_OK, nodes2->GetNodeIndex(Entity(mac), &index, nullptr));
    return index;
  }
  ZemoWirelessNodeStat2 Node2(const Mac& mac) {
    ZemoWirelessNodeStat2 s{};
    EXPECT_EQ(S_OK, nodes2->GetNodeStat(Index2(mac), &s));
    return s;
  }
  ZemoWirelessNodeStatEntry Node1(const Mac& mac) {
    ULONG index = kAny;
    BOOL found = FALSE;
    EXPECT_EQ(S_OK, nodes->GetNodeIndex(Entity(mac), &index, &found));
    ZemoWirelessNodeStatEntry s{};
    EXPECT_EQ(S_OK, nodes->GetNodeStat(index, &s));
    return s;
  }
  template <class I>
  std::vector<ZemoWirelessNodeDataRateStat> Row(I* stats, ULONG index) {
    ZemoWirelessNodeDataRateStat* rows = nullptr;
    ULONG count = 0;
    EXPECT_EQ(S_OK, stats->GetNodeDataRates(index, &rows, &count));
    std::vector<ZemoWirelessNodeDataRateStat> out(rows, rows + count);
    CoTaskMemFree(rows);
    return out;
  }
  std::vector<uint32_t> RowRates(std::vector<ZemoWirelessNodeDataRateStat> row) {
    std::vector<uint32_t> out;
    for (const auto& r : row) out.push_back(r.Rate);
    return out;
  }

  ComPtr<StatsContext> context;
  ComPtr<IWirelessNodeStats> nodes;
  ComPtr<IWirelessNodeStats2> nodes2;
};

TEST_F(WirelessNodeStatsTest, FramesTellWhatANodeIsItsNetworkAndItsChannel) {
  // Packets of no 802.11 class change nothing; an errored one counts in the totals only.
  Feed(Frame80211(0x08, 0x01, kSta, kAP, kAP, 0x08));
  packet.Class(0);
  Feed(packet.Get());
  packet.Class(4);
  Feed(packet.Get());
  const auto& engine = static_cast<WirelessNodeStats2*>(nodes2.Get())->Engine();
  EXPECT_EQ(1u, engine.TotalPackets());
  const ULONG before = engine.NodeCount();
  packet.Class(1).Error();
  Feed(packet.Get());
  EXPECT_EQ(2u, engine.TotalPackets());
  EXPECT_EQ(before, engine.NodeCount());

  // A beacon names its network and channel; elements behind two taken ones are not read.
  std::vector<BYTE> elements = Ssid("lab");
  elements.insert(elements.end(), {3, 1, 11, 3, 1, 1});
  Feed(Frame80211(0x80, 0, kAP, kAll, kAP, kFrameBeacon, elements, kWirelessT0, 2, 0x11));
  ZemoWirelessNodeStat2 ap = Node2(kAP);
  EXPECT_EQ(kNodeTypeAP, +ap.Type);
  EXPECT_EQ(std::string("lab"), std::string(reinterpret_cast<const char*>(ap.ESSID), ap.ESSIDLength));
  EXPECT_EQ(11, +ap.APChannel.Channel);
  EXPECT_EQ(1, +ap.BeaconsContainESSID);
  EXPECT_EQ(1, +ap.PrivacyFlag);
  EXPECT_EQ(kNodeTypeAP, +Node1(kAP).Stat.Type);
  EXPECT_EQ(11, +Node1(kAP).Stat.APChannel.Channel);
  // The channel statistics learn of the access point on its channel.
  ULONG onChannel = 0;
  EXPECT_EQ(S_OK, second->GetChannelNodeCount(ap.APChannel, &onChannel));
  EXPECT_EQ(1u, onChannel);
  // The station follows its access point's channel.
  Feed(Frame80211(0x08, 0x01, kSta, kAP, kAP, 0x08));
  EXPECT_EQ(11, +Node2(kSta).APChannel.Channel);
  EXPECT_EQ(kNodeTypeSTA, +Node2(kSta).Type);

  // A blank name, a hidden network's 32 zero bytes, and a 40-byte name cut to 32.
  Feed(Frame80211(0x80, 0, kAP, kAll, kAP, kFrameBeacon, Ssid(" ")));
  EXPECT_EQ(0, +Node2(kAP).BeaconsContainESSID);
  EXPECT_EQ(3, +Node2(kAP).ESSIDLength);
  Feed(Frame80211(0x80, 0, kAP, kAll, kAP, kFrameBeacon, Ssid(std::string(32, '\0'))));
  EXPECT_EQ(3, +Node2(kAP).ESSIDLength);
  Feed(Frame80211(0x80, 0, kAP, kAll, kAP, kFrameBeacon, Ssid(std::string(40, 'x'))));
  EXPECT_EQ(32, +Node2(kAP).ESSIDLength);
  // A DS parameter set outside the band of the channel heard leaves the channel.
  Feed(Frame80211(0x80, 0, kAP, kAll, kAP, kFrameBeacon, {3, 1, 36}));
  EXPECT_EQ(11, +Node2(kAP).APChannel.Channel);

  // An ad hoc beacon: the sender is an ad hoc station, its BSSID's node a group.
  Feed(Frame80211(0x80, 0, kSta2, kAll, kAP2, kFrameBeacon, Ssid("mesh"), kWirelessT0, 22, 0x02));
  EXPECT_EQ(kNodeTypeAdHoc, +Node2(kSta2).Type);
  EXPECT_EQ(kNodeTypeGroup, +Node2(kAP2).Type);

  // A group transmitter makes no record; the receiver still counts.
  const ULONG count = engine.NodeCount();
  Feed(Frame80211(0x08, 0x02, kGroup, kSta, kAP, 0x08));
  EXPECT_EQ(count, engine.NodeCount());
  EXPECT_EQ(1u, +Node2(kSta).PacketsReceived);

  // A broadcast BSSID gives a new sender the unknown BSSID.
  const Mac lone{0x00, 0x01, 0x02, 0x03, 0x04, 0x05};
  Feed(Frame80211(0x40, 0, lone, kAll, kAll, kFrameProbeRequest, Ssid("lab")));
  ULONG unknown = 0;
  EXPECT_EQ(S_OK, nodes2->GetUnknownBSSIDIndex(&unknown));
  EXPECT_EQ(unknown, +Node2(lone).RecentBSSIDStatIndex);

  // Totals: counted once, then kept until the associations change.
  ZemoWirelessNodeTotals t1{}, t2{};
  ASSERT_EQ(S_OK, nodes2->GetTotals(&t1));
  EXPECT_EQ(1u, t1.AccessPoints);
  EXPECT_EQ(3u, t1.Stations);  // two stations, one ad hoc station
  EXPECT_EQ(1u, t1.AdHocNetworks);
  const uint32_t changes = engine.Associations().ChangeCount();
  ASSERT_EQ(S_OK, nodes2->GetTotals(&t2));
  EXPECT_EQ(0, std::memcmp(&t1, &t2, sizeof t1));
  EXPECT_EQ(changes, engine.Associations().ChangeCount());
}

TEST_F(WirelessNodeStatsTest, RatesSecurityAndRoaming) {
  for (USHORT rate : {22, 4, 108, 22}) Feed(Frame80211(0x08, 0x01, kSta, kAP, kAP, 0x08, {}, kWirelessT0, rate));
  EXPECT_EQ((std::vector<uint32_t>{4, 22, 108}), RowRates(Row(nodes2.Get(), Index2(kSta))));
  ULONG index = 0;
  BOOL found = FALSE;
  ASSERT_EQ(S_OK, nodes->GetNodeIndex(Entity(kSta), &index, &found));
  EXPECT_EQ((std::vector<uint32_t>{108, 22, 4}), RowRates(Row(nodes.Get(), index)));
  // A node that never sent has no row.
  ASSERT_EQ(S_OK, nodes->GetNodeIndex(Entity(kAP), &index, &found));
  ZemoWirelessNodeDataRateStat* rows = reinterpret_cast<ZemoWirelessNodeDataRateStat*>(1);
  ULONG count = 9;
  EXPECT_EQ(S_OK, nodes->GetNodeDataRates(index, &rows, &count));
  EXPECT_EQ(nullptr, rows);
  EXPECT_EQ(0u, count);

  // The second generation's security only rises.
  Feed(Frame80211(0x08, 0x41, kSta, kAP, kAP, 0x08));
  packet.Security(kEncryptionTkip, 0, kAuthenticationLeap);
  Feed(packet.Get());
  packet.Security(kEncryptionWep, 0, 0);
  Feed(packet.Get());
  EXPECT_EQ(3, +Node2(kSta).EncryptionType);
  EXPECT_EQ(2, +Node2(kSta).AuthenticationType);

  // The first generation reads TKIP, WEP and LEAP from the packet's fields.
  struct Case {
    uint16_t proto;
    std::vector<BYTE> field;
    uint8_t encryption, key, authentication;
  };
  const Case cases[] = {{0xF0, {0, 0, 0, 0x60}, 3, 1, 0}, {0xF0, {0, 0, 0, 0x40}, 1, 2, 0},
                        {0x3728, {2, 0, 0, 0, 17}, 1, 2, 2}};
  for (const Case& c : cases) {
    Feed(Frame80211(0x08, 0x01, kSta2, kAP, kAP, c.proto));
    if (c.proto == 0xF0)
      packet.Target().AddField(c.proto, c.field.data(), static_cast<USHORT>(c.field.size()));
    else
      packet.Target().AddHeaderField(c.proto, c.field.data(), static_cast<USHORT>(c.field.size()));
    Feed(packet.Get());
    const ZemoWirelessNodeStat s = Node1(kSta2).Stat;
    EXPECT_EQ(c.encryption, +s.EncryptionType) << c.proto;
    EXPECT_EQ(c.key, +s.WEPKey) << c.proto;
    EXPECT_EQ(c.authentication, +s.AuthenticationType) << c.proto;
  }

  // A station sends To DS data to one BSSID, then two seconds later to another.
  const Mac roamer{0x00, 0x0F, 0x0F, 0x0F, 0x0F, 0x0F};
  Feed(Frame80211(0x08, 0x01, roamer, kAP, kAP, 0x08, {}, kWirelessT0));
  Feed(Frame80211(kAssocResponse, 0, roamer, kAP2, kAP2, 0x08, {}, kWirelessT0 + kWirelessSecond, 22, 0x01,
                  {}));  // status 0 stands at bytes 26 and 27: a success, but sent by the station: not counted
  EXPECT_EQ(0u, +Node2(roamer).RoamCount);
  Feed(Frame80211(0x08, 0x01, roamer, kAP2, kAP2, 0x08, {}, kWirelessT0 + 2 * kWirelessSecond));
  EXPECT_EQ(1u, +Node2(roamer).RoamCount);
  EXPECT_EQ(2 * kWirelessSecond, +Node2(roamer).RoamTime);
  EXPECT_EQ(1u, +Node2(kAP2).RoamCount);
  EXPECT_EQ(2 * kWirelessSecond, +Node2(kAP2).RoamTime);
}

TEST_F(WirelessNodeStatsTest, FirstGenerationReadingsResetAndForms) {
  ComPtr<IProcessPacket> first1 = nodes.Query<IProcessPacket>();
  EXPECT_EQ(E_POINTER, first1->ProcessPacket(nullptr));
  packet.Clear().Time(kWirelessT0).Length(60).Data(std::vector<BYTE>(60, 0));
  EXPECT_EQ(S_FALSE, first1->ProcessPacket(packet.Get()));

  // A first packet with noise at 30 percent; then a signal without a dBm reading.
  Feed(Frame80211(0x08, 0x01, kSta, kAP, kAP, 0x08));
  packet.Wireless(kCh6, 22, 70, -60, 30, -95);
  Feed(packet.Get());
  packet.Wireless(kCh6, 22, 70, -127, 30, -95);
  Feed(packet.Get());
  const ZemoWirelessNodeStat s = Node1(kSta).Stat;
  EXPECT_EQ(10, +s.NoiseMin);  // the frame's own first reading was 10 percent
  EXPECT_EQ(-60, +s.SignaldBmMin);
  EXPECT_EQ(-60, +s.SignaldBmMax);
  EXPECT_EQ(-127, +s.SignaldBmCurrent);
  EXPECT_EQ(10, +Node2(kSta).Noise.Min);

  // Unknown entities and indexes.
  ULONG index = 0, count = 0;
  BOOL found = TRUE;
  EXPECT_EQ(S_OK, nodes->GetNodeIndex(0x7FFFFFF0, &index, &found));
  EXPECT_EQ(kAny, index);
  EXPECT_FALSE(found);
  EXPECT_EQ(S_OK, nodes->GetNodeCount(&count));
  ZemoWirelessNodeStatEntry e{};
  ZemoWirelessNodeStat2 e2{};
  EXPECT_EQ(E_INVALIDARG, nodes->GetNodeStat(count, &e));
  EXPECT_EQ(S_OK, nodes2->GetNodeCount(&count));
  EXPECT_EQ(E_FAIL, nodes2->GetNodeStat(count, &e2));
  EXPECT_EQ(E_FAIL, nodes2.Query<IWirelessNodeStats>()->GetNodeStat(count, &e));

  // XML with a cookie past every record: no records, but rates, names and rows.
  Feed(Frame80211(0x80, 0, kAP, kAll, kAP, kFrameBeacon, Ssid("lab")));
  auto document = CreateXmlDocument();
  ZemoTime since = kWirelessT0 + kWirelessSecond;
  ASSERT_EQ(S_OK, nodes.Query<IPersistXmlDeltas>()->SaveDeltas(document.Get(), document.Get(), &since));
  auto top = SelectXmlElement(document.Get(), u"WirelessNodeStats");
  ASSERT_TRUE(top);
  EXPECT_FALSE(SelectXmlElement(top.Get(), u"WirelessNodeStatTable/WirelessNodeStat"));
  EXPECT_TRUE(SelectXmlElement(top.Get(), u"WirelessDataRateInfo/DataRates/Rate"));
  EXPECT_TRUE(SelectXmlElement(top.Get(), u"WirelessNodeESSIDTable/WirelessNodeESSID"));
  EXPECT_TRUE(SelectXmlElement(top.Get(), u"WirelessNodeStatDataRates/DataRateNode"));
  // A full save, loaded into a fresh statistic of the same context, saves alike;
  // the receive-only node has no signal figures.
  auto full = CreateXmlDocument();
  ASSERT_EQ(S_OK, nodes.Query<IPersistXml>()->Save(full.Get(), full.Get(), FALSE));
  bool receiverOnly = false;
  ForEachChildElement(SelectXmlElement(full.Get(), u"WirelessNodeStats/WirelessNodeStatTable").Get(),
                      [&](IXMLDOMElement* r) {
                        if (!SelectXmlElement(r, u"FirstTimeSent") && SelectXmlElement(r, u"FirstTimeReceived")) {
                          receiverOnly = true;
                          EXPECT_FALSE(SelectXmlElement(r, u"SignalMin"));
                        }
                      });
  EXPECT_TRUE(receiverOnly);
  auto copy = Create<IWirelessNodeStats>(CLSID_WirelessNodeStats);
  ASSERT_EQ(S_OK, copy.Query<IZemoStats>()->SetContext(context.Get()));
  ASSERT_EQ(S_OK, copy.Query<IPersistXml>()->Load(full.Get(), full.Get()));
  auto again = CreateXmlDocument();
  ASSERT_EQ(S_OK, copy.Query<IPersistXml>()->Save(again.Get(), again.Get(), FALSE));
  CBstr a, b;
  full->get_xml(a.Out());
  again->get_xml(b.Out());
  EXPECT_EQ(a.View(), b.View());

  // The text export: an ESSID line has its type and no time.
  testing_support::ScratchDir dir;
  ASSERT_EQ(S_OK, nodes.Query<IPersistFile>()->Save(dir.WideFile("nodes.txt").c_str(), FALSE));
  const std::string text = testing_support::ReadFile(dir.File("nodes.txt"));
  EXPECT_NE(std::string::npos, text.find("\n\tlab\tESSID\t0\t0\t0\t"));
  EXPECT_NE(std::string::npos, text.find("\t65535\t0\t0\t65535\t0\t0\t\t\t\t\t\n"));
  // A dBm figure without a reading shows as 0.
  EXPECT_NE(std::string::npos, text.find("00:AA:BB:CC:DD:01\t\tSTA\t6\t2437\t4\t\t\t\t60\t70\t70\t10\t30\t30\t-60\t0\t-60\t"));
  EXPECT_EQ(E_INVALIDARG, nodes.Query<IPersistFile>()->Save(dir.WideFile("nodes.hash").c_str(), FALSE));

  // Reset keeps the rates, zeroes their change count, and empties the
  // association table behind a pointer handed out before.
  ComPtr<IWirelessNodeAssociationTable> ties;
  ASSERT_EQ(S_OK, nodes->GetAssociationTable(ties.ReleaseAndGetAddressOf()));
  ULONG n = 0;
  EXPECT_EQ(S_OK, ties->GetCount(&n));
  EXPECT_LT(0u, n);
  ASSERT_EQ(S_OK, nodes.Query<IZemoStats>()->Reset());
  EXPECT_EQ(S_OK, ties->GetCount(&n));
  EXPECT_EQ(0u, n);
  EXPECT_EQ(S_OK, nodes->GetRateChangeCount(&n));
  EXPECT_EQ(0u, n);
  ULONG* rates = nullptr;
  EXPECT_EQ(S_OK, nodes->GetDataRates(&rates, &n));
  EXPECT_EQ(1u, n);
  CoTaskMemFree(rates);
}

TEST_F(WirelessNodeStatsTest, SecondGenerationStreamKeepsIndexesAndTrust) {
  Feed(Frame80211(0x80, 0, kAP, kAll, kAP, kFrameBeacon, Ssid("lab")));
  Feed(Frame80211(0x08, 0x01, kSta, kAP, kAP, 0x08));
  const auto bytes = StreamBytes(nodes2.Get());
  auto fresh = Create<IWirelessNodeStats2>(CLSID_WirelessNodeStats2);
  auto context2 = StatsContext::Create();
  ASSERT_EQ(S_OK, fresh.Query<IZemoStats>()->SetContext(context.Get()));
  ASSERT_EQ(S_OK, LoadStreamBytes(fresh.Get(), bytes));
  EXPECT_EQ(bytes, StreamBytes(fresh.Get()));
  ULONG count = 0, index = 0;
  ASSERT_EQ(S_OK, fresh->GetNodeCount(&count));
  BOOL found = FALSE;
  ASSERT_EQ(S_OK, fresh->GetNodeIndex(Entity(kSta), &index, &found));
  EXPECT_TRUE(found);
  EXPECT_EQ(Index2(kSta), index);
  ASSERT_EQ(S_OK, fresh.Query<IProcessPacket>()->ProcessPacket(Frame80211(0x08, 0x01, kSta, kAP, kAP, 0x08)));
  ULONG after = 0;
  ASSERT_EQ(S_OK, fresh->GetNodeCount(&after));
  EXPECT_EQ(count, after);
  // A cut stream and a claim of too many records fail.
  auto bad = bytes;
  bad.resize(bad.size() - 5);
  EXPECT_NE(S_OK, LoadStreamBytes(fresh.Get(), bad));
  bad = bytes;
  const uint32_t many = 1000001;
  std::memcpy(bad.data() + 12, &many, 4);  // behind the block length and the first tag
  EXPECT_EQ(E_UNEXPECTED, LoadStreamBytes(fresh.Get(), bad));

  // The address book's trust shows on reading.
  auto site = Site::Create();
  auto book = AddressBook::Create();
  site->SetService(kServiceNameTable, static_cast<INameTable*>(book.Get()));
  ASSERT_EQ(S_OK, book->AddName(specs::Ethernet(kSta.data()), u"desk", 0, 2));
  ASSERT_EQ(S_OK, book->AddName(specs::Ethernet(kAP.data()), u"hall", 0x60, 2));
  ASSERT_EQ(S_OK, context.Query<IObjectWithSite>()->SetSite(static_cast<IServiceProvider*>(site.Get())));
  ASSERT_EQ(S_OK, nodes2.Query<IZemoStats>()->SetContext(context.Get()));
  EXPECT_EQ(2, +Node2(kSta).Trust);
  EXPECT_EQ(0, +Node2(kAP).Trust);  // an entry of a kind that carries no trust
  ZemoWirelessNodeTotals totals{};
  ASSERT_EQ(S_OK, nodes2->GetTotals(&totals));
  EXPECT_EQ(1u, totals.TrustedStations);
  EXPECT_EQ(1u, totals.UnknownAccessPoints);
}

}  // namespace
}  // namespace zemo::testing
