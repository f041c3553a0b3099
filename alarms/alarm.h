// Alarm: watches the number one tracker follows and changes state when it
// stays past a threshold for long enough. Three conditions (Resolve, Suspect,
// Problem), each with a threshold, a comparison and a duration in seconds;
// the state is the condition that last held for longer than its duration.
// Each evaluation replays the seconds since the last one, and a change of
// state is sent to the notification sink.
#pragma once

#include <string>

#include "alarms/alarm_interfaces.h"
#include "frame/cloneable.h"
#include "frame/clsids.h"
#include "frame/persist_interfaces.h"
#include "platform/object.h"

namespace zemo {

// One condition of an alarm.
struct AlarmCondition {
  bool enabled = false;
  LONG duration = 0;  // seconds; the condition holds once its count passes this
  AlarmComparison comparison = static_cast<AlarmComparison>(0);
  double threshold = 0.0;
  LONG severity = 0;

  // The value against the threshold; a value that is no number matches only "differs".
  bool Matches(double value) const noexcept;
};

class Alarm final : public Object<Alarm, DualInterface<IAlarm>, ICloneable, IPersistXml> {
 public:
  Alarm();

  // IAlarm
  HRESULT ResetState() override;
  HRESULT Evaluate(ZemoTime time, LONG* changed, AlarmConditionKind* state) override;
  HRESULT GetID(GUID* id) override;
  HRESULT SetID(const GUID& id) override;
  HRESULT GetCreated(ZemoTime* time) override;
  HRESULT SetCreated(ZemoTime time) override;
  HRESULT GetModified(ZemoTime* time) override;
  HRESULT SetModified(ZemoTime time) override;
  HRESULT GetContextId(GUID* id) override;
  HRESULT SetContextId(const GUID& id) override;
  HRESULT GetName(BSTR* name) override;
  HRESULT SetName(BSTR name) override;
  HRESULT GetTrackType(AlarmTrackType* type) override;
  HRESULT SetTrackType(AlarmTrackType type) override;
  HRESULT GetStatsTracker(IZemoStatsTracker** tracker) override;
  HRESULT SetStatsTracker(IZemoStatsTracker* tracker) override;
  HRESULT GetNotifySink(INotify** sink) override;
  HRESULT SetNotifySink(INotify* sink) override;
  HRESULT GetConditionEnabled(AlarmConditionKind kind, LONG* enabled) override;
  HRESULT SetConditionEnabled(AlarmConditionKind kind, LONG enabled) override;
  HRESULT SetCondition(AlarmConditionKind kind, LONG duration, AlarmComparison comparison, double threshold,
                       LONG severity) override;
  HRESULT GetCondition(AlarmConditionKind kind, LONG* duration, AlarmComparison* comparison, double* threshold,
                       LONG* severity) override;
  HRESULT GetAlarmState(AlarmConditionKind* state, LONG* severity) override;
  HRESULT GetLastChangeTime(ZemoTime* time) override;

  // ICloneable: the same definition and id, a clone of the tracker, the
  // same sink; evaluation starts afresh.
  HRESULT Clone(IUnknown** out) override;

  // IPersistXml: the `alarmnode` element, its conditions and its tracker.
  HRESULT GetClassID(CLSID* out) override;
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;

  // The message of a change to state at this alarm's settings, as the sink gets it.
  std::u16string Message(AlarmConditionKind state) const;

 private:
  // Conditions are kept in the order Resolve, Suspect, Problem.
  enum { kResolveSlot, kSuspectSlot, kProblemSlot, kSlots };
  static int SlotOf(LONG kind) noexcept;
  AlarmCondition& ConditionOf(LONG kind) noexcept { return m_conditions[SlotOf(kind)]; }
  // One round of an evaluation at time t, prev being the round before.
  void Round(ZemoTime prev, ZemoTime t, AlarmConditionKind* state, LONG* changed);

  std::u16string m_name;
  AlarmCondition m_conditions[kSlots];
  AlarmTrackType m_trackType = static_cast<AlarmTrackType>(0);
  ComPtr<IZemoStatsTracker> m_tracker;
  GUID m_id{};
  ZemoTime m_created = 0;
  ZemoTime m_modified = 0;
  ComPtr<INotify> m_sink;
  GUID m_contextId{};

  ZemoTime m_lastChange = 0;
  ZemoTime m_lastEvaluated = 0;  // 0: the clock has not started
  LONG m_resolveCount = 0;
  LONG m_suspectCount = 0;
  LONG m_problemCount = 0;
  AlarmConditionKind m_state = kAlarmResolve;
};

}  // namespace zemo
