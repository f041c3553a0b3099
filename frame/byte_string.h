// Bounded byte string of at most 32 bytes, held inline: the value form of an
// ESSID, used as a record field and a map key without any allocation.
//
// Bytes behind the count are always zero, so two equal strings are equal as
// raw records too. Order is by length first, then bytes as unsigned values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "frame/hash_map.h"

namespace zemo {

class ByteString {
 public:
  static constexpr uint8_t MAX_BYTE_COUNT = 32;

  ByteString() noexcept = default;
  ByteString(const void* inData, size_t inByteCount) {
    if (inByteCount > MAX_BYTE_COUNT) throw std::length_error("MAX_BYTE_COUNT < inByteCount");
    if (!inData && inByteCount > 0) throw std::invalid_argument("null pointer inData");
    m_nByteCount = static_cast<uint8_t>(inByteCount);
    if (inByteCount) std::memcpy(m_bytes, inData, inByteCount);
  }
  ByteString(const ByteString& inOriginal) { Assign(inOriginal); }
  ByteString& operator=(const ByteString& inOriginal) {
    if (this != &inOriginal) Assign(inOriginal);
    return *this;
  }

  uint8_t GetByteCount() const noexcept { return m_nByteCount; }
  const uint8_t* GetBytes() const noexcept { return m_bytes; }
  bool IsEmpty() const noexcept { return m_nByteCount == 0; }
  std::string_view View() const noexcept {
    return std::string_view(reinterpret_cast<const char*>(m_bytes), m_nByteCount);
  }

  friend bool operator==(const ByteString& a, const ByteString& b) noexcept {
    return a.m_nByteCount == b.m_nByteCount && std::memcmp(a.m_bytes, b.m_bytes, a.m_nByteCount) == 0;
  }
  // A shorter string always sorts first.
  friend bool operator<(const ByteString& a, const ByteString& b) noexcept {
    if (a.m_nByteCount != b.m_nByteCount) return a.m_nByteCount < b.m_nByteCount;
    return std::memcmp(a.m_bytes, b.m_bytes, a.m_nByteCount) < 0;
  }

 private:
  void Assign(const ByteString& inOriginal) {
    // A count beyond the limit comes only from bytes read in raw.
    if (inOriginal.m_nByteCount > MAX_BYTE_COUNT) throw std::length_error("MAX_BYTE_COUNT < inOriginal.m_nByteCount");
    m_nByteCount = inOriginal.m_nByteCount;
    std::memcpy(m_bytes, inOriginal.m_bytes, m_nByteCount);
    std::memset(m_bytes + m_nByteCount, 0, MAX_BYTE_COUNT - m_nByteCount);
  }

  uint8_t m_nByteCount = 0;
  uint8_t m_bytes[MAX_BYTE_COUNT] = {};
};
static_assert(sizeof(ByteString) == 33);
static_assert(alignof(ByteString) == 1);

// As a map key: x = x * 33 + byte over the bytes in use.
template <>
struct CHashTraits<ByteString> {
  using Arg = const ByteString&;
  static uint32_t Hash(const ByteString& key) noexcept {
    uint32_t x = 0;
    for (uint8_t i = 0; i < key.GetByteCount(); ++i) x = x * 33u + key.GetBytes()[i];
    return x;
  }
  static bool Equal(const ByteString& stored, const ByteString& arg) noexcept { return stored == arg; }
};

}  // namespace zemo
