// NodeStatsTracker: one number of one address's NodeStats record through
// time (bytes, packets, their sent and received shares, broadcast and
// multicast, packet sizes), named by the module's table of node units.
#pragma once

#include "alarms/table_tracker.h"
#include "frame/clsids.h"
#include "tables/node_stats.h"

namespace zemo {

class NodeStatsTracker final
    : public TTableTracker<NodeStatsTracker, INodeStatsTracker, INodeStats, ZemoNodeStatEntry> {
 public:
  static constexpr const CLSID& kClsid = CLSID_NodeStatsTracker;
  static constexpr const CLSID& kStatisticClsid = CLSID_NodeStats;
  static constexpr char16_t kXmlElement[] = u"NodeStatsTracker";
  static constexpr char16_t kKeyElement[] = u"node";

  LONG StatCount() const noexcept;
  CVariant StatId(LONG index) const;
  const char16_t* StatName(LONG id) const;
  double SampleOf(const ZemoNodeStatEntry& entry) const;

  static LONG FindRow(INodeStats* stats, ULONG entity);
  static HRESULT ReadRow(INodeStats* stats, ULONG row, ZemoNodeStatEntry* entry) {
    return stats->GetNodeEntry(row, entry);
  }
};

}  // namespace zemo
