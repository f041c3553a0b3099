#include "engine/radio_reading.h"

#include <algorithm>
#include <cmath>

#include "wireless/channel_naming.h"

namespace zemo {
namespace {

// Coded bits per subcarrier of each modulation and coding scheme: BPSK 1/2,
// QPSK 1/2 and 3/4, 16-QAM 1/2 and 3/4, 64-QAM 2/3, 3/4 and 5/6, 256-QAM 3/4
// and 5/6, 1024-QAM 3/4 and 5/6.
constexpr double kBitsPerSubcarrier[] = {0.5, 1.0, 1.5, 2.0, 3.0, 4.0, 4.5, 5.0, 6.0, 20.0 / 3.0, 7.5, 25.0 / 3.0};

// Megabits per second to the nearest half megabit, 0 when out of range.
uint16_t HalfMegabits(double megabits) {
  const double half = std::round(megabits * 2.0);
  return half > 0 && half <= 0xFFFF ? static_cast<uint16_t>(half) : 0;
}

// The rate of an OFDM symbol train: subcarriers x bits x streams / symbol time.
uint16_t OfdmRate(uint32_t mcs, uint32_t streams, double subcarriers, double symbolMicroseconds) {
  if (mcs >= std::size(kBitsPerSubcarrier) || streams == 0 || streams > 8) return 0;
  return HalfMegabits(subcarriers * kBitsPerSubcarrier[mcs] * streams / symbolMicroseconds);
}

constexpr int16_t kTurboChannels[] = {42, 50, 58, 152, 160};

uint32_t FiveGhzBand(int16_t number, uint32_t flags) {
  if (flags & (chanflags::kTurbo | chanflags::kStaticTurbo)) return kBandAT;
  return std::find(std::begin(kTurboChannels), std::end(kTurboChannels), number) != std::end(kTurboChannels)
             ? kBandAT
             : kBandA;
}

// The 802.11n bands of radiotap's extended channel, which describe the
// channel's width; 0 when the flags say nothing of it.
uint32_t HtBand(uint32_t flags) {
  if (flags & chanflags::kHt40Up) return kBandN40High;
  if (flags & chanflags::kHt40Down) return kBandN40Low;
  if (flags & chanflags::kHt20) return kBandN20;
  return 0;
}

}  // namespace

BYTE PercentOfDbm(int dbm) noexcept { return static_cast<BYTE>(std::clamp(2 * (dbm + 100), 0, 100)); }

SWirelessChannel ChannelOfFrequency(uint32_t mhz, uint32_t flags) noexcept {
  SWirelessChannel channel{0, mhz, kBandNone};
  const uint32_t ht = HtBand(flags);
  if (mhz == 2484) {
    channel.Channel = 14;
  } else if (mhz >= 2407 && mhz < 2484) {
    channel.Channel = static_cast<int16_t>((mhz - 2407) / 5);
  }
  if (mhz >= 2400 && mhz < 2500) {
    channel.Band = ht ? ht : (flags & (chanflags::kTurbo | chanflags::kStaticTurbo)) ? kBandGT : kBandBG;
    return channel;
  }
  // The public safety band counts its channels in half megahertz steps from 4940.
  if (mhz >= 4940 && mhz <= 4990 && (flags & (chanflags::kHalfRate | chanflags::kQuarterRate))) {
    channel.Channel = static_cast<int16_t>(2 * mhz - 9880);
    channel.Band = (flags & chanflags::kQuarterRate) ? kBandBps5 : kBandBps10;
    return channel;
  }
  if (mhz >= 4900 && mhz < 5000) {
    channel.Channel = static_cast<int16_t>((mhz - 4000) / 5);
    channel.Band = ht ? ht : FiveGhzBand(channel.Channel, flags);
  } else if (mhz >= 5000 && mhz <= 5900) {
    channel.Channel = static_cast<int16_t>((mhz - 5000) / 5);
    channel.Band = ht ? ht : FiveGhzBand(channel.Channel, flags);
  } else if (mhz > 5900 && mhz <= 7125) {
    channel.Channel = static_cast<int16_t>((mhz - 5950) / 5);
  } else if (mhz >= 58320 && mhz <= 70200) {
    channel.Channel = static_cast<int16_t>((mhz - 56160) / 2160);
  }
  return channel;
}

bool ChannelOfNumber(int32_t number, bool fiveGhz, SWirelessChannel* channel) noexcept {
  if (number < 1 || number > 200) return false;
  if (!fiveGhz && number <= 14) {
    *channel = {static_cast<int16_t>(number), number == 14 ? 2484u : 2407u + 5u * uint32_t(number), kBandBG};
    return true;
  }
  *channel = {static_cast<int16_t>(number), 5000u + 5u * uint32_t(number), 0};
  channel->Band = FiveGhzBand(channel->Channel, 0);
  return true;
}

uint16_t HtRate(uint32_t mcs, bool forty, bool shortGi) noexcept {
  const double symbol = shortGi ? 3.6 : 4.0;
  if (mcs == 32) return forty ? HalfMegabits(48.0 * 0.5 / symbol) : 0;  // 40 MHz duplicate
  if (mcs > 31) return 0;  // unequal modulation: no single rate per stream
  return OfdmRate(mcs % 8, mcs / 8 + 1, forty ? 108.0 : 52.0, symbol);
}

uint16_t VhtRate(uint32_t mcs, uint32_t streams, uint32_t bandwidth, bool shortGi) noexcept {
  double subcarriers;
  switch (bandwidth) {
    case 20: subcarriers = 52; break;
    case 40: subcarriers = 108; break;
    case 80: subcarriers = 234; break;
    case 160: subcarriers = 468; break;
    default: return 0;
  }
  if (mcs > 9) return 0;
  return OfdmRate(mcs, streams, subcarriers, shortGi ? 3.6 : 4.0);
}

uint16_t HeRate(uint32_t mcs, uint32_t streams, uint32_t subcarriers, uint32_t gi, bool dcm) noexcept {
  if (subcarriers == 0 || (gi != 8 && gi != 16 && gi != 32)) return 0;
  // Dual carrier modulation sends every bit twice.
  return OfdmRate(mcs, streams, dcm ? subcarriers / 2.0 : subcarriers, 12.8 + gi / 10.0);
}

}  // namespace zemo
