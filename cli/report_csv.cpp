// The report's tables as CSV files (RFC 4180: a head line, CRLF line ends,
// a field quoted when it holds a comma, a quote or a line end), with times
// in ISO 8601 and numbers as plain numbers, as a spreadsheet or a script
// takes them.
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "cli/report.h"

namespace zemo::cli {
namespace {

void AppendField(std::string& out, std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
    out += text;
    return;
  }
  out += '"';
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
}

void AppendCell(std::string& out, Unit unit, const Cell& cell) {
  if (std::holds_alternative<std::monostate>(cell)) return;
  if (const auto* text = std::get_if<std::string>(&cell)) return AppendField(out, *text);
  if (const auto* whole = std::get_if<uint64_t>(&cell)) {
    out += unit == Unit::kTime ? IsoTime(*whole) : std::to_string(*whole);
    return;
  }
  const double v = std::get<double>(cell);
  if (!std::isfinite(v)) return;
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, end);
}

// Writes the file whole, or says why it could not.
class CsvFile {
 public:
  CsvFile(const std::string& path) : m_path(path), m_file(std::fopen(path.c_str(), "wb")) {}
  ~CsvFile() {
    if (m_file) std::fclose(m_file);
  }
  bool Open(std::string* error) {
    if (m_file) return true;
    *error = m_path + ": cannot write the CSV file: " + std::strerror(errno);
    return false;
  }
  // A line from its fields, already in CSV form.
  void Line(std::string& text) {
    text += "\r\n";
    if (m_ok && std::fwrite(text.data(), 1, text.size(), m_file) != text.size()) m_ok = false;
    text.clear();
  }
  bool Close(std::string* error) {
    const bool closed = std::fclose(m_file) == 0;
    m_file = nullptr;
    if (m_ok && closed) return true;
    *error = m_path + ": cannot write the CSV file: " + std::strerror(errno);
    return false;
  }

 private:
  std::string m_path;
  std::FILE* m_file;
  bool m_ok = true;
};

bool WriteTable(const std::string& directory, const ReportTable& table, std::string* error) {
  CsvFile file(directory + "/" + table.id + ".csv");
  if (!file.Open(error)) return false;
  std::vector<size_t> shown;
  for (size_t c = 0; c < table.columns.size(); ++c)
    if (table.columns[c].unit != Unit::kBar) shown.push_back(c);
  std::string line;
  for (size_t k = 0; k < shown.size(); ++k) {
    if (k) line += ',';
    AppendField(line, table.columns[shown[k]].key);
  }
  file.Line(line);
  std::vector<Cell> cells;
  for (size_t r = 0; r < table.rows; ++r) {
    table.row(r, cells);
    for (size_t k = 0; k < shown.size(); ++k) {
      if (k) line += ',';
      AppendCell(line, table.columns[shown[k]].unit, cells[shown[k]]);
    }
    file.Line(line);
  }
  return file.Close(error);
}

// The facts of the report's sections, one a line: the section, the fact and its value.
bool WriteFacts(const std::string& directory, const std::vector<ReportSection>& report, std::string* error) {
  CsvFile file(directory + "/capture.csv");
  if (!file.Open(error)) return false;
  std::string line = "section,fact,value";
  file.Line(line);
  for (const ReportSection& section : report)
    for (const ReportFact& fact : section.facts) {
      AppendField(line, section.id);
      line += ',';
      AppendField(line, fact.key);
      line += ',';
      AppendCell(line, fact.unit, fact.value);
      file.Line(line);
    }
  return file.Close(error);
}

}  // namespace

bool WriteCsv(const std::string& directory, const std::vector<ReportSection>& report, std::string* error) {
  if (!EnsureDirectory(directory, error) || !WriteFacts(directory, report, error)) return false;
  for (const ReportSection& section : report)
    for (const ReportTable& table : section.tables)
      if (!WriteTable(directory, table, error)) return false;
  return true;
}

}  // namespace zemo::cli
