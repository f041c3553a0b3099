// SummaryStatsSnapshot: the rules of its tree edits, its byte-exact stream
// form, its XML form and its clone.
#include <gtest/gtest.h>

#include <cstring>

#include "network/network_fixture.h"
#include "summary/summary_stats_snapshot.h"

namespace zemo::testing {
namespace {

constexpr GUID kGroup = MakeGuid("11111111-0000-0000-0000-000000000001");
constexpr GUID kItem = MakeGuid("11111111-0000-0000-0000-000000000002");
constexpr GUID kOther = MakeGuid("11111111-0000-0000-0000-000000000003");

class SnapshotTest : public NetworkFixture {
 protected:
  ComPtr<SummaryStatsSnapshot> snapshot = SummaryStatsSnapshot::Create();

  std::vector<GUID> Order(ISummaryStatsSnapshot* s) {
    LONG count = 0;
    EXPECT_EQ(S_OK, s->GetItemCount(&count));
    std::vector<GUID> ids(static_cast<size_t>(count));
    for (LONG i = 0; i < count; ++i) EXPECT_EQ(S_OK, s->GetItemID(i, &ids[static_cast<size_t>(i)]));
    return ids;
  }
  std::u16string Label(REFGUID id) {
    CBstr label;
    EXPECT_EQ(S_OK, snapshot->GetLabel(id, label.Out()));
    return std::u16string(label.View());
  }
  GUID Parent(REFGUID id) {
    GUID parent{};
    EXPECT_EQ(S_OK, snapshot->GetParent(id, &parent));
    return parent;
  }
  ULONGLONG Count(REFGUID id) {
    SummaryStatValue v{};
    EXPECT_EQ(S_OK, snapshot->GetValue(id, &v));
    return v.Count;
  }
};

TEST_F(SnapshotTest, TreeEditsKeepParentsAheadAndPlacesFixed) {
  GUID fresh{};
  ASSERT_EQ(S_OK, snapshot->GetID(&fresh));
  GUID another{};
  SummaryStatsSnapshot::Create()->GetID(&another);
  EXPECT_FALSE(fresh == GUID_NULL);
  EXPECT_FALSE(fresh == another);

  // A new item under an unknown parent makes the parent first, at the top.
  const SummaryStatValue five = SummaryCount(kSummaryInt, 5);
  ASSERT_EQ(S_OK, snapshot->SetItem(kItem, kGroup, CBstr(u"first").Get(), &five));
  EXPECT_EQ((std::vector<GUID>{kGroup, kItem}), Order(snapshot.Get()));
  EXPECT_EQ(GUID_NULL, Parent(kGroup));
  EXPECT_EQ(u"", Label(kGroup));

  // An existing item keeps its parent and place; null arguments change nothing.
  const SummaryStatValue six = SummaryCount(kSummaryInt, 6);
  EXPECT_EQ(S_OK, snapshot->SetItem(kItem, kOther, nullptr, nullptr));
  EXPECT_EQ(5u, Count(kItem));
  EXPECT_EQ(u"first", Label(kItem));
  EXPECT_EQ(S_OK, snapshot->SetItem(kItem, kOther, CBstr(u"second").Get(), &six));
  EXPECT_EQ(kGroup, Parent(kItem));
  EXPECT_EQ(6u, Count(kItem));
  EXPECT_EQ(u"second", Label(kItem));
  EXPECT_EQ(S_OK, snapshot->AddGroup(kGroup, kOther));
  EXPECT_EQ(GUID_NULL, Parent(kGroup));
  EXPECT_EQ(2u, Order(snapshot.Get()).size());
  // An item that names itself as its parent is one item.
  EXPECT_EQ(S_OK, snapshot->SetItem(kOther, kOther, nullptr, &five));
  EXPECT_EQ((std::vector<GUID>{kGroup, kItem, kOther}), Order(snapshot.Get()));

  // Removing a group leaves its children naming it.
  EXPECT_EQ(S_OK, snapshot->RemoveItem(kGroup));
  EXPECT_EQ(E_FAIL, snapshot->RemoveItem(kGroup));
  EXPECT_EQ(kGroup, Parent(kItem));
  LONG has = 1;
  EXPECT_EQ(S_OK, snapshot->HasItem(kGroup, &has));
  EXPECT_EQ(0, has);

  // Absent items and places past the end.
  GUID id = kItem;
  SummaryStatValue v{};
  CBstr label;
  EXPECT_EQ(E_INVALIDARG, snapshot->GetItemID(2, &id));
  EXPECT_EQ(GUID_NULL, id);
  EXPECT_EQ(E_INVALIDARG, snapshot->GetItemID(-1, &id));
  EXPECT_EQ(E_FAIL, snapshot->GetValue(kGroup, &v));
  EXPECT_EQ(E_FAIL, snapshot->SetValue(kGroup, &five));
  EXPECT_EQ(E_FAIL, snapshot->GetLabel(kGroup, label.Out()));
  EXPECT_EQ(E_FAIL, snapshot->SetLabel(kGroup, nullptr));
  EXPECT_EQ(E_FAIL, snapshot->GetParent(kGroup, &id));
  EXPECT_EQ(E_POINTER, snapshot->SetValue(kItem, nullptr));

  EXPECT_EQ(S_OK, snapshot->RemoveAll());
  EXPECT_TRUE(Order(snapshot.Get()).empty());
  EXPECT_EQ(S_OK, snapshot->GetID(&id));
  EXPECT_EQ(fresh, id);
}

TEST_F(SnapshotTest, StreamFormIsByteExact) {
  const GUID id = MakeGuid("01020304-0506-0708-090A-0B0C0D0E0F10");
  snapshot->SetID(id);
  snapshot->SetName(CBstr(u"ab").Get());
  // A count whose unused union bytes hold something: they travel too.
  SummaryStatValue value = SummaryCount(kSummaryInt, 5);
  std::memset(value.Raw + 8, 0xA5, 8);
  ASSERT_EQ(S_OK, snapshot->SetItem(kItem, GUID_NULL, nullptr, &value));

  std::vector<uint8_t> expected(reinterpret_cast<const uint8_t*>(&id), reinterpret_cast<const uint8_t*>(&id) + 16);
  for (int b : {6, 0, 0, 0, int('a'), 0, int('b'), 0, 0, 0, 1, 0, 0, 0}) expected.push_back(uint8_t(b));
  expected.insert(expected.end(), reinterpret_cast<const uint8_t*>(&kItem), reinterpret_cast<const uint8_t*>(&kItem) + 16);
  expected.insert(expected.end(), 16, 0);  // no parent
  expected.insert(expected.end(), 4, 0);   // a null label is the count 0 alone
  expected.insert(expected.end(), reinterpret_cast<const uint8_t*>(&value),
                  reinterpret_cast<const uint8_t*>(&value) + sizeof value);
  EXPECT_EQ(expected, StreamBytes(snapshot->GetUnknown()));

  // Every type, labels null and empty: a load gives the same bytes back.
  snapshot->SetLabel(kItem, CBstr(u"").Get());
  const SummaryStatValue values[] = {SummaryValue(kSummaryNone), SummaryCount(kSummaryDate, 133000000000000000ull),
                                     SummaryDuration(-7), SummaryPair(3, 400), SummaryDouble(0.1)};
  GUID next = kOther;
  for (const SummaryStatValue& v : values) {
    ++next.Data1;
    snapshot->SetItem(next, kItem, CBstr(u"\u00e9t\u00e9").Get(), &v);
  }
  std::vector<uint8_t> saved = StreamBytes(snapshot->GetUnknown());
  auto loaded = SummaryStatsSnapshot::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(loaded->GetUnknown(), saved));
  EXPECT_EQ(saved, StreamBytes(loaded->GetUnknown()));
  EXPECT_EQ(Order(snapshot.Get()), Order(loaded.Get()));

  // A short stream fails and keeps what it read; an odd string count fails.
  std::vector<uint8_t> cut(saved.begin(), saved.end() - 10);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(loaded->GetUnknown(), cut));
  EXPECT_EQ(Order(snapshot.Get()).size() - 1, Order(loaded.Get()).size());
  std::vector<uint8_t> odd = saved;
  odd[16] = 5;
  EXPECT_EQ(E_FAIL, LoadStreamBytes(loaded->GetUnknown(), odd));
}

TEST_F(SnapshotTest, XmlFormCarriesEachTypeAndRefusesWhatIsMissing) {
  snapshot->SetName(CBstr(u"tick").Get());
  const SummaryStatValue pair = SummaryPair(3, 400), rate = SummaryDouble(0.1), start = SummaryCount(kSummaryTime, 77);
  snapshot->SetItem(kItem, kGroup, CBstr(u"pairs").Get(), &pair);
  snapshot->SetItem(kOther, kGroup, nullptr, &rate);
  GUID third = kOther;
  ++third.Data1;
  snapshot->SetItem(third, GUID_NULL, nullptr, &start);
  const std::string xml = XmlOf(snapshot->GetUnknown());
  EXPECT_NE(std::string::npos,
            xml.find("<stat id=\"{11111111-0000-0000-0000-000000000001}\" parent=\"{00000000-0000-0000-0000-"
                     "000000000000}\" label=\"\" type=\"0\"/>"))
      << xml;
  EXPECT_NE(std::string::npos, xml.find("type=\"6\" packets=\"3\" bytes=\"400\"")) << xml;
  EXPECT_NE(std::string::npos, xml.find("type=\"2\" time=\"77\"")) << xml;

  // The element itself is what loads.
  auto load = [&](const std::string& markup) {
    auto document = testing_support::ParseXml(markup);
    ComPtr<IXMLDOMElement> root;
    document->get_documentElement(root.ReleaseAndGetAddressOf());
    auto copy = SummaryStatsSnapshot::Create();
    return std::make_pair(LoadObjectFromXml(copy->GetUnknown(), document.Get(), root.Get()), copy);
  };
  auto [hr, copy] = load(xml);
  ASSERT_EQ(S_OK, hr);
  EXPECT_EQ(xml, XmlOf(copy->GetUnknown()));
  SummaryStatValue back{};
  copy->GetValue(kOther, &back);
  EXPECT_EQ(0.1, double{back.Double});

  EXPECT_EQ(E_FAIL, load(Edited(xml, " name=\"tick\"", "")).first);
  EXPECT_EQ(E_FAIL, load(Edited(xml, " label=\"pairs\"", "")).first);
  EXPECT_EQ(E_FAIL, load(Edited(xml, " bytes=\"400\"", "")).first);
  EXPECT_EQ(E_FAIL, load(Edited(xml, "type=\"6\"", "type=\"9\"")).first);
  // A value of no known type has no XML form.
  const SummaryStatValue unknown = SummaryValue(9);
  snapshot->SetValue(kItem, &unknown);
  auto target = CreateXmlDocument();
  EXPECT_EQ(E_FAIL, SaveObjectToXml(snapshot->GetUnknown(), target.Get(), target.Get(), FALSE));
}

TEST_F(SnapshotTest, CloneIsAnEqualAndSeparateCopy) {
  snapshot->SetName(CBstr(u"now").Get());
  const SummaryStatValue v = SummaryCount(kSummaryBytes, 9);
  snapshot->SetItem(kItem, kGroup, CBstr(u"x").Get(), &v);
  ComPtr<IUnknown> made;
  ASSERT_EQ(S_OK, snapshot->Clone(made.ReleaseAndGetAddressOf()));
  ComPtr<ISummaryStatsSnapshot> copy = made.Query<ISummaryStatsSnapshot>();
  EXPECT_EQ(StreamBytes(snapshot->GetUnknown()), StreamBytes(copy.Get()));
  const SummaryStatValue w = SummaryCount(kSummaryBytes, 10);
  copy->SetValue(kItem, &w);
  copy->RemoveItem(kGroup);
  EXPECT_EQ(9u, Count(kItem));
  EXPECT_EQ(2u, Order(snapshot.Get()).size());
}

}  // namespace
}  // namespace zemo::testing
