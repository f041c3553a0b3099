// RollingNodeStats: where the ring puts a packet, what it empties on the
// way, the merged table, and what its saves keep.
#include "tables/rolling_node_stats.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "support/scratch_dir.h"
#include "tests/tables/node_fixture.h"

namespace {

using namespace zemo::testing;
using zemo::ComPtr;
using zemo::RollingNodeStats;

constexpr ULONG kNo = 0xFFFFFFFFu;

ZemoTime At(double seconds) { return kT0 + static_cast<int64_t>(seconds * 1e9); }

class RollingFixture : public NodeStatsFixture {
 public:
  void SetUp() override {
    NodeStatsFixture::SetUp();
    ring = RollingNodeStats::Create();
    ASSERT_EQ(S_OK, context->AddStats(CLSID_RollingNodeStats, ring.Get()));
  }
  // A packet from the Ethernet address ending in `from` to the one ending in
  // `to` (none when 0), straight to the ring.
  HRESULT Put(uint8_t from, ZemoTime time, uint8_t to = 0, USHORT length = 100) {
    zemo::PacketBuilder p;
    p.Time(time).Length(length).Address(zemo::PacketAddress::kPhysicalSource, Mac(from));
    if (to) p.Address(zemo::PacketAddress::kPhysicalDestination, Mac(to));
    return ring->ProcessPacket(p.Get());
  }
  // The buckets that hold a record of the address.
  std::vector<LONG> BucketsOf(uint8_t mac) {
    std::vector<LONG> in;
    for (LONG b = 0; b < 6; ++b) {
      ULONG index = 0;
      BOOL found = FALSE;
      EXPECT_EQ(S_OK, ring->BucketForTesting(b)->GetNodeIndex(EntityOf(Mac(mac)), &index, &found));
      if (found) in.push_back(b);
    }
    return in;
  }
  // The merged record of an address, as INodeStats gives it.
  ZemoNodeStat Merged(uint8_t mac) {
    ULONG index = 0;
    BOOL found = FALSE;
    EXPECT_EQ(S_OK, ring->GetNodeIndex(EntityOf(Mac(mac)), &index, &found));
    EXPECT_TRUE(found) << int(mac);
    ZemoNodeStatEntry e{};
    EXPECT_EQ(S_OK, ring->GetNodeEntry(index, &e));
    return e.Stat;
  }
  ULONG Count() {
    ULONG n = 0;
    EXPECT_EQ(S_OK, ring->GetNodeCount(&n));
    return n;
  }

  ComPtr<RollingNodeStats> ring;
};

// One packet of a case: its time from kT0 in seconds, the bucket it must
// land in (-1: dropped), and the ring's base (from kT0) and current bucket
// after it.
struct Step {
  double seconds;
  LONG bucket;
  double base;
  LONG current;
};
struct RingCase {
  const char* what;
  std::vector<Step> steps;
  std::vector<size_t> emptied;  // steps whose packet no bucket holds at the end
};

TEST_F(RollingFixture, TheRingPlacesEachPacketAndEmptiesWhatTimeLeftBehind) {
  const RingCase cases[] = {
      {"the first packet starts the ring", {{0, 0, 0, 0}}, {}},
      {"a bucket is 300 s, its end excluded", {{0, 0, 0, 0}, {299.9, 0, 0, 0}, {300, 1, 0, 1}}, {}},
      {"a turn of the ring empties bucket 0 first and moves the base",
       {{0, 0, 0, 0}, {300, 1, 0, 1}, {600, 2, 0, 2}, {900, 3, 0, 3}, {1200, 4, 0, 4}, {1500, 5, 0, 5}, {1800, 0, 1800, 0}},
       {0}},
      {"skipped buckets are emptied too", {{0, 0, 0, 0}, {300, 1, 0, 1}, {1000, 3, 0, 3}, {2150, 1, 1800, 1}}, {0, 1}},
      {"two hours on, the ring starts again", {{0, 0, 0, 0}, {900, 3, 0, 3}, {7200, 0, 7200, 0}}, {0, 1}},
      {"a late packet goes to its old bucket, emptying nothing", {{0, 0, 0, 0}, {900, 3, 0, 3}, {400, 1, 0, 3}}, {}},
      {"before the base: bucket 5, or bucket 0 within its first 300 s",
       {{0, 0, 0, 0}, {-300, 5, 0, 0}, {-100, 0, 0, 0}}, {}},
      {"older than the ring holds is dropped", {{0, 0, 0, 0}, {1500, 5, 0, 5}, {-1, -1, 0, 5}}, {}},
      {"exactly a ring ahead empties all six, the current one last", {{0, 0, 0, 0}, {1800, 0, 1800, 0}}, {0}},
  };
  for (const RingCase& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(S_OK, ring->Reset());
    EXPECT_EQ(0u, ring->BaseTimeForTesting());
    for (size_t i = 0; i < c.steps.size(); ++i) {
      const Step& s = c.steps[i];
      SCOPED_TRACE(s.seconds);
      const uint8_t mac = uint8_t(0x10 + i);
      ASSERT_EQ(S_OK, Put(mac, At(s.seconds)));
      EXPECT_EQ(s.bucket < 0 ? std::vector<LONG>{} : std::vector<LONG>{s.bucket}, BucketsOf(mac));
      EXPECT_EQ(At(s.base), ring->BaseTimeForTesting());
      EXPECT_EQ(s.current, ring->CurrentBucketForTesting());
    }
    for (size_t i = 0; i < c.steps.size(); ++i) {
      const bool gone = std::find(c.emptied.begin(), c.emptied.end(), i) != c.emptied.end();
      EXPECT_EQ(gone || c.steps[i].bucket < 0, BucketsOf(uint8_t(0x10 + i)).empty()) << "step " << i;
    }
  }
}

TEST_F(RollingFixture, TheMergedTableSumsTheWindowOnlyWhenRebuilt) {
  LONG n = 0;
  ASSERT_EQ(S_OK, ring->GetBucketCount(&n));
  EXPECT_EQ(6, n);
  ASSERT_EQ(S_OK, ring->GetBucketSeconds(&n));
  EXPECT_EQ(300, n);
  EXPECT_EQ(E_NOTIMPL, ring->SetBucketCount(12));
  EXPECT_EQ(E_NOTIMPL, ring->SetBucketSeconds(60));
  EXPECT_EQ(E_POINTER, ring->GetBucketCount(nullptr));

  // 0x01 receives in bucket 0 and sends in bucket 1; 0x02 only lives in bucket 0.
  ASSERT_EQ(S_OK, Put(0x02, At(0), 0x01, 1000));
  ASSERT_EQ(S_OK, Put(0x01, At(310), 0x03, 60));
  ASSERT_EQ(S_OK, Put(0x01, At(320), 0x03, 1500));
  EXPECT_EQ(0u, Count());  // nothing until a rebuild
  ASSERT_EQ(S_OK, ring->Rebuild());
  ASSERT_EQ(3u, Count());
  alignas(8) ZemoNodeStat a = Merged(0x01);
  // Each bucket saw one side only, and its unset first time counts as a value.
  EXPECT_EQ(0u, a.FirstTimeSent);
  EXPECT_EQ(0u, a.FirstTimeReceived);
  EXPECT_EQ(At(320), a.LastTimeSent);
  EXPECT_EQ(At(0), a.LastTimeReceived);
  EXPECT_EQ(2u, a.PacketsSent);
  EXPECT_EQ(1560u, a.BytesSent);
  EXPECT_EQ(1u, a.PacketsReceived);
  EXPECT_EQ(60, a.MinPacketSizeSent);
  EXPECT_EQ(1500, a.MaxPacketSizeSent);
  EXPECT_EQ(1000, a.MinPacketSizeReceived);
  // Merged records in order of first appearance, bucket 0 first.
  ZemoNodeStatEntry first{};
  ASSERT_EQ(S_OK, ring->GetNodeEntry(0, &first));
  EXPECT_EQ(EntityOf(Mac(0x02)), first.EntityIndex);

  // A tick past bucket 0's turn empties it with no packet: 0x02 left the
  // window, though the merged table shows it until the next rebuild.
  ASSERT_EQ(S_OK, ring->ProcessTime(At(1800)));
  EXPECT_EQ(3u, Count());
  ASSERT_EQ(S_OK, ring->Rebuild());
  EXPECT_EQ(2u, Count());
  ULONG index = 0;
  BOOL found = TRUE;
  ASSERT_EQ(S_OK, ring->GetNodeIndex(EntityOf(Mac(0x02)), &index, &found));
  EXPECT_FALSE(found);
  EXPECT_EQ(kNo, index);
  EXPECT_EQ(0u, +Merged(0x01).PacketsReceived);

  // The end of processing, fanned out by the context, rebuilds; so does the
  // result table. A tick that passes every bucket leaves nothing.
  ASSERT_EQ(S_OK, Put(0x04, At(1900)));
  ASSERT_EQ(S_OK, context->OnStopProcessing(At(1900)));
  EXPECT_EQ(3u, Count());
  ASSERT_EQ(S_OK, ring->ProcessTime(At(9000)));
  ComPtr<IDataTable> table;
  ASSERT_EQ(S_OK, ring->GetTable(table.ReleaseAndGetAddressOf()));
  EXPECT_EQ(0u, Count());

  // A reset mid-window empties everything, and the next packet starts the
  // ring at its own time.
  ASSERT_EQ(S_OK, Put(0x05, At(9100)));
  ASSERT_EQ(S_OK, ring->Rebuild());
  ASSERT_EQ(S_OK, static_cast<IResetProcessing*>(ring.Get())->Reset());
  EXPECT_EQ(0u, Count());
  EXPECT_EQ(0u, ring->BaseTimeForTesting());
  ASSERT_EQ(S_OK, Put(0x06, At(9150)));
  EXPECT_EQ(At(9150), ring->BaseTimeForTesting());
  ASSERT_EQ(S_OK, ring->Rebuild());
  EXPECT_EQ(1u, Count());
  EXPECT_TRUE(BucketsOf(0x05).empty());
  EXPECT_EQ(E_INVALIDARG, ring->ProcessPacket(nullptr));
}

TEST_F(RollingFixture, SavesKeepTheMergedWindowAndALoadReplacesItWithoutTouchingTheRing) {
  ASSERT_EQ(S_OK, Put(0x01, At(0), 0x02, 100));
  ASSERT_EQ(S_OK, Put(0x03, At(400), 0x02, 200));
  // A save rebuilds first and writes every record, whatever the time.
  std::vector<uint8_t> bytes = DeltaBytes(ring.Get(), At(10000));
  ASSERT_EQ(4u + 3 * 108, bytes.size());
  ULONG rows = 0, key = 0;
  std::memcpy(&rows, &bytes[0], 4);
  std::memcpy(&key, &bytes[4], 4);
  EXPECT_EQ(3u, rows);
  EXPECT_EQ(EntityOf(Mac(0x01)), key);
  const ZemoNodeStat first = Merged(0x01);
  EXPECT_EQ(0, std::memcmp(&bytes[8], &first, sizeof first));

  // A reader follows the writer's saves across a window move: each load
  // replaces its table, so the node that left the window goes.
  auto reader = RollingNodeStats::Create();
  ASSERT_EQ(S_OK, reader->SetContext(context.Get()));
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), bytes));
  ULONG n = 0;
  ASSERT_EQ(S_OK, reader->GetNodeCount(&n));
  EXPECT_EQ(3u, n);
  ASSERT_EQ(S_OK, Put(0x04, At(1850)));  // bucket 0 (0x01's) is emptied
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), DeltaBytes(ring.Get(), At(1850))));
  ASSERT_EQ(S_OK, reader->GetNodeCount(&n));
  EXPECT_EQ(3u, n);  // 0x03, 0x02 and 0x04
  ULONG index = 0;
  BOOL found = TRUE;
  ASSERT_EQ(S_OK, reader->GetNodeIndex(EntityOf(Mac(0x01)), &index, &found));
  EXPECT_FALSE(found);
  ASSERT_EQ(S_OK, reader->GetNodeIndex(EntityOf(Mac(0x02)), &index, &found));
  EXPECT_TRUE(found);

  // Loaded into the writer, the rows show until the ring is merged again.
  ZemoTime base = ring->BaseTimeForTesting();
  ASSERT_EQ(S_OK, LoadStreamBytes(ring.Get(), bytes));
  EXPECT_EQ(3u, Count());
  EXPECT_EQ(100u, +Merged(0x01).BytesSent);
  EXPECT_EQ(base, ring->BaseTimeForTesting());
  EXPECT_EQ(0, ring->CurrentBucketForTesting());
  ASSERT_EQ(S_OK, ring->Rebuild());
  EXPECT_EQ(3u, Count());
  ASSERT_EQ(S_OK, ring->GetNodeIndex(EntityOf(Mac(0x01)), &index, &found));
  EXPECT_FALSE(found);
  // Short streams fail with the rows before them kept.
  bytes.resize(4 + 108 + 50);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(reader.Get(), bytes));
  ASSERT_EQ(S_OK, reader->GetNodeCount(&n));
  EXPECT_EQ(1u, n);
  ZemoTime* noTime = nullptr;
  EXPECT_EQ(E_POINTER, ring->SaveDeltas(zemo::CreateMemoryStream().Get(), noTime));

  // XML holds an empty element and a load only looks for it.
  ComPtr<IXMLDOMDocument> document = ParseXml(u"<root/>");
  ComPtr<IXMLDOMElement> root;
  ASSERT_EQ(S_OK, document->get_documentElement(root.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_FALSE, static_cast<IPersistXml*>(ring.Get())->Load(document.Get(), root.Get()));
  ASSERT_EQ(S_OK, static_cast<IPersistXml*>(ring.Get())->Save(document.Get(), root.Get(), TRUE));
  zemo::CBstr markup;
  ASSERT_EQ(S_OK, root->get_xml(markup.Out()));
  EXPECT_EQ("<root><RollingNodeStats/></root>", markup.Utf8());
  EXPECT_EQ(S_OK, static_cast<IPersistXml*>(ring.Get())->Load(document.Get(), root.Get()));
  EXPECT_EQ(3u, Count());

  // The exports are empty files.
  zemo::testing_support::ScratchDir dir;
  auto save = [&](const std::string& leaf) { return static_cast<IPersistFile*>(ring.Get())->Save(dir.WideFile(leaf).c_str(), FALSE); };
  for (const char* leaf : {"ring.txt", "ring.Hash"}) {
    ASSERT_EQ(S_OK, save(leaf));
    EXPECT_TRUE(std::filesystem::exists(dir.File(leaf)));
    EXPECT_EQ("", zemo::testing_support::ReadFile(dir.File(leaf)));
  }
  EXPECT_EQ(E_INVALIDARG, save("ring.csv"));
  EXPECT_EQ(HresultFromErrno(ENOENT), save("missing/ring.txt"));
  EXPECT_EQ(E_FAIL, save("missing/ring.hash"));
}

}  // namespace
