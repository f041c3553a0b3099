// Arbitrary bytes as one frame of each link type the decoder knows. The
// first byte picks the link type and whether the wire was longer than the
// capture; the rest is the frame, copied to a buffer of exactly its size so
// that a read past it is a report. The packet must stay consistent.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "engine/frame_decoder.h"

namespace {

constexpr uint32_t kLinkTypes[] = {
    zemo::link::kNull,     zemo::link::kEthernet, zemo::link::kRaw,       zemo::link::kRawOpenBsd,
    zemo::link::kRawLinkType, zemo::link::kIeee80211, zemo::link::kLoop,  zemo::link::kLinuxSll,
    zemo::link::kPrism,    zemo::link::kRadiotap, zemo::link::kIpv4,      zemo::link::kIpv6,
    zemo::link::kLinuxSll2, 258,                  zemo::link::kAvs,       zemo::link::kPpi,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static auto packet = zemo::Packet::Create();
  uint32_t linkType = kLinkTypes[data[0] % std::size(kLinkTypes)];
  bool snapped = data[0] & 0x80;
  std::vector<uint8_t> frame(data + 1, data + size);
  uint32_t captured = static_cast<uint32_t>(frame.size());
  uint32_t wire = snapped ? captured + 1000 : captured;
  zemo::FrameDecoder(linkType).Decode(*packet, frame.data(), captured, wire, 1);

  // Every layer starts within the frame's wire length.
  ZemoLayerReport layers[zemo::Packet::kMaxLayers];
  ULONG count = zemo::Packet::kMaxLayers;
  if (packet->GetLayers(&count, layers) != S_OK) std::abort();
  for (ULONG i = 0; i < count; ++i)
    if (layers[i].Offset > wire || layers[i].Length > wire) std::abort();
  // The protocol is the innermost layer.
  ULONG id = 0;
  packet->GetProtoSpecId(&id);
  if (count ? id != layers[count - 1].ProtoSpecId : id != 0xFFFF) std::abort();
  // The packet's bytes lie within the frame: all of it, or behind a radio
  // header the 802.11 frame.
  USHORT length = 0;
  const BYTE* bytes = nullptr;
  packet->GetCaptureLength(&length);
  packet->GetPacketData(&bytes);
  if (captured == 0) return 0;
  if (bytes < frame.data() || bytes + length > frame.data() + captured) std::abort();
  if (bytes == frame.data() && length != (captured > 0xFFFF ? 0xFFFF : captured)) std::abort();
  return 0;
}
