// The counters of capture traffic, shared by NetworkStats (the whole capture)
// and ChannelStats (one channel): six u64 counters, the rates between the
// last two samples, and the routines that count a packet, take a sample,
// compute rates and persist counters and samples.
//
// The interfaces INetworkStats and IChannelStats are declared here too, so
// that a reader of the counters needs no statistic's class.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "frame/iids.h"
#include "frame/packet.h"
#include "platform/stream.h"
#include "platform/unknown.h"

struct IXMLDOMDocument;
struct IXMLDOMNode;

// Six u64 in this order, in memory, streams, XML, text and tables alike.
struct NetworkCounters {
  ULONGLONG TotalPackets;
  ULONGLONG TotalBytes;
  ULONGLONG BroadcastPackets;
  ULONGLONG BroadcastBytes;
  ULONGLONG MulticastPackets;
  ULONGLONG MulticastBytes;

  friend bool operator==(const NetworkCounters&, const NetworkCounters&) = default;
};
static_assert(sizeof(NetworkCounters) == 48);

// Per second: packets, then bits, of all, broadcast and multicast traffic.
struct NetworkRates {
  double TotalPacketsPerSecond;
  double TotalBitsPerSecond;
  double BroadcastPacketsPerSecond;
  double BroadcastBitsPerSecond;
  double MulticastPacketsPerSecond;
  double MulticastBitsPerSecond;
};
static_assert(sizeof(NetworkRates) == 48);

// The last two samples, oldest first; a time of 0 means no sample yet.
struct SampleTracker {
  ZemoTime time1;
  ZemoTime time2;
  NetworkCounters stats1;
  NetworkCounters stats2;
};
static_assert(sizeof(SampleTracker) == 112);

// One channel of an adapter: its number, counted from 1, and its counters.
// 52 bytes on the interface and in the stream, so Counters is only 4-aligned:
// read and write it with CountersOf and MakeChannelCounters, which never bind
// a reference to it.
#pragma pack(push, 4)
struct ChannelCounters {
  ULONG Number;
  NetworkCounters Counters;
};
#pragma pack(pop)
static_assert(sizeof(ChannelCounters) == 52 && offsetof(ChannelCounters, Counters) == 4);

inline NetworkCounters CountersOf(const ChannelCounters& channel) noexcept {
  NetworkCounters out;
  std::memcpy(&out, reinterpret_cast<const BYTE*>(&channel) + offsetof(ChannelCounters, Counters), sizeof out);
  return out;
}

inline ChannelCounters MakeChannelCounters(ULONG number, const NetworkCounters& counters) noexcept {
  ChannelCounters out;
  out.Number = number;
  std::memcpy(reinterpret_cast<BYTE*>(&out) + offsetof(ChannelCounters, Counters), &counters, sizeof counters);
  return out;
}

struct INetworkStats : IUnknown {
  static constexpr IID iid = IID_INetworkStats;
  virtual HRESULT GetNetworkCounters(NetworkCounters* counters) = 0;
  virtual HRESULT GetNetworkRates(NetworkRates* rates) = 0;
};

struct IChannelStats : IUnknown {
  static constexpr IID iid = IID_IChannelStats;
  virtual HRESULT GetChannelCount(ULONG* count) = 0;
  // index counts from 0; at or past the count: E_INVALIDARG.
  virtual HRESULT GetChannelCounters(ULONG index, ChannelCounters* counters) = 0;
  virtual HRESULT GetChannelRates(ULONG index, NetworkRates* rates) = 0;
};

namespace zemo {

// The counters by name, in their order: the names of the XML elements,
// the table rows and the text lines.
struct NetworkCounterField {
  const char16_t* name;
  ULONGLONG NetworkCounters::*field;
};
inline constexpr std::array<NetworkCounterField, 6> kNetworkCounterFields{{
    {u"TotalPackets", &NetworkCounters::TotalPackets},
    {u"TotalBytes", &NetworkCounters::TotalBytes},
    {u"BroadcastPackets", &NetworkCounters::BroadcastPackets},
    {u"BroadcastBytes", &NetworkCounters::BroadcastBytes},
    {u"MulticastPackets", &NetworkCounters::MulticastPackets},
    {u"MulticastBytes", &NetworkCounters::MulticastBytes},
}};

// ---- the packet and the tick -----------------------------------------------

// The packet's wire length; a failure is raised with its status.
USHORT WireLength(IPacket* packet);

inline void CountTotals(NetworkCounters& counters, USHORT length) noexcept {
  ++counters.TotalPackets;
  counters.TotalBytes += length;
}

// Counts one packet: the totals, then the multicast and the broadcast pair.
// A packet that can't tell its length raises; one that can't tell whether it
// is multicast or broadcast leaves that pair uncounted. Both pairs are
// tested, so a packet can be in both.
void CountPacket(IPacket* packet, NetworkCounters& counters);

// The newer sample becomes the older, and the counters as they stand now
// the newer.
inline void TakeSample(SampleTracker& tracker, const NetworkCounters& now, ZemoTime time) noexcept {
  tracker.time1 = tracker.time2;
  tracker.time2 = time;
  tracker.stats1 = tracker.stats2;
  tracker.stats2 = now;
}

// The bits per second of a pair over a duration in ns, each packet counting
// for eight bytes more than its length; 0 over a duration of 0.
double BitsPerSecond(ULONGLONG packets, ULONGLONG bytes, ZemoTime duration) noexcept;

// The rates between the two samples. Without both times the interval is one
// second; an interval of 0 gives rates of 0. Each packet counts for eight
// bytes more than its length in the bit rates.
NetworkRates RatesOf(const SampleTracker& tracker) noexcept;

// ---- persistence -------------------------------------------------------------

// A tracker in the stream: time1, stats1, time2, stats2 (each time before
// its own counters), 112 bytes. Reads raise E_FAIL when short.
void WriteSampleTracker(IStream* stream, const SampleTracker& tracker);
SampleTracker ReadSampleTracker(IStream* stream);
inline constexpr ULONG kSampleTrackerStreamSize = 112;

// The XML of the counters and the tracker, as children of parent:
//   <NetworkStats><TotalPackets>1</TotalPackets>...</NetworkStats>
//   <SampleTracker><Sample1 Time="..">six counters</Sample1><Sample2 ..>..</Sample2></SampleTracker>
// Loading needs every element and attribute: a missing one raises E_FAIL,
// text that is no u64 raises the conversion's status.
void SaveNetworkCountersXml(IXMLDOMDocument* document, IXMLDOMNode* parent, const NetworkCounters& counters);
NetworkCounters LoadNetworkCountersXml(IXMLDOMNode* parent);
void SaveSampleTrackerXml(IXMLDOMDocument* document, IXMLDOMNode* parent, const SampleTracker& tracker);
SampleTracker LoadSampleTrackerXml(IXMLDOMNode* parent);

}  // namespace zemo
