// The counters of one address as NodeStats and NodeStatsHierarchy keep them,
// the record of NodeStats around them, and the per-packet updates of the
// sending and the receiving side, shared by both statistics.
#pragma once

#include <cstddef>

#include "identity/media_specs.h"
#include "platform/variant.h"
#include "tables/record_table.h"

// Packed to 4 so that the same counters sit behind a 12-byte key in the
// hierarchy's record without a gap.
#pragma pack(push, 4)
struct ZemoNodeStat {
  ZemoTime FirstTimeSent;  // 0 until the first packet sent
  ZemoTime LastTimeSent;
  ZemoTime FirstTimeReceived;
  ZemoTime LastTimeReceived;
  ULONGLONG PacketsSent;
  ULONGLONG BytesSent;  // wire length
  ULONGLONG PacketsReceived;
  ULONGLONG BytesReceived;
  ULONGLONG BroadcastPackets;  // sent to a broadcast destination
  ULONGLONG BroadcastBytes;
  ULONGLONG MulticastPackets;  // sent to a multicast destination
  ULONGLONG MulticastBytes;
  USHORT MinPacketSizeSent;  // 0xFFFF until the first packet sent
  USHORT MaxPacketSizeSent;
  USHORT MinPacketSizeReceived;  // 0xFFFF until the first packet received
  USHORT MaxPacketSizeReceived;
};

struct ZemoNodeStatEntry {
  ULONG EntityIndex;  // the key: the address's entity identifier
  ULONG Next;         // chain link, 0xFFFFFFFF at the end
  ZemoNodeStat Stat;
};
#pragma pack(pop)
static_assert(sizeof(ZemoNodeStat) == 104);
static_assert(sizeof(ZemoNodeStatEntry) == 112);
static_assert(offsetof(ZemoNodeStat, MinPacketSizeSent) == 96 && offsetof(ZemoNodeStatEntry, Stat) == 8);

namespace zemo {

// The entity types counted as physical and as logical addresses, in the
// order their counts are asked for.
inline constexpr ULONG kPhysicalNodeTypes[] = {10, 13, 11, 43};
inline constexpr ULONG kLogicalNodeTypes[] = {21, 20, 24, 22, 25};

// Start values of a zeroed record: minimum sizes above any length.
inline void StartNodeStat(ZemoNodeStat& s) noexcept {
  s.MinPacketSizeSent = 0xFFFF;
  s.MinPacketSizeReceived = 0xFFFF;
}

// One packet sent by the node. destination is the present destination of the
// same layer, or null; broadcast and multicast count at the sender only.
inline void CountSent(ZemoNodeStat& s, ZemoTime time, USHORT length, const MediaSpec* destination) noexcept {
  s.LastTimeSent = time;
  if (s.FirstTimeSent == 0) s.FirstTimeSent = time;
  s.PacketsSent += 1;
  s.BytesSent += length;
  if (destination) {
    if (IsBroadcast(*destination)) {
      s.BroadcastPackets += 1;
      s.BroadcastBytes += length;
    } else if (IsMulticast(*destination)) {
      s.MulticastPackets += 1;
      s.MulticastBytes += length;
    }
  }
  if (length > s.MaxPacketSizeSent) s.MaxPacketSizeSent = length;
  if (length < s.MinPacketSizeSent) s.MinPacketSizeSent = length;
}

inline void CountReceived(ZemoNodeStat& s, ZemoTime time, USHORT length) noexcept {
  s.LastTimeReceived = time;
  if (s.FirstTimeReceived == 0) s.FirstTimeReceived = time;
  s.PacketsReceived += 1;
  s.BytesReceived += length;
  if (length > s.MaxPacketSizeReceived) s.MaxPacketSizeReceived = length;
  if (length < s.MinPacketSizeReceived) s.MinPacketSizeReceived = length;
}

// The delta time test: either side active at or after since.
inline bool NodeStatSince(const ZemoNodeStat& s, ZemoTime since) noexcept {
  return s.LastTimeSent >= since || s.LastTimeReceived >= since;
}

// The property-list fields of the counters in a record whose counters start
// at byte `base`.
template <uint32_t base>
inline constexpr RecordField kNodeStatFields[] = {
    {u"FirstTimeSent", VT_UI8, base + offsetof(ZemoNodeStat, FirstTimeSent)},
    {u"LastTimeSent", VT_UI8, base + offsetof(ZemoNodeStat, LastTimeSent)},
    {u"FirstTimeReceived", VT_UI8, base + offsetof(ZemoNodeStat, FirstTimeReceived)},
    {u"LastTimeReceived", VT_UI8, base + offsetof(ZemoNodeStat, LastTimeReceived)},
    {u"PacketsSent", VT_UI8, base + offsetof(ZemoNodeStat, PacketsSent)},
    {u"BytesSent", VT_UI8, base + offsetof(ZemoNodeStat, BytesSent)},
    {u"PacketsReceived", VT_UI8, base + offsetof(ZemoNodeStat, PacketsReceived)},
    {u"BytesReceived", VT_UI8, base + offsetof(ZemoNodeStat, BytesReceived)},
    {u"BroadcastPackets", VT_UI8, base + offsetof(ZemoNodeStat, BroadcastPackets)},
    {u"BroadcastBytes", VT_UI8, base + offsetof(ZemoNodeStat, BroadcastBytes)},
    {u"MulticastPackets", VT_UI8, base + offsetof(ZemoNodeStat, MulticastPackets)},
    {u"MulticastBytes", VT_UI8, base + offsetof(ZemoNodeStat, MulticastBytes)},
    {u"MinPacketSizeSent", VT_UI2, base + offsetof(ZemoNodeStat, MinPacketSizeSent)},
    {u"MaxPacketSizeSent", VT_UI2, base + offsetof(ZemoNodeStat, MaxPacketSizeSent)},
    {u"MinPacketSizeReceived", VT_UI2, base + offsetof(ZemoNodeStat, MinPacketSizeReceived)},
    {u"MaxPacketSizeReceived", VT_UI2, base + offsetof(ZemoNodeStat, MaxPacketSizeReceived)},
};

// The table of NodeStats: one record per entity identifier.
struct NodeTableTraits {
  using Entry = ZemoNodeStatEntry;
  using Key = ULONG;
  static constexpr uint32_t kBuckets = 3079;
  static constexpr uint32_t kBlockLength = 128;
  static constexpr size_t kLinkOffset = offsetof(Entry, Next);
  static uint32_t Bucket(Key key) noexcept { return key % kBuckets; }
  static Key KeyOf(const Entry& e) noexcept { return e.EntityIndex; }
  static void Start(Entry& e, Key key) noexcept {
    e.EntityIndex = key;
    StartNodeStat(e.Stat);
  }
  static bool Since(const Entry& e, ZemoTime since) noexcept { return NodeStatSince(e.Stat, since); }
  static constexpr RecordField kKeyFields[] = {{u"EntityIndex", VT_UI4, offsetof(Entry, EntityIndex)}};
  static constexpr auto& kFields = kNodeStatFields<offsetof(Entry, Stat)>;
};

using CNodeTable = TRecordTable<NodeTableTraits>;

}  // namespace zemo
