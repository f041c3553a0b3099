#include "cli/wireless_views.h"

#include <cmath>
#include <map>

#include "frame/clsids.h"
#include "platform/strings.h"
#include "wireless/channel_naming.h"
#include "wireless/wireless_interfaces.h"
#include "wireless/wireless_signal.h"

namespace zemo::cli {
namespace {

DbmFigures Figures(int16_t min, int16_t max, double power, uint64_t packets) {
  DbmFigures f;
  if (min == kNoDbm) return f;
  f.min = min;
  f.max = max;
  if (packets) f.average = 10.0 * std::log10(power / static_cast<double>(packets));
  return f;
}

}  // namespace

bool ReadWireless(const Analysis& analysis, WirelessView* view) {
  IZemoStatsContext* context = analysis.Context();
  ComPtr<IWirelessChannelStats> stats;
  if (!context || FAILED(context->GetStats(CLSID_WirelessChannelStats, IWirelessChannelStats::iid, stats.OutVoid())) ||
      !stats)
    return false;
  ULONG count = 0;
  if (FAILED(stats->GetChannelCount(&count))) return false;
  ULONG* rates = nullptr;
  ULONG rateCount = 0;
  if (FAILED(stats->GetDataRates(&rates, &rateCount))) return false;
  const std::vector<ULONG> rateList(rates, rates + rateCount);
  CoTaskMemFree(rates);
  std::vector<DataRateView> byRate;
  for (ULONG r : rateList) byRate.push_back({r, 0, 0});

  for (ULONG i = 0; i < count; ++i) {
    ZemoWirelessChannelStat s{};
    if (FAILED(stats->GetChannelStat(i, &s))) continue;
    const uint64_t packets = s.Counts.Packets;
    view->channels.push_back({s.Channel, ToUtf8(FormatChannel(s.Channel)), packets, s.Counts.Bytes,
                              Figures(s.SignaldBmMin, s.SignaldBmMax, s.SignalPower, packets),
                              Figures(s.NoisedBmMin, s.NoisedBmMax, s.NoisePower, packets)});
    view->packets += packets;
    ZemoWirelessChannelDataRateStat* rows = nullptr;
    ULONG rowCount = 0;
    if (FAILED(stats->GetChannelDataRates(s.Channel, &rows, &rowCount))) continue;
    for (ULONG k = 0; k < rowCount && k < byRate.size(); ++k) {
      byRate[k].packets += rows[k].Packets;
      byRate[k].bytes += rows[k].Bytes;
    }
    CoTaskMemFree(rows);
  }
  for (const DataRateView& r : byRate)
    if (r.packets) view->rates.push_back(r);
  return true;
}

}  // namespace zemo::cli
