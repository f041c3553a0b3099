#include "frame/key_index.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using zemo::CKeyIndex;

// Tags that are the keys themselves, counting up as identifiers do: every
// one is found across the doublings, and the index never passes three
// quarters full.
TEST(KeyIndex, FindsEveryKeyAcrossGrowthAndForgetsAllOnClear) {
  CKeyIndex index;
  EXPECT_EQ(CKeyIndex::kNone, index.Find(5, CKeyIndex::AnyRecord{}));
  EXPECT_EQ(0u, index.GetCapacity());
  constexpr uint32_t kKeys = 100000;
  for (uint32_t i = 0; i < kKeys; ++i) {
    index.Reserve();
    index.Insert(0x05000000u | i, i);
    ASSERT_LE(uint64_t{index.GetCount()} * 4, uint64_t{index.GetCapacity()} * 3);
  }
  EXPECT_EQ(kKeys, index.GetCount());
  EXPECT_EQ(262144u, index.GetCapacity());  // 131072 would pass three quarters
  for (uint32_t i = 0; i < kKeys; ++i) ASSERT_EQ(i, index.Find(0x05000000u | i, CKeyIndex::AnyRecord{}));
  EXPECT_EQ(CKeyIndex::kNone, index.Find(0x05000000u | kKeys, CKeyIndex::AnyRecord{}));

  index.Clear();
  EXPECT_EQ(0u, index.GetCapacity());
  EXPECT_EQ(CKeyIndex::kNone, index.Find(0x05000000u, CKeyIndex::AnyRecord{}));
}

// Hashed tags: records that share a tag are told apart by the caller's
// test, and a tag alone never answers.
TEST(KeyIndex, SharedTagsAreSettledByTheRecord) {
  std::vector<uint32_t> keys;
  CKeyIndex index;
  for (uint32_t i = 0; i < 1000; ++i) {
    keys.push_back(i * 7919u);
    index.Reserve();
    index.Insert(i % 3, i);  // three tags for a thousand records
  }
  for (uint32_t i = 0; i < 1000; i += 97) {
    uint32_t want = keys[i];
    EXPECT_EQ(i, index.Find(i % 3, [&](uint32_t r) { return keys[r] == want; }));
    EXPECT_EQ(CKeyIndex::kNone, index.Find((i + 1) % 3, [&](uint32_t r) { return keys[r] == want; }));
  }
  EXPECT_EQ(CKeyIndex::kNone, index.Find(7, CKeyIndex::AnyRecord{}));

  EXPECT_NE(CKeyIndex::HashWords(1, 2, 3), CKeyIndex::HashWords(2, 1, 3));
}

}  // namespace
