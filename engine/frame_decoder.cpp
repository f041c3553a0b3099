#include "engine/frame_decoder.h"

#include <algorithm>

#include "engine/ieee80211_header.h"
#include "engine/proto_specs.h"
#include "engine/radio_reading.h"
#include "engine/spec_values.h"

namespace zemo {
namespace {

using proto::kNone;

// Deeper nesting than this (tunnels in tunnels) is not followed.
constexpr int kMaxDepth = 24;

// The state of one decode. Every read goes through Has() first: offsets are
// checked against the captured bytes in 64 bits, so no sum can wrap.
struct Frame {
  Packet& p;
  const uint8_t* d;
  uint32_t cap;
  uint16_t proto = kNone;  // innermost protocol so far
  ULONG status = 0;        // error bits for TestStatus
  uint32_t faults = 0;     // FrameFault bits beyond what status says
  ULONG flags = 0;
  bool linkGroup = false;  // the link layer decided broadcast and multicast
  bool wireless = false;
  bool fragment = false;   // within the first fragment of a datagram: lengths above IP cover more than it
  bool foreign = false;    // not the protocol its link type names
  bool dataPad = false;     // the radio padded the 802.11 header to 4 bytes
  uint32_t frameStart = 0;  // behind a radio header: where the packet's data starts
  int depth = 0;

  bool Has(uint32_t off, uint32_t n) const { return uint64_t(off) + n <= cap; }
  uint8_t U8(uint32_t off) const { return d[off]; }
  uint16_t Be16(uint32_t off) const { return uint16_t(d[off] << 8 | d[off + 1]); }
  uint16_t Le16(uint32_t off) const { return uint16_t(d[off] | d[off + 1] << 8); }
  uint32_t Be32(uint32_t off) const { return uint32_t(Be16(off)) << 16 | Be16(off + 2); }
  uint32_t Le32(uint32_t off) const { return uint32_t(Le16(off)) | uint32_t(Le16(off + 2)) << 16; }

  void Layer(uint16_t id, uint32_t off, uint32_t header, uint32_t end) {
    if (p.AddLayer({id, static_cast<USHORT>(std::min<uint32_t>(header, 0xFFFF)), off, end > off ? end - off : 0}))
      proto = id;
  }
  // The end a header claims, bounded by its carrier's; claiming more than
  // the carrier holds is a frame error.
  uint32_t Claim(uint32_t off, uint32_t length, uint32_t end) {
    uint64_t claimed = uint64_t(off) + length;
    if (claimed > end) {
      status |= kPacketStatusFrame;
      return end;
    }
    return static_cast<uint32_t>(claimed);
  }
  // A layer that would start past its carrier's end: the header before it
  // claimed more than there was. True when the decode must stop here.
  bool Beyond(uint32_t off, uint32_t end) {
    if (off <= end) return false;
    status |= kPacketStatusFrame;
    return true;
  }
  void SetIfAbsent(PacketAddress which, const MediaSpec& spec) {
    if (!p.HasAddress(which)) p.SetAddress(which, spec);
  }
  // Broadcast and multicast from a destination MAC, if the link decides them.
  void LinkGroup(uint32_t macOff) {
    if (linkGroup) return;
    linkGroup = true;
    static constexpr uint8_t kAllOnes[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    if (std::equal(d + macOff, d + macOff + 6, kAllOnes))
      p.SetBroadcast(true);
    else if (d[macOff] & 1)
      p.SetMulticast(true);
  }
};

MediaSpec Mac(const Frame& f, uint32_t off, uint8_t type) { return specs::Make(type, f.d + off, 6); }

void EtherType(Frame& f, uint16_t type, uint32_t off, uint32_t end);
void Ethernet(Frame& f, uint32_t off, uint32_t end);
void Ipv4(Frame& f, uint32_t off, uint32_t end);
void Ipv6(Frame& f, uint32_t off, uint32_t end);

// --- transport and above ---

uint16_t ByPorts(uint16_t (*lookup)(uint16_t), uint16_t source, uint16_t destination) {
  uint16_t a = lookup(source), b = lookup(destination);
  // Both well known: the lower port is the service more often than not.
  if (a != kNone && b != kNone) return source < destination ? a : b;
  return a != kNone ? a : b;
}

void Tcp(Frame& f, uint32_t off, uint32_t end) {
  uint32_t header = f.Has(off, 13) ? uint32_t(f.U8(off + 12) >> 4) * 4 : 20;
  f.Layer(proto::kTcp, off, header, end);
  if (!f.Has(off, 13) || header < 20 || f.Beyond(off + header, end)) return;
  uint16_t app = ByPorts(proto::ByTcpPort, f.Be16(off), f.Be16(off + 2));
  if (app != kNone) f.Layer(app, off + header, 0, end);
}

void Udp(Frame& f, uint32_t off, uint32_t end) {
  f.Layer(proto::kUdp, off, 8, end);
  if (!f.Has(off, 8)) return;
  uint16_t length = f.Be16(off + 4);
  // 0 is a jumbogram's length; anything shorter than the header is void.
  if (f.Beyond(off + 8, end)) return;
  uint32_t udpEnd = length >= 8 && !f.fragment ? f.Claim(off, length, end) : end;
  uint16_t app = ByPorts(proto::ByUdpPort, f.Be16(off), f.Be16(off + 2));
  if (app == kNone) return;
  f.Layer(app, off + 8, app == proto::kVxlan ? 8 : 0, udpEnd);
  if (app == proto::kVxlan && f.Has(off + 8, 1) && (f.U8(off + 8) & 0x08) && f.depth < kMaxDepth) {
    ++f.depth;
    Ethernet(f, off + 16, udpEnd);
  }
}

void Gre(Frame& f, uint32_t off, uint32_t end) {
  if (!f.Has(off, 4)) {
    f.Layer(proto::kGre, off, 4, end);
    return;
  }
  uint16_t bits = f.Be16(off), type = f.Be16(off + 2);
  uint32_t version = bits & 7;
  uint32_t header = 4;
  if (version == 0) {
    header += (bits & 0xC000) ? 4 : 0;  // checksum or routing present
    header += (bits & 0x2000) ? 4 : 0;  // key
    header += (bits & 0x1000) ? 4 : 0;  // sequence number
  } else {
    header += 4;                        // enhanced GRE: payload length and call id
    header += (bits & 0x1000) ? 4 : 0;
    header += (bits & 0x0080) ? 4 : 0;  // acknowledgement
  }
  f.Layer(proto::kGre, off, header, end);
  if (version > 1) f.faults |= kFaultBadVersion;
  if (version != 0 || f.depth >= kMaxDepth) return;
  ++f.depth;
  if (type == 0x6558)
    Ethernet(f, off + header, end);
  else if (type == 0x2000 && !f.Beyond(off + header, end))
    f.Layer(proto::kCdp, off + header, 0, end);  // Cisco's type for CDP, as in SNAP
  else
    EtherType(f, type, off + header, end);
}

void IpPayload(Frame& f, uint8_t protocol, uint32_t off, uint32_t end) {
  if (f.depth >= kMaxDepth || f.Beyond(off, end)) return;
  ++f.depth;
  switch (protocol) {
    case 1: f.Layer(proto::kIcmp, off, 8, end); return;
    case 2: f.Layer(proto::kIgmp, off, 8, end); return;
    case 58: f.Layer(proto::kIcmpv6, off, 8, end); return;
    case 6: Tcp(f, off, end); return;
    case 17: Udp(f, off, end); return;
    case 132: f.Layer(proto::kSctp, off, 12, end); return;
    case 47: Gre(f, off, end); return;
    case 4: Ipv4(f, off, end); return;
    case 41: Ipv6(f, off, end); return;
    default: {
      uint16_t id = proto::ByIpProtocol(protocol);
      if (id != kNone) f.Layer(id, off, 0, end);
    }
  }
}

// --- network ---

// A header of another IP version where its carrier names this one: the
// layer counts, as a frame error, and nothing in it.
bool WrongVersion(Frame& f, uint16_t id, uint8_t version, uint32_t off, uint32_t end) {
  if (!f.Has(off, 1) || f.U8(off) >> 4 == version) return false;
  f.Layer(id, off, version == 4 ? 20 : 40, end);
  f.status |= kPacketStatusFrame;
  f.faults |= kFaultBadVersion;
  return true;
}

void Ipv4(Frame& f, uint32_t off, uint32_t end) {
  if (f.Beyond(off, end) || WrongVersion(f, proto::kIpv4, 4, off, end)) return;
  uint32_t header = f.Has(off, 1) ? uint32_t(f.U8(off) & 0x0F) * 4 : 20;
  if (!f.Has(off, 4) || header < 20) {
    f.Layer(proto::kIpv4, off, std::max<uint32_t>(header, 20), end);
    return;
  }
  uint16_t total = f.Be16(off + 2);
  // A total length of 0 comes from segmentation offload: the frame holds it all.
  uint32_t ipEnd = total == 0 ? end : f.Claim(off, total, end);
  f.Layer(proto::kIpv4, off, header, ipEnd);
  if (total != 0 && total < header) {
    f.status |= kPacketStatusFrame;  // a header longer than its datagram
    return;
  }
  if (!f.Has(off, 20)) return;
  bool outermost = !f.p.HasAddress(PacketAddress::kLogicalSource);
  if (outermost) {
    f.p.SetAddress(PacketAddress::kLogicalSource, specs::Ipv4(f.d + off + 12));
    f.p.SetAddress(PacketAddress::kLogicalDestination, specs::Ipv4(f.d + off + 16));
    if (!f.linkGroup) {
      uint8_t first = f.U8(off + 16);
      if (f.Be32(off + 16) == 0xFFFFFFFF)
        f.p.SetBroadcast(true);
      else if (first >= 224 && first <= 239)
        f.p.SetMulticast(true);
    }
  }
  // A later fragment counts at the network layer, since its payload is not
  // a header; the first carries the transport header.
  const uint16_t fragment = f.Be16(off + 6);
  if (fragment & 0x1FFF) return;
  if (fragment & 0x2000) f.fragment = true;
  IpPayload(f, f.U8(off + 9), off + header, ipEnd);
}

void Ipv6(Frame& f, uint32_t off, uint32_t end) {
  if (f.Beyond(off, end) || WrongVersion(f, proto::kIpv6, 6, off, end)) return;
  if (!f.Has(off, 8)) {
    f.Layer(proto::kIpv6, off, 40, end);
    return;
  }
  uint16_t payload = f.Be16(off + 4);
  uint32_t ipEnd = payload == 0 ? end : f.Claim(off, 40 + uint32_t(payload), end);
  uint8_t next = f.U8(off + 6);
  // Extension headers belong to the IPv6 header.
  uint32_t at = off + 40;
  bool fragment = false, esp = false, ah = false;
  uint32_t ahAt = 0, ahLength = 0;
  for (int i = 0; i < 8 && f.Has(at, 2); ++i) {
    if (next == 0 || next == 43 || next == 60 || next == 135) {
      uint32_t length = (uint32_t(f.U8(at + 1)) + 1) * 8;
      next = f.U8(at);
      at += length;
    } else if (next == 44) {
      if (!f.Has(at, 4)) break;
      fragment = (f.Be16(at + 2) & 0xFFF8) != 0;
      if (f.Be16(at + 2) & 1) f.fragment = true;
      next = f.U8(at);
      at += 8;
    } else if (next == 51) {
      ah = true;
      ahAt = at;
      ahLength = (uint32_t(f.U8(at + 1)) + 2) * 4;
      next = f.U8(at);
      at += ahLength;
    } else {
      esp = next == 50;
      break;
    }
  }
  f.Layer(proto::kIpv6, off, std::min<uint64_t>(at - off, 0xFFFF), ipEnd);
  if (ah && !f.Beyond(ahAt, ipEnd)) f.Layer(proto::kAh, ahAt, ahLength, ipEnd);
  if (f.Has(off, 40) && !f.p.HasAddress(PacketAddress::kLogicalSource)) {
    f.p.SetAddress(PacketAddress::kLogicalSource, specs::Ipv6(f.d + off + 8));
    f.p.SetAddress(PacketAddress::kLogicalDestination, specs::Ipv6(f.d + off + 24));
    if (!f.linkGroup && f.U8(off + 24) == 0xFF) f.p.SetMulticast(true);
  }
  if (esp && !f.Beyond(at, ipEnd)) f.Layer(proto::kEsp, at, 8, ipEnd);
  if (fragment || esp || next == 59 || at > ipEnd || !f.Has(off, 40)) return;
  IpPayload(f, next, at, ipEnd);
}

void Arp(Frame& f, uint16_t id, uint32_t off, uint32_t end) {
  if (!f.Has(off, 6)) {
    f.Layer(id, off, 8, end);
    return;
  }
  uint32_t hlen = f.U8(off + 4), plen = f.U8(off + 5);
  f.Layer(id, off, 8 + 2 * (hlen + plen), end);
  // ATM's ARP (hardware type 19) lays its addresses out otherwise.
  if (f.Be16(off) == 19 || f.Be16(off + 2) != 0x0800 || plen != 4 || !f.Has(off, 8 + 2 * (hlen + plen))) return;
  if (f.p.HasAddress(PacketAddress::kLogicalSource)) return;
  f.p.SetAddress(PacketAddress::kLogicalSource, specs::Ipv4(f.d + off + 8 + hlen));
  f.p.SetAddress(PacketAddress::kLogicalDestination, specs::Ipv4(f.d + off + 8 + 2 * hlen + plen));
}

// --- link ---

void Llc(Frame& f, uint32_t off, uint32_t end);

void Vlan(Frame& f, uint16_t id, uint32_t off, uint32_t end) {
  f.Layer(id, off, 4, end);
  if (!f.Has(off, 4)) return;
  uint16_t type = f.Be16(off + 2);
  // A tag may be followed by an 802.3 length and LLC (per-VLAN spanning tree).
  if (type <= 1500) {
    if (!f.Beyond(off + 4, end)) Llc(f, off + 4, f.Claim(off + 4, type, end));
    return;
  }
  EtherType(f, type, off + 4, end);
}

void Mpls(Frame& f, uint32_t off, uint32_t end) {
  uint32_t at = off;
  bool bottom = false;
  for (int i = 0; i < 16 && !bottom && f.Has(at, 4); ++i) {
    bottom = f.U8(at + 2) & 1;
    at += 4;
  }
  f.Layer(proto::kMpls, off, at - off, end);
  if (!bottom || !f.Has(at, 1)) return;
  // No type field follows the label stack: the IP version nibble tells.
  uint8_t version = f.U8(at) >> 4;
  if (version == 4)
    Ipv4(f, at, end);
  else if (version == 6)
    Ipv6(f, at, end);
}

void PppoeSession(Frame& f, uint32_t off, uint32_t end) {
  f.Layer(proto::kPppoeSession, off, 6, end);
  if (!f.Has(off, 6) || f.Beyond(off + 6, end)) return;
  uint32_t sessionEnd = f.Claim(off + 6, f.Be16(off + 4), end);
  f.Layer(proto::kPpp, off + 6, 2, sessionEnd);
  if (!f.Has(off + 6, 2)) return;
  uint16_t type = f.Be16(off + 6);
  if (type == 0x0021)
    Ipv4(f, off + 8, sessionEnd);
  else if (type == 0x0057)
    Ipv6(f, off + 8, sessionEnd);
}

// MACsec: a SecTAG of 6 bytes, 14 with the secure channel, then, when the
// frame is neither encrypted nor changed, its EtherType. The secure data
// has the short length the tag gives, or runs to the integrity check value
// of 16 bytes that ends the frame.
void Macsec(Frame& f, uint32_t off, uint32_t end) {
  const uint32_t header = f.Has(off, 1) && (f.U8(off) & 0x20) ? 14 : 6;
  f.Layer(proto::kMacsec, off, header, end);
  if (!f.Has(off, header + 2) || (f.U8(off) & 0x0C) || f.Beyond(off + header + 2, end)) return;
  const uint32_t shortLength = f.U8(off + 1) & 0x3F;
  uint32_t dataEnd = shortLength ? off + header + shortLength : end >= off + header + 16 ? end - 16 : end;
  dataEnd = std::clamp(dataEnd, off + header + 2, end);
  EtherType(f, f.Be16(off + header), off + header + 2, dataEnd);
}

// Arista's time stamp: subtype 1, a version that says a 64-bit (0x10) or
// 48-bit (0x20) stamp, then the frame's own EtherType.
void AristaVendor(Frame& f, uint32_t off, uint32_t end) {
  const uint8_t form = f.Has(off, 4) ? f.U8(off + 3) : 0;
  const uint32_t stamp = form == 0x10 ? 8 : form == 0x20 ? 6 : 0;
  f.Layer(proto::kAristaVendor, off, 4 + stamp + 2, end);
  if (!stamp || f.Be16(off) != 1 || f.U8(off + 2) > 1 || !f.Has(off, 4 + stamp + 2)) return;
  EtherType(f, f.Be16(off + 4 + stamp), off + 4 + stamp + 2, end);
}

// Network service header: its length in 4-byte words, then IPv4 (1), IPv6
// (2) or Ethernet (3).
void Nsh(Frame& f, uint32_t off, uint32_t end) {
  const uint32_t header = f.Has(off, 2) ? (f.U8(off + 1) & 0x3F) * 4u : 8;
  f.Layer(proto::kNsh, off, header, end);
  if (!f.Has(off, 4) || header < 8 || f.Beyond(off + header, end)) return;
  switch (f.U8(off + 3)) {
    case 1: Ipv4(f, off + header, end); return;
    case 2: Ipv6(f, off + header, end); return;
    case 3: Ethernet(f, off + header, end); return;
    default: return;
  }
}

void EtherType(Frame& f, uint16_t type, uint32_t off, uint32_t end) {
  if (f.depth >= kMaxDepth || f.Beyond(off, end)) return;
  ++f.depth;
  switch (type) {
    case 0x0800: Ipv4(f, off, end); return;
    case 0x86DD: Ipv6(f, off, end); return;
    case 0x0806: Arp(f, proto::kArp, off, end); return;
    case 0x8035: Arp(f, proto::kRarp, off, end); return;
    case 0x8100: Vlan(f, proto::kVlan, off, end); return;
    case 0x88A8:
    case 0x9100: Vlan(f, proto::kQinQ, off, end); return;
    case 0x8847:
    case 0x8848: Mpls(f, off, end); return;
    case 0x8864: PppoeSession(f, off, end); return;
    case 0x88E5: Macsec(f, off, end); return;
    case 0xD28B: AristaVendor(f, off, end); return;
    case 0x894F: Nsh(f, off, end); return;
    default: {
      uint16_t id = proto::ByEtherType(type);
      if (id != kNone) f.Layer(id, off, 0, end);
    }
  }
}

void Snap(Frame& f, uint32_t off, uint32_t end) {
  if (f.Beyond(off, end)) return;
  f.Layer(proto::kSnap, off, 5, end);
  if (!f.Has(off, 5)) return;
  uint32_t oui = uint32_t(f.U8(off)) << 16 | f.Be16(off + 1);
  uint16_t type = f.Be16(off + 3);
  if (oui == 0 || oui == 0x0000F8) {
    EtherType(f, type, off + 5, end);
  } else if (oui == 0x00000C && !f.Beyond(off + 5, end)) {
    // Cisco's: CDP, and the spanning tree of one VLAN.
    if (type == 0x2000) f.Layer(proto::kCdp, off + 5, 0, end);
    if (type == 0x010B) f.Layer(proto::kStp, off + 5, 0, end);
  }
}

void Llc(Frame& f, uint32_t off, uint32_t end) {
  if (f.Beyond(off, end)) return;
  if (!f.Has(off, 3)) {
    f.Layer(proto::kLlc, off, 3, end);
    return;
  }
  uint8_t dsap = f.U8(off), ssap = f.U8(off + 1);
  // Unnumbered frames have a one-byte control field, the others two bytes.
  uint32_t header = (f.U8(off + 2) & 3) == 3 ? 3 : 4;
  f.Layer(proto::kLlc, off, header, end);
  if (dsap == 0xAA && ssap == 0xAA) {
    Snap(f, off + header, end);
    return;
  }
  uint16_t id = proto::ByLlcSap(dsap);
  if (id != kNone && id != proto::kSnap && !f.Beyond(off + header, end)) f.Layer(id, off + header, 0, end);
}

// Cisco ISL: a 26-byte header, the whole frame of a VLAN, its own CRC. The
// inner frame gives the addresses, as a VLAN tag's frame does; the outer
// destination is ISL's multicast address and says nothing.
bool IsIsl(const Frame& f, uint32_t off) {
  static constexpr uint8_t kIsl[] = {0x00, 0x0C, 0x00, 0x00};
  return f.Has(off, 5) && (f.U8(off) == 0x01 || f.U8(off) == 0x03) && std::equal(kIsl, kIsl + 4, f.d + off + 1);
}

void Isl(Frame& f, uint32_t off, uint32_t end) {
  f.Layer(proto::kIsl, off, 26, end);
  // Frame type 0 is Ethernet; token ring and FDDI are not followed.
  if (!f.Has(off, 6) || (f.U8(off + 5) >> 4) != 0 || f.depth >= kMaxDepth || f.Beyond(off + 26, end)) return;
  ++f.depth;
  Ethernet(f, off + 26, end >= off + 26 + 4 ? end - 4 : end);
}

void Ethernet(Frame& f, uint32_t off, uint32_t end) {
  if (f.Beyond(off, end)) return;
  if (IsIsl(f, off)) return Isl(f, off, end);
  // A header cut short is no header: without the type field the frame may
  // be Ethernet II or 802.3, and its addresses are not trusted either.
  if (!f.Has(off, 14)) return;
  f.SetIfAbsent(PacketAddress::kPhysicalDestination, Mac(f, off, specs::kTypeEthernet));
  f.SetIfAbsent(PacketAddress::kPhysicalSource, Mac(f, off + 6, specs::kTypeEthernet));
  f.LinkGroup(off);
  uint16_t type = f.Be16(off + 12);
  if (type >= 0x0600) {
    f.Layer(proto::kEthernetII, off, 14, end);
    EtherType(f, type, off + 14, end);
    return;
  }
  if (type > 1500) {
    f.Layer(proto::kEthernetII, off, 14, end);
    return;
  }
  uint32_t frameEnd = f.Claim(off + 14, type, end);
  f.Layer(proto::kIeee8023, off, 14, frameEnd);
  // Novell's raw 802.3 carries IPX straight after the length.
  if (f.Has(off + 14, 2) && f.Be16(off + 14) == 0xFFFF)
    f.Layer(proto::kIpx, off + 14, 0, frameEnd);
  else
    Llc(f, off + 14, frameEnd);
}

// --- 802.11 ---

// The transmitter and receiver are a conversation of their own only where
// they are not the frame's source and destination (it crossed a
// distribution system, or has no source or destination); otherwise the frame
// would count twice in the same one. A lone receiver is no pair.
void HopPair(Packet& p) {
  MediaSpec ra{}, ta{}, sa{}, da{};
  bool pair = SUCCEEDED(p.GetWirelessReceiver(&ra)) && SUCCEEDED(p.GetWirelessTransmitter(&ta));
  if (pair && SUCCEEDED(p.GetPhysicalSource(&sa)) && SUCCEEDED(p.GetPhysicalDestination(&da)))
    pair = !specs::Equal(ra, da) || !specs::Equal(ta, sa);
  if (pair) return;
  p.RemoveAddress(PacketAddress::kWirelessReceiver);
  p.RemoveAddress(PacketAddress::kWirelessTransmitter);
}
void Ieee80211(Frame& f, uint32_t off, uint32_t end) {
  f.wireless = true;
  f.p.SetWireless(true);
  if (f.Beyond(off, end)) return;
  const Ieee80211Header h = ReadIeee80211Header(f.d + off, f.cap > off ? f.cap - off : 0, f.dataPad);
  if (!h.present) {
    f.Layer(proto::kIeee80211, off, 2, end);
    return;
  }
  if (h.version != 0) f.faults |= kFaultBadVersion;
  const uint16_t kind = h.kind;
  const uint32_t header = h.headerLength;
  f.p.SetFrameProtoSpecId(h.frameKind);
  if (h.packetClass) f.p.SetPacketClass(h.packetClass);
  if (h.isProtected) f.flags |= 0x4;
  f.p.SetSecurity(h.encryption, h.encryption, h.authentication);
  if (h.haveKeyIndex) f.p.SetWEPKeyIndex(h.keyIndex);

  constexpr uint8_t kW = specs::kTypePhysical13;
  auto has = [&](uint32_t at) { return f.Has(off + at, 6); };
  auto set = [&](PacketAddress which, uint32_t at) {
    if (at && has(at)) f.SetIfAbsent(which, Mac(f, off + at, kW));
  };
  set(PacketAddress::kWirelessReceiver, h.receiver);
  set(PacketAddress::kWirelessTransmitter, h.transmitter);
  set(PacketAddress::kPhysicalSource, h.source);
  set(PacketAddress::kPhysicalDestination, h.destination);
  set(PacketAddress::kBssid, h.bssid);
  const uint32_t destination = h.destination;  // the address that decides broadcast
  if (destination && has(destination)) f.LinkGroup(off + destination);
  HopPair(f.p);

  f.Layer(proto::kIeee80211, off, header, end);
  if (kind != kNone) f.Layer(kind, off, header, end);
  if (!h.llc || !f.Has(off, header)) return;
  if (end > off + h.llc) Llc(f, off + h.llc, end);
}

// A radio header before an 802.11 frame (or, behind PPI, another link):
// its readings go to the packet, whose data then starts at the frame.
void RadioHeader(Frame& f, uint16_t id, const RadioReading& r, uint32_t end) {
  const bool wlan = r.payloadLinkType == link::kIeee80211;
  f.wireless = wlan;
  f.p.SetWireless(wlan);
  f.Layer(id, 0, r.headerLength, end);
  if (r.badVersion) f.faults |= kFaultBadVersion;
  f.frameStart = r.headerLength;
  f.p.SetChannel(r.channel);
  f.p.SetDataRate(r.rate);
  if (r.signalDbm != kNoDbmReading) f.p.SetSignal(PercentOfDbm(r.signalDbm), r.signalDbm);
  if (r.noiseDbm != kNoDbmReading) f.p.SetNoise(PercentOfDbm(r.noiseDbm), r.noiseDbm);
  if (r.badFcs) f.status |= kPacketStatusCrc;
  if (!r.known) return;
  f.dataPad = r.dataPad;
  // The frame check sequence is no part of the 802.11 frame's payload.
  const uint32_t frameEnd = r.fcs && end >= r.headerLength + 4 ? end - 4 : end;
  switch (r.payloadLinkType) {
    case link::kIeee80211: Ieee80211(f, r.headerLength, frameEnd); return;
    case link::kEthernet: Ethernet(f, r.headerLength, frameEnd); return;
    default: return;
  }
}

void Radiotap(Frame& f, uint32_t end) { RadioHeader(f, proto::kRadiotap, ReadRadiotap(f.d, f.cap), end); }

// Some drivers write an AVS header under the prism link type.
void Prism(Frame& f, uint32_t end) {
  if (LooksLikeAvs(f.d, f.cap))
    RadioHeader(f, proto::kAvs, ReadAvs(f.d, f.cap), end);
  else
    RadioHeader(f, proto::kPrism, ReadPrism(f.d, f.cap), end);
}

void Avs(Frame& f, uint32_t end) { RadioHeader(f, proto::kAvs, ReadAvs(f.d, f.cap), end); }
void Ppi(Frame& f, uint32_t end) { RadioHeader(f, proto::kPpi, ReadPpi(f.d, f.cap), end); }

// --- capture headers ---

void CookedPayload(Frame& f, uint16_t protocol, uint16_t hardware, uint32_t off, uint32_t end) {
  if (protocol == 0x0004)
    Llc(f, off, end);
  else if (protocol == 0x0001)
    f.Layer(proto::kIpx, off, 0, end);
  else if (protocol >= 0x0600 && hardware != 824)  // netlink frames carry no EtherType
    EtherType(f, protocol, off, end);
}

void CookedGroup(Frame& f, uint8_t packetType) {
  // An outgoing packet's type says nothing of its destination: IP decides then.
  if (packetType > 3) return;
  f.linkGroup = true;
  if (packetType == 1) f.p.SetBroadcast(true);
  if (packetType == 2) f.p.SetMulticast(true);
}

void CookedSource(Frame& f, uint16_t hardware, uint32_t length, uint32_t at) {
  if (hardware == 1 && length == 6) f.p.SetAddress(PacketAddress::kPhysicalSource, Mac(f, at, specs::kTypeEthernet));
}

void LinuxSll(Frame& f, uint32_t off, uint32_t end) {
  f.Layer(proto::kLinuxCooked, off, 16, end);
  if (!f.Has(off, 16)) return;
  uint16_t hardware = f.Be16(off + 2);
  CookedGroup(f, static_cast<uint8_t>(f.Be16(off)));
  CookedSource(f, hardware, f.Be16(off + 4), off + 6);
  CookedPayload(f, f.Be16(off + 14), hardware, off + 16, end);
}

void LinuxSll2(Frame& f, uint32_t off, uint32_t end) {
  f.Layer(proto::kLinuxCooked2, off, 20, end);
  if (!f.Has(off, 20)) return;
  uint16_t hardware = f.Be16(off + 8);
  CookedGroup(f, f.U8(off + 10));
  CookedSource(f, hardware, f.U8(off + 11), off + 12);
  CookedPayload(f, f.Be16(off), hardware, off + 20, end);
}

void Loopback(Frame& f, uint32_t off, uint32_t end, bool networkOrder) {
  f.Layer(proto::kLoopback, off, 4, end);
  if (!f.Has(off, 4)) return;
  uint32_t family = networkOrder ? f.Be32(off) : f.Le32(off);
  // The writer's byte order is unknown; families are small numbers.
  if (family > 0xFFFF) family = networkOrder ? f.Le32(off) : f.Be32(off);
  if (family == 2)
    Ipv4(f, off + 4, end);
  else if (family == 24 || family == 28 || family == 30 || family == 10)
    Ipv6(f, off + 4, end);
}

void RawIp(Frame& f, uint32_t off, uint32_t end) {
  if (!f.Has(off, 1)) return;
  uint8_t version = f.U8(off) >> 4;
  if (version == 4)
    Ipv4(f, off, end);
  else if (version == 6)
    Ipv6(f, off, end);
  else
    f.faults |= kFaultBadVersion;
}

// A link type that names one IP version: a packet of another is no packet
// of the link, and is not decoded as one.
void OnlyIp(Frame& f, uint8_t version, uint32_t end) {
  if (!f.Has(0, 1)) return;
  if (f.U8(0) >> 4 != version) {
    f.foreign = true;
    f.status |= kPacketStatusFrame;
    return;
  }
  RawIp(f, 0, end);
}

}  // namespace

LinkMedium MediumOfLinkType(uint32_t linkType) noexcept {
  switch (linkType) {
    case link::kIeee80211:
    case link::kRadiotap:
    case link::kPrism:
    case link::kAvs:
    case link::kPpi:
      return {0, 3};
    default:
      return {0, 0};
  }
}

bool IsKnownLinkType(uint32_t linkType) noexcept {
  switch (linkType) {
    case link::kNull:
    case link::kEthernet:
    case link::kRaw:
    case link::kRawOpenBsd:
    case link::kRawLinkType:
    case link::kIeee80211:
    case link::kLoop:
    case link::kLinuxSll:
    case link::kPrism:
    case link::kRadiotap:
    case link::kAvs:
    case link::kPpi:
    case link::kIpv4:
    case link::kIpv6:
    case link::kLinuxSll2:
      return true;
    default:
      return false;
  }
}

uint32_t FrameDecoder::Decode(Packet& packet, const uint8_t* data, uint32_t captureLength, uint32_t wireLength,
                              ZemoTime time) const noexcept {
  packet.Clear();
  if (!data) captureLength = 0;
  packet.SetData(data, captureLength);
  packet.SetPacketLength(wireLength);
  packet.SetTimeStamp(time);
  Frame f{packet, data, captureLength};
  // Layers end where the wire ended, or where the capture did if a broken
  // file says it captured more than the wire carried.
  uint32_t end = std::max(wireLength, captureLength);
  uint32_t faults = 0;
  if (captureLength < wireLength) faults |= kFaultTruncated;
  if (end > 0xFFFF) faults |= kFaultCountedShort;
  switch (m_linkType) {
    case link::kEthernet: Ethernet(f, 0, end); break;
    case link::kLinuxSll: LinuxSll(f, 0, end); break;
    case link::kLinuxSll2: LinuxSll2(f, 0, end); break;
    case link::kRaw:
    case link::kRawOpenBsd:
    case link::kRawLinkType: RawIp(f, 0, end); break;
    case link::kIpv4: OnlyIp(f, 4, end); break;
    case link::kIpv6: OnlyIp(f, 6, end); break;
    case link::kNull: Loopback(f, 0, end, false); break;
    case link::kLoop: Loopback(f, 0, end, true); break;
    case link::kIeee80211:
      packet.SetChannel(kUnknownChannel);
      Ieee80211(f, 0, end);
      break;
    case link::kRadiotap: Radiotap(f, end); break;
    case link::kPrism: Prism(f, end); break;
    case link::kAvs: Avs(f, end); break;
    case link::kPpi: Ppi(f, end); break;
    default: return faults | kFaultUnknownLink;
  }
  if (f.proto != kNone) {
    packet.SetProtoSpecId(f.proto);
    packet.SetAddress(PacketAddress::kProtocol, specs::Protocol(f.proto));
  }
  packet.SetFlags(f.flags);
  packet.SetStatus(f.status);
  if (f.status) packet.SetError(true);
  if (f.wireless) packet.SetWirelessMediaInfo();
  // Behind a radio header the statistics read the frame itself; the
  // header's readings are in the media block.
  if (f.frameStart) packet.SetData(data + f.frameStart, captureLength - f.frameStart);
  if (f.status & kPacketStatusFrame) faults |= kFaultMalformed;
  if (f.foreign) faults |= kFaultForeign;
  return faults | f.faults;
}

}  // namespace zemo
