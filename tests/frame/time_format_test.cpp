#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "frame/time_format.h"
#include "platform/object.h"

namespace {

constexpr uint64_t kSecond = 1000000000ull;
// 2021-03-04 05:06:07 UTC, in seconds since 1601.
constexpr uint64_t k20210304T050607 = 13259307967ull;
constexpr ZemoTime kSample = k20210304T050607 * kSecond + 123456789;

std::string Utf8(const std::u16string& s) { return zemo::ToUtf8(s); }

// Sets TZ for one test and puts the old value back.
class ZoneForTest {
 public:
  explicit ZoneForTest(const char* zone) {
    if (const char* old = std::getenv("TZ")) m_old = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ZoneForTest() {
    if (m_old)
      setenv("TZ", m_old->c_str(), 1);
    else
      unsetenv("TZ");
    tzset();
  }

 private:
  std::optional<std::string> m_old;
};

TEST(FormatTime, FractionDigitsByPrecisionAndZForUtc) {
  EXPECT_EQ("05:06:07.123Z", Utf8(zemo::FormatTime(kSample, 0, false)));
  EXPECT_EQ("05:06:07.123456Z", Utf8(zemo::FormatTime(kSample, 1, false)));
  EXPECT_EQ("05:06:07.123456789Z", Utf8(zemo::FormatTime(kSample, 2, false)));
  EXPECT_EQ("05:06:07Z", Utf8(zemo::FormatTime(kSample, 3, false)));
  // Leading zeros of the fraction are kept.
  EXPECT_EQ("05:06:07.000Z", Utf8(zemo::FormatTime(k20210304T050607 * kSecond + 999999, 0, false)));
  EXPECT_EQ("05:06:07.000001Z", Utf8(zemo::FormatTime(k20210304T050607 * kSecond + 1000, 1, false)));
  // The first instant of the epoch, and the last second of a day, in 24-hour form.
  EXPECT_EQ("00:00:00.000Z", Utf8(zemo::FormatTime(0, 0, false)));
  EXPECT_EQ("23:59:59.999Z", Utf8(zemo::FormatTime(12591158399ull * kSecond + 999999999, 0, false)));
}

TEST(FormatDate, CalendarDateInUtcAndLocalTime) {
  EXPECT_EQ("2021-03-04", Utf8(zemo::FormatDate(kSample, false)));
  EXPECT_EQ("1601-01-01", Utf8(zemo::FormatDate(0, false)));
  EXPECT_EQ("1999-12-31", Utf8(zemo::FormatDate(12591158399ull * kSecond, false)));

  ZoneForTest zone("ZZZ-03");  // three hours east of UTC
  EXPECT_EQ("2000-01-01", Utf8(zemo::FormatDate(12591158399ull * kSecond, true)));
  EXPECT_EQ("08:06:07.123", Utf8(zemo::FormatTime(kSample, 0, true)));
  EXPECT_EQ("05:06:07.123Z", Utf8(zemo::FormatTime(kSample, 0, false)));
}

TEST(FormatDuration, BelowADayAboveADayAndNegative) {
  const std::u16string days = u"%sd %s";
  EXPECT_EQ("1.500000000", Utf8(zemo::FormatDuration(1500000000, 2, days)));
  EXPECT_EQ("1.500000", Utf8(zemo::FormatDuration(1500000000, 1, days)));
  EXPECT_EQ("1.500000000", Utf8(zemo::FormatDuration(1500000000, 0, days)));  // only precision 1 shortens
  EXPECT_EQ("0.000000000", Utf8(zemo::FormatDuration(0, 2, days)));
  EXPECT_EQ("59.999999999", Utf8(zemo::FormatDuration(59999999999ll, 2, days)));
  EXPECT_EQ("00:01:00.000000000", Utf8(zemo::FormatDuration(60 * kSecond, 2, days)));
  EXPECT_EQ("01:00:00.000000", Utf8(zemo::FormatDuration(3600 * kSecond, 1, days)));
  EXPECT_EQ("23:59:59.000000000", Utf8(zemo::FormatDuration(86399 * kSecond, 2, days)));

  const int64_t threeDays = (3 * 86400 + 4 * 3600 + 5 * 60 + 6) * kSecond + 7000000;
  EXPECT_EQ("3d 04:05:06.007000000", Utf8(zemo::FormatDuration(threeDays, 2, days)));
  // A whole day keeps the clock form, even at zero hours.
  EXPECT_EQ("1d 00:00:00.000000", Utf8(zemo::FormatDuration(86400 * kSecond, 1, days)));
  EXPECT_EQ("[1] 00:00:00.000000000 100%", Utf8(zemo::FormatDuration(86400 * kSecond, 2, u"[%s] %s 100%%")));

  EXPECT_EQ("-1.500000000", Utf8(zemo::FormatDuration(-1500000000, 2, days)));
  EXPECT_EQ("-3d 04:05:06.007000000", Utf8(zemo::FormatDuration(-threeDays, 2, days)));
  // The most negative duration has no positive twin in i64.
  EXPECT_EQ("-106751d 23:47:16.854775808",
            Utf8(zemo::FormatDuration(std::numeric_limits<int64_t>::min(), 2, days)));
}

TEST(FormatBuffers, NullsAndShortBuffers) {
  char16_t buf[64];
  EXPECT_EQ(S_OK, zemo::FormatDuration(buf, 64, 1500000000, 2, u"%sd %s"));
  EXPECT_EQ(u"1.500000000", std::u16string(buf));
  EXPECT_EQ(E_POINTER, zemo::FormatDuration(nullptr, 64, 1, 2, u"%sd %s"));
  EXPECT_EQ(E_POINTER, zemo::FormatDuration(buf, 64, 1, 2, nullptr));
  EXPECT_EQ(E_POINTER, zemo::FormatTime(nullptr, 64, kSample, 0, false));
  EXPECT_EQ(E_POINTER, zemo::FormatDate(nullptr, 64, kSample, false));

  // Exactly room for the text and its zero, and one unit less.
  EXPECT_EQ(S_OK, zemo::FormatDate(buf, 11, kSample, false));
  EXPECT_EQ(u"2021-03-04", std::u16string(buf));
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER), zemo::FormatDate(buf, 10, kSample, false));
  EXPECT_EQ(S_OK, zemo::FormatTime(buf, 14, kSample, 0, false));
  EXPECT_EQ(u"05:06:07.123Z", std::u16string(buf));
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER), zemo::FormatTime(buf, 13, kSample, 0, false));
}

}  // namespace
