#include "engine/select_params.h"

namespace zemo {

HRESULT SelectParams::AddItem(BSTR name, IPropertyBag* bag) {
  return Locked([&] {
    // A null BSTR is the empty text.
    m_steps.push_back({CBstr(name ? std::u16string_view(name, SysStringLen(name)) : std::u16string_view()), bag});
  });
}

HRESULT SelectParams::GetCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(m_steps.size() - m_next);
  });
}

HRESULT SelectParams::NextItem(BSTR* name, IPropertyBag** bag) {
  return Locked([&]() -> HRESULT {
    CheckOut(name);
    // The bag is optional for a walker that only matches names.
    if (bag) *bag = nullptr;
    if (m_next >= m_steps.size()) return S_FALSE;
    const Step& step = m_steps[m_next];
    *name = step.name.Copy();
    if (bag) step.bag.CopyTo(bag);
    ++m_next;
    return S_OK;
  });
}

HRESULT SelectParams::Rewind() {
  return Locked([&] { m_next = 0; });
}

}  // namespace zemo
