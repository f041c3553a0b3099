#include "engine/site.h"

#include <algorithm>

namespace zemo {

void Site::SetService(const GUID& service, IUnknown* object) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  auto it = std::find_if(m_services.begin(), m_services.end(), [&](const Entry& e) { return e.service == service; });
  if (!object) {
    if (it != m_services.end()) m_services.erase(it);
  } else if (it != m_services.end()) {
    it->object = object;
  } else {
    m_services.push_back({service, object});
  }
}

HRESULT Site::SetProperty(std::u16string_view name, const VARIANT& value) {
  return Locked([&] {
    if (value.vt == VT_EMPTY) {
      if (auto it = m_properties.find(name); it != m_properties.end()) m_properties.erase(it);
      return;
    }
    m_properties.insert_or_assign(std::u16string(name), CVariant(value));
  });
}

HRESULT Site::QueryService(REFGUID service, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  ComPtr<IUnknown> object;
  {
    std::lock_guard<CObjectLock> hold(ObjectLock());
    for (const Entry& e : m_services)
      if (e.service == service) object = e.object;
  }
  // The service is asked outside the site's lock: it may call back.
  return object ? object->QueryInterface(iid, out) : E_NOINTERFACE;
}

HRESULT Site::ReadProperties(ULONG count, const ZemoSiteProperty* properties, VARIANT* values) {
  return Locked([&]() -> HRESULT {
    if (count && (!properties || !values)) return E_POINTER;
    HRESULT result = S_OK;
    for (ULONG i = 0; i < count; ++i) {
      auto it = properties[i].Name ? m_properties.find(std::u16string_view(properties[i].Name)) : m_properties.end();
      if (it == m_properties.end()) {
        if (result == S_OK) result = S_FALSE;
        continue;
      }
      CVariant value;
      HRESULT hr = VariantChangeType(&value, &it->second, 0, properties[i].Type);
      if (FAILED(hr)) {
        if (SUCCEEDED(result)) result = hr;
        continue;
      }
      values[i] = value;
      VariantInit(&value);  // values[i] owns it now
    }
    return result;
  });
}

}  // namespace zemo
