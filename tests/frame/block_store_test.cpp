#include "frame/block_store.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

namespace {

using zemo::CBlockStore;
using zemo::TBlockStore;

struct Rec {
  uint32_t id;
  uint32_t value;
};

TEST(BlockStore, WantedLengthRoundsDownToAPowerOfTwo) {
  EXPECT_EQ(64u, CBlockStore(8, 100).GetRecordsPerBlock());
  EXPECT_EQ(6u, CBlockStore(8, 100).GetShift());
  EXPECT_EQ(128u, CBlockStore(8, 128).GetRecordsPerBlock());
  EXPECT_EQ(32768u, CBlockStore(8, 0xFFFF).GetRecordsPerBlock());
  EXPECT_EQ(4u, CBlockStore(8, 0x10004).GetRecordsPerBlock());  // only the low 16 bits count
  EXPECT_EQ(1u, CBlockStore(8, 0x10000).GetRecordsPerBlock());
}

TEST(BlockStore, RecordsStraddleBlocksAtTheBoundary) {
  TBlockStore<Rec> s(100);
  EXPECT_EQ(nullptr, s.Get(0));
  EXPECT_EQ(nullptr, s.Get(CBlockStore::kLastIndex));

  s.SetCount(65);
  EXPECT_EQ(2u, s.GetBlockCount());
  EXPECT_EQ(128u, s.GetCapacity());
  Rec* r62 = s.Get(62);
  Rec* r63 = s.Get(63);
  Rec* r64 = s.Get(64);
  EXPECT_EQ(r62 + 1, r63);  // same block
  ASSERT_NE(nullptr, r64);
  EXPECT_EQ(r63, s.Get(0) + 63);
  // Writing through every pointer is checked by the address sanitizer.
  for (uint32_t i = 0; i < 65; ++i) s.Get(i)->id = i;
  EXPECT_EQ(63u, r63->id);
  EXPECT_EQ(64u, r64->id);
  EXPECT_EQ(r64, s.Get(CBlockStore::kLastIndex));
  EXPECT_EQ(nullptr, s.Get(65));
  EXPECT_EQ(nullptr, s.Get(0xFFFFFFFFu));
}

TEST(BlockStore, RecordsDoNotMoveWhileTheStoreGrows) {
  TBlockStore<Rec> s(4);
  s.SetCount(3);
  Rec* first = s.Get(0);
  first->value = 7;
  for (uint32_t i = 0; i < 1000; ++i) s.Append()->id = i + 3;
  EXPECT_EQ(1003u, s.GetCount());
  EXPECT_EQ(first, s.Get(0));
  EXPECT_EQ(7u, first->value);
  EXPECT_EQ(1002u, s.Get(CBlockStore::kLastIndex)->id);
  for (uint32_t i = 3; i < 1003; ++i) ASSERT_EQ(i, s[i].id);
}

TEST(BlockStore, ShrinkKeepsOneSpareBlockAndRegrowZeroFills) {
  TBlockStore<Rec> s(64);
  s.SetCount(200);  // blocks 0..3
  for (uint32_t i = 0; i < 200; ++i) s[i] = Rec{i, 0xAAAAAAAA};
  ASSERT_EQ(4u, s.GetBlockCount());

  s.SetCount(70);  // block 1 is in use, 2 and 3 go
  EXPECT_EQ(2u, s.GetBlockCount());
  EXPECT_EQ(128u, s.GetCapacity());
  EXPECT_EQ(nullptr, s.Get(70));

  s.SetCount(64);  // block 1 stays as the spare
  EXPECT_EQ(2u, s.GetBlockCount());
  s.SetCount(0);
  EXPECT_EQ(1u, s.GetBlockCount());
  EXPECT_EQ(64u, s.GetCapacity());
  EXPECT_EQ(nullptr, s.Get(CBlockStore::kLastIndex));

  s.SetCount(100);
  for (uint32_t i = 0; i < 100; ++i) {
    ASSERT_EQ(0u, s[i].id) << i;
    ASSERT_EQ(0u, s[i].value) << i;
  }
  s[5].value = 9;
  s[50].value = 9;
  s.SetCount(10);
  s.SetCount(60);
  EXPECT_EQ(9u, s[5].value);  // kept records keep their data
  EXPECT_EQ(0u, s[50].value);
  s[10].value = 5;
  s.SetCount(10);
  Rec* appended = s.Append();
  EXPECT_EQ(&s[10], appended);
  EXPECT_EQ(0u, appended->value);
}

TEST(BlockStore, ClearFreesEverything) {
  CBlockStore s(3, 16);
  s.SetCount(40);
  std::memset(s.Get(39), 0x55, 3);
  s.Clear();
  EXPECT_EQ(0u, s.GetCount());
  EXPECT_EQ(0u, s.GetCapacity());
  EXPECT_EQ(0u, s.GetBlockCount());
  s.SetCount(40);
  const uint8_t zero[3] = {};
  EXPECT_EQ(0, std::memcmp(zero, s.Get(39), 3));
}

TEST(BlockStore, TooManyBlocksRaisesTheDequeLengthError) {
  CBlockStore s(1, 1);
  try {
    s.SetCount(0x10000000u);
    FAIL() << "no exception";
  } catch (const std::length_error& e) {
    EXPECT_STREQ("deque<T> too long", e.what());
  }
  EXPECT_EQ(0u, s.GetCount());
  EXPECT_EQ(0u, s.GetBlockCount());

  CBlockStore wide(1, 0x8000);
  EXPECT_THROW(wide.SetCount(0xFFFFFFFFu), std::length_error);  // capacity would pass 32 bits
}

}  // namespace
