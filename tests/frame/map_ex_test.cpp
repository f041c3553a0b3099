#include "frame/map_ex.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace {

using ShortMap = zemo::TMapEx<short, short, ULONG, ULONG>;
using UnitMap = zemo::TMapEx<unsigned int, unsigned int, const char16_t*, const char16_t*>;

TEST(MapEx, ShortKeysAreSignWidenedBeforeTheModulo) {
  ShortMap m;
  // 2^32 - 1 = 65535 * 65537 and 257 divides 65535.
  EXPECT_EQ(0u, m.BucketOf(-1));
  EXPECT_EQ(2u, m.BucketOf(-256));  // 2^32 - 256, and 2^32 leaves 1
  EXPECT_EQ(1u, m.BucketOf(258));
  // With 7 buckets the widening shows: 0xFFFFFFFF leaves 3, 0xFFFF would leave 1.
  EXPECT_EQ(3u, ShortMap(7).BucketOf(-1));

  m.SetAt(-1, 10);
  m.SetAt(0, 20);  // same bucket as -1
  m.SetAt(-1, 11);
  EXPECT_EQ(2u, m.GetCount());
  ULONG v = 0;
  ASSERT_TRUE(m.Lookup(-1, v));
  EXPECT_EQ(11u, v);
  ASSERT_TRUE(m.Lookup(0, v));
  EXPECT_EQ(20u, v);
  EXPECT_FALSE(m.Lookup(257, v));
}

TEST(MapEx, SetsUpAtTheFirstInsertAndClearReturnsToNotSetUp) {
  UnitMap m;
  EXPECT_FALSE(m.IsSetUp());
  EXPECT_EQ(0u, m.GetBucketCount());
  const char16_t* v = nullptr;
  EXPECT_FALSE(m.Lookup(1, v));
  EXPECT_EQ(nullptr, m.FindFirst(1));

  m.SetAt(1, u"packets");
  EXPECT_TRUE(m.IsSetUp());
  EXPECT_EQ(257u, m.GetBucketCount());
  m.Clear();
  EXPECT_FALSE(m.IsSetUp());
  EXPECT_EQ(0u, m.GetCount());
  EXPECT_FALSE(m.Lookup(1, v));
  m.SetAt(2, u"bytes");
  ASSERT_TRUE(m.Lookup(2, v));
  EXPECT_EQ(std::u16string(u"bytes"), v);

  zemo::TMapEx<unsigned int, unsigned int, int, int> small(7);
  small.Add(3, 0);
  EXPECT_EQ(7u, small.GetBucketCount());
}

TEST(MapEx, AddFilesDuplicatesThatABucketWalkFindsNewestFirst) {
  ShortMap m;
  m.Add(6, 1);
  m.Add(6 + 257, 2);  // same bucket, other key
  m.Add(6, 3);
  m.Add(6, 4);
  EXPECT_EQ(4u, m.GetCount());

  std::vector<ULONG> found;
  for (auto* n = m.FindFirst(6); n; n = m.FindNext(n)) found.push_back(n->m_value);
  EXPECT_EQ((std::vector<ULONG>{4, 3, 1}), found);

  // SetAt changes only the first node it meets.
  m.SetAt(6, 40);
  found.clear();
  for (auto* n = m.FindFirst(6); n; n = m.FindNext(n)) found.push_back(n->m_value);
  EXPECT_EQ((std::vector<ULONG>{40, 3, 1}), found);

  // The node list keeps insertion order.
  std::vector<ULONG> inOrder;
  for (uint32_t i = 0; i < m.GetCount(); ++i) inOrder.push_back(m.GetNodeAt(i)->m_value);
  EXPECT_EQ((std::vector<ULONG>{1, 2, 3, 40}), inOrder);
  EXPECT_EQ(nullptr, m.GetNodeAt(4));
}

TEST(MapEx, ManyKeysSurviveSharingBuckets) {
  UnitMap m;
  static const char16_t* const kNames[] = {u"a", u"b", u"c"};
  for (unsigned int k = 0; k < 2000; ++k) m.SetAt(k * 7, kNames[k % 3]);
  EXPECT_EQ(2000u, m.GetCount());
  for (unsigned int k = 0; k < 2000; ++k) {
    const char16_t* v = nullptr;
    ASSERT_TRUE(m.Lookup(k * 7, v));
    ASSERT_EQ(kNames[k % 3], v);
  }
  const char16_t* v = nullptr;
  EXPECT_FALSE(m.Lookup(1, v));
}

}  // namespace
