// Shared steps of the identity table tests: tables, adding, stream bytes.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "engine/spec_values.h"
#include "frame/clsids.h"
#include "frame/persist_interfaces.h"
#include "frame/stream_persist.h"
#include "identity/entity_table.h"
#include "identity/tuple_table.h"
#include "platform/class_store.h"
#include "platform/clock.h"
#include "platform/stream.h"
#include "support/stream_bytes.h"

namespace identity_test {

using zemo::ComPtr;

inline ComPtr<IEntityTable> NewEntityTable() { return zemo::MakeObject<zemo::EntityTable, IEntityTable>(); }

inline ComPtr<ITupleTable> NewTupleTable(IEntityTable* entities) {
  auto tuples = zemo::MakeObject<zemo::TupleTable, ITupleTable>();
  if (entities) {
    EXPECT_EQ(S_OK, tuples->SetEntityTable(entities));
  }
  return tuples;
}

inline ULONG Add(IEntityTable* table, const MediaSpec& spec) {
  ULONG id = 0;
  EXPECT_EQ(S_OK, table->FindOrAdd(&spec, 1, &id));
  return id;
}

// The entities or tuples of a table, of one type (0: all).
template <class Table>
ULONG Count(Table* table, ULONG type = 0) {
  ULONG n = 0;
  EXPECT_EQ(S_OK, table->GetCount(type, &n));
  return n;
}

inline ULONG AddTuple(ITupleTable* table, ULONG source, ULONG destination, ULONG protocol) {
  TupleRecord r{};
  r.fSource = source;
  r.fDestination = destination;
  r.fProtocol = protocol;
  ULONG id = 0;
  EXPECT_EQ(S_OK, table->FindOrAdd(&r, 1, &id));
  return id;
}

inline MediaSpec Ip(uint32_t n) {
  return zemo::specs::Ipv4(uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n));
}

inline MediaSpec Mac(uint32_t n, uint8_t type = 10) {
  return zemo::specs::Make(type, {0x00, 0x50, uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)});
}

// A spec of a type without value bytes.
inline MediaSpec Valueless(uint8_t type) {
  MediaSpec s{};
  s.fClass = 1;
  s.fType = type;
  return s;
}

using zemo::testing_support::DeltaBytes;
using zemo::testing_support::LoadStreamBytes;

// Little-endian stream bytes put together by hand.
class Bytes {
 public:
  template <class T>
  Bytes& Put(T value) {
    const auto* p = reinterpret_cast<const uint8_t*>(&value);
    m_bytes.insert(m_bytes.end(), p, p + sizeof(T));
    return *this;
  }
  Bytes& Raw(std::initializer_list<uint8_t> bytes) {
    m_bytes.insert(m_bytes.end(), bytes);
    return *this;
  }
  // count sub-tables holding nothing, each with its length field.
  Bytes& EmptyEntitySubTables(uint32_t from, uint32_t to) {
    for (uint32_t n = from; n < to; ++n) Put<ULONG>(0).Put<USHORT>(USHORT(zemo::SubTableLength(n)));
    return *this;
  }
  const std::vector<uint8_t>& Get() const { return m_bytes; }

 private:
  std::vector<uint8_t> m_bytes;
};

// The present moves only when a test says so.
class FixedClock {
 public:
  explicit FixedClock(ZemoTime t) { zemo::SetNowForTesting(t); }
  ~FixedClock() { zemo::SetNowForTesting(0); }
  void Set(ZemoTime t) { zemo::SetNowForTesting(t); }
};

// The chains of a table that finds by walking them alone: every record in
// the chain of its bucket, behind every record added to that chain after it.
inline void ExpectChainsInAddOrder(const zemo::CChainTable& t, const std::function<uint32_t(uint32_t)>& bucketOf) {
  std::vector<std::vector<uint32_t>> want(zemo::CChainTable::kHeadCount);
  for (uint32_t i = t.GetCount(); i-- > 0;) want[bucketOf(i)].push_back(i);
  for (uint32_t b = 0; b < zemo::CChainTable::kHeadCount; ++b) {
    std::vector<uint32_t> got;
    for (uint32_t i = t.Head(b); i != zemo::CChainTable::kEnd && got.size() <= t.GetCount(); i = t.Next(i))
      got.push_back(i);
    ASSERT_EQ(want[b], got) << "bucket " << b;
  }
}

}  // namespace identity_test
