#include <gtest/gtest.h>

#include "platform/guid.h"
#include "platform/strings.h"

namespace {

constexpr GUID kSample = MakeGuid("7FABA337-7DB5-4029-B400-400D39DEE2EC");

TEST(Guid, LiteralLayoutIsLittleEndianFields) {
  static_assert(kSample.Data1 == 0x7FABA337u && kSample.Data2 == 0x7DB5 && kSample.Data3 == 0x4029);
  uint8_t bytes[16];
  std::memcpy(bytes, &kSample, 16);
  const uint8_t expected[16] = {0x37, 0xA3, 0xAB, 0x7F, 0xB5, 0x7D, 0x29, 0x40,
                                0xB4, 0x00, 0x40, 0x0D, 0x39, 0xDE, 0xE2, 0xEC};
  EXPECT_EQ(0, std::memcmp(bytes, expected, 16));
}

TEST(Guid, TextRoundTripsInUpperCase) {
  OLECHAR buf[39];
  ASSERT_EQ(39, StringFromGUID2(kSample, buf, 39));
  EXPECT_EQ(std::u16string(u"{7FABA337-7DB5-4029-B400-400D39DEE2EC}"), buf);
  EXPECT_EQ(0, StringFromGUID2(kSample, buf, 38));

  CLSID back;
  ASSERT_EQ(S_OK, CLSIDFromString(u"{7faba337-7db5-4029-b400-400d39dee2ec}", &back));
  EXPECT_EQ(kSample, back);

  LPOLESTR text = nullptr;
  ASSERT_EQ(S_OK, StringFromCLSID(kSample, &text));
  EXPECT_EQ(std::u16string(buf), text);
  CoTaskMemFree(text);
}

TEST(Guid, MalformedTextFailsAndClearsTheResult) {
  const char16_t* bad[] = {
      u"",
      u"{",
      u"7FABA337-7DB5-4029-B400-400D39DEE2EC",        // no braces
      u"{7FABA337-7DB5-4029-B400-400D39DEE2EC",       // no closing brace
      u"{7FABA337-7DB5-4029-B400-400D39DEE2EC}x",     // trailing text
      u"{7FABA33G-7DB5-4029-B400-400D39DEE2EC}",      // not hex
      u"{7FABA337-7DB5-4029-B400400D39DEE2EC0}",      // dash misplaced
      u"{7FABA337+7DB5-4029-B400-400D39DEE2EC}",
  };
  for (const char16_t* text : bad) {
    CLSID out = kSample;
    EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromString(text, &out)) << zemo::ToUtf8(text);
    EXPECT_EQ(GUID_NULL, out);
  }
  CLSID out;
  EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromString(nullptr, &out));
  EXPECT_EQ(E_INVALIDARG, CLSIDFromString(u"{7FABA337-7DB5-4029-B400-400D39DEE2EC}", nullptr));
}

}  // namespace
