#include "wireless/wireless_signal.h"

#include <cmath>
#include <cstring>

namespace zemo {
namespace {

constexpr int kLeast = -128, kGreatest = 127;

struct PowerTable {
  double mw[kGreatest - kLeast + 1];
  PowerTable() {
    for (int d = kLeast; d <= kGreatest; ++d) mw[d - kLeast] = std::pow(10.0, d / 10.0);
  }
};

}  // namespace

double Milliwatts(int16_t dbm) {
  static const PowerTable s_table;
  return dbm >= kLeast && dbm <= kGreatest ? s_table.mw[dbm - kLeast] : std::pow(10.0, dbm / 10.0);
}

double SignalToNoise(int16_t signalDbm, int16_t noiseDbm) {
  const double a = Milliwatts(signalDbm);
  const double b = Milliwatts(noiseDbm);
  if (a == b) return 0.0;
  if (b == 0.0) return 100.0;
  if (a == 0.0) return -100.0;
  return 10.0 * std::log10(a / b);
}

void UpdateSignal(WirelessSignalStat& stat, int16_t dbm, uint8_t percent) {
  const bool first = stat.Valid == 0;
  stat.Valid = 1;
  stat.Current = percent;
  stat.PercentSum += percent;
  if (first || percent < stat.Min) stat.Min = percent;
  if (first || percent > stat.Max) stat.Max = percent;
  if (dbm == kNoDbm) return;
  stat.PowerSum += Milliwatts(dbm);
  stat.CurrentDBm = dbm;
  if (first || dbm < stat.MinDBm) stat.MinDBm = dbm;
  if (first || dbm > stat.MaxDBm) stat.MaxDBm = dbm;
}

SignalReading MakeReading(uint8_t signalPercent, int16_t signalDbm, uint8_t noisePercent, int16_t noiseDbm) {
  const auto snr = static_cast<int16_t>(static_cast<int32_t>(SignalToNoise(signalDbm, noiseDbm) + 0.5));
  return {signalPercent, noisePercent, signalDbm, noiseDbm, snr};
}

void UpdateSignalSet(WirelessSignalSet& set, const SignalReading& r) {
  UpdateSignal(set.Signal, r.signalDbm, r.signalPercent);
  UpdateSignal(set.RecentSignal, r.signalDbm, r.signalPercent);
  UpdateSignal(set.Noise, r.noiseDbm, r.noisePercent);
  UpdateSignal(set.RecentNoise, r.noiseDbm, r.noisePercent);
  UpdateSignal(set.SNR, r.snr, 0);
  UpdateSignal(set.RecentSNR, r.snr, 0);
  set.RecentCount += 1;
}

void ClearRecentStat(WirelessSignalStat& stat) {
  std::memset(&stat, 0, sizeof stat);
  stat.CurrentDBm = kClearedDbm;
  stat.MinDBm = kClearedDbm;
  stat.MaxDBm = kClearedDbm;
}

void RollSignalSet(WirelessSignalSet& set) {
  set.PreviousSignal = set.RecentSignal;
  set.PreviousNoise = set.RecentNoise;
  set.PreviousSNR = set.RecentSNR;
  ClearRecentStat(set.RecentSignal);
  ClearRecentStat(set.RecentNoise);
  ClearRecentStat(set.RecentSNR);
  if (set.RecentCount <= 1) return;
  set.RecentCount = 1;
  UpdateSignal(set.RecentSignal, set.Signal.CurrentDBm, set.Signal.Current);
  UpdateSignal(set.RecentNoise, set.Noise.CurrentDBm, set.Noise.Current);
  UpdateSignal(set.RecentSNR, set.SNR.CurrentDBm, set.SNR.Current);
}

}  // namespace zemo
