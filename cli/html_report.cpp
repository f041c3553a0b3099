#include "cli/html_report.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/summary_report.h"
#include "platform/clock.h"

namespace zemo::cli {

// The page's files, embedded when the program is built (page_assets.cpp).
std::string PageAsset(std::string_view name);

namespace {

using Json = nlohmann::ordered_json;

const char* UnitName(Unit unit) {
  switch (unit) {
    case Unit::kCount: return "count";
    case Unit::kBytes: return "bytes";
    case Unit::kBitRate: return "bit_rate";
    case Unit::kPercent: return "percent";
    case Unit::kTime: return "time";
    case Unit::kSeconds: return "seconds";
    case Unit::kNumber: return "number";
    case Unit::kBar: return "bar";
    default: return "text";
  }
}

void AppendTable(std::string& out, const ReportTable& table) {
  Json head = {{"id", table.id}, {"title", table.title}, {"note", table.note}, {"when_empty", table.whenEmpty}};
  head["depth_column"] = table.depthColumn;
  const size_t rows = std::min(table.rows, kPageRows);
  head["more_rows"] = JsonWhole(uint64_t{table.moreRows + (table.rows - rows)});
  head["capped"] = rows < table.rows;
  Json columns = Json::array();
  for (const ReportColumn& c : table.columns)
    columns.push_back({{"key", c.key}, {"title", c.title}, {"unit", UnitName(c.unit)}, {"hidden", c.textHidden}});
  head["columns"] = std::move(columns);
  std::string text = head.dump();
  text.pop_back();  // the rows go in before the closing brace
  out += text + ",\"rows\":[";
  std::vector<Cell> cells;
  for (size_t r = 0; r < rows; ++r) {
    table.row(r, cells);
    out += r ? ",[" : "[";
    for (size_t c = 0; c < table.columns.size(); ++c) {
      if (c) out += ',';
      AppendReportCell(out, table.columns[c].unit, c < cells.size() ? cells[c] : Cell{});
    }
    out += ']';
  }
  out += "]}";
}

void AppendSection(std::string& out, const ReportSection& section) {
  Json facts = Json::array();
  for (const ReportFact& f : section.facts) {
    std::string value;
    AppendReportCell(value, f.unit, f.value);
    facts.push_back({{"key", f.key}, {"title", f.title}, {"unit", UnitName(f.unit)},
                     {"value", Json::parse(value)}, {"text", FactText(f)}});
  }
  out += "{\"id\":" + Json(section.id).dump() + ",\"title\":" + Json(section.title).dump() +
         ",\"facts\":" + facts.dump() + ",\"tables\":[";
  for (size_t t = 0; t < section.tables.size(); ++t) {
    if (t) out += ',';
    AppendTable(out, section.tables[t]);
  }
  out += "]}";
}

// One zoom level of the traffic: the start of each point in seconds from
// the origin, with its packets (none for a saved dashboard) and bytes.
Json Level(uint64_t seconds, const std::vector<double>& at, const std::vector<uint64_t>* packets,
           const std::vector<double>& bytes) {
  Json level = {{"seconds", seconds}, {"at", at}, {"bytes", bytes}};
  if (packets) level["packets"] = *packets;
  return level;
}

// A run's traffic at each width of its ladder, from the narrowest that
// keeps to the cap of points to the widest that still gives two; a saved
// context's as its dashboard has it, joined to the cap.
Json TrafficLevels(const Analysis& analysis) {
  Json levels = Json::array();
  ZemoTime origin = 0;
  if (!analysis.FromSaves()) {
    const TrafficSeries& series = analysis.Traffic();
    if (series.Empty()) return nullptr;
    TrafficSeries::Lines lines = series.ToLines(kPagePoints);
    origin = lines.origin;
    for (;;) {
      std::vector<double> at, bytes;
      std::vector<uint64_t> packets;
      for (size_t i = 0; i < lines.bins.size(); ++i) {
        at.push_back(double(i * lines.seconds));
        packets.push_back(lines.bins[i].packets);
        bytes.push_back(double(lines.bins[i].bytes));
      }
      levels.push_back(Level(lines.seconds, at, &packets, bytes));
      if (lines.bins.size() <= 2) break;
      TrafficSeries::Lines wider = series.ToLines(lines.bins.size() - 1);
      if (wider.seconds == lines.seconds || wider.bins.size() < 2) break;
      lines = std::move(wider);
    }
  } else {
    DashboardSeries t;
    if (!ReadDashboard(analysis, &t) || t.samples.empty()) return nullptr;
    origin = t.From(0);
    const size_t group = (t.samples.size() + kPagePoints - 1) / kPagePoints;
    std::vector<double> at, bytes;
    for (size_t i = 0; i < t.samples.size(); i += group) {
      const size_t end = std::min(t.samples.size(), i + group);
      double sum = 0;
      for (size_t k = i; k < end; ++k) sum += t.BytesOf(k);
      at.push_back(double(t.From(i) - origin) / 1e9);
      bytes.push_back(sum);
    }
    levels.push_back(Level(uint64_t(t.interval) * group, at, nullptr, bytes));
  }
  return {{"origin", IsoTime(origin)}, {"origin_ms", double(origin - kUnixEpochAsZemoTime) / 1e6},
          {"source", analysis.FromSaves() ? "dashboard" : "run"}, {"levels", std::move(levels)}};
}

// Text put inside a script element must not close it: every "<" goes out
// as its JSON escape, which is only ever inside a string.
std::string ForScript(const std::string& json) {
  std::string out;
  out.reserve(json.size());
  for (char c : json) {
    if (c == '<')
      out += "\\u003c";
    else
      out += c;
  }
  return out;
}

// Fills the template's marks in their order, each looked for after what
// went in before it, so that nothing put in is taken for a mark.
void Fill(std::string& page, const std::vector<std::pair<std::string_view, std::string>>& parts) {
  size_t from = 0;
  for (const auto& [mark, with] : parts) {
    const size_t at = page.find(mark, from);
    if (at == std::string::npos) continue;
    page.replace(at, mark.size(), with);
    from = at + with.size();
  }
}

}  // namespace

std::string PageData(const Analysis& analysis, const CaptureInfo& info, const std::vector<ReportSection>& report,
                     size_t top) {
  std::string out = "{\"capture\":" + CaptureJson(analysis, info).dump();
  ComPtr<ISummaryStatsSnapshot> current;
  ComPtr<ISummaryStats> summary = analysis.Summary();
  if (summary && SUCCEEDED(summary->GetSnapshot(0, current.ReleaseAndGetAddressOf())))
    out += ",\"summary\":" + SummaryJson(ReadSummaryTree(current.Get(), ReportStatMap())).dump();
  Json caps = {{"top", top == SIZE_MAX ? Json(nullptr) : JsonWhole(uint64_t{top})},
               {"rows", kPageRows},
               {"points", kPagePoints}};
  out += ",\"caps\":" + caps.dump() + ",\"traffic\":" + TrafficLevels(analysis).dump();
  out += ",\"warnings\":" + Json(info.warnings).dump() + ",\"sections\":[";
  for (size_t s = 0; s < report.size(); ++s) {
    if (s) out += ',';
    AppendSection(out, report[s]);
  }
  return out + "]}";
}

bool WriteHtml(const std::string& path, const Analysis& analysis, const CaptureInfo& info,
               const std::vector<ReportSection>& report, size_t top, std::string* error) {
  std::string page = PageAsset("report.html");
  std::string title = info.files.empty() ? (info.savedFiles.empty() ? info.file : info.savedFiles.front())
                                         : info.files.front();
  std::string escaped;
  for (char c : title) {
    switch (c) {
      case '<': escaped += "&lt;"; break;
      case '>': escaped += "&gt;"; break;
      case '&': escaped += "&amp;"; break;
      default: escaped += c;
    }
  }
  Fill(page, {{"{{TITLE}}", escaped},
              {"/*{{STYLE}}*/", PageAsset("report.css")},
              {"/*{{DATA}}*/", ForScript(PageData(analysis, info, report, top))},
              {"/*{{CHART}}*/", PageAsset("chart.min.js")},
              {"/*{{SCRIPT}}*/", PageAsset("report.js")}});

  const std::string temp = path + ".partial";
  std::FILE* file = std::fopen(temp.c_str(), "wb");
  bool written = file && std::fwrite(page.data(), 1, page.size(), file) == page.size();
  int e = errno;
  if (file && std::fclose(file) != 0 && written) {
    written = false;
    e = errno;
  }
  if (written && std::rename(temp.c_str(), path.c_str()) != 0) {
    written = false;
    e = errno;
  }
  if (!written) {
    if (file) unlink(temp.c_str());
    *error = "cannot write the page " + path + " (" + std::strerror(e) + ")";
  }
  return written;
}

}  // namespace zemo::cli
