// Saving and loading a whole context of a large capture: 50,000 hosts with a
// MAC and an IPv4 address each (100,000 node records) and 100,000 directed
// host pairs, each a logical and a physical conversation (200,000
// conversation records), in the stream and the XML form; then a delta of
// each form after 1% of the records changed. Packet times follow the wall
// clock, as in a live capture, since the identity tables date their entries
// by it.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "bench_hosts.h"
#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "engine/proto_specs.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/clock.h"
#include "platform/strings.h"
#include "tables/conversation_stats.h"
#include "tables/limit_settings.h"
#include "tables/node_stats.h"
#include "tables/protocol_stats.h"

namespace {

using namespace zemo;

constexpr uint32_t kHosts = 50000;
constexpr uint32_t kPairs = 100000;
constexpr ZemoTime kSecond = 1000000000ull;

using bench::Pair;

// Pair k and pair k + kHosts start at the same host.
Pair PairOf(uint32_t k) { return bench::PairOf(k, kHosts); }

// The capture, built once for all the cases.
struct Capture {
  ComPtr<StatsContext> context;
  std::unique_ptr<PacketBuilder> packet;
  ULONG nodes = 0, conversations = 0;
  std::string error;

  HRESULT Send(Pair pair, ZemoTime time) {
    packet->Time(time);
    bench::SetHosts(packet->Target(), bench::HostMac(pair.from), bench::HostIp(pair.from), bench::HostMac(pair.to),
                    bench::HostIp(pair.to));
    return context->ProcessPacket(packet->Get());
  }

  // 1% of the records: the 1,000 pairs that start at the first 500 hosts,
  // so 502 hosts (1,004 node records) and 2,000 conversation records.
  void ChangeOnePercent() {
    ZemoTime time = Now() + kSecond;
    for (uint32_t k = 0; k < 500; ++k) {
      Send(PairOf(k), time);
      Send(PairOf(k + kHosts), time);
    }
  }
};

Capture& TheCapture() {
  static Capture* capture = [] {
    auto* c = new Capture;
    if (DllRegisterServer() != S_OK || RegisterEngineClasses() != S_OK) {
      c->error = "registration";
      return c;
    }
    c->context = StatsContext::Create();
    c->context->SetMediaType(1);
    auto nodes = NodeStats::Create();
    auto conversations = ConversationStats::Create();
    c->context->AddStats(CLSID_NodeStats, nodes.Get());
    c->context->AddStats(CLSID_ProtocolStats, ProtocolStats::Create().Get());
    c->context->AddStats(CLSID_ConversationStats, conversations.Get());
    // The table statistics stop at 100,000 records unless told otherwise.
    auto unlimited = MakeObject<ZemoStatsLimitSettings, IZemoStatsLimitSettings>();
    unlimited->SetEnabled(0);
    for (IUnknown* stats : {nodes->GetUnknown(), conversations->GetUnknown()}) {
      ComPtr<IZemoStatsLimit> limit;
      stats->QueryInterface(IID_IZemoStatsLimit, limit.OutVoid());
      if (!limit || limit->SetSettings(unlimited.Get()) != S_OK) c->error = "limit settings";
    }
    c->packet = std::make_unique<PacketBuilder>();
    c->packet->Length(512).Layers({proto::kEthernetII, proto::kIpv4, proto::kTcp});
    for (uint32_t k = 0; k < kPairs; ++k) c->Send(PairOf(k), Now());
    nodes->GetNodeCount(&c->nodes);
    conversations->GetConversationCount(&c->conversations);
    if (c->nodes != 2 * kHosts || c->conversations != 2 * kPairs) c->error = "the tables did not fill";
    return c;
  }();
  return *capture;
}

IUnknown* Unknown(StatsContext* context) { return context->GetUnknown(); }

template <class I>
ComPtr<I> As(IUnknown* object) {
  ComPtr<I> out;
  object->QueryInterface(IidOf<I>(), out.OutVoid());
  return out;
}

std::vector<uint8_t> StreamDelta(StatsContext* context, ZemoTime* since) {
  auto stream = CreateMemoryStream();
  if (FAILED(As<ISaveStreamDeltas>(Unknown(context))->SaveDeltas(stream.Get(), since))) return {};
  return MemoryStreamBytes(stream.Get());
}

ComPtr<IXMLDOMDocument> XmlDelta(StatsContext* context, ZemoTime* since) {
  auto document = CreateXmlDocument();
  if (FAILED(As<IPersistXmlDeltas>(Unknown(context))->SaveDeltas(document.Get(), document.Get(), since))) return nullptr;
  return document;
}

size_t XmlBytes(IXMLDOMDocument* document) {
  CBstr xml;
  document->get_xml(xml.Out());
  return ToUtf8(xml.View()).size();
}

void Report(benchmark::State& state, size_t bytes) {
  const Capture& c = TheCapture();
  state.counters["bytes"] = static_cast<double>(bytes);
  state.counters["records"] = static_cast<double>(c.nodes + c.conversations);
}

// state.range(0): 0 the stream form, 1 XML.
void BM_ContextSave(benchmark::State& state) {
  Capture& c = TheCapture();
  if (!c.error.empty()) return state.SkipWithError(c.error.c_str());
  size_t bytes = 0;
  for (auto _ : state) {
    ZemoTime since = 0;
    if (state.range(0) == 0) {
      bytes = StreamDelta(c.context.Get(), &since).size();
      if (!bytes) return state.SkipWithError("stream save failed");
    } else {
      auto document = XmlDelta(c.context.Get(), &since);
      if (!document) return state.SkipWithError("XML save failed");
      state.PauseTiming();
      bytes = XmlBytes(document.Get());
      state.ResumeTiming();
    }
  }
  Report(state, bytes);
}
BENCHMARK(BM_ContextSave)->ArgName("xml")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_ContextLoad(benchmark::State& state) {
  Capture& c = TheCapture();
  if (!c.error.empty()) return state.SkipWithError(c.error.c_str());
  ZemoTime since = 0;
  std::vector<uint8_t> bytes;
  ComPtr<IXMLDOMDocument> document;
  if (state.range(0) == 0)
    bytes = StreamDelta(c.context.Get(), &since);
  else
    document = XmlDelta(c.context.Get(), &since);
  for (auto _ : state) {
    state.PauseTiming();
    auto reader = StatsContext::Create();
    auto stream = CreateMemoryStream(bytes.data(), bytes.size());
    state.ResumeTiming();
    HRESULT hr = state.range(0) == 0 ? As<IPersistStream>(Unknown(reader.Get()))->Load(stream.Get())
                                     : As<IPersistXml>(Unknown(reader.Get()))->Load(document.Get(), document.Get());
    if (hr != S_OK) return state.SkipWithError("load failed");
    state.PauseTiming();
    reader.Reset();  // a large context's teardown is not the load's
    state.ResumeTiming();
  }
  Report(state, state.range(0) == 0 ? bytes.size() : XmlBytes(document.Get()));
}
BENCHMARK(BM_ContextLoad)->ArgName("xml")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2);

// A delta after 1% of the records changed, against the cookie of a full save.
void BM_ContextDelta(benchmark::State& state) {
  Capture& c = TheCapture();
  if (!c.error.empty()) return state.SkipWithError(c.error.c_str());
  ZemoTime cookie = 0;
  if (state.range(0) == 0)
    StreamDelta(c.context.Get(), &cookie);
  else
    XmlDelta(c.context.Get(), &cookie);
  c.ChangeOnePercent();
  size_t bytes = 0;
  for (auto _ : state) {
    ZemoTime since = cookie;
    if (state.range(0) == 0) {
      bytes = StreamDelta(c.context.Get(), &since).size();
    } else {
      auto document = XmlDelta(c.context.Get(), &since);
      state.PauseTiming();
      bytes = document ? XmlBytes(document.Get()) : 0;
      state.ResumeTiming();
    }
    if (!bytes) return state.SkipWithError("delta save failed");
  }
  Report(state, bytes);
}
BENCHMARK(BM_ContextDelta)->ArgName("xml")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
