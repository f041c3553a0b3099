// The outputs of a run: the report for people, the JSON document for
// machines, and the text exports of the statistics.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/alarm_watch.h"
#include "cli/analysis.h"
#include "cli/report_model.h"
#include "engine/data_table.h"
#include "frame/engine_interfaces.h"
#include "platform/variant.h"

namespace zemo::cli {

// What the report says of the capture beside the context's figures. A
// context loaded from saves has only the saved files and warnings.
struct CaptureInfo {
  std::string file;                // the first file's path, or the interface
  std::vector<std::string> files;  // the capture files of a run, "-" for standard input
  bool live = false;
  uint32_t linkType = 0;
  std::string linkTypeName;  // "EN10MB"
  std::string linkTypeText;  // "Ethernet"
  uint64_t fileSize = 0;     // of all the files; 0 when unknown (a pipe)
  uint32_t snapLength = 0;   // the largest of the files'
  std::string filter;        // the capture filter, if any
  ZemoTime from = 0, to = 0;  // the window of packet time asked for; 0: open
  std::vector<std::string> warnings;
  std::vector<std::string> savedFiles;  // the files a loaded context came from
};

// The capture's totals: a run's own (whole bytes of frames beyond what the
// statistics hold, earliest and latest valid stamps), a saved context's
// from the context.
struct Totals {
  uint64_t packets = 0, bytes = 0;
  ZemoTime start = 0, stop = 0;
  uint64_t duration = 0;  // nanoseconds
};
Totals ReadTotals(const Analysis& analysis);

// The statistic of that select name, or null.
const StatisticEntry* FindStatistic(const Analysis& analysis, std::string_view name);

// The dashboard's traffic series, since the dashboard offers no selection
// table: bytes per second in each span from the start. The spans end on
// whole seconds of packet time, so the first, from the first packet, is
// shorter than the others when that packet is not on a whole second.
struct DashboardSeries {
  LONG interval = 0;
  ZemoTime start = 0;
  std::vector<double> samples;

  ZemoTime From(size_t i) const;
  // The bytes of span i: its rate over its true length.
  double BytesOf(size_t i) const { return samples[i] * static_cast<double>(From(i + 1) - From(i)) / 1e9; }
};
// False when there is no dashboard or no rung is left.
bool ReadDashboard(const Analysis& analysis, DashboardSeries* series);

// A statistic's result table (ISelectableObject::GetTable), read a row at a
// time, so that a table of a million rows never stands in memory twice. A
// table of the engine's own class (which this host registered) is read
// directly, without a copy of each cell; any other through its interfaces.
class TableReader {
 public:
  // False if the statistic has no table or building it failed.
  bool Open(IZemoStats* stats);

  const std::vector<std::string>& Columns() const { return m_columns; }
  // The index of a column by name, -1 if none.
  int Column(std::string_view name) const;
  size_t RowCount() const { return m_rowCount; }

  // fn(row, cells) for each row in order; the cells are lent for the call.
  template <class Fn>
  void ForEachRow(Fn&& fn) const {
    if (m_direct) return m_direct->ForEachRow(fn);
    std::vector<CVariant> cells;
    std::vector<DataCellView> views;
    for (size_t row = 0; row < m_rowCount; ++row)
      if (ViewThroughInterfaces(row, cells, views)) fn(row, std::span<const DataCellView>(views));
  }
  // fn(row, cells) for one row; false if it cannot be read.
  template <class Fn>
  bool ViewRow(size_t row, Fn&& fn) const {
    if (m_direct) return m_direct->ViewRow(row, fn);
    std::vector<CVariant> cells;
    std::vector<DataCellView> views;
    if (!ViewThroughInterfaces(row, cells, views)) return false;
    fn(row, std::span<const DataCellView>(views));
    return true;
  }

 private:
  bool ViewThroughInterfaces(size_t row, std::vector<CVariant>& cells, std::vector<DataCellView>& views) const;

  ComPtr<IDataTable> m_table;
  ComPtr<IDataRows> m_rows;
  const DataRows* m_direct = nullptr;  // the rows of m_table when it is the engine's own
  std::vector<std::string> m_columns;
  size_t m_rowCount = 0;
};

// A cell as text for people: numbers in decimal, text as it is, empty for none.
std::string CellText(const VARIANT& cell);
std::string CellText(const DataCellView& cell);
// A cell as a JSON value appended to out: numbers stay numbers, text is
// UTF-8, empty is null.
void AppendJsonCell(std::string& out, const VARIANT& cell);
void AppendJsonCell(std::string& out, const DataCellView& cell);

// A whole number as the JSON document holds it: a number where a double
// holds it exactly, else the string of its digits.
nlohmann::ordered_json JsonWhole(uint64_t value);
nlohmann::ordered_json JsonWhole(int64_t value);

// The version of the JSON document's form, its "schema"; the form is
// described by cli/zemostats.schema.json.
inline constexpr int kJsonSchemaVersion = 2;

// The JSON document, written as it is made: the rows of each table go out
// one by one. report: the report's tables, written as they are.
// watch, when there is one, adds the alarms, their changes of state and
// the tracked series.
void WriteJson(std::FILE* out, const Analysis& analysis, const CaptureInfo& info,
               const std::vector<ReportSection>& report, const AlarmWatch* watch = nullptr);

// The report for people; colour with the terminal's escapes.
void PrintReport(std::FILE* out, const Analysis& analysis, const CaptureInfo& info,
                 const std::vector<ReportSection>& report, bool colour);

// Each table of the report as DIR/<table>.csv, and the capture's facts as
// DIR/capture.csv, creating DIR if it is missing. On failure the message
// says why.
bool WriteCsv(const std::string& directory, const std::vector<ReportSection>& report, std::string* error);

// Writes each statistic's text export as DIR/<name>.txt, creating DIR if it
// is missing. On failure nothing written here is left and the message says why.
bool ExportAll(const Analysis& analysis, const std::string& directory, std::string* error);

}  // namespace zemo::cli
