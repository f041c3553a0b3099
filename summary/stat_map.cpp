#include "summary/stat_map.h"

#include "frame/xml_persist.h"
#include "platform/object.h"

namespace zemo {

void CStatMap::Clear() {
  m_names.RemoveAll();
  m_order.clear();
}

HRESULT CStatMap::Load(std::u16string_view path) {
  ComPtr<IXMLDOMDocument> document;
  HRESULT hr = Boundary([&] { document = LoadXmlDocument(path); });
  if (FAILED(hr)) {
    Clear();
    return hr;
  }
  return Load(document.Get());
}

HRESULT CStatMap::Load(IXMLDOMDocument* document) {
  Clear();
  HRESULT hr = Boundary([&] {
    if (!document) AtlThrow(E_POINTER);
    ComPtr<IXMLDOMElement> root;
    if (document->get_documentElement(root.ReleaseAndGetAddressOf()) != S_OK || !root) AtlThrow(E_FAIL);
    ForEachChildElement(root.Get(), [&](IXMLDOMElement* stat) {
      if (XmlElementName(stat) != u"stat") return;
      GUID id{};
      std::u16string name;
      if (!GetAttribute(stat, u"id", id) || !GetAttribute(stat, u"name", name)) AtlThrow(E_FAIL);
      if (Entry* known = m_names.Lookup(id)) {
        known->name = std::move(name);
        return;
      }
      m_order.push_back(id);
      m_names.SetAt(id, Entry{std::move(name), static_cast<long>(m_order.size() - 1)});
    });
  });
  // A map is whole or empty.
  if (FAILED(hr)) Clear();
  return hr;
}

HRESULT CStatMap::Lookup(REFGUID id, std::u16string& name) const {
  const Entry* entry = m_names.Lookup(id);
  if (!entry) {
    name.clear();
    return E_FAIL;
  }
  name = entry->name;
  return S_OK;
}

long CStatMap::Position(REFGUID id) const noexcept {
  const Entry* entry = m_names.Lookup(id);
  return entry ? entry->position : -1;
}

}  // namespace zemo
