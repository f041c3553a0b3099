#include "network/channel_stats.h"

#include "frame/clsids.h"
#include "frame/engine_interfaces.h"
#include "frame/stream_persist.h"
#include "frame/xml_persist.h"

namespace zemo {
namespace {

// The adapter's channel numbers, freed with the task allocator.
struct TaskArray {
  ULONG* p = nullptr;
  ~TaskArray() { CoTaskMemFree(p); }
};

}  // namespace

// --- IChannelStats ---

HRESULT ChannelStats::GetChannelCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<ULONG>(m_channels.size());
  });
}

HRESULT ChannelStats::GetChannelCounters(ULONG index, ChannelCounters* counters) {
  return Locked([&] {
    CheckOut(counters);
    if (index >= m_channels.size()) AtlThrow(E_INVALIDARG);
    *counters = MakeChannelCounters(m_channels[index].number, m_channels[index].counters);
  });
}

HRESULT ChannelStats::GetChannelRates(ULONG index, NetworkRates* rates) {
  return Locked([&] {
    CheckOut(rates);
    if (index >= m_channels.size()) AtlThrow(E_INVALIDARG);
    *rates = RatesOf(m_channels[index].tracker);
  });
}

// --- IZemoStats ---

HRESULT ChannelStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] {
    CheckOut(context);
    *context = m_context;
    if (m_context) m_context->AddRef();
  });
}

// The channels are the adapter's. An adapter that can't say gives a
// statistic without channels, which is no error; one that numbers its
// channels other than 1, 2, 3, ... is, and keeps the records numbered so far.
// The adapter is read before this object's lock is taken: the context's
// lock comes first.
HRESULT ChannelStats::SetContext(IZemoStatsContext* context) {
  if (!context) return E_POINTER;
  ComPtr<IAdapterInfo> adapter;
  ULONG count = 0;
  TaskArray numbers;
  const bool known = SUCCEEDED(context->GetAdapterInfo(adapter.ReleaseAndGetAddressOf())) && adapter &&
                     SUCCEEDED(adapter->GetChannelNumbers(&count, &numbers.p));
  return Locked([&] {
    if (context == m_context) return;
    m_context = context;
    m_channels.clear();
    if (!known) return;
    if (count > 0 && !numbers.p) AtlThrow(E_FAIL);
    m_channels.assign(count, Channel{});
    for (ULONG i = 0; i < count; ++i) {
      if (numbers.p[i] != i + 1) AtlThrow(E_FAIL);
      m_channels[i].number = numbers.p[i];
    }
  });
}

HRESULT ChannelStats::Reset() {
  return Locked([&] {
    for (Channel& c : m_channels) {
      c.counters = {};
      c.tracker = {};
    }
  });
}

// --- The packet and the tick ---

bool ChannelStats::ChannelIndexOf(IPacket* packet, ULONG& index) {
  BOOL yes = FALSE;
  CheckHr(packet->HasChannelNumber(&yes));
  if (yes) {
    ComPtr<IChannelPacket> channel;
    CheckHr(QueryTo(packet, &channel));
    ULONG number = 0;
    CheckHr(channel->GetChannelNumber(&number));
    index = number - 1;  // channel 0 wraps round and is refused below
    return true;
  }
  CheckHr(packet->HasLineNumber(&yes));
  if (!yes) return false;
  ComPtr<ILinePacket> line;
  CheckHr(QueryTo(packet, &line));
  BYTE number = 0;
  CheckHr(line->GetLineNumber(&number));
  index = static_cast<ULONG>(number) - 1;
  return true;
}

HRESULT ChannelStats::ProcessPacket(IPacket* packet) {
  return Locked([&] {
    if (!packet) AtlThrow(E_INVALIDARG);
    if (m_channels.empty()) return;
    ULONG index = 0;
    if (!ChannelIndexOf(packet, index)) return;
    if (index >= m_channels.size()) AtlThrow(E_INVALIDARG);
    CountPacket(packet, m_channels[index].counters);
  });
}

HRESULT ChannelStats::ProcessTime(ZemoTime now) {
  return Locked([&] {
    for (Channel& c : m_channels) TakeSample(c.tracker, c.counters, now);
  });
}

// --- Persistence ---

HRESULT ChannelStats::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_ChannelStats;
  });
}

HRESULT ChannelStats::IsDirty() { return S_OK; }

// Count, the records, then each channel's tracker. A failed load leaves the
// channels as they were.
HRESULT ChannelStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    ULONG count = ReadValue<ULONG>(stream);
    std::vector<ChannelCounters> records = ReadRecordArray<ChannelCounters>(stream, count);
    std::vector<Channel> channels(records.size());
    for (size_t i = 0; i < channels.size(); ++i) {
      channels[i].number = records[i].Number;
      channels[i].counters = CountersOf(records[i]);
      channels[i].tracker = ReadSampleTracker(stream);
    }
    m_channels = std::move(channels);
  });
}

HRESULT ChannelStats::Save(IStream* stream, BOOL) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, static_cast<ULONG>(m_channels.size()));
    for (const Channel& c : m_channels) WriteValue(stream, MakeChannelCounters(c.number, c.counters));
    for (const Channel& c : m_channels) WriteSampleTracker(stream, c.tracker);
  });
}

HRESULT ChannelStats::GetSizeMax(ULARGE_INTEGER* size) {
  return Locked([&] {
    CheckOut(size);
    size->QuadPart = sizeof(ULONG) + (sizeof(ChannelCounters) + kSampleTrackerStreamSize) * m_channels.size();
  });
}

// <ZemoStats.ChannelStats.1>
//   <Channel Number="1"><NetworkStats>..</NetworkStats><SampleTracker>..</SampleTracker></Channel>
//   ...
// Channels must stand in their order, numbered from 1.
HRESULT ChannelStats::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> element = SelectClassElement(XmlNodeOf(node).Get(), CLSID_ChannelStats);
    ComPtr<IXMLDOMNodeList> list;
    CheckHr(element->selectNodes(CBstr(u"Channel").Get(), list.ReleaseAndGetAddressOf()));
    LONG count = 0;
    CheckHr(list->get_length(&count));
    std::vector<Channel> channels(static_cast<size_t>(std::max<LONG>(count, 0)));
    for (size_t i = 0; i < channels.size(); ++i) {
      ComPtr<IXMLDOMNode> item;
      CheckHr(list->get_item(static_cast<LONG>(i), item.ReleaseAndGetAddressOf()));
      ComPtr<IXMLDOMElement> channel = item.Query<IXMLDOMElement>();
      Channel& c = channels[i];
      if (!channel || !GetAttribute(channel.Get(), u"Number", c.number) || c.number != i + 1) AtlThrow(E_FAIL);
      c.counters = LoadNetworkCountersXml(channel.Get());
      c.tracker = LoadSampleTrackerXml(channel.Get());
    }
    m_channels = std::move(channels);
  });
}

HRESULT ChannelStats::Save(IUnknown* document, IUnknown* node, BOOL) {
  return Locked([&] {
    ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> element = CreateClassElement(doc.Get(), XmlNodeOf(node).Get(), CLSID_ChannelStats);
    for (const Channel& c : m_channels) {
      ComPtr<IXMLDOMElement> channel = CreateChildElement(doc.Get(), element.Get(), u"Channel");
      SetAttribute(channel.Get(), u"Number", c.number);
      SaveNetworkCountersXml(doc.Get(), channel.Get(), c.counters);
      SaveSampleTrackerXml(doc.Get(), channel.Get(), c.tracker);
    }
  });
}

}  // namespace zemo
