#include "summary/summary_stats_tracker.h"

namespace zemo {

HRESULT SummaryStatsTracker::GetItemID(GUID* id) {
  return Locked([&] {
    CheckOut(id);
    *id = m_item;
  });
}

HRESULT SummaryStatsTracker::SetItemID(GUID id) {
  return Locked([&] { m_item = id; });
}

HRESULT SummaryStatsTracker::GetStatType(ULONG* type) {
  return Locked([&] {
    CheckOut(type);
    *type = m_valueType;
  });
}

HRESULT SummaryStatsTracker::SetStatType(ULONG type) {
  return Locked([&] { m_valueType = type; });
}

LONG SummaryStatsTracker::StatCount() const noexcept {
  switch (m_valueType) {
    case kSummaryPackets:
    case kSummaryBytes:
    case kSummaryInt:
    case kSummaryDouble: return 1;
    case kSummaryPair: return 2;
    default: return 0;
  }
}

CVariant SummaryStatsTracker::StatId(LONG index) const {
  switch (m_valueType) {
    case kSummaryPackets:
    case kSummaryBytes:
    case kSummaryInt:
    case kSummaryDouble: return CVariant::I4(static_cast<LONG>(m_valueType));
    case kSummaryPair: return CVariant::I4(index != 0 ? kSummaryBytes : kSummaryPackets);
    default: AtlThrow(E_INVALIDARG);
  }
}

const char16_t* SummaryStatsTracker::StatName(LONG id) const {
  switch (id) {
    case kSummaryPackets: return u"Packets";
    case kSummaryBytes: return u"Bytes";
    case kSummaryInt:
    case kSummaryDouble: return u"Count";
    default: AtlThrow(E_INVALIDARG);
  }
}

// The snapshot is taken once: SummaryStats keeps its current snapshot
// object for good and rewrites it in place.
HRESULT SummaryStatsTracker::Bind(IZemoStatsContext* context) {
  HRESULT hr = context->GetStats(CLSID_SummaryStats, ISummaryStats::iid, m_summary.OutVoid());
  if (FAILED(hr)) return hr;
  m_summary->GetSnapshot(0, m_snapshot.ReleaseAndGetAddressOf());
  return hr;
}

// A missing item fails before the ring moves, so its seconds are filled in
// once it appears.
HRESULT SummaryStatsTracker::Read(SummaryStatValue& value) {
  if (!m_snapshot) return E_FAIL;
  return CheckHr(m_snapshot->GetValue(m_item, &value));
}

double SummaryStatsTracker::SampleOf(const SummaryStatValue& value) const {
  switch (value.Type) {
    case kSummaryPackets:
    case kSummaryBytes:
    case kSummaryInt: {
      const ULONGLONG count = value.Count;
      return static_cast<double>(count);
    }
    case kSummaryPair: {
      const ULONGLONG half = m_stat == kSummaryBytes ? value.Pair.Bytes : value.Pair.Packets;
      return static_cast<double>(half);
    }
    case kSummaryDouble: {
      const double d = value.Double;
      return d;
    }
    default: AtlThrow(E_FAIL);  // dates, times, durations and groups have no number to follow
  }
}

void SummaryStatsTracker::CopyTo(IZemoStatsTracker* clone) {
  CheckHr(clone->SetStat(CVariant::I4(m_stat)));
  ComPtr<ISummaryStatsTracker> summary = ComPtr<IZemoStatsTracker>(clone).Query<ISummaryStatsTracker>();
  CheckHr(summary->SetItemID(m_item));
  CheckHr(summary->SetStatType(m_valueType));
}

void SummaryStatsTracker::SaveXml(IXMLDOMDocument*, IXMLDOMElement* element) {
  SetAttribute(element, u"stattype", static_cast<LONG>(m_valueType));
  SetAttribute(element, u"tracktype", m_stat);
  SetAttribute(element, u"id", m_item);
  SetAttribute(element, u"history", History());
}

void SummaryStatsTracker::LoadXml(IXMLDOMElement* element) {
  LONG valueType = static_cast<LONG>(m_valueType);
  if (GetAttribute(element, u"stattype", valueType)) m_valueType = static_cast<ULONG>(valueType);
  GetAttribute(element, u"tracktype", m_stat);
  GetAttribute(element, u"id", m_item);
  LONG history = 0;
  if (GetAttribute(element, u"history", history)) ApplyHistory(history);
}

}  // namespace zemo
