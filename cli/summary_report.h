// The summary in zemostats's outputs: the snapshot's items as a tree of
// groups, named through the stat map and put in its order, printed for
// people and written as JSON.
//
// The stat map is the current directory's "Statmap.xml" when there is one,
// as the module itself reads it, and otherwise the one shipped with the
// program: beside it in a build, in its data folder once installed.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "summary/stat_map.h"
#include "summary/summary_interfaces.h"

namespace zemo::cli {

struct SummaryNode {
  GUID id{};
  std::string name;  // the label, else the stat map's name, else the id
  SummaryStatValue value{};
  std::vector<SummaryNode> children;
};

// The stat map found as above, read once; empty when there is none.
const CStatMap& ReportStatMap();
// The path it was read from, empty when none was found.
const std::string& ReportStatMapPath();

// The items of a snapshot as a tree. Each level follows the stat map: an
// item the map does not know keeps its place behind the one before it in
// the snapshot (the channels after the first, items of other components).
// An item whose parent is missing stands at the top.
std::vector<SummaryNode> ReadSummaryTree(ISummaryStatsSnapshot* snapshot, const CStatMap& map);

// A value for people: dates, times and durations in their text forms,
// counts in decimal (bytes with a size in binary units beside), a pair as
// packets and bytes, a double with three decimals; empty for a group.
std::string SummaryValueForPeople(const SummaryStatValue& value);

// The tree as JSON: each node an object of id, name, type and, unless it is
// a group, value (a pair as packets and bytes, times as ISO 8601 text,
// durations in nanoseconds), with its children as "items".
nlohmann::ordered_json SummaryJson(const std::vector<SummaryNode>& tree);

// The summary section of the report, under its heading.
void PrintSummary(std::FILE* out, const std::vector<SummaryNode>& tree, const std::string& heading);

}  // namespace zemo::cli
