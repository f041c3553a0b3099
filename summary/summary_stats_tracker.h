// SummaryStatsTracker: one item of the current summary snapshot through
// time, so that an alarm can watch anything the summary shows. What it can
// track follows the item's value type: the count of a packets, bytes or int
// item, either half of a pair, or a double.
#pragma once

#include "alarms/stats_tracker.h"
#include "frame/clsids.h"
#include "summary/summary_interfaces.h"

namespace zemo {

class SummaryStatsTracker final : public TStatsTracker<SummaryStatsTracker, ISummaryStatsTracker> {
 public:
  static constexpr const CLSID& kClsid = CLSID_SummaryStatsTracker;
  static constexpr char16_t kXmlElement[] = u"summarystatstracker";
  using Source = SummaryStatValue;

  // ISummaryStatsTracker
  HRESULT GetItemID(GUID* id) override;
  HRESULT SetItemID(GUID id) override;
  HRESULT GetStatType(ULONG* type) override;
  HRESULT SetStatType(ULONG type) override;

  LONG StatCount() const noexcept;
  CVariant StatId(LONG index) const;
  const char16_t* StatName(LONG id) const;
  HRESULT Bind(IZemoStatsContext* context);
  HRESULT Read(SummaryStatValue& value);
  double SampleOf(const SummaryStatValue& value) const;
  void CopyTo(IZemoStatsTracker* clone);
  void SaveXml(IXMLDOMDocument* document, IXMLDOMElement* element);
  void LoadXml(IXMLDOMElement* element);

 private:
  ULONG m_valueType = kSummaryNone;  // expected of the item; the value's own type decides a sample
  GUID m_item{};
  ComPtr<ISummaryStats> m_summary;
  ComPtr<ISummaryStatsSnapshot> m_snapshot;
};

}  // namespace zemo
