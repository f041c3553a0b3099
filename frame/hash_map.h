// Chained hash map for keyed sets that are mostly read: a context's statistics
// by CLSID, a snapshot's items by id, a property list by case-blind name.
//
// Nodes come from blocks of ten and go back to a free list, so most inserts
// never reach the allocator, and a node never moves: a pointer to a value
// stays good until that entry is removed. Each node keeps its full hash,
// which makes a rehash a relink and lets a lookup skip unequal keys cheaply.
// The walk order is bin after bin, chain by chain; it has nothing to do with
// insertion order and changes when the map rehashes.
#pragma once

#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/guid.h"
#include "platform/strings.h"
#include "platform/types.h"

namespace zemo {

// Traits give the hash of a key and its equality with a lookup argument.
// `Arg` is what lookups take; the stored key is built from it.
template <class Key>
struct CHashTraits;

// A CLSID hashes to the XOR of its four 32-bit words.
template <>
struct CHashTraits<GUID> {
  using Arg = const GUID&;
  static uint32_t Hash(const GUID& key) noexcept {
    uint32_t w[4];
    std::memcpy(w, &key, sizeof(w));
    return w[0] ^ w[1] ^ w[2] ^ w[3];
  }
  static bool Equal(const GUID& stored, const GUID& arg) noexcept { return stored == arg; }
};

// Names whose letter case does not matter: x = x * 33 + upper(c) over the
// text, equality as _wcsicmp.
struct CWideNoCaseTraits {
  using Arg = std::u16string_view;
  static uint32_t Hash(std::u16string_view key) noexcept {
    uint32_t x = 0;
    for (char16_t c : key) x = x * 33u + static_cast<uint32_t>(WideUpper(c));
    return x;
  }
  static bool Equal(const std::u16string& stored, std::u16string_view arg) { return WideEqualNoCase(stored, arg); }
};

template <>
struct CHashTraits<std::u16string> : CWideNoCaseTraits {};

// The sizes the map picks from, primes but for the sentinel at the end.
inline constexpr uint32_t kHashMapPrimes[] = {
    17,       23,       29,       37,       41,       53,        67,        83,        103,       131,      163,
    211,      257,      331,      409,      521,      647,       821,       1031,      1291,      1627,     2053,
    2591,     3251,     4099,     5167,     6521,     8209,      10331,     13007,     16411,     20663,    26017,
    32771,    41299,    52021,    65537,    82571,    104033,    131101,    165161,    208067,    262147,   330287,
    416147,   524309,   660563,   832291,   1048583,  1321139,   1664543,   2097169,   2642257,   3329023,  4194319,
    5284493,  6658049,  8388617,  10568993, 13316089, 0xFFFFFFFFu};

template <class Key, class Value, class Traits = CHashTraits<Key>>
class CHashMap {
 public:
  using KeyArg = typename Traits::Arg;

  static constexpr uint32_t kStartBins = 17;
  static constexpr uint32_t kBlockSize = 10;
  static constexpr double kOptimalLoad = 0.75;
  static constexpr double kLowThreshold = 0.25;
  static constexpr double kHighThreshold = 2.25;

  // What the walk hands out. The key is fixed once the entry exists.
  struct Pair {
    template <class K, class... V>
    Pair(K&& key, V&&... value) : m_key(std::forward<K>(key)), m_value(std::forward<V>(value)...) {}
    const Key m_key;
    Value m_value;
  };

 private:
  struct Node : Pair {
    template <class K, class... V>
    Node(uint32_t hash, K&& key, V&&... value) : Pair(std::forward<K>(key), std::forward<V>(value)...), m_nHash(hash) {}
    Node* m_pNext = nullptr;
    uint32_t m_nHash;
  };
  // A slot of a block holds a live node or, while free, the free-list link.
  union Slot {
    Slot() noexcept {}
    ~Slot() {}
    Slot* m_pFree;
    Node m_node;
  };
  struct Block {
    Block* m_pNext;
    Slot m_slots[kBlockSize];
  };

 public:
  class iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Pair;
    using difference_type = std::ptrdiff_t;
    using pointer = Pair*;
    using reference = Pair&;

    iterator() = default;
    Pair& operator*() const noexcept { return *m_node; }
    Pair* operator->() const noexcept { return m_node; }
    iterator& operator++() noexcept {
      m_node = m_map->NextNode(m_node);
      return *this;
    }
    iterator operator++(int) noexcept {
      iterator old = *this;
      ++*this;
      return old;
    }
    friend bool operator==(const iterator& a, const iterator& b) noexcept { return a.m_node == b.m_node; }

   private:
    friend class CHashMap;
    iterator(const CHashMap* map, Node* node) noexcept : m_map(map), m_node(node) {}
    const CHashMap* m_map = nullptr;
    Node* m_node = nullptr;
  };

  CHashMap() noexcept { UpdateThresholds(); }
  CHashMap(const CHashMap&) = delete;
  CHashMap& operator=(const CHashMap&) = delete;
  ~CHashMap() {
    DestroyAll();
    delete[] m_ppBins;
    FreeBlocks();
  }

  uint32_t GetCount() const noexcept { return m_nElements; }
  bool IsEmpty() const noexcept { return m_nElements == 0; }
  uint32_t GetBinCount() const noexcept { return m_nBins; }
  // Whether the bin array exists; it is made at the first insert.
  bool HasBins() const noexcept { return m_ppBins != nullptr; }
  uint32_t GetBlockCount() const noexcept {
    uint32_t n = 0;
    for (Block* b = m_pBlocks; b; b = b->m_pNext) ++n;
    return n;
  }

  // The value under key, or null.
  Value* Lookup(KeyArg key) noexcept {
    Node* node = Find(key, Traits::Hash(key));
    return node ? &node->m_value : nullptr;
  }
  const Value* Lookup(KeyArg key) const noexcept { return const_cast<CHashMap*>(this)->Lookup(key); }
  bool Lookup(KeyArg key, Value& out) const {
    const Value* v = Lookup(key);
    if (!v) return false;
    out = *v;
    return true;
  }
  bool Contains(KeyArg key) const noexcept { return Lookup(key) != nullptr; }

  // Insert or assign; gives the stored value, whose address stays until the
  // entry goes.
  template <class V>
  Value& SetAt(KeyArg key, V&& value) {
    uint32_t hash = Traits::Hash(key);
    if (Node* node = Find(key, hash)) {
      if constexpr (std::is_assignable_v<Value&, V&&>)
        node->m_value = std::forward<V>(value);
      else
        node->m_value = Value(std::forward<V>(value));
      return node->m_value;
    }
    return NewNode(hash, key, std::forward<V>(value))->m_value;
  }

  // The value under key, default-made and inserted if absent.
  Value& operator[](KeyArg key) {
    uint32_t hash = Traits::Hash(key);
    if (Node* node = Find(key, hash)) return node->m_value;
    return NewNode(hash, key)->m_value;
  }

  // Removes the entry; false if there was none.
  bool RemoveKey(KeyArg key) {
    if (!m_ppBins) return false;
    uint32_t hash = Traits::Hash(key);
    Node** link = &m_ppBins[hash % m_nBins];
    for (Node* node = *link; node; link = &node->m_pNext, node = *link) {
      if (node->m_nHash == hash && Traits::Equal(node->m_key, key)) {
        *link = node->m_pNext;
        FreeNode(node);
        return true;
      }
    }
    return false;
  }

  void RemoveAll() {
    DisableAutoRehash();
    DestroyAll();
    delete[] m_ppBins;
    m_ppBins = nullptr;
    m_nElements = 0;
    if (!IsLocked()) InitHashTable(PickSize(0), false);
    FreeBlocks();
    EnableAutoRehash();
  }

  // While locked, inserts and removals leave the bin count alone, so that a
  // walk in progress sees every entry once.
  void DisableAutoRehash() noexcept { ++m_nLockCount; }
  void EnableAutoRehash() noexcept { --m_nLockCount; }
  bool IsLocked() const noexcept { return m_nLockCount != 0; }

  // Sets the bin count; the array is made now or at the first insert. Only
  // for an empty map.
  void InitHashTable(uint32_t bins, bool allocNow = true) {
    if (m_ppBins) {
      delete[] m_ppBins;
      m_ppBins = nullptr;
    }
    if (allocNow) m_ppBins = new Node* [bins]();
    m_nBins = bins;
    UpdateThresholds();
  }

  // Relinks every node into a new bin array by its stored hash; 0 picks the
  // size for the present count.
  void Rehash(uint32_t bins = 0) {
    if (bins == 0) bins = PickSize(m_nElements);
    if (bins == m_nBins) return;
    if (!m_ppBins) {
      InitHashTable(bins, false);
      return;
    }
    Node** fresh = new Node* [bins]();
    for (uint32_t i = 0; i < m_nBins; ++i) {
      Node* node = m_ppBins[i];
      while (node) {
        Node* next = node->m_pNext;
        Node*& head = fresh[node->m_nHash % bins];
        node->m_pNext = head;
        head = node;
        node = next;
      }
    }
    delete[] m_ppBins;
    m_ppBins = fresh;
    m_nBins = bins;
    UpdateThresholds();
  }

  // The first listed size not below n / 0.75, truncated.
  static uint32_t PickSize(uint32_t elements) noexcept {
    auto wanted = static_cast<uint32_t>(static_cast<double>(elements) / kOptimalLoad);
    for (uint32_t prime : kHashMapPrimes)
      if (prime >= wanted) return prime;
    return kHashMapPrimes[std::size(kHashMapPrimes) - 1];
  }

  uint32_t GetHighRehashThreshold() const noexcept { return m_nHiRehash; }
  uint32_t GetLowRehashThreshold() const noexcept { return m_nLoRehash; }

  iterator begin() const noexcept { return iterator(this, FirstNode()); }
  iterator end() const noexcept { return iterator(this, nullptr); }

  // Calls fn(key, value) for each entry in walk order.
  template <class Fn>
  void ForEach(Fn&& fn) const {
    for (Node* node = FirstNode(); node; node = NextNode(node)) fn(node->m_key, node->m_value);
  }

 private:
  void UpdateThresholds() noexcept {
    m_nHiRehash = static_cast<uint32_t>(kHighThreshold * static_cast<double>(m_nBins));
    m_nLoRehash = static_cast<uint32_t>(kLowThreshold * static_cast<double>(m_nBins));
    if (m_nLoRehash < 17) m_nLoRehash = 0;
  }

  Node* Find(KeyArg key, uint32_t hash) const {
    if (!m_ppBins) return nullptr;
    for (Node* node = m_ppBins[hash % m_nBins]; node; node = node->m_pNext)
      if (node->m_nHash == hash && Traits::Equal(node->m_key, key)) return node;
    return nullptr;
  }

  Node* FirstNode() const noexcept {
    if (!m_ppBins) return nullptr;
    for (uint32_t i = 0; i < m_nBins; ++i)
      if (m_ppBins[i]) return m_ppBins[i];
    return nullptr;
  }
  Node* NextNode(Node* node) const noexcept {
    if (node->m_pNext) return node->m_pNext;
    for (uint32_t i = node->m_nHash % m_nBins + 1; i < m_nBins; ++i)
      if (m_ppBins[i]) return m_ppBins[i];
    return nullptr;
  }

  template <class... Args>
  Node* NewNode(uint32_t hash, Args&&... args) {
    if (!m_ppBins) InitHashTable(m_nBins);
    if (!m_pFree) {
      Block* block = new Block;
      block->m_pNext = m_pBlocks;
      m_pBlocks = block;
      // Hand the slots out in address order.
      for (uint32_t i = kBlockSize; i-- > 0;) {
        block->m_slots[i].m_pFree = m_pFree;
        m_pFree = &block->m_slots[i];
      }
    }
    Slot* slot = m_pFree;
    Slot* rest = slot->m_pFree;
    Node* node = ::new (static_cast<void*>(&slot->m_node)) Node(hash, std::forward<Args>(args)...);
    m_pFree = rest;
    ++m_nElements;
    Node*& head = m_ppBins[hash % m_nBins];
    node->m_pNext = head;
    head = node;
    if (m_nElements > m_nHiRehash && !IsLocked()) Rehash(PickSize(m_nElements));
    return node;
  }

  // The node is already unlinked from its chain.
  void FreeNode(Node* node) {
    node->~Node();
    Slot* slot = reinterpret_cast<Slot*>(node);
    slot->m_pFree = m_pFree;
    m_pFree = slot;
    --m_nElements;
    if (m_nElements < m_nLoRehash && !IsLocked()) Rehash(PickSize(m_nElements));
    if (m_nElements == 0) FreeBlocks();
  }

  void DestroyAll() noexcept {
    if (!m_ppBins) return;
    for (uint32_t i = 0; i < m_nBins; ++i) {
      Node* node = m_ppBins[i];
      while (node) {
        Node* next = node->m_pNext;
        node->~Node();
        node = next;
      }
      m_ppBins[i] = nullptr;
    }
  }

  void FreeBlocks() noexcept {
    while (Block* b = m_pBlocks) {
      m_pBlocks = b->m_pNext;
      delete b;
    }
    m_pFree = nullptr;
  }

  Node** m_ppBins = nullptr;
  uint32_t m_nBins = kStartBins;
  uint32_t m_nElements = 0;
  uint32_t m_nHiRehash = 0;
  uint32_t m_nLoRehash = 0;
  int32_t m_nLockCount = 0;
  Block* m_pBlocks = nullptr;
  Slot* m_pFree = nullptr;
};

}  // namespace zemo
