// Byte-oriented growing array for small tables that are scanned, sorted and
// searched: the wireless channel and rate tables. One contiguous block holds
// the elements; a comparator object decides the order, and in sorted mode the
// array keeps itself in that order on every insert.
//
// Positions are LONG. kLastPosition (0x7FFFFFFF) stands for the last element
// where an operation takes a position, and is what a search gives when it does
// not apply. A failed allocation raises E_OUTOFMEMORY and leaves the array as
// it was before that step. Elements are raw bytes: TArrayEx is for trivially
// copyable T only.
#pragma once

#include <cstdint>
#include <type_traits>

#include "frame/comparators.h"
#include "platform/types.h"

namespace zemo {

class CArrayEx {
 public:
  using SortFunction = int (*)(const void*, const void*);
  static constexpr LONG kLastPosition = 0x7FFFFFFF;

  explicit CArrayEx(uint32_t elementSize, IComparator* comparator = nullptr, bool ownsComparator = false,
                    bool sortedMode = false) noexcept
      : m_nElementSize(elementSize),
        m_bSortedMode(sortedMode),
        m_bOwnsComparator(ownsComparator),
        m_pComparator(comparator) {}
  CArrayEx(const CArrayEx&) = delete;
  CArrayEx& operator=(const CArrayEx&) = delete;

  virtual ~CArrayEx();
  virtual void SetCount(LONG count);
  virtual uint32_t GetElementSize(LONG index) const { return m_nElementSize; }
  virtual void* GetData() const { return m_pData; }
  // Copies element index; when *ioSize differs from the element size, the
  // smaller is copied and stored in *ioSize.
  virtual bool GetAt(LONG index, void* out, uint32_t* ioSize) const;
  virtual bool GetElement(LONG index, void* out) const;
  virtual void* ElementAt(LONG index) const;
  // size 0 means the element size.
  virtual LONG Add(const void* data, uint32_t size = 0);
  virtual LONG InsertAt(LONG number, LONG position, const void* data, uint32_t size = 0);
  virtual void RemoveAll();
  virtual void RemoveAt(LONG number, LONG position);
  virtual LONG FindAndRemove(const void* data, uint32_t size = 0);
  virtual LONG ReplaceAt(LONG number, LONG position, const void* data, uint32_t size = 0);
  virtual void Swap(LONG a, LONG b);
  virtual void Move(LONG from, LONG to);
  virtual void ShellSort();
  virtual void QuickSort();
  virtual LONG Find(const void* data, uint32_t size = 0) const;
  virtual LONG FindKey(const void* key, uint32_t size) const;
  virtual LONG FindInsertPosition(const void* data, uint32_t size = 0) const;
  virtual LONG FindKeyInsertPosition(const void* key, uint32_t size = 0) const;
  virtual void Reserve(LONG extra);
  virtual void CopyOut(LONG index, void* out) const;
  virtual void CopyIn(LONG index, const void* data, uint32_t size);
  virtual void Reallocate(uint32_t ignored, uint32_t bytes);
  virtual void Resize(LONG elementDelta, LONG byteDelta);
  virtual void ShiftRange(LONG first, LONG last, LONG elementDelta, LONG byteDelta);
  virtual void Exchange(LONG a, LONG b);
  virtual void MoveElement(LONG from, LONG to);
  virtual void CopyElement(void* to, const void* from);
  virtual uint32_t GetElementBytes(LONG index) const { return m_nElementSize; }
  virtual uint32_t GetRangeBytes(LONG first, LONG last) const {
    return static_cast<uint32_t>(last - first + 1) * GetElementBytes(first);
  }

  LONG GetCount() const noexcept { return m_nCount; }
  bool IsEmpty() const noexcept { return m_nCount == 0; }
  uint32_t GetUsedBytes() const noexcept { return m_nUsedBytes; }
  uint32_t GetAllocatedBytes() const noexcept { return m_nAllocBytes; }
  bool IsSorted() const noexcept { return m_bIsSorted; }
  bool IsSortedMode() const noexcept { return m_bSortedMode; }
  // Takes effect at the next insert, which sorts first if need be.
  void SetSortedMode(bool on) noexcept { m_bSortedMode = on; }
  IComparator* GetComparator() const noexcept { return m_pComparator; }
  void SetComparator(IComparator* comparator, bool owns);
  void SetSortFunction(SortFunction fn) noexcept { m_pfnSort = fn; }

 protected:
  uint32_t ElementBytes(uint32_t size) const noexcept { return size == 0 ? m_nElementSize : size; }
  LONG BinarySearch(const void* data, uint32_t size, bool key, bool* found) const;

  uint32_t m_nElementSize;
  LONG m_nCount = 0;
  uint32_t m_nUsedBytes = 0;
  uint32_t m_nAllocBytes = 0;
  bool m_bSortedMode;
  bool m_bIsSorted = true;
  bool m_bOwnsComparator;
  IComparator* m_pComparator;
  SortFunction m_pfnSort = nullptr;
  uint8_t* m_pData = nullptr;
};

// Typed front of CArrayEx; the element size is sizeof(T).
template <class T>
class TArrayEx : public CArrayEx {
  static_assert(std::is_trivially_copyable_v<T>, "elements are moved as bytes");

 public:
  explicit TArrayEx(IComparator* comparator = nullptr, bool ownsComparator = false, bool sortedMode = false) noexcept
      : CArrayEx(sizeof(T), comparator, ownsComparator, sortedMode) {}

  using CArrayEx::Add;
  using CArrayEx::Find;
  using CArrayEx::FindAndRemove;
  using CArrayEx::FindInsertPosition;
  LONG Add(const T& value) { return Add(&value, sizeof(T)); }
  LONG Find(const T& value) const { return Find(&value, sizeof(T)); }
  LONG FindAndRemove(const T& value) { return FindAndRemove(&value, sizeof(T)); }
  LONG FindInsertPosition(const T& value) const { return FindInsertPosition(&value, sizeof(T)); }
  LONG InsertAt(LONG position, const T& value) { return CArrayEx::InsertAt(1, position, &value, sizeof(T)); }
  using CArrayEx::InsertAt;

  T* Data() const { return static_cast<T*>(GetData()); }
  // Null outside the array.
  T* At(LONG index) const { return static_cast<T*>(ElementAt(index)); }
  T& operator[](LONG index) const { return *At(index); }
  T* begin() const { return Data(); }
  T* end() const { return Data() + GetCount(); }
};

// An array of T that it creates and owns, for nested tables. Elements come
// and go only through SetCount; the operations that would place or drop one
// pointer do nothing.
template <class T>
class TObjArrayEx : public TArrayEx<T*> {
  using Base = TArrayEx<T*>;

 public:
  TObjArrayEx() noexcept = default;
  ~TObjArrayEx() override { DeleteFrom(0); }

  void SetCount(LONG count) override {
    if (count < 0) count = 0;
    LONG old = this->GetCount();
    if (count < old) DeleteFrom(count);
    CArrayEx::SetCount(count);
    for (LONG i = old; i < count; ++i) *this->At(i) = nullptr;
    for (LONG i = old; i < count; ++i) *this->At(i) = new T();
  }
  void RemoveAll() override {
    SetCount(0);
    CArrayEx::RemoveAll();
  }
  LONG Add(const void*, uint32_t = 0) override { return -1; }
  LONG InsertAt(LONG, LONG, const void*, uint32_t = 0) override { return -1; }
  void RemoveAt(LONG, LONG) override {}
  LONG FindAndRemove(const void*, uint32_t = 0) override { return -1; }
  LONG ReplaceAt(LONG, LONG, const void*, uint32_t = 0) override { return -1; }

  T* GetAt(LONG index) const {
    T** slot = this->At(index);
    return slot ? *slot : nullptr;
  }
  T& operator[](LONG index) const { return **this->At(index); }

 private:
  // Deletes the elements from index on, the last first.
  void DeleteFrom(LONG index) noexcept {
    for (LONG i = this->GetCount(); i-- > index;) {
      T*& slot = *this->At(i);
      delete slot;
      slot = nullptr;
    }
  }
};

}  // namespace zemo
