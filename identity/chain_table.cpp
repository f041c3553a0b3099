#include "identity/chain_table.h"

#include <algorithm>

#include "platform/exception.h"

namespace zemo {

CChainTable::CChainTable(uint32_t recordSize, uint32_t wantedBlockLength, uint32_t nextOffset)
    : m_store(recordSize, wantedBlockLength), m_nextOffset(nextOffset), m_heads(new uint32_t[kHeadCount]) {
  std::fill_n(m_heads.get(), kHeadCount, kEnd);
}

uint32_t CChainTable::Add(uint32_t bucket, ZemoTime time, uint32_t limit) {
  uint32_t index = m_store.GetCount();
  if (index >= limit) AtlThrow(E_FAIL);
  uint8_t* record;
  try {
    record = static_cast<uint8_t*>(m_store.Append());
  } catch (...) {
    AtlThrow(E_FAIL);
  }
  std::memcpy(record, &time, sizeof time);
  std::memcpy(record + m_nextOffset, &m_heads[bucket], sizeof(uint32_t));
  m_heads[bucket] = index;
  return index;
}

void CChainTable::Clear() noexcept {
  std::fill_n(m_heads.get(), kHeadCount, kEnd);
  m_store.Clear();
}

uint32_t CChainTable::CountSince(ZemoTime since) const noexcept {
  if (since == 0) return GetCount();
  uint32_t n = 0;
  for (uint32_t i = 0; i < GetCount(); ++i) n += Time(i) >= since;
  return n;
}

}  // namespace zemo
