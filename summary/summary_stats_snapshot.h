// SummaryStatsSnapshot: the one-page summary of a capture as a tree of
// labelled, typed items found by 16-byte ids. The same class serves as the
// live summary, rewritten in place on each tick, and as a stored copy.
//
// Items live by value in a hash map keyed by id, for the hundred or so
// SetItem calls of each tick; the order array keeps the ids in the order
// they came, which every walk and save follows. A parent always stands
// ahead of its children in that order.
#pragma once

#include <vector>

#include "frame/hash_map.h"
#include "frame/cloneable.h"
#include "frame/persist_interfaces.h"
#include "platform/object.h"
#include "summary/summary_interfaces.h"

namespace zemo {

// One node of the tree. The snapshot's map owns it, so its reference count
// does nothing; it is never handed out.
struct SummaryStatsItem final : ISummaryStatsItem {
  SummaryStatsItem() noexcept : value(SummaryValue(kSummaryNone)) {}

  HRESULT QueryInterface(REFIID iid, void** out) override;
  ULONG AddRef() override { return 1; }
  ULONG Release() override { return 1; }
  HRESULT GetID(GUID* out) override;
  HRESULT GetParent(GUID* out) override;
  HRESULT GetLabel(BSTR* out) override;
  HRESULT SetLabel(BSTR text) override;
  HRESULT GetValue(SummaryStatValue* out) override;
  HRESULT SetValue(const SummaryStatValue* in) override;

  GUID id{};
  GUID parent{};
  CBstr label;  // null and empty are kept apart: the stream tells them apart
  SummaryStatValue value;
};

class SummaryStatsSnapshot final
    : public Object<SummaryStatsSnapshot, ISummaryStatsSnapshot, ICloneable, IPersistStream, IPersistXml> {
 public:
  // A new identity for the snapshot.
  HRESULT FinalConstruct();

  // ISummaryStatsSnapshot
  HRESULT GetItemID(LONG index, GUID* id) override;
  HRESULT GetItemCount(LONG* count) override;
  HRESULT GetName(BSTR* name) override;
  HRESULT SetName(BSTR name) override;
  HRESULT GetID(GUID* id) override;
  HRESULT SetID(REFGUID id) override;
  HRESULT HasItem(REFGUID id, LONG* has) override;
  HRESULT AddGroup(REFGUID id, REFGUID parent) override;
  HRESULT RemoveItem(REFGUID id) override;
  HRESULT SetItem(REFGUID id, REFGUID parent, BSTR label, const SummaryStatValue* value) override;
  HRESULT GetParent(REFGUID id, GUID* parent) override;
  HRESULT SetLabel(REFGUID id, BSTR label) override;
  HRESULT GetLabel(REFGUID id, BSTR* label) override;
  HRESULT SetValue(REFGUID id, const SummaryStatValue* value) override;
  HRESULT GetValue(REFGUID id, SummaryStatValue* value) override;
  HRESULT RemoveAll() override;

  // ICloneable
  HRESULT Clone(IUnknown** clone) override;

  // IPersistStream, IPersistXml
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  // The node given to Load is the `snapshot` element itself; Save appends one to it.
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;

  // fn(item) for each item in order, under the lock, for a reader in this
  // module that wants the whole tree at once.
  template <class Fn>
  HRESULT ForEachItem(Fn&& fn) const {
    return Locked([&] {
      for (const GUID& id : m_order) fn(Item(id));
    });
  }

 private:
  SummaryStatsItem* Find(REFGUID id) noexcept { return m_items.Lookup(id); }
  const SummaryStatsItem& Item(REFGUID id) const;  // raises E_FAIL when absent
  SummaryStatsItem& Existing(REFGUID id);          // the same
  // A new item at the end of the order; a parent that is missing comes
  // first, as a top-level group.
  SummaryStatsItem& MakeItem(REFGUID id, REFGUID parent);
  // An item read from a save: joins the order unless its id is there already.
  void Place(SummaryStatsItem&& item);
  void Clear() noexcept;

  CBstr m_name;
  GUID m_id{};
  std::vector<GUID> m_order;
  CHashMap<GUID, SummaryStatsItem> m_items;
};

}  // namespace zemo
