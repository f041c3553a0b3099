// EntityTable: interns every distinct address and protocol of a capture as
// a 32-bit identifier, so that the table statistics key on four bytes. It is
// append-only until Reset, which is what lets identifiers stand in records
// and in saved deltas.
//
// An identifier holds the sub-table number (by type) in its top bits and the
// record index below: 8 and 24 bits in the present form (0x300), 4 and 28 in
// the older one (0x200) that a table keeps after loading such a stream.
#pragma once

#include <array>
#include <atomic>

#include "frame/delta_save.h"
#include "frame/engine_interfaces.h"
#include "frame/persist_interfaces.h"
#include "identity/chain_table.h"
#include "identity/entity_memo.h"
#include "identity/identity_interfaces.h"
#include "platform/object.h"

namespace zemo {

inline constexpr USHORT kEntityStreamMagic = 0x6865;
inline constexpr USHORT kEntityVersion = 0x300;
inline constexpr USHORT kEntityVersionOld = 0x200;

class EntityTable final
    : public Object<EntityTable, IEntityTable, PersistStreamByDeltas<EntityTable>, ISaveStreamDeltas,
                    PersistXmlByDeltas<EntityTable>, IPersistXmlDeltas, IPersistFile, ISelectableObject> {
 public:
  EntityTable();
  HRESULT FinalConstruct();

  // IEntityTable
  HRESULT Reset() override;
  HRESULT GetCount(ULONG type, ULONG* count) override;
  HRESULT FindOrAdd(const MediaSpec* spec, LONG add, ULONG* id) override;
  HRESULT GetEntity(ULONG id, MediaSpec* spec, ZemoTime* time) override;
  HRESULT GetFirstId(ULONG type, ULONG* id, BOOL* more) override;
  HRESULT GetNextId(ULONG id, ULONG* next, BOOL* more) override;
  HRESULT IsProtocolWithin(ULONG id, ULONG within, BOOL* yes) override;
  HRESULT GetEntityKind(ULONG id, BYTE* specClass, BYTE* type) override;

  // IPersistStream, ISaveStreamDeltas, IPersistFile
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT SaveDeltas(IStream* stream, ZemoTime* since) override;
  HRESULT Load(LPCOLESTR, DWORD) override { return E_NOTIMPL; }
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR) override { return S_OK; }
  HRESULT GetCurFile(LPOLESTR*) override { return E_NOTIMPL; }

  // IPersistXml, IPersistXmlDeltas
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) override;

  // ISelectableObject
  HRESULT GetSelectName(BSTR* name) override;
  HRESULT GetSelectFlag(ULONG* flag) override;
  HRESULT GetSelectParams(ISelectParams** params) override;
  HRESULT Select(ISelectParams* params, IUnknown** out) override;
  HRESULT GetTable(IDataTable** table) override;

  // The identifier of index in sub-table n under the table's version.
  ULONG MakeId(uint32_t n, uint32_t index) const noexcept { return n << Shift() | index; }
  // Sub-table n itself, for tuning and tests; not to be read while another
  // thread may add.
  const CChainTable& SubTable(uint32_t n) const { return *m_tables.at(n); }
  // The chain bucket of a value of that length.
  static uint32_t Hash(const uint8_t* value, uint32_t length) noexcept;

 private:
  static constexpr uint32_t kDataOffset = 12;  // behind time (8) and next (4)
  static constexpr uint32_t kMaxPath = 100;

  uint32_t Shift() const noexcept { return m_version.load(std::memory_order_relaxed) == kEntityVersionOld ? 28 : 24; }
  uint32_t IndexMask() const noexcept { return (1u << Shift()) - 1; }
  // The sub-table of a type that this table can identify, or kNoEntitySubTable.
  uint32_t SubTableFor(ULONG type) const noexcept;

  // Finds the value in sub-table n (compared over the sub-table's length,
  // filed in the index under tag), adding it if add; its identifier, or
  // kNoEntityId if absent.
  ULONG FindOrAddIn(uint32_t n, const uint8_t* value, uint32_t tag, bool add);
  ULONG FindOrAddIn(uint32_t n, const uint8_t* value, bool add) {
    return FindOrAddIn(n, value, CKeyIndex::HashBytes(value, SubTableLength(n)), add);
  }
  const uint8_t* Data(uint32_t n, uint32_t index) const noexcept { return m_tables[n]->Record(index) + kDataOffset; }

  // Sub-table 4 in streams and text: a protocol by its path in the host's
  // tree, last entry first. 0 when the value is written by its low half.
  uint32_t PathOf(uint32_t value, USHORT (&path)[kMaxPath]) const;
  uint32_t ReadProtocolValue(IStream* stream) const;
  void WriteValue(std::vector<uint8_t>& out, uint32_t n, uint32_t index) const;

  std::atomic<USHORT> m_version{kEntityVersion};
  ComPtr<IProtoSpecs> m_protoSpecs;
  std::array<std::unique_ptr<CChainTable>, kEntitySubTableCount> m_tables;
  CEntityMemo m_memo;
};

}  // namespace zemo
