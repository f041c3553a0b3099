// The store behind both identity tables: records in a block store, chained
// from a fixed array of 3079 heads. Records are only ever appended, and a new
// record stands first in its chain, so a record's index is its identity
// until the whole store is cleared. A key index beside the chains finds a
// record in constant time however long its chain; each add files the record
// in both.
#pragma once

#include <cstring>
#include <memory>
#include <utility>

#include "frame/block_store.h"
#include "frame/key_index.h"

namespace zemo {

class CChainTable {
 public:
  // The head array never grows: chains get longer as the table does.
  static constexpr uint32_t kHeadCount = 3079;
  static constexpr uint32_t kEnd = 0xFFFFFFFFu;

  // Each record carries its time (ZemoTime) at offset 0 and its chain link
  // (u32) at nextOffset.
  CChainTable(uint32_t recordSize, uint32_t wantedBlockLength, uint32_t nextOffset);

  uint32_t GetCount() const noexcept { return m_store.GetCount(); }
  uint32_t GetRecordSize() const noexcept { return m_store.GetRecordSize(); }
  uint8_t* Record(uint32_t index) const noexcept { return static_cast<uint8_t*>(m_store.Record(index)); }

  uint32_t Head(uint32_t bucket) const noexcept { return m_heads[bucket]; }
  uint32_t Next(uint32_t index) const noexcept {
    uint32_t next;
    std::memcpy(&next, Record(index) + m_nextOffset, sizeof next);
    return next;
  }
  ZemoTime Time(uint32_t index) const noexcept {
    ZemoTime time;
    std::memcpy(&time, Record(index), sizeof time);
    return time;
  }

  // The record filed under tag for which isKey(index) holds, or kEnd.
  template <class IsKey>
  uint32_t Find(uint32_t tag, IsKey&& isKey) const noexcept {
    return m_index.Find(tag, std::forward<IsKey>(isKey));
  }

  // A new zeroed record at the head of the bucket's chain, filed under tag
  // and stamped with time; its index. Raises E_FAIL when no block can be
  // had or the index would reach limit.
  uint32_t Add(uint32_t bucket, uint32_t tag, ZemoTime time, uint32_t limit);

  // Every chain empty, every block freed.
  void Clear() noexcept;

  // The number of records with a time at or after since.
  uint32_t CountSince(ZemoTime since) const noexcept;

  // Chain lengths, for tuning: the longest and the number of chains that
  // hold anything.
  struct Shape {
    uint32_t longest = 0;
    uint32_t used = 0;
  };
  Shape GetShape() const noexcept;

 private:
  CBlockStore m_store;
  uint32_t m_nextOffset;
  std::unique_ptr<uint32_t[]> m_heads;
  CKeyIndex m_index;
};

// One step of an identifier walk over a table whose record 0 has the
// identifier base: base | index and more true where that record exists,
// else 0xFFFFFFFF and more false.
inline void IdAt(const CChainTable& table, uint32_t base, uint32_t index, ULONG* id, BOOL* more) noexcept {
  const bool exists = index < table.GetCount();
  *id = exists ? base | index : CChainTable::kEnd;
  *more = exists;
}

}  // namespace zemo
