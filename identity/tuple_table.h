// TupleTable: interns every distinct (source, destination, protocol) of
// entity identifiers as a 32-bit tuple identifier, for the conversation
// statistics, and searches tuples by any part of them.
//
// A tuple's sub-table is decided by the type of its source entity; the
// identifier holds that sub-table in its top 4 bits and the record index in
// the low 28, whatever the entity table's form.
#pragma once

#include <array>

#include "frame/delta_save.h"
#include "frame/persist_interfaces.h"
#include "identity/chain_table.h"
#include "identity/identity_interfaces.h"
#include "platform/object.h"

namespace zemo {

inline constexpr USHORT kTupleStreamMagic = 0x6966;
inline constexpr USHORT kTupleVersion = 0x200;
inline constexpr USHORT kTupleVersionHeadless = 0x100;
inline constexpr uint32_t kTupleSubTableCount = 9;
inline constexpr uint32_t kNoTupleSubTable = 15;

// The sub-table of a source entity type, or kNoTupleSubTable.
constexpr uint32_t TupleSubTableOf(uint32_t sourceType) {
  switch (sourceType) {
    case 10: return 0;
    case 20: return 1;
    case 21: return 2;
    case 22: return 3;
    case 24: return 4;
    case 13: return 5;
    case 25: return 6;
    case 43: return 7;
    case 11: return 8;
    default: return kNoTupleSubTable;
  }
}

class TupleTable final
    : public Object<TupleTable, ITupleTable, PersistStreamByDeltas<TupleTable>, ISaveStreamDeltas,
                    PersistXmlByDeltas<TupleTable>, IPersistXmlDeltas, ISelectableObject> {
 public:
  TupleTable();
  ~TupleTable();
  HRESULT FinalConstruct();

  // ITupleTable
  HRESULT GetEntityTable(IEntityTable** table) override;
  HRESULT SetEntityTable(IEntityTable* table) override;
  HRESULT Reset() override;
  HRESULT GetCount(ULONG type, ULONG* count) override;
  HRESULT FindOrAdd(const TupleRecord* record, LONG add, ULONG* id) override;
  HRESULT GetTuple(ULONG id, TupleRecord* record) override;
  HRESULT Search(ULONG source, ULONG destination, ULONG protocol, LONG bothDirections, ULONG start, ULONG* id,
                 BOOL* found) override;
  HRESULT GetFirstId(ULONG type, ULONG* id, BOOL* more) override;
  HRESULT GetNextId(ULONG id, ULONG* next, BOOL* more) override;

  // IPersistStream, ISaveStreamDeltas
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT SaveDeltas(IStream* stream, ZemoTime* since) override;

  // IPersistXml, IPersistXmlDeltas
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) override;

  // ISelectableObject
  HRESULT GetSelectName(BSTR* name) override;
  HRESULT GetSelectFlag(ULONG* flag) override;
  HRESULT GetSelectParams(ISelectParams** params) override;
  HRESULT Select(ISelectParams* params, IUnknown** out) override;
  HRESULT GetTable(IDataTable** table) override;

  // Sub-table n itself, for tests; not to be read while another thread may add.
  const CChainTable& SubTable(uint32_t n) const { return *m_tables.at(n); }
  // The chain bucket of a triple.
  static uint32_t Bucket(ULONG source, ULONG destination, ULONG protocol) noexcept {
    return (source + 8 * destination + 32 * protocol) % CChainTable::kHeadCount;
  }

 private:
  static constexpr uint32_t kShift = 28;
  static constexpr uint32_t kIndexMask = (1u << kShift) - 1;

  static ULONG MakeId(uint32_t n, uint32_t index) noexcept { return n << kShift | index; }
  TupleRecord& Record(uint32_t n, uint32_t index) const noexcept {
    return *reinterpret_cast<TupleRecord*>(m_tables[n]->Record(index));
  }
  // The sub-table of a tuple with this source: by the entity table, or 0
  // without one.
  uint32_t SubTableOfSource(ULONG source) const;
  // Finds the triple in sub-table n, adding it if add; kNoTupleId if absent.
  ULONG FindOrAddIn(uint32_t n, ULONG source, ULONG destination, ULONG protocol, bool add);
  bool Matches(const TupleRecord& record, ULONG source, ULONG destination, ULONG protocol, bool both) const;

  ComPtr<IEntityTable> m_entityTable;
  std::array<std::unique_ptr<CChainTable>, kTupleSubTableCount> m_tables;
};

}  // namespace zemo
