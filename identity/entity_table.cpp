#include "identity/entity_table.h"
#include "frame/selection.h"

#include <algorithm>
#include <new>
#include <vector>

#include "frame/clsids.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"
#include "identity/identity_selection.h"
#include "platform/class_store.h"
#include "platform/clock.h"

namespace zemo {
namespace {

constexpr uint32_t kProtocolSubTable = 4;  // type 9: identifiers of the host's protocol tree
constexpr uint32_t kOldSubTableCount = 12;
constexpr uint32_t kMaxStreamLength = kMaxSpecLength;
constexpr uint32_t kMaxStreamDepth = 99;
constexpr size_t kWriteChunk = 64 * 1024;

uint32_t LittleEndian32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

template <class T>
void Append(std::vector<uint8_t>& out, const T& value) {
  const auto* p = reinterpret_cast<const uint8_t*>(&value);
  out.insert(out.end(), p, p + sizeof(T));
}

}  // namespace

EntityTable::EntityTable() = default;

HRESULT EntityTable::FinalConstruct() {
  CLSID clsid;
  HRESULT hr = CLSIDFromProgID(kProgIdProtoSpecs, &clsid);
  if (SUCCEEDED(hr)) hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IProtoSpecs::iid, m_protoSpecs.OutVoid());
  if (FAILED(hr)) return hr;
  try {
    for (uint32_t n = 0; n < kEntitySubTableCount; ++n)
      m_tables[n] = std::make_unique<CChainTable>(SubTableLength(n) + kDataOffset, 100, 8);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

uint32_t EntityTable::SubTableFor(ULONG type) const noexcept {
  if (type < 1 || type >= kMediaTypeLimit) return kNoEntitySubTable;
  uint32_t n = EntitySubTableOf(type);
  // The old form has four bits for the sub-table, and the last of its
  // numbers with a full index would be 0xFFFFFFFF.
  if (n != kNoEntitySubTable && Shift() == 28 && n >= 15) return kNoEntitySubTable;
  return n;
}

uint32_t EntityTable::Hash(const uint8_t* value, uint32_t length) noexcept {
  uint32_t h = 0;
  if (length >= 4)
    h = LittleEndian32(value + length - 4);
  else
    for (uint32_t i = 0; i < length; ++i) h = h << 8 | value[i];
  return h % CChainTable::kHeadCount;
}

ULONG EntityTable::FindOrAddIn(uint32_t n, const uint8_t* value, uint32_t tag, bool add) {
  CChainTable& table = *m_tables[n];
  const uint32_t length = SubTableLength(n);
  uint32_t i = table.Find(tag, [&](uint32_t r) { return std::memcmp(Data(n, r), value, length) == 0; });
  if (i != CChainTable::kEnd) return MakeId(n, i);
  if (!add) return kNoEntityId;
  uint32_t index = table.Add(Hash(value, length), tag, Now(), IndexMask());
  std::memcpy(table.Record(index) + kDataOffset, value, length);
  return MakeId(n, index);
}

// ---- IEntityTable -----------------------------------------------------------

HRESULT EntityTable::Reset() {
  return Locked([&] {
    for (auto& table : m_tables)
      if (table) table->Clear();
    m_memo.Clear();
  });
}

HRESULT EntityTable::GetCount(ULONG type, ULONG* count) {
  return Locked([&]() -> HRESULT {
    CheckOut(count);
    *count = 0;
    if (type == 0) {
      for (auto& table : m_tables) *count += table->GetCount();
      return S_OK;
    }
    uint32_t n = type < kMediaTypeLimit ? EntitySubTableOf(type) : kNoEntitySubTable;
    if (n == kNoEntitySubTable) return E_INVALIDARG;
    *count = m_tables[n]->GetCount();
    return S_OK;
  });
}

// A value asked for a moment ago is answered from the memo, without the
// lock; anything else takes the lock and the index, and leaves its answer in
// the memo.
HRESULT EntityTable::FindOrAdd(const MediaSpec* spec, LONG add, ULONG* id) {
  return Unlocked([&]() -> HRESULT {
    if (!spec) return E_INVALIDARG;
    CheckOut(id);
    *id = kNoEntityId;
    uint32_t n = SubTableFor(spec->fType);
    if (n == kNoEntitySubTable) return E_FAIL;
    const uint32_t length = SubTableLength(n);
    const CEntityMemo::Key key(n, spec->fData, length);
    const uint32_t tag = CKeyIndex::HashBytes(spec->fData, length);
    *id = m_memo.Find(key, tag);
    if (*id != kNoEntityId) return S_OK;
    std::lock_guard<CObjectLock> hold(ObjectLock());
    *id = FindOrAddIn(n, spec->fData, tag, add == 1);
    if (*id == kNoEntityId) return E_FAIL;
    m_memo.Store(key, tag, *id);
    return S_OK;
  });
}

HRESULT EntityTable::GetEntity(ULONG id, MediaSpec* spec, ZemoTime* time) {
  return Locked([&]() -> HRESULT {
    CheckOut(spec);
    *spec = MediaSpec{};
    if (id == kNoEntityId) return E_INVALIDARG;
    uint32_t n = id >> Shift(), index = id & IndexMask();
    if (n >= kEntitySubTableCount || index >= m_tables[n]->GetCount()) return E_FAIL;
    spec->fClass = SubTableClass(n);
    spec->fType = SubTableType(n);
    spec->fMask = MediaSpecFullMask(spec->fType);
    std::memcpy(spec->fData, Data(n, index), SubTableLength(n));
    if (time) *time = m_tables[n]->Time(index);
    return S_OK;
  });
}

HRESULT EntityTable::GetFirstId(ULONG type, ULONG* id, BOOL* more) {
  return Locked([&] {
    CheckOut(id);
    CheckOut(more);
    *id = kNoEntityId;
    *more = FALSE;
    uint32_t n = SubTableFor(type);
    if (n != kNoEntitySubTable) IdAt(*m_tables[n], MakeId(n, 0), 0, id, more);
  });
}

HRESULT EntityTable::GetNextId(ULONG id, ULONG* next, BOOL* more) {
  return Locked([&]() -> HRESULT {
    CheckOut(next);
    CheckOut(more);
    *next = kNoEntityId;
    *more = FALSE;
    uint32_t n = id >> Shift();
    if (id == kNoEntityId || n >= kEntitySubTableCount) return E_INVALIDARG;
    IdAt(*m_tables[n], MakeId(n, 0), (id & IndexMask()) + 1, next, more);
    return S_OK;
  });
}

HRESULT EntityTable::IsProtocolWithin(ULONG id, ULONG within, BOOL* yes) {
  return Locked([&]() -> HRESULT {
    CheckOut(yes);
    *yes = FALSE;
    BYTE specClass = 0, type1 = 0, type2 = 0;
    if (FAILED(GetEntityKind(id, &specClass, &type1)) || FAILED(GetEntityKind(within, &specClass, &type2)) ||
        type1 != 9 || type2 != 9)
      return E_FAIL;
    if (!m_protoSpecs) return E_FAIL;
    MediaSpec first, second;
    CheckHr(GetEntity(id, &first, nullptr));
    CheckHr(GetEntity(within, &second, nullptr));
    const ULONG ids[1] = {LittleEndian32(second.fData)};
    HRESULT hr = m_protoSpecs->IsSpecWithin(LittleEndian32(first.fData), ids, 1, 0, 0);
    *yes = hr == S_OK;
    return hr;
  });
}

// Reads only the version, which changes only in a load: no lock, so that
// the tuple table may ask on every packet at the price of a call.
HRESULT EntityTable::GetEntityKind(ULONG id, BYTE* specClass, BYTE* type) {
  return Unlocked([&]() -> HRESULT {
    CheckOut(specClass);
    CheckOut(type);
    *specClass = 0;
    *type = 0;
    uint32_t n = id >> Shift();
    if (n >= kEntitySubTableCount) return E_FAIL;
    *specClass = SubTableClass(n);
    *type = SubTableType(n);
    return S_OK;
  });
}

// ---- binary stream ----------------------------------------------------------

HRESULT EntityTable::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_EntityTable;
  });
}

HRESULT EntityTable::GetSizeMax(ULARGE_INTEGER* size) { return size ? E_NOTIMPL : E_POINTER; }

uint32_t EntityTable::PathOf(uint32_t value, USHORT (&path)[kMaxPath]) const {
  if ((value >> 16) == 0 || !m_protoSpecs) return 0;
  ULONG depth = kMaxPath;
  if (FAILED(m_protoSpecs->GetSpecPath(value, path, &depth)) || depth > kMaxPath) return 0;
  std::reverse(path, path + depth);
  return depth;
}

void EntityTable::WriteValue(std::vector<uint8_t>& out, uint32_t n, uint32_t index) const {
  const uint8_t* data = Data(n, index);
  if (n != kProtocolSubTable) {
    out.insert(out.end(), data, data + SubTableLength(n));
    return;
  }
  uint32_t value = LittleEndian32(data);
  USHORT path[kMaxPath];
  uint32_t depth = PathOf(value, path);
  Append(out, depth);
  if (depth == 0)
    Append(out, static_cast<USHORT>(value));
  else
    for (uint32_t i = 0; i < depth; ++i) Append(out, path[i]);
}

HRESULT EntityTable::SaveDeltas(IStream* stream, ZemoTime* since) {
  return Locked([&] {
    if (!stream || !since) AtlThrow(E_POINTER);
    const ZemoTime from = *since;
    ::zemo::WriteValue(stream, kEntityStreamMagic);
    ::zemo::WriteValue(stream, kEntityVersion);
    std::vector<uint8_t> buffer;
    for (uint32_t n = 0; n < kEntitySubTableCount; ++n) {
      const CChainTable& table = *m_tables[n];
      CountFixup<ULONG> written(stream, table.GetCount());
      ::zemo::WriteValue(stream, static_cast<USHORT>(SubTableLength(n)));
      for (uint32_t i = 0; i < table.GetCount(); ++i) {
        if (table.Time(i) < from) continue;
        WriteValue(buffer, n, i);
        written.Add();
        if (buffer.size() >= kWriteChunk) {
          WriteBytes(stream, buffer.data(), buffer.size());
          buffer.clear();
        }
      }
      WriteBytes(stream, buffer.data(), buffer.size());
      buffer.clear();
      written.Finish();
    }
  });
}

uint32_t EntityTable::ReadProtocolValue(IStream* stream) const {
  const ULONG depth = ReadValue<ULONG>(stream);
  if (depth > kMaxStreamDepth) AtlThrow(E_FAIL);
  if (depth == 0) return ReadValue<USHORT>(stream);
  USHORT path[kMaxStreamDepth];
  ReadRecords(stream, std::span<USHORT>(path, depth));
  std::reverse(path, path + depth);
  MediaSpec spec{};
  if (m_protoSpecs) m_protoSpecs->FindSpecByPath(path, depth, &spec);
  return LittleEndian32(spec.fData);
}

HRESULT EntityTable::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    if (ReadValue<USHORT>(stream) != kEntityStreamMagic) AtlThrow(E_FAIL);
    const USHORT version = ReadValue<USHORT>(stream);
    if (version != kEntityVersion && version != kEntityVersionOld) AtlThrow(E_FAIL);
    if (version != m_version.load(std::memory_order_relaxed)) m_memo.Clear();
    m_version.store(version, std::memory_order_relaxed);
    const uint32_t count = version == kEntityVersion ? kEntitySubTableCount : kOldSubTableCount;
    for (uint32_t n = 0; n < count; ++n) {
      const ULONG entities = ReadValue<ULONG>(stream);
      const USHORT length = ReadValue<USHORT>(stream);
      if (length > kMaxStreamLength) AtlThrow(E_OUTOFMEMORY);
      if (n == kProtocolSubTable) {
        for (ULONG i = 0; i < entities; ++i) {
          uint32_t value = ReadProtocolValue(stream);
          uint8_t data[4] = {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)};
          if (FindOrAddIn(n, data, true) == kNoEntityId) AtlThrow(E_FAIL);
        }
        continue;
      }
      uint8_t data[kMaxSpecLength] = {};
      // Values of no bytes are all one value: one lookup stands for any count,
      // and a hostile count costs nothing.
      const ULONG reads = length == 0 ? std::min<ULONG>(entities, 1) : entities;
      for (ULONG i = 0; i < reads; ++i) {
        ReadBytes(stream, data, length);
        if (FindOrAddIn(n, data, true) == kNoEntityId) AtlThrow(E_FAIL);
      }
    }
  });
}

// ---- XML --------------------------------------------------------------------

HRESULT EntityTable::SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) {
  return Locked([&] {
    if (!since) AtlThrow(E_POINTER);
    auto doc = XmlDocumentOf(document);
    auto parent = XmlNodeOf(node);
    auto element = CreateChildElement(doc.Get(), parent.Get(), u"entitytable");
    for (uint32_t n = 0; n < kEntitySubTableCount; ++n) {
      const CChainTable& table = *m_tables[n];
      for (uint32_t i = 0; i < table.GetCount(); ++i) {
        if (table.Time(i) < *since) continue;
        auto entity = CreateChildElement(doc.Get(), element.Get(), u"entity");
        SetAttribute(entity.Get(), u"class", static_cast<uint32_t>(SubTableClass(n)));
        SetAttribute(entity.Get(), u"type", static_cast<uint32_t>(SubTableType(n)));
        SetAttribute(entity.Get(), u"data", std::u16string_view(HexText16(Data(n, i), SubTableLength(n))));
      }
    }
  });
}

HRESULT EntityTable::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    auto parent = XmlNodeOf(node);
    auto element = SelectXmlNode(parent.Get(), u"entitytable");
    if (!element) return;
    ForEachChildElement(element.Get(), [&](IXMLDOMElement* entity) {
      MediaSpec spec = LoadSpecAttributes(entity, true);
      uint32_t n = SubTableFor(spec.fType);
      if (n == kNoEntitySubTable || FindOrAddIn(n, spec.fData, true) == kNoEntityId) AtlThrow(E_FAIL);
    });
  });
}

// ---- text export ------------------------------------------------------------

HRESULT EntityTable::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] {
    CheckExportExtension(fileName, kExportTxt);
    return WriteTextFile(fileName, FileOpenStyle::Runtime, [&](TextWriter& out) {
      for (uint32_t n = 0; n < kEntitySubTableCount; ++n) {
        const CChainTable& table = *m_tables[n];
        out.Printf("Table %u, %u items, %u bytes each\n", n, table.GetCount(), SubTableLength(n));
        for (uint32_t i = 0; i < table.GetCount(); ++i) {
          out.U32(i);
          out.Text("l ");
          out.U64(table.Time(i));
          out.Char(' ');
          if (n != kProtocolSubTable) {
            out.Text(HexText(Data(n, i), SubTableLength(n)));
            out.Char('\n');
            continue;
          }
          // Protocols run on in one line: the path has no line end.
          uint32_t value = LittleEndian32(Data(n, i));
          USHORT path[kMaxPath];
          uint32_t depth = PathOf(value, path);
          if (depth == 0) {
            out.Char(':');
            out.U32(value & 0xFFFF);
          }
          for (uint32_t k = 0; k < depth; ++k) {
            out.Char(':');
            out.U32(path[k]);
          }
        }
      }
    });
  });
}

// ---- ISelectableObject ------------------------------------------------------

HRESULT EntityTable::GetSelectName(BSTR* name) {
  return Unlocked([&] { identity::SelectNameOut(name, u"entitytable"); });
}

HRESULT EntityTable::GetSelectFlag(ULONG* flag) {
  return Unlocked([&] {
    CheckOut(flag);
    *flag = 0;
  });
}

HRESULT EntityTable::GetSelectParams(ISelectParams** params) { return params ? E_NOTIMPL : E_POINTER; }

HRESULT EntityTable::Select(ISelectParams* params, IUnknown** out) {
  return Locked([&] {
    if (!params) AtlThrow(E_POINTER);
    return SelectLeaf(params, GetUnknown(), out, E_INVALIDARG, true);
  });
}

HRESULT EntityTable::GetTable(IDataTable** table) { return table ? E_NOTIMPL : E_POINTER; }

}  // namespace zemo
