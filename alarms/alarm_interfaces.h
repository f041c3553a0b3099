// The interfaces of alarms, their collection and states (dual: callable by
// name through IDispatch as well), and of the statistics server that runs
// trackers and alarms.
#pragma once

#include "frame/engine_interfaces.h"
#include "frame/iids.h"
#include "frame/stats_interfaces.h"
#include "frame/tracker_interfaces.h"
#include "platform/dispatch.h"

// A condition of an alarm, and the state it leads to. As an argument, any
// value but Suspect and Problem selects Resolve.
enum AlarmConditionKind : LONG {
  kAlarmSuspect = 1,
  kAlarmProblem = 2,
  kAlarmResolve = 3,
};

// How a value is compared with a condition's threshold; any other value
// never matches.
enum AlarmComparison : LONG {
  kAlarmLess = 1,
  kAlarmLessOrEqual = 2,
  kAlarmGreater = 3,
  kAlarmGreaterOrEqual = 4,
  kAlarmEqual = 5,
  kAlarmNotEqual = 6,
};

// Which answer of the tracker an alarm tests.
enum AlarmTrackType : LONG {
  kAlarmTrackValue = 1,  // the running total at the second
  kAlarmTrackDelta = 2,  // the change since the previous round
  kAlarmTrackRate = 3,   // the change over the last second
};

// clang-format off
#define ZEMO_IALARM_OPERATIONS(OP)                                                                         \
  OP(ResetState, ())                                                                                       \
  /* changed is written only when the state changed. */                                                    \
  OP(Evaluate, (ZemoTime time, LONG* changed, AlarmConditionKind* state))                                  \
  OP(GetID, (GUID* id))                                                                                    \
  OP(SetID, (const GUID& id))                                                                              \
  OP(GetCreated, (ZemoTime* time))                                                                         \
  /* Sets modified as well. */                                                                             \
  OP(SetCreated, (ZemoTime time))                                                                          \
  OP(GetModified, (ZemoTime* time))                                                                        \
  /* 0 stands for the present time. */                                                                     \
  OP(SetModified, (ZemoTime time))                                                                         \
  OP(GetContextId, (GUID* id))                                                                             \
  OP(SetContextId, (const GUID& id))                                                                       \
  OP(GetName, (BSTR* name))                                                                                \
  OP(SetName, (BSTR name))                                                                                 \
  OP(GetTrackType, (AlarmTrackType* type))                                                                 \
  OP(SetTrackType, (AlarmTrackType type))                                                                  \
  OP(GetStatsTracker, (IZemoStatsTracker** tracker))                                                       \
  OP(SetStatsTracker, (IZemoStatsTracker* tracker))                                                        \
  OP(GetNotifySink, (INotify** sink))                                                                      \
  OP(SetNotifySink, (INotify* sink))                                                                       \
  OP(GetConditionEnabled, (AlarmConditionKind kind, LONG* enabled))                                        \
  OP(SetConditionEnabled, (AlarmConditionKind kind, LONG enabled))                                         \
  /* Leaves enabled as it is. */                                                                           \
  OP(SetCondition, (AlarmConditionKind kind, LONG duration, AlarmComparison comparison, double threshold,  \
                    LONG severity))                                                                        \
  OP(GetCondition, (AlarmConditionKind kind, LONG* duration, AlarmComparison* comparison, double* threshold, \
                    LONG* severity))                                                                       \
  /* The state and the severity of its condition. */                                                       \
  OP(GetAlarmState, (AlarmConditionKind* state, LONG* severity))                                           \
  OP(GetLastChangeTime, (ZemoTime* time))

#define ZEMO_IALARMCOLLECTION_OPERATIONS(OP) \
  OP(GetAlarm, (LONG index, IAlarm** alarm)) \
  OP(GetCount, (LONG* count))                \
  OP(FindAlarm, (const GUID& id, IAlarm** alarm)) \
  /* An alarm whose id is present replaces the old one, at the end. */ \
  OP(AddAlarm, (IAlarm* alarm))              \
  OP(RemoveAlarm, (IAlarm* alarm))           \
  OP(RemoveAll, ())

#define ZEMO_IALARMSTATES_OPERATIONS(OP)                             \
  OP(AddState, (const GUID& id, ULONG condition, ULONG severity))    \
  OP(GetStateCount, (LONG* count))                                   \
  OP(GetState, (LONG index, GUID* id, ULONG* condition, ULONG* severity))
// clang-format on

ZEMO_DUAL_INTERFACE(IAlarm, IID_IAlarm, ZEMO_IALARM_OPERATIONS);
ZEMO_DUAL_INTERFACE(IAlarmCollection, IID_IAlarmCollection, ZEMO_IALARMCOLLECTION_OPERATIONS);
ZEMO_DUAL_INTERFACE(IAlarmStates, IID_IAlarmStates, ZEMO_IALARMSTATES_OPERATIONS);

// One entry of an AlarmStates: an alarm's id, its state and that state's
// severity, as its stream form holds it.
struct AlarmStateEntry {
  GUID id;
  ULONG condition;
  ULONG severity;
};
static_assert(sizeof(AlarmStateEntry) == 24);

struct IZemoStatsServer : IUnknown {
  static constexpr IID iid = IID_IZemoStatsServer;
  // The capture the trackers read; the same pointer again does nothing.
  virtual HRESULT SetContext(IZemoStatsContext* context) = 0;
  // Appended (twice if added twice) and bound to the context.
  virtual HRESULT AddTracker(IZemoStatsTracker* tracker) = 0;
  // The first entry of that object; absent is no failure.
  virtual HRESULT RemoveTracker(IZemoStatsTracker* tracker) = 0;
  // The ids of the alarms it runs; a null out pointer is ignored.
  virtual HRESULT GetAlarmIDs(IIdList** ids) = 0;
  virtual HRESULT RemoveAllAlarms() = 0;
  // Appended, its tracker bound to the context and its id listed.
  virtual HRESULT AddAlarm(IAlarm* alarm) = 0;
  // The alarms whose last change is at or after *since; *since moves to the
  // time of the last of them in list order.
  virtual HRESULT GetAlarmStates(IAlarmStates** states, ZemoTime* since) = 0;
};
