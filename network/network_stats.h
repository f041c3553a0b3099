// NetworkStats: how many packets and bytes went by, how many of them to
// broadcast and multicast addresses, and at what rate between the last two
// ticks. A private ChannelStats, created with the object, does the same per
// channel of the adapter; its IChannelStats is offered here unchanged.
//
// This is the shape of a statistic: the interfaces listed once in the object
// skeleton, every public operation inside Locked(), the context held without
// a reference, the packet path free of allocation and lookups, and the
// persistence forms built from the shared helpers in frame/.
#pragma once

#include "frame/persist_interfaces.h"
#include "frame/selection.h"
#include "frame/stats_interfaces.h"
#include "network/network_counters.h"
#include "platform/object.h"

namespace zemo {

class NetworkStats;

// IZemoStats and IResetProcessing both clear counters and samples, and each
// passes the reset on to the private object through the same interface.
template <class I>
struct NetworkStatsResetAs : I {
  using interface_type = I;
  HRESULT Reset() final;
};

class NetworkStats final
    : public Object<NetworkStats, INetworkStats, IChannelStats, NetworkStatsResetAs<IZemoStats>, IProcessPacket,
                    IProcessTime, NetworkStatsResetAs<IResetProcessing>, IPersistStream, IPersistXml, IPersistFile,
                    LeafSelection<NetworkStats>> {
 public:
  HRESULT FinalConstruct();

  // INetworkStats
  HRESULT GetNetworkCounters(NetworkCounters* counters) override;
  HRESULT GetNetworkRates(NetworkRates* rates) override;

  // IChannelStats, answered by the private object
  HRESULT GetChannelCount(ULONG* count) override;
  HRESULT GetChannelCounters(ULONG index, ChannelCounters* counters) override;
  HRESULT GetChannelRates(ULONG index, NetworkRates* rates) override;

  // IZemoStats (Reset: NetworkStatsResetAs)
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;

  // IProcessPacket, IProcessTime
  HRESULT ProcessPacket(IPacket* packet) override;
  HRESULT ProcessTime(ZemoTime now) override;

  // IPersistStream, IPersistXml, IPersistFile
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override;
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;
  HRESULT Load(LPCOLESTR fileName, DWORD mode) override;
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR fileName) override;
  HRESULT GetCurFile(LPOLESTR* fileName) override;

  // ISelectableObject
  static constexpr const char16_t* kSelectName = u"networkstats";
  static constexpr ULONG kSelectFlag = 1;
  HRESULT GetTable(IDataTable** table) override;

 private:
  friend struct LeafSelection<NetworkStats>;
  template <class I>
  friend struct NetworkStatsResetAs;
  // Clears counters and samples, then resets the private object through I.
  template <class I>
  HRESULT ResetThrough();
  // One of the private object's other interfaces (not on the packet path).
  template <class I>
  ComPtr<I> Private() const;
  // After anything that may change the private object's channels.
  void NoteChannels();

  IZemoStatsContext* m_context = nullptr;  // no reference: the context outlives us
  NetworkCounters m_counters{};
  SampleTracker m_tracker{};
  ComPtr<IChannelStats> m_channels;         // the private ChannelStats
  ComPtr<IProcessPacket> m_channelPackets;  // the same object, for the packet path
  // Whether the private object has channels. Only SetContext and the loads
  // give it channels, and all of them come through here; without channels it
  // counts nothing, so the packet path leaves it out.
  bool m_hasChannels = false;
};

template <class I>
HRESULT NetworkStatsResetAs<I>::Reset() {
  return static_cast<NetworkStats*>(this)->template ResetThrough<I>();
}

}  // namespace zemo
