// WirelessChannelStatsTracker: one number of one radio channel's
// WirelessChannelStats record through time (packets and bytes by class,
// direction and flag, errors, signal and noise extremes), named by the
// module's table of wireless units. The tracker ring, its reads and its
// lifecycle are every tracker's (TStatsTracker).
//
// The channel is found by walking the statistic's channels for its 10
// bytes; until a packet brings it, an update samples nothing and succeeds.
// The channel's place is checked again on every update, since a channel of
// a lower number that comes later moves it.
#pragma once

#include "alarms/stats_tracker.h"
#include "frame/clsids.h"
#include "frame/map_ex.h"
#include "wireless/wireless_interfaces.h"

namespace zemo {

// The numbers a channel tracker can follow, by stat type, in table order.
class CWirelessUnitIDMap {
 public:
  static const CWirelessUnitIDMap& Get();
  // The name of a stat type, or null.
  const char16_t* Name(ULONG type) const noexcept;
  using Map = TMapEx<ULONG, ULONG, const char16_t*, const char16_t*>;
  const Map& Units() const noexcept { return m_units; }

 private:
  CWirelessUnitIDMap();
  Map m_units{257};
};

class WirelessChannelStatsTracker final
    : public TStatsTracker<WirelessChannelStatsTracker, IWirelessChannelStatsTracker> {
 public:
  static constexpr const CLSID& kClsid = CLSID_WirelessChannelStatsTracker;
  static constexpr char16_t kXmlElement[] = u"WirelessChannelStatsTracker";
  using Source = ZemoWirelessChannelStat;

  // Stat types of the packets and bytes of a channel.
  static constexpr LONG kTotalPackets = 2;
  static constexpr LONG kTotalBytes = 3;

  // IWirelessChannelStatsTracker
  HRESULT GetChannel(SWirelessChannel* channel) override;
  // A place already found stays.
  HRESULT SetChannel(SWirelessChannel channel) override;
  HRESULT GetStatType(LONG* type) override;
  HRESULT SetStatType(LONG type) override;

  LONG StatCount() const noexcept;
  CVariant StatId(LONG index) const;
  const char16_t* StatName(LONG id) const;
  HRESULT Bind(IZemoStatsContext* context);
  HRESULT Read(ZemoWirelessChannelStat& stat);
  double SampleOf(const ZemoWirelessChannelStat& stat) const;
  void CopyTo(IZemoStatsTracker* clone);
  void SaveXml(IXMLDOMDocument* document, IXMLDOMElement* element);
  void LoadXml(IXMLDOMElement* element);

 private:
  // The channel's place in the statistic, or -1.
  LONG Resolve();

  SWirelessChannel m_channel{0, 0, 0};
  ComPtr<IWirelessChannelStats> m_statistic;
  LONG m_index = -1;
};

}  // namespace zemo
