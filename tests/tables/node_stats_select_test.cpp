// NodeStats as a selectable object and as a maker of trackers, and the
// table of node units.
#include <gtest/gtest.h>

#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "tests/tables/node_fixture.h"

namespace {

using namespace zemo::testing;
using zemo::CBstr;
using zemo::ComPtr;
using zemo::CVariant;

using NodeStatsSelect = NodeStatsFixture;

TEST_F(NodeStatsSelect, TheTableShowsEachRecordWithItsAddressAsText) {
  ASSERT_EQ(S_OK, Send(Mac(0x01), Ip(10, 0, 0, 1), Mac(0x02, 0x02), Ip(224, 0, 0, 9), 100, kT0));
  ComPtr<IDataTable> table;
  ASSERT_EQ(S_OK, stats->GetTable(table.ReleaseAndGetAddressOf()));
  ComPtr<IDataColumns> columns;
  ASSERT_EQ(S_OK, table->GetColumns(columns.ReleaseAndGetAddressOf()));
  const char16_t* expected[] = {u"Node",           u"PacketsReceived",  u"PacketsSent",    u"BytesReceived",
                                u"BytesSent",      u"MulticastPackets", u"MulticastBytes", u"BroadcastPackets",
                                u"BroadcastBytes", u"EntityIndex"};
  LONG n = 0;
  ASSERT_EQ(S_OK, columns->GetCount(&n));
  ASSERT_EQ(10, n);
  for (LONG i = 0; i < n; ++i) {
    CBstr name;
    VARTYPE type = 0;
    ASSERT_EQ(S_OK, columns->GetName(i, name.Out()));
    ASSERT_EQ(S_OK, columns->GetType(i, &type));
    EXPECT_EQ(expected[i], name.View());
    EXPECT_EQ(i == 0 ? VT_BSTR : i == 9 ? VT_UI4 : VT_UI8, type) << i;
  }
  ComPtr<IDataRows> rows;
  ASSERT_EQ(S_OK, table->GetRows(rows.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, rows->GetCount(&n));
  ASSERT_EQ(4, n);
  auto cell = [&](LONG row, LONG column) {
    ComPtr<IDataRow> r;
    EXPECT_EQ(S_OK, rows->GetRow(row, r.ReleaseAndGetAddressOf()));
    CVariant v;
    EXPECT_EQ(S_OK, r->GetValue(column, v.Out()));
    return v;
  };
  EXPECT_EQ(u"00:1a:2b:3c:4d:01", zemo::XmlText(cell(0, 0)));
  EXPECT_EQ(u"10.0.0.1", zemo::XmlText(cell(1, 0)));
  EXPECT_EQ(u"224.0.0.9", zemo::XmlText(cell(3, 0)));
  // The logical source sent one multicast packet of 100 bytes.
  EXPECT_EQ(1u, cell(1, 2).ullVal);
  EXPECT_EQ(1u, cell(1, 5).ullVal);
  EXPECT_EQ(100u, cell(1, 6).ullVal);
  EXPECT_EQ(0u, cell(0, 5).ullVal);  // the physical destination was unicast
  EXPECT_EQ(1u, cell(2, 1).ullVal);
  EXPECT_EQ(EntityOf(Mac(0x02, 0x02)), cell(2, 9).ulVal);
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
