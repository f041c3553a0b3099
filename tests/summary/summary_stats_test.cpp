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
#include "support/scratch_dir.h"

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
    ComPtr<IDataTable> table;
    EXPECT_EQ(S_OK, summary->GetTable(table.ReleaseAndGetAddressOf()));
    ComPtr<IDataRows> rows;
    table->GetRows(rows.ReleaseAndGetAddressOf());
    LONG count = 0;
    rows->GetCount(&count);
    std::string out;
    for (LONG i = 0; i < count; ++i) {
      ComPtr<IDataRow> row;
      rows->GetRow(i, row.ReleaseAndGetAddressOf());
      for (LONG c = 0; c < 3; ++c) {
        CVariant cell;
        row->GetValue(c, &cell);
        out += cli::CellText(cell) + (c < 2 ? "|" : "\n");
      }
    }
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
    ASSERT_EQ(S_OK, asXml ? LoadXml(other->GetUnknown(), xml) : LoadBytes(other->GetUnknown(), bytes));
    ComPtr<ISummaryStatsSnapshot> after;
    other->GetSnapshot(0, after.ReleaseAndGetAddressOf());
    EXPECT_EQ(itsCurrent.Get(), after.Get());
    EXPECT_EQ(IdOf(current.Get()), IdOf(after.Get()));
    EXPECT_EQ(bytes, StreamBytes(other->GetUnknown()));
    // A second load finds the stored one by its id instead of adding it again.
    ASSERT_EQ(S_OK, asXml ? LoadXml(other->GetUnknown(), xml) : LoadBytes(other->GetUnknown(), bytes));
    LONG count = 0;
    other->GetSnapshotCount(&count);
    EXPECT_EQ(2, count);
  }

  // A stored snapshot with the current one's id loads into the current one: the last read wins.
  stored->SetID(IdOf(current.Get()));
  stored->RemoveAll();
  auto other = SummaryStats::Create();
  ASSERT_EQ(S_OK, LoadBytes(other->GetUnknown(), StreamBytes(summary->GetUnknown())));
  LONG count = 0, items = -1;
  other->GetSnapshotCount(&count);
  EXPECT_EQ(1, count);
  ComPtr<ISummaryStatsSnapshot> merged;
  other->GetSnapshot(0, merged.ReleaseAndGetAddressOf());
  merged->GetItemCount(&items);
  EXPECT_EQ(0, items);

  EXPECT_EQ(E_FAIL, LoadXml(other->GetUnknown(), "<root/>"));
  EXPECT_EQ(E_FAIL, LoadXml(other->GetUnknown(), Edited(xml, "cursnap=", "current=")));
  EXPECT_EQ(E_FAIL, LoadBytes(other->GetUnknown(), std::vector<uint8_t>(bytes.begin(), bytes.begin() + 30)));
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

TEST_F(SummaryStatsTest, SelectionUpdatesAndTrackersNeedTheirClass) {
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

  // A tracker is made by its class from an item's id in text.
  ComPtr<IZemoStatsTracker> tracker;
  EXPECT_EQ(E_POINTER, summary->CreateTracker(CVariant::Str(u"{22222222-0000-0000-0000-000000000001}"), nullptr));
  EXPECT_EQ(E_INVALIDARG, summary->CreateTracker(CVariant::Str(u"not an id"), tracker.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, summary->CreateTracker(CVariant::Unknown(summary->GetUnknown()),
                                                 tracker.ReleaseAndGetAddressOf()));
  EXPECT_EQ(REGDB_E_CLASSNOTREG, summary->CreateTracker(CVariant::Str(u"{22222222-0000-0000-0000-000000000001}"),
                                                        tracker.ReleaseAndGetAddressOf()));
  EXPECT_EQ(nullptr, tracker.Get());
}

}  // namespace
}  // namespace zemo::testing
