#include "perfcounters/perf_titles.h"

#include <algorithm>
#include <new>
#include <vector>

namespace zemo {
namespace {

// The leading decimal digits of an id, as the platform reads them; an id
// without digits is 0, a longer one stops at the largest.
uint64_t IdOf(std::u16string_view text) {
  uint64_t id = 0;
  for (char16_t c : text) {
    if (c < u'0' || c > u'9') break;
    id = std::min<uint64_t>(id * 10 + (c - u'0'), UINT32_MAX + uint64_t(1));
  }
  return id;
}

void Append(std::u16string& out, std::u16string_view text) {
  out += text;
  out += u'\0';
}

std::u16string Decimal(uint32_t v) {
  std::u16string digits;
  do digits.insert(digits.begin(), static_cast<char16_t>(u'0' + v % 10));
  while (v /= 10);
  return digits;
}

}  // namespace

HRESULT ReplaceTitles(std::u16string_view list, std::span<const std::u16string> titles, DWORD first, DWORD last,
                      std::u16string& out) {
  constexpr HRESULT kInvalidData = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
  // An empty list may be one terminator or two.
  const bool closed = list == std::u16string_view(u"\0", 1) ||
                      (list.size() >= 2 && list[list.size() - 1] == 0 && list[list.size() - 2] == 0);
  if (!closed) return kInvalidData;
  if (!titles.empty() && titles.size() - 1 > (UINT32_MAX - first) / 2) return E_INVALIDARG;
  for (const std::u16string& t : titles)
    if (t.empty() || t.find(u'\0') != std::u16string::npos) return E_INVALIDARG;

  try {
    // The texts up to the first empty one, which closes the list.
    std::vector<std::u16string_view> texts;
    for (size_t at = 0; at < list.size();) {
      const size_t end = list.find(u'\0', at);
      if (end == at) break;
      texts.push_back(list.substr(at, end - at));
      at = end + 1;
    }
    if (texts.size() % 2) return kInvalidData;

    out.clear();
    bool inserted = false;
    auto insertRun = [&] {
      for (size_t i = 0; i < titles.size(); ++i) {
        Append(out, Decimal(static_cast<uint32_t>(first + 2 * i)));
        Append(out, titles[i]);
      }
      inserted = true;
    };
    for (size_t i = 0; i < texts.size(); i += 2) {
      const uint64_t id = IdOf(texts[i]);
      if (!inserted && id >= first) insertRun();
      if (id >= first && id <= last) continue;
      Append(out, texts[i]);
      Append(out, texts[i + 1]);
    }
    if (!inserted) insertRun();
    if (out.empty()) out += u'\0';
    out += u'\0';
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

}  // namespace zemo
