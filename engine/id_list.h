// IdList: the engine's list of 16-byte ids, in the order they were added,
// repeats allowed. A statistics server keeps in it the ids of the alarms it
// runs, for whoever asks it for them.
#pragma once

#include <vector>

#include "frame/engine_interfaces.h"
#include "platform/object.h"

inline constexpr char16_t kProgIdIdList[] = u"ZemoEngine.IdList";

namespace zemo {

class IdList final : public Object<IdList, IIdList> {
 public:
  HRESULT GetCount(LONG* count) override;
  HRESULT GetAt(LONG index, GUID* id) override;
  HRESULT Add(const GUID* id) override;
  HRESULT Find(const GUID* id, LONG* index) override;
  HRESULT RemoveAll() override;

 private:
  std::vector<GUID> m_ids;
};

}  // namespace zemo
