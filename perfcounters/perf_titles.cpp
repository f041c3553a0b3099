#include "perfcounters/perf_titles.h"

#include <algorithm>
#include <new>
#include <vector>

namespace zemo {
namespace {

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
      const uint64_t id = DecimalId(texts[i]);
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

std::vector<std::u16string_view> Words(std::u16string_view text) {
  std::vector<std::u16string_view> words;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find(u' ', at), text.size());
    if (end > at) words.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

uint64_t DecimalId(std::u16string_view text, size_t* digits) {
  uint64_t id = 0;
  size_t n = 0;
  for (; n < text.size() && text[n] >= u'0' && text[n] <= u'9'; ++n)
    id = std::min<uint64_t>(id * 10 + (text[n] - u'0'), UINT32_MAX + uint64_t(1));
  if (digits) *digits = n;
  return id;
}

}  // namespace zemo
