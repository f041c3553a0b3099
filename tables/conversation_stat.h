// The record of ConversationStats: one conversation's packets, bytes, times
// and size range, keyed by the conversation's tuple identifier.
#pragma once

#include <cstddef>

#include "platform/variant.h"
#include "tables/record_table.h"

#pragma pack(push, 4)
struct ZemoConversationStat {
  ZemoTime FirstTime;  // 0 until the first packet
  ZemoTime LastTime;
  ULONGLONG Packets;
  ULONGLONG Bytes;  // wire length
  USHORT MinPacketSize;  // 0xFFFF until the first packet
  USHORT MaxPacketSize;
};

struct ZemoConversationStatEntry {
  ULONG TupleIndex;  // the key: the conversation's tuple identifier
  ULONG Next;        // chain link, 0xFFFFFFFF at the end
  ZemoConversationStat Stat;
};
#pragma pack(pop)
static_assert(sizeof(ZemoConversationStat) == 36);
static_assert(sizeof(ZemoConversationStatEntry) == 44);
static_assert(offsetof(ZemoConversationStatEntry, Stat) == 8);

namespace zemo {

inline void CountConversation(ZemoConversationStat& s, ZemoTime time, USHORT length) noexcept {
  s.LastTime = time;
  if (s.FirstTime == 0) s.FirstTime = time;
  s.Packets += 1;
  s.Bytes += length;
  if (length > s.MaxPacketSize) s.MaxPacketSize = length;
  if (length < s.MinPacketSize) s.MinPacketSize = length;
}

struct ConversationTableTraits {
  using Entry = ZemoConversationStatEntry;
  using Key = ULONG;
  static constexpr uint32_t kBuckets = 3079;
  static constexpr uint32_t kBlockLength = 256;
  static constexpr HRESULT kNoBlock = E_FAIL;
  static constexpr size_t kLinkOffset = offsetof(Entry, Next);
  static uint32_t Bucket(Key key) noexcept { return key % kBuckets; }
  static Key KeyOf(const Entry& e) noexcept { return e.TupleIndex; }
  static void Start(Entry& e, Key key) noexcept {
    e.TupleIndex = key;
    e.Stat.MinPacketSize = 0xFFFF;
  }
  static bool Since(const Entry& e, ZemoTime since) noexcept { return e.Stat.LastTime >= since; }
  static constexpr RecordField kKeyFields[] = {{u"TupleIndex", VT_UI4, offsetof(Entry, TupleIndex)}};
  static constexpr RecordField kFields[] = {
      {u"FirstTime", VT_UI8, offsetof(Entry, Stat.FirstTime)},
      {u"LastTime", VT_UI8, offsetof(Entry, Stat.LastTime)},
      {u"Packets", VT_UI8, offsetof(Entry, Stat.Packets)},
      {u"Bytes", VT_UI8, offsetof(Entry, Stat.Bytes)},
      {u"MinPacketSize", VT_UI2, offsetof(Entry, Stat.MinPacketSize)},
      {u"MaxPacketSize", VT_UI2, offsetof(Entry, Stat.MaxPacketSize)},
  };
};

using CConversationTable = TRecordTable<ConversationTableTraits>;

}  // namespace zemo
