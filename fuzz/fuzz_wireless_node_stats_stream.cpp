// Arbitrary bytes as the streams of both generations of node statistics.
// The first byte chooses the class. A load ends in a status; what loaded
// saves, loads and saves again to the same bytes (records that repeat a key
// merge, so the input itself need not come back). Whatever a load left,
// failed or not, takes a packet.
#include "fuzz_statistic.h"

#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "frame/stats_interfaces.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  using namespace zemo::fuzz;
  if (size < 1) return 0;
  const CLSID& clsid = data[0] & 1 ? CLSID_WirelessNodeStats2 : CLSID_WirelessNodeStats;
  ComPtr<IUnknown> object = NewObject(clsid);
  const HRESULT hr = LoadObjectFromStream(object.Get(), CreateReadOnlyStream(data + 1, size - 1).Get());
  Require(hr == S_OK || hr == E_FAIL || hr == E_UNEXPECTED || hr == E_INVALIDARG);
  static PacketBuilder packet;
  packet.Clear().Length(100).Data(std::vector<BYTE>(40, 0x08)).Wireless({6, 2437, 4}, 22, 80, -60, 10, -95).Class(3);
  ComPtr<IProcessPacket> process;
  Require(QueryTo(object.Get(), &process) == S_OK);
  const HRESULT processed = process->ProcessPacket(packet.Get());
  Require(processed == S_OK || processed == S_FALSE);
  if (FAILED(hr)) return 0;
  std::vector<uint8_t> saved = SavedBytes(object.Get());
  ComPtr<IUnknown> again = NewObject(clsid);
  Require(LoadObjectFromStream(again.Get(), CreateReadOnlyStream(saved.data(), saved.size()).Get()) == S_OK);
  Require(SavedBytes(again.Get()) == saved);
  return 0;
}
