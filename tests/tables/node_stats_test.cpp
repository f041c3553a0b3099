#include "tables/node_stats.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/tables/node_fixture.h"

namespace {

using namespace zemo::testing;
using zemo::ComPtr;
using zemo::NodeStats;
using zemo::PacketAddress;
using zemo::PacketBuilder;

const MediaSpec kMacA = Mac(0x01), kMacB = Mac(0x02);
const MediaSpec kIpA = Ip(10, 0, 0, 1), kIpB = Ip(10, 0, 0, 2);
const MediaSpec kMacBroadcast = zemo::specs::Make(10, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
const MediaSpec kMacGroup = zemo::specs::Make(10, {0x01, 0x00, 0x5e, 0x00, 0x00, 0x01});

using NodeStatsPackets = NodeStatsFixture;

TEST_F(NodeStatsPackets, FourAddressesMakeFourRecordsInPacketOrderWithTheirSides) {
  ASSERT_EQ(S_OK, Send(kMacA, kIpA, kMacB, kIpB, 100, kT0));
  ASSERT_EQ(4u, Count(stats.Get()));
  // Physical source, logical source, physical destination, logical destination.
  const MediaSpec order[] = {kMacA, kIpA, kMacB, kIpB};
  for (ULONG i = 0; i < 4; ++i) {
    ZemoNodeStatEntry e{};
    ASSERT_EQ(S_OK, stats->GetNodeEntry(i, &e));
    EXPECT_EQ(EntityOf(order[i]), e.EntityIndex) << i;
  }
  for (const MediaSpec& source : {kMacA, kIpA}) {
    ZemoNodeStat s = Record(source).Stat;
    EXPECT_EQ(kT0, s.FirstTimeSent);
    EXPECT_EQ(kT0, s.LastTimeSent);
    EXPECT_EQ(1u, s.PacketsSent);
    EXPECT_EQ(100u, s.BytesSent);
    EXPECT_EQ(100, s.MinPacketSizeSent);
    EXPECT_EQ(100, s.MaxPacketSizeSent);
    // Never received: the received side keeps its start values.
    EXPECT_EQ(0u, s.FirstTimeReceived);
    EXPECT_EQ(0u, s.PacketsReceived);
    EXPECT_EQ(0xFFFF, s.MinPacketSizeReceived);
    EXPECT_EQ(0, s.MaxPacketSizeReceived);
  }
  for (const MediaSpec& destination : {kMacB, kIpB}) {
    ZemoNodeStat s = Record(destination).Stat;
    EXPECT_EQ(kT0, s.FirstTimeReceived);
    EXPECT_EQ(1u, s.PacketsReceived);
    EXPECT_EQ(100u, s.BytesReceived);
    EXPECT_EQ(0u, s.FirstTimeSent);
    EXPECT_EQ(0u, s.PacketsSent);
    EXPECT_EQ(0xFFFF, s.MinPacketSizeSent);
    EXPECT_EQ(0, s.MaxPacketSizeSent);
  }

  // The answer, later and shorter: first times stay, sizes move from both ends.
  ASSERT_EQ(S_OK, Send(kMacB, kIpB, kMacA, kIpA, 60, kT0 + kSecond));
  ASSERT_EQ(S_OK, Send(kMacB, kIpB, kMacA, kIpA, 1500, kT0 + 2 * kSecond));
  EXPECT_EQ(4u, Count(stats.Get()));
  ZemoNodeStat a = Record(kMacA).Stat;
  EXPECT_EQ(kT0, a.FirstTimeSent);
  EXPECT_EQ(kT0 + kSecond, a.FirstTimeReceived);
  EXPECT_EQ(kT0 + 2 * kSecond, a.LastTimeReceived);
  EXPECT_EQ(2u, a.PacketsReceived);
  EXPECT_EQ(1560u, a.BytesReceived);
  EXPECT_EQ(60, a.MinPacketSizeReceived);
  EXPECT_EQ(1500, a.MaxPacketSizeReceived);
  EXPECT_EQ(100, a.MinPacketSizeSent);
}

TEST_F(NodeStatsPackets, MissingAndEqualAddressesTouchOnlyWhatIsThere) {
  // Without logical addresses: two records.
  ASSERT_EQ(S_OK, SendMac(0x01, 0x02));
  EXPECT_EQ(2u, Count(stats.Get()));
  // Every address getter fails: nothing, and still success.
  ASSERT_EQ(S_OK, Send(kNone, kNone, kNone, kNone, 64, kT0));
  EXPECT_EQ(2u, Count(stats.Get()));
  // Logical addresses only.
  ASSERT_EQ(S_OK, Send(kNone, kIpA, kNone, kIpB, 64, kT0));
  EXPECT_EQ(4u, Count(stats.Get()));
  EXPECT_EQ(0u, Record(kIpA).Stat.PacketsReceived);
  // A source without a destination counts as sent, to nobody.
  ASSERT_EQ(S_OK, Send(Mac(0x07), kNone, kNone, kNone, 64, kT0));
  EXPECT_EQ(1u, Record(Mac(0x07)).Stat.PacketsSent);
  EXPECT_EQ(5u, Count(stats.Get()));

  // Source equal to destination: one record, both sides, counted twice.
  ASSERT_EQ(S_OK, Send(Mac(0x09), kNone, Mac(0x09), kNone, 80, kT0));
  EXPECT_EQ(6u, Count(stats.Get()));
  ZemoNodeStat self = Record(Mac(0x09)).Stat;
  EXPECT_EQ(1u, self.PacketsSent);
  EXPECT_EQ(1u, self.PacketsReceived);
  EXPECT_EQ(80u, self.BytesSent);
  EXPECT_EQ(80u, self.BytesReceived);
}

// A packet whose every answer the test chooses, and which counts the
// questions: IsError must not be asked of a wired packet.
class ProbePacket final : public zemo::Object<ProbePacket, zemo::PacketStub, IPacketAddresses> {
 public:
  HRESULT GetTimeStamp(ZemoTime* t) override { return *t = kT0, S_OK; }
  HRESULT GetPacketLength(USHORT* n) override { return *n = 70, S_OK; }
  HRESULT IsWireless(BOOL* yes) override { return *yes = wireless, S_OK; }
  HRESULT IsError(BOOL* yes) override {
    ++errorQuestions;
    return *yes = error, S_OK;
  }
  HRESULT GetPhysicalSource(MediaSpec* s) override { return Give(s, kMacA); }
  HRESULT GetPhysicalDestination(MediaSpec* s) override { return Give(s, kMacB); }
  // Fails after writing a class and type: the address still counts as absent.
  HRESULT GetLogicalSource(MediaSpec* s) override { return *s = kIpA, E_FAIL; }
  HRESULT GetLogicalDestination(MediaSpec* s) override { return *s = kIpB, E_FAIL; }
  HRESULT GetProtocol(MediaSpec*) override { return E_NOTIMPL; }
  HRESULT GetBSSID(MediaSpec*) override { return E_NOTIMPL; }
  HRESULT GetWirelessReceiver(MediaSpec*) override { return E_NOTIMPL; }
  HRESULT GetWirelessTransmitter(MediaSpec*) override { return E_NOTIMPL; }

  BOOL wireless = FALSE;
  BOOL error = FALSE;
  int errorQuestions = 0;

 private:
  static HRESULT Give(MediaSpec* s, const MediaSpec& v) { return *s = v, S_OK; }
};

TEST_F(NodeStatsPackets, WirelessPacketsWithErrorsCountNowhereAndWiredOnesAreNotAsked) {
  auto probe = ProbePacket::Create();
  probe->error = TRUE;  // a wired packet's error flag plays no part
  ASSERT_EQ(S_OK, stats->ProcessPacket(probe.Get()));
  EXPECT_EQ(0, probe->errorQuestions);
  EXPECT_EQ(2u, Count(stats.Get()));  // the failed logical getters count as absent

  probe->wireless = TRUE;
  EXPECT_EQ(S_FALSE, stats->ProcessPacket(probe.Get()));
  EXPECT_EQ(1, probe->errorQuestions);
  EXPECT_EQ(1u, Record(kMacA).Stat.PacketsSent);

  probe->error = FALSE;
  ASSERT_EQ(S_OK, stats->ProcessPacket(probe.Get()));
  EXPECT_EQ(2u, Record(kMacA).Stat.PacketsSent);

  // The same through the engine's packet.
  PacketBuilder p;
  p.Time(kT0).Length(64).Wireless({1, 2412, 1}, 2).Error();
  p.Address(PacketAddress::kPhysicalSource, Mac(0x30)).Address(PacketAddress::kPhysicalDestination, Mac(0x31));
  EXPECT_EQ(S_FALSE, stats->ProcessPacket(p.Get()));
  EXPECT_EQ(2u, Count(stats.Get()));
}

TEST_F(NodeStatsPackets, BroadcastAndMulticastCountAtTheSenderByLayer) {
  const MediaSpec ipBroadcast = Ip(255, 255, 255, 255), ipGroup = Ip(224, 0, 0, 5);
  // Broadcast at both layers.
  ASSERT_EQ(S_OK, Send(kMacA, kIpA, kMacBroadcast, ipBroadcast, 100, kT0));
  // Multicast at both layers.
  ASSERT_EQ(S_OK, Send(kMacA, kIpA, kMacGroup, ipGroup, 200, kT0));
  // Physical unicast carrying a logical multicast: only the logical source counts it.
  ASSERT_EQ(S_OK, Send(kMacA, kIpA, kMacB, ipGroup, 300, kT0));

  ZemoNodeStat mac = Record(kMacA).Stat, ip = Record(kIpA).Stat;
  EXPECT_EQ(1u, mac.BroadcastPackets);
  EXPECT_EQ(100u, mac.BroadcastBytes);
  EXPECT_EQ(1u, mac.MulticastPackets);
  EXPECT_EQ(200u, mac.MulticastBytes);
  EXPECT_EQ(1u, ip.BroadcastPackets);
  EXPECT_EQ(2u, ip.MulticastPackets);
  EXPECT_EQ(500u, ip.MulticastBytes);

  // The broadcast address has a record of its own that only receives.
  ZemoNodeStat bcast = Record(kMacBroadcast).Stat;
  EXPECT_EQ(1u, bcast.PacketsReceived);
  EXPECT_EQ(0u, bcast.BroadcastPackets + bcast.MulticastPackets + bcast.PacketsSent);
  EXPECT_EQ(0u, Record(ipGroup).Stat.MulticastPackets);
}

TEST_F(NodeStatsPackets, GroupTestsNeedTheFullMaskOfTheType) {
  MediaSpec partialGroup = kMacGroup;
  partialGroup.fMask = 0xF0000000;  // the group bit is set, but the mask covers four bytes only
  MediaSpec partialBroadcast = kMacBroadcast;
  partialBroadcast.fMask = 0xF8000000;
  MediaSpec ipNet = Ip(224, 0, 0, 0);
  ipNet.fMask = 0xFFFFFF00;
  ASSERT_EQ(S_OK, Send(kMacA, kIpA, partialGroup, ipNet, 100, kT0));
  ASSERT_EQ(S_OK, Send(kMacA, kNone, partialBroadcast, kNone, 100, kT0));
  ZemoNodeStat mac = Record(kMacA).Stat, ip = Record(kIpA).Stat;
  EXPECT_EQ(0u, mac.MulticastPackets + mac.BroadcastPackets);
  EXPECT_EQ(0u, ip.MulticastPackets + ip.BroadcastPackets);
  EXPECT_EQ(2u, mac.PacketsSent);

  // Type 11 knows the all-ones broadcast; type 13 the group bit.
  const MediaSpec t11Broadcast = zemo::specs::Make(11, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
  const MediaSpec t11Source = zemo::specs::Make(11, {0x00, 0x00, 0x00, 0x00, 0x00, 0x01});
  const MediaSpec t13Group = zemo::specs::Make(13, {0x03, 0x00, 0x00, 0x00, 0x00, 0x01});
  const MediaSpec t13Source = zemo::specs::Make(13, {0x02, 0x00, 0x00, 0x00, 0x00, 0x01});
  ASSERT_EQ(S_OK, Send(t11Source, kNone, t11Broadcast, kNone, 10, kT0));
  ASSERT_EQ(S_OK, Send(t13Source, kNone, t13Group, kNone, 10, kT0));
  EXPECT_EQ(1u, Record(t11Source).Stat.BroadcastPackets);
  EXPECT_EQ(1u, Record(t13Source).Stat.MulticastPackets);
}

TEST_F(NodeStatsPackets, AFailedInternEndsThePacketAndKeepsWhatCameBefore) {
  // Type 12 has a length but no entity sub-table: the entity table refuses it.
  const MediaSpec unstorable = zemo::specs::Make(12, {1, 2, 3, 4, 5, 6});
  HRESULT hr = Send(kMacA, unstorable, kMacB, kNone, 100, kT0);
  EXPECT_TRUE(FAILED(hr));
  EXPECT_EQ(1u, Count(stats.Get()));  // the physical source only
  EXPECT_EQ(1u, Record(kMacA).Stat.PacketsSent);
}

TEST_F(NodeStatsPackets, ArgumentsAndTheContextDecideFirst) {
  EXPECT_EQ(E_INVALIDARG, stats->ProcessPacket(nullptr));
  auto lone = NodeStats::Create();
  EXPECT_EQ(E_FAIL, SendMac(1, 2, 100, kT0, lone.Get()));
  ULONG n = 0;
  EXPECT_EQ(E_FAIL, lone->GetPhysicalNodeCount(&n));
  ComPtr<IEntityTable> none;
  EXPECT_EQ(S_OK, lone->GetEntityTable(none.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(none);

  ComPtr<IEntityTable> table;
  ASSERT_EQ(S_OK, stats->GetEntityTable(table.ReleaseAndGetAddressOf()));
  EXPECT_EQ(entities.Get(), table.Get());
  ComPtr<IZemoStatsContext> back;
  ASSERT_EQ(S_OK, stats->GetContext(back.ReleaseAndGetAddressOf()));
  EXPECT_EQ(static_cast<IZemoStatsContext*>(context.Get()), back.Get());

  // Leaving the context releases the table: packets fail until a new one.
  ASSERT_EQ(S_OK, stats->SetContext(nullptr));
  EXPECT_EQ(E_FAIL, SendMac(1, 2));
  ASSERT_EQ(S_OK, stats->SetContext(context.Get()));
  EXPECT_EQ(S_OK, SendMac(1, 2));
}

TEST_F(NodeStatsPackets, LookupsAndEntriesAnswerBadIndexesPlainly) {
  ASSERT_EQ(S_OK, SendMac(1, 2));
  ASSERT_EQ(S_OK, SendMac(3, 4));
  ZemoNodeStatEntry last{};
  ASSERT_EQ(S_OK, stats->GetNodeEntry(0xEFFFFFFF, &last));
  EXPECT_EQ(EntityOf(Mac(4)), last.EntityIndex);

  ZemoNodeStatEntry bad;
  std::memset(&bad, 0xAB, sizeof bad);
  EXPECT_EQ(E_FAIL, stats->GetNodeEntry(4, &bad));
  ZemoNodeStatEntry zero{};
  EXPECT_EQ(0, std::memcmp(&bad, &zero, sizeof bad));
  EXPECT_EQ(E_POINTER, stats->GetNodeEntry(0, nullptr));

  ULONG index = 7;
  BOOL found = TRUE;
  EXPECT_EQ(S_OK, stats->GetNodeIndex(0x05001234, &index, &found));
  EXPECT_EQ(0xFFFFFFFFu, index);
  EXPECT_FALSE(found);
  EXPECT_EQ(E_POINTER, stats->GetNodeIndex(0, nullptr, &found));
  EXPECT_EQ(E_POINTER, stats->GetNodeCount(nullptr));

  // An empty table has no last record.
  ASSERT_EQ(S_OK, stats->Reset());
  EXPECT_EQ(E_FAIL, stats->GetNodeEntry(0xEFFFFFFF, &bad));
}

TEST_F(NodeStatsPackets, PhysicalAndLogicalCountsComeFromTheEntityTable) {
  ASSERT_EQ(S_OK, Send(kMacA, kIpA, kMacB, kIpB, 100, kT0));
  const uint8_t v6[16] = {0x20, 0x01, 0x0d, 0xb8};
  ASSERT_EQ(S_OK, Send(kNone, zemo::specs::Ipv6(v6), kNone, kNone, 100, kT0));
  // An address interned by someone else counts too.
  MediaSpec other = zemo::specs::Make(43, {0x12, 0x34});
  ULONG id = 0;
  ASSERT_EQ(S_OK, entities->FindOrAdd(&other, 1, &id));
  ULONG physical = 0, logical = 0;
  ASSERT_EQ(S_OK, stats->GetPhysicalNodeCount(&physical));
  ASSERT_EQ(S_OK, stats->GetLogicalNodeCount(&logical));
  EXPECT_EQ(3u, physical);
  EXPECT_EQ(3u, logical);
  EXPECT_EQ(E_POINTER, stats->GetLogicalNodeCount(nullptr));
}

TEST_F(NodeStatsPackets, ChainsStayWholeAfterManyInserts) {
  // 12000 addresses: about four to a chain of 3079.
  constexpr int kPairs = 6000;
  for (int i = 0; i < kPairs; ++i) {
    MediaSpec from = zemo::specs::Make(10, {0x02, 0, 0, 0, uint8_t(i >> 8), uint8_t(i)});
    MediaSpec to = zemo::specs::Make(10, {0x04, 0, 0, 0, uint8_t(i >> 8), uint8_t(i)});
    ASSERT_EQ(S_OK, Send(from, kNone, to, kNone, USHORT(64 + i % 1000), kT0 + i));
  }
  ASSERT_EQ(2u * kPairs, Count(stats.Get()));
  for (int i = 0; i < kPairs; i += 7) {
    MediaSpec from = zemo::specs::Make(10, {0x02, 0, 0, 0, uint8_t(i >> 8), uint8_t(i)});
    ZemoNodeStat s = Record(from).Stat;
    EXPECT_EQ(1u, s.PacketsSent);
    EXPECT_EQ(64u + i % 1000, s.BytesSent);
    EXPECT_EQ(kT0 + i, s.LastTimeSent);
  }
  // New records go to the front of their chain, so a link always points back.
  for (ULONG i = 0; i < 2u * kPairs; ++i) {
    ZemoNodeStatEntry e{};
    ASSERT_EQ(S_OK, stats->GetNodeEntry(i, &e));
    if (e.Next != 0xFFFFFFFF) {
      ASSERT_LT(e.Next, i);
      ZemoNodeStatEntry behind{};
      ASSERT_EQ(S_OK, stats->GetNodeEntry(e.Next, &behind));
      EXPECT_EQ(e.EntityIndex % 3079, behind.EntityIndex % 3079);
    }
  }
}

TEST_F(NodeStatsPackets, ResetEmptiesTheTableAndKeepsTheContext) {
  ASSERT_EQ(S_OK, SendMac(1, 2));
  ULONG before = 0, after = 0;
  ASSERT_EQ(S_OK, stats->GetResetCount(&before));
  ASSERT_EQ(S_OK, static_cast<IResetProcessing*>(stats.Get())->Reset());
  ASSERT_EQ(S_OK, stats->GetResetCount(&after));
  EXPECT_EQ(before + 1, after);
  EXPECT_EQ(0u, Count(stats.Get()));
  ASSERT_EQ(S_OK, SendMac(5, 6));
  EXPECT_EQ(2u, Count(stats.Get()));
  EXPECT_EQ(1u, Record(Mac(5)).Stat.PacketsSent);
}

}  // namespace
