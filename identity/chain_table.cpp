#include "identity/chain_table.h"

#include <algorithm>

#include "platform/exception.h"

namespace zemo {

CChainTable::CChainTable(uint32_t recordSize, uint32_t wantedBlockLength, uint32_t nextOffset)
    : m_store(recordSize, wantedBlockLength), m_nextOffset(nextOffset), m_heads(new uint32_t[kHeadCount]) {
  std::fill_n(m_heads.get(), kHeadCount, kEnd);
}

uint32_t CChainTable::Add(uint32_t bucket, uint32_t tag, ZemoTime time, uint32_t limit) {
  uint32_t index = m_store.GetCount();
  if (index >= limit) AtlThrow(E_FAIL);
  uint8_t* record;
  try {
    m_index.Reserve();
    record = static_cast<uint8_t*>(m_store.Append());
  } catch (...) {
    AtlThrow(E_FAIL);
  }
  std::memcpy(record, &time, sizeof time);
  std::memcpy(record + m_nextOffset, &m_heads[bucket], sizeof(uint32_t));
  m_heads[bucket] = index;
  m_index.Insert(tag, index);
  return index;
}

void CChainTable::Clear() noexcept {
  std::fill_n(m_heads.get(), kHeadCount, kEnd);
  m_store.Clear();
  m_index.Clear();
}

uint32_t CChainTable::CountSince(ZemoTime since) const noexcept {
  if (since == 0) return GetCount();
  uint32_t n = 0;
  for (uint32_t i = 0; i < GetCount(); ++i) n += Time(i) >= since;
  return n;
}

CChainTable::Shape CChainTable::GetShape() const noexcept {
  Shape shape;
  for (uint32_t b = 0; b < kHeadCount; ++b) {
    uint32_t length = 0;
    for (uint32_t i = Head(b); i != kEnd && length <= GetCount(); i = Next(i)) ++length;
    shape.longest = std::max(shape.longest, length);
    shape.used += length != 0;
  }
  return shape;
}

}  // namespace zemo
