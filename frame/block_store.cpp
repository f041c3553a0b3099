#include "frame/block_store.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <stdexcept>

#include "platform/exception.h"

namespace zemo {

CBlockStore::CBlockStore(uint32_t recordSize, uint32_t wantedBlockLength)
    : m_nRecordSize(recordSize),
      m_nPerBlock(std::max<uint32_t>(1, std::bit_floor(wantedBlockLength & 0xFFFFu))),
      m_nShift(static_cast<uint32_t>(std::countr_zero(m_nPerBlock))) {}

void CBlockStore::AddBlock() {
  if (m_blocks.size() >= kMaxBlocks) throw std::length_error("deque<T> too long");
  if (uint32_t budget = s_blockBudget.load(std::memory_order_relaxed); budget != kNoBlockLimit) {
    if (budget == 0) AtlThrow(E_OUTOFMEMORY);
    s_blockBudget.store(budget - 1, std::memory_order_relaxed);
  }
  auto* block = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(m_nPerBlock) * m_nRecordSize));
  if (!block) AtlThrow(E_OUTOFMEMORY);
  try {
    m_blocks.push_back(block);
  } catch (...) {
    std::free(block);
    throw;
  }
  m_nCapacity += m_nPerBlock;
}

void CBlockStore::SetCount(uint32_t count) {
  if (count < m_nCount) {
    size_t keep = count / m_nPerBlock + 1;
    while (m_blocks.size() > keep) {
      std::free(m_blocks.back());
      m_blocks.pop_back();
      m_nCapacity -= m_nPerBlock;
    }
    m_nCount = count;
    return;
  }
  if (count == m_nCount) return;

  uint64_t blocksNeeded = (static_cast<uint64_t>(count) + m_nPerBlock - 1) >> m_nShift;
  if (blocksNeeded > kMaxBlocks || (blocksNeeded << m_nShift) > UINT32_MAX)
    throw std::length_error("deque<T> too long");
  while (m_nCapacity < count) AddBlock();

  // A spare block left by an earlier shrink still holds old records.
  for (uint32_t i = m_nCount; i < count;) {
    uint32_t inBlock = i & (m_nPerBlock - 1);
    uint32_t run = std::min(m_nPerBlock - inBlock, count - i);
    std::memset(Record(i), 0, static_cast<size_t>(run) * m_nRecordSize);
    i += run;
  }
  m_nCount = count;
}

void CBlockStore::Clear() noexcept {
  for (uint8_t* block : m_blocks) std::free(block);
  m_blocks.clear();
  m_nCount = 0;
  m_nCapacity = 0;
}

}  // namespace zemo
