// Arbitrary 802.11 frames through both generations of node statistics in
// one context, with the channel statistics they report access points to.
// The first two bytes choose the frame kind the host names, the packet's
// class and its rate; the rest is the captured frame, which also gives the
// addresses. No frame may fail a statistic: each reads a body only as far
// as it was captured.
#include "fuzz_statistic.h"

#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "frame/stats_interfaces.h"

namespace {

constexpr uint16_t kKinds[] = {0xE0, 0xE1, 0xE2, 0xD5, 0x08, 0xF0, 0x3728, 0xDD};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  using namespace zemo::fuzz;
  if (size < 2 || size > 2400) return 0;
  static ComPtr<StatsContext> context = [] {
    NewObject(CLSID_WirelessNodeStats);  // registers the module, whose classes the context makes
    Require(RegisterEngineClasses() == S_OK);  // and the host's engine, which its identity tables need
    return StatsContext::Create();
  }();
  static std::vector<ComPtr<IProcessPacket>> statistics = [] {
    std::vector<ComPtr<IProcessPacket>> all;
    for (const CLSID* clsid : {&CLSID_WirelessChannelStats2, &CLSID_WirelessNodeStats, &CLSID_WirelessNodeStats2}) {
      ComPtr<IUnknown> object = NewObject(*clsid);
      ComPtr<IZemoStats> stats;
      Require(QueryTo(object.Get(), &stats) == S_OK);
      Require(context->AddStats(*clsid, stats.Get()) == S_OK);
      all.emplace_back();
      Require(QueryTo(object.Get(), &all.back()) == S_OK);
    }
    return all;
  }();
  const uint16_t kind = kKinds[data[0] % 8];
  std::vector<BYTE> frame(data + 2, data + size);
  PacketBuilder packet;
  packet.Clear().Time(133000000000000000ull + size).Length(static_cast<ULONG>(frame.size() + (data[1] & 0x40)));
  packet.Data(frame).Wireless({6, 2437, 4}, data[1] & 0x3F, 50, -60, 10, -95).Class(1 + data[1] % 3);
  packet.FrameKind(kind).Protocol(kind);
  PacketBuilder::Mac a{}, b{};
  for (size_t i = 0; i < 6 && 4 + i < frame.size(); ++i) a[i] = frame[4 + i];
  for (size_t i = 0; i < 6 && 10 + i < frame.size(); ++i) b[i] = frame[10 + i];
  packet.Receiver(a).Transmitter(b).Bssid(data[1] & 0x80 ? a : b);
  packet.Target().AddField(kind, frame.data(), static_cast<USHORT>(frame.size()));
  packet.Target().AddHeaderField(kind, frame.data(), static_cast<USHORT>(frame.size()));
  for (const ComPtr<IProcessPacket>& stats : statistics) {
    const HRESULT hr = stats->ProcessPacket(packet.Get());
    Require(hr == S_OK || hr == S_FALSE);
  }
  return 0;
}
