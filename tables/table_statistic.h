// The object around a record table: what every table statistic (NodeStats,
// ProtocolStats, ProtocolStatsByID, ConversationStats) does the same way.
// Context, reset, streams, XML and selection are here; a statistic adds its
// own interface, its packet path, its exports and its result table.
//
//   class ConversationStats final
//       : public TTableStatistic<ConversationStats, CConversationTable, IConversationStats> {
//    public:
//     static constexpr char16_t kStatisticName[] = u"...";  // the limit's name
//     static constexpr char16_t kXmlElement[] = u"...";     // element of IPersistXml
//     static constexpr char16_t kSelectName[] = u"...";     // GetSelectName
//     static constexpr const CLSID& kClsid = ...;
//     // optional: Entry& FindOrAddForLoad(Key) (a loaded row's record),
//     // void ResetCache() (the statistic's own part of every reset)
//   };
//
// Extra interfaces (IZemoStatsTrackerFactory) stand between StatsLimit and
// the selection, where the class table lists them. Selection is that of a
// leaf; the statistic gives GetTable.
#pragma once

#include "frame/delta_save.h"
#include "frame/module.h"
#include "frame/persist_interfaces.h"
#include "frame/selection.h"
#include "frame/stats_interfaces.h"
#include "frame/tracker_interfaces.h"
#include "frame/xml_persist.h"
#include "identity/identity_interfaces.h"
#include "network/stat_rows.h"
#include "platform/object.h"
#include "tables/record_table.h"
#include "tables/stats_limit.h"
#include "tables/table_support.h"

namespace zemo {

template <class D, class Table, class IFirst, class... Extra>
class TTableStatistic
    : public Object<D, IFirst, IZemoStats, IProcessPacket, IResetProcessing, PersistStreamByDeltas<D>,
                    ISaveStreamDeltas, PersistXmlByDeltas<D>, IPersistXmlDeltas, IPersistFile, StatsLimit, Extra...,
                    LeafSelection<D>> {
 public:
  using Entry = typename Table::Entry;
  static constexpr ULONG kSelectFlag = 0;

  // IZemoStats; Reset also stands behind IResetProcessing and IZemoStatsLimit.
  HRESULT GetContext(IZemoStatsContext** context) override {
    return this->Locked([&] { HandOutContext(m_context, context); });
  }
  // The context's entity table; a null context lets it go. The table is
  // asked for before this object's lock is taken: the context's lock comes
  // first.
  HRESULT SetContext(IZemoStatsContext* context) override {
    ComPtr<IEntityTable> entities;
    HRESULT hr = context ? context->GetEntityTable(entities.ReleaseAndGetAddressOf()) : S_OK;
    return this->Locked([&] {
      m_context = context;
      m_entities = entities;
      return hr;
    });
  }
  HRESULT Reset() override {
    return this->Locked([&] {
      m_table.Clear();
      static_cast<D*>(this)->ResetCache();
      this->ResetLimitState();
    });
  }

  // IPersistStream, ISaveStreamDeltas (Save is SaveDeltas from 0)
  HRESULT GetClassID(CLSID* out) override {
    if (!out) return E_POINTER;
    *out = D::kClsid;
    return S_OK;
  }
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override {
    return this->Locked([&] {
      this->LoadStream(stream);
      m_table.LoadRows(stream, [this](auto key) -> Entry& { return static_cast<D*>(this)->FindOrAddForLoad(key); });
    });
  }
  // The size of a table that grows by the packet can't be known.
  HRESULT GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
  HRESULT SaveDeltas(IStream* stream, ZemoTime* since) override {
    return this->Locked([&] {
      this->SaveStreamDeltas(stream, since);
      m_table.SaveRows(stream, *since);
    });
  }

  // IPersistXml, IPersistXmlDeltas. A node without the element loads as
  // nothing and succeeds.
  HRESULT Load(IUnknown* document, IUnknown* node) override {
    return this->Locked([&] {
      if (!document) AtlThrow(E_POINTER);
      ComPtr<IXMLDOMElement> element = SelectXmlElement(XmlNodeOf(node).Get(), D::kXmlElement);
      if (!element) return;
      this->LoadXml(element.Get());
      m_table.LoadXmlRows(element.Get(),
                          [this](auto key) -> Entry& { return static_cast<D*>(this)->FindOrAddForLoad(key); });
    });
  }
  HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) override {
    return this->Locked([&] {
      ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
      ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
      if (!since) AtlThrow(E_POINTER);
      ComPtr<IXMLDOMElement> element;
      CheckHr(doc->createElement(CBstr(std::u16string_view(D::kXmlElement)).Get(), element.ReleaseAndGetAddressOf()));
      this->SaveXmlDeltas(element.Get(), since);
      m_table.SaveXmlRows(doc.Get(), element.Get(), *since);
      CheckHr(parent->appendChild(element.Get(), nullptr));
    });
  }

  // IPersistFile: only Save, the exports, which the statistic gives.
  HRESULT Load(LPCOLESTR, DWORD) override { return E_NOTIMPL; }
  HRESULT SaveCompleted(LPCOLESTR) override { return S_OK; }
  HRESULT GetCurFile(LPOLESTR*) override { return E_NOTIMPL; }

  CObjectLock& StatisticLock() const noexcept override { return this->ObjectLock(); }

  // The defaults a statistic may hide.
  Entry& FindOrAddForLoad(typename Table::Key key) { return m_table.FindOrAdd(key); }
  void ResetCache() noexcept {}

 protected:
  friend struct LeafSelection<D>;
  TTableStatistic() { this->SetStatisticName(D::kStatisticName); }

  // The limit's gate in front of a packet: S_FALSE while paused, before the
  // test or because of it, a failure of the test, S_OK to go on.
  HRESULT LimitGate() noexcept {
    if (this->IsPaused()) return S_FALSE;
    HRESULT hr = this->CheckLimit(m_table.GetCount());
    if (FAILED(hr)) return hr;
    return this->IsPaused() ? S_FALSE : S_OK;
  }

  // The context's entity table, and the sum of its counts over entity types.
  HRESULT EntityTableOut(IEntityTable** table) {
    return this->Locked([&] {
      CheckOut(table);
      m_entities.CopyTo(table);
    });
  }
  HRESULT EntityTypeCount(std::span<const ULONG> types, ULONG* count) {
    return this->Locked([&] { CountEntityTypes(m_entities.Get(), types, count); });
  }

  // The plain lookups every table interface has: the record count, a key's
  // record (index kNoRecord and found 0 when absent), and a copy of a record.
  HRESULT RecordCount(ULONG* count) {
    return this->Locked([&] {
      CheckOut(count);
      *count = m_table.GetCount();
    });
  }
  HRESULT RecordIndex(typename Table::Key key, ULONG* recordIndex, BOOL* found) {
    return this->Locked([&] {
      CheckOut(recordIndex);
      CheckOut(found);
      *recordIndex = kNoRecord;
      *found = FALSE;
      uint32_t i = m_table.ChainFind(key);
      *recordIndex = i;
      *found = i != kNoRecord;
    });
  }
  HRESULT RecordEntry(ULONG recordIndex, Entry* entry) {
    return this->Locked([&] { m_table.CopyEntry(recordIndex, entry); });
  }

  // CreateTracker of a statistic whose trackers are keyed by a MediaSpec:
  // keyOf(root element) gives the key or raises; the tracker class is made
  // by clsid, keyed through IKeyed and given this statistic's context.
  template <class IKeyed, class KeyFn>
  HRESULT CreateKeyedTracker(const VARIANT& description, IZemoStatsTracker** tracker, REFCLSID clsid, KeyFn&& keyOf) {
    IZemoStatsContext* context = nullptr;
    HRESULT hr = this->Locked([&] {
      CheckOut(tracker);
      context = m_context;
    });
    if (FAILED(hr)) return hr;
    // The tracker binds itself through the context, whose lock comes before
    // ours, so the rest runs without our lock.
    return Boundary([&]() -> HRESULT {
      ComPtr<IXMLDOMElement> root;
      HRESULT found = TrackerDescriptionRoot(description, &root);
      if (found != S_OK) return found;
      MediaSpec key = keyOf(root.Get());
      ComPtr<IKeyed> keyed;
      CheckHr(CreateModuleInstance(clsid, IKeyed::iid, keyed.OutVoid()));
      CheckHr(keyed->SetKey(key));
      ComPtr<IZemoStatsTracker> made = keyed.template Query<IZemoStatsTracker>();
      CheckHr(made->SetContext(context));
      *tracker = made.Detach();
      return S_OK;
    });
  }

  IZemoStatsContext* m_context = nullptr;  // no reference held
  ComPtr<IEntityTable> m_entities;
  Table m_table;
};

}  // namespace zemo
