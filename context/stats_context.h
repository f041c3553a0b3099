// StatsContext: one capture's statistics. It keeps the capture-wide facts
// (medium, link speed, first and last packet time, totals), owns the
// statistics added to it, and hands each packet and tick to them in slot
// order.
#pragma once

#include <vector>

#include "frame/delta_save.h"
#include "frame/engine_interfaces.h"
#include "frame/hash_map.h"
#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "identity/identity_interfaces.h"
#include "platform/object.h"

namespace zemo {

class StatsContext;

// Reset arrives on three interfaces; each runs the context's reset, and only
// IResetStatistics asks the statistics for their own statistics reset.
template <class I, bool kStatisticsReset>
struct StatsContextResetAs : I {
  using interface_type = I;
  HRESULT Reset() final;
};

class StatsContext final
    : public Object<StatsContext, StatsContextResetAs<IZemoStatsContext, false>, IProcessPacket, IProcessTime,
                    IPacketProcessorEvents, StatsContextResetAs<IResetProcessing, false>,
                    StatsContextResetAs<IResetStatistics, true>, PersistStreamByDeltas<StatsContext>,
                    ISaveStreamDeltas, PersistXmlByDeltas<StatsContext>, IPersistXmlDeltas, IPersistFile,
                    IObjectWithSite, ISelectableObject, IUpdateSummaryStats> {
 public:
  ~StatsContext();
  // Creates the identity tables, links them, and creates the summary updater.
  HRESULT FinalConstruct();

  // IZemoStatsContext
  HRESULT GetStatsAt(ULONG index, IZemoStats** stats) override;
  HRESULT GetStatsCount(ULONG* count) override;
  HRESULT GetStats(REFCLSID key, REFIID iid, void** out) override;
  HRESULT AddStats(REFCLSID key, IZemoStats* stats) override;
  HRESULT RemoveStats(REFCLSID key) override;
  HRESULT RemoveAllStats() override;
  HRESULT GetMediaType(ULONG* type) override;
  HRESULT SetMediaType(ULONG type) override;
  HRESULT GetMediaSubType(ULONG* subType) override;
  HRESULT SetMediaSubType(ULONG subType) override;
  HRESULT GetLinkSpeed(ULONGLONG* speed) override;
  HRESULT SetLinkSpeed(ULONGLONG speed) override;
  HRESULT GetEntityTable(IEntityTable** table) override;
  HRESULT GetTupleTable(ITupleTable** table) override;
  HRESULT GetStartDateTime(ZemoTime* time) override;
  HRESULT SetStartDateTime(ZemoTime time) override;
  HRESULT GetStopDateTime(ZemoTime* time) override;
  HRESULT SetStopDateTime(ZemoTime time) override;
  HRESULT GetDuration(ULONGLONG* duration) override;
  HRESULT GetTotalPackets(ULONGLONG* packets) override;
  HRESULT GetTotalBytes(ULONGLONG* bytes) override;
  HRESULT GetStatsUpdater(IUnknown** updater) override;
  HRESULT SetStatsUpdater(IUnknown* updater) override;
  HRESULT UpdateStats() override;
  HRESULT GetAdapterInfo(IAdapterInfo** info) override;
  HRESULT SetAdapterInfo(IAdapterInfo* info) override;
  HRESULT AddStatsOrder(REFCLSID first, REFCLSID second) override;

  // IProcessPacket, IProcessTime
  HRESULT ProcessPacket(IPacket* packet) override;
  HRESULT ProcessTime(ZemoTime now) override;

  // IPacketProcessorEvents
  HRESULT OnStartProcessing(ZemoTime time) override;
  HRESULT OnStopProcessing(ZemoTime time) override;
  HRESULT OnResetProcessing() override;

  // IObjectWithSite
  HRESULT SetSite(IUnknown* site) override;
  HRESULT GetSite(REFIID iid, void** out) override;

  // IUpdateSummaryStats
  HRESULT UpdateSummaryStats(IUnknown* snapshot) override;

  // IPersistStream, ISaveStreamDeltas, IPersistFile
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT SaveDeltas(IStream* stream, ZemoTime* since) override;
  HRESULT Load(LPCOLESTR, DWORD) override { return E_NOTIMPL; }
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR) override { return S_OK; }
  HRESULT GetCurFile(LPOLESTR*) override { return E_NOTIMPL; }

  // IPersistXml, IPersistXmlDeltas
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) override;

  // ISelectableObject
  HRESULT GetSelectName(BSTR* name) override;
  HRESULT GetSelectFlag(ULONG* flag) override;
  HRESULT GetSelectParams(ISelectParams** params) override;
  HRESULT Select(ISelectParams* params, IUnknown** out) override;
  HRESULT GetTable(IDataTable** table) override;

  // The reset behind every Reset; statisticsReset prefers a statistic's
  // IResetStatistics to its IZemoStats::Reset.
  HRESULT ResetContext(bool statisticsReset);

 private:
  // One statistic in dispatch order. The map holds the reference; the cached
  // interfaces hold none and are valid exactly as long as it does.
  struct StatSlot {
    CLSID key;
    IZemoStats* stats;
    IProcessPacket* processPacket;  // null if the statistic has none
    IProcessTime* processTime;
  };
  struct StatsOrder {
    CLSID first;
    CLSID second;
  };

  IZemoStatsContext* Self() noexcept { return this; }
  LONG FindSlot(REFCLSID key) const noexcept;
  void ApplyStatsOrder() noexcept;
  ZemoTime StopTimeOrNow() const;
  template <class Fn>
  HRESULT ForEachEventSink(Fn&& fn);
  // The capture-wide facts as a saved context carries them.
  struct SavedHeader {
    ULONG mediaType = 0;
    ULONG mediaSubType = 0;
    ULONGLONG linkSpeed = 0;
    ZemoTime startTime = 0;
    ZemoTime stopTime = 0;
    ULONGLONG totalPackets = 0;
    ULONGLONG totalBytes = 0;
  };
  void StoreHeader(const SavedHeader& header) noexcept;
  // The statistic under key, created by its class and added if there is none.
  ComPtr<IZemoStats> FindOrCreateStats(REFCLSID clsid, REFCLSID key);

  ULONG m_mediaType = 0;
  ULONG m_mediaSubType = 0;
  ULONGLONG m_linkSpeed = 0;
  CHashMap<CLSID, ComPtr<IZemoStats>> m_stats;
  std::vector<StatSlot> m_slots;
  ZemoTime m_startTime = 0;
  ZemoTime m_stopTime = 0;
  ULONGLONG m_totalPackets = 0;
  ULONGLONG m_totalBytes = 0;
  ComPtr<IUnknown> m_updater;
  ComPtr<IAdapterInfo> m_adapterInfo;
  std::vector<StatsOrder> m_order;
  ComPtr<IUnknown> m_site;
  // Shared by all the statistics; released last of all.
  ComPtr<IEntityTable> m_entityTable;
  ComPtr<ITupleTable> m_tupleTable;
};

template <class I, bool kStatisticsReset>
HRESULT StatsContextResetAs<I, kStatisticsReset>::Reset() {
  return static_cast<StatsContext*>(this)->ResetContext(kStatisticsReset);
}

}  // namespace zemo
