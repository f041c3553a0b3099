// SummaryStats: its list of snapshots, loads that keep the current snapshot,
// the table named through the stat map, the text export, selection and the
// tracker factory; and the stat map reader.
#include "summary/summary_stats.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "cli/report.h"
#include "network/network_fixture.h"
#include "summary/summary_stats_snapshot.h"
#include "summary/summary_stats_tracker.h"
#include "support/scratch_dir.h"
#include "support/table_cells.h"

namespace zemo::testing {
namespace {

using testing_support::ReadFile;
using testing_support::ScratchDir;

constexpr GUID kGroup = MakeGuid("22222222-0000-0000-0000-000000000001");
constexpr GUID kPair = MakeGuid("22222222-0000-0000-0000-000000000002");
constexpr GUID kLabelled = MakeGuid("22222222-0000-0000-0000-000000000003");

// Runs in a folder of its own, so that the module's "Statmap.xml" is the
// test's to make.
class InFolder {
 public:
  InFolder() : m_back(getcwd(nullptr, 0)) { EXPECT_EQ(0, chdir(m_dir.Path().c_str())); }
  ~InFolder() {
    EXPECT_EQ(0, chdir(m_back));
    free(m_back);
  }
  const ScratchDir& Dir() const { return m_dir; }

 private:
  ScratchDir m_dir;
  char* m_back;
};

void WriteText(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

class SummaryStatsTest : public NetworkFixture {
 protected:
  ComPtr<SummaryStats> summary = SummaryStats::Create();

  ComPtr<ISummaryStatsSnapshot> Snapshot(LONG index) {
    ComPtr<ISummaryStatsSnapshot> s;
    EXPECT_EQ(S_OK, summary->GetSnapshot(index, s.ReleaseAndGetAddressOf()));
    return s;
  }
  static GUID IdOf(ISummaryStatsSnapshot* s) {
    GUID id{};
    s->GetID(&id);
    return id;
  }
  // The table as "Group|Stat|Value" lines.
  std::string Table() {
    std::string out;
    for (const auto& row : testing_support::ReadTable(summary.Get()).rows)
      for (size_t c = 0; c < 3 && c < row.size(); ++c) out += cli::CellText(row[c]) + (c < 2 ? "|" : "\n");
    return out;
  }
  void Fill(ISummaryStatsSnapshot* s) {
    const SummaryStatValue pair = SummaryPair(3, 400), count = SummaryCount(kSummaryInt, 7);
    s->SetItem(kPair, kGroup, nullptr, &pair);
    s->SetItem(kLabelled, kGroup, CBstr(u"Seven").Get(), &count);
  }
};

TEST_F(SummaryStatsTest, TheCurrentSnapshotStaysFirstAndStays) {
  LONG count = 0;
  ASSERT_EQ(S_OK, summary->GetSnapshotCount(&count));
  EXPECT_EQ(1, count);
  ComPtr<ISummaryStatsSnapshot> current = Snapshot(0);
  EXPECT_FALSE(IdOf(current.Get()) == GUID_NULL);
  ComPtr<ISummaryStatsSnapshot> none;
  EXPECT_EQ(E_INVALIDARG, summary->GetSnapshot(1, none.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, summary->GetSnapshot(-1, none.ReleaseAndGetAddressOf()));

  auto stored = SummaryStatsSnapshot::Create();
  EXPECT_EQ(S_OK, summary->AddSnapshot(stored.Get()));
  EXPECT_EQ(S_OK, summary->AddSnapshot(stored.Get()));
  summary->GetSnapshotCount(&count);
  EXPECT_EQ(2, count);
  ComPtr<ISummaryStatsSnapshot> found;
  EXPECT_EQ(S_OK, summary->FindSnapshot(IdOf(stored.Get()), found.ReleaseAndGetAddressOf()));
  EXPECT_EQ(static_cast<ISummaryStatsSnapshot*>(stored.Get()), found.Get());
  EXPECT_EQ(E_FAIL, summary->FindSnapshot(kGroup, found.ReleaseAndGetAddressOf()));
  EXPECT_EQ(nullptr, found.Get());
  EXPECT_EQ(E_FAIL, summary->RemoveSnapshot(current.Get()));
  EXPECT_EQ(E_FAIL, summary->RemoveSnapshot(SummaryStatsSnapshot::Create().Get()));
  EXPECT_EQ(E_POINTER, summary->AddSnapshot(nullptr));

  // A context's reset leaves them all.
  Fill(current.Get());
  auto context = StatsContext::Create();
  ASSERT_EQ(S_OK, context->AddStats(CLSID_SummaryStats, summary.Get()));
  ASSERT_EQ(S_OK, static_cast<IZemoStatsContext*>(context.Get())->Reset());
  summary->GetSnapshotCount(&count);
  EXPECT_EQ(2, count);
  LONG items = 0;
  current->GetItemCount(&items);
  EXPECT_EQ(3, items);
  EXPECT_EQ(S_OK, summary->RemoveSnapshot(stored.Get()));
  EXPECT_EQ(1u, stored->RefCountForTesting());
}

TEST_F(SummaryStatsTest, LoadsKeepTheCurrentSnapshotObject) {
  ComPtr<ISummaryStatsSnapshot> current = Snapshot(0);
  Fill(current.Get());
  auto stored = SummaryStatsSnapshot::Create();
  stored->SetName(CBstr(u"stored").Get());
  summary->AddSnapshot(stored.Get());
  const std::vector<uint8_t> bytes = StreamBytes(summary->GetUnknown());
  const std::string xml = XmlOf(summary->GetUnknown());

  for (bool asXml : {false, true}) {
    SCOPED_TRACE(asXml ? "XML" : "stream");
    auto other = SummaryStats::Create();
    ComPtr<ISummaryStatsSnapshot> itsCurrent;
    other->GetSnapshot(0, itsCurrent.ReleaseAndGetAddressOf());
    ASSERT_EQ(S_OK, asXml ? LoadXml(other->GetUnknown(), xml) : LoadStreamBytes(other->GetUnknown(), bytes));
    ComPtr<ISummaryStatsSnapshot> after;
    other->GetSnapshot(0, after.ReleaseAndGetAddressOf());
    EXPECT_EQ(itsCurrent.Get(), after.Get());
    EXPECT_EQ(IdOf(current.Get()), IdOf(after.Get()));
    EXPECT_EQ(bytes, StreamBytes(other->GetUnknown()));
    // A second load finds the stored one by its id instead of adding it again.
    ASSERT_EQ(S_OK, asXml ? LoadXml(other->GetUnknown(), xml) : LoadStreamBytes(other->GetUnknown(), bytes));
    LONG count = 0;
    other->GetSnapshotCount(&count);
    EXPECT_EQ(2, count);
  }

  // A stored snapshot with the current one's id loads into the current one: the last read wins.
  stored->SetID(IdOf(current.Get()));
  stored->RemoveAll();
  auto other = SummaryStats::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(other->GetUnknown(), StreamBytes(summary->GetUnknown())));
  LONG count = 0, items = -1;
  other->GetSnapshotCount(&count);
  EXPECT_EQ(1, count);
  ComPtr<ISummaryStatsSnapshot> merged;
  other->GetSnapshot(0, merged.ReleaseAndGetAddressOf());
  merged->GetItemCount(&items);
  EXPECT_EQ(0, items);

  EXPECT_EQ(E_FAIL, LoadXml(other->GetUnknown(), "<root/>"));
  EXPECT_EQ(E_FAIL, LoadXml(other->GetUnknown(), Edited(xml, "cursnap=", "current=")));
  EXPECT_EQ(E_FAIL, LoadStreamBytes(other->GetUnknown(), std::vector<uint8_t>(bytes.begin(), bytes.begin() + 30)));
}

TEST_F(SummaryStatsTest, TheTableNamesItemsThroughTheStatMap) {
  InFolder folder;
  Fill(Snapshot(0).Get());
  // Without a map: empty names where the items have no labels; groups give no row.
  EXPECT_EQ("||3/400\n|Seven|7\n", Table());

  WriteText("Statmap.xml",
            "<map><stat id=\"{22222222-0000-0000-0000-000000000001}\" name=\"Group\"/>"
            "<other/><stat id=\"{22222222-0000-0000-0000-000000000002}\" name=\"Pairs\"/>"
            "<stat id=\"{22222222-0000-0000-0000-000000000003}\" name=\"never used\"/></map>");
  EXPECT_EQ("Group|Pairs|3/400\nGroup|Seven|7\n", Table());
  // Read once: a changed file is not read again.
  WriteText("Statmap.xml", "<map/>");
  EXPECT_EQ("Group|Pairs|3/400\nGroup|Seven|7\n", Table());

  // The text export: a line per item, groups too, of every snapshot.
  EXPECT_EQ(E_INVALIDARG, summary->Save(folder.Dir().WideFile("s.xml").c_str(), FALSE));
  EXPECT_FALSE(std::ifstream(folder.Dir().File("s.xml")).good());
  ASSERT_EQ(S_OK, summary->Save(folder.Dir().WideFile("s.txt").c_str(), FALSE));
  EXPECT_EQ("{22222222-0000-0000-0000-000000000001}\t\t\n{22222222-0000-0000-0000-000000000002}\t\t3/400\n"
            "{22222222-0000-0000-0000-000000000003}\tSeven\t7\n",
            ReadFile(folder.Dir().File("s.txt")));
}

TEST(StatMap, ReadsWholeOrNotAtAll) {
  ScratchDir dir;
  struct Case {
    const char* text;
    HRESULT result;
    size_t count;
    const char16_t* first;  // the name of the first id
  };
  const Case cases[] = {
      {"<m><stat id=\"{22222222-0000-0000-0000-000000000001}\" name=\"a\"/>"
       "<x id=\"{22222222-0000-0000-0000-000000000002}\" name=\"skipped\"/>"
       "<stat id=\"{22222222-0000-0000-0000-000000000001}\" name=\"b\"/></m>",
       S_OK, 1, u"b"},
      {"<m><stat id=\"{22222222-0000-0000-0000-000000000001}\" name=\"a\"/>"
       "<stat id=\"{22222222-0000-0000-0000-000000000002}\"/></m>",
       E_FAIL, 0, u""},
      {"<m><stat name=\"a\"/></m>", E_FAIL, 0, u""},
      {"not xml", E_FAIL, 0, u""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    WriteText(dir.File("map.xml"), c.text);
    CStatMap map;
    EXPECT_EQ(c.result, map.Load(dir.WideFile("map.xml")));
    EXPECT_EQ(c.count, map.Count());
    std::u16string name = u"left over";
    EXPECT_EQ(c.count ? S_OK : E_FAIL, map.Lookup(kGroup, name));
    EXPECT_EQ(c.first, name);
  }
  CStatMap missing;
  EXPECT_EQ(E_FAIL, missing.Load(dir.WideFile("absent.xml")));
}

TEST_F(SummaryStatsTest, SelectionUpdatesTheSummary) {
  auto context = StatsContext::Create();
  ASSERT_EQ(S_OK, context->AddStats(CLSID_SummaryStats, summary.Get()));
  auto params = Create<ISelectParams>(CLSID_ZemoSelectParams);
  ComPtr<IUnknown> out;
  // The path ends here: the summary is brought up to date, then it is the result.
  ASSERT_EQ(S_OK, summary->Select(params.Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(summary->GetUnknown(), out.Get());
  LONG items = 0;
  Snapshot(0)->GetItemCount(&items);
  EXPECT_EQ(10, items);  // the start's date and time, the counts of the context's entities, and their groups
  params->AddItem(CBstr(u"deeper").Get(), nullptr);
  EXPECT_EQ(E_NOTIMPL, summary->Select(params.Get(), out.ReleaseAndGetAddressOf()));
  context->SetStatsUpdater(nullptr);
  EXPECT_EQ(E_FAIL, summary->Select(Create<ISelectParams>(CLSID_ZemoSelectParams).Get(), out.ReleaseAndGetAddressOf()));
}

// A tracker follows one item of the current snapshot: the value's own type
// decides what a sample is, an item that is missing or has no number leaves
// the ring as it was, and the settings survive XML and a clone.
TEST_F(SummaryStatsTest, TrackersFollowAnItemByTheTypeItHolds) {
  auto context = StatsContext::Create();
  ASSERT_EQ(S_OK, context->AddStats(CLSID_SummaryStats, summary.Get()));
  ASSERT_EQ(S_OK, context->SetStatsUpdater(nullptr));  // the test writes the snapshot itself
  ComPtr<IZemoStatsTracker> tracker;
  EXPECT_EQ(E_POINTER, summary->CreateTracker(CVariant::Str(u"{22222222-0000-0000-0000-000000000002}"), nullptr));
  EXPECT_EQ(E_INVALIDARG, summary->CreateTracker(CVariant::Str(u"not an id"), tracker.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, summary->CreateTracker(CVariant::Unknown(summary->GetUnknown()),
                                                 tracker.ReleaseAndGetAddressOf()));

  // Made before its item exists: nothing to track yet, and updates fail
  // without storing anything.
  ASSERT_EQ(S_OK, summary->CreateTracker(CVariant::Str(u"{22222222-0000-0000-0000-000000000002}"),
                                         tracker.ReleaseAndGetAddressOf()));
  auto keyed = ComPtr<IZemoStatsTracker>(tracker).Query<ISummaryStatsTracker>();
  LONG count = -1;
  ASSERT_EQ(S_OK, tracker->GetStatCount(&count));
  EXPECT_EQ(0, count);
  EXPECT_EQ(E_FAIL, tracker->Update(7 * kSecond));
  ZemoTime last = 1;
  tracker->GetLastTime(&last);
  EXPECT_EQ(0u, last);

  // A pair: stat 5 samples its bytes, any other stat its packets.
  SummaryStatValue pair = SummaryPair(10, 1000);
  ASSERT_EQ(S_OK, Snapshot(0)->SetItem(kPair, kGroup, nullptr, &pair));
  ASSERT_EQ(S_OK, keyed->SetStatType(kSummaryPair));
  ASSERT_EQ(S_OK, tracker->GetStatCount(&count));
  EXPECT_EQ(2, count);
  CVariant id, name;
  ASSERT_EQ(S_OK, tracker->GetStatID(0, &id));
  EXPECT_EQ(kSummaryPackets, id.lVal);
  ASSERT_EQ(S_OK, tracker->GetStatID(1, &id));
  EXPECT_EQ(kSummaryBytes, id.lVal);
  BSTR text = nullptr;
  EXPECT_EQ(E_INVALIDARG, tracker->GetStatName(CVariant::I4(kSummaryPair), &text));
  ASSERT_EQ(S_OK, tracker->GetStatName(CVariant::I4(kSummaryBytes), &text));
  EXPECT_EQ(u"Bytes", std::u16string_view(text));
  SysFreeString(text);
  double v = 0;
  ASSERT_EQ(S_OK, tracker->Update(8 * kSecond));
  ASSERT_EQ(S_OK, tracker->GetValue(8 * kSecond, &v));
  EXPECT_EQ(10.0, v);  // stat 0
  ASSERT_EQ(S_OK, tracker->SetStat(CVariant::I4(kSummaryBytes)));
  pair = SummaryPair(12, 1500);
  Snapshot(0)->SetValue(kPair, &pair);
  ASSERT_EQ(S_OK, tracker->Update(9 * kSecond));
  ASSERT_EQ(S_OK, tracker->GetValueRate(9 * kSecond, &v));
  EXPECT_EQ(1490.0, v);  // 1500 bytes against the 10 packets sampled a second before

  // The value's own type decides: an int under an expected double.
  SummaryStatValue integer = SummaryValue(kSummaryInt);
  integer.Count = 42;
  Snapshot(0)->SetValue(kPair, &integer);
  ASSERT_EQ(S_OK, keyed->SetStatType(kSummaryDouble));
  ASSERT_EQ(S_OK, tracker->Update(10 * kSecond));
  ASSERT_EQ(S_OK, tracker->GetValue(10 * kSecond, &v));
  EXPECT_EQ(42.0, v);

  // A duration has no number to follow: the update fails, no sample is stored.
  SummaryStatValue duration = SummaryDuration(5 * kSecond);
  Snapshot(0)->SetValue(kPair, &duration);
  EXPECT_EQ(E_FAIL, tracker->Update(11 * kSecond));
  tracker->GetLastTime(&last);
  EXPECT_EQ(10 * kSecond, last);

  // XML and a clone keep the item, the value type, the stat and the history.
  ASSERT_EQ(S_OK, tracker->SetHistory(120));
  ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
  ASSERT_EQ(S_OK, ComPtr<IZemoStatsTracker>(tracker).Query<IPersistXml>()->Save(document.Get(), document.Get(), TRUE));
  auto loaded = SummaryStatsTracker::Create();
  ASSERT_EQ(S_OK, loaded->Load(document.Get(), document.Get()));
  ComPtr<IUnknown> clone;
  ASSERT_EQ(S_OK, ComPtr<IZemoStatsTracker>(tracker).Query<ICloneable>()->Clone(clone.ReleaseAndGetAddressOf()));
  for (IUnknown* copy : {loaded->GetUnknown(), clone.Get()}) {
    auto t = ComPtr<IUnknown>(copy).Query<IZemoStatsTracker>();
    auto k = ComPtr<IUnknown>(copy).Query<ISummaryStatsTracker>();
    GUID item{};
    ULONG type = 0;
    LONG history = 0;
    CVariant stat;
    k->GetItemID(&item);
    k->GetStatType(&type);
    t->GetHistory(&history);
    t->GetStat(&stat);
    EXPECT_TRUE(item == kPair);
    EXPECT_EQ(ULONG{kSummaryDouble}, type);
    EXPECT_EQ(120, history);
    EXPECT_EQ(kSummaryBytes, stat.lVal);
  }
}

}  // namespace
}  // namespace zemo::testing
