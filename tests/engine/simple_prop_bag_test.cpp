#include "engine/simple_prop_bag.h"

#include <gtest/gtest.h>

namespace {

using zemo::CVariant;

TEST(EngineSimplePropBag, ReadsByNameInAnyCaseAndConvertsToTheAskedType) {
  auto bag = zemo::MakeObject<zemo::SimplePropBag, IPropertyBag>();
  CVariant eight = CVariant::I4(8);
  ASSERT_EQ(S_OK, bag->Write(u"Name", &eight));

  CVariant out;
  ASSERT_EQ(S_OK, bag->Read(u"NAME", &out, nullptr));
  EXPECT_EQ(VT_I4, out.vt);
  EXPECT_EQ(8, out.lVal);

  // A typed read converts, as the statistics rely on for text and identifiers.
  out = CVariant();
  out.vt = VT_BSTR;
  ASSERT_EQ(S_OK, bag->Read(u"name", &out, nullptr));
  ASSERT_EQ(VT_BSTR, out.vt);
  EXPECT_EQ(std::u16string(u"8"), out.bstrVal);

  CVariant id = CVariant::Str(u"{342FD52A-65C2-4E50-8B77-C39C829DE6AE}");
  ASSERT_EQ(S_OK, bag->Write(u"id", &id));
  out = CVariant();
  out.vt = VT_CLSID;
  ASSERT_EQ(S_OK, bag->Read(u"ID", &out, nullptr));
  ASSERT_EQ(VT_CLSID, out.vt);
  EXPECT_EQ(MakeGuid("342FD52A-65C2-4E50-8B77-C39C829DE6AE"), *out.puuid);

  // A conversion that cannot be made fails and leaves the caller's value.
  out = CVariant();
  out.vt = VT_I4;
  out.lVal = 77;
  EXPECT_EQ(DISP_E_TYPEMISMATCH, bag->Read(u"id", &out, nullptr));
  EXPECT_EQ(VT_I4, out.vt);
  EXPECT_EQ(77, out.lVal);
}

TEST(EngineSimplePropBag, MissingNamesFailAndWritesAreCopies) {
  auto bag = zemo::MakeObject<zemo::SimplePropBag, IPropertyBag>();
  CVariant out;
  EXPECT_TRUE(FAILED(bag->Read(u"name", &out, nullptr)));
  EXPECT_EQ(VT_EMPTY, out.vt);

  {
    CVariant text = CVariant::Str(u"first");
    ASSERT_EQ(S_OK, bag->Write(u"label", &text));
  }  // the caller's text is freed here; the bag must hold its own
  ASSERT_EQ(S_OK, bag->Read(u"label", out.Out(), nullptr));
  EXPECT_EQ(std::u16string(u"first"), out.bstrVal);

  // Writing the same name in another case replaces the value.
  CVariant second = CVariant::Str(u"second");
  ASSERT_EQ(S_OK, bag->Write(u"LABEL", &second));
  ASSERT_EQ(S_OK, bag->Read(u"Label", out.Out(), nullptr));
  EXPECT_EQ(std::u16string(u"second"), out.bstrVal);

  EXPECT_TRUE(FAILED(bag->Read(u"labe", out.Out(), nullptr)));
}

}  // namespace
