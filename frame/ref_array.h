// Growing array of owned interface references, for short ordered lists of
// objects: trackers, alarms, sinks. Entries stay in insertion order, removal
// closes the gap, and lookups are by position or a linear scan.
//
// The array holds one reference per entry: it AddRefs what it takes and
// Releases what it drops, on removal and on destruction. Growth adds count / 8
// entries, held between 4 and 1024, so long lists don't reallocate often and
// short ones don't overreach.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/exception.h"
#include "platform/types.h"

namespace zemo {

template <class I>
class TRefArray {
 public:
  TRefArray() noexcept = default;
  TRefArray(const TRefArray&) = delete;
  TRefArray& operator=(const TRefArray&) = delete;
  TRefArray(TRefArray&& o) noexcept
      : m_pData(std::exchange(o.m_pData, nullptr)),
        m_nCount(std::exchange(o.m_nCount, 0)),
        m_nAllocated(std::exchange(o.m_nAllocated, 0)) {}
  ~TRefArray() { RemoveAll(); }

  LONG GetCount() const noexcept { return m_nCount; }
  bool IsEmpty() const noexcept { return m_nCount == 0; }
  // Entries the present allocation has room for.
  LONG GetAllocated() const noexcept { return m_nAllocated; }

  // The entry without a reference of its own, or null outside the array.
  I* GetAt(LONG index) const noexcept { return index >= 0 && index < m_nCount ? m_pData[index] : nullptr; }
  I* operator[](LONG index) const noexcept { return m_pData[index]; }
  I* const* begin() const noexcept { return m_pData; }
  I* const* end() const noexcept { return m_pData + m_nCount; }

  // Hands out entry index with a reference added; false outside the array.
  bool CopyTo(LONG index, I** out) const noexcept {
    if (index < 0 || index >= m_nCount) return false;
    *out = m_pData[index];
    if (*out) (*out)->AddRef();
    return true;
  }

  // Appends p with a reference of the array's own; gives its index.
  LONG Add(I* p) {
    Grow(m_nCount + 1);
    if (p) p->AddRef();
    m_pData[m_nCount] = p;
    return m_nCount++;
  }

  // Inserts before index, which is clamped into the array.
  LONG InsertAt(LONG index, I* p) {
    Grow(m_nCount + 1);
    index = std::clamp(index, LONG{0}, m_nCount);
    std::memmove(m_pData + index + 1, m_pData + index, sizeof(I*) * static_cast<size_t>(m_nCount - index));
    if (p) p->AddRef();
    m_pData[index] = p;
    ++m_nCount;
    return index;
  }

  // The index of the first entry that is p, or -1.
  LONG Find(const I* p) const noexcept {
    for (LONG i = 0; i < m_nCount; ++i)
      if (m_pData[i] == p) return i;
    return -1;
  }

  // The entry leaves the array before it is released, so a release that
  // comes back to the array finds it consistent.
  bool RemoveAt(LONG index) {
    if (index < 0 || index >= m_nCount) return false;
    I* p = m_pData[index];
    std::memmove(m_pData + index, m_pData + index + 1, sizeof(I*) * static_cast<size_t>(m_nCount - index - 1));
    --m_nCount;
    if (p) p->Release();
    return true;
  }
  bool Remove(const I* p) { return RemoveAt(Find(p)); }

  // Releases every entry in order and frees the buffer.
  void RemoveAll() {
    I** data = std::exchange(m_pData, nullptr);
    LONG count = std::exchange(m_nCount, 0);
    m_nAllocated = 0;
    for (LONG i = 0; i < count; ++i)
      if (data[i]) data[i]->Release();
    std::free(data);
  }

 private:
  void Grow(LONG needed) {
    if (needed <= m_nAllocated) return;
    LONG step = std::clamp(m_nCount / 8, LONG{4}, LONG{1024});
    LONG size = std::max(needed, m_nAllocated + step);
    void* p = std::realloc(m_pData, sizeof(I*) * static_cast<size_t>(size));
    if (!p) AtlThrow(E_OUTOFMEMORY);
    m_pData = static_cast<I**>(p);
    m_nAllocated = size;
  }

  I** m_pData = nullptr;
  LONG m_nCount = 0;
  LONG m_nAllocated = 0;
};

}  // namespace zemo
