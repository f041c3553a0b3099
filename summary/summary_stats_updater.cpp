#include "summary/summary_stats_updater.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "frame/clsids.h"
#include "frame/engine_interfaces.h"
#include "identity/identity_interfaces.h"
#include "network/error_stats.h"
#include "network/network_counters.h"
#include "network/size_stats.h"
#include "platform/class_store.h"
#include "summary/summary_interfaces.h"
#include "summary/summary_items.h"
#include "tables/protocol_stats.h"
#include "wireless/wireless_node_interfaces.h"

namespace zemo {
namespace {

namespace items = summary_items;

// Media whose channels run between a DTE and a DCE, and which have no
// broadcast or multicast traffic.
bool IsLineMedium(ULONG mediaType) noexcept { return mediaType == 3 || mediaType == 12; }

const items::MediumItems* ErrorItemsFor(ULONG type, ULONG subType) noexcept {
  if (type == 0 && subType == 0) return &items::kErrors00;
  if (type == 0 && subType >= 1 && subType <= 3) return &items::kErrors0x;
  if (type == 1) return &items::kErrors1;
  if (IsLineMedium(type)) return &items::kErrors3;
  return nullptr;
}

// The size sets by the rule SizeStats chooses them with.
const items::MediumItems* SizeItemsFor(ULONG type, ULONG subType, ULONGLONG linkSpeed) noexcept {
  if (type == 0 && subType == 0) return linkSpeed <= 100000000 ? &items::kSizes1 : &items::kSizes4;
  if (type == 0 && subType >= 1 && subType <= 3) return &items::kSizes3;
  if (type == 1) return &items::kSizes2;
  if (IsLineMedium(type)) return &items::kSizes5;
  return nullptr;
}

// A rate cut to a whole number; what a u64 cannot hold is held at its ends.
ULONGLONG WholeOf(double rate) noexcept {
  if (!(rate > 0)) return 0;
  if (rate >= 18446744073709551615.0) return ~0ull;
  return static_cast<ULONGLONG>(rate);
}

// The labels of the channel items: the network-wide item each stands for,
// as the text of its id. Made once for the process.
const std::array<CBstr, 8>& ChannelItemLabels() {
  static const std::array<CBstr, 8> labels = [] {
    const GUID ids[8] = {items::kTotalBytes,         items::kTotalPackets,         items::kBroadcast,
                         items::kMulticast,          items::kAverageUtilization,   items::kAverageBitsPerSecond,
                         items::kCurrentUtilization, items::kCurrentBitsPerSecond};
    std::array<CBstr, 8> out;
    for (size_t i = 0; i < 8; ++i) {
      OLECHAR text[39];
      StringFromGUID2(ids[i], text, 39);
      out[i] = CBstr(std::u16string_view(text, 38));
    }
    return out;
  }();
  return labels;
}

// One run: what every step reads, read once at the start.
class UpdateRun {
 public:
  UpdateRun(IZemoStatsContext* context, ISummaryStatsSnapshot* snapshot) : m_context(context), m_snapshot(snapshot) {
    CheckHr(context->GetMediaType(&m_mediaType));
    CheckHr(context->GetMediaSubType(&m_mediaSubType));
    CheckHr(context->GetLinkSpeed(&m_linkSpeed));
    CheckHr(context->GetDuration(&m_duration));
  }

  void General();
  void Network();
  void Channels();
  void Errors();
  void Counts();
  void Sizes();
  void Wireless();
  void Expert();
  void Site();
  void Context();

 private:
  // The statistic under its class, or null when the context does not hold it.
  template <class I>
  ComPtr<I> Statistic(REFCLSID clsid) {
    ComPtr<I> stats;
    if (FAILED(m_context->GetStats(clsid, I::iid, stats.OutVoid()))) return nullptr;
    return stats;
  }
  void Set(REFGUID id, REFGUID parent, const SummaryStatValue& value) {
    CheckHr(m_snapshot->SetItem(id, parent, nullptr, &value));
  }
  // Counters into a group's items, one each, as packets.
  void SetCounts(const items::MediumItems& group, const ULONGLONG* counts, size_t n) {
    for (size_t i = 0; i < n; ++i) Set(group.items[i], group.group, SummaryCount(kSummaryPackets, counts[i]));
  }
  // The summary hand-off of a component; its failure ends the run.
  void Offer(IUpdateSummaryStats* component) {
    CheckHr(component->UpdateSummaryStats(m_snapshot));
  }

  IZemoStatsContext* m_context;
  ISummaryStatsSnapshot* m_snapshot;
  ULONG m_mediaType = 0;
  ULONG m_mediaSubType = 0;
  ULONGLONG m_linkSpeed = 0;
  ULONGLONG m_duration = 0;
};

void UpdateRun::General() {
  ZemoTime start = 0;
  CheckHr(m_context->GetStartDateTime(&start));
  SummaryStatValue value = SummaryCount(kSummaryDate, start);
  Set(items::kStartDate, items::kGeneralGroup, value);
  value.Type = kSummaryTime;
  Set(items::kStartTime, items::kGeneralGroup, value);

  ComPtr<IObjectWithSite> withSite;
  CheckHr(m_context->QueryInterface(IObjectWithSite::iid, withSite.OutVoid()));
  ComPtr<ISiteProperties> site;
  if (FAILED(withSite->GetSite(ISiteProperties::iid, site.OutVoid())) || !site) return;
  static const ZemoSiteProperty kProperties[4] = {
      {u"Duration", VT_I8}, {u"TriggerCount", VT_UI4}, {u"TriggerDuration", VT_I8}, {u"PacketsDropped", VT_UI8}};
  static constexpr GUID kIds[4] = {items::kSiteDuration, items::kTriggerCount, items::kTriggerDuration,
                                   items::kPacketsDropped};
  static constexpr ULONG kTypes[4] = {kSummaryDuration, kSummaryInt, kSummaryDuration, kSummaryPackets};
  std::array<CVariant, 4> values;
  site->ReadProperties(4, kProperties, values.data());
  for (size_t i = 0; i < 4; ++i) {
    // A site may answer in another type than asked: it counts if it converts.
    CVariant typed;
    if (values[i].vt == VT_EMPTY || FAILED(VariantChangeType(&typed, &values[i], 0, kProperties[i].Type))) continue;
    SummaryStatValue v = SummaryValue(kTypes[i]);
    switch (kProperties[i].Type) {
      case VT_I8: v.Duration = typed.llVal; break;
      case VT_UI4: v.Count = typed.ulVal; break;
      default: v.Count = typed.ullVal; break;
    }
    Set(kIds[i], items::kGeneralGroup, v);
  }
}

void UpdateRun::Network() {
  ComPtr<INetworkStats> network = Statistic<INetworkStats>(CLSID_NetworkStats);
  if (!network) return;
  NetworkCounters c{};
  CheckHr(network->GetNetworkCounters(&c));
  ComPtr<IChannelStats> channels = network.Query<IChannelStats>();
  ULONG n = 0;
  CheckHr(channels->GetChannelCount(&n));
  // The link speed is one channel's: n channels carry n times as much.
  const ULONGLONG capacity = n > 0 ? n * m_linkSpeed : m_linkSpeed;
  const double bps = BitsPerSecond(c.TotalPackets, c.TotalBytes, m_duration);
  NetworkRates r{};
  CheckHr(network->GetNetworkRates(&r));
  const double rb = r.TotalBitsPerSecond;
  const GUID& g = items::kNetworkGroup;
  Set(items::kTotalBytes, g, SummaryCount(kSummaryBytes, c.TotalBytes));
  Set(items::kTotalPackets, g, SummaryCount(kSummaryPackets, c.TotalPackets));
  if (!IsLineMedium(m_mediaType)) {
    Set(items::kBroadcast, g, SummaryPair(c.BroadcastPackets, c.BroadcastBytes));
    Set(items::kMulticast, g, SummaryPair(c.MulticastPackets, c.MulticastBytes));
  }
  const double l = static_cast<double>(capacity);
  Set(items::kAverageUtilization, g, SummaryDouble(capacity ? (bps / l) * 100.0 : 0.0));
  Set(items::kAverageBitsPerSecond, g, SummaryDouble(bps));
  Set(items::kCurrentUtilization, g, SummaryDouble(capacity ? (rb / l) * 100.0 : 0.0));
  Set(items::kCurrentBitsPerSecond, g, SummaryCount(kSummaryInt, WholeOf(rb)));
}

void UpdateRun::Channels() {
  ComPtr<IChannelStats> channels = Statistic<IChannelStats>(CLSID_NetworkStats);
  if (!channels) return;
  ULONG n = 0;
  CheckHr(channels->GetChannelCount(&n));
  const auto& labels = ChannelItemLabels();
  const bool line = IsLineMedium(m_mediaType);
  const double speed = static_cast<double>(m_linkSpeed);
  for (ULONG i = 0; i < n; ++i) {
    ChannelCounters record{};
    CheckHr(channels->GetChannelCounters(i, &record));
    NetworkRates rates{};
    CheckHr(channels->GetChannelRates(i, &rates));
    const GUID group = items::ChannelItem(items::kChannelGroup, i);
    CheckHr(m_snapshot->AddGroup(group, GUID_NULL));
    const ULONG number = record.Number;
    char16_t label[32];
    if (line) {
      std::u16string_view side = number == 1 ? u"To DTE" : u"To DCE";
      side.copy(label, side.size());
      label[side.size()] = 0;
    } else {
      char narrow[32];
      int length = std::snprintf(narrow, sizeof narrow, "Channel %u", static_cast<unsigned>(number));
      for (int k = 0; k <= length; ++k) label[k] = static_cast<char16_t>(narrow[k]);
    }
    CheckHr(m_snapshot->SetLabel(group, CBstr(std::u16string_view(label)).Get()));

    const NetworkCounters c = CountersOf(record);
    const double b = BitsPerSecond(c.TotalPackets, c.TotalBytes, m_duration);
    const double cr = rates.TotalBitsPerSecond;
    auto set = [&](const GUID& base, size_t label, const SummaryStatValue& value) {
      CheckHr(m_snapshot->SetItem(items::ChannelItem(base, i), group, labels[label].Get(), &value));
    };
    set(items::kChannelBytes, 0, SummaryCount(kSummaryBytes, c.TotalBytes));
    set(items::kChannelPackets, 1, SummaryCount(kSummaryPackets, c.TotalPackets));
    if (!line) {
      set(items::kChannelBroadcast, 2, SummaryPair(c.BroadcastPackets, c.BroadcastBytes));
      set(items::kChannelMulticast, 3, SummaryPair(c.MulticastPackets, c.MulticastBytes));
    }
    // A channel's share is of the plain link speed.
    set(items::kChannelAverageUtilization, 4, SummaryDouble(m_linkSpeed ? b * 100.0 / speed : 0.0));
    set(items::kChannelAverageBitsPerSecond, 5, SummaryDouble(b));
    set(items::kChannelCurrentUtilization, 6, SummaryDouble(m_linkSpeed ? cr * 100.0 / speed : 0.0));
    set(items::kChannelCurrentBitsPerSecond, 7, SummaryDouble(cr));
  }
}

void UpdateRun::Errors() {
  ComPtr<IErrorStats> errors = Statistic<IErrorStats>(CLSID_ErrorStats);
  if (!errors) return;
  const items::MediumItems* group = ErrorItemsFor(m_mediaType, m_mediaSubType);
  if (!group) AtlThrow(E_FAIL);
  LONG count = 0;
  CheckHr(errors->GetCounterCount(&count));
  // On media type 1 the ring stations report 12 kinds of error beside the
  // total, and 11 items stand for the total and the first ten of them.
  const bool ring = m_mediaType == 1 && count == static_cast<LONG>(kMaxErrorCounters);
  if (!ring && count != static_cast<LONG>(group->items.size())) AtlThrow(E_FAIL);
  std::array<ULONGLONG, kMaxErrorCounters> counters{};
  CheckHr(errors->GetCounters(count, counters.data()));
  SetCounts(*group, counters.data(), group->items.size());
}

void UpdateRun::Counts() {
  ComPtr<IEntityTable> entities;
  if (FAILED(m_context->GetEntityTable(entities.ReleaseAndGetAddressOf())) || !entities) return;
  auto count = [&](ULONG type) {
    ULONG n = 0;
    CheckHr(entities->GetCount(type, &n));
    return ULONGLONG{n};
  };
  const GUID& g = items::kCountsGroup;
  Set(items::kPhysicalAddresses, g, SummaryCount(kSummaryInt, count(10) + count(13) + count(43)));
  Set(items::kIpAddresses, g, SummaryCount(kSummaryInt, count(21)));
  Set(items::kIpv6Addresses, g, SummaryCount(kSummaryInt, count(24)));
  Set(items::kType20Addresses, g, SummaryCount(kSummaryInt, count(20)));
  Set(items::kType22Addresses, g, SummaryCount(kSummaryInt, count(22)));
  Set(items::kType25Addresses, g, SummaryCount(kSummaryInt, count(25)));
  if (ComPtr<IProtocolStats> protocols = Statistic<IProtocolStats>(CLSID_ProtocolStatsByID)) {
    ULONG n = 0;
    CheckHr(protocols->GetProtocolCount(&n));
    Set(items::kProtocols, g, SummaryCount(kSummaryInt, n));
  }
}

void UpdateRun::Sizes() {
  ComPtr<ISizeStats> sizes = Statistic<ISizeStats>(CLSID_SizeStats);
  if (!sizes) return;
  const items::MediumItems* group = SizeItemsFor(m_mediaType, m_mediaSubType, m_linkSpeed);
  if (!group) AtlThrow(E_FAIL);
  LONG count = 0;
  CheckHr(sizes->GetBucketCount(&count));
  if (count != static_cast<LONG>(group->items.size())) AtlThrow(E_FAIL);
  std::array<ULONGLONG, 12> buckets{};
  CheckHr(sizes->GetBuckets(count, buckets.data()));
  SetCounts(*group, buckets.data(), group->items.size());
}

void UpdateRun::Wireless() {
  ComPtr<IWirelessNodeStats> nodes = Statistic<IWirelessNodeStats>(CLSID_WirelessNodeStats2);
  if (!nodes) nodes = Statistic<IWirelessNodeStats>(CLSID_WirelessNodeStats);
  if (!nodes) return;
  ZemoWirelessNodeTotals totals{};
  CheckHr(nodes->GetTotals(&totals));
  ULONG fields[14];
  static_assert(sizeof fields == sizeof totals);
  std::memcpy(fields, &totals, sizeof fields);
  const items::MediumItems& group = items::kWireless;
  for (size_t i = 0; i < 14; ++i) Set(group.items[i], group.group, SummaryCount(kSummaryInt, fields[i]));
}

void UpdateRun::Expert() {
  CLSID clsid{};
  CheckHr(CLSIDFromProgID(kProgIdExpertStats, &clsid));
  if (ComPtr<IUpdateSummaryStats> expert = Statistic<IUpdateSummaryStats>(clsid)) Offer(expert.Get());
}

void UpdateRun::Site() {
  ComPtr<IObjectWithSite> withSite;
  CheckHr(m_context->QueryInterface(IObjectWithSite::iid, withSite.OutVoid()));
  ComPtr<IServiceProvider> services;
  if (FAILED(withSite->GetSite(IServiceProvider::iid, services.OutVoid())) || !services) return;
  ComPtr<IUpdateSummaryStats> host;
  if (FAILED(services->QueryService(kServiceUpdateSummaryStats, IUpdateSummaryStats::iid, host.OutVoid())) || !host)
    return;
  Offer(host.Get());
}

// The context offers the snapshot to each of its statistics; what they do
// with it is theirs.
void UpdateRun::Context() {
  ComPtr<IUpdateSummaryStats> statistics;
  if (SUCCEEDED(m_context->QueryInterface(IUpdateSummaryStats::iid, statistics.OutVoid())))
    statistics->UpdateSummaryStats(m_snapshot);
}

}  // namespace

// The run takes no lock of its own. A context's save runs it inside the
// context's lock, and a server's tick outside: held across the calls into
// the context, this object's lock would order itself both before and after
// the context's. Each call into a statistic or the snapshot takes that
// object's own lock, and two runs at once write the same figures.
HRESULT SummaryStatsUpdater::Update(IZemoStatsContext* context) {
  return Unlocked([&] {
    if (!context) AtlThrow(E_FAIL);
    ComPtr<IZemoStatsContext> hold(context);
    ComPtr<ISummaryStats> summary;
    CheckHr(context->GetStats(CLSID_SummaryStats, ISummaryStats::iid, summary.OutVoid()));
    ComPtr<ISummaryStatsSnapshot> snapshot;
    CheckHr(summary->GetSnapshot(0, snapshot.ReleaseAndGetAddressOf()));
    UpdateRun run(context, snapshot.Get());
    run.General();
    run.Network();
    run.Channels();
    run.Errors();
    run.Counts();
    run.Sizes();
    run.Wireless();
    run.Expert();
    run.Site();
    run.Context();
  });
}

}  // namespace zemo
