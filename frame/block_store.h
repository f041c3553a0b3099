// Record store in fixed blocks, for the big tables that grow one record per
// new address, protocol or conversation and are indexed on the packet path.
//
// Records never move: a block, once allocated, stays where it is until the
// count shrinks below it, so an index or pointer into the store stays good
// while the table grows. Blocks hold a power of two of records, which makes
// an index a shift and a mask.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>

#include "platform/types.h"

namespace zemo {

class CBlockStore {
 public:
  // Get(kLastIndex) is the last record.
  static constexpr uint32_t kLastIndex = 0xEFFFFFFFu;
  static constexpr size_t kMaxBlocks = 0x0FFFFFFFu;

  // Records per block are the low 16 bits of wantedBlockLength rounded down
  // to a power of two (100 gives 64), at least 1.
  CBlockStore(uint32_t recordSize, uint32_t wantedBlockLength);
  CBlockStore(const CBlockStore&) = delete;
  CBlockStore& operator=(const CBlockStore&) = delete;
  ~CBlockStore() { Clear(); }

  // Record index, or null at or past the count.
  void* Get(uint32_t index) const noexcept {
    if (index == kLastIndex) index = m_nCount - 1;  // an empty store wraps past the count
    if (index >= m_nCount) return nullptr;
    return Record(index);
  }
  // Record index without the bounds test, for indexes known to be good.
  void* Record(uint32_t index) const noexcept {
    return m_blocks[index >> m_nShift] + static_cast<size_t>(index & (m_nPerBlock - 1)) * m_nRecordSize;
  }

  // One more record, zero-filled; a new block only when the last is full.
  void* Append() {
    if (m_nCount < m_nCapacity) {
      void* p = Record(m_nCount++);
      std::memset(p, 0, m_nRecordSize);
      return p;
    }
    SetCount(m_nCount + 1);
    return Record(m_nCount - 1);
  }

  // Shrinking frees the blocks behind block n / records-per-block, so one
  // spare block may stay; growing zero-fills every new record. A block that
  // cannot be had raises E_OUTOFMEMORY with the count unchanged.
  void SetCount(uint32_t count);
  // Frees every block.
  void Clear() noexcept;

  // For tests of a table that runs out of memory: after `blocks` more
  // blocks in any store, each further block fails as an allocation would,
  // until called again with kNoBlockLimit.
  static constexpr uint32_t kNoBlockLimit = 0xFFFFFFFFu;
  static void LimitBlocksForTesting(uint32_t blocks) noexcept { s_blockBudget.store(blocks); }

  uint32_t GetCount() const noexcept { return m_nCount; }
  uint32_t GetCapacity() const noexcept { return m_nCapacity; }
  uint32_t GetRecordSize() const noexcept { return m_nRecordSize; }
  uint32_t GetRecordsPerBlock() const noexcept { return m_nPerBlock; }
  uint32_t GetShift() const noexcept { return m_nShift; }
  size_t GetBlockCount() const noexcept { return m_blocks.size(); }

 private:
  void AddBlock();

  uint32_t m_nRecordSize;
  uint32_t m_nPerBlock;
  uint32_t m_nCount = 0;
  uint32_t m_nCapacity = 0;
  uint32_t m_nShift;
  std::deque<uint8_t*> m_blocks;
  static inline std::atomic<uint32_t> s_blockBudget{kNoBlockLimit};
};

// Typed front: records are T, whose size is the record size.
template <class T>
class TBlockStore : public CBlockStore {
 public:
  explicit TBlockStore(uint32_t wantedBlockLength) : CBlockStore(sizeof(T), wantedBlockLength) {}
  T* Get(uint32_t index) const noexcept { return static_cast<T*>(CBlockStore::Get(index)); }
  T* Record(uint32_t index) const noexcept { return static_cast<T*>(CBlockStore::Record(index)); }
  T& operator[](uint32_t index) const noexcept { return *Record(index); }
  T* Append() { return static_cast<T*>(CBlockStore::Append()); }
};

}  // namespace zemo
