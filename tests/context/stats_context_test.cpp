#include "context/stats_context.h"
#include "engine/packet_builder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "platform/clock.h"

namespace {

using zemo::ComPtr;
using zemo::StatsContext;

constexpr CLSID kA = MakeGuid("5C000000-0000-0000-0000-00000000000A");
constexpr CLSID kB = MakeGuid("5C000000-0000-0000-0000-00000000000B");
constexpr CLSID kC = MakeGuid("5C000000-0000-0000-0000-00000000000C");
constexpr HRESULT kOwnFailure = static_cast<HRESULT>(0x80041234);

// What the test statistics were handed, in the order they saw it.
std::vector<std::string> g_seen;

std::string Seen() {
  std::string out;
  for (const std::string& s : g_seen) out += (out.empty() ? "" : " ") + s;
  g_seen.clear();
  return out;
}

// The IZemoStats side that every test statistic shares.
struct StatsPart : IZemoStats {
  using interface_type = IZemoStats;
  static inline int s_live = 0;
  StatsPart() { ++s_live; }
  ~StatsPart() { --s_live; }

  HRESULT GetContext(IZemoStatsContext** out) final {
    *out = context;
    if (context) context->AddRef();
    return S_OK;
  }
  HRESULT SetContext(IZemoStatsContext* c) final {
    context = c;
    return setContextResult;
  }
  HRESULT Reset() final {
    ++resets;
    return resetResult;
  }

  std::string name;
  IZemoStatsContext* context = nullptr;
  HRESULT setContextResult = S_OK;
  HRESULT resetResult = S_OK;
  int resets = 0;
};

std::string NameOf(IZemoStats* stats) { return static_cast<StatsPart*>(stats)->name; }

class TestStats final : public zemo::Object<TestStats, StatsPart, IProcessPacket, IProcessTime> {
 public:
  explicit TestStats(std::string n) { name = std::move(n); }
  HRESULT QueryInterface(REFIID iid, void** out) override {
    ++queries;
    return Object::QueryInterface(iid, out);
  }
  HRESULT ProcessPacket(IPacket*) override {
    g_seen.push_back(name);
    return packetResult;
  }
  HRESULT ProcessTime(ZemoTime now) override {
    g_seen.push_back(name + "@" + std::to_string(now));
    return packetResult;
  }
  HRESULT packetResult = S_OK;
  int queries = 0;
};

struct StatisticsResetAs : IResetStatistics {
  using interface_type = IResetStatistics;
  HRESULT Reset() final {
    ++statisticsResets;
    return statisticsResetResult;
  }
  int statisticsResets = 0;
  HRESULT statisticsResetResult = S_OK;
};

class ResettableStats final : public zemo::Object<ResettableStats, StatsPart, StatisticsResetAs> {
 public:
  explicit ResettableStats(std::string n) { name = std::move(n); }
};

// Takes no packets; hears processing events and summary updates.
class ListeningStats final
    : public zemo::Object<ListeningStats, StatsPart, IPacketProcessorEvents, IUpdateSummaryStats> {
 public:
  explicit ListeningStats(std::string n) { name = std::move(n); }
  HRESULT OnStartProcessing(ZemoTime t) override { return Note("start@" + std::to_string(t)); }
  HRESULT OnStopProcessing(ZemoTime t) override { return Note("stop@" + std::to_string(t)); }
  HRESULT OnResetProcessing() override { return Note("reset"); }
  HRESULT UpdateSummaryStats(IUnknown* snapshot) override {
    lastSnapshot = snapshot;
    return Note("summary");
  }
  HRESULT Note(const std::string& what) {
    g_seen.push_back(name + ":" + what);
    return kOwnFailure;  // the context ignores what listeners answer
  }
  IUnknown* lastSnapshot = nullptr;
};

class FakePacket final : public zemo::Object<FakePacket, zemo::PacketStub> {
 public:
  HRESULT GetTimeStamp(ZemoTime* t) override {
    if (FAILED(timeStampResult)) return timeStampResult;
    *t = time;
    return S_OK;
  }
  HRESULT GetPacketLength(USHORT* n) override {
    if (FAILED(lengthResult)) return lengthResult;
    *n = wireLength;
    return S_OK;
  }
  HRESULT GetSliceLength(USHORT* n) override { return *n = capturedLength, S_OK; }
  HRESULT GetCaptureLength(USHORT* n) override { return *n = capturedLength, S_OK; }

  ZemoTime time = 0;
  USHORT wireLength = 64;
  USHORT capturedLength = 64;
  HRESULT timeStampResult = S_OK;
  HRESULT lengthResult = S_OK;
};

// Writes its values and still fails every call.
class FailingAdapter final : public zemo::Object<FailingAdapter, IAdapterInfo> {
 public:
  HRESULT GetMediaType(ULONG* t) override { return *t = 71, E_FAIL; }
  HRESULT GetMediaSubType(ULONG* t) override { return *t = 3, E_FAIL; }
  HRESULT GetLinkSpeed(ULONGLONG* s) override { return *s = 1000000000, E_FAIL; }
  HRESULT GetChannelNumbers(ULONG*, ULONG**) override { return E_NOTIMPL; }
  HRESULT GetWirelessChannels(SWirelessChannel**, ULONG*) override { return E_NOTIMPL; }
  HRESULT GetDataRates(ULONG**, ULONG*) override { return E_NOTIMPL; }
};

struct ISnapshotStandIn : IUnknown {
  static constexpr IID iid = IID_ISummaryStatsSnapshot;
};
class FakeSnapshot final : public zemo::Object<FakeSnapshot, ISnapshotStandIn> {};

class FakeSite final : public zemo::Object<FakeSite, IServiceProvider> {
 public:
  HRESULT QueryService(REFGUID, REFIID, void**) override { return E_NOTIMPL; }
};

class FakeUpdater final : public zemo::Object<FakeUpdater, IStatsUpdater> {
 public:
  HRESULT Update(IZemoStatsContext* context) override {
    updated = context;
    // Another thread reads the context while Update runs. The future is
    // kept, so that a reader stuck behind the lock cannot hang the test.
    reader = std::async(std::launch::async, [context] {
      ULONG type = 0;
      return context->GetMediaType(&type);
    });
    readerGotThrough = reader.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    return kOwnFailure;
  }
  IZemoStatsContext* updated = nullptr;
  std::future<HRESULT> reader;
  bool readerGotThrough = false;
};

class StatsContextTest : public ::testing::Test {
 protected:
  void SetUp() override { g_seen.clear(); }
  void TearDown() override { zemo::SetNowForTesting(0); }

  ComPtr<TestStats> Add(REFCLSID key, const char* name, StatsContext* to = nullptr) {
    auto stats = TestStats::Create(name);
    EXPECT_EQ(S_OK, (to ? to : ctx.Get())->AddStats(key, stats.Get()));
    return stats;
  }
  std::string Order(StatsContext* of = nullptr) {
    of = of ? of : ctx.Get();
    ULONG count = 0;
    of->GetStatsCount(&count);
    std::string out;
    for (ULONG i = 0; i < count; ++i) {
      ComPtr<IZemoStats> s;
      EXPECT_EQ(S_OK, of->GetStatsAt(i, s.ReleaseAndGetAddressOf()));
      out += (out.empty() ? "" : " ") + NameOf(s.Get());
    }
    return out;
  }
  // The statistics in the order one packet reaches them.
  std::string Dispatch() {
    g_seen.clear();
    EXPECT_EQ(S_OK, ctx->ProcessPacket(packet.Get()));
    return Seen();
  }
  IZemoStatsContext* Self() { return ctx.Get(); }

  ComPtr<StatsContext> ctx = StatsContext::Create();
  ComPtr<FakePacket> packet = FakePacket::Create();
};

TEST_F(StatsContextTest, ConstraintSwapsSlotsAsSoonAsBothAreIn) {
  ctx->AddStatsOrder(kA, kB);
  Add(kB, "B");
  Add(kC, "C");
  EXPECT_EQ("B C", Order());
  Add(kA, "A");
  EXPECT_EQ("A C B", Order());  // C keeps its place between them
  EXPECT_EQ("A C B", Dispatch());
}

TEST_F(StatsContextTest, ConstraintsApplyInOnePassAsTheyCame) {
  Add(kC, "C");
  Add(kB, "B");
  Add(kA, "A");
  EXPECT_EQ("C B A", Order());  // without constraints: the order of adding
  EXPECT_EQ(S_OK, ctx->AddStatsOrder(kB, kC));
  EXPECT_EQ("B C A", Order());
  // Its swap undoes (B, C), which the one pass does not revisit.
  EXPECT_EQ(S_OK, ctx->AddStatsOrder(kA, kB));
  EXPECT_EQ("A C B", Order());

  // Contradicting pairs: the later one wins the pass. Adding a present pair
  // again keeps one copy; a second copy would swap once more.
  auto other = StatsContext::Create();
  other->AddStatsOrder(kA, kB);
  other->AddStatsOrder(kB, kA);
  Add(kA, "A", other.Get());
  Add(kB, "B", other.Get());
  EXPECT_EQ("B A", Order(other.Get()));
  EXPECT_EQ(S_OK, other->AddStatsOrder(kA, kB));
  EXPECT_EQ("B A", Order(other.Get()));
}

TEST_F(StatsContextTest, RemovalKeepsTheOtherSlotsAndTheConstraints) {
  Add(kA, "A");
  Add(kB, "B");
  Add(kC, "C");
  EXPECT_EQ(E_FAIL, ctx->RemoveStats(MakeGuid("5C000000-0000-0000-0000-0000000000FF")));
  EXPECT_EQ("A B C", Order());
  EXPECT_EQ(S_OK, ctx->RemoveStats(kA));
  EXPECT_EQ(E_FAIL, ctx->RemoveStats(kA));
  EXPECT_EQ("B C", Order());
  EXPECT_EQ("B C", Dispatch());
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(E_FAIL, ctx->GetStats(kA, IZemoStats::iid, &out));
  EXPECT_EQ(nullptr, out);

  ctx->AddStatsOrder(kC, kA);
  EXPECT_EQ(S_OK, ctx->RemoveAllStats());
  EXPECT_EQ("", Order());
  EXPECT_EQ("", Dispatch());
  Add(kA, "A");
  Add(kC, "C");
  EXPECT_EQ("C A", Order());
}

TEST_F(StatsContextTest, OneKeyHoldsOneStatisticAndOneStatisticMayHoldTwoKeys) {
  auto first = Add(kA, "A");
  auto second = TestStats::Create("A2");
  EXPECT_EQ(S_OK, ctx->AddStats(kA, second.Get()));
  EXPECT_EQ(nullptr, second->context);
  EXPECT_EQ(0, second->resets);
  EXPECT_EQ("A", Order());

  EXPECT_EQ(S_OK, ctx->AddStats(kB, first.Get()));
  EXPECT_EQ("A A", Dispatch());
  EXPECT_EQ(2, first->resets);

  ComPtr<IProcessTime> found;
  EXPECT_EQ(S_OK, ctx->GetStats(kB, IProcessTime::iid, found.OutVoid()));
  EXPECT_EQ(static_cast<IProcessTime*>(first.Get()), found.Get());
  EXPECT_EQ(E_NOINTERFACE, ctx->GetStats(kB, IAdapterInfo::iid, found.OutVoid()));
}

TEST_F(StatsContextTest, AStatisticThatFailsToJoinStaysOut) {
  EXPECT_EQ(E_POINTER, ctx->AddStats(kA, nullptr));

  auto refusesContext = TestStats::Create("X");
  refusesContext->setContextResult = kOwnFailure;
  EXPECT_EQ(kOwnFailure, ctx->AddStats(kA, refusesContext.Get()));
  EXPECT_EQ(Self(), refusesContext->context);  // its back pointer stays set
  EXPECT_EQ(0, refusesContext->resets);

  auto refusesReset = TestStats::Create("Y");
  refusesReset->resetResult = kOwnFailure;
  EXPECT_EQ(kOwnFailure, ctx->AddStats(kA, refusesReset.Get()));
  EXPECT_EQ("", Order());
  EXPECT_EQ(1u, refusesReset->RefCountForTesting());

  // The reset's own success value is the answer.
  auto skips = TestStats::Create("Z");
  skips->resetResult = S_FALSE;
  EXPECT_EQ(S_FALSE, ctx->AddStats(kA, skips.Get()));
  EXPECT_EQ("Z", Order());
}

TEST_F(StatsContextTest, TheContextHoldsTheOnlyReferenceAndGivesItUp) {
  const int live = StatsPart::s_live;
  auto keep = Add(kA, "A");
  EXPECT_EQ(2u, keep->RefCountForTesting());  // the slot's cached pointers add none
  const int queries = keep->queries;
  for (int i = 0; i < 3; ++i) Dispatch();
  ctx->ProcessTime(5);
  EXPECT_EQ(queries, keep->queries);  // nothing is asked for per packet or tick
  keep = nullptr;

  EXPECT_EQ(live + 1, StatsPart::s_live);
  ctx->RemoveStats(kA);
  EXPECT_EQ(live, StatsPart::s_live);

  Add(kA, "A");
  Add(kB, "B");
  ctx->RemoveAllStats();
  EXPECT_EQ(live, StatsPart::s_live);

  Add(kA, "A");
  Add(kB, "B");
  EXPECT_EQ(live + 2, StatsPart::s_live);
  ctx = nullptr;
  EXPECT_EQ(live, StatsPart::s_live);
}

TEST_F(StatsContextTest, ResetWithAndWithoutTheStatisticsCase) {
  auto plain = Add(kA, "A");
  auto own = ResettableStats::Create("R");
  ASSERT_EQ(S_OK, ctx->AddStats(kB, own.Get()));
  ctx->SetMediaType(7);
  packet->time = 1000;
  Dispatch();

  plain->resetResult = kOwnFailure;  // not the last call: not the answer
  own->statisticsResetResult = kOwnFailure;
  EXPECT_EQ(S_OK, ctx.Query<IZemoStatsContext>()->Reset());
  EXPECT_EQ(S_OK, ctx.Query<IResetProcessing>()->Reset());
  EXPECT_EQ(3, own->resets);  // one of them on joining
  EXPECT_EQ(0, own->statisticsResets);
  EXPECT_EQ(3, plain->resets);

  EXPECT_EQ(kOwnFailure, ctx.Query<IResetStatistics>()->Reset());
  EXPECT_EQ(1, own->statisticsResets);
  EXPECT_EQ(3, own->resets);
  EXPECT_EQ(4, plain->resets);

  // Counters go; medium and statistics stay.
  ULONGLONG packets = 1;
  ZemoTime start = 1;
  ULONG type = 0;
  ctx->GetTotalPackets(&packets);
  ctx->GetStartDateTime(&start);
  ctx->GetMediaType(&type);
  EXPECT_EQ(0u, packets);
  EXPECT_EQ(0u, start);
  EXPECT_EQ(7u, type);
  EXPECT_EQ("A R", Order());
}

TEST_F(StatsContextTest, PacketsAndTicksMoveTheTimes) {
  const ZemoTime now = 133000000000000000ull;
  zemo::SetNowForTesting(now);
  ZemoTime start = 1, stop = 0;
  ULONGLONG duration = 1;
  ctx->GetStopDateTime(&stop);
  ctx->GetDuration(&duration);
  EXPECT_EQ(now, stop);
  EXPECT_EQ(0u, duration);
  zemo::SetNowForTesting(now + 5);
  ctx->GetStopDateTime(&stop);
  EXPECT_EQ(now + 5, stop);  // read, not stored

  auto stats = Add(kA, "A");
  packet->time = 0;  // a first packet without time leaves the start open
  Dispatch();
  ctx->GetStartDateTime(&start);
  EXPECT_EQ(0u, start);
  packet->time = 2000;
  Dispatch();
  packet->time = 5000;
  Dispatch();
  ctx->GetStartDateTime(&start);
  ctx->GetDuration(&duration);
  EXPECT_EQ(2000u, start);
  EXPECT_EQ(3000u, duration);

  g_seen.clear();
  EXPECT_EQ(S_OK, ctx->ProcessTime(9000));
  EXPECT_EQ("A@9000", Seen());
  ctx->GetStopDateTime(&stop);
  ctx->GetStartDateTime(&start);
  EXPECT_EQ(9000u, stop);
  EXPECT_EQ(2000u, start);

  ctx->ProcessTime(0);  // a tick of 0 clears both
  ctx->GetStartDateTime(&start);
  ctx->GetStopDateTime(&stop);
  ctx->GetDuration(&duration);
  EXPECT_EQ(0u, start);
  EXPECT_EQ(now + 5, stop);
  EXPECT_EQ(0u, duration);

  ctx->SetStartDateTime(5000);
  ctx->SetStopDateTime(4000);
  ctx->GetDuration(&duration);
  EXPECT_EQ(0u, duration);  // a stop before the start is no duration
}

TEST_F(StatsContextTest, TotalsCountWireLengthsOfPacketsThatReadWell) {
  Add(kA, "A");
  packet->time = 100;
  packet->wireLength = 1514;
  packet->capturedLength = 64;
  Dispatch();
  packet->wireLength = 65535;
  Dispatch();
  ULONGLONG packets = 0, bytes = 0;
  ctx->GetTotalPackets(&packets);
  ctx->GetTotalBytes(&bytes);
  EXPECT_EQ(2u, packets);
  EXPECT_EQ(1514u + 65535u, bytes);

  // No time stamp: nothing changes, and the packet's status is the answer.
  packet->time = 700;
  packet->timeStampResult = kOwnFailure;
  g_seen.clear();
  EXPECT_EQ(kOwnFailure, ctx->ProcessPacket(packet.Get()));
  EXPECT_EQ("", Seen());
  ZemoTime stop = 0;
  ctx->GetStopDateTime(&stop);
  ctx->GetTotalPackets(&packets);
  EXPECT_EQ(100u, stop);
  EXPECT_EQ(2u, packets);

  // No length: the time has moved, the totals have not.
  packet->timeStampResult = S_OK;
  packet->lengthResult = kOwnFailure;
  EXPECT_EQ(kOwnFailure, ctx->ProcessPacket(packet.Get()));
  EXPECT_EQ("", Seen());
  ctx->GetStopDateTime(&stop);
  ctx->GetTotalBytes(&bytes);
  EXPECT_EQ(700u, stop);
  EXPECT_EQ(1514u + 65535u, bytes);

  EXPECT_EQ(E_INVALIDARG, ctx->ProcessPacket(nullptr));
}

TEST_F(StatsContextTest, AFailingStatisticNeitherStopsTheWalkNorShows) {
  auto a = Add(kA, "A");
  a->packetResult = kOwnFailure;
  ASSERT_EQ(S_OK, ctx->AddStats(kB, ListeningStats::Create("L").Get()));  // takes no packets
  Add(kC, "C");
  EXPECT_EQ("A C", Dispatch());
  EXPECT_EQ(S_OK, ctx->ProcessTime(3));
  EXPECT_EQ("A@3 C@3", Seen());
}

TEST_F(StatsContextTest, AdapterInformationIsCopiedWhateverItAnswers) {
  ctx->SetMediaType(1);
  ctx->SetMediaSubType(2);
  ctx->SetLinkSpeed(100);
  EXPECT_EQ(S_OK, ctx->SetAdapterInfo(nullptr));
  ULONG type = 0, subType = 0;
  ULONGLONG speed = 0;
  ctx->GetMediaType(&type);
  EXPECT_EQ(1u, type);

  auto adapter = FailingAdapter::Create();
  EXPECT_EQ(S_OK, ctx->SetAdapterInfo(adapter.Get()));
  ctx->GetMediaType(&type);
  ctx->GetMediaSubType(&subType);
  ctx->GetLinkSpeed(&speed);
  EXPECT_EQ(71u, type);
  EXPECT_EQ(3u, subType);
  EXPECT_EQ(1000000000u, speed);
  ComPtr<IAdapterInfo> back;
  EXPECT_EQ(S_OK, ctx->GetAdapterInfo(back.ReleaseAndGetAddressOf()));
  EXPECT_EQ(static_cast<IAdapterInfo*>(adapter.Get()), back.Get());

  back = nullptr;
  ctx->SetAdapterInfo(nullptr);
  EXPECT_EQ(1u, adapter->RefCountForTesting());
  ctx->GetMediaType(&type);
  EXPECT_EQ(71u, type);
}

TEST_F(StatsContextTest, UpdateStatsGoesToTheUpdaterWithoutTheLock) {
  // A new context has the summary updater, which needs a SummaryStats.
  ComPtr<IUnknown> initial;
  ComPtr<IStatsUpdater> summaryUpdater;
  ASSERT_EQ(S_OK, ctx->GetStatsUpdater(initial.ReleaseAndGetAddressOf()));
  ASSERT_TRUE(initial && SUCCEEDED(initial.As(&summaryUpdater)));
  EXPECT_EQ(E_FAIL, ctx->UpdateStats());
  ctx->SetStatsUpdater(nullptr);
  EXPECT_EQ(S_OK, ctx->UpdateStats());  // no updater
  auto site = FakeSite::Create();
  ctx->SetStatsUpdater(site.Get());
  EXPECT_EQ(S_OK, ctx->UpdateStats());  // an updater that cannot update

  auto updater = FakeUpdater::Create();
  ctx->SetStatsUpdater(updater.Get());
  EXPECT_EQ(1u, site->RefCountForTesting());
  ctx->SetStatsUpdater(updater.Get());
  EXPECT_EQ(2u, updater->RefCountForTesting());  // the same pointer again adds nothing
  EXPECT_EQ(kOwnFailure, ctx->UpdateStats());
  EXPECT_EQ(Self(), updater->updated);
  EXPECT_TRUE(updater->readerGotThrough);

  ComPtr<IUnknown> back;
  ctx->GetStatsUpdater(back.ReleaseAndGetAddressOf());
  EXPECT_EQ(static_cast<void*>(updater.Get()), static_cast<void*>(back.Get()));
}

TEST_F(StatsContextTest, SummaryUpdatesNeedASnapshot) {
  auto listener = ListeningStats::Create("L");
  ctx->AddStats(kA, listener.Get());
  Add(kB, "B");
  EXPECT_EQ(E_POINTER, ctx->UpdateSummaryStats(nullptr));
  auto notSnapshot = FakeSite::Create();
  EXPECT_EQ(E_NOINTERFACE, ctx->UpdateSummaryStats(notSnapshot.Get()));
  EXPECT_EQ("", Seen());

  auto snapshot = FakeSnapshot::Create();
  EXPECT_EQ(S_OK, ctx->UpdateSummaryStats(snapshot.Get()));
  EXPECT_EQ("L:summary", Seen());
  EXPECT_EQ(static_cast<IUnknown*>(snapshot.Get()), listener->lastSnapshot);
}

TEST_F(StatsContextTest, ProcessingEventsReachEveryListenerInSlotOrder) {
  ctx->AddStats(kA, ListeningStats::Create("L1").Get());
  Add(kB, "B");
  ctx->AddStats(kC, ListeningStats::Create("L2").Get());
  ctx->AddStatsOrder(kC, kA);
  auto events = ctx.Query<IPacketProcessorEvents>();
  EXPECT_EQ(S_OK, events->OnStartProcessing(10));
  EXPECT_EQ(S_OK, events->OnStopProcessing(20));
  EXPECT_EQ(S_OK, events->OnResetProcessing());
  EXPECT_EQ("L2:start@10 L1:start@10 L2:stop@20 L1:stop@20 L2:reset L1:reset", Seen());
}

TEST_F(StatsContextTest, SiteIsKeptAndAskedButNeverRequired) {
  auto withSite = ctx.Query<IObjectWithSite>();
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(E_FAIL, withSite->GetSite(IServiceProvider::iid, &out));
  EXPECT_EQ(nullptr, out);

  auto site = FakeSite::Create();
  EXPECT_EQ(S_OK, withSite->SetSite(site.Get()));
  EXPECT_EQ(S_OK, withSite->SetSite(site.Get()));
  EXPECT_EQ(2u, site->RefCountForTesting());
  ComPtr<IServiceProvider> provider;
  EXPECT_EQ(S_OK, withSite->GetSite(IServiceProvider::iid, provider.OutVoid()));
  EXPECT_EQ(static_cast<IServiceProvider*>(site.Get()), provider.Get());
  EXPECT_EQ(E_NOINTERFACE, withSite->GetSite(IAdapterInfo::iid, &out));
  provider = nullptr;
  withSite->SetSite(nullptr);
  EXPECT_EQ(1u, site->RefCountForTesting());
}

TEST_F(StatsContextTest, ArgumentsAreChecked) {
  Add(kA, "A");
  EXPECT_EQ(E_POINTER, ctx->GetStatsAt(0, nullptr));
  EXPECT_EQ(E_POINTER, ctx->GetStatsCount(nullptr));
  EXPECT_EQ(E_POINTER, ctx->GetStats(kA, IZemoStats::iid, nullptr));
  EXPECT_EQ(E_POINTER, ctx->GetStopDateTime(nullptr));
  EXPECT_EQ(E_POINTER, ctx->GetDuration(nullptr));
  EXPECT_EQ(E_POINTER, ctx->GetAdapterInfo(nullptr));
  EXPECT_EQ(E_POINTER, ctx.Query<IObjectWithSite>()->GetSite(IUnknown::iid, nullptr));

  IZemoStats* stats = reinterpret_cast<IZemoStats*>(0x1);
  EXPECT_EQ(E_INVALIDARG, ctx->GetStatsAt(1, &stats));
  EXPECT_EQ(nullptr, stats);

  EXPECT_EQ(E_POINTER, ctx->GetEntityTable(nullptr));
  EXPECT_EQ(E_POINTER, ctx->GetTupleTable(nullptr));
}

}  // namespace
