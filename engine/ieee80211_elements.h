// The information elements of an 802.11 management frame as the host reads
// them: the network name, the channel it announces and the protection it
// offers (an RSN element: WPA2 or later; the Wi-Fi Alliance's vendor
// element of type 1: WPA). Elements are tag, length, value; one that runs
// past the captured bytes ends the walk, and what came before it stands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zemo {

struct ManagementElements {
  bool haveSsid = false;
  std::string ssid;  // its bytes as they stand, at most 32
  bool rsn = false;
  bool wpa = false;
  int dsChannel = -1;  // -1: no DS parameter set
};

// Where a frame's elements start: 36 for a beacon or probe response, 24 for
// a probe request, 0 for a frame whose body holds no elements read here.
// fc0 is the first frame control byte.
size_t ElementsOffset(uint8_t fc0) noexcept;

// The elements of length bytes at data.
ManagementElements ReadManagementElements(const uint8_t* data, size_t length) noexcept;

}  // namespace zemo
