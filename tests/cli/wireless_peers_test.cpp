// zemostats against tshark on every shared 802.11 capture with a radio
// header (radiotap, prism, AVS, PPI): the packets and bytes of each channel,
// by frequency (radiotap.channel.freq, wlan_radio.frequency) or, where
// tshark gives none, by channel number (wlan_radio.channel); the packets at
// each data rate (wlan_radio.data_rate, to the nearest half megabit); and
// the least and greatest signal of each channel (wlan_radio.signal_dbm).
//
// Where zemostats counts otherwise on purpose:
// - a frame longer than 65535 bytes counts as 65535, as everywhere in the
//   tables, whose packet lengths are 16-bit;
// - a radiotap header with a signal for each antenna besides the frame's
//   own: zemostats takes the first, the frame's, where tshark's signal is
//   the last, one antenna's; the first of radiotap.dbm_antsignal is compared;
// - prism: tshark takes the RSSI item for dBm even where it holds no power
//   (0 dBm); zemostats takes only values that can be a received power, so
//   the signal of prism captures is not compared.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>

#include <nlohmann/json.hpp>

#include "cli/capture_source.h"
#include "cli/cli_support.h"

namespace {

using nlohmann::json;
using namespace zemo::testing_cli;
namespace fs = std::filesystem;

constexpr int kPrism = 119;
constexpr int kRadioLinks[] = {kPrism, 127, 163, 192};

// The first of a field's values ("-38,-38,-44"), if any.
std::optional<long> First(const std::string& cell) {
  if (cell.empty()) return std::nullopt;
  return std::strtol(cell.c_str(), nullptr, 10);
}

// A channel as both sides can name it: "F2437", "C7", or "-" for none.
struct Group {
  uint64_t packets = 0, bytes = 0;
  std::optional<long> minSignal, maxSignal;
  void Signal(std::optional<long> min, std::optional<long> max) {
    if (!min) return;
    minSignal = minSignal ? std::min(*minSignal, *min) : *min;
    maxSignal = maxSignal ? std::max(*maxSignal, *max) : *max;
  }
};

struct Figures {
  std::map<std::string, Group> channels;
  std::map<long, uint64_t> rates;  // half megabits: packets
};

Figures FromTshark(const std::string& path) {
  Figures f;
  for (const std::vector<std::string>& c :
       TsharkFields(path, {"frame.len", "radiotap.channel.freq", "wlan_radio.frequency", "wlan_radio.channel",
                           "wlan_radio.data_rate", "radiotap.dbm_antsignal", "wlan_radio.signal_dbm"})) {
    const auto frequency = First(c[1]) ? First(c[1]) : First(c[2]);
    const std::string key = frequency ? "F" + std::to_string(*frequency)
                                      : First(c[3]) ? "C" + std::to_string(*First(c[3])) : "-";
    Group& g = f.channels[key];
    g.packets += 1;
    g.bytes += std::min<uint64_t>(std::strtoull(c[0].c_str(), nullptr, 10), 0xFFFF);
    const auto signal = First(c[5]) ? First(c[5]) : First(c[6]);
    g.Signal(signal, signal);
    f.rates[c[4].empty() ? 0 : std::lround(std::strtod(c[4].c_str(), nullptr) * 2)] += 1;
  }
  return f;
}

// zemostats's channels named as tshark names them: by frequency where
// tshark knows that frequency, else by number.
Figures FromZemostats(const json& doc, const Figures& peer) {
  Figures f;
  for (const json& row : doc["report"]["channels"]["rows"]) {
    const long number = row["number"].is_null() ? 0 : row["number"].get<long>();
    const long frequency = row["frequency_mhz"];
    const std::string byFrequency = "F" + std::to_string(frequency), byNumber = "C" + std::to_string(number);
    const std::string key = frequency && (peer.channels.count(byFrequency) || !number) ? byFrequency
                            : number                                                    ? byNumber
                                                                                        : "-";
    Group& g = f.channels[key];
    g.packets += row["packets"].get<uint64_t>();
    g.bytes += row["bytes"].get<uint64_t>();
    auto dbm = [](const json& v) { return v.is_null() ? std::nullopt : std::optional<long>(v.get<long>()); };
    g.Signal(dbm(row["signal_min_dbm"]), dbm(row["signal_max_dbm"]));
  }
  for (const json& row : doc["report"]["data_rates"]["rows"])
    f.rates[row["half_megabits"].get<long>()] += row["packets"].get<uint64_t>();
  return f;
}

TEST(Peers, ChannelsAndDataRatesOfEvery80211CaptureAgainstTshark) {
  SKIP_WITHOUT_SHARED_CAPTURES();
  SKIP_WITHOUT_PEERS("tshark");
  const std::vector<std::string> captures = SharedCaptures(std::vector<int>(std::begin(kRadioLinks), std::end(kRadioLinks)));
  ASSERT_FALSE(captures.empty());
  CheckEachFile(captures, [](size_t, const std::string& path) {
    const RunResult run = RunZemostats({"analyze", "--json", "--threads", "1", path});
    json doc = json::parse(run.out, nullptr, false);
    if (doc.is_discarded() || !doc["report"].contains("channels"))
      return "no channels in zemostats's document (exit " + std::to_string(run.exitCode) + ")";
    const bool prism = LinkTypeOf(path) == kPrism;
    const Figures peer = FromTshark(path), mine = FromZemostats(doc, peer);
    std::ostringstream why;
    for (const auto& [key, g] : peer.channels) {
      const auto found = mine.channels.find(key);
      const Group z = found == mine.channels.end() ? Group{} : found->second;
      if (z.packets != g.packets || z.bytes != g.bytes)
        why << " channel " << key << ": packets " << z.packets << " (tshark " << g.packets << "), bytes " << z.bytes
            << " (tshark " << g.bytes << ");";
      if (!prism && (z.minSignal != g.minSignal || z.maxSignal != g.maxSignal))
        why << " channel " << key << ": signal " << z.minSignal.value_or(0) << " to " << z.maxSignal.value_or(0)
            << " dBm (tshark " << g.minSignal.value_or(0) << " to " << g.maxSignal.value_or(0) << ");";
    }
    for (const auto& [key, g] : mine.channels)
      if (!peer.channels.count(key)) why << " channel " << key << " that tshark does not have;";
    if (mine.rates != peer.rates) {
      why << " rates (half Mbit/s: packets):";
      for (const auto& [r, n] : mine.rates) why << " " << r << ":" << n;
      why << "; tshark's:";
      for (const auto& [r, n] : peer.rates) why << " " << r << ":" << n;
    }
    return why.str();
  });
  std::printf("compared %zu 802.11 captures with radio headers against tshark\n", captures.size());
}

}  // namespace
