#include "engine/media_utils.h"

#include <gtest/gtest.h>

#include <string>

#include "engine/proto_specs.h"
#include "engine/spec_values.h"
#include "platform/strings.h"

namespace {

using zemo::CBstr;
namespace specs = zemo::specs;

std::string Text(const MediaSpec& spec) {
  auto utils = zemo::MakeObject<zemo::MediaUtils, IMediaUtils>();
  CBstr text;
  EXPECT_EQ(S_OK, utils->SpecToString(&spec, text.Out()));
  return text.Utf8();
}

MediaSpec Ip6(std::initializer_list<uint16_t> groups) {
  uint8_t b[16] = {};
  int i = 0;
  for (uint16_t g : groups) {
    b[i++] = uint8_t(g >> 8);
    b[i++] = uint8_t(g);
  }
  return specs::Ipv6(b);
}

TEST(EngineMediaUtils, PhysicalAddressesInLowerCaseColonForm) {
  const uint8_t mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
  EXPECT_EQ("00:1a:2b:3c:4d:5e", Text(specs::Ethernet(mac)));
  EXPECT_EQ("00:1a:2b:3c:4d:5e", Text(specs::Make(11, mac, 6)));
  EXPECT_EQ("00:1a:2b:3c:4d:5e", Text(specs::Make(13, mac, 6)));
  EXPECT_EQ("ff:ff", Text(specs::Make(43, {0xFF, 0xFF})));
  // An OUI: only the first three bytes count.
  MediaSpec oui = specs::Make(10, {0x00, 0x1A, 0x2B});
  oui.fMask = 0xE0000000;
  EXPECT_EQ("00:1a:2b:00:00:00/24", Text(oui));
}

TEST(EngineMediaUtils, Ipv4DottedWithPrefix) {
  EXPECT_EQ("192.168.1.254", Text(specs::Ipv4(192, 168, 1, 254)));
  EXPECT_EQ("0.0.0.0", Text(specs::Ipv4(0, 0, 0, 0)));
  MediaSpec net = specs::Ipv4(10, 0, 0, 0);
  net.fMask = 0xFF000000;
  EXPECT_EQ("10.0.0.0/8", Text(net));
  net.fMask = 0xFF00FF00;  // not a prefix
  EXPECT_EQ("10.0.0.0/0xff00ff00", Text(net));
}

TEST(EngineMediaUtils, Ipv6InTheCompressedFormOfRfc5952) {
  EXPECT_EQ("2001:db8::1", Text(Ip6({0x2001, 0x0db8, 0, 0, 0, 0, 0, 1})));
  EXPECT_EQ("2001:db8:0:1:1:1:1:1", Text(Ip6({0x2001, 0xdb8, 0, 1, 1, 1, 1, 1})));  // one zero group stays
  EXPECT_EQ("2001:0:0:1::1", Text(Ip6({0x2001, 0, 0, 1, 0, 0, 0, 1})));           // the longer run
  EXPECT_EQ("2001:db8::1:0:0:1", Text(Ip6({0x2001, 0xdb8, 0, 0, 1, 0, 0, 1})));   // the first of equal runs
  EXPECT_EQ("::", Text(Ip6({})));
  EXPECT_EQ("::1", Text(Ip6({0, 0, 0, 0, 0, 0, 0, 1})));
  EXPECT_EQ("fe80::", Text(Ip6({0xfe80})));
  EXPECT_EQ("2001:db8:aaaa:bbbb:cccc:dddd:eeee:1",
            Text(Ip6({0x2001, 0xdb8, 0xAAAA, 0xBBBB, 0xCCCC, 0xDDDD, 0xEEEE, 1})));
  EXPECT_EQ("::ffff:192.0.2.1", Text(Ip6({0, 0, 0, 0, 0, 0xffff, 0xc000, 0x0201})));
  MediaSpec net = Ip6({0x2001, 0xdb8});
  net.fMask = 0xF0000000;
  EXPECT_EQ("2001:db8::/32", Text(net));
}

TEST(EngineMediaUtils, ProtocolsByNameAndOtherTypesInHex) {
  EXPECT_EQ("TCP", Text(specs::Protocol(zemo::proto::kTcp)));
  EXPECT_EQ("802.11 Beacon", Text(specs::Protocol(0xE2)));
  EXPECT_EQ("0x0abc", Text(specs::Protocol(0x0ABC)));
  EXPECT_EQ("12ab", Text(specs::Make(22, {0x12, 0xAB})));
  EXPECT_EQ("0102030405060708090a", Text(specs::Make(25, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10})));
  EXPECT_EQ("", Text(MediaSpec{}));
}

TEST(EngineMediaUtils, NullArgumentsArePointerFailures) {
  auto utils = zemo::MakeObject<zemo::MediaUtils, IMediaUtils>();
  CBstr text;
  EXPECT_EQ(E_POINTER, utils->SpecToString(nullptr, text.Out()));
  MediaSpec spec = specs::Ipv4(1, 2, 3, 4);
  EXPECT_EQ(E_POINTER, utils->SpecToString(&spec, nullptr));
}

}  // namespace
