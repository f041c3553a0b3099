// Wide text: BSTR, task memory, UTF-8 conversions and the wide-character
// routines the runtime offers (case folding, case-blind compare).
//
// A BSTR is a u32 byte count, then UTF-16 units, then a zero unit; the
// pointer addresses the first unit. CBstr owns one inside the code.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/types.h"

extern "C" {
ZEMO_API void* CoTaskMemAlloc(size_t bytes);
ZEMO_API void* CoTaskMemRealloc(void* p, size_t bytes);
ZEMO_API void CoTaskMemFree(void* p);

ZEMO_API BSTR SysAllocString(LPCOLESTR text);
ZEMO_API BSTR SysAllocStringLen(LPCOLESTR text, uint32_t length);
ZEMO_API uint32_t SysStringLen(BSTR text);
ZEMO_API void SysFreeString(BSTR text);
}

namespace zemo {

// Units of a zero-terminated wide text.
size_t WideLength(const char16_t* text);

std::string ToUtf8(std::u16string_view text);
// The code point at text[i] (a lone surrogate is U+FFFD), with i moved past it.
char32_t NextCodePoint(std::u16string_view text, size_t& i) noexcept;
// One code point as UTF-8 at p, which has room for 4 bytes; the end.
char* EncodeUtf8(char* p, char32_t c) noexcept;
std::u16string FromUtf8(std::string_view text);

// The runtime's towupper over one UTF-16 unit (Latin and common ranges).
char16_t WideUpper(char16_t c);
// _wcsicmp: compares after upper-casing each unit.
int WideCompareNoCase(std::u16string_view a, std::u16string_view b);
bool WideEqualNoCase(std::u16string_view a, std::u16string_view b);

// Owner of one BSTR.
class CBstr {
 public:
  CBstr() noexcept = default;
  explicit CBstr(std::u16string_view text);
  explicit CBstr(const char* utf8) : CBstr(FromUtf8(utf8)) {}
  CBstr(const CBstr& o) : CBstr(o.View()) {}
  CBstr(CBstr&& o) noexcept : m_s(std::exchange(o.m_s, nullptr)) {}
  ~CBstr() { SysFreeString(m_s); }
  CBstr& operator=(CBstr o) noexcept {
    std::swap(m_s, o.m_s);
    return *this;
  }

  BSTR Get() const noexcept { return m_s; }
  uint32_t Length() const noexcept { return SysStringLen(m_s); }
  std::u16string_view View() const noexcept { return m_s ? std::u16string_view(m_s, Length()) : std::u16string_view(); }
  std::string Utf8() const { return ToUtf8(View()); }

  BSTR* Out() noexcept {
    SysFreeString(m_s);
    m_s = nullptr;
    return &m_s;
  }
  void Attach(BSTR s) noexcept {
    SysFreeString(m_s);
    m_s = s;
  }
  BSTR Detach() noexcept { return std::exchange(m_s, nullptr); }
  // A new copy for an out-parameter; raises E_OUTOFMEMORY.
  BSTR Copy() const;

 private:
  BSTR m_s = nullptr;
};

// A new BSTR from text, raising E_OUTOFMEMORY.
BSTR AllocBstr(std::u16string_view text);

}  // namespace zemo
