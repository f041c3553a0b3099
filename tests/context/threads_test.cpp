// Any thread may call any object. A context holding every statistic is fed,
// read, saved and reset from five threads at once; afterwards it holds just
// what a context fed the same packets since its last reset holds. Run under
// ThreadSanitizer in CI, where a race or an inversion of the lock order fails
// the run even when the figures come out right.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "engine/packet_builder.h"
#include "engine/proto_specs.h"
#include "frame/class_table.h"
#include "frame/clsids.h"
#include "frame/engine_interfaces.h"
#include "frame/module.h"
#include "frame/persist_interfaces.h"
#include "frame/selection.h"
#include "frame/xml_persist.h"
#include "identity/identity_interfaces.h"
#include "network/error_stats.h"
#include "network/network_counters.h"
#include "network/size_stats.h"
#include "platform/class_store.h"
#include "platform/clock.h"
#include "platform/stream.h"
#include "summary/summary_interfaces.h"
#include "summary/summary_items.h"
#include "support/table_cells.h"
#include "tables/conversation_stats.h"
#include "tables/limit_interfaces.h"
#include "tables/node_stats.h"
#include "tables/protocol_stats.h"

namespace {

using namespace zemo;
using Clock = std::chrono::steady_clock;

constexpr ZemoTime kT0 = 133000000000000000ull;
constexpr ZemoTime kStep = 1000000;  // a millisecond between packets
constexpr uint32_t kMaxPackets = 40000;
constexpr auto kMaxRun = std::chrono::seconds(4);
constexpr uint32_t kPacketsPerTick = 200;
constexpr uint32_t kPacketsPerReset = 2500;

// Packet i of a run, the same for every context fed it: a few dozen hosts,
// three protocols, damaged and group packets now and then.
void MakePacket(PacketBuilder& p, uint32_t i) {
  const uint32_t h = (i + 1) * 2654435761u;
  const uint8_t s = static_cast<uint8_t>(1 + h % 29), d = static_cast<uint8_t>(1 + (h >> 8) % 29);
  const uint16_t protocols[] = {proto::kTcp, proto::kUdp, proto::kArp};
  p.Clear().Time(kT0 + i * kStep).Length(60 + (h >> 12) % 1455).Protocol(protocols[(h >> 20) % 3]);
  p.EthernetSource({0, 1, 2, 3, 4, s}).EthernetDestination({0, 1, 2, 3, 4, d}).Ipv4({10, 0, 0, s}, {10, 0, 0, d});
  if (h % 11 == 0) p.Error();
  if (h % 13 == 0) p.Broadcast();
  if (h % 17 == 0) p.Multicast();
}

template <class I>
ComPtr<I> As(IUnknown* object) {
  ComPtr<I> out;
  object->QueryInterface(IidOf<I>(), out.OutVoid());
  return out;
}

template <class I>
ComPtr<I> Stat(IZemoStatsContext* context, REFCLSID clsid) {
  ComPtr<I> out;
  EXPECT_EQ(S_OK, context->GetStats(clsid, IidOf<I>(), out.OutVoid()));
  return out;
}

// A context on Ethernet holding every statistic the module serves, under
// its class, each table under a limit it never reaches.
// Limit settings that a test never reaches.
ComPtr<IZemoStatsLimitSettings> FarLimit() {
  ComPtr<IZemoStatsLimitSettings> settings;
  EXPECT_EQ(S_OK, CoCreateInstance(CLSID_ZemoStatsLimitSettings, nullptr, CLSCTX_ALL, IZemoStatsLimitSettings::iid,
                                   settings.OutVoid()));
  settings->SetLimit(1000000);
  settings->SetEnabled(1);
  return settings;
}

ComPtr<IZemoStatsContext> EveryStatistic() {
  ComPtr<IZemoStatsContext> context;
  EXPECT_EQ(S_OK, CoCreateInstance(CLSID_StatsContext, nullptr, CLSCTX_ALL, IZemoStatsContext::iid, context.OutVoid()));
  context->SetLinkSpeed(1000000000);
  ComPtr<IZemoStatsLimitSettings> settings = FarLimit();
  for (const ClassInfo& row : ClassTable()) {
    ComPtr<IZemoStats> stats;
    if (row.clsid == CLSID_StatsContext ||
        FAILED(CoCreateInstance(row.clsid, nullptr, CLSCTX_ALL, IZemoStats::iid, stats.OutVoid())))
      continue;
    EXPECT_EQ(S_OK, context->AddStats(row.clsid, stats.Get())) << ToUtf8(row.name);
    if (auto limit = As<IZemoStatsLimit>(stats.Get())) {
      EXPECT_EQ(S_OK, limit->SetSettings(settings.Get()));
    }
  }
  return context;
}

// The statistics of a context in slot order.
std::vector<ComPtr<IZemoStats>> Statistics(IZemoStatsContext* context) {
  ULONG count = 0;
  context->GetStatsCount(&count);
  std::vector<ComPtr<IZemoStats>> out(count);
  for (ULONG i = 0; i < count; ++i) EXPECT_EQ(S_OK, context->GetStatsAt(i, out[i].ReleaseAndGetAddressOf()));
  return out;
}

// A result table as text, a line per row.
std::string TableText(IUnknown* object) {
  auto selectable = As<ISelectableObject>(object);
  if (!selectable) return "no table";
  std::string text;
  for (const auto& row : testing_support::ReadTable(selectable.Get()).rows) {
    for (const CVariant& cell : row) text += (cell.vt == VT_EMPTY ? std::string("-") : ToUtf8(XmlText(cell))) + "\t";
    text += "\n";
  }
  return text;
}

class ContextThreads : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(S_OK, DllRegisterServer());
    m_context = EveryStatistic();
  }

  // Feeds packets until the count or the time runs out, a tick every so often.
  void Feed() {
    PacketBuilder p;
    auto process = As<IProcessPacket>(m_context.Get());
    auto time = As<IProcessTime>(m_context.Get());
    const auto end = Clock::now() + kMaxRun;
    uint32_t i = 0;
    for (; i < kMaxPackets && Clock::now() < end; ++i) {
      MakePacket(p, i);
      EXPECT_EQ(S_OK, process->ProcessPacket(p.Get()));
      if (i % kPacketsPerTick == kPacketsPerTick - 1) {
        EXPECT_EQ(S_OK, time->ProcessTime(kT0 + i * kStep));
      }
      m_fed.store(i + 1, std::memory_order_release);
    }
    m_done.store(true, std::memory_order_release);
  }

  bool Running() const { return !m_done.load(std::memory_order_acquire); }

  // Counts and rates of the capture-wide statistics, and every table.
  void ReadCounts() {
    auto network = Stat<INetworkStats>(m_context.Get(), CLSID_NetworkStats);
    auto channels = Stat<IChannelStats>(m_context.Get(), CLSID_NetworkStats);
    auto sizes = Stat<ISizeStats>(m_context.Get(), CLSID_SizeStats);
    auto errors = Stat<IErrorStats>(m_context.Get(), CLSID_ErrorStats);
    do {
      ULONGLONG packets = 0, bytes = 0, duration = 0;
      EXPECT_EQ(S_OK, m_context->GetTotalPackets(&packets));
      EXPECT_EQ(S_OK, m_context->GetTotalBytes(&bytes));
      EXPECT_EQ(S_OK, m_context->GetDuration(&duration));
      NetworkCounters counters{};
      NetworkRates rates{};
      ULONG channelCount = 0;
      EXPECT_EQ(S_OK, network->GetNetworkCounters(&counters));
      EXPECT_EQ(S_OK, network->GetNetworkRates(&rates));
      EXPECT_EQ(S_OK, channels->GetChannelCount(&channelCount));
      ULONGLONG buckets[kMaxSizeBuckets] = {}, counts[13] = {};
      double rate = 0;
      EXPECT_EQ(S_OK, sizes->GetBuckets(kMaxSizeBuckets, buckets));
      EXPECT_EQ(S_OK, errors->GetCounters(13, counts));
      EXPECT_EQ(S_OK, errors->GetErrorRate(&rate));
      for (const ComPtr<IZemoStats>& stats : Statistics(m_context.Get())) TableText(stats.Get());
      TableText(m_context.Get());
    } while (Running());
  }

  // Record counts and records of the tables, the identity tables, the
  // limits, and the selection from the context down to a statistic.
  void ReadEntries() {
    auto nodes = Stat<INodeStats>(m_context.Get(), CLSID_NodeStats);
    auto protocols = Stat<IProtocolStats>(m_context.Get(), CLSID_ProtocolStats);
    auto conversations = Stat<IConversationStats>(m_context.Get(), CLSID_ConversationStats);
    auto limit = Stat<IZemoStatsLimit>(m_context.Get(), CLSID_NodeStats);
    auto selectable = As<ISelectableObject>(m_context.Get());
    ComPtr<IEntityTable> entities;
    EXPECT_EQ(S_OK, m_context->GetEntityTable(entities.ReleaseAndGetAddressOf()));
    CLSID clsid{};
    ASSERT_EQ(S_OK, CLSIDFromProgID(kProgIdSelectParams, &clsid));
    do {
      // A reset between the count and the read may take the record away.
      ULONG count = 0;
      EXPECT_EQ(S_OK, nodes->GetNodeCount(&count));
      ZemoNodeStatEntry node;
      if (count) nodes->GetNodeEntry(count - 1, &node);
      EXPECT_EQ(S_OK, protocols->GetProtocolCount(&count));
      ZemoProtocolStatEntry protocol;
      if (count) protocols->GetProtocolEntry(count - 1, &protocol);
      ZemoConversationStatEntry conversation;
      EXPECT_EQ(S_OK, conversations->GetConversationCount(&count));
      if (count) conversations->GetConversationEntry(0xEFFFFFFF, &conversation);
      EXPECT_EQ(S_OK, entities->GetCount(0, &count));
      ComPtr<IZemoStatsLimitSettings> settings;
      EXPECT_EQ(S_OK, limit->GetSettings(settings.ReleaseAndGetAddressOf()));
      EXPECT_EQ(S_OK, limit->GetResetCount(&count));

      ComPtr<ISelectParams> path;
      ASSERT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_ALL, ISelectParams::iid, path.OutVoid()));
      EXPECT_EQ(S_OK, path->AddItem(CBstr(u"entitytable").Get(), nullptr));
      ComPtr<IUnknown> found;
      EXPECT_EQ(S_OK, selectable->Select(path.Get(), found.ReleaseAndGetAddressOf()));
    } while (Running());
  }

  // Stream deltas of the whole context, each one loaded into a fresh context
  // that must agree with itself; XML deltas of every statistic that has them.
  void Save() {
    auto deltas = As<ISaveStreamDeltas>(m_context.Get());
    std::vector<ComPtr<IPersistXmlDeltas>> xml;
    // Those whose XML is there in name only answer E_NOTIMPL even to a save
    // after everything, and are left out.
    for (const ComPtr<IZemoStats>& stats : Statistics(m_context.Get())) {
      auto p = As<IPersistXmlDeltas>(stats.Get());
      auto probe = CreateXmlDocument();
      ZemoTime afterAll = ~ZemoTime{0};
      if (p && p->SaveDeltas(probe.Get(), probe.Get(), &afterAll) != E_NOTIMPL) xml.push_back(p);
    }
    ZemoTime streamSince = 0, xmlSince = 0;
    do {
      auto stream = CreateMemoryStream();
      ASSERT_EQ(S_OK, deltas->SaveDeltas(stream.Get(), &streamSince));
      std::vector<uint8_t> bytes = MemoryStreamBytes(stream.Get());
      ComPtr<IZemoStatsContext> copy;
      ASSERT_EQ(S_OK, CoCreateInstance(CLSID_StatsContext, nullptr, CLSCTX_ALL, IZemoStatsContext::iid, copy.OutVoid()));
      ASSERT_EQ(S_OK, As<IPersistStream>(copy.Get())->Load(CreateReadOnlyStream(bytes.data(), bytes.size()).Get()));
      // A save is taken between packets: the totals agree with the statistics.
      ULONGLONG packets = 0;
      NetworkCounters counters{};
      copy->GetTotalPackets(&packets);
      Stat<INetworkStats>(copy.Get(), CLSID_NetworkStats)->GetNetworkCounters(&counters);
      EXPECT_EQ(packets, counters.TotalPackets);

      auto document = CreateXmlDocument();
      auto root = CreateChildElement(document.Get(), document.Get(), u"root");
      const ZemoTime from = xmlSince;
      for (const auto& p : xml) {
        ZemoTime since = from;
        EXPECT_EQ(S_OK, p->SaveDeltas(document.Get(), root.Get(), &since));
      }
      xmlSince = Now();
    } while (Running());
  }

  // Now and then some statistics are told their context again, the tables
  // among them get their limits anew, and all but NetworkStats (which the
  // saves compare with the context) reset themselves; then the whole context
  // resets, by its two reset interfaces in turn.
  void Reset() {
    std::vector<ComPtr<IZemoStats>> own;
    for (const CLSID& clsid : {CLSID_NetworkStats, CLSID_SizeStats, CLSID_ErrorStats, CLSID_NodeStats,
                               CLSID_NodeStatsHierarchy, CLSID_RollingNodeStats, CLSID_ConversationStats})
      own.push_back(Stat<IZemoStats>(m_context.Get(), clsid));
    for (uint32_t next = kPacketsPerReset / 4; Running();) {
      if (m_fed.load(std::memory_order_acquire) < next) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      for (const auto& stats : own) {
        EXPECT_EQ(S_OK, stats->SetContext(m_context.Get()));
        if (auto limit = As<IZemoStatsLimit>(stats.Get())) {
          EXPECT_EQ(S_OK, limit->SetSettings(FarLimit().Get()));
          EXPECT_EQ(S_OK, limit->SetContextId(GUID_NULL));
          EXPECT_EQ(S_OK, limit->SetNotifySink(nullptr));
        }
        if (stats != own.front()) {
          EXPECT_EQ(S_OK, As<IResetProcessing>(stats.Get())->Reset());
        }
      }
      EXPECT_EQ(S_OK, m_resets++ % 2 ? As<IResetStatistics>(m_context.Get())->Reset()
                                      : As<IResetProcessing>(m_context.Get())->Reset());
      next += kPacketsPerReset;
    }
  }

  ComPtr<IZemoStatsContext> m_context;
  std::atomic<uint32_t> m_fed{0};
  std::atomic<bool> m_done{false};
  uint32_t m_resets = 0;
};

TEST_F(ContextThreads, EveryPacketSinceTheLastResetCountsOnceWhileOthersReadSaveAndReset) {
  const auto started = Clock::now();
  {
    std::vector<std::thread> threads;
    threads.emplace_back([this] { ReadCounts(); });
    threads.emplace_back([this] { ReadEntries(); });
    threads.emplace_back([this] { Save(); });
    threads.emplace_back([this] { Reset(); });
    Feed();
    for (std::thread& t : threads) t.join();
  }
  const uint32_t fed = m_fed.load();
  EXPECT_GT(m_resets, 0u);
  EXPECT_LT(Clock::now() - started, kMaxRun + std::chrono::seconds(10));

  // The first packet after the last reset set the start time.
  ZemoTime start = 0;
  ASSERT_EQ(S_OK, m_context->GetStartDateTime(&start));
  const uint32_t first = start ? static_cast<uint32_t>((start - kT0) / kStep) : fed;
  ASSERT_LE(first, fed);
  auto reference = EveryStatistic();
  PacketBuilder p;
  ULONGLONG bytes = 0;
  for (uint32_t i = first; i < fed; ++i) {
    MakePacket(p, i);
    ASSERT_EQ(S_OK, As<IProcessPacket>(reference.Get())->ProcessPacket(p.Get()));
    USHORT length = 0;
    p.Get()->GetPacketLength(&length);
    bytes += length;
  }
  ULONGLONG packets = 0, total = 0;
  m_context->GetTotalPackets(&packets);
  m_context->GetTotalBytes(&total);
  EXPECT_EQ(fed - first, packets);
  EXPECT_EQ(bytes, total);
  NetworkCounters counters{};
  Stat<INetworkStats>(m_context.Get(), CLSID_NetworkStats)->GetNetworkCounters(&counters);
  EXPECT_EQ(packets, counters.TotalPackets);

  std::vector<ComPtr<IZemoStats>> ran = Statistics(m_context.Get()), fresh = Statistics(reference.Get());
  ASSERT_EQ(fresh.size(), ran.size());
  for (size_t i = 0; i < ran.size(); ++i) {
    // The summary holds what its last update wrote, rates of the ticks
    // included: it is checked below on its own.
    if (!As<ISelectableObject>(ran[i].Get()) || GetSelectableName(ran[i].Get()) == u"summarystats") continue;
    SCOPED_TRACE(ToUtf8(GetSelectableName(ran[i].Get())));
    EXPECT_EQ(TableText(fresh[i].Get()), TableText(ran[i].Get()));
  }
  // The saves brought the summary up to date as they went; one more update
  // gives the totals now.
  EXPECT_EQ(S_OK, m_context->UpdateStats());
  ComPtr<ISummaryStatsSnapshot> summary;
  Stat<ISummaryStats>(m_context.Get(), CLSID_SummaryStats)->GetSnapshot(0, summary.ReleaseAndGetAddressOf());
  SummaryStatValue summarized{};
  ASSERT_EQ(S_OK, summary->GetValue(summary_items::kTotalPackets, &summarized));
  EXPECT_EQ(packets, uint64_t{summarized.Count});
  std::printf("[ threads  ] %u packets, %u resets, %u since the last, %.2f s\n", fed, m_resets, fed - first,
              std::chrono::duration<double>(Clock::now() - started).count());
}

}  // namespace
