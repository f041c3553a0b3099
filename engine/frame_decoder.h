// FrameDecoder: turns one captured frame into the host's Packet.
//
// One small analyzer per protocol (link, network, transport), each checking
// its bounds before every read and handing what follows to the next one. A
// malformed frame is decoded as far as it is valid: what was found up to the
// fault stays in the packet, and a header that claims more bytes than the
// wire carried marks the packet with a frame error. Decoding allocates
// nothing: the packet refers to the frame's bytes and has fixed room for
// its layers.
//
// What the packet gets:
// - wire and capture length, time stamp;
// - physical source and destination (Ethernet MAC, type 10, of the outer
//   frame of a tunnel and the inner frame of Cisco ISL; 802.11 MAC, type 13)
//   and, on 802.11, the BSSID;
// - logical source and destination from the outermost IPv4, IPv6 or ARP
//   (ARP's sender and target);
// - on 802.11, receiver and transmitter only where they are not the source
//   and destination (the frame crossed a distribution system), so that no
//   frame counts twice in one conversation;
// - the transport of the first fragment of a datagram; later fragments end
//   at the network layer;
// - the innermost protocol found, as identifier and as type-9 spec, and one
//   layer report per protocol, outermost first;
// - broadcast and multicast from the link destination (from the IP
//   destination when the link has no addresses);
// - on 802.11: radio readings (channel, rate, signal, noise) from radiotap,
//   prism, AVS or PPI in the media block, frame kind, packet class (1
//   management, 2 control, 3 data), flag 0x4 for a protected frame, its
//   cipher and key index, the EAP method of an EAPOL or authentication
//   frame, and a CRC error for a frame its radio marks with a bad FCS. Behind
//   a radio header the packet's data and capture length are those of the
//   802.11 frame (the wire length stays the whole record's); layer offsets
//   count from the record's start.
#pragma once

#include <cstdint>

#include "engine/packet.h"

namespace zemo {

// Link types by their libpcap DLT number.
namespace link {
inline constexpr uint32_t kNull = 0;          // BSD loopback, family in the writer's byte order
inline constexpr uint32_t kEthernet = 1;
inline constexpr uint32_t kRaw = 12;          // raw IP (Linux and most systems)
inline constexpr uint32_t kRawOpenBsd = 14;
inline constexpr uint32_t kRawLinkType = 101; // LINKTYPE_RAW as some files carry it
inline constexpr uint32_t kIeee80211 = 105;
inline constexpr uint32_t kLoop = 108;        // OpenBSD loopback, family in network byte order
inline constexpr uint32_t kLinuxSll = 113;
inline constexpr uint32_t kPrism = 119;
inline constexpr uint32_t kRadiotap = 127;
inline constexpr uint32_t kAvs = 163;
inline constexpr uint32_t kPpi = 192;
inline constexpr uint32_t kIpv4 = 228;
inline constexpr uint32_t kIpv6 = 229;
inline constexpr uint32_t kLinuxSll2 = 276;
}  // namespace link

// The medium the statistics are told for a capture of a link type. One table
// decides it:
//
//   Ethernet, Linux cooked (v1, v2), raw IP, BSD loopback,
//   and every link type the decoder does not know ....... media type 0, subtype 0 (802.3)
//   802.11, bare or behind radiotap, prism, AVS or PPI .. media type 0, subtype 3 (802.11)
//
// Unknown link types get the 802.3 medium so that totals, sizes, history and
// errors still count.
struct LinkMedium {
  ULONG type;
  ULONG subType;
};
LinkMedium MediumOfLinkType(uint32_t linkType) noexcept;

// True for the link types the decoder has an analyzer for.
bool IsKnownLinkType(uint32_t linkType) noexcept;

// What a decode found wrong with a frame, as bits: the faults an analyser's
// expert information would point out. The packet is decoded as far as it
// goes whatever they are.
enum FrameFault : uint32_t {
  kFaultMalformed = 1u << 0,     // a header claims more bytes than its carrier holds
  kFaultTruncated = 1u << 1,     // fewer bytes captured than the wire carried
  kFaultUnknownLink = 1u << 2,   // a link type without an analyzer
  kFaultBadVersion = 1u << 3,    // a header of a version the analyzer doesn't know
  kFaultCountedShort = 1u << 4,  // longer than 65535 bytes: the engine counts 65535
  kFaultForeign = 1u << 5,       // not the protocol its link type names
};
inline constexpr size_t kFrameFaultKinds = 5;

class FrameDecoder {
 public:
  explicit FrameDecoder(uint32_t linkType) noexcept : m_linkType(linkType) {}

  uint32_t LinkType() const noexcept { return m_linkType; }
  bool Known() const noexcept { return IsKnownLinkType(m_linkType); }

  // Clears the packet and fills it from the frame. data holds captureLength
  // bytes and must outlive the packet's use. A frame of an unknown link
  // type gets lengths and time only. Gives the frame's faults (FrameFault
  // bits); a frame that is not of the protocol its link type names (IPv4 on
  // an IPv6 link) gets lengths, time and a frame error, and kFaultForeign.
  uint32_t Decode(Packet& packet, const uint8_t* data, uint32_t captureLength, uint32_t wireLength,
                  ZemoTime time) const noexcept;

 private:
  uint32_t m_linkType;
};

}  // namespace zemo
