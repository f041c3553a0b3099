#include "platform/strings.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <limits>

#include "platform/exception.h"

extern "C" {

void* CoTaskMemAlloc(size_t bytes) { return std::malloc(bytes == 0 ? 1 : bytes); }
void* CoTaskMemRealloc(void* p, size_t bytes) { return std::realloc(p, bytes == 0 ? 1 : bytes); }
void CoTaskMemFree(void* p) { std::free(p); }

BSTR SysAllocStringLen(LPCOLESTR text, uint32_t length) {
  if (length > (std::numeric_limits<uint32_t>::max() - 8) / 2) return nullptr;
  auto* block = static_cast<uint8_t*>(std::malloc(sizeof(uint32_t) + (size_t(length) + 1) * 2));
  if (!block) return nullptr;
  uint32_t bytes = length * 2;
  std::memcpy(block, &bytes, sizeof bytes);
  auto* s = reinterpret_cast<OLECHAR*>(block + sizeof(uint32_t));
  if (text)
    std::memcpy(s, text, bytes);
  else
    std::memset(s, 0, bytes);
  s[length] = 0;
  return s;
}

BSTR SysAllocString(LPCOLESTR text) {
  if (!text) return nullptr;
  return SysAllocStringLen(text, static_cast<uint32_t>(zemo::WideLength(text)));
}

uint32_t SysStringLen(BSTR text) {
  if (!text) return 0;
  uint32_t bytes;
  std::memcpy(&bytes, reinterpret_cast<uint8_t*>(text) - sizeof(uint32_t), sizeof bytes);
  return bytes / 2;
}

void SysFreeString(BSTR text) {
  if (text) std::free(reinterpret_cast<uint8_t*>(text) - sizeof(uint32_t));
}

}  // extern "C"

HRESULT HresultFromErrno(int err) {
  // The platform's codes for the common file errors, so that a status reads
  // the same as it would there.
  switch (err) {
    case 0: return E_FAIL;
    case ENOENT: return HRESULT_FROM_WIN32(2);    // file not found
    case ENOTDIR: return HRESULT_FROM_WIN32(3);   // path not found
    case EMFILE: return HRESULT_FROM_WIN32(4);    // too many open files
    case EACCES:
    case EPERM:
    case EISDIR: return HRESULT_FROM_WIN32(5);    // access denied
    case ENOMEM: return HRESULT_FROM_WIN32(8);    // not enough memory
    case EEXIST: return HRESULT_FROM_WIN32(80);   // file exists
    case ENOSPC: return HRESULT_FROM_WIN32(112);  // disk full
    case EROFS: return HRESULT_FROM_WIN32(19);    // write protect
    case ENAMETOOLONG: return HRESULT_FROM_WIN32(206);
    default: return HRESULT_FROM_WIN32(31);       // device not functioning
  }
}


namespace zemo {

size_t WideLength(const char16_t* text) {
  size_t n = 0;
  if (text)
    while (text[n]) ++n;
  return n;
}

char32_t NextCodePoint(std::u16string_view text, size_t& i) noexcept {
  char32_t c = text[i++];
  if (c >= 0xD800 && c <= 0xDBFF && i < text.size() && text[i] >= 0xDC00 && text[i] <= 0xDFFF)
    return 0x10000 + ((c - 0xD800) << 10) + (text[i++] - 0xDC00);
  return c >= 0xD800 && c <= 0xDFFF ? 0xFFFD : c;  // a lone surrogate
}

char* EncodeUtf8(char* p, char32_t c) noexcept {
  if (c < 0x80) {
    *p++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *p++ = static_cast<char>(0xC0 | (c >> 6));
    *p++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *p++ = static_cast<char>(0xE0 | (c >> 12));
    *p++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *p++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *p++ = static_cast<char>(0xF0 | (c >> 18));
    *p++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *p++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *p++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return p;
}

std::string ToUtf8(std::u16string_view text) {
  // A unit gives at most three bytes (a pair of them four).
  std::string out(text.size() * 3, '\0');
  char* p = out.data();
  for (size_t i = 0; i < text.size();) {
    if (text[i] < 0x80)
      *p++ = static_cast<char>(text[i++]);
    else
      p = EncodeUtf8(p, NextCodePoint(text, i));
  }
  out.resize(static_cast<size_t>(p - out.data()));
  return out;
}

// Malformed input becomes U+FFFD, one for each maximal invalid subpart, as
// Unicode recommends: a truncated sequence is one, a byte that can't start
// one is one.
std::u16string FromUtf8(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  auto byte = [&](size_t k) { return static_cast<uint8_t>(text[k]); };
  size_t i = 0;
  while (i < text.size()) {
    uint8_t b = byte(i);
    if (b < 0x80) {
      out += static_cast<char16_t>(b);
      ++i;
      continue;
    }
    size_t need;
    uint32_t c;
    uint8_t lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (b >= 0xC2 && b <= 0xDF) {
      need = 1, c = b & 0x1Fu;
    } else if (b >= 0xE0 && b <= 0xEF) {
      need = 2, c = b & 0x0Fu;
      if (b == 0xE0) lo = 0xA0;  // overlong
      if (b == 0xED) hi = 0x9F;  // surrogates
    } else if (b >= 0xF0 && b <= 0xF4) {
      need = 3, c = b & 0x07u;
      if (b == 0xF0) lo = 0x90;
      if (b == 0xF4) hi = 0x8F;  // above U+10FFFF
    } else {
      out += u'\uFFFD';
      ++i;
      continue;
    }
    size_t k = 1;
    for (; k <= need && i + k < text.size(); ++k) {
      uint8_t t = byte(i + k);
      if (k == 1 ? (t < lo || t > hi) : (t & 0xC0) != 0x80) break;
      c = (c << 6) | (t & 0x3Fu);
    }
    if (k <= need) {
      out += u'\uFFFD';
      i += k;
      continue;
    }
    i += k;
    if (c >= 0x10000) {
      c -= 0x10000;
      out += static_cast<char16_t>(0xD800 + (c >> 10));
      out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
  }
  return out;
}

char16_t WideUpper(char16_t c) {
  if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
  // Beyond ASCII the C library's tables decide, independent of the locale.
  return static_cast<char16_t>(std::towupper(static_cast<wint_t>(c)));
}

int WideCompareNoCase(std::u16string_view a, std::u16string_view b) {
  size_t n = a.size() < b.size() ? a.size() : b.size();
  for (size_t i = 0; i < n; ++i) {
    int x = WideUpper(a[i]), y = WideUpper(b[i]);
    if (x != y) return x - y;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

bool WideEqualNoCase(std::u16string_view a, std::u16string_view b) {
  return a.size() == b.size() && WideCompareNoCase(a, b) == 0;
}

BSTR AllocBstr(std::u16string_view text) {
  BSTR s = SysAllocStringLen(text.data(), static_cast<uint32_t>(text.size()));
  if (!s) AtlThrow(E_OUTOFMEMORY);
  return s;
}

CBstr::CBstr(std::u16string_view text) : m_s(AllocBstr(text)) {}

BSTR CBstr::Copy() const { return m_s ? AllocBstr(View()) : nullptr; }

}  // namespace zemo
