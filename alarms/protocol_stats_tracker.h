// ProtocolStatsTracker: the packets or bytes of one protocol through time,
// from its ProtocolStatsByID record, which counts a packet at every layer it
// reports. Its numbering is its own: 1 is packets here, bytes at a node.
#pragma once

#include "alarms/table_tracker.h"
#include "frame/clsids.h"
#include "tables/protocol_stats.h"

namespace zemo {

class ProtocolStatsTracker final
    : public TTableTracker<ProtocolStatsTracker, IProtocolStatsTracker, IProtocolStats, ZemoProtocolStatEntry> {
 public:
  static constexpr const CLSID& kClsid = CLSID_ProtocolStatsTracker;
  static constexpr const CLSID& kStatisticClsid = CLSID_ProtocolStatsByID;
  static constexpr char16_t kXmlElement[] = u"ProtocolStatsTracker";
  static constexpr char16_t kKeyElement[] = u"protocol";

  enum : LONG { kTotalPackets = 1, kTotalBytes = 2 };

  LONG StatCount() const noexcept { return 2; }
  CVariant StatId(LONG index) const;
  const char16_t* StatName(LONG id) const;
  double SampleOf(const ZemoProtocolStatEntry& entry) const;

  // A protocol without a row keeps the index unfound, and the read of that
  // index fails.
  static LONG FindRow(IProtocolStats* stats, ULONG entity) {
    ULONG row = kNoEntityId;
    CheckHr(stats->GetProtocolIndex(entity, &row));
    return static_cast<LONG>(row);
  }
  static HRESULT ReadRow(IProtocolStats* stats, ULONG row, ZemoProtocolStatEntry* entry) {
    return stats->GetProtocolEntry(row, entry);
  }
};

}  // namespace zemo
