// The summary's interfaces and its value record: a snapshot is a labelled
// tree of typed values found by 16-byte item ids, SummaryStats keeps the
// current snapshot and stored ones, and a summary tracker follows one item.
#pragma once

#include <cstddef>

#include "frame/iids.h"
#include "platform/interfaces.h"

// The kinds of value an item holds. A group holds none.
enum SummaryValueType : ULONG {
  kSummaryNone = 0,
  kSummaryDate = 1,      // ZemoTime, shown as a date
  kSummaryTime = 2,      // ZemoTime, shown as a time of day
  kSummaryDuration = 3,  // signed nanoseconds
  kSummaryPackets = 4,
  kSummaryBytes = 5,
  kSummaryPair = 6,  // packets, then bytes
  kSummaryInt = 7,
  kSummaryDouble = 8,
};
inline constexpr ULONG kSummaryTypeCount = 9;

// 20 bytes: the type, then a 16-byte union with no padding after the type.
// Streams store it raw, the bytes a type does not use included.
#pragma pack(push, 4)
struct SummaryStatValue {
  ULONG Type;
  union {
    ZemoTime Time;
    LONGLONG Duration;
    ULONGLONG Count;
    struct {
      ULONGLONG Packets;
      ULONGLONG Bytes;
    } Pair;
    double Double;
    BYTE Raw[16];
  };
};
#pragma pack(pop)
static_assert(sizeof(SummaryStatValue) == 20 && offsetof(SummaryStatValue, Count) == 4 &&
              offsetof(SummaryStatValue, Pair.Bytes) == 12);

namespace zemo {
// Values of each kind, the unused bytes zero.
inline SummaryStatValue SummaryValue(ULONG type) noexcept {
  SummaryStatValue v{};
  v.Type = type;
  return v;
}
inline SummaryStatValue SummaryCount(ULONG type, ULONGLONG count) noexcept {
  SummaryStatValue v = SummaryValue(type);
  v.Count = count;
  return v;
}
inline SummaryStatValue SummaryPair(ULONGLONG packets, ULONGLONG bytes) noexcept {
  SummaryStatValue v = SummaryValue(kSummaryPair);
  v.Pair.Packets = packets;
  v.Pair.Bytes = bytes;
  return v;
}
inline SummaryStatValue SummaryDouble(double value) noexcept {
  SummaryStatValue v = SummaryValue(kSummaryDouble);
  v.Double = value;
  return v;
}
inline SummaryStatValue SummaryDuration(LONGLONG duration) noexcept {
  SummaryStatValue v = SummaryValue(kSummaryDuration);
  v.Duration = duration;
  return v;
}
}  // namespace zemo

struct ISummaryStatsItem : IUnknown {
  static constexpr IID iid = IID_ISummaryStatsItem;
  virtual HRESULT GetID(GUID* id) = 0;
  virtual HRESULT GetParent(GUID* parent) = 0;
  virtual HRESULT GetLabel(BSTR* label) = 0;
  virtual HRESULT SetLabel(BSTR label) = 0;
  virtual HRESULT GetValue(SummaryStatValue* value) = 0;
  virtual HRESULT SetValue(const SummaryStatValue* value) = 0;
};

struct ISummaryStatsSnapshot : IUnknown {
  static constexpr IID iid = IID_ISummaryStatsSnapshot;
  // Negative or past the end: E_INVALIDARG and an all-zero id.
  virtual HRESULT GetItemID(LONG index, GUID* id) = 0;
  virtual HRESULT GetItemCount(LONG* count) = 0;
  virtual HRESULT GetName(BSTR* name) = 0;
  virtual HRESULT SetName(BSTR name) = 0;
  virtual HRESULT GetID(GUID* id) = 0;
  virtual HRESULT SetID(REFGUID id) = 0;
  virtual HRESULT HasItem(REFGUID id, LONG* has) = 0;
  // Makes a group, and its parent first if that is missing; an existing
  // item stays as it is.
  virtual HRESULT AddGroup(REFGUID id, REFGUID parent) = 0;
  virtual HRESULT RemoveItem(REFGUID id) = 0;
  // Creates the item (and a missing parent) or replaces its label and
  // value where given; an existing item keeps its parent and place.
  virtual HRESULT SetItem(REFGUID id, REFGUID parent, BSTR label, const SummaryStatValue* value) = 0;
  virtual HRESULT GetParent(REFGUID id, GUID* parent) = 0;
  virtual HRESULT SetLabel(REFGUID id, BSTR label) = 0;
  virtual HRESULT GetLabel(REFGUID id, BSTR* label) = 0;
  virtual HRESULT SetValue(REFGUID id, const SummaryStatValue* value) = 0;
  virtual HRESULT GetValue(REFGUID id, SummaryStatValue* value) = 0;
  virtual HRESULT RemoveAll() = 0;
};

struct ISummaryStats : IUnknown {
  static constexpr IID iid = IID_ISummaryStats;
  // Index 0 is the current snapshot.
  virtual HRESULT GetSnapshot(LONG index, ISummaryStatsSnapshot** snapshot) = 0;
  virtual HRESULT GetSnapshotCount(LONG* count) = 0;
  virtual HRESULT FindSnapshot(REFGUID id, ISummaryStatsSnapshot** snapshot) = 0;
  virtual HRESULT AddSnapshot(ISummaryStatsSnapshot* snapshot) = 0;
  virtual HRESULT RemoveSnapshot(ISummaryStatsSnapshot* snapshot) = 0;
};

// The item a summary tracker follows, and the value type expected of it.
struct ISummaryStatsTracker : IUnknown {
  static constexpr IID iid = IID_ISummaryStatsTracker;
  virtual HRESULT GetItemID(GUID* id) = 0;
  virtual HRESULT SetItemID(GUID id) = 0;
  virtual HRESULT GetStatType(ULONG* type) = 0;
  virtual HRESULT SetStatType(ULONG type) = 0;
};
