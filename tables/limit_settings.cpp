#include "tables/limit_settings.h"

#include "frame/xml_persist.h"

namespace zemo {

namespace {

constexpr char16_t kElement[] = u"ZemoStatsLimitSettings";

template <class T>
HRESULT ReadField(const std::atomic<T>& field, T* out) {
  if (!out) return E_POINTER;
  *out = field.load(std::memory_order_relaxed);
  return S_OK;
}

// An attribute that is absent or does not convert leaves the field alone.
template <class T>
void LoadAttribute(IXMLDOMElement* element, std::u16string_view name, std::atomic<T>& field) {
  T value{};
  try {
    if (GetAttribute(element, name, value)) field.store(value, std::memory_order_relaxed);
  } catch (const CAtlException&) {
  }
}

}  // namespace

HRESULT ZemoStatsLimitSettings::GetEnabled(LONG* enabled) { return ReadField(m_enabled, enabled); }
HRESULT ZemoStatsLimitSettings::SetEnabled(LONG enabled) { return m_enabled.store(enabled), S_OK; }
HRESULT ZemoStatsLimitSettings::GetLimit(ULONG* limit) { return ReadField(m_limit, limit); }
HRESULT ZemoStatsLimitSettings::SetLimit(ULONG limit) { return m_limit.store(limit), S_OK; }
HRESULT ZemoStatsLimitSettings::GetReset(LONG* reset) { return ReadField(m_reset, reset); }
HRESULT ZemoStatsLimitSettings::SetReset(LONG reset) { return m_reset.store(reset), S_OK; }

HRESULT ZemoStatsLimitSettings::GetNotify(LONG* notify, LONG* severity) {
  if (!notify || !severity) return E_POINTER;
  *notify = m_notify.load(std::memory_order_relaxed);
  *severity = m_severity.load(std::memory_order_relaxed);
  return S_OK;
}

HRESULT ZemoStatsLimitSettings::SetNotify(LONG notify, LONG severity) {
  m_notify.store(notify);
  m_severity.store(severity);
  return S_OK;
}

HRESULT ZemoStatsLimitSettings::GetClassID(CLSID* out) {
  if (!out) return E_POINTER;
  *out = CLSID_ZemoStatsLimitSettings;
  return S_OK;
}

HRESULT ZemoStatsLimitSettings::Load(IUnknown* document, IUnknown* node) {
  return Unlocked([&] {
    if (!document) AtlThrow(E_POINTER);
    ComPtr<IXMLDOMElement> element = SelectXmlElement(XmlNodeOf(node).Get(), kElement);
    if (!element) AtlThrow(E_FAIL);
    LoadAttribute(element.Get(), u"Enabled", m_enabled);
    LoadAttribute(element.Get(), u"Limit", m_limit);
    LoadAttribute(element.Get(), u"Reset", m_reset);
    LoadAttribute(element.Get(), u"Notify", m_notify);
    LoadAttribute(element.Get(), u"Severity", m_severity);
  });
}

HRESULT ZemoStatsLimitSettings::Save(IUnknown* document, IUnknown* node, BOOL) {
  return Unlocked([&] {
    ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> element = CreateChildElement(doc.Get(), XmlNodeOf(node).Get(), kElement);
    SetAttribute(element.Get(), u"Enabled", m_enabled.load());
    SetAttribute(element.Get(), u"Limit", m_limit.load());
    SetAttribute(element.Get(), u"Reset", m_reset.load());
    SetAttribute(element.Get(), u"Notify", m_notify.load());
    SetAttribute(element.Get(), u"Severity", m_severity.load());
  });
}

}  // namespace zemo
