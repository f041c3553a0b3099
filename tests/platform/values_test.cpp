#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/object.h"
#include "platform/strings.h"
#include "platform/variant.h"

namespace {

using zemo::CBstr;
using zemo::CVariant;

TEST(Bstr, CarriesLengthAndTerminator) {
  const char16_t text[] = {u'a', 0, u'b'};  // an embedded zero is content
  BSTR s = SysAllocStringLen(text, 3);
  ASSERT_NE(nullptr, s);
  EXPECT_EQ(3u, SysStringLen(s));
  EXPECT_EQ(0, s[3]);
  uint32_t bytes;
  std::memcpy(&bytes, reinterpret_cast<uint8_t*>(s) - 4, 4);
  EXPECT_EQ(6u, bytes);  // the prefix counts bytes, not characters
  SysFreeString(s);

  EXPECT_EQ(nullptr, SysAllocString(nullptr));
  EXPECT_EQ(0u, SysStringLen(nullptr));
  SysFreeString(nullptr);

  BSTR blank = SysAllocStringLen(nullptr, 4);
  EXPECT_EQ(4u, SysStringLen(blank));
  EXPECT_EQ(0, blank[0]);
  SysFreeString(blank);
}

TEST(Bstr, HolderOwnsExactlyOneString) {
  CBstr a(u"hello");
  CBstr b = a;  // deep copy
  EXPECT_NE(a.Get(), b.Get());
  EXPECT_EQ(a.View(), b.View());
  BSTR raw = b.Detach();
  EXPECT_EQ(nullptr, b.Get());
  CBstr c;
  c.Attach(raw);
  EXPECT_EQ(u"hello", c.View());
  *c.Out() = SysAllocString(u"x");  // Out frees what was held
  EXPECT_EQ(u"x", c.View());
  CBstr moved(std::move(c));
  EXPECT_EQ(nullptr, c.Get());
  EXPECT_EQ(u"x", moved.View());
}

TEST(Utf, ConvertsBothWaysIncludingSurrogatesAndBadInput) {
  std::u16string wide = u"a\u00e9\u20ac\U0001F600";
  std::string utf8 = zemo::ToUtf8(wide);
  EXPECT_EQ("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", utf8);
  EXPECT_EQ(wide, zemo::FromUtf8(utf8));
  // Truncated, overlong and stray bytes become the replacement character.
  EXPECT_EQ(u"\uFFFD", zemo::FromUtf8("\xE2\x82"));
  EXPECT_EQ(u"\uFFFD\uFFFD", zemo::FromUtf8("\xC0\xAF"));
  EXPECT_EQ(u"\uFFFDa", zemo::FromUtf8("\x80" "a"));
  EXPECT_EQ("\xEF\xBF\xBD", zemo::ToUtf8(std::u16string(1, u'\xD800')));
}

TEST(Utf, CaseBlindCompareOrdersLikeUpperCase) {
  EXPECT_TRUE(zemo::WideEqualNoCase(u"NodeStats", u"NODESTATS"));
  EXPECT_FALSE(zemo::WideEqualNoCase(u"node", u"nodes"));
  EXPECT_LT(zemo::WideCompareNoCase(u"abc", u"ABD"), 0);
  EXPECT_LT(zemo::WideCompareNoCase(u"ab", u"abc"), 0);
  // '_' lies between the upper- and lower-case letters: upper-casing decides.
  EXPECT_GT(zemo::WideCompareNoCase(u"_", u"a"), 0);
}

TEST(Variant, CopyAndClearOwnWhatTheyHold) {
  CVariant s = CVariant::Str(u"text");
  CVariant copy(s);
  EXPECT_NE(s.bstrVal, copy.bstrVal);
  EXPECT_EQ(u"text", std::u16string_view(copy.bstrVal, SysStringLen(copy.bstrVal)));

  CVariant id = CVariant::Clsid(MakeGuid("01234567-89AB-CDEF-0123-456789ABCDEF"));
  CVariant idCopy(id);
  EXPECT_NE(id.puuid, idCopy.puuid);
  EXPECT_EQ(*id.puuid, *idCopy.puuid);

  VARIANT raw;
  VariantInit(&raw);
  EXPECT_EQ(VT_EMPTY, raw.vt);
  EXPECT_EQ(S_OK, VariantCopy(&raw, &s));
  EXPECT_EQ(S_OK, VariantCopy(&raw, &raw));  // self copy keeps the value
  EXPECT_EQ(VT_BSTR, raw.vt);
  EXPECT_EQ(S_OK, VariantClear(&raw));
  EXPECT_EQ(VT_EMPTY, raw.vt);
  EXPECT_EQ(E_INVALIDARG, VariantClear(nullptr));
}

struct ICounted : IUnknown {
  static constexpr IID iid = MakeGuid("22222222-0000-0000-0000-000000000001");
};
class Counted final : public zemo::Object<Counted, ICounted> {};

TEST(Variant, ObjectReferencesAreCounted) {
  auto obj = Counted::Create();
  EXPECT_EQ(1u, obj->RefCountForTesting());
  {
    CVariant v = CVariant::Unknown(obj->GetUnknown());
    EXPECT_EQ(2u, obj->RefCountForTesting());
    CVariant w(v);
    EXPECT_EQ(3u, obj->RefCountForTesting());
    CVariant asUnknown;
    ASSERT_EQ(S_OK, VariantChangeType(&asUnknown, &w, 0, VT_UNKNOWN));
    EXPECT_EQ(4u, obj->RefCountForTesting());
    CVariant asText;
    EXPECT_EQ(DISP_E_TYPEMISMATCH, VariantChangeType(&asText, &w, 0, VT_BSTR));
  }
  EXPECT_EQ(1u, obj->RefCountForTesting());
}

CVariant Converted(const VARIANT& v, VARTYPE vt, HRESULT expect = S_OK) {
  CVariant out;
  EXPECT_EQ(expect, VariantChangeType(&out, &v, 0, vt)) << "to vt " << vt;
  return out;
}

TEST(Variant, NumbersConvertWithRangeChecks) {
  EXPECT_EQ(255, Converted(CVariant::I4(255), VT_UI1).bVal);
  Converted(CVariant::I4(256), VT_UI1, DISP_E_OVERFLOW);
  Converted(CVariant::I4(-1), VT_UI4, DISP_E_OVERFLOW);
  EXPECT_EQ(-128, Converted(CVariant::I4(-128), VT_I1).cVal);
  Converted(CVariant::I4(-129), VT_I1, DISP_E_OVERFLOW);
  EXPECT_EQ(std::numeric_limits<int64_t>::min(),
            Converted(CVariant::I8(std::numeric_limits<int64_t>::min()), VT_I8).llVal);
  Converted(CVariant::UI8(0x8000000000000000ull), VT_I8, DISP_E_OVERFLOW);
  EXPECT_EQ(0xFFFFFFFFull, Converted(CVariant::UI4(0xFFFFFFFFu), VT_UI8).ullVal);
  // Reals round half to even on the way to integers.
  EXPECT_EQ(2, Converted(CVariant::R8(2.5), VT_I4).lVal);
  EXPECT_EQ(4, Converted(CVariant::R8(3.5), VT_I4).lVal);
  EXPECT_EQ(-2, Converted(CVariant::R8(-2.5), VT_I4).lVal);
  Converted(CVariant::R8(1e300), VT_I8, DISP_E_OVERFLOW);
  EXPECT_EQ(VARIANT_TRUE, Converted(CVariant::I4(7), VT_BOOL).boolVal);
  EXPECT_EQ(-1, Converted(CVariant::Bool(true), VT_I4).lVal);
}

TEST(Variant, TextConvertsBothWays) {
  auto text = [](const VARIANT& v) { return std::u16string(v.bstrVal, SysStringLen(v.bstrVal)); };
  EXPECT_EQ(u"18446744073709551615", text(Converted(CVariant::UI8(~0ull), VT_BSTR)));
  EXPECT_EQ(u"-42", text(Converted(CVariant::I4(-42), VT_BSTR)));
  EXPECT_EQ(u"-1", text(Converted(CVariant::Bool(true), VT_BSTR)));
  EXPECT_EQ(u"", text(Converted(CVariant(), VT_BSTR)));
  EXPECT_EQ(u"{01234567-89AB-CDEF-0123-456789ABCDEF}",
            text(Converted(CVariant::Clsid(MakeGuid("01234567-89AB-CDEF-0123-456789ABCDEF")), VT_BSTR)));

  // Doubles survive the trip through text exactly.
  for (double d : {0.1, 1.0 / 3.0, -2.5e-300, 1.7976931348623157e308, 123456789.125}) {
    CVariant t = Converted(CVariant::R8(d), VT_BSTR);
    EXPECT_EQ(d, Converted(t, VT_R8).dblVal);
  }

  EXPECT_EQ(123, Converted(CVariant::Str(u" 123 "), VT_I4).lVal);
  EXPECT_EQ(-7, Converted(CVariant::Str(u"-7"), VT_I2).iVal);
  Converted(CVariant::Str(u"12a"), VT_I4, DISP_E_TYPEMISMATCH);
  Converted(CVariant::Str(u""), VT_I4, DISP_E_TYPEMISMATCH);
  Converted(CVariant::Str(u"99999999999"), VT_I4, DISP_E_OVERFLOW);
  Converted(CVariant::Str(u"99999999999999999999999"), VT_UI8, DISP_E_OVERFLOW);
  EXPECT_EQ(VARIANT_TRUE, Converted(CVariant::Str(u"True"), VT_BOOL).boolVal);
  EXPECT_EQ(VARIANT_FALSE, Converted(CVariant::Str(u"0"), VT_BOOL).boolVal);
  CVariant id = Converted(CVariant::Str(u"{01234567-89AB-CDEF-0123-456789ABCDEF}"), VT_CLSID);
  EXPECT_EQ(MakeGuid("01234567-89AB-CDEF-0123-456789ABCDEF"), *id.puuid);
  Converted(CVariant::Str(u"{nope}"), VT_CLSID, DISP_E_TYPEMISMATCH);
}

TEST(Variant, InPlaceConversionAndFailureKeepTheSource) {
  CVariant v = CVariant::Str(u"65000");
  EXPECT_EQ(DISP_E_OVERFLOW, VariantChangeType(&v, &v, 0, VT_I2));
  EXPECT_EQ(VT_BSTR, v.vt);  // untouched on failure
  v.ChangeTo(VT_UI2);
  EXPECT_EQ(VT_UI2, v.vt);
  EXPECT_EQ(65000, v.uiVal);
  EXPECT_EQ(DISP_E_BADVARTYPE, VariantChangeType(&v, &v, 0, VT_ARRAY | VT_I4));
}

TEST(TaskMemory, AllocatesAndFrees) {
  void* p = CoTaskMemAlloc(0);
  EXPECT_NE(nullptr, p);  // a zero-size block is still a block
  CoTaskMemFree(p);
  CoTaskMemFree(nullptr);
}

}  // namespace
