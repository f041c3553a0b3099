// AlarmCollection (one alarm per id, its file, stream and selection) and
// AlarmStates (its stream and XML forms).
#include <gtest/gtest.h>

#include "alarms/alarm_collection.h"
#include "alarms/alarm_states.h"
#include "engine/select_params.h"
#include "frame/selection.h"
#include "frame/stream_persist.h"
#include "frame/xml_persist.h"
#include "tests/alarms/alarm_fixture.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/table_cells.h"

namespace {

using namespace zemo;
using namespace zemo::testing;

ComPtr<IAlarm> NewAlarm(const char16_t* name) {
  auto alarm = Alarm::Create();
  CBstr text{std::u16string_view(name)};
  EXPECT_EQ(S_OK, alarm->SetName(text.Get()));
  return ComPtr<IAlarm>(alarm.Get());
}

std::vector<std::u16string> Names(IAlarmCollection* collection) {
  std::vector<std::u16string> names;
  LONG count = 0;
  EXPECT_EQ(S_OK, collection->GetCount(&count));
  for (LONG i = 0; i < count; ++i) {
    ComPtr<IAlarm> alarm;
    CBstr name;
    EXPECT_EQ(S_OK, collection->GetAlarm(i, alarm.ReleaseAndGetAddressOf()));
    EXPECT_EQ(S_OK, alarm->GetName(name.Out()));
    names.emplace_back(name.View());
  }
  return names;
}

using Names16 = std::vector<std::u16string>;

TEST(AlarmCollection, KeepsOneAlarmPerIdInTheOrderOfAdding) {
  auto collection = AlarmCollection::Create();
  ComPtr<IAlarm> a = NewAlarm(u"a"), b = NewAlarm(u"b"), c = NewAlarm(u"c");
  for (IAlarm* x : {a.Get(), b.Get(), c.Get()}) ASSERT_EQ(S_OK, collection->AddAlarm(x));
  // The very object again moves to the end.
  ASSERT_EQ(S_OK, collection->AddAlarm(a.Get()));
  EXPECT_EQ((Names16{u"b", u"c", u"a"}), Names(collection.Get()));
  // A clone has the id of its source: it replaces it, at the end.
  ComPtr<IUnknown> copy;
  ASSERT_EQ(S_OK, b.Query<ICloneable>()->Clone(copy.ReleaseAndGetAddressOf()));
  ComPtr<IAlarm> twin = copy.Query<IAlarm>();
  CBstr twinName(u"b2");
  ASSERT_EQ(S_OK, twin->SetName(twinName.Get()));
  ASSERT_EQ(S_OK, collection->AddAlarm(twin.Get()));
  EXPECT_EQ((Names16{u"c", u"a", u"b2"}), Names(collection.Get()));
  // Removal is by object, not by id.
  EXPECT_EQ(E_FAIL, collection->RemoveAlarm(b.Get()));
  ASSERT_EQ(S_OK, collection->RemoveAlarm(c.Get()));
  EXPECT_EQ((Names16{u"a", u"b2"}), Names(collection.Get()));

  ComPtr<IAlarm> found;
  GUID id{};
  ASSERT_EQ(S_OK, a->GetID(&id));
  ASSERT_EQ(S_OK, collection->FindAlarm(id, found.ReleaseAndGetAddressOf()));
  EXPECT_EQ(a.Get(), found.Get());
  id.Data1 ^= 1;
  EXPECT_EQ(E_FAIL, collection->FindAlarm(id, found.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(found);
  EXPECT_EQ(E_INVALIDARG, collection->GetAlarm(-1, found.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, collection->GetAlarm(2, found.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_POINTER, collection->AddAlarm(nullptr));
}

TEST(AlarmCollection, ItsFileAndStreamLoadBackIntoTheSameAlarms) {
  testing_support::ScratchDir dir;
  auto collection = AlarmCollection::Create();
  ComPtr<IAlarm> a = NewAlarm(u"a"), b = NewAlarm(u"b");
  ASSERT_EQ(S_OK, a->SetCondition(kAlarmProblem, 5, kAlarmGreater, 1e6, 3));
  ASSERT_EQ(S_OK, collection->AddAlarm(a.Get()));
  ASSERT_EQ(S_OK, collection->AddAlarm(b.Get()));
  const std::u16string file = dir.WideFile("alarms.xml");
  ASSERT_EQ(S_OK, static_cast<IPersistFile*>(collection.Get())->Save(file.c_str(), FALSE));
  EXPECT_NE(std::string::npos,
            testing_support::ReadFile(file).find("<Alarmobj clsid=\"{E1B48467-CC9F-4C91-A030-6CEAE1FD934D}\">"));

  // Loading twice leaves the same alarms: the second load replaces by id.
  auto loaded = AlarmCollection::Create();
  for (int i = 0; i < 2; ++i) ASSERT_EQ(S_OK, static_cast<IPersistFile*>(loaded.Get())->Load(file.c_str(), 0));
  EXPECT_EQ((Names16{u"a", u"b"}), Names(loaded.Get()));
  ComPtr<IAlarm> first;
  ASSERT_EQ(S_OK, loaded->GetAlarm(0, first.ReleaseAndGetAddressOf()));
  LONG duration = 0, severity = 0;
  AlarmComparison comparison{};
  double threshold = 0;
  ASSERT_EQ(S_OK, first->GetCondition(kAlarmProblem, &duration, &comparison, &threshold, &severity));
  EXPECT_EQ(1e6, threshold);
  EXPECT_EQ(5, duration);

  // The stream holds the same document.
  ComPtr<IStream> stream = CreateMemoryStream();
  ASSERT_EQ(S_OK, SaveObjectToStream(collection->GetUnknown(), stream.Get(), TRUE));
  std::vector<uint8_t> bytes = MemoryStreamBytes(stream.Get());
  EXPECT_EQ("<?xml", std::string(bytes.begin(), bytes.begin() + 5));
  auto streamed = AlarmCollection::Create();
  ASSERT_EQ(S_OK, LoadObjectFromStream(streamed->GetUnknown(), CreateMemoryStream(bytes.data(), bytes.size()).Get()));
  EXPECT_EQ((Names16{u"a", u"b"}), Names(streamed.Get()));
  ULARGE_INTEGER size{};
  EXPECT_EQ(E_NOTIMPL, static_cast<IPersistStream*>(streamed.Get())->GetSizeMax(&size));

  // Without an Alarms element nothing changes; a bad element stops the load
  // after what came before it.
  ComPtr<IXMLDOMDocument> none = ParseXml(u"<alarms/>");
  EXPECT_EQ(E_FAIL, LoadObjectFromXml(loaded->GetUnknown(), none.Get(), none.Get()));
  EXPECT_EQ((Names16{u"a", u"b"}), Names(loaded.Get()));
  ComPtr<IXMLDOMDocument> bad = ParseXml(
      u"<Alarms><Alarmobj clsid=\"{E1B48467-CC9F-4C91-A030-6CEAE1FD934D}\"><alarmnode name=\"c\"/></Alarmobj>"
      u"<Alarmobj clsid=\"not an id\"/><Alarmobj clsid=\"{E1B48467-CC9F-4C91-A030-6CEAE1FD934D}\"/></Alarms>");
  EXPECT_EQ(CO_E_CLASSSTRING, LoadObjectFromXml(loaded->GetUnknown(), bad.Get(), bad.Get()));
  EXPECT_EQ((Names16{u"a", u"b", u"c"}), Names(loaded.Get()));
}

TEST(AlarmCollection, SelectsAnAlarmByNameOrId) {
  auto collection = AlarmCollection::Create();
  ULONG flag = 9;
  ASSERT_EQ(S_OK, collection->GetSelectFlag(&flag));
  EXPECT_EQ(0u, flag);
  ComPtr<IAlarm> a = NewAlarm(u"Busy"), b = NewAlarm(u"Quiet");
  ASSERT_EQ(S_OK, collection->AddAlarm(a.Get()));
  ASSERT_EQ(S_OK, collection->AddAlarm(b.Get()));
  ASSERT_EQ(S_OK, collection->GetSelectFlag(&flag));
  EXPECT_EQ(1u, flag);
  GUID idB{};
  ASSERT_EQ(S_OK, b->GetID(&idB));

  auto select = [&](std::initializer_list<std::pair<const char16_t*, std::u16string>> bag, const char16_t* step,
                    bool further = false) {
    ComPtr<ISelectParams> params = NewSelectParams();
    ComPtr<IPropertyBag> properties = NewTypeBag({});
    for (const auto& [name, value] : bag) {
      CVariant v = CVariant::Str(value);
      EXPECT_EQ(S_OK, properties->Write(name, &v));
    }
    AddSelectStep(params.Get(), step, bag.size() ? properties.Get() : nullptr);
    if (further) AddSelectStep(params.Get(), u"more");
    ComPtr<IUnknown> out;
    HRESULT hr = collection->Select(params.Get(), out.ReleaseAndGetAddressOf());
    return std::make_pair(hr, out);
  };
  EXPECT_TRUE(SameObject(a.Get(), select({{u"name", u"BUSY"}}, u"Alarm").second.Get()));
  EXPECT_TRUE(SameObject(b.Get(), select({{u"id", GuidText(idB)}}, u"alarm").second.Get()));
  // Both given: the first alarm in order that passes either test.
  EXPECT_TRUE(SameObject(a.Get(), select({{u"name", u"busy"}, {u"id", GuidText(idB)}}, u"alarm").second.Get()));
  EXPECT_EQ(E_INVALIDARG, select({{u"name", u"nobody"}}, u"alarm").first);
  EXPECT_EQ(E_INVALIDARG, select({}, u"alarm").first);
  EXPECT_EQ(E_INVALIDARG, select({{u"name", u"Busy"}}, u"node").first);
  EXPECT_EQ(E_INVALIDARG, select({{u"name", u"Busy"}}, u"alarm", true).first);  // an alarm is not selectable

  auto t = zemo::testing_support::ReadTable(collection.Get());
  ASSERT_EQ(2u, t.rows.size());
  EXPECT_EQ(u"Quiet", t.Text(1, 0));
  EXPECT_EQ(GuidText(idB), t.Text(1, 1));
}

TEST(AlarmStates, SaveAsTheyStandInStreamAndXml) {
  auto states = AlarmStates::Create();
  auto stream = [&](AlarmStates* s) {
    ComPtr<IStream> out = CreateMemoryStream();
    EXPECT_EQ(S_OK, SaveObjectToStream(s->GetUnknown(), out.Get(), TRUE));
    return MemoryStreamBytes(out.Get());
  };
  ULARGE_INTEGER size{};
  EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 0}), stream(states.Get()));
  ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
  ASSERT_EQ(S_OK, states->Save(document.Get(), document.Get(), FALSE));
  CBstr xml;
  ASSERT_EQ(S_OK, document->get_xml(xml.Out()));
  EXPECT_NE(std::u16string::npos, xml.View().find(u"<AlarmStates/>"));

  GUID id{};
  for (ULONG i = 1; i <= 3; ++i) {
    id.Data1 = i;
    ASSERT_EQ(S_OK, states->AddState(id, i, 10 * i));
  }
  std::vector<uint8_t> bytes = stream(states.Get());
  EXPECT_EQ(76u, bytes.size());
  ASSERT_EQ(S_OK, states->GetSizeMax(&size));
  EXPECT_EQ(76u, size.QuadPart);
  EXPECT_EQ(3u, bytes[0]);
  EXPECT_EQ(2u, bytes[4 + 24]);        // the second id
  EXPECT_EQ(20u, bytes[4 + 24 + 20]);  // its severity

  auto loaded = AlarmStates::Create();
  ASSERT_EQ(S_OK, LoadObjectFromStream(loaded->GetUnknown(), CreateMemoryStream(bytes.data(), bytes.size()).Get()));
  EXPECT_EQ(bytes, stream(loaded.Get()));
  // A count that lies: the entries that arrived stay, the load fails.
  bytes[0] = 200;
  EXPECT_EQ(E_FAIL, LoadObjectFromStream(loaded->GetUnknown(), CreateMemoryStream(bytes.data(), bytes.size()).Get()));
  LONG count = 0;
  ASSERT_EQ(S_OK, loaded->GetStateCount(&count));
  EXPECT_EQ(3, count);

  document = CreateXmlDocument();
  ASSERT_EQ(S_OK, states->Save(document.Get(), document.Get(), FALSE));
  ASSERT_EQ(S_OK, document->get_xml(xml.Out()));
  EXPECT_NE(std::u16string::npos,
            xml.View().find(u"<Alarm id=\"{00000002-0000-0000-0000-000000000000}\" severity=\"20\" condition=\"2\"/>"));
  auto fromXml = AlarmStates::Create();
  ASSERT_EQ(S_OK, fromXml->Load(document.Get(), document.Get()));
  EXPECT_EQ(stream(states.Get()), stream(fromXml.Get()));
  ULONG condition = 0, severity = 0;
  EXPECT_EQ(E_INVALIDARG, fromXml->GetState(3, &id, &condition, &severity));
  for (const char16_t* text : {u"<AlarmStates><Alarm id=\"{00000002-0000-0000-0000-000000000000}\" severity=\"x\" "
                               u"condition=\"2\"/></AlarmStates>",
                               u"<AlarmStates><Alarm severity=\"1\" condition=\"2\"/></AlarmStates>", u"<none/>"}) {
    ComPtr<IXMLDOMDocument> bad = ParseXml(text);
    EXPECT_EQ(E_FAIL, fromXml->Load(bad.Get(), bad.Get())) << ToUtf8(text);
  }
}

}  // namespace
