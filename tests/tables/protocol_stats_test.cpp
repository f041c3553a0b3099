#include "tables/protocol_stats.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "platform/class_store.h"
#include "tests/tables/protocol_fixture.h"

namespace {

using namespace zemo::testing;
using zemo::CBstr;
using zemo::ComPtr;

using zemo::PacketBuilder;
using zemo::ProtocolStats;
using zemo::ProtocolStatsByID;
namespace proto = zemo::proto;
namespace specs = zemo::specs;

class ProtocolTables : public ::testing::Test {
 protected:
  void SetUp() override {
    context = zemo::StatsContext::Create();
    one = ProtocolStats::Create();
    layered = ProtocolStatsByID::Create();
    ASSERT_EQ(S_OK, context->AddStats(CLSID_ProtocolStats, one.Get()));
    ASSERT_EQ(S_OK, context->AddStats(CLSID_ProtocolStatsByID, layered.Get()));
    ASSERT_EQ(S_OK, context->GetEntityTable(entities.ReleaseAndGetAddressOf()));
  }

  // A packet whose layers are ids, outermost first; the innermost is its protocol.
  static PacketBuilder Stack(std::initializer_list<uint16_t> ids, USHORT length = 100, ZemoTime time = kT0) {
    PacketBuilder p;
    p.Time(time).Length(length).Layers(ids);
    return p;
  }

  ULONG EntityOf(const MediaSpec& spec) {
    ULONG id = kNoEntityId;
    EXPECT_EQ(S_OK, entities->FindOrAdd(&spec, 0, &id));
    return id;
  }
  ULONG EntityOf(uint32_t protocol) { return EntityOf(specs::Protocol(protocol)); }

  static std::vector<ZemoProtocolStatEntry> Records(IProtocolStats* s) {
    ULONG n = 0;
    EXPECT_EQ(S_OK, s->GetProtocolCount(&n));
    std::vector<ZemoProtocolStatEntry> out(n);
    for (ULONG i = 0; i < n; ++i) EXPECT_EQ(S_OK, s->GetProtocolEntry(i, &out[i]));
    return out;
  }
  // The record of a protocol; fails the test when there is none.
  ZemoProtocolStat Stat(IProtocolStats* s, uint32_t protocol) {
    ULONG index = 0;
    EXPECT_EQ(S_OK, s->GetProtocolIndex(EntityOf(protocol), &index));
    ZemoProtocolStatEntry e{};
    EXPECT_EQ(S_OK, s->GetProtocolEntry(index, &e));
    return e.Stat;
  }
  // The protocol identifiers of the records, in record order.
  std::vector<uint32_t> Ids(IProtocolStats* s) {
    std::vector<uint32_t> ids;
    for (const auto& e : Records(s)) {
      MediaSpec spec{};
      EXPECT_EQ(S_OK, entities->GetEntity(e.EntityIndex, &spec, nullptr));
      ids.push_back(specs::ProtocolId(spec));
    }
    return ids;
  }

  ComPtr<zemo::StatsContext> context;
  ComPtr<ProtocolStats> one;
  ComPtr<ProtocolStatsByID> layered;
  ComPtr<IEntityTable> entities;
};

// ---- the protocol tree -------------------------------------------------------

TEST_F(ProtocolTables, AParentStaysAtZeroInOneTableAndCountsInTheOther) {
  ASSERT_EQ(S_OK, context->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kTcp}, 120).Get()));

  // TCP hangs under the IP family, IP under Ethernet II: ancestors first.
  EXPECT_EQ((std::vector<uint32_t>{proto::kEthernetII, proto::kIp, proto::kTcp}), Ids(one.Get()));
  EXPECT_EQ(0u, Stat(one.Get(), proto::kEthernetII).Packets);
  EXPECT_EQ(0u, Stat(one.Get(), proto::kIp).Packets);
  EXPECT_EQ(0u, Stat(one.Get(), proto::kIp).LastTime);
  EXPECT_EQ(1u, Stat(one.Get(), proto::kTcp).Packets);
  EXPECT_EQ(120u, Stat(one.Get(), proto::kTcp).Bytes);

  // Every reported layer counts; the IP family, never a layer, stays at zero.
  EXPECT_EQ((std::vector<uint32_t>{proto::kEthernetII, proto::kIp, proto::kIpv4, proto::kTcp}), Ids(layered.Get()));
  for (uint32_t id : {proto::kEthernetII, proto::kIpv4, proto::kTcp}) {
    EXPECT_EQ(1u, Stat(layered.Get(), id).Packets) << id;
    EXPECT_EQ(120u, Stat(layered.Get(), id).Bytes) << id;
    EXPECT_EQ(kT0, Stat(layered.Get(), id).FirstTime) << id;
  }
  EXPECT_EQ(0u, Stat(layered.Get(), proto::kIp).Packets);
}

TEST_F(ProtocolTables, AnAncestorWithARecordIsNotAddedAgain) {
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kTcp}).Get()));
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kUdp}, 60, kT0 + kSecond).Get()));
  EXPECT_EQ((std::vector<uint32_t>{proto::kEthernetII, proto::kIp, proto::kTcp, proto::kUdp}), Ids(one.Get()));
  EXPECT_EQ(1u, Stat(one.Get(), proto::kUdp).Packets);
  EXPECT_EQ(0u, Stat(one.Get(), proto::kIp).Packets);
}

TEST_F(ProtocolTables, AProtocolOutsideTheTreeCountsOnceWithoutParentsOrLayers) {
  const MediaSpec ethertype = specs::Make(1, {0x88, 0xB5});
  PacketBuilder p = Stack({proto::kEthernetII, proto::kIpv4});  // layers present, but not asked for
  p.Address(zemo::PacketAddress::kProtocol, ethertype);
  ASSERT_EQ(S_OK, context->ProcessPacket(p.Get()));
  for (IProtocolStats* s : {static_cast<IProtocolStats*>(one.Get()), static_cast<IProtocolStats*>(layered.Get())}) {
    auto records = Records(s);
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(EntityOf(ethertype), records[0].EntityIndex);
    EXPECT_EQ(1u, records[0].Stat.Packets);
  }
}

TEST_F(ProtocolTables, AParentWithoutANumberIsSkippedInOneTableAndKeptInTheOther) {
  // 0x300 sits under a grouping (low bits 0xFFFF) that sits under 0x200.
  auto tree = FakeProtoSpecs::Create();
  tree->nodes = {{0x100, {1, 0}}, {0x200, {2, 0x100}}, {0x1FFFF, {1, 0x200}}, {0x300, {4, 0x1FFFF}}};
  one->SetProtoSpecsForTesting(tree.Get());
  layered->SetProtoSpecsForTesting(tree.Get());
  PacketBuilder p;
  p.Time(kT0).Length(80).Address(zemo::PacketAddress::kProtocol, specs::Protocol(0x300));
  p.Layer({0x300, 0, 0, 0});
  ASSERT_EQ(S_OK, context->ProcessPacket(p.Get()));

  EXPECT_EQ((std::vector<uint32_t>{0x100, 0x200, 0x300}), Ids(one.Get()));
  // The grouping's answer is used as it stands: it is a root here.
  EXPECT_EQ((std::vector<uint32_t>{0x1FFFF, 0x300}), Ids(layered.Get()));
}

TEST_F(ProtocolTables, AParentLoopEndsTheWalkInsteadOfRecursingForever) {
  auto tree = FakeProtoSpecs::Create();
  tree->nodes = {{0x500, {2, 0x600}}, {0x600, {2, 0x500}}, {0x700, {2, 0x1FFFF}}, {0x1FFFF, {2, 0x2FFFF}},
                 {0x2FFFF, {2, 0x1FFFF}}};
  one->SetProtoSpecsForTesting(tree.Get());
  PacketBuilder p;
  p.Time(kT0).Length(80).Address(zemo::PacketAddress::kProtocol, specs::Protocol(0x500));
  EXPECT_EQ(S_OK, one->ProcessPacket(p.Get()));
  EXPECT_EQ(1u, Stat(one.Get(), 0x500).Packets);
  p.Address(zemo::PacketAddress::kProtocol, specs::Protocol(0x700));  // groupings that answer each other
  EXPECT_EQ(S_OK, one->ProcessPacket(p.Get()));
  EXPECT_EQ(1u, Stat(one.Get(), 0x700).Packets);
}

TEST_F(ProtocolTables, AnUnknownProtocolFailsItsAddWithoutFailingOneTable) {
  // The host's tree does not know 0x7777: GetSpecLevel fails, the add fails.
  PacketBuilder p;
  p.Time(kT0).Length(80).Address(zemo::PacketAddress::kProtocol, specs::Protocol(0x7777));
  p.Layer({0x7777, 0, 0, 0});
  EXPECT_EQ(S_OK, one->ProcessPacket(p.Get()));
  EXPECT_TRUE(Records(one.Get()).empty());
  EXPECT_TRUE(FAILED(layered->ProcessPacket(p.Get())));
  EXPECT_TRUE(Records(layered.Get()).empty());
}

// ---- layers ------------------------------------------------------------------

TEST_F(ProtocolTables, LayersWithoutAnIdentifierCountNowhere) {
  PacketBuilder p;
  p.Time(kT0).Length(64).Address(zemo::PacketAddress::kProtocol, specs::Protocol(proto::kTcp));
  p.Layer({0xFFFF, 0, 0, 0}).Layer({0xFFFF, 14, 14, 50});
  EXPECT_EQ(S_OK, layered->ProcessPacket(p.Get()));
  EXPECT_TRUE(Records(layered.Get()).empty());
  // 0xFFFF between real layers is passed over; a repeated layer counts twice.
  p.Clear();
  p.Time(kT0).Length(64).Address(zemo::PacketAddress::kProtocol, specs::Protocol(proto::kTcp));
  p.Layer({proto::kVlan, 0, 0, 0}).Layer({0xFFFF, 0, 0, 0}).Layer({proto::kVlan, 0, 0, 0});
  EXPECT_EQ(S_OK, layered->ProcessPacket(p.Get()));
  EXPECT_EQ(2u, Stat(layered.Get(), proto::kVlan).Packets);
  // The packet's own protocol is only the frame: TCP gets no record.
  EXPECT_EQ((std::vector<uint32_t>{proto::kEthernetII, proto::kVlan}), Ids(layered.Get()));
  ULONG index = 0;
  EXPECT_EQ(S_FALSE, layered->GetProtocolIndex(0x12345, &index));
  EXPECT_EQ(zemo::kNoRecord, index);
}

TEST_F(ProtocolTables, ALayerIdentifierKeepsTheProtocolSpecsFrame) {
  // The layer identifiers go into the packet's own protocol spec: a mask that
  // differs from the plain spec makes a different entity, not the plain one.
  MediaSpec framed = specs::Protocol(proto::kTcp);
  framed.fMask = 0x80000000u;
  PacketBuilder p;
  p.Time(kT0).Length(64).Address(zemo::PacketAddress::kProtocol, framed);
  p.Layer({proto::kUdp, 0, 0, 0});
  ASSERT_EQ(S_OK, layered->ProcessPacket(p.Get()));
  MediaSpec expected = framed;
  expected.fData[0] = static_cast<uint8_t>(proto::kUdp);
  auto records = Records(layered.Get());
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(EntityOf(expected), records.back().EntityIndex);
}

TEST_F(ProtocolTables, AProtocolTheEntityTableCannotStoreFailsThePacket) {
  MediaSpec odd{};
  odd.fClass = 1;
  odd.fType = 5;  // no sub-table holds this type
  odd.fMask = 0x80000000u;
  PacketBuilder p;
  p.Time(kT0).Length(64).Address(zemo::PacketAddress::kProtocol, odd);
  EXPECT_TRUE(FAILED(one->ProcessPacket(p.Get())));
  EXPECT_TRUE(FAILED(layered->ProcessPacket(p.Get())));
  EXPECT_TRUE(Records(one.Get()).empty());
  EXPECT_TRUE(Records(layered.Get()).empty());
}

TEST_F(ProtocolTables, APacketWithoutAProtocolSucceedsInOneTableAndFailsInTheOther) {
  PacketBuilder p;
  p.Time(kT0).Length(64);
  EXPECT_EQ(S_OK, one->ProcessPacket(p.Get()));
  EXPECT_TRUE(FAILED(layered->ProcessPacket(p.Get())));
  EXPECT_TRUE(Records(one.Get()).empty());
  EXPECT_TRUE(Records(layered.Get()).empty());
}

TEST_F(ProtocolTables, AWirelessErrorIsSkippedAndNullPacketsAreRejected) {
  PacketBuilder p = Stack({proto::kTcp});
  p.Wireless({}, 2).Error();
  EXPECT_EQ(S_FALSE, one->ProcessPacket(p.Get()));
  EXPECT_EQ(S_FALSE, layered->ProcessPacket(p.Get()));
  EXPECT_EQ(E_INVALIDARG, one->ProcessPacket(nullptr));
  EXPECT_EQ(E_INVALIDARG, layered->ProcessPacket(nullptr));
  // Without a context there is no entity table.
  auto lone = ProtocolStatsByID::Create();
  EXPECT_EQ(E_FAIL, lone->ProcessPacket(Stack({proto::kTcp}).Get()));
}

// ---- the one-entry cache -----------------------------------------------------

TEST_F(ProtocolTables, TheCacheNeverOutlivesAReset) {
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kTcp}).Get()));
  ASSERT_EQ(S_OK, static_cast<IResetProcessing*>(context.Get())->Reset());
  // After the reset the first identifier goes to another protocol: a stale
  // cache would count TCP under UDP's identifier.
  ULONG udp = 0;
  const MediaSpec udpSpec = specs::Protocol(proto::kUdp);
  ASSERT_EQ(S_OK, entities->FindOrAdd(&udpSpec, 1, &udp));
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kTcp}).Get()));
  ULONG index = 0;
  EXPECT_EQ(S_OK, one->GetProtocolIndex(EntityOf(proto::kTcp), &index));
  EXPECT_EQ(S_FALSE, one->GetProtocolIndex(udp, &index));
}

TEST_F(ProtocolTables, RunsOfOneProtocolCountAtOneRecord) {
  for (int i = 0; i < 5; ++i) ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kTcp}, 10, kT0 + i).Get()));
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kUdp}, 10).Get()));
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kTcp}, 10, kT0 + 9).Get()));
  ZemoProtocolStat tcp = Stat(one.Get(), proto::kTcp);
  EXPECT_EQ(6u, tcp.Packets);
  EXPECT_EQ(kT0, tcp.FirstTime);
  EXPECT_EQ(kT0 + 9, tcp.LastTime);
}

// ---- limit and reset ---------------------------------------------------------

TEST_F(ProtocolTables, AReachedLimitPausesBothTables) {
  auto a = LimitTo(one.Get(), 3, false);
  auto b = LimitTo(layered.Get(), 3, false);
  ASSERT_EQ(S_OK, context->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kTcp}).Get()));
  EXPECT_EQ(S_FALSE, one->ProcessPacket(Stack({proto::kUdp}).Get()));
  EXPECT_EQ(S_FALSE, layered->ProcessPacket(Stack({proto::kUdp}).Get()));
  EXPECT_TRUE(one->IsPaused());
  EXPECT_TRUE(layered->IsPaused());
  // A paused ProtocolStats answers S_FALSE before it looks at the packet;
  // ProtocolStatsByID reports the null packet first.
  EXPECT_EQ(S_FALSE, one->ProcessPacket(nullptr));
  EXPECT_EQ(E_INVALIDARG, layered->ProcessPacket(nullptr));
  EXPECT_EQ(3u, Records(one.Get()).size());
}

TEST_F(ProtocolTables, AResettingLimitEmptiesTheTableAndItsCache) {
  auto a = LimitTo(one.Get(), 3, true);
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kTcp}).Get()));
  ULONG before = 0, after = 0;
  ASSERT_EQ(S_OK, one->GetResetCount(&before));
  // The limit resets the table; the TCP packet that follows is counted
  // afresh, with its ancestors added again.
  EXPECT_EQ(S_OK, one->ProcessPacket(Stack({proto::kTcp}, 10, kT0 + kSecond).Get()));
  ASSERT_EQ(S_OK, one->GetResetCount(&after));
  EXPECT_EQ(before + 1, after);
  EXPECT_FALSE(one->IsPaused());
  EXPECT_EQ((std::vector<uint32_t>{proto::kEthernetII, proto::kIp, proto::kTcp}), Ids(one.Get()));
  EXPECT_EQ(1u, Stat(one.Get(), proto::kTcp).Packets);
  EXPECT_EQ(kT0 + kSecond, Stat(one.Get(), proto::kTcp).FirstTime);
}

// ---- lookups -----------------------------------------------------------------

TEST_F(ProtocolTables, LookupsAnswerMissingAndBadIndexes) {
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kTcp}).Get()));
  ZemoProtocolStatEntry e;
  std::memset(&e, 0xAB, sizeof e);
  EXPECT_EQ(E_FAIL, one->GetProtocolEntry(99, &e));
  EXPECT_EQ(0u, e.EntityIndex);
  EXPECT_EQ(0u, e.Stat.Packets);
  EXPECT_EQ(S_OK, one->GetProtocolEntry(0xEFFFFFFF, &e));
  EXPECT_EQ(EntityOf(proto::kTcp), e.EntityIndex);
  EXPECT_EQ(E_POINTER, one->GetProtocolEntry(0, nullptr));
  EXPECT_EQ(E_POINTER, one->GetProtocolIndex(0, nullptr));
  ComPtr<IEntityTable> table;
  EXPECT_EQ(S_OK, one->GetEntityTable(table.ReleaseAndGetAddressOf()));
  EXPECT_EQ(entities.Get(), table.Get());
}

// ---- the tracker factory -----------------------------------------------------

TEST_F(ProtocolTables, TrackersNeedAProtocolOfTheTree) {
  auto key = [](const std::u16string& attributes) {
    return zemo::CVariant::Unknown(ParseXml(u"<key " + attributes + u"/>").Get());
  };
  ComPtr<IZemoStatsTracker> tracker;
  EXPECT_EQ(E_INVALIDARG, layered->CreateTracker(key(u"class=\"2\" type=\"21\" data=\"0A000001\""),
                                                 tracker.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, layered->CreateTracker(zemo::CVariant(), tracker.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_POINTER, layered->CreateTracker(key(u"class=\"1\" type=\"9\" data=\"62000000\""), nullptr));
  // Only the low 16 bits of the identifier survive, as a layer report has.
  ASSERT_EQ(S_OK, layered->CreateTracker(key(u"class=\"1\" type=\"9\" data=\"62000100\""),
                                         tracker.ReleaseAndGetAddressOf()));
  MediaSpec k{};
  ASSERT_EQ(S_OK, tracker.Query<IProtocolStatsTracker>()->GetKey(&k));
  EXPECT_EQ(uint32_t{proto::kTcp}, specs::ProtocolId(k));
  ComPtr<IZemoStatsContext> bound;
  ASSERT_EQ(S_OK, tracker->GetContext(bound.ReleaseAndGetAddressOf()));
  EXPECT_TRUE(bound);
}

// ---- selection and the result table -----------------------------------------

TEST_F(ProtocolTables, TheResultTable) {
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kTcp}, 77).Get()));
  auto t = zemo::testing_support::ReadTable(static_cast<ISelectableObject*>(one.Get()));
  EXPECT_EQ((std::vector<std::u16string>{u"Protocol", u"Packets", u"Bytes", u"FirstTime", u"LastTime", u"EntityIndex"}),
            t.names);
  ASSERT_EQ(3u, t.rows.size());
  EXPECT_EQ(0u, t.rows[0][1].ullVal);
  EXPECT_EQ(1u, t.rows[2][1].ullVal);
  EXPECT_EQ(77u, t.rows[2][2].ullVal);
  EXPECT_EQ(EntityOf(proto::kTcp), t.rows[2][5].ulVal);
  EXPECT_FALSE(t.Text(2, 0).empty());
}

// ---- persistence -------------------------------------------------------------

TEST_F(ProtocolTables, StreamsRoundTripAndDeltasLeaveQuietAncestorsOut) {
  ASSERT_EQ(S_OK, context->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kTcp}, 60, kT0).Get()));
  ASSERT_EQ(S_OK,
            context->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv6, proto::kUdp}, 90, kT0 + 5 * kSecond).Get()));
  auto full = DeltaBytes(one.Get(), 0);
  EXPECT_EQ(8u + Records(one.Get()).size() * 36, full.size());
  auto copy = ProtocolStats::Create();
  ASSERT_EQ(S_OK, copy->SetContext(context.Get()));
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), full));
  auto a = Records(one.Get()), b = Records(copy.Get());
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i].EntityIndex, b[i].EntityIndex);
    EXPECT_EQ(0, std::memcmp(&a[i].Stat, &b[i].Stat, sizeof a[i].Stat));
  }
  // Only UDP moved at or after the later time.
  auto delta = DeltaBytes(one.Get(), kT0 + kSecond);
  ASSERT_EQ(8u + 36u, delta.size());
  ULONG rows = 0, key = 0;
  std::memcpy(&rows, &delta[4], 4);
  std::memcpy(&key, &delta[8], 4);
  EXPECT_EQ(1u, rows);
  EXPECT_EQ(EntityOf(proto::kUdp), key);
}

TEST_F(ProtocolTables, ALoadedRowWithoutARecordBringsItsAncestors) {
  ASSERT_EQ(S_OK, layered->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kTcp}).Get()));
  auto delta = DeltaBytes(layered.Get(), kT0);  // the three counted layers, not the IP family
  auto fresh = ProtocolStatsByID::Create();
  ASSERT_EQ(S_OK, fresh->SetContext(context.Get()));
  ASSERT_EQ(S_OK, LoadStreamBytes(fresh.Get(), delta));
  EXPECT_EQ(Ids(layered.Get()), Ids(fresh.Get()));
  EXPECT_EQ(0u, Stat(fresh.Get(), proto::kIp).Packets);
  EXPECT_EQ(1u, Stat(fresh.Get(), proto::kTcp).Packets);
}

TEST_F(ProtocolTables, HostileStreamsFailWithoutGrowingTheTable) {
  auto lone = ProtocolStats::Create();
  // A row count far beyond the bytes: E_FAIL after the rows there are.
  std::vector<uint8_t> huge = {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
  huge.resize(8 + 36, 0x11);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(lone.Get(), huge));
  ULONG n = 0;
  ASSERT_EQ(S_OK, lone->GetProtocolCount(&n));
  EXPECT_EQ(1u, n);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(lone.Get(), {1, 0}));
  std::vector<uint8_t> shortRow = {0, 0, 0, 0, 1, 0, 0, 0, 5, 0, 0};
  EXPECT_EQ(E_FAIL, LoadStreamBytes(lone.Get(), shortRow));
}

TEST_F(ProtocolTables, XmlRoundTripsAndRejectsMissingFields) {
  ASSERT_EQ(S_OK, layered->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kTcp}, 70).Get()));
  ComPtr<IXMLDOMDocument> document = zemo::CreateXmlDocument();
  ASSERT_EQ(S_OK, zemo::SaveObjectToXml(static_cast<IPersistXml*>(layered.Get()), document.Get(), document.Get(), FALSE));
  CBstr xml;
  ASSERT_EQ(S_OK, document->get_xml(xml.Out()));
  EXPECT_NE(std::u16string_view::npos, xml.View().find(u"protocolstatsbyid"));
  auto copy = ProtocolStatsByID::Create();
  ASSERT_EQ(S_OK, copy->SetContext(context.Get()));
  ASSERT_EQ(S_OK, zemo::LoadObjectFromXml(static_cast<IPersistXml*>(copy.Get()), document.Get(), document.Get()));
  EXPECT_EQ(Ids(layered.Get()), Ids(copy.Get()));
  EXPECT_EQ(70u, Stat(copy.Get(), proto::kIpv4).Bytes);

  // A node without the element loads as nothing.
  auto none = ProtocolStats::Create();
  ComPtr<IXMLDOMDocument> other = ParseXml(u"<root><nodestats/></root>");
  ComPtr<IXMLDOMElement> root;
  ASSERT_EQ(S_OK, other->get_documentElement(root.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_OK, none->Load(other.Get(), root.Get()));
  // A row without its Bytes fails the load.
  ComPtr<IXMLDOMDocument> broken = ParseXml(
      u"<root><protocolstats><stat><prop name=\"EntityIndex\" type=\"19\">5</prop>"
      u"<prop name=\"FirstTime\" type=\"21\">1</prop><prop name=\"LastTime\" type=\"21\">1</prop>"
      u"<prop name=\"Packets\" type=\"21\">1</prop></stat></protocolstats></root>");
  ASSERT_EQ(S_OK, broken->get_documentElement(root.ReleaseAndGetAddressOf()));
  EXPECT_TRUE(FAILED(none->Load(broken.Get(), root.Get())));
}

// ---- exports -----------------------------------------------------------------

TEST_F(ProtocolTables, ExportsNameTreeProtocolsAndDumpTheBuckets) {
  ASSERT_EQ(S_OK, one->ProcessPacket(Stack({proto::kEthernetII, proto::kIpv4, proto::kTcp}, 70).Get()));
  const std::string base = ::testing::TempDir() + "protocol_export";
  CBstr tcpName;
  ComPtr<IProtoSpecs> tree;
  CLSID clsid;
  ASSERT_EQ(S_OK, CLSIDFromProgID(kProgIdProtoSpecs, &clsid));
  ASSERT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IProtoSpecs::iid, tree.OutVoid()));
  ASSERT_EQ(S_OK, tree->GetSpecName(proto::kTcp, tcpName.Out()));

  ASSERT_EQ(S_OK, one->Save(zemo::FromUtf8(base + ".TXT").c_str(), FALSE));
  std::string text = ReadFile(base + ".TXT");
  char line[128];
  std::snprintf(line, sizeof line, "0x%8.8X\t0xFFFFFFFF\t%s\t%llu\t%llu\t1\t70\n", EntityOf(proto::kTcp),
                tcpName.Utf8().c_str(), static_cast<unsigned long long>(kT0), static_cast<unsigned long long>(kT0));
  EXPECT_NE(std::string::npos, text.find(line)) << text;

  ASSERT_EQ(S_OK, one->Save(zemo::FromUtf8(base + ".hash").c_str(), FALSE));
  std::string dump = ReadFile(base + ".hash");
  EXPECT_EQ(770, std::count(dump.begin(), dump.end(), '\n'));
  EXPECT_NE(std::string::npos, dump.find("size=769, entries=3"));
  EXPECT_EQ(E_INVALIDARG, one->Save(zemo::FromUtf8(base + ".csv").c_str(), FALSE));
  std::remove((base + ".TXT").c_str());
  std::remove((base + ".hash").c_str());
}

}  // namespace
