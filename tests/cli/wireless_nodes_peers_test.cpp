// zemostats's 802.11 nodes against tshark on every shared 802.11 capture:
// the frames each access point and station sent and received (wlan.ta,
// wlan.ra), the network name of each access point (wlan.ssid of the latest
// beacon or probe response of its BSSID that names one) and the protection
// its beacons and probe responses announce (an RSN element, the WPA vendor
// element, the Privacy capability).
//
// Where zemostats counts otherwise on purpose:
// - a frame the decoder marks as an error (a bad checksum) counts in no
//   node, where tshark's addresses still stand;
// - a name that cannot name a network (a lone blank, or 32 bytes of which
//   any is no printable character: a hidden network's padding) leaves the
//   name as it was;
// - a name is shown escaped where it is not printable UTF-8.
// It also checks that the roams in the JSON "events" are as many as the
// stations' roaming counts.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

#include <nlohmann/json.hpp>

#include "cli/capture_source.h"
#include "cli/cli_support.h"
#include "cli/wireless_node_views.h"

namespace {

using nlohmann::json;
using namespace zemo::testing_cli;
namespace fs = std::filesystem;

constexpr int kWirelessLinks[] = {105, 119, 127, 163, 192};

// tshark writes a name's bytes in hexadecimal; a text that is not (an older
// tshark's) stands as it is.
std::string Unhex(const std::string& hex) {
  if (hex.size() % 2 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return hex;
  std::string out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    out += static_cast<char>(std::strtol(hex.substr(i, 2).c_str(), nullptr, 16));
  return out;
}

bool Usable(const std::string& name) {
  if (name.empty() || name == " ") return false;
  if (name.size() == 32)
    for (char c : name)
      if (static_cast<unsigned char>(c) < 0x21 || static_cast<unsigned char>(c) > 0x7E) return false;
  return true;
}

struct Peer {
  std::map<std::string, uint64_t> sent, received;
  std::map<std::string, std::string> name;  // by BSSID
  std::map<std::string, zemo::cli::WirelessWatch::Protection> protection;
};

Peer FromTshark(const std::string& path) {
  Peer p;
  for (const std::vector<std::string>& c :
       TsharkFields(path, {"wlan.ta", "wlan.ra", "wlan.bssid", "wlan.fc.type_subtype", "wlan.ssid", "wlan.rsn.version",
                           "wlan.wfa.ie.wpa.version", "wlan.fixed.capabilities.privacy"})) {
    if (!c[0].empty()) p.sent[c[0]] += 1;
    if (!c[1].empty()) p.received[c[1]] += 1;
    const long subtype = std::strtol(c[3].c_str(), nullptr, 0);
    if ((subtype != 8 && subtype != 5) || c[2].empty()) continue;  // beacons and probe responses
    const std::string first = c[4].substr(0, c[4].find(','));
    const std::string ssid = first == "<MISSING>" ? std::string() : Unhex(first);
    const std::string clipped = ssid.substr(0, 32);
    if (!c[4].empty() && Usable(clipped)) p.name[c[2]] = zemo::cli::EscapedName(clipped);
    auto& protection = p.protection[c[2]];
    protection.rsn = protection.rsn || !c[5].empty();
    protection.wpa = protection.wpa || !c[6].empty();
    protection.privacy = protection.privacy || c[7] == "1" || c[7] == "True";
  }
  return p;
}

TEST(Peers, AccessPointsStationsAndNetworksOfEvery80211CaptureAgainstTshark) {
  SKIP_WITHOUT_SHARED_CAPTURES();
  SKIP_WITHOUT_PEERS("tshark");
  const std::vector<std::string> captures =
      SharedCaptures(std::vector<int>(std::begin(kWirelessLinks), std::end(kWirelessLinks)));
  ASSERT_FALSE(captures.empty());
  std::atomic<size_t> nodes{0};
  CheckEachFile(captures, [&](size_t, const std::string& path) {
    const RunResult run = RunZemostats({"analyze", "--json", "--threads", "1", path});
    json doc = json::parse(run.out, nullptr, false);
    std::ostringstream why;
    if (doc.is_discarded() || !doc.contains("report")) {
      why << " no report in zemostats's document (exit " << run.exitCode << ")";
    } else {
      // A capture without access points and stations has no such tables.
      const json none = {{"rows", json::array()}};
      const json& report = doc["report"];
      const json& aps = report.contains("access_points") ? report["access_points"] : none;
      const json& stations = report.contains("stations") ? report["stations"] : none;
      const Peer peer = FromTshark(path);
      auto counts = [&](const std::string& address, uint64_t sent, uint64_t received) {
        const auto s = peer.sent.find(address), r = peer.received.find(address);
        const uint64_t ts = s == peer.sent.end() ? 0 : s->second, tr = r == peer.received.end() ? 0 : r->second;
        if (ts != sent || tr != received)
          why << " " << address << ": sent " << sent << " (tshark " << ts << "), received " << received
              << " (tshark " << tr << ");";
        ++nodes;
      };
      for (const json& row : aps["rows"]) {
        const std::string bssid = row["bssid"];
        counts(bssid, row["packets_sent"], row["packets_received"]);
        const auto name = peer.name.find(bssid);
        const json& network = row["network"];
        const std::string mine = network.is_null() ? "" : network.get<std::string>();
        const std::string theirs = name == peer.name.end() ? "" : name->second;
        if (mine != theirs) why << " " << bssid << ": network \"" << mine << "\" (tshark \"" << theirs << "\");";
        const auto announced = peer.protection.find(bssid);
        const std::string expected =
            announced == peer.protection.end() ? "-" : zemo::cli::ProtectionText(announced->second);
        const std::string protection = row["protection"];
        if (expected != protection) why << " " << bssid << ": protection " << protection << " (tshark " << expected << ");";
      }
      uint64_t roams = 0, events = 0;
      for (const json& row : stations["rows"]) {
        counts(row["address"], row["packets_sent"],
               row["packets_received"]);
        roams += row["roams"].get<uint64_t>();
      }
      if (doc.contains("events"))
        for (const json& e : doc["events"]) events += e.value("kind", "") == "roam";
      if (roams != events) why << " " << events << " roaming events for " << roams << " roams;";
    }
    return why.str();
  });
  std::printf("compared %zu nodes of %zu 802.11 captures against tshark\n", nodes.load(), captures.size());
}

}  // namespace
