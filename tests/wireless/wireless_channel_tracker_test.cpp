#include "wireless/wireless_channel_stats_tracker.h"

#include "frame/xml_persist.h"
#include "support/xml_text.h"
#include "wireless_fixture.h"

namespace zemo::testing {
namespace {

constexpr SWirelessChannel kCh1{1, 2412, 4}, kCh11{11, 2462, 4};

class WirelessChannelTrackerTest : public WirelessFixture {
 protected:
  void SetUp() override {
    WirelessFixture::SetUp();
    context = StatsContext::Create();
    ASSERT_EQ(S_OK, context->AddStats(CLSID_WirelessChannelStats, first.Query<IZemoStats>().Get()));
  }
  ComPtr<IZemoStatsTracker> TrackerOf(const char16_t* label) {
    ComPtr<IZemoStatsTracker> tracker;
    EXPECT_EQ(S_OK, first.Query<IZemoStatsTrackerFactory>()->CreateTracker(CVariant::Str(label),
                                                                           tracker.ReleaseAndGetAddressOf()));
    return tracker;
  }
  void Feed(IPacket* p) { EXPECT_EQ(S_OK, first.Query<IProcessPacket>()->ProcessPacket(p)); }

  ComPtr<StatsContext> context;
};

TEST_F(WirelessChannelTrackerTest, FollowsItsChannelFromItsFirstPacketWhereverItStands) {
  ComPtr<IZemoStatsTracker> tracker = TrackerOf(u"11 - 2462 MHz (bg)");
  ASSERT_TRUE(tracker);
  SWirelessChannel key{};
  ASSERT_EQ(S_OK, tracker.Query<IWirelessChannelStatsTracker>()->GetChannel(&key));
  EXPECT_EQ(kCh11, key);

  // Before the channel's first packet an update samples nothing, and succeeds.
  ZemoTime last = 1;
  EXPECT_EQ(S_OK, tracker->Update(kWirelessT0));
  EXPECT_EQ(S_OK, tracker->GetLastTime(&last));
  EXPECT_EQ(0u, last);
  // Stat type 0, as the factory delivers it, is no number.
  Feed(Frame(kCh11, kData, 0, 22, -127, -127, 100));
  EXPECT_EQ(E_FAIL, tracker->Update(kWirelessT0));
  // The signal's maximum before any reading.
  ASSERT_EQ(S_OK, tracker->SetStat(CVariant::I4(31)));
  ASSERT_EQ(S_OK, tracker->Update(kWirelessT0 + kWirelessSecond));
  double v = 0;
  ASSERT_EQ(S_OK, tracker->GetValue(kWirelessT0 + kWirelessSecond, &v));
  EXPECT_EQ(-127.0, v);

  // A channel of a lower number moves the tracked one: it is found again.
  ASSERT_EQ(S_OK, tracker->SetStat(CVariant::I4(WirelessChannelStatsTracker::kTotalBytes)));
  Feed(Frame(kCh1, kData, 0, 22, -127, -127, 1000));
  Feed(Frame(kCh11, kData, 0, 22, -127, -127, 50));
  ASSERT_EQ(S_OK, tracker->Update(kWirelessT0 + 2 * kWirelessSecond));
  ASSERT_EQ(S_OK, tracker->GetValue(kWirelessT0 + 2 * kWirelessSecond, &v));
  EXPECT_EQ(150.0, v);

  // The table of numbers.
  LONG count = 0;
  EXPECT_EQ(S_OK, tracker->GetStatCount(&count));
  EXPECT_EQ(32, count);
  CVariant id;
  ASSERT_EQ(S_OK, tracker->GetStatID(0, &id));
  EXPECT_EQ(VT_UI4, id.vt);
  EXPECT_EQ(2u, id.ulVal);
  ASSERT_EQ(S_OK, tracker->GetStatID(31, &id));
  EXPECT_EQ(35u, id.ulVal);
  EXPECT_EQ(E_INVALIDARG, tracker->GetStatID(32, &id));
  EXPECT_EQ(E_INVALIDARG, tracker->GetStatID(-1, &id));
  CBstr name;
  EXPECT_EQ(E_INVALIDARG, tracker->GetStatName(CVariant::I4(25), name.Out()));
  ASSERT_EQ(S_OK, tracker->GetStatName(CVariant::I4(26), name.Out()));
  EXPECT_EQ(u"WEP ICV", name.View());
  ASSERT_EQ(S_OK, tracker->SetStat(CVariant::I4(27)));
  EXPECT_EQ(E_FAIL, tracker->Update(kWirelessT0 + 3 * kWirelessSecond));

  // A clone keeps the channel and starts unsampled.
  ComPtr<IZemoStatsTracker> clone = CloneAs<IZemoStatsTracker>(tracker.Get());
  ASSERT_EQ(S_OK, clone.Query<IWirelessChannelStatsTracker>()->GetChannel(&key));
  EXPECT_EQ(kCh11, key);
  EXPECT_EQ(S_OK, clone->GetLastTime(&last));
  EXPECT_EQ(0u, last);
}

TEST_F(WirelessChannelTrackerTest, XmlKeepsTheChannelAsItsLabel) {
  struct Case {
    SWirelessChannel channel;
    SWirelessChannel back;
  } cases[] = {
      {{6, 2437, 4}, {6, 2437, 4}},
      // The fraction of the label goes: the stored frequency comes back.
      {{15, 4945, 101}, {15, 4945, 101}},
      // A band without a name comes back as band 1, which is another channel.
      {{6, 2437, 5}, {6, 2437, 1}},
  };
  for (const Case& c : cases) {
    auto tracker = MakeObject<WirelessChannelStatsTracker, IWirelessChannelStatsTracker>();
    ASSERT_EQ(S_OK, tracker->SetChannel(c.channel));
    ASSERT_EQ(S_OK, tracker->SetStatType(3));
    ASSERT_EQ(S_OK, tracker.Query<IZemoStatsTracker>()->SetHistory(120));
    auto document = CreateXmlDocument();
    ASSERT_EQ(S_OK, SaveObjectToXml(tracker.Get(), document.Get(), document.Get(), FALSE));
    CBstr xml;
    document->get_xml(xml.Out());
    EXPECT_NE(std::u16string::npos, xml.View().find(u"channel=\"" + FormatChannel(c.channel) + u"\""));
    auto loaded = MakeObject<WirelessChannelStatsTracker, IWirelessChannelStatsTracker>();
    ASSERT_EQ(S_OK, LoadObjectFromXml(loaded.Get(), document.Get(), document.Get()));
    SWirelessChannel back{};
    LONG type = 0, history = 0;
    loaded->GetChannel(&back);
    loaded->GetStatType(&type);
    loaded.Query<IZemoStatsTracker>()->GetHistory(&history);
    EXPECT_EQ(c.back, back) << ToUtf8(FormatChannel(c.channel));
    EXPECT_EQ(3, type);
    EXPECT_EQ(120, history);
  }
  // Without a channel attribute: channel 0, no frequency, band 1.
  auto document = testing_support::ParseXml(u"<WirelessChannelStatsTracker stattype=\"2\"/>");
  auto loaded = MakeObject<WirelessChannelStatsTracker, IWirelessChannelStatsTracker>();
  ASSERT_EQ(S_OK, LoadObjectFromXml(loaded.Get(), document.Get(), document.Get()));
  SWirelessChannel back{};
  loaded->GetChannel(&back);
  EXPECT_EQ((SWirelessChannel{0, 0, 1}), back);
  auto other = testing_support::ParseXml(u"<NodeStatsTracker/>");
  EXPECT_EQ(E_FAIL, LoadObjectFromXml(loaded.Get(), other.Get(), other.Get()));
}

}  // namespace
}  // namespace zemo::testing
