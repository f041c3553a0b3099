#include "platform/guid.h"

#include <sys/random.h>

#include <cerrno>

#include "platform/strings.h"

namespace {

constexpr char16_t kHex[] = u"0123456789ABCDEF";

void PutHex(OLECHAR*& p, uint64_t v, int digits) {
  for (int i = digits - 1; i >= 0; --i) *p++ = kHex[(v >> (4 * i)) & 0xF];
}

bool GetHex(const OLECHAR*& p, int digits, uint64_t& v) {
  v = 0;
  for (int i = 0; i < digits; ++i, ++p) {
    char16_t c = *p;
    int d;
    if (c >= u'0' && c <= u'9')
      d = c - u'0';
    else if (c >= u'a' && c <= u'f')
      d = c - u'a' + 10;
    else if (c >= u'A' && c <= u'F')
      d = c - u'A' + 10;
    else
      return false;  // also stops at the terminator, so no read runs past it
    v = v * 16 + static_cast<uint64_t>(d);
  }
  return true;
}

}  // namespace

extern "C" {

int StringFromGUID2(REFGUID g, OLECHAR* out, int max) {
  if (!out || max < 39) return 0;
  OLECHAR* p = out;
  *p++ = u'{';
  PutHex(p, g.Data1, 8);
  *p++ = u'-';
  PutHex(p, g.Data2, 4);
  *p++ = u'-';
  PutHex(p, g.Data3, 4);
  *p++ = u'-';
  PutHex(p, g.Data4[0], 2);
  PutHex(p, g.Data4[1], 2);
  *p++ = u'-';
  for (int i = 2; i < 8; ++i) PutHex(p, g.Data4[i], 2);
  *p++ = u'}';
  *p = 0;
  return 39;
}

HRESULT StringFromCLSID(REFCLSID clsid, LPOLESTR* out) {
  if (!out) return E_INVALIDARG;
  *out = static_cast<LPOLESTR>(CoTaskMemAlloc(39 * sizeof(OLECHAR)));
  if (!*out) return E_OUTOFMEMORY;
  StringFromGUID2(clsid, *out, 39);
  return S_OK;
}

HRESULT CLSIDFromString(LPCOLESTR text, CLSID* out) {
  if (!out) return E_INVALIDARG;
  *out = GUID_NULL;
  if (!text) return CO_E_CLASSSTRING;
  const OLECHAR* p = text;
  GUID g{};
  uint64_t v;
  if (*p++ != u'{') return CO_E_CLASSSTRING;
  if (!GetHex(p, 8, v) || *p++ != u'-') return CO_E_CLASSSTRING;
  g.Data1 = static_cast<uint32_t>(v);
  if (!GetHex(p, 4, v) || *p++ != u'-') return CO_E_CLASSSTRING;
  g.Data2 = static_cast<uint16_t>(v);
  if (!GetHex(p, 4, v) || *p++ != u'-') return CO_E_CLASSSTRING;
  g.Data3 = static_cast<uint16_t>(v);
  for (int i = 0; i < 8; ++i) {
    if (i == 2 && *p++ != u'-') return CO_E_CLASSSTRING;
    if (!GetHex(p, 2, v)) return CO_E_CLASSSTRING;
    g.Data4[i] = static_cast<uint8_t>(v);
  }
  if (*p++ != u'}' || *p != 0) return CO_E_CLASSSTRING;
  *out = g;
  return S_OK;
}

HRESULT CoCreateGuid(GUID* out) {
  if (!out) return E_INVALIDARG;
  uint8_t bytes[16];
  for (size_t got = 0; got < sizeof bytes;) {
    ssize_t n = getrandom(bytes + got, sizeof bytes - got, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return HRESULT_FROM_WIN32(static_cast<DWORD>(errno));
    }
    got += static_cast<size_t>(n);
  }
  // A random identifier of the standard's version 4 and variant 1.
  bytes[7] = static_cast<uint8_t>((bytes[7] & 0x0F) | 0x40);
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);
  std::memcpy(out, bytes, sizeof bytes);
  return S_OK;
}

}  // extern "C"
