// Text forms of time for tables and text exports: a calendar date, a time of
// day with a fraction of the second, and a duration.
//
// The conventions are fixed here, in one place, rather than taken from a
// locale database: the decimal separator is ".", the negative sign "-",
// dates are YYYY-MM-DD and times of day are 24-hour HH:MM:SS with two-digit
// fields. Local time comes from the C library's time zone (TZ).
#pragma once

#include <string>
#include <string_view>

#include "platform/types.h"

namespace zemo {

inline constexpr char16_t kDecimalSeparator[] = u".";
inline constexpr char16_t kNegativeSign[] = u"-";

// The forms that return text raise a failed status (a time the calendar
// functions can't convert gives the system error); the buffer forms return
// it, give E_POINTER for a null buffer and
// HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER) when the text and its zero
// don't fit in `capacity` units.

// The date of a ZemoTime, in local time if `local`, else UTC.
std::u16string FormatDate(ZemoTime time, bool local);
HRESULT FormatDate(char16_t* buffer, size_t capacity, ZemoTime time, bool local);

// The time of day with a fraction by precision: 0 milliseconds (3 digits),
// 1 microseconds (6), 2 nanoseconds (9), anything else none. UTC times end
// in "Z".
std::u16string FormatTime(ZemoTime time, int precision, bool local);
HRESULT FormatTime(char16_t* buffer, size_t capacity, ZemoTime time, int precision, bool local);

// A duration in ns. Below a day: "H:M:S.fraction" when hours or minutes are
// set, else "S.fraction" with seconds unpadded. From a day on, `format`
// places the day count and that text: "%sd %s" gives "3d 04:05:06.…". The
// fraction has 6 digits at precision 1, else 9. In `format` only "%s" (or
// "%ls") and "%%" are interpreted.
std::u16string FormatDuration(int64_t duration, int precision, std::u16string_view format);
HRESULT FormatDuration(char16_t* buffer, size_t capacity, int64_t duration, int precision, const char16_t* format);

// Local date, a blank, local time without a fraction: the time columns of
// the wireless exports. Raises as the text forms above.
std::string LocalDateTime(ZemoTime time);

}  // namespace zemo
