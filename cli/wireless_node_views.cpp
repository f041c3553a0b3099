#include "cli/wireless_node_views.h"

#include <cstdio>
#include <cstring>

#include "cli/report_model.h"
#include "frame/clsids.h"
#include "identity/identity_interfaces.h"
#include "platform/strings.h"
#include "wireless/channel_naming.h"
#include "wireless/node_records.h"
#include "wireless/wireless_node_interfaces.h"
#include "wireless/wireless_signal.h"

namespace zemo::cli {
namespace {

using Json = nlohmann::ordered_json;
constexpr ULONG kNone = 0xFFFFFFFFu;

std::string MacText(const uint8_t* b) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
  return text;
}

std::string NameOf(const ZemoWirelessNodeStat2& s) {
  return EscapedName(std::string_view(reinterpret_cast<const char*>(s.ESSID), std::min<size_t>(s.ESSIDLength, 32)));
}

void Signal(const ZemoWirelessNodeStat2& s, std::optional<int>* min, std::optional<int>* max) {
  const int16_t least = s.Signal.MinDBm, most = s.Signal.MaxDBm;
  if (least == kNoDbm) return;
  *min = least;
  *max = most;
}


// The length of the UTF-8 sequence of a printable character at s, or 0.
size_t PrintableSequence(std::string_view s) {
  const auto c = static_cast<uint8_t>(s[0]);
  if (c >= 0x20 && c < 0x7F) return 1;
  size_t n = c >= 0xF0 && c < 0xF5 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 0;
  if (!n || n > s.size()) return 0;
  uint32_t code = c & (0x7F >> n);
  for (size_t i = 1; i < n; ++i) {
    const auto k = static_cast<uint8_t>(s[i]);
    if ((k & 0xC0) != 0x80) return 0;
    code = code << 6 | (k & 0x3F);
  }
  // Overlong forms, surrogates, C1 controls and the unused range are no text.
  const uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  if (code < least[n] || (code >= 0xD800 && code < 0xE000) || code > 0x10FFFF || code < 0xA0) return 0;
  return n;
}

}  // namespace

std::string EscapedName(std::string_view bytes) {
  std::string out;
  while (!bytes.empty()) {
    if (bytes[0] == '\\') {
      out += "\\\\";
      bytes.remove_prefix(1);
    } else if (const size_t n = PrintableSequence(bytes)) {
      out.append(bytes.substr(0, n));
      bytes.remove_prefix(n);
    } else {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<uint8_t>(bytes[0]));
      out += hex;
      bytes.remove_prefix(1);
    }
  }
  return out;
}

bool ReadWirelessNodes(const Analysis& analysis, const WirelessWatch* watch, WirelessNodesView* view) {
  IZemoStatsContext* context = analysis.Context();
  ComPtr<IWirelessNodeStats2> stats;
  ComPtr<IEntityTable> entities;
  if (!context || FAILED(context->GetStats(CLSID_WirelessNodeStats2, IWirelessNodeStats2::iid, stats.OutVoid())) ||
      !stats || FAILED(stats->GetEntityTable(entities.ReleaseAndGetAddressOf())))
    return false;
  ULONG count = 0, unknownBSSID = kNone, unknownESSID = kNone;
  if (FAILED(stats->GetNodeCount(&count))) return false;
  if (count == 0) return true;
  stats->GetUnknownBSSIDIndex(&unknownBSSID);
  stats->GetUnknownESSIDIndex(&unknownESSID);
  std::vector<ZemoWirelessNodeStat2> nodes(count);
  std::vector<std::string> addresses(count);
  for (ULONG i = 0; i < count; ++i) {
    if (FAILED(stats->GetNodeStat(i, &nodes[i]))) return false;
    MediaSpec spec{};
    if (nodes[i].Type != kNodeTypeESSID && SUCCEEDED(entities->GetEntity(nodes[i].EntityIndex, &spec, nullptr)))
      addresses[i] = MacText(spec.fData);
  }
  auto isAccessPoint = [&](ULONG i) { return i != unknownBSSID && nodes[i].Type == kNodeTypeAP; };
  auto isStation = [&](ULONG i) { return nodes[i].Type == kNodeTypeSTA || nodes[i].Type == kNodeTypeAdHoc; };

  std::vector<uint32_t> stationsOf(count, 0);
  for (ULONG i = 0; i < count; ++i) {
    if (!isStation(i)) continue;
    const ZemoWirelessNodeStat2& s = nodes[i];
    StationView st;
    st.address = addresses[i];
    const ULONG ap = s.RecentBSSIDStatIndex;
    if (ap < count && ap != unknownBSSID && ap != i) {
      st.accessPoint = addresses[ap];
      if (nodes[ap].RecentESSIDStatIndex != unknownESSID) st.network = NameOf(nodes[ap]);
      stationsOf[ap] += 1;
    }
    st.packetsSent = s.PacketsSent;
    st.packetsReceived = s.PacketsReceived;
    st.bytes = s.BytesSent + s.BytesReceived;
    Signal(s, &st.signalMin, &st.signalMax);
    st.roams = s.RoamCount;
    view->stations.push_back(std::move(st));
  }
  std::vector<uint32_t> apsOfNetwork(count, 0), stationsOfNetwork(count, 0);
  for (ULONG i = 0; i < count; ++i) {
    if (!isAccessPoint(i)) continue;
    const ZemoWirelessNodeStat2& s = nodes[i];
    AccessPointView ap;
    ap.bssid = addresses[i];
    if (s.RecentESSIDStatIndex != unknownESSID) ap.network = NameOf(s);
    ap.channel = s.APChannel.Channel ? ToUtf8(FormatChannel(s.APChannel)) : "-";
    WirelessWatch::Mac mac{};
    MediaSpec spec{};
    const WirelessWatch::Protection* p =
        watch && SUCCEEDED(entities->GetEntity(s.EntityIndex, &spec, nullptr))
            ? (std::memcpy(mac.data(), spec.fData, 6), watch->ProtectionOf(mac))
            : nullptr;
    ap.protection = p ? ProtectionText(*p) : "-";
    ap.stations = stationsOf[i];
    ap.packetsSent = s.PacketsSent;
    ap.packetsReceived = s.PacketsReceived;
    ap.bytes = s.BytesSent + s.BytesReceived;
    Signal(s, &ap.signalMin, &ap.signalMax);
    view->accessPoints.push_back(std::move(ap));
    const ULONG network = s.RecentESSIDStatIndex;
    if (network < count && network != unknownESSID) {
      apsOfNetwork[network] += 1;
      stationsOfNetwork[network] += stationsOf[i];
    }
  }
  for (ULONG i = 0; i < count; ++i)
    if (nodes[i].Type == kNodeTypeESSID && i != unknownESSID)
      view->networks.push_back({NameOf(nodes[i]), apsOfNetwork[i], stationsOfNetwork[i]});
  return true;
}

Json RoamJson(const WirelessWatch::Roam& roam) {
  return Json{{"time", IsoTime(roam.time)},
              {"kind", "roam"},
              {"station", MacText(roam.station.data())},
              {"from", MacText(roam.from.data())},
              {"to", MacText(roam.to.data())}};
}

}  // namespace zemo::cli
