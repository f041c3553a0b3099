#include "frame/ref_array.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/unknown.h"

namespace {

using zemo::TRefArray;

struct Counted : IUnknown {
  int refs = 0;
  std::vector<int>* releases = nullptr;
  int id = 0;
  HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return ++refs; }
  ULONG Release() override {
    if (releases) releases->push_back(id);
    return --refs;
  }
};

TEST(RefArray, GrowthStepIsAnEighthHeldBetweenFourAndAThousand) {
  Counted c;
  TRefArray<IUnknown> a;
  std::vector<LONG> sizes;
  while (a.GetCount() < 75) {
    a.Add(&c);
    if (sizes.empty() || sizes.back() != a.GetAllocated()) sizes.push_back(a.GetAllocated());
  }
  // Steps of 4 until the count reaches 40, then count / 8 at each full array.
  EXPECT_EQ((std::vector<LONG>{4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 45, 50, 56, 63, 70, 78}), sizes);
  while (a.GetCount() < 8192) a.Add(&c);
  LONG before = a.GetAllocated();
  while (a.GetCount() < before) a.Add(&c);
  a.Add(&c);
  EXPECT_EQ(before + 1024, a.GetAllocated());
  EXPECT_EQ(a.GetCount(), c.refs);
}

TEST(RefArray, KeepsInsertionOrderAndClosesGaps) {
  Counted items[5];
  for (int i = 0; i < 5; ++i) items[i].id = i;
  TRefArray<IUnknown> a;
  for (Counted& c : items) a.Add(&c);
  EXPECT_EQ(0, a.InsertAt(-3, &items[4]));
  EXPECT_EQ(2, items[4].refs);

  ASSERT_TRUE(a.RemoveAt(2));  // items[1]
  EXPECT_EQ(0, items[1].refs);
  EXPECT_TRUE(a.Remove(&items[4]));  // the first of the two
  EXPECT_FALSE(a.RemoveAt(4));
  std::vector<IUnknown*> order(a.begin(), a.end());
  EXPECT_EQ((std::vector<IUnknown*>{&items[0], &items[2], &items[3], &items[4]}), order);
  EXPECT_EQ(3, a.Find(&items[4]));
  EXPECT_EQ(-1, a.Find(&items[1]));
  EXPECT_EQ(nullptr, a.GetAt(4));

  IUnknown* out = nullptr;
  ASSERT_TRUE(a.CopyTo(1, &out));
  EXPECT_EQ(&items[2], out);
  EXPECT_EQ(2, items[2].refs);
  out->Release();
  EXPECT_FALSE(a.CopyTo(9, &out));
}

TEST(RefArray, DestructionReleasesEveryEntryInOrder) {
  std::vector<int> releases;
  Counted items[3];
  for (int i = 0; i < 3; ++i) {
    items[i].id = i;
    items[i].releases = &releases;
  }
  {
    TRefArray<IUnknown> a;
    a.Add(&items[2]);
    a.Add(nullptr);
    a.Add(&items[0]);
    a.Add(&items[1]);
  }
  EXPECT_EQ((std::vector<int>{2, 0, 1}), releases);
  for (Counted& c : items) EXPECT_EQ(0, c.refs);
}

// A release that looks at the array sees the entry already gone.
struct Watcher : Counted {
  TRefArray<IUnknown>* array = nullptr;
  LONG seenCount = -1;
  ULONG Release() override {
    if (array) seenCount = array->GetCount();
    return Counted::Release();
  }
};

TEST(RefArray, EntryLeavesBeforeItIsReleased) {
  Watcher w;
  Counted other;
  TRefArray<IUnknown> a;
  a.Add(&other);
  a.Add(&w);
  w.array = &a;
  a.RemoveAt(1);
  EXPECT_EQ(1, w.seenCount);
  a.Add(&w);
  a.RemoveAll();
  EXPECT_EQ(0, w.seenCount);
  EXPECT_EQ(0, other.refs);
}

}  // namespace
