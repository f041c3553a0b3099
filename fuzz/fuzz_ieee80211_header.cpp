// Arbitrary bytes as an 802.11 frame, read by the MAC header's analyzer; the
// first byte says whether the radio padded the header. Every place it
// names lies where a frame of its kind can have it.
#include <cstdlib>
#include <vector>

#include "engine/ieee80211_header.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::vector<uint8_t> frame(data + 1, data + size);
  const auto h = zemo::ReadIeee80211Header(frame.empty() ? nullptr : frame.data(), uint32_t(frame.size()), data[0] & 1);
  if (h.present != (frame.size() >= 2)) std::abort();
  for (uint32_t at : {h.receiver, h.transmitter, h.source, h.destination, h.bssid})
    if (at && at + 6 > h.headerLength) std::abort();
  if (h.llc && (h.llc < h.headerLength || h.llc > h.headerLength + 3)) std::abort();
  if (h.haveKeyIndex && (h.keyIndex > 3 || !h.isProtected || h.encryption == kEncryptionNone)) std::abort();
  return 0;
}
