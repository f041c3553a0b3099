// The record table of every table statistic: records in a block store, so
// that they never move, chained from a fixed array of heads by a hash of
// their key. New records go to the front of their chain, and the head array
// never grows: chains do.
//
// A statistic describes its record in a traits struct and adds its own
// per-packet update:
//
//   struct NodeTableTraits {
//     using Entry = ZemoNodeStatEntry;                  // the record, link included
//     using Key = ULONG;
//     static constexpr uint32_t kBuckets = 3079;
//     static constexpr uint32_t kBlockLength = 128;     // records to a block
//     static constexpr size_t kLinkOffset = offsetof(Entry, Next);
//     static uint32_t Bucket(Key key);                  // below kBuckets
//     static Key KeyOf(const Entry& e);
//     static void Start(Entry& e, Key key);             // key and start values of a zeroed record
//     static bool Since(const Entry& e, ZemoTime t);    // the delta time test
//     static constexpr RecordField kKeyFields[] = ...;  // property-list names of the key,
//     static constexpr RecordField kFields[] = ...;     // and of the rest, by offset in Entry
//     static constexpr HRESULT kNoBlock = E_FAIL;       // optional: what a block that can't be
//   };                                                  // had raises (E_OUTOFMEMORY without it)
//
// Streams carry a record as a row: its bytes without the link, in the
// record's own order and widths. XML carries it as a `stat` element holding
// a property list.
//
// Beside the chains stands a key index (CKeyIndex) that grows with the
// table: Find and FindOrAdd, which the packet path and the loads use, go
// through it in constant time, while ChainFind walks the chain as the
// interfaces' lookups define it. Add keeps both in step.
#pragma once

#include <array>
#include <cstring>
#include <span>
#include <type_traits>

#include "frame/block_store.h"
#include "frame/key_index.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"

namespace zemo {

inline constexpr uint32_t kNoRecord = 0xFFFFFFFFu;

// One field of a record as a property: its name, its type (VT_UI2, VT_UI4 or
// VT_UI8) and where it lies in the record.
struct RecordField {
  const char16_t* name;
  VARTYPE type;
  uint32_t offset;
};

// How a table's ".hash" dump is written: which way the file is opened, and
// whether the summary line follows the buckets.
struct HashDumpForm {
  FileOpenStyle style;
  bool summary;
};

template <class Traits>
class TRecordTable {
 public:
  using Entry = typename Traits::Entry;
  using Key = typename Traits::Key;
  static constexpr uint32_t kBuckets = Traits::kBuckets;
  static constexpr size_t kLinkOffset = Traits::kLinkOffset;
  static constexpr size_t kRowSize = sizeof(Entry) - sizeof(uint32_t);
  static_assert(std::is_trivially_copyable_v<Entry>);
  static_assert(kLinkOffset + sizeof(uint32_t) <= sizeof(Entry));

  TRecordTable() { m_heads.fill(kNoRecord); }
  TRecordTable(const TRecordTable&) = delete;
  TRecordTable& operator=(const TRecordTable&) = delete;

  uint32_t GetCount() const noexcept { return m_records.GetCount(); }
  // Null for a bad index; CBlockStore::kLastIndex is the last record.
  Entry* Get(uint32_t index) const noexcept { return m_records.Get(index); }
  Entry& operator[](uint32_t index) const noexcept { return m_records[index]; }
  const CBlockStore& Store() const noexcept { return m_records; }

  static uint32_t Link(const Entry& e) noexcept {
    uint32_t next;
    std::memcpy(&next, reinterpret_cast<const uint8_t*>(&e) + kLinkOffset, sizeof next);
    return next;
  }

  // Back to empty: every head empty, every block freed.
  void Clear() noexcept {
    m_heads.fill(kNoRecord);
    m_records.Clear();
    m_index.Clear();
  }

  // The record index of key, or kNoRecord, through the index.
  uint32_t Find(Key key) const noexcept {
    if constexpr (kTagIsKey)
      return m_index.Find(TagOf(key), CKeyIndex::AnyRecord{});
    else
      return m_index.Find(TagOf(key), [&](uint32_t i) { return Traits::KeyOf(m_records[i]) == key; });
  }

  // Starts bringing key's record into the cache, if the table holds it, so
  // that a packet's several records arrive together rather than one after
  // another.
  void Prefetch(Key key) const noexcept {
    const uint32_t i = Find(key);
    if (i == kNoRecord) return;
    const auto* bytes = reinterpret_cast<const char*>(&m_records[i]);
    for (size_t at = 0; at < sizeof(Entry); at += 64) __builtin_prefetch(bytes + at, 1);
    __builtin_prefetch(bytes + sizeof(Entry) - 1, 1);
  }

  // The same by walking key's chain. A chain that leads past the records,
  // or runs longer than the table (a loop), raises E_FAIL.
  uint32_t ChainFind(Key key) const {
    const uint32_t count = m_records.GetCount();
    uint32_t depth = 0;
    for (uint32_t i = m_heads[Traits::Bucket(key)]; i != kNoRecord; i = Link(m_records[i])) {
      if (i >= count || depth++ >= count) AtlThrow(E_FAIL);
      if (Traits::KeyOf(m_records[i]) == key) return i;
    }
    return kNoRecord;
  }

  // A new record for key at the front of its chain. A block (or room in
  // the index) that cannot be had raises the table's status and adds
  // nothing.
  uint32_t Add(Key key) {
    const uint32_t index = m_records.GetCount();
    Entry* e;
    try {
      m_index.Reserve();
      e = m_records.Append();
    } catch (const CAtlException&) {
      AtlThrow(kNoBlock);
    }
    Traits::Start(*e, key);
    uint32_t& head = m_heads[Traits::Bucket(key)];
    SetEntryLink(*e, head);
    head = index;
    m_index.Insert(TagOf(key), index);
    return index;
  }

  // Rewrites a record's link. Links are only ever made by Add; this is for
  // tests of what a broken chain does.
  void SetLinkForTesting(uint32_t index, uint32_t next) noexcept { SetEntryLink(m_records[index], next); }

  Entry& FindOrAdd(Key key) {
    uint32_t i = Find(key);
    return m_records[i != kNoRecord ? i : Add(key)];
  }

  // Copies a record out; a bad index zeroes the copy and raises E_FAIL.
  void CopyEntry(uint32_t index, Entry* out) const {
    if (!out) AtlThrow(E_POINTER);
    const Entry* e = m_records.Get(index);
    if (!e) {
      std::memset(out, 0, sizeof *out);
      AtlThrow(E_FAIL);
    }
    std::memcpy(out, e, sizeof *out);
  }

  // ---- stream rows -----------------------------------------------------------

  // The row count, then a row for each record that passes the time test, in
  // record order; the count is fixed up when fewer passed.
  void SaveRows(IStream* stream, ZemoTime since) const {
    constexpr size_t kRowsPerWrite = 512;
    std::array<uint8_t, kRowsPerWrite * kRowSize> buffer;
    size_t used = 0;
    WriteCounted<ULONG>(stream, m_records.GetCount(), [&](CountFixup<ULONG>& rows) {
      for (uint32_t i = 0, n = m_records.GetCount(); i < n; ++i) {
        const Entry& e = m_records[i];
        if (!Traits::Since(e, since)) continue;
        ToRow(e, &buffer[used]);
        used += kRowSize;
        rows.Add();
        if (used == buffer.size()) {
          WriteBytes(stream, buffer.data(), used);
          used = 0;
        }
      }
      WriteBytes(stream, buffer.data(), used);
    });
  }

  // Reads the row count and the rows. Each row replaces the record of its
  // key, which findOrAdd(key) gives (Entry&), found or new. The count is
  // taken as it stands: rows are read one at a time, and a stream that ends
  // early raises E_FAIL with the rows before it applied.
  template <class FindOrAddFn>
  void LoadRows(IStream* stream, FindOrAddFn&& findOrAdd) {
    const ULONG count = ReadValue<ULONG>(stream);
    uint8_t row[kRowSize];
    for (ULONG n = 0; n < count; ++n) {
      ReadBytes(stream, row, kRowSize);
      Entry incoming;
      FromRow(row, incoming);
      Entry& target = findOrAdd(Traits::KeyOf(incoming));
      const uint32_t link = Link(target);
      target = incoming;
      SetEntryLink(target, link);
    }
  }
  void LoadRows(IStream* stream) {
    LoadRows(stream, [this](Key key) -> Entry& { return FindOrAdd(key); });
  }

  // ---- XML rows --------------------------------------------------------------

  // A `stat` child of parent for each record that passes the time test.
  void SaveXmlRows(IXMLDOMDocument* document, IXMLDOMNode* parent, ZemoTime since) const {
    PropertyList list;
    for (uint32_t i = 0, n = m_records.GetCount(); i < n; ++i) {
      const Entry& e = m_records[i];
      if (!Traits::Since(e, since)) continue;
      list.RemoveAll();
      for (const RecordField& f : Traits::kKeyFields) SetFieldProperty(list, f, e);
      for (const RecordField& f : Traits::kFields) SetFieldProperty(list, f, e);
      SavePropertyList(document, list, CreateChildElement(document, parent, u"stat").Get(), {});
    }
  }

  // Each child element of parent, whatever its name, is a record: its key
  // properties give the record, found or added by findOrAdd(key), and the
  // other properties are written over it one by one. A missing or
  // unconvertible property raises; what was written before it stays.
  template <class FindOrAddFn>
  void LoadXmlRows(IXMLDOMNode* parent, FindOrAddFn&& findOrAdd) {
    if (!parent) AtlThrow(E_POINTER);
    PropertyList list;
    ComPtr<IXMLDOMNode> child;
    CheckHr(parent->get_firstChild(child.ReleaseAndGetAddressOf()));
    while (child) {
      DOMNodeType type = 0;
      CheckHr(child->get_nodeType(&type));
      if (type == NODE_ELEMENT) {
        list.RemoveAll();
        LoadPropertyList(child.Get(), list);
        Entry key{};
        for (const RecordField& f : Traits::kKeyFields) GetFieldProperty(list, f, key);
        Entry& target = findOrAdd(Traits::KeyOf(key));
        for (const RecordField& f : Traits::kFields) GetFieldProperty(list, f, target);
      }
      ComPtr<IXMLDOMNode> next;
      CheckHr(child->get_nextSibling(next.ReleaseAndGetAddressOf()));
      child = std::move(next);
    }
  }
  void LoadXmlRows(IXMLDOMNode* parent) {
    LoadXmlRows(parent, [this](Key key) -> Entry& { return FindOrAdd(key); });
  }

  // ---- text exports ----------------------------------------------------------

  // The ".txt" export: line(TextWriter&, const Entry&) for each record, in
  // record order, through the system's file functions.
  template <class LineFn>
  HRESULT SaveTextLines(LPCOLESTR fileName, LineFn&& line) const {
    return WriteTextFile(fileName, FileOpenStyle::System, [&](TextWriter& out) {
      for (uint32_t i = 0, n = m_records.GetCount(); i < n; ++i) line(out, m_records[i]);
    });
  }

  // The exports by the file's extension: ".txt" through line, ".hash" as the
  // dump of form; any other extension raises E_INVALIDARG.
  template <class LineFn>
  HRESULT SaveExport(LPCOLESTR fileName, HashDumpForm form, LineFn&& line) const {
    if (CheckExportExtension(fileName, kExportTxt | kExportHash) == ExportForm::Hash)
      return SaveHashDump(fileName, form);
    return SaveTextLines(fileName, std::forward<LineFn>(line));
  }

  // The ".hash" dump: for each bucket "b=" and "i " for each record of its
  // chain, a line each; with form.summary the line of bucket count, records,
  // records behind another in their chain, and their ratio. A chain that
  // leads past the records ends the dump with E_FAIL, after the summary, and
  // the file is deleted.
  HRESULT SaveHashDump(LPCOLESTR fileName, HashDumpForm form) const {
    return WriteTextFile(fileName, form.style, [&](TextWriter& out) -> HRESULT {
      const uint32_t count = m_records.GetCount();
      uint32_t entries = 0, collisions = 0;
      HRESULT result = S_OK;
      for (uint32_t b = 0; b < kBuckets && result == S_OK; ++b) {
        out.U32(b);
        out.Char('=');
        for (uint32_t i = m_heads[b], depth = 0; i != kNoRecord; ++depth) {
          // A chain longer than the table has a loop in it.
          if (i >= count || depth >= count) {
            result = E_FAIL;
            break;
          }
          out.U32(i);
          out.Char(' ');
          ++entries;
          if (depth) ++collisions;
          i = Link(m_records[i]);
        }
        out.Char('\n');
      }
      if (form.summary) {
        double ratio = entries ? static_cast<double>(collisions) / entries : 0.0;
        out.Printf("size=%u, entries=%u, collisions=%u, %%collisions=%f\n", kBuckets, entries, collisions, ratio);
      }
      return result;
    });
  }

 private:
  // A key of 32 bits is its own tag; a longer one is hashed, and a tag's
  // record is then confirmed by its key.
  static constexpr bool kTagIsKey = sizeof(Key) <= sizeof(uint32_t);
  static uint32_t TagOf(Key key) noexcept {
    if constexpr (kTagIsKey)
      return static_cast<uint32_t>(key);
    else
      return CKeyIndex::HashWords(static_cast<uint32_t>(uint64_t{key} >> 32), static_cast<uint32_t>(key), 0);
  }
  static constexpr HRESULT kNoBlock = [] {
    if constexpr (requires { Traits::kNoBlock; })
      return Traits::kNoBlock;
    else
      return E_OUTOFMEMORY;
  }();

  static void SetEntryLink(Entry& e, uint32_t next) noexcept {
    std::memcpy(reinterpret_cast<uint8_t*>(&e) + kLinkOffset, &next, sizeof next);
  }

  static void ToRow(const Entry& e, uint8_t* row) noexcept {
    const auto* p = reinterpret_cast<const uint8_t*>(&e);
    std::memcpy(row, p, kLinkOffset);
    std::memcpy(row + kLinkOffset, p + kLinkOffset + 4, sizeof(Entry) - kLinkOffset - 4);
  }
  static void FromRow(const uint8_t* row, Entry& e) noexcept {
    auto* p = reinterpret_cast<uint8_t*>(&e);
    std::memcpy(p, row, kLinkOffset);
    std::memset(p + kLinkOffset, 0xFF, sizeof(uint32_t));
    std::memcpy(p + kLinkOffset + 4, row + kLinkOffset, sizeof(Entry) - kLinkOffset - 4);
  }

  template <class T>
  static void SetTyped(PropertyList& list, const RecordField& f, const Entry& e) {
    T v;
    std::memcpy(&v, reinterpret_cast<const uint8_t*>(&e) + f.offset, sizeof v);
    SetProperty(list, f.name, v);
  }
  static void SetFieldProperty(PropertyList& list, const RecordField& f, const Entry& e) {
    switch (f.type) {
      case VT_UI2: return SetTyped<uint16_t>(list, f, e);
      case VT_UI4: return SetTyped<uint32_t>(list, f, e);
      default: return SetTyped<uint64_t>(list, f, e);
    }
  }

  template <class T>
  static void GetTyped(const PropertyList& list, const RecordField& f, Entry& e) {
    T v{};
    if (!GetProperty(list, f.name, v)) AtlThrow(E_FAIL);
    std::memcpy(reinterpret_cast<uint8_t*>(&e) + f.offset, &v, sizeof v);
  }
  static void GetFieldProperty(const PropertyList& list, const RecordField& f, Entry& e) {
    switch (f.type) {
      case VT_UI2: return GetTyped<uint16_t>(list, f, e);
      case VT_UI4: return GetTyped<uint32_t>(list, f, e);
      default: return GetTyped<uint64_t>(list, f, e);
    }
  }

  TBlockStore<Entry> m_records{Traits::kBlockLength};
  std::array<uint32_t, kBuckets> m_heads;
  CKeyIndex m_index;
};

}  // namespace zemo
