#include "wireless/channel_naming.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace zemo {
namespace {

struct BandText {
  uint32_t band;
  const char16_t* text;
};

// Every text that reads as a band, in the order a parse tries them: the
// first that matches decides.
constexpr BandText kBandTexts[] = {
    {kBandAll, u"all"},
    {kBandAll, u"802.11(all)"},
    {kBandB, u"b"},
    {kBandB, u"802.11b"},
    {kBandA, u"a"},
    {kBandA, u"802.11a"},
    {kBandBG, u"bg"},
    {kBandBG, u"g"},
    {kBandBG, u"802.11bg"},
    {kBandBG, u"802.11g"},
    {kBandN, u"n"},
    {kBandN, u"802.11n"},
    {kBandN20, u"n20"},
    {kBandN20, u"802.11n20"},
    {kBandN20, u"bgn"},
    {kBandN20, u"802.11bgn"},
    {kBandN20, u"an"},
    {kBandN20, u"802.11an"},
    {kBandN40, u"n40"},
    {kBandN40, u"802.11n40"},
    {kBandN40Low, u"n40l"},
    {kBandN40Low, u"802.11n40l"},
    {kBandN40High, u"n40h"},
    {kBandN40High, u"802.11n40h"},
    {kBandAT, u"at"},
    {kBandAT, u"802.11at"},
    {kBandGT, u"gt"},
    {kBandGT, u"802.11gt"},
    {kBandSG, u"sg"},
    {kBandSG, u"802.11sg"},
    {kBandBps1, u"BPS 1MHz ChBw"},
    {kBandBps1, u"802.11BPS 1MHz ChBw"},
    // The long text of band 101 says 6 MHz: it is the text that reads back.
    {kBandBps5, u"BPS 5MHz ChBw"},
    {kBandBps5, u"802.11BPS 6MHz ChBw"},
    {kBandBps10, u"BPS 10MHz ChBw"},
    {kBandBps10, u"802.11BPS 10MHz ChBw"},
    {kBandBps15, u"BPS 15MHz ChBw"},
    {kBandBps15, u"802.11BPS 15MHz ChBw"},
    {kBandBps20, u"BPS 20MHz ChBw"},
    {kBandBps20, u"802.11BPS 20MHz ChBw"},
    {kBandBps1, u"s1"},
    {kBandBps1, u"802.11s1"},
    {kBandBps5, u"s5"},
    {kBandBps5, u"802.11s5"},
    {kBandBps10, u"s10"},
    {kBandBps10, u"802.11s10"},
    {kBandBps15, u"s15"},
    {kBandBps15, u"802.11s15"},
    {kBandBps20, u"s20"},
    {kBandBps20, u"802.11s20"},
};

// Positions of the band order; a code's first position counts.
constexpr uint32_t kBandOrder[] = {0, 1, 2, 4, 4, 8, 9, 3, 7, 6, 300, 301, 303, 302, 100, 101, 102, 103, 104};

int BandPosition(uint32_t band) {
  for (size_t i = 0; i < std::size(kBandOrder); ++i)
    if (kBandOrder[i] == band) return static_cast<int>(i);
  return static_cast<int>(std::size(kBandOrder));
}

// Channel plans.
constexpr int16_t kA5[] = {34, 36, 38, 40, 44, 46, 48, 52, 56, 60, 64, 100, 104, 108,
                           112, 116, 120, 124, 128, 132, 136, 140, 149, 153, 157, 161, 165};
constexpr int16_t kT5[] = {42, 50, 58, 152, 160};
constexpr int16_t kHigh40[] = {36, 44, 52, 60, 100, 108, 116, 124, 132, 149, 157};
constexpr int16_t kLow40[] = {40, 48, 56, 64, 104, 112, 120, 128, 136, 153, 161};

template <size_t N>
bool In(const int16_t (&plan)[N], int16_t number) {
  return std::find(std::begin(plan), std::end(plan), number) != std::end(plan);
}
bool InRange(int16_t number, int16_t first, int16_t last) { return number >= first && number <= last; }
bool InG24(int16_t number) { return InRange(number, 1, 14); }
bool InN5(int16_t number) { return In(kA5, number) && number != 34 && number != 38 && number != 46; }

// The label's scan: "%d - %u" from its start, as a C library scan would
// read it. Each conversion stores only if it read digits.
struct LabelScan {
  std::u16string_view text;
  size_t at = 0;

  void SkipSpace() {
    while (at < text.size() && (text[at] == u' ' || (text[at] >= u'\t' && text[at] <= u'\r'))) ++at;
  }
  // An optionally signed decimal number; false without digits.
  bool Number(int64_t& value) {
    SkipSpace();
    size_t p = at;
    bool negative = false;
    if (p < text.size() && (text[p] == u'+' || text[p] == u'-')) negative = text[p++] == u'-';
    if (p >= text.size() || text[p] < u'0' || text[p] > u'9') return false;
    uint64_t magnitude = 0;
    for (; p < text.size() && text[p] >= u'0' && text[p] <= u'9'; ++p)
      magnitude = std::min<uint64_t>(magnitude * 10 + (text[p] - u'0'), uint64_t{1} << 40);
    at = p;
    value = negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
    return true;
  }
  bool Literal(char16_t c) {
    if (at >= text.size() || text[at] != c) return false;
    ++at;
    return true;
  }
};

}  // namespace

const char16_t* GetBandName(uint32_t band, int16_t channel) {
  switch (band) {
    case kBandAll: return u"all";
    case kBandB: return u"b";
    case kBandA: return u"a";
    case kBandBG: return u"bg";
    case kBandN: return u"n";
    case kBandAT: return u"at";
    case kBandGT: return u"gt";
    case kBandSG: return u"sg";
    case kBandBps1: return u"BPS 1MHz ChBw";
    case kBandBps5: return u"BPS 5MHz ChBw";
    case kBandBps10: return u"BPS 10MHz ChBw";
    case kBandBps15: return u"BPS 15MHz ChBw";
    case kBandBps20: return u"BPS 20MHz ChBw";
    case kBandN20:
      if (InRange(channel, 1, 14)) return u"bgn";
      if (InRange(channel, 30, 165)) return u"an";
      return u"n20";
    case kBandN40: return u"n40";
    case kBandN40Low: return u"n40l";
    case kBandN40High: return u"n40h";
    default: break;
  }
  static constexpr const char16_t* kUser[] = {u"u1", u"u2", u"u3", u"u4", u"u5", u"u6", u"u7", u"u8", u"u9"};
  if (band >= 201 && band <= 209) return kUser[band - 201];
  return u"";
}

uint32_t ParseBandName(std::u16string_view text) {
  for (const BandText& t : kBandTexts)
    if (text == t.text) return t.band;
  if (text.size() == 2 && text[0] == u'u' && text[1] >= u'1' && text[1] <= u'9') return 200 + (text[1] - u'0');
  return kBandNone;
}

void FormatChannel(const SWirelessChannel& channel, char16_t* buffer) {
  if (!buffer) return;
  const int number = channel.Channel;
  const unsigned frequency = channel.Frequency;
  const uint32_t band = channel.Band;
  const std::u16string_view name = GetBandName(band, channel.Channel);
  char text[kChannelLabelLength];
  int n;
  if (name.empty())
    n = std::snprintf(text, sizeof text, "%d - %u MHz", number, frequency);
  else if (band >= kBandBps1 && band <= kBandBps20 && number % 10 != 0)
    n = std::snprintf(text, sizeof text, "%d - %u.5 MHz (", number, frequency);
  else
    n = std::snprintf(text, sizeof text, "%d - %u MHz (", number, frequency);
  // Every character of a label is ASCII: the widening is one to one.
  size_t used = std::min<size_t>(static_cast<size_t>(std::max(n, 0)), kChannelLabelLength - 1);
  for (size_t i = 0; i < used; ++i) buffer[i] = static_cast<char16_t>(static_cast<unsigned char>(text[i]));
  if (!name.empty()) {
    for (char16_t c : name)
      if (used < kChannelLabelLength - 2) buffer[used++] = c;
    buffer[used++] = u')';
  }
  buffer[used] = u'\0';
}

std::u16string FormatChannel(const SWirelessChannel& channel) {
  char16_t buffer[kChannelLabelLength];
  FormatChannel(channel, buffer);
  return buffer;
}

SWirelessChannel ParseChannel(std::u16string_view label) {
  SWirelessChannel channel{0, 0, kBandNone};
  LabelScan scan{label};
  int64_t number = 0, frequency = 0;
  if (scan.Number(number)) {
    channel.Channel = static_cast<int16_t>(static_cast<int32_t>(number));
    scan.SkipSpace();
    if (scan.Literal(u'-') && scan.Number(frequency)) channel.Frequency = static_cast<uint32_t>(frequency);
  }
  std::u16string_view band = label;
  const size_t close = label.rfind(u')');
  if (close != std::u16string_view::npos) {
    const size_t open = label.rfind(u'(', close);
    if (open != std::u16string_view::npos) band = label.substr(open + 1, close - open - 1);
  }
  channel.Band = ParseBandName(band);
  return channel;
}

int CompareBands(uint32_t a, uint32_t b) {
  if (a == b) return 0;
  return BandPosition(a) - BandPosition(b);
}

SWirelessChannel MakeChannel(uint32_t band, int16_t number, bool primary) {
  SWirelessChannel channel{number, 0, band};
  const int32_t n = number;
  switch (band) {
    case kBandNone:
    case kBandB:
    case kBandBG:
    case kBandGT:
    case kBandSG: channel.Frequency = static_cast<uint32_t>(2407 + 5 * n); break;
    case kBandA:
    case kBandAT: channel.Frequency = static_cast<uint32_t>(5000 + 5 * n); break;
    case kBandAll:
    case kBandN20:
      if (n <= 14)
        channel.Frequency = static_cast<uint32_t>(2407 + 5 * n);
      else if (n >= 30 && n <= 165)
        channel.Frequency = static_cast<uint32_t>(5000 + 5 * n);
      break;
    case kBandBps5:
    case kBandBps10:
    case kBandBps20: channel.Frequency = static_cast<uint32_t>(5 * (988 + n / 10)); break;
    case kBandN40High:
    case kBandN40Low: {
      // Each pair has its admissible primaries and the base of their band.
      const bool high = band == kBandN40High;
      int32_t base = 0;
      if (high ? n >= 1 && n <= 9 : n >= 5 && n <= 13)
        base = 2407;
      else if (high ? n >= 36 && In(kHigh40, number) : n >= 37 && In(kLow40, number))
        base = 5000;
      else
        break;
      const int32_t first = base + 5 * n;
      // The centre of the pair lies 10 MHz towards the secondary channel.
      channel.Frequency = static_cast<uint32_t>(primary ? first : first + (high ? 10 : -10));
      break;
    }
    default: break;
  }
  return channel;
}

SWirelessChannel MakeLegacyChannel(int32_t number) {
  SWirelessChannel channel{static_cast<int16_t>(number), 0, kBandBG};
  if (number <= 14) {
    channel.Frequency = static_cast<uint32_t>(2407 + 5 * int64_t{number});
    return channel;
  }
  channel.Frequency = static_cast<uint32_t>(5000 + 5 * int64_t{number});
  channel.Band = number <= 0x7FFF && In(kT5, static_cast<int16_t>(number)) ? kBandAT : kBandA;
  return channel;
}

bool IsChannelInBand(uint32_t band, int16_t number) {
  switch (band) {
    case kBandAll: return InG24(number) || In(kA5, number) || In(kT5, number);
    case kBandNone:
    case kBandB:
    case kBandBG:
    case kBandGT:
    case kBandSG: return InG24(number);
    case kBandA: return In(kA5, number) || In(kT5, number);
    case kBandN: return InG24(number) || InN5(number);
    case kBandAT: return In(kT5, number);
    case kBandN20: return InG24(number) || In(kA5, number);
    case kBandN40:
      return InRange(number, 1, 7) || In(kHigh40, number) || InRange(number, 5, 11) || In(kLow40, number);
    case kBandN40Low: return InRange(number, 5, 11) || In(kLow40, number);
    case kBandN40High: return InRange(number, 1, 7) || In(kHigh40, number);
    default: return false;
  }
}

std::string FormatDataRate(uint32_t halfMegabits) {
  std::string text = std::to_string(halfMegabits >> 1);
  if (halfMegabits & 1) text += ".5";
  return text;
}

int CWirelessChannelFreqComparator::CompareChannels(const SWirelessChannel& a, const SWirelessChannel& b) noexcept {
  if (a.Channel != b.Channel) return int{a.Channel} - int{b.Channel};
  const auto frequency = static_cast<int32_t>(a.Frequency - b.Frequency);
  if (frequency != 0) return frequency;
  return CompareBands(a.Band, b.Band);
}

int CWirelessChannelFreqComparator::Compare(const void* a, const void* b, uint32_t, uint32_t) const {
  SWirelessChannel x, y;
  std::memcpy(&x, a, sizeof x);
  std::memcpy(&y, b, sizeof y);
  return CompareChannels(x, y);
}

bool CWirelessChannelFreqComparator::Equal(const void* a, const void* b, uint32_t sa, uint32_t sb) const {
  return Compare(a, b, sa, sb) == 0;
}

bool ChannelTableLess::operator()(const SWirelessChannel& a, const SWirelessChannel& b) const noexcept {
  if (a.Frequency != b.Frequency) return a.Frequency < b.Frequency;
  if (a.Channel != b.Channel) return a.Channel < b.Channel;
  return CompareBands(a.Band, b.Band) < 0;
}

}  // namespace zemo
