// The report as one web page: the same sections that the text, the CSV
// files and the JSON document are written from, with charts of the traffic,
// the sizes and the protocol hierarchy and sortable tables. The page is
// whole in one file (its style, its script and the chart library inlined),
// so that it opens anywhere without the network.
//
// A large capture still gives a page that opens fast: its tables are the
// report's (top N) and at most kPageRows rows each, and each traffic line
// at most kPagePoints points; the page says so.
#pragma once

#include <string>
#include <vector>

#include "cli/alarm_watch.h"
#include "cli/analysis.h"
#include "cli/report.h"
#include "cli/report_model.h"

namespace zemo::cli {

inline constexpr size_t kPagePoints = 3000;
inline constexpr size_t kPageRows = 5000;

// What the page's script draws, as JSON: the capture as the JSON document
// gives it, the summary, the sections with their facts and tables (cells as
// the JSON document holds them), the traffic at each zoom level and the caps.
std::string PageData(const Analysis& analysis, const CaptureInfo& info, const std::vector<ReportSection>& report,
                     size_t top);

// Writes the page to path: beside it first, then renamed into it, so that a
// failed write leaves an earlier file of that name as it was.
bool WriteHtml(const std::string& path, const Analysis& analysis, const CaptureInfo& info,
               const std::vector<ReportSection>& report, size_t top, std::string* error);

}  // namespace zemo::cli
