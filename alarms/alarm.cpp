#include "alarms/alarm.h"

#include <cstdio>

#include "frame/module.h"
#include "frame/xml_persist.h"
#include "platform/clock.h"
#include "platform/strings.h"

namespace zemo {
namespace {

constexpr ZemoTime kSecond = 1000000000ull;

// The kinds in the order of the condition slots, and their words.
constexpr AlarmConditionKind kSlotKinds[] = {kAlarmResolve, kAlarmSuspect, kAlarmProblem};

const char16_t* WordOf(LONG state) {
  switch (state) {
    case kAlarmSuspect: return u"Suspect";
    case kAlarmProblem: return u"Problem";
    default: return u"Resolve";
  }
}

// A threshold cut toward zero to a 32-bit integer, as the processor's
// conversion cuts it: what does not fit, and a value that is no number,
// gives the lowest integer.
int32_t CutToInt32(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
  return static_cast<int32_t>(v);
}

std::u16string Decimal(long long v) {
  char text[24];
  std::snprintf(text, sizeof text, "%lld", v);
  return FromUtf8(text);
}

}  // namespace

bool AlarmCondition::Matches(double value) const noexcept {
  switch (comparison) {
    case kAlarmLess: return value < threshold;
    case kAlarmLessOrEqual: return value <= threshold;
    case kAlarmGreater: return value > threshold;
    case kAlarmGreaterOrEqual: return value >= threshold;
    case kAlarmEqual: return value == threshold;
    case kAlarmNotEqual: return !(value == threshold);
    default: return false;
  }
}

Alarm::Alarm() {
  CheckHr(CoCreateGuid(&m_id));
  m_created = m_modified = Now();
}

int Alarm::SlotOf(LONG kind) noexcept {
  switch (kind) {
    case kAlarmSuspect: return kSuspectSlot;
    case kAlarmProblem: return kProblemSlot;
    default: return kResolveSlot;
  }
}

// ---- IAlarm ------------------------------------------------------------------

HRESULT Alarm::ResetState() {
  return Locked([&] {
    m_lastChange = 0;
    m_lastEvaluated = 0;
    m_state = kAlarmResolve;
    m_resolveCount = m_suspectCount = m_problemCount = 0;
  });
}

HRESULT Alarm::Evaluate(ZemoTime time, LONG* changed, AlarmConditionKind* state) {
  return Locked([&] {
    if (!changed || !state) AtlThrow(E_POINTER);
    if (!m_tracker) AtlThrow(E_FAIL);
    // The first evaluation only starts the clock.
    if (m_lastEvaluated == 0) {
      m_lastEvaluated = time;
      return;
    }
    // One round for each whole second since the last, and at least one.
    uint64_t rounds = time > m_lastEvaluated ? (time - m_lastEvaluated) / kSecond : 1;
    if (rounds == 0) rounds = 1;
    ZemoTime prev = m_lastEvaluated;
    for (uint64_t r = 1; r <= rounds; ++r) {
      const ZemoTime t = r == rounds ? time : prev + kSecond;
      m_lastEvaluated = t;
      Round(prev, t, state, changed);
      prev = t;
    }
  });
}

void Alarm::Round(ZemoTime prev, ZemoTime t, AlarmConditionKind* state, LONG* changed) {
  double value = 0.0;
  switch (m_trackType) {
    case kAlarmTrackValue: CheckHr(m_tracker->GetValue(t, &value)); break;
    case kAlarmTrackDelta: CheckHr(m_tracker->GetValueDelta(prev, t, &value)); break;
    case kAlarmTrackRate: CheckHr(m_tracker->GetValueRate(t, &value)); break;
    default: AtlThrow(E_FAIL);
  }

  // The last enabled condition that matches wins: Problem beats Suspect,
  // Suspect beats Resolve.
  int winner = -1;
  for (int slot = kResolveSlot; slot < kSlots; ++slot)
    if (m_conditions[slot].enabled && m_conditions[slot].Matches(value)) winner = slot;
  switch (winner) {
    case kResolveSlot:
      ++m_resolveCount;
      m_suspectCount = m_problemCount = 0;
      break;
    case kSuspectSlot:
      ++m_suspectCount;
      m_resolveCount = 0;
      break;
    case kProblemSlot:
      ++m_suspectCount;
      ++m_problemCount;
      m_resolveCount = 0;
      break;
    default: break;  // no winner: the counts stand still
  }

  AlarmConditionKind next = m_state;
  if (m_problemCount > m_conditions[kProblemSlot].duration)
    next = kAlarmProblem;
  else if (m_suspectCount > m_conditions[kSuspectSlot].duration)
    next = kAlarmSuspect;
  else if (m_resolveCount > m_conditions[kResolveSlot].duration)
    next = kAlarmResolve;
  *state = next;
  if (next == m_state) return;

  m_state = next;
  *changed = 1;
  m_lastChange = t;
  if (m_sink) {
    // The sink's answer does not stop the rounds.
    const std::u16string message = Message(next);
    m_sink->Notify(m_contextId, CLSID_Alarm, 0, t, ConditionOf(next).severity, message.c_str(), message.c_str());
  }
}

std::u16string Alarm::Message(AlarmConditionKind state) const {
  const AlarmCondition& c = m_conditions[SlotOf(state)];
  const char16_t* sign = c.comparison == kAlarmLess ? u"<" : c.comparison == kAlarmGreater ? u">" : nullptr;
  if (!sign) return {};
  std::u16string threshold = Decimal(CutToInt32(c.threshold));
  if (m_trackType == kAlarmTrackRate) threshold += u"/s";
  return std::u16string(WordOf(state)) + u" Event: " + m_name + u" (" + sign + u" " + threshold + u" for " +
         Decimal(c.duration) + u" seconds)";
}

HRESULT Alarm::GetID(GUID* id) {
  return Locked([&] {
    CheckOut(id);
    *id = m_id;
  });
}

HRESULT Alarm::SetID(const GUID& id) {
  return Locked([&] { m_id = id; });
}

HRESULT Alarm::GetCreated(ZemoTime* time) {
  return Locked([&] {
    CheckOut(time);
    *time = m_created;
  });
}

HRESULT Alarm::SetCreated(ZemoTime time) {
  return Locked([&] { m_created = m_modified = time; });
}

HRESULT Alarm::GetModified(ZemoTime* time) {
  return Locked([&] {
    CheckOut(time);
    *time = m_modified;
  });
}

HRESULT Alarm::SetModified(ZemoTime time) {
  return Locked([&] { m_modified = time ? time : Now(); });
}

HRESULT Alarm::GetContextId(GUID* id) {
  return Locked([&] {
    CheckOut(id);
    *id = m_contextId;
  });
}

HRESULT Alarm::SetContextId(const GUID& id) {
  return Locked([&] { m_contextId = id; });
}

HRESULT Alarm::GetName(BSTR* name) {
  return Locked([&] {
    CheckOut(name);
    *name = AllocBstr(m_name);
  });
}

HRESULT Alarm::SetName(BSTR name) {
  return Locked([&] { m_name = name ? std::u16string(name, SysStringLen(name)) : std::u16string(); });
}

HRESULT Alarm::GetTrackType(AlarmTrackType* type) {
  return Locked([&] {
    CheckOut(type);
    *type = m_trackType;
  });
}

HRESULT Alarm::SetTrackType(AlarmTrackType type) {
  return Locked([&] { m_trackType = type; });
}

HRESULT Alarm::GetStatsTracker(IZemoStatsTracker** tracker) {
  return Locked([&] {
    CheckOut(tracker);
    m_tracker.CopyTo(tracker);
  });
}

HRESULT Alarm::SetStatsTracker(IZemoStatsTracker* tracker) {
  return Locked([&] { m_tracker = tracker; });
}

HRESULT Alarm::GetNotifySink(INotify** sink) {
  return Locked([&] {
    CheckOut(sink);
    m_sink.CopyTo(sink);
  });
}

HRESULT Alarm::SetNotifySink(INotify* sink) {
  return Locked([&] { m_sink = sink; });
}

HRESULT Alarm::GetConditionEnabled(AlarmConditionKind kind, LONG* enabled) {
  return Locked([&] {
    CheckOut(enabled);
    *enabled = ConditionOf(kind).enabled ? 1 : 0;
  });
}

HRESULT Alarm::SetConditionEnabled(AlarmConditionKind kind, LONG enabled) {
  return Locked([&] { ConditionOf(kind).enabled = enabled != 0; });
}

HRESULT Alarm::SetCondition(AlarmConditionKind kind, LONG duration, AlarmComparison comparison, double threshold,
                            LONG severity) {
  return Locked([&] {
    AlarmCondition& c = ConditionOf(kind);
    c.duration = duration;
    c.comparison = comparison;
    c.threshold = threshold;
    c.severity = severity;
  });
}

HRESULT Alarm::GetCondition(AlarmConditionKind kind, LONG* duration, AlarmComparison* comparison, double* threshold,
                            LONG* severity) {
  if (!duration || !comparison || !threshold || !severity) return E_POINTER;
  return Locked([&] {
    const AlarmCondition& c = ConditionOf(kind);
    *duration = c.duration;
    *comparison = c.comparison;
    *threshold = c.threshold;
    *severity = c.severity;
  });
}

HRESULT Alarm::GetAlarmState(AlarmConditionKind* state, LONG* severity) {
  return Locked([&] {
    if (!state || !severity) AtlThrow(E_POINTER);
    *state = m_state;
    *severity = ConditionOf(m_state).severity;
  });
}

HRESULT Alarm::GetLastChangeTime(ZemoTime* time) {
  return Locked([&] {
    CheckOut(time);
    *time = m_lastChange;
  });
}

// ---- ICloneable --------------------------------------------------------------

HRESULT Alarm::Clone(IUnknown** out) {
  return Locked([&] {
    CheckOut(out);
    ComPtr<IAlarm> clone;
    CheckHr(CreateModuleInstance(CLSID_Alarm, IAlarm::iid, clone.OutVoid()));
    CheckHr(clone->SetID(m_id));
    CheckHr(clone->SetCreated(m_created));
    CheckHr(clone->SetModified(m_modified));
    CBstr name(m_name);
    CheckHr(clone->SetName(name.Get()));
    for (AlarmConditionKind kind : kSlotKinds) {
      const AlarmCondition& c = ConditionOf(kind);
      CheckHr(clone->SetCondition(kind, c.duration, c.comparison, c.threshold, c.severity));
      CheckHr(clone->SetConditionEnabled(kind, c.enabled ? 1 : 0));
    }
    CheckHr(clone->SetTrackType(m_trackType));
    if (m_tracker) CheckHr(clone->SetStatsTracker(CloneAs<IZemoStatsTracker>(m_tracker.Get()).Get()));
    CheckHr(clone->SetNotifySink(m_sink.Get()));
    CheckHr(clone->SetContextId(m_contextId));
    *out = clone.Detach();
  });
}

// ---- IPersistXml -------------------------------------------------------------

HRESULT Alarm::GetClassID(CLSID* out) {
  if (!out) return E_POINTER;
  *out = CLSID_Alarm;
  return S_OK;
}

HRESULT Alarm::Save(IUnknown* document, IUnknown* node, BOOL flag) {
  return Locked([&] {
    ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
    ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
    ComPtr<IXMLDOMElement> element = CreateXmlElement(doc.Get(), u"alarmnode");
    SetAttribute(element.Get(), u"name", std::u16string_view(m_name));
    SetAttribute(element.Get(), u"tracktype", static_cast<LONG>(m_trackType));
    SetAttribute(element.Get(), u"created", m_created);
    SetAttribute(element.Get(), u"modified", m_modified);
    SetAttribute(element.Get(), u"id", m_id);
    for (AlarmConditionKind kind : kSlotKinds) {
      const AlarmCondition& c = ConditionOf(kind);
      ComPtr<IXMLDOMElement> condition = CreateChildElement(doc.Get(), element.Get(), u"condition");
      SetAttribute(condition.Get(), u"type", static_cast<LONG>(kind));
      SetAttribute(condition.Get(), u"enabled", static_cast<LONG>(c.enabled ? 1 : 0));
      SetAttribute(condition.Get(), u"duration", c.duration);
      SetAttribute(condition.Get(), u"comparison", static_cast<LONG>(c.comparison));
      SetAttribute(condition.Get(), u"value", c.threshold);
      SetAttribute(condition.Get(), u"severity", c.severity);
    }
    if (m_tracker) {
      ComPtr<IPersistXml> persist = m_tracker.Query<IPersistXml>();
      CLSID clsid = GUID_NULL;
      CheckHr(persist->GetClassID(&clsid));
      ComPtr<IXMLDOMElement> holder = CreateChildElement(doc.Get(), element.Get(), u"stattracker");
      SetAttribute(holder.Get(), u"clsid", clsid);
      CheckHr(persist->Save(doc.Get(), holder.Get(), flag));
    }
    AppendXmlChild(parent.Get(), element.Get());
  });
}

HRESULT Alarm::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> element = SelectXmlElement(XmlNodeOf(node).Get(), u"alarmnode");
    if (!element) AtlThrow(E_FAIL);
    std::u16string name;
    if (GetAttribute(element.Get(), u"name", name)) m_name = std::move(name);
    LONG trackType = 0;
    if (GetAttribute(element.Get(), u"tracktype", trackType)) m_trackType = static_cast<AlarmTrackType>(trackType);
    GetAttribute(element.Get(), u"created", m_created);
    GetAttribute(element.Get(), u"modified", m_modified);
    GetAttribute(element.Get(), u"id", m_id);
    ForEachChildElement(element.Get(), [&](IXMLDOMElement* condition) {
      if (XmlElementName(condition) != u"condition") return;
      LONG kind = 0, enabled = 0, comparison = 0;
      GetAttribute(condition, u"type", kind);
      AlarmCondition& c = ConditionOf(kind);
      if (GetAttribute(condition, u"enabled", enabled)) c.enabled = enabled != 0;
      GetAttribute(condition, u"duration", c.duration);
      if (GetAttribute(condition, u"comparison", comparison)) c.comparison = static_cast<AlarmComparison>(comparison);
      GetAttribute(condition, u"value", c.threshold);
      GetAttribute(condition, u"severity", c.severity);
    });
    ComPtr<IXMLDOMElement> holder = SelectXmlElement(element.Get(), u"stattracker");
    if (!holder) return;
    CLSID clsid = GUID_NULL;
    if (!GetAttribute(holder.Get(), u"clsid", clsid)) AtlThrow(E_FAIL);
    ComPtr<IZemoStatsTracker> tracker;
    CheckHr(CreateModuleInstance(clsid, IZemoStatsTracker::iid, tracker.OutVoid()));
    CheckHr(LoadObjectFromXml(tracker.Get(), document, holder.Get()));
    m_tracker = tracker;
  });
}

}  // namespace zemo
