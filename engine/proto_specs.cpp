#include "engine/proto_specs.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "engine/spec_values.h"
#include "platform/strings.h"

namespace zemo::proto {
namespace {

// The protocol tree. Add rows, never renumber or reuse an identifier; a
// parent's row stands before its children's.
constexpr Row kRows[] = {
    {kEthernetII, kNone, u"Ethernet II"},
    {kIeee8023, kNone, u"IEEE 802.3"},
    {kIeee80211, kNone, u"IEEE 802.11"},

    {kLlc, kIeee8023, u"LLC"},
    {kSnap, kLlc, u"SNAP"},
    {kStp, kLlc, u"STP"},
    {kCdp, kSnap, u"CDP"},
    {kVlan, kEthernetII, u"802.1Q VLAN"},
    {kQinQ, kEthernetII, u"802.1ad QinQ"},
    {kEapol, kEthernetII, u"EAPOL"},
    {kLldp, kEthernetII, u"LLDP"},
    {kPppoeDiscovery, kEthernetII, u"PPPoE Discovery"},
    {kPppoeSession, kEthernetII, u"PPPoE Session"},
    {kMpls, kEthernetII, u"MPLS"},
    {kMacControl, kEthernetII, u"MAC Control"},
    {kWakeOnLan, kEthernetII, u"Wake-on-LAN"},
    {kMacsec, kEthernetII, u"MACsec"},
    {kLacp, kEthernetII, u"LACP"},
    {kPtp, kEthernetII, u"PTP"},
    {kEthernetLoopback, kEthernetII, u"Ethernet Loopback"},
    {kAristaVendor, kEthernetII, u"Arista Vendor Specific"},
    {kNsh, kEthernetII, u"NSH"},

    {kLinuxCooked, kNone, u"Linux cooked capture"},
    {kLinuxCooked2, kNone, u"Linux cooked capture v2"},
    {kLoopback, kNone, u"BSD loopback"},
    {kRadiotap, kNone, u"Radiotap"},
    {kPrism, kNone, u"Prism"},
    {kAvs, kNone, u"AVS"},
    {kPpi, kNone, u"PPI"},
    {kPpp, kPppoeSession, u"PPP"},
    {kIsl, kNone, u"Cisco ISL"},

    {kIp, kEthernetII, u"IP"},
    {kIpv4, kIp, u"IPv4"},
    {kIpv6, kIp, u"IPv6"},
    {kArp, kEthernetII, u"ARP"},
    {kRarp, kEthernetII, u"RARP"},
    {kIpx, kEthernetII, u"IPX"},

    {kIcmp, kIpv4, u"ICMP"},
    {kIgmp, kIpv4, u"IGMP"},
    {kTcp, kIp, u"TCP"},
    {kUdp, kIp, u"UDP"},
    {kSctp, kIp, u"SCTP"},
    {kGre, kIp, u"GRE"},
    {kEsp, kIp, u"IPsec ESP"},
    {kAh, kIp, u"IPsec AH"},
    {kIcmpv6, kIpv6, u"ICMPv6"},
    {kOspf, kIp, u"OSPF"},
    {kVrrp, kIp, u"VRRP"},
    {kPim, kIp, u"PIM"},
    {kEigrp, kIp, u"EIGRP"},

    {kWlanManagement, kIeee80211, u"802.11 Management"},
    {kWlanControl, kIeee80211, u"802.11 Control"},
    {kWlanData, kIeee80211, u"802.11 Data"},
    {kWlanRts, kWlanControl, u"802.11 RTS"},
    {kWlanCts, kWlanControl, u"802.11 CTS"},
    {kWlanAck, kWlanControl, u"802.11 ACK"},
    {kWlanPsPoll, kWlanControl, u"802.11 PS-Poll"},
    {kWlanCfEnd, kWlanControl, u"802.11 CF-End"},
    {kWlanCfEndAck, kWlanControl, u"802.11 CF-End + CF-Ack"},
    {kWlanBlockAckRequest, kWlanControl, u"802.11 Block Ack Request"},
    {kWlanBlockAck, kWlanControl, u"802.11 Block Ack"},
    {kWlanControlWrapper, kWlanControl, u"802.11 Control Wrapper"},
    {kWlanDataFrame, kWlanData, u"802.11 Data Frame"},
    {kWlanNullData, kWlanData, u"802.11 Null Data"},
    {kWlanQosData, kWlanData, u"802.11 QoS Data"},
    {kWlanQosNull, kWlanData, u"802.11 QoS Null"},
    {kWlanWdsData, kWlanData, u"802.11 WDS Data"},
    {kWlanProbeRequest, kWlanManagement, u"802.11 Probe Request"},
    {kWlanProbeResponse, kWlanManagement, u"802.11 Probe Response"},
    {kWlanBeacon, kWlanManagement, u"802.11 Beacon"},
    {kWlanAssociationRequest, kWlanManagement, u"802.11 Association Request"},
    {kWlanAssociationResponse, kWlanManagement, u"802.11 Association Response"},
    {kWlanReassociationRequest, kWlanManagement, u"802.11 Reassociation Request"},
    {kWlanReassociationResponse, kWlanManagement, u"802.11 Reassociation Response"},
    {kWlanAtim, kWlanManagement, u"802.11 ATIM"},
    {kWlanDisassociation, kWlanManagement, u"802.11 Disassociation"},
    {kWlanAuthentication, kWlanManagement, u"802.11 Authentication"},
    {kWlanDeauthentication, kWlanManagement, u"802.11 Deauthentication"},
    {kWlanAction, kWlanManagement, u"802.11 Action"},
    {kWlanActionNoAck, kWlanManagement, u"802.11 Action No Ack"},

    {kHttp, kTcp, u"HTTP"},
    {kTls, kTcp, u"TLS"},
    {kHttps, kTls, u"HTTPS"},
    {kSsh, kTcp, u"SSH"},
    {kTelnet, kTcp, u"Telnet"},
    {kFtp, kTcp, u"FTP"},
    {kFtpData, kTcp, u"FTP Data"},
    {kSmtp, kTcp, u"SMTP"},
    {kPop3, kTcp, u"POP3"},
    {kImap, kTcp, u"IMAP"},
    {kSmb, kTcp, u"SMB"},
    {kNetbiosSession, kTcp, u"NetBIOS Session Service"},
    {kLdap, kTcp, u"LDAP"},
    {kRdp, kTcp, u"RDP"},
    {kBgp, kTcp, u"BGP"},
    {kSmtps, kTls, u"SMTPS"},
    {kImaps, kTls, u"IMAPS"},
    {kPop3s, kTls, u"POP3S"},
    {kLdaps, kTls, u"LDAPS"},
    {kMqtt, kTcp, u"MQTT"},
    {kMsSql, kTcp, u"MS SQL"},
    {kMySql, kTcp, u"MySQL"},
    {kPostgreSql, kTcp, u"PostgreSQL"},
    {kVnc, kTcp, u"VNC"},
    {kRtsp, kTcp, u"RTSP"},
    {kDceRpc, kTcp, u"DCE/RPC"},
    {kIpp, kTcp, u"IPP"},
    {kXmpp, kTcp, u"XMPP"},
    {kNntp, kTcp, u"NNTP"},
    {kPptp, kTcp, u"PPTP"},

    {kDns, kUdp, u"DNS"},
    {kDhcp, kUdp, u"DHCP"},
    {kDhcpv6, kUdp, u"DHCPv6"},
    {kNtp, kUdp, u"NTP"},
    {kSnmp, kUdp, u"SNMP"},
    {kTftp, kUdp, u"TFTP"},
    {kSyslog, kUdp, u"Syslog"},
    {kNetbiosName, kUdp, u"NetBIOS Name Service"},
    {kNetbiosDatagram, kUdp, u"NetBIOS Datagram Service"},
    {kKerberos, kUdp, u"Kerberos"},
    {kRip, kUdp, u"RIP"},
    {kRipng, kUdp, u"RIPng"},
    {kSip, kUdp, u"SIP"},
    {kMdns, kUdp, u"mDNS"},
    {kSsdp, kUdp, u"SSDP"},
    {kLlmnr, kUdp, u"LLMNR"},
    {kQuic, kUdp, u"QUIC"},
    {kRtp, kUdp, u"RTP"},
    {kRtcp, kUdp, u"RTCP"},
    {kRadius, kUdp, u"RADIUS"},
    {kIke, kUdp, u"IKE"},
    {kL2tp, kUdp, u"L2TP"},
    {kVxlan, kUdp, u"VXLAN"},
    {kWsDiscovery, kUdp, u"WS-Discovery"},
    {kStun, kUdp, u"STUN"},
};

struct Key {
  uint16_t value;
  uint16_t id;
};

constexpr Key kEtherTypes[] = {
    {0x0800, kIpv4},         {0x0806, kArp},           {0x0842, kWakeOnLan},
    {0x8035, kRarp},         {0x8100, kVlan},          {0x8137, kIpx},       {0x86DD, kIpv6},
    {0x8808, kMacControl},   {0x8809, kLacp},          {0x8847, kMpls},      {0x8848, kMpls},
    {0x8863, kPppoeDiscovery}, {0x8864, kPppoeSession}, {0x888E, kEapol},    {0x88A8, kQinQ},
    {0x88CC, kLldp},         {0x88E5, kMacsec},        {0x88F7, kPtp},       {0x894F, kNsh},       {0x9000, kEthernetLoopback},
    {0xD28B, kAristaVendor},
};

constexpr Key kIpProtocols[] = {
    {1, kIcmp}, {2, kIgmp},  {4, kIpv4}, {6, kTcp},  {17, kUdp},  {41, kIpv6},  {47, kGre},
    {50, kEsp}, {51, kAh},   {58, kIcmpv6}, {88, kEigrp}, {89, kOspf}, {103, kPim}, {112, kVrrp},
    {132, kSctp},
};

constexpr Key kTcpPorts[] = {
    {20, kFtpData},  {21, kFtp},     {22, kSsh},       {23, kTelnet},   {25, kSmtp},     {53, kDns},
    {80, kHttp},     {88, kKerberos}, {110, kPop3},    {119, kNntp},    {135, kDceRpc},  {139, kNetbiosSession},
    {143, kImap},    {179, kBgp},    {389, kLdap},     {443, kHttps},   {445, kSmb},     {465, kSmtps},
    {554, kRtsp},    {587, kSmtp},   {631, kIpp},      {636, kLdaps},   {993, kImaps},   {995, kPop3s},
    {1433, kMsSql},  {1723, kPptp},  {1883, kMqtt},    {3306, kMySql},  {3389, kRdp},    {3478, kStun},
    {5060, kSip},    {5222, kXmpp},  {5355, kLlmnr},   {5432, kPostgreSql}, {5900, kVnc}, {8080, kHttp},
    {8443, kHttps},
};

constexpr Key kUdpPorts[] = {
    {53, kDns},        {67, kDhcp},       {68, kDhcp},    {69, kTftp},     {88, kKerberos},  {123, kNtp},
    {137, kNetbiosName}, {138, kNetbiosDatagram}, {161, kSnmp}, {162, kSnmp}, {389, kLdap}, {443, kQuic},
    {500, kIke},       {514, kSyslog},    {520, kRip},    {521, kRipng},   {546, kDhcpv6},   {547, kDhcpv6},
    {1701, kL2tp},     {1812, kRadius},   {1813, kRadius}, {1900, kSsdp},  {3389, kRdp},     {3478, kStun},
    {3702, kWsDiscovery}, {4500, kIke},   {4789, kVxlan}, {5004, kRtp},    {5005, kRtcp},    {5060, kSip},
    {5353, kMdns},     {5355, kLlmnr},
};

constexpr Key kLlcSaps[] = {{0x42, kStp}, {0xAA, kSnap}, {0xE0, kIpx}};

// Identifiers stay below this bound so that finding a row is one array read.
constexpr uint32_t kIdLimit = 0x200;
constexpr uint16_t kNoRow = 0xFFFF;
constexpr size_t kRowCount = std::size(kRows);

constexpr bool SameText(const char16_t* a, const char16_t* b) {
  while (*a && *a == *b) ++a, ++b;
  return *a == *b;
}

struct Index {
  std::array<uint16_t, kIdLimit> row{};    // by identifier
  std::array<uint8_t, kRowCount> level{};  // by row
};

// Builds the index and proves the table sound: identifiers in range and
// distinct, parents known and earlier (so no cycle), names distinct.
consteval Index BuildIndex() {
  Index x;
  for (auto& r : x.row) r = kNoRow;
  for (size_t i = 0; i < kRowCount; ++i) {
    const Row& r = kRows[i];
    if (r.id >= kIdLimit || r.id == 0 || x.row[r.id] != kNoRow) throw "identifier out of range or used twice";
    if (r.parent == kNone) {
      x.level[i] = 1;
    } else {
      if (r.parent >= kIdLimit || x.row[r.parent] == kNoRow) throw "parent unknown or after its child";
      x.level[i] = static_cast<uint8_t>(x.level[x.row[r.parent]] + 1);
    }
    for (size_t j = 0; j < i; ++j)
      if (SameText(kRows[j].name, r.name)) throw "name used twice";
    x.row[r.id] = static_cast<uint16_t>(i);
  }
  return x;
}
constexpr Index kIndex = BuildIndex();

template <size_t N>
consteval bool Sorted(const Key (&keys)[N]) {
  for (size_t i = 1; i < N; ++i)
    if (keys[i - 1].value >= keys[i].value) return false;
  for (const Key& k : keys)
    if (k.id >= kIdLimit || kIndex.row[k.id] == kNoRow) return false;
  return true;
}
static_assert(Sorted(kEtherTypes) && Sorted(kIpProtocols) && Sorted(kTcpPorts) && Sorted(kUdpPorts) &&
              Sorted(kLlcSaps));

// Keys below kDirect resolve by one read; the few above by a short search.
constexpr uint32_t kDirect = 1024;
template <size_t N>
consteval std::array<uint16_t, kDirect> Direct(const Key (&keys)[N]) {
  std::array<uint16_t, kDirect> a{};
  for (auto& v : a) v = kNone;
  for (const Key& k : keys)
    if (k.value < kDirect) a[k.value] = k.id;
  return a;
}
constexpr auto kTcpLow = Direct(kTcpPorts);
constexpr auto kUdpLow = Direct(kUdpPorts);
constexpr auto kIpProtocolTable = Direct(kIpProtocols);
constexpr auto kLlcSapTable = Direct(kLlcSaps);

template <size_t N>
uint16_t Search(const Key (&keys)[N], uint16_t value) {
  const Key* k = std::lower_bound(keys, keys + N, value, [](const Key& a, uint16_t v) { return a.value < v; });
  return k != keys + N && k->value == value ? k->id : kNone;
}

inline uint16_t RowOf(uint32_t id) {
  uint32_t low = id & 0xFFFF;
  return low < kIdLimit ? kIndex.row[low] : kNoRow;
}

// 802.11 subtypes to kinds, by type, then subtype.
constexpr uint16_t kWlanKinds[3][16] = {
    {kWlanAssociationRequest, kWlanAssociationResponse, kWlanReassociationRequest, kWlanReassociationResponse,
     kWlanProbeRequest, kWlanProbeResponse, kWlanManagement, kWlanManagement, kWlanBeacon, kWlanAtim,
     kWlanDisassociation, kWlanAuthentication, kWlanDeauthentication, kWlanAction, kWlanActionNoAck,
     kWlanManagement},
    {kWlanControl, kWlanControl, kWlanControl, kWlanControl, kWlanControl, kWlanControl, kWlanControl,
     kWlanControlWrapper, kWlanBlockAckRequest, kWlanBlockAck, kWlanPsPoll, kWlanRts, kWlanCts, kWlanAck, kWlanCfEnd,
     kWlanCfEndAck},
    // The contention-free variants count as the plain frame with or without data.
    {kWlanDataFrame, kWlanDataFrame, kWlanDataFrame, kWlanDataFrame, kWlanNullData, kWlanNullData, kWlanNullData,
     kWlanNullData, kWlanQosData, kWlanQosData, kWlanQosData, kWlanQosData, kWlanQosNull, kWlanData, kWlanQosNull,
     kWlanQosNull},
};

}  // namespace

std::span<const Row> Rows() { return kRows; }

bool Known(uint32_t id) { return RowOf(id) != kNoRow; }

uint16_t Parent(uint32_t id) {
  uint16_t r = RowOf(id);
  return r == kNoRow ? kNone : kRows[r].parent;
}

uint32_t Level(uint32_t id) {
  uint16_t r = RowOf(id);
  return r == kNoRow ? 0 : kIndex.level[r];
}

const char16_t* Name(uint32_t id) {
  uint16_t r = RowOf(id);
  return r == kNoRow ? nullptr : kRows[r].name;
}

uint16_t ByEtherType(uint16_t etherType) {
  // The common two without a search.
  if (etherType == 0x0800) return kIpv4;
  if (etherType == 0x86DD) return kIpv6;
  return Search(kEtherTypes, etherType);
}

uint16_t ByIpProtocol(uint8_t protocol) { return kIpProtocolTable[protocol]; }

uint16_t ByTcpPort(uint16_t port) { return port < kDirect ? kTcpLow[port] : Search(kTcpPorts, port); }

uint16_t ByUdpPort(uint16_t port) { return port < kDirect ? kUdpLow[port] : Search(kUdpPorts, port); }

uint16_t ByLlcSap(uint8_t dsap) { return kLlcSapTable[dsap]; }

uint16_t ByIeee80211Type(uint8_t type, uint8_t subtype) {
  return type < 3 ? kWlanKinds[type][subtype & 0x0F] : kNone;
}

uint16_t ByName(std::u16string_view name) {
  for (const Row& r : kRows)
    if (name == r.name) return r.id;
  for (const Row& r : kRows)
    if (WideEqualNoCase(name, r.name)) return r.id;
  return kNone;
}

}  // namespace zemo::proto

namespace zemo {

namespace {
// Deeper than any path of the tree.
constexpr ULONG kMaxDepth = 16;
consteval bool WithinMaxDepth() {
  for (uint8_t level : proto::kIndex.level)
    if (level > kMaxDepth) return false;
  return true;
}
static_assert(WithinMaxDepth());
}  // namespace

HRESULT ProtoSpecs::GetParentSpec(ULONG id, ULONG* parent) {
  return Unlocked([&]() -> HRESULT {
    CheckOut(parent);
    *parent = proto::kNone;
    if (!proto::Known(id)) return E_INVALIDARG;
    *parent = proto::Parent(id);
    return S_OK;
  });
}

HRESULT ProtoSpecs::GetSpecName(ULONG id, BSTR* name) {
  return Unlocked([&]() -> HRESULT {
    CheckOut(name);
    const char16_t* text = proto::Name(id);
    if (!text) return E_INVALIDARG;
    *name = AllocBstr(text);
    return S_OK;
  });
}

HRESULT ProtoSpecs::GetSpecLevel(ULONG id, ULONG* level) {
  return Unlocked([&]() -> HRESULT {
    CheckOut(level);
    *level = proto::Level(id);
    return *level ? S_OK : E_INVALIDARG;
  });
}

HRESULT ProtoSpecs::IsSpecWithin(ULONG id, const ULONG* ids, ULONG count, ULONG, ULONG) {
  return Unlocked([&]() -> HRESULT {
    if (!proto::Known(id)) return E_INVALIDARG;
    if (count && !ids) return E_POINTER;
    for (uint32_t at = id & 0xFFFF; at != proto::kNone; at = proto::Parent(at))
      for (ULONG i = 0; i < count; ++i)
        if ((ids[i] & 0xFFFF) == at) return S_OK;
    return S_FALSE;
  });
}

HRESULT ProtoSpecs::GetSpecPath(ULONG id, USHORT* path, ULONG* count) {
  return Unlocked([&]() -> HRESULT {
    if (!count) return E_POINTER;
    ULONG depth = proto::Level(id);
    if (depth == 0) return E_INVALIDARG;
    if (*count < depth) {
      // The caller learns the room that the path needs.
      *count = depth;
      return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
    }
    if (!path) return E_POINTER;
    uint32_t at = id & 0xFFFF;
    for (ULONG i = depth; i-- > 0; at = proto::Parent(at)) path[i] = static_cast<USHORT>(at);
    *count = depth;
    return S_OK;
  });
}

HRESULT ProtoSpecs::FindSpecByPath(const USHORT* path, ULONG count, MediaSpec* spec) {
  return Unlocked([&]() -> HRESULT {
    if (!spec) return E_POINTER;
    *spec = MediaSpec{};
    if (count == 0 || count > kMaxDepth) return E_INVALIDARG;
    if (!path) return E_POINTER;
    // A real path: starts at a root and each step is a child of the one before.
    uint16_t above = proto::kNone;
    for (ULONG i = 0; i < count; ++i) {
      if (!proto::Known(path[i]) || proto::Parent(path[i]) != above) return E_INVALIDARG;
      above = path[i];
    }
    *spec = specs::Protocol(above);
    return S_OK;
  });
}

}  // namespace zemo
