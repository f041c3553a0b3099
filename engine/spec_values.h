// The few MediaSpec facts the host side needs to fill a packet and to show or
// compare an address: type numbers, value lengths, full masks, and makers of
// the common address forms. Kept in their own namespace: the entity table owns
// the complete rules of the record.
#pragma once

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "identity/media_specs.h"

namespace zemo::specs {

inline constexpr uint8_t kClassProtocol = 1;
inline constexpr uint8_t kClassAddress = 2;

inline constexpr uint8_t kTypeProtocol = 9;    // identifier of the protocol tree, u32 little-endian
inline constexpr uint8_t kTypeEthernet = 10;   // 6-byte MAC address
inline constexpr uint8_t kTypePhysical11 = 11; // other 6-byte physical address
inline constexpr uint8_t kTypePhysical13 = 13; // other 6-byte physical address
inline constexpr uint8_t kTypeIpv4 = 21;
inline constexpr uint8_t kTypeIpv6 = 24;
inline constexpr uint8_t kTypePhysical43 = 43;  // 2-byte physical address

// Bytes of the value of a type; 0 for a type without a value.
constexpr uint32_t Length(uint8_t type) { return MediaSpecLength(type); }

// One mask bit for each value byte from the top bit down, except IPv4 (one for
// each bit) and protocols (only the low two bytes of the identifier count).
constexpr uint32_t FullMask(uint8_t type) { return MediaSpecFullMask(type); }

constexpr uint8_t ClassOf(uint8_t type) {
  switch (type) {
    case 10: case 11: case 13: case 20: case 21: case 22: case 24: case 25: case 43: return kClassAddress;
    case 34: case 36: return 3;
    default: return type == 0 ? 0 : kClassProtocol;
  }
}

// A spec of the full mask of its type; bytes beyond the type's length are dropped.
inline MediaSpec Make(uint8_t type, const uint8_t* value, size_t size) {
  MediaSpec s{};
  s.fClass = ClassOf(type);
  s.fType = type;
  s.fMask = FullMask(type);
  std::memcpy(s.fData, value, std::min<size_t>(size, Length(type)));
  return s;
}
inline MediaSpec Make(uint8_t type, std::initializer_list<uint8_t> value) {
  return Make(type, value.begin(), value.size());
}

inline MediaSpec Ethernet(const uint8_t* mac) { return Make(kTypeEthernet, mac, 6); }
inline MediaSpec Ipv4(const uint8_t* address) { return Make(kTypeIpv4, address, 4); }
inline MediaSpec Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) { return Make(kTypeIpv4, {a, b, c, d}); }
inline MediaSpec Ipv6(const uint8_t* address) { return Make(kTypeIpv6, address, 16); }

inline MediaSpec Protocol(uint32_t id) {
  const uint8_t le[4] = {uint8_t(id), uint8_t(id >> 8), uint8_t(id >> 16), uint8_t(id >> 24)};
  return Make(kTypeProtocol, le, 4);
}
inline uint32_t ProtocolId(const MediaSpec& s) {
  return uint32_t(s.fData[0]) | uint32_t(s.fData[1]) << 8 | uint32_t(s.fData[2]) << 16 | uint32_t(s.fData[3]) << 24;
}

// Class, type and mask equal, and the value over the type's length.
inline bool Equal(const MediaSpec& a, const MediaSpec& b) {
  return a.fClass == b.fClass && a.fType == b.fType && a.fMask == b.fMask &&
         std::memcmp(a.fData, b.fData, Length(a.fType)) == 0;
}

}  // namespace zemo::specs
