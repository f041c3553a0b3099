// The title database of a language: its "Counter" and "Help" values, each a
// list of texts (REG_MULTI_SZ: every text closed by a terminator, the list
// by one more) taken in pairs of a decimal id and its title, ascending by id.
// A performance class owns one run of ids in it, first to last in steps of 2.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/types.h"

namespace zemo {

// A new list from `list`: its pairs as they stand, less those whose ids lie
// in first to last, with the run of `titles` (ids first, first + 2, ...) in
// ahead of the first old pair whose id is at least first, or at the end.
// With no titles it only takes the run out. HRESULT_FROM_WIN32(
// ERROR_INVALID_DATA) if `list` is not a list of pairs closed by two
// terminators; E_INVALIDARG for a title that is empty or holds a
// terminator, or a run whose ids would pass 2^32.
HRESULT ReplaceTitles(std::u16string_view list, std::span<const std::u16string> titles, DWORD first, DWORD last,
                      std::u16string& out);

// The blank-separated words of a text (a request, a list of languages).
std::vector<std::u16string_view> Words(std::u16string_view text);

// A title id as the platform reads it: the text's leading decimal digits
// (`*digits` of them), at most 2^32; 0 without digits.
uint64_t DecimalId(std::u16string_view text, size_t* digits = nullptr);

}  // namespace zemo
