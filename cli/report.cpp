#include "cli/report.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>

#include <nlohmann/json.hpp>

#include "cli/node_views.h"
#include "cli/summary_report.h"
#include "cli/wireless_node_views.h"
#include "frame/persist_interfaces.h"
#include "network/dashboard_stats.h"
#include "network/history_stats.h"
#include "platform/clock.h"
#include "platform/strings.h"

namespace zemo::cli {

Totals ReadTotals(const Analysis& analysis) {
  Totals t;
  if (!analysis.FromSaves()) {
    const RunFacts& f = analysis.Facts();
    t.packets = f.frames;
    t.bytes = f.bytes;
    t.start = f.earliest;
    t.stop = f.latest;
  } else if (IZemoStatsContext* c = analysis.Context()) {
    c->GetTotalPackets(&t.packets);
    c->GetTotalBytes(&t.bytes);
    // Without packets the context has no capture time of its own.
    if (t.packets) {
      c->GetStartDateTime(&t.start);
      c->GetStopDateTime(&t.stop);
    }
  }
  t.duration = t.stop > t.start ? t.stop - t.start : 0;
  return t;
}

const StatisticEntry* FindStatistic(const Analysis& analysis, std::string_view name) {
  for (const StatisticEntry& s : analysis.Statistics())
    if (s.selectName == name) return &s;
  return nullptr;
}

ZemoTime DashboardSeries::From(size_t i) const {
  if (i == 0) return start;
  const ZemoTime second = 1000000000ull;
  return start / second * second + static_cast<ZemoTime>(i) * static_cast<ZemoTime>(interval) * second;
}

bool ReadDashboard(const Analysis& analysis, DashboardSeries* traffic) {
  const StatisticEntry* s = FindStatistic(analysis, "dashboardstats");
  ComPtr<IDashboardStats> dashboard;
  ComPtr<IHistoryStats> history;
  if (!s || FAILED(s->stats.As(&dashboard)) || FAILED(dashboard->GetHistory(history.ReleaseAndGetAddressOf())))
    return false;
  double* samples = nullptr;
  LONG count = 0;
  if (FAILED(history->GetInterval(&traffic->interval)) || FAILED(history->GetStartTime(&traffic->start)) ||
      FAILED(history->GetSamples(&samples, &count)))
    return false;
  std::unique_ptr<double, decltype(&CoTaskMemFree)> owned(samples, &CoTaskMemFree);
  traffic->samples.assign(samples, samples + std::max<LONG>(count, 0));
  return true;
}

namespace {

using Json = nlohmann::ordered_json;

// The summary shows in a section of its own, not as a table.
bool IsSummary(const StatisticEntry& s) { return s.selectName == "summarystats"; }

// The summary's snapshots as trees, the current one first; none when the
// context has no SummaryStats.
struct SummaryTrees {
  std::vector<std::vector<SummaryNode>> trees;
  std::vector<std::pair<std::string, GUID>> stored;  // name and id of each stored one
};

SummaryTrees ReadSummaries(const Analysis& analysis) {
  SummaryTrees out;
  ComPtr<ISummaryStats> summary = analysis.Summary();
  LONG count = 0;
  if (!summary || FAILED(summary->GetSnapshotCount(&count))) return out;
  for (LONG i = 0; i < count; ++i) {
    ComPtr<ISummaryStatsSnapshot> snapshot;
    if (FAILED(summary->GetSnapshot(i, snapshot.ReleaseAndGetAddressOf()))) continue;
    if (i > 0) {
      CBstr name;
      GUID id{};
      snapshot->GetName(name.Out());
      snapshot->GetID(&id);
      out.stored.emplace_back(name.Utf8(), id);
    }
    out.trees.push_back(ReadSummaryTree(snapshot.Get(), ReportStatMap()));
  }
  return out;
}

}  // namespace

bool TableReader::Open(IZemoStats* stats) {
  ComPtr<ISelectableObject> selectable;
  if (!stats || FAILED(stats->QueryInterface(ISelectableObject::iid, selectable.OutVoid()))) return false;
  ComPtr<IDataColumns> columns;
  if (FAILED(selectable->GetTable(m_table.ReleaseAndGetAddressOf())) || !m_table ||
      FAILED(m_table->GetColumns(columns.ReleaseAndGetAddressOf())) ||
      FAILED(m_table->GetRows(m_rows.ReleaseAndGetAddressOf())))
    return false;
  LONG columnCount = 0, rowCount = 0;
  if (FAILED(columns->GetCount(&columnCount)) || FAILED(m_rows->GetCount(&rowCount))) return false;
  m_columns.clear();
  for (LONG c = 0; c < columnCount; ++c) {
    CBstr name;
    columns->GetName(c, name.Out());
    m_columns.push_back(name.Utf8());
  }
  m_rowCount = static_cast<size_t>(std::max<LONG>(rowCount, 0));
  const auto* own = dynamic_cast<const DataTable*>(m_table.Get());
  m_direct = own ? &own->Rows() : nullptr;
  return true;
}

int TableReader::Column(std::string_view name) const {
  for (size_t i = 0; i < m_columns.size(); ++i)
    if (m_columns[i] == name) return static_cast<int>(i);
  return -1;
}

bool TableReader::ViewThroughInterfaces(size_t row, std::vector<CVariant>& cells,
                                        std::vector<DataCellView>& views) const {
  // GetValues writes over what it is given, so what was there goes first.
  cells.clear();
  cells.resize(m_columns.size());
  ComPtr<IDataRow> r;
  if (FAILED(m_rows->GetRow(static_cast<LONG>(row), r.ReleaseAndGetAddressOf())) ||
      (!cells.empty() && FAILED(r->GetValues(static_cast<LONG>(cells.size()), cells.data()))))
    return false;
  views.assign(cells.size(), DataCellView{});
  for (size_t i = 0; i < cells.size(); ++i) {
    std::memcpy(&views[i].value, &cells[i], sizeof(VARIANT));
    if (cells[i].vt == VT_BSTR && cells[i].bstrVal)
      views[i].text = std::u16string_view(cells[i].bstrVal, SysStringLen(cells[i].bstrVal));
  }
  return true;
}

std::string CellText(const DataCellView& cell) {
  return cell.value.vt == VT_BSTR ? ToUtf8(cell.text) : CellText(cell.value);
}

std::string CellText(const VARIANT& cell) {
  switch (cell.vt) {
    case VT_BSTR: return cell.bstrVal ? ToUtf8(std::u16string_view(cell.bstrVal, SysStringLen(cell.bstrVal))) : "";
    case VT_BOOL: return cell.boolVal ? "true" : "false";
    case VT_R4: return Fixed(cell.fltVal, 3);
    case VT_R8: return Fixed(cell.dblVal, 3);
    case VT_I1: return std::to_string(cell.cVal);
    case VT_I2: return std::to_string(cell.iVal);
    case VT_I4: case VT_INT: return std::to_string(cell.lVal);
    case VT_I8: return std::to_string(cell.llVal);
    case VT_UI1: return std::to_string(cell.bVal);
    case VT_UI2: return std::to_string(cell.uiVal);
    case VT_UI4: case VT_UINT: return std::to_string(cell.ulVal);
    case VT_UI8: return std::to_string(cell.ullVal);
    default: return "";
  }
}

namespace {

template <class T>
void AppendNumber(std::string& out, T value) {
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, end);
}

// A whole number as a number where a double holds it exactly, else as a
// string of its digits, which a reader of JSON does not round.
template <class T>
void AppendWhole(std::string& out, T value) {
  constexpr T kExact = T(1) << 53;
  const bool exact = value <= kExact && (!std::is_signed_v<T> || value >= -kExact);
  if (!exact) out += '"';
  AppendNumber(out, value);
  if (!exact) out += '"';
}

// Shortest text that reads back the same double; a whole number keeps a
// decimal point, so that it stays a float to a reader, and what JSON cannot
// hold is null.
void AppendDouble(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  std::string_view text(buf, static_cast<size_t>(end - buf));
  out += text;
  if (text.find_first_of(".eE") == std::string_view::npos) out += ".0";
}

// One ASCII character of a JSON string at p, escaped where JSON wants it
// (six bytes at most); the end.
char* JsonAscii(char* p, char c) noexcept {
  static constexpr char kHex[] = "0123456789abcdef";
  const auto u = static_cast<unsigned char>(c);
  if (c == '"' || c == '\\') {
    *p++ = '\\';
  } else if (u < 0x20) {
    *p++ = '\\';
    switch (c) {
      case '\b': *p++ = 'b'; return p;
      case '\f': *p++ = 'f'; return p;
      case '\n': *p++ = 'n'; return p;
      case '\r': *p++ = 'r'; return p;
      case '\t': *p++ = 't'; return p;
      default:
        for (char d : {'u', '0', '0', kHex[u >> 4], kHex[u & 15]}) *p++ = d;
        return p;
    }
  }
  *p++ = c;
  return p;
}

// Text as a JSON string, written straight into out: UTF-8 but for what JSON
// escapes. Each unit takes at most six bytes.
template <class Unit, class Step>
void AppendJsonText(std::string& out, std::basic_string_view<Unit> text, Step&& step) {
  const size_t at = out.size();
  out.resize(at + text.size() * 6 + 2);
  char* p = out.data() + at;
  *p++ = '"';
  for (size_t i = 0; i < text.size();) p = step(p, text, i);
  *p++ = '"';
  out.resize(static_cast<size_t>(p - out.data()));
}

void AppendJsonString(std::string& out, std::u16string_view text) {
  AppendJsonText(out, text, [](char* p, std::u16string_view t, size_t& i) {
    return t[i] < 0x80 ? JsonAscii(p, static_cast<char>(t[i++])) : EncodeUtf8(p, NextCodePoint(t, i));
  });
}

void AppendJsonString(std::string& out, std::string_view utf8) {
  AppendJsonText(out, utf8, [](char* p, std::string_view t, size_t& i) {
    const char c = t[i++];
    if (static_cast<unsigned char>(c) >= 0x80) {
      *p = c;
      return p + 1;
    }
    return JsonAscii(p, c);
  });
}

}  // namespace

void AppendJsonCell(std::string& out, const DataCellView& cell) {
  if (cell.value.vt == VT_BSTR)
    AppendJsonString(out, cell.text);
  else
    AppendJsonCell(out, cell.value);
}

void AppendJsonCell(std::string& out, const VARIANT& cell) {
  switch (cell.vt) {
    case VT_BOOL: out += cell.boolVal != 0 ? "true" : "false"; return;
    case VT_R4: return AppendDouble(out, cell.fltVal);
    case VT_R8: return AppendDouble(out, cell.dblVal);
    case VT_I1: return AppendNumber(out, int{cell.cVal});
    case VT_I2: return AppendNumber(out, cell.iVal);
    case VT_I4: case VT_INT: return AppendNumber(out, cell.lVal);
    case VT_I8: return AppendWhole(out, cell.llVal);
    case VT_UI1: return AppendNumber(out, unsigned{cell.bVal});
    case VT_UI2: return AppendNumber(out, cell.uiVal);
    case VT_UI4: case VT_UINT: return AppendNumber(out, cell.ulVal);
    case VT_UI8: return AppendWhole(out, cell.ullVal);
    case VT_BSTR:
      return AppendJsonString(out, cell.bstrVal ? std::u16string_view(cell.bstrVal, SysStringLen(cell.bstrVal))
                                                : std::u16string_view());
    default: out += "null";
  }
}

namespace {

// Text that goes to a file in pieces of about kFlush bytes.
class JsonOut {
 public:
  explicit JsonOut(std::FILE* out) : m_out(out) {}
  ~JsonOut() { Flush(); }
  std::string& Text() { return m_text; }
  void MaybeFlush() {
    if (m_text.size() >= kFlush) Flush();
  }
  void Flush() {
    std::fwrite(m_text.data(), 1, m_text.size(), m_out);
    m_text.clear();
  }

 private:
  static constexpr size_t kFlush = 1 << 16;
  std::FILE* m_out;
  std::string m_text;
};

// A small value as its indented text, starting at the given depth.
std::string Indented(const Json& value, int depth) {
  std::string text = value.dump(2);
  std::string pad(static_cast<size_t>(depth) * 2, ' ');
  std::string out;
  for (char c : text) {
    out += c;
    if (c == '\n') out += pad;
  }
  return out;
}

// The rows of a table as JSON objects keyed by column name, each on a line
// of its own. The keys are made once: a table may have a million rows.
class JsonRows {
 public:
  JsonRows(JsonOut& out, const std::vector<std::string>& columns, const char* indent = "      ")
      : m_out(out), m_indent(indent) {
    std::string& t = out.Text();
    t += m_indent + "\"columns\": [";
    for (size_t c = 0; c < columns.size(); ++c) {
      if (c) t += ", ";
      AppendJsonString(t, columns[c]);
      std::string key;
      AppendJsonString(key, columns[c]);
      m_keys.push_back(key + ": ");
    }
    t += "],\n" + m_indent + "\"rows\": [";
  }
  // Starts a row; each cell follows its Cell().
  void Row() {
    std::string& t = m_out.Text();
    if (m_rows++) t += "},";
    t += "\n  ";
    t += m_indent;
    t += '{';
    m_column = 0;
  }
  // The text to append the next cell's value to, after its key.
  std::string& Cell() {
    std::string& t = m_out.Text();
    if (m_column) t += ", ";
    t += m_keys[m_column++];
    return t;
  }
  void End() {
    std::string& t = m_out.Text();
    if (m_rows) t += "}\n" + m_indent;
    t += ']';
  }
  // After each row.
  void Flush() { m_out.MaybeFlush(); }

 private:
  JsonOut& m_out;
  std::string m_indent;
  std::vector<std::string> m_keys;
  size_t m_rows = 0, m_column = 0;
};

void AppendTime(std::string& out, ZemoTime time) {
  if (time)
    AppendJsonString(out, IsoTime(time));
  else
    out += "null";
}

// The window's rows, in the columns of its result table, from its records
// as they stand, so that a loaded save is not rebuilt away.
void WriteWindowJson(JsonOut& out, const Analysis& analysis) {
  WindowView view;
  ReadWindow(analysis, &view);
  AddressNames names(view.entities.Get());
  out.Text() += "      \"window_seconds\": " + std::to_string(view.seconds) + ",\n      \"bucket_count\": " +
                std::to_string(view.buckets) + ",\n      \"bucket_seconds\": " + std::to_string(view.bucketSeconds) +
                ",\n";
  JsonRows rows(out, {"Node", "PacketsReceived", "PacketsSent", "BytesReceived", "BytesSent", "MulticastPackets",
                      "MulticastBytes", "BroadcastPackets", "BroadcastBytes", "EntityIndex"});
  for (const WindowNode& n : view.nodes) {
    rows.Row();
    const ZemoNodeStat& s = n.stat;
    AppendJsonString(rows.Cell(), names.Of(n.entity));
    for (uint64_t v : {s.PacketsReceived, s.PacketsSent, s.BytesReceived, s.BytesSent, s.MulticastPackets,
                       s.MulticastBytes, s.BroadcastPackets, s.BroadcastBytes, uint64_t{n.entity}})
      AppendWhole(rows.Cell(), v);
    rows.Flush();
  }
  rows.End();
}

// "hosts_behind_addresses": each physical address that carried logical
// ones, with them, and the logical addresses seen behind several.
void WriteHostsJson(JsonOut& out, const Analysis& analysis) {
  HostsBehind hosts;
  if (!ReadHostsBehind(analysis, &hosts)) return;
  AddressNames names(hosts.entities.Get());
  std::string& t = out.Text();
  t += "  \"hosts_behind_addresses\": {\n    \"physical\": [";
  bool first = true;
  for (const HostsBehind::Physical& p : hosts.physical) {
    if (!p.pairCount) continue;
    t += first ? "\n      {\"address\": " : ",\n      {\"address\": ";
    first = false;
    AppendJsonString(t, names.Of(p.entity));
    t += p.group ? ", \"group\": true, \"packets\": " : ", \"group\": false, \"packets\": ";
    AppendWhole(t, p.packets);
    t += ", \"bytes\": ";
    AppendWhole(t, p.bytes);
    t += ", \"logical\": [";
    for (size_t i = 0; i < p.pairCount; ++i) {
      if (i) t += ", ";
      AppendJsonString(t, names.Of(hosts.pairs[p.firstPair + i].logical));
    }
    t += "]}";
    out.MaybeFlush();
  }
  t += first ? "],\n" : "\n    ],\n";
  t += "    \"logical_behind_several\": [";
  first = true;
  for (const HostsBehind::Shared& s : hosts.shared) {
    t += first ? "\n      {\"address\": " : ",\n      {\"address\": ";
    first = false;
    AppendJsonString(t, names.Of(s.logical));
    t += ", \"physical\": [";
    for (size_t i = 0; i < s.physical.size(); ++i) {
      if (i) t += ", ";
      AppendJsonString(t, names.Of(s.physical[i]));
    }
    t += "]}";
    out.MaybeFlush();
  }
  t += first ? "]\n  },\n" : "\n    ]\n  },\n";
}

// A count that is a whole number goes out as an integer.
void AppendCount(std::string& out, double value) {
  if (value >= 0 && value < 9.007199254740992e15 && value == std::floor(value))
    AppendNumber(out, static_cast<uint64_t>(value));
  else
    AppendDouble(out, value);
}

// "alarms", "events" and "tracks" of the JSON document; the series a row
// of time, packets and bytes per line, as a plotting tool takes it.
void WriteWatchJson(JsonOut& out, const AlarmWatch* watchOrNull, const WirelessWatch* wireless) {
  std::string& t = out.Text();
  const std::vector<WirelessWatch::Roam> noRoams;
  const std::vector<WirelessWatch::Roam>& roams = wireless ? wireless->Roams() : noRoams;
  if (!watchOrNull || !watchOrNull->HasAlarms()) {
    // Without alarms the events are the roams, if any.
    if (!roams.empty()) {
      t += "  \"events\": [";
      for (size_t i = 0; i < roams.size(); ++i) t += (i ? ",\n    " : "\n    ") + RoamJson(roams[i]).dump();
      t += "\n  ],\n";
    }
    if (!watchOrNull) return;
  }
  const AlarmWatch& watch = *watchOrNull;
  if (watch.HasAlarms()) {
    Json alarms = Json::array();
    for (const AlarmWatch::AlarmOutcome& o : watch.Outcomes()) {
      Json a = {{"name", o.name}, {"id", o.id}, {"state", o.state}, {"severity", o.severity},
                {"evaluated", o.evaluated}};
      if (!o.note.empty()) a["note"] = o.note;
      alarms.push_back(std::move(a));
    }
    t += "  \"alarms\": " + Indented(Json{{"file", watch.AlarmsFile()}, {"alarms", std::move(alarms)}}, 1) +
         ",\n  \"events\": [";
    bool first = true;
    for (const AlarmWatch::Event& e : watch.Events()) {
      t += first ? "\n    " : ",\n    ";
      first = false;
      t += Json{{"time", IsoTime(e.time)}, {"alarm", e.alarm}, {"state", e.state}, {"severity", e.severity},
                {"message", e.message}}
               .dump();
    }
    for (const WirelessWatch::Roam& r : roams) {
      t += first ? "\n    " : ",\n    ";
      first = false;
      t += RoamJson(r).dump();
    }
    t += first ? "],\n" : "\n  ],\n";
  }
  if (watch.Tracks().empty()) return;
  t += "  \"tracks\": [";
  bool firstTrack = true;
  for (const AlarmWatch::Track& track : watch.Tracks()) {
    t += firstTrack ? "\n    {" : ",\n    {";
    firstTrack = false;
    t += "\"kind\": " + Json(track.kind).dump() + ", \"name\": " + Json(track.name).dump() +
         ", \"text\": " + Json(track.text).dump() + ", \"appears\": " + (track.seen ? "true" : "false") +
         ",\n      \"series\": [";
    bool first = true;
    for (const AlarmWatch::Sample& sample : track.series) {
      t += first ? "\n        {\"time\": " : ",\n        {\"time\": ";
      first = false;
      AppendJsonString(t, IsoTime(sample.time));
      t += ", \"packets\": ";
      AppendCount(t, sample.packets);
      t += ", \"bytes\": ";
      AppendCount(t, sample.bytes);
      t += '}';
      out.MaybeFlush();
    }
    t += first ? "]}" : "\n      ]}";
  }
  t += "\n  ],\n";
}

// "report": each table of the report by its name, with its title and the
// rows it shows; the columns drawn only for people are left out.
void WriteReportJson(JsonOut& out, const std::vector<ReportSection>& report) {
  std::string& t = out.Text();
  t += "  \"report\": {";
  bool first = true;
  std::vector<Cell> cells;
  for (const ReportSection& section : report)
    for (const ReportTable& table : section.tables) {
      t += first ? "\n    " : ",\n    ";
      first = false;
      AppendJsonString(t, table.id);
      t += ": {\n      \"title\": ";
      AppendJsonString(t, table.title);
      t += ",\n      \"note\": ";
      AppendJsonString(t, table.note);
      t += ",\n      \"more_rows\": ";
      AppendWhole(t, uint64_t{table.moreRows});
      t += ",\n";
      std::vector<std::string> keys;
      std::vector<size_t> shown;
      for (size_t c = 0; c < table.columns.size(); ++c)
        if (table.columns[c].unit != Unit::kBar) {
          keys.push_back(table.columns[c].key);
          shown.push_back(c);
        }
      JsonRows rows(out, keys);
      for (size_t r = 0; r < table.rows; ++r) {
        table.row(r, cells);
        rows.Row();
        for (size_t c : shown) AppendReportCell(rows.Cell(), table.columns[c].unit, cells[c]);
        rows.Flush();
      }
      rows.End();
      t += "\n    }";
    }
  t += first ? "},\n" : "\n  },\n";
}

// Whether a column of a statistic's table holds times: FirstTime, LastTime.
bool IsTimeColumn(std::string_view name) { return name.size() > 4 && name.ends_with("Time"); }

}  // namespace

// A cell of the report as JSON: numbers stay numbers (or strings beyond
// what a double holds), times are ISO 8601, nothing is null.
void AppendReportCell(std::string& out, Unit unit, const Cell& cell) {
  if (std::holds_alternative<std::monostate>(cell)) {
    out += "null";
  } else if (const auto* text = std::get_if<std::string>(&cell)) {
    AppendJsonString(out, std::string_view(*text));
  } else if (const auto* whole = std::get_if<uint64_t>(&cell)) {
    if (unit == Unit::kTime)
      AppendTime(out, *whole);
    else
      AppendWhole(out, *whole);
  } else {
    AppendDouble(out, std::get<double>(cell));
  }
}

// The capture as the JSON document gives it.
Json CaptureJson(const Analysis& analysis, const CaptureInfo& info) {
  const Totals t = ReadTotals(analysis);
  const RunFacts& f = analysis.Facts();
  Json capture;
  // Only a run knows its source, link type and peak rates.
  if (analysis.FromSaves()) {
    capture["saved"] = info.savedFiles;
  } else {
    if (info.live)
      capture["interface"] = info.file;
    else
      capture["files"] = info.files;
    capture["live"] = info.live;
    capture["link_type"] = info.linkTypeName;
    capture["link_type_number"] = info.linkType;
    capture["link_type_description"] = info.linkTypeText;
    capture["decoded"] = analysis.Decoder().Known();
    if (info.fileSize) capture["file_size"] = JsonWhole(info.fileSize);
    if (info.snapLength) capture["snap_length"] = info.snapLength;
    if (!info.filter.empty()) capture["filter"] = info.filter;
    if (info.from) capture["from"] = IsoTime(info.from);
    if (info.to) capture["to"] = IsoTime(info.to);
  }
  capture["media_type"] = analysis.Medium().type;
  capture["media_subtype"] = analysis.Medium().subType;
  capture["packets"] = JsonWhole(t.packets);
  capture["bytes"] = JsonWhole(t.bytes);
  capture["average_packet_size"] = t.packets ? double(t.bytes) / double(t.packets) : 0.0;
  if (!analysis.FromSaves()) capture["truncated"] = JsonWhole(f.truncated);
  capture["start"] = t.start ? Json(IsoTime(t.start)) : Json(nullptr);
  capture["stop"] = t.start ? Json(IsoTime(t.stop)) : Json(nullptr);
  capture["duration_ns"] = JsonWhole(t.duration);
  double seconds = t.duration / 1e9;
  capture["average_packets_per_second"] = seconds > 0 ? t.packets / seconds : 0.0;
  capture["average_bits_per_second"] = seconds > 0 ? t.bytes * 8.0 / seconds : 0.0;
  if (!analysis.FromSaves()) {
    TrafficSeries::Bin peak = analysis.Traffic().PeakSecond();
    capture["time_ordered"] = f.outOfOrder == 0;
    capture["peak_packets_per_second"] = JsonWhole(peak.packets);
    capture["peak_bits_per_second"] = JsonWhole(peak.bytes * 8);
    TrafficSeries::Lines lines = analysis.Traffic().ToLines(kTrafficLines);
    Json rows = Json::array();
    for (size_t i = 0; i < lines.bins.size(); ++i)
      rows.push_back({{"From", IsoTime(lines.origin + i * lines.seconds * 1000000000ull)},
                      {"Packets", JsonWhole(lines.bins[i].packets)},
                      {"Bytes", JsonWhole(lines.bins[i].bytes)}});
    capture["traffic"] = {{"interval_seconds", lines.seconds}, {"columns", {"From", "Packets", "Bytes"}},
                          {"rows", rows}};
  }
  return capture;
}

Json JsonWhole(uint64_t value) {
  return value <= (uint64_t(1) << 53) ? Json(value) : Json(std::to_string(value));
}

Json JsonWhole(int64_t value) {
  constexpr int64_t kExact = int64_t(1) << 53;
  return value <= kExact && value >= -kExact ? Json(value) : Json(std::to_string(value));
}

void WriteJson(std::FILE* file, const Analysis& analysis, const CaptureInfo& info,
               const std::vector<ReportSection>& report, const AlarmWatch* watch) {
  JsonOut out(file);
  out.Text() = "{\n  \"schema\": " + std::to_string(kJsonSchemaVersion) +
               ",\n  \"capture\": " + Indented(CaptureJson(analysis, info), 1) + ",\n";
  SummaryTrees summaries = ReadSummaries(analysis);
  if (!summaries.trees.empty()) {
    Json series = Json::array();
    for (size_t i = 0; i < summaries.stored.size(); ++i) {
      OLECHAR id[39];
      StringFromGUID2(summaries.stored[i].second, id, 39);
      series.push_back({{"name", summaries.stored[i].first},
                        {"id", ToUtf8(std::u16string_view(id, 38))},
                        {"summary", SummaryJson(summaries.trees[i + 1])}});
    }
    out.Text() += "  \"summary\": " + Indented(SummaryJson(summaries.trees[0]), 1) + ",\n";
    out.Text() += "  \"summary_series\": " + Indented(series, 1) + ",\n";
  }
  WriteReportJson(out, report);
  out.Text() += "  \"statistics\": {";
  bool first = true;
  auto open = [&](const std::string& name) {
    out.Text() += first ? "\n    " : ",\n    ";
    out.Text() += Json(name).dump() + ": {\n";
    first = false;
  };
  for (const StatisticEntry& s : analysis.Statistics()) {
    if (s.selectName == "rollingnodestats") {
      open(s.selectName);
      WriteWindowJson(out, analysis);
      out.Text() += "\n    }";
      continue;
    }
    TableReader table;
    if (!s.selectable || IsSummary(s) || !table.Open(s.stats.Get())) continue;
    open(s.selectName);
    std::vector<bool> times;
    for (const std::string& c : table.Columns()) times.push_back(IsTimeColumn(c));
    JsonRows rows(out, table.Columns());
    table.ForEachRow([&](size_t, std::span<const DataCellView> cells) {
      rows.Row();
      for (size_t c = 0; c < cells.size(); ++c) {
        std::string& text = rows.Cell();
        const VARTYPE vt = cells[c].value.vt;
        if (times[c] && (vt == VT_UI8 || vt == VT_I8))
          AppendTime(text, cells[c].value.ullVal);
        else
          AppendJsonCell(text, cells[c]);
      }
      rows.Flush();
    });
    rows.End();
    out.Text() += "\n    }";
  }
  DashboardSeries traffic;
  if (ReadDashboard(analysis, &traffic)) {
    open("dashboardstats");
    out.Text() += "      \"interval_seconds\": " + std::to_string(traffic.interval) + ",\n";
    JsonRows rows(out, {"Time", "BytesPerSecond"});
    for (size_t i = 0; i < traffic.samples.size(); ++i) {
      rows.Row();
      AppendJsonString(rows.Cell(), IsoTime(traffic.From(i)));
      AppendDouble(rows.Cell(), traffic.samples[i]);
    }
    rows.End();
    out.Text() += "\n    }";
  }
  out.Text() += first ? "},\n" : "\n  },\n";
  WriteHostsJson(out, analysis);
  WriteWatchJson(out, watch, analysis.Wireless());
  out.Text() += "  \"warnings\": " + Indented(Json(info.warnings), 1) + "\n}\n";
}

bool ExportAll(const Analysis& analysis, const std::string& directory, std::string* error) {
  if (!EnsureDirectory(directory, error)) return false;
  std::vector<std::string> written;
  for (const StatisticEntry& s : analysis.Statistics()) {
    ComPtr<IPersistFile> file;
    if (FAILED(s.stats.As(&file))) continue;
    std::string path = directory + "/" + s.selectName + ".txt";
    HRESULT hr = file->Save(FromUtf8(path).c_str(), FALSE);
    if (FAILED(hr)) {
      *error = path + ": the export failed (" + HrReason(hr) + ")";
      for (const std::string& w : written) unlink(w.c_str());
      return false;
    }
    written.push_back(path);
  }
  return true;
}

}  // namespace zemo::cli
