#include "frame/time_format.h"

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "platform/clock.h"
#include "platform/object.h"
#include "platform/strings.h"

namespace zemo {
namespace {

constexpr uint64_t kSecond = 1000000000ull;
constexpr uint64_t kSecondsTo1970 = kUnixEpochAsZemoTime / kSecond;

std::u16string Widen(const char* text, size_t n) { return std::u16string(text, text + n); }

template <class... A>
std::u16string Print(const char* format, A... args) {
  char buf[64];
  int n = std::snprintf(buf, sizeof buf, format, args...);
  return Widen(buf, static_cast<size_t>(n));
}

struct tm Calendar(ZemoTime time, bool local) {
  time_t t = static_cast<time_t>(static_cast<int64_t>(time / kSecond) - static_cast<int64_t>(kSecondsTo1970));
  struct tm parts {};
  errno = 0;
  if (!(local ? localtime_r(&t, &parts) : gmtime_r(&t, &parts))) AtlThrow(HresultFromErrno(errno ? errno : EOVERFLOW));
  return parts;
}

std::u16string ClockText(unsigned h, unsigned m, unsigned s) { return Print("%02u:%02u:%02u", h, m, s); }

HRESULT CopyOut(char16_t* buffer, size_t capacity, const std::u16string& text) {
  if (text.size() + 1 > capacity) return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
  text.copy(buffer, text.size());
  buffer[text.size()] = 0;
  return S_OK;
}

template <class F>
HRESULT IntoBuffer(char16_t* buffer, size_t capacity, F&& make) {
  if (!buffer) return E_POINTER;
  return Boundary([&] { return CopyOut(buffer, capacity, make()); });
}

// The caller's format with its text arguments in place of "%s".
std::u16string Substitute(std::u16string_view format, std::u16string_view a, std::u16string_view b) {
  std::u16string out;
  std::u16string_view args[] = {a, b};
  size_t next = 0;
  for (size_t i = 0; i < format.size(); ++i) {
    char16_t c = format[i];
    if (c != u'%' || i + 1 == format.size()) {
      out += c;
      continue;
    }
    size_t j = i + 1;
    if (format[j] == u'%') {
      out += u'%';
      i = j;
      continue;
    }
    if (format[j] == u'l' && j + 1 < format.size()) ++j;
    if (format[j] == u's') {
      if (next < 2) out += args[next++];
      i = j;
      continue;
    }
    out += c;  // anything else stays as written
  }
  return out;
}

}  // namespace

std::u16string FormatDate(ZemoTime time, bool local) {
  struct tm parts = Calendar(time, local);
  return Print("%04d-%02d-%02d", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
}

std::u16string FormatTime(ZemoTime time, int precision, bool local) {
  struct tm parts = Calendar(time, local);
  std::u16string text = ClockText(parts.tm_hour, parts.tm_min, parts.tm_sec);
  unsigned fraction = static_cast<unsigned>(time % kSecond);
  switch (precision) {
    case 0: text += kDecimalSeparator + Print("%3.3u", fraction / 1000000); break;
    case 1: text += kDecimalSeparator + Print("%6.6u", fraction / 1000); break;
    case 2: text += kDecimalSeparator + Print("%9.9u", fraction); break;
    default: break;
  }
  if (!local) text += u'Z';
  return text;
}

std::u16string FormatDuration(int64_t duration, int precision, std::u16string_view format) {
  bool negative = duration < 0;
  uint64_t magnitude = negative ? uint64_t(0) - static_cast<uint64_t>(duration) : static_cast<uint64_t>(duration);
  uint64_t s = magnitude / kSecond;
  unsigned f = static_cast<unsigned>(magnitude % kSecond);
  uint64_t days = s / 86400;
  unsigned rest = static_cast<unsigned>(s % 86400);
  unsigned h = rest / 3600, m = rest / 60 % 60, c = rest % 60;

  std::u16string fraction = precision == 1 ? Print("%6.6u", f / 1000) : Print("%9.9u", f);
  std::u16string text = negative ? kNegativeSign : u"";
  if (days == 0) {
    if (h != 0 || m != 0)
      text += ClockText(h, m, c) + kDecimalSeparator + fraction;
    else
      text += Print("%1.1u", c) + kDecimalSeparator + fraction;
    return text;
  }
  std::u16string dayText = Print("%llu", static_cast<unsigned long long>(days));
  return text + Substitute(format, dayText, ClockText(h, m, c) + kDecimalSeparator + fraction);
}

HRESULT FormatDate(char16_t* buffer, size_t capacity, ZemoTime time, bool local) {
  return IntoBuffer(buffer, capacity, [&] { return FormatDate(time, local); });
}

HRESULT FormatTime(char16_t* buffer, size_t capacity, ZemoTime time, int precision, bool local) {
  return IntoBuffer(buffer, capacity, [&] { return FormatTime(time, precision, local); });
}

HRESULT FormatDuration(char16_t* buffer, size_t capacity, int64_t duration, int precision, const char16_t* format) {
  if (!format) return E_POINTER;
  return IntoBuffer(buffer, capacity, [&] { return FormatDuration(duration, precision, format); });
}

std::string LocalDateTime(ZemoTime time) {
  return ToUtf8(FormatDate(time, true)) + " " + ToUtf8(FormatTime(time, -1, true));
}

}  // namespace zemo
