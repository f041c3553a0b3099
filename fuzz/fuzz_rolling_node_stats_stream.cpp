// Arbitrary bytes as the stream of a RollingNodeStats: its merged table,
// each row a record of its own. What loaded must read back row by row
// through INodeStats, and a save (which merges the empty ring anew) must
// be an empty table.
#include "frame/stream_persist.h"  // before the shared checks, which use it
#include "fuzz_statistic.h"

#include "frame/clsids.h"
#include "tables/rolling_node_stats.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo::fuzz;
  zemo::ComPtr<IUnknown> object = NewObject(CLSID_RollingNodeStats);
  HRESULT hr = zemo::LoadObjectFromStream(object.Get(), zemo::CreateReadOnlyStream(data, size).Get());
  Require(hr == S_OK || hr == E_FAIL);
  zemo::ComPtr<INodeStats> nodes;
  Require(object.As(&nodes) == S_OK);
  ULONG count = 0;
  Require(nodes->GetNodeCount(&count) == S_OK);
  Require(count == 0 || size >= 4 + size_t{count} * 108);
  for (ULONG i = 0; i < count; ++i) {
    ZemoNodeStatEntry e{};
    Require(nodes->GetNodeEntry(i, &e) == S_OK);
    Require(std::memcmp(&e.EntityIndex, data + 4 + size_t{i} * 108, 4) == 0);
    Require(std::memcmp(&e.Stat, data + 8 + size_t{i} * 108, sizeof e.Stat) == 0);
  }
  Require(SavedBytes(object.Get()) == std::vector<uint8_t>(4, 0));
  return 0;
}
