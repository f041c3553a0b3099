// ZemoCore.ProtoSpecs: the host's protocol tree, and the plain lookups that a
// frame decoder uses to name the layers it finds (by EtherType, IP protocol,
// port, LLC SAP, 802.11 frame type, name).
//
// Identifiers are stable: a saved capture names its protocols by them, so an
// identifier is never renumbered or reused. 0xFFFF is none.
//
// The tree is a tree of families rather than of every possible encapsulation:
// a protocol hangs under the one protocol that always carries it, or, when it
// runs over several, under the family they share (TCP under IP, not under IPv4
// or IPv6), or under the carrier it is usually found over (IP under Ethernet II,
// DNS under UDP although it also runs over TCP). The port lookups answer the
// same identifier for every transport a protocol uses. What actually carried a
// packet is told by its layer reports, not by the tree.
#pragma once

#include <span>
#include <string_view>

#include "frame/engine_interfaces.h"
#include "platform/object.h"

namespace zemo::proto {

inline constexpr uint16_t kNone = 0xFFFF;

// Link layers (roots) and what they alone carry.
inline constexpr uint16_t kEthernetII = 0x0001;
inline constexpr uint16_t kIeee8023 = 0x0002;
inline constexpr uint16_t kIeee80211 = 0x0003;
inline constexpr uint16_t kLlc = 0x0010;
inline constexpr uint16_t kSnap = 0x0011;
inline constexpr uint16_t kStp = 0x0012;
inline constexpr uint16_t kCdp = 0x0013;
inline constexpr uint16_t kVlan = 0x0014;
inline constexpr uint16_t kQinQ = 0x0015;
inline constexpr uint16_t kEapol = 0x0016;
inline constexpr uint16_t kLldp = 0x0017;
inline constexpr uint16_t kPppoeDiscovery = 0x0018;
inline constexpr uint16_t kPppoeSession = 0x0019;
inline constexpr uint16_t kMpls = 0x001A;
inline constexpr uint16_t kMacControl = 0x001B;
inline constexpr uint16_t kWakeOnLan = 0x001C;
inline constexpr uint16_t kMacsec = 0x001D;
inline constexpr uint16_t kLacp = 0x001E;
inline constexpr uint16_t kPtp = 0x001F;
inline constexpr uint16_t kEthernetLoopback = 0x0020;  // the configuration test protocol
inline constexpr uint16_t kAristaVendor = 0x0021;     // Arista's header of a time stamp
inline constexpr uint16_t kNsh = 0x0022;              // network service header

// Capture headers that stand before or instead of the link layer (roots).
inline constexpr uint16_t kLinuxCooked = 0x0030;
inline constexpr uint16_t kLinuxCooked2 = 0x0031;
inline constexpr uint16_t kLoopback = 0x0032;
inline constexpr uint16_t kRadiotap = 0x0033;
inline constexpr uint16_t kPrism = 0x0034;
inline constexpr uint16_t kAvs = 0x0037;  // the AVS radio header of linux-wlan-ng
inline constexpr uint16_t kPpi = 0x0038;  // per-packet information
inline constexpr uint16_t kPpp = 0x0035;  // the PPP of a PPPoE session
inline constexpr uint16_t kIsl = 0x0036;  // Cisco's trunk header before a whole frame

// Network layer.
inline constexpr uint16_t kIp = 0x0040;  // the family of IPv4 and IPv6; never a layer of its own
inline constexpr uint16_t kIpv4 = 0x0041;
inline constexpr uint16_t kIpv6 = 0x0042;
inline constexpr uint16_t kArp = 0x0043;
inline constexpr uint16_t kRarp = 0x0044;
inline constexpr uint16_t kIpx = 0x0045;

// Carried by IP.
inline constexpr uint16_t kIcmp = 0x0060;
inline constexpr uint16_t kIgmp = 0x0061;
inline constexpr uint16_t kTcp = 0x0062;
inline constexpr uint16_t kUdp = 0x0063;
inline constexpr uint16_t kSctp = 0x0064;
inline constexpr uint16_t kGre = 0x0065;
inline constexpr uint16_t kEsp = 0x0066;
inline constexpr uint16_t kAh = 0x0067;
inline constexpr uint16_t kIcmpv6 = 0x0068;
inline constexpr uint16_t kOspf = 0x0069;
inline constexpr uint16_t kVrrp = 0x006A;
inline constexpr uint16_t kPim = 0x006B;
inline constexpr uint16_t kEigrp = 0x006C;

// 802.11 frame groups and kinds: the kinds are the values of a packet's
// frame protocol identifier.
inline constexpr uint16_t kWlanManagement = 0x00B0;
inline constexpr uint16_t kWlanControl = 0x00B1;
inline constexpr uint16_t kWlanData = 0x00B2;
inline constexpr uint16_t kWlanRts = 0x00C0;
inline constexpr uint16_t kWlanCts = 0x00C1;
inline constexpr uint16_t kWlanAck = 0x00C2;
inline constexpr uint16_t kWlanPsPoll = 0x00C3;
inline constexpr uint16_t kWlanCfEnd = 0x00C4;
inline constexpr uint16_t kWlanCfEndAck = 0x00C5;
inline constexpr uint16_t kWlanBlockAckRequest = 0x00C6;
inline constexpr uint16_t kWlanBlockAck = 0x00C7;
inline constexpr uint16_t kWlanControlWrapper = 0x00C8;
inline constexpr uint16_t kWlanDataFrame = 0x00D0;
inline constexpr uint16_t kWlanNullData = 0x00D1;
inline constexpr uint16_t kWlanQosData = 0x00D2;
inline constexpr uint16_t kWlanQosNull = 0x00D3;
// A four-address frame relayed between access points: it says nothing of
// whether its sender is a station or an access point.
inline constexpr uint16_t kWlanWdsData = 0x00D5;
inline constexpr uint16_t kWlanProbeRequest = 0x00E0;
inline constexpr uint16_t kWlanProbeResponse = 0x00E1;
inline constexpr uint16_t kWlanBeacon = 0x00E2;
inline constexpr uint16_t kWlanAssociationRequest = 0x00E3;
inline constexpr uint16_t kWlanAssociationResponse = 0x00E4;
inline constexpr uint16_t kWlanReassociationRequest = 0x00E5;
inline constexpr uint16_t kWlanReassociationResponse = 0x00E6;
inline constexpr uint16_t kWlanAtim = 0x00E7;
inline constexpr uint16_t kWlanDisassociation = 0x00E8;
inline constexpr uint16_t kWlanAuthentication = 0x00E9;
inline constexpr uint16_t kWlanDeauthentication = 0x00EA;
inline constexpr uint16_t kWlanAction = 0x00EB;
inline constexpr uint16_t kWlanActionNoAck = 0x00EC;

// Applications over TCP (and TLS).
inline constexpr uint16_t kHttp = 0x0100;
inline constexpr uint16_t kTls = 0x0101;
inline constexpr uint16_t kHttps = 0x0102;
inline constexpr uint16_t kSsh = 0x0103;
inline constexpr uint16_t kTelnet = 0x0104;
inline constexpr uint16_t kFtp = 0x0105;
inline constexpr uint16_t kFtpData = 0x0106;
inline constexpr uint16_t kSmtp = 0x0107;
inline constexpr uint16_t kPop3 = 0x0108;
inline constexpr uint16_t kImap = 0x0109;
inline constexpr uint16_t kSmb = 0x010A;
inline constexpr uint16_t kNetbiosSession = 0x010B;
inline constexpr uint16_t kLdap = 0x010C;
inline constexpr uint16_t kRdp = 0x010D;
inline constexpr uint16_t kBgp = 0x010E;
inline constexpr uint16_t kSmtps = 0x010F;
inline constexpr uint16_t kImaps = 0x0110;
inline constexpr uint16_t kPop3s = 0x0111;
inline constexpr uint16_t kLdaps = 0x0112;
inline constexpr uint16_t kMqtt = 0x0113;
inline constexpr uint16_t kMsSql = 0x0114;
inline constexpr uint16_t kMySql = 0x0115;
inline constexpr uint16_t kPostgreSql = 0x0116;
inline constexpr uint16_t kVnc = 0x0117;
inline constexpr uint16_t kRtsp = 0x0118;
inline constexpr uint16_t kDceRpc = 0x0119;
inline constexpr uint16_t kIpp = 0x011A;
inline constexpr uint16_t kXmpp = 0x011B;
inline constexpr uint16_t kNntp = 0x011C;
inline constexpr uint16_t kPptp = 0x011D;

// Applications over UDP.
inline constexpr uint16_t kDns = 0x0140;
inline constexpr uint16_t kDhcp = 0x0141;
inline constexpr uint16_t kDhcpv6 = 0x0142;
inline constexpr uint16_t kNtp = 0x0143;
inline constexpr uint16_t kSnmp = 0x0144;
inline constexpr uint16_t kTftp = 0x0145;
inline constexpr uint16_t kSyslog = 0x0146;
inline constexpr uint16_t kNetbiosName = 0x0147;
inline constexpr uint16_t kNetbiosDatagram = 0x0148;
inline constexpr uint16_t kKerberos = 0x0149;
inline constexpr uint16_t kRip = 0x014A;
inline constexpr uint16_t kRipng = 0x014B;
inline constexpr uint16_t kSip = 0x014C;
inline constexpr uint16_t kMdns = 0x014D;
inline constexpr uint16_t kSsdp = 0x014E;
inline constexpr uint16_t kLlmnr = 0x014F;
inline constexpr uint16_t kQuic = 0x0150;
inline constexpr uint16_t kRtp = 0x0151;
inline constexpr uint16_t kRtcp = 0x0152;
inline constexpr uint16_t kRadius = 0x0153;
inline constexpr uint16_t kIke = 0x0154;
inline constexpr uint16_t kL2tp = 0x0155;
inline constexpr uint16_t kVxlan = 0x0156;
inline constexpr uint16_t kWsDiscovery = 0x0157;
inline constexpr uint16_t kStun = 0x0158;

struct Row {
  uint16_t id;
  uint16_t parent;  // kNone at a root
  const char16_t* name;
};

// Every protocol, parents before their children.
std::span<const Row> Rows();

// All of these answer in constant time, without allocation or locks.
bool Known(uint32_t id);          // the low 16 bits name a protocol
uint16_t Parent(uint32_t id);     // kNone for a root or an unknown identifier
uint32_t Level(uint32_t id);      // 1 at a root; 0 for an unknown identifier
const char16_t* Name(uint32_t id);  // null for an unknown identifier

uint16_t ByEtherType(uint16_t etherType);
uint16_t ByIpProtocol(uint8_t protocol);  // IPv4 protocol or IPv6 next header
uint16_t ByTcpPort(uint16_t port);
uint16_t ByUdpPort(uint16_t port);
uint16_t ByLlcSap(uint8_t dsap);
// The kind of an 802.11 frame from its frame control type (0 management,
// 1 control, 2 data) and subtype; the group for a subtype without a kind of
// its own, kNone for type 3.
uint16_t ByIeee80211Type(uint8_t type, uint8_t subtype);
// Exact name first, then without regard to case.
uint16_t ByName(std::u16string_view name);

}  // namespace zemo::proto

namespace zemo {

// The tree behind IProtoSpecs. Only the low 16 bits of an identifier are the
// protocol; the upper half is ignored. The object holds no state.
class ProtoSpecs final : public Object<ProtoSpecs, IProtoSpecs> {
 public:
  HRESULT GetParentSpec(ULONG id, ULONG* parent) override;
  HRESULT GetSpecName(ULONG id, BSTR* name) override;
  HRESULT GetSpecLevel(ULONG id, ULONG* level) override;
  HRESULT IsSpecWithin(ULONG id, const ULONG* ids, ULONG count, ULONG reserved1, ULONG reserved2) override;
  HRESULT GetSpecPath(ULONG id, USHORT* path, ULONG* count) override;
  HRESULT FindSpecByPath(const USHORT* path, ULONG count, MediaSpec* spec) override;
};

}  // namespace zemo
