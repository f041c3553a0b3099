// The synthetic capture of `zemostats generate`: a deterministic minute of
// traffic on one Ethernet segment among a few hundred hosts (ARP, IPv4, IPv6,
// TCP, UDP, ICMP, ICMPv6, broadcast and multicast), written as a pcap file
// with nanosecond time stamps. The same options always give the same bytes.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace zemo::cli {

struct GeneratorOptions {
  uint64_t packets = 60000;
  uint32_t hosts = 300;
  uint32_t seconds = 60;
  uint64_t seed = 1;
};

// What one written frame holds, as the generator built it.
struct GeneratedFrame {
  enum Kind : uint8_t { kArp, kIpv4, kIpv6 };
  std::array<uint8_t, 6> sourceMac, destinationMac;
  Kind kind;
  std::array<uint8_t, 16> sourceIp, destinationIp;  // the first 4 bytes for IPv4 and ARP
  uint8_t transport;  // IP protocol number; 0 for ARP
  uint16_t sourcePort, destinationPort;
  uint32_t wireLength;
  uint64_t time;  // nanoseconds since 1970
};

// Writes the capture; with a record, also every frame's summary in order.
// On failure the file is removed and the message says why.
bool Generate(const std::string& path, const GeneratorOptions& options, std::vector<GeneratedFrame>* record,
              std::string* error);

}  // namespace zemo::cli
