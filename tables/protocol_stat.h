// The record of ProtocolStats and ProtocolStatsByID: one protocol's packets,
// bytes, first and last time, keyed by the protocol's entity identifier.
#pragma once

#include <cstddef>

#include "identity/media_specs.h"
#include "platform/variant.h"
#include "tables/record_table.h"

#pragma pack(push, 4)
struct ZemoProtocolStat {
  ZemoTime FirstTime;  // 0 until the first packet
  ZemoTime LastTime;
  ULONGLONG Packets;
  ULONGLONG Bytes;  // wire length
};

struct ZemoProtocolStatEntry {
  ULONG EntityIndex;  // the key: the protocol's entity identifier
  ULONG Next;         // chain link, 0xFFFFFFFF at the end
  ZemoProtocolStat Stat;
};
#pragma pack(pop)
static_assert(sizeof(ZemoProtocolStat) == 32);
static_assert(sizeof(ZemoProtocolStatEntry) == 40);
static_assert(offsetof(ZemoProtocolStatEntry, Stat) == 8);

namespace zemo {

inline void CountProtocol(ZemoProtocolStat& s, ZemoTime time, USHORT length) noexcept {
  s.LastTime = time;
  if (s.FirstTime == 0) s.FirstTime = time;
  s.Packets += 1;
  s.Bytes += length;
}

struct ProtocolTableTraits {
  using Entry = ZemoProtocolStatEntry;
  using Key = ULONG;
  static constexpr uint32_t kBuckets = 769;
  static constexpr uint32_t kBlockLength = 256;
  static constexpr HRESULT kNoBlock = E_FAIL;
  static constexpr size_t kLinkOffset = offsetof(Entry, Next);
  static uint32_t Bucket(Key key) noexcept { return key % kBuckets; }
  static Key KeyOf(const Entry& e) noexcept { return e.EntityIndex; }
  static void Start(Entry& e, Key key) noexcept { e.EntityIndex = key; }
  static bool Since(const Entry& e, ZemoTime since) noexcept { return e.Stat.LastTime >= since; }
  static constexpr RecordField kKeyFields[] = {{u"EntityIndex", VT_UI4, offsetof(Entry, EntityIndex)}};
  static constexpr RecordField kFields[] = {
      {u"FirstTime", VT_UI8, offsetof(Entry, Stat.FirstTime)},
      {u"LastTime", VT_UI8, offsetof(Entry, Stat.LastTime)},
      {u"Packets", VT_UI8, offsetof(Entry, Stat.Packets)},
      {u"Bytes", VT_UI8, offsetof(Entry, Stat.Bytes)},
  };
};

using CProtocolTable = TRecordTable<ProtocolTableTraits>;

}  // namespace zemo
