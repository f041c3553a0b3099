// Site: what a host sets as a statistics context's site. It answers
// IServiceProvider with the service objects the host registered, such as its
// address book under kServiceNameTable.
#pragma once

#include <vector>

#include "frame/engine_interfaces.h"
#include "platform/object.h"

inline constexpr char16_t kProgIdSite[] = u"ZemoEngine.Site";

namespace zemo {

class Site final : public Object<Site, IServiceProvider> {
 public:
  // Registers object as the service, in place of any before it; null revokes it.
  void SetService(const GUID& service, IUnknown* object);

  // The registered object asked for iid. A service that is not registered
  // gives E_NOINTERFACE, as does an object without the interface.
  HRESULT QueryService(REFGUID service, REFIID iid, void** out) override;

 private:
  struct Entry {
    GUID service;
    ComPtr<IUnknown> object;
  };
  std::vector<Entry> m_services;
};

}  // namespace zemo
