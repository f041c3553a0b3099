#include "frame/change_type.h"

#include <charconv>
#include <cstring>
#include <limits>

namespace zemo {
namespace {

bool IsSmallInteger(VARTYPE vt) {
  switch (vt) {
    case VT_I1: case VT_UI1: case VT_I2: case VT_UI2: case VT_I4: case VT_UI4: return true;
    default: return false;
  }
}

// Small integers reduced to a sign and a value that fits i64.
int64_t SmallIntegerValue(const VARIANT& v) {
  switch (v.vt) {
    case VT_I1: return v.cVal;
    case VT_UI1: return v.bVal;
    case VT_I2: return v.iVal;
    case VT_UI2: return v.uiVal;
    case VT_I4: return v.lVal;
    default: return v.ulVal;  // VT_UI4
  }
}

bool IsSpace(char16_t c) { return c == u' ' || (c >= u'\t' && c <= u'\r'); }

// The C library's decimal integer parse (_wcstoi64, _wcstoui64, _wtol):
// leading white space, an optional sign, then digits up to the first
// non-digit. Gives the magnitude and sign; false when no digit was found.
// `overflow` is set once the magnitude passes u64.
bool ParseDecimal(std::u16string_view text, bool& negative, uint64_t& magnitude, bool& overflow) {
  size_t i = 0;
  while (i < text.size() && IsSpace(text[i])) ++i;
  negative = false;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
  magnitude = 0;
  overflow = false;
  size_t first = i;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
    unsigned digit = text[i] - u'0';
    if (magnitude > (std::numeric_limits<uint64_t>::max() - digit) / 10) overflow = true;
    magnitude = magnitude * 10 + digit;
  }
  return i != first;
}

std::u16string_view TextOf(const VARIANT& v) {
  return v.bstrVal ? std::u16string_view(v.bstrVal, SysStringLen(v.bstrVal)) : std::u16string_view();
}

// Text to I8/UI8. The unsigned parse negates a leading minus in u64
// arithmetic, as _wcstoui64 does; only a magnitude beyond u64 is out of range.
HRESULT TextToInteger(std::u16string_view text, VARTYPE vt, VARIANT& out) {
  bool negative, overflow;
  uint64_t magnitude;
  if (!ParseDecimal(text, negative, magnitude, overflow) || overflow) return E_INVALIDARG;
  if (vt == VT_UI8) {
    out.ullVal = negative ? uint64_t(0) - magnitude : magnitude;
    return S_OK;
  }
  constexpr uint64_t kMaxI8 = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (magnitude > kMaxI8 + (negative ? 1 : 0)) return E_INVALIDARG;
  out.llVal = negative ? static_cast<int64_t>(uint64_t(0) - magnitude) : static_cast<int64_t>(magnitude);
  return S_OK;
}

// _wtol: a 32-bit long that saturates on overflow.
int32_t WideToLong(std::u16string_view text) {
  bool negative, overflow;
  uint64_t magnitude;
  if (!ParseDecimal(text, negative, magnitude, overflow)) return 0;
  if (negative) {
    if (overflow || magnitude > 0x80000000ull) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(uint64_t(0) - magnitude);
  }
  if (overflow || magnitude > 0x7FFFFFFFull) return std::numeric_limits<int32_t>::max();
  return static_cast<int32_t>(magnitude);
}

HRESULT DecimalText(const VARIANT& src, VARIANT& out) {
  char buf[24];
  auto r = src.vt == VT_I8 ? std::to_chars(buf, buf + sizeof buf, src.llVal)
                           : std::to_chars(buf, buf + sizeof buf, src.ullVal);
  OLECHAR wide[24];
  size_t n = static_cast<size_t>(r.ptr - buf);
  for (size_t i = 0; i < n; ++i) wide[i] = static_cast<OLECHAR>(buf[i]);
  out.bstrVal = SysAllocStringLen(wide, static_cast<uint32_t>(n));
  return out.bstrVal ? S_OK : E_OUTOFMEMORY;
}

// The conversions the platform's own table does not settle. `handled` is
// false for everything left to VariantChangeType. `out` has vt set already.
HRESULT Widened(const VARIANT& src, VARTYPE vt, VARIANT& out, bool& handled) {
  handled = true;
  bool wide = src.vt == VT_I8 || src.vt == VT_UI8;

  if (vt == VT_I8 || vt == VT_UI8) {
    if (src.vt == VT_BSTR) return TextToInteger(TextOf(src), vt, out);
    if (IsSmallInteger(src.vt)) {
      int64_t v = SmallIntegerValue(src);
      if (vt == VT_UI8 && v < 0) return DISP_E_OVERFLOW;
      out.llVal = v;  // the same bits for either target
      return S_OK;
    }
    if (src.vt == vt) {
      out.ullVal = src.ullVal;
      return S_OK;
    }
    if (src.vt == VT_I8) {  // to UI8
      if (src.llVal < 0) return DISP_E_OVERFLOW;
      out.ullVal = static_cast<uint64_t>(src.llVal);
      return S_OK;
    }
    if (src.vt == VT_UI8) {  // to I8
      if (src.ullVal > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return DISP_E_OVERFLOW;
      out.llVal = static_cast<int64_t>(src.ullVal);
      return S_OK;
    }
    return E_FAIL;
  }
  if (wide && vt == VT_BSTR) return DecimalText(src, out);
  if (wide && (vt == VT_I4 || vt == VT_UI4)) {
    out.ulVal = static_cast<uint32_t>(src.ullVal);
    return S_OK;
  }
  if (src.vt == VT_BSTR && vt == VT_I1) {
    out.cVal = static_cast<int8_t>(static_cast<uint8_t>(WideToLong(TextOf(src)) & 0xFF));
    return S_OK;
  }
  handled = false;
  return S_OK;
}

}  // namespace

HRESULT ChangeType(VARIANT* dest, const VARIANT* src, VARTYPE vt) {
  if (!dest || !src) return E_INVALIDARG;  // as VariantChangeType
  VARIANT result;
  VariantInit(&result);
  result.vt = vt;
  bool handled;
  HRESULT hr = Widened(*src, vt, result, handled);
  if (!handled) return VariantChangeType(dest, src, 0, vt);
  if (FAILED(hr)) return hr;  // nothing was allocated on a failed path
  // Only now may dest go: it may be src, which the conversion read.
  VariantClear(dest);
  std::memcpy(dest, &result, sizeof result);
  return S_OK;
}

void ChangeTypeOrThrow(VARIANT* dest, const VARIANT* src, VARTYPE vt) { CheckHr(ChangeType(dest, src, vt)); }

}  // namespace zemo
