// The selection steps the identity tables share: both are leaves of a path,
// with a fixed name and no table of their own.
#pragma once

#include <string_view>

#include "frame/persist_interfaces.h"
#include "platform/object.h"

namespace zemo::identity {

inline void SelectNameOut(BSTR* name, std::u16string_view text) {
  CheckOut(name);
  *name = AllocBstr(text);
}

// A path that ends here gives self; any further step is E_INVALIDARG.
inline HRESULT SelectLeaf(ISelectParams* params, IUnknown* self, IUnknown** out) {
  CheckOut(out);
  if (params) {
    CBstr step;
    ComPtr<IPropertyBag> bag;
    if (CheckHr(params->NextItem(step.Out(), bag.ReleaseAndGetAddressOf())) != S_FALSE) return E_INVALIDARG;
  }
  return self->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(out));
}

}  // namespace zemo::identity
