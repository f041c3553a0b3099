// SummaryStats: the statistic that holds a capture's summary snapshots. It
// sees no packets and no ticks: its current snapshot is written from outside
// by the context's updater. Beside the current snapshot (always first) it
// keeps any number of stored ones, saved and loaded with it; it shows the
// current snapshot as a table named through the stat map, and makes
// trackers that follow single items.
#pragma once

#include <vector>

#include "frame/persist_interfaces.h"
#include "frame/selection.h"
#include "frame/stats_interfaces.h"
#include "frame/tracker_interfaces.h"
#include "platform/object.h"
#include "summary/stat_map.h"
#include "summary/summary_interfaces.h"

namespace zemo {

class SummaryStats final
    : public Object<SummaryStats, ISummaryStats, IZemoStats, IPersistStream, IPersistXml, IPersistFile,
                    IZemoStatsTrackerFactory, NamedSelection<SummaryStats>> {
 public:
  // Creates the current snapshot.
  HRESULT FinalConstruct();

  // ISummaryStats
  HRESULT GetSnapshot(LONG index, ISummaryStatsSnapshot** snapshot) override;
  HRESULT GetSnapshotCount(LONG* count) override;
  HRESULT FindSnapshot(REFGUID id, ISummaryStatsSnapshot** snapshot) override;
  HRESULT AddSnapshot(ISummaryStatsSnapshot* snapshot) override;
  HRESULT RemoveSnapshot(ISummaryStatsSnapshot* snapshot) override;

  // IZemoStats: a context's reset leaves the snapshots as they are.
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override { return S_OK; }

  // IPersistStream, IPersistXml, IPersistFile
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;
  HRESULT Load(LPCOLESTR, DWORD) override { return E_NOTIMPL; }
  // ".txt": a line for each item of each snapshot: id, label, value.
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR) override { return S_OK; }
  HRESULT GetCurFile(LPOLESTR*) override { return E_NOTIMPL; }

  // IZemoStatsTrackerFactory: the description is the item's id as text.
  HRESULT CreateTracker(VARIANT description, IZemoStatsTracker** tracker) override;

  // ISelectableObject: a path ends here, after the summary is brought up to date.
  static constexpr const char16_t* kSelectName = u"summarystats";
  static constexpr ULONG kSelectFlag = 0;
  HRESULT Select(ISelectParams* params, IUnknown** out) override;
  HRESULT GetTable(IDataTable** table) override;

 private:
  // The snapshot that a saved one of this id loads into: the current one,
  // one already held, or a new one (null: the caller appends it).
  ComPtr<ISummaryStatsSnapshot> TargetOf(REFGUID id, REFGUID currentId, bool* isNew);
  void KeepOnlyCurrent();

  IZemoStatsContext* m_context = nullptr;  // no reference held
  ComPtr<ISummaryStatsSnapshot> m_current;
  std::vector<ComPtr<ISummaryStatsSnapshot>> m_snapshots;  // m_current first
  CStatMap m_statMap;
};

// A summary value as a table shows it: dates, times and durations in their
// text forms, a pair as "packets/bytes", counts as u64, a double as itself;
// VT_EMPTY for a group or an unknown type.
CVariant SummaryValueCell(const SummaryStatValue& value);

}  // namespace zemo
