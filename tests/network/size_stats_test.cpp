#include "network/size_stats.h"

#include <array>

#include "engine/data_table.h"
#include "frame/clsids.h"
#include "tests/network/counter_stats_support.h"
#include "tests/network/faulty_packet.h"

namespace sized {
namespace {

using zemo::PacketBuilder;
using zemo::SizeStats;

class SizeStatsTest : public StatsTest {
 protected:
  // A SizeStats added to a context on this medium, as a host sets it up.
  ComPtr<SizeStats> InContext(ULONG type, ULONG subType = 0, ULONGLONG speed = 0) {
    return StatsTest::InContext<SizeStats>(CLSID_SizeStats, type, subType, speed);
  }

  static std::vector<uint64_t> Buckets(SizeStats* stats) {
    LONG n = 0;
    EXPECT_EQ(S_OK, stats->GetBucketCount(&n));
    std::vector<uint64_t> out(static_cast<size_t>(n));
    if (n) {
      EXPECT_EQ(S_OK, stats->GetBuckets(n, out.data()));
    }
    return out;
  }

  // The bucket a packet of this length lands in: the only one that grew.
  static int BucketOf(SizeStats* stats, USHORT length) {
    EXPECT_EQ(S_OK, stats->Reset());
    PacketBuilder p;
    p.Time(kBase).Length(length);
    EXPECT_EQ(S_OK, stats->ProcessPacket(p.Get()));
    std::vector<uint64_t> b = Buckets(stats);
    int found = -1;
    for (size_t i = 0; i < b.size(); ++i)
      if (b[i]) {
        EXPECT_EQ(-1, found) << "two buckets grew";
        EXPECT_EQ(1u, b[i]);
        found = static_cast<int>(i);
      }
    return found;
  }
};

TEST_F(SizeStatsTest, SetIsChosenByMediumSubtypeAndLinkSpeed) {
  struct Case {
    ULONG type, subType;
    ULONGLONG speed;
    ULONG set;
    LONG buckets;
  };
  const Case cases[] = {
      {0, 0, 0, 1, 7},          {0, 0, 100000000, 1, 7},  {0, 0, 100000001, 4, 12}, {0, 0, 10000000000ull, 4, 12},
      {0, 1, 0, 3, 8},          {0, 2, 0, 3, 8},          {0, 3, 1000000000, 3, 8}, {0, 4, 0, 0, 0},
      {1, 0, 0, 2, 10},         {1, 9, 0, 2, 10},         {3, 0, 0, 5, 7},          {12, 5, 0, 5, 7},
      {2, 0, 0, 0, 0},          {6, 0, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.type << "/" << c.subType << " at " << c.speed);
    auto stats = InContext(c.type, c.subType, c.speed);
    ULONG set = 99;
    LONG n = -1;
    EXPECT_EQ(S_OK, stats->GetSizeSet(&set));
    EXPECT_EQ(S_OK, stats->GetBucketCount(&n));
    EXPECT_EQ(c.set, set);
    EXPECT_EQ(c.buckets, n);
  }
}

TEST_F(SizeStatsTest, EveryBoundIsInclusiveAndTheNextLengthOpensTheNextBucket) {
  struct SetCase {
    ULONG type, subType;
    ULONGLONG speed;
    std::vector<USHORT> bounds;
  };
  const SetCase sets[] = {
      {0, 0, 100000000, {64, 127, 255, 511, 1023, 1517, 65535}},
      {1, 0, 0, {63, 127, 255, 511, 1023, 2047, 4095, 8191, 17999, 65535}},
      {0, 2, 0, {63, 127, 255, 511, 1023, 2047, 2346, 65535}},
      {0, 0, 100000001, {64, 127, 255, 511, 1023, 1518, 2047, 4095, 8191, 9017, 9022, 65535}},
      {3, 0, 0, {64, 127, 255, 511, 1023, 1517, 65535}},
  };
  for (const SetCase& s : sets) {
    auto stats = InContext(s.type, s.subType, s.speed);
    ULONG set = 0;
    ASSERT_EQ(S_OK, stats->GetSizeSet(&set));
    SCOPED_TRACE(testing::Message() << "set " << set);
    EXPECT_EQ(0, BucketOf(stats.Get(), 0));
    for (size_t i = 0; i < s.bounds.size(); ++i) {
      EXPECT_EQ(static_cast<int>(i), BucketOf(stats.Get(), s.bounds[i])) << "length " << s.bounds[i];
      if (i + 1 < s.bounds.size()) {
        EXPECT_EQ(static_cast<int>(i + 1), BucketOf(stats.Get(), s.bounds[i] + 1)) << "length " << s.bounds[i] + 1;
      }
    }
  }
  // 64 is the first bucket of set 1 and the second of set 2; 65 the second of both.
  auto set1 = InContext(0, 0, 0);
  auto set2 = InContext(1);
  EXPECT_EQ(0, BucketOf(set1.Get(), 64));
  EXPECT_EQ(1, BucketOf(set2.Get(), 64));
  EXPECT_EQ(1, BucketOf(set1.Get(), 65));
  EXPECT_EQ(1, BucketOf(set2.Get(), 65));
}

TEST_F(SizeStatsTest, EveryPacketCountsErrorsAndWirelessToo) {
  auto stats = InContext(0);
  PacketBuilder p;
  p.Time(kBase).Length(100).Error().Status(kPacketStatusCrc);
  EXPECT_EQ(S_OK, m_context->ProcessPacket(p.Get()));
  p.Clear().Time(kBase).Length(1517).Wireless({}, 108);
  EXPECT_EQ(S_OK, m_context->ProcessPacket(p.Get()));
  EXPECT_EQ((std::vector<uint64_t>{0, 1, 0, 0, 0, 1, 0}), Buckets(stats.Get()));
}

TEST_F(SizeStatsTest, AMediumWithoutASetCountsNothingAndRefusesPackets) {
  PacketBuilder p;
  p.Time(kBase).Length(60);
  auto fresh = SizeStats::Create();
  EXPECT_EQ(E_FAIL, fresh->ProcessPacket(p.Get()));
  EXPECT_EQ(E_FAIL, fresh->Reset());  // no context
  EXPECT_EQ(E_INVALIDARG, fresh->ProcessPacket(nullptr));

  auto stats = InContext(0, 4);
  EXPECT_EQ(E_FAIL, stats->ProcessPacket(p.Get()));
  EXPECT_TRUE(Buckets(stats.Get()).empty());
  EXPECT_EQ("", TableText(stats.Get()));
  // The set follows the medium only at the next Reset.
  EXPECT_EQ(S_OK, m_context->SetMediaType(1));
  EXPECT_EQ(E_FAIL, stats->ProcessPacket(p.Get()));
  EXPECT_EQ(S_OK, stats->Reset());
  EXPECT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  EXPECT_EQ(1u, Buckets(stats.Get())[0]);
}

TEST_F(SizeStatsTest, AFailingPacketReadIsTheResultAndCountsNothing) {
  auto stats = InContext(0);
  PacketBuilder p;
  p.Time(kBase).Length(100);
  auto packet = zemo::testing::FaultyPacket::Create(p.Get());
  packet->failing = {"GetPacketLength"};
  EXPECT_EQ(zemo::testing::kPacketFailure, stats->ProcessPacket(packet.Get()));
  EXPECT_EQ(std::vector<uint64_t>(7, 0), Buckets(stats.Get()));
}

TEST_F(SizeStatsTest, GetBucketsWritesExactlyTheCountOrNothing) {
  auto stats = InContext(3);
  PacketBuilder p;
  p.Time(kBase).Length(70);
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  std::array<ULONGLONG, 9> out;
  out.fill(77);
  EXPECT_EQ(E_INVALIDARG, stats->GetBuckets(6, out.data()));
  EXPECT_EQ(E_INVALIDARG, stats->GetBuckets(-1, out.data()));
  EXPECT_EQ(77u, out[0]);
  EXPECT_EQ(S_OK, stats->GetBuckets(9, out.data()));
  EXPECT_EQ((std::array<ULONGLONG, 9>{0, 1, 0, 0, 0, 0, 0, 77, 77}), out);
  EXPECT_EQ(E_POINTER, stats->GetBuckets(9, nullptr));
  EXPECT_EQ(E_POINTER, stats->GetBucketCount(nullptr));
  EXPECT_EQ(E_POINTER, stats->GetSizeSet(nullptr));
}

TEST_F(SizeStatsTest, TableLabelsRunFromTheFirstBoundToTheLastBoundPlusOne) {
  auto labels = [&](ULONG type, ULONG subType, ULONGLONG speed) {
    auto stats = InContext(type, subType, speed);
    PacketBuilder p;
    p.Time(kBase).Length(1500);
    EXPECT_EQ(S_OK, stats->ProcessPacket(p.Get()));
    return TableText(stats.Get());
  };
  EXPECT_EQ("<=64=0 65-127=0 128-255=0 256-511=0 512-1023=0 1024-1517=1 >=1518=0 ", labels(0, 0, 0));
  EXPECT_EQ("<=63=0 64-127=0 128-255=0 256-511=0 512-1023=0 1024-2047=1 2048-4095=0 4096-8191=0 8192-17999=0 "
            ">=18000=0 ",
            labels(1, 0, 0));
  EXPECT_EQ("<=64=0 65-127=0 128-255=0 256-511=0 512-1023=0 1024-1518=1 1519-2047=0 2048-4095=0 4096-8191=0 "
            "8192-9017=0 9018-9022=0 >=9023=0 ",
            labels(0, 0, 100000001));
}

TEST_F(SizeStatsTest, StreamHoldsTheCountAndTheBucketsAndLoadsUpToTwelveFromTheFirst) {
  auto stats = InContext(0, 1);
  PacketBuilder p;
  for (USHORT length : {10, 100, 100, 3000}) {
    p.Time(kBase).Length(length);
    ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  }
  std::vector<uint8_t> expected;
  Put<ULONG>(expected, 8);
  for (uint64_t v : {1, 2, 0, 0, 0, 0, 0, 1}) Put<uint64_t>(expected, v);
  EXPECT_EQ(expected, StreamBytes(stats.Get()));
  ULARGE_INTEGER size{};
  EXPECT_EQ(S_OK, stats->GetSizeMax(&size));
  EXPECT_EQ(68u, size.QuadPart);

  auto copy = InContext(0, 1);
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), expected));
  EXPECT_EQ((std::vector<uint64_t>{1, 2, 0, 0, 0, 0, 0, 1}), Buckets(copy.Get()));

  // Any count up to the twelve buckets fills from the first, whatever the
  // set; what lies past the set's buckets is not shown.
  auto row = [](std::vector<uint64_t> values) {
    std::vector<uint8_t> bytes;
    Put<ULONG>(bytes, static_cast<ULONG>(values.size()));
    for (uint64_t v : values) Put<uint64_t>(bytes, v);
    return bytes;
  };
  std::vector<uint8_t> two = row({9, 8});
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), two));
  EXPECT_EQ((std::vector<uint64_t>{9, 8, 0, 0, 0, 0, 0, 1}), Buckets(copy.Get()));
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), row({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12})));
  EXPECT_EQ((std::vector<uint64_t>{1, 2, 3, 4, 5, 6, 7, 8}), Buckets(copy.Get()));
  auto none = InContext(0, 4);
  EXPECT_EQ(S_OK, LoadStreamBytes(none.Get(), two));
  EXPECT_EQ(0u, Buckets(none.Get()).size());

  // A count past the array and short rows are refused and change nothing.
  std::vector<uint8_t> thirteen = row(std::vector<uint64_t>(13, 5));
  std::vector<uint8_t> huge;
  Put<ULONG>(huge, 0xFFFFFFFF);
  std::vector<uint8_t> shortRow(two.begin(), two.end() - 1);
  for (const auto& bad : {thirteen, huge, shortRow, std::vector<uint8_t>{1, 0}}) {
    EXPECT_EQ(E_FAIL, LoadStreamBytes(copy.Get(), bad));
    EXPECT_EQ((std::vector<uint64_t>{1, 2, 3, 4, 5, 6, 7, 8}), Buckets(copy.Get()));
  }
  EXPECT_EQ(E_POINTER, copy->Load(static_cast<IStream*>(nullptr)));
}

TEST_F(SizeStatsTest, XmlHoldsOneStatPerBucketAndRefusesBadIndexes) {
  auto stats = InContext(0);
  PacketBuilder p;
  p.Time(kBase).Length(200);
  ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  ComPtr<IXMLDOMDocument> document;
  auto root = XmlRoot(document);
  ASSERT_EQ(S_OK, stats->Save(document.Get(), root.Get(), TRUE));
  zemo::CBstr xml;
  ASSERT_EQ(S_OK, root->get_xml(xml.Out()));
  EXPECT_NE(std::string::npos, xml.Utf8().find("<sizestats><stat index=\"0\" value=\"0\"/>"
                                                "<stat index=\"1\" value=\"0\"/><stat index=\"2\" value=\"1\"/>"));

  auto copy = InContext(0);
  ASSERT_EQ(S_OK, copy->Load(document.Get(), root.Get()));
  EXPECT_EQ(Buckets(stats.Get()), Buckets(copy.Get()));

  auto load = [&](const char* markup) {
    auto doc = ParseXml(markup);
    ComPtr<IXMLDOMElement> top;
    EXPECT_EQ(S_OK, doc->get_documentElement(top.ReleaseAndGetAddressOf()));
    return copy->Load(doc.Get(), top.Get());
  };
  EXPECT_EQ(S_OK, load("<r><other/></r>"));  // no element: nothing to do
  EXPECT_EQ(E_FAIL, load("<r><sizestats><stat index='0' value='4'/><stat index='7' value='1'/></sizestats></r>"));
  EXPECT_EQ(4u, Buckets(copy.Get())[0]);  // set before the failure stays
  EXPECT_EQ(E_FAIL, load("<r><sizestats><stat value='1'/></sizestats></r>"));
  EXPECT_EQ(E_FAIL, load("<r><sizestats><stat index='1'/></sizestats></r>"));
  EXPECT_FAILS(load("<r><sizestats><stat index='-1' value='1'/></sizestats></r>"));
  EXPECT_FAILS(load("<r><sizestats><stat index='1' value='lots'/></sizestats></r>"));
  EXPECT_EQ(E_NOINTERFACE, copy->Load(stats->GetUnknown(), root.Get()));
}

TEST_F(SizeStatsTest, TextExportIsOneDecimalLinePerBucketForTxtOnly) {
  auto stats = InContext(0);
  PacketBuilder p;
  p.Time(kBase).Length(2000);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(S_OK, stats->ProcessPacket(p.Get()));
  EXPECT_EQ(S_OK, stats->Save(File("sizes.TXT").c_str(), FALSE));
  EXPECT_EQ("0\n0\n0\n0\n0\n0\n3\n", Contents(File("sizes.TXT")));
  EXPECT_EQ(E_INVALIDARG, stats->Save(File("sizes.csv").c_str(), FALSE));
  EXPECT_FALSE(Exists(File("sizes.csv")));
  EXPECT_FAILS(stats->Save(File("missing/sizes.txt").c_str(), FALSE));
}

}  // namespace
}  // namespace sized
