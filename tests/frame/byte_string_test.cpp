#include "frame/byte_string.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

using zemo::ByteString;

ByteString Str(const char* s) { return ByteString(s, std::strlen(s)); }

TEST(ByteString, ShorterSortsFirstWhateverItsBytes) {
  std::vector<ByteString> v{Str("b"), Str("aa"), Str(""), Str("a"), Str("\xff"), Str("ab")};
  std::sort(v.begin(), v.end());
  std::vector<std::string_view> order;
  for (const ByteString& b : v) order.push_back(b.View());
  EXPECT_EQ((std::vector<std::string_view>{"", "a", "b", "\xff", "aa", "ab"}), order);
  EXPECT_FALSE(Str("ab") < Str("ab"));
  EXPECT_TRUE(Str("zz") < Str("aaa"));
}

TEST(ByteString, BytesBehindTheCountAreZero) {
  uint8_t raw[33];
  std::memset(raw, 0xCC, sizeof(raw));
  const uint8_t data[40] = {1, 2, 3, 4, 5};
  ByteString s(data, 3);
  std::memcpy(raw, static_cast<const void*>(&s), 33);
  EXPECT_EQ(3, raw[0]);
  EXPECT_EQ(3, raw[3]);
  for (int i = 4; i < 33; ++i) ASSERT_EQ(0, raw[i]) << i;

  ByteString full(data, 32);
  EXPECT_EQ(32, full.GetByteCount());
  ByteString empty(nullptr, 0);
  EXPECT_TRUE(empty.IsEmpty());
  full = s;
  EXPECT_EQ(s, full);
  EXPECT_EQ(0, full.GetBytes()[3]);
}

TEST(ByteString, BadInputRaisesTheStandardTexts) {
  const uint8_t data[40] = {};
  try {
    ByteString s(data, 33);
    FAIL();
  } catch (const std::exception& e) {
    EXPECT_STREQ("MAX_BYTE_COUNT < inByteCount", e.what());
  }
  try {
    ByteString s(nullptr, 1);
    FAIL();
  } catch (const std::exception& e) {
    EXPECT_STREQ("null pointer inData", e.what());
  }

  // A record read in raw with a broken count.
  ByteString bad;
  const uint8_t broken[33] = {40};
  std::memcpy(static_cast<void*>(&bad), broken, 33);
  try {
    ByteString copy(bad);
    FAIL();
  } catch (const std::exception& e) {
    EXPECT_STREQ("MAX_BYTE_COUNT < inOriginal.m_nByteCount", e.what());
  }
  ByteString target = Str("keep");
  EXPECT_THROW(target = bad, std::length_error);
  EXPECT_EQ(Str("keep"), target);
}

TEST(ByteString, HashesOverTheBytesInUse) {
  using Traits = zemo::CHashTraits<ByteString>;
  EXPECT_EQ(97u * 33u + 98u, Traits::Hash(Str("ab")));
  EXPECT_EQ(0xFFu, Traits::Hash(Str("\xff")));  // bytes are unsigned

  zemo::CHashMap<ByteString, uint32_t> essids;
  essids.SetAt(Str("corp"), 1);
  essids.SetAt(Str("guest"), 2);
  essids.SetAt(Str("CORP"), 3);
  EXPECT_EQ(3u, essids.GetCount());
  EXPECT_EQ(1u, *essids.Lookup(Str("corp")));
  EXPECT_EQ(nullptr, essids.Lookup(Str("cor")));
}

}  // namespace
