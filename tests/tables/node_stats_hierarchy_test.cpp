// NodeStatsHierarchy: physical records and the pairs behind them, found by
// either address, saved and loaded whole and by deltas, exported.
#include "tables/node_stats_hierarchy.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/scratch_dir.h"
#include "support/table_cells.h"
#include "tests/tables/node_fixture.h"

namespace {

using namespace zemo::testing;
using zemo::ComPtr;
using zemo::NodeStatsHierarchy;

const MediaSpec kMacA = Mac(0x01), kMacB = Mac(0x02), kMacR = Mac(0x0A);
const MediaSpec kIpA = Ip(10, 0, 0, 1), kIpB = Ip(10, 0, 0, 2), kIpFar = Ip(192, 0, 2, 7);
const MediaSpec kMacBroadcast = zemo::specs::Make(10, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
constexpr ULONG kNo = 0xFFFFFFFFu;

class HierarchyFixture : public NodeStatsFixture {
 public:
  void SetUp() override {
    NodeStatsFixture::SetUp();
    tree = NodeStatsHierarchy::Create();
    ASSERT_EQ(S_OK, context->AddStats(CLSID_NodeStatsHierarchy, tree.Get()));
  }
  // Through the context, so the NodeStats beside it sees the same packets.
  HRESULT Both(const MediaSpec& ps, const MediaSpec& ls, const MediaSpec& pd, const MediaSpec& ld, USHORT length,
               ZemoTime time) {
    zemo::PacketBuilder p;
    p.Time(time).Length(length);
    if (zemo::IsValidSpec(ps)) p.Address(zemo::PacketAddress::kPhysicalSource, ps);
    if (zemo::IsValidSpec(ls)) p.Address(zemo::PacketAddress::kLogicalSource, ls);
    if (zemo::IsValidSpec(pd)) p.Address(zemo::PacketAddress::kPhysicalDestination, pd);
    if (zemo::IsValidSpec(ld)) p.Address(zemo::PacketAddress::kLogicalDestination, ld);
    return context->ProcessPacket(p.Get());
  }
  static ULONG Count(NodeStatsHierarchy* t) {
    ULONG n = 0;
    EXPECT_EQ(S_OK, t->GetNodeCount(&n));
    return n;
  }
  // The index of (physical, logical) by address, kNo when absent.
  ULONG IndexOf(const MediaSpec& physical, const MediaSpec* logical, NodeStatsHierarchy* in = nullptr) {
    ULONG index = 0;
    BOOL found = TRUE;
    EXPECT_EQ(S_OK, (in ? in : tree.Get())->GetNodeIndex(EntityOf(physical), logical ? EntityOf(*logical) : kNo,
                                                         &index, &found));
    EXPECT_EQ(found != FALSE, index != kNo);
    return index;
  }
  ZemoNodeHierarchyStatEntry Entry(ULONG index, NodeStatsHierarchy* in = nullptr) {
    ZemoNodeHierarchyStatEntry e{};
    EXPECT_EQ(S_OK, (in ? in : tree.Get())->GetNodeEntry(index, &e));
    return e;
  }
  // Every record with its link cleared, in record order.
  std::vector<std::vector<uint8_t>> AllRows(NodeStatsHierarchy* t) {
    std::vector<std::vector<uint8_t>> rows;
    for (ULONG i = 0, n = Count(t); i < n; ++i) {
      ZemoNodeHierarchyStatEntry e = Entry(i, t);
      e.Next = 0;
      auto* p = reinterpret_cast<const uint8_t*>(&e);
      rows.emplace_back(p, p + sizeof e);
    }
    return rows;
  }

  ComPtr<NodeStatsHierarchy> tree;
};

TEST_F(HierarchyFixture, PhysicalRecordsMatchNodeStatsAndPairsStandBehindThem) {
  // Both sides with both layers: four records, physical ahead of its pair.
  ASSERT_EQ(S_OK, Both(kMacA, kIpA, kMacB, kIpB, 100, kT0));
  ASSERT_EQ(4u, Count(tree.Get()));
  EXPECT_EQ(0u, IndexOf(kMacA, nullptr));
  EXPECT_EQ(1u, IndexOf(kMacA, &kIpA));
  EXPECT_EQ(2u, IndexOf(kMacB, nullptr));
  EXPECT_EQ(3u, IndexOf(kMacB, &kIpB));
  // A router's answer from a far address, a frame without logical addresses,
  // a logical source without a physical one (nothing on the sending side),
  // and a physical broadcast carrying a unicast logical destination.
  ASSERT_EQ(S_OK, Both(kMacR, kIpFar, kMacA, kIpA, 200, kT0 + kSecond));
  ASSERT_EQ(S_OK, Both(kMacA, kNone, kMacR, kNone, 60, kT0 + 2 * kSecond));
  ASSERT_EQ(S_OK, Both(kNone, kIpB, kMacR, kIpFar, 70, kT0 + 3 * kSecond));
  ASSERT_EQ(S_OK, Both(kMacA, kIpA, kMacBroadcast, kIpB, 80, kT0 + 4 * kSecond));

  // The physical records are exactly what NodeStats counts for the address.
  for (const MediaSpec& mac : {kMacA, kMacB, kMacR, kMacBroadcast}) {
    ZemoNodeHierarchyStatEntry e = Entry(IndexOf(mac, nullptr));
    EXPECT_EQ(kNo, e.LogicalIndex);
    const ZemoNodeStat alone = Record(mac).Stat;
    EXPECT_EQ(0, std::memcmp(&alone, &e.Stat, sizeof e.Stat)) << EntityOf(mac);
  }
  // The pairs are parts of their physical record.
  // Copies with the counters aligned, which the packed record does not promise.
  alignas(8) ZemoNodeStat pair = Entry(IndexOf(kMacA, &kIpA)).Stat;
  alignas(8) ZemoNodeStat whole = Entry(IndexOf(kMacA, nullptr)).Stat;
  EXPECT_EQ(2u, pair.PacketsSent);
  EXPECT_EQ(3u, whole.PacketsSent);
  EXPECT_EQ(1u, pair.PacketsReceived);
  EXPECT_EQ(1u, whole.BroadcastPackets);
  EXPECT_EQ(0u, pair.BroadcastPackets);  // the logical destination was unicast
  EXPECT_EQ(1u, +Entry(IndexOf(kMacR, &kIpFar)).Stat.PacketsSent);
  EXPECT_EQ(1u, +Entry(IndexOf(kMacR, &kIpFar)).Stat.PacketsReceived);
  EXPECT_EQ(kNo, IndexOf(kMacA, &kIpB));  // kIpB came in behind a broadcast, not from kMacA

  // A logical address behind two physical ones: two records, and the search
  // without a physical address finds the earlier.
  ASSERT_EQ(S_OK, Both(kMacB, kIpA, kNone, kNone, 90, kT0 + 5 * kSecond));
  ULONG first = 0, count = Count(tree.Get());
  BOOL found = FALSE;
  ASSERT_EQ(S_OK, tree->GetNodeIndex(kNo, EntityOf(kIpA), &first, &found));
  EXPECT_TRUE(found);
  EXPECT_EQ(IndexOf(kMacA, &kIpA), first);
  EXPECT_NE(IndexOf(kMacB, &kIpA), first);
  ULONG addresses = 0;
  ASSERT_EQ(S_OK, entities->GetCount(10, &addresses));
  ULONG logical = 0;
  ASSERT_EQ(S_OK, tree->GetLogicalNodeCount(&logical));
  EXPECT_GT(count, addresses + logical);
  ASSERT_EQ(S_OK, tree->GetNodeIndex(kNo, 0x0BADF00D, &first, &found));  // no such entity
  EXPECT_FALSE(found);
  EXPECT_EQ(kNo, first);

  // A chain that leads nowhere is E_FAIL; a bad index zeroes the copy.
  ZemoNodeHierarchyStatEntry e;
  std::memset(&e, 0x5A, sizeof e);
  EXPECT_EQ(E_FAIL, tree->GetNodeEntry(count, &e));
  EXPECT_EQ(0u, e.PhysicalIndex + e.Stat.PacketsSent);
  EXPECT_EQ(E_POINTER, tree->GetNodeIndex(0, 0, nullptr, &found));
}

TEST_F(HierarchyFixture, TheTableNamesBothAddressesAndAPhysicalRecordHasNoLogicalOne) {
  ASSERT_EQ(S_OK, Both(kMacA, kIpA, kMacB, kIpB, 100, kT0));
  auto t = zemo::testing_support::ReadTable(tree.Get());
  ASSERT_EQ(4u, t.rows.size());
  EXPECT_EQ(u"00:1a:2b:3c:4d:01", t.Text(1, 0));
  EXPECT_EQ(u"10.0.0.1", t.Text(1, 1));
  EXPECT_EQ(u"", t.Text(0, 1));
  EXPECT_EQ(u"1", t.Text(1, 3));  // PacketsSent
}

TEST_F(HierarchyFixture, StreamsAndXmlCarryPairsAndDeltasRebuildTheWritersTable) {
  ASSERT_EQ(S_OK, Both(kMacA, kIpA, kMacB, kIpB, 100, kT0));
  std::vector<uint8_t> whole = DeltaBytes(tree.Get(), 0);
  ASSERT_EQ(8u + 4 * 112, whole.size());
  ULONG physical = 0, logical = 0;
  std::memcpy(&physical, &whole[8 + 112], 4);
  std::memcpy(&logical, &whole[12 + 112], 4);
  EXPECT_EQ(EntityOf(kMacA), physical);
  EXPECT_EQ(EntityOf(kIpA), logical);

  auto reader = NodeStatsHierarchy::Create();
  ASSERT_EQ(S_OK, reader->SetContext(context.Get()));
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), whole));
  // A delta of the pair that moved, loaded twice, gives the writer's table.
  ASSERT_EQ(S_OK, Both(kMacA, kIpA, kMacR, kNone, 50, kT0 + 60 * kSecond));
  std::vector<uint8_t> delta = DeltaBytes(tree.Get(), kT0 + 60 * kSecond);
  ULONG rows = 0;
  std::memcpy(&rows, &delta[4], 4);
  EXPECT_EQ(3u, rows);
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), delta));
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), delta));
  EXPECT_EQ(AllRows(tree.Get()), AllRows(reader.Get()));

  // A pair row alone brings its physical record in ahead of it.
  auto lone = NodeStatsHierarchy::Create();
  ASSERT_EQ(S_OK, lone->SetContext(context.Get()));
  std::vector<uint8_t> pairOnly(whole.begin(), whole.begin() + 8);
  pairOnly.insert(pairOnly.end(), whole.begin() + 8 + 112, whole.begin() + 8 + 224);
  const ULONG one = 1, otherResetCount = 99;
  std::memcpy(&pairOnly[4], &one, 4);
  std::memcpy(&pairOnly[0], &otherResetCount, 4);
  ASSERT_EQ(S_OK, LoadStreamBytes(lone.Get(), pairOnly));
  ASSERT_EQ(2u, Count(lone.Get()));
  EXPECT_EQ(kNo, Entry(0, lone.Get()).LogicalIndex);
  EXPECT_EQ(0u, +Entry(0, lone.Get()).Stat.PacketsSent);
  EXPECT_EQ(1u, +Entry(1, lone.Get()).Stat.PacketsSent);
  // A stream that ends inside a row fails with the rows before it kept.
  pairOnly.resize(pairOnly.size() - 1);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(lone.Get(), pairOnly));

  // XML: the node statistics' element, both keys as properties.
  ComPtr<IXMLDOMDocument> document = ParseXml(u"<root/>");
  ComPtr<IXMLDOMElement> root;
  ASSERT_EQ(S_OK, document->get_documentElement(root.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, static_cast<IPersistXml*>(tree.Get())->Save(document.Get(), root.Get(), TRUE));
  zemo::CBstr markup;
  ASSERT_EQ(S_OK, root->get_xml(markup.Out()));
  EXPECT_NE(std::string::npos, markup.Utf8().find("<nodestats resetcount="));
  EXPECT_NE(std::string::npos, markup.Utf8().find("name=\"LogicalIndex\" type=\"19\""));
  auto fromXml = NodeStatsHierarchy::Create();
  ASSERT_EQ(S_OK, fromXml->SetContext(context.Get()));
  ASSERT_EQ(S_OK, static_cast<IPersistXml*>(fromXml.Get())->Load(document.Get(), root.Get()));
  EXPECT_EQ(AllRows(tree.Get()), AllRows(fromXml.Get()));
}

TEST_F(HierarchyFixture, ExportsListBothKeysAndTheLinkAndTheLimitStopsCounting) {
  ASSERT_EQ(S_OK, Both(kMacA, kIpA, kMacB, kNone, 100, kT0));
  zemo::testing_support::ScratchDir dir;
  auto save = [&](const std::string& leaf) { return static_cast<IPersistFile*>(tree.Get())->Save(dir.WideFile(leaf).c_str(), FALSE); };
  ASSERT_EQ(S_OK, save("tree.txt"));
  char expected[128];
  ZemoNodeHierarchyStatEntry pair = Entry(1);
  std::snprintf(expected, sizeof expected, "0x%8.8X\t0xFFFFFFFF\t0x%8.8X\n0x%8.8X\t0x%8.8X\t0x%8.8X\n",
                EntityOf(kMacA), Entry(0).Next, pair.PhysicalIndex, pair.LogicalIndex, pair.Next);
  EXPECT_EQ(0u, zemo::testing_support::ReadFile(dir.File("tree.txt")).find(expected));
  ASSERT_EQ(S_OK, save("tree.HASH"));
  EXPECT_NE(std::string::npos,
            zemo::testing_support::ReadFile(dir.File("tree.HASH")).find("size=3079, entries=3, collisions="));
  EXPECT_EQ(E_INVALIDARG, save("tree.csv"));

  // A limit of 3 records, enforced by stopping: the next packet is refused.
  auto settings = zemo::ZemoStatsLimitSettings::Create();
  ASSERT_EQ(S_OK, settings->SetLimit(3));
  ASSERT_EQ(S_OK, tree->SetSettings(settings.Get()));
  EXPECT_EQ(S_FALSE, tree->ProcessPacket(zemo::PacketBuilder().Time(kT0).Length(60).Get()));
  EXPECT_EQ(3u, Count(tree.Get()));
}

}  // namespace
