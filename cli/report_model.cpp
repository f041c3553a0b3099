#include "cli/report_model.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <map>
#include <memory>
#include <numeric>
#include <optional>

#include "cli/node_views.h"
#include "cli/report.h"
#include "cli/wireless_node_views.h"
#include "cli/wireless_views.h"
#include "engine/proto_specs.h"
#include "frame/clsids.h"
#include "platform/clock.h"
#include "platform/strings.h"
#include "tables/protocol_stats.h"
#include "wireless/channel_naming.h"

namespace zemo::cli {
namespace {

constexpr uint64_t kSecond = 1000000000ull;

double Share(uint64_t part, uint64_t whole) { return whole ? 100.0 * double(part) / double(whole) : 0.0; }

uint64_t CellU64(const VARIANT& cell) {
  switch (cell.vt) {
    case VT_UI8: return cell.ullVal;
    case VT_I8: return cell.llVal < 0 ? 0 : static_cast<uint64_t>(cell.llVal);
    case VT_UI4: case VT_UINT: return cell.ulVal;
    case VT_I4: case VT_INT: return cell.lVal < 0 ? 0 : static_cast<uint64_t>(cell.lVal);
    case VT_UI2: return cell.uiVal;
    case VT_UI1: return cell.bVal;
    case VT_R8: return cell.dblVal < 0 ? 0 : static_cast<uint64_t>(cell.dblVal);
    default: return 0;
  }
}

bool IsNumber(VARTYPE vt) {
  switch (vt) {
    case VT_I2: case VT_I4: case VT_R4: case VT_R8: case VT_I1: case VT_UI1: case VT_UI2: case VT_UI4:
    case VT_I8: case VT_UI8: case VT_INT: case VT_UINT: return true;
    default: return false;
  }
}

Cell CellOf(const DataCellView& v) {
  switch (v.value.vt) {
    case VT_R4: return double(v.value.fltVal);
    case VT_R8: return v.value.dblVal;
    case VT_EMPTY: case VT_NULL: return std::monostate{};
    default: return IsNumber(v.value.vt) ? Cell(CellU64(v.value)) : Cell(CellText(v));
  }
}

// A statistic's result table, kept open while its rows are handed out.
std::shared_ptr<TableReader> OpenTable(const Analysis& analysis, std::string_view name) {
  const StatisticEntry* s = FindStatistic(analysis, name);
  auto table = std::make_shared<TableReader>();
  if (!s || !table->Open(s->stats.Get())) return nullptr;
  return table;
}

// The rows of a table ordered by weight, heaviest first, at most top of
// them; equal weights keep row order. Each weight is read once and only
// the top of the order sorted: a large capture's tables hold hundreds of
// thousands of rows.
template <class Weigh, class Keep>
std::vector<size_t> Heaviest(size_t count, size_t top, Weigh&& weigh, Keep&& keep) {
  std::vector<std::pair<uint64_t, size_t>> weighed;
  for (size_t i = 0; i < count; ++i)
    if (keep(i)) weighed.emplace_back(weigh(i), i);
  auto heavier = [](const auto& a, const auto& b) { return a.first != b.first ? a.first > b.first : a.second < b.second; };
  const size_t n = std::min(top, weighed.size());
  std::partial_sort(weighed.begin(), weighed.begin() + static_cast<std::ptrdiff_t>(n), weighed.end(), heavier);
  std::vector<size_t> order(n);
  for (size_t i = 0; i < n; ++i) order[i] = weighed[i].second;
  return order;
}

const char* SortWords(SortBy sort, bool directed) {
  switch (sort) {
    case SortBy::kPackets: return "packets";
    case SortBy::kSent: return directed ? "bytes sent" : "bytes";
    case SortBy::kReceived: return directed ? "bytes received" : "bytes";
    default: return "bytes";
  }
}

std::string Plural(uint64_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

// ---- Capture ----

std::string LinkTypeText(const CaptureInfo& info) {
  std::string words = info.linkTypeText.empty() ? info.linkTypeName : info.linkTypeText;
  return words + " (" + info.linkTypeName + ", " + std::to_string(info.linkType) + ")";
}

// What the engine counts a saved context's medium as; a run says its link type instead.
std::string MediumWords(const LinkMedium& medium) {
  if (medium.type == 0 && medium.subType == 3) return "802.11 wireless";
  if (medium.type == 0 && medium.subType == 0) return "wired (Ethernet and every other link type but 802.11)";
  return "media type " + std::to_string(medium.type) + ", subtype " + std::to_string(medium.subType);
}

ReportSection CaptureSection(const Analysis& analysis, const CaptureInfo& info) {
  ReportSection s{"capture", "Capture", {}, {}};
  auto fact = [&](std::string key, std::string title, Unit unit, Cell value, std::string detail = "") {
    s.facts.push_back({std::move(key), std::move(title), unit, std::move(value), std::move(detail)});
  };
  const Totals t = ReadTotals(analysis);
  const RunFacts& f = analysis.Facts();
  if (analysis.FromSaves()) {
    // A long series in two lines: the full save and the last delta.
    const std::vector<std::string>& files = info.savedFiles;
    if (!files.empty()) fact("saved", "Saved", Unit::kText, files.front(), "a whole save");
    if (files.size() == 2) fact("delta", "", Unit::kText, files.back(), "a delta");
    if (files.size() > 2)
      fact("deltas", "", Unit::kText, "and " + std::to_string(files.size() - 1) + " deltas, the last " + files.back());
    fact("medium", "Medium", Unit::kText, MediumWords(analysis.Medium()));
    fact("not_saved", "Not saved", Unit::kText, "the link type, the file and the peak rate",
         "a save keeps the statistics alone");
  } else {
    if (info.live)
      fact("interface", "Interface", Unit::kText, info.file);
    for (size_t i = 0; i < info.files.size(); ++i)
      fact("file", i == 0 ? (info.files.size() > 1 ? "Files" : "File") : "", Unit::kText,
           info.files[i] == "-" ? "standard input" : info.files[i]);
    if (info.files.size() > 1) fact("merge", "", Unit::kText, "merged in time order");
    fact("link_type", "Link type", Unit::kText, LinkTypeText(info),
         analysis.Decoder().Known() ? "" : "not decoded: totals, sizes and errors only");
    if (info.fileSize) fact("file_size", "File size", Unit::kBytes, info.fileSize);
    if (info.snapLength) fact("snap_length", "Snap length", Unit::kBytes, uint64_t{info.snapLength});
    if (!info.filter.empty()) fact("filter", "Filter", Unit::kText, info.filter);
    if (info.from) fact("from", "From", Unit::kTime, info.from, "packets before it are left out");
    if (info.to) fact("to", "To", Unit::kTime, info.to, "packets after it are left out");
  }
  fact("packets", "Packets", Unit::kCount, t.packets);
  fact("bytes", "Bytes", Unit::kBytes, t.bytes);
  if (t.packets) fact("average_packet_size", "Average size", Unit::kNumber, double(t.bytes) / double(t.packets), "bytes");
  if (!analysis.FromSaves()) {
    fact("truncated", "Truncated", Unit::kCount, f.truncated,
         f.truncated == 1 ? "packet cut short by the snap length" : "packets cut short by the snap length");
  }
  if (t.start) {
    fact("start", "Start", Unit::kTime, t.start);
    fact("stop", "Stop", Unit::kTime, t.stop);
    fact("duration", "Duration", Unit::kSeconds, t.duration / 1e9);
  }
  if (!analysis.FromSaves() && t.packets)
    fact("time_order", "Time order", Unit::kText, f.outOfOrder ? "not in time order" : "in time order",
         f.outOfOrder ? Plural(f.outOfOrder, "packet comes", "packets come") +
                            " earlier than the one before; Start and Stop are the earliest and latest"
                      : "");
  const double seconds = t.duration / 1e9;
  if (seconds > 0) {
    fact("average_packet_rate", "Average rate", Unit::kNumber, t.packets / seconds, "packets/s");
    fact("average_bit_rate", "", Unit::kBitRate, t.bytes * 8.0 / seconds);
  }
  if (t.packets && !analysis.FromSaves()) {
    TrafficSeries::Bin peak = analysis.Traffic().PeakSecond();
    fact("peak_packet_rate", "Peak rate", Unit::kCount, peak.packets, "packets/s, in the busiest second");
    fact("peak_bit_rate", "", Unit::kBitRate, peak.bytes * 8.0);
  }
  return s;
}

// ---- Sizes and errors ----

void SizesAndErrors(const Analysis& analysis, std::vector<ReportSection>& out) {
  if (auto t = OpenTable(analysis, "sizestats")) {
    const int label = t->Column("Stat"), value = t->Column("Value");
    auto buckets = std::make_shared<std::vector<std::pair<std::string, uint64_t>>>();
    uint64_t all = 0;
    t->ForEachRow([&](size_t, std::span<const DataCellView> cells) {
      uint64_t v = value >= 0 ? CellU64(cells[value].value) : 0;
      buckets->emplace_back(label >= 0 ? CellText(cells[label]) : "", v);
      all += v;
    });
    ReportTable table{"packet_sizes", "Packet sizes", "", {}, buckets->size(), nullptr, 0, "", -1};
    table.columns = {{"size", "Size (bytes)", Unit::kText},
                     {"packets", "Packets", Unit::kCount},
                     {"share", "Share", Unit::kPercent},
                     {"bar", "", Unit::kBar}};
    table.row = [buckets, all](size_t i, std::vector<Cell>& cells) {
      const auto& [name, v] = (*buckets)[i];
      cells = {name, v, Share(v, all), all ? double(v) / double(all) : 0.0};
    };
    out.push_back({"packet_sizes", "Packet sizes", {}, {std::move(table)}});
  }
  if (auto t = OpenTable(analysis, "errorstats")) {
    ReportTable table{"errors", "Errors", "", {}, t->RowCount(), nullptr, 0, "no error counters on this medium", -1};
    table.columns = {{"kind", "Kind", Unit::kText}, {"packets", "Packets", Unit::kCount}};
    const int label = t->Column("Stat"), value = t->Column("Value");
    table.row = [t, label, value](size_t i, std::vector<Cell>& cells) {
      cells.assign(2, std::monostate{});
      t->ViewRow(i, [&](size_t, std::span<const DataCellView> row) {
        if (label >= 0) cells[0] = CellText(row[label]);
        if (value >= 0) cells[1] = CellU64(row[value].value);
      });
    };
    out.push_back({"errors", "Errors", {}, {std::move(table)}});
  }
}

// ---- Traffic ----

// One line of the traffic section: its start, length, packets (unknown for
// a saved context's series) and bytes.
struct TrafficLine {
  ZemoTime from;
  double seconds;
  std::optional<uint64_t> packets;
  double bytes;
};

// A run's lines: from the first packet on, as tshark's io,stat counts.
std::vector<TrafficLine> RunTraffic(const Analysis& analysis, uint64_t* width) {
  TrafficSeries::Lines series = analysis.Traffic().ToLines(kTrafficLines);
  *width = series.seconds;
  std::vector<TrafficLine> lines;
  for (size_t i = 0; i < series.bins.size(); ++i)
    lines.push_back({series.origin + i * series.seconds * kSecond, double(series.seconds), series.bins[i].packets,
                     double(series.bins[i].bytes)});
  return lines;
}

// A saved context's lines: the dashboard's closed spans, in groups.
std::vector<TrafficLine> SavedTraffic(const Analysis& analysis, uint64_t* width) {
  DashboardSeries t;
  std::vector<TrafficLine> lines;
  if (!ReadDashboard(analysis, &t) || t.samples.empty()) return lines;
  const size_t group = (t.samples.size() + kTrafficLines - 1) / kTrafficLines;
  *width = uint64_t(t.interval) * group;
  for (size_t i = 0; i < t.samples.size(); i += group) {
    size_t end = std::min(t.samples.size(), i + group);
    TrafficLine line{t.From(i), double(t.From(end) - t.From(i)) / 1e9, std::nullopt, 0};
    for (size_t k = i; k < end; ++k) line.bytes += t.BytesOf(k);
    lines.push_back(line);
  }
  return lines;
}

void TrafficSection(const Analysis& analysis, std::vector<ReportSection>& out) {
  uint64_t width = 0;
  auto lines = std::make_shared<std::vector<TrafficLine>>(analysis.FromSaves() ? SavedTraffic(analysis, &width)
                                                                               : RunTraffic(analysis, &width));
  if (lines->empty()) return;
  double peak = 0;
  for (const TrafficLine& l : *lines) peak = std::max(peak, l.bytes / l.seconds);
  const bool packets = lines->front().packets.has_value();
  ReportTable table{"traffic", "Traffic",
                    std::to_string(width) + " s a line" +
                        (analysis.FromSaves() ? ", as the saved dashboard has it" : ", from the first packet"),
                    {}, lines->size(), nullptr, 0, "", -1};
  table.columns.push_back({"from", "From (UTC)", Unit::kTime});
  if (packets) table.columns.push_back({"packets", "Packets", Unit::kCount});
  table.columns.insert(table.columns.end(), {{"bytes", "Bytes", Unit::kBytes},
                                             {"bit_rate", "Rate", Unit::kBitRate},
                                             {"bar", "", Unit::kBar}});
  table.row = [lines, packets, peak](size_t i, std::vector<Cell>& cells) {
    const TrafficLine& l = (*lines)[i];
    const double rate = l.bytes / l.seconds;
    cells.clear();
    cells.push_back(l.from);
    if (packets) cells.push_back(*l.packets);
    cells.push_back(static_cast<uint64_t>(std::llround(l.bytes)));
    cells.push_back(rate * 8);
    cells.push_back(peak > 0 ? rate / peak : 0.0);
  };
  out.push_back({"traffic", "Traffic", {}, {std::move(table)}});
}

// ---- Protocol hierarchy ----

struct ProtocolNode {
  uint16_t id;
  std::string name;
  uint64_t packets = 0, bytes = 0;
  int parent = -1;  // index of the nearest counted ancestor
  std::vector<int> children;
};

// An 802.11 capture's radio channels, with their signal and noise in dBm,
// and its data rates over every channel.
void WirelessSection(const Analysis& analysis, std::vector<ReportSection>& out) {
  auto view = std::make_shared<WirelessView>();
  if (!ReadWireless(analysis, view.get())) return;
  ReportSection section{"wireless", "Radio", {}, {}};
  ReportTable channels{"channels", "Channels", "signal and noise in dBm: least, average power, greatest", {},
                       view->channels.size(), nullptr, 0, "none", -1};
  channels.columns = {{"channel", "Channel", Unit::kText},
                      {"number", "Number", Unit::kCount, true},
                      {"frequency_mhz", "MHz", Unit::kCount, true},
                      {"band", "Band", Unit::kCount, true},
                      {"packets", "Packets", Unit::kCount},
                      {"bytes", "Bytes", Unit::kBytes},
                      {"share", "Share", Unit::kPercent},
                      {"signal_min_dbm", "Signal min", Unit::kNumber},
                      {"signal_avg_dbm", "avg", Unit::kNumber},
                      {"signal_max_dbm", "max", Unit::kNumber},
                      {"noise_min_dbm", "Noise min", Unit::kNumber},
                      {"noise_avg_dbm", "avg", Unit::kNumber},
                      {"noise_max_dbm", "max", Unit::kNumber}};
  channels.row = [view](size_t i, std::vector<Cell>& cells) {
    const ChannelView& c = view->channels[i];
    auto dbm = [](const auto& v) { return v ? Cell(double(*v)) : Cell(); };
    cells = {c.label,           uint64_t(std::max<int>(c.channel.Channel, 0)),
             uint64_t{c.channel.Frequency}, uint64_t{c.channel.Band},
             c.packets,         c.bytes,
             Share(c.packets, view->packets), dbm(c.signal.min),
             dbm(c.signal.average), dbm(c.signal.max),
             dbm(c.noise.min),  dbm(c.noise.average),
             dbm(c.noise.max)};
    // 0 is no channel number the radio told.
    if (c.channel.Channel <= 0) cells[1] = std::monostate{};
  };
  ReportTable rates{"data_rates", "Data rates", "over every channel", {}, view->rates.size(), nullptr, 0, "none", -1};
  rates.columns = {{"rate", "Rate", Unit::kText},
                   {"mbit_s", "Mbit/s", Unit::kNumber, true},
                   {"half_megabits", "Half Mbit/s", Unit::kCount, true},
                   {"packets", "Packets", Unit::kCount},
                   {"bytes", "Bytes", Unit::kBytes},
                   {"share", "Share", Unit::kPercent}};
  rates.row = [view](size_t i, std::vector<Cell>& cells) {
    const DataRateView& r = view->rates[i];
    const std::string text = r.halfMegabits ? FormatDataRate(r.halfMegabits) + " Mbit/s" : "unknown";
    cells = {text,      r.halfMegabits / 2.0, uint64_t{r.halfMegabits}, r.packets, r.bytes,
             Share(r.packets, view->packets)};
  };
  section.tables.push_back(std::move(channels));
  section.tables.push_back(std::move(rates));
  out.push_back(std::move(section));
}


// An 802.11 capture's access points, stations and networks.
void WirelessNodeSection(const Analysis& analysis, std::vector<ReportSection>& out) {
  auto view = std::make_shared<WirelessNodesView>();
  if (!ReadWirelessNodes(analysis, analysis.Wireless(), view.get()) ||
      (view->accessPoints.empty() && view->stations.empty()))
    return;
  auto name = [](const std::string& n) { return n.empty() ? Cell() : Cell(n); };
  auto dbm = [](const std::optional<int>& v) { return v ? Cell(double(*v)) : Cell(); };
  ReportSection section{"wireless_nodes", "802.11 nodes", {}, {}};
  ReportTable aps{"access_points", "Access points", "signal in dBm: least, greatest", {}, view->accessPoints.size(),
                  nullptr, 0, "none", -1};
  aps.columns = {{"bssid", "BSSID", Unit::kText},
                 {"network", "Network", Unit::kText},
                 {"channel", "Channel", Unit::kText},
                 {"protection", "Protection", Unit::kText},
                 {"stations", "Stations", Unit::kCount},
                 {"packets", "Packets", Unit::kCount},
                 {"packets_sent", "Sent", Unit::kCount, true},
                 {"packets_received", "Received", Unit::kCount, true},
                 {"bytes", "Bytes", Unit::kBytes},
                 {"signal_min_dbm", "Signal min", Unit::kNumber},
                 {"signal_max_dbm", "max", Unit::kNumber}};
  aps.row = [view, name, dbm](size_t i, std::vector<Cell>& cells) {
    const AccessPointView& a = view->accessPoints[i];
    cells = {a.bssid, name(a.network), a.channel, a.protection, uint64_t{a.stations},
             a.packetsSent + a.packetsReceived, a.packetsSent, a.packetsReceived, a.bytes, dbm(a.signalMin),
             dbm(a.signalMax)};
  };
  ReportTable stations{"stations", "Stations", "signal in dBm: least, greatest", {}, view->stations.size(),
                       nullptr, 0, "none", -1};
  stations.columns = {{"address", "Address", Unit::kText},
                      {"access_point", "Access point", Unit::kText},
                      {"network", "Network", Unit::kText},
                      {"packets", "Packets", Unit::kCount},
                      {"packets_sent", "Sent", Unit::kCount, true},
                      {"packets_received", "Received", Unit::kCount, true},
                      {"bytes", "Bytes", Unit::kBytes},
                      {"signal_min_dbm", "Signal min", Unit::kNumber},
                      {"signal_max_dbm", "max", Unit::kNumber},
                      {"roams", "Roams", Unit::kCount}};
  stations.row = [view, name, dbm](size_t i, std::vector<Cell>& cells) {
    const StationView& s = view->stations[i];
    cells = {s.address, name(s.accessPoint), name(s.network), s.packetsSent + s.packetsReceived, s.packetsSent,
             s.packetsReceived, s.bytes, dbm(s.signalMin), dbm(s.signalMax), uint64_t{s.roams}};
  };
  ReportTable networks{"networks", "Networks", "", {}, view->networks.size(), nullptr, 0, "none", -1};
  networks.columns = {{"network", "Network", Unit::kText},
                      {"access_points", "Access points", Unit::kCount},
                      {"stations", "Stations", Unit::kCount}};
  networks.row = [view, name](size_t i, std::vector<Cell>& cells) {
    const NetworkView& n = view->networks[i];
    cells = {name(n.name), uint64_t{n.accessPoints}, uint64_t{n.stations}};
  };
  section.tables.push_back(std::move(aps));
  section.tables.push_back(std::move(stations));
  section.tables.push_back(std::move(networks));
  out.push_back(std::move(section));
}

// The protocols by identifier as a tree: each protocol under its parent in
// the protocol tree, or under the nearest ancestor with packets when its
// parent counted none (a family such as IP, whose members carry the counts),
// or under the capture's busiest link layer when no ancestor counted any.
void HierarchySection(const Analysis& analysis, const Totals& totals, std::vector<ReportSection>& out) {
  ComPtr<IProtocolStats> stats;
  IZemoStatsContext* context = analysis.Context();
  if (!context || FAILED(context->GetStats(CLSID_ProtocolStatsByID, IProtocolStats::iid, stats.OutVoid())))
    return;
  ComPtr<IEntityTable> entities;
  ULONG count = 0;
  if (FAILED(stats->GetEntityTable(entities.ReleaseAndGetAddressOf())) || !entities ||
      FAILED(stats->GetProtocolCount(&count)))
    return;
  AddressNames names(entities.Get());
  auto nodes = std::make_shared<std::vector<ProtocolNode>>();
  std::map<uint16_t, int> byId;
  for (ULONG i = 0; i < count; ++i) {
    ZemoProtocolStatEntry e{};
    MediaSpec spec{};
    if (FAILED(stats->GetProtocolEntry(i, &e)) || !e.Stat.Packets) continue;
    uint16_t id = proto::kNone;
    if (SUCCEEDED(entities->GetEntity(e.EntityIndex, &spec, nullptr)) && spec.fType == 9)
      id = static_cast<uint16_t>(spec.fData[0] | spec.fData[1] << 8);
    if (id != proto::kNone) byId[id] = static_cast<int>(nodes->size());
    nodes->push_back({id, names.Of(e.EntityIndex), e.Stat.Packets, e.Stat.Bytes, -1, {}});
  }
  // The link layer or capture header that carried the most: where a
  // protocol goes whose family hangs under another link layer (IP is filed
  // under Ethernet II; in a Linux cooked capture it runs over that).
  int carrier = -1;
  for (size_t i = 0; i < nodes->size(); ++i) {
    const ProtocolNode& n = (*nodes)[i];
    if (n.id != proto::kNone && proto::Parent(n.id) == proto::kNone &&
        (carrier < 0 || n.packets > (*nodes)[carrier].packets))
      carrier = static_cast<int>(i);
  }
  std::vector<int> roots;
  for (size_t i = 0; i < nodes->size(); ++i) {
    ProtocolNode& n = (*nodes)[i];
    const uint16_t parent = n.id == proto::kNone ? proto::kNone : proto::Parent(n.id);
    for (uint16_t up = parent; up != proto::kNone && n.parent < 0; up = proto::Parent(up)) {
      auto it = byId.find(up);
      if (it != byId.end()) n.parent = it->second;
    }
    if (n.parent < 0 && parent != proto::kNone && carrier >= 0 && (*nodes)[carrier].packets >= n.packets)
      n.parent = carrier;
    (n.parent < 0 ? roots : (*nodes)[n.parent].children).push_back(static_cast<int>(i));
  }
  // Heaviest first at each level, as a reader looks for where the traffic went.
  auto heavier = [&](int a, int b) {
    const ProtocolNode &x = (*nodes)[a], &y = (*nodes)[b];
    return x.bytes != y.bytes ? x.bytes > y.bytes : x.name < y.name;
  };
  auto order = std::make_shared<std::vector<std::pair<int, uint64_t>>>();  // node, depth
  std::function<void(std::vector<int>&, uint64_t)> walk = [&](std::vector<int>& level, uint64_t depth) {
    std::sort(level.begin(), level.end(), heavier);
    for (int i : level) {
      order->emplace_back(i, depth);
      walk((*nodes)[i].children, depth + 1);
    }
  };
  walk(roots, 0);
  ReportTable table{"protocol_hierarchy", "Protocol hierarchy",
                    "every layer of each packet counts, as tshark -z io,phs counts; shares of all packets and bytes",
                    {}, order->size(), nullptr, 0, "no protocol was counted", 1};
  table.columns = {{"protocol", "Protocol", Unit::kText},          {"depth", "", Unit::kCount},
                   {"parent", "", Unit::kText},                    {"packets", "Packets", Unit::kCount},
                   {"packet_share", "% packets", Unit::kPercent},  {"bytes", "Bytes", Unit::kBytes},
                   {"byte_share", "% bytes", Unit::kPercent}};
  table.columns[2].textHidden = true;
  table.row = [nodes, order, totals](size_t i, std::vector<Cell>& cells) {
    const auto& [index, depth] = (*order)[i];
    const ProtocolNode& n = (*nodes)[index];
    cells = {n.name, depth, n.parent < 0 ? Cell() : Cell((*nodes)[n.parent].name), n.packets,
             Share(n.packets, totals.packets), n.bytes, Share(n.bytes, totals.bytes)};
  };
  out.push_back({"protocol_hierarchy", "Protocol hierarchy", {}, {std::move(table)}});
}

// ---- Top tables ----

// Six groups of two hexadecimal digits: a physical address as MediaUtils writes it.
bool IsPhysicalText(std::string_view s) {
  if (s.size() != 17) return false;
  for (size_t i = 0; i < s.size(); ++i)
    if (i % 3 == 2 ? s[i] != ':' : !std::isxdigit(static_cast<unsigned char>(s[i]))) return false;
  return true;
}

// The four figures of a node and the one its table is ordered by.
struct NodeFigures {
  uint64_t packetsSent, packetsReceived, bytesSent, bytesReceived;
  uint64_t By(SortBy sort) const {
    switch (sort) {
      case SortBy::kPackets: return packetsSent + packetsReceived;
      case SortBy::kSent: return bytesSent;
      case SortBy::kReceived: return bytesReceived;
      default: return bytesSent + bytesReceived;
    }
  }
};

std::vector<ReportColumn> NodeColumns(bool logical, bool rate) {
  std::vector<ReportColumn> c = {{"address", logical ? "Logical address" : "Physical address", Unit::kText},
                                 {"kind", "", Unit::kText},
                                 {"packets", "Packets", Unit::kCount},
                                 {"packets_sent", "Packets sent", Unit::kCount},
                                 {"packets_received", "Packets received", Unit::kCount},
                                 {"bytes", "Bytes", Unit::kBytes},
                                 {"bytes_sent", "Bytes sent", Unit::kBytes},
                                 {"bytes_received", "Bytes received", Unit::kBytes},
                                 {"share", "Share", Unit::kPercent}};
  c[1].textHidden = true;
  if (rate) c.push_back({"bit_rate", "Rate", Unit::kBitRate});
  return c;
}

void NodeCells(std::vector<Cell>& cells, std::string address, bool logical, const NodeFigures& f, double share) {
  cells = {std::move(address),
           std::string(logical ? "logical" : "physical"),
           f.packetsSent + f.packetsReceived,
           f.packetsSent,
           f.packetsReceived,
           f.bytesSent + f.bytesReceived,
           f.bytesSent,
           f.bytesReceived,
           share};
}

std::string OrderNote(SortBy sort, bool directed, const char* whole = "of the capture") {
  const bool packets = sort == SortBy::kPackets;
  return std::string("ordered by ") + SortWords(sort, directed) +
         (directed && (sort == SortBy::kBytes || packets) ? " sent and received" : "") + "; share of all the " +
         (packets ? "packets " : "bytes ") + whole;
}

std::string TopTitle(const ReportOptions& o, const std::string& what, size_t rows) {
  if (o.top == SIZE_MAX) return what;
  return rows ? "Top " + std::to_string(std::min(o.top, rows)) + " " + what : "Top " + what;
}

void NodeSections(const Analysis& analysis, const Totals& totals, const ReportOptions& o,
                  std::vector<ReportSection>& out) {
  auto t = OpenTable(analysis, "nodestats");
  if (!t) return;
  const int node = t->Column("Node"), ps = t->Column("PacketsSent"), pr = t->Column("PacketsReceived"),
            bs = t->Column("BytesSent"), br = t->Column("BytesReceived");
  if (node < 0 || ps < 0 || pr < 0 || bs < 0 || br < 0) return;
  // Each row's figures once: the order and the kind of address.
  auto figures = std::make_shared<std::vector<NodeFigures>>(t->RowCount());
  std::vector<bool> physical(t->RowCount());
  t->ForEachRow([&](size_t row, std::span<const DataCellView> cells) {
    (*figures)[row] = {CellU64(cells[ps].value), CellU64(cells[pr].value), CellU64(cells[bs].value),
                       CellU64(cells[br].value)};
    physical[row] = IsPhysicalText(CellText(cells[node]));
  });
  const uint64_t whole = o.sort == SortBy::kPackets ? totals.packets : totals.bytes;
  ReportSection section{"top_nodes", "Top nodes", {}, {}};
  for (bool logical : {false, true}) {
    size_t kind = 0;
    for (bool p : physical) kind += p != logical;
    auto order = std::make_shared<std::vector<size_t>>(
        Heaviest(t->RowCount(), o.top, [&](size_t i) { return (*figures)[i].By(o.sort); },
                 [&](size_t i) { return physical[i] != logical; }));
    const std::string id = logical ? "top_logical_nodes" : "top_physical_nodes";
    ReportTable table{id, TopTitle(o, logical ? "logical addresses" : "physical addresses", kind),
                      OrderNote(o.sort, true), NodeColumns(logical, false), order->size(), nullptr,
                      kind - order->size(), "none", -1};
    const SortBy sort = o.sort;
    table.row = [t, order, figures, node, logical, sort, whole](size_t i, std::vector<Cell>& cells) {
      const size_t row = (*order)[i];
      std::string address;
      t->ViewRow(row, [&](size_t, std::span<const DataCellView> r) { address = CellText(r[node]); });
      const NodeFigures& f = (*figures)[row];
      NodeCells(cells, std::move(address), logical, f, Share(f.By(sort), whole));
    };
    section.tables.push_back(std::move(table));
  }
  out.push_back(std::move(section));
}

void ProtocolAndConversationSections(const Analysis& analysis, const Totals& totals, const ReportOptions& o,
                                     std::vector<ReportSection>& out) {
  struct Kind {
    const char* statistic;
    const char* id;
    const char* what;
    std::vector<std::pair<const char*, ReportColumn>> text;  // column of the statistic, and how it shows
  };
  const Kind kinds[] = {
      {"protocolstats", "top_protocols", "protocols", {{"Protocol", {"protocol", "Protocol", Unit::kText}}}},
      {"conversationstats",
       "top_conversations",
       "conversations",
       {{"Source", {"source", "Source", Unit::kText}},
        {"Dest", {"destination", "Destination", Unit::kText}},
        {"Protocol", {"protocol", "Protocol", Unit::kText}}}},
  };
  const bool byPackets = o.sort == SortBy::kPackets;
  const uint64_t whole = byPackets ? totals.packets : totals.bytes;
  for (const Kind& k : kinds) {
    auto t = OpenTable(analysis, k.statistic);
    if (!t) continue;
    const int packets = t->Column("Packets"), bytes = t->Column("Bytes");
    std::vector<int> text;
    for (const auto& [name, column] : k.text) text.push_back(t->Column(name));
    if (packets < 0 || bytes < 0 || std::count(text.begin(), text.end(), -1)) continue;
    // The protocol table keeps a row for each parent of a counted protocol,
    // which counts nothing itself; those rows are no part of the top.
    auto weights = std::make_shared<std::vector<std::pair<uint64_t, uint64_t>>>(t->RowCount());
    t->ForEachRow([&](size_t row, std::span<const DataCellView> cells) {
      (*weights)[row] = {CellU64(cells[packets].value), CellU64(cells[bytes].value)};
    });
    size_t counted = 0;
    for (const auto& w : *weights) counted += w.first != 0;
    auto order = std::make_shared<std::vector<size_t>>(Heaviest(
        t->RowCount(), o.top, [&](size_t i) { return byPackets ? (*weights)[i].first : (*weights)[i].second; },
        [&](size_t i) { return (*weights)[i].first != 0; }));
    ReportTable table{k.id, TopTitle(o, k.what, counted), OrderNote(o.sort, false), {}, order->size(), nullptr,
                      counted - order->size(), "none", -1};
    for (const auto& [name, column] : k.text) table.columns.push_back(column);
    table.columns.insert(table.columns.end(), {{"packets", "Packets", Unit::kCount},
                                               {"bytes", "Bytes", Unit::kBytes},
                                               {"share", "Share", Unit::kPercent}});
    table.row = [t, order, weights, text, byPackets, whole](size_t i, std::vector<Cell>& cells) {
      const size_t row = (*order)[i];
      const auto [p, b] = (*weights)[row];
      cells.clear();
      t->ViewRow(row, [&](size_t, std::span<const DataCellView> r) {
        for (int c : text) cells.push_back(CellText(r[c]));
      });
      cells.resize(text.size());
      cells.insert(cells.end(), {p, b, Share(byPackets ? p : b, whole)});
    };
    out.push_back({k.id, table.title, {}, {std::move(table)}});
  }
}

// The heaviest nodes of the window, physical and logical apart, with their
// rate over the part of the window the capture covered.
void WindowSection(const Analysis& analysis, const Totals& totals, const ReportOptions& o,
                   std::vector<ReportSection>& out) {
  auto view = std::make_shared<WindowView>();
  if (!ReadWindow(analysis, view.get())) return;
  double covered = view->seconds;
  if (totals.duration) covered = std::min(covered, std::max(1.0, totals.duration / 1e9));
  auto names = std::make_shared<AddressNames>(view->entities.Get());
  ReportSection section{"window", "Moving window", {}, {}};
  // Each packet in the window is sent by one physical and one logical
  // address, where the medium has both: a share is of what one kind sent.
  uint64_t sent[2] = {0, 0};
  for (const WindowNode& n : view->nodes)
    sent[IsLogicalEntity(view->entities.Get(), n.entity)] +=
        o.sort == SortBy::kPackets ? n.stat.PacketsSent : n.stat.BytesSent;
  const uint64_t whole = std::max(sent[0], sent[1]);
  for (bool logical : {false, true}) {
    auto figures = [view](size_t i) {
      const ZemoNodeStat& s = view->nodes[i].stat;
      return NodeFigures{s.PacketsSent, s.PacketsReceived, s.BytesSent, s.BytesReceived};
    };
    std::vector<bool> kind(view->nodes.size());
    size_t count = 0;
    for (size_t i = 0; i < kind.size(); ++i)
      count += kind[i] = IsLogicalEntity(view->entities.Get(), view->nodes[i].entity) == logical;
    auto order = std::make_shared<std::vector<size_t>>(Heaviest(
        view->nodes.size(), o.top, [&](size_t i) { return figures(i).By(o.sort); }, [&](size_t i) { return kind[i]; }));
    const std::string what = std::string(logical ? "logical" : "physical") + " addresses of the last " +
                             std::to_string(view->seconds) + " s";
    ReportTable table{logical ? "window_logical_nodes" : "window_physical_nodes", TopTitle(o, what, count),
                      std::to_string(view->buckets) + " buckets of " + std::to_string(view->bucketSeconds) +
                          " s; " + OrderNote(o.sort, true, "in the window") + "; rate over the " +
                          Fixed(covered, 0) + " s it covers",
                      NodeColumns(logical, true), order->size(), nullptr, count - order->size(),
                      "none in the window", -1};
    const SortBy sort = o.sort;
    table.row = [view, names, order, figures, logical, sort, whole, covered](size_t i, std::vector<Cell>& cells) {
      const size_t n = (*order)[i];
      const NodeFigures f = figures(n);
      NodeCells(cells, names->Of(view->nodes[n].entity), logical, f, Share(f.By(sort), whole));
      cells.push_back((f.bytesSent + f.bytesReceived) * 8.0 / covered);
    };
    section.tables.push_back(std::move(table));
  }
  out.push_back(std::move(section));
}

// A few addresses and then how many more.
std::string FewOf(const std::vector<std::string>& names, size_t total) {
  std::string text;
  for (size_t i = 0; i < names.size(); ++i) text += (i ? ", " : "") + names[i];
  if (total > names.size()) text += ", and " + std::to_string(total - names.size()) + " more";
  return text;
}

// Which logical addresses each physical address carried, busiest carriers
// first, and the logical addresses seen behind more than one.
void HostsSection(const Analysis& analysis, const ReportOptions& o, std::vector<ReportSection>& out) {
  auto hosts = std::make_shared<HostsBehind>();
  if (!ReadHostsBehind(analysis, hosts.get())) return;
  auto names = std::make_shared<AddressNames>(hosts->entities.Get());
  ReportSection section{"hosts_behind_addresses", "Hosts behind addresses", {}, {}};

  auto carriers = std::make_shared<std::vector<const HostsBehind::Physical*>>();
  for (const HostsBehind::Physical& p : hosts->physical)
    if (p.pairCount && !p.group) carriers->push_back(&p);
  const size_t all = carriers->size(), n = std::min(o.top, all);
  std::partial_sort(carriers->begin(), carriers->begin() + static_cast<std::ptrdiff_t>(n), carriers->end(),
                    [](const HostsBehind::Physical* a, const HostsBehind::Physical* b) {
                      return a->pairCount != b->pairCount ? a->pairCount > b->pairCount : a->bytes > b->bytes;
                    });
  carriers->resize(n);
  ReportTable behind{"hosts_behind_addresses", "Hosts behind addresses",
                     Plural(all, "unicast physical address", "unicast physical addresses") +
                         " carried logical ones; most logical addresses first",
                     {{"physical_address", "Physical address", Unit::kText},
                      {"logical_count", "Logical", Unit::kCount},
                      {"bytes", "Bytes", Unit::kBytes},
                      {"logical_addresses", "Behind it", Unit::kText}},
                     n, nullptr, all - n, "no logical address was seen behind a physical one", -1};
  behind.row = [hosts, names, carriers](size_t i, std::vector<Cell>& cells) {
    const HostsBehind::Physical& p = *(*carriers)[i];
    constexpr size_t kShown = 4;
    std::vector<const HostPair*> pairs;
    for (size_t k = 0; k < p.pairCount; ++k) pairs.push_back(&hosts->pairs[p.firstPair + k]);
    const size_t m = std::min(kShown, pairs.size());
    std::partial_sort(pairs.begin(), pairs.begin() + static_cast<std::ptrdiff_t>(m), pairs.end(),
                      [](const HostPair* a, const HostPair* b) { return a->bytes > b->bytes; });
    std::vector<std::string> shown;
    for (size_t k = 0; k < m; ++k) shown.push_back(names->Of(pairs[k]->logical));
    cells = {names->Of(p.entity), uint64_t{p.pairCount}, p.bytes, FewOf(shown, pairs.size())};
  };
  section.tables.push_back(std::move(behind));

  auto shared = std::make_shared<std::vector<const HostsBehind::Shared*>>();
  for (const HostsBehind::Shared& s : hosts->shared) shared->push_back(&s);
  const size_t m = std::min(o.top, shared->size());
  std::partial_sort(shared->begin(), shared->begin() + static_cast<std::ptrdiff_t>(m), shared->end(),
                    [](const HostsBehind::Shared* a, const HostsBehind::Shared* b) {
                      return a->physical.size() > b->physical.size();
                    });
  ReportTable several{"logical_behind_several", "Logical addresses behind several physical ones",
                      "a router, a proxy ARP or a spoof",
                      {{"logical_address", "Logical address", Unit::kText},
                       {"physical_count", "Physical", Unit::kCount},
                       {"physical_addresses", "Seen behind", Unit::kText}},
                      m, nullptr, shared->size() - m,
                      "none: each logical address was seen behind one physical address", -1};
  several.row = [names, shared](size_t i, std::vector<Cell>& cells) {
    const HostsBehind::Shared& s = *(*shared)[i];
    std::vector<std::string> shown;
    for (size_t k = 0; k < s.physical.size() && k < 4; ++k) shown.push_back(names->Of(s.physical[k]));
    cells = {names->Of(s.logical), uint64_t{s.physical.size()}, FewOf(shown, s.physical.size())};
  };
  section.tables.push_back(std::move(several));
  out.push_back(std::move(section));
}

// "ChannelStats" as "Channel stats": the class name in words.
std::string Words(std::u16string_view className) {
  std::string name = ToUtf8(className), out;
  for (size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    if (i && std::isupper(static_cast<unsigned char>(c)) && !std::isupper(static_cast<unsigned char>(name[i - 1])))
      out += ' ', out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    else
      out += c;
  }
  return out;
}

// "FirstTime" as "first_time".
std::string Key(std::string_view column) {
  std::string out;
  for (size_t i = 0; i < column.size(); ++i) {
    const auto c = static_cast<unsigned char>(column[i]);
    if (i && std::isupper(c) && !std::isupper(static_cast<unsigned char>(column[i - 1]))) out += '_';
    out += static_cast<char>(std::tolower(c));
  }
  return out;
}

// Every other statistic with a table, as it gives it: times as times and
// without the engine's entity indexes; a short table whole, a long one its
// first rows.
void OtherSection(const StatisticEntry& s, const ReportOptions& o, std::vector<ReportSection>& out) {
  auto t = std::make_shared<TableReader>();
  if (!t->Open(s.stats.Get())) return;
  constexpr size_t kShort = 50;
  const size_t shown = t->RowCount() <= kShort ? t->RowCount() : std::min(o.top, t->RowCount());
  const std::string title = Words(s.className);
  ReportTable table{s.selectName, title, "", {}, shown, nullptr, t->RowCount() - shown, "none", -1};
  std::vector<int> columns;
  std::vector<bool> numeric(t->Columns().size());
  t->ViewRow(0, [&](size_t, std::span<const DataCellView> cells) {
    for (size_t c = 0; c < cells.size(); ++c) numeric[c] = IsNumber(cells[c].value.vt);
  });
  for (size_t c = 0; c < t->Columns().size(); ++c) {
    const std::string& name = t->Columns()[c];
    if (name == "EntityIndex") continue;
    const bool time = name.size() > 4 && name.ends_with("Time");
    const Unit unit = time ? Unit::kTime : numeric[c] ? Unit::kCount : Unit::kText;
    table.columns.push_back({Key(name), name, unit});
    columns.push_back(static_cast<int>(c));
  }
  std::vector<Unit> units;
  for (const ReportColumn& c : table.columns) units.push_back(c.unit);
  table.row = [t, columns, units](size_t i, std::vector<Cell>& cells) {
    cells.assign(columns.size(), std::monostate{});
    t->ViewRow(i, [&](size_t, std::span<const DataCellView> r) {
      for (size_t c = 0; c < columns.size(); ++c) {
        cells[c] = CellOf(r[columns[c]]);
        // A time of 0 is no time.
        if (units[c] == Unit::kTime && std::holds_alternative<uint64_t>(cells[c]) && !std::get<uint64_t>(cells[c]))
          cells[c] = std::monostate{};
        if (units[c] != Unit::kText && std::holds_alternative<std::string>(cells[c])) cells[c] = std::monostate{};
      }
    });
  };
  out.push_back({s.selectName, title, {}, {std::move(table)}});
}

// The alarms at the end and every change of state in time order; each
// tracked node or protocol second by second.
void WatchSections(const AlarmWatch& watch, std::vector<ReportSection>& out) {
  if (watch.HasAlarms()) {
    ReportSection section{"alarms", "Alarms", {{"file", "File", Unit::kText, watch.AlarmsFile(), ""}}, {}};
    const auto& outcomes = watch.Outcomes();
    ReportTable states{"alarms", "Alarms at the end", "", {}, outcomes.size(), nullptr, 0, "none", -1};
    states.columns = {{"alarm", "Alarm", Unit::kText},
                      {"state", "State at the end", Unit::kText},
                      {"severity", "Severity", Unit::kCount},
                      {"note", "", Unit::kText}};
    states.row = [&watch](size_t i, std::vector<Cell>& cells) {
      const AlarmWatch::AlarmOutcome& a = watch.Outcomes()[i];
      cells = {a.name, a.state, static_cast<uint64_t>(std::max<LONG>(a.severity, 0)), a.note};
    };
    ReportTable events{"alarm_events", "Changes of state", "", {}, watch.Events().size(), nullptr, 0,
                       "no alarm changed state", -1};
    events.columns = {{"time", "Time (UTC)", Unit::kTime},
                      {"alarm", "Alarm", Unit::kText},
                      {"state", "State", Unit::kText},
                      {"severity", "Severity", Unit::kCount},
                      {"message", "Message", Unit::kText}};
    events.row = [&watch](size_t i, std::vector<Cell>& cells) {
      const AlarmWatch::Event& e = watch.Events()[i];
      cells = {e.time, e.alarm, e.state, static_cast<uint64_t>(std::max<LONG>(e.severity, 0)), e.message};
    };
    section.tables.push_back(std::move(states));
    section.tables.push_back(std::move(events));
    out.push_back(std::move(section));
  }
  for (size_t k = 0; k < watch.Tracks().size(); ++k) {
    const AlarmWatch::Track& track = watch.Tracks()[k];
    double peak = 0;
    for (const AlarmWatch::Sample& s : track.series) peak = std::max(peak, s.bytes);
    const std::string id = "track_" + std::to_string(k + 1);
    ReportTable table{id, "Track of " + track.kind + " " + track.text, "per second",
                      {{"from", "From (UTC)", Unit::kTime},
                       {"packets", "Packets", Unit::kNumber},
                       {"bytes", "Bytes", Unit::kNumber},
                       {"bar", "", Unit::kBar}},
                      track.seen ? track.series.size() : 0, nullptr, 0, "it never appears in the capture", -1};
    table.row = [&track, peak](size_t i, std::vector<Cell>& cells) {
      const AlarmWatch::Sample& s = track.series[i];
      cells = {s.time, s.packets, s.bytes, peak > 0 ? s.bytes / peak : 0.0};
    };
    out.push_back({id, table.title, {}, {std::move(table)}});
  }
}

}  // namespace

std::vector<ReportSection> GatherReport(const Analysis& analysis, const CaptureInfo& info,
                                        const ReportOptions& options, const AlarmWatch* watch) {
  std::vector<ReportSection> out;
  const Totals totals = ReadTotals(analysis);
  out.push_back(CaptureSection(analysis, info));
  SizesAndErrors(analysis, out);
  TrafficSection(analysis, out);
  WirelessSection(analysis, out);
  WirelessNodeSection(analysis, out);
  HierarchySection(analysis, totals, out);
  NodeSections(analysis, totals, options, out);
  ProtocolAndConversationSections(analysis, totals, options, out);
  WindowSection(analysis, totals, options, out);
  HostsSection(analysis, options, out);
  // The statistics above, and those whose figures other sections give:
  // the network totals are the capture's, and the summary is a tree.
  static const char* const kShown[] = {"sizestats",        "errorstats",         "protocolidstats",
                                       "nodestats",        "protocolstats",      "conversationstats",
                                       "rollingnodestats", "nodestatshierarchy", "networkstats",
                                       "summarystats",     "dashboardstats"};
  for (const StatisticEntry& s : analysis.Statistics())
    if (s.selectable && std::find(std::begin(kShown), std::end(kShown), s.selectName) == std::end(kShown))
      OtherSection(s, options, out);
  if (watch) WatchSections(*watch, out);
  return out;
}

std::string SizeText(uint64_t bytes) {
  static const char* const kUnits[] = {"bytes", "kB", "MB", "GB", "TB"};
  size_t unit = 0;
  uint64_t value = bytes;
  while (unit + 1 < std::size(kUnits) && value / 1000 >= 10) {
    value /= 1000;
    ++unit;
  }
  return std::to_string(value) + " " + kUnits[unit];
}

std::string Fixed(double v, int decimals) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
  return buf;
}

std::string BitRate(double bitsPerSecond) {
  if (bitsPerSecond >= 1e9) return Fixed(bitsPerSecond / 1e9, 2) + " Gbit/s";
  if (bitsPerSecond >= 1e6) return Fixed(bitsPerSecond / 1e6, 2) + " Mbit/s";
  if (bitsPerSecond >= 1e3) return Fixed(bitsPerSecond / 1e3, 2) + " kbit/s";
  return Fixed(bitsPerSecond, 0) + " bit/s";
}

namespace {

// "2026-11-23", "T" or " " and "04:47:21" of a time, and its nanoseconds.
size_t DateAndTime(ZemoTime time, char separator, char* buf, size_t size, uint64_t* nanoseconds) {
  const uint64_t ns = time - kUnixEpochAsZemoTime;
  const time_t seconds = static_cast<time_t>(ns / kSecond);
  std::tm tm{};
  gmtime_r(&seconds, &tm);
  const char format[] = {'%', 'Y', '-', '%', 'm', '-', '%', 'd', separator, '%', 'H', ':', '%', 'M', ':', '%', 'S', 0};
  *nanoseconds = ns % kSecond;
  return std::strftime(buf, size, format, &tm);
}

}  // namespace

std::string IsoTime(ZemoTime time) {
  if (time < kUnixEpochAsZemoTime) return "";
  char buf[64];
  uint64_t ns = 0;
  size_t n = DateAndTime(time, 'T', buf, sizeof buf, &ns);
  std::snprintf(buf + n, sizeof buf - n, ".%09lluZ", static_cast<unsigned long long>(ns));
  return buf;
}

std::string DateText(ZemoTime time) {
  if (time < kUnixEpochAsZemoTime) return "";
  char buf[64];
  uint64_t ns = 0;
  size_t n = DateAndTime(time, ' ', buf, sizeof buf, &ns);
  if (ns % 1000000 == 0)
    std::snprintf(buf + n, sizeof buf - n, ".%03llu", static_cast<unsigned long long>(ns / 1000000));
  else if (ns % 1000 == 0)
    std::snprintf(buf + n, sizeof buf - n, ".%06llu", static_cast<unsigned long long>(ns / 1000));
  else
    std::snprintf(buf + n, sizeof buf - n, ".%09llu", static_cast<unsigned long long>(ns));
  return buf;
}

}  // namespace zemo::cli
