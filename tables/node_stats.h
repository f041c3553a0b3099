// NodeStats: one record for each address a packet shows, physical and
// logical side by side: what it sent and received, when, how much, and what
// part of its sending went to broadcast and multicast destinations. A packet
// touches up to four records: physical source, logical source, physical
// destination, logical destination, each keyed by its entity identifier in
// the context's EntityTable.
#pragma once

#include "frame/clsids.h"
#include "frame/delta_save.h"
#include "frame/map_ex.h"
#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "frame/tracker_interfaces.h"
#include "identity/identity_interfaces.h"
#include "platform/object.h"
#include "tables/node_stat.h"
#include "tables/table_statistic.h"

struct INodeStats : IUnknown {
  static constexpr IID iid = IID_INodeStats;
  virtual HRESULT GetEntityTable(IEntityTable** table) = 0;
  virtual HRESULT GetNodeCount(ULONG* count) = 0;
  // From the EntityTable: every address of the physical or logical types
  // interned in the context, whether this table has a record for it or not.
  virtual HRESULT GetPhysicalNodeCount(ULONG* count) = 0;
  virtual HRESULT GetLogicalNodeCount(ULONG* count) = 0;
  // Not found: record index 0xFFFFFFFF, found 0 and success.
  virtual HRESULT GetNodeIndex(ULONG entityIndex, ULONG* recordIndex, BOOL* found) = 0;
  // 0xEFFFFFFF is the last record; a bad index zeroes entry and gives E_FAIL.
  virtual HRESULT GetNodeEntry(ULONG recordIndex, ZemoNodeStatEntry* entry) = 0;
};

namespace zemo {

// The unit codes a node tracker can follow, with their labels.
enum NodeUnit : ULONG {
  kNodeTotalBytes = 1,
  kNodeTotalPackets,
  kNodePacketsSent,
  kNodeBytesSent,
  kNodePacketsReceived,
  kNodeBytesReceived,
  kNodeBroadcastPackets,
  kNodeBroadcastBytes,
  kNodeMulticastPackets,
  kNodeMulticastBytes,
  kNodeBroadcastMulticastPackets,
  kNodeBroadcastMulticastBytes,
  kNodeMinPacketSizeSent,
  kNodeMaxPacketSizeSent,
  kNodeMinPacketSizeReceived,
  kNodeMaxPacketSizeReceived,
};

// The module's one table of node units, built on first use and then only
// read: code to label, in code order.
class CNodeUnits {
 public:
  static const CNodeUnits& Get();
  // The label of a code, or null.
  const char16_t* Label(ULONG code) const noexcept;
  using Map = TMapEx<ULONG, ULONG, const char16_t*, const char16_t*>;
  const Map& Units() const noexcept { return m_units; }

 private:
  CNodeUnits();
  Map m_units{257};
};

// The result table of a node table (ISelectableObject::GetTable): a row for
// each record in record order, the address as text first. Raises.
void NodeTableToResult(const CNodeTable& records, IEntityTable* entities, IDataTable** table);

class NodeStats final : public TTableStatistic<NodeStats, CNodeTable, INodeStats, IZemoStatsTrackerFactory> {
 public:
  static constexpr char16_t kStatisticName[] = u"Node Statistics";
  static constexpr char16_t kXmlElement[] = u"nodestats";
  static constexpr char16_t kSelectName[] = u"nodestats";
  static constexpr const CLSID& kClsid = CLSID_NodeStats;

  // INodeStats
  HRESULT GetEntityTable(IEntityTable** table) override;
  HRESULT GetNodeCount(ULONG* count) override;
  HRESULT GetPhysicalNodeCount(ULONG* count) override;
  HRESULT GetLogicalNodeCount(ULONG* count) override;
  HRESULT GetNodeIndex(ULONG entityIndex, ULONG* recordIndex, BOOL* found) override;
  HRESULT GetNodeEntry(ULONG recordIndex, ZemoNodeStatEntry* entry) override;

  // IProcessPacket
  HRESULT ProcessPacket(IPacket* packet) override;

  // IPersistFile: ".txt" and ".hash" exports
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;

  // IZemoStatsTrackerFactory
  HRESULT CreateTracker(VARIANT description, IZemoStatsTracker** tracker) override;

  // ISelectableObject
  HRESULT GetTable(IDataTable** table) override;

};

}  // namespace zemo
