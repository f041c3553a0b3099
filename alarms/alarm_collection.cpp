#include "alarms/alarm_collection.h"

#include "frame/module.h"
#include "frame/selection.h"
#include "frame/stream_persist.h"
#include "frame/xml_persist.h"
#include "platform/strings.h"

namespace zemo {

bool SameObject(IUnknown* a, IUnknown* b) {
  if (a == b) return true;
  if (!a || !b) return false;
  ComPtr<IUnknown> ia, ib;
  return SUCCEEDED(a->QueryInterface(IUnknown::iid, ia.OutVoid())) &&
         SUCCEEDED(b->QueryInterface(IUnknown::iid, ib.OutVoid())) && ia == ib;
}

HRESULT SelectAlarm(std::span<IAlarm* const> alarms, std::u16string_view step, IPropertyBag* bag,
                    ISelectParams* params, IUnknown** out) {
  if (!WideEqualNoCase(step, u"alarm") || !bag) return E_INVALIDARG;
  std::u16string name, idText;
  const bool byName = ReadBagText(bag, u"name", name);
  const bool byId = ReadBagText(bag, u"id", idText);
  if (!byName && !byId) return E_INVALIDARG;
  GUID id = GUID_NULL;
  if (byId) CheckHr(CLSIDFromString(idText.c_str(), &id));
  for (IAlarm* alarm : alarms) {
    if (!alarm) continue;
    bool match = false;
    if (byName) {
      CBstr alarmName;
      match = SUCCEEDED(alarm->GetName(alarmName.Out())) && WideEqualNoCase(alarmName.View(), name);
    }
    if (!match && byId) {
      GUID alarmId = GUID_NULL;
      match = SUCCEEDED(alarm->GetID(&alarmId)) && alarmId == id;
    }
    if (match) return SelectFound(params, alarm, out);
  }
  return E_INVALIDARG;
}

// ---- IAlarmCollection --------------------------------------------------------

HRESULT AlarmCollection::GetAlarm(LONG index, IAlarm** alarm) {
  return Locked([&] {
    CheckOut(alarm);
    if (index < 0 || index >= m_alarms.GetCount()) AtlThrow(E_INVALIDARG);
    if (!m_alarms[index]) AtlThrow(E_FAIL);
    m_alarms.CopyTo(index, alarm);
  });
}

HRESULT AlarmCollection::GetCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_alarms.GetCount();
  });
}

HRESULT AlarmCollection::FindAlarm(const GUID& id, IAlarm** alarm) {
  return Locked([&]() -> HRESULT {
    CheckOut(alarm);
    for (LONG i = 0; i < m_alarms.GetCount(); ++i) {
      GUID other = GUID_NULL;
      // An alarm that fails to answer is passed over.
      if (m_alarms[i] && SUCCEEDED(m_alarms[i]->GetID(&other)) && other == id) {
        m_alarms.CopyTo(i, alarm);
        return S_OK;
      }
    }
    return E_FAIL;
  });
}

HRESULT AlarmCollection::AddAlarm(IAlarm* alarm) {
  return Locked([&] {
    if (!alarm) AtlThrow(E_POINTER);
    GUID id = GUID_NULL;
    CheckHr(alarm->GetID(&id));
    ComPtr<IAlarm> present;
    if (SUCCEEDED(FindAlarm(id, present.ReleaseAndGetAddressOf()))) CheckHr(RemoveAlarm(present.Get()));
    m_alarms.Add(alarm);
  });
}

HRESULT AlarmCollection::RemoveAlarm(IAlarm* alarm) {
  return Locked([&]() -> HRESULT {
    if (!alarm) return E_POINTER;
    for (LONG i = 0; i < m_alarms.GetCount(); ++i)
      if (SameObject(m_alarms[i], alarm)) {
        m_alarms.RemoveAt(i);
        return S_OK;
      }
    return E_FAIL;
  });
}

HRESULT AlarmCollection::RemoveAll() {
  return Locked([&] { m_alarms.RemoveAll(); });
}

// ---- persistence -------------------------------------------------------------

HRESULT AlarmCollection::GetClassID(CLSID* out) {
  if (!out) return E_POINTER;
  *out = CLSID_AlarmCollection;
  return S_OK;
}

// The stream holds the document of the XML form, as the document itself
// writes it to a stream.
HRESULT AlarmCollection::Load(IStream* stream) {
  return Locked([&]() -> HRESULT {
    if (!stream) return E_POINTER;
    ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
    CheckHr(LoadObjectFromStream(document.Get(), stream));
    return Load(document.Get(), document.Get());
  });
}

HRESULT AlarmCollection::Save(IStream* stream, BOOL) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
    CheckHr(Save(document.Get(), document.Get(), FALSE));
    CheckHr(SaveObjectToStream(document.Get(), stream, FALSE));
  });
}

HRESULT AlarmCollection::Save(IUnknown* document, IUnknown* node, BOOL flag) {
  return Locked([&] {
    ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
    ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
    ComPtr<IXMLDOMElement> alarms = CreateXmlElement(doc.Get(), u"Alarms");
    for (IAlarm* alarm : m_alarms) {
      if (!alarm) AtlThrow(E_FAIL);
      ComPtr<IPersistXml> persist;
      CheckHr(QueryTo(alarm, &persist));
      ComPtr<IXMLDOMElement> holder = CreateXmlElement(doc.Get(), u"Alarmobj");
      CLSID clsid = GUID_NULL;
      CheckHr(persist->GetClassID(&clsid));
      SetAttribute(holder.Get(), u"clsid", clsid);
      CheckHr(persist->Save(doc.Get(), holder.Get(), flag));
      AppendXmlChild(alarms.Get(), holder.Get());
    }
    AppendXmlChild(parent.Get(), alarms.Get());
  });
}

// Loaded alarms join the present ones, replacing those of the same id; the
// first bad element ends the load, and what was read before it stays.
HRESULT AlarmCollection::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> alarms = SelectXmlElement(XmlNodeOf(node).Get(), u"Alarms");
    if (!alarms) AtlThrow(E_FAIL);
    ForEachChildElement(alarms.Get(), [&](IXMLDOMElement* holder) {
      std::u16string text;
      if (!GetAttribute(holder, u"clsid", text)) AtlThrow(E_FAIL);
      CLSID clsid = GUID_NULL;
      CheckHr(CLSIDFromString(text.c_str(), &clsid));
      ComPtr<IAlarm> alarm;
      CheckHr(CreateModuleInstance(clsid, IAlarm::iid, alarm.OutVoid()));
      CheckHr(LoadObjectFromXml(alarm.Get(), document, holder));
      CheckHr(AddAlarm(alarm.Get()));
    });
  });
}

HRESULT AlarmCollection::Load(LPCOLESTR fileName, DWORD) {
  return Locked([&] { return LoadObjectFromXmlFile(GetUnknown(), fileName); });
}

HRESULT AlarmCollection::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] { return SaveObjectToXmlFile(GetUnknown(), fileName); });
}

// ---- ISelectableObject -------------------------------------------------------

HRESULT AlarmCollection::GetSelectName(BSTR* name) {
  return Unlocked([&] {
    CheckOut(name);
    *name = AllocBstr(u"alarmcollection");
  });
}

HRESULT AlarmCollection::GetSelectFlag(ULONG* flag) {
  return Locked([&] {
    CheckOut(flag);
    *flag = m_alarms.IsEmpty() ? 0 : 1;
  });
}

HRESULT AlarmCollection::GetSelectParams(ISelectParams** out) {
  return Locked([&] {
    CheckOut(out);
    ComPtr<ISelectParams> params = NewSelectParams();
    AddSelectStep(params.Get(), u"alarm", NewTypeBag({{u"name", VT_BSTR}, {u"id", VT_BSTR}}).Get());
    *out = params.Detach();
  });
}

HRESULT AlarmCollection::Select(ISelectParams* params, IUnknown** out) {
  if (!params || !out) return E_POINTER;
  return Locked([&]() -> HRESULT {
    *out = nullptr;
    CBstr step;
    ComPtr<IPropertyBag> bag;
    if (CheckHr(params->NextItem(step.Out(), bag.ReleaseAndGetAddressOf())) == S_FALSE)
      return GetUnknown()->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(out));
    return SelectAlarm(std::span<IAlarm* const>(m_alarms.begin(), m_alarms.end()), step.View(), bag.Get(), params,
                       out);
  });
}

HRESULT AlarmCollection::GetTable(IDataTable** table) {
  static constexpr TableColumn kColumns[] = {{u"name", VT_BSTR}, {u"id", VT_BSTR}};
  return Locked([&] {
    CheckOut(table);
    MakeTable(table, kColumns);
    TableRows rows(*table);
    for (IAlarm* alarm : m_alarms) {
      if (!alarm) continue;
      CBstr name;
      GUID id = GUID_NULL;
      CheckHr(alarm->GetName(name.Out()));
      CheckHr(alarm->GetID(&id));
      rows.Add({CVariant::Str(name.View()), CVariant::Str(GuidText(id))});
    }
  });
}

}  // namespace zemo
