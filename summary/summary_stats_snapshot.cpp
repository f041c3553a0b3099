#include "summary/summary_stats_snapshot.h"

#include <algorithm>
#include <span>

#include "frame/clsids.h"
#include "frame/stream_persist.h"
#include "frame/xml_persist.h"

namespace zemo {
namespace {

// The value attributes of each type in XML; a pair has two.
struct ValueAttributes {
  const char16_t* first;
  const char16_t* second;
};
constexpr ValueAttributes kValueAttributes[kSummaryTypeCount] = {
    {nullptr, nullptr},     {u"date", nullptr},  {u"time", nullptr},    {u"duration", nullptr}, {u"packets", nullptr},
    {u"bytes", nullptr},    {u"packets", u"bytes"}, {u"int", nullptr}, {u"double", nullptr},
};

// A string as a u32 byte count and that many bytes of UTF-16 with the
// terminator; a null string is the count 0 alone.
void WriteCountedString(IStream* stream, const CBstr& text) {
  if (!text.Get()) {
    WriteValue(stream, ULONG{0});
    return;
  }
  const std::u16string_view units = text.View();
  if (units.size() > (0xFFFFFFFFu - 2) / 2) AtlThrow(E_FAIL);
  WriteValue(stream, static_cast<ULONG>(units.size() * 2 + 2));
  WriteRecords(stream, std::span<const char16_t>(units.data(), units.size()));
  WriteValue(stream, char16_t{0});
}

CBstr ReadCountedString(IStream* stream) {
  const ULONG bytes = ReadValue<ULONG>(stream);
  if (bytes == 0) return CBstr();
  if (bytes % 2 != 0) AtlThrow(E_FAIL);
  // Grows with what arrives, whatever the count claims.
  std::vector<char16_t> units = ReadRecordArray<char16_t>(stream, bytes / 2);
  if (units.back() != 0) AtlThrow(E_FAIL);
  return CBstr(std::u16string_view(units.data(), units.size() - 1));
}

// A copy that keeps a null string null.
CBstr CopyOf(BSTR text) { return text ? CBstr(std::u16string_view(text, SysStringLen(text))) : CBstr(); }

// XML cannot tell an empty text from none: an empty attribute reads as none.
CBstr TextOf(const std::u16string& text) { return text.empty() ? CBstr() : CBstr(text); }

void SaveValueAttributes(IXMLDOMElement* stat, const SummaryStatValue& v) {
  switch (v.Type) {
    case kSummaryNone: return;
    case kSummaryDate:
    case kSummaryTime: return SetAttribute(stat, kValueAttributes[v.Type].first, uint64_t{v.Time});
    case kSummaryDuration: return SetAttribute(stat, u"duration", int64_t{v.Duration});
    case kSummaryPackets:
    case kSummaryBytes:
    case kSummaryInt: return SetAttribute(stat, kValueAttributes[v.Type].first, uint64_t{v.Count});
    case kSummaryPair:
      SetAttribute(stat, u"packets", uint64_t{v.Pair.Packets});
      return SetAttribute(stat, u"bytes", uint64_t{v.Pair.Bytes});
    case kSummaryDouble: return SetAttribute(stat, u"double", double{v.Double});
    default: AtlThrow(E_FAIL);
  }
}

template <class T>
T RequiredAttribute(IXMLDOMElement* element, std::u16string_view name) {
  T value{};
  if (!GetAttribute(element, name, value)) AtlThrow(E_FAIL);
  return value;
}

SummaryStatValue LoadValueAttributes(IXMLDOMElement* stat, ULONG type) {
  if (type >= kSummaryTypeCount) AtlThrow(E_FAIL);
  SummaryStatValue v = SummaryValue(type);
  switch (type) {
    case kSummaryNone: break;
    case kSummaryDate:
    case kSummaryTime: v.Time = RequiredAttribute<uint64_t>(stat, kValueAttributes[type].first); break;
    case kSummaryDuration: v.Duration = RequiredAttribute<int64_t>(stat, u"duration"); break;
    case kSummaryPair:
      v.Pair.Packets = RequiredAttribute<uint64_t>(stat, u"packets");
      v.Pair.Bytes = RequiredAttribute<uint64_t>(stat, u"bytes");
      break;
    case kSummaryDouble: v.Double = RequiredAttribute<double>(stat, u"double"); break;
    default: v.Count = RequiredAttribute<uint64_t>(stat, kValueAttributes[type].first); break;
  }
  return v;
}

}  // namespace

// ---- SummaryStatsItem -------------------------------------------------------

HRESULT SummaryStatsItem::QueryInterface(REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (iid != IUnknown::iid && iid != ISummaryStatsItem::iid) return E_NOINTERFACE;
  *out = static_cast<ISummaryStatsItem*>(this);
  return S_OK;
}

HRESULT SummaryStatsItem::GetID(GUID* out) {
  if (!out) return E_POINTER;
  *out = id;
  return S_OK;
}

HRESULT SummaryStatsItem::GetParent(GUID* out) {
  if (!out) return E_POINTER;
  *out = parent;
  return S_OK;
}

HRESULT SummaryStatsItem::GetLabel(BSTR* out) {
  return Boundary([&] {
    CheckOut(out);
    *out = label.Copy();
  });
}

HRESULT SummaryStatsItem::SetLabel(BSTR text) {
  return Boundary([&] { label = CopyOf(text); });
}

HRESULT SummaryStatsItem::GetValue(SummaryStatValue* out) {
  if (!out) return E_POINTER;
  *out = value;
  return S_OK;
}

HRESULT SummaryStatsItem::SetValue(const SummaryStatValue* in) {
  if (!in) return E_POINTER;
  value = *in;
  return S_OK;
}

// ---- the tree ---------------------------------------------------------------

HRESULT SummaryStatsSnapshot::FinalConstruct() { return CoCreateGuid(&m_id); }

const SummaryStatsItem& SummaryStatsSnapshot::Item(REFGUID id) const {
  const SummaryStatsItem* item = m_items.Lookup(id);
  if (!item) AtlThrow(E_FAIL);
  return *item;
}

SummaryStatsItem& SummaryStatsSnapshot::Existing(REFGUID id) {
  SummaryStatsItem* item = Find(id);
  if (!item) AtlThrow(E_FAIL);
  return *item;
}

SummaryStatsItem& SummaryStatsSnapshot::MakeItem(REFGUID id, REFGUID parent) {
  if (parent != GUID_NULL && !Find(parent)) MakeItem(parent, GUID_NULL);
  // An item that is its own parent exists now.
  if (SummaryStatsItem* made = Find(id)) return *made;
  m_order.reserve(m_order.size() + 1);
  SummaryStatsItem& item = m_items[id];
  item.id = id;
  item.parent = parent;
  m_order.push_back(id);
  return item;
}

void SummaryStatsSnapshot::Place(SummaryStatsItem&& item) {
  const GUID id = item.id;
  if (!Find(id)) {
    m_order.reserve(m_order.size() + 1);
    m_order.push_back(id);
  }
  m_items.SetAt(id, std::move(item));
}

void SummaryStatsSnapshot::Clear() noexcept {
  m_order.clear();
  m_items.RemoveAll();
}

HRESULT SummaryStatsSnapshot::GetItemID(LONG index, GUID* id) {
  return Locked([&]() -> HRESULT {
    CheckOut(id);
    *id = GUID_NULL;
    if (index < 0 || static_cast<size_t>(index) >= m_order.size()) return E_INVALIDARG;
    *id = m_order[static_cast<size_t>(index)];
    return S_OK;
  });
}

HRESULT SummaryStatsSnapshot::GetItemCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(m_order.size());
  });
}

HRESULT SummaryStatsSnapshot::GetName(BSTR* name) {
  return Locked([&] {
    CheckOut(name);
    *name = m_name.Copy();
  });
}

HRESULT SummaryStatsSnapshot::SetName(BSTR name) {
  return Locked([&] { m_name = CopyOf(name); });
}

HRESULT SummaryStatsSnapshot::GetID(GUID* id) {
  return Locked([&] {
    CheckOut(id);
    *id = m_id;
  });
}

HRESULT SummaryStatsSnapshot::SetID(REFGUID id) {
  return Locked([&] { m_id = id; });
}

HRESULT SummaryStatsSnapshot::HasItem(REFGUID id, LONG* has) {
  return Locked([&] {
    CheckOut(has);
    *has = Find(id) ? 1 : 0;
  });
}

HRESULT SummaryStatsSnapshot::AddGroup(REFGUID id, REFGUID parent) {
  return Locked([&] {
    if (!Find(id)) MakeItem(id, parent);
  });
}

HRESULT SummaryStatsSnapshot::RemoveItem(REFGUID id) {
  return Locked([&]() -> HRESULT {
    if (!m_items.RemoveKey(id)) return E_FAIL;
    auto at = std::find(m_order.begin(), m_order.end(), id);
    if (at != m_order.end()) m_order.erase(at);
    return S_OK;
  });
}

// The updater's call, about a hundred times a tick: an item that exists
// costs one lookup and no allocation when the label stays.
HRESULT SummaryStatsSnapshot::SetItem(REFGUID id, REFGUID parent, BSTR label, const SummaryStatValue* value) {
  return Locked([&] {
    SummaryStatsItem* item = Find(id);
    if (!item) item = &MakeItem(id, parent);
    if (label) CheckHr(item->SetLabel(label));
    if (value) CheckHr(item->SetValue(value));
  });
}

// The per-item operations are the item's own, found by id under the lock.
HRESULT SummaryStatsSnapshot::GetParent(REFGUID id, GUID* parent) {
  return Locked([&] {
    CheckOut(parent);
    return Existing(id).GetParent(parent);
  });
}

HRESULT SummaryStatsSnapshot::SetLabel(REFGUID id, BSTR label) {
  return Locked([&] { return Existing(id).SetLabel(label); });
}

HRESULT SummaryStatsSnapshot::GetLabel(REFGUID id, BSTR* label) {
  return Locked([&] {
    CheckOut(label);
    return Existing(id).GetLabel(label);
  });
}

HRESULT SummaryStatsSnapshot::SetValue(REFGUID id, const SummaryStatValue* value) {
  return Locked([&] {
    if (!value) AtlThrow(E_POINTER);
    return Existing(id).SetValue(value);
  });
}

HRESULT SummaryStatsSnapshot::GetValue(REFGUID id, SummaryStatValue* value) {
  return Locked([&] {
    CheckOut(value);
    return Existing(id).GetValue(value);
  });
}

HRESULT SummaryStatsSnapshot::RemoveAll() {
  return Locked([&] { Clear(); });
}

HRESULT SummaryStatsSnapshot::Clone(IUnknown** clone) {
  return Locked([&] {
    CheckOut(clone);
    ComPtr<SummaryStatsSnapshot> copy = Create();
    copy->m_name = CopyOf(m_name.Get());
    copy->m_id = m_id;
    copy->m_order.reserve(m_order.size());
    for (const GUID& id : m_order) {
      const SummaryStatsItem& item = Item(id);
      SummaryStatsItem same;
      same.id = item.id;
      same.parent = item.parent;
      same.label = CopyOf(item.label.Get());
      same.value = item.value;
      copy->Place(std::move(same));
    }
    *clone = copy->GetUnknown();
    (*clone)->AddRef();
  });
}

// ---- persistence ------------------------------------------------------------

HRESULT SummaryStatsSnapshot::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_SummaryStatsSnapshot;
  });
}

HRESULT SummaryStatsSnapshot::GetSizeMax(ULARGE_INTEGER*) { return E_NOTIMPL; }

// What was read before a failure stays.
HRESULT SummaryStatsSnapshot::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    Clear();
    ReadValue(stream, m_id);
    m_name = ReadCountedString(stream);
    const ULONG count = ReadValue<ULONG>(stream);
    for (ULONG i = 0; i < count; ++i) {
      SummaryStatsItem item;
      ReadValue(stream, item.id);
      ReadValue(stream, item.parent);
      item.label = ReadCountedString(stream);
      ReadValue(stream, item.value);
      Place(std::move(item));
    }
  });
}

HRESULT SummaryStatsSnapshot::Save(IStream* stream, BOOL) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, m_id);
    WriteCountedString(stream, m_name);
    WriteValue(stream, static_cast<ULONG>(m_order.size()));
    for (const GUID& id : m_order) {
      const SummaryStatsItem& item = Item(id);
      WriteValue(stream, item.id);
      WriteValue(stream, item.parent);
      WriteCountedString(stream, item.label);
      WriteValue(stream, item.value);
    }
  });
}

HRESULT SummaryStatsSnapshot::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> snapshot = XmlElementOf(node);
    Clear();
    GUID id{};
    std::u16string name;
    if (!GetAttribute(snapshot.Get(), u"id", id) || !GetAttribute(snapshot.Get(), u"name", name)) AtlThrow(E_FAIL);
    m_id = id;
    m_name = TextOf(name);
    ForEachChildElement(snapshot.Get(), [&](IXMLDOMElement* stat) {
      SummaryStatsItem item;
      std::u16string label;
      ULONG type = 0;
      if (!GetAttribute(stat, u"id", item.id) || !GetAttribute(stat, u"parent", item.parent) ||
          !GetAttribute(stat, u"label", label) || !GetAttribute(stat, u"type", type))
        AtlThrow(E_FAIL);
      item.label = TextOf(label);
      item.value = LoadValueAttributes(stat, type);
      Place(std::move(item));
    });
  });
}

HRESULT SummaryStatsSnapshot::Save(IUnknown* document, IUnknown* node, BOOL) {
  return Locked([&] {
    auto doc = XmlDocumentOf(document);
    auto parent = XmlNodeOf(node);
    // Built apart and joined last, so that a failure leaves nothing behind.
    ComPtr<IXMLDOMElement> snapshot = CreateXmlElement(doc.Get(), u"snapshot");
    SetAttribute(snapshot.Get(), u"id", m_id);
    SetAttribute(snapshot.Get(), u"name", m_name.View());
    for (const GUID& id : m_order) {
      const SummaryStatsItem& item = Item(id);
      ComPtr<IXMLDOMElement> stat = CreateChildElement(doc.Get(), snapshot.Get(), u"stat");
      SetAttribute(stat.Get(), u"id", item.id);
      SetAttribute(stat.Get(), u"parent", item.parent);
      SetAttribute(stat.Get(), u"label", item.label.View());
      SetAttribute(stat.Get(), u"type", uint32_t{item.value.Type});
      SaveValueAttributes(stat.Get(), item.value);
    }
    AppendXmlChild(parent.Get(), snapshot.Get());
  });
}

}  // namespace zemo
