// StatsServer: what makes trackers and alarms run. It stands beside one
// capture's StatsContext and, on each tick, lets the context refresh its
// summary, samples every tracker and evaluates every alarm, in the order
// they were added. A host that polls asks it for the alarms that changed
// since a time.
#pragma once

#include "alarms/alarm_interfaces.h"
#include "frame/clsids.h"
#include "frame/persist_interfaces.h"
#include "frame/ref_array.h"
#include "platform/object.h"

namespace zemo {

class StatsServer final
    : public Object<StatsServer, IZemoStatsServer, IResetProcessing, IProcessTime, ISelectableObject> {
 public:
  // The engine's id list; without it there is no server.
  HRESULT FinalConstruct();

  // IZemoStatsServer
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT AddTracker(IZemoStatsTracker* tracker) override;
  HRESULT RemoveTracker(IZemoStatsTracker* tracker) override;
  HRESULT GetAlarmIDs(IIdList** ids) override;
  HRESULT RemoveAllAlarms() override;
  HRESULT AddAlarm(IAlarm* alarm) override;
  HRESULT GetAlarmStates(IAlarmStates** states, ZemoTime* since) override;

  // IResetProcessing: the trackers' rings and the alarms' states; the lists stay.
  HRESULT Reset() override;

  // IProcessTime: the tick.
  HRESULT ProcessTime(ZemoTime now) override;

  // ISelectableObject: the context, the id list, or a step `alarm`.
  HRESULT GetSelectName(BSTR* name) override;
  HRESULT GetSelectFlag(ULONG* flag) override;
  HRESULT GetSelectParams(ISelectParams** params) override;
  HRESULT Select(ISelectParams* params, IUnknown** out) override;
  HRESULT GetTable(IDataTable** table) override;

 private:
  TRefArray<IZemoStatsTracker> m_trackers;
  TRefArray<IAlarm> m_alarms;
  ComPtr<IIdList> m_ids;
  ComPtr<IZemoStatsContext> m_context;
};

}  // namespace zemo
