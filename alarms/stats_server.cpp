#include "alarms/stats_server.h"

#include <cstdio>

#include "alarms/alarm_collection.h"
#include "frame/module.h"
#include "frame/selection.h"
#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/strings.h"

namespace zemo {

HRESULT StatsServer::FinalConstruct() {
  return CoCreateInstance(CLSID_ZemoIdList, nullptr, CLSCTX_ALL, IIdList::iid, m_ids.OutVoid());
}

// ---- IZemoStatsServer --------------------------------------------------------

HRESULT StatsServer::SetContext(IZemoStatsContext* context) {
  return Locked([&] {
    if (m_context.Get() != context) m_context = context;
  });
}

HRESULT StatsServer::AddTracker(IZemoStatsTracker* tracker) {
  return Locked([&] {
    if (!tracker) AtlThrow(E_POINTER);
    m_trackers.Add(tracker);
    // Before SetContext the tracker stays unbound and fails its updates.
    tracker->SetContext(m_context.Get());
  });
}

HRESULT StatsServer::RemoveTracker(IZemoStatsTracker* tracker) {
  return Locked([&] {
    for (LONG i = 0; i < m_trackers.GetCount(); ++i)
      if (SameObject(m_trackers[i], tracker)) {
        m_trackers.RemoveAt(i);
        return;
      }
  });
}

HRESULT StatsServer::GetAlarmIDs(IIdList** ids) {
  return Locked([&] {
    if (ids) m_ids.CopyTo(ids);
  });
}

HRESULT StatsServer::RemoveAllAlarms() {
  return Locked([&] {
    while (!m_alarms.IsEmpty()) m_alarms.RemoveAt(0);
    return m_ids->RemoveAll();
  });
}

// The alarm stays in the list whatever fails after it joined: it runs, its
// id may then be missing from the list.
HRESULT StatsServer::AddAlarm(IAlarm* alarm) {
  return Locked([&] {
    if (!alarm) AtlThrow(E_POINTER);
    m_alarms.Add(alarm);
    ComPtr<IZemoStatsTracker> tracker;
    CheckHr(alarm->GetStatsTracker(tracker.ReleaseAndGetAddressOf()));
    if (tracker) tracker->SetContext(m_context.Get());
    GUID id = GUID_NULL;
    CheckHr(alarm->GetID(&id));
    CheckHr(m_ids->Add(&id));
  });
}

HRESULT StatsServer::GetAlarmStates(IAlarmStates** out, ZemoTime* since) {
  return Locked([&] {
    if (!out || !since) AtlThrow(E_POINTER);
    *out = nullptr;
    const ZemoTime from = *since;
    ZemoTime cursor = from;
    ComPtr<IAlarmStates> states;
    CheckHr(CreateModuleInstance(CLSID_AlarmStates, IAlarmStates::iid, states.OutVoid()));
    for (LONG i = 0; i < m_alarms.GetCount(); ++i) {
      ComPtr<IAlarm> alarm(m_alarms[i]);
      if (!alarm) continue;
      ZemoTime changed = 0;
      CheckHr(alarm->GetLastChangeTime(&changed));
      if (changed == 0 || changed < from) continue;
      GUID id = GUID_NULL;
      AlarmConditionKind state = kAlarmResolve;
      LONG severity = 0;
      CheckHr(alarm->GetID(&id));
      CheckHr(alarm->GetAlarmState(&state, &severity));
      CheckHr(states->AddState(id, static_cast<ULONG>(state), static_cast<ULONG>(severity)));
      cursor = changed;
    }
    *since = cursor;
    *out = states.Detach();
  });
}

// ---- IResetProcessing, IProcessTime ------------------------------------------

HRESULT StatsServer::Reset() {
  return Locked([&] {
    for (LONG i = 0; i < m_trackers.GetCount(); ++i)
      if (ComPtr<IZemoStatsTracker> tracker{m_trackers[i]}) tracker->Reset();
    for (LONG i = 0; i < m_alarms.GetCount(); ++i)
      if (ComPtr<IAlarm> alarm{m_alarms[i]}) alarm->ResetState();
  });
}

// Failures of the summary and of the trackers wait for the next tick; an
// alarm's failure ends this one. Each entry holds a reference of its own
// while it is called, so a callee that changes the lists cannot pull it away.
HRESULT StatsServer::ProcessTime(ZemoTime now) {
  return Locked([&]() -> HRESULT {
    if (m_trackers.IsEmpty() && m_alarms.IsEmpty()) return S_OK;
    if (m_context) m_context->UpdateStats();
    for (LONG i = 0; i < m_trackers.GetCount(); ++i)
      if (ComPtr<IZemoStatsTracker> tracker{m_trackers[i]}) tracker->Update(now);
    for (LONG i = 0; i < m_alarms.GetCount(); ++i) {
      ComPtr<IAlarm> alarm(m_alarms[i]);
      ComPtr<IZemoStatsTracker> tracker;
      // An alarm without a tracker, or whose tracker cannot sample now, waits.
      if (!alarm || FAILED(alarm->GetStatsTracker(tracker.ReleaseAndGetAddressOf())) || !tracker ||
          FAILED(tracker->Update(now)))
        continue;
      LONG changed = 0;
      AlarmConditionKind state = kAlarmResolve;
      HRESULT hr = alarm->Evaluate(now, &changed, &state);
      if (FAILED(hr)) return hr;
    }
    return S_OK;
  });
}

// ---- ISelectableObject -------------------------------------------------------

HRESULT StatsServer::GetSelectName(BSTR* name) {
  return Unlocked([&] {
    CheckOut(name);
    *name = AllocBstr(u"alarms");
  });
}

HRESULT StatsServer::GetSelectFlag(ULONG* flag) {
  return Unlocked([&] {
    CheckOut(flag);
    *flag = 1;
  });
}

HRESULT StatsServer::GetSelectParams(ISelectParams** out) {
  return Locked([&] {
    CheckOut(out);
    ComPtr<ISelectParams> params = NewSelectParams();
    AddSelectStep(params.Get(), GetSelectableName(m_context.Get()));
    AddSelectStep(params.Get(), u"alarm", NewTypeBag({{u"name", VT_BSTR}, {u"id", VT_CLSID}}).Get());
    *out = params.Detach();
  });
}

HRESULT StatsServer::Select(ISelectParams* params, IUnknown** out) {
  if (!params || !out) return E_POINTER;
  return Locked([&]() -> HRESULT {
    *out = nullptr;
    CBstr step;
    ComPtr<IPropertyBag> bag;
    if (CheckHr(params->NextItem(step.Out(), bag.ReleaseAndGetAddressOf())) == S_FALSE)
      return GetUnknown()->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(out));
    for (IUnknown* child : {static_cast<IUnknown*>(m_ids.Get()), static_cast<IUnknown*>(m_context.Get())}) {
      HRESULT hr = SelectChild(child, step.View(), params, out);
      if (hr != kSelectNotMine) return hr;
    }
    return SelectAlarm(std::span<IAlarm* const>(m_alarms.begin(), m_alarms.end()), step.View(), bag.Get(), params,
                       out);
  });
}

HRESULT StatsServer::GetTable(IDataTable** table) {
  static constexpr TableColumn kColumns[] = {{u"name", VT_BSTR}, {u"id", VT_BSTR}, {u"state", VT_BSTR}};
  return Locked([&] {
    CheckOut(table);
    MakeTable(table, kColumns);
    TableRows rows(*table);
    for (LONG i = 0; i < m_alarms.GetCount(); ++i) {
      ComPtr<IAlarm> alarm(m_alarms[i]);
      if (!alarm) continue;
      CBstr name;
      GUID id = GUID_NULL;
      AlarmConditionKind state = kAlarmResolve;
      LONG severity = 0;
      CheckHr(alarm->GetName(name.Out()));
      CheckHr(alarm->GetID(&id));
      CheckHr(alarm->GetAlarmState(&state, &severity));
      const char* word = state == kAlarmSuspect ? "suspect"
                         : state == kAlarmProblem ? "problem"
                         : state == kAlarmResolve ? "resolved"
                                                  : "";
      char text[48];
      std::snprintf(text, sizeof text, "%s: %d", word, static_cast<int>(severity));
      ComPtr<IDataRow> row = rows.NewRow();
      CVariant cells[] = {CVariant::Str(name.View()), CVariant::Str(GuidText(id)), CVariant::Str(FromUtf8(text))};
      for (size_t c = 0; c < std::size(kColumns); ++c) {
        CBstr column(kColumns[c].name);
        CheckHr(row->SetValueByName(column.Get(), &cells[c]));
      }
    }
  });
}

}  // namespace zemo
