// StatsContext as one saved unit: header, both identity tables, then every
// statistic under its class and key, in a binary stream or in XML; and the
// selection route from the context to its tables and statistics.
#include "context/stats_context.h"

#include "frame/clsids.h"
#include "frame/selection.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/clock.h"
#include "platform/strings.h"

namespace zemo {
namespace {

// Marks the present stream form; an older form has the link speed as a u32
// in its place.
constexpr ULONG kContextStreamMark = 0xABCD1234;


template <class I>
ComPtr<I> Query(IUnknown* object) {
  ComPtr<I> p;
  object->QueryInterface(IidOf<I>(), p.OutVoid());
  return p;
}

// The interface an object must offer; its absence is raised.
template <class I>
ComPtr<I> Required(IUnknown* object) {
  ComPtr<I> p;
  CheckHr(object->QueryInterface(IidOf<I>(), p.OutVoid()));
  return p;
}

// The class of a statistic by GetClassID of whichever persistence interface
// it offers; false when it offers none.
bool ClassOfStats(IUnknown* object, CLSID& clsid) {
  clsid = GUID_NULL;
  if (auto p = Query<IPersist>(object)) return SUCCEEDED(p->GetClassID(&clsid));
  if (auto p = Query<IPersistStream>(object)) return SUCCEEDED(p->GetClassID(&clsid));
  if (auto p = Query<IPersistXml>(object)) return SUCCEEDED(p->GetClassID(&clsid));
  return false;
}

CLSID ClassOfStats(IUnknown* object) {
  CLSID clsid = GUID_NULL;
  ClassOfStats(object, clsid);
  return clsid;
}

}  // namespace

void StatsContext::StoreHeader(const SavedHeader& header) noexcept {
  m_mediaType = header.mediaType;
  m_mediaSubType = header.mediaSubType;
  m_linkSpeed = header.linkSpeed;
  m_startTime = header.startTime;
  m_stopTime = header.stopTime;
  m_totalPackets = header.totalPackets;
  m_totalBytes = header.totalBytes;
}

ComPtr<IZemoStats> StatsContext::FindOrCreateStats(REFCLSID clsid, REFCLSID key) {
  LONG index = FindSlot(key);
  if (index >= 0) return ComPtr<IZemoStats>(m_slots[index].stats);
  // By the class store, so that a class nobody registered ends the load with
  // the store's own answer.
  ComPtr<IZemoStats> stats;
  CheckHr(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IZemoStats, stats.OutVoid()));
  CheckHr(AddStats(key, stats.Get()));
  return stats;
}

// ---- binary stream ----------------------------------------------------------

HRESULT StatsContext::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_StatsContext;
  });
}

HRESULT StatsContext::GetSizeMax(ULARGE_INTEGER*) { return E_NOTIMPL; }

HRESULT StatsContext::SaveDeltas(IStream* stream, ZemoTime* since) {
  if (!stream || !since) return E_POINTER;
  return Locked([&] {
    // Summary figures fresh in what is written; its status doesn't matter.
    UpdateStats();
    const ZemoTime from = *since;
    WriteValue(stream, m_mediaType);
    WriteValue(stream, m_mediaSubType);
    WriteValue(stream, kContextStreamMark);
    WriteValue(stream, m_linkSpeed);
    WriteValue(stream, m_startTime);
    WriteValue(stream, m_stopTime);
    WriteValue(stream, m_totalPackets);
    WriteValue(stream, m_totalBytes);
    // The tables first: the statistics' records hold their identifiers.
    for (IUnknown* table : {static_cast<IUnknown*>(m_entityTable.Get()), static_cast<IUnknown*>(m_tupleTable.Get())}) {
      ZemoTime tableSince = from;
      CheckHr(Required<ISaveStreamDeltas>(table)->SaveDeltas(stream, &tableSince));
    }
    ULONG count = 0;
    for (const StatSlot& slot : m_slots) {
      if (!slot.stats) AtlThrow(E_FAIL);
      if (Query<IPersistStream>(slot.stats)) ++count;
    }
    WriteValue(stream, count);
    for (const StatSlot& slot : m_slots) {
      ComPtr<IPersistStream> persist = Query<IPersistStream>(slot.stats);
      if (!persist) continue;
      CLSID clsid = GUID_NULL;
      CheckHr(persist->GetClassID(&clsid));
      WriteValue(stream, clsid);
      WriteValue(stream, slot.key);
      ZemoTime statsSince = from;
      if (ComPtr<ISaveStreamDeltas> deltas = Query<ISaveStreamDeltas>(slot.stats))
        CheckHr(deltas->SaveDeltas(stream, &statsSince));
      else
        CheckHr(persist->Save(stream, FALSE));
    }
    // The cookie: the next delta holds what came after this one.
    *since = m_stopTime;
  });
}

HRESULT StatsContext::Load(IStream* stream) {
  if (!stream) return E_POINTER;
  return Locked([&] {
    SavedHeader header;
    ReadValue(stream, header.mediaType);
    ReadValue(stream, header.mediaSubType);
    ULONG mark = ReadValue<ULONG>(stream);
    header.linkSpeed = mark == kContextStreamMark ? ReadValue<ULONGLONG>(stream) : mark;
    ReadValue(stream, header.startTime);
    ReadValue(stream, header.stopTime);
    ReadValue(stream, header.totalPackets);
    ReadValue(stream, header.totalBytes);
    // Another start time is another capture: nothing of this one may stay.
    // The same start time makes the stream a delta on what is here.
    if (header.startTime != m_startTime) ResetContext(true);
    StoreHeader(header);
    CheckHr(LoadObjectFromStream(m_entityTable.Get(), stream));
    CheckHr(LoadObjectFromStream(m_tupleTable.Get(), stream));
    // Each block is read where the last ended, so an unknown class cannot be
    // skipped: its failure ends the load.
    const ULONG count = ReadValue<ULONG>(stream);
    for (ULONG i = 0; i < count; ++i) {
      CLSID clsid = ReadValue<CLSID>(stream);
      CLSID key = ReadValue<CLSID>(stream);
      ComPtr<IZemoStats> stats = FindOrCreateStats(clsid, key);
      CheckHr(LoadObjectFromStream(stats.Get(), stream));
    }
  });
}

// ---- XML --------------------------------------------------------------------

HRESULT StatsContext::SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) {
  if (!document || !node || !since) return E_POINTER;
  return Locked([&] {
    UpdateStats();
    const ZemoTime from = *since;
    auto doc = XmlDocumentOf(document);
    auto parent = XmlNodeOf(node);
    // Built apart and joined to the caller's node last, so that a failure
    // leaves nothing of it there.
    auto context = CreateXmlElement(doc.Get(), u"statscontext");
    PropertyList props;
    SetProperty(props, u"MediaType", static_cast<int32_t>(m_mediaType));
    SetProperty(props, u"MediaSubType", static_cast<int32_t>(m_mediaSubType));
    SetProperty(props, u"LinkSpeed", static_cast<uint64_t>(m_linkSpeed));
    SetProperty(props, u"StartDateTime", static_cast<uint64_t>(m_startTime));
    SetProperty(props, u"StopDateTime", static_cast<uint64_t>(m_stopTime));
    SetProperty(props, u"TotalPackets", static_cast<uint64_t>(m_totalPackets));
    SetProperty(props, u"TotalBytes", static_cast<uint64_t>(m_totalBytes));
    auto propsElement = CreateChildElement(doc.Get(), context.Get(), u"props");
    SavePropertyList(doc.Get(), props, propsElement.Get(), u"props");
    for (IUnknown* table : {static_cast<IUnknown*>(m_entityTable.Get()), static_cast<IUnknown*>(m_tupleTable.Get())}) {
      ZemoTime tableSince = from;
      CheckHr(Required<IPersistXmlDeltas>(table)->SaveDeltas(document, context.Get(), &tableSince));
    }
    auto stats = CreateXmlElement(doc.Get(), u"stats");
    for (const StatSlot& slot : m_slots) {
      if (!slot.stats) AtlThrow(E_FAIL);
      CLSID clsid = GUID_NULL;
      if (!ClassOfStats(slot.stats, clsid)) AtlThrow(E_NOINTERFACE);
      auto statobj = CreateChildElement(doc.Get(), stats.Get(), u"statobj");
      SetAttribute(statobj.Get(), u"clsid", GuidText(clsid));
      SetAttribute(statobj.Get(), u"id", GuidText(slot.key));
      ZemoTime statsSince = from;
      if (ComPtr<IPersistXmlDeltas> deltas = Query<IPersistXmlDeltas>(slot.stats))
        CheckHr(deltas->SaveDeltas(document, statobj.Get(), &statsSince));
      else
        CheckHr(SaveObjectToXml(slot.stats, document, statobj.Get(), FALSE));
    }
    // In this form the tables compare the cookie with their wall clock times.
    *since = Now();
    AppendXmlChild(context.Get(), stats.Get());
    AppendXmlChild(parent.Get(), context.Get());
  });
}

HRESULT StatsContext::Load(IUnknown* document, IUnknown* node) {
  if (!document || !node) return E_POINTER;
  return Locked([&]() -> HRESULT {
    auto parent = XmlNodeOf(node);
    auto context = SelectXmlNode(parent.Get(), u"statscontext");
    if (!context) return E_FAIL;
    auto propsElement = SelectXmlNode(context.Get(), u"props");
    if (!propsElement) return E_FAIL;
    PropertyList props;
    LoadPropertyList(propsElement.Get(), props);
    int32_t mediaType = 0, mediaSubType = 0;
    SavedHeader header;
    if (!GetProperty(props, u"MediaType", mediaType) || !GetProperty(props, u"MediaSubType", mediaSubType) ||
        !GetProperty(props, u"LinkSpeed", header.linkSpeed) || !GetProperty(props, u"StartDateTime", header.startTime) ||
        !GetProperty(props, u"StopDateTime", header.stopTime) ||
        !GetProperty(props, u"TotalPackets", header.totalPackets) || !GetProperty(props, u"TotalBytes", header.totalBytes))
      return E_FAIL;
    header.mediaType = static_cast<ULONG>(mediaType);
    header.mediaSubType = static_cast<ULONG>(mediaSubType);
    StoreHeader(header);
    CheckHr(LoadObjectFromXml(m_entityTable.Get(), document, context.Get()));
    CheckHr(LoadObjectFromXml(m_tupleTable.Get(), document, context.Get()));
    auto stats = SelectXmlNode(context.Get(), u"stats");
    if (!stats) return S_OK;
    ForEachChildElement(stats.Get(), [&](IXMLDOMElement* element) {
      CLSID clsid = GUID_NULL, key = GUID_NULL;
      if (!GetAttribute(element, u"clsid", clsid) || !GetAttribute(element, u"id", key)) AtlThrow(E_FAIL);
      ComPtr<IZemoStats> statistic = FindOrCreateStats(clsid, key);
      CheckHr(LoadObjectFromXml(statistic.Get(), document, element));
    });
    return S_OK;
  });
}

// A context has no text form of its own: only the name is checked.
HRESULT StatsContext::Save(LPCOLESTR fileName, BOOL) {
  return Unlocked([&]() -> HRESULT {
    CheckExportExtension(fileName, kExportTxt);
    return E_NOTIMPL;
  });
}

// ---- ISelectableObject ------------------------------------------------------

HRESULT StatsContext::GetSelectName(BSTR* name) {
  return Unlocked([&] {
    CheckOut(name);
    *name = AllocBstr(u"statscontext");
  });
}

HRESULT StatsContext::GetSelectFlag(ULONG* flag) {
  return Unlocked([&] {
    CheckOut(flag);
    *flag = 1;
  });
}

HRESULT StatsContext::GetSelectParams(ISelectParams** out) {
  return Locked([&] {
    CheckOut(out);
    ComPtr<ISelectParams> params = NewSelectParams();
    for (IUnknown* table : {static_cast<IUnknown*>(m_entityTable.Get()), static_cast<IUnknown*>(m_tupleTable.Get())})
      AddSelectStep(params.Get(), GetSelectableName(table));
    // The bag names the type a selection gives for each: text and class.
    AddSelectStep(params.Get(), u"stat", NewTypeBag({{u"name", VT_BSTR}, {u"id", VT_CLSID}}).Get());
    *out = params.Detach();
  });
}

HRESULT StatsContext::Select(ISelectParams* params, IUnknown** out) {
  if (!params || !out) return E_POINTER;
  return Locked([&]() -> HRESULT {
    CBstr step;
    ComPtr<IPropertyBag> bag;
    if (CheckHr(params->NextItem(step.Out(), bag.ReleaseAndGetAddressOf())) == S_FALSE)
      return GetUnknown()->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(out));
    for (IUnknown* table : {static_cast<IUnknown*>(m_entityTable.Get()), static_cast<IUnknown*>(m_tupleTable.Get())}) {
      HRESULT hr = CheckHr(SelectChild(table, step.View(), params, out));
      if (hr != kSelectNotMine) return hr;
    }
    if (!WideEqualNoCase(step.View(), u"stat")) return S_FALSE;
    if (!bag) return E_INVALIDARG;
    std::u16string name, idText;
    bool byName = ReadBagText(bag.Get(), u"name", name);
    bool byId = ReadBagText(bag.Get(), u"id", idText);
    if (!byName && !byId) return E_INVALIDARG;
    CLSID id = GUID_NULL;
    if (byId) CheckHr(CLSIDFromString(idText.c_str(), &id));
    for (const StatSlot& slot : m_slots) {
      bool match = (byName && WideEqualNoCase(GetSelectableName(slot.stats), name)) ||
                   (byId && ClassOfStats(slot.stats) == id);
      if (match) return SelectFound(params, slot.stats, out);
    }
    return E_INVALIDARG;
  });
}

HRESULT StatsContext::GetTable(IDataTable** table) {
  static constexpr TableColumn kColumns[] = {{u"name", VT_BSTR}, {u"id", VT_BSTR}};
  return Locked([&] {
    CheckOut(table);
    MakeTable(table, kColumns);
    TableRows rows(*table);
    for (const StatSlot& slot : m_slots) {
      std::u16string name = Query<ISelectableObject>(slot.stats) ? GetSelectableName(slot.stats) : u"???";
      rows.Add({CVariant::Str(name), CVariant::Str(GuidText(ClassOfStats(slot.stats)))});
    }
  });
}

}  // namespace zemo
