#include "alarms/alarm_states.h"

#include <new>

#include "frame/stream_persist.h"
#include "frame/xml_persist.h"

namespace zemo {

HRESULT AlarmStates::AddState(const GUID& id, ULONG condition, ULONG severity) {
  return Locked([&] {
    try {
      m_entries.push_back({id, condition, severity});
    } catch (const std::bad_alloc&) {
      AtlThrow(E_OUTOFMEMORY);
    }
  });
}

HRESULT AlarmStates::GetStateCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(m_entries.size());
  });
}

HRESULT AlarmStates::GetState(LONG index, GUID* id, ULONG* condition, ULONG* severity) {
  return Locked([&] {
    if (!id || !condition || !severity) AtlThrow(E_POINTER);
    if (index < 0 || static_cast<size_t>(index) >= m_entries.size()) AtlThrow(E_INVALIDARG);
    const AlarmStateEntry& e = m_entries[static_cast<size_t>(index)];
    *id = e.id;
    *condition = e.condition;
    *severity = e.severity;
  });
}

HRESULT AlarmStates::GetClassID(CLSID* out) {
  if (!out) return E_POINTER;
  *out = CLSID_AlarmStates;
  return S_OK;
}

// The count is believed only as far as entries follow it: the array grows
// with each entry read, and the entries read before a short read stay.
HRESULT AlarmStates::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    m_entries.clear();
    const ULONG count = ReadValue<ULONG>(stream);
    for (ULONG i = 0; i < count; ++i) m_entries.push_back(ReadValue<AlarmStateEntry>(stream));
  });
}

HRESULT AlarmStates::Save(IStream* stream, BOOL) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, static_cast<ULONG>(m_entries.size()));
    WriteRecords(stream, std::span<const AlarmStateEntry>(m_entries));
  });
}

HRESULT AlarmStates::GetSizeMax(ULARGE_INTEGER* size) {
  return Locked([&] {
    CheckOut(size);
    size->QuadPart = sizeof(ULONG) + sizeof(AlarmStateEntry) * m_entries.size();
  });
}

HRESULT AlarmStates::Save(IUnknown* document, IUnknown* node, BOOL) {
  return Locked([&] {
    ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
    ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
    ComPtr<IXMLDOMElement> states = CreateXmlElement(doc.Get(), u"AlarmStates");
    for (const AlarmStateEntry& e : m_entries) {
      ComPtr<IXMLDOMElement> alarm = CreateChildElement(doc.Get(), states.Get(), u"Alarm");
      SetAttribute(alarm.Get(), u"id", e.id);
      SetAttribute(alarm.Get(), u"severity", e.severity);
      SetAttribute(alarm.Get(), u"condition", e.condition);
    }
    AppendXmlChild(parent.Get(), states.Get());
  });
}

HRESULT AlarmStates::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> states = SelectXmlElement(XmlNodeOf(node).Get(), u"AlarmStates");
    if (!states) AtlThrow(E_FAIL);
    std::vector<ComPtr<IXMLDOMElement>> alarms;
    ForEachChildElement(states.Get(), [&](IXMLDOMElement* e) {
      if (XmlElementName(e) == u"Alarm") alarms.emplace_back(e);
    });
    m_entries.assign(alarms.size(), AlarmStateEntry{});
    for (size_t i = 0; i < alarms.size(); ++i) {
      std::u16string id;
      int64_t severity = 0, condition = 0;
      // Any attribute missing or not of its form fails the load.
      HRESULT hr = Boundary([&] {
        if (!GetAttribute(alarms[i].Get(), u"id", id) || !GetAttribute(alarms[i].Get(), u"severity", severity) ||
            !GetAttribute(alarms[i].Get(), u"condition", condition))
          AtlThrow(E_FAIL);
      });
      auto fits = [](int64_t v) { return v >= INT32_MIN && v <= int64_t{UINT32_MAX}; };
      if (FAILED(hr) || !fits(severity) || !fits(condition) || FAILED(CLSIDFromString(id.c_str(), &m_entries[i].id)))
        AtlThrow(E_FAIL);
      m_entries[i].severity = static_cast<ULONG>(severity);
      m_entries[i].condition = static_cast<ULONG>(condition);
    }
  });
}

}  // namespace zemo
