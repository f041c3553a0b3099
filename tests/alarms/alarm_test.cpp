// Alarm: evaluation rounds, counts and states, notifications and their
// texts, clones, the XML form, and late binding through IDispatch.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "alarms/alarm_collection.h"
#include "alarms/alarm_states.h"
#include "frame/xml_persist.h"
#include "platform/clock.h"
#include "tests/alarms/alarm_fixture.h"

namespace {

using namespace zemo;
using namespace zemo::testing;

using AlarmRounds = AlarmFixture;

struct ConditionSetting {
  AlarmConditionKind kind;
  LONG duration;
  AlarmComparison comparison;
  double threshold;
  bool enabled = true;
};

TEST_F(AlarmRounds, CountSecondsAndChangeStateAsTheDurationsSay) {
  using C = Change;
  struct Case {
    const char* what;
    std::vector<ConditionSetting> conditions;
    std::vector<USHORT> bytes;  // second 0 starts the clock
    std::vector<C> changes;
  };
  const Case cases[] = {
      {"duration 0: the first round", {{kAlarmProblem, 0, kAlarmGreater, 100}}, {50, 200}, {{1, kAlarmProblem}}},
      {"duration 3: the fourth round",
       {{kAlarmProblem, 3, kAlarmGreater, 100}},
       {50, 200, 200, 200, 200, 200},
       {{4, kAlarmProblem}}},
      {"Problem beats Suspect, both come",
       {{kAlarmSuspect, 2, kAlarmGreater, 100}, {kAlarmProblem, 5, kAlarmGreater, 100}},
       {50, 200, 200, 200, 200, 200, 200, 200},
       {{3, kAlarmSuspect}, {6, kAlarmProblem}}},
      {"a Suspect value between Problems keeps the problem count",
       {{kAlarmSuspect, 5, kAlarmGreater, 100}, {kAlarmProblem, 2, kAlarmGreater, 300}},
       {50, 400, 200, 400, 400},
       {{4, kAlarmProblem}}},
      {"a Problem value counts for Suspect even when Suspect is disabled",
       {{kAlarmSuspect, 1, kAlarmGreater, 100, false}, {kAlarmProblem, 10, kAlarmGreater, 100}},
       {50, 200, 200},
       {{2, kAlarmSuspect}}},
      {"only a Resolve that holds long enough ends a Problem",
       {{kAlarmResolve, 1, kAlarmLessOrEqual, 100}, {kAlarmProblem, 0, kAlarmGreater, 100}},
       {50, 200, 50, 200, 50, 50},
       {{1, kAlarmProblem}, {5, kAlarmResolve}}},
      {"a value no condition matches freezes the counts",
       {{kAlarmResolve, 0, kAlarmLess, 10}, {kAlarmProblem, 1, kAlarmGreater, 100}},
       {50, 200, 50, 200},
       {{3, kAlarmProblem}}},
  };
  for (const Case& c : cases) {
    SetUp();
    for (const ConditionSetting& s : c.conditions) Condition(s.kind, s.duration, s.comparison, s.threshold, 0, s.enabled);
    EXPECT_EQ(c.changes, Run(c.bytes)) << c.what;
    EXPECT_EQ(c.changes.size(), sink->Count()) << c.what;
  }
}

TEST_F(AlarmRounds, ReplayEverySecondSinceTheLastEvaluation) {
  Condition(kAlarmProblem, 4, kAlarmGreater, 100);
  LONG changed = 0;
  auto state = static_cast<AlarmConditionKind>(99);
  // The first evaluation only starts the clock and writes nothing.
  ASSERT_EQ(S_OK, Play(0, 50));
  ASSERT_EQ(S_OK, alarm->Evaluate(At(0), &changed, &state));
  EXPECT_EQ(0, changed);
  EXPECT_EQ(99, state);
  // Ten seconds in one call are ten rounds; the change has the time of its round.
  for (uint64_t s = 1; s <= 10; ++s) ASSERT_EQ(S_OK, Play(s, 200));
  ASSERT_EQ(S_OK, alarm->Evaluate(At(10) + 300, &changed, &state));
  EXPECT_EQ(1, changed);
  EXPECT_EQ(kAlarmProblem, state);
  ZemoTime when = 0;
  ASSERT_EQ(S_OK, alarm->GetLastChangeTime(&when));
  EXPECT_EQ(At(5), when);
  ASSERT_EQ(1u, sink->Count());
  EXPECT_EQ(At(5), sink->At(0).time);

  // The same time again makes one round, not none.
  ASSERT_EQ(S_OK, alarm->ResetState());
  Condition(kAlarmProblem, 1, kAlarmGreater, 100);
  ASSERT_EQ(S_OK, alarm->Evaluate(At(10), &changed, &state));
  changed = 0;
  ASSERT_EQ(S_OK, alarm->Evaluate(At(10), &changed, &state));
  EXPECT_EQ(0, changed);
  ASSERT_EQ(S_OK, alarm->Evaluate(At(10), &changed, &state));
  EXPECT_EQ(1, changed);

  // Failures: no tracker, an unknown track type, a second beyond the ring.
  auto bare = Alarm::Create();
  EXPECT_EQ(E_FAIL, bare->Evaluate(At(1), &changed, &state));
  EXPECT_EQ(E_POINTER, alarm->Evaluate(At(11), nullptr, &state));
  ASSERT_EQ(S_OK, alarm->SetTrackType(static_cast<AlarmTrackType>(4)));
  EXPECT_EQ(E_FAIL, alarm->Evaluate(At(11), &changed, &state));
  ASSERT_EQ(S_OK, alarm->SetTrackType(kAlarmTrackValue));
  EXPECT_EQ(E_FAIL, alarm->Evaluate(At(13), &changed, &state));  // second 12 is out of reach
}

TEST_F(AlarmRounds, NotifyEachChangeWithItsConditionAndText) {
  // What the sink gets.
  GUID contextId{};
  contextId.Data1 = 0x1234;
  ASSERT_EQ(S_OK, alarm->SetContextId(contextId));
  Condition(kAlarmProblem, 0, kAlarmGreater, 1500.75, 7);
  Run({50, 2000});
  ASSERT_EQ(1u, sink->Count());
  const Notification n = sink->At(0);
  EXPECT_EQ(contextId, n.context);
  EXPECT_EQ(CLSID_Alarm, n.source);
  EXPECT_EQ(0u, n.value);
  EXPECT_EQ(At(1), n.time);
  EXPECT_EQ(7, n.severity);
  EXPECT_EQ(u"Problem Event: Busy (> 1500/s for 0 seconds)", n.shortMessage);
  EXPECT_EQ(n.shortMessage, n.longMessage);
  AlarmConditionKind state = kAlarmResolve;
  LONG severity = 0;
  ASSERT_EQ(S_OK, alarm->GetAlarmState(&state, &severity));
  EXPECT_EQ(kAlarmProblem, state);
  EXPECT_EQ(7, severity);

  // The texts: the threshold cut toward zero, "/s" only for rates, and no
  // text for the comparisons without a sign.
  struct Text {
    AlarmTrackType track;
    AlarmComparison comparison;
    double threshold;
    const char16_t* message;
  };
  const Text texts[] = {
      {kAlarmTrackRate, kAlarmLess, 10.99, u"Resolve Event: Busy (< 10/s for 2 seconds)"},
      {kAlarmTrackValue, kAlarmGreater, -2.9, u"Resolve Event: Busy (> -2 for 2 seconds)"},
      {kAlarmTrackDelta, kAlarmGreater, 1e12, u"Resolve Event: Busy (> -2147483648 for 2 seconds)"},
      {kAlarmTrackRate, kAlarmLessOrEqual, 1, u""},
      {kAlarmTrackRate, kAlarmGreaterOrEqual, 1, u""},
      {kAlarmTrackRate, kAlarmEqual, 1, u""},
      {kAlarmTrackRate, kAlarmNotEqual, 1, u""},
  };
  for (const Text& t : texts) {
    ASSERT_EQ(S_OK, alarm->SetTrackType(t.track));
    Condition(kAlarmResolve, 2, t.comparison, t.threshold);
    EXPECT_EQ(t.message, alarm->Message(kAlarmResolve)) << t.threshold;
  }

  // A value that is no number matches only "differs".
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (LONG c = 0; c <= 7; ++c) {
    AlarmCondition condition;
    condition.comparison = static_cast<AlarmComparison>(c);
    condition.threshold = 1;
    EXPECT_EQ(c == kAlarmNotEqual, condition.Matches(nan)) << c;
  }
}

TEST_F(AlarmRounds, ClonesKeepTheDefinitionAndStartAfresh) {
  Condition(kAlarmProblem, 0, kAlarmGreater, 100, 3);
  Condition(kAlarmResolve, 5, kAlarmLess, 20, 1, false);
  Run({50, 200});
  ComPtr<IUnknown> copy;
  ASSERT_EQ(S_OK, alarm->Clone(copy.ReleaseAndGetAddressOf()));
  ComPtr<IAlarm> clone = copy.Query<IAlarm>();
  GUID a{}, b{};
  ASSERT_EQ(S_OK, alarm->GetID(&a));
  ASSERT_EQ(S_OK, clone->GetID(&b));
  EXPECT_EQ(a, b);
  CBstr name;
  ASSERT_EQ(S_OK, clone->GetName(name.Out()));
  EXPECT_EQ(u"Busy", name.View());
  LONG duration = 0, severity = 0, enabled = 1;
  AlarmComparison comparison{};
  double threshold = 0;
  ASSERT_EQ(S_OK, clone->GetCondition(kAlarmResolve, &duration, &comparison, &threshold, &severity));
  ASSERT_EQ(S_OK, clone->GetConditionEnabled(kAlarmResolve, &enabled));
  EXPECT_EQ(5, duration);
  EXPECT_EQ(kAlarmLess, comparison);
  EXPECT_EQ(20.0, threshold);
  EXPECT_EQ(1, severity);
  EXPECT_EQ(0, enabled);
  EXPECT_EQ(E_POINTER, clone->GetCondition(kAlarmResolve, &duration, nullptr, &threshold, &severity));
  // Its own tracker of the same thing, the same sink, and no evaluation state.
  ComPtr<IZemoStatsTracker> theirs;
  ASSERT_EQ(S_OK, clone->GetStatsTracker(theirs.ReleaseAndGetAddressOf()));
  EXPECT_NE(tracker.Get(), theirs.Get());
  MediaSpec key{};
  ASSERT_EQ(S_OK, theirs.Query<INodeStatsTracker>()->GetKey(&key));
  EXPECT_TRUE(SpecsEqual(Mac(0x01), key));
  ComPtr<INotify> sharedSink;
  ASSERT_EQ(S_OK, clone->GetNotifySink(sharedSink.ReleaseAndGetAddressOf()));
  EXPECT_EQ(static_cast<INotify*>(sink.Get()), sharedSink.Get());
  AlarmConditionKind state = kAlarmProblem;
  ZemoTime when = 1;
  ASSERT_EQ(S_OK, clone->GetAlarmState(&state, &severity));
  ASSERT_EQ(S_OK, clone->GetLastChangeTime(&when));
  EXPECT_EQ(kAlarmResolve, state);
  EXPECT_EQ(0u, when);

  // Created moves modified along; modified 0 is the present.
  ASSERT_EQ(S_OK, alarm->SetCreated(111));
  ZemoTime modified = 0;
  ASSERT_EQ(S_OK, alarm->GetModified(&modified));
  EXPECT_EQ(111u, modified);
  SetNowForTesting(At(42));
  ASSERT_EQ(S_OK, alarm->SetModified(0));
  SetNowForTesting(0);
  ASSERT_EQ(S_OK, alarm->GetModified(&modified));
  EXPECT_EQ(At(42), modified);
}

TEST_F(AlarmRounds, SaveAndLoadTheDefinitionWithItsTracker) {
  Condition(kAlarmSuspect, 2, kAlarmGreater, 99.5, 4);
  Run({50, 200, 200, 200});
  ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
  ASSERT_EQ(S_OK, alarm->Save(document.Get(), document.Get(), FALSE));
  CBstr xml;
  ASSERT_EQ(S_OK, document->get_xml(xml.Out()));
  const std::u16string text(xml.View());
  for (const char16_t* part :
       {u"<alarmnode name=\"Busy\" tracktype=\"3\" created=\"", u"<condition type=\"3\" enabled=\"0\"",
        u"<condition type=\"1\" enabled=\"1\" duration=\"2\" comparison=\"3\" value=\"99.5\" severity=\"4\"/>",
        u"<condition type=\"2\"", u"<stattracker clsid=\"{0EC1390E-3A7D-45B3-9803-84D74B5D5B80}\"><NodeStatsTracker"})
    EXPECT_NE(std::u16string::npos, text.find(part)) << ToUtf8(part) << "\n" << xml.Utf8();

  auto loaded = Alarm::Create();
  ASSERT_EQ(S_OK, loaded->Load(document.Get(), document.Get()));
  ComPtr<IXMLDOMDocument> again = CreateXmlDocument();
  ASSERT_EQ(S_OK, loaded->Save(again.Get(), again.Get(), FALSE));
  CBstr xml2;
  ASSERT_EQ(S_OK, again->get_xml(xml2.Out()));
  EXPECT_EQ(xml.View(), xml2.View());
  // Neither evaluation state nor sink travel.
  AlarmConditionKind state = kAlarmProblem;
  LONG severity = 0;
  ASSERT_EQ(S_OK, loaded->GetAlarmState(&state, &severity));
  EXPECT_EQ(kAlarmResolve, state);
  ComPtr<INotify> noSink;
  ASSERT_EQ(S_OK, loaded->GetNotifySink(noSink.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(noSink);

  // No alarmnode; a tracker that cannot be made, which leaves the state alone.
  ComPtr<IXMLDOMDocument> empty = ParseXml(u"<alarms/>");
  EXPECT_EQ(E_FAIL, loaded->Load(empty.Get(), empty.Get()));
  ComPtr<IXMLDOMDocument> foreign = ParseXml(
      u"<alarmnode name=\"Other\"><stattracker clsid=\"{44444444-0000-0000-0000-000000000000}\"/></alarmnode>");
  EXPECT_TRUE(FAILED(alarm->Load(foreign.Get(), foreign.Get())));
  ASSERT_EQ(S_OK, alarm->GetAlarmState(&state, &severity));
  EXPECT_EQ(kAlarmSuspect, state);
}

// ---- late binding --------------------------------------------------------------

struct Late {
  ComPtr<IDispatch> object;

  DISPID Id(const char16_t* name) {
    DISPID id = 0;
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    EXPECT_EQ(S_OK, object->GetIDsOfNames(GUID_NULL, names, 1, 0, &id)) << ToUtf8(name);
    return id;
  }
  // Arguments in the order of the operation; they are handed over reversed.
  HRESULT Call(const char16_t* name, std::vector<VARIANT> args, VARIANT* result = nullptr,
               EXCEPINFO* excep = nullptr, uint32_t* argErr = nullptr) {
    std::vector<VARIANT> reversed(args.rbegin(), args.rend());
    DISPPARAMS params{reversed.data(), nullptr, static_cast<uint32_t>(reversed.size()), 0};
    return object->Invoke(Id(name), GUID_NULL, 0, DISPATCH_METHOD, &params, result, excep, argErr);
  }
};

VARIANT ByRef(VARIANT* target) {
  VARIANT v{};
  v.vt = VT_BYREF | VT_VARIANT;
  v.byref = target;
  return v;
}

TEST(AlarmLateBinding, EveryDualInterfaceAnswersByNameAndId) {
  auto alarm = Alarm::Create();
  Late late;
  ASSERT_EQ(S_OK, alarm->QueryInterface(IDispatch::iid, late.object.OutVoid()));
  EXPECT_EQ(static_cast<IDispatch*>(static_cast<IAlarm*>(alarm.Get())), late.object.Get());
  uint32_t infos = 9;
  ASSERT_EQ(S_OK, late.object->GetTypeInfoCount(&infos));
  EXPECT_EQ(0u, infos);

  // Names without regard to case, ids in the order of the interface.
  EXPECT_EQ(1, late.Id(u"resetstate"));
  EXPECT_EQ(12, late.Id(u"SetName"));
  DISPID id = 0;
  LPOLESTR unknown[] = {const_cast<LPOLESTR>(u"Explode")};
  EXPECT_EQ(DISP_E_UNKNOWNNAME, late.object->GetIDsOfNames(GUID_NULL, unknown, 1, 0, &id));
  EXPECT_EQ(DISPID_UNKNOWN, id);

  // In arguments converted, the last out parameter as the result, others by reference.
  CVariant result;
  ASSERT_EQ(S_OK, late.Call(u"SetName", {CVariant::Str(u"Late")}));
  ASSERT_EQ(S_OK, late.Call(u"GetName", {}, result.Out()));
  EXPECT_EQ(VT_BSTR, result.vt);
  EXPECT_EQ(u"Late", std::u16string_view(result.bstrVal));
  ASSERT_EQ(S_OK, late.Call(u"SetCondition", {CVariant::I4(2), CVariant::Str(u"3"), CVariant::I4(kAlarmGreater),
                                               CVariant::R8(12.5), CVariant::I4(6)}));
  CVariant duration, comparison, threshold, severity;
  ASSERT_EQ(S_OK, late.Call(u"GetCondition", {CVariant::I4(kAlarmProblem), ByRef(&duration), ByRef(&comparison),
                                               ByRef(&threshold)},
                            severity.Out()));
  EXPECT_EQ(3, duration.lVal);
  EXPECT_EQ(kAlarmGreater, comparison.lVal);
  EXPECT_EQ(12.5, threshold.dblVal);
  EXPECT_EQ(VT_I4, severity.vt);
  EXPECT_EQ(6, severity.lVal);
  ASSERT_EQ(S_OK, late.Call(u"SetID", {CVariant::Str(u"{01234567-89AB-CDEF-0123-456789ABCDEF}")}));
  ASSERT_EQ(S_OK, late.Call(u"GetID", {}, result.Out()));
  EXPECT_EQ(u"{01234567-89AB-CDEF-0123-456789ABCDEF}", std::u16string_view(result.bstrVal));

  // A failure inside the call, a bad argument, a wrong count.
  EXCEPINFO excep{};
  LONG changed = 0, state = 0;
  VARIANT outs[2] = {};
  outs[0].vt = outs[1].vt = VT_BYREF | VT_I4;
  outs[0].byref = &changed;
  outs[1].byref = &state;
  EXPECT_EQ(DISP_E_EXCEPTION, late.Call(u"Evaluate", {CVariant::UI8(At(1)), outs[0], outs[1]}, nullptr, &excep));
  EXPECT_EQ(E_FAIL, excep.scode);  // no tracker
  EXPECT_EQ(u"Evaluate", std::u16string_view(excep.bstrSource));
  SysFreeString(excep.bstrSource);
  uint32_t argErr = 99;
  EXPECT_EQ(DISP_E_TYPEMISMATCH, late.Call(u"SetCondition",
                                           {CVariant::I4(2), CVariant::Str(u"long"), CVariant::I4(3),
                                            CVariant::R8(1), CVariant::I4(0)},
                                           nullptr, nullptr, &argErr));
  EXPECT_EQ(3u, argErr);  // the second argument, counted from the end
  EXPECT_EQ(DISP_E_TYPEMISMATCH, late.Call(u"Evaluate", {CVariant::UI8(1), CVariant::I4(0), CVariant::I4(0)}));
  EXPECT_EQ(DISP_E_BADPARAMCOUNT, late.Call(u"SetName", {}));
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND,
            late.object->Invoke(99, GUID_NULL, 0, DISPATCH_METHOD, nullptr, nullptr, nullptr, nullptr));

  // The same mechanism behind the collection and the states.
  auto states = AlarmStates::Create();
  Late lateStates;
  ASSERT_EQ(S_OK, states->QueryInterface(IDispatch::iid, lateStates.object.OutVoid()));
  ASSERT_EQ(S_OK, lateStates.Call(u"AddState", {CVariant::Str(u"{01234567-89AB-CDEF-0123-456789ABCDEF}"),
                                                CVariant::I4(2), CVariant::I4(9)}));
  CVariant stateId, condition;
  ASSERT_EQ(S_OK, lateStates.Call(u"GetState", {CVariant::I4(0), ByRef(&stateId), ByRef(&condition)}, result.Out()));
  EXPECT_EQ(u"{01234567-89AB-CDEF-0123-456789ABCDEF}", std::u16string_view(stateId.bstrVal));
  EXPECT_EQ(2u, condition.ulVal);
  EXPECT_EQ(9u, result.ulVal);
  auto collection = AlarmCollection::Create();
  Late lateCollection;
  ASSERT_EQ(S_OK, collection->QueryInterface(IDispatch::iid, lateCollection.object.OutVoid()));
  ASSERT_EQ(S_OK, lateCollection.Call(u"AddAlarm", {CVariant::Unknown(alarm->GetUnknown())}));
  ASSERT_EQ(S_OK, lateCollection.Call(u"GetAlarm", {CVariant::I4(0)}, result.Out()));
  EXPECT_EQ(VT_DISPATCH, result.vt);
  EXPECT_TRUE(SameObject(result.punkVal, alarm->GetUnknown()));
  ASSERT_EQ(S_OK, lateCollection.Call(u"GetCount", {}, result.Out()));
  EXPECT_EQ(1, result.lVal);
  EXPECT_EQ(DISP_E_EXCEPTION, lateCollection.Call(u"GetAlarm", {CVariant::I4(-1)}, result.Out()));
}

}  // namespace
