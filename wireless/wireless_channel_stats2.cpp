#include "wireless/wireless_channel_stats2.h"

#include "frame/clsids.h"
#include "frame/engine_interfaces.h"
#include "frame/task_memory.h"
#include "wireless/adapter_facts.h"

namespace zemo {

ZemoWirelessChannelStat FirstGenerationStat(const ZemoWirelessChannelStatEntry2& e) {
  ZemoWirelessChannelStat s;
  s.Counts = e.Counts;
  const WirelessSignalStat& signal = e.AllSignals.Signal;
  const WirelessSignalStat& noise = e.AllSignals.Noise;
  s.SignalSum = signal.PercentSum;
  s.SignalMin = signal.Min;
  s.SignalMax = signal.Max;
  s.SignalCurrent = signal.Current;
  s.SignalPower = signal.PowerSum;
  s.SignaldBmMin = signal.MinDBm;
  s.SignaldBmMax = signal.MaxDBm;
  s.SignaldBmCurrent = signal.CurrentDBm;
  s.NoiseSum = noise.PercentSum;
  s.NoiseMin = noise.Min;
  s.NoiseMax = noise.Max;
  s.NoiseCurrent = noise.Current;
  s.NoisePower = noise.PowerSum;
  s.NoisedBmMin = noise.MinDBm;
  s.NoisedBmMax = noise.MaxDBm;
  s.NoisedBmCurrent = noise.CurrentDBm;
  s.Channel = e.Channel;
  return s;
}

// --- the channels ---

HRESULT WirelessChannelStats2::GetChannelCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_engine.NodeCount();
  });
}

HRESULT WirelessChannelStats2::GetUpdateCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_engine.UpdateCount();
  });
}

HRESULT WirelessChannelStats2::GetRateChangeCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_engine.RateChangeCount();
  });
}

HRESULT WirelessChannelStats2::GetChannelStat2(ULONG index, ZemoWirelessChannelStatEntry2* stat) {
  return Locked([&] {
    CheckOut(stat);
    const ZemoWirelessChannelStatEntry2* e = m_engine.RecordAtNode(index);
    if (!e) AtlThrow(E_INVALIDARG);
    *stat = *e;
  });
}

HRESULT WirelessChannelStats2::GetChannelStat(ULONG index, ZemoWirelessChannelStat* stat) {
  return Locked([&] {
    CheckOut(stat);
    const ZemoWirelessChannelStatEntry2* e = m_engine.RecordAtNode(index);
    if (!e) AtlThrow(E_INVALIDARG);
    *stat = FirstGenerationStat(*e);
  });
}

HRESULT WirelessChannelStats2::GetDataRates(ULONG** rates, ULONG* count) {
  return Locked([&] {
    CheckOut(rates);
    CheckOut(count);
    const TArrayEx<ULONG>& all = m_engine.DataRates();
    GiveTaskArray(std::span<const ULONG>(all.begin(), all.end()), rates, count);
  });
}

HRESULT WirelessChannelStats2::GetChannelDataRates(SWirelessChannel channel, ZemoWirelessChannelDataRateStat** stats,
                                                   ULONG* count) {
  return Locked([&] {
    CheckOut(stats);
    CheckOut(count);
    m_engine.GetChannelDataRates(channel, stats, count);
  });
}

// --- access points ---

HRESULT WirelessChannelStats2::AddChannelNode(SWirelessChannel channel, const MediaSpec* node) {
  return Locked([&] {
    if (!node) AtlThrow(E_POINTER);
    m_engine.AddChannelNode(channel, *node);
  });
}

HRESULT WirelessChannelStats2::RemoveChannelNode(SWirelessChannel channel, const MediaSpec* node) {
  return Locked([&] {
    if (!node) AtlThrow(E_POINTER);
    m_engine.RemoveChannelNode(channel, *node);
  });
}

HRESULT WirelessChannelStats2::GetChannelNodeCount(SWirelessChannel channel, ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_engine.GetChannelNodeCount(channel);
  });
}

HRESULT WirelessChannelStats2::GetChannelNodeIndex(SWirelessChannel channel, const MediaSpec* node, ULONG* index) {
  return Locked([&] {
    CheckOut(index);
    if (!node) AtlThrow(E_POINTER);
    *index = m_engine.GetChannelNodeIndex(channel, *node);
  });
}

HRESULT WirelessChannelStats2::GetMaxChannelNodeCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_engine.GetMaxChannelNodeCount();
  });
}

// --- IZemoStats ---

HRESULT WirelessChannelStats2::GetContext(IZemoStatsContext** context) {
  return Locked([&] {
    CheckOut(context);
    *context = m_context;
    if (m_context) m_context->AddRef();
  });
}

HRESULT WirelessChannelStats2::SetContext(IZemoStatsContext* context) {
  return Locked([&] { m_context = context; });
}

// The adapter is read before this object's lock is taken: the context's
// lock comes first.
HRESULT WirelessChannelStats2::Reset() {
  IZemoStatsContext* context = nullptr;
  Locked([&] { context = m_context; });
  return ResetFromAdapter(context, m_engine, [this](auto&& body) { return Locked(body); });
}

HRESULT WirelessChannelStats2::ProcessPacket(IPacket* packet) {
  return Locked([&] {
    if (!packet) AtlThrow(E_POINTER);
    WirelessPacketView view(packet);
    m_engine.ProcessPacket(view);
  });
}

// --- persistence ---

HRESULT WirelessChannelStats2::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_WirelessChannelStats2;
  });
}

HRESULT WirelessChannelStats2::Load(IStream* stream) {
  return Locked([&] { m_engine.Load(stream); });
}

// The cookie is neither read nor written: the whole state goes out.
HRESULT WirelessChannelStats2::SaveDeltas(IStream* stream, ZemoTime*) {
  return Locked([&] { m_engine.Save(stream); });
}

}  // namespace zemo
