// Arbitrary bytes as the stream of a WirelessChannelStats2. A load ends in a
// status (E_UNEXPECTED for the stream's own format errors); what loaded
// saves, and that loads and saves again to the same bytes. Whatever a
// failed load left takes a packet.
#include "fuzz_statistic.h"

#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "frame/stats_interfaces.h"
#include "wireless/wireless_interfaces.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  using namespace zemo::fuzz;
  ComPtr<IUnknown> object = NewObject(CLSID_WirelessChannelStats2);
  const HRESULT hr = LoadObjectFromStream(object.Get(), CreateReadOnlyStream(data, size).Get());
  Require(hr == S_OK || hr == E_FAIL || hr == E_UNEXPECTED);
  static PacketBuilder packet;
  packet.Clear().Length(100).Data(std::vector<BYTE>(24, 0x08)).Wireless({6, 2437, 4}, 22, 80, -60, 10, -95);
  ComPtr<IProcessPacket> process;
  Require(QueryTo(object.Get(), &process) == S_OK);
  if (FAILED(hr)) {
    Require(process->ProcessPacket(packet.Get()) == S_OK);
    return 0;
  }
  std::vector<uint8_t> saved = SavedBytes(object.Get());
  ComPtr<IUnknown> again = NewObject(CLSID_WirelessChannelStats2);
  Require(LoadObjectFromStream(again.Get(), CreateReadOnlyStream(saved.data(), saved.size()).Get()) == S_OK);
  Require(SavedBytes(again.Get()) == saved);
  Require(process->ProcessPacket(packet.Get()) == S_OK);
  return 0;
}
