// The outputs of a run: the report for people, the JSON document for
// machines, and the text exports of the statistics.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "cli/alarm_watch.h"
#include "cli/analysis.h"
#include "engine/data_table.h"
#include "frame/engine_interfaces.h"
#include "platform/variant.h"

namespace zemo::cli {

// What the report says of the capture beside the context's figures. A
// context loaded from saves has only the saved files and warnings.
struct CaptureInfo {
  std::string file;  // the path, "-" for standard input, or the interface
  bool live = false;
  uint32_t linkType = 0;
  std::string linkTypeName;
  std::vector<std::string> warnings;
  std::vector<std::string> savedFiles;  // the files a loaded context came from
};

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

// A rate for people: "12.34 Mbit/s".
std::string BitRate(double bitsPerSecond);

// ZemoTime as ISO 8601 in UTC with nanoseconds: 2026-11-23T04:47:21.123456789Z.
std::string IsoTime(ZemoTime time);

// The medium's name for people: "802.3", "802.11", or the numbers.
std::string MediumName(const LinkMedium& medium);

// The JSON document, written as it is made: the rows of each table go out
// one by one.
// watch, when there is one, adds the alarms, their changes of state and
// the tracked series.
void WriteJson(std::FILE* out, const Analysis& analysis, const CaptureInfo& info, const AlarmWatch* watch = nullptr);
void PrintReport(std::FILE* out, const Analysis& analysis, const CaptureInfo& info, size_t top,
                 const AlarmWatch* watch = nullptr);

// Writes each statistic's text export as DIR/<name>.txt, creating DIR if it
// is missing. On failure nothing written here is left and the message says why.
bool ExportAll(const Analysis& analysis, const std::string& directory, std::string* error);

}  // namespace zemo::cli
