// What the NodeStats and limit tests share: a context holding a NodeStats,
// packets of up to four addresses, and the record of an address read back.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "frame/xml_persist.h"
#include "platform/stream.h"
#include "support/stream_bytes.h"
#include "support/xml_text.h"
#include "tables/limit_settings.h"
#include "tables/node_stats.h"

namespace zemo::testing {

inline MediaSpec Mac(uint8_t last, uint8_t first = 0x00) {
  return specs::Make(specs::kTypeEthernet, {first, 0x1a, 0x2b, 0x3c, 0x4d, last});
}
inline MediaSpec Ip(uint8_t a, uint8_t b, uint8_t c, uint8_t d) { return specs::Ipv4(a, b, c, d); }

using testing_support::DeltaBytes;
using testing_support::LoadStreamBytes;

// A MediaSpec of class and type 0: the address is absent.
inline constexpr MediaSpec kNone{};

inline constexpr ZemoTime kT0 = 133000000000000000ull;
inline constexpr ZemoTime kSecond = 1000000000ull;

using testing_support::ParseXml;

class NodeStatsFixture : public ::testing::Test {
 public:
  void SetUp() override {
    context = StatsContext::Create();
    stats = NodeStats::Create();
    ASSERT_EQ(S_OK, context->AddStats(CLSID_NodeStats, stats.Get()));
    ASSERT_EQ(S_OK, context->GetEntityTable(entities.ReleaseAndGetAddressOf()));
  }

  // One packet from (physical, logical) source to (physical, logical)
  // destination; kNone leaves an address out.
  HRESULT Send(const MediaSpec& ps, const MediaSpec& ls, const MediaSpec& pd, const MediaSpec& ld, USHORT length,
               ZemoTime time, NodeStats* target = nullptr) {
    PacketBuilder p;
    p.Time(time).Length(length);
    if (IsValidSpec(ps)) p.Address(PacketAddress::kPhysicalSource, ps);
    if (IsValidSpec(ls)) p.Address(PacketAddress::kLogicalSource, ls);
    if (IsValidSpec(pd)) p.Address(PacketAddress::kPhysicalDestination, pd);
    if (IsValidSpec(ld)) p.Address(PacketAddress::kLogicalDestination, ld);
    return (target ? target : stats.Get())->ProcessPacket(p.Get());
  }
  // A packet between two Ethernet addresses only.
  HRESULT SendMac(uint8_t from, uint8_t to, USHORT length = 100, ZemoTime time = kT0, NodeStats* target = nullptr) {
    return Send(Mac(from), kNone, Mac(to), kNone, length, time, target);
  }

  ULONG EntityOf(const MediaSpec& spec) {
    ULONG id = kNoEntityId;
    EXPECT_EQ(S_OK, entities->FindOrAdd(&spec, 0, &id));
    return id;
  }

  // The record of an address; fails the test if there is none.
  ZemoNodeStatEntry Record(const MediaSpec& spec, NodeStats* from = nullptr) {
    NodeStats* s = from ? from : stats.Get();
    ULONG index = 0;
    BOOL found = FALSE;
    EXPECT_EQ(S_OK, s->GetNodeIndex(EntityOf(spec), &index, &found));
    EXPECT_TRUE(found);
    ZemoNodeStatEntry e{};
    EXPECT_EQ(S_OK, s->GetNodeEntry(index, &e));
    return e;
  }

  static ULONG Count(NodeStats* s) {
    ULONG n = 0;
    EXPECT_EQ(S_OK, s->GetNodeCount(&n));
    return n;
  }

  // Every record of a table in record order, with the chain link cleared:
  // two tables hold the same data exactly when these are equal.
  static std::vector<std::vector<uint8_t>> Rows(NodeStats* s) {
    std::vector<std::vector<uint8_t>> rows;
    for (ULONG i = 0, n = Count(s); i < n; ++i) {
      ZemoNodeStatEntry e{};
      EXPECT_EQ(S_OK, s->GetNodeEntry(i, &e));
      e.Next = 0;
      auto* p = reinterpret_cast<const uint8_t*>(&e);
      rows.emplace_back(p, p + sizeof e);
    }
    return rows;
  }

  // A second NodeStats on the same context, not added to it.
  ComPtr<NodeStats> Sibling() {
    auto other = NodeStats::Create();
    EXPECT_EQ(S_OK, other->SetContext(context.Get()));
    return other;
  }

  ComPtr<StatsContext> context;
  ComPtr<NodeStats> stats;
  ComPtr<IEntityTable> entities;
};

}  // namespace zemo::testing
