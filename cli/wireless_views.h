// An 802.11 capture's radio channels and data rates as the report gives
// them, read from WirelessChannelStats (the first generation, whose -127
// tells a figure without any reading).
//
// A channel's signal and noise are in dBm: the least and greatest reading,
// and the average power over the channel's packets (10 log10 of the mean of
// 10^(dBm / 10)), absent when no packet of the channel had a reading.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/analysis.h"
#include "wireless/channel_records.h"

namespace zemo::cli {

struct DbmFigures {
  std::optional<int> min, max;
  std::optional<double> average;
};

struct ChannelView {
  SWirelessChannel channel;
  std::string label;  // as FormatChannel writes it
  uint64_t packets, bytes;
  DbmFigures signal, noise;
};

struct DataRateView {
  uint32_t halfMegabits;
  uint64_t packets, bytes;
};

struct WirelessView {
  std::vector<ChannelView> channels;  // ascending channel number
  std::vector<DataRateView> rates;    // ascending rate, all channels together
  uint64_t packets = 0;               // of every channel
};

// False when the context has no channel statistics.
bool ReadWireless(const Analysis& analysis, WirelessView* view);

}  // namespace zemo::cli
