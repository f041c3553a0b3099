#include "engine/id_list.h"

#include <algorithm>

namespace zemo {

HRESULT IdList::GetCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(m_ids.size());
  });
}

HRESULT IdList::GetAt(LONG index, GUID* id) {
  return Locked([&] {
    CheckOut(id);
    if (index < 0 || static_cast<size_t>(index) >= m_ids.size()) AtlThrow(E_INVALIDARG);
    *id = m_ids[static_cast<size_t>(index)];
  });
}

HRESULT IdList::Add(const GUID* id) {
  return Locked([&] {
    if (!id) AtlThrow(E_POINTER);
    m_ids.push_back(*id);
  });
}

HRESULT IdList::Find(const GUID* id, LONG* index) {
  return Locked([&]() -> HRESULT {
    if (!id) AtlThrow(E_POINTER);
    CheckOut(index);
    auto it = std::find(m_ids.begin(), m_ids.end(), *id);
    *index = it == m_ids.end() ? -1 : static_cast<LONG>(it - m_ids.begin());
    return it == m_ids.end() ? S_FALSE : S_OK;
  });
}

HRESULT IdList::RemoveAll() {
  return Locked([&] { m_ids.clear(); });
}

}  // namespace zemo
