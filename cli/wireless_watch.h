// What zemostats itself follows of an 802.11 capture beside the module's
// statistics: the protection each access point announces in its beacons and
// probe responses (read by the host's element parser), and the moments a
// station roams from one access point to another.
//
// A station's access point is the BSSID of the latest data frame it sent to
// the distribution system, received from it, or of a successful
// (re)association response it received; a roam is that BSSID changing, at
// the time of the frame that changed it. This is the rule of the node
// statistics' roaming count, so the events of a station number its count.
#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "frame/packet.h"

namespace zemo::cli {

class WirelessWatch {
 public:
  using Mac = std::array<uint8_t, 6>;

  struct Protection {
    bool privacy = false;  // the capability's Privacy bit
    bool rsn = false;
    bool wpa = false;
  };
  struct Roam {
    ZemoTime time;
    Mac station, from, to;
  };

  // One decoded 802.11 packet.
  void Observe(IPacket* packet);

  // What an access point's beacons and probe responses announced; null if
  // none was seen.
  const Protection* ProtectionOf(const Mac& bssid) const;
  const std::vector<Roam>& Roams() const noexcept { return m_roams; }

 private:
  struct Last {
    Mac bssid;
    ZemoTime time;
  };
  std::map<Mac, Protection> m_protection;
  std::map<Mac, Last> m_last;
  std::vector<Roam> m_roams;
};

// "WPA2", "WPA2/WPA", "WPA", "WEP" or "open".
std::string ProtectionText(const WirelessWatch::Protection& p);

}  // namespace zemo::cli
