#include "frame/array_ex.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/exception.h"

namespace zemo {
namespace {

// One element's worth of scratch space, on the stack when it is small.
class TempElement {
 public:
  explicit TempElement(uint32_t size) {
    if (size > sizeof(m_local)) {
      m_heap = static_cast<uint8_t*>(std::malloc(size));
      if (!m_heap) AtlThrow(E_OUTOFMEMORY);
    }
  }
  ~TempElement() { std::free(m_heap); }
  TempElement(const TempElement&) = delete;
  TempElement& operator=(const TempElement&) = delete;
  uint8_t* Get() noexcept { return m_heap ? m_heap : m_local; }

 private:
  alignas(16) uint8_t m_local[64];
  uint8_t* m_heap = nullptr;
};

}  // namespace

CArrayEx::~CArrayEx() {
  if (m_bOwnsComparator) delete m_pComparator;
  std::free(m_pData);
}

void CArrayEx::SetComparator(IComparator* comparator, bool owns) {
  if (m_bOwnsComparator && m_pComparator != comparator) delete m_pComparator;
  m_pComparator = comparator;
  m_bOwnsComparator = owns;
}

void CArrayEx::SetCount(LONG count) {
  if (count < 0) count = 0;
  uint64_t bytes = static_cast<uint64_t>(count) * m_nElementSize;
  if (bytes > UINT32_MAX) AtlThrow(E_OUTOFMEMORY);
  Reallocate(m_nAllocBytes, static_cast<uint32_t>(bytes));
  m_nCount = count;
  m_nUsedBytes = static_cast<uint32_t>(bytes);
}

bool CArrayEx::GetAt(LONG index, void* out, uint32_t* ioSize) const {
  if (!m_pData || index < 0 || index >= m_nCount) return false;
  uint32_t n = GetElementSize(index);
  if (ioSize && *ioSize != n) {
    n = std::min(n, *ioSize);
    *ioSize = n;
  }
  std::memcpy(out, ElementAt(index), n);
  return true;
}

bool CArrayEx::GetElement(LONG index, void* out) const {
  if (!m_pData || index < 0 || index >= m_nCount) return false;
  CopyOut(index, out);
  return true;
}

void* CArrayEx::ElementAt(LONG index) const {
  if (!m_pData || index < 0 || index >= m_nCount) return nullptr;
  return m_pData + static_cast<size_t>(index) * m_nElementSize;
}

LONG CArrayEx::Add(const void* data, uint32_t size) {
  if (m_bSortedMode) return InsertAt(1, kLastPosition, data, size);
  Resize(1, static_cast<LONG>(GetElementBytes(m_nCount)));
  LONG index = m_nCount - 1;
  if (data) CopyIn(index, data, size);
  m_bIsSorted = false;
  return index;
}

LONG CArrayEx::InsertAt(LONG number, LONG position, const void* data, uint32_t size) {
  if (number <= 0) return -1;
  if (m_bSortedMode && !data) return -1;
  if (m_bSortedMode) {
    if (!m_bIsSorted) ShellSort();
    position = FindInsertPosition(data, size);
  }
  position = std::clamp(position, LONG{0}, m_nCount);

  LONG old = m_nCount;
  LONG bytes = number * static_cast<LONG>(GetElementBytes(position));
  Resize(number, bytes);
  if (position < old) ShiftRange(position, old - 1, number, bytes);
  m_bIsSorted = m_bSortedMode;
  if (data)
    for (LONG i = position; i < position + number; ++i) CopyIn(i, data, size);
  return position;
}

void CArrayEx::RemoveAll() {
  std::free(m_pData);
  m_pData = nullptr;
  m_nCount = 0;
  m_nUsedBytes = 0;
  m_nAllocBytes = 0;
}

void CArrayEx::RemoveAt(LONG number, LONG position) {
  if (position == kLastPosition) position = m_nCount - 1;
  if (!m_pData || number <= 0 || position < 0 || position >= m_nCount) return;
  number = std::min(number, m_nCount - position);
  LONG bytes = static_cast<LONG>(GetRangeBytes(position, position + number - 1));
  if (position + number < m_nCount) ShiftRange(position + number, m_nCount - 1, -number, -bytes);
  Resize(-number, -bytes);
}

LONG CArrayEx::FindAndRemove(const void* data, uint32_t size) {
  LONG index = Find(data, size);
  if (index < 0) return -1;
  RemoveAt(1, index);
  return index;
}

LONG CArrayEx::ReplaceAt(LONG number, LONG position, const void* data, uint32_t size) {
  if (position == kLastPosition) position = m_nCount - 1;
  if (!data || number <= 0 || position < 0 || position >= m_nCount) return -1;
  number = std::min(number, m_nCount - position);
  if (m_bSortedMode) {
    // The new value may belong elsewhere.
    RemoveAt(number, position);
    return InsertAt(number, position, data, size);
  }
  for (LONG i = position; i < position + number; ++i) CopyIn(i, data, size);
  m_bIsSorted = false;
  return position;
}

void CArrayEx::Swap(LONG a, LONG b) {
  if (m_bSortedMode) return;
  if (a == kLastPosition) a = m_nCount - 1;
  if (b == kLastPosition) b = m_nCount - 1;
  if (a == b || a < 0 || b < 0 || a >= m_nCount || b >= m_nCount) return;
  Exchange(a, b);
  m_bIsSorted = false;
}

void CArrayEx::Move(LONG from, LONG to) {
  if (m_bSortedMode) return;
  if (from == kLastPosition) from = m_nCount - 1;
  if (to == kLastPosition) to = m_nCount - 1;
  if (from == to || from < 0 || to < 0 || from >= m_nCount || to >= m_nCount) return;
  MoveElement(from, to);
  m_bIsSorted = false;
}

void CArrayEx::ShellSort() {
  if (m_bIsSorted || m_nCount < 2) {
    m_bIsSorted = true;
    return;
  }
  if (!m_pComparator) return;  // no order to sort by
  LONG gap = 1;
  while (gap <= m_nCount / 9) gap = 3 * gap + 1;
  TempElement temp(m_nElementSize);
  uint32_t size = m_nElementSize;
  for (; gap > 0; gap /= 3) {
    for (LONG i = gap; i < m_nCount; ++i) {
      CopyElement(temp.Get(), ElementAt(i));
      LONG j = i;
      // Only a strictly smaller element moves back: equal ones keep their
      // order within the pass.
      while (j >= gap && m_pComparator->Compare(temp.Get(), ElementAt(j - gap), size, size) < 0) {
        CopyElement(ElementAt(j), ElementAt(j - gap));
        j -= gap;
      }
      if (j != i) CopyElement(ElementAt(j), temp.Get());
    }
  }
  m_bIsSorted = true;
}

void CArrayEx::QuickSort() {
  if (m_bIsSorted || m_nCount <= 1 || !m_pfnSort) return;
  std::qsort(m_pData, static_cast<size_t>(m_nCount), m_nElementSize, m_pfnSort);
  m_bIsSorted = true;
}

LONG CArrayEx::BinarySearch(const void* data, uint32_t size, bool key, bool* found) const {
  LONG lo = 0, hi = m_nCount - 1, mid = 0;
  int last = 0;
  uint32_t elementSize = m_nElementSize;
  while (lo <= hi) {
    mid = lo + (hi - lo) / 2;
    const void* element = ElementAt(mid);
    last = key ? m_pComparator->CompareKey(element, data, elementSize, size)
               : m_pComparator->Compare(element, data, elementSize, size);
    if (last == 0) {
      *found = true;
      return mid;
    }
    if (last < 0)
      lo = mid + 1;
    else
      hi = mid - 1;
  }
  *found = false;
  return last < 0 ? mid + 1 : mid;
}

LONG CArrayEx::Find(const void* data, uint32_t size) const {
  if (m_nCount == 0 || !m_pData || !m_pComparator) return -1;
  size = ElementBytes(size);
  if (m_bIsSorted) {
    bool found;
    LONG at = BinarySearch(data, size, false, &found);
    return found ? at : -1;
  }
  for (LONG i = 0; i < m_nCount; ++i)
    if (m_pComparator->Equal(ElementAt(i), data, m_nElementSize, size)) return i;
  return -1;
}

LONG CArrayEx::FindKey(const void* key, uint32_t size) const {
  if (m_nCount == 0 || !m_pData || !m_pComparator) return -1;
  if (m_bIsSorted) {
    bool found;
    LONG at = BinarySearch(key, size, true, &found);
    return found ? at : -1;
  }
  for (LONG i = 0; i < m_nCount; ++i)
    if (m_pComparator->EqualKey(ElementAt(i), key, m_nElementSize, size)) return i;
  return -1;
}

LONG CArrayEx::FindInsertPosition(const void* data, uint32_t size) const {
  if (!m_bIsSorted || m_nCount == 0 || !m_pComparator) return kLastPosition;
  bool found;
  return BinarySearch(data, ElementBytes(size), false, &found);
}

LONG CArrayEx::FindKeyInsertPosition(const void* key, uint32_t size) const {
  if (!m_bIsSorted || m_nCount == 0 || !m_pComparator) return kLastPosition;
  bool found;
  return BinarySearch(key, size, true, &found);
}

void CArrayEx::Reserve(LONG extra) {
  uint64_t bytes = static_cast<uint64_t>(m_nCount + std::max(extra, LONG{0})) * m_nElementSize;
  if (bytes > UINT32_MAX) AtlThrow(E_OUTOFMEMORY);
  Reallocate(m_nAllocBytes, static_cast<uint32_t>(bytes));
}

void CArrayEx::CopyOut(LONG index, void* out) const {
  const uint8_t* element = m_pData + static_cast<size_t>(index) * m_nElementSize;
  if (m_nElementSize == 4)
    std::memcpy(out, element, 4);  // one 32-bit move
  else
    std::memcpy(out, element, m_nElementSize);
}

void CArrayEx::CopyIn(LONG index, const void* data, uint32_t size) {
  uint8_t* element = m_pData + static_cast<size_t>(index) * m_nElementSize;
  uint32_t n = std::min(ElementBytes(size), m_nElementSize);
  if (n == 4 && m_nElementSize == 4) {
    std::memcpy(element, data, 4);
    return;
  }
  std::memcpy(element, data, n);
  if (n < m_nElementSize) std::memset(element + n, 0, m_nElementSize - n);
}

void CArrayEx::Reallocate(uint32_t, uint32_t bytes) {
  if (bytes == 0) {
    std::free(m_pData);
    m_pData = nullptr;
    m_nAllocBytes = 0;
    return;
  }
  void* p = std::realloc(m_pData, bytes);
  if (!p) AtlThrow(E_OUTOFMEMORY);  // the old block is still ours
  m_pData = static_cast<uint8_t*>(p);
  m_nAllocBytes = bytes;
}

void CArrayEx::Resize(LONG elementDelta, LONG byteDelta) {
  int64_t wanted = static_cast<int64_t>(m_nElementSize) * (static_cast<int64_t>(m_nCount) + elementDelta);
  if (wanted < 0) wanted = 0;
  if (wanted > static_cast<int64_t>(UINT32_MAX) || m_nCount + static_cast<int64_t>(elementDelta) > kLastPosition)
    AtlThrow(E_OUTOFMEMORY);
  auto used = static_cast<uint32_t>(wanted);
  if (used > m_nAllocBytes) {
    // At least double, so that a run of appends copies each byte a bounded
    // number of times.
    uint64_t grown = m_nAllocBytes + std::max<uint64_t>(static_cast<uint64_t>(std::max(byteDelta, LONG{0})),
                                                        m_nAllocBytes);
    grown = std::max<uint64_t>(grown, used);
    if (grown > UINT32_MAX) grown = used;
    Reallocate(m_nAllocBytes, static_cast<uint32_t>(grown));
  } else if (elementDelta < 0) {
    Reallocate(m_nAllocBytes, m_nAllocBytes - (m_nUsedBytes - used));
  }
  m_nCount += elementDelta;
  m_nUsedBytes = used;
}

void CArrayEx::ShiftRange(LONG first, LONG last, LONG elementDelta, LONG byteDelta) {
  if (last < first) return;
  uint8_t* from = m_pData + static_cast<size_t>(first) * m_nElementSize;
  std::memmove(from + static_cast<ptrdiff_t>(elementDelta) * m_nElementSize, from, GetRangeBytes(first, last));
}

void CArrayEx::Exchange(LONG a, LONG b) {
  TempElement temp(m_nElementSize);
  CopyElement(temp.Get(), ElementAt(a));
  CopyElement(ElementAt(a), ElementAt(b));
  CopyElement(ElementAt(b), temp.Get());
}

void CArrayEx::MoveElement(LONG from, LONG to) {
  TempElement temp(m_nElementSize);
  CopyElement(temp.Get(), ElementAt(from));
  uint32_t size = m_nElementSize;
  if (from < to)
    ShiftRange(from + 1, to, -1, -static_cast<LONG>(size));
  else
    ShiftRange(to, from - 1, 1, static_cast<LONG>(size));
  CopyElement(ElementAt(to), temp.Get());
}

void CArrayEx::CopyElement(void* to, const void* from) {
  if (m_nElementSize == 4)
    std::memcpy(to, from, 4);
  else
    std::memcpy(to, from, m_nElementSize);
}

}  // namespace zemo
