#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/scratch_dir.h"
#include "frame/xml_persist.h"
#include "tests/tables/node_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace zemo::testing;
using zemo::CBstr;
using zemo::ComPtr;
using zemo::NodeStats;

// Eight nodes talking in a ring, then the first three again a minute later.
void Traffic(NodeStatsFixture& f, NodeStats* s, ZemoTime start, uint8_t base) {
  for (uint8_t i = 0; i < 8; ++i)
    ASSERT_EQ(S_OK, f.Send(Mac(base + i), Ip(10, 0, 0, base + i), Mac(base + (i + 1) % 8), Ip(10, 0, 0, base + (i + 1) % 8),
                           USHORT(100 + i), start + i * kSecond, s));
}

ULONG ResetCount(NodeStats* s) {
  ULONG n = 0;
  EXPECT_EQ(S_OK, s->GetResetCount(&n));
  return n;
}

using NodeStatsStreams = NodeStatsFixture;

TEST_F(NodeStatsStreams, RowsAreTheRecordWithoutItsLinkByteForByte) {
  ASSERT_EQ(S_OK, Send(kNone, kNone, kNone, kNone, 1, kT0));
  ASSERT_EQ(S_OK, SendMac(0x01, 0x02, 300, kT0 + 5));
  std::vector<uint8_t> bytes = DeltaBytes(stats.Get(), 0);
  ASSERT_EQ(8u + 2 * 108, bytes.size());
  ULONG resetCount, rows, key;
  std::memcpy(&resetCount, &bytes[0], 4);
  std::memcpy(&rows, &bytes[4], 4);
  EXPECT_EQ(ResetCount(stats.Get()), resetCount);
  EXPECT_EQ(2u, rows);
  ZemoNodeStatEntry e = Record(Mac(0x01));
  std::memcpy(&key, &bytes[8], 4);
  EXPECT_EQ(e.EntityIndex, key);
  EXPECT_EQ(0, std::memcmp(&bytes[12], &e.Stat, sizeof e.Stat));
  ZemoTime firstSent;
  std::memcpy(&firstSent, &bytes[12], 8);
  EXPECT_EQ(kT0 + 5, firstSent);
  // The second row starts right behind the first: no link between them.
  std::memcpy(&key, &bytes[8 + 108], 4);
  EXPECT_EQ(EntityOf(Mac(0x02)), key);
}

TEST_F(NodeStatsStreams, DeltasAppliedInOrderGiveTheWritersTable) {
  auto reader = Sibling();
  Traffic(*this, stats.Get(), kT0, 0);
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), DeltaBytes(stats.Get(), 0)));
  EXPECT_EQ(Rows(stats.Get()), Rows(reader.Get()));

  // Later traffic touches some old nodes and adds new ones.
  const ZemoTime later = kT0 + 60 * kSecond;
  ASSERT_EQ(S_OK, SendMac(0, 1, 900, later));
  ASSERT_EQ(S_OK, SendMac(0, 0x40, 901, later + 1));
  std::vector<uint8_t> delta = DeltaBytes(stats.Get(), later);
  ULONG rows = 0;
  std::memcpy(&rows, &delta[4], 4);
  EXPECT_EQ(3u, rows);  // the count was fixed up from the table's 17
  EXPECT_EQ(8u + 3 * 108, delta.size());

  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), delta));
  EXPECT_EQ(Rows(stats.Get()), Rows(reader.Get()));
  // A row carries totals: the same delta again changes nothing.
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), delta));
  EXPECT_EQ(Rows(stats.Get()), Rows(reader.Get()));
  EXPECT_EQ(ResetCount(stats.Get()), ResetCount(reader.Get()));
}

TEST_F(NodeStatsStreams, AWriterResetInBetweenMakesTheReaderDropItsTable) {
  auto reader = Sibling();
  Traffic(*this, stats.Get(), kT0, 0);
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), DeltaBytes(stats.Get(), 0)));
  ASSERT_EQ(16u, Count(reader.Get()));

  ASSERT_EQ(S_OK, stats->Reset());
  const ZemoTime later = kT0 + 60 * kSecond;
  ASSERT_EQ(S_OK, SendMac(0x50, 0x51, 64, later));
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), DeltaBytes(stats.Get(), later)));
  EXPECT_EQ(Rows(stats.Get()), Rows(reader.Get()));
  EXPECT_EQ(2u, Count(reader.Get()));
  EXPECT_EQ(ResetCount(stats.Get()), ResetCount(reader.Get()));
}

TEST_F(NodeStatsStreams, ADeltaLaterThanEveryRecordIsTheResetCountAndNoRows) {
  Traffic(*this, stats.Get(), kT0, 0);
  std::vector<uint8_t> bytes = DeltaBytes(stats.Get(), kT0 + 3600 * kSecond);
  ASSERT_EQ(8u, bytes.size());
  ULONG resetCount = 0, rows = 1;
  std::memcpy(&resetCount, &bytes[0], 4);
  std::memcpy(&rows, &bytes[4], 4);
  EXPECT_EQ(ResetCount(stats.Get()), resetCount);
  EXPECT_EQ(0u, rows);
}

TEST_F(NodeStatsStreams, ShortAndLyingStreamsFailWithoutReadingPastThem) {
  Traffic(*this, stats.Get(), kT0, 0);
  std::vector<uint8_t> whole = DeltaBytes(stats.Get(), 0);
  // Every cut: E_FAIL, and exactly the whole rows before the cut are there.
  for (size_t cut = 0; cut < whole.size(); cut += 13) {
    auto reader = Sibling();
    std::vector<uint8_t> part(whole.begin(), whole.begin() + cut);
    EXPECT_EQ(E_FAIL, LoadStreamBytes(reader.Get(), part)) << cut;
    size_t rows = cut < 8 ? 0 : (cut - 8) / 108;
    EXPECT_EQ(rows, Count(reader.Get())) << cut;
  }
  // A count far beyond the rows given.
  std::vector<uint8_t> lying = whole;
  const ULONG huge = 0xFFFFFFF0;
  std::memcpy(&lying[4], &huge, 4);
  auto reader = Sibling();
  EXPECT_EQ(E_FAIL, LoadStreamBytes(reader.Get(), lying));
  EXPECT_EQ(16u, Count(reader.Get()));
}

TEST_F(NodeStatsStreams, TheSameResetCountMergesAndAnotherEmptiesFirst) {
  auto reader = Sibling();
  ASSERT_EQ(S_OK, SendMac(0x01, 0x02, 64, kT0));
  // Make the two agree on the reset count, then give the reader its own records.
  while (ResetCount(reader.Get()) < ResetCount(stats.Get())) ASSERT_EQ(S_OK, reader->Reset());
  ASSERT_EQ(S_OK, SendMac(0x60, 0x61, 64, kT0, reader.Get()));
  ASSERT_EQ(ResetCount(stats.Get()), ResetCount(reader.Get()));
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), DeltaBytes(stats.Get(), 0)));
  EXPECT_EQ(4u, Count(reader.Get()));  // merged

  ASSERT_EQ(S_OK, stats->Reset());
  ASSERT_EQ(S_OK, SendMac(0x01, 0x02, 64, kT0));
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), DeltaBytes(stats.Get(), 0)));
  EXPECT_EQ(2u, Count(reader.Get()));  // emptied first
}

// ---- XML ---------------------------------------------------------------------

class NodeStatsXml : public NodeStatsFixture {
 protected:
  ComPtr<IXMLDOMElement> NewRoot(ComPtr<IXMLDOMDocument>& document) {
    document = zemo::CreateXmlDocument();
    ComPtr<IXMLDOMElement> root;
    EXPECT_EQ(S_OK, document->createElement(CBstr(u"root").Get(), root.ReleaseAndGetAddressOf()));
    EXPECT_EQ(S_OK, document->appendChild(root.Get(), nullptr));
    return root;
  }
  static std::string Markup(IXMLDOMNode* node) {
    CBstr text;
    EXPECT_EQ(S_OK, node->get_xml(text.Out()));
    return text.Utf8();
  }
  HRESULT LoadXml(NodeStats* s, IXMLDOMDocument* document) {
    ComPtr<IXMLDOMElement> root;
    EXPECT_EQ(S_OK, document->get_documentElement(root.ReleaseAndGetAddressOf()));
    return static_cast<IPersistXml*>(s)->Load(document, root.Get());
  }
};

TEST_F(NodeStatsXml, SaveAndLoadGiveTheSameTableAndDeltasCarryOnlyWhatMoved) {
  Traffic(*this, stats.Get(), kT0, 0);
  ComPtr<IXMLDOMDocument> document;
  ComPtr<IXMLDOMElement> root = NewRoot(document);
  ASSERT_EQ(S_OK, static_cast<IPersistXml*>(stats.Get())->Save(document.Get(), root.Get(), TRUE));
  std::string markup = Markup(root.Get());
  EXPECT_NE(std::string::npos, markup.find("<nodestats resetcount=\"" + std::to_string(ResetCount(stats.Get())) + "\">"));
  EXPECT_NE(std::string::npos, markup.find("name=\"EntityIndex\" type=\"19\""));
  EXPECT_NE(std::string::npos, markup.find("name=\"MinPacketSizeSent\" type=\"18\""));
  EXPECT_NE(std::string::npos, markup.find("name=\"BroadcastBytes\" type=\"21\""));

  // A fresh reader has another reset count: it empties (nothing) and takes the writer's.
  auto reader = Sibling();
  ASSERT_EQ(S_OK, LoadXml(reader.Get(), document.Get()));
  EXPECT_EQ(Rows(stats.Get()), Rows(reader.Get()));
  EXPECT_EQ(ResetCount(stats.Get()), ResetCount(reader.Get()));

  const ZemoTime later = kT0 + 60 * kSecond;
  ASSERT_EQ(S_OK, SendMac(0, 0x41, 77, later));
  ComPtr<IXMLDOMDocument> deltaDoc;
  ComPtr<IXMLDOMElement> deltaRoot = NewRoot(deltaDoc);
  ZemoTime since = later;
  ASSERT_EQ(S_OK, stats->SaveDeltas(deltaDoc.Get(), deltaRoot.Get(), &since));
  std::string delta = Markup(deltaRoot.Get());
  size_t stats_ = 0;
  for (size_t at = delta.find("<stat>"); at != std::string::npos; at = delta.find("<stat>", at + 1)) ++stats_;
  EXPECT_EQ(2u, stats_);
  ASSERT_EQ(S_OK, LoadXml(reader.Get(), deltaDoc.Get()));
  ASSERT_EQ(S_OK, LoadXml(reader.Get(), deltaDoc.Get()));
  EXPECT_EQ(Rows(stats.Get()), Rows(reader.Get()));
}

TEST_F(NodeStatsXml, LoadingReadsAnyChildElementAndNeedsEveryProperty) {
  // No nodestats element: nothing happens.
  EXPECT_EQ(S_OK, LoadXml(stats.Get(), ParseXml(u"<root><other/></root>").Get()));
  EXPECT_EQ(0u, Count(stats.Get()));

  // A child of any name is a record; the attribute names are case-blind.
  std::u16string all;
  for (const char16_t* name : {u"FirstTimeSent", u"LastTimeSent", u"FirstTimeReceived", u"LastTimeReceived",
                               u"PacketsSent", u"BytesSent", u"PacketsReceived", u"BytesReceived",
                               u"BroadcastPackets", u"BroadcastBytes", u"MulticastPackets", u"MulticastBytes"})
    all += u"<prop name=\"" + std::u16string(name) + u"\" type=\"21\">3</prop>";
  for (const char16_t* name : {u"MinPacketSizeSent", u"MaxPacketSizeSent", u"MinPacketSizeReceived", u"MaxPacketSizeReceived"})
    all += u"<prop name=\"" + std::u16string(name) + u"\" type=\"18\">9</prop>";
  ULONG rc = ResetCount(stats.Get());
  std::u16string head = u"<root><nodestats resetcount=\"" + zemo::FromUtf8(std::to_string(rc)) + u"\">";
  ASSERT_EQ(S_OK, LoadXml(stats.Get(), ParseXml(head + u"<row><prop name=\"entityindex\" type=\"19\">83886085</prop>" + all +
                                               u"</row>text<!-- c --></nodestats></root>")
                                           .Get()));
  ASSERT_EQ(1u, Count(stats.Get()));
  ZemoNodeStatEntry e{};
  ASSERT_EQ(S_OK, stats->GetNodeEntry(0, &e));
  EXPECT_EQ(83886085u, e.EntityIndex);
  EXPECT_EQ(3u, e.Stat.MulticastBytes);
  EXPECT_EQ(9, e.Stat.MaxPacketSizeReceived);

  // A missing property fails the load; the fields before it stay written.
  EXPECT_EQ(E_FAIL, LoadXml(stats.Get(), ParseXml(head + u"<stat><prop name=\"EntityIndex\" type=\"19\">7</prop>"
                                                      u"<prop name=\"FirstTimeSent\" type=\"21\">42</prop></stat>"
                                                      u"</nodestats></root>")
                                              .Get()));
  ASSERT_EQ(2u, Count(stats.Get()));
  ASSERT_EQ(S_OK, stats->GetNodeEntry(1, &e));
  EXPECT_EQ(7u, e.EntityIndex);
  EXPECT_EQ(42u, e.Stat.FirstTimeSent);
  EXPECT_EQ(0u, e.Stat.LastTimeSent);

  // Without the key nothing is added; an unconvertible value fails.
  EXPECT_EQ(E_FAIL, LoadXml(stats.Get(), ParseXml(head + u"<stat>" + all + u"</stat></nodestats></root>").Get()));
  EXPECT_NE(S_OK, LoadXml(stats.Get(), ParseXml(head + u"<stat><prop name=\"EntityIndex\" type=\"19\">x</prop>" + all +
                                                  u"</stat></nodestats></root>")
                                              .Get()));
  EXPECT_EQ(2u, Count(stats.Get()));

  // An absent resetcount counts as the same: the table stays.
  ASSERT_EQ(S_OK, LoadXml(stats.Get(), ParseXml(u"<root><nodestats/></root>").Get()));
  EXPECT_EQ(2u, Count(stats.Get()));
  EXPECT_EQ(rc, ResetCount(stats.Get()));
  // Another resetcount empties the table first.
  ASSERT_EQ(S_OK, LoadXml(stats.Get(), ParseXml(u"<root><nodestats resetcount=\"77\"/></root>").Get()));
  EXPECT_EQ(0u, Count(stats.Get()));
  EXPECT_EQ(77u, ResetCount(stats.Get()));
}

// ---- exports -----------------------------------------------------------------

class NodeStatsExport : public NodeStatsFixture {
 protected:
  std::u16string Name(const std::string& leaf) const { return m_dir.WideFile(leaf); }
  static std::string Contents(const std::u16string& name) { return zemo::testing_support::ReadFile(name); }
  HRESULT Export(const std::u16string& name) { return static_cast<IPersistFile*>(stats.Get())->Save(name.c_str(), FALSE); }

  zemo::testing_support::ScratchDir m_dir;
};

TEST_F(NodeStatsExport, TextLinesAreKeyAndLinkInRecordOrder) {
  Traffic(*this, stats.Get(), kT0, 0);
  std::u16string name = Name("nodes.TXT");
  ASSERT_EQ(S_OK, Export(name));
  std::string expected;
  for (ULONG i = 0; i < Count(stats.Get()); ++i) {
    ZemoNodeStatEntry e{};
    ASSERT_EQ(S_OK, stats->GetNodeEntry(i, &e));
    char line[32];
    std::snprintf(line, sizeof line, "0x%8.8X\t0x%8.8X\n", e.EntityIndex, e.Next);
    expected += line;
  }
  EXPECT_EQ(expected, Contents(name));
  EXPECT_NE(std::string::npos, expected.find("\t0xFFFFFFFF\n"));

  EXPECT_EQ(E_INVALIDARG, Export(Name("nodes.csv")));
  EXPECT_FALSE(fs::exists(m_dir.File("nodes.csv")));
  // The system's error for a file that can't be made, E_FAIL for the dump.
  EXPECT_EQ(HresultFromErrno(ENOENT), Export(Name("missing/nodes.txt")));
  EXPECT_EQ(E_FAIL, Export(Name("missing/nodes.hash")));
}

TEST_F(NodeStatsExport, TheHashDumpShowsEveryChainAndItsSummary) {
  std::u16string name = Name("empty.hash");
  ASSERT_EQ(S_OK, Export(name));
  std::string empty = Contents(name);
  EXPECT_EQ(0u, empty.find("0=\n1=\n"));
  EXPECT_NE(std::string::npos, empty.find("\n3078=\nsize=3079, entries=0, collisions=0, %collisions=0.000000\n"));

  // Entity identifiers 3079 apart share a chain: intern enough Ethernet
  // addresses that identifiers 0x05000000 + k and + k + 3079 both exist.
  for (int i = 0; i < 3100; ++i) {
    MediaSpec m = zemo::specs::Make(10, {0x02, 0, 0, 0, uint8_t(i >> 8), uint8_t(i)});
    ULONG id = 0;
    ASSERT_EQ(S_OK, entities->FindOrAdd(&m, 1, &id));
  }
  auto macOf = [](int i) { return zemo::specs::Make(10, {0x02, 0, 0, 0, uint8_t(i >> 8), uint8_t(i)}); };
  ASSERT_EQ(S_OK, Send(macOf(5), kNone, macOf(5 + 3079), kNone, 64, kT0));
  ASSERT_EQ(S_OK, Send(macOf(6), kNone, kNone, kNone, 64, kT0));
  ULONG bucket = EntityOf(macOf(5)) % 3079;
  name = Name("nodes.hash");
  ASSERT_EQ(S_OK, Export(name));
  std::string dump = Contents(name);
  // The newer record stands first in the chain.
  EXPECT_NE(std::string::npos, dump.find("\n" + std::to_string(bucket) + "=1 0 \n"));
  EXPECT_NE(std::string::npos, dump.find("\n" + std::to_string(bucket + 1) + "=2 \n"));
  EXPECT_NE(std::string::npos, dump.find("size=3079, entries=3, collisions=1, %collisions=0.333333\n"));
  EXPECT_EQ(3080, std::count(dump.begin(), dump.end(), '\n'));
}

TEST_F(NodeStatsExport, AnExportThatFailsHalfwayLeavesNoFile) {
  Traffic(*this, stats.Get(), kT0, 0);
  for (int i = 0; i < 200; ++i) ASSERT_EQ(S_OK, SendMac(uint8_t(i), uint8_t(i + 1), 64, kT0));
  std::u16string text = Name("big.txt"), hash = Name("big.hash");
  struct rlimit old {};
  ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &old));
  auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = old;
  small.rlim_cur = 1000;
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
  HRESULT textResult = Export(text);
  HRESULT hashResult = Export(hash);
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(HresultFromErrno(EFBIG), textResult);
  EXPECT_EQ(E_FAIL, hashResult);
  EXPECT_FALSE(fs::exists(zemo::ToUtf8(text)));
  EXPECT_FALSE(fs::exists(zemo::ToUtf8(hash)));
}

}  // namespace
