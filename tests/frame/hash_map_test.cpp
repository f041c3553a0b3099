#include "frame/hash_map.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/unknown.h"
#include "platform/variant.h"

namespace {

using zemo::CHashMap;

// The key is its own hash, so tests can place entries in chosen bins.
struct CountingTraits {
  using Arg = uint32_t;
  static inline int s_hashes = 0;
  static inline int s_equals = 0;
  static uint32_t Hash(uint32_t k) {
    ++s_hashes;
    return k;
  }
  static bool Equal(uint32_t a, uint32_t b) {
    ++s_equals;
    return a == b;
  }
};
using IdMap = CHashMap<uint32_t, int, CountingTraits>;

std::vector<uint32_t> WalkKeys(const IdMap& m) {
  std::vector<uint32_t> keys;
  for (auto& p : m) keys.push_back(p.m_key);
  return keys;
}

TEST(HashMap, BinsAppearAtFirstInsertAndGrowAtThe39th) {
  IdMap m;
  EXPECT_FALSE(m.HasBins());
  EXPECT_EQ(17u, m.GetBinCount());
  EXPECT_EQ(nullptr, m.Lookup(5));
  EXPECT_FALSE(m.RemoveKey(5));
  EXPECT_EQ(m.begin(), m.end());

  for (uint32_t i = 0; i < 38; ++i) m.SetAt(i, static_cast<int>(i));
  EXPECT_TRUE(m.HasBins());
  EXPECT_EQ(17u, m.GetBinCount());
  m.SetAt(38, 38);
  EXPECT_EQ(53u, m.GetBinCount());
  EXPECT_EQ(119u, m.GetHighRehashThreshold());
  EXPECT_EQ(0u, m.GetLowRehashThreshold());  // 13 is below 17

  for (uint32_t i = 39; i < 119; ++i) m.SetAt(i, static_cast<int>(i));
  EXPECT_EQ(53u, m.GetBinCount());
  m.SetAt(119, 119);
  EXPECT_EQ(163u, m.GetBinCount());  // 120 / 0.75 = 160
  EXPECT_EQ(40u, m.GetLowRehashThreshold());

  for (uint32_t i = 0; i < 80; ++i) ASSERT_TRUE(m.RemoveKey(i));
  EXPECT_EQ(163u, m.GetBinCount());  // 40 left: not below the threshold
  ASSERT_TRUE(m.RemoveKey(80));
  EXPECT_EQ(53u, m.GetBinCount());  // 39 / 0.75 = 52
  for (uint32_t i = 81; i < 120; ++i) EXPECT_EQ(static_cast<int>(i), *m.Lookup(i));
}

TEST(HashMap, PickSizeTakesTheFirstListedSizeNotBelowLoad) {
  EXPECT_EQ(17u, IdMap::PickSize(0));
  EXPECT_EQ(17u, IdMap::PickSize(12));   // 16
  EXPECT_EQ(17u, IdMap::PickSize(13));   // 17.33
  EXPECT_EQ(23u, IdMap::PickSize(14));   // 18.67
  EXPECT_EQ(257u, IdMap::PickSize(193));  // 257.33
  EXPECT_EQ(331u, IdMap::PickSize(194));  // 258.67
  EXPECT_EQ(0xFFFFFFFFu, IdMap::PickSize(10000000));
}

TEST(HashMap, ChainsKeepHeadInsertionAndFlipOnRehash) {
  // 901 = 17 * 53: every key shares bin 0 before and after the rehash.
  IdMap m;
  std::vector<uint32_t> inserted;
  for (uint32_t i = 0; i < 38; ++i) {
    m.SetAt(i * 901, 0);
    inserted.push_back(i * 901);
  }
  std::vector<uint32_t> newestFirst(inserted.rbegin(), inserted.rend());
  EXPECT_EQ(newestFirst, WalkKeys(m));

  m.SetAt(38 * 901, 0);
  inserted.push_back(38 * 901);
  ASSERT_EQ(53u, m.GetBinCount());
  // The old chain is walked from its head and each node pushed onto the new
  // head, so the new chain runs oldest first.
  EXPECT_EQ(inserted, WalkKeys(m));

  ASSERT_TRUE(m.RemoveKey(0));
  ASSERT_TRUE(m.RemoveKey(10 * 901));
  ASSERT_TRUE(m.RemoveKey(38 * 901));
  std::vector<uint32_t> left;
  for (uint32_t k : inserted)
    if (k != 0 && k != 10 * 901 && k != 38 * 901) left.push_back(k);
  EXPECT_EQ(left, WalkKeys(m));
}

TEST(HashMap, WalkGoesBinAfterBin) {
  IdMap m;
  // Bins 5, 0, 5, 16, 0 with 17 bins.
  for (uint32_t k : {5u, 17u, 22u, 16u, 0u}) m.SetAt(k, 0);
  EXPECT_EQ((std::vector<uint32_t>{0, 17, 22, 5, 16}), WalkKeys(m));
  int visited = 0;
  m.ForEach([&](uint32_t, int& v) {
    v = ++visited;
  });
  EXPECT_EQ(5, visited);
  EXPECT_EQ(1, *m.Lookup(0));
  EXPECT_EQ(5, *m.Lookup(16));
}

TEST(HashMap, StoredHashIsComparedBeforeTheKeyAndReusedOnRehash) {
  IdMap m;
  m.SetAt(0, 1);
  m.SetAt(17, 2);  // same bin, other hash
  CountingTraits::s_equals = 0;
  EXPECT_EQ(1, *m.Lookup(0));
  EXPECT_EQ(1, CountingTraits::s_equals);
  EXPECT_EQ(nullptr, m.Lookup(34));
  EXPECT_EQ(1, CountingTraits::s_equals);

  CountingTraits::s_hashes = 0;
  for (uint32_t i = 100; i < 200; ++i) m.SetAt(i, 0);
  EXPECT_EQ(53u, m.GetBinCount());
  EXPECT_EQ(100, CountingTraits::s_hashes);
}

TEST(HashMap, LockHoldsTheBinCount) {
  IdMap m;
  m.DisableAutoRehash();
  for (uint32_t i = 0; i < 60; ++i) m.SetAt(i, 0);
  EXPECT_EQ(17u, m.GetBinCount());
  m.EnableAutoRehash();
  EXPECT_EQ(17u, m.GetBinCount());
  m.SetAt(60, 0);
  EXPECT_EQ(83u, m.GetBinCount());  // 61 / 0.75 = 81

  for (uint32_t i = 61; i < 200; ++i) m.SetAt(i, 0);
  ASSERT_EQ(257u, m.GetBinCount());  // low threshold 64
  m.DisableAutoRehash();
  for (uint32_t i = 0; i < 190; ++i) m.RemoveKey(i);
  EXPECT_EQ(257u, m.GetBinCount());
  m.EnableAutoRehash();
  m.RemoveKey(190);
  EXPECT_EQ(17u, m.GetBinCount());
  EXPECT_EQ(9u, m.GetCount());
}

TEST(HashMap, NodesComeFromBlocksOfTenAndBlocksGoWithTheLastEntry) {
  IdMap m;
  for (uint32_t i = 0; i < 10; ++i) m.SetAt(i, 0);
  EXPECT_EQ(1u, m.GetBlockCount());
  m.SetAt(10, 0);
  EXPECT_EQ(2u, m.GetBlockCount());
  m.RemoveKey(3);
  m.SetAt(11, 0);  // takes the freed node
  EXPECT_EQ(2u, m.GetBlockCount());
  m.SetAt(12, 0);
  m.SetAt(3, 0);
  EXPECT_EQ(2u, m.GetBlockCount());
  EXPECT_EQ(13u, m.GetCount());

  for (uint32_t i = 0; i <= 12; ++i) ASSERT_TRUE(m.RemoveKey(i));
  EXPECT_EQ(0u, m.GetBlockCount());
  EXPECT_TRUE(m.IsEmpty());
  m.SetAt(7, 70);
  EXPECT_EQ(70, *m.Lookup(7));
  EXPECT_EQ(1u, m.GetBlockCount());
}

TEST(HashMap, ValuesStayPutAcrossRehash) {
  IdMap m;
  int& first = m.SetAt(1, 11);
  for (uint32_t i = 2; i < 500; ++i) m.SetAt(i, static_cast<int>(i) * 11);
  EXPECT_EQ(&first, m.Lookup(1));
  EXPECT_EQ(11, first);
  EXPECT_EQ(&first, &m.SetAt(1, 12));
  EXPECT_EQ(12, first);
  EXPECT_EQ(499u, m.GetCount());
}

TEST(HashMap, ClsidKeysHashToTheXorOfTheirWords) {
  // Words: 0x10, 0x00000002, 0x00000003, 0x04000000.
  constexpr CLSID id = MakeGuid("00000010-0002-0000-0300-000000000004");
  EXPECT_EQ(0x04000011u, zemo::CHashTraits<CLSID>::Hash(id));

  CHashMap<CLSID, zemo::CVariant> m;
  m.SetAt(id, zemo::CVariant::Str(u"first"));
  constexpr CLSID other = MakeGuid("00000011-0002-0000-0300-000000000004");
  m.SetAt(other, zemo::CVariant::I4(7));
  m.SetAt(id, zemo::CVariant::Str(u"second"));
  ASSERT_EQ(2u, m.GetCount());
  const zemo::CVariant* v = m.Lookup(id);
  ASSERT_NE(nullptr, v);
  ASSERT_EQ(VT_BSTR, v->vt);
  EXPECT_EQ(std::u16string(u"second"), v->bstrVal);
  EXPECT_EQ(7, m.Lookup(other)->lVal);
}

TEST(HashMap, TextKeysIgnoreLetterCase) {
  using Traits = zemo::CWideNoCaseTraits;
  EXPECT_EQ(65u * 33u + 66u, Traits::Hash(u"ab"));
  EXPECT_EQ(Traits::Hash(u"ab"), Traits::Hash(u"AB"));
  EXPECT_EQ(0u, Traits::Hash(u""));

  CHashMap<std::u16string, int> m;
  m.SetAt(u"Name", 1);
  m.SetAt(u"NAME", 2);
  m[u"nAmE"] += 10;
  ASSERT_EQ(1u, m.GetCount());
  EXPECT_EQ(u"Name", m.begin()->m_key);  // the first spelling stays
  EXPECT_EQ(12, *m.Lookup(u"name"));
  EXPECT_EQ(nullptr, m.Lookup(u"Names"));
  EXPECT_TRUE(m.RemoveKey(u"NAME"));
  EXPECT_TRUE(m.IsEmpty());
}

struct Tracked {
  static inline int s_live = 0;
  static inline bool s_fail = false;
  explicit Tracked(int v) : m_v(v) {
    if (s_fail) throw std::runtime_error("no");
    ++s_live;
  }
  Tracked(const Tracked& o) : m_v(o.m_v) { ++s_live; }
  Tracked& operator=(const Tracked&) = default;
  ~Tracked() { --s_live; }
  int m_v;
};

TEST(HashMap, ValuesAreBuiltAndDestroyedWithTheirEntries) {
  Tracked::s_live = 0;
  {
    CHashMap<uint32_t, Tracked, CountingTraits> m;
    for (uint32_t i = 0; i < 25; ++i) m.SetAt(i, Tracked(static_cast<int>(i)));
    EXPECT_EQ(25, Tracked::s_live);
    m.RemoveKey(3);
    EXPECT_EQ(24, Tracked::s_live);

    Tracked::s_fail = true;
    EXPECT_THROW(m.SetAt(100, 1), std::runtime_error);
    Tracked::s_fail = false;
    EXPECT_EQ(24u, m.GetCount());
    EXPECT_EQ(nullptr, m.Lookup(100));

    m.RemoveAll();
    EXPECT_EQ(0, Tracked::s_live);
    EXPECT_EQ(17u, m.GetBinCount());
    EXPECT_FALSE(m.HasBins());
    for (uint32_t i = 0; i < 5; ++i) m.SetAt(i, Tracked(1));
  }
  EXPECT_EQ(0, Tracked::s_live);
}

struct Probe : IUnknown {
  int refs = 0;
  HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return ++refs; }
  ULONG Release() override { return --refs; }
};

TEST(HashMap, OwnedReferencesAreReleasedOnRemoveAndDestruction) {
  Probe a, b;
  {
    CHashMap<CLSID, zemo::ComPtr<IUnknown>> m;
    m.SetAt(MakeGuid("00000001-0000-0000-0000-000000000000"), zemo::ComPtr<IUnknown>(&a));
    m.SetAt(MakeGuid("00000002-0000-0000-0000-000000000000"), zemo::ComPtr<IUnknown>(&b));
    EXPECT_EQ(1, a.refs);
    m.SetAt(MakeGuid("00000001-0000-0000-0000-000000000000"), zemo::ComPtr<IUnknown>(&b));
    EXPECT_EQ(0, a.refs);
    EXPECT_EQ(2, b.refs);
    m.RemoveKey(MakeGuid("00000002-0000-0000-0000-000000000000"));
    EXPECT_EQ(1, b.refs);
  }
  EXPECT_EQ(0, b.refs);
}

}  // namespace
