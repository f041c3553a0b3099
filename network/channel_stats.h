// ChannelStats: the network counters and samples of each channel of a
// multi-channel adapter. The channels come from the context's adapter
// information when the statistic joins a context; a packet on a channel the
// adapter did not announce is refused, one that names no channel is left out.
// Usually the private part of a NetworkStats, but a class of its own.
#pragma once

#include <vector>

#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "network/network_counters.h"
#include "platform/object.h"

namespace zemo {

class ChannelStats final : public Object<ChannelStats, IChannelStats, IZemoStats, IProcessPacket, IProcessTime,
                                         IResetProcessing, IPersistStream, IPersistXml> {
 public:
  // IChannelStats
  HRESULT GetChannelCount(ULONG* count) override;
  HRESULT GetChannelCounters(ULONG index, ChannelCounters* counters) override;
  HRESULT GetChannelRates(ULONG index, NetworkRates* rates) override;

  // IZemoStats; Reset is IResetProcessing's as well: both clear the counters
  // and samples and keep the channels.
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override;

  // IProcessPacket, IProcessTime
  HRESULT ProcessPacket(IPacket* packet) override;
  HRESULT ProcessTime(ZemoTime now) override;

  // IPersistStream, IPersistXml
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override;
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;

 private:
  // One channel as it is counted: naturally aligned, unlike the packed
  // ChannelCounters record that goes out.
  struct Channel {
    ULONG number;  // i + 1 for channel i, unless a stream said otherwise
    NetworkCounters counters;
    SampleTracker tracker;
  };

  // The channel's index for a packet; false if the packet names none.
  bool ChannelIndexOf(IPacket* packet, ULONG& index);

  IZemoStatsContext* m_context = nullptr;  // no reference: the context outlives us
  std::vector<Channel> m_channels;
};

}  // namespace zemo
