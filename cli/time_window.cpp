#include "cli/time_window.h"

#include <cctype>
#include <cmath>
#include <ctime>
#include <tuple>

#include "platform/clock.h"

namespace zemo::cli {
namespace {

constexpr uint64_t kSecond = 1000000000ull;

// Digits at text[at, at + n) as a number; false if any is no digit.
bool Digits(const std::string& text, size_t at, size_t n, int* value) {
  if (at + n > text.size()) return false;
  *value = 0;
  for (size_t i = at; i < at + n; ++i) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
    *value = *value * 10 + (text[i] - '0');
  }
  return true;
}

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar.
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

// YYYY-MM-DD[T| ]hh:mm[:ss[.fraction]][Z|+hh[:mm]|-hh[:mm]] as nanoseconds
// since 1970; false when it is not one.
bool ParseIso(const std::string& text, int64_t* ns) {
  int year, month, day, hour, minute, second = 0;
  if (!Digits(text, 0, 4, &year) || text.size() < 16 || text[4] != '-' || !Digits(text, 5, 2, &month) ||
      text[7] != '-' || !Digits(text, 8, 2, &day) || (text[10] != 'T' && text[10] != 't' && text[10] != ' ') ||
      !Digits(text, 11, 2, &hour) || text[13] != ':' || !Digits(text, 14, 2, &minute))
    return false;
  size_t at = 16;
  int64_t fraction = 0;
  if (at < text.size() && text[at] == ':') {
    if (!Digits(text, at + 1, 2, &second)) return false;
    at += 3;
    if (at < text.size() && (text[at] == '.' || text[at] == ',')) {
      size_t digits = 0;
      for (++at; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])); ++at, ++digits)
        if (digits < 9) fraction = fraction * 10 + (text[at] - '0');
      if (!digits) return false;
      for (; digits < 9; ++digits) fraction *= 10;
    }
  }
  int64_t offset = 0;  // seconds east of UTC
  if (at < text.size() && (text[at] == 'Z' || text[at] == 'z')) {
    ++at;
  } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
    int hours = 0, minutes = 0;
    const int sign = text[at] == '-' ? -1 : 1;
    if (!Digits(text, at + 1, 2, &hours)) return false;
    at += 3;
    if (at < text.size() && text[at] == ':') ++at;
    if (at < text.size()) {
      if (!Digits(text, at, 2, &minutes)) return false;
      at += 2;
    }
    offset = sign * (hours * 3600 + minutes * 60);
  }
  static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (at != text.size() || month < 1 || month > 12 || day < 1 || day > kDays[month - 1] || hour > 23 ||
      minute > 59 || second > 60)
    return false;
  const int64_t seconds = DaysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second - offset;
  *ns = seconds * int64_t(kSecond) + fraction;
  return true;
}

}  // namespace

bool TimeWindow::ParseBound(const std::string& text, Bound* bound) {
  if (text.empty()) return true;
  bound->set = true;
  // Seconds: digits with at most one point, and nothing else.
  size_t points = 0;
  bool plain = !text.empty() && text != ".";
  for (char c : text) {
    if (c == '.') ++points;
    else if (!std::isdigit(static_cast<unsigned char>(c))) plain = false;
  }
  if (plain && points <= 1) {
    const double seconds = std::strtod(text.c_str(), nullptr);
    if (!(seconds < 1e10)) return false;
    bound->relative = true;
    bound->time = static_cast<ZemoTime>(std::llround(seconds * 1e9));
    return true;
  }
  int64_t ns = 0;
  if (!ParseIso(text, &ns) || ns < 0) return false;
  bound->time = kUnixEpochAsZemoTime + static_cast<uint64_t>(ns);
  return true;
}

bool TimeWindow::Parse(const std::string& from, const std::string& to, std::string* error) {
  for (auto [text, bound, name] : {std::tuple{&from, &m_from, "--from"}, std::tuple{&to, &m_to, "--to"}})
    if (!ParseBound(*text, bound)) {
      *error = std::string(name) + " takes an ISO 8601 time (2026-01-01T10:00:00Z) or seconds from the first " +
               "packet (90, 1.5): " + *text + " is neither";
      return false;
    }
  if (m_from.set && m_to.set && m_from.relative == m_to.relative && m_to.time < m_from.time) {
    *error = "--to " + to + " is before --from " + from + ": the window is empty";
    return false;
  }
  return true;
}

void TimeWindow::Resolve(ZemoTime first) {
  m_resolved = true;
  auto at = [first](const Bound& b) { return b.relative ? first + b.time : b.time; };
  m_fromTime = m_from.set ? at(m_from) : 0;
  m_toTime = m_to.set ? at(m_to) : 0;
}

}  // namespace zemo::cli
