#include "network/error_stats.h"

#include <array>

#include "engine/data_table.h"
#include "frame/clsids.h"
#include "tests/network/counter_stats_support.h"

namespace sized {
namespace {

using zemo::ErrorStats;
using zemo::PacketBuilder;

using Bytes = std::vector<BYTE>;

// A frame to the ring error monitor: the MAC header, routing information if
// any (its first byte's low 5 bits give its length), the vector header with
// the major vector identifier at its fourth byte, then the subvectors.
Bytes MonitorFrame(const Bytes& subvectors, const Bytes& route = {}, BYTE vectorId = 0x29) {
  Bytes f = {0x10, 0x40, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x08, 0x02, 0x60, 0x8C, 0x11, 0x22, 0x33};
  f.insert(f.end(), route.begin(), route.end());
  f.insert(f.end(), {0x00, 0x20, 0x00, vectorId});
  f.insert(f.end(), subvectors.begin(), subvectors.end());
  return f;
}

class ErrorStatsTest : public StatsTest {
 protected:
  ComPtr<ErrorStats> InContext(ULONG type, ULONG subType = 0) {
    return StatsTest::InContext<ErrorStats>(CLSID_ErrorStats, type, subType, 0);
  }

  static std::vector<uint64_t> Counters(ErrorStats* stats) {
    LONG n = 0;
    EXPECT_EQ(S_OK, stats->GetCounterCount(&n));
    std::vector<uint64_t> out(static_cast<size_t>(n));
    if (n) {
      EXPECT_EQ(S_OK, stats->GetCounters(n, out.data()));
    }
    return out;
  }

  static double Rate(ErrorStats* stats) {
    double rate = -1;
    EXPECT_EQ(S_OK, stats->GetErrorRate(&rate));
    return rate;
  }

  // A frame of media type 1 at this time; `routed` sets the routing status bit.
  static HRESULT Frame(ErrorStats* stats, const Bytes& bytes, bool routed = false, ZemoTime t = kBase) {
    PacketBuilder p;
    p.Time(t).Length(static_cast<ULONG>(bytes.size())).Data(bytes).Status(routed ? kPacketStatusShort : 0);
    return stats->ProcessPacket(p.Get());
  }

  static std::vector<uint64_t> Report(std::initializer_list<std::pair<size_t, uint64_t>> set) {
    std::vector<uint64_t> out(13, 0);
    for (auto [i, v] : set) {
      out[i] = v;
      if (i) out[0] += v;
    }
    return out;
  }
};

TEST_F(ErrorStatsTest, CountersFollowTheMediumAndAMediumWithoutATableKeepsTheCount) {
  struct Case {
    ULONG type, subType;
    LONG count;
  };
  for (Case c : {Case{0, 0, 5}, Case{0, 1, 2}, Case{0, 2, 2}, Case{0, 3, 2}, Case{1, 0, 13}, Case{1, 7, 13},
                 Case{3, 0, 3}, Case{12, 4, 3}, Case{0, 4, 0}, Case{2, 0, 0}}) {
    auto stats = InContext(c.type, c.subType);
    LONG n = -1;
    EXPECT_EQ(S_OK, stats->GetCounterCount(&n));
    EXPECT_EQ(c.count, n) << c.type << "/" << c.subType;
  }
  // Reset in an unknown medium keeps the count, zeroes the counters, and
  // then counts nothing at all.
  auto stats = InContext(0, 0);
  PacketBuilder p;
  p.Time(kBase).Error().Status(kPacketStatusCrc);
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  ASSERT_EQ(S_OK, m_context->SetMediaType(7));
  ASSERT_EQ(S_OK, stats->Reset());
  EXPECT_EQ(std::vector<uint64_t>(5, 0), Counters(stats.Get()));
  p.Time(kBase + 5 * kSec);
  EXPECT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  EXPECT_EQ(S_OK, Frame(stats.Get(), MonitorFrame({0x06, 0x2D, 1, 1, 1, 1})));
  EXPECT_EQ(std::vector<uint64_t>(5, 0), Counters(stats.Get()));
  EXPECT_EQ("", TableText(stats.Get()));
}

TEST_F(ErrorStatsTest, WithoutCountersPacketsAndTicksFail) {
  auto fresh = ErrorStats::Create();
  PacketBuilder p;
  p.Time(kBase).Error();
  EXPECT_EQ(E_FAIL, fresh->ProcessPacket(p.Get()));
  EXPECT_EQ(E_FAIL, fresh->ProcessTime(kBase));
  EXPECT_EQ(E_FAIL, fresh->Reset());
  EXPECT_EQ(E_INVALIDARG, fresh->ProcessPacket(nullptr));
  auto none = InContext(0, 4);
  EXPECT_EQ(E_FAIL, none->ProcessPacket(p.Get()));
  EXPECT_EQ(E_FAIL, none->ProcessTime(kBase));
}

TEST_F(ErrorStatsTest, DamagedPacketsCountTheCausesOfTheirMedium) {
  const ULONG all = kPacketStatusCrc | kPacketStatusFrame | kPacketStatusRunt | kPacketStatusOversize;
  struct Case {
    ULONG type, subType, status;
    std::vector<uint64_t> expected;
  };
  const Case cases[] = {
      {0, 0, kPacketStatusCrc | kPacketStatusRunt, {1, 1, 0, 1, 0}},
      {0, 0, all, {1, 1, 1, 1, 1}},
      {0, 0, 0, {1, 0, 0, 0, 0}},
      {0, 2, all, {1, 1}},
      {0, 3, kPacketStatusFrame, {1, 0}},
      {3, 0, all, {1, 1, 1}},
      {12, 0, kPacketStatusFrame, {1, 0, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.type << "/" << c.subType << " status " << c.status);
    auto stats = InContext(c.type, c.subType);
    PacketBuilder p;
    p.Time(kBase).Status(all);  // not marked as an error: counts nothing
    ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
    p.Clear().Time(kBase).Error().Status(c.status);
    ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
    EXPECT_EQ(c.expected, Counters(stats.Get()));
  }
}

TEST_F(ErrorStatsTest, OnMediaTypeOneOnlyFramesToTheErrorMonitorCount) {
  auto stats = InContext(1);
  PacketBuilder p;
  p.Time(kBase).Error().Status(kPacketStatusCrc);
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  Bytes other = MonitorFrame({0x06, 0x2D, 1, 2, 3, 4});
  other[7] = 0x04;  // another functional address
  ASSERT_EQ(S_OK, Frame(stats.Get(), other));
  ASSERT_EQ(S_OK, Frame(stats.Get(), MonitorFrame({0x06, 0x2D, 1, 2, 3, 4}, {}, 0x27)));  // not a report
  EXPECT_EQ(std::vector<uint64_t>(13, 0), Counters(stats.Get()));
  EXPECT_EQ("", TableText(stats.Get()));

  ASSERT_EQ(S_OK, Frame(stats.Get(), MonitorFrame({0x06, 0x2D, 1, 2, 3, 4, 0x07, 0x2E, 5, 6, 7, 8, 9}, {}, 0x28)));
  EXPECT_EQ(Report({{1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 7}, {8, 8}, {9, 9}}), Counters(stats.Get()));
}

TEST_F(ErrorStatsTest, SubvectorsOfTheReport) {
  struct Case {
    const char* what;
    Bytes frame;
    bool routed;
    std::vector<uint64_t> expected;
  };
  const Case cases[] = {
      {"codes", MonitorFrame({0x04, 0x30, 0x00, 0x01, 0x04, 0x30, 0x00, 0x02, 0x04, 0x30, 0x00, 0x03}), false,
       Report({{10, 1}, {11, 1}, {12, 1}})},
      {"other codes add nothing", MonitorFrame({0x04, 0x30, 0x00, 0x04, 0x04, 0x30, 0x01, 0x00}), false, Report({})},
      {"length 0 ends the walk", MonitorFrame({0x06, 0x2D, 1, 0, 0, 0, 0x00, 0x2D, 0x06, 0x2D, 5, 5, 5, 5}), false,
       Report({{1, 1}})},
      {"0xFF takes the length from the next two bytes",
       MonitorFrame({0xFF, 0x2E, 0x09, 0x00, 1, 1, 1, 1, 2, 0x06, 0x2D, 0, 0, 0, 3}), false,
       Report({{5, 1}, {6, 1}, {7, 1}, {8, 1}, {9, 2}, {4, 3}})},
      {"unknown identifiers are stepped over", MonitorFrame({0x05, 0x99, 9, 9, 9, 0x06, 0x2D, 0, 2, 0, 0}), false,
       Report({{2, 2}})},
      {"routing information moves the report", MonitorFrame({0x06, 0x2D, 0, 0, 7, 0}, {0x84, 0x00, 0x11, 0x22}), true,
       Report({{3, 7}})},
      {"routing bytes are no report without the status bit",
       MonitorFrame({0x06, 0x2D, 0, 0, 7, 0}, {0x82, 0x00}), false, Report({})},
      {"a subvector past the capture stops the walk", MonitorFrame({0x06, 0x2D, 1, 1, 1, 1, 0x09, 0x2D, 1, 1, 1, 1}),
       false, Report({{1, 1}, {2, 1}, {3, 1}, {4, 1}})},
      {"a subvector too short for its value counts nothing",
       MonitorFrame({0x04, 0x2D, 9, 9, 0x06, 0x2E, 9, 9, 9, 9, 0x03, 0x30, 0x01, 0x06, 0x2D, 0, 0, 0, 1}), false,
       Report({{4, 1}})},
      {"the last four bytes are not a subvector", MonitorFrame({0x06, 0x2D, 1, 0, 0, 0, 0x03, 0x30, 0x00}), false,
       Report({{1, 1}})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    auto stats = InContext(1);
    ASSERT_EQ(S_OK, Frame(stats.Get(), c.frame, c.routed));
    EXPECT_EQ(c.expected, Counters(stats.Get()));
  }
}

TEST_F(ErrorStatsTest, TheWalkNeverReadsPastTheCaptureLength) {
  // Every prefix of a report whose subvectors claim more than is there; the
  // packet's bytes are an exact-size copy, so a read past them is caught.
  const Bytes full = MonitorFrame({0x06, 0x2D, 1, 2, 3, 4, 0xFF, 0x2E, 0xFF, 0xFF, 1, 2, 3, 0x05, 0x30, 0x00, 0x01},
                                  {0x9F, 0x00, 0x00, 0x00});
  for (size_t n = 0; n <= full.size(); ++n) {
    Bytes cut(full.begin(), full.begin() + static_cast<ptrdiff_t>(n));
    zemo::ErrorCounts counts{};
    auto heap = std::make_unique<BYTE[]>(n ? n : 1);
    std::copy(cut.begin(), cut.end(), heap.get());
    for (bool routed : {false, true}) zemo::ReadErrorReport(n ? heap.get() : nullptr, n, routed, counts);
    uint64_t sum = 0;
    for (size_t i = 1; i < counts.size(); ++i) sum += counts[i];
    EXPECT_EQ(counts[0], sum);
  }
  // Short frames: the header alone, and a report header that does not fit.
  EXPECT_FALSE(zemo::IsErrorMonitorFrame(full.data(), 14));
  EXPECT_TRUE(zemo::IsErrorMonitorFrame(full.data(), 15));
  auto stats = InContext(1);
  Bytes header(full.begin(), full.begin() + 18);
  EXPECT_EQ(S_OK, Frame(stats.Get(), header, true));
  EXPECT_EQ(std::vector<uint64_t>(13, 0), Counters(stats.Get()));
}

TEST_F(ErrorStatsTest, TheRateIsThatOfTheLastFinishedSpan) {
  auto stats = InContext(0);
  PacketBuilder p;
  // The first span starts half a second in and ends on the next whole second.
  p.Time(kBase + kSec / 2).Error();
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  EXPECT_EQ(0.0, Rate(stats.Get()));
  ASSERT_EQ(S_OK, stats->ProcessTime(kBase + kSec));  // exactly the end: no sample
  EXPECT_EQ(0.0, Rate(stats.Get()));
  p.Time(kBase + kSec);  // still counts in the first span
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  ASSERT_EQ(S_OK, stats->ProcessTime(kBase + kSec + 1));
  EXPECT_DOUBLE_EQ(4.0, Rate(stats.Get()));  // 2 errors in half a second
  for (int i = 0; i < 3; ++i) {
    p.Time(kBase + kSec + kSec / 4 * static_cast<ZemoTime>(i + 1));
    ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  }
  ASSERT_EQ(S_OK, stats->ProcessTime(kBase + 2 * kSec + 1));
  EXPECT_DOUBLE_EQ(3.0, Rate(stats.Get()));
  // A span without errors brings it to 0.
  ASSERT_EQ(S_OK, stats->ProcessTime(kBase + 3 * kSec + 1));
  EXPECT_EQ(0.0, Rate(stats.Get()));
  // After a gap of many spans, errors before the gap count in no rate.
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Time(kBase + 3 * kSec + 5).Get()));
  ASSERT_EQ(S_OK, stats->ProcessTime(kBase + 5000 * kSec));
  EXPECT_EQ(0.0, Rate(stats.Get()));
  // The clock goes on at whole seconds after the gap.
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Time(kBase + 5000 * kSec + 5).Get()));
  ASSERT_EQ(S_OK, stats->ProcessTime(kBase + 5001 * kSec + 5));
  EXPECT_DOUBLE_EQ(1.0, Rate(stats.Get()));
  // Time stamps at the very top of the range stop the clock rather than wrap it.
  ASSERT_EQ(S_OK, stats->ProcessTime(~0ull));
  ASSERT_EQ(S_OK, stats->ProcessTime(~0ull));
  EXPECT_EQ(S_OK, stats->Reset());
  EXPECT_EQ(0.0, Rate(stats.Get()));
}

TEST_F(ErrorStatsTest, StreamFormsTaggedAndOld) {
  auto stats = InContext(0, 0);
  PacketBuilder p;
  p.Time(kBase).Error().Status(kPacketStatusCrc | kPacketStatusOversize);
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  ASSERT_EQ(S_OK, stats->ProcessTime(kBase + 2 * kSec));
  Bytes expected = {0x45, 0x52, 0x02, 0x00};
  Put<ULONG>(expected, 0);
  Put<ULONG>(expected, 0);
  Put<ULONG>(expected, 5);
  for (uint64_t v : {1, 1, 0, 0, 1}) Put<uint64_t>(expected, v);
  expected.insert(expected.end(), {1, 1, 1, 1, 1});
  Put<double>(expected, 1.0);
  EXPECT_EQ(expected, StreamBytes(stats.Get()));
  ULARGE_INTEGER size{};
  EXPECT_EQ(S_OK, stats->GetSizeMax(&size));
  EXPECT_EQ(69u, size.QuadPart);

  // The tagged form replaces medium, count, counters and rate.
  auto copy = InContext(3);
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), expected));
  EXPECT_EQ((std::vector<uint64_t>{1, 1, 0, 0, 1}), Counters(copy.Get()));
  EXPECT_EQ(1.0, Rate(copy.Get()));
  EXPECT_EQ("Total=1 CRC=1 Frame=0 Runt=0 Oversize=1 ", TableText(copy.Get()));
  EXPECT_EQ(expected, StreamBytes(copy.Get()));

  // The old form, with or without a tag, fills the present counters only.
  Bytes old;
  Put<ULONG>(old, 0xDEADBEEF);
  for (uint64_t v : {7, 6, 5, 4, 3}) Put<uint64_t>(old, v);
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), old));
  EXPECT_EQ((std::vector<uint64_t>{7, 6, 5, 4, 3}), Counters(copy.Get()));
  Bytes taggedOld = {0x45, 0x52, 0x01, 0x00};
  taggedOld.insert(taggedOld.end(), old.begin(), old.end());
  taggedOld[8] = 9;  // the first counter, behind tag, version and the unused word
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), taggedOld));
  EXPECT_EQ((std::vector<uint64_t>{9, 6, 5, 4, 3}), Counters(copy.Get()));
  EXPECT_EQ(1.0, Rate(copy.Get()));  // the old form holds no rate

  // Refused: an unknown version, 14 counters, and every short stream.
  Bytes v3 = expected;
  v3[2] = 3;
  Bytes fourteen = {0x45, 0x52, 0x02, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, 14, 0, 0, 0};
  fourteen.resize(fourteen.size() + 14 * 9 + 8);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), v3));
  EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), fourteen));
  for (size_t n = 0; n < expected.size(); ++n) {
    auto target = InContext(0);
    EXPECT_EQ(E_FAIL, LoadStreamBytes(target.Get(), Bytes(expected.begin(), expected.begin() + static_cast<ptrdiff_t>(n))))
        << n << " bytes";
    EXPECT_EQ(std::vector<uint64_t>(5, 0), Counters(target.Get())) << "a failed load replaced something";
  }
  EXPECT_EQ(E_POINTER, copy->Load(static_cast<IStream*>(nullptr)));
}

TEST_F(ErrorStatsTest, ALoadedCountThatDoesNotFitTheMediumNeverCountsPastItself) {
  // Media type 1 with only 3 counters: the report's counters past 2 are not there.
  Bytes stream = {0x45, 0x52, 0x02, 0x00, 1, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0};
  stream.resize(stream.size() + 3 * 9 + 8);
  auto stats = InContext(1);
  ASSERT_EQ(S_OK, LoadStreamBytes(stats.Get(), stream));
  ASSERT_EQ(S_OK, Frame(stats.Get(), MonitorFrame({0x06, 0x2D, 1, 2, 3, 4, 0x04, 0x30, 0x00, 0x03})));
  EXPECT_EQ((std::vector<uint64_t>{11, 1, 2}), Counters(stats.Get()));
}

TEST_F(ErrorStatsTest, XmlTextAndSelection) {
  auto stats = InContext(12);
  PacketBuilder p;
  p.Time(kBase).Error().Status(kPacketStatusFrame);
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  ComPtr<IXMLDOMDocument> document;
  auto root = XmlRoot(document);
  ASSERT_EQ(S_OK, stats->Save(document.Get(), root.Get(), FALSE));
  zemo::CBstr xml;
  ASSERT_EQ(S_OK, root->get_xml(xml.Out()));
  EXPECT_NE(std::string::npos, xml.Utf8().find("<errorstats><stat index=\"0\" value=\"1\"/>"
                                                "<stat index=\"1\" value=\"0\"/><stat index=\"2\" value=\"1\"/>"
                                                "</errorstats>"));
  auto copy = InContext(12);
  ASSERT_EQ(S_OK, copy->Load(document.Get(), root.Get()));
  EXPECT_EQ((std::vector<uint64_t>{1, 0, 1}), Counters(copy.Get()));
  auto load = [&](const char* markup) {
    auto doc = ParseXml(markup);
    ComPtr<IXMLDOMElement> top;
    EXPECT_EQ(S_OK, doc->get_documentElement(top.ReleaseAndGetAddressOf()));
    return copy->Load(doc.Get(), top.Get());
  };
  EXPECT_EQ(S_OK, load("<r/>"));
  EXPECT_EQ(E_FAIL, load("<r><errorstats><stat index='3' value='1'/></errorstats></r>"));
  EXPECT_EQ(E_FAIL, load("<r><errorstats><stat index='0'/></errorstats></r>"));
  EXPECT_EQ((std::vector<uint64_t>{1, 0, 1}), Counters(copy.Get()));

  EXPECT_EQ(S_OK, stats->Save(File("errors.txt").c_str(), FALSE));
  EXPECT_EQ("1\n0\n1\n", Contents(File("errors.txt")));
  EXPECT_EQ(E_INVALIDARG, stats->Save(File("errors.hash").c_str(), FALSE));

  EXPECT_EQ("Total=1 CRC=0 Frame=1 ", TableText(stats.Get()));

  std::array<ULONGLONG, 4> few{};
  few.fill(5);
  EXPECT_EQ(E_INVALIDARG, copy->GetCounters(2, few.data()));
  EXPECT_EQ(5u, few[0]);
  EXPECT_EQ(E_POINTER, copy->GetCounters(3, nullptr));
  EXPECT_EQ(E_POINTER, copy->GetErrorRate(nullptr));
  EXPECT_EQ(E_POINTER, copy->GetCounterCount(nullptr));
}

}  // namespace
}  // namespace sized
