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

}  // namespace zemo
