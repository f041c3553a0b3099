// AdapterInfo: the host's description of its capture adapter (IAdapterInfo),
// which a host fills and hands to a statistics context.
#pragma once

#include <span>
#include <vector>

#include "frame/engine_interfaces.h"
#include "platform/object.h"

inline constexpr char16_t kProgIdAdapterInfo[] = u"ZemoEngine.AdapterInfo";

namespace zemo {

class AdapterInfo final : public Object<AdapterInfo, IAdapterInfo> {
 public:
  void SetMediaType(ULONG type);
  void SetMediaSubType(ULONG subType);
  void SetLinkSpeed(ULONGLONG bitsPerSecond);
  void SetChannelNumbers(std::span<const ULONG> numbers);
  void SetWirelessChannels(std::span<const SWirelessChannel> channels);
  void SetDataRates(std::span<const ULONG> halfMegabits);

  HRESULT GetMediaType(ULONG* type) override;
  HRESULT GetMediaSubType(ULONG* subType) override;
  HRESULT GetLinkSpeed(ULONGLONG* speed) override;
  // Each array is a new copy in task memory, or null with a count of 0 when
  // the adapter has none.
  HRESULT GetChannelNumbers(ULONG* count, ULONG** numbers) override;
  HRESULT GetWirelessChannels(SWirelessChannel** channels, ULONG* count) override;
  HRESULT GetDataRates(ULONG** rates, ULONG* count) override;

 private:
  ULONG m_mediaType = 0;
  ULONG m_mediaSubType = 0;
  ULONGLONG m_linkSpeed = 0;
  std::vector<ULONG> m_channelNumbers;
  std::vector<SWirelessChannel> m_channels;
  std::vector<ULONG> m_dataRates;
};

}  // namespace zemo
