// CEntityMemo: the entity table's last answers, readable without its lock.
//
// The statistics of one packet intern the same few addresses and protocols
// one after the other (nodes, conversations, protocols each ask for them),
// so most lookups repeat one made a moment before. The memo keeps each
// answer in a slot chosen by the value's hash; a lookup that meets its value
// there needs neither the table's lock nor its index.
//
// Writers hold the table's lock. Readers take none: each slot carries a
// sequence number, odd while it is written, and a reader keeps what it read
// only if the number was even and the same before and after (a seqlock).
// Every field is an atomic, read with acquire and written with release, so
// that no read of a slot can pass the second reading of its number.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>

namespace zemo {

class CEntityMemo {
 public:
  static constexpr uint32_t kNone = 0xFFFFFFFFu;
  static constexpr uint32_t kSlots = 256;

  // The words of a 24-byte field that keep its first `length` bytes, by length.
  static constexpr auto kWordMasks = [] {
    std::array<std::array<uint64_t, 3>, 25> masks{};
    for (uint32_t length = 0; length <= 24; ++length)
      for (uint32_t i = 0; i < 3; ++i) {
        const uint32_t bytes = length > 8 * i ? length - 8 * i : 0;
        masks[length][i] = bytes >= 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * bytes)) - 1;
      }
    return masks;
  }();

  // A value as the memo compares it: its sub-table and its bytes, zero
  // behind its length.
  struct Key {
    uint32_t table;
    uint64_t words[3];

    // From a value of length bytes.
    Key(uint32_t n, const uint8_t* value, uint32_t length) noexcept : table(n), words{} {
      std::memcpy(words, value, length);
    }
    // From the whole 24-byte data field of a spec, of which length bytes
    // count: three whole words and masks, in place of a copy of any length.
    static Key OfField(uint32_t n, const uint8_t (&data)[24], uint32_t length) noexcept {
      Key key(n, data, 0);
      std::memcpy(key.words, data, sizeof key.words);
      const auto& mask = kWordMasks[length < 24 ? length : 24];
      key.words[0] &= mask[0];
      key.words[1] &= mask[1];
      key.words[2] &= mask[2];
      return key;
    }

    // A well-spread hash of sub-table and value: the memo's slot, and the
    // value's tag in its sub-table's index.
    uint32_t Hash() const noexcept {
      uint64_t h = words[0] * 0x9E3779B97F4A7C15ull ^ words[1] * 0xC2B2AE3D27D4EB4Full ^
                   words[2] * 0x165667B19E3779F9ull ^ table;
      h ^= h >> 32;
      h *= 0xD6E8FEB86659FD93ull;
      return static_cast<uint32_t>(h >> 32);
    }
  };

  // The identifier kept for key in slot, or kNone.
  uint32_t Find(const Key& key, uint32_t slot) const noexcept {
    const Slot& s = m_slots[slot % kSlots];
    const uint32_t before = s.sequence.load(std::memory_order_acquire);
    if (before & 1) return kNone;
    const uint64_t head = s.head.load(std::memory_order_acquire);
    const bool same = s.words[0].load(std::memory_order_acquire) == key.words[0] &&
                      s.words[1].load(std::memory_order_acquire) == key.words[1] &&
                      s.words[2].load(std::memory_order_acquire) == key.words[2];
    if (s.sequence.load(std::memory_order_acquire) != before || !same) return kNone;
    // The head holds the sub-table above the identifier; an empty slot holds no sub-table.
    return static_cast<uint32_t>(head >> 32) == key.table ? static_cast<uint32_t>(head) : kNone;
  }

  // Under the table's lock: key now stands for id.
  void Store(const Key& key, uint32_t slot, uint32_t id) noexcept {
    Write(m_slots[slot % kSlots], uint64_t{key.table} << 32 | id, key.words);
  }

  // Under the table's lock: every slot empty, for a reset or a change of
  // the identifiers' form.
  void Clear() noexcept {
    static constexpr uint64_t kZero[3] = {};
    for (Slot& s : m_slots) Write(s, kEmpty, kZero);
  }

 private:
  static constexpr uint64_t kEmpty = 0xFFFFFFFF00000000ull;  // no sub-table has this number

  struct Slot {
    std::atomic<uint32_t> sequence{0};
    std::atomic<uint64_t> head{kEmpty};
    std::atomic<uint64_t> words[3] = {};
  };

  static void Write(Slot& s, uint64_t head, const uint64_t (&words)[3]) noexcept {
    const uint32_t sequence = s.sequence.load(std::memory_order_relaxed);
    s.sequence.store(sequence + 1, std::memory_order_relaxed);
    s.head.store(head, std::memory_order_release);
    for (int i = 0; i < 3; ++i) s.words[i].store(words[i], std::memory_order_release);
    s.sequence.store(sequence + 2, std::memory_order_release);
  }

  std::array<Slot, kSlots> m_slots;
};

}  // namespace zemo
