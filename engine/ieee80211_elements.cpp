#include "engine/ieee80211_elements.h"

namespace zemo {
namespace {

constexpr uint8_t kTagSsid = 0, kTagDsParameters = 3, kTagRsn = 48, kTagVendor = 221;
constexpr uint8_t kWfaOui[3] = {0x00, 0x50, 0xF2};
constexpr uint8_t kWfaWpa = 1;
constexpr size_t kMaxSsid = 32;

}  // namespace

size_t ElementsOffset(uint8_t fc0) noexcept {
  switch (fc0 & 0xFC) {
    case 0x80:  // beacon
    case 0x50:  // probe response: timestamp, interval, capability
      return 36;
    case 0x40:  // probe request
      return 24;
    default:
      return 0;
  }
}

ManagementElements ReadManagementElements(const uint8_t* data, size_t length) noexcept {
  ManagementElements out;
  if (!data) return out;
  for (size_t pos = 0; pos + 2 <= length;) {
    const uint8_t tag = data[pos], len = data[pos + 1];
    const uint8_t* value = data + pos + 2;
    if (len > length - pos - 2) break;
    switch (tag) {
      case kTagSsid:
        if (!out.haveSsid && len <= kMaxSsid) {
          out.haveSsid = true;
          out.ssid.assign(reinterpret_cast<const char*>(value), len);
        }
        break;
      case kTagDsParameters:
        if (len == 1) out.dsChannel = value[0];
        break;
      case kTagRsn:
        if (len >= 2) out.rsn = true;
        break;
      case kTagVendor:
        if (len >= 4 && value[0] == kWfaOui[0] && value[1] == kWfaOui[1] && value[2] == kWfaOui[2] &&
            value[3] == kWfaWpa)
          out.wpa = true;
        break;
      default:
        break;
    }
    pos += 2 + size_t{len};
  }
  return out;
}

}  // namespace zemo
