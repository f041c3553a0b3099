// RadioReading: what a radio header (radiotap, prism, AVS, PPI) tells of the
// 802.11 frame behind it, and the arithmetic the headers share: channel
// numbers and bands from frequencies, data rates of the HT, VHT and HE
// modulations, and signal percentages.
//
// What a header does not carry stays absent: no channel, rate 0, -127 dBm.
//
// Bands come from the channel, not from the modulation of one frame: a
// 2.4 GHz channel is "bg" whatever rate a frame went at, a 5 GHz channel
// "a" (or "at" for the turbo channels 42, 50, 58, 152, 160). Flags that
// describe the channel itself refine that: turbo gives "gt" or "at", half
// and quarter rate in the 4.9 GHz public safety band its 10 and 5 MHz
// bands, and HT20, HT40 above or below (radiotap's extended channel) the
// 802.11n bands.
#pragma once

#include <cstdint>

#include "frame/packet.h"

namespace zemo {

// Signal percentage: -100 dBm and below is 0 %, -50 dBm and above 100 %,
// linear in between (2 % a dB).
BYTE PercentOfDbm(int dbm) noexcept;

// Channel flags as radiotap writes them (PPI uses the same bits).
namespace chanflags {
inline constexpr uint32_t kTurbo = 0x0010;
inline constexpr uint32_t kTwoGhz = 0x0080;
inline constexpr uint32_t kFiveGhz = 0x0100;
inline constexpr uint32_t kStaticTurbo = 0x2000;
inline constexpr uint32_t kHalfRate = 0x4000;
inline constexpr uint32_t kQuarterRate = 0x8000;
// Of radiotap's extended channel only.
inline constexpr uint32_t kHt20 = 0x10000;
inline constexpr uint32_t kHt40Up = 0x20000;    // secondary channel above the primary
inline constexpr uint32_t kHt40Down = 0x40000;  // secondary channel below
}  // namespace chanflags

// The channel of a centre frequency in MHz and its flags; the number is 0
// for a frequency outside the 2.4, 4.9, 5, 6 and 60 GHz plans.
SWirelessChannel ChannelOfFrequency(uint32_t mhz, uint32_t flags) noexcept;
// The channel of a number alone; fiveGhz for a number the radio reports in
// the 5 GHz band. Numbers outside 1 to 200 give no channel (false).
bool ChannelOfNumber(int32_t number, bool fiveGhz, SWirelessChannel* channel) noexcept;

// Data rates in half megabits per second, rounded to the nearest; 0 when
// the parameters name no rate.
uint16_t HtRate(uint32_t mcs, bool forty, bool shortGi) noexcept;
// bandwidth in MHz: 20, 40, 80 or 160.
uint16_t VhtRate(uint32_t mcs, uint32_t streams, uint32_t bandwidth, bool shortGi) noexcept;
// ru: the data subcarriers of the resource unit; gi in tenths of a microsecond (8, 16, 32).
uint16_t HeRate(uint32_t mcs, uint32_t streams, uint32_t subcarriers, uint32_t gi, bool dcm) noexcept;

// The channel of a frame heard on a channel that nothing names: band 1, none.
inline constexpr SWirelessChannel kUnknownChannel{0, 0, 1};

struct RadioReading {
  uint32_t headerLength = 0;  // bytes of the radio header: where the 802.11 frame starts
  bool known = false;         // the header was recognised and its length is sound
  bool badVersion = false;    // a version of the header the reader does not know
  bool haveChannel = false;
  SWirelessChannel channel = kUnknownChannel;
  uint16_t rate = 0;                  // half Mbit/s; 0 unknown
  int8_t signalDbm = kNoDbmReading;
  int8_t noiseDbm = kNoDbmReading;
  bool fcs = false;      // the frame ends in its 4-byte check sequence
  bool badFcs = false;   // which the radio found wrong
  bool dataPad = false;  // the 802.11 header is padded to 4 bytes before the payload
  uint32_t payloadLinkType = 105;  // what follows the header (PPI may carry another link)
};

// Each reads the header at the start of data (length bytes captured), with
// a bounds check before every read. A header cut short or malformed is read
// as far as it is sound.
RadioReading ReadRadiotap(const uint8_t* data, uint32_t length) noexcept;
RadioReading ReadPrism(const uint8_t* data, uint32_t length) noexcept;
RadioReading ReadAvs(const uint8_t* data, uint32_t length) noexcept;
RadioReading ReadPpi(const uint8_t* data, uint32_t length) noexcept;

// Whether a prism link's frame starts with an AVS header instead (some
// drivers write one under the prism link type).
bool LooksLikeAvs(const uint8_t* data, uint32_t length) noexcept;

}  // namespace zemo
