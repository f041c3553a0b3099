// NodeStatsHierarchy: which logical addresses live behind which physical
// address. It keeps the counters of NodeStats for each physical address and
// for each pair of a physical and a logical address seen together on one
// side of a packet: a host on a routed network shows as one physical record
// with a pair record for each logical address seen through it, a router
// with many, and a logical address behind several physical ones stands out.
//
// The physical record (physical, 0xFFFFFFFF) counts all traffic of its
// address, so its pair records are parts of it; it always exists before
// them, and so has the lower index.
#pragma once

#include <cstddef>

#include "frame/clsids.h"
#include "frame/stats_interfaces.h"
#include "identity/identity_interfaces.h"
#include "platform/object.h"
#include "tables/node_stat.h"
#include "tables/table_statistic.h"

#pragma pack(push, 4)
struct ZemoNodeHierarchyStatEntry {
  ULONG PhysicalIndex;  // entity identifier of the physical address
  ULONG LogicalIndex;   // of the logical address; 0xFFFFFFFF in the physical address's own record
  ULONG Next;           // chain link, 0xFFFFFFFF at the end
  ZemoNodeStat Stat;
};
#pragma pack(pop)
static_assert(sizeof(ZemoNodeHierarchyStatEntry) == 116);
static_assert(offsetof(ZemoNodeHierarchyStatEntry, Next) == 8 && offsetof(ZemoNodeHierarchyStatEntry, Stat) == 12);

struct INodeStatsHierarchy : IUnknown {
  static constexpr IID iid = IID_INodeStatsHierarchy;
  virtual HRESULT GetEntityTable(IEntityTable** table) = 0;
  // Physical and pair records together.
  virtual HRESULT GetNodeCount(ULONG* count) = 0;
  // From the EntityTable, as INodeStats gives them.
  virtual HRESULT GetPhysicalNodeCount(ULONG* count) = 0;
  virtual HRESULT GetLogicalNodeCount(ULONG* count) = 0;
  // The record of (physical, logical); a physical index of 0xFFFFFFFF finds
  // the first record in record order whose logical index is the one given.
  // Not found: record index 0xFFFFFFFF, found 0 and success.
  virtual HRESULT GetNodeIndex(ULONG physicalIndex, ULONG logicalIndex, ULONG* recordIndex, BOOL* found) = 0;
  // A bad index zeroes entry and gives E_FAIL.
  virtual HRESULT GetNodeEntry(ULONG recordIndex, ZemoNodeHierarchyStatEntry* entry) = 0;
};

namespace zemo {

// The table of NodeStatsHierarchy, keyed by the pair of entity identifiers
// (physical in the high word).
struct NodeHierarchyTableTraits {
  using Entry = ZemoNodeHierarchyStatEntry;
  using Key = uint64_t;
  static constexpr uint32_t kBuckets = 3079;
  static constexpr uint32_t kBlockLength = 128;
  static constexpr size_t kLinkOffset = offsetof(Entry, Next);
  static constexpr Key MakeKey(ULONG physical, ULONG logical) noexcept { return Key{physical} << 32 | logical; }
  static constexpr ULONG PhysicalOf(Key key) noexcept { return static_cast<ULONG>(key >> 32); }
  static constexpr ULONG LogicalOf(Key key) noexcept { return static_cast<ULONG>(key); }
  static uint32_t Bucket(Key key) noexcept {
    return (PhysicalOf(key) << 16 | (LogicalOf(key) & 0xFFFFu)) % kBuckets;
  }
  static Key KeyOf(const Entry& e) noexcept { return MakeKey(e.PhysicalIndex, e.LogicalIndex); }
  static void Start(Entry& e, Key key) noexcept {
    e.PhysicalIndex = PhysicalOf(key);
    e.LogicalIndex = LogicalOf(key);
    StartNodeStat(e.Stat);
  }
  static bool Since(const Entry& e, ZemoTime since) noexcept { return NodeStatSince(e.Stat, since); }
  static constexpr RecordField kKeyFields[] = {{u"PhysicalIndex", VT_UI4, offsetof(Entry, PhysicalIndex)},
                                               {u"LogicalIndex", VT_UI4, offsetof(Entry, LogicalIndex)}};
  static constexpr auto& kFields = kNodeStatFields<offsetof(Entry, Stat)>;
};

using CNodeHierarchyTable = TRecordTable<NodeHierarchyTableTraits>;

class NodeStatsHierarchy final
    : public TTableStatistic<NodeStatsHierarchy, CNodeHierarchyTable, INodeStatsHierarchy> {
 public:
  static constexpr char16_t kStatisticName[] = u"Node Statistics";
  // The element of NodeStats: a save of either reads as node statistics.
  static constexpr char16_t kXmlElement[] = u"nodestats";
  static constexpr char16_t kSelectName[] = u"nodestatshierarchy";
  static constexpr const CLSID& kClsid = CLSID_NodeStatsHierarchy;
  using Key = NodeHierarchyTableTraits::Key;

  // INodeStatsHierarchy
  HRESULT GetEntityTable(IEntityTable** table) override;
  HRESULT GetNodeCount(ULONG* count) override;
  HRESULT GetPhysicalNodeCount(ULONG* count) override;
  HRESULT GetLogicalNodeCount(ULONG* count) override;
  HRESULT GetNodeIndex(ULONG physicalIndex, ULONG logicalIndex, ULONG* recordIndex, BOOL* found) override;
  HRESULT GetNodeEntry(ULONG recordIndex, ZemoNodeHierarchyStatEntry* entry) override;

  // IProcessPacket
  HRESULT ProcessPacket(IPacket* packet) override;

  // IPersistFile: ".txt" and ".hash" exports
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;

  // ISelectableObject
  HRESULT GetTable(IDataTable** table) override;

  // A loaded pair row whose physical record is missing adds that first, as
  // the packet path does.
  ZemoNodeHierarchyStatEntry& FindOrAddForLoad(Key key);

 private:
  // The record of key, found or added; a pair record's physical record is
  // added ahead of it when missing.
  ZemoNodeHierarchyStatEntry& FindOrAdd(Key key);
};

}  // namespace zemo
