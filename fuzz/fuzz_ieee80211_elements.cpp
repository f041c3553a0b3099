// Arbitrary bytes as the body of a management frame: the element walk
// reads only what it was given, and a name never passes 32 bytes.
#include <cstdlib>
#include <vector>

#include "engine/ieee80211_elements.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A copy of exactly the bytes given, so that a read past them is caught.
  std::vector<uint8_t> body(data, data + size);
  const zemo::ManagementElements e = zemo::ReadManagementElements(body.data(), body.size());
  if (e.ssid.size() > 32 || (!e.haveSsid && !e.ssid.empty()) || e.dsChannel > 255) std::abort();
  return 0;
}
