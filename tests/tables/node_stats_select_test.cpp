// NodeStats as a selectable object and as a maker of trackers, and the
// table of node units.
#include <gtest/gtest.h>

#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "support/table_cells.h"
#include "tests/tables/node_fixture.h"

namespace {

using namespace zemo::testing;
using zemo::CBstr;
using zemo::ComPtr;
using zemo::CVariant;

using NodeStatsSelect = NodeStatsFixture;

TEST_F(NodeStatsSelect, TheTableShowsEachRecordWithItsAddressAsText) {
  ASSERT_EQ(S_OK, Send(Mac(0x01), Ip(10, 0, 0, 1), Mac(0x02, 0x02), Ip(224, 0, 0, 9), 100, kT0));
  auto t = zemo::testing_support::ReadTable(stats.Get());
  EXPECT_EQ((std::vector<std::u16string>{u"Node", u"PacketsReceived", u"PacketsSent", u"BytesReceived", u"BytesSent",
                                         u"MulticastPackets", u"MulticastBytes", u"BroadcastPackets", u"BroadcastBytes",
                                         u"EntityIndex"}),
            t.names);
  std::vector<VARTYPE> types(10, VT_UI8);
  types.front() = VT_BSTR;
  types.back() = VT_UI4;
  EXPECT_EQ(types, t.types);
  ASSERT_EQ(4u, t.rows.size());
  EXPECT_EQ(u"00:1a:2b:3c:4d:01", t.Text(0, 0));
  EXPECT_EQ(u"10.0.0.1", t.Text(1, 0));
  EXPECT_EQ(u"224.0.0.9", t.Text(3, 0));
  // The logical source sent one multicast packet of 100 bytes.
  EXPECT_EQ(1u, t.rows[1][2].ullVal);
  EXPECT_EQ(1u, t.rows[1][5].ullVal);
  EXPECT_EQ(100u, t.rows[1][6].ullVal);
  EXPECT_EQ(0u, t.rows[0][5].ullVal);  // the physical destination was unicast
  EXPECT_EQ(1u, t.rows[2][1].ullVal);
  EXPECT_EQ(EntityOf(Mac(0x02, 0x02)), t.rows[2][9].ulVal);
  EXPECT_EQ(E_POINTER, stats->GetTable(nullptr));
}

// A document whose element names an address in the entity address form.
ComPtr<IXMLDOMDocument> KeyDocument(const std::u16string& attributes) { return ParseXml(u"<key " + attributes + u"/>"); }

TEST_F(NodeStatsSelect, CreateTrackerGivesAKeyedTrackerBoundToTheContext) {
  ComPtr<IZemoStatsTracker> tracker;
  CVariant empty;
  EXPECT_EQ(E_POINTER, stats->CreateTracker(empty, nullptr));
  EXPECT_EQ(E_INVALIDARG, stats->CreateTracker(empty, tracker.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, stats->CreateTracker(CVariant::Unknown(nullptr), tracker.ReleaseAndGetAddressOf()));
  // An object that is no document.
  EXPECT_EQ(E_NOINTERFACE, stats->CreateTracker(CVariant::Unknown(stats->GetUnknown()), tracker.ReleaseAndGetAddressOf()));
  // An address without its data.
  EXPECT_EQ(E_FAIL, stats->CreateTracker(CVariant::Unknown(KeyDocument(u"class=\"2\" type=\"10\"").Get()),
                                         tracker.ReleaseAndGetAddressOf()));

  ASSERT_EQ(S_OK, stats->CreateTracker(
                      CVariant::Unknown(KeyDocument(u"class=\"2\" type=\"10\" data=\"001A2B3C4D01\"").Get()),
                      tracker.ReleaseAndGetAddressOf()));
  MediaSpec key{};
  ASSERT_EQ(S_OK, tracker.Query<INodeStatsTracker>()->GetKey(&key));
  EXPECT_TRUE(zemo::SpecsEqual(Mac(0x01), key));
  ComPtr<IZemoStatsContext> bound;
  ASSERT_EQ(S_OK, tracker->GetContext(bound.ReleaseAndGetAddressOf()));
  EXPECT_EQ(context.Get(), bound.Get());
  // Still without a stat type: the caller chooses one.
  CVariant stat;
  ASSERT_EQ(S_OK, tracker->GetStat(&stat));
  EXPECT_EQ(0, stat.lVal);
}

TEST(NodeUnits, NameEverythingANodeTrackerCanFollow) {
  const zemo::CNodeUnits& units = zemo::CNodeUnits::Get();
  EXPECT_EQ(16u, units.Units().GetCount());
  EXPECT_EQ(257u, units.Units().GetBucketCount());
  EXPECT_EQ(std::u16string(u"Total Bytes"), units.Label(zemo::kNodeTotalBytes));
  EXPECT_EQ(std::u16string(u"Broadcast/Multicast Packets"), units.Label(11));
  EXPECT_EQ(std::u16string(u"Max Packet Size Received"), units.Label(16));
  EXPECT_EQ(nullptr, units.Label(0));
  EXPECT_EQ(nullptr, units.Label(17));
  EXPECT_EQ(&units, &zemo::CNodeUnits::Get());
}

}  // namespace
