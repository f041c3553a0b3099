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
  ULONG flags = 0;
  bool linkGroup = false;  // the link layer decided broadcast and multicast
  bool wireless = false;
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
  uint32_t udpEnd = length >= 8 ? f.Claim(off, length, end) : end;
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
  if (version != 0 || f.depth >= kMaxDepth) return;
  ++f.depth;
  if (type == 0x6558)
    Ethernet(f, off + header, end);
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

void Ipv4(Frame& f, uint32_t off, uint32_t end) {
  if (f.Beyond(off, end)) return;
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
  // A fragment counts at the network layer: its payload is not a header.
  if (f.Be16(off + 6) & 0x3FFF) return;
  IpPayload(f, f.U8(off + 9), off + header, ipEnd);
}

void Ipv6(Frame& f, uint32_t off, uint32_t end) {
  if (f.Beyond(off, end)) return;
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
      fragment = (f.Be16(at + 2) & 0xFFF9) != 0;
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
  if (f.Be16(off + 2) != 0x0800 || plen != 4 || !f.Has(off, 8 + 2 * (hlen + plen))) return;
  if (f.p.HasAddress(PacketAddress::kLogicalSource)) return;
  f.p.SetAddress(PacketAddress::kLogicalSource, specs::Ipv4(f.d + off + 8 + hlen));
  f.p.SetAddress(PacketAddress::kLogicalDestination, specs::Ipv4(f.d + off + 8 + 2 * hlen + plen));
}

// --- link ---

void Vlan(Frame& f, uint16_t id, uint32_t off, uint32_t end) {
  f.Layer(id, off, 4, end);
  if (f.Has(off, 4)) EtherType(f, f.Be16(off + 2), off + 4, end);
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
  if (oui == 0 || oui == 0x0000F8)
    EtherType(f, type, off + 5, end);
  else if (oui == 0x00000C && type == 0x2000 && !f.Beyond(off + 5, end))
    f.Layer(proto::kCdp, off + 5, 0, end);
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

void Ethernet(Frame& f, uint32_t off, uint32_t end) {
  if (f.Beyond(off, end)) return;
  if (f.Has(off, 6)) f.SetIfAbsent(PacketAddress::kPhysicalDestination, Mac(f, off, specs::kTypeEthernet));
  if (f.Has(off, 12)) f.SetIfAbsent(PacketAddress::kPhysicalSource, Mac(f, off + 6, specs::kTypeEthernet));
  if (f.Has(off, 6)) f.LinkGroup(off);
  // Without the type field the frame may be Ethernet II or 802.3: no layer.
  if (!f.Has(off, 14)) return;
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

void Ieee80211(Frame& f, uint32_t off, uint32_t end) {
  f.wireless = true;
  f.p.SetWireless(true);
  if (f.Beyond(off, end)) return;
  const Ieee80211Header h = ReadIeee80211Header(f.d + off, f.cap > off ? f.cap - off : 0, f.dataPad);
  if (!h.present) {
    f.Layer(proto::kIeee80211, off, 2, end);
    return;
  }
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

void FrameDecoder::Decode(Packet& packet, const uint8_t* data, uint32_t captureLength, uint32_t wireLength,
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
  switch (m_linkType) {
    case link::kEthernet: Ethernet(f, 0, end); break;
    case link::kLinuxSll: LinuxSll(f, 0, end); break;
    case link::kLinuxSll2: LinuxSll2(f, 0, end); break;
    case link::kRaw:
    case link::kRawOpenBsd:
    case link::kRawLinkType: RawIp(f, 0, end); break;
    case link::kIpv4: Ipv4(f, 0, end); break;
    case link::kIpv6: Ipv6(f, 0, end); break;
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
    default: return;
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
}

}  // namespace zemo
