#include "engine/frame_decoder.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "engine/proto_specs.h"
#include "engine/spec_values.h"
#include "support/frame_bytes.h"

namespace {

using zemo::FrameDecoder;
using zemo::Packet;
using zemo::PacketAddress;
namespace link = zemo::link;
namespace proto = zemo::proto;
namespace specs = zemo::specs;
using namespace zemo::testing_support;

const Bytes kMacA = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const Bytes kMacB = {0x00, 0x66, 0x77, 0x88, 0x99, 0xAA};
const Bytes kMacC = {0x02, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC};
const Bytes kBroadcast = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
const Bytes kIpA = {192, 168, 1, 10};
const Bytes kIpB = {10, 0, 0, 1};
const Bytes kIp6A = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
const Bytes kIp6B = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};

Bytes Ethernet(const Bytes& dst, const Bytes& src, uint16_t type) { return dst + src + Be16(type); }

Bytes Ipv4(uint8_t protocol, const Bytes& src, const Bytes& dst, size_t payload, uint16_t fragment = 0) {
  return Bytes{0x45, 0} + Be16(uint16_t(20 + payload)) + Be16(1) + Be16(fragment) + Bytes{64, protocol, 0, 0} + src +
         dst;
}
Bytes Ipv6(uint8_t next, const Bytes& src, const Bytes& dst, size_t payload) {
  return Bytes{0x60, 0, 0, 0} + Be16(uint16_t(payload)) + Bytes{next, 64} + src + dst;
}
Bytes Tcp(uint16_t sport, uint16_t dport) {
  return Be16(sport) + Be16(dport) + Zeros(8) + Bytes{0x50, 0x10} + Be16(1000) + Zeros(4);
}
Bytes Udp(uint16_t sport, uint16_t dport, size_t payload) {
  return Be16(sport) + Be16(dport) + Be16(uint16_t(8 + payload)) + Zeros(2);
}

// What a frame yields: each layer and address with the captured bytes it
// needs. A decode of the first n bytes must give exactly the layers and the
// addresses whose need is at most n.
struct Yield {
  std::vector<std::pair<uint16_t, uint32_t>> layers;
  std::vector<std::tuple<PacketAddress, MediaSpec, uint32_t>> addresses;
};

MediaSpec Mac(const Bytes& b) { return specs::Make(specs::kTypeEthernet, b.data(), 6); }
MediaSpec WlanMac(const Bytes& b) { return specs::Make(specs::kTypePhysical13, b.data(), 6); }
MediaSpec Ip(const Bytes& b) { return b.size() == 4 ? specs::Ipv4(b.data()) : specs::Ipv6(b.data()); }

struct Decoded {
  std::vector<uint16_t> layers;
  std::vector<ZemoLayerReport> reports;
};

Decoded Layers(Packet& p) {
  ZemoLayerReport reports[Packet::kMaxLayers];
  ULONG count = Packet::kMaxLayers;
  EXPECT_EQ(S_OK, p.GetLayers(&count, reports));
  Decoded d;
  for (ULONG i = 0; i < count; ++i) {
    d.layers.push_back(reports[i].ProtoSpecId);
    d.reports.push_back(reports[i]);
  }
  return d;
}

std::optional<MediaSpec> AddressOf(Packet& p, PacketAddress which) {
  if (!p.HasAddress(which)) return std::nullopt;
  MediaSpec s{};
  HRESULT hr = E_FAIL;
  switch (which) {
    case PacketAddress::kProtocol: hr = p.GetProtocol(&s); break;
    case PacketAddress::kPhysicalSource: hr = p.GetPhysicalSource(&s); break;
    case PacketAddress::kPhysicalDestination: hr = p.GetPhysicalDestination(&s); break;
    case PacketAddress::kLogicalSource: hr = p.GetLogicalSource(&s); break;
    case PacketAddress::kLogicalDestination: hr = p.GetLogicalDestination(&s); break;
    case PacketAddress::kBssid: hr = p.GetBSSID(&s); break;
    case PacketAddress::kWirelessReceiver: hr = p.GetWirelessReceiver(&s); break;
    case PacketAddress::kWirelessTransmitter: hr = p.GetWirelessTransmitter(&s); break;
  }
  EXPECT_EQ(S_OK, hr);
  return s;
}

constexpr PacketAddress kAllAddresses[] = {
    PacketAddress::kPhysicalSource, PacketAddress::kPhysicalDestination, PacketAddress::kLogicalSource,
    PacketAddress::kLogicalDestination, PacketAddress::kBssid, PacketAddress::kWirelessReceiver,
    PacketAddress::kWirelessTransmitter};

// Decodes every prefix of the frame (the wire length stays the whole frame's)
// and checks that each yields exactly what its bytes allow.
void CheckEveryCut(uint32_t linkType, const Bytes& frame, const Yield& yield) {
  auto packet = Packet::Create();
  FrameDecoder decoder(linkType);
  // The copy lives on the heap with exactly n bytes, so that a read past
  // the captured bytes is an AddressSanitizer report.
  for (size_t n = 0; n <= frame.size(); ++n) {
    SCOPED_TRACE("captured bytes: " + std::to_string(n));
    std::vector<uint8_t> cut(frame.begin(), frame.begin() + n);
    decoder.Decode(*packet, cut.data(), uint32_t(n), uint32_t(frame.size()), 1234);
    std::vector<uint16_t> want;
    for (auto [id, need] : yield.layers)
      if (need <= n) want.push_back(id);
    EXPECT_EQ(want, Layers(*packet).layers);
    auto protocol = AddressOf(*packet, PacketAddress::kProtocol);
    ULONG id = 0;
    packet->GetProtoSpecId(&id);
    if (want.empty()) {
      EXPECT_FALSE(protocol.has_value());
      EXPECT_EQ(0xFFFFu, id);
    } else {
      ASSERT_TRUE(protocol.has_value());
      EXPECT_TRUE(specs::Equal(specs::Protocol(want.back()), *protocol));
      EXPECT_EQ(want.back(), id);
    }
    for (PacketAddress which : kAllAddresses) {
      std::optional<MediaSpec> expected;
      for (const auto& [w, spec, need] : yield.addresses) {
        if (w == which && need <= n) expected = spec;
      }
      auto got = AddressOf(*packet, which);
      ASSERT_EQ(expected.has_value(), got.has_value()) << "address " << int(which);
      if (expected) {
        EXPECT_TRUE(specs::Equal(*expected, *got)) << "address " << int(which);
      }
    }
    // The packet's bytes are the frame's, or behind a radio header those
    // of the 802.11 frame.
    USHORT length = 0, captured = 0;
    const BYTE* data = nullptr;
    packet->GetPacketLength(&length);
    packet->GetCaptureLength(&captured);
    packet->GetPacketData(&data);
    EXPECT_EQ(frame.size(), length);
    const size_t skipped = n ? size_t(data - cut.data()) : 0;
    EXPECT_EQ(n, skipped + captured);
    if (linkType != link::kRadiotap && linkType != link::kPrism) {
      EXPECT_EQ(0u, skipped);
    }
  }
}

void Decode(Packet& p, uint32_t linkType, const Bytes& frame, uint32_t wire = 0) {
  FrameDecoder(linkType).Decode(p, frame.data(), uint32_t(frame.size()), wire ? wire : uint32_t(frame.size()), 99);
}

BOOL Flag(HRESULT (Packet::*test)(BOOL*), Packet& p) {
  BOOL b = FALSE;
  EXPECT_EQ(S_OK, (p.*test)(&b));
  return b;
}

TEST(FrameDecoderCuts, EthernetIpv4TcpWithService) {
  Bytes frame = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(6, kIpA, kIpB, 30) + Tcp(51000, 80) + Zeros(10);
  CheckEveryCut(link::kEthernet, frame,
                {{{proto::kEthernetII, 14}, {proto::kIpv4, 14}, {proto::kTcp, 34}, {proto::kHttp, 47}},
                 {{PacketAddress::kPhysicalDestination, Mac(kMacB), 14},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 14},
                  {PacketAddress::kLogicalSource, Ip(kIpA), 34},
                  {PacketAddress::kLogicalDestination, Ip(kIpB), 34}}});
}

TEST(FrameDecoderCuts, Ieee8023LlcSnapIpv4UdpDns) {
  Bytes payload = Bytes{0xAA, 0xAA, 0x03, 0, 0, 0} + Be16(0x0800) + Ipv4(17, kIpA, kIpB, 20) + Udp(40000, 53, 12) +
                  Zeros(12);
  Bytes frame = kBroadcast + kMacA + Be16(uint16_t(payload.size())) + payload;
  CheckEveryCut(link::kEthernet, frame,
                {{{proto::kIeee8023, 14}, {proto::kLlc, 14}, {proto::kSnap, 17}, {proto::kIpv4, 22},
                  {proto::kUdp, 42}, {proto::kDns, 50}},
                 {{PacketAddress::kPhysicalDestination, Mac(kBroadcast), 14},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 14},
                  {PacketAddress::kLogicalSource, Ip(kIpA), 42},
                  {PacketAddress::kLogicalDestination, Ip(kIpB), 42}}});
  auto p = Packet::Create();
  Decode(*p, link::kEthernet, frame);
  EXPECT_TRUE(Flag(&Packet::IsBroadcast, *p));
  EXPECT_FALSE(Flag(&Packet::IsMulticast, *p));
}

TEST(FrameDecoderCuts, StackedVlanTagsAndArp) {
  Bytes arp = Be16(1) + Be16(0x0800) + Bytes{6, 4} + Be16(1) + kMacA + kIpA + Zeros(6) + kIpB;
  Bytes frame = Ethernet(kBroadcast, kMacA, 0x88A8) + Be16(100) + Be16(0x8100) + Be16(200) + Be16(0x0806) + arp;
  CheckEveryCut(link::kEthernet, frame,
                {{{proto::kEthernetII, 14}, {proto::kQinQ, 14}, {proto::kVlan, 18}, {proto::kArp, 22}},
                 {{PacketAddress::kPhysicalDestination, Mac(kBroadcast), 14},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 14},
                  {PacketAddress::kLogicalSource, Ip(kIpA), 50},
                  {PacketAddress::kLogicalDestination, Ip(kIpB), 50}}});
}

TEST(FrameDecoderCuts, Ipv6ExtensionHeadersFragmentAndAh) {
  // Hop-by-hop (8 bytes), a first fragment (8), AH (16), then TCP to 22.
  Bytes hop = Bytes{44, 0} + Zeros(6);
  Bytes fragment = Bytes{51, 0} + Be16(0) + Zeros(4);
  Bytes ah = Bytes{6, 2} + Zeros(14);
  Bytes body = hop + fragment + ah + Tcp(50000, 22);
  Bytes frame = Ethernet(kMacB, kMacA, 0x86DD) + Ipv6(0, kIp6A, kIp6B, body.size()) + body;
  CheckEveryCut(link::kEthernet, frame,
                {{{proto::kEthernetII, 14}, {proto::kIpv6, 14}, {proto::kAh, 66}, {proto::kTcp, 72}, {proto::kSsh, 99}},
                 {{PacketAddress::kPhysicalDestination, Mac(kMacB), 14},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 14},
                  {PacketAddress::kLogicalSource, Ip(kIp6A), 54},
                  {PacketAddress::kLogicalDestination, Ip(kIp6B), 54}}});
  auto p = Packet::Create();
  Decode(*p, link::kEthernet, frame);
  EXPECT_EQ(54u, Layers(*p).reports[1].Offset + 40);
  EXPECT_EQ(72u, Layers(*p).reports[1].HeaderLength);  // 40 and the three extension headers
}

TEST(FrameDecoderCuts, LinuxCookedCaptures) {
  Bytes sll = Be16(4) + Be16(1) + Be16(6) + kMacA + Zeros(2) + Be16(0x0800);
  Bytes frame = sll + Ipv4(1, kIpA, kIpB, 8) + Bytes{8, 0} + Zeros(6);
  CheckEveryCut(link::kLinuxSll, frame,
                {{{proto::kLinuxCooked, 0}, {proto::kIpv4, 16}, {proto::kIcmp, 36}},
                 {{PacketAddress::kPhysicalSource, Mac(kMacA), 16},
                  {PacketAddress::kLogicalSource, Ip(kIpA), 36},
                  {PacketAddress::kLogicalDestination, Ip(kIpB), 36}}});

  Bytes sll2 = Be16(0x86DD) + Zeros(2) + Bytes{0, 0, 0, 3} + Be16(1) + Bytes{2, 6} + kMacA + Zeros(2);
  Bytes group = {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFB};
  Bytes frame2 = sll2 + Ipv6(17, kIp6A, group, 20) + Udp(5353, 5353, 12) + Zeros(12);
  CheckEveryCut(link::kLinuxSll2, frame2,
                {{{proto::kLinuxCooked2, 0}, {proto::kIpv6, 20}, {proto::kUdp, 60}, {proto::kMdns, 68}},
                 {{PacketAddress::kPhysicalSource, Mac(kMacA), 20},
                  {PacketAddress::kLogicalSource, Ip(kIp6A), 60},
                  {PacketAddress::kLogicalDestination, Ip(group), 60}}});
  auto p = Packet::Create();
  Decode(*p, link::kLinuxSll2, frame2);
  EXPECT_TRUE(Flag(&Packet::IsMulticast, *p));  // packet type 2
}

TEST(FrameDecoderCuts, RawIpGreAndSctp) {
  Bytes inner = Ipv4(2, kIpB, kIpA, 8) + Zeros(8);
  Bytes frame = Ipv4(47, kIpA, kIpB, 4 + inner.size()) + Be16(0) + Be16(0x0800) + inner;
  Yield gre{{{proto::kIpv4, 1}, {proto::kGre, 20}, {proto::kIpv4, 24}, {proto::kIgmp, 44}},
            {{PacketAddress::kLogicalSource, Ip(kIpA), 20}, {PacketAddress::kLogicalDestination, Ip(kIpB), 20}}};
  CheckEveryCut(link::kRaw, frame, gre);
  CheckEveryCut(link::kRawLinkType, frame, gre);
  CheckEveryCut(link::kIpv4, frame, gre);

  Bytes sctp = Ipv6(132, kIp6B, kIp6A, 16) + Be16(2905) + Be16(2905) + Zeros(12);
  CheckEveryCut(link::kRaw, sctp,
                {{{proto::kIpv6, 1}, {proto::kSctp, 40}},
                 {{PacketAddress::kLogicalSource, Ip(kIp6B), 40}, {PacketAddress::kLogicalDestination, Ip(kIp6A), 40}}});
}

TEST(FrameDecoderCuts, BsdLoopbackInBothByteOrders) {
  Bytes body = Ipv4(17, kIpA, kIpB, 8 + 4) + Udp(1000, 123, 4) + Zeros(4);
  Yield y{{{proto::kLoopback, 0}, {proto::kIpv4, 4}, {proto::kUdp, 24}, {proto::kNtp, 32}},
          {{PacketAddress::kLogicalSource, Ip(kIpA), 24}, {PacketAddress::kLogicalDestination, Ip(kIpB), 24}}};
  CheckEveryCut(link::kNull, Bytes{2, 0, 0, 0} + body, y);
  CheckEveryCut(link::kNull, Bytes{0, 0, 0, 2} + body, y);  // written on a big-endian machine
  CheckEveryCut(link::kLoop, Bytes{0, 0, 0, 2} + body, y);
  Bytes v6 = Bytes{0, 0, 0, 30} + Ipv6(58, kIp6A, kIp6B, 8) + Bytes{128, 0} + Zeros(6);
  CheckEveryCut(link::kLoop, v6,
                {{{proto::kLoopback, 0}, {proto::kIpv6, 4}, {proto::kIcmpv6, 44}},
                 {{PacketAddress::kLogicalSource, Ip(kIp6A), 44}, {PacketAddress::kLogicalDestination, Ip(kIp6B), 44}}});
}

TEST(FrameDecoderCuts, PppoeSessionAndMpls) {
  Bytes ip = Ipv4(6, kIpA, kIpB, 20) + Tcp(443, 50000);
  Bytes pppoe = Bytes{0x11, 0} + Be16(7) + Be16(uint16_t(2 + ip.size())) + Be16(0x0021) + ip;
  CheckEveryCut(link::kEthernet, Ethernet(kMacB, kMacA, 0x8864) + pppoe,
                {{{proto::kEthernetII, 14}, {proto::kPppoeSession, 14}, {proto::kPpp, 20}, {proto::kIpv4, 22},
                  {proto::kTcp, 42}, {proto::kHttps, 55}},
                 {{PacketAddress::kPhysicalDestination, Mac(kMacB), 14},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 14},
                  {PacketAddress::kLogicalSource, Ip(kIpA), 42},
                  {PacketAddress::kLogicalDestination, Ip(kIpB), 42}}});
  Bytes mpls = Bytes{0, 0x10, 0x00, 64} + Bytes{0, 0x20, 0x01, 64} + ip;
  CheckEveryCut(link::kEthernet, Ethernet(kMacB, kMacA, 0x8847) + mpls,
                {{{proto::kEthernetII, 14}, {proto::kMpls, 14}, {proto::kIpv4, 23}, {proto::kTcp, 42},
                  {proto::kHttps, 55}},
                 {{PacketAddress::kPhysicalDestination, Mac(kMacB), 14},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 14},
                  {PacketAddress::kLogicalSource, Ip(kIpA), 42},
                  {PacketAddress::kLogicalDestination, Ip(kIpB), 42}}});
}

TEST(FrameDecoderCuts, VxlanAndSpanningTree) {
  // The inner frame's addresses do not replace the outer ones.
  Bytes inner = Ethernet(kMacC, kMacB, 0x0800) + Ipv4(1, kIpB, kIpA, 8) + Bytes{8, 0} + Zeros(6);
  Bytes frame = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(17, kIpA, kIpB, 16 + inner.size()) +
                Udp(50000, 4789, 8 + inner.size()) + Bytes{0x08, 0, 0, 0, 0, 0, 1, 0} + inner;
  CheckEveryCut(link::kEthernet, frame,
                {{{proto::kEthernetII, 14}, {proto::kIpv4, 14}, {proto::kUdp, 34}, {proto::kVxlan, 42},
                  {proto::kEthernetII, 64}, {proto::kIpv4, 64}, {proto::kIcmp, 84}},
                 {{PacketAddress::kPhysicalDestination, Mac(kMacB), 14},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 14},
                  {PacketAddress::kLogicalSource, Ip(kIpA), 34},
                  {PacketAddress::kLogicalDestination, Ip(kIpB), 34}}});
  Bytes bpdu = Bytes{0x42, 0x42, 0x03} + Zeros(35);
  Bytes stp = Bytes{0x01, 0x80, 0xC2, 0, 0, 0} + kMacA + Be16(uint16_t(bpdu.size())) + bpdu;
  CheckEveryCut(link::kEthernet, stp,
                {{{proto::kIeee8023, 14}, {proto::kLlc, 14}, {proto::kStp, 17}},
                 {{PacketAddress::kPhysicalDestination, Mac({0x01, 0x80, 0xC2, 0, 0, 0}), 14},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 14}}});
}

// Radiotap with flags (FCS at the end, bad FCS), rate, channel, signal and
// noise, then a data frame to the distribution system with LLC, SNAP, IPv4, TCP.
Bytes RadiotapData(uint8_t flags) {
  Bytes radiotap = Bytes{0, 0, 16, 0} + Bytes{0x6E, 0, 0, 0} + Bytes{flags, 108} + Bytes{0x85, 0x09, 0xC0, 0x00} +
                   Bytes{uint8_t(-40), uint8_t(-90)};
  Bytes wlan = Bytes{0x08, 0x01, 0, 0} + kMacC + kMacA + kMacB + Zeros(2);
  Bytes llc = Bytes{0xAA, 0xAA, 0x03, 0, 0, 0} + Be16(0x0800);
  return radiotap + wlan + llc + Ipv4(6, kIpA, kIpB, 20) + Tcp(50000, 443) + Bytes{1, 2, 3, 4};
}

TEST(FrameDecoderCuts, RadiotapIeee80211DataToTheDistributionSystem) {
  Bytes frame = RadiotapData(0x10);
  CheckEveryCut(link::kRadiotap, frame,
                {{{proto::kRadiotap, 0}, {proto::kIeee80211, 16}, {proto::kWlanDataFrame, 18}, {proto::kLlc, 40},
                  {proto::kSnap, 43}, {proto::kIpv4, 48}, {proto::kTcp, 68}, {proto::kHttps, 81}},
                 {{PacketAddress::kWirelessReceiver, WlanMac(kMacC), 32},
                  {PacketAddress::kBssid, WlanMac(kMacC), 26},
                  {PacketAddress::kWirelessTransmitter, WlanMac(kMacA), 32},
                  {PacketAddress::kPhysicalSource, WlanMac(kMacA), 32},
                  {PacketAddress::kPhysicalDestination, WlanMac(kMacB), 38},
                  {PacketAddress::kLogicalSource, Ip(kIpA), 68},
                  {PacketAddress::kLogicalDestination, Ip(kIpB), 68}}});
}

TEST(FrameDecoderRadio, RadiotapReadingsAndBadFcs) {
  auto p = Packet::Create();
  Decode(*p, link::kRadiotap, RadiotapData(0x50));
  EXPECT_TRUE(Flag(&Packet::IsWireless, *p));
  SWirelessChannel channel{};
  ASSERT_EQ(S_OK, p->GetChannel(&channel));
  // Copies: the packed record's fields cannot bind to references.
  int16_t number = channel.Channel;
  uint32_t frequency = channel.Frequency, band = channel.Band;
  EXPECT_EQ(6, number);
  EXPECT_EQ(2437u, frequency);
  EXPECT_EQ(4u, band);  // 2 GHz with OFDM: bg
  USHORT rate = 0;
  p->GetDataRate(&rate);
  EXPECT_EQ(108, rate);
  int8_t signal = 0, noise = 0;
  BYTE signalPercent = 0;
  p->GetSignalDBm(&signal);
  p->GetNoiseDBm(&noise);
  p->GetSignalPercent(&signalPercent);
  EXPECT_EQ(-40, signal);
  EXPECT_EQ(-90, noise);
  EXPECT_EQ(100, signalPercent);
  BOOL crc = FALSE;
  p->TestStatus(kPacketStatusCrc, &crc);
  EXPECT_TRUE(crc);
  EXPECT_TRUE(Flag(&Packet::IsError, *p));
  LONG packetClass = 0;
  p->GetPacketClass(&packetClass);
  EXPECT_EQ(3, packetClass);
  // The media block carries the readings for the wireless statistics.
  const BYTE* block = nullptr;
  ULONG length = 0;
  p->GetMediaInfo(&block, &length);
  ASSERT_EQ(zemo::kWirelessMediaInfoLength, length);
  EXPECT_EQ(zemo::kMediaKind80211, block[4]);
  // The frame check sequence is outside the 802.11 layer.
  auto d = Layers(*p);
  EXPECT_EQ(RadiotapData(0x50).size() - 16 - 4, d.reports[1].Length);

  Decode(*p, link::kRadiotap, RadiotapData(0x00));
  EXPECT_FALSE(Flag(&Packet::IsError, *p));
}

TEST(FrameDecoderCuts, PlainIeee80211ManagementAndControl) {
  // A beacon: broadcast destination, BSSID third. Its receiver and
  // transmitter are its destination and source, so they are not given:
  // the frame would count twice in one conversation.
  Bytes beacon = Bytes{0x80, 0x00, 0, 0} + kBroadcast + kMacA + kMacA + Zeros(2) + Zeros(12);
  CheckEveryCut(link::kIeee80211, beacon,
                {{{proto::kIeee80211, 0}, {proto::kWlanBeacon, 2}},
                 {{PacketAddress::kPhysicalDestination, WlanMac(kBroadcast), 10},
                  {PacketAddress::kPhysicalSource, WlanMac(kMacA), 16},
                  {PacketAddress::kBssid, WlanMac(kMacA), 22}}});
  // RTS and ACK: the same; PS-Poll has no destination but the BSSID, so
  // its transmitter and receiver are its only pair.
  Bytes rts = Bytes{0xB4, 0x00, 0, 0} + kMacB + kMacA;
  CheckEveryCut(link::kIeee80211, rts,
                {{{proto::kIeee80211, 0}, {proto::kWlanRts, 2}},
                 {{PacketAddress::kPhysicalDestination, WlanMac(kMacB), 10},
                  {PacketAddress::kPhysicalSource, WlanMac(kMacA), 16}}});
  Bytes ack = Bytes{0xD4, 0x00, 0, 0} + kMacB;
  CheckEveryCut(link::kIeee80211, ack,
                {{{proto::kIeee80211, 0}, {proto::kWlanAck, 2}},
                 {{PacketAddress::kPhysicalDestination, WlanMac(kMacB), 10}}});
  Bytes psPoll = Bytes{0xA4, 0x00, 0, 0} + kMacB + kMacA;
  CheckEveryCut(link::kIeee80211, psPoll,
                {{{proto::kIeee80211, 0}, {proto::kWlanPsPoll, 2}},
                 {{PacketAddress::kBssid, WlanMac(kMacB), 10},
                  {PacketAddress::kWirelessReceiver, WlanMac(kMacB), 16},
                  {PacketAddress::kWirelessTransmitter, WlanMac(kMacA), 16},
                  {PacketAddress::kPhysicalSource, WlanMac(kMacA), 16}}});
  auto p = Packet::Create();
  Decode(*p, link::kIeee80211, beacon);
  EXPECT_TRUE(Flag(&Packet::IsBroadcast, *p));
  USHORT kind = 0;
  p->GetFrameProtoSpecId(&kind);
  EXPECT_EQ(proto::kWlanBeacon, kind);
}

TEST(FrameDecoderCuts, PrismAndAProtectedFrameFromTheDistributionSystem) {
  // Prism: 144 bytes, channel 11, signal -55 dBm, rate 22 (11 Mbit/s).
  Bytes prism = Bytes{0x44, 0, 0, 0, 144, 0, 0, 0} + Zeros(16);
  auto item = [](int32_t value) {
    uint32_t v = uint32_t(value);
    return Zeros(4) + Bytes{0, 0, 4, 0} + Bytes{uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
  };
  prism = prism + item(0) + item(0) + item(11) + item(0) + item(0) + item(-55) + item(-95) + item(22) + item(0) +
          item(0);
  ASSERT_EQ(144u, prism.size());
  // From the distribution system, protected: no payload decoding.
  Bytes wlan = Bytes{0x08, 0x42, 0, 0} + kMacB + kMacC + kMacA + Zeros(2) + Zeros(16);
  Bytes frame = prism + wlan;
  CheckEveryCut(link::kPrism, frame,
                {{{proto::kPrism, 0}, {proto::kIeee80211, 144}, {proto::kWlanDataFrame, 146}},
                 {{PacketAddress::kWirelessReceiver, WlanMac(kMacB), 160},
                  {PacketAddress::kPhysicalDestination, WlanMac(kMacB), 154},
                  {PacketAddress::kWirelessTransmitter, WlanMac(kMacC), 160},
                  {PacketAddress::kBssid, WlanMac(kMacC), 160},
                  {PacketAddress::kPhysicalSource, WlanMac(kMacA), 166}}});
  auto p = Packet::Create();
  Decode(*p, link::kPrism, frame);
  SWirelessChannel channel{};
  p->GetChannel(&channel);
  int16_t number = channel.Channel;
  uint32_t frequency = channel.Frequency;
  EXPECT_EQ(11, number);
  EXPECT_EQ(2462u, frequency);
  int8_t signal = 0;
  p->GetSignalDBm(&signal);
  EXPECT_EQ(-55, signal);
  BOOL isProtected = FALSE;
  p->TestFlags(0x4, &isProtected);
  EXPECT_TRUE(isProtected);
}

TEST(FrameDecoderFaults, LaterFragmentsStopAtTheNetworkLayerAndTheFirstCarriesTheTransport) {
  auto p = Packet::Create();
  Bytes later = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(6, kIpA, kIpB, 20, 0x0010) + Tcp(1, 80);
  Decode(*p, link::kEthernet, later);
  EXPECT_EQ((std::vector<uint16_t>{proto::kEthernetII, proto::kIpv4}), Layers(*p).layers);
  // The first fragment: its UDP length covers the whole datagram, which is no fault.
  Bytes first = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(17, kIpA, kIpB, 28, 0x2000) + Udp(1000, 53, 1400) + Zeros(20);
  Decode(*p, link::kEthernet, first);
  EXPECT_EQ((std::vector<uint16_t>{proto::kEthernetII, proto::kIpv4, proto::kUdp, proto::kDns}), Layers(*p).layers);
  EXPECT_FALSE(Flag(&Packet::IsError, *p));
  Bytes fragment6 = Bytes{17, 0} + Be16(1) + Zeros(4);  // offset 0, more to come
  Bytes body = fragment6 + Udp(1000, 53, 1400) + Zeros(20);
  Decode(*p, link::kRaw, Ipv6(44, kIp6A, kIp6B, body.size()) + body);
  EXPECT_EQ((std::vector<uint16_t>{proto::kIpv6, proto::kUdp, proto::kDns}), Layers(*p).layers);
  EXPECT_FALSE(Flag(&Packet::IsError, *p));
  fragment6 = Bytes{17, 0} + Be16(0x05A8) + Zeros(4);  // offset 181 words
  body = fragment6 + Zeros(28);
  Decode(*p, link::kRaw, Ipv6(44, kIp6A, kIp6B, body.size()) + body);
  EXPECT_EQ((std::vector<uint16_t>{proto::kIpv6}), Layers(*p).layers);
}

TEST(FrameDecoderFaults, HeadersClaimingMoreThanTheWireAreFrameErrors) {
  auto p = Packet::Create();
  Bytes frame = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(17, kIpA, kIpB, 400) + Udp(9, 9, 392);
  Decode(*p, link::kEthernet, frame);
  BOOL bad = FALSE;
  p->TestStatus(kPacketStatusFrame, &bad);
  EXPECT_TRUE(bad);
  EXPECT_TRUE(Flag(&Packet::IsError, *p));
  // Still decoded as far as it goes, with the layer cut at the wire's end.
  auto d = Layers(*p);
  ASSERT_EQ(3u, d.layers.size());
  EXPECT_EQ(frame.size() - 14, d.reports[1].Length);

  // A snapshot length shorter than the wire is no fault.
  Bytes whole = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(17, kIpA, kIpB, 408) + Udp(9, 9, 400) + Zeros(400);
  FrameDecoder(link::kEthernet).Decode(*p, whole.data(), 60, uint32_t(whole.size()), 1);
  EXPECT_FALSE(Flag(&Packet::IsError, *p));

  // A header length past the end of the datagram stops before the transport.
  Bytes longHeader = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(17, kIpA, kIpB, 20) + Udp(9, 53, 12) + Zeros(12);
  longHeader[14] = 0x4F;  // 60 bytes of header in a datagram of 40
  Decode(*p, link::kEthernet, longHeader);
  EXPECT_EQ((std::vector<uint16_t>{proto::kEthernetII, proto::kIpv4}), Layers(*p).layers);
  p->TestStatus(kPacketStatusFrame, &bad);
  EXPECT_TRUE(bad);

  // A TCP data offset below five words ends the decode at TCP.
  Bytes shortTcp = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(6, kIpA, kIpB, 20) + Tcp(1, 80);
  shortTcp[14 + 20 + 12] = 0x20;
  Decode(*p, link::kEthernet, shortTcp);
  EXPECT_EQ((std::vector<uint16_t>{proto::kEthernetII, proto::kIpv4, proto::kTcp}), Layers(*p).layers);
}

// Vendors' frames: Cisco's ISL around a whole frame (whose addresses count),
// per-VLAN spanning tree after a tag with a length, CDP in GRE; MACsec and
// Arista's time stamp before the frame's EtherType; and EtherTypes named by
// the protocol tree. An IP header of the wrong version is a frame error.
TEST(FrameDecoderCuts, VendorFramesAndNamedEtherTypes) {
  Bytes inner = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(1, kIpA, kIpB, 8) + Bytes{8, 0} + Zeros(6);
  Bytes isl = Bytes{0x01, 0x00, 0x0C, 0x00, 0x00, 0x00} + kMacC + Be16(uint16_t(inner.size() + 12)) +
              Bytes{0xAA, 0xAA, 0x03} + Bytes{0x00, 0x0C, 0x01} + Be16(0x0014) + Zeros(4) + inner + Zeros(4);
  CheckEveryCut(link::kEthernet, isl,
                {{{proto::kIsl, 5}, {proto::kEthernetII, 40}, {proto::kIpv4, 40}, {proto::kIcmp, 60}},
                 {{PacketAddress::kPhysicalDestination, Mac(kMacB), 40},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 40},
                  {PacketAddress::kLogicalSource, Ip(kIpA), 60},
                  {PacketAddress::kLogicalDestination, Ip(kIpB), 60}}});

  const Bytes pvstGroup = {0x01, 0x00, 0x0C, 0xCC, 0xCC, 0xCD};
  Bytes snap = Bytes{0xAA, 0xAA, 0x03, 0x00, 0x00, 0x0C} + Be16(0x010B) + Zeros(36);
  Bytes pvst = Ethernet(pvstGroup, kMacA, 0x8100) + Be16(100) + Be16(uint16_t(snap.size())) + snap;
  CheckEveryCut(link::kEthernet, pvst,
                {{{proto::kEthernetII, 14}, {proto::kVlan, 14}, {proto::kLlc, 18}, {proto::kSnap, 21}, {proto::kStp, 26}},
                 {{PacketAddress::kPhysicalDestination, Mac(pvstGroup), 14},
                  {PacketAddress::kPhysicalSource, Mac(kMacA), 14}}});

  Bytes cdp = Bytes{0x02, 0xB4, 0, 0} + Zeros(8);
  Bytes greCdp = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(47, kIpA, kIpB, 4 + cdp.size()) + Be16(0) + Be16(0x2000) + cdp;
  auto p = Packet::Create();
  Decode(*p, link::kEthernet, greCdp);
  EXPECT_EQ((std::vector<uint16_t>{proto::kEthernetII, proto::kIpv4, proto::kGre, proto::kCdp}), Layers(*p).layers);
  // MACsec in the clear, with its channel identifier; Arista's time stamp.
  Bytes ip = Ipv4(1, kIpA, kIpB, 8) + Bytes{8, 0} + Zeros(6);
  Bytes macsec = Ethernet(kMacB, kMacA, 0x88E5) + Bytes{0x20, 0} + Zeros(4) + Zeros(8) + Be16(0x0800) + ip + Zeros(16);
  Bytes arista = Ethernet(kMacB, kMacA, 0xD28B) + Be16(1) + Be16(0x0010) + Zeros(8) + Be16(0x0800) + ip;
  for (auto [frame, id] : {std::pair{macsec, proto::kMacsec}, std::pair{arista, proto::kAristaVendor}}) {
    Decode(*p, link::kEthernet, frame);
    EXPECT_EQ((std::vector<uint16_t>{proto::kEthernetII, id, proto::kIpv4, proto::kIcmp}), Layers(*p).layers);
    EXPECT_TRUE(specs::Equal(Ip(kIpA), *AddressOf(*p, PacketAddress::kLogicalSource)));
  }
  for (auto [type, id] : {std::pair{0x88F7, proto::kPtp}, std::pair{0x9000, proto::kEthernetLoopback}}) {
    Decode(*p, link::kEthernet, Ethernet(kMacB, kMacA, uint16_t(type)) + Zeros(46));
    EXPECT_EQ((std::vector<uint16_t>{proto::kEthernetII, id}), Layers(*p).layers);
    EXPECT_NE(nullptr, proto::Name(id));
  }
  Bytes v6 = Ethernet(kMacB, kMacA, 0x0800) + Ipv6(17, kIp6A, kIp6B, 8) + Udp(1, 53, 0);
  Decode(*p, link::kEthernet, v6);
  EXPECT_EQ((std::vector<uint16_t>{proto::kEthernetII, proto::kIpv4}), Layers(*p).layers);
  EXPECT_FALSE(p->HasAddress(PacketAddress::kLogicalSource));
  EXPECT_TRUE(Flag(&Packet::IsError, *p));
}

// A frame relayed between access points keeps its hop pair beside its
// end-to-end pair; a link type that names IPv6 and carries IPv4 is not decoded.
TEST(FrameDecoderFaults, RelayedFramesKeepTheirHopAndForeignFramesAreRefused) {
  auto p = Packet::Create();
  Bytes wds = Bytes{0x08, 0x03, 0, 0} + kMacB + kMacC + kMacA + Zeros(2) + kMacC + Zeros(8);
  Decode(*p, link::kIeee80211, wds);
  EXPECT_TRUE(p->HasAddress(PacketAddress::kWirelessReceiver));
  EXPECT_TRUE(p->HasAddress(PacketAddress::kWirelessTransmitter));
  EXPECT_TRUE(specs::Equal(WlanMac(kMacA), *AddressOf(*p, PacketAddress::kPhysicalDestination)));

  Bytes v4 = Ipv4(17, kIpA, kIpB, 8) + Udp(1000, 53, 0);
  EXPECT_EQ(zemo::kFaultForeign | zemo::kFaultMalformed,
            FrameDecoder(link::kIpv6).Decode(*p, v4.data(), uint32_t(v4.size()), uint32_t(v4.size()), 5));
  EXPECT_TRUE(Layers(*p).layers.empty());
  EXPECT_FALSE(p->HasAddress(PacketAddress::kLogicalSource));
  EXPECT_TRUE(Flag(&Packet::IsError, *p));
  EXPECT_EQ(0u, FrameDecoder(link::kIpv4).Decode(*p, v4.data(), uint32_t(v4.size()), uint32_t(v4.size()), 5));
  EXPECT_EQ((std::vector<uint16_t>{proto::kIpv4, proto::kUdp, proto::kDns}), Layers(*p).layers);
}

TEST(FrameDecoderFaults, UnknownLinkTypesGiveLengthsAndTimeOnly) {
  auto p = Packet::Create();
  Bytes frame = Ethernet(kMacB, kMacA, 0x0800) + Ipv4(6, kIpA, kIpB, 20) + Tcp(1, 80);
  FrameDecoder decoder(258);
  EXPECT_FALSE(decoder.Known());
  decoder.Decode(*p, frame.data(), uint32_t(frame.size()), 100, 777);
  EXPECT_TRUE(Layers(*p).layers.empty());
  ZemoTime t = 0;
  USHORT length = 0;
  p->GetTimeStamp(&t);
  p->GetPacketLength(&length);
  EXPECT_EQ(777u, t);
  EXPECT_EQ(100, length);
  for (PacketAddress which : kAllAddresses) EXPECT_FALSE(p->HasAddress(which));
}

TEST(FrameDecoderFaults, GroupAddressesFromTheLinkOrFromIp) {
  auto p = Packet::Create();
  Decode(*p, link::kEthernet, Ethernet({0x01, 0x00, 0x5E, 0, 0, 1}, kMacA, 0x0800) + Ipv4(2, kIpA, {224, 0, 0, 1}, 8));
  EXPECT_TRUE(Flag(&Packet::IsMulticast, *p));
  EXPECT_FALSE(Flag(&Packet::IsBroadcast, *p));
  // A unicast MAC decides even under a multicast IP destination.
  Decode(*p, link::kEthernet, Ethernet(kMacB, kMacA, 0x0800) + Ipv4(2, kIpA, {224, 0, 0, 1}, 8));
  EXPECT_FALSE(Flag(&Packet::IsMulticast, *p));
  // Raw IP has only the IP destination.
  Decode(*p, link::kRaw, Ipv4(17, kIpA, {255, 255, 255, 255}, 8) + Udp(68, 67, 0));
  EXPECT_TRUE(Flag(&Packet::IsBroadcast, *p));
}

TEST(FrameDecoderMedium, OneTableForEveryLinkType) {
  for (uint32_t wireless : {link::kIeee80211, link::kRadiotap, link::kPrism}) {
    EXPECT_EQ(0u, zemo::MediumOfLinkType(wireless).type);
    EXPECT_EQ(3u, zemo::MediumOfLinkType(wireless).subType);
  }
  for (uint32_t wired : {link::kEthernet, link::kLinuxSll, link::kLinuxSll2, link::kRaw, link::kNull, 258u}) {
    EXPECT_EQ(0u, zemo::MediumOfLinkType(wired).type);
    EXPECT_EQ(0u, zemo::MediumOfLinkType(wired).subType);
  }
}

}  // namespace
