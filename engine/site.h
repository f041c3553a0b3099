// Site: what a host sets as a statistics context's site. It answers
// IServiceProvider with the service objects the host registered, such as its
// address book under kServiceNameTable, and ISiteProperties with the values
// the host set, such as the packets its capture dropped.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "frame/engine_interfaces.h"
#include "platform/object.h"
#include "platform/variant.h"

inline constexpr char16_t kProgIdSite[] = u"ZemoEngine.Site";

namespace zemo {

class Site final : public Object<Site, IServiceProvider, ISiteProperties> {
 public:
  // Registers object as the service, in place of any before it; null revokes it.
  void SetService(const GUID& service, IUnknown* object);
  // Sets a property, in place of any before it; VT_EMPTY removes it.
  HRESULT SetProperty(std::u16string_view name, const VARIANT& value);

  // The registered object asked for iid. A service that is not registered
  // gives E_NOINTERFACE, as does an object without the interface.
  HRESULT QueryService(REFGUID service, REFIID iid, void** out) override;

  // S_FALSE when a property is not set, the conversion's status when a value
  // doesn't convert to the type asked; the other values are filled all the same.
  HRESULT ReadProperties(ULONG count, const ZemoSiteProperty* properties, VARIANT* values) override;

 private:
  struct Entry {
    GUID service;
    ComPtr<IUnknown> object;
  };
  std::vector<Entry> m_services;
  std::map<std::u16string, CVariant, std::less<>> m_properties;
};

}  // namespace zemo
