// One packet through a StatsContext: the cost of the walk itself, with N
// statistics that do nothing.
#include <benchmark/benchmark.h>

#include "context/stats_context.h"
#include "engine/packet_builder.h"
#include "engine/engine.h"

namespace {

using zemo::ComPtr;

class BenchPacket final : public zemo::Object<BenchPacket, zemo::PacketStub> {
 public:
  HRESULT GetTimeStamp(ZemoTime* t) override {
    *t = m_time += 1000;
    return S_OK;
  }
  HRESULT GetPacketLength(USHORT* n) override {
    *n = 512;
    return S_OK;
  }
  HRESULT GetSliceLength(USHORT* n) override { return *n = 0, S_OK; }
  HRESULT GetCaptureLength(USHORT* n) override { return *n = 512, S_OK; }

 private:
  ZemoTime m_time = 130000000000000000ull;
};

// Takes its own lock and counts, as the cheapest real statistic would.
class TrivialStats final : public zemo::Object<TrivialStats, IZemoStats, IProcessPacket> {
 public:
  HRESULT GetContext(IZemoStatsContext** out) override { return *out = nullptr, S_OK; }
  HRESULT SetContext(IZemoStatsContext*) override { return S_OK; }
  HRESULT Reset() override {
    return Locked([&] { m_packets = 0; });
  }
  HRESULT ProcessPacket(IPacket*) override {
    return Locked([&] { ++m_packets; });
  }

 private:
  ULONGLONG m_packets = 0;
};

void BM_ContextProcessPacket(benchmark::State& state) {
  // A context interns protocols through the host's protocol tree.
  if (FAILED(zemo::RegisterEngineClasses())) return state.SkipWithError("engine classes");
  auto context = zemo::StatsContext::Create();
  for (int64_t i = 0; i < state.range(0); ++i) {
    CLSID key = MakeGuid("BE7C0000-0000-0000-0000-000000000000");
    key.Data1 += static_cast<uint32_t>(i);
    context->AddStats(key, zemo::MakeObject<TrivialStats, IZemoStats>().Get());
  }
  auto packet = BenchPacket::Create();
  for (auto _ : state) benchmark::DoNotOptimize(context->ProcessPacket(packet.Get()));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ContextProcessPacket)->Arg(0)->Arg(1)->Arg(4);

}  // namespace
