#include "identity/tuple_table.h"
#include "frame/selection.h"

#include <cstddef>
#include <cstdio>
#include <new>

#include "frame/clsids.h"
#include "frame/stream_persist.h"
#include "frame/xml_persist.h"
#include "identity/identity_selection.h"
#include "platform/clock.h"

namespace zemo {
namespace {

constexpr uint32_t kOldSubTableCount = 7;

struct Triple {
  ULONG source, destination, protocol;
};
static_assert(sizeof(Triple) == 12);

ULONG ReadHexAttribute(IXMLDOMElement* element, std::u16string_view name) {
  std::u16string text;
  if (!GetAttribute(element, name, text) || text.empty() || text.size() > 8) AtlThrow(E_FAIL);
  ULONG value = 0;
  for (char16_t c : text) {
    int digit = HexDigitValue(c);
    if (digit < 0) AtlThrow(E_FAIL);
    value = value << 4 | static_cast<ULONG>(digit);
  }
  return value;
}

void SetHexAttribute(IXMLDOMElement* element, std::u16string_view name, ULONG value) {
  char text[9];
  std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
  SetAttribute(element, name, std::u16string(text, text + std::strlen(text)));
}

}  // namespace

TupleTable::TupleTable() = default;

// The entity table goes before the sub-tables it was keyed against.
TupleTable::~TupleTable() { m_entityTable = nullptr; }

HRESULT TupleTable::FinalConstruct() {
  try {
    for (auto& table : m_tables) table = std::make_unique<CChainTable>(sizeof(TupleRecord), 256, offsetof(TupleRecord, fNext));
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

uint32_t TupleTable::SubTableOfSource(ULONG source) const {
  if (!m_entityTable) return 0;
  BYTE specClass = 0, type = 0;
  m_entityTable->GetEntityKind(source, &specClass, &type);
  return TupleSubTableOf(type);
}

ULONG TupleTable::FindOrAddIn(uint32_t n, ULONG source, ULONG destination, ULONG protocol, bool add) {
  CChainTable& table = *m_tables[n];
  const uint32_t tag = CKeyIndex::HashWords(source, destination, protocol);
  uint32_t i = table.Find(tag, [&](uint32_t r) {
    const TupleRecord& t = Record(n, r);
    return t.fSource == source && t.fDestination == destination && t.fProtocol == protocol;
  });
  if (i != CChainTable::kEnd) return MakeId(n, i);
  if (!add) return kNoTupleId;
  uint32_t index = table.Add(Bucket(source, destination, protocol), tag, Now(), kIndexMask);
  TupleRecord& r = Record(n, index);
  r.fSource = source;
  r.fDestination = destination;
  r.fProtocol = protocol;
  return MakeId(n, index);
}

// ---- ITupleTable ------------------------------------------------------------

HRESULT TupleTable::GetEntityTable(IEntityTable** table) {
  return Locked([&] {
    CheckOut(table);
    m_entityTable.CopyTo(table);
  });
}

HRESULT TupleTable::SetEntityTable(IEntityTable* table) {
  return Locked([&] {
    if (m_entityTable.Get() != table) m_entityTable = table;
  });
}

HRESULT TupleTable::Reset() {
  return Locked([&] {
    for (auto& table : m_tables) table->Clear();
  });
}

HRESULT TupleTable::GetCount(ULONG type, ULONG* count) {
  return Locked([&]() -> HRESULT {
    CheckOut(count);
    *count = 0;
    if (type == 0) {
      for (auto& table : m_tables) *count += table->GetCount();
      return S_OK;
    }
    uint32_t n = TupleSubTableOf(type);
    if (n == kNoTupleSubTable) return E_FAIL;
    *count = m_tables[n]->GetCount();
    return S_OK;
  });
}

HRESULT TupleTable::FindOrAdd(const TupleRecord* record, LONG add, ULONG* id) {
  return Locked([&]() -> HRESULT {
    if (!record) return E_INVALIDARG;
    CheckOut(id);
    *id = kNoTupleId;
    uint32_t n = SubTableOfSource(record->fSource);
    if (n == kNoTupleSubTable) return E_FAIL;
    *id = FindOrAddIn(n, record->fSource, record->fDestination, record->fProtocol, add == 1);
    return *id == kNoTupleId ? E_FAIL : S_OK;
  });
}

HRESULT TupleTable::GetTuple(ULONG id, TupleRecord* record) {
  return Locked([&]() -> HRESULT {
    CheckOut(record);
    if (id == kNoTupleId) return E_INVALIDARG;
    uint32_t n = id >> kShift, index = id & kIndexMask;
    if (n >= kTupleSubTableCount || index >= m_tables[n]->GetCount()) return E_FAIL;
    *record = Record(n, index);
    return S_OK;
  });
}

bool TupleTable::Matches(const TupleRecord& r, ULONG source, ULONG destination, ULONG protocol, bool both) const {
  auto ends = [](ULONG s, ULONG d, const TupleRecord& r) {
    return (s == kNoEntityId || s == r.fSource) && (d == kNoEntityId || d == r.fDestination);
  };
  if (!ends(source, destination, r) && !(both && ends(destination, source, r))) return false;
  if (protocol == kNoEntityId || protocol == r.fProtocol) return true;
  BOOL within = FALSE;
  return SUCCEEDED(m_entityTable->IsProtocolWithin(r.fProtocol, protocol, &within)) && within;
}

HRESULT TupleTable::Search(ULONG source, ULONG destination, ULONG protocol, LONG bothDirections, ULONG start,
                           ULONG* id, BOOL* found) {
  return Locked([&]() -> HRESULT {
    CheckOut(id);
    CheckOut(found);
    *id = kNoTupleId;
    *found = FALSE;
    if (!m_entityTable) return E_FAIL;
    const bool anyEnd = source == kNoEntityId && destination == kNoEntityId;
    uint32_t n = 0, index = 0;
    if (start == kNoTupleId) {
      if (!anyEnd) n = SubTableOfSource(source != kNoEntityId ? source : destination);
      if (n == kNoTupleSubTable) return E_FAIL;
    } else {
      // Behind the last hit, as GetNextId goes.
      n = start >> kShift;
      index = (start & kIndexMask) + 1;
      if (n >= kTupleSubTableCount) return E_INVALIDARG;
    }
    for (;;) {
      if (index >= m_tables[n]->GetCount()) {
        // A given end keeps the search within its one sub-table.
        if (!anyEnd || ++n == kTupleSubTableCount) return S_OK;
        index = 0;
        continue;
      }
      if (Matches(Record(n, index), source, destination, protocol, bothDirections == 1)) {
        *id = MakeId(n, index);
        *found = TRUE;
        return S_OK;
      }
      ++index;
    }
  });
}

HRESULT TupleTable::GetFirstId(ULONG type, ULONG* id, BOOL* more) {
  return Locked([&] {
    CheckOut(id);
    CheckOut(more);
    *id = kNoTupleId;
    *more = FALSE;
    uint32_t n = TupleSubTableOf(type);
    if (n != kNoTupleSubTable) IdAt(*m_tables[n], MakeId(n, 0), 0, id, more);
  });
}

HRESULT TupleTable::GetNextId(ULONG id, ULONG* next, BOOL* more) {
  return Locked([&]() -> HRESULT {
    CheckOut(next);
    CheckOut(more);
    *next = kNoTupleId;
    *more = FALSE;
    uint32_t n = id >> kShift;
    if (id == kNoTupleId || n >= kTupleSubTableCount) return E_INVALIDARG;
    IdAt(*m_tables[n], MakeId(n, 0), (id & kIndexMask) + 1, next, more);
    return S_OK;
  });
}

// ---- binary stream ----------------------------------------------------------

HRESULT TupleTable::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_TupleTable;
  });
}

HRESULT TupleTable::GetSizeMax(ULARGE_INTEGER* size) { return size ? E_NOTIMPL : E_POINTER; }

HRESULT TupleTable::SaveDeltas(IStream* stream, ZemoTime* since) {
  return Locked([&] {
    if (!stream || !since) AtlThrow(E_POINTER);
    WriteValue(stream, kTupleStreamMagic);
    WriteValue(stream, kTupleVersion);
    std::vector<Triple> run;
    for (uint32_t n = 0; n < kTupleSubTableCount; ++n) {
      const CChainTable& table = *m_tables[n];
      CountFixup<ULONG> written(stream, table.GetCount());
      for (uint32_t i = 0; i < table.GetCount(); ++i) {
        const TupleRecord& r = Record(n, i);
        if (r.fTime < *since) continue;
        run.push_back({r.fSource, r.fDestination, r.fProtocol});
        written.Add();
        if (run.size() == 4096) {
          WriteRecords(stream, std::span<const Triple>(run));
          run.clear();
        }
      }
      WriteRecords(stream, std::span<const Triple>(run));
      run.clear();
      written.Finish();
    }
  });
}

HRESULT TupleTable::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    USHORT version = kTupleVersionHeadless;
    if (ReadValue<USHORT>(stream) == kTupleStreamMagic)
      version = ReadValue<USHORT>(stream);
    else
      CheckHr(stream->Seek(LARGE_INTEGER{-2}, STREAM_SEEK_CUR, nullptr));
    if (version != kTupleVersion && version != kTupleVersionHeadless) AtlThrow(E_FAIL);
    const uint32_t count = version == kTupleVersion ? kTupleSubTableCount : kOldSubTableCount;
    for (uint32_t n = 0; n < count; ++n) {
      const ULONG tuples = ReadValue<ULONG>(stream);
      for (ULONG i = 0; i < tuples; ++i) {
        Triple t = ReadValue<Triple>(stream);
        FindOrAddIn(n, t.source, t.destination, t.protocol, true);
      }
    }
  });
}

// ---- XML --------------------------------------------------------------------

HRESULT TupleTable::SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) {
  return Locked([&] {
    if (!since) AtlThrow(E_POINTER);
    auto doc = XmlDocumentOf(document);
    auto parent = XmlNodeOf(node);
    auto element = CreateChildElement(doc.Get(), parent.Get(), u"tupletable");
    for (uint32_t n = 0; n < kTupleSubTableCount; ++n) {
      for (uint32_t i = 0; i < m_tables[n]->GetCount(); ++i) {
        const TupleRecord& r = Record(n, i);
        if (r.fTime < *since) continue;
        auto tuple = CreateChildElement(doc.Get(), element.Get(), u"tuple");
        SetHexAttribute(tuple.Get(), u"src", r.fSource);
        SetHexAttribute(tuple.Get(), u"dest", r.fDestination);
        SetHexAttribute(tuple.Get(), u"proto", r.fProtocol);
      }
    }
  });
}

HRESULT TupleTable::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    auto parent = XmlNodeOf(node);
    auto element = SelectXmlNode(parent.Get(), u"tupletable");
    if (!element) return;
    ForEachChildElement(element.Get(), [&](IXMLDOMElement* tuple) {
      TupleRecord r{};
      r.fSource = ReadHexAttribute(tuple, u"src");
      r.fDestination = ReadHexAttribute(tuple, u"dest");
      r.fProtocol = ReadHexAttribute(tuple, u"proto");
      ULONG id;
      CheckHr(FindOrAdd(&r, 1, &id));
    });
  });
}

// ---- ISelectableObject ------------------------------------------------------

HRESULT TupleTable::GetSelectName(BSTR* name) {
  return Unlocked([&] { identity::SelectNameOut(name, u"tupletable"); });
}

HRESULT TupleTable::GetSelectFlag(ULONG* flag) {
  return Unlocked([&] {
    CheckOut(flag);
    *flag = 0;
  });
}

HRESULT TupleTable::GetSelectParams(ISelectParams** params) {
  if (!params) return E_POINTER;
  *params = nullptr;
  return E_NOTIMPL;
}

HRESULT TupleTable::Select(ISelectParams* params, IUnknown** out) {
  return Locked([&] { return SelectLeaf(params, GetUnknown(), out, E_INVALIDARG, true); });
}

HRESULT TupleTable::GetTable(IDataTable** table) {
  if (!table) return E_POINTER;
  *table = nullptr;
  return E_NOTIMPL;
}

}  // namespace zemo
