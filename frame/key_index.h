// CKeyIndex: finds a record of a chained table by its key in constant time,
// however long the table's chains have grown.
//
// The chained tables keep a fixed number of chain heads, so their chains
// lengthen with every record; their chains stay the table's form (dumps,
// chain walks of the interfaces), and this index stands beside them for
// the packet path. It maps a 32-bit tag to a record index by open
// addressing (linear probing over a power-of-two array of tag and index),
// and doubles when three quarters full, rehashing from the stored tags
// alone, so the records are never read to grow it.
//
// A tag is either the key itself (a table keyed by a 32-bit identifier:
// Find with AnyRecord, and the slot answers alone) or a hash of a longer key
// (then the caller's test confirms the record). Records are only ever added
// or all cleared, so there is no removal. The index grows only when a record
// is added, by as many slots as records justify: its size follows the table,
// never a count that a stream or a packet claims.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/exception.h"

namespace zemo {

class CKeyIndex {
 public:
  static constexpr uint32_t kNone = 0xFFFFFFFFu;

  CKeyIndex() = default;
  CKeyIndex(const CKeyIndex&) = delete;
  CKeyIndex& operator=(const CKeyIndex&) = delete;
  ~CKeyIndex() { std::free(m_slots); }

  // The test of a tag that is the key itself.
  struct AnyRecord {
    bool operator()(uint32_t) const noexcept { return true; }
  };

  // The record whose slot has this tag and for which isKey(record) holds,
  // or kNone.
  template <class IsKey>
  uint32_t Find(uint32_t tag, IsKey&& isKey) const noexcept {
    if (!m_slots) return kNone;
    for (uint32_t i = Home(tag);; i = (i + 1) & m_mask) {
      const Slot& s = m_slots[i];
      if (s.record == kNone) return kNone;
      if (s.tag == tag && isKey(s.record)) return s.record;
    }
  }

  // Room for one more entry, growing if that would pass three quarters.
  // Raises E_OUTOFMEMORY and leaves the index as it was when it cannot
  // grow; after it, Insert cannot fail.
  void Reserve() {
    if (m_count + 1 > m_limit) Grow();
  }

  // Adds a record that the index does not hold yet. Reserve first.
  void Insert(uint32_t tag, uint32_t record) noexcept {
    uint32_t i = Home(tag);
    while (m_slots[i].record != kNone) i = (i + 1) & m_mask;
    m_slots[i] = Slot{tag, record};
    ++m_count;
  }

  // Empty, with its memory given back.
  void Clear() noexcept {
    std::free(m_slots);
    m_slots = nullptr;
    m_mask = 0;
    m_count = 0;
    m_limit = 0;
  }

  uint32_t GetCount() const noexcept { return m_count; }
  // Slots allocated, a power of two, 0 while empty.
  uint32_t GetCapacity() const noexcept { return m_slots ? m_mask + 1 : 0; }

  // A well-spread 32-bit tag of a key of three 32-bit words.
  static uint32_t HashWords(uint32_t a, uint32_t b, uint32_t c) noexcept {
    return static_cast<uint32_t>(Mix(Mix(uint64_t{a} << 32 | b) ^ c) >> 32);
  }

 private:
  struct Slot {
    uint32_t tag;
    uint32_t record;
  };
  static constexpr uint32_t kFirstCapacity = 16;

  static uint64_t Mix(uint64_t x) noexcept {
    x ^= x >> 32;
    x *= 0xD6E8FEB86659FD93ull;
    x ^= x >> 32;
    return x;
  }
  // Fibonacci hashing: identifiers that count up spread over the slots.
  uint32_t Home(uint32_t tag) const noexcept {
    return static_cast<uint32_t>((uint64_t{tag} * 0x9E3779B97F4A7C15ull) >> m_shift) & m_mask;
  }

  void Grow() {
    const uint64_t capacity = m_slots ? (uint64_t{m_mask} + 1) * 2 : kFirstCapacity;
    // Record indexes are 32-bit, so 2^32 slots would never be three quarters full.
    if (capacity > (uint64_t{1} << 32)) AtlThrow(E_OUTOFMEMORY);
    auto* slots = static_cast<Slot*>(std::malloc(capacity * sizeof(Slot)));
    if (!slots) AtlThrow(E_OUTOFMEMORY);
    std::memset(slots, 0xFF, capacity * sizeof(Slot));
    Slot* old = m_slots;
    const uint64_t oldCapacity = old ? uint64_t{m_mask} + 1 : 0;
    m_slots = slots;
    m_mask = static_cast<uint32_t>(capacity - 1);
    m_shift = 64 - static_cast<uint32_t>(__builtin_ctzll(capacity));
    m_limit = static_cast<uint32_t>(capacity / 4 * 3);
    m_count = 0;
    for (uint64_t i = 0; i < oldCapacity; ++i)
      if (old[i].record != kNone) Insert(old[i].tag, old[i].record);
    std::free(old);
  }

  Slot* m_slots = nullptr;
  uint32_t m_mask = 0;
  uint32_t m_shift = 64;
  uint32_t m_count = 0;
  uint32_t m_limit = 0;  // entries allowed before the next growth
};

}  // namespace zemo
