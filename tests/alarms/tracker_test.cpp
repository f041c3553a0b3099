// Trackers: the ring every tracker class files its samples in, and the two
// table trackers bound to their statistics, their XML form and their clones.
#include <gtest/gtest.h>

#include "alarms/protocol_stats_tracker.h"
#include "engine/proto_specs.h"
#include "frame/xml_persist.h"
#include "tests/alarms/alarm_fixture.h"

namespace {

using namespace zemo;
using namespace zemo::testing;

constexpr ZemoTime S(uint64_t second) { return second * kSecond; }

HRESULT Status(auto&& body) { return Boundary([&] { body(); }); }

// ---- the ring ----------------------------------------------------------------

TEST(TrackerRing, FilesOneSamplePerSecondAndReadsBySecond) {
  CTrackerRing ring;
  auto put = [&](uint64_t second, double v) { ring.Store(ring.Fit(S(second)), v); };
  double v = 0;

  // The first update stores one sample and fills nothing.
  put(100, 7);
  EXPECT_EQ(7.0, ring.At(S(100)));
  EXPECT_EQ(0.0, ring.At(S(99)));  // within reach, older than the first sample
  EXPECT_EQ(E_FAIL, Status([&] { v = ring.At(S(101)); }));
  // Later seconds of a gap get the last sample: a, b, b, b, b, c.
  put(101, 8);
  put(105, 9);
  const double expected[] = {7, 8, 8, 8, 8, 9};
  for (uint64_t s = 100; s <= 105; ++s) EXPECT_EQ(expected[s - 100], ring.At(S(s))) << s;
  // An update within the newest second, or older, takes the next second.
  put(105, 10);
  put(50, 11);
  EXPECT_EQ(9.0, ring.At(S(105)));
  EXPECT_EQ(10.0, ring.At(S(106)));
  EXPECT_EQ(11.0, ring.At(S(107)));
  EXPECT_EQ(S(107), ring.LastTime());
  ZemoTime first = 0, last = 0;
  ring.TimeRange(&first, &last);
  EXPECT_EQ(S(99), first);  // one second before the oldest sample
  EXPECT_EQ(S(107), last);

  // Reset empties the ring and keeps the doubles in their slots.
  ring.Reset();
  put(200, 1);
  EXPECT_EQ(1.0, ring.At(S(200)));
  EXPECT_EQ(11.0, ring.At(S(147)));  // the slot of an old sample, read by age
}

TEST(TrackerRing, ForgetsPastItsHistoryAndFillsAnyGapAsSecondBySecond) {
  CTrackerRing ring;
  double v = 0;
  ASSERT_EQ(S_OK, Status([&] { ring.SetHistory(4); }));
  for (uint64_t s = 1; s <= 6; ++s) ring.Store(ring.Fit(S(s)), double(s));
  ZemoTime first = 0, last = 0;
  ring.TimeRange(&first, &last);
  EXPECT_EQ(S(2), first);  // full: four seconds held
  EXPECT_EQ(S(6), last);
  EXPECT_EQ(3.0, ring.At(S(3)));
  EXPECT_EQ(E_FAIL, Status([&] { v = ring.At(S(2)); }));  // age 4

  // Gaps shorter and longer than the history: each ends with the last
  // sample in every skipped second within reach and a full ring.
  for (uint64_t gap : {3u, 4u, 1000000000u}) {
    CTrackerRing r;
    ASSERT_EQ(S_OK, Status([&] { r.SetHistory(5); }));
    r.Store(r.Fit(S(10)), 1);
    r.Store(r.Fit(S(11)), 2);
    r.Store(r.Fit(S(12 + gap)), 3);
    EXPECT_EQ(3.0, r.At(S(12 + gap))) << gap;
    for (uint64_t age = 1; age < 5; ++age) EXPECT_EQ(2.0, r.At(S(12 + gap - age))) << gap;
    r.TimeRange(&first, &last);
    EXPECT_EQ(S(12 + gap - 5), first) << gap;
    r.Store(r.Fit(S(13 + gap)), 4);  // and the ring goes on from the right slot
    EXPECT_EQ(3.0, r.At(S(12 + gap))) << gap;
    EXPECT_EQ(4.0, r.At(S(13 + gap))) << gap;
  }

  // The history's limits, and what a shrink below the write slot does.
  EXPECT_EQ(E_INVALIDARG, Status([&] { ring.SetHistory(86401); }));
  EXPECT_EQ(E_INVALIDARG, Status([&] { ring.SetHistory(-1); }));
  EXPECT_EQ(4, ring.History());
  EXPECT_EQ(S_OK, Status([&] { ring.SetHistory(86400); }));
  CTrackerRing shrunk;
  for (uint64_t s = 1; s <= 10; ++s) shrunk.Store(shrunk.Fit(S(s)), 1);
  ASSERT_EQ(S_OK, Status([&] { shrunk.SetHistory(5); }));
  EXPECT_EQ(E_INVALIDARG, Status([&] { shrunk.Store(shrunk.Fit(S(11)), 1); }));
  shrunk.Reset();
  EXPECT_EQ(S_OK, Status([&] { shrunk.Store(shrunk.Fit(S(11)), 1); }));
  ASSERT_EQ(S_OK, Status([&] { shrunk.SetHistory(0); }));
  shrunk.Reset();
  EXPECT_EQ(E_INVALIDARG, Status([&] { shrunk.Store(shrunk.Fit(S(12)), 1); }));
  EXPECT_EQ(E_FAIL, Status([&] { v = shrunk.At(S(12)); }));
}

// ---- table trackers ----------------------------------------------------------

using NodeTracker = TrackerFixture;

TEST_F(NodeTracker, SamplesItsNodeOnceItIsInTheTable) {
  // A node not yet in the table fails, and its ring does not move.
  ComPtr<IZemoStatsTracker> later = Tracker(Mac(0x03), kNodeTotalBytes);
  ZemoTime last = 1;
  EXPECT_EQ(E_FAIL, later->Update(At(0)));
  ASSERT_EQ(S_OK, later->GetLastTime(&last));
  EXPECT_EQ(0u, last);

  ASSERT_EQ(S_OK, Play(0, 100));
  ASSERT_EQ(S_OK, SendMac(0x03, 0x01, 40, At(1)));
  ASSERT_EQ(S_OK, Play(1, 50));
  ASSERT_EQ(S_OK, later->Update(At(1)));
  EXPECT_EQ(150.0, Value(1));
  double v = 0;
  // Total bytes of node 3: 40 sent; of node 1 through another tracker: sent and received added.
  ASSERT_EQ(S_OK, later->GetValue(At(1), &v));
  EXPECT_EQ(40.0, v);
  ComPtr<IZemoStatsTracker> total = Tracker(Mac(0x01), kNodeTotalBytes);
  ComPtr<IZemoStatsTracker> smallest = Tracker(Mac(0x01), kNodeMinPacketSizeReceived);
  ASSERT_EQ(S_OK, total->Update(At(1)));
  ASSERT_EQ(S_OK, smallest->Update(At(1)));
  ASSERT_EQ(S_OK, total->GetValue(At(1), &v));
  EXPECT_EQ(190.0, v);
  ASSERT_EQ(S_OK, smallest->GetValue(At(1), &v));
  EXPECT_EQ(40.0, v);

  // Rate and delta are differences of samples.
  ASSERT_EQ(S_OK, Play(4, 25));
  ASSERT_EQ(S_OK, tracker->GetValueRate(At(4), &v));
  EXPECT_EQ(25.0, v);
  ASSERT_EQ(S_OK, tracker->GetValueDelta(At(0), At(4), &v));
  EXPECT_EQ(75.0, v);
  EXPECT_EQ(E_FAIL, tracker->GetValueDelta(At(0), At(5), &v));

  // Reset empties the ring; the row stays found.
  ASSERT_EQ(S_OK, tracker->Reset());
  ASSERT_EQ(S_OK, Play(9, 0));
  EXPECT_EQ(175.0, Value(9));
  ASSERT_EQ(S_OK, tracker->GetValueRate(At(9), &v));
  EXPECT_EQ(175.0, v);  // the second before reads a slot never written
}

TEST_F(NodeTracker, NamesItsNumbersAndRefusesWhatItCannotSample) {
  LONG count = 0;
  ASSERT_EQ(S_OK, tracker->GetStatCount(&count));
  EXPECT_EQ(16, count);
  CVariant id;
  ASSERT_EQ(S_OK, tracker->GetStatID(15, &id));
  EXPECT_EQ(VT_UI4, id.vt);
  EXPECT_EQ(16u, id.ulVal);
  EXPECT_EQ(E_INVALIDARG, tracker->GetStatID(16, id.Out()));
  EXPECT_EQ(E_INVALIDARG, tracker->GetStatID(-1, id.Out()));
  CBstr name;
  ASSERT_EQ(S_OK, tracker->GetStatName(CVariant::Str(u"11"), name.Out()));
  EXPECT_EQ(u"Broadcast/Multicast Packets", name.View());
  EXPECT_EQ(E_INVALIDARG, tracker->GetStatName(CVariant::I4(17), name.Out()));
  EXPECT_EQ(DISP_E_TYPEMISMATCH, tracker->GetStatName(CVariant::Str(u"eleven"), name.Out()));
  EXPECT_EQ(E_INVALIDARG, tracker->SetStat(CVariant::Str(u"x")));

  // Any stat type is taken; one outside the table fails the update.
  ASSERT_EQ(S_OK, Play(0, 10));
  ASSERT_EQ(S_OK, tracker->SetStat(CVariant::I4(17)));
  EXPECT_EQ(E_FAIL, Play(3, 10));
  ASSERT_EQ(S_OK, tracker->SetStat(CVariant::UI4(kNodeBytesSent)));
  ASSERT_EQ(S_OK, Play(4, 10));
  EXPECT_EQ(10.0, Value(2));  // the gap filled by the failed update stays
  EXPECT_EQ(30.0, Value(4));

  // A second context does not rebind; an unbound tracker cannot sample.
  auto other = StatsContext::Create();
  EXPECT_EQ(S_OK, tracker->SetContext(other.Get()));
  ComPtr<IZemoStatsContext> bound;
  ASSERT_EQ(S_OK, tracker->GetContext(bound.ReleaseAndGetAddressOf()));
  EXPECT_EQ(context.Get(), bound.Get());
  auto unbound = NodeStatsTracker::Create();
  ASSERT_EQ(S_OK, unbound->SetStatType(kNodeBytesSent));
  EXPECT_EQ(E_FAIL, unbound->Update(At(4)));
  // A context without NodeStats fails the binding and stays stored.
  EXPECT_EQ(E_FAIL, unbound->SetContext(other.Get()));
  EXPECT_EQ(E_FAIL, unbound->Update(At(4)));
  ASSERT_EQ(S_OK, unbound->GetContext(bound.ReleaseAndGetAddressOf()));
  EXPECT_EQ(other.Get(), bound.Get());
  LONG max = 0;
  ASSERT_EQ(S_OK, tracker->GetMaxHistory(&max));
  EXPECT_EQ(86400, max);
}

TEST_F(NodeTracker, ProtocolTrackersFollowEveryLayerOfTheirProtocol) {
  auto byId = ProtocolStatsByID::Create();
  ASSERT_EQ(S_OK, context->AddStats(CLSID_ProtocolStatsByID, byId.Get()));
  auto protocol = ProtocolStatsTracker::Create();
  ASSERT_EQ(S_OK, protocol->SetKey(specs::Protocol(proto::kTcp)));
  ASSERT_EQ(S_OK, protocol->SetStatType(ProtocolStatsTracker::kTotalBytes));
  ASSERT_EQ(S_OK, protocol->SetContext(context.Get()));
  // No TCP yet: the row stays unfound and the update fails.
  EXPECT_EQ(E_FAIL, protocol->Update(At(0)));

  PacketBuilder p;
  p.Time(At(1)).Length(300).Layers({proto::kEthernetII, proto::kIpv4, proto::kTcp});
  ASSERT_EQ(S_OK, byId->ProcessPacket(p.Get()));
  ASSERT_EQ(S_OK, protocol->Update(At(1)));
  double v = 0;
  ASSERT_EQ(S_OK, protocol->GetValue(At(1), &v));
  EXPECT_EQ(300.0, v);
  ASSERT_EQ(S_OK, protocol->SetStatType(ProtocolStatsTracker::kTotalPackets));
  ASSERT_EQ(S_OK, protocol->Update(At(2)));
  ASSERT_EQ(S_OK, protocol->GetValue(At(2), &v));
  EXPECT_EQ(1.0, v);

  CVariant id;
  ASSERT_EQ(S_OK, protocol->GetStatID(1, &id));
  EXPECT_EQ(VT_I4, id.vt);
  EXPECT_EQ(2, id.lVal);
  EXPECT_EQ(E_INVALIDARG, protocol->GetStatID(2, id.Out()));
  CBstr name;
  ASSERT_EQ(S_OK, protocol->GetStatName(CVariant::I4(1), name.Out()));
  EXPECT_EQ(u"Total Packets", name.View());
  EXPECT_EQ(E_FAIL, protocol->GetStatName(CVariant::I4(3), name.Out()));
}

TEST_F(NodeTracker, SavesItsSettingsAndClonesWithoutSamples) {
  ASSERT_EQ(S_OK, tracker->SetHistory(90));
  ASSERT_EQ(S_OK, Play(0, 10));
  ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
  ASSERT_EQ(S_OK, SaveObjectToXml(tracker.Get(), document.Get(), document.Get(), FALSE));
  CBstr xml;
  ASSERT_EQ(S_OK, document->get_xml(xml.Out()));
  EXPECT_NE(std::u16string::npos,
            xml.View().find(u"<NodeStatsTracker stattype=\"4\" history=\"90\"><node class=\"2\" type=\"10\" "
                            u"data=\"001A2B3C4D01\"/></NodeStatsTracker>"))
      << xml.Utf8();

  auto loaded = NodeStatsTracker::Create();
  ASSERT_EQ(S_OK, LoadObjectFromXml(loaded->GetUnknown(), document.Get(), document.Get()));
  MediaSpec key{};
  LONG stat = 0, history = 0;
  ASSERT_EQ(S_OK, loaded->GetKey(&key));
  ASSERT_EQ(S_OK, loaded->GetStatType(&stat));
  ASSERT_EQ(S_OK, loaded->GetHistory(&history));
  EXPECT_TRUE(SpecsEqual(Mac(0x01), key));
  EXPECT_EQ(kNodeBytesSent, stat);
  EXPECT_EQ(90, history);
  ComPtr<IZemoStatsContext> none;
  ASSERT_EQ(S_OK, loaded->GetContext(none.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(none);

  // Loads that fail: no element, a key without its element, a history past the limit.
  for (const char16_t* text : {u"<x/>", u"<NodeStatsTracker stattype=\"1\"/>",
                               u"<NodeStatsTracker history=\"86401\"><node class=\"2\" type=\"10\" "
                               u"data=\"001A2B3C4D01\"/></NodeStatsTracker>"}) {
    ComPtr<IXMLDOMDocument> bad = ParseXml(text);
    EXPECT_TRUE(FAILED(LoadObjectFromXml(NodeStatsTracker::Create()->GetUnknown(), bad.Get(), bad.Get())))
        << ToUtf8(text);
  }
  ComPtr<IXMLDOMDocument> wrongClass = ParseXml(u"<NodeStatsTracker/>");
  EXPECT_EQ(E_FAIL, LoadObjectFromXml(ProtocolStatsTracker::Create()->GetUnknown(), wrongClass.Get(),
                                      wrongClass.Get()));

  // The clone: same key, stat, history and context, an empty ring.
  ComPtr<IUnknown> copy;
  ASSERT_EQ(S_OK, tracker.Query<ICloneable>()->Clone(copy.ReleaseAndGetAddressOf()));
  ComPtr<IZemoStatsTracker> clone = copy.Query<IZemoStatsTracker>();
  ASSERT_NE(tracker.Get(), clone.Get());
  ZemoTime last = 1;
  ASSERT_EQ(S_OK, clone->GetLastTime(&last));
  EXPECT_EQ(0u, last);
  ASSERT_EQ(S_OK, clone->GetHistory(&history));
  EXPECT_EQ(90, history);
  ComPtr<IZemoStatsContext> bound;
  ASSERT_EQ(S_OK, clone->GetContext(bound.ReleaseAndGetAddressOf()));
  EXPECT_EQ(context.Get(), bound.Get());
  ASSERT_EQ(S_OK, clone->Update(At(1)));
  double v = 0;
  ASSERT_EQ(S_OK, clone->GetValue(At(1), &v));
  EXPECT_EQ(10.0, v);
}

}  // namespace
