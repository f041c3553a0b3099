#include "frame/array_ex.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <vector>

#include "platform/exception.h"

namespace {

using zemo::CArrayEx;
using zemo::CComparator;
using zemo::TArrayEx;
using zemo::TComparator;
using zemo::TIntComparator;
using zemo::TObjArrayEx;

constexpr LONG kLast = CArrayEx::kLastPosition;

struct Tagged {
  int32_t key;
  int32_t tag;
};
struct ByKey {
  bool operator()(const Tagged& a, const Tagged& b) const { return a.key < b.key; }
};
using TaggedComparator = TComparator<Tagged, ByKey>;

std::vector<int32_t> Tags(const TArrayEx<Tagged>& a) {
  std::vector<int32_t> out;
  for (const Tagged& t : a) out.push_back(t.tag);
  return out;
}
std::vector<ULONG> Values(const TArrayEx<ULONG>& a) { return std::vector<ULONG>(a.begin(), a.end()); }

TEST(ArrayEx, NewArrayIsEmptyAndSorted) {
  TArrayEx<ULONG> a;
  EXPECT_EQ(0, a.GetCount());
  EXPECT_EQ(nullptr, a.GetData());
  EXPECT_TRUE(a.IsSorted());
  EXPECT_FALSE(a.IsSortedMode());
  EXPECT_EQ(nullptr, a.GetComparator());
  EXPECT_EQ(nullptr, a.ElementAt(0));
  ULONG out = 0;
  EXPECT_FALSE(a.GetElement(0, &out));
  EXPECT_EQ(-1, a.Find(ULONG{1}));
  EXPECT_EQ(kLast, a.FindInsertPosition(ULONG{1}));
}

TEST(ArrayEx, GrowthAtLeastDoublesAndShrinkGivesBackWhatWasUsed) {
  TArrayEx<ULONG> a;
  std::vector<uint32_t> allocs;
  for (ULONG i = 0; i < 5; ++i) {
    EXPECT_EQ(static_cast<LONG>(i), a.Add(i));
    allocs.push_back(a.GetAllocatedBytes());
  }
  EXPECT_EQ((std::vector<uint32_t>{4, 8, 16, 16, 32}), allocs);
  EXPECT_EQ(20u, a.GetUsedBytes());
  EXPECT_FALSE(a.IsSorted());

  a.RemoveAt(2, 0);
  EXPECT_EQ(24u, a.GetAllocatedBytes());  // 32 less the 8 bytes removed
  EXPECT_EQ((std::vector<ULONG>{2, 3, 4}), Values(a));

  a.Reserve(10);
  EXPECT_EQ(52u, a.GetAllocatedBytes());
  a.SetCount(2);
  EXPECT_EQ(8u, a.GetAllocatedBytes());
  EXPECT_EQ((std::vector<ULONG>{2, 3}), Values(a));

  a.RemoveAll();
  EXPECT_EQ(0, a.GetCount());
  EXPECT_EQ(0u, a.GetAllocatedBytes());
  EXPECT_EQ(nullptr, a.GetData());
}

// An allocator that refuses anything above a limit.
class LimitedArray : public TArrayEx<ULONG> {
 public:
  uint32_t m_limit = UINT32_MAX;
  void Reallocate(uint32_t old, uint32_t bytes) override {
    if (bytes > m_limit) AtlThrow(E_OUTOFMEMORY);
    CArrayEx::Reallocate(old, bytes);
  }
};

TEST(ArrayEx, FailedAllocationLeavesTheArrayAsItWas) {
  LimitedArray a;
  for (ULONG v : {10u, 20u, 30u, 40u}) a.Add(v);
  ASSERT_EQ(16u, a.GetAllocatedBytes());
  a.m_limit = 16;

  try {
    a.Add(50);
    FAIL() << "no exception";
  } catch (const CAtlException& e) {
    EXPECT_EQ(E_OUTOFMEMORY, e.Status());
  }
  ULONG v = 5;
  EXPECT_THROW(a.InsertAt(1, 1, &v), CAtlException);
  EXPECT_THROW(a.SetCount(5), CAtlException);
  EXPECT_EQ(4, a.GetCount());
  EXPECT_EQ(16u, a.GetUsedBytes());
  EXPECT_EQ((std::vector<ULONG>{10, 20, 30, 40}), Values(a));
}

TEST(ArrayEx, UnsortedInsertClampsThePositionAndCopiesIntoEachNewElement) {
  TArrayEx<ULONG> a;
  ULONG seven = 7, eight = 8, nine = 9;
  EXPECT_EQ(-1, a.InsertAt(0, 0, &seven));
  EXPECT_EQ(0, a.InsertAt(2, -5, &seven));
  EXPECT_EQ(2, a.InsertAt(1, 1000, &eight));
  EXPECT_EQ(1, a.InsertAt(1, 1, &nine));
  EXPECT_EQ((std::vector<ULONG>{7, 9, 7, 8}), Values(a));
  EXPECT_FALSE(a.IsSorted());
}

TEST(ArrayEx, RemoveAtCutsAtTheEndAndKeepsOrder) {
  TArrayEx<ULONG> a;
  for (ULONG v = 0; v < 6; ++v) a.Add(v);
  a.RemoveAt(5, 5);  // only one element is left from there
  EXPECT_EQ((std::vector<ULONG>{0, 1, 2, 3, 4}), Values(a));
  a.RemoveAt(1, kLast);
  EXPECT_EQ((std::vector<ULONG>{0, 1, 2, 3}), Values(a));
  a.RemoveAt(1, 4);
  a.RemoveAt(1, -1);
  a.RemoveAt(0, 1);
  EXPECT_EQ(4, a.GetCount());
  a.RemoveAt(2, 1);
  EXPECT_EQ((std::vector<ULONG>{0, 3}), Values(a));
}

TEST(ArrayEx, GetAtCopiesTheSmallerSize) {
  TArrayEx<Tagged> a;
  a.Add(Tagged{0x11223344, 0x55667788});
  uint8_t buf[16];
  std::memset(buf, 0xEE, sizeof(buf));
  uint32_t size = 4;
  ASSERT_TRUE(a.GetAt(0, buf, &size));
  EXPECT_EQ(4u, size);
  int32_t key;
  std::memcpy(&key, buf, 4);
  EXPECT_EQ(0x11223344, key);
  EXPECT_EQ(0xEE, buf[4]);

  size = 16;
  ASSERT_TRUE(a.GetAt(0, buf, &size));
  EXPECT_EQ(8u, size);
  EXPECT_EQ(0xEE, buf[8]);
  EXPECT_FALSE(a.GetAt(1, buf, &size));
  EXPECT_FALSE(a.GetAt(-1, buf, &size));
}

TEST(ArrayEx, SwapAndMoveInUnsortedMode) {
  TArrayEx<ULONG> a;
  for (ULONG v : {0u, 1u, 2u, 3u, 4u}) a.Add(v);
  a.Move(0, 3);
  EXPECT_EQ((std::vector<ULONG>{1, 2, 3, 0, 4}), Values(a));
  a.Move(4, 1);
  EXPECT_EQ((std::vector<ULONG>{1, 4, 2, 3, 0}), Values(a));
  a.Swap(0, kLast);
  EXPECT_EQ((std::vector<ULONG>{0, 4, 2, 3, 1}), Values(a));
  a.Swap(1, 5);
  a.Move(2, 2);
  a.Move(-1, 0);
  EXPECT_EQ((std::vector<ULONG>{0, 4, 2, 3, 1}), Values(a));
}

TEST(ArrayEx, SortedModeKeepsOrderAndRefusesSwapAndMove) {
  TArrayEx<ULONG> a(TIntComparator<ULONG>::Instance(), false, true);
  EXPECT_EQ(-1, a.InsertAt(1, 0, nullptr));
  EXPECT_EQ(0, a.GetCount());

  for (ULONG v : {50u, 10u, 40u, 10u, 30u, 60u, 20u}) a.Add(v);
  EXPECT_EQ((std::vector<ULONG>{10, 10, 20, 30, 40, 50, 60}), Values(a));
  EXPECT_TRUE(a.IsSorted());
  EXPECT_EQ(-1, a.InsertAt(1, 3, nullptr));
  a.Swap(0, 6);
  a.Move(0, 6);
  EXPECT_EQ((std::vector<ULONG>{10, 10, 20, 30, 40, 50, 60}), Values(a));

  // A replaced value moves to where it belongs.
  ULONG five = 5;
  EXPECT_EQ(0, a.ReplaceAt(1, 4, &five));
  EXPECT_EQ((std::vector<ULONG>{5, 10, 10, 20, 30, 50, 60}), Values(a));
  EXPECT_EQ(4, a.Find(ULONG{30}));
  EXPECT_EQ(-1, a.Find(ULONG{31}));
  EXPECT_EQ(4, a.FindAndRemove(ULONG{30}));
  EXPECT_EQ(-1, a.FindAndRemove(ULONG{30}));
  EXPECT_EQ(6, a.GetCount());
}

TEST(ArrayEx, SortedModeSortsAnUnsortedArrayBeforeItsFirstInsert) {
  TArrayEx<ULONG> a(TIntComparator<ULONG>::Instance());
  for (ULONG v : {3u, 1u, 2u}) a.Add(v);
  ASSERT_FALSE(a.IsSorted());
  a.SetSortedMode(true);
  EXPECT_EQ(2, a.Add(ULONG{3}));
  EXPECT_EQ((std::vector<ULONG>{1, 2, 3, 3}), Values(a));
}

TEST(ArrayEx, InsertPositionAmongEqualsIsWhereTheSearchMetOne) {
  TArrayEx<Tagged> a(new TaggedComparator, true);
  // Keys 1 2 2 2 2 3 in tag order.
  const int keys[] = {1, 2, 2, 2, 2, 3};
  for (int i = 0; i < 6; ++i) a.Add(Tagged{keys[i], i});
  a.ShellSort();
  a.SetSortedMode(true);
  ASSERT_EQ((std::vector<int32_t>{0, 1, 2, 3, 4, 5}), Tags(a));
  // lo 0, hi 5: the first probe, index 2, is already equal.
  EXPECT_EQ(2, a.Add(Tagged{2, 99}));
  EXPECT_EQ((std::vector<int32_t>{0, 1, 99, 2, 3, 4, 5}), Tags(a));

  TArrayEx<Tagged> b(new TaggedComparator, true, true);
  b.Add(Tagged{1, 0});
  b.Add(Tagged{3, 1});
  EXPECT_EQ(1, b.FindInsertPosition(Tagged{2, 0}));  // last probe above: at it
  EXPECT_EQ(2, b.FindInsertPosition(Tagged{4, 0}));  // last probe below: after it
  EXPECT_EQ(0, b.FindInsertPosition(Tagged{0, 0}));

  // Keys 2 2 2 2: the first probe is index 1.
  TArrayEx<Tagged> c(new TaggedComparator, true, true);
  for (int i = 0; i < 4; ++i) c.Add(Tagged{2, i});
  EXPECT_EQ(1, c.Find(Tagged{2, -1}));
  EXPECT_EQ(1, c.Add(Tagged{2, 9}));
  EXPECT_EQ(9, c[1].tag);
}

TEST(ArrayEx, UnsortedFindTakesTheFirstMatchByEqual) {
  TArrayEx<Tagged> a(new TaggedComparator, true);
  for (Tagged t : {Tagged{5, 0}, Tagged{3, 1}, Tagged{3, 2}}) a.Add(t);
  EXPECT_EQ(1, a.Find(Tagged{3, 7}));
  EXPECT_EQ(-1, a.Find(Tagged{4, 7}));

  // The byte-wise base accepts anything not above the probe.
  TArrayEx<uint8_t> bytes(new CComparator, true);
  for (uint8_t v : {5, 3, 7}) bytes.Add(v);
  EXPECT_EQ(1, bytes.Find(uint8_t{4}));
  EXPECT_EQ(-1, bytes.Find(uint8_t{2}));
}

TEST(ArrayEx, UnsortedReplaceOverwritesUpToTheEnd) {
  TArrayEx<ULONG> a;
  for (ULONG v : {1u, 2u, 3u, 4u}) a.Add(v);
  ULONG nine = 9, eight = 8;
  EXPECT_EQ(2, a.ReplaceAt(5, 2, &nine));
  EXPECT_EQ((std::vector<ULONG>{1, 2, 9, 9}), Values(a));
  EXPECT_EQ(-1, a.ReplaceAt(1, 4, &nine));
  EXPECT_EQ(-1, a.ReplaceAt(0, 1, &nine));
  EXPECT_EQ(-1, a.ReplaceAt(1, 1, nullptr));
  EXPECT_EQ(3, a.ReplaceAt(1, kLast, &eight));
  EXPECT_EQ((std::vector<ULONG>{1, 2, 9, 8}), Values(a));
}

// Records the gap of every element moved inside the array by a sort pass.
class GapRecorder : public TArrayEx<ULONG> {
 public:
  GapRecorder() : TArrayEx<ULONG>(TIntComparator<ULONG>::Instance()) {}
  std::vector<LONG> m_gaps;
  void CopyElement(void* to, const void* from) override {
    auto* base = static_cast<uint8_t*>(GetData());
    auto* t = static_cast<uint8_t*>(to);
    auto* f = static_cast<const uint8_t*>(from);
    uint32_t bytes = GetUsedBytes();
    if (t >= base && t < base + bytes && f >= base && f < base + bytes) {
      LONG gap = static_cast<LONG>((t - f) / 4);
      if (m_gaps.empty() || m_gaps.back() != gap) m_gaps.push_back(gap);
    }
    CArrayEx::CopyElement(to, from);
  }
};

std::vector<LONG> SortGaps(ULONG count) {
  GapRecorder a;
  for (ULONG i = count; i > 0; --i) a.Add(i);
  a.ShellSort();
  std::vector<ULONG> expected;
  for (ULONG i = 1; i <= count; ++i) expected.push_back(i);
  EXPECT_EQ(expected, Values(a));
  EXPECT_TRUE(a.IsSorted());
  return a.m_gaps;
}

TEST(ArrayEx, ShellSortGapsFollowThreeTimesPlusOne) {
  EXPECT_EQ((std::vector<LONG>{13, 4, 1}), SortGaps(100));  // 40 would pass 100 / 9
  EXPECT_EQ((std::vector<LONG>{13, 4, 1}), SortGaps(36));
  EXPECT_EQ((std::vector<LONG>{4, 1}), SortGaps(35));
  EXPECT_EQ((std::vector<LONG>{4, 1}), SortGaps(9));
  EXPECT_EQ((std::vector<LONG>{1}), SortGaps(8));
}

TEST(ArrayEx, ShellSortKeepsEqualsInOrderWithinAPass) {
  // Eight elements sort in one pass of gap 1.
  TArrayEx<Tagged> a(new TaggedComparator, true);
  const int keys[] = {3, 1, 3, 2, 1, 3, 2, 1};
  for (int i = 0; i < 8; ++i) a.Add(Tagged{keys[i], i});
  a.ShellSort();
  EXPECT_EQ((std::vector<int32_t>{1, 4, 7, 3, 6, 0, 2, 5}), Tags(a));

  TArrayEx<Tagged> one(new TaggedComparator, true);
  one.Add(Tagged{1, 1});
  ASSERT_FALSE(one.IsSorted());
  one.ShellSort();
  EXPECT_TRUE(one.IsSorted());
  EXPECT_EQ(1, one[0].tag);
}

int CompareDescending(const void* a, const void* b) {
  ULONG x = *static_cast<const ULONG*>(a), y = *static_cast<const ULONG*>(b);
  return x > y ? -1 : (x < y ? 1 : 0);
}

TEST(ArrayEx, QuickSortUsesTheSortFunctionOnlyWhenUnsorted) {
  TArrayEx<ULONG> a;
  a.SetSortFunction(CompareDescending);
  for (ULONG v : {2u, 9u, 4u}) a.Add(v);
  a.QuickSort();
  EXPECT_EQ((std::vector<ULONG>{9, 4, 2}), Values(a));
  EXPECT_TRUE(a.IsSorted());
  a[0] = 1;  // not noticed: the array believes it is sorted
  a.QuickSort();
  EXPECT_EQ((std::vector<ULONG>{1, 4, 2}), Values(a));
}

TEST(ArrayEx, IntComparatorOrdersByWrappingDifference) {
  auto* cmp = TIntComparator<ULONG>::Instance();
  EXPECT_EQ(cmp, TIntComparator<ULONG>::Instance());
  ULONG zero = 0, big = 0x90000000u, three = 3;
  EXPECT_LT(cmp->Compare(&big, &zero, 4, 4), 0);  // 0x90000000 - 0 is negative as i32
  EXPECT_EQ(-3, cmp->CompareValues(&zero, &three));
  EXPECT_FALSE(cmp->Equal(&zero, &three, 4, 4));

  {
    TArrayEx<ULONG> a(cmp, false, true);
    TArrayEx<ULONG> b(cmp, false, true);
    a.Add(zero);
    EXPECT_EQ(0, a.Add(big));
    b.Add(three);
  }  // neither array deletes the shared instance
  EXPECT_EQ(0, cmp->CompareValues(&three, &three));
}

TEST(ArrayEx, ByteComparatorComparesOverTheShorterLength) {
  CComparator c;
  const uint8_t ab[] = {'a', 'b'}, abc[] = {'a', 'b', 'c'}, hi[] = {0x80};
  EXPECT_EQ(0, c.Compare(ab, abc, 2, 3));
  EXPECT_EQ(1, c.Compare(hi, ab, 1, 2));  // bytes are unsigned
  EXPECT_EQ(-1, c.Compare(ab, hi, 2, 1));
  EXPECT_EQ(1, c.CompareKey(ab, ab, 2, 2));
  EXPECT_FALSE(c.EqualKey(ab, ab, 2, 2));
  CComparator* copy = TIntComparator<ULONG>::Instance()->Clone();
  ULONG x = 1, y = 2;
  EXPECT_EQ(-1, copy->Compare(&x, &y, 4, 4));  // the clone is of the same class
  delete copy;
}

struct Channel {
  uint16_t number;
  uint16_t band;
};
struct ByNumber {
  bool operator()(const Channel& a, const Channel& b) const { return a.number < b.number; }
};
// Orders channels by number; the key form is the bare number.
class ChannelComparator : public TComparator<Channel, ByNumber> {
 public:
  int CompareKey(const void* element, const void* key, uint32_t, uint32_t) const override {
    return static_cast<const Channel*>(element)->number - *static_cast<const uint16_t*>(key);
  }
  bool EqualKey(const void* e, const void* k, uint32_t se, uint32_t sk) const override {
    return CompareKey(e, k, se, sk) == 0;
  }
};

TEST(ArrayEx, KeySearchUsesTheKeyForm) {
  TArrayEx<Channel> a(new ChannelComparator, true, true);
  for (uint16_t n : {11, 1, 6, 36}) a.Add(Channel{n, static_cast<uint16_t>(n > 14 ? 5 : 2)});
  uint16_t key = 6;
  EXPECT_EQ(1, a.FindKey(&key, 2));
  key = 7;
  EXPECT_EQ(-1, a.FindKey(&key, 2));
  EXPECT_EQ(2, a.FindKeyInsertPosition(&key, 2));
  a.SetSortedMode(false);
  a.Swap(0, 3);
  key = 1;
  EXPECT_EQ(3, a.FindKey(&key, 2));  // unsorted now: linear by EqualKey
}

struct Counted {
  static inline std::vector<int> s_deleted;
  static inline int s_next = 0;
  int id = s_next++;
  ~Counted() { s_deleted.push_back(id); }
};

TEST(ArrayEx, ObjectArrayOwnsItsElements) {
  Counted::s_deleted.clear();
  Counted::s_next = 0;
  {
    TObjArrayEx<Counted> a;
    a.SetCount(4);
    ASSERT_EQ(4, a.GetCount());
    EXPECT_EQ(3, a[3].id);
    a.SetCount(1);
    EXPECT_EQ((std::vector<int>{3, 2, 1}), Counted::s_deleted);
    a.SetCount(2);
    EXPECT_EQ(4, a.GetAt(1)->id);
    EXPECT_EQ(nullptr, a.GetAt(2));

    Counted stray;
    Counted* p = &stray;
    EXPECT_EQ(-1, a.Add(&p));
    EXPECT_EQ(-1, a.InsertAt(1, 0, &p));
    EXPECT_EQ(-1, a.ReplaceAt(1, 0, &p));
    EXPECT_EQ(-1, a.FindAndRemove(&p));
    a.RemoveAt(1, 0);
    EXPECT_EQ(2, a.GetCount());
    Counted::s_deleted.clear();
  }
  // stray (id 5) goes first as a local, then the array's 4 and 0.
  EXPECT_EQ((std::vector<int>{5, 4, 0}), Counted::s_deleted);

  TObjArrayEx<Counted> b;
  b.SetCount(3);
  b.RemoveAll();
  EXPECT_EQ(0, b.GetCount());
  EXPECT_EQ(nullptr, b.GetData());
}

}  // namespace
