// The outputs of a run: the report for people, the JSON document for
// machines, and the text exports of the statistics.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/analysis.h"
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

// A statistic's result table, read through ISelectableObject::GetTable.
struct TableData {
  std::vector<std::string> columns;
  std::vector<std::vector<CVariant>> rows;

  // The index of a column by name, -1 if none.
  int Column(std::string_view name) const;
};

// False if the statistic has no table or building it failed.
bool ReadTable(IZemoStats* stats, TableData* table);

// A cell as text for people: numbers in decimal, text as it is, empty for none.
std::string CellText(const VARIANT& cell);
// A cell as a JSON value: numbers stay numbers, text is UTF-8, empty is null.
nlohmann::ordered_json CellJson(const VARIANT& cell);

// ZemoTime as ISO 8601 in UTC with nanoseconds: 2026-11-23T04:47:21.123456789Z.
std::string IsoTime(ZemoTime time);

// The medium's name for people: "802.3", "802.11", or the numbers.
std::string MediumName(const LinkMedium& medium);

nlohmann::ordered_json BuildJson(const Analysis& analysis, const CaptureInfo& info);
void PrintReport(std::FILE* out, const Analysis& analysis, const CaptureInfo& info, size_t top);

// Writes each statistic's text export as DIR/<name>.txt, creating DIR if it
// is missing. On failure nothing written here is left and the message says why.
bool ExportAll(const Analysis& analysis, const std::string& directory, std::string* error);

}  // namespace zemo::cli
