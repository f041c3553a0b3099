// The context's ownership of its identity tables: created with it, linked,
// reset before the statistics, released after them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "context/stats_context.h"
#include "engine/class_factory.h"
#include "engine/engine.h"
#include "frame/clsids.h"
#include "identity_test_support.h"
#include "platform/class_store.h"

namespace {

using namespace identity_test;
using zemo::StatsContext;

std::vector<std::string> g_events;

// An entity table that a host stands in for the module's: its Reset fails,
// and it tells when it goes.
class FailingEntityTable final : public zemo::Object<FailingEntityTable, IEntityTable> {
 public:
  ~FailingEntityTable() { g_events.push_back("entity table released"); }
  HRESULT Reset() override {
    g_events.push_back("entity table reset");
    return E_FAIL;
  }
  HRESULT GetCount(ULONG, ULONG*) override { return E_NOTIMPL; }
  HRESULT FindOrAdd(const MediaSpec*, LONG, ULONG*) override { return E_NOTIMPL; }
  HRESULT GetEntity(ULONG, MediaSpec*, ZemoTime*) override { return E_NOTIMPL; }
  HRESULT GetFirstId(ULONG, ULONG*, BOOL*) override { return E_NOTIMPL; }
  HRESULT GetNextId(ULONG, ULONG*, BOOL*) override { return E_NOTIMPL; }
  HRESULT IsProtocolWithin(ULONG, ULONG, BOOL*) override { return E_NOTIMPL; }
  // Every identifier is an IPv4 address.
  HRESULT GetEntityKind(ULONG, BYTE* cls, BYTE* type) override {
    *cls = 2;
    *type = 21;
    return S_OK;
  }
};

HRESULT CreateRefused(IUnknown*, REFIID, void** out) {
  *out = nullptr;
  return E_OUTOFMEMORY;
}

// Host class objects for a class of the module, for the life of a test.
class StandIn {
 public:
  StandIn(REFCLSID clsid, zemo::CreatorFn create) {
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(S_OK, zemo::HostClassFactory::CreateObject(IClassFactory::iid, factory.OutVoid(), create));
    EXPECT_EQ(S_OK, CoRegisterClassObject(clsid, factory.Get(), CLSCTX_INPROC_SERVER, 0, &m_cookie));
  }
  ~StandIn() { CoRevokeClassObject(m_cookie); }

 private:
  DWORD m_cookie = 0;
};

// A statistic that records its reset, and at its release whether the
// context's tables were still there.
class WatchingStats final : public zemo::Object<WatchingStats, IZemoStats> {
 public:
  ~WatchingStats() { g_events.push_back("statistic released"); }
  HRESULT GetContext(IZemoStatsContext** out) override { return *out = nullptr, S_OK; }
  HRESULT SetContext(IZemoStatsContext*) override { return S_OK; }
  HRESULT Reset() override {
    g_events.push_back("statistic reset");
    return m_result;
  }
  HRESULT m_result = S_OK;
};

constexpr CLSID kStat = MakeGuid("5C1D0000-0000-0000-0000-000000000001");

class ContextTables : public ::testing::Test {
 protected:
  void SetUp() override { g_events.clear(); }
};

TEST_F(ContextTables, TablesComeWithTheContextAndAreLinked) {
  auto context = StatsContext::Create();
  ComPtr<IEntityTable> e1, e2;
  ASSERT_EQ(S_OK, context->GetEntityTable(e1.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, context->GetEntityTable(e2.ReleaseAndGetAddressOf()));
  ASSERT_TRUE(e1.Get());
  EXPECT_EQ(e1.Get(), e2.Get());
  // Each hand-out carries its own reference: the context's, the two here, the tuple table's.
  EXPECT_EQ(5u, e1->AddRef());
  e1->Release();
  ComPtr<ITupleTable> tuples;
  ASSERT_EQ(S_OK, context->GetTupleTable(tuples.ReleaseAndGetAddressOf()));
  ComPtr<IEntityTable> linked;
  ASSERT_EQ(S_OK, tuples->GetEntityTable(linked.ReleaseAndGetAddressOf()));
  EXPECT_EQ(e1.Get(), linked.Get());
  EXPECT_EQ(E_POINTER, context->GetEntityTable(nullptr));
  EXPECT_EQ(E_POINTER, context->GetTupleTable(nullptr));

  // Two contexts, two pairs of tables.
  auto other = StatsContext::Create();
  ComPtr<IEntityTable> e3;
  ASSERT_EQ(S_OK, other->GetEntityTable(e3.ReleaseAndGetAddressOf()));
  EXPECT_NE(e1.Get(), e3.Get());
}

TEST_F(ContextTables, ResetEmptiesBothTablesAndIdentifiersStartOver) {
  auto context = StatsContext::Create();
  ComPtr<IEntityTable> entities;
  ComPtr<ITupleTable> tuples;
  ASSERT_EQ(S_OK, context->GetEntityTable(entities.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, context->GetTupleTable(tuples.ReleaseAndGetAddressOf()));
  ULONG a = Add(entities.Get(), Ip(1)), b = Add(entities.Get(), Ip(2));
  ULONG p = Add(entities.Get(), zemo::specs::Protocol(0x62));
  AddTuple(tuples.Get(), a, b, p);
  AddTuple(tuples.Get(), b, a, p);

  for (auto reset : {+[](StatsContext* c) { return c->ResetContext(false); },
                     +[](StatsContext* c) { return static_cast<IZemoStatsContext*>(c)->Reset(); }}) {
    ASSERT_EQ(S_OK, reset(context.Get()));
    EXPECT_EQ(0u, Count(entities.Get()));
    EXPECT_EQ(0u, Count(tuples.Get()));
    EXPECT_EQ(a, Add(entities.Get(), Ip(2)));  // the next address gets the first identifier
    EXPECT_EQ(0x20000000u, AddTuple(tuples.Get(), a, a, a));
  }
}

TEST_F(ContextTables, AFailingEntityTableResetStopsNeitherTheTuplesNorTheStatistics) {
  StandIn standIn(CLSID_EntityTable, &zemo::CreateClass<FailingEntityTable>);
  auto context = StatsContext::Create();
  ComPtr<ITupleTable> tuples;
  ASSERT_EQ(S_OK, context->GetTupleTable(tuples.ReleaseAndGetAddressOf()));
  AddTuple(tuples.Get(), 1, 2, 3);

  // With no statistic the tuple table's reset is the last call: its status counts.
  EXPECT_EQ(S_OK, context->ResetContext(false));
  EXPECT_EQ((std::vector<std::string>{"entity table reset"}), g_events);
  ULONG n = 9;
  EXPECT_EQ(S_OK, tuples->GetCount(0, &n));
  EXPECT_EQ(0u, n);

  auto stats = WatchingStats::Create();
  stats->m_result = S_FALSE;
  ASSERT_EQ(S_FALSE, context->AddStats(kStat, stats.Get()));
  AddTuple(tuples.Get(), 1, 2, 3);
  g_events.clear();
  EXPECT_EQ(S_FALSE, context->ResetContext(true));
  EXPECT_EQ((std::vector<std::string>{"entity table reset", "statistic reset"}), g_events);
  EXPECT_EQ(S_OK, tuples->GetCount(0, &n));
  EXPECT_EQ(0u, n);
}

TEST_F(ContextTables, StatisticsAreReleasedBeforeTheTables) {
  StandIn standIn(CLSID_EntityTable, &zemo::CreateClass<FailingEntityTable>);
  {
    auto context = StatsContext::Create();
    ASSERT_EQ(S_OK, context->AddStats(kStat, WatchingStats::Create().Get()));
  }
  EXPECT_EQ((std::vector<std::string>{"statistic reset", "statistic released", "entity table released"}), g_events);
}

TEST_F(ContextTables, CreationFailsWithTheTablesStatus) {
  {
    StandIn refused(CLSID_TupleTable, &CreateRefused);
    ComPtr<IZemoStatsContext> context;
    EXPECT_EQ(E_OUTOFMEMORY, StatsContext::CreateObject(IZemoStatsContext::iid, context.OutVoid()));
    EXPECT_EQ(nullptr, context.Get());
  }
  {
    StandIn refused(CLSID_EntityTable, &CreateRefused);
    ComPtr<IZemoStatsContext> context;
    EXPECT_EQ(E_OUTOFMEMORY, StatsContext::CreateObject(IZemoStatsContext::iid, context.OutVoid()));
  }
  // Without the host's protocol tree there is no entity table, and so no context.
  ASSERT_EQ(S_OK, zemo::UnregisterEngineClasses());
  ComPtr<IZemoStatsContext> context;
  EXPECT_EQ(CO_E_CLASSSTRING, StatsContext::CreateObject(IZemoStatsContext::iid, context.OutVoid()));
  ASSERT_EQ(S_OK, zemo::RegisterEngineClasses());
  EXPECT_EQ(S_OK, StatsContext::CreateObject(IZemoStatsContext::iid, context.OutVoid()));
}

}  // namespace
