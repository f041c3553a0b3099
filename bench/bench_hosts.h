// The synthetic hosts the table benchmarks send between: host i has a MAC
// and an IPv4 address of its own, and numbered pairs of hosts spread the
// conversations over all of them.
#pragma once

#include <cstdint>

#include "engine/packet.h"
#include "engine/spec_values.h"

namespace zemo::bench {

inline MediaSpec HostMac(uint32_t i) {
  return specs::Make(specs::kTypeEthernet, {0x02, 0x00, uint8_t(i >> 24), uint8_t(i >> 16), uint8_t(i >> 8), uint8_t(i)});
}
inline MediaSpec HostIp(uint32_t i) {
  return specs::Ipv4(uint8_t(10 + (i >> 24)), uint8_t(i >> 16), uint8_t(i >> 8), uint8_t(i));
}

// Both addresses of both hosts into the packet.
inline void SetHosts(Packet& p, const MediaSpec& fromMac, const MediaSpec& fromIp, const MediaSpec& toMac,
                     const MediaSpec& toIp) {
  p.SetAddress(PacketAddress::kPhysicalSource, fromMac);
  p.SetAddress(PacketAddress::kLogicalSource, fromIp);
  p.SetAddress(PacketAddress::kPhysicalDestination, toMac);
  p.SetAddress(PacketAddress::kLogicalDestination, toIp);
}

// Pair k of a segment of `hosts` hosts: pairs k and k + hosts start at the
// same host and go to its next neighbours, so no pair repeats below
// hosts * (hosts - 1).
struct Pair {
  uint32_t from, to;
};
inline Pair PairOf(uint32_t k, uint32_t hosts) {
  uint32_t from = k % hosts;
  return {from, (from + 1 + k / hosts) % hosts};
}

}  // namespace zemo::bench
