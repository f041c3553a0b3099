#include "wireless/adapter_facts.h"

namespace zemo {

void ReadAdapterFacts(IZemoStatsContext* context, AdapterFacts& facts) {
  ComPtr<IAdapterInfo> adapter;
  CheckHr(context->GetAdapterInfo(adapter.ReleaseAndGetAddressOf()));
  if (!adapter) return;
  CheckHr(adapter->GetMediaType(&facts.mediaType));
  CheckHr(adapter->GetMediaSubType(&facts.mediaSubType));
  CheckHr(adapter->GetWirelessChannels(&facts.channels, &facts.channelCount));
  CheckHr(adapter->GetDataRates(&facts.rates, &facts.rateCount));
  facts.present = true;
}

}  // namespace zemo
