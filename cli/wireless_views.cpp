#include "cli/wireless_views.h"

#include <cmath>
#include <cstdio>
#include <map>

#include "frame/clsids.h"
#include "platform/strings.h"
#include "wireless/channel_naming.h"
#include "wireless/wireless_interfaces.h"
#include "wireless/wireless_signal.h"

namespace zemo::cli {
namespace {

using Json = nlohmann::ordered_json;

DbmFigures Figures(int16_t min, int16_t max, double power, uint64_t packets) {
  DbmFigures f;
  if (min == kNoDbm) return f;
  f.min = min;
  f.max = max;
  if (packets) f.average = 10.0 * std::log10(power / static_cast<double>(packets));
  return f;
}

std::string Fixed(double v, int decimals) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
  return buf;
}

std::string Share(uint64_t part, uint64_t all) { return Fixed(all ? 100.0 * part / all : 0.0, 1) + "%"; }

template <class T>
std::string Text(const std::optional<T>& v, int decimals = 0) {
  if (!v) return "-";
  if constexpr (std::is_integral_v<T>)
    return std::to_string(*v);
  else
    return Fixed(*v, decimals);
}

template <class T>
Json JsonOf(const std::optional<T>& v) {
  return v ? Json(*v) : Json(nullptr);
}

double Percent(uint64_t part, uint64_t all) { return all ? 100.0 * part / all : 0.0; }

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

TextTable ChannelTable(const WirelessView& view) {
  TextTable t{{"Channel", "Packets", "Bytes", "Share", "Signal dBm min", "avg", "max", "Noise dBm min", "avg", "max"},
              {},
              {false, true, true, true, true, true, true, true, true, true}};
  for (const ChannelView& c : view.channels)
    t.rows.push_back({c.label, std::to_string(c.packets), std::to_string(c.bytes), Share(c.packets, view.packets),
                      Text(c.signal.min), Text(c.signal.average, 1), Text(c.signal.max), Text(c.noise.min),
                      Text(c.noise.average, 1), Text(c.noise.max)});
  return t;
}

TextTable DataRateTable(const WirelessView& view) {
  TextTable t{{"Rate", "Packets", "Bytes", "Share"}, {}, {true, true, true, true}};
  for (const DataRateView& r : view.rates)
    t.rows.push_back({r.halfMegabits ? FormatDataRate(r.halfMegabits) + " Mbit/s" : "unknown",
                      std::to_string(r.packets), std::to_string(r.bytes), Share(r.packets, view.packets)});
  return t;
}

Json ChannelJson(const WirelessView& view) {
  Json rows = Json::array();
  for (const ChannelView& c : view.channels)
    rows.push_back(Json::array({c.label, int{c.channel.Channel}, uint32_t{c.channel.Frequency}, uint32_t{c.channel.Band},
                                c.packets, c.bytes,
                                Percent(c.packets, view.packets), JsonOf(c.signal.min), JsonOf(c.signal.average),
                                JsonOf(c.signal.max), JsonOf(c.noise.min), JsonOf(c.noise.average),
                                JsonOf(c.noise.max)}));
  return Json{{"columns",
               Json::array({"Channel", "Number", "Frequency", "Band", "Packets", "Bytes", "Share", "SignalMinDbm", "SignalAvgDbm",
                "SignalMaxDbm", "NoiseMinDbm", "NoiseAvgDbm", "NoiseMaxDbm"})},
              {"rows", std::move(rows)}};
}

Json DataRateJson(const WirelessView& view) {
  Json rows = Json::array();
  for (const DataRateView& r : view.rates)
    rows.push_back(Json::array({r.halfMegabits / 2.0, r.halfMegabits, r.packets, r.bytes, Percent(r.packets, view.packets)}));
  return Json{{"columns", Json::array({"Mbps", "HalfMegabits", "Packets", "Bytes", "Share"})}, {"rows", std::move(rows)}};
}

}  // namespace zemo::cli
