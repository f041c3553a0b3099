// The names of radio channels and data rates: band codes and their texts,
// the label of a channel that users see and trackers store, the frequency
// arithmetic of a channel number, the channel plan of each band, the orders
// in which channels and bands sort, and the text of a data rate.
//
// A label reads "6 - 2437 MHz (bg)": number, centre frequency, and the
// band's name in parentheses when it has one. Labels are wide text; a
// buffer of kChannelLabelLength units holds any of them.
//
// A data rate counts half megabits per second: 22 is 11 Mbit/s, 11 is
// 5.5 Mbit/s.
#pragma once

#include <string>
#include <string_view>

#include "frame/comparators.h"
#include "wireless/wireless_channel.h"

namespace zemo {

// Band codes.
inline constexpr uint32_t kBandAll = 0;
inline constexpr uint32_t kBandNone = 1;  // what any unknown text parses as
inline constexpr uint32_t kBandB = 2;
inline constexpr uint32_t kBandA = 3;
inline constexpr uint32_t kBandBG = 4;
inline constexpr uint32_t kBandN = 6;
inline constexpr uint32_t kBandAT = 7;  // 5 GHz turbo
inline constexpr uint32_t kBandGT = 8;  // 2.4 GHz turbo
inline constexpr uint32_t kBandSG = 9;
inline constexpr uint32_t kBandBps1 = 100;  // 4.9 GHz public safety, by channel bandwidth
inline constexpr uint32_t kBandBps5 = 101;
inline constexpr uint32_t kBandBps10 = 102;
inline constexpr uint32_t kBandBps15 = 103;
inline constexpr uint32_t kBandBps20 = 104;
inline constexpr uint32_t kBandN20 = 300;
inline constexpr uint32_t kBandN40 = 301;
inline constexpr uint32_t kBandN40Low = 302;   // primary above its secondary channel
inline constexpr uint32_t kBandN40High = 303;  // primary below its secondary channel

inline constexpr size_t kChannelLabelLength = 64;

// The band's name, never null; empty for a code without one. The channel
// number matters only for band 300, which is "bgn" on 1 to 14, "an" on 30
// to 165 and "n20" elsewhere.
const char16_t* GetBandName(uint32_t band, int16_t channel);
// The band code of a text, compared whole and case-sensitive; kBandNone for
// any text that names no band.
uint32_t ParseBandName(std::u16string_view text);

// The channel's label into a buffer of kChannelLabelLength units; a null
// buffer does nothing.
void FormatChannel(const SWirelessChannel& channel, char16_t* buffer);
std::u16string FormatChannel(const SWirelessChannel& channel);
// The channel of a label: number and whole megahertz from its start, band
// from the text between its last parentheses (kBandNone without them).
SWirelessChannel ParseChannel(std::u16string_view label);

// Signed order of two bands: 2, 4, 8, 9, 3, 7, 6, then the 802.11n bands,
// then the public safety bands; codes not in that order sort last.
int CompareBands(uint32_t a, uint32_t b);

// A channel of a band with its centre frequency; 0 where the band's
// arithmetic does not give one. For the 40 MHz bands 302 and 303, primary
// gives the primary channel's frequency, else the centre of both.
SWirelessChannel MakeChannel(uint32_t band, int16_t number, bool primary);
// A channel known by its number alone: 2.4 GHz "bg" up to 14, else 5 GHz
// "a", or "at" for the turbo channels.
SWirelessChannel MakeLegacyChannel(int32_t number);
// Whether the band's channel plan holds the number.
bool IsChannelInBand(uint32_t band, int16_t number);

// A data rate in half megabits per second as text: "11", "5.5".
std::string FormatDataRate(uint32_t halfMegabits);

// Channels by number, then frequency, then band.
class CWirelessChannelFreqComparator : public CComparator {
 public:
  static int CompareChannels(const SWirelessChannel& a, const SWirelessChannel& b) noexcept;
  int Compare(const void* a, const void* b, uint32_t, uint32_t) const override;
  bool Equal(const void* a, const void* b, uint32_t, uint32_t) const override;
  CComparator* Clone() const override { return new CWirelessChannelFreqComparator(*this); }
};

// The order of a channel table: by frequency, then number, then band.
struct ChannelTableLess {
  bool operator()(const SWirelessChannel& a, const SWirelessChannel& b) const noexcept;
  template <class Entry>
  bool operator()(const Entry& a, const Entry& b) const noexcept {
    return (*this)(a.Channel, b.Channel);
  }
};

}  // namespace zemo
