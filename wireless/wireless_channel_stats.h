// WirelessChannelStats: the first generation of channel statistics, one
// 300-byte record for each radio channel a packet was heard on, kept in
// ascending order of channel number, with the packets and bytes of each
// channel at each data rate, a text export and trackers of its channels.
//
// It has the XML interfaces in name only: every operation that carries
// data gives E_NOTIMPL.
#pragma once

#include <vector>

#include "frame/delta_save.h"
#include "frame/stats_interfaces.h"
#include "frame/tracker_interfaces.h"
#include "platform/object.h"
#include "wireless/channel_index.h"
#include "wireless/wireless_interfaces.h"

namespace zemo {

class WirelessChannelStats final
    : public Object<WirelessChannelStats, IWirelessChannelStats, IZemoStats, IProcessPacket, IResetProcessing,
                    PersistStreamByDeltas<WirelessChannelStats>, ISaveStreamDeltas, IPersistXml, IPersistXmlDeltas,
                    IPersistFile, IZemoStatsTrackerFactory> {
 public:
  // IWirelessChannelStats
  HRESULT GetChannelCount(ULONG* count) override;
  HRESULT GetUpdateCount(ULONG* count) override;
  HRESULT GetRateChangeCount(ULONG* count) override;
  HRESULT GetDataRates(ULONG** rates, ULONG* count) override;
  HRESULT GetChannelStat(ULONG index, ZemoWirelessChannelStat* stat) override;
  HRESULT GetChannelDataRates(SWirelessChannel channel, ZemoWirelessChannelDataRateStat** stats,
                              ULONG* count) override;

  // IZemoStats; IResetProcessing's Reset is the same.
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override;

  HRESULT ProcessPacket(IPacket* packet) override;

  // IPersistStream, ISaveStreamDeltas: always the whole state.
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
  HRESULT SaveDeltas(IStream* stream, ZemoTime* since) override;

  // IPersistXml, IPersistXmlDeltas: no XML form.
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;
  HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) override;

  // IPersistFile: the ".txt" export.
  HRESULT Load(LPCOLESTR, DWORD) override { return E_NOTIMPL; }
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR) override { return S_OK; }
  HRESULT GetCurFile(LPOLESTR*) override { return E_NOTIMPL; }

  // IZemoStatsTrackerFactory: the description's string value is a channel's label.
  HRESULT CreateTracker(VARIANT description, IZemoStatsTracker** tracker) override;

 private:
  using Row = std::vector<ZemoWirelessChannelDataRateStat>;

  void Clear() noexcept;
  void RebuildIndex();
  uint32_t Find(const SWirelessChannel& channel) const noexcept;
  uint32_t AddChannel(const SWirelessChannel& channel);
  uint32_t AddDataRate(ULONG rate);
  void LoadStream(IStream* stream);

  IZemoStatsContext* m_context = nullptr;  // no reference: the context outlives us
  CChannelIndex m_index;
  std::vector<ZemoWirelessChannelStat> m_records;
  uint32_t m_updateCount = 0;
  std::vector<ULONG> m_rates;  // ascending
  uint32_t m_rateChangeCount = 0;
  std::vector<Row> m_rows;  // one for each record, one entry for each rate
};

}  // namespace zemo
