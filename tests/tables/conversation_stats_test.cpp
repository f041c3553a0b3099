#include "tables/conversation_stats.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "tests/tables/protocol_fixture.h"

namespace {

using namespace zemo::testing;
using zemo::CBstr;
using zemo::ComPtr;
using zemo::ConversationStats;
using zemo::PacketAddress;
using zemo::PacketBuilder;
namespace proto = zemo::proto;
namespace specs = zemo::specs;

class Conversations : public ::testing::Test {
 protected:
  void SetUp() override {
    context = zemo::StatsContext::Create();
    stats = ConversationStats::Create();
    ASSERT_EQ(S_OK, context->AddStats(CLSID_ConversationStats, stats.Get()));
    ASSERT_EQ(S_OK, context->GetEntityTable(entities.ReleaseAndGetAddressOf()));
    ASSERT_EQ(S_OK, context->GetTupleTable(tuples.ReleaseAndGetAddressOf()));
  }

  // A TCP packet between the physical and logical addresses given; kNone
  // leaves one out.
  static PacketBuilder Wired(const MediaSpec& ps, const MediaSpec& pd, const MediaSpec& ls, const MediaSpec& ld,
                             USHORT length = 100, ZemoTime time = kT0) {
    PacketBuilder p;
    p.Time(time).Length(length).Protocol(proto::kTcp);
    if (zemo::IsValidSpec(ps)) p.Address(PacketAddress::kPhysicalSource, ps);
    if (zemo::IsValidSpec(pd)) p.Address(PacketAddress::kPhysicalDestination, pd);
    if (zemo::IsValidSpec(ls)) p.Address(PacketAddress::kLogicalSource, ls);
    if (zemo::IsValidSpec(ld)) p.Address(PacketAddress::kLogicalDestination, ld);
    return p;
  }
  // The same as an 802.11 frame with a transmitter and a receiver.
  static PacketBuilder Radio(const MediaSpec& ps, const MediaSpec& pd, const MediaSpec& ls, const MediaSpec& ld) {
    PacketBuilder p = Wired(ps, pd, ls, ld);
    p.Wireless({}, 2);
    p.Address(PacketAddress::kWirelessTransmitter, Mac(0x31));
    p.Address(PacketAddress::kWirelessReceiver, Mac(0x32));
    return p;
  }

  ULONG Count() {
    ULONG n = 0;
    EXPECT_EQ(S_OK, stats->GetConversationCount(&n));
    return n;
  }
  // The conversation from source to destination under TCP, or a record of
  // zeros with Packets 0 when there is none.
  ZemoConversationStat Between(const MediaSpec& source, const MediaSpec& destination) {
    TupleRecord t{};
    const MediaSpec tcp = specs::Protocol(proto::kTcp);
    if (FAILED(entities->FindOrAdd(&source, 0, &t.fSource)) ||
        FAILED(entities->FindOrAdd(&destination, 0, &t.fDestination)) ||
        FAILED(entities->FindOrAdd(&tcp, 0, &t.fProtocol)))
      return {};
    ULONG id = 0, index = 0;
    BOOL found = FALSE;
    if (tuples->FindOrAdd(&t, 0, &id) != S_OK) return {};
    EXPECT_EQ(S_OK, stats->GetConversationIndex(id, &index, &found));
    if (!found) return {};
    ZemoConversationStatEntry e{};
    EXPECT_EQ(S_OK, stats->GetConversationEntry(index, &e));
    EXPECT_EQ(id, e.TupleIndex);
    return e.Stat;
  }

  ComPtr<zemo::StatsContext> context;
  ComPtr<ConversationStats> stats;
  ComPtr<IEntityTable> entities;
  ComPtr<ITupleTable> tuples;
};

// ---- which pairs count -------------------------------------------------------

TEST_F(Conversations, AWiredPacketCountsTwiceAndAWirelessOneThreeTimes) {
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), Mac(2), Ip(10, 0, 0, 1), Ip(10, 0, 0, 2), 120).Get()));
  EXPECT_EQ(2u, Count());
  EXPECT_EQ(1u, Between(Mac(1), Mac(2)).Packets);
  EXPECT_EQ(120u, Between(Ip(10, 0, 0, 1), Ip(10, 0, 0, 2)).Bytes);

  ASSERT_EQ(S_OK, stats->ProcessPacket(Radio(Mac(3), Mac(4), Ip(10, 0, 0, 3), Ip(10, 0, 0, 4)).Get()));
  EXPECT_EQ(5u, Count());
  EXPECT_EQ(1u, Between(Mac(0x31), Mac(0x32)).Packets);
  EXPECT_EQ(1u, Between(Mac(3), Mac(4)).Packets);
  EXPECT_EQ(1u, Between(Ip(10, 0, 0, 3), Ip(10, 0, 0, 4)).Packets);
}

TEST_F(Conversations, EachDirectionIsItsOwnConversation) {
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), Mac(2), kNone, kNone, 60).Get()));
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(2), Mac(1), kNone, kNone, 70).Get()));
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), Mac(2), kNone, kNone, 80, kT0 + kSecond).Get()));
  EXPECT_EQ(2u, Count());
  ZemoConversationStat ab = Between(Mac(1), Mac(2)), ba = Between(Mac(2), Mac(1));
  EXPECT_EQ(2u, ab.Packets);
  EXPECT_EQ(140u, ab.Bytes);
  EXPECT_EQ(60u, ab.MinPacketSize);
  EXPECT_EQ(80u, ab.MaxPacketSize);
  EXPECT_EQ(kT0, ab.FirstTime);
  EXPECT_EQ(kT0 + kSecond, ab.LastTime);
  EXPECT_EQ(1u, ba.Packets);
  EXPECT_EQ(70u, ba.MinPacketSize);
}

TEST_F(Conversations, LogicalAddressesOfMixedTypesAreNoConversation) {
  const MediaSpec v6 = specs::Make(specs::kTypeIpv6, {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), Mac(2), Ip(10, 0, 0, 1), v6).Get()));
  EXPECT_EQ(1u, Count());
  EXPECT_EQ(1u, Between(Mac(1), Mac(2)).Packets);
  // The physical pair is not tested for its types: a mixed one still counts
  // as long as the TupleTable holds its source's type.
  const MediaSpec other = specs::Make(specs::kTypePhysical11, {9, 9, 9, 9, 9, 9});
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), other, kNone, kNone).Get()));
  EXPECT_EQ(1u, Between(Mac(1), other).Packets);
}

TEST_F(Conversations, ASourceWithoutATupleSubTableEndsOnlyItsPair) {
  // Type 34 is an entity but no tuple sub-table keys by it.
  const MediaSpec odd = specs::Make(34, {0x12, 0x34});
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(odd, Mac(2), Ip(10, 0, 0, 1), Ip(10, 0, 0, 2)).Get()));
  EXPECT_EQ(1u, Count());
  EXPECT_EQ(1u, Between(Ip(10, 0, 0, 1), Ip(10, 0, 0, 2)).Packets);
}

TEST_F(Conversations, AnAddressTheEntityTableCannotStoreEndsThePacket) {
  MediaSpec odd{};
  odd.fClass = 2;
  odd.fType = 5;  // no entity sub-table
  odd.fMask = 0x80000000u;
  // The logical pair counts first and stays counted; the physical pair fails the call.
  HRESULT hr = stats->ProcessPacket(Wired(odd, Mac(2), Ip(10, 0, 0, 1), Ip(10, 0, 0, 2)).Get());
  EXPECT_TRUE(FAILED(hr));
  EXPECT_EQ(1u, Count());
  EXPECT_EQ(1u, Between(Ip(10, 0, 0, 1), Ip(10, 0, 0, 2)).Packets);
}

TEST_F(Conversations, ARecordBlockThatCannotBeHadFailsThePacket) {
  // The tuple of X to Y exists before the table fills its first block of 256.
  const MediaSpec x = Mac(1, 0x0A), y = Mac(2, 0x0A), tcp = specs::Protocol(proto::kTcp);
  TupleRecord t{};
  ASSERT_EQ(S_OK, entities->FindOrAdd(&x, 1, &t.fSource));
  ASSERT_EQ(S_OK, entities->FindOrAdd(&y, 1, &t.fDestination));
  ASSERT_EQ(S_OK, entities->FindOrAdd(&tcp, 1, &t.fProtocol));
  ULONG id = 0;
  ASSERT_EQ(S_OK, tuples->FindOrAdd(&t, 1, &id));
  for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(uint8_t(i)), Mac(0, 0x0B), kNone, kNone).Get()));
  struct Unlimited {
    ~Unlimited() { zemo::CBlockStore::LimitBlocksForTesting(zemo::CBlockStore::kNoBlockLimit); }
  } unlimited;
  zemo::CBlockStore::LimitBlocksForTesting(0);
  EXPECT_EQ(E_FAIL, stats->ProcessPacket(Wired(x, y, kNone, kNone).Get()));
  EXPECT_EQ(256u, Count());
}

TEST_F(Conversations, ErrorsAndMissingProtocols) {
  PacketBuilder wiredError = Wired(Mac(1), Mac(2), kNone, kNone);
  wiredError.Error();
  EXPECT_EQ(S_OK, stats->ProcessPacket(wiredError.Get()));
  EXPECT_EQ(1u, Count());
  PacketBuilder radioError = Radio(Mac(3), Mac(4), kNone, kNone);
  radioError.Error();
  EXPECT_EQ(S_FALSE, stats->ProcessPacket(radioError.Get()));
  EXPECT_EQ(1u, Count());
  // Without a protocol no pair can be keyed: the call fails, nothing counts.
  PacketBuilder bare;
  bare.Time(kT0).Length(60).Address(PacketAddress::kPhysicalSource, Mac(5));
  bare.Address(PacketAddress::kPhysicalDestination, Mac(6));
  EXPECT_TRUE(FAILED(stats->ProcessPacket(bare.Get())));
  EXPECT_EQ(1u, Count());
  EXPECT_EQ(E_INVALIDARG, stats->ProcessPacket(nullptr));
  auto lone = ConversationStats::Create();
  EXPECT_EQ(E_FAIL, lone->ProcessPacket(wiredError.Get()));
}

// ---- limit and reset ---------------------------------------------------------

TEST_F(Conversations, TheLimitPausesOrResetsThroughTheSharedTemplate) {
  auto settings = LimitTo(stats.Get(), 2, false);
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), Mac(2), Ip(10, 0, 0, 1), Ip(10, 0, 0, 2)).Get()));
  EXPECT_EQ(S_FALSE, stats->ProcessPacket(Wired(Mac(3), Mac(4), kNone, kNone).Get()));
  EXPECT_TRUE(stats->IsPaused());
  EXPECT_EQ(S_FALSE, stats->ProcessPacket(nullptr));  // paused answers first

  ASSERT_EQ(S_OK, stats->Reset());
  EXPECT_FALSE(stats->IsPaused());
  EXPECT_EQ(0u, Count());
  settings->SetReset(1);
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), Mac(2), Ip(10, 0, 0, 1), Ip(10, 0, 0, 2)).Get()));
  ULONG before = 0, after = 0;
  ASSERT_EQ(S_OK, stats->GetResetCount(&before));
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(3), Mac(4), kNone, kNone).Get()));
  ASSERT_EQ(S_OK, stats->GetResetCount(&after));
  EXPECT_EQ(before + 1, after);
  EXPECT_EQ(1u, Count());
  EXPECT_EQ(1u, Between(Mac(3), Mac(4)).Packets);
}

// ---- lookups, selection, result table ---------------------------------------

TEST_F(Conversations, LookupsAndTheResultTableShowReadableAddresses) {
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(kNone, kNone, Ip(10, 0, 0, 1), Ip(10, 0, 0, 2), 90).Get()));
  ULONG index = 7;
  BOOL found = TRUE;
  EXPECT_EQ(S_OK, stats->GetConversationIndex(0x0ABCDEF, &index, &found));
  EXPECT_EQ(zemo::kNoRecord, index);
  EXPECT_FALSE(found);
  ZemoConversationStatEntry e;
  std::memset(&e, 0xCD, sizeof e);
  EXPECT_EQ(E_FAIL, stats->GetConversationEntry(5, &e));
  EXPECT_EQ(0u, e.TupleIndex);
  EXPECT_EQ(S_OK, stats->GetConversationEntry(0xEFFFFFFF, &e));
  EXPECT_EQ(1u, e.Stat.Packets);

  CBstr name;
  ASSERT_EQ(S_OK, stats->GetSelectName(name.Out()));
  EXPECT_EQ(u"conversationstats", name.View());
  auto t = zemo::testing_support::ReadTable(stats.Get());
  ASSERT_EQ(1u, t.rows.size());
  EXPECT_EQ(u"10.0.0.1", t.Text(0, 0));
  EXPECT_EQ(u"10.0.0.2", t.Text(0, 1));
  EXPECT_FALSE(t.Text(0, 2).empty());
  EXPECT_EQ(90u, t.rows[0][4].ullVal);
}

// ---- persistence -------------------------------------------------------------

TEST_F(Conversations, StreamsRoundTripAndDeltasCarryOnlyRecentRecords) {
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), Mac(2), kNone, kNone, 64, kT0).Get()));
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(3), Mac(4), kNone, kNone, 65, kT0 + 3 * kSecond).Get()));
  auto full = DeltaBytes(stats.Get(), 0);
  ASSERT_EQ(8u + 2 * 40u, full.size());
  auto copy = ConversationStats::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), full));
  EXPECT_EQ(full, DeltaBytes(copy.Get(), 0));
  auto delta = DeltaBytes(stats.Get(), kT0 + kSecond);
  ASSERT_EQ(8u + 40u, delta.size());
  ZemoConversationStatEntry last{};
  ASSERT_EQ(S_OK, stats->GetConversationEntry(1, &last));
  ULONG key = 0;
  std::memcpy(&key, &delta[8], 4);
  EXPECT_EQ(last.TupleIndex, key);
  USHORT minSize = 0;
  std::memcpy(&minSize, &delta[8 + 36], 2);
  EXPECT_EQ(65u, minSize);
}

TEST_F(Conversations, HostileStreamsAndDocumentsFailCleanly) {
  auto lone = ConversationStats::Create();
  std::vector<uint8_t> lying = {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x7F};
  lying.resize(8 + 40 + 17, 0x22);  // one whole row and part of another
  EXPECT_EQ(E_FAIL, LoadStreamBytes(lone.Get(), lying));
  ULONG n = 0;
  ASSERT_EQ(S_OK, lone->GetConversationCount(&n));
  EXPECT_EQ(1u, n);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(lone.Get(), {1, 2, 3}));

  ComPtr<IXMLDOMDocument> broken = ParseXml(
      u"<root><conversationstats><stat><prop name=\"TupleIndex\" type=\"19\">3</prop>"
      u"<prop name=\"FirstTime\" type=\"21\">1</prop><prop name=\"LastTime\" type=\"21\">1</prop>"
      u"<prop name=\"Packets\" type=\"21\">1</prop><prop name=\"Bytes\" type=\"21\">1</prop>"
      u"<prop name=\"MinPacketSize\" type=\"18\">70000</prop><prop name=\"MaxPacketSize\" type=\"18\">1</prop>"
      u"</stat></conversationstats></root>");
  ComPtr<IXMLDOMElement> root;
  ASSERT_EQ(S_OK, broken->get_documentElement(root.ReleaseAndGetAddressOf()));
  EXPECT_TRUE(FAILED(lone->Load(broken.Get(), root.Get())));
}

TEST_F(Conversations, XmlRoundTrips) {
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), Mac(2), Ip(10, 0, 0, 1), Ip(10, 0, 0, 2), 99).Get()));
  ComPtr<IXMLDOMDocument> document = zemo::CreateXmlDocument();
  ASSERT_EQ(S_OK, zemo::SaveObjectToXml(static_cast<IPersistXml*>(stats.Get()), document.Get(), document.Get(), FALSE));
  auto copy = ConversationStats::Create();
  ASSERT_EQ(S_OK, zemo::LoadObjectFromXml(static_cast<IPersistXml*>(copy.Get()), document.Get(), document.Get()));
  EXPECT_EQ(DeltaBytes(stats.Get(), 0), DeltaBytes(copy.Get(), 0));
}

// ---- exports -----------------------------------------------------------------

TEST_F(Conversations, ExportsWriteRecordsAndABareBucketDump) {
  ASSERT_EQ(S_OK, stats->ProcessPacket(Wired(Mac(1), Mac(2), kNone, kNone, 64).Get()));
  ZemoConversationStatEntry e{};
  ASSERT_EQ(S_OK, stats->GetConversationEntry(0, &e));
  const std::string base = ::testing::TempDir() + "conversation_export";
  ASSERT_EQ(S_OK, stats->Save(zemo::FromUtf8(base + ".txt").c_str(), FALSE));
  char line[160];
  std::snprintf(line, sizeof line, "0x%8.8X\t0xFFFFFFFF\t%llu\t%llu\t1\t64\t64\t64\n", e.TupleIndex,
                static_cast<unsigned long long>(kT0), static_cast<unsigned long long>(kT0));
  EXPECT_EQ(line, ReadFile(base + ".txt"));
  ASSERT_EQ(S_OK, stats->Save(zemo::FromUtf8(base + ".Hash").c_str(), FALSE));
  std::string dump = ReadFile(base + ".Hash");
  EXPECT_EQ(3079, std::count(dump.begin(), dump.end(), '\n'));
  EXPECT_EQ(std::string::npos, dump.find("size="));
  EXPECT_NE(std::string::npos, ("\n" + dump).find("\n" + std::to_string(e.TupleIndex % 3079) + "=0 \n"));
  EXPECT_EQ(E_INVALIDARG, stats->Save(zemo::FromUtf8(base + ".xml").c_str(), FALSE));
  std::remove((base + ".txt").c_str());
  std::remove((base + ".Hash").c_str());
}

}  // namespace
