#include "cli/node_views.h"

#include <algorithm>

#include "cli/report.h"
#include "frame/clsids.h"
#include "tables/node_stats_hierarchy.h"
#include "tables/rolling_node_stats.h"
#include "tables/table_support.h"

namespace zemo::cli {

WindowShape WindowShapeFor(uint32_t seconds) {
  seconds = std::max<uint32_t>(seconds, 1);
  // Exactly the length asked for when four to six buckets divide it, else
  // six buckets a little longer together.
  constexpr uint32_t kMost = RollingNodeStats::kDefaultBuckets;
  for (uint32_t buckets = kMost; buckets >= kMost - 2; --buckets)
    if (seconds % buckets == 0) return {LONG(buckets), LONG(seconds / buckets)};
  const uint32_t buckets = std::min(kMost, seconds);
  return {LONG(buckets), LONG((seconds + buckets - 1) / buckets)};
}

AddressNames::AddressNames(IEntityTable* entities) {
  try {
    m_text = std::make_unique<CEntityText>(entities);
  } catch (const CAtlException&) {
    // Without ZemoCore.MediaUtils addresses show as their identifiers.
  }
}

AddressNames::~AddressNames() = default;

std::string AddressNames::Of(ULONG entity) {
  if (m_text) {
    std::string text = CellText(m_text->Of(entity));
    if (!text.empty()) return text;
  }
  char id[16];
  std::snprintf(id, sizeof id, "#%08X", entity);
  return id;
}

bool IsLogicalEntity(IEntityTable* entities, ULONG entity) {
  BYTE specClass = 0, type = 0;
  if (!entities || FAILED(entities->GetEntityKind(entity, &specClass, &type))) return false;
  return std::find(std::begin(kLogicalNodeTypes), std::end(kLogicalNodeTypes), type) != std::end(kLogicalNodeTypes);
}

bool IsGroupEntity(IEntityTable* entities, ULONG entity) {
  MediaSpec spec{};
  if (!entities || FAILED(entities->GetEntity(entity, &spec, nullptr))) return false;
  return IsBroadcast(spec) || IsMulticast(spec);
}

namespace {

template <class I>
ComPtr<I> StatisticAs(const Analysis& analysis, REFCLSID clsid) {
  ComPtr<I> out;
  if (IZemoStatsContext* context = analysis.Context()) context->GetStats(clsid, I::iid, out.OutVoid());
  return out;
}

}  // namespace

bool ReadWindow(const Analysis& analysis, WindowView* view) {
  auto ring = StatisticAs<IRollingNodeStats>(analysis, CLSID_RollingNodeStats);
  ComPtr<INodeStats> nodes;
  if (!ring || FAILED(ring.As(&nodes)) || FAILED(ring->GetBucketCount(&view->buckets)) ||
      FAILED(ring->GetBucketSeconds(&view->bucketSeconds)))
    return false;
  view->seconds = static_cast<uint32_t>(view->buckets) * static_cast<uint32_t>(view->bucketSeconds);
  nodes->GetEntityTable(view->entities.ReleaseAndGetAddressOf());
  ULONG count = 0;
  if (FAILED(nodes->GetNodeCount(&count))) return false;
  view->nodes.clear();
  view->nodes.reserve(count);
  for (ULONG i = 0; i < count; ++i) {
    ZemoNodeStatEntry e{};
    if (SUCCEEDED(nodes->GetNodeEntry(i, &e))) view->nodes.push_back({e.EntityIndex, e.Stat});
  }
  return true;
}

bool ReadHostsBehind(const Analysis& analysis, HostsBehind* hosts) {
  auto tree = StatisticAs<INodeStatsHierarchy>(analysis, CLSID_NodeStatsHierarchy);
  ULONG count = 0;
  if (!tree || FAILED(tree->GetNodeCount(&count))) return false;
  tree->GetEntityTable(hosts->entities.ReleaseAndGetAddressOf());
  hosts->pairs.clear();
  hosts->physical.clear();
  hosts->shared.clear();
  for (ULONG i = 0; i < count; ++i) {
    ZemoNodeHierarchyStatEntry e{};
    if (FAILED(tree->GetNodeEntry(i, &e))) return false;
    const uint64_t bytes = e.Stat.BytesSent + e.Stat.BytesReceived;
    if (e.LogicalIndex == kNoRecord)
      hosts->physical.push_back({e.PhysicalIndex, e.Stat.PacketsSent + e.Stat.PacketsReceived, bytes, 0, 0,
                                 IsGroupEntity(hosts->entities.Get(), e.PhysicalIndex)});
    else
      hosts->pairs.push_back({e.PhysicalIndex, e.LogicalIndex, bytes});
  }
  auto byPhysical = [](const HostPair& a, const HostPair& b) {
    return a.physical != b.physical ? a.physical < b.physical : a.logical < b.logical;
  };
  std::sort(hosts->pairs.begin(), hosts->pairs.end(), byPhysical);
  for (HostsBehind::Physical& p : hosts->physical) {
    auto range = std::equal_range(hosts->pairs.begin(), hosts->pairs.end(), HostPair{p.entity, 0, 0},
                                  [](const HostPair& a, const HostPair& b) { return a.physical < b.physical; });
    p.firstPair = static_cast<size_t>(range.first - hosts->pairs.begin());
    p.pairCount = static_cast<size_t>(range.second - range.first);
  }
  // The reverse: group the pairs by logical address, in a copy of their keys.
  std::vector<std::pair<ULONG, ULONG>> reverse;
  reverse.reserve(hosts->pairs.size());
  for (const HostsBehind::Physical& p : hosts->physical)
    for (size_t i = 0; i < p.pairCount && !p.group; ++i)
      reverse.emplace_back(hosts->pairs[p.firstPair + i].logical, p.entity);
  std::sort(reverse.begin(), reverse.end());
  for (size_t i = 0; i < reverse.size();) {
    size_t end = i;
    while (end < reverse.size() && reverse[end].first == reverse[i].first) ++end;
    if (end - i > 1) {
      HostsBehind::Shared shared{reverse[i].first, {}};
      for (size_t k = i; k < end; ++k) shared.physical.push_back(reverse[k].second);
      hosts->shared.push_back(std::move(shared));
    }
    i = end;
  }
  return true;
}

std::string WindowTickLine(const Analysis& analysis, ZemoTime tick, size_t talkers) {
  auto ring = StatisticAs<IRollingNodeStats>(analysis, CLSID_RollingNodeStats);
  WindowView view;
  if (!ring || FAILED(ring->Rebuild()) || !ReadWindow(analysis, &view)) return {};
  // The window covers its length, or the capture so far if that is shorter.
  ZemoTime start = 0;
  analysis.Context()->GetStartDateTime(&start);
  double covered = view.seconds;
  if (start && tick > start) covered = std::min(covered, std::max(1.0, (tick - start) / 1e9));
  auto logical = [&](const WindowNode& n) { return IsLogicalEntity(view.entities.Get(), n.entity); };
  std::vector<const WindowNode*> shown;
  const bool anyLogical = std::any_of(view.nodes.begin(), view.nodes.end(), logical);
  for (const WindowNode& n : view.nodes)
    if (logical(n) == anyLogical && n.Bytes()) shown.push_back(&n);
  const size_t n = std::min(talkers, shown.size());
  std::partial_sort(shown.begin(), shown.begin() + static_cast<std::ptrdiff_t>(n), shown.end(),
                    [](const WindowNode* a, const WindowNode* b) { return a->Bytes() > b->Bytes(); });
  std::string line = IsoTime(tick).substr(11, 8) + "  last " + std::to_string(static_cast<uint64_t>(covered)) + " s:";
  AddressNames names(view.entities.Get());
  for (size_t i = 0; i < n; ++i)
    line += "  " + names.Of(shown[i]->entity) + " " + BitRate(shown[i]->Bytes() * 8.0 / covered);
  if (!n) line += "  (quiet)";
  return line;
}

}  // namespace zemo::cli
