// The record table on a record shaped like the hierarchy's: a two-part key
// in front of the link, counters behind it, and few buckets, so that chains
// are long and every row loses its link from the middle.
#include "support/scratch_dir.h"
#include "tables/record_table.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

#include "frame/xml_persist.h"
#include "tables/conversation_stat.h"
#include "platform/object.h"

namespace {

using zemo::CBstr;
using zemo::ComPtr;
using zemo::kNoRecord;
using zemo::RecordField;

#pragma pack(push, 4)
struct PairEntry {
  ULONG A;
  ULONG B;
  ULONG Next;
  ULONGLONG Total;
  USHORT Small;
  USHORT Spare;
};
#pragma pack(pop)
static_assert(sizeof(PairEntry) == 24);

struct PairTraits {
  using Entry = PairEntry;
  using Key = uint64_t;
  static constexpr uint32_t kBuckets = 7;
  static constexpr uint32_t kBlockLength = 4;
  static constexpr size_t kLinkOffset = offsetof(Entry, Next);
  static uint32_t Bucket(Key key) noexcept {
    return ((uint32_t(key >> 32) << 16) | (uint32_t(key) & 0xFFFF)) % kBuckets;
  }
  static Key KeyOf(const Entry& e) noexcept { return uint64_t(e.A) << 32 | e.B; }
  static void Start(Entry& e, Key key) noexcept {
    e.A = uint32_t(key >> 32);
    e.B = uint32_t(key);
    e.Small = 0xFFFF;
  }
  static bool Since(const Entry& e, ZemoTime t) noexcept { return e.Total >= t; }
  static constexpr RecordField kKeyFields[] = {{u"A", VT_UI4, offsetof(Entry, A)}, {u"B", VT_UI4, offsetof(Entry, B)}};
  static constexpr RecordField kFields[] = {{u"Total", VT_UI8, offsetof(Entry, Total)},
                                            {u"Small", VT_UI2, offsetof(Entry, Small)},
                                            {u"Spare", VT_UI2, offsetof(Entry, Spare)}};
};
using PairTable = zemo::TRecordTable<PairTraits>;

// By value: the counter of a packed record sits where no reference may bind.
uint64_t TotalOf(const PairEntry& e) { return e.Total; }

uint64_t K(uint32_t a, uint32_t b) { return uint64_t(a) << 32 | b; }

// n records, keys (i, 0xFFFFFFFF - i), Total = i.
void Fill(PairTable& t, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) t.FindOrAdd(K(i, 0xFFFFFFFF - i)).Total = i;
}

TEST(RecordTable, FindsAddsAndChainsNewRecordsFirst) {
  PairTable t;
  EXPECT_EQ(kNoRecord, t.Find(K(1, 2)));
  uint32_t first = t.Add(K(1, 2));
  EXPECT_EQ(0u, first);
  EXPECT_EQ(0xFFFF, t[first].Small);  // Start ran on a zeroed record
  EXPECT_EQ(kNoRecord, PairTable::Link(t[first]));
  // Same bucket: 7 apart in the low half of the hash.
  uint32_t second = t.Add(K(1, 9));
  EXPECT_EQ(first, PairTable::Link(t[second]));
  EXPECT_EQ(second, t.Find(K(1, 9)));
  EXPECT_EQ(first, t.Find(K(1, 2)));
  EXPECT_EQ(&t[second], &t.FindOrAdd(K(1, 9)));
  EXPECT_EQ(2u, t.GetCount());

  // Many records over few buckets: each is still found, and never moves.
  Fill(t, 1000);
  const PairEntry* kept = &t[500];
  Fill(t, 2000);
  EXPECT_EQ(kept, &t[500]);
  for (uint32_t i = 0; i < 2000; i += 37) EXPECT_EQ(i, TotalOf(t[t.Find(K(i, 0xFFFFFFFF - i))]));

  t.Clear();
  EXPECT_EQ(0u, t.GetCount());
  EXPECT_EQ(kNoRecord, t.Find(K(1, 2)));
  EXPECT_EQ(nullptr, t.Get(0));
}

// What a table that finds through its index holds, and the chains it keeps,
// against one that finds by walking its chains alone: the same ".hash" dump
// and the same rows, after lookups, a delta load and a reset with a reload.
template <class Table>
void ExpectIndexMatchesChainWalks(const std::function<typename Table::Key(uint32_t)>& keyOf) {
  using Key = typename Table::Key;
  Table indexed, walked;
  auto walkedFindOrAdd = [&](Key key) -> typename Table::Entry& {
    uint32_t i = walked.ChainFind(key);
    return walked[i != kNoRecord ? i : walked.Add(key)];
  };
  zemo::testing_support::ScratchDir dir;
  auto same = [&](const char* when) {
    std::u16string a = dir.WideFile("indexed.hash"), b = dir.WideFile("walked.hash");
    ASSERT_EQ(S_OK, indexed.SaveHashDump(a.c_str(), {zemo::FileOpenStyle::System, true}));
    ASSERT_EQ(S_OK, walked.SaveHashDump(b.c_str(), {zemo::FileOpenStyle::System, true}));
    EXPECT_EQ(zemo::testing_support::ReadFile(b), zemo::testing_support::ReadFile(a)) << when;
    auto rowsA = zemo::CreateMemoryStream(), rowsB = zemo::CreateMemoryStream();
    indexed.SaveRows(rowsA.Get(), 0);
    walked.SaveRows(rowsB.Get(), 0);
    EXPECT_EQ(zemo::MemoryStreamBytes(rowsB.Get()), zemo::MemoryStreamBytes(rowsA.Get())) << when;
  };
  // Keys seen again and again in an order unrelated to their first sighting.
  for (uint32_t k = 0; k < 30000; ++k) {
    Key key = keyOf(k * 7 % 9000);
    indexed.FindOrAdd(key);
    walkedFindOrAdd(key);
  }
  same("after lookups");

  Table source;
  for (uint32_t k = 12000; k > 6000; --k) source.FindOrAdd(keyOf(k));
  auto delta = zemo::CreateMemoryStream();
  source.SaveRows(delta.Get(), 0);
  std::vector<uint8_t> bytes = zemo::MemoryStreamBytes(delta.Get());
  auto in = zemo::CreateMemoryStream(bytes.data(), bytes.size());
  indexed.LoadRows(in.Get());
  in = zemo::CreateMemoryStream(bytes.data(), bytes.size());
  walked.LoadRows(in.Get(), walkedFindOrAdd);
  same("after a delta load");

  indexed.Clear();
  walked.Clear();
  for (uint32_t k = 0; k < 5000; ++k) {
    indexed.FindOrAdd(keyOf(k * 11 % 4000));
    walkedFindOrAdd(keyOf(k * 11 % 4000));
  }
  in = zemo::CreateMemoryStream(bytes.data(), bytes.size());
  indexed.LoadRows(in.Get());
  in = zemo::CreateMemoryStream(bytes.data(), bytes.size());
  walked.LoadRows(in.Get(), walkedFindOrAdd);
  same("after a reset and a reload");
}

TEST(RecordTable, AnIndexedTableMatchesOneBuiltByChainWalks) {
  // A 64-bit key is filed under its hash; a 32-bit key is its own tag.
  ExpectIndexMatchesChainWalks<PairTable>([](uint32_t k) { return K(k % 97, k * 2654435761u); });
  ExpectIndexMatchesChainWalks<zemo::CConversationTable>([](uint32_t k) { return (k % 9 << 28) | (k * 3079); });
}

TEST(RecordTable, CopyEntryZeroesOnABadIndex) {
  PairTable t;
  Fill(t, 3);
  PairEntry e{};
  t.CopyEntry(zemo::CBlockStore::kLastIndex, &e);
  EXPECT_EQ(2u, e.A);
  std::memset(&e, 0x5A, sizeof e);
  EXPECT_EQ(E_FAIL, zemo::Boundary([&] { t.CopyEntry(3, &e); }));
  EXPECT_EQ(0u, e.A + e.B + e.Next + e.Total + e.Small);
  EXPECT_EQ(E_POINTER, zemo::Boundary([&] { t.CopyEntry(0, nullptr); }));
}

TEST(RecordTable, RowsDropTheLinkFromTheMiddleAndCountOnlyWhatPasses) {
  PairTable t;
  Fill(t, 1300);  // more rows than one write takes
  auto stream = zemo::CreateMemoryStream();
  t.SaveRows(stream.Get(), 1000);
  std::vector<uint8_t> bytes = zemo::MemoryStreamBytes(stream.Get());
  ASSERT_EQ(4u + 300 * 20, bytes.size());
  ULONG count, a, b;
  ULONGLONG total;
  std::memcpy(&count, &bytes[0], 4);
  std::memcpy(&a, &bytes[4], 4);
  std::memcpy(&b, &bytes[8], 4);
  std::memcpy(&total, &bytes[12], 8);
  EXPECT_EQ(300u, count);
  EXPECT_EQ(1000u, a);
  EXPECT_EQ(0xFFFFFFFF - 1000u, b);
  EXPECT_EQ(1000u, total);

  // Loading goes through the caller's find-or-add, and keeps the reader's links.
  PairTable reader;
  reader.FindOrAdd(K(1299, 0xFFFFFFFF - 1299)).Total = 5;
  std::vector<uint64_t> asked;
  auto in = zemo::CreateMemoryStream(bytes.data(), bytes.size());
  reader.LoadRows(in.Get(), [&](uint64_t key) -> PairEntry& {
    asked.push_back(key);
    return reader.FindOrAdd(key);
  });
  ASSERT_EQ(300u, asked.size());
  EXPECT_EQ(K(1000, 0xFFFFFFFF - 1000), asked.front());
  EXPECT_EQ(300u, reader.GetCount());
  EXPECT_EQ(1299u, TotalOf(reader[0]));  // replaced, not added to
  for (uint32_t i = 0; i < reader.GetCount(); ++i) {
    uint32_t found = reader.Find(PairTraits::KeyOf(reader[i]));
    EXPECT_EQ(i, found);
  }
}

TEST(RecordTable, XmlRowsCarryTheWholeKeyAndEveryField) {
  PairTable t;
  Fill(t, 5);
  t[3].Small = 17;
  ComPtr<IXMLDOMDocument> document = zemo::CreateXmlDocument();
  ComPtr<IXMLDOMElement> root;
  ASSERT_EQ(S_OK, document->createElement(CBstr(u"rows").Get(), root.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, zemo::Boundary([&] { t.SaveXmlRows(document.Get(), root.Get(), 2); }));
  CBstr markup;
  ASSERT_EQ(S_OK, root->get_xml(markup.Out()));
  std::string text = markup.Utf8();
  EXPECT_EQ(3, [&] {
    int n = 0;
    for (size_t at = text.find("<stat>"); at != std::string::npos; at = text.find("<stat>", at + 1)) ++n;
    return n;
  }());
  EXPECT_NE(std::string::npos, text.find("<prop name=\"Small\" type=\"18\">17</prop>"));

  PairTable back;
  ASSERT_EQ(S_OK, zemo::Boundary([&] { back.LoadXmlRows(root.Get()); }));
  ASSERT_EQ(3u, back.GetCount());
  EXPECT_EQ(2u, back[0].A);
  EXPECT_EQ(0xFFFFFFFF - 2u, back[0].B);
  EXPECT_EQ(17, back[1].Small);
  EXPECT_EQ(4u, TotalOf(back[2]));
}

TEST(RecordTable, ABrokenChainFailsTheWalkAndTheDump) {
  PairTable t;
  Fill(t, 10);
  uint32_t victim = t.Find(K(9, 0xFFFFFFFF - 9));
  t.SetLinkForTesting(victim, 1234);
  // A key of the same bucket that is not in front of the break.
  uint64_t missing = K(9, 0xFFFFFFFF - 9 + 7);
  EXPECT_EQ(E_FAIL, zemo::Boundary([&] { (void)t.ChainFind(missing); }));

  zemo::testing_support::ScratchDir dir;
  std::u16string name = dir.WideFile("broken.hash");
  EXPECT_EQ(E_FAIL, t.SaveHashDump(name.c_str(), {zemo::FileOpenStyle::System, false}));
  EXPECT_FALSE(std::filesystem::exists(dir.File("broken.hash")));

  // Intact, without the summary line: one line per bucket and nothing else.
  PairTable whole;
  Fill(whole, 10);
  ASSERT_EQ(S_OK, whole.SaveHashDump(name.c_str(), {zemo::FileOpenStyle::System, false}));
  std::string dump = zemo::testing_support::ReadFile(name);
  EXPECT_EQ(7, std::count(dump.begin(), dump.end(), '\n'));
  EXPECT_EQ(std::string::npos, dump.find("size="));
}

}  // namespace
