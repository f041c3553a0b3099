#include "alarms/node_stats_tracker.h"

namespace zemo {

LONG NodeStatsTracker::StatCount() const noexcept { return static_cast<LONG>(CNodeUnits::Get().Units().GetCount()); }

CVariant NodeStatsTracker::StatId(LONG index) const {
  const auto* unit = index < 0 ? nullptr : CNodeUnits::Get().Units().GetNodeAt(static_cast<uint32_t>(index));
  if (!unit) AtlThrow(E_INVALIDARG);
  return CVariant::UI4(unit->m_key);
}

const char16_t* NodeStatsTracker::StatName(LONG id) const {
  const char16_t* label = CNodeUnits::Get().Label(static_cast<ULONG>(id));
  if (!label) AtlThrow(E_INVALIDARG);
  return label;
}

// Each operand of a sum is a double first.
double NodeStatsTracker::SampleOf(const ZemoNodeStatEntry& entry) const {
  const ZemoNodeStat& s = entry.Stat;
  auto d = [](uint64_t v) { return static_cast<double>(v); };
  switch (m_stat) {
    case kNodeTotalBytes: return d(s.BytesReceived) + d(s.BytesSent);
    case kNodeTotalPackets: return d(s.PacketsReceived) + d(s.PacketsSent);
    case kNodePacketsSent: return d(s.PacketsSent);
    case kNodeBytesSent: return d(s.BytesSent);
    case kNodePacketsReceived: return d(s.PacketsReceived);
    case kNodeBytesReceived: return d(s.BytesReceived);
    case kNodeBroadcastPackets: return d(s.BroadcastPackets);
    case kNodeBroadcastBytes: return d(s.BroadcastBytes);
    case kNodeMulticastPackets: return d(s.MulticastPackets);
    case kNodeMulticastBytes: return d(s.MulticastBytes);
    case kNodeBroadcastMulticastPackets: return d(s.MulticastPackets) + d(s.BroadcastPackets);
    case kNodeBroadcastMulticastBytes: return d(s.MulticastBytes) + d(s.BroadcastBytes);
    case kNodeMinPacketSizeSent: return s.MinPacketSizeSent;
    case kNodeMaxPacketSizeSent: return s.MaxPacketSizeSent;
    case kNodeMinPacketSizeReceived: return s.MinPacketSizeReceived;
    case kNodeMaxPacketSizeReceived: return s.MaxPacketSizeReceived;
    default: AtlThrow(E_FAIL);
  }
}

// A node not yet in the table fails the update; the index stays unfound.
LONG NodeStatsTracker::FindRow(INodeStats* stats, ULONG entity) {
  ULONG row = kNoEntityId;
  BOOL found = FALSE;
  CheckHr(stats->GetNodeIndex(entity, &row, &found));
  if (!found) AtlThrow(E_FAIL);
  return static_cast<LONG>(row);
}

}  // namespace zemo
