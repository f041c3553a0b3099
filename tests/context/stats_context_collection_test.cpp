#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "context/stats_context.h"
#include "context/stats_context_collection.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "engine/proto_specs.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/strings.h"
#include "support/xml_text.h"

namespace {

using namespace zemo;

constexpr ZemoTime kT0 = 133000000000000000ull;
constexpr ZemoTime kSecond = 1000000000ull;

class ContextCollectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(S_OK, DllRegisterServer());
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_ZemoStatsContextCollection, nullptr, CLSCTX_ALL,
                                     IID_IZemoStatsContextCollection, m_list.OutVoid()));
  }

  // A context with network and node statistics that saw `packets` packets
  // among `hosts` hosts.
  static ComPtr<IZemoStatsContext> Capture(int packets, uint8_t hosts, const CLSID* extra = nullptr) {
    ComPtr<IZemoStatsContext> context;
    EXPECT_EQ(S_OK, CoCreateInstance(CLSID_StatsContext, nullptr, CLSCTX_ALL, IID_IZemoStatsContext,
                                     context.OutVoid()));
    std::vector<CLSID> classes = {CLSID_NetworkStats, CLSID_NodeStats};
    if (extra) classes.push_back(*extra);
    for (const CLSID& clsid : classes) {
      ComPtr<IZemoStats> stats;
      EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IZemoStats, stats.OutVoid()));
      EXPECT_TRUE(SUCCEEDED(context->AddStats(clsid, stats.Get())));
    }
    ComPtr<IProcessPacket> process;
    EXPECT_EQ(S_OK, context->QueryInterface(IID_IProcessPacket, process.OutVoid()));
    for (int i = 0; i < packets; ++i) {
      PacketBuilder p;
      uint8_t s = static_cast<uint8_t>(1 + i % hosts), d = static_cast<uint8_t>(1 + (i * 7 + 3) % hosts);
      p.Time(kT0 + i * kSecond / 10).Length(static_cast<ULONG>(64 + i % 900)).Protocol(proto::kUdp);
      p.EthernetSource({0, 1, 2, 3, 4, s}).EthernetDestination({0, 1, 2, 3, 4, d}).Ipv4({10, 0, 0, s}, {10, 0, 0, d});
      EXPECT_EQ(S_OK, process->ProcessPacket(p.Get()));
    }
    return context;
  }

  // A context as its stream form: header, tables and every statistic.
  static std::vector<uint8_t> Bytes(IZemoStatsContext* context) {
    ComPtr<IPersistStream> persist;
    EXPECT_EQ(S_OK, context->QueryInterface(IPersistStream::iid, persist.OutVoid()));
    auto stream = CreateMemoryStream();
    EXPECT_EQ(S_OK, persist->Save(stream.Get(), FALSE));
    return MemoryStreamBytes(stream.Get());
  }

  ComPtr<IPersistXml> Persist() {
    ComPtr<IPersistXml> persist;
    EXPECT_EQ(S_OK, m_list->QueryInterface(IID_IPersistXml, persist.OutVoid()));
    return persist;
  }

  LONG Count() {
    LONG count = -1;
    EXPECT_EQ(S_OK, m_list->GetContextCount(&count));
    return count;
  }

  static std::string Xml(IXMLDOMNode* node) {
    CBstr xml;
    EXPECT_EQ(S_OK, node->get_xml(xml.Out()));
    return ToUtf8(xml.View());
  }

  ComPtr<IZemoStatsContextCollection> m_list;
};

TEST_F(ContextCollectionTest, ListKeepsOrderReferencesAndRefusesBadArguments) {
  auto a = Capture(10, 3), b = Capture(20, 4);
  EXPECT_EQ(0, Count());
  EXPECT_EQ(S_OK, m_list->AddContext(a.Get()));
  EXPECT_EQ(S_OK, m_list->AddContext(b.Get()));
  EXPECT_EQ(S_OK, m_list->AddContext(a.Get()));  // twice is allowed
  EXPECT_EQ(3, Count());

  ComPtr<IZemoStatsContext> at;
  ASSERT_EQ(S_OK, m_list->GetContextAt(1, at.ReleaseAndGetAddressOf()));
  EXPECT_EQ(b.Get(), at.Get());
  ASSERT_EQ(S_OK, m_list->GetContextAt(2, at.ReleaseAndGetAddressOf()));
  EXPECT_EQ(a.Get(), at.Get());
  for (LONG bad : {-1, 3, 1000}) {
    EXPECT_EQ(E_INVALIDARG, m_list->GetContextAt(bad, at.ReleaseAndGetAddressOf())) << bad;
    EXPECT_EQ(nullptr, at.Get());
  }
  EXPECT_EQ(E_INVALIDARG, m_list->GetContextAt(0, nullptr));
  EXPECT_EQ(E_INVALIDARG, m_list->GetContextCount(nullptr));
  EXPECT_EQ(E_INVALIDARG, m_list->AddContext(nullptr));
  EXPECT_EQ(3, Count());

  // The list holds its own references: the contexts outlive the caller's.
  ComPtr<IZemoStatsContext> only;
  at.Reset();
  a.Reset();
  ASSERT_EQ(S_OK, m_list->GetContextAt(0, only.ReleaseAndGetAddressOf()));
  ULONGLONG packets = 0;
  EXPECT_EQ(S_OK, only->GetTotalPackets(&packets));
  EXPECT_EQ(10u, packets);
  EXPECT_EQ(S_OK, m_list->RemoveAllContexts());
  EXPECT_EQ(0, Count());
  EXPECT_EQ(S_OK, m_list->RemoveAllContexts());
}

TEST_F(ContextCollectionTest, XmlRoundTripGivesEachContextItsOwnFigures) {
  auto document = CreateXmlDocument();
  auto root = CreateChildElement(document.Get(), document.Get(), u"captures");
  // Empty first: an empty list element, and an empty list back.
  ASSERT_EQ(S_OK, Persist()->Save(document.Get(), root.Get(), TRUE));
  EXPECT_NE(std::string::npos, Xml(root.Get()).find("<stats-contexts"));
  ComPtr<IZemoStatsContextCollection> reader;
  ASSERT_EQ(S_OK, CoCreateInstance(CLSID_ZemoStatsContextCollection, nullptr, CLSCTX_ALL,
                                   IID_IZemoStatsContextCollection, reader.OutVoid()));
  ComPtr<IPersistXml> readerPersist;
  ASSERT_EQ(S_OK, reader->QueryInterface(IID_IPersistXml, readerPersist.OutVoid()));
  ASSERT_EQ(S_OK, reader->AddContext(Capture(5, 2).Get()));
  ASSERT_EQ(S_OK, readerPersist->Load(document.Get(), root.Get()));
  LONG count = -1;
  reader->GetContextCount(&count);
  EXPECT_EQ(0, count) << "a load replaces what the list held";

  auto a = Capture(300, 9), b = Capture(120, 5);
  ASSERT_EQ(S_OK, m_list->AddContext(a.Get()));
  ASSERT_EQ(S_OK, m_list->AddContext(b.Get()));
  auto second = CreateXmlDocument();
  ASSERT_EQ(S_OK, Persist()->Save(second.Get(), second.Get(), TRUE));
  std::string xml = Xml(second.Get());
  EXPECT_NE(std::string::npos, xml.find("<context><statscontext>")) << xml.substr(0, 200);
  ASSERT_EQ(S_OK, readerPersist->Load(second.Get(), second.Get()));
  reader->GetContextCount(&count);
  ASSERT_EQ(2, count);
  const IZemoStatsContext* originals[] = {a.Get(), b.Get()};
  for (LONG i = 0; i < 2; ++i) {
    ComPtr<IZemoStatsContext> loaded;
    ASSERT_EQ(S_OK, reader->GetContextAt(i, loaded.ReleaseAndGetAddressOf()));
    EXPECT_NE(originals[i], loaded.Get()) << "a load makes new contexts";
    EXPECT_EQ(Bytes(const_cast<IZemoStatsContext*>(originals[i])), Bytes(loaded.Get())) << "context " << i;
  }
}

TEST_F(ContextCollectionTest, FailuresLeaveTheListAsTheRulesSay) {
  auto persist = Persist();
  auto document = CreateXmlDocument();
  EXPECT_EQ(E_INVALIDARG, persist->Save(nullptr, document.Get(), TRUE));
  EXPECT_EQ(E_INVALIDARG, persist->Save(document.Get(), nullptr, TRUE));
  EXPECT_EQ(E_INVALIDARG, persist->Load(nullptr, document.Get()));
  EXPECT_EQ(E_INVALIDARG, persist->Load(document.Get(), nullptr));

  // No list element: E_FAIL, and the list keeps what it had.
  auto kept = Capture(10, 3);
  ASSERT_EQ(S_OK, m_list->AddContext(kept.Get()));
  auto root = CreateChildElement(document.Get(), document.Get(), u"nothing");
  EXPECT_EQ(E_FAIL, persist->Load(document.Get(), root.Get()));
  EXPECT_EQ(1, Count());

  // A context that cannot write XML (it holds a dashboard) fails the save,
  // and the node gets no half-written list.
  const CLSID dashboard = CLSID_DashboardStats;
  ASSERT_EQ(S_OK, m_list->AddContext(Capture(10, 3, &dashboard).Get()));
  EXPECT_TRUE(FAILED(persist->Save(document.Get(), root.Get(), TRUE)));
  EXPECT_EQ(std::string::npos, Xml(root.Get()).find("stats-contexts"));

  // A load that fails part way keeps the contexts read before the failure;
  // elements of other names are not contexts.
  ASSERT_EQ(S_OK, m_list->RemoveAllContexts());
  ASSERT_EQ(S_OK, m_list->AddContext(kept.Get()));
  auto good = CreateXmlDocument();
  ASSERT_EQ(S_OK, persist->Save(good.Get(), good.Get(), TRUE));
  std::string text = Xml(good.Get());
  size_t at = text.find("</stats-contexts>");
  ASSERT_NE(std::string::npos, at);
  text.insert(at, "<note/><context><statscontext><props/></statscontext></context>");
  auto broken = testing_support::ParseXml(text);
  ASSERT_EQ(S_OK, m_list->RemoveAllContexts());
  EXPECT_EQ(E_FAIL, persist->Load(broken.Get(), broken.Get()));
  ASSERT_EQ(1, Count());
  ComPtr<IZemoStatsContext> first;
  ASSERT_EQ(S_OK, m_list->GetContextAt(0, first.ReleaseAndGetAddressOf()));
  EXPECT_EQ(Bytes(kept.Get()), Bytes(first.Get()));
}

// Created as part of an aggregate, the collection is reached through its
// outer object and lives as long as the outer object keeps its inner one.
TEST_F(ContextCollectionTest, ServesAsPartOfAnAggregate) {
  auto outer = Capture(1, 2);  // any object will do as the outer identity
  ComPtr<IUnknown> inner;
  ComPtr<IZemoStatsContextCollection> direct;
  EXPECT_EQ(CLASS_E_NOAGGREGATION, CoCreateInstance(CLSID_ZemoStatsContextCollection, outer.Get(), CLSCTX_ALL,
                                                    IID_IZemoStatsContextCollection, direct.OutVoid()));
  ASSERT_EQ(S_OK, CoCreateInstance(CLSID_ZemoStatsContextCollection, outer.Get(), CLSCTX_ALL, IUnknown::iid,
                                   inner.OutVoid()));
  ComPtr<IZemoStatsContextCollection> list;
  ASSERT_EQ(S_OK, inner->QueryInterface(IID_IZemoStatsContextCollection, list.OutVoid()));
  auto held = Capture(3, 2);
  ASSERT_EQ(S_OK, list->AddContext(held.Get()));
  LONG count = 0;
  EXPECT_EQ(S_OK, list->GetContextCount(&count));
  EXPECT_EQ(1, count);
  // The list's own interfaces answer for the outer object.
  ComPtr<IProcessPacket> fromOuter;
  EXPECT_EQ(S_OK, list->QueryInterface(IID_IProcessPacket, fromOuter.OutVoid()));
  ComPtr<IUnknown> identity, outerIdentity;
  ASSERT_EQ(S_OK, list->QueryInterface(IUnknown::iid, identity.OutVoid()));
  ASSERT_EQ(S_OK, outer->QueryInterface(IUnknown::iid, outerIdentity.OutVoid()));
  EXPECT_EQ(outerIdentity.Get(), identity.Get());
  list.Reset();
  identity.Reset();
  fromOuter.Reset();
  held->AddRef();
  EXPECT_EQ(2u, held->Release()) << "the list holds one reference";
  inner.Reset();
  held->AddRef();
  EXPECT_EQ(1u, held->Release()) << "releasing the inner IUnknown destroys the list";
}

}  // namespace
