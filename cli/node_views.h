// What the report and the JSON document say from the two node tables that
// look past single addresses: the moving window of RollingNodeStats, and the
// hosts behind each physical address of NodeStatsHierarchy. Both are read
// through the tables' own interfaces, records as they stand (the window is
// not rebuilt here: a run's end rebuilt it, and a loaded save shows what it
// held), and only the addresses that are shown are made text.
#pragma once

#include <cstdint>
#include <string>
#include <memory>
#include <vector>

#include "cli/analysis.h"
#include "identity/identity_interfaces.h"
#include "tables/node_stat.h"

namespace zemo {
class CEntityText;
}

namespace zemo::cli {

// The shape of the rolling window a run keeps for --window SECONDS: four to
// six buckets of whole seconds that make SECONDS exactly when there are
// such, else six together a little longer (fewer for under six seconds).
struct WindowShape {
  LONG buckets;
  LONG bucketSeconds;
  uint32_t Seconds() const { return static_cast<uint32_t>(buckets) * static_cast<uint32_t>(bucketSeconds); }
};
WindowShape WindowShapeFor(uint32_t seconds);

// Entity identifiers as UTF-8 text, for the few that are shown.
class AddressNames {
 public:
  explicit AddressNames(IEntityTable* entities);
  ~AddressNames();
  std::string Of(ULONG entity);

 private:
  std::unique_ptr<CEntityText> m_text;
};

// Whether an entity is a logical address (IP and the like); whether it is a
// broadcast or multicast address.
bool IsLogicalEntity(IEntityTable* entities, ULONG entity);
bool IsGroupEntity(IEntityTable* entities, ULONG entity);

// The merged records of the window, as the statistic holds them.
struct WindowNode {
  ULONG entity;
  ZemoNodeStat stat;
  uint64_t Bytes() const { return stat.BytesSent + stat.BytesReceived; }
};
struct WindowView {
  uint32_t seconds = 0;  // the ring's length: buckets times bucket seconds
  LONG buckets = 0, bucketSeconds = 0;
  std::vector<WindowNode> nodes;  // in record order
  ComPtr<IEntityTable> entities;
};
// False when the context has no RollingNodeStats.
bool ReadWindow(const Analysis& analysis, WindowView* view);

// The pair records of the hierarchy, one for each logical address seen
// behind a physical one, with the physical records' own totals.
struct HostPair {
  ULONG physical, logical;
  uint64_t bytes;  // sent and received by the address through this physical one
};
struct HostsBehind {
  std::vector<HostPair> pairs;  // ordered by physical, then logical, address identifier
  // Each physical address with its pairs, in record order of the physical records.
  struct Physical {
    ULONG entity;
    uint64_t packets, bytes;
    size_t firstPair, pairCount;  // its range in pairs
    bool group;  // a broadcast or multicast address
  };
  std::vector<Physical> physical;
  // Logical addresses seen behind two or more unicast physical ones, each
  // with those: a broadcast or multicast destination carries whatever its
  // packets were addressed to, and is no host.
  struct Shared {
    ULONG logical;
    std::vector<ULONG> physical;
  };
  std::vector<Shared> shared;
  ComPtr<IEntityTable> entities;
};
// False when the context has no NodeStatsHierarchy or it cannot be read.
bool ReadHostsBehind(const Analysis& analysis, HostsBehind* hosts);

// The window's top talkers at a tick of a live capture, for one line:
// logical addresses if the window has any, else physical ones.
std::string WindowTickLine(const Analysis& analysis, ZemoTime tick, size_t talkers);

}  // namespace zemo::cli
