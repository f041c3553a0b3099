#include "alarms/protocol_stats_tracker.h"

namespace zemo {

CVariant ProtocolStatsTracker::StatId(LONG index) const {
  if (index != 0 && index != 1) AtlThrow(E_INVALIDARG);
  return CVariant::I4(index + 1);
}

const char16_t* ProtocolStatsTracker::StatName(LONG id) const {
  switch (id) {
    case kTotalPackets: return u"Total Packets";
    case kTotalBytes: return u"Total Bytes";
    default: AtlThrow(E_FAIL);
  }
}

double ProtocolStatsTracker::SampleOf(const ZemoProtocolStatEntry& entry) const {
  switch (m_stat) {
    case kTotalPackets: return static_cast<double>(entry.Stat.Packets);
    case kTotalBytes: return static_cast<double>(entry.Stat.Bytes);
    default: AtlThrow(E_FAIL);
  }
}

}  // namespace zemo
