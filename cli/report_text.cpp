// The report for people: each section's facts as aligned lines, each table
// in aligned columns (numbers to the right, text to the left), headings in
// bold and warnings in yellow when colour is on.
#include <algorithm>
#include <cmath>

#include "cli/report.h"
#include "cli/summary_report.h"

namespace zemo::cli {
namespace {

struct Style {
  bool on;
  std::string Heading(const std::string& s) const { return on ? "\033[1m" + s + "\033[0m" : s; }
  std::string Note(const std::string& s) const { return on ? "\033[2m" + s + "\033[0m" : s; }
  std::string Warning(const std::string& s) const { return on ? "\033[33m" + s + "\033[0m" : s; }
  std::string Bar(const std::string& s) const { return on && !s.empty() ? "\033[32m" + s + "\033[0m" : s; }
};

// A byte count as its number and, from 10 kB on, its size in units: the
// two parts, so that a column can align the numbers.
std::pair<std::string, std::string> BytesParts(uint64_t bytes) {
  if (bytes < 10000) return {std::to_string(bytes), ""};
  return {std::to_string(bytes), "(" + SizeText(bytes) + ")"};
}

std::string NumberText(double v) {
  if (!std::isfinite(v)) return "";
  if (v == std::floor(v) && std::fabs(v) < 1e15) return Fixed(v, 0);
  return Fixed(v, 2);
}

std::string UnitText(Unit unit, const Cell& cell) {
  if (std::holds_alternative<std::monostate>(cell)) return "";
  if (const auto* text = std::get_if<std::string>(&cell)) return *text;
  if (const auto* whole = std::get_if<uint64_t>(&cell)) {
    switch (unit) {
      case Unit::kTime: return DateText(*whole);
      case Unit::kBitRate: return BitRate(double(*whole));
      default: return std::to_string(*whole);
    }
  }
  const double v = std::get<double>(cell);
  switch (unit) {
    case Unit::kBitRate: return BitRate(v);
    // A small share keeps a figure that is not 0.
    case Unit::kPercent: return Fixed(v, v > 0 && v < 1 ? 2 : 1) + "%";
    case Unit::kSeconds: return Fixed(v, 3) + " s";
    case Unit::kBar: return std::string(static_cast<size_t>(std::clamp(v, 0.0, 1.0) * 40 + 0.5), '#');
    default: return NumberText(v);
  }
}

void PrintFacts(std::FILE* out, const std::vector<ReportFact>& facts) {
  size_t width = 0;
  for (const ReportFact& f : facts) width = std::max(width, f.title.size());
  for (const ReportFact& f : facts) {
    std::string value;
    if (f.unit == Unit::kBytes && std::holds_alternative<uint64_t>(f.value)) {
      const uint64_t bytes = std::get<uint64_t>(f.value);
      value = std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
      if (bytes >= 10000) value += " (" + SizeText(bytes) + ")";
    } else {
      value = UnitText(f.unit, f.value);
    }
    // A number's detail is its unit; anything else's a remark.
    const bool number = f.unit == Unit::kNumber || f.unit == Unit::kCount;
    if (!f.detail.empty()) value += number ? " " + f.detail : " (" + f.detail + ")";
    std::fprintf(out, "  %-*s  %s\n", static_cast<int>(width), f.title.c_str(), value.c_str());
  }
}

void PrintTable(std::FILE* out, const ReportTable& table, const Style& style) {
  std::fprintf(out, "\n%s\n", style.Heading(table.title).c_str());
  if (!table.note.empty()) std::fprintf(out, "%s\n", style.Note("  " + table.note).c_str());
  if (table.rows == 0) {
    if (!table.whenEmpty.empty()) std::fprintf(out, "  (%s)\n", table.whenEmpty.c_str());
    return;
  }
  std::vector<size_t> shown;
  for (size_t c = 0; c < table.columns.size(); ++c)
    if (!table.columns[c].textHidden && static_cast<int>(c) != table.depthColumn) shown.push_back(c);
  // Each cell's text, and for byte counts the size in units apart.
  std::vector<std::vector<std::string>> text(table.rows, std::vector<std::string>(shown.size()));
  std::vector<std::vector<std::string>> units(table.rows, std::vector<std::string>(shown.size()));
  std::vector<Cell> cells;
  for (size_t r = 0; r < table.rows; ++r) {
    table.row(r, cells);
    for (size_t k = 0; k < shown.size(); ++k) {
      const size_t c = shown[k];
      const Unit unit = table.columns[c].unit;
      if (unit == Unit::kBytes && std::holds_alternative<uint64_t>(cells[c]))
        std::tie(text[r][k], units[r][k]) = BytesParts(std::get<uint64_t>(cells[c]));
      else
        text[r][k] = UnitText(unit, cells[c]);
    }
    if (table.depthColumn >= 0 && std::holds_alternative<uint64_t>(cells[table.depthColumn]))
      text[r][0] = std::string(2 * std::get<uint64_t>(cells[table.depthColumn]), ' ') + text[r][0];
  }
  // A byte count's units stand after it, padded so that the numbers align.
  for (size_t k = 0; k < shown.size(); ++k) {
    size_t unitWidth = 0;
    for (size_t r = 0; r < table.rows; ++r) unitWidth = std::max(unitWidth, units[r][k].size());
    if (unitWidth)
      for (size_t r = 0; r < table.rows; ++r)
        text[r][k] += " " + units[r][k] + std::string(unitWidth - units[r][k].size(), ' ');
  }
  std::vector<size_t> width(shown.size());
  std::vector<bool> right(shown.size());
  for (size_t k = 0; k < shown.size(); ++k) {
    const ReportColumn& column = table.columns[shown[k]];
    width[k] = column.title.size();
    right[k] = column.unit != Unit::kText && column.unit != Unit::kBar && column.unit != Unit::kTime;
    for (size_t r = 0; r < table.rows; ++r) width[k] = std::max(width[k], text[r][k].size());
  }
  auto line = [&](const std::vector<std::string>& row, bool head) {
    std::string s = " ";
    for (size_t k = 0; k < shown.size(); ++k) {
      const std::string& v = head ? table.columns[shown[k]].title : row[k];
      std::string pad(width[k] - std::min(width[k], v.size()), ' ');
      const bool bar = table.columns[shown[k]].unit == Unit::kBar;
      s += ' ';
      s += right[k] ? pad + v : (bar && !head ? style.Bar(v) : v) + pad;
      s += ' ';
    }
    while (!s.empty() && s.back() == ' ') s.pop_back();
    std::fprintf(out, "%s\n", s.c_str());
  };
  line({}, true);
  for (const auto& row : text) line(row, false);
  if (table.moreRows) std::fprintf(out, "  ... and %zu more\n", table.moreRows);
}

}  // namespace

void PrintReport(std::FILE* out, const Analysis& analysis, const CaptureInfo& info,
                 const std::vector<ReportSection>& report, bool colour) {
  const Style style{colour};
  bool first = true;
  for (const ReportSection& section : report) {
    if (!section.facts.empty()) {
      std::fprintf(out, "%s%s\n", first ? "" : "\n", style.Heading(section.title).c_str());
      PrintFacts(out, section.facts);
    }
    for (const ReportTable& table : section.tables) PrintTable(out, table, style);
    // The summary follows the capture.
    if (first) {
      ComPtr<ISummaryStatsSnapshot> current;
      ComPtr<ISummaryStats> summary = analysis.Summary();
      if (summary && SUCCEEDED(summary->GetSnapshot(0, current.ReleaseAndGetAddressOf())))
        PrintSummary(out, ReadSummaryTree(current.Get(), ReportStatMap()), style.Heading("Summary"));
    }
    first = false;
  }
  if (analysis.Statistics().empty()) std::fprintf(out, "\n(this build of the module serves no statistics yet)\n");
  if (!info.warnings.empty()) {
    std::fprintf(out, "\n%s\n", style.Warning("Warnings").c_str());
    for (const std::string& w : info.warnings) std::fprintf(out, "  %s\n", style.Warning(w).c_str());
  }
}

}  // namespace zemo::cli
