// 16-byte class and interface identifiers.
//
// Stored as a u32, two u16 and 8 bytes, little-endian. Text form is
// {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX} in upper case.
#pragma once

#include <compare>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "platform/types.h"

struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];

  // Two words at run time: QueryInterface compares identifiers on every call.
  friend constexpr bool operator==(const GUID& a, const GUID& b) {
    if (!std::is_constant_evaluated()) {
      uint64_t x[2], y[2];
      std::memcpy(x, &a, sizeof x);
      std::memcpy(y, &b, sizeof y);
      return ((x[0] ^ y[0]) | (x[1] ^ y[1])) == 0;
    }
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
    for (int i = 0; i < 8; ++i)
      if (a.Data4[i] != b.Data4[i]) return false;
    return true;
  }
};
static_assert(sizeof(GUID) == 16);

using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;
using REFCLSID = const CLSID&;
using REFGUID = const GUID&;

inline constexpr GUID GUID_NULL{};

namespace zemo::detail {
constexpr int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
constexpr uint64_t HexField(const char* s, int digits) {
  uint64_t v = 0;
  for (int i = 0; i < digits; ++i) {
    int d = HexDigit(s[i]);
    if (d < 0) throw "bad hex digit in GUID literal";  // compile-time error when constexpr
    v = v * 16 + static_cast<uint64_t>(d);
  }
  return v;
}
}  // namespace zemo::detail

// Builds a GUID from "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX" at compile time.
consteval GUID MakeGuid(const char (&s)[37]) {
  using zemo::detail::HexField;
  if (s[8] != '-' || s[13] != '-' || s[18] != '-' || s[23] != '-') throw "bad GUID literal";
  GUID g{};
  g.Data1 = static_cast<uint32_t>(HexField(s, 8));
  g.Data2 = static_cast<uint16_t>(HexField(s + 9, 4));
  g.Data3 = static_cast<uint16_t>(HexField(s + 14, 4));
  g.Data4[0] = static_cast<uint8_t>(HexField(s + 19, 2));
  g.Data4[1] = static_cast<uint8_t>(HexField(s + 21, 2));
  for (int i = 0; i < 6; ++i) g.Data4[2 + i] = static_cast<uint8_t>(HexField(s + 24 + 2 * i, 2));
  return g;
}

inline bool IsEqualGUID(REFGUID a, REFGUID b) { return a == b; }

extern "C" {
// Writes the 38-character braced text and its terminator; gives the number of
// characters written including the terminator, or 0 when max is too small.
ZEMO_API int StringFromGUID2(REFGUID guid, OLECHAR* out, int max);
// Allocates the text with CoTaskMemAlloc.
ZEMO_API HRESULT StringFromCLSID(REFCLSID clsid, LPOLESTR* out);
// Parses the braced text; anything else is CO_E_CLASSSTRING.
ZEMO_API HRESULT CLSIDFromString(LPCOLESTR text, CLSID* out);
// A new random identifier.
ZEMO_API HRESULT CoCreateGuid(GUID* out);
}
