// What the protocol and conversation table tests share: a context holding
// the statistic under test, packets built from protocols and addresses, a
// protocol tree of the tests' own, and the stream and limit plumbing.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "engine/proto_specs.h"
#include "frame/clsids.h"
#include "platform/stream.h"
#include "support/scratch_dir.h"
#include "support/table_cells.h"
#include "tables/limit_settings.h"
#include "tables/protocol_stats.h"
#include "tests/tables/node_fixture.h"

namespace zemo::testing {

// A protocol tree given as id -> (level, parent). An unknown identifier
// fails both questions, as the host's tree does.
class FakeProtoSpecs final : public Object<FakeProtoSpecs, IProtoSpecs> {
 public:
  struct Node {
    ULONG level;
    ULONG parent;
  };
  std::map<ULONG, Node> nodes;

  HRESULT GetParentSpec(ULONG id, ULONG* parent) override {
    auto it = nodes.find(id);
    if (it == nodes.end()) return E_INVALIDARG;
    *parent = it->second.parent;
    return S_OK;
  }
  HRESULT GetSpecName(ULONG, BSTR*) override { return E_NOTIMPL; }
  HRESULT GetSpecLevel(ULONG id, ULONG* level) override {
    auto it = nodes.find(id);
    if (it == nodes.end()) return E_INVALIDARG;
    *level = it->second.level;
    return S_OK;
  }
  HRESULT IsSpecWithin(ULONG, const ULONG*, ULONG, ULONG, ULONG) override { return E_NOTIMPL; }
  HRESULT GetSpecPath(ULONG, USHORT*, ULONG*) override { return E_NOTIMPL; }
  HRESULT FindSpecByPath(const USHORT*, ULONG, MediaSpec*) override { return E_NOTIMPL; }
};

using testing_support::ReadFile;

// A limit of `limit` records, enforced; reset empties the table, otherwise
// it pauses.
inline ComPtr<ZemoStatsLimitSettings> LimitTo(IZemoStatsLimit* stats, ULONG limit, bool reset) {
  auto settings = ZemoStatsLimitSettings::Create();
  settings->SetLimit(limit);
  settings->SetEnabled(1);
  settings->SetReset(reset ? 1 : 0);
  settings->SetNotify(0, 0);
  EXPECT_EQ(S_OK, stats->SetSettings(settings.Get()));
  return settings;
}

}  // namespace zemo::testing
