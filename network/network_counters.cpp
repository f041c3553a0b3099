#include "network/network_counters.h"

#include "frame/stream_persist.h"
#include "frame/xml_persist.h"

namespace zemo {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr ZemoTime kOneSecond = 1000000000;

// Packets and bits per second of one (packets, bytes) pair.
void PairRates(ULONGLONG packets1, ULONGLONG bytes1, ULONGLONG packets2, ULONGLONG bytes2, ZemoTime duration,
               double& packetsPerSecond, double& bitsPerSecond) {
  if (duration == 0) {
    packetsPerSecond = bitsPerSecond = 0.0;
    return;
  }
  ULONGLONG dp = packets2 - packets1;
  ULONGLONG db = bytes2 - bytes1;
  packetsPerSecond = static_cast<double>(dp) * kNanosecondsPerSecond / static_cast<double>(duration);
  bitsPerSecond = static_cast<double>(db + 8 * dp) * 8.0 * kNanosecondsPerSecond / static_cast<double>(duration);
}

}  // namespace

double BitsPerSecond(ULONGLONG packets, ULONGLONG bytes, ZemoTime duration) noexcept {
  double packetsPerSecond = 0, bitsPerSecond = 0;
  PairRates(0, 0, packets, bytes, duration, packetsPerSecond, bitsPerSecond);
  return bitsPerSecond;
}

namespace {

ComPtr<IXMLDOMNode> RequiredChild(IXMLDOMNode* parent, std::u16string_view name) {
  ComPtr<IXMLDOMNode> child = SelectXmlNode(parent, name);
  if (!child) AtlThrow(E_FAIL);
  return child;
}

// The six counter elements straight under element.
void SaveCounterChildren(IXMLDOMDocument* document, IXMLDOMNode* element, const NetworkCounters& counters) {
  for (const NetworkCounterField& f : kNetworkCounterFields) SetChildText(document, element, f.name, counters.*f.field);
}

NetworkCounters LoadCounterChildren(IXMLDOMNode* element) {
  NetworkCounters counters{};
  for (const NetworkCounterField& f : kNetworkCounterFields)
    if (!GetChildText(element, f.name, counters.*f.field)) AtlThrow(E_FAIL);
  return counters;
}

void SaveSample(IXMLDOMDocument* document, IXMLDOMNode* parent, std::u16string_view name, ZemoTime time,
                const NetworkCounters& counters) {
  ComPtr<IXMLDOMElement> sample = CreateChildElement(document, parent, name);
  SetAttribute(sample.Get(), u"Time", time);
  SaveCounterChildren(document, sample.Get(), counters);
}

void LoadSample(IXMLDOMNode* parent, std::u16string_view name, ZemoTime& time, NetworkCounters& counters) {
  ComPtr<IXMLDOMElement> sample = SelectXmlElement(parent, name);
  if (!sample || !GetAttribute(sample.Get(), u"Time", time)) AtlThrow(E_FAIL);
  counters = LoadCounterChildren(sample.Get());
}

}  // namespace

USHORT WireLength(IPacket* packet) {
  USHORT length = 0;
  CheckHr(packet->GetPacketLength(&length));
  return length;
}

void CountPacket(IPacket* packet, NetworkCounters& counters) {
  USHORT length = WireLength(packet);
  CountTotals(counters, length);
  BOOL yes = FALSE;
  if (SUCCEEDED(packet->IsMulticast(&yes)) && yes) {
    ++counters.MulticastPackets;
    counters.MulticastBytes += length;
  }
  yes = FALSE;
  if (SUCCEEDED(packet->IsBroadcast(&yes)) && yes) {
    ++counters.BroadcastPackets;
    counters.BroadcastBytes += length;
  }
}

NetworkRates RatesOf(const SampleTracker& t) noexcept {
  ZemoTime duration = t.time1 != 0 && t.time2 != 0 ? t.time2 - t.time1 : kOneSecond;
  NetworkRates r{};
  PairRates(t.stats1.TotalPackets, t.stats1.TotalBytes, t.stats2.TotalPackets, t.stats2.TotalBytes, duration,
            r.TotalPacketsPerSecond, r.TotalBitsPerSecond);
  PairRates(t.stats1.BroadcastPackets, t.stats1.BroadcastBytes, t.stats2.BroadcastPackets, t.stats2.BroadcastBytes,
            duration, r.BroadcastPacketsPerSecond, r.BroadcastBitsPerSecond);
  PairRates(t.stats1.MulticastPackets, t.stats1.MulticastBytes, t.stats2.MulticastPackets, t.stats2.MulticastBytes,
            duration, r.MulticastPacketsPerSecond, r.MulticastBitsPerSecond);
  return r;
}

void WriteSampleTracker(IStream* stream, const SampleTracker& t) {
  WriteValue(stream, t.time1);
  WriteValue(stream, t.stats1);
  WriteValue(stream, t.time2);
  WriteValue(stream, t.stats2);
}

SampleTracker ReadSampleTracker(IStream* stream) {
  SampleTracker t{};
  ReadValue(stream, t.time1);
  ReadValue(stream, t.stats1);
  ReadValue(stream, t.time2);
  ReadValue(stream, t.stats2);
  return t;
}

void SaveNetworkCountersXml(IXMLDOMDocument* document, IXMLDOMNode* parent, const NetworkCounters& counters) {
  SaveCounterChildren(document, CreateChildElement(document, parent, u"NetworkStats").Get(), counters);
}

NetworkCounters LoadNetworkCountersXml(IXMLDOMNode* parent) {
  return LoadCounterChildren(RequiredChild(parent, u"NetworkStats").Get());
}

void SaveSampleTrackerXml(IXMLDOMDocument* document, IXMLDOMNode* parent, const SampleTracker& t) {
  ComPtr<IXMLDOMElement> tracker = CreateChildElement(document, parent, u"SampleTracker");
  SaveSample(document, tracker.Get(), u"Sample1", t.time1, t.stats1);
  SaveSample(document, tracker.Get(), u"Sample2", t.time2, t.stats2);
}

SampleTracker LoadSampleTrackerXml(IXMLDOMNode* parent) {
  ComPtr<IXMLDOMNode> tracker = RequiredChild(parent, u"SampleTracker");
  SampleTracker t{};
  LoadSample(tracker.Get(), u"Sample1", t.time1, t.stats1);
  LoadSample(tracker.Get(), u"Sample2", t.time2, t.stats2);
  return t;
}

}  // namespace zemo
