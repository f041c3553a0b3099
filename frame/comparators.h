// Comparators that give CArrayEx its order: a byte-wise base, one for 32-bit
// integers shared by all integer arrays, and one over a less-than relation.
//
// Every operation takes two values by pointer with their sizes in bytes, so
// one array class serves records of any form. The Key operations compare an
// element against a key form of it (a channel number, say) instead of a whole
// element.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>

namespace zemo {

struct IComparator {
  virtual ~IComparator() = default;
  // Below, equal to or above 0, as memcmp.
  virtual int Compare(const void* a, const void* b, uint32_t sizeA, uint32_t sizeB) const = 0;
  virtual bool Equal(const void* a, const void* b, uint32_t sizeA, uint32_t sizeB) const = 0;
  virtual int CompareKey(const void* element, const void* key, uint32_t sizeElement, uint32_t sizeKey) const = 0;
  virtual bool EqualKey(const void* element, const void* key, uint32_t sizeElement, uint32_t sizeKey) const = 0;
};

// Unsigned bytes over the shorter of the two sizes. Equal and EqualKey accept
// anything not above 0, so a subclass that only orders still finds; an
// element has no key form here, so CompareKey never matches.
class CComparator : public IComparator {
 public:
  int Compare(const void* a, const void* b, uint32_t sizeA, uint32_t sizeB) const override {
    int c = std::memcmp(a, b, sizeA < sizeB ? sizeA : sizeB);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
  }
  bool Equal(const void* a, const void* b, uint32_t sizeA, uint32_t sizeB) const override {
    return Compare(a, b, sizeA, sizeB) <= 0;
  }
  int CompareKey(const void*, const void*, uint32_t, uint32_t) const override { return 1; }
  bool EqualKey(const void* element, const void* key, uint32_t sizeElement, uint32_t sizeKey) const override {
    return CompareKey(element, key, sizeElement, sizeKey) <= 0;
  }
  virtual CComparator* Clone() const { return new CComparator(*this); }
};

// 32-bit integers ordered by their wrapping difference: cheap, and right as
// long as the values lie within 2^31 of each other.
template <class T>
class TIntComparator : public CComparator {
  static_assert(sizeof(T) == 4, "a 32-bit integer");

 public:
  int Compare(const void* a, const void* b, uint32_t, uint32_t) const override {
    T x, y;
    std::memcpy(&x, a, 4);
    std::memcpy(&y, b, 4);
    return static_cast<int32_t>(static_cast<uint32_t>(x) - static_cast<uint32_t>(y));
  }
  bool Equal(const void* a, const void* b, uint32_t, uint32_t) const override {
    T x, y;
    std::memcpy(&x, a, 4);
    std::memcpy(&y, b, 4);
    return x == y;
  }
  CComparator* Clone() const override { return new TIntComparator(*this); }
  virtual int CompareValues(const void* a, const void* b) const { return Compare(a, b, 4, 4); }

  // The one instance all integer arrays share; no array owns it.
  static TIntComparator* Instance() {
    static TIntComparator s_instance;
    return &s_instance;
  }
};

// Orders whole elements of T by Less; equal means neither is less.
template <class T, class Less = std::less<T>>
class TComparator : public CComparator {
 public:
  int Compare(const void* a, const void* b, uint32_t, uint32_t) const override {
    const T& x = *static_cast<const T*>(a);
    const T& y = *static_cast<const T*>(b);
    if (m_less(x, y)) return -1;
    return m_less(y, x) ? 1 : 0;
  }
  bool Equal(const void* a, const void* b, uint32_t sizeA, uint32_t sizeB) const override {
    return Compare(a, b, sizeA, sizeB) == 0;
  }
  CComparator* Clone() const override { return new TComparator(*this); }

 private:
  [[no_unique_address]] Less m_less{};
};

}  // namespace zemo
