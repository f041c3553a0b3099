#include "summary/summary_stats.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "frame/change_type.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/selection.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/time_format.h"
#include "frame/xml_persist.h"
#include "network/stat_rows.h"
#include "platform/class_store.h"
#include "platform/strings.h"

namespace zemo {
namespace {

constexpr TableColumn kColumns[] = {{u"Group", VT_BSTR}, {u"Stat", VT_BSTR}, {u"Value", VT_BSTR}};

std::u16string IdText(REFGUID id) {
  OLECHAR text[39];
  StringFromGUID2(id, text, 39);
  return std::u16string(text, 38);
}

ComPtr<ISummaryStatsSnapshot> NewSnapshot() {
  ComPtr<ISummaryStatsSnapshot> snapshot;
  CheckHr(CreateModuleInstance(CLSID_SummaryStatsSnapshot, ISummaryStatsSnapshot::iid, snapshot.OutVoid()));
  return snapshot;
}

GUID IdOf(ISummaryStatsSnapshot* snapshot) {
  if (!snapshot) AtlThrow(E_FAIL);
  GUID id{};
  CheckHr(snapshot->GetID(&id));
  return id;
}

// A label, or the stat map's name for the id when the label is empty.
std::u16string NameOf(ISummaryStatsSnapshot* snapshot, REFGUID id, const CStatMap& map) {
  CBstr label;
  if (FAILED(snapshot->GetLabel(id, label.Out())) || label.Length() == 0) {
    std::u16string name;
    map.Lookup(id, name);
    return name;
  }
  return std::u16string(label.View());
}

}  // namespace

CVariant SummaryValueCell(const SummaryStatValue& v) {
  switch (v.Type) {
    case kSummaryDate: return CVariant::Str(FormatDate(v.Time, false));
    case kSummaryTime: return CVariant::Str(FormatTime(v.Time, 2, false));
    case kSummaryDuration: return CVariant::Str(FormatDuration(v.Duration, 2, u"%sd %s"));
    case kSummaryPackets:
    case kSummaryBytes:
    case kSummaryInt: return CVariant::UI8(v.Count);
    case kSummaryPair: {
      char text[48];
      std::snprintf(text, sizeof text, "%" PRIu64 "/%" PRIu64, uint64_t{v.Pair.Packets}, uint64_t{v.Pair.Bytes});
      return CVariant::Str(FromUtf8(text));
    }
    case kSummaryDouble: return CVariant::R8(v.Double);
    default: return CVariant();
  }
}

HRESULT SummaryStats::FinalConstruct() {
  return Boundary([&] {
    m_current = NewSnapshot();
    m_snapshots.push_back(m_current);
  });
}

// ---- ISummaryStats ----------------------------------------------------------

HRESULT SummaryStats::GetSnapshot(LONG index, ISummaryStatsSnapshot** snapshot) {
  return Locked([&]() -> HRESULT {
    CheckOut(snapshot);
    if (index < 0 || static_cast<size_t>(index) >= m_snapshots.size()) return E_INVALIDARG;
    m_snapshots[static_cast<size_t>(index)].CopyTo(snapshot);
    return S_OK;
  });
}

HRESULT SummaryStats::GetSnapshotCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(m_snapshots.size());
  });
}

HRESULT SummaryStats::FindSnapshot(REFGUID id, ISummaryStatsSnapshot** snapshot) {
  return Locked([&]() -> HRESULT {
    CheckOut(snapshot);
    for (const auto& s : m_snapshots)
      if (IdOf(s.Get()) == id) {
        s.CopyTo(snapshot);
        return S_OK;
      }
    return E_FAIL;
  });
}

HRESULT SummaryStats::AddSnapshot(ISummaryStatsSnapshot* snapshot) {
  return Locked([&] {
    if (!snapshot) AtlThrow(E_POINTER);
    if (std::find(m_snapshots.begin(), m_snapshots.end(), ComPtr<ISummaryStatsSnapshot>(snapshot)) ==
        m_snapshots.end())
      m_snapshots.emplace_back(snapshot);
  });
}

HRESULT SummaryStats::RemoveSnapshot(ISummaryStatsSnapshot* snapshot) {
  return Locked([&]() -> HRESULT {
    if (!snapshot) AtlThrow(E_POINTER);
    if (snapshot == m_current.Get()) return E_FAIL;
    auto at = std::find(m_snapshots.begin(), m_snapshots.end(), ComPtr<ISummaryStatsSnapshot>(snapshot));
    if (at == m_snapshots.end()) return E_FAIL;
    ComPtr<ISummaryStatsSnapshot> leaving = std::move(*at);
    m_snapshots.erase(at);
    return S_OK;
  });
}

// ---- IZemoStats -------------------------------------------------------------

HRESULT SummaryStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] {
    HandOutContext(m_context, context);
  });
}

HRESULT SummaryStats::SetContext(IZemoStatsContext* context) {
  return Locked([&] { m_context = context; });
}

// ---- persistence ------------------------------------------------------------

HRESULT SummaryStats::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_SummaryStats;
  });
}

HRESULT SummaryStats::GetSizeMax(ULARGE_INTEGER*) { return E_NOTIMPL; }

void SummaryStats::KeepOnlyCurrent() {
  m_snapshots.clear();
  m_snapshots.push_back(m_current);
}

// The current snapshot keeps its object across a load, so that what holds
// it stays valid; it takes the stored id. Any other id finds a snapshot held
// already, or a new one.
ComPtr<ISummaryStatsSnapshot> SummaryStats::TargetOf(REFGUID id, REFGUID currentId, bool* isNew) {
  *isNew = false;
  if (id == currentId) return m_current;
  for (const auto& s : m_snapshots)
    if (IdOf(s.Get()) == id) return s;
  *isNew = true;
  return NewSnapshot();
}

HRESULT SummaryStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    KeepOnlyCurrent();
    const GUID currentId = ReadValue<GUID>(stream);
    const ULONG count = ReadValue<ULONG>(stream);
    for (ULONG i = 0; i < count; ++i) {
      const GUID id = ReadValue<GUID>(stream);
      bool isNew = false;
      ComPtr<ISummaryStatsSnapshot> target = TargetOf(id, currentId, &isNew);
      CheckHr(LoadObjectFromStream(target.Get(), stream));
      if (isNew) m_snapshots.push_back(std::move(target));
    }
  });
}

HRESULT SummaryStats::Save(IStream* stream, BOOL clearDirty) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, IdOf(m_current.Get()));
    WriteValue(stream, static_cast<ULONG>(m_snapshots.size()));
    for (const auto& s : m_snapshots) {
      WriteValue(stream, IdOf(s.Get()));
      CheckHr(SaveObjectToStream(s.Get(), stream, clearDirty));
    }
  });
}

HRESULT SummaryStats::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    XmlDocumentOf(document);
    auto parent = XmlNodeOf(node);
    KeepOnlyCurrent();
    ComPtr<IXMLDOMElement> summary = SelectXmlElement(parent.Get(), u"summarystats");
    GUID currentId{};
    if (!summary || !GetAttribute(summary.Get(), u"cursnap", currentId)) AtlThrow(E_FAIL);
    ForEachChildElement(summary.Get(), [&](IXMLDOMElement* element) {
      GUID id{};
      if (!GetAttribute(element, u"id", id)) AtlThrow(E_FAIL);
      bool isNew = false;
      ComPtr<ISummaryStatsSnapshot> target = TargetOf(id, currentId, &isNew);
      CheckHr(LoadObjectFromXml(target.Get(), document, element));
      if (isNew) m_snapshots.push_back(std::move(target));
    });
  });
}

HRESULT SummaryStats::Save(IUnknown* document, IUnknown* node, BOOL flag) {
  return Locked([&] {
    auto doc = XmlDocumentOf(document);
    auto parent = XmlNodeOf(node);
    ComPtr<IXMLDOMElement> summary = CreateXmlElement(doc.Get(), u"summarystats");
    SetAttribute(summary.Get(), u"cursnap", IdOf(m_current.Get()));
    for (const auto& s : m_snapshots) CheckHr(SaveObjectToXml(s.Get(), doc.Get(), summary.Get(), flag));
    AppendXmlChild(parent.Get(), summary.Get());
  });
}

HRESULT SummaryStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] {
    CheckExportExtension(fileName, kExportTxt);
    return WriteTextFile(fileName, FileOpenStyle::System, [&](TextWriter& out) {
      for (const auto& s : m_snapshots) {
        LONG count = 0;
        CheckHr(s->GetItemCount(&count));
        for (LONG i = 0; i < count; ++i) {
          GUID id{};
          CBstr label;
          SummaryStatValue value{};
          CheckHr(s->GetItemID(i, &id));
          CheckHr(s->GetLabel(id, label.Out()));
          CheckHr(s->GetValue(id, &value));
          CVariant cell = SummaryValueCell(value);
          out.Printf("%s\t%s\t%s\n", ToUtf8(IdText(id)).c_str(), label.Utf8().c_str(),
                     cell.vt == VT_EMPTY ? "" : ToUtf8(XmlText(cell)).c_str());
        }
      }
    });
  });
}

// ---- IZemoStatsTrackerFactory -----------------------------------------------

HRESULT SummaryStats::CreateTracker(VARIANT description, IZemoStatsTracker** tracker) {
  IZemoStatsContext* context = nullptr;
  ComPtr<ISummaryStatsSnapshot> current;
  HRESULT hr = Locked([&] {
    CheckOut(tracker);
    context = m_context;
    current = m_current;
  });
  if (FAILED(hr)) return hr;
  // The tracker binds itself through the context, whose lock comes before
  // ours, so the rest runs without our lock.
  return Boundary([&]() -> HRESULT {
    CVariant text;
    GUID item{};
    if (FAILED(ChangeType(&text, &description, VT_BSTR)) || !text.bstrVal ||
        FAILED(CLSIDFromString(text.bstrVal, &item)))
      return E_INVALIDARG;
    ComPtr<ISummaryStatsTracker> made;
    CheckHr(CreateModuleInstance(CLSID_SummaryStatsTracker, ISummaryStatsTracker::iid, made.OutVoid()));
    CheckHr(made->SetItemID(item));
    ComPtr<IZemoStatsTracker> out = made.Query<IZemoStatsTracker>();
    CheckHr(out->SetContext(context));
    SummaryStatValue value{};
    if (SUCCEEDED(current->GetValue(item, &value))) CheckHr(made->SetStatType(value.Type));
    *tracker = out.Detach();
    return S_OK;
  });
}

// ---- ISelectableObject ------------------------------------------------------

// The update runs outside this object's lock: the updater goes through the
// context, whose lock comes before ours.
HRESULT SummaryStats::Select(ISelectParams* params, IUnknown** out) {
  IZemoStatsContext* context = nullptr;
  HRESULT hr = Locked([&]() -> HRESULT {
    if (!out || !params) return E_POINTER;
    *out = nullptr;
    CBstr step;
    ComPtr<IPropertyBag> bag;
    if (CheckHr(params->NextItem(step.Out(), bag.ReleaseAndGetAddressOf())) != S_FALSE) return E_NOTIMPL;
    if (!m_context) return E_FAIL;
    context = m_context;
    return S_OK;
  });
  if (hr != S_OK) return hr;
  return Boundary([&]() -> HRESULT {
    ComPtr<IZemoStatsContext> hold(context);
    ComPtr<IUnknown> updater;
    ComPtr<IStatsUpdater> update;
    CheckHr(context->GetStatsUpdater(updater.ReleaseAndGetAddressOf()));
    if (!updater || FAILED(updater.As(&update))) return E_FAIL;
    CheckHr(update->Update(context));
    return GetUnknown()->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(out));
  });
}

// A row for each item of the current snapshot that has a value; groups give none.
HRESULT SummaryStats::GetTable(IDataTable** table) {
  return Locked([&] {
    CheckOut(table);
    // A missing or unreadable map costs only the names, and is tried again next time.
    if (m_statMap.Empty()) m_statMap.Load(kStatMapFile);
    MakeTable(table, kColumns);
    TableRows rows(*table);
    ISummaryStatsSnapshot* s = m_current.Get();
    LONG count = 0;
    CheckHr(s->GetItemCount(&count));
    for (LONG i = 0; i < count; ++i) {
      GUID id{}, parent{};
      SummaryStatValue value{};
      CheckHr(s->GetItemID(i, &id));
      CheckHr(s->GetValue(id, &value));
      CVariant cell = SummaryValueCell(value);
      if (cell.vt == VT_EMPTY) continue;
      CheckHr(s->GetParent(id, &parent));
      const std::u16string group = parent == GUID_NULL ? std::u16string() : NameOf(s, parent, m_statMap);
      rows.Add({CVariant::Str(group), CVariant::Str(NameOf(s, id, m_statMap)), cell});
    }
  });
}

}  // namespace zemo
