#include "wireless/channel_naming.h"

#include <gtest/gtest.h>

#include "platform/strings.h"

namespace zemo {
namespace {

std::string Label(const SWirelessChannel& c) { return ToUtf8(FormatChannel(c)); }

// Copies: the packed fields bind to no reference.
struct Plain {
  int channel;
  uint32_t frequency, band;
  bool operator==(const Plain&) const = default;
};
Plain Of(const SWirelessChannel& c) { return {c.Channel, c.Frequency, c.Band}; }

TEST(ChannelNaming, LabelsAndWhatTheyReadBackAs) {
  struct Case {
    SWirelessChannel channel;
    const char* label;
    Plain parsed;  // ParseChannel of the label
  } cases[] = {
      {{6, 2437, 4}, "6 - 2437 MHz (bg)", {6, 2437, 4}},
      {{11, 2462, 300}, "11 - 2462 MHz (bgn)", {11, 2462, 300}},
      {{36, 5180, 300}, "36 - 5180 MHz (an)", {36, 5180, 300}},
      {{20, 2507, 300}, "20 - 2507 MHz (n20)", {20, 2507, 300}},
      // The fraction of a public safety label is lost on the way back.
      {{15, 4945, 101}, "15 - 4945.5 MHz (BPS 5MHz ChBw)", {15, 4945, 101}},
      {{20, 4950, 101}, "20 - 4950 MHz (BPS 5MHz ChBw)", {20, 4950, 101}},
      // A band without a name has no parentheses, and comes back as band 1.
      {{6, 2437, 5}, "6 - 2437 MHz", {6, 2437, 1}},
      {{6, 2437, 7777}, "6 - 2437 MHz", {6, 2437, 1}},
      {{-3, 0, 207}, "-3 - 0 MHz (u7)", {-3, 0, 207}},
      {{0, 0, 1}, "0 - 0 MHz", {0, 0, 1}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.label, Label(c.channel));
    EXPECT_EQ(c.parsed, Of(ParseChannel(FromUtf8(c.label)))) << c.label;
  }
  // What a hand-written label gives.
  EXPECT_EQ((Plain{0, 0, 1}), Of(ParseChannel(u"")));
  EXPECT_EQ((Plain{7, 0, 4}), Of(ParseChannel(u"7 (g)")));
  EXPECT_EQ((Plain{0, 0, 3}), Of(ParseChannel(u"x (b) (a)")));
  char16_t buffer[kChannelLabelLength];
  FormatChannel({32767, 4294967295u, 104}, buffer);
  EXPECT_EQ(u"32767 - 4294967295.5 MHz (BPS 20MHz ChBw)", std::u16string(buffer));
  FormatChannel({1, 2412, 4}, nullptr);  // does nothing
}

TEST(ChannelNaming, BandsTheirOrderFrequenciesAndPlans) {
  struct Parse {
    const char16_t* text;
    uint32_t band;
  } parses[] = {{u"all", 0},   {u"802.11(all)", 0}, {u"g", 4},      {u"802.11g", 4},   {u"bgn", 300},
                {u"an", 300},  {u"n40h", 303},      {u"sg", 9},     {u"s15", 103},     {u"802.11s20", 104},
                {u"u7", 207},  {u"u0", 1},          {u"u10", 1},    {u"", 1},          {u"BG", 1},
                {u"802.11BPS 6MHz ChBw", 101},      {u"802.11BPS 5MHz ChBw", 1}};
  for (const Parse& p : parses) EXPECT_EQ(p.band, ParseBandName(p.text)) << ToUtf8(p.text);
  // Every name reads back as its band (300 by its channel's name).
  for (uint32_t band : {0u, 2u, 3u, 4u, 6u, 7u, 8u, 9u, 100u, 101u, 102u, 103u, 104u, 201u, 209u, 301u, 302u, 303u})
    EXPECT_EQ(band, ParseBandName(GetBandName(band, 6))) << band;
  EXPECT_EQ(u"", std::u16string(GetBandName(5, 6)));

  EXPECT_GT(CompareBands(3, 4), 0);  // bg sorts before a
  EXPECT_EQ(1, CompareBands(7777, 104));
  EXPECT_LT(CompareBands(303, 302), 0);
  EXPECT_EQ(0, CompareBands(4, 4));
  EXPECT_EQ(0, CompareBands(5, 7777));  // both outside the order

  struct Make {
    uint32_t band;
    int16_t number;
    bool primary;
    uint32_t frequency;
  } makes[] = {{303, 36, false, 5190}, {302, 40, false, 5190}, {303, 36, true, 5180}, {303, 10, false, 0},
               {303, 9, false, 2462},  {302, 5, true, 2432},   {302, 14, false, 0},   {302, 37, false, 0},
               {3, 36, false, 5180},   {100, 36, false, 0},    {101, 15, false, 4945}, {0, 165, false, 5825},
               {300, 20, false, 0},    {4, 14, false, 2477}};
  for (const Make& m : makes)
    EXPECT_EQ(m.frequency, +MakeChannel(m.band, m.number, m.primary).Frequency) << m.band << " " << m.number;
  EXPECT_EQ((Plain{6, 2437, 4}), Of(MakeLegacyChannel(6)));
  EXPECT_EQ((Plain{36, 5180, 3}), Of(MakeLegacyChannel(36)));
  EXPECT_EQ((Plain{42, 5210, 7}), Of(MakeLegacyChannel(42)));

  EXPECT_FALSE(IsChannelInBand(303, 9));  // though MakeChannel admits it
  EXPECT_TRUE(IsChannelInBand(303, 7));
  EXPECT_TRUE(IsChannelInBand(302, 153));
  EXPECT_FALSE(IsChannelInBand(302, 149));
  EXPECT_TRUE(IsChannelInBand(3, 42));
  EXPECT_FALSE(IsChannelInBand(6, 38));  // N5 leaves out 34, 38, 46
  EXPECT_TRUE(IsChannelInBand(6, 36));
  EXPECT_FALSE(IsChannelInBand(4, 36));
  EXPECT_FALSE(IsChannelInBand(104, 10));

  EXPECT_EQ("5.5", FormatDataRate(11));
  EXPECT_EQ("54", FormatDataRate(108));
  // Table order: frequency, then number, then band; the other comparator
  // puts the number first.
  ChannelTableLess less;
  EXPECT_TRUE(less(SWirelessChannel{11, 2462, 4}, SWirelessChannel{1, 5005, 3}));
  EXPECT_TRUE(less(SWirelessChannel{6, 2437, 4}, SWirelessChannel{6, 2437, 3}));
  EXPECT_GT(CWirelessChannelFreqComparator::CompareChannels({11, 2462, 4}, {1, 5005, 3}), 0);
}

}  // namespace
}  // namespace zemo
