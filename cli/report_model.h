// What the report shows, gathered once and rendered in several forms: the
// text for people (report_text.cpp), CSV files (report_csv.cpp) and the
// "report" part of the JSON document (report.cpp).
//
// Each section is facts (name and value) and tables. A cell holds the
// value itself (a count, a double, a time, text), and its column says what
// kind of figure it is, so that each form writes it its own way: the text
// "356573 (356 kB)", "1.20 Mbit/s" or "2026-01-01 00:00:01.5", CSV and JSON
// the number or the ISO 8601 time. A new section needs one gathering
// function here and gets every form.
//
// A table hands out its rows one at a time, by position, so that a table of
// many rows is never made whole in memory.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "cli/alarm_watch.h"
#include "cli/analysis.h"
#include "platform/types.h"

namespace zemo::cli {

struct CaptureInfo;

// The kind of figure a column or fact holds.
enum class Unit {
  kText,
  kCount,     // a whole number
  kBytes,     // a whole number of bytes
  kBitRate,   // bits per second, a double
  kPercent,   // a double from 0 to 100
  kTime,      // a ZemoTime; none is empty
  kSeconds,   // a duration in seconds, a double
  kNumber,    // any other double
  kBar,       // a share from 0 to 1 drawn as a bar; only in the text
};

// A cell: nothing, a whole number (counts, bytes, times), a double or text.
using Cell = std::variant<std::monostate, uint64_t, double, std::string>;

struct ReportColumn {
  std::string key;    // CSV head and JSON key: "bytes_sent"
  std::string title;  // the text's head: "Bytes sent"
  Unit unit;
  bool textHidden = false;  // in CSV and JSON only
};

struct ReportTable {
  std::string id;     // file name and JSON key: "top_logical_nodes"
  std::string title;  // "Top 10 logical addresses by bytes"
  std::string note;   // a line under the title, or empty
  std::vector<ReportColumn> columns;
  size_t rows = 0;
  // Fills cells (one per column) with row i, 0 <= i < rows.
  std::function<void(size_t, std::vector<Cell>&)> row;
  size_t moreRows = 0;  // rows of the whole that the table leaves out
  std::string whenEmpty;  // what the text says when there are no rows
  // In the text, the first column is indented by this column's count (a
  // depth in a tree), which is shown no further; -1: none.
  int depthColumn = -1;
};

struct ReportFact {
  std::string key, title;
  Unit unit;
  Cell value;
  std::string detail;  // text shown after the value, in parentheses
};

struct ReportSection {
  std::string id, title;
  std::vector<ReportFact> facts;
  std::vector<ReportTable> tables;
};

// The traffic lines of a capture are at most this many.
inline constexpr size_t kTrafficLines = 30;

enum class SortBy { kBytes, kPackets, kSent, kReceived };

struct ReportOptions {
  size_t top = 10;  // rows of a top table; SIZE_MAX: all
  SortBy sort = SortBy::kBytes;
};

// The sections of the report in their order. The summary is apart: it is a
// tree (summary_report.h).
std::vector<ReportSection> GatherReport(const Analysis& analysis, const CaptureInfo& info,
                                        const ReportOptions& options, const AlarmWatch* watch = nullptr);

// Byte counts as capinfos gives them: the largest of bytes, kB, MB, GB and
// TB (powers of 1000) in which the count is at least 10, in whole units
// ("9999 bytes", "10 kB", "521 kB").
std::string SizeText(uint64_t bytes);
// A rate for people: "12.34 Mbit/s".
std::string BitRate(double bitsPerSecond);
// ZemoTime as ISO 8601 in UTC with nanoseconds: 2026-11-23T04:47:21.123456789Z;
// empty for no time.
std::string IsoTime(ZemoTime time);
// The same for people: "2026-11-23 04:47:21.123456789", the fraction cut
// after its last digit that is not 0 in groups of three.
std::string DateText(ZemoTime time);
std::string Fixed(double value, int decimals);

}  // namespace zemo::cli
