#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <future>
#include <random>
#include <string>
#include <vector>

#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "engine/proto_specs.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/selection.h"
#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/clock.h"
#include "platform/strings.h"
#include "support/stream_bytes.h"
#include "support/xml_text.h"

namespace {

using namespace zemo;

constexpr ZemoTime kT0 = 133000000000000000ull;  // some day in 2022
constexpr ZemoTime kSecond = 1000000000ull;

const CLSID kStatClasses[] = {CLSID_NetworkStats,  CLSID_SizeStats,     CLSID_ErrorStats,
                              CLSID_HistoryStats,  CLSID_DashboardStats, CLSID_NodeStats,
                              CLSID_ProtocolStats, CLSID_ProtocolStatsByID, CLSID_ConversationStats};

template <class I>
ComPtr<I> As(IUnknown* object) {
  ComPtr<I> out;
  EXPECT_EQ(S_OK, object->QueryInterface(IidOf<I>(), out.OutVoid()));
  return out;
}

// The context has many IUnknown bases: it goes by its own.
template <class I>
ComPtr<I> As(StatsContext* context) {
  return As<I>(context->GetUnknown());
}

using testing_support::LoadStreamBytes;
using testing_support::StreamBytes;

std::string XmlOf(IXMLDOMDocument* document) { return ToUtf8(testing_support::XmlMarkup(document)); }

class ContextPersistTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(S_OK, DllRegisterServer()); }

  // A context holding every statistic the module serves, each under its class.
  static ComPtr<StatsContext> Writer(bool xml = false) {
    auto context = StatsContext::Create();
    context->SetMediaType(1);
    context->SetLinkSpeed(1000000000ull);
    for (const CLSID& clsid : kStatClasses) {
      // The dashboard has no XML form, so a context with it has none either;
      // the history's XML form is empty, so it cannot read back the same.
      if (xml && (clsid == CLSID_DashboardStats || clsid == CLSID_HistoryStats)) continue;
      ComPtr<IZemoStats> stats;
      EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IZemoStats, stats.OutVoid()));
      EXPECT_TRUE(SUCCEEDED(context->AddStats(clsid, stats.Get())));
    }
    return context;
  }

  // Random TCP, UDP and ARP traffic among a few hosts, with errors and group
  // addresses now and then, and a tick at the end.
  void Traffic(StatsContext* context, int packets) {
    std::uniform_int_distribution<int> host(1, 12), coin(0, 9), size(60, 1514);
    const uint16_t protocols[] = {proto::kTcp, proto::kUdp, proto::kArp};
    for (int i = 0; i < packets; ++i) {
      m_time += 1 + m_rng() % (kSecond / 4);
      PacketBuilder p;
      uint8_t s = static_cast<uint8_t>(host(m_rng)), d = static_cast<uint8_t>(host(m_rng));
      p.Time(m_time).Length(static_cast<ULONG>(size(m_rng))).Protocol(protocols[m_rng() % 3]);
      p.EthernetSource({0, 1, 2, 3, 4, s}).EthernetDestination({0, 1, 2, 3, 4, d});
      p.Ipv4({10, 0, 0, s}, {10, 0, 0, d});
      if (coin(m_rng) == 0) p.Error();
      if (coin(m_rng) == 1) p.Broadcast();
      if (coin(m_rng) == 2) p.Multicast();
      ASSERT_EQ(S_OK, context->ProcessPacket(p.Get()));
    }
    // Time runs on past the tick, as it does in a capture.
    m_time += kSecond;
    ASSERT_EQ(S_OK, context->ProcessTime(m_time));
  }

  // Everything a reader must agree on: the header, then each statistic's
  // class and own full save, in slot order.
  static std::vector<std::string> Fingerprint(StatsContext* context) {
    std::vector<std::string> out;
    ULONG media = 0, count = 0;
    ULONGLONG speed = 0, packets = 0, bytes = 0;
    ZemoTime start = 0;
    context->GetMediaType(&media);
    context->GetLinkSpeed(&speed);
    context->GetStartDateTime(&start);
    context->GetTotalPackets(&packets);
    context->GetTotalBytes(&bytes);
    out.push_back(std::to_string(media) + " " + std::to_string(speed) + " " + std::to_string(start) + " " +
                  std::to_string(packets) + " " + std::to_string(bytes));
    context->GetStatsCount(&count);
    for (ULONG i = 0; i < count; ++i) {
      ComPtr<IZemoStats> stats;
      EXPECT_EQ(S_OK, context->GetStatsAt(i, stats.ReleaseAndGetAddressOf()));
      CLSID clsid{};
      As<IPersistStream>(stats.Get())->GetClassID(&clsid);
      std::vector<uint8_t> data = StreamBytes(stats.Get());
      out.push_back(ToUtf8(XmlText(CVariant::Clsid(clsid))) + std::string(data.begin(), data.end()));
    }
    return out;
  }

  // Empty when the two agree, else the part where they differ.
  static std::string Difference(StatsContext* expected, StatsContext* actual) {
    std::vector<std::string> a = Fingerprint(expected), b = Fingerprint(actual);
    if (a.size() != b.size()) return "statistics " + std::to_string(a.size()) + " vs " + std::to_string(b.size());
    for (size_t i = 0; i < a.size(); ++i)
      if (a[i] != b[i])
        return i == 0 ? "header " + a[0] + " vs " + b[0]
                      : "statistic " + a[i].substr(0, 38) + " sizes " + std::to_string(a[i].size()) + " vs " +
                            std::to_string(b[i].size());
    return "";
  }

  std::mt19937_64 m_rng{20261123};
  ZemoTime m_time = kT0;
};

// ---- round trips ------------------------------------------------------------

TEST_F(ContextPersistTest, StreamRoundTripCreatesEveryStatisticByClass) {
  auto writer = Writer();
  Traffic(writer.Get(), 400);
  auto reader = StatsContext::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), StreamBytes(writer.Get())));
  ULONG count = 0;
  reader->GetStatsCount(&count);
  EXPECT_EQ(std::size(kStatClasses), count);
  for (const CLSID& clsid : kStatClasses) {
    ComPtr<IZemoStats> stats;
    EXPECT_EQ(S_OK, reader->GetStats(clsid, IID_IZemoStats, stats.OutVoid()));
  }
  EXPECT_EQ("", Difference(writer.Get(), reader.Get()));
}

TEST_F(ContextPersistTest, XmlRoundTripCreatesEveryStatisticByClass) {
  auto writer = Writer(true);
  Traffic(writer.Get(), 400);
  auto document = CreateXmlDocument();
  ASSERT_EQ(S_OK, As<IPersistXml>(writer.Get())->Save(document.Get(), document.Get(), FALSE));
  auto reader = StatsContext::Create();
  ASSERT_EQ(S_OK, As<IPersistXml>(reader.Get())->Load(document.Get(), document.Get()));
  EXPECT_EQ("", Difference(writer.Get(), reader.Get()));
  // A statistic without any XML form ends the save, and the caller's
  // document gets nothing of it.
  auto untouched = CreateXmlDocument();
  const std::string before = XmlOf(untouched.Get());
  EXPECT_TRUE(FAILED(As<IPersistXml>(Writer().Get())->Save(untouched.Get(), untouched.Get(), FALSE)));
  EXPECT_EQ(before, XmlOf(untouched.Get()));
}

// An updater that asks another thread to get into the context while Update
// runs: it gets in only once the caller lets the context's lock go.
class LockProbe final : public Object<LockProbe, IStatsUpdater> {
 public:
  HRESULT Update(IZemoStatsContext* context) override {
    probe = std::async(std::launch::async, [context] {
      ULONG count = 0;
      return context->GetStatsCount(&count);
    });
    gotIn = probe.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
    return S_OK;
  }
  std::future<HRESULT> probe;
  bool gotIn = true;
};

TEST_F(ContextPersistTest, SavesUpdateTheSummaryWithinTheirLock) {
  auto context = StatsContext::Create();
  auto probe = LockProbe::Create();
  ASSERT_EQ(S_OK, context->SetStatsUpdater(probe->GetUnknown()));
  ZemoTime since = 0;
  ASSERT_EQ(S_OK, As<ISaveStreamDeltas>(context.Get())->SaveDeltas(CreateMemoryStream().Get(), &since));
  EXPECT_FALSE(probe->gotIn) << "stream";
  EXPECT_EQ(S_OK, probe->probe.get());
  auto document = CreateXmlDocument();
  ASSERT_EQ(S_OK, As<IPersistXmlDeltas>(context.Get())->SaveDeltas(document.Get(), document.Get(), &since));
  EXPECT_FALSE(probe->gotIn) << "XML";
  EXPECT_EQ(S_OK, probe->probe.get());
}

// ---- deltas -----------------------------------------------------------------

TEST_F(ContextPersistTest, StreamDeltasFollowTheWriterThroughAReset) {
  auto writer = Writer();
  auto reader = StatsContext::Create();
  auto saveDeltas = As<ISaveStreamDeltas>(writer.Get());
  ZemoTime since = 0;
  for (int round = 0; round < 5; ++round) {
    if (round == 3) {
      // A new capture: the reader must drop the old one rather than merge.
      ASSERT_EQ(S_OK, As<IResetStatistics>(writer.Get())->Reset());
      m_time += 1000 * kSecond;
    }
    Traffic(writer.Get(), 150);
    auto stream = CreateMemoryStream();
    ASSERT_EQ(S_OK, saveDeltas->SaveDeltas(stream.Get(), &since));
    ZemoTime stop = 0;
    writer->GetStopDateTime(&stop);
    EXPECT_EQ(stop, since);
    ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), MemoryStreamBytes(stream.Get())));
    EXPECT_EQ("", Difference(writer.Get(), reader.Get())) << "round " << round;
  }
}

TEST_F(ContextPersistTest, XmlDeltasFollowTheWriter) {
  auto writer = Writer(true);
  auto reader = StatsContext::Create();
  auto saveDeltas = As<IPersistXmlDeltas>(writer.Get());
  ZemoTime since = 0;
  for (int round = 0; round < 4; ++round) {
    // The XML cookie is the wall clock: a live capture stamps packets with it.
    m_time = std::max(m_time, Now());
    Traffic(writer.Get(), 150);
    auto document = CreateXmlDocument();
    ZemoTime before = Now();
    ASSERT_EQ(S_OK, saveDeltas->SaveDeltas(document.Get(), document.Get(), &since));
    EXPECT_GE(since, before);
    ASSERT_EQ(S_OK, As<IPersistXml>(reader.Get())->Load(document.Get(), document.Get()));
  }
  EXPECT_EQ("", Difference(writer.Get(), reader.Get()));
}

// ---- forms and edges --------------------------------------------------------

TEST_F(ContextPersistTest, OlderStreamFormCarriesLinkSpeedAsU32) {
  auto writer = StatsContext::Create();
  writer->SetStartDateTime(kT0);
  std::vector<uint8_t> bytes = StreamBytes(writer.Get());
  ULONG mark = 0;
  std::memcpy(&mark, bytes.data() + 8, 4);
  EXPECT_EQ(0xABCD1234u, mark);
  std::vector<uint8_t> older(bytes.begin(), bytes.begin() + 8);
  const ULONG speed = 100000000;
  older.insert(older.end(), reinterpret_cast<const uint8_t*>(&speed), reinterpret_cast<const uint8_t*>(&speed) + 4);
  older.insert(older.end(), bytes.begin() + 20, bytes.end());
  auto reader = StatsContext::Create();
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), older));
  ULONGLONG linkSpeed = 0;
  ZemoTime start = 0;
  reader->GetLinkSpeed(&linkSpeed);
  reader->GetStartDateTime(&start);
  EXPECT_EQ(100000000u, linkSpeed);
  EXPECT_EQ(kT0, start);
}

TEST_F(ContextPersistTest, FileExportsAreRefusedByTheirExtension) {
  auto context = StatsContext::Create();
  auto file = As<IPersistFile>(context.Get());
  EXPECT_EQ(E_NOTIMPL, file->Save(u"capture.txt", FALSE));
  EXPECT_EQ(E_NOTIMPL, file->Save(u"CAPTURE.TXT", FALSE));
  EXPECT_EQ(E_INVALIDARG, file->Save(u"capture.xml", FALSE));
}

TEST_F(ContextPersistTest, XmlHeaderRules) {
  auto writer = Writer(true);
  Traffic(writer.Get(), 50);
  auto document = CreateXmlDocument();
  ASSERT_EQ(S_OK, As<IPersistXml>(writer.Get())->Save(document.Get(), document.Get(), FALSE));
  const std::string text = XmlOf(document.Get());
  // Without stats: header and tables only, and success.
  size_t from = text.find("<stats>"), to = text.rfind("</stats>");
  ASSERT_NE(std::string::npos, from);
  ASSERT_NE(std::string::npos, to);
  std::string noStats = text.substr(0, from) + text.substr(to + 8);
  auto reader = StatsContext::Create();
  auto partial = testing_support::ParseXml(noStats);
  ASSERT_EQ(S_OK, As<IPersistXml>(reader.Get())->Load(partial.Get(), partial.Get()));
  ULONGLONG packets = 0;
  ULONG count = 1;
  reader->GetTotalPackets(&packets);
  reader->GetStatsCount(&count);
  EXPECT_EQ(50u, packets);
  EXPECT_EQ(0u, count);
  // A header without TotalBytes is refused.
  size_t name = text.find("\"TotalBytes\"");
  ASSERT_NE(std::string::npos, name);
  from = text.rfind("<prop", name);
  to = std::min(text.find("<prop", name), text.find("</props>", name));
  std::string noTotal = text.substr(0, from) + text.substr(to);
  auto refused = testing_support::ParseXml(noTotal);
  EXPECT_EQ(E_FAIL, As<IPersistXml>(StatsContext::Create().Get())->Load(refused.Get(), refused.Get()));
  // Nothing at all.
  EXPECT_EQ(E_FAIL, As<IPersistXml>(reader.Get())->Load(CreateXmlDocument().Get(), CreateXmlDocument().Get()));
}

// ---- failures ---------------------------------------------------------------

// Whatever failed, the lock is free: a second thread gets through at once.
void ExpectUsableFromAnotherThread(StatsContext* context, const std::vector<uint8_t>& good) {
  auto done = std::async(std::launch::async, [&] {
    ULONG count = 0;
    EXPECT_EQ(S_OK, context->GetStatsCount(&count));
    return LoadStreamBytes(context, good);
  });
  ASSERT_EQ(std::future_status::ready, done.wait_for(std::chrono::seconds(10)));
  EXPECT_EQ(S_OK, done.get());
}

TEST_F(ContextPersistTest, TruncatedStreamsFailCleanly) {
  auto writer = Writer();
  Traffic(writer.Get(), 200);
  std::vector<uint8_t> bytes = StreamBytes(writer.Get());
  const std::vector<std::string> expected = Fingerprint(writer.Get());
  for (size_t cut = 0; cut < bytes.size(); cut += 1 + bytes.size() / 23) {
    auto reader = StatsContext::Create();
    std::vector<uint8_t> part(bytes.begin(), bytes.begin() + cut);
    EXPECT_TRUE(FAILED(LoadStreamBytes(reader.Get(), part))) << "cut at " << cut;
    ExpectUsableFromAnotherThread(reader.Get(), bytes);
    EXPECT_EQ(expected, Fingerprint(reader.Get())) << "cut at " << cut;
  }
}

TEST_F(ContextPersistTest, UnknownOrWrongClassEndsTheLoad) {
  auto writer = StatsContext::Create();
  std::vector<uint8_t> bytes = StreamBytes(writer.Get());
  ASSERT_GE(bytes.size(), 4u);
  const std::vector<uint8_t> good = bytes;
  bytes.resize(bytes.size() - 4);  // n
  const ULONG one = 1;
  bytes.insert(bytes.end(), reinterpret_cast<const uint8_t*>(&one), reinterpret_cast<const uint8_t*>(&one) + 4);
  for (const CLSID& clsid : {MakeGuid("0BADC1A5-0000-0000-0000-000000000001"), CLSID_StatsContext}) {
    std::vector<uint8_t> block = bytes;
    block.insert(block.end(), reinterpret_cast<const uint8_t*>(&clsid), reinterpret_cast<const uint8_t*>(&clsid) + 16);
    block.insert(block.end(), reinterpret_cast<const uint8_t*>(&clsid), reinterpret_cast<const uint8_t*>(&clsid) + 16);
    auto reader = StatsContext::Create();
    // The creation's own status: a class the store doesn't know, an object
    // that is no statistic.
    EXPECT_EQ(clsid == CLSID_StatsContext ? E_NOINTERFACE : REGDB_E_CLASSNOTREG, LoadStreamBytes(reader.Get(), block));
    ULONG count = 7;
    reader->GetStatsCount(&count);
    EXPECT_EQ(0u, count);
    ExpectUsableFromAnotherThread(reader.Get(), good);
  }
}

TEST_F(ContextPersistTest, AnotherStartTimeClearsWhatWasThere) {
  auto writer = Writer();
  Traffic(writer.Get(), 100);
  auto reader = Writer();
  Traffic(reader.Get(), 300);  // same classes, other capture
  ASSERT_EQ(S_OK, LoadStreamBytes(reader.Get(), StreamBytes(writer.Get())));
  EXPECT_EQ("", Difference(writer.Get(), reader.Get()));
}

// ---- selection --------------------------------------------------------------

ComPtr<ISelectParams> Path(std::initializer_list<std::pair<const char16_t*, ComPtr<IPropertyBag>>> steps) {
  CLSID clsid{};
  ComPtr<ISelectParams> params;
  EXPECT_EQ(S_OK, CLSIDFromProgID(kProgIdSelectParams, &clsid));
  EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_ALL, ISelectParams::iid, params.OutVoid()));
  for (const auto& [name, bag] : steps) {
    CBstr text{std::u16string_view(name)};
    EXPECT_EQ(S_OK, params->AddItem(text.Get(), bag.Get()));
  }
  return params;
}

ComPtr<IPropertyBag> Bag(const char16_t* name, std::u16string_view text) {
  CLSID clsid{};
  ComPtr<IPropertyBag> bag;
  EXPECT_EQ(S_OK, CLSIDFromProgID(kProgIdSimplePropBag, &clsid));
  EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IPropertyBag::iid, bag.OutVoid()));
  CVariant value = CVariant::Str(text);
  EXPECT_EQ(S_OK, bag->Write(name, &value));
  return bag;
}

bool SameObject(IUnknown* a, IUnknown* b) {
  ComPtr<IUnknown> ua, ub;
  a->QueryInterface(IUnknown::iid, ua.OutVoid());
  b->QueryInterface(IUnknown::iid, ub.OutVoid());
  return ua.Get() == ub.Get();
}

TEST_F(ContextPersistTest, SelectionReachesTablesAndEveryStatistic) {
  auto context = Writer();
  auto select = As<ISelectableObject>(context.Get());
  ComPtr<IUnknown> out;
  ComPtr<IEntityTable> entities;
  ComPtr<ITupleTable> tuples;
  context->GetEntityTable(entities.ReleaseAndGetAddressOf());
  context->GetTupleTable(tuples.ReleaseAndGetAddressOf());
  ASSERT_EQ(S_OK, select->Select(Path({{u"entitytable", nullptr}}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_TRUE(SameObject(out.Get(), entities.Get()));
  ASSERT_EQ(S_OK, select->Select(Path({{u"TupleTable", nullptr}}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_TRUE(SameObject(out.Get(), tuples.Get()));
  ASSERT_EQ(S_OK, select->Select(Path({}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_TRUE(SameObject(out.Get(), context->GetUnknown()));

  int named = 0;
  for (const CLSID& clsid : kStatClasses) {
    ComPtr<IUnknown> stats;
    ASSERT_EQ(S_OK, context->GetStats(clsid, IUnknown::iid, stats.OutVoid()));
    ASSERT_EQ(S_OK, select->Select(Path({{u"stat", Bag(u"id", XmlText(CVariant::Clsid(clsid)))}}).Get(),
                                   out.ReleaseAndGetAddressOf()));
    EXPECT_TRUE(SameObject(out.Get(), stats.Get()));
    std::u16string name = GetSelectableName(stats.Get());
    if (name.empty()) continue;
    ++named;
    ASSERT_EQ(S_OK, select->Select(Path({{u"STAT", Bag(u"name", name)}}).Get(), out.ReleaseAndGetAddressOf()));
    EXPECT_TRUE(SameObject(out.Get(), stats.Get())) << ToUtf8(name);
  }
  EXPECT_GT(named, 0);
  ComPtr<IUnknown> network;
  ASSERT_EQ(S_OK, select->Select(Path({{u"stat", Bag(u"name", u"networkstats")}}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_OK, out->QueryInterface(IID_INetworkStats, network.OutVoid()));
}

TEST_F(ContextPersistTest, SelectionRefusals) {
  auto context = Writer();
  auto select = As<ISelectableObject>(context.Get());
  ComPtr<IUnknown> out;
  EXPECT_EQ(S_FALSE, select->Select(Path({{u"bogus", nullptr}}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(out);
  EXPECT_EQ(E_INVALIDARG, select->Select(Path({{u"stat", nullptr}}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG, select->Select(Path({{u"stat", Bag(u"other", u"x")}}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(E_INVALIDARG,
            select->Select(Path({{u"stat", Bag(u"name", u"nosuchstats")}}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_TRUE(FAILED(select->Select(Path({{u"stat", Bag(u"id", u"{not-a-class}")}}).Get(), out.ReleaseAndGetAddressOf())));
  EXPECT_EQ(E_POINTER, select->Select(nullptr, out.ReleaseAndGetAddressOf()));
  ULONG flag = 0;
  EXPECT_EQ(S_OK, select->GetSelectFlag(&flag));
  EXPECT_EQ(1u, flag);
  EXPECT_EQ(u"statscontext", GetSelectableName(context->GetUnknown()));
}

TEST_F(ContextPersistTest, SelectParamsAndTable) {
  auto context = Writer();
  auto select = As<ISelectableObject>(context.Get());
  ComPtr<ISelectParams> params;
  ASSERT_EQ(S_OK, select->GetSelectParams(params.ReleaseAndGetAddressOf()));
  LONG steps = 0;
  params->GetCount(&steps);
  ASSERT_EQ(3, steps);
  const char16_t* names[] = {u"entitytable", u"tupletable", u"stat"};
  for (const char16_t* expected : names) {
    CBstr name;
    ComPtr<IPropertyBag> bag;
    ASSERT_EQ(S_OK, params->NextItem(name.Out(), bag.ReleaseAndGetAddressOf()));
    EXPECT_EQ(std::u16string_view(expected), name.View());
    EXPECT_EQ(std::u16string_view(expected) == u"stat", bool(bag));
    if (!bag) continue;
    CVariant type;
    ASSERT_EQ(S_OK, bag->Read(u"id", &type, nullptr));
    EXPECT_EQ(VT_CLSID, type.lVal);
  }
  ComPtr<IDataTable> table;
  ASSERT_EQ(S_OK, select->GetTable(table.ReleaseAndGetAddressOf()));
  ComPtr<IDataRows> rows;
  ASSERT_EQ(S_OK, table->GetRows(rows.ReleaseAndGetAddressOf()));
  LONG count = 0;
  rows->GetCount(&count);
  EXPECT_EQ(static_cast<LONG>(std::size(kStatClasses)), count);
}

}  // namespace
