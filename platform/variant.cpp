#include "platform/variant.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/interfaces.h"

namespace {

// A scalar source value reduced to one of three forms.
struct Number {
  enum Kind { Signed, Unsigned, Real } kind;
  int64_t s = 0;
  uint64_t u = 0;
  double d = 0;
};

bool IsScalar(VARTYPE vt) {
  switch (vt) {
    case VT_EMPTY: case VT_I1: case VT_UI1: case VT_I2: case VT_UI2: case VT_I4: case VT_UI4:
    case VT_INT: case VT_UINT: case VT_I8: case VT_UI8: case VT_R4: case VT_R8: case VT_BOOL:
    case VT_ERROR:
      return true;
    default:
      return false;
  }
}

Number FromScalar(const VARIANT& v) {
  switch (v.vt) {
    case VT_EMPTY: return {Number::Signed, 0};
    case VT_I1: return {Number::Signed, v.cVal};
    case VT_UI1: return {Number::Unsigned, 0, v.bVal};
    case VT_I2: return {Number::Signed, v.iVal};
    case VT_UI2: return {Number::Unsigned, 0, v.uiVal};
    case VT_I4: case VT_ERROR: return {Number::Signed, v.lVal};
    case VT_INT: return {Number::Signed, v.intVal};
    case VT_UI4: return {Number::Unsigned, 0, v.ulVal};
    case VT_UINT: return {Number::Unsigned, 0, v.uintVal};
    case VT_I8: return {Number::Signed, v.llVal};
    case VT_UI8: return {Number::Unsigned, 0, v.ullVal};
    case VT_R4: return {Number::Real, 0, 0, v.fltVal};
    case VT_R8: return {Number::Real, 0, 0, v.dblVal};
    case VT_BOOL: return {Number::Signed, v.boolVal ? -1 : 0};
    default: return {Number::Signed, 0};
  }
}

std::string TrimmedAscii(std::u16string_view text, bool& ok) {
  size_t b = 0, e = text.size();
  while (b < e && (text[b] == u' ' || text[b] == u'\t')) ++b;
  while (e > b && (text[e - 1] == u' ' || text[e - 1] == u'\t')) --e;
  std::string out;
  ok = true;
  for (size_t i = b; i < e; ++i) {
    if (text[i] > 0x7F) ok = false;
    out += static_cast<char>(text[i]);
  }
  return out;
}

// Text to a number: an integer when it has no fraction or exponent, else a real.
HRESULT FromText(std::u16string_view text, Number& n) {
  bool ascii;
  std::string s = TrimmedAscii(text, ascii);
  if (!ascii || s.empty()) return DISP_E_TYPEMISMATCH;
  const char* b = s.data();
  const char* e = b + s.size();
  if (*b == '+') ++b;
  if (b == e) return DISP_E_TYPEMISMATCH;
  // Digits beyond the 64-bit range are still a number: as a real, so that
  // the text of a large double ("18446744073709552000") reads back, and an
  // integer target then finds the overflow.
  if (*b == '-') {
    int64_t v;
    auto r = std::from_chars(b, e, v);
    if (r.ec == std::errc() && r.ptr == e) return n = {Number::Signed, v}, S_OK;
  } else {
    uint64_t v;
    auto r = std::from_chars(b, e, v);
    if (r.ec == std::errc() && r.ptr == e) return n = {Number::Unsigned, 0, v}, S_OK;
  }
  double d;
  auto r = std::from_chars(b, e, d);
  if (r.ec == std::errc::result_out_of_range) return DISP_E_OVERFLOW;
  if (r.ec != std::errc() || r.ptr != e || !std::isfinite(d)) return DISP_E_TYPEMISMATCH;
  n = {Number::Real, 0, 0, d};
  return S_OK;
}

// Reals go to integers by rounding half to even, as the platform does.
HRESULT ToInteger(const Number& n, bool& negative, uint64_t& magnitude) {
  if (n.kind == Number::Signed) {
    negative = n.s < 0;
    magnitude = negative ? uint64_t(0) - static_cast<uint64_t>(n.s) : static_cast<uint64_t>(n.s);
    return S_OK;
  }
  if (n.kind == Number::Unsigned) {
    negative = false;
    magnitude = n.u;
    return S_OK;
  }
  double r = std::nearbyint(n.d);  // default rounding mode: to nearest, ties to even
  if (!(std::fabs(r) < 18446744073709551616.0)) return DISP_E_OVERFLOW;
  negative = r < 0;
  magnitude = static_cast<uint64_t>(std::fabs(r));
  return S_OK;
}

template <class T>
HRESULT FitInteger(const Number& n, T& out) {
  bool neg;
  uint64_t mag;
  HRESULT hr = ToInteger(n, neg, mag);
  if (FAILED(hr)) return hr;
  if (neg) {
    if constexpr (std::is_unsigned_v<T>) {
      if (mag != 0) return DISP_E_OVERFLOW;
      out = 0;
    } else {
      if (mag > uint64_t(std::numeric_limits<T>::max()) + 1) return DISP_E_OVERFLOW;
      out = static_cast<T>(uint64_t(0) - mag);
    }
  } else {
    if (mag > uint64_t(std::numeric_limits<T>::max())) return DISP_E_OVERFLOW;
    out = static_cast<T>(mag);
  }
  return S_OK;
}

double AsDouble(const Number& n) {
  switch (n.kind) {
    case Number::Signed: return static_cast<double>(n.s);
    case Number::Unsigned: return static_cast<double>(n.u);
    default: return n.d;
  }
}

std::u16string NumberText(const VARIANT& v) {
  char buf[64];
  std::to_chars_result r{};
  Number n = FromScalar(v);
  if (v.vt == VT_R4)
    r = std::to_chars(buf, buf + sizeof buf, v.fltVal);
  else if (n.kind == Number::Real)
    r = std::to_chars(buf, buf + sizeof buf, n.d);
  else if (n.kind == Number::Signed)
    r = std::to_chars(buf, buf + sizeof buf, n.s);
  else
    r = std::to_chars(buf, buf + sizeof buf, n.u);
  return std::u16string(buf, r.ptr);
}

// Builds the converted value in `out` (initialised by the caller).
HRESULT Convert(const VARIANT& src, VARTYPE vt, VARIANT& out) {
  out.vt = vt;
  if (vt == VT_EMPTY) return S_OK;
  if (vt == VT_NULL) return src.vt == VT_NULL || src.vt == VT_EMPTY ? S_OK : DISP_E_TYPEMISMATCH;
  if (src.vt == VT_NULL) return DISP_E_TYPEMISMATCH;

  if (vt == VT_UNKNOWN || vt == VT_DISPATCH) {
    if (src.vt != VT_UNKNOWN && src.vt != VT_DISPATCH) return DISP_E_TYPEMISMATCH;
    IUnknown* p = src.punkVal;
    if (!p) return out.punkVal = nullptr, S_OK;
    const IID& iid = vt == VT_UNKNOWN ? IUnknown::iid : IDispatch::iid;
    return p->QueryInterface(iid, reinterpret_cast<void**>(&out.punkVal));
  }

  if (vt == VT_CLSID) {
    if (src.vt == VT_CLSID) {
      out.puuid = static_cast<CLSID*>(CoTaskMemAlloc(sizeof(CLSID)));
      if (!out.puuid) return E_OUTOFMEMORY;
      *out.puuid = src.puuid ? *src.puuid : GUID_NULL;
      return S_OK;
    }
    if (src.vt != VT_BSTR) return DISP_E_TYPEMISMATCH;
    CLSID id;
    if (FAILED(CLSIDFromString(src.bstrVal ? src.bstrVal : u"", &id))) return DISP_E_TYPEMISMATCH;
    out.puuid = static_cast<CLSID*>(CoTaskMemAlloc(sizeof(CLSID)));
    if (!out.puuid) return E_OUTOFMEMORY;
    *out.puuid = id;
    return S_OK;
  }

  if (vt == VT_BSTR) {
    std::u16string text;
    if (src.vt == VT_BSTR) {
      out.bstrVal = SysAllocStringLen(src.bstrVal, SysStringLen(src.bstrVal));
      return out.bstrVal || !src.bstrVal ? S_OK : E_OUTOFMEMORY;
    }
    if (src.vt == VT_EMPTY) {
      text.clear();
    } else if (src.vt == VT_CLSID) {
      OLECHAR buf[39];
      StringFromGUID2(src.puuid ? *src.puuid : GUID_NULL, buf, 39);
      text = buf;
    } else if (IsScalar(src.vt)) {
      text = NumberText(src);
    } else {
      return DISP_E_TYPEMISMATCH;
    }
    out.bstrVal = SysAllocStringLen(text.data(), static_cast<uint32_t>(text.size()));
    return out.bstrVal ? S_OK : E_OUTOFMEMORY;
  }

  Number n;
  if (src.vt == VT_BSTR) {
    std::u16string_view text(src.bstrVal ? src.bstrVal : u"", SysStringLen(src.bstrVal));
    if (vt == VT_BOOL) {
      bool ascii;
      std::string t = TrimmedAscii(text, ascii);
      for (char& c : t) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      if (t == "true" || t == "#true#") return out.boolVal = VARIANT_TRUE, S_OK;
      if (t == "false" || t == "#false#") return out.boolVal = VARIANT_FALSE, S_OK;
    }
    HRESULT hr = FromText(text, n);
    if (FAILED(hr)) return hr;
  } else if (IsScalar(src.vt)) {
    n = FromScalar(src);
  } else {
    return DISP_E_TYPEMISMATCH;
  }

  switch (vt) {
    case VT_BOOL: out.boolVal = AsDouble(n) != 0 ? VARIANT_TRUE : VARIANT_FALSE; return S_OK;
    case VT_I1: return FitInteger(n, out.cVal);
    case VT_UI1: return FitInteger(n, out.bVal);
    case VT_I2: return FitInteger(n, out.iVal);
    case VT_UI2: return FitInteger(n, out.uiVal);
    case VT_I4: case VT_ERROR: return FitInteger(n, out.lVal);
    case VT_INT: return FitInteger(n, out.intVal);
    case VT_UI4: return FitInteger(n, out.ulVal);
    case VT_UINT: return FitInteger(n, out.uintVal);
    case VT_I8: return FitInteger(n, out.llVal);
    case VT_UI8: return FitInteger(n, out.ullVal);
    case VT_R8: out.dblVal = AsDouble(n); return S_OK;
    case VT_R4: {
      double d = AsDouble(n);
      // Overflow is what rounds to infinity: the shortest text of FLT_MAX
      // reads back as a double a little above it, and must still convert.
      if (std::fabs(d) >= 0x1.ffffffp127) return DISP_E_OVERFLOW;
      out.fltVal = static_cast<float>(d);
      return S_OK;
    }
    default: return DISP_E_BADVARTYPE;
  }
}

}  // namespace

extern "C" {

void VariantInit(VARIANT* v) {
  if (!v) return;
  std::memset(v, 0, sizeof *v);
  v->vt = VT_EMPTY;
}

HRESULT VariantClear(VARIANT* v) {
  if (!v) return E_INVALIDARG;
  if (!(v->vt & (VT_BYREF | VT_ARRAY))) {
    switch (v->vt) {
      case VT_BSTR: SysFreeString(v->bstrVal); break;
      case VT_UNKNOWN:
      case VT_DISPATCH:
        if (v->punkVal) v->punkVal->Release();
        break;
      case VT_CLSID: CoTaskMemFree(v->puuid); break;
      default: break;
    }
  } else if (v->vt & VT_ARRAY) {
    return DISP_E_BADVARTYPE;  // no arrays are made here, so none can be owned
  }
  std::memset(v, 0, sizeof *v);
  v->vt = VT_EMPTY;
  return S_OK;
}

HRESULT VariantCopy(VARIANT* dest, const VARIANT* src) {
  if (!dest || !src) return E_INVALIDARG;
  if (dest == src) return S_OK;
  if (src->vt & VT_ARRAY) return DISP_E_BADVARTYPE;
  VARIANT tmp;
  std::memcpy(&tmp, src, sizeof tmp);
  switch (src->vt) {
    case VT_BSTR:
      if (src->bstrVal) {
        tmp.bstrVal = SysAllocStringLen(src->bstrVal, SysStringLen(src->bstrVal));
        if (!tmp.bstrVal) return E_OUTOFMEMORY;
      }
      break;
    case VT_UNKNOWN:
    case VT_DISPATCH:
      if (src->punkVal) src->punkVal->AddRef();
      break;
    case VT_CLSID:
      tmp.puuid = static_cast<CLSID*>(CoTaskMemAlloc(sizeof(CLSID)));
      if (!tmp.puuid) return E_OUTOFMEMORY;
      *tmp.puuid = src->puuid ? *src->puuid : GUID_NULL;
      break;
    default: break;
  }
  HRESULT hr = VariantClear(dest);
  if (FAILED(hr)) {
    VariantClear(&tmp);
    return hr;
  }
  std::memcpy(dest, &tmp, sizeof tmp);
  return S_OK;
}

HRESULT VariantChangeType(VARIANT* dest, const VARIANT* src, USHORT /*flags*/, VARTYPE vt) {
  if (!dest || !src) return E_INVALIDARG;
  if ((vt & ~VT_TYPEMASK) != 0 || (src->vt & ~VT_TYPEMASK) != 0) return DISP_E_BADVARTYPE;
  VARIANT out;
  VariantInit(&out);
  if (src->vt == vt) {
    HRESULT hr = VariantCopy(&out, src);
    if (FAILED(hr)) return hr;
  } else {
    HRESULT hr = Convert(*src, vt, out);
    if (FAILED(hr)) {
      out.vt = VT_EMPTY;  // nothing was allocated on a failed path
      return hr;
    }
  }
  VariantClear(dest);
  std::memcpy(dest, &out, sizeof out);
  return S_OK;
}

}  // extern "C"

namespace zemo {

CVariant CVariant::Str(std::u16string_view text) {
  CVariant v;
  v.bstrVal = AllocBstr(text);
  v.vt = VT_BSTR;
  return v;
}

CVariant CVariant::Clsid(const CLSID& id) {
  CVariant v;
  v.puuid = static_cast<CLSID*>(CoTaskMemAlloc(sizeof(CLSID)));
  if (!v.puuid) AtlThrow(E_OUTOFMEMORY);
  *v.puuid = id;
  v.vt = VT_CLSID;
  return v;
}

CVariant CVariant::Unknown(IUnknown* p) {
  CVariant v;
  v.vt = VT_UNKNOWN;
  v.punkVal = p;
  if (p) p->AddRef();
  return v;
}

std::u16string DoubleToText(double d) {
  char buf[64];
  auto r = std::to_chars(buf, buf + sizeof buf, d);
  return std::u16string(buf, r.ptr);
}

}  // namespace zemo
