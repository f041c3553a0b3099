// The identity tables' interfaces and the records they hand out: an entity
// identifier for each distinct address or protocol, a tuple identifier for
// each distinct (source, destination, protocol).
#pragma once

#include "frame/iids.h"
#include "identity/media_specs.h"
#include "platform/interfaces.h"

// No entity, no tuple.
inline constexpr ULONG kNoEntityId = 0xFFFFFFFFu;
inline constexpr ULONG kNoTupleId = 0xFFFFFFFFu;

// A tuple as the tuple table keeps it. Callers fill source, destination and
// protocol; the table sets time and next.
struct TupleRecord {
  ZemoTime fTime;  // wall clock when the tuple was added
  ULONG fSource;   // entity identifiers
  ULONG fDestination;
  ULONG fProtocol;
  ULONG fNext;     // next record of the chain, or 0xFFFFFFFF
};
static_assert(sizeof(TupleRecord) == 24);

struct IEntityTable : IUnknown {
  static constexpr IID iid = IID_IEntityTable;
  virtual HRESULT Reset() = 0;
  // Type 0: the count over all sub-tables.
  virtual HRESULT GetCount(ULONG type, ULONG* count) = 0;
  // Adds only if add is exactly 1.
  virtual HRESULT FindOrAdd(const MediaSpec* spec, LONG add, ULONG* id) = 0;
  // time may be null.
  virtual HRESULT GetEntity(ULONG id, MediaSpec* spec, ZemoTime* time) = 0;
  virtual HRESULT GetFirstId(ULONG type, ULONG* id, BOOL* more) = 0;
  virtual HRESULT GetNextId(ULONG id, ULONG* next, BOOL* more) = 0;
  // Both of type 9: whether the first lies at or below the second in the
  // host's protocol tree.
  virtual HRESULT IsProtocolWithin(ULONG id, ULONG within, BOOL* yes) = 0;
  // From the identifier alone, without the lock.
  virtual HRESULT GetEntityKind(ULONG id, BYTE* specClass, BYTE* type) = 0;
};

struct ITupleTable : IUnknown {
  static constexpr IID iid = IID_ITupleTable;
  virtual HRESULT GetEntityTable(IEntityTable** table) = 0;
  virtual HRESULT SetEntityTable(IEntityTable* table) = 0;
  virtual HRESULT Reset() = 0;
  // By the entity type of the source; type 0: the count over all sub-tables.
  virtual HRESULT GetCount(ULONG type, ULONG* count) = 0;
  virtual HRESULT FindOrAdd(const TupleRecord* record, LONG add, ULONG* id) = 0;
  virtual HRESULT GetTuple(ULONG id, TupleRecord* record) = 0;
  // 0xFFFFFFFF in source, destination or protocol matches anything; start
  // 0xFFFFFFFF begins a search, a hit goes on behind that hit.
  virtual HRESULT Search(ULONG source, ULONG destination, ULONG protocol, LONG bothDirections, ULONG start,
                         ULONG* id, BOOL* found) = 0;
  virtual HRESULT GetFirstId(ULONG type, ULONG* id, BOOL* more) = 0;
  virtual HRESULT GetNextId(ULONG id, ULONG* next, BOOL* more) = 0;
};
