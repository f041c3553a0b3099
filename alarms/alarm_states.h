// AlarmStates: the answer of a statistics server to "which alarms changed":
// a plain list of (alarm id, state, severity), saved as it stands.
#pragma once

#include <vector>

#include "alarms/alarm_interfaces.h"
#include "frame/clsids.h"
#include "frame/persist_interfaces.h"
#include "platform/object.h"

namespace zemo {

class AlarmStates final
    : public Object<AlarmStates, DualInterface<IAlarmStates>, IPersistStream, IPersistXml> {
 public:
  // IAlarmStates
  HRESULT AddState(const GUID& id, ULONG condition, ULONG severity) override;
  HRESULT GetStateCount(LONG* count) override;
  HRESULT GetState(LONG index, GUID* id, ULONG* condition, ULONG* severity) override;

  // IPersistStream: a u32 count, then 24 bytes an entry; IPersistXml: the
  // `AlarmStates` element with an `Alarm` child for each entry.
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;

 private:
  std::vector<AlarmStateEntry> m_entries;
};

}  // namespace zemo
