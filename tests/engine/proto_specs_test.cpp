#include "engine/proto_specs.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "platform/strings.h"

namespace {

using zemo::CBstr;
using zemo::ComPtr;
namespace proto = zemo::proto;

ComPtr<IProtoSpecs> Specs() { return zemo::MakeObject<zemo::ProtoSpecs, IProtoSpecs>(); }

std::vector<USHORT> PathOf(IProtoSpecs* specs, ULONG id) {
  USHORT buf[100];
  ULONG count = 100;
  EXPECT_EQ(S_OK, specs->GetSpecPath(id, buf, &count)) << id;
  return std::vector<USHORT>(buf, buf + count);
}

TEST(EngineProtoSpecs, PathsAndFindSpecByPathAreExactInversesOverTheWholeTree) {
  auto specs = Specs();
  for (const proto::Row& row : proto::Rows()) {
    std::vector<USHORT> path = PathOf(specs.Get(), row.id);
    ASSERT_FALSE(path.empty());
    EXPECT_EQ(row.id, path.back());
    ULONG level = 0;
    ASSERT_EQ(S_OK, specs->GetSpecLevel(row.id, &level));
    EXPECT_EQ(path.size(), level);
    // Root first, each step a child of the one before.
    ULONG parent = 0;
    ASSERT_EQ(S_OK, specs->GetParentSpec(path.front(), &parent));
    EXPECT_EQ(proto::kNone, parent);
    for (size_t i = 1; i < path.size(); ++i) {
      ASSERT_EQ(S_OK, specs->GetParentSpec(path[i], &parent));
      EXPECT_EQ(path[i - 1], parent);
    }

    MediaSpec spec;
    ASSERT_EQ(S_OK, specs->FindSpecByPath(path.data(), static_cast<ULONG>(path.size()), &spec));
    EXPECT_EQ(1, spec.fClass);
    EXPECT_EQ(9, spec.fType);
    EXPECT_EQ(0xC0000000u, spec.fMask);
    EXPECT_EQ(row.id & 0xFF, spec.fData[0]);
    EXPECT_EQ(row.id >> 8, spec.fData[1]);
    for (size_t i = 2; i < sizeof spec.fData; ++i) EXPECT_EQ(0, spec.fData[i]);
  }
}

TEST(EngineProtoSpecs, TreeIsSoundWithUniqueNamesAndIdentifiers) {
  auto specs = Specs();
  std::set<uint16_t> ids;
  std::set<std::u16string> names;  // upper-cased: a name lookup is blind to case
  const size_t rows = proto::Rows().size();
  for (const proto::Row& row : proto::Rows()) {
    EXPECT_TRUE(ids.insert(row.id).second) << row.id;
    EXPECT_NE(0, row.id);  // the protocol statistics treat a parent of 0 as none
    EXPECT_NE(proto::kNone, row.id);
    std::u16string upper(row.name);
    for (auto& c : upper) c = zemo::WideUpper(c);
    EXPECT_TRUE(names.insert(upper).second) << zemo::ToUtf8(row.name);
    EXPECT_EQ(row.id, proto::ByName(row.name));

    CBstr name;
    ASSERT_EQ(S_OK, specs->GetSpecName(row.id, name.Out()));
    EXPECT_EQ(std::u16string_view(row.name), name.View());

    // Walking up ends at a root within as many steps as there are rows.
    ULONG at = row.id;
    size_t steps = 0;
    while (at != proto::kNone && steps <= rows) {
      ULONG parent = 0;
      ASSERT_EQ(S_OK, specs->GetParentSpec(at, &parent)) << "parent of " << row.id << " unknown";
      at = parent;
      ++steps;
    }
    EXPECT_LE(steps, rows) << "cycle above " << row.id;
  }
}

// Saved captures name protocols by these numbers: they must never change.
TEST(EngineProtoSpecs, IdentifiersAreStable) {
  struct Fixed {
    ULONG id;
    const char16_t* name;
  };
  const Fixed fixed[] = {
      {0x0001, u"Ethernet II"}, {0x0003, u"IEEE 802.11"}, {0x0041, u"IPv4"}, {0x0042, u"IPv6"},
      {0x0043, u"ARP"},         {0x0062, u"TCP"},         {0x0063, u"UDP"},  {0x0100, u"HTTP"},
      {0x0140, u"DNS"},         {0x00E0, u"802.11 Probe Request"},           {0x00E1, u"802.11 Probe Response"},
      {0x00E2, u"802.11 Beacon"},
  };
  auto specs = Specs();
  for (const Fixed& f : fixed) {
    CBstr name;
    ASSERT_EQ(S_OK, specs->GetSpecName(f.id, name.Out())) << f.id;
    EXPECT_EQ(std::u16string_view(f.name), name.View());
  }
}

TEST(EngineProtoSpecs, LevelsParentsAndUnknownIdentifiers) {
  auto specs = Specs();
  ULONG level = 0, parent = 0;
  ASSERT_EQ(S_OK, specs->GetSpecLevel(proto::kEthernetII, &level));
  EXPECT_EQ(1u, level);
  ASSERT_EQ(S_OK, specs->GetSpecLevel(proto::kHttps, &level));
  EXPECT_EQ(5u, level);
  EXPECT_EQ((std::vector<USHORT>{proto::kEthernetII, proto::kIp, proto::kTcp, proto::kTls, proto::kHttps}),
            PathOf(specs.Get(), proto::kHttps));

  // The walk of the protocol statistics over 0xFFFF answers ends only on a failure.
  EXPECT_EQ(E_INVALIDARG, specs->GetParentSpec(0xFFFF, &parent));
  EXPECT_EQ(E_INVALIDARG, specs->GetParentSpec(0x1FF, &parent));
  EXPECT_EQ(E_INVALIDARG, specs->GetSpecLevel(0x7777, &level));
  CBstr name;
  EXPECT_EQ(E_INVALIDARG, specs->GetSpecName(0xFFFF, name.Out()));
  EXPECT_EQ(nullptr, name.Get());
  EXPECT_EQ(E_POINTER, specs->GetParentSpec(proto::kTcp, nullptr));

  // Only the low half names the protocol.
  ASSERT_EQ(S_OK, specs->GetParentSpec(0x00050000u | proto::kTcp, &parent));
  EXPECT_EQ(proto::kIp, parent);
}

TEST(EngineProtoSpecs, IsSpecWithinTestsTheIdentifierAndItsAncestors) {
  auto specs = Specs();
  const ULONG tcp[] = {proto::kTcp};
  const ULONG udpThenIp[] = {proto::kUdp, proto::kIp};
  const ULONG unknownOnly[] = {0x7777};
  EXPECT_EQ(S_OK, specs->IsSpecWithin(proto::kHttp, tcp, 1, 0, 0));
  EXPECT_EQ(S_OK, specs->IsSpecWithin(proto::kTcp, tcp, 1, 0, 0));  // at counts
  EXPECT_EQ(S_FALSE, specs->IsSpecWithin(proto::kIp, tcp, 1, 0, 0));  // above does not
  EXPECT_EQ(S_FALSE, specs->IsSpecWithin(proto::kDns, tcp, 1, 0, 0));
  EXPECT_EQ(S_OK, specs->IsSpecWithin(proto::kHttp, udpThenIp, 2, 0, 0));
  EXPECT_EQ(S_FALSE, specs->IsSpecWithin(proto::kArp, udpThenIp, 2, 0, 0));
  EXPECT_EQ(S_FALSE, specs->IsSpecWithin(proto::kArp, unknownOnly, 1, 0, 0));
  EXPECT_EQ(S_FALSE, specs->IsSpecWithin(proto::kArp, nullptr, 0, 0, 0));
  EXPECT_EQ(S_OK, specs->IsSpecWithin(0x00030000u | proto::kHttp, tcp, 1, 0, 0));
  EXPECT_EQ(E_INVALIDARG, specs->IsSpecWithin(0x7777, tcp, 1, 0, 0));
  EXPECT_EQ(E_POINTER, specs->IsSpecWithin(proto::kHttp, nullptr, 1, 0, 0));
}

TEST(EngineProtoSpecs, GetSpecPathNeedsRoomAndFindSpecByPathNeedsARealPath) {
  auto specs = Specs();
  USHORT buf[100];
  ULONG count = 2;
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER), specs->GetSpecPath(proto::kHttp, buf, &count));
  EXPECT_EQ(4u, count);  // the room it needs
  count = 4;
  EXPECT_EQ(S_OK, specs->GetSpecPath(proto::kHttp, buf, &count));
  count = 100;
  EXPECT_EQ(E_INVALIDARG, specs->GetSpecPath(0x7777, buf, &count));
  EXPECT_EQ(E_POINTER, specs->GetSpecPath(proto::kHttp, buf, nullptr));

  MediaSpec spec;
  const USHORT notFromRoot[] = {proto::kIp, proto::kTcp};
  const USHORT skipsALevel[] = {proto::kEthernetII, proto::kTcp};
  const USHORT wrongBranch[] = {proto::kEthernetII, proto::kIp, proto::kUdp, proto::kHttp};
  const USHORT unknown[] = {proto::kEthernetII, 0x7777};
  const USHORT root[] = {proto::kIeee80211};
  EXPECT_EQ(E_INVALIDARG, specs->FindSpecByPath(notFromRoot, 2, &spec));
  EXPECT_EQ(E_INVALIDARG, specs->FindSpecByPath(skipsALevel, 2, &spec));
  EXPECT_EQ(E_INVALIDARG, specs->FindSpecByPath(wrongBranch, 4, &spec));
  EXPECT_EQ(E_INVALIDARG, specs->FindSpecByPath(unknown, 2, &spec));
  EXPECT_EQ(E_INVALIDARG, specs->FindSpecByPath(root, 0, &spec));
  EXPECT_EQ(E_POINTER, specs->FindSpecByPath(root, 1, nullptr));
  ASSERT_EQ(S_OK, specs->FindSpecByPath(root, 1, &spec));
  EXPECT_EQ(proto::kIeee80211, spec.fData[0] | spec.fData[1] << 8);
}

TEST(EngineProtoSpecs, DecoderLookupsLandInTheRightBranch) {
  EXPECT_EQ(proto::kIpv4, proto::ByEtherType(0x0800));
  EXPECT_EQ(proto::kIpv6, proto::ByEtherType(0x86DD));
  EXPECT_EQ(proto::kArp, proto::ByEtherType(0x0806));
  EXPECT_EQ(proto::kVlan, proto::ByEtherType(0x8100));
  EXPECT_EQ(proto::kMpls, proto::ByEtherType(0x8848));
  EXPECT_EQ(proto::kNone, proto::ByEtherType(0x1234));
  EXPECT_EQ(proto::kTcp, proto::ByIpProtocol(6));
  EXPECT_EQ(proto::kIcmpv6, proto::ByIpProtocol(58));
  EXPECT_EQ(proto::kNone, proto::ByIpProtocol(253));
  EXPECT_EQ(proto::kHttps, proto::ByTcpPort(443));
  EXPECT_EQ(proto::kQuic, proto::ByUdpPort(443));
  EXPECT_EQ(proto::kDns, proto::ByTcpPort(53));  // one identifier over both transports
  EXPECT_EQ(proto::kDns, proto::ByUdpPort(53));
  EXPECT_EQ(proto::kHttp, proto::ByTcpPort(8080));
  EXPECT_EQ(proto::kMdns, proto::ByUdpPort(5353));
  EXPECT_EQ(proto::kNone, proto::ByTcpPort(65535));
  EXPECT_EQ(proto::kNone, proto::ByUdpPort(1024));
  EXPECT_EQ(proto::kSnap, proto::ByLlcSap(0xAA));
  EXPECT_EQ(proto::kWlanBeacon, proto::ByIeee80211Type(0, 8));
  EXPECT_EQ(proto::kWlanProbeRequest, proto::ByIeee80211Type(0, 4));
  EXPECT_EQ(proto::kWlanAck, proto::ByIeee80211Type(1, 13));
  EXPECT_EQ(proto::kWlanQosData, proto::ByIeee80211Type(2, 8));
  EXPECT_EQ(proto::kNone, proto::ByIeee80211Type(3, 0));
  EXPECT_EQ(proto::kTcp, proto::ByName(u"tcp"));
  EXPECT_EQ(proto::kNone, proto::ByName(u"no such protocol"));

  // Every key of every lookup names a protocol of the branch it belongs to.
  auto specs = Specs();
  auto within = [&](uint16_t id, ULONG branch) {
    const ULONG ids[] = {branch};
    return id == proto::kNone || specs->IsSpecWithin(id, ids, 1, 0, 0) == S_OK;
  };
  for (uint32_t v = 0; v <= 0xFFFF; ++v) {
    ASSERT_TRUE(within(proto::ByEtherType(uint16_t(v)), proto::kEthernetII)) << v;
    // A port's protocol hangs under its transport, unless the other transport
    // names the same protocol on that port.
    uint16_t tcp = proto::ByTcpPort(uint16_t(v)), udp = proto::ByUdpPort(uint16_t(v));
    ASSERT_TRUE(within(tcp, proto::kTcp) || tcp == udp) << v;
    ASSERT_TRUE(within(udp, proto::kUdp) || tcp == udp) << v;
  }
  for (uint32_t v = 0; v <= 0xFF; ++v) {
    EXPECT_TRUE(within(proto::ByIpProtocol(uint8_t(v)), proto::kIp)) << v;
    EXPECT_TRUE(within(proto::ByLlcSap(uint8_t(v)), proto::kEthernetII) ||
                within(proto::ByLlcSap(uint8_t(v)), proto::kIeee8023)) << v;
  }
  for (uint8_t type = 0; type < 3; ++type)
    for (uint8_t sub = 0; sub < 16; ++sub) EXPECT_TRUE(within(proto::ByIeee80211Type(type, sub), proto::kIeee80211));
}

}  // namespace
