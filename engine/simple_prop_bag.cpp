#include "engine/simple_prop_bag.h"

namespace zemo {

HRESULT SimplePropBag::Read(LPCOLESTR name, VARIANT* value, IErrorLog*) {
  return Locked([&]() -> HRESULT {
    if (!name || !value) return E_POINTER;
    auto it = m_values.find(name);
    if (it == m_values.end()) return E_INVALIDARG;
    // Both leave the caller's variant alone on failure.
    if (value->vt == VT_EMPTY) return VariantCopy(value, &it->second);
    return VariantChangeType(value, &it->second, 0, value->vt);
  });
}

HRESULT SimplePropBag::Write(LPCOLESTR name, VARIANT* value) {
  return Locked([&]() -> HRESULT {
    if (!name || !value) return E_POINTER;
    // A reference would dangle once the caller's storage goes.
    if (value->vt & VT_BYREF) return DISP_E_BADVARTYPE;
    CVariant copy(*value);
    m_values.insert_or_assign(std::u16string(name), std::move(copy));
    return S_OK;
  });
}

}  // namespace zemo
