// What the report says of an 802.11 capture's nodes: its access points,
// stations and networks, read from WirelessNodeStats2, with the protection
// each access point announced (WirelessWatch).
//
// A network name is shown as text where it is printable (UTF-8 included)
// and escaped where it is not: "\xHH" for each byte that is no printable
// character, "\\" for a backslash. A network whose name was never heard
// (a hidden one among them) has an empty name.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/analysis.h"
#include "cli/wireless_views.h"
#include "cli/wireless_watch.h"

namespace zemo::cli {

struct AccessPointView {
  std::string bssid, network, channel, protection;
  uint32_t stations = 0;
  uint64_t packetsSent = 0, packetsReceived = 0, bytes = 0;
  std::optional<int> signalMin, signalMax;
};

struct StationView {
  std::string address, accessPoint, network;
  uint64_t packetsSent = 0, packetsReceived = 0, bytes = 0;
  std::optional<int> signalMin, signalMax;
  uint32_t roams = 0;
};

struct NetworkView {
  std::string name;
  uint32_t accessPoints = 0, stations = 0;
};

struct WirelessNodesView {
  std::vector<AccessPointView> accessPoints;  // in order of first sight
  std::vector<StationView> stations;
  std::vector<NetworkView> networks;
};

// False when the context has no second-generation node statistics.
bool ReadWirelessNodes(const Analysis& analysis, const WirelessWatch* watch, WirelessNodesView* view);

// A name's bytes as text, escaped where they are not printable.
std::string EscapedName(std::string_view bytes);

// A roam of the JSON "events".
nlohmann::ordered_json RoamJson(const WirelessWatch::Roam& roam);

}  // namespace zemo::cli
