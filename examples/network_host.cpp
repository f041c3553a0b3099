// A capture host in miniature: it registers the statistics module and the one
// engine object that a context asks the host for (the protocol tree), creates
// a context and a NetworkStats by class identifier, tells the context about an
// adapter with two channels, feeds it a few thousand generated packets with
// a tick every simulated second, and prints what the statistic counted.
//
// Only the module's installed headers are used, and only its exported
// functions are called: everything else goes through interfaces.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "frame/clsids.h"
#include "frame/engine_interfaces.h"
#include "frame/module.h"
#include "frame/stats_interfaces.h"
#include "network/network_counters.h"
#include "platform/class_store.h"
#include "platform/strings.h"

namespace {

using zemo::ComPtr;

// What a host object needs of IUnknown: these live on the stack of main and
// are never handed out for keeps, so the count only keeps score.
template <class First, class... More>
struct HostObject : First, More... {
  HRESULT QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (iid == IUnknown::iid || iid == First::iid)
      *out = static_cast<First*>(this);
    else
      (void)((iid == More::iid && (*out = static_cast<More*>(this))) || ...);
    if (!*out) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG AddRef() override { return ++refs; }
  ULONG Release() override { return --refs; }
  ULONG refs = 1;
};

// One captured frame as a host describes it. The same object is filled again
// for every packet, as a real host would do.
class GeneratedPacket final : public HostObject<IPacket, IChannelPacket> {
 public:
  ZemoTime time = 0;
  USHORT length = 0;
  bool broadcast = false;
  bool multicast = false;
  ULONG channel = 0;  // 0: the frame came on no particular channel

  HRESULT GetTimeStamp(ZemoTime* t) override { return *t = time, S_OK; }
  HRESULT GetPacketLength(USHORT* n) override { return *n = length, S_OK; }
  HRESULT GetCaptureLength(USHORT* n) override { return *n = length, S_OK; }
  HRESULT GetSliceLength(USHORT* n) override { return *n = 0, S_OK; }
  HRESULT IsWireless(BOOL* yes) override { return *yes = FALSE, S_OK; }
  HRESULT IsError(BOOL* yes) override { return *yes = FALSE, S_OK; }
  HRESULT IsBroadcast(BOOL* yes) override { return *yes = broadcast, S_OK; }
  HRESULT IsMulticast(BOOL* yes) override { return *yes = multicast, S_OK; }
  HRESULT HasChannelNumber(BOOL* yes) override { return *yes = channel != 0, S_OK; }
  HRESULT HasLineNumber(BOOL* yes) override { return *yes = FALSE, S_OK; }
  HRESULT GetChannelNumber(ULONG* n) override { return *n = channel, S_OK; }
  // What this host does not decode.
  HRESULT GetPacketData(const BYTE**) override { return E_NOTIMPL; }
  HRESULT GetMediaInfo(const BYTE**, ULONG*) override { return E_NOTIMPL; }
  HRESULT GetPacketClass(LONG*) override { return E_NOTIMPL; }
  HRESULT GetFlags(ULONG*) override { return E_NOTIMPL; }
  HRESULT GetFrameProtoSpecId(USHORT*) override { return E_NOTIMPL; }
  HRESULT GetProtoSpecId(ULONG*) override { return E_NOTIMPL; }
  HRESULT TestStatus(ULONG, BOOL*) override { return E_NOTIMPL; }
  HRESULT TestFlags(ULONG, BOOL*) override { return E_NOTIMPL; }
};

// An Ethernet adapter at 1 Gbit/s with two capture channels.
class TwoChannelAdapter final : public HostObject<IAdapterInfo> {
 public:
  HRESULT GetMediaType(ULONG* t) override { return *t = 0, S_OK; }
  HRESULT GetMediaSubType(ULONG* t) override { return *t = 0, S_OK; }
  HRESULT GetLinkSpeed(ULONGLONG* s) override { return *s = 1000000000ull, S_OK; }
  HRESULT GetChannelNumbers(ULONG* count, ULONG** numbers) override {
    *numbers = static_cast<ULONG*>(CoTaskMemAlloc(2 * sizeof(ULONG)));
    if (!*numbers) return *count = 0, E_OUTOFMEMORY;
    (*numbers)[0] = 1;
    (*numbers)[1] = 2;
    *count = 2;
    return S_OK;
  }
  HRESULT GetWirelessChannels(SWirelessChannel** c, ULONG* n) override { return *c = nullptr, *n = 0, E_NOTIMPL; }
  HRESULT GetDataRates(ULONG** r, ULONG* n) override { return *r = nullptr, *n = 0, E_NOTIMPL; }
};

// The host's protocol tree, in its simplest form: every identifier a root.
// The context's identity tables create it by program identifier.
class FlatProtoSpecs final : public HostObject<IProtoSpecs> {
 public:
  HRESULT GetParentSpec(ULONG, ULONG* parent) override { return *parent = 0xFFFF, S_OK; }
  HRESULT GetSpecName(ULONG id, BSTR* name) override {
    char16_t text[16] = u"proto ";
    for (int i = 0, shift = 12; shift >= 0; ++i, shift -= 4) text[6 + i] = u"0123456789ABCDEF"[(id >> shift) & 0xF];
    *name = SysAllocString(text);
    return *name ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT GetSpecLevel(ULONG, ULONG* level) override { return *level = 1, S_OK; }
  HRESULT IsSpecWithin(ULONG id, const ULONG* ids, ULONG count, ULONG, ULONG) override {
    for (ULONG i = 0; i < count; ++i)
      if ((ids[i] & 0xFFFF) == (id & 0xFFFF)) return S_OK;
    return S_FALSE;
  }
  HRESULT GetSpecPath(ULONG id, USHORT* path, ULONG* count) override {
    if (*count < 1) return E_INVALIDARG;
    path[0] = static_cast<USHORT>(id);
    *count = 1;
    return S_OK;
  }
  HRESULT FindSpecByPath(const USHORT* path, ULONG count, MediaSpec* spec) override {
    if (count == 0) return E_INVALIDARG;
    std::memset(spec, 0, sizeof *spec);
    spec->fClass = 1;
    spec->fType = 9;
    spec->fMask = 0xC0000000u;
    std::memcpy(spec->fData, &path[count - 1], sizeof(USHORT));
    return S_OK;
  }
};

// Hands out the one protocol tree.
class ProtoSpecsFactory final : public HostObject<IClassFactory> {
 public:
  HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (outer) return CLASS_E_NOAGGREGATION;
    return specs.QueryInterface(iid, out);
  }
  HRESULT LockServer(BOOL) override { return S_OK; }
  FlatProtoSpecs specs;
};

constexpr CLSID CLSID_HostProtoSpecs = MakeGuid("5E1F7A20-0B6C-4D3E-9A51-7C2B8D4E6F01");
const char16_t kProtoSpecsScript[] = uR"(HKCR
{
	ZemoCore.ProtoSpecs = s 'ProtoSpecs Class'
	{
		CLSID = s '{5E1F7A20-0B6C-4D3E-9A51-7C2B8D4E6F01}'
	}
})";

bool Check(HRESULT hr, const char* what) {
  if (SUCCEEDED(hr)) return true;
  std::fprintf(stderr, "network_host: %s failed: 0x%08" PRIX32 "\n", what, static_cast<uint32_t>(hr));
  return false;
}

void PrintCounters(const char* title, const NetworkCounters& c) {
  std::printf("%s\n", title);
  std::printf("  packets %12" PRIu64 "   bytes %14" PRIu64 "\n", c.TotalPackets, c.TotalBytes);
  std::printf("  broadcast %10" PRIu64 "   bytes %14" PRIu64 "\n", c.BroadcastPackets, c.BroadcastBytes);
  std::printf("  multicast %10" PRIu64 "   bytes %14" PRIu64 "\n", c.MulticastPackets, c.MulticastBytes);
}

void PrintRates(const NetworkRates& r) {
  std::printf("  rate: %.1f packets/s, %.1f bits/s (broadcast %.1f/s, multicast %.1f/s)\n", r.TotalPacketsPerSecond,
              r.TotalBitsPerSecond, r.BroadcastPacketsPerSecond, r.MulticastPacketsPerSecond);
}

}  // namespace

int main() {
  if (!Check(DllRegisterServer(), "registering the module")) return 1;
  ProtoSpecsFactory protoSpecs;
  DWORD cookie = 0;
  if (!Check(RegistrarRunScript(kProtoSpecsScript, TRUE), "registering the protocol tree") ||
      !Check(CoRegisterClassObject(CLSID_HostProtoSpecs, &protoSpecs, CLSCTX_INPROC_SERVER, 0, &cookie),
             "serving the protocol tree"))
    return 1;

  ComPtr<IZemoStatsContext> context;
  ComPtr<IZemoStats> stats;
  if (!Check(CoCreateInstance(CLSID_StatsContext, nullptr, CLSCTX_ALL, IZemoStatsContext::iid, context.OutVoid()),
             "creating the context") ||
      !Check(CoCreateInstance(CLSID_NetworkStats, nullptr, CLSCTX_ALL, IZemoStats::iid, stats.OutVoid()),
             "creating NetworkStats"))
    return 1;

  // The adapter first: a statistic takes its channels from it when it joins.
  TwoChannelAdapter adapter;
  if (!Check(context->SetAdapterInfo(&adapter), "setting the adapter") ||
      !Check(context->AddStats(CLSID_NetworkStats, stats.Get()), "adding NetworkStats"))
    return 1;
  ComPtr<IProcessPacket> packets;
  ComPtr<IProcessTime> ticks;
  if (!Check(context.As(&packets), "IProcessPacket") || !Check(context.As(&ticks), "IProcessTime")) return 1;

  // Ten seconds of traffic, 400 packets a second: every tenth a broadcast,
  // every seventh a multicast, lengths from 60 to 1514 bytes, alternating
  // between the two channels.
  const ZemoTime start = 133500000000000000ull;  // 2024-01-17, as nanoseconds since 1601
  const ZemoTime second = 1000000000ull;
  GeneratedPacket packet;
  uint32_t seed = 12345;
  for (int s = 0; s < 10; ++s) {
    for (int i = 0; i < 400; ++i) {
      seed = seed * 1103515245u + 12345u;
      packet.time = start + s * second + static_cast<ZemoTime>(i) * (second / 400);
      packet.length = static_cast<USHORT>(60 + (seed >> 8) % 1455);
      packet.broadcast = i % 10 == 0;
      packet.multicast = i % 7 == 0;
      packet.channel = 1 + i % 2;
      if (!Check(packets->ProcessPacket(&packet), "processing a packet")) return 1;
    }
    if (!Check(ticks->ProcessTime(start + (s + 1) * second), "a tick")) return 1;
  }

  ComPtr<INetworkStats> network;
  ComPtr<IChannelStats> channels;
  if (!Check(context->GetStats(CLSID_NetworkStats, INetworkStats::iid, network.OutVoid()), "INetworkStats") ||
      !Check(network.As(&channels), "IChannelStats"))
    return 1;

  NetworkCounters counters{};
  NetworkRates rates{};
  ULONGLONG contextPackets = 0, duration = 0;
  network->GetNetworkCounters(&counters);
  network->GetNetworkRates(&rates);
  context->GetTotalPackets(&contextPackets);
  context->GetDuration(&duration);
  std::printf("context: %" PRIu64 " packets over %.3f s\n", contextPackets, static_cast<double>(duration) / 1e9);
  PrintCounters("network:", counters);
  PrintRates(rates);

  ULONG count = 0;
  channels->GetChannelCount(&count);
  for (ULONG i = 0; i < count; ++i) {
    ChannelCounters channel{};
    NetworkRates channelRates{};
    channels->GetChannelCounters(i, &channel);
    channels->GetChannelRates(i, &channelRates);
    char title[32];
    std::snprintf(title, sizeof title, "channel %" PRIu32 ":", channel.Number);
    PrintCounters(title, CountersOf(channel));
    PrintRates(channelRates);
  }

  bool consistent = counters.TotalPackets == contextPackets && contextPackets == 4000 && count == 2;
  packets = nullptr;
  ticks = nullptr;
  network = nullptr;
  channels = nullptr;
  stats = nullptr;
  context = nullptr;  // releases the statistic and, last, its hold on the adapter
  CoRevokeClassObject(cookie);
  RegistrarRunScript(kProtoSpecsScript, FALSE);
  DllUnregisterServer();
  if (!consistent) {
    std::fprintf(stderr, "network_host: the counts do not agree\n");
    return 1;
  }
  return 0;
}
