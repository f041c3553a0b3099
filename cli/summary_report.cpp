#include "cli/summary_report.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <mutex>

#include "cli/report.h"
#include "frame/hash_map.h"
#include "frame/time_format.h"
#include "platform/strings.h"

namespace zemo::cli {
namespace {

using Json = nlohmann::ordered_json;

std::string IdText(REFGUID id) {
  OLECHAR text[39];
  StringFromGUID2(id, text, 39);
  return ToUtf8(std::u16string_view(text, 38));
}

std::string ProgramFolder() {
  char path[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return {};
  std::string self(path, static_cast<size_t>(n));
  size_t slash = self.find_last_of('/');
  return slash == std::string::npos ? std::string() : self.substr(0, slash);
}

bool Readable(const std::string& path) { return !path.empty() && access(path.c_str(), R_OK) == 0; }

struct FoundMap {
  std::string path;
  CStatMap map;
};

void Find(FoundMap& f);

const FoundMap& TheMap() {
  static FoundMap found;
  static std::once_flag once;
  std::call_once(once, [] { Find(found); });
  return found;
}

void Find(FoundMap& f) {
  const std::string folder = ProgramFolder();
  const std::string candidates[] = {
      ToUtf8(kStatMapFile),
      folder.empty() ? std::string() : folder + "/" + ToUtf8(kStatMapFile),
      folder.empty() ? std::string() : folder + "/../share/zemostats/" + ToUtf8(kStatMapFile),
      ZEMO_INSTALLED_STATMAP,
  };
  for (const std::string& path : candidates) {
    if (!Readable(path) || FAILED(f.map.Load(FromUtf8(path)))) continue;
    f.path = path;
    return;
  }
}

// An item as the snapshot holds it.
struct RawItem {
  GUID id{};
  GUID parent{};
  std::u16string label;
  SummaryStatValue value{};
};

std::string NameOf(const RawItem& item, const CStatMap& map) {
  std::u16string name;
  if (!item.label.empty()) {
    // A label may name another item by its id, as the channels' items do.
    GUID other{};
    if (item.label.size() == 38 && SUCCEEDED(CLSIDFromString(item.label.c_str(), &other)) &&
        SUCCEEDED(map.Lookup(other, name)))
      return ToUtf8(name);
    return ToUtf8(item.label);
  }
  if (SUCCEEDED(map.Lookup(item.id, name)) && !name.empty()) return ToUtf8(name);
  return IdText(item.id);
}

std::string BinarySize(double bytes) {
  static const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  int unit = -1;
  while (bytes >= 1024 && unit < 5) {
    bytes /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", bytes, kUnits[unit]);
  return text;
}

const char* TypeName(ULONG type) {
  static const char* kNames[kSummaryTypeCount] = {"group", "date", "time", "duration", "packets",
                                                  "bytes", "pair", "int",  "double"};
  return type < kSummaryTypeCount ? kNames[type] : "unknown";
}

}  // namespace

const CStatMap& ReportStatMap() { return TheMap().map; }
const std::string& ReportStatMapPath() { return TheMap().path; }

std::vector<SummaryNode> ReadSummaryTree(ISummaryStatsSnapshot* snapshot, const CStatMap& map) {
  std::vector<RawItem> items;
  LONG count = 0;
  if (!snapshot || FAILED(snapshot->GetItemCount(&count))) return {};
  for (LONG i = 0; i < count; ++i) {
    RawItem item;
    CBstr label;
    if (FAILED(snapshot->GetItemID(i, &item.id)) || FAILED(snapshot->GetParent(item.id, &item.parent)) ||
        FAILED(snapshot->GetLabel(item.id, label.Out())) || FAILED(snapshot->GetValue(item.id, &item.value)))
      continue;
    item.label = std::u16string(label.View());
    items.push_back(std::move(item));
  }
  CHashMap<GUID, size_t> where;
  for (size_t i = 0; i < items.size(); ++i) where.SetAt(items[i].id, i);
  // Children by parent, in snapshot order; the top level under GUID_NULL.
  std::vector<std::vector<size_t>> children(items.size());
  std::vector<size_t> top;
  for (size_t i = 0; i < items.size(); ++i) {
    const size_t* parent = items[i].parent == GUID_NULL ? nullptr : where.Lookup(items[i].parent);
    (parent && *parent != i ? children[*parent] : top).push_back(i);
  }
  // The map's order; what it doesn't know stays behind what came before it.
  auto order = [&](std::vector<size_t>& level) {
    std::vector<std::pair<long, size_t>> keyed;
    long key = -1;
    for (size_t i : level) {
      long at = map.Position(items[i].id);
      if (at >= 0) key = at;
      keyed.emplace_back(key, i);
    }
    std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (size_t k = 0; k < level.size(); ++k) level[k] = keyed[k].second;
  };
  std::vector<bool> placed(items.size(), false);
  std::function<SummaryNode(size_t)> build = [&](size_t i) {
    placed[i] = true;
    SummaryNode node{items[i].id, NameOf(items[i], map), items[i].value, {}};
    order(children[i]);
    for (size_t c : children[i])
      if (!placed[c]) node.children.push_back(build(c));
    return node;
  };
  order(top);
  std::vector<SummaryNode> tree;
  for (size_t i : top) tree.push_back(build(i));
  // Parents that lead round in a circle reach no top: they stand there now.
  for (size_t i = 0; i < items.size(); ++i)
    if (!placed[i]) tree.push_back(build(i));
  return tree;
}

std::string SummaryValueForPeople(const SummaryStatValue& v) {
  switch (v.Type) {
    case kSummaryDate: return ToUtf8(FormatDate(v.Time, false));
    case kSummaryTime: return ToUtf8(FormatTime(v.Time, 2, false));
    case kSummaryDuration: {
      std::string text = ToUtf8(FormatDuration(v.Duration, 1, u"%sd %s"));
      return text.find(':') == std::string::npos ? text + " s" : text;
    }
    case kSummaryPackets:
    case kSummaryInt: return std::to_string(v.Count);
    case kSummaryBytes:
      return v.Count < 1024 ? std::to_string(v.Count) : std::to_string(v.Count) + " (" + BinarySize(double(v.Count)) + ")";
    case kSummaryPair:
      return std::to_string(v.Pair.Packets) + " packets, " + std::to_string(v.Pair.Bytes) + " bytes";
    case kSummaryDouble: {
      char text[64];
      std::snprintf(text, sizeof text, "%.3f", v.Double);
      return text;
    }
    default: return {};
  }
}

Json SummaryJson(const std::vector<SummaryNode>& tree) {
  Json out = Json::array();
  for (const SummaryNode& node : tree) {
    Json item;
    item["id"] = IdText(node.id);
    item["name"] = node.name;
    item["type"] = TypeName(node.value.Type);
    const SummaryStatValue& v = node.value;
    switch (v.Type) {
      case kSummaryDate:
      case kSummaryTime: item["value"] = IsoTime(v.Time); break;
      case kSummaryDuration: item["value"] = JsonWhole(int64_t{v.Duration}); break;
      case kSummaryPackets:
      case kSummaryBytes:
      case kSummaryInt: item["value"] = JsonWhole(uint64_t{v.Count}); break;
      case kSummaryPair:
        item["value"] = {{"packets", JsonWhole(uint64_t{v.Pair.Packets})}, {"bytes", JsonWhole(uint64_t{v.Pair.Bytes})}};
        break;
      case kSummaryDouble: item["value"] = double{v.Double}; break;
      default: break;
    }
    if (!node.children.empty()) item["items"] = SummaryJson(node.children);
    out.push_back(std::move(item));
  }
  return out;
}

void PrintSummary(std::FILE* out, const std::vector<SummaryNode>& tree, const std::string& heading) {
  struct Line {
    std::string name, value;
  };
  std::vector<Line> lines;
  std::function<void(const std::vector<SummaryNode>&, size_t)> walk = [&](const std::vector<SummaryNode>& level,
                                                                          size_t depth) {
    for (const SummaryNode& node : level) {
      lines.push_back({std::string(2 * depth, ' ') + node.name, SummaryValueForPeople(node.value)});
      walk(node.children, depth + 1);
    }
  };
  walk(tree, 1);
  size_t width = 0;
  for (const Line& l : lines)
    if (!l.value.empty()) width = std::max(width, l.name.size());
  std::fprintf(out, "\n%s\n", heading.c_str());
  for (const Line& l : lines) {
    if (l.value.empty())
      std::fprintf(out, "%s\n", l.name.c_str());
    else
      std::fprintf(out, "%-*s  %s\n", static_cast<int>(width), l.name.c_str(), l.value.c_str());
  }
}

}  // namespace zemo::cli
