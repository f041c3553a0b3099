// WirelessChannelStats2: the second generation of channel statistics, a thin
// object around CWirelessChannelStats. It serves the first generation's
// IWirelessChannelStats too, making the 300-byte record from the 1603-byte
// one on each call.
//
// Channels are listed in the order of the engine's channel index: records
// in descending order of frequency, number and band once a channel was
// added, ascending after a Load. Reset starts from the channels and rates
// the context's adapter names, with zero counters.
//
// Every operation takes the object's lock. The node statistics call
// AddChannelNode and RemoveChannelNode on the thread of a packet, under
// their own lock: their lock comes first, and this object calls nobody back.
#pragma once

#include "frame/delta_save.h"
#include "frame/stats_interfaces.h"
#include "platform/object.h"
#include "wireless/wireless_channel_engine.h"
#include "wireless/wireless_interfaces.h"

namespace zemo {

class WirelessChannelStats2 final
    : public Object<WirelessChannelStats2, IWirelessChannelStats2, IWirelessChannelStats, IZemoStats, IProcessPacket,
                    IResetProcessing, PersistStreamByDeltas<WirelessChannelStats2>, ISaveStreamDeltas> {
 public:
  // IWirelessChannelStats2, and IWirelessChannelStats where the two share
  // an operation.
  HRESULT GetChannelCount(ULONG* count) override;
  HRESULT GetUpdateCount(ULONG* count) override;
  HRESULT AddChannelNode(SWirelessChannel channel, const MediaSpec* node) override;
  HRESULT RemoveChannelNode(SWirelessChannel channel, const MediaSpec* node) override;
  HRESULT GetChannelStat2(ULONG index, ZemoWirelessChannelStatEntry2* stat) override;
  HRESULT GetChannelNodeCount(SWirelessChannel channel, ULONG* count) override;
  HRESULT GetChannelNodeIndex(SWirelessChannel channel, const MediaSpec* node, ULONG* index) override;
  HRESULT GetMaxChannelNodeCount(ULONG* count) override;
  HRESULT GetDataRates(ULONG** rates, ULONG* count) override;
  HRESULT GetChannelDataRates(SWirelessChannel channel, ZemoWirelessChannelDataRateStat** stats,
                              ULONG* count) override;

  // IWirelessChannelStats
  HRESULT GetRateChangeCount(ULONG* count) override;
  HRESULT GetChannelStat(ULONG index, ZemoWirelessChannelStat* stat) override;

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

  const CWirelessChannelStats& Engine() const noexcept { return m_engine; }

 private:
  IZemoStatsContext* m_context = nullptr;  // no reference: the context outlives us
  CWirelessChannelStats m_engine;
};

// The first generation's record of a second-generation one.
ZemoWirelessChannelStat FirstGenerationStat(const ZemoWirelessChannelStatEntry2& entry);

}  // namespace zemo
