#include <gtest/gtest.h>

#include <limits>

#include "frame/change_type.h"
#include "platform/object.h"

namespace {

using zemo::CVariant;

struct Result {
  HRESULT hr;
  CVariant value;
};

Result Convert(const VARIANT& src, VARTYPE vt) {
  Result r{S_OK, {}};
  r.hr = zemo::ChangeType(&r.value, &src, vt);
  return r;
}

CVariant Small(VARTYPE vt, int64_t v) {
  CVariant x;
  x.vt = vt;
  switch (vt) {
    case VT_I1: x.cVal = static_cast<int8_t>(v); break;
    case VT_UI1: x.bVal = static_cast<uint8_t>(v); break;
    case VT_I2: x.iVal = static_cast<int16_t>(v); break;
    case VT_UI2: x.uiVal = static_cast<uint16_t>(v); break;
    case VT_I4: x.lVal = static_cast<int32_t>(v); break;
    default: x.ulVal = static_cast<uint32_t>(v); break;
  }
  return x;
}

constexpr int64_t kMinI8 = std::numeric_limits<int64_t>::min();
constexpr int64_t kMaxI8 = std::numeric_limits<int64_t>::max();
constexpr uint64_t kMaxUI8 = std::numeric_limits<uint64_t>::max();

TEST(ChangeType, TextToSixtyFourBitsAtTheLimits) {
  struct Case {
    const char16_t* text;
    HRESULT i8;
    int64_t i8Value;
    HRESULT ui8;
    uint64_t ui8Value;
  };
  const Case cases[] = {
      {u"18446744073709551615", E_INVALIDARG, 0, S_OK, kMaxUI8},
      {u"18446744073709551616", E_INVALIDARG, 0, E_INVALIDARG, 0},
      {u"9223372036854775807", S_OK, kMaxI8, S_OK, 9223372036854775807ull},
      {u"9223372036854775808", E_INVALIDARG, 0, S_OK, 9223372036854775808ull},
      {u"-9223372036854775808", S_OK, kMinI8, S_OK, 9223372036854775808ull},
      {u"-9223372036854775809", E_INVALIDARG, 0, S_OK, 9223372036854775807ull},
      {u"0", S_OK, 0, S_OK, 0},
      // The C library's parse: white space and a sign before, anything after.
      {u" \t+42xyz", S_OK, 42, S_OK, 42},
      {u"-1", S_OK, -1, S_OK, kMaxUI8},
      {u"", E_INVALIDARG, 0, E_INVALIDARG, 0},
      {u"-", E_INVALIDARG, 0, E_INVALIDARG, 0},
      {u"x12", E_INVALIDARG, 0, E_INVALIDARG, 0},
      {u"0x10", S_OK, 0, S_OK, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(zemo::ToUtf8(c.text));
    CVariant text = CVariant::Str(c.text);
    Result i8 = Convert(text, VT_I8);
    EXPECT_EQ(c.i8, i8.hr);
    if (c.i8 == S_OK) {
      EXPECT_EQ(VT_I8, i8.value.vt);
      EXPECT_EQ(c.i8Value, i8.value.llVal);
    }
    Result ui8 = Convert(text, VT_UI8);
    EXPECT_EQ(c.ui8, ui8.hr);
    if (c.ui8 == S_OK) {
      EXPECT_EQ(VT_UI8, ui8.value.vt);
      EXPECT_EQ(c.ui8Value, ui8.value.ullVal);
    }
  }
  CVariant nullText;
  nullText.vt = VT_BSTR;
  EXPECT_EQ(E_INVALIDARG, Convert(nullText, VT_I8).hr);
}

TEST(ChangeType, SmallIntegersWidenBySignAndRefuseNegativesForUnsigned) {
  struct Case {
    VARTYPE vt;
    int64_t raw;
    int64_t asI8;
  };
  const Case cases[] = {{VT_I1, -128, -128},   {VT_UI1, 255, 255},       {VT_I2, -32768, -32768},
                        {VT_UI2, 65535, 65535}, {VT_I4, INT32_MIN, INT32_MIN}, {VT_UI4, 0xFFFFFFFF, 0xFFFFFFFF},
                        {VT_I4, 0, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.vt << " " << c.raw);
    Result i8 = Convert(Small(c.vt, c.raw), VT_I8);
    ASSERT_EQ(S_OK, i8.hr);
    EXPECT_EQ(c.asI8, i8.value.llVal);
    Result ui8 = Convert(Small(c.vt, c.raw), VT_UI8);
    if (c.asI8 < 0) {
      EXPECT_EQ(DISP_E_OVERFLOW, ui8.hr);
    } else {
      ASSERT_EQ(S_OK, ui8.hr);
      EXPECT_EQ(static_cast<uint64_t>(c.asI8), ui8.value.ullVal);
    }
  }
}

TEST(ChangeType, BetweenTheSixtyFourBitTypes) {
  EXPECT_EQ(DISP_E_OVERFLOW, Convert(CVariant::I8(-1), VT_UI8).hr);
  EXPECT_EQ(static_cast<uint64_t>(kMaxI8), Convert(CVariant::I8(kMaxI8), VT_UI8).value.ullVal);
  EXPECT_EQ(DISP_E_OVERFLOW, Convert(CVariant::UI8(9223372036854775808ull), VT_I8).hr);
  EXPECT_EQ(kMaxI8, Convert(CVariant::UI8(9223372036854775807ull), VT_I8).value.llVal);
  EXPECT_EQ(kMinI8, Convert(CVariant::I8(kMinI8), VT_I8).value.llVal);

  // To text and back.
  EXPECT_EQ(u"-9223372036854775808", std::u16string(Convert(CVariant::I8(kMinI8), VT_BSTR).value.bstrVal));
  EXPECT_EQ(u"18446744073709551615", std::u16string(Convert(CVariant::UI8(kMaxUI8), VT_BSTR).value.bstrVal));
  EXPECT_EQ(u"0", std::u16string(Convert(CVariant::UI8(0), VT_BSTR).value.bstrVal));

  // To 32 bits: the low half, with no range test.
  EXPECT_EQ(5, Convert(CVariant::I8(0x100000005ll), VT_I4).value.lVal);
  EXPECT_EQ(0xFFFFFFFFu, Convert(CVariant::I8(-1), VT_UI4).value.ulVal);
  EXPECT_EQ(INT32_MIN, Convert(CVariant::UI8(0xFFFFFFFF80000000ull), VT_I4).value.lVal);
  Result low = Convert(CVariant::UI8(kMaxUI8), VT_UI4);
  EXPECT_EQ(S_OK, low.hr);
  EXPECT_EQ(VT_UI4, low.value.vt);

  // Other narrow targets keep the platform's range test.
  EXPECT_EQ(DISP_E_OVERFLOW, Convert(CVariant::I8(40000), VT_I2).hr);
  EXPECT_EQ(-2, Convert(CVariant::I8(-2), VT_I2).value.iVal);
}

TEST(ChangeType, TextToI1TakesTheLowByteOfALong) {
  const std::pair<const char16_t*, int8_t> cases[] = {
      {u"5", 5}, {u"-128", -128}, {u"300", 44}, {u"200", -56}, {u"-129", 127}, {u"abc", 0},
      {u"99999999999", -1},     // saturates at 0x7FFFFFFF
      {u"-99999999999", 0},     // saturates at 0x80000000
  };
  for (auto [text, expected] : cases) {
    SCOPED_TRACE(zemo::ToUtf8(text));
    Result r = Convert(CVariant::Str(text), VT_I1);
    ASSERT_EQ(S_OK, r.hr);
    EXPECT_EQ(VT_I1, r.value.vt);
    EXPECT_EQ(expected, r.value.cVal);
  }
}

TEST(ChangeType, OtherSourcesDoNotBecomeSixtyFourBits) {
  CVariant empty, asInt;
  asInt.vt = VT_INT;
  asInt.intVal = 3;
  for (const CVariant& v : {CVariant::R8(1.0), CVariant::Bool(true), empty, asInt, CVariant::Clsid(GUID_NULL)}) {
    SCOPED_TRACE(v.vt);
    EXPECT_EQ(E_FAIL, Convert(v, VT_I8).hr);
    EXPECT_EQ(E_FAIL, Convert(v, VT_UI8).hr);
  }
  // The platform still converts them to anything else.
  Result r8 = Convert(CVariant::Str(u"12"), VT_I4);
  EXPECT_EQ(S_OK, r8.hr);
  EXPECT_EQ(12, r8.value.lVal);
  EXPECT_EQ(DISP_E_TYPEMISMATCH, Convert(CVariant::Str(u"x"), VT_I4).hr);
}

TEST(ChangeType, InPlaceConversionAndFailureLeaveNoLeakAndNoChange) {
  CVariant v = CVariant::Str(u"123456789012");
  ASSERT_EQ(S_OK, zemo::ChangeType(&v, &v, VT_I8));
  EXPECT_EQ(VT_I8, v.vt);
  EXPECT_EQ(123456789012ll, v.llVal);
  ASSERT_EQ(S_OK, zemo::ChangeType(&v, &v, VT_BSTR));
  EXPECT_EQ(u"123456789012", std::u16string(v.bstrVal));

  CVariant bad = CVariant::Str(u"nope");
  EXPECT_EQ(E_INVALIDARG, zemo::ChangeType(&bad, &bad, VT_UI8));
  EXPECT_EQ(VT_BSTR, bad.vt);
  EXPECT_EQ(u"nope", std::u16string(bad.bstrVal));

  CVariant dest = CVariant::UI4(9);
  const CVariant minusOne = CVariant::I8(-1);
  EXPECT_EQ(DISP_E_OVERFLOW, zemo::ChangeType(&dest, &minusOne, VT_UI8));
  EXPECT_EQ(VT_UI4, dest.vt);
  EXPECT_EQ(9u, dest.ulVal);

  EXPECT_EQ(E_INVALIDARG, zemo::ChangeType(nullptr, &dest, VT_I8));
  EXPECT_EQ(DISP_E_OVERFLOW, zemo::Boundary([&] { zemo::ChangeTypeOrThrow(&dest, &minusOne, VT_UI8); }));
}

}  // namespace
