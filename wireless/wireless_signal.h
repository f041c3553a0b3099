// Signal and noise figures: one packet's readings folded into a
// WirelessSignalStat or a whole WirelessSignalSet, and the roll of a set's
// running interval.
//
// A dBm reading of -127 is no reading: it counts in the percent figures and
// leaves the dBm figures and the power sum alone.
#pragma once

#include "wireless/channel_records.h"

namespace zemo {

inline constexpr int16_t kNoDbm = -127;
// The dBm figures of a cleared running interval.
inline constexpr int16_t kClearedDbm = -5;

// One packet's readings, and the ratio of its signal to its noise in dB as
// a signal set records it: rounded half up, truncated toward zero (-3.7 is
// -3), cut to 16 bits.
struct SignalReading {
  uint8_t signalPercent = 0;
  uint8_t noisePercent = 0;
  int16_t signalDbm = kNoDbm;
  int16_t noiseDbm = kNoDbm;
  int16_t snr = 0;
};
SignalReading MakeReading(uint8_t signalPercent, int16_t signalDbm, uint8_t noisePercent, int16_t noiseDbm);

// 10^(dBm / 10): the power of a reading in milliwatts. The readings of a
// packet (-128 to 127 dBm) come from a table made once.
double Milliwatts(int16_t dbm);

// 10 log10 of the ratio of the two powers; 0 for equal readings.
double SignalToNoise(int16_t signalDbm, int16_t noiseDbm);

void UpdateSignal(WirelessSignalStat& stat, int16_t dbm, uint8_t percent);
// Signal, noise and their ratio, all-time and running, and the running count.
void UpdateSignalSet(WirelessSignalSet& set, const SignalReading& reading);

// Every byte 0 but the three dBm figures, which become kClearedDbm.
void ClearRecentStat(WirelessSignalStat& stat);
// The running interval becomes the previous one; a new one starts seeded
// with the current reading when the old one held more than one sample.
void RollSignalSet(WirelessSignalSet& set);

}  // namespace zemo
