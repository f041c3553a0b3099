#include "identity/media_specs.h"

#include <gtest/gtest.h>

#include "engine/spec_values.h"
#include "frame/xml_persist.h"
#include "identity_test_support.h"
#include "platform/object.h"

namespace {

using zemo::ComPtr;
using identity_test::Valueless;
using zemo::specs::Make;

TEST(MediaSpecRules, TypeTableGivesSubTableClassLengthAndMask) {
  // Every sub-table's type maps back to it, and the order is not the type order.
  for (uint32_t n = 0; n < zemo::kEntitySubTableCount; ++n) {
    uint8_t type = zemo::SubTableType(n);
    EXPECT_EQ(n, zemo::EntitySubTableOf(type)) << int(type);
    EXPECT_EQ(zemo::SubTableLength(n), zemo::MediaSpecLength(type));
  }
  EXPECT_EQ(6u, zemo::EntitySubTableOf(21));
  EXPECT_EQ(21u, zemo::EntitySubTableOf(11));
  EXPECT_EQ(12u, zemo::EntitySubTableOf(34));
  EXPECT_EQ(3, zemo::SubTableClass(12));
  EXPECT_EQ(0xFFFFFFFFu, zemo::MediaSpecFullMask(21));  // one bit per bit
  EXPECT_EQ(0xC0000000u, zemo::MediaSpecFullMask(9));   // two of its four bytes
  EXPECT_EQ(0xFFFF0000u, zemo::MediaSpecFullMask(24));
  EXPECT_EQ(0xFFC00000u, zemo::MediaSpecFullMask(25));

  // Types with a length and no sub-table take the rule's mask.
  struct {
    uint8_t type;
    uint32_t length, mask;
  } const noSubTable[] = {{4, 1, 0x80000000u}, {5, 1, 0x80000000u}, {12, 6, 0xFC000000u},
                          {32, 1, 0x80000000u}, {33, 1, 0x80000000u}, {35, 2, 0xC0000000u},
                          {7, 0, 0},           {0, 0, 0},           {45, 0, 0},
                          {200, 0, 0}};
  for (const auto& t : noSubTable) {
    EXPECT_EQ(zemo::kNoEntitySubTable, zemo::EntitySubTableOf(t.type)) << int(t.type);
    EXPECT_EQ(t.length, zemo::MediaSpecLength(t.type)) << int(t.type);
    EXPECT_EQ(t.mask, zemo::MediaSpecFullMask(t.type)) << int(t.type);
  }
}

TEST(MediaSpecRules, EqualityLooksAtTheTypesLengthOnlyAndValidityAtClassAndType) {
  MediaSpec a = Make(21, {10, 0, 0, 1});
  MediaSpec b = a;
  b.fData[4] = 0x55;  // behind the four bytes of an IPv4 address
  b.fReserved[0] = 1;
  EXPECT_TRUE(zemo::SpecsEqual(a, b));
  b.fData[3] = 2;
  EXPECT_FALSE(zemo::SpecsEqual(a, b));
  b = a;
  b.fMask = 0xFFFFFF00u;
  EXPECT_FALSE(zemo::SpecsEqual(a, b));
  b = a;
  b.fClass = 1;
  EXPECT_FALSE(zemo::SpecsEqual(a, b));

  // A type at 45 or above has length 0: any data is equal.
  MediaSpec high1{2, 50, {}, 0, {1}}, high2{2, 50, {}, 0, {2}};
  EXPECT_TRUE(zemo::SpecsEqual(high1, high2));

  EXPECT_TRUE(zemo::IsValidSpec(a));
  EXPECT_FALSE(zemo::IsValidSpec(MediaSpec{0, 21, {}, 0, {}}));
  EXPECT_FALSE(zemo::IsValidSpec(MediaSpec{2, 0, {}, 0, {}}));
}

struct GroupCase {
  MediaSpec spec;
  bool broadcast, multicast, group;
};

TEST(MediaSpecRules, GroupAddressTestsFollowEachType) {
  const GroupCase cases[] = {
      {Make(10, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), true, false, true},
      {Make(10, {0x01, 0x00, 0x5E, 0x00, 0x00, 0x01}), false, true, true},
      {Make(10, {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}), false, false, false},
      {Make(13, {0x03, 0x00, 0x00, 0x00, 0x00, 0x01}), false, true, true},
      {Make(11, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), true, false, true},
      {Make(11, {0x00, 0xC0, 0xFF, 0xFF, 0xFF, 0xFF}), true, false, true},
      {Make(11, {0x80, 0x00, 0x80, 0x00, 0x00, 0x00}), false, true, true},
      {Make(11, {0x80, 0x00, 0x00, 0x00, 0x00, 0x00}), false, false, false},
      {Make(21, {255, 255, 255, 255}), true, false, true},
      {Make(21, {224, 0, 0, 251}), false, true, true},
      {Make(21, {239, 255, 255, 250}), false, true, true},
      {Make(21, {192, 168, 1, 255}), false, false, false},
      {Make(25, {0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3, 4, 5, 6}), true, false, true},
      {Make(25, {1, 2, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), true, false, true},
      {Make(25, {1, 2, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00}), false, false, false},
      // Only the five types know group addresses.
      {Make(24, {0xFF, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), false, false, false},
      {Make(12, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), false, false, false},
  };
  for (const GroupCase& c : cases) {
    SCOPED_TRACE(zemo::HexText(c.spec.fData, zemo::MediaSpecLength(c.spec.fType)) + " type " +
                 std::to_string(c.spec.fType));
    EXPECT_EQ(c.broadcast, zemo::IsBroadcast(c.spec));
    EXPECT_EQ(c.multicast, zemo::IsMulticast(c.spec));
    EXPECT_EQ(c.group, zemo::IsGroupAddress(c.spec));
  }
}

TEST(MediaSpecRules, BroadcastAndMulticastNeedTheWholeMaskButGroupAddressDoesNot) {
  MediaSpec broadcast = Make(21, {255, 255, 255, 255});
  broadcast.fMask = 0xFFFFFF00u;  // a /24 prefix
  EXPECT_FALSE(zemo::IsBroadcast(broadcast));
  EXPECT_TRUE(zemo::IsGroupAddress(broadcast));
  MediaSpec multicast = Make(10, {0x01, 0, 0x5E, 0, 0, 1});
  multicast.fMask = 0xF8000000u;
  EXPECT_FALSE(zemo::IsMulticast(multicast));
  // Extra mask bits beyond the full mask do no harm.
  multicast.fMask = 0xFFFFFFFFu;
  EXPECT_TRUE(zemo::IsMulticast(multicast));
}

TEST(MediaSpecRules, HexTextAndParsing) {
  const uint8_t bytes[] = {0x00, 0xAB, 0x7F, 0xFF};
  EXPECT_EQ("00AB7FFF", zemo::HexText(bytes, 4));
  EXPECT_EQ(u"00AB7FFF", zemo::HexText16(bytes, 4));
  EXPECT_EQ("", zemo::HexText(bytes, 0));
  uint8_t out[zemo::kMaxSpecLength];
  EXPECT_EQ(4, zemo::ParseHex(u"00ab7FfF", out));
  EXPECT_EQ(0, std::memcmp(out, bytes, 4));
  EXPECT_EQ(0, out[4]);
  EXPECT_EQ(0, zemo::ParseHex(u"", out));
  EXPECT_EQ(-1, zemo::ParseHex(u"ABC", out));
  EXPECT_EQ(-1, zemo::ParseHex(u"0G", out));
  EXPECT_EQ(-1, zemo::ParseHex(u" 00", out));
  EXPECT_EQ(24, zemo::ParseHex(std::u16string(48, u'F'), out));
  EXPECT_EQ(-1, zemo::ParseHex(std::u16string(50, u'F'), out));
}

class EntityAddressForm : public ::testing::Test {
 protected:
  ComPtr<IXMLDOMElement> NewElement() { return zemo::CreateChildElement(m_doc.Get(), m_root.Get(), u"node"); }
  std::u16string Attribute(IXMLDOMElement* e, const char16_t* name) {
    std::u16string text;
    return zemo::GetAttribute(e, name, text) ? text : u"(none)";
  }
  zemo::ComPtr<IXMLDOMDocument> m_doc = zemo::CreateXmlDocument();
  zemo::ComPtr<IXMLDOMElement> m_root = zemo::CreateChildElement(m_doc.Get(), m_doc.Get(), u"root");
};

TEST_F(EntityAddressForm, WritesMaskOnlyWhenItIsNotFullAndReadsBack) {
  auto full = NewElement();
  MediaSpec ip = Make(21, {10, 1, 2, 3});
  zemo::SaveSpecAttributes(full.Get(), ip);
  EXPECT_EQ(u"2", Attribute(full.Get(), u"class"));
  EXPECT_EQ(u"21", Attribute(full.Get(), u"type"));
  EXPECT_EQ(u"(none)", Attribute(full.Get(), u"mask"));
  EXPECT_EQ(u"0A010203", Attribute(full.Get(), u"data"));
  EXPECT_TRUE(zemo::SpecsEqual(ip, zemo::LoadSpecAttributes(full.Get())));

  auto prefix = NewElement();
  MediaSpec net = ip;
  net.fMask = 0xFFFF0000u;
  zemo::SaveSpecAttributes(prefix.Get(), net);
  EXPECT_EQ(u"4294901760", Attribute(prefix.Get(), u"mask"));
  EXPECT_TRUE(zemo::SpecsEqual(net, zemo::LoadSpecAttributes(prefix.Get())));

  auto empty = NewElement();
  zemo::SaveSpecAttributes(empty.Get(), Valueless(39));
  EXPECT_EQ(u"", Attribute(empty.Get(), u"data"));
}

TEST_F(EntityAddressForm, ReadingToleratesMissingClassTypeAndMaskButNotData) {
  auto e = NewElement();
  zemo::SetAttribute(e.Get(), u"data", std::u16string_view(u"0a0b"));
  MediaSpec spec = zemo::LoadSpecAttributes(e.Get());
  EXPECT_EQ(0, spec.fClass);
  EXPECT_EQ(0, spec.fType);
  EXPECT_EQ(0u, spec.fMask);
  EXPECT_EQ(0x0A, spec.fData[0]);
  EXPECT_EQ(0x0B, spec.fData[1]);
  EXPECT_EQ(E_FAIL, zemo::Boundary([&] { zemo::LoadSpecAttributes(e.Get(), true); }));

  zemo::SetAttribute(e.Get(), u"type", std::u16string_view(u"22"));
  EXPECT_EQ(0xC0000000u, zemo::LoadSpecAttributes(e.Get()).fMask);

  auto noData = NewElement();
  zemo::SetAttribute(noData.Get(), u"type", std::u16string_view(u"21"));
  EXPECT_EQ(E_FAIL, zemo::Boundary([&] { zemo::LoadSpecAttributes(noData.Get()); }));
  zemo::SetAttribute(noData.Get(), u"data", std::u16string_view(std::u16string(50, u'0')));  // 25 bytes
  EXPECT_EQ(E_FAIL, zemo::Boundary([&] { zemo::LoadSpecAttributes(noData.Get()); }));
  zemo::SetAttribute(noData.Get(), u"data", std::u16string_view(u"0x01"));
  EXPECT_EQ(E_FAIL, zemo::Boundary([&] { zemo::LoadSpecAttributes(noData.Get()); }));
}

}  // namespace
