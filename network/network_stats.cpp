#include "network/network_stats.h"

#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/selection.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"

namespace zemo {
namespace {

constexpr TableColumn kTableColumns[] = {{u"Stat", VT_BSTR}, {u"Value", VT_UI8}};

}  // namespace

HRESULT NetworkStats::FinalConstruct() {
  return Boundary([&] {
    CheckHr(CreateModuleInstance(CLSID_ChannelStats, IChannelStats::iid, m_channels.OutVoid()));
    CheckHr(m_channels.As(&m_channelPackets));
  });
}

template <class I>
ComPtr<I> NetworkStats::Private() const {
  ComPtr<I> p;
  CheckHr(m_channels.As(&p));
  return p;
}

void NetworkStats::NoteChannels() {
  ULONG count = 0;
  m_hasChannels = SUCCEEDED(m_channels->GetChannelCount(&count)) && count > 0;
}

// --- INetworkStats ---

HRESULT NetworkStats::GetNetworkCounters(NetworkCounters* counters) {
  return Locked([&] {
    CheckOut(counters);
    *counters = m_counters;
  });
}

HRESULT NetworkStats::GetNetworkRates(NetworkRates* rates) {
  return Locked([&] {
    CheckOut(rates);
    *rates = RatesOf(m_tracker);
  });
}

// --- IChannelStats ---

HRESULT NetworkStats::GetChannelCount(ULONG* count) {
  return Locked([&] { return m_channels->GetChannelCount(count); });
}

HRESULT NetworkStats::GetChannelCounters(ULONG index, ChannelCounters* counters) {
  return Locked([&] { return m_channels->GetChannelCounters(index, counters); });
}

HRESULT NetworkStats::GetChannelRates(ULONG index, NetworkRates* rates) {
  return Locked([&] { return m_channels->GetChannelRates(index, rates); });
}

// --- IZemoStats and the resets ---

HRESULT NetworkStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] {
    CheckOut(context);
    *context = m_context;
    if (m_context) m_context->AddRef();
  });
}

// The private object reads the context's adapter, and the context's lock
// comes before ours: it is told outside our lock (it is ours from
// construction on, so reaching it needs none).
HRESULT NetworkStats::SetContext(IZemoStatsContext* context) {
  HRESULT hr = Unlocked([&] { return Private<IZemoStats>()->SetContext(context); });
  return Locked([&] {
    m_context = context;
    NoteChannels();
    return hr;
  });
}

template <class I>
HRESULT NetworkStats::ResetThrough() {
  return Locked([&] {
    m_counters = {};
    m_tracker = {};
    return Private<I>()->Reset();
  });
}

template HRESULT NetworkStats::ResetThrough<IZemoStats>();
template HRESULT NetworkStats::ResetThrough<IResetProcessing>();

// --- The packet and the tick ---

// At most five calls on the packet and one on the private object. A damaged
// 802.11 frame counts in the totals only: what it says of its addresses and
// channel can't be trusted.
HRESULT NetworkStats::ProcessPacket(IPacket* packet) {
  return Locked([&] {
    if (!packet) AtlThrow(E_INVALIDARG);
    BOOL wireless = FALSE;
    BOOL error = FALSE;
    CheckHr(packet->IsWireless(&wireless));
    if (wireless) CheckHr(packet->IsError(&error));
    if (wireless && error) {
      CountTotals(m_counters, WireLength(packet));
      return S_OK;
    }
    CountPacket(packet, m_counters);
    return m_hasChannels ? m_channelPackets->ProcessPacket(packet) : S_OK;
  });
}

HRESULT NetworkStats::ProcessTime(ZemoTime now) {
  return Locked([&] {
    TakeSample(m_tracker, m_counters, now);
    return Private<IProcessTime>()->ProcessTime(now);
  });
}

// --- Persistence ---

HRESULT NetworkStats::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_NetworkStats;
  });
}

HRESULT NetworkStats::IsDirty() { return S_OK; }

// Counters, the tracker (each time before its counters), then the private
// object's own stream.
HRESULT NetworkStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    NetworkCounters counters = ReadValue<NetworkCounters>(stream);
    SampleTracker tracker = ReadSampleTracker(stream);
    m_counters = counters;
    m_tracker = tracker;
    HRESULT hr = LoadObjectFromStream(m_channels.Get(), stream);
    NoteChannels();
    return hr;
  });
}

HRESULT NetworkStats::Save(IStream* stream, BOOL clearDirty) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, m_counters);
    WriteSampleTracker(stream, m_tracker);
    return SaveObjectToStream(m_channels.Get(), stream, clearDirty);
  });
}

HRESULT NetworkStats::GetSizeMax(ULARGE_INTEGER* size) {
  return Locked([&] {
    CheckOut(size);
    ULARGE_INTEGER channels{};
    CheckHr(Private<IPersistStream>()->GetSizeMax(&channels));
    size->QuadPart = sizeof(NetworkCounters) + kSampleTrackerStreamSize + channels.QuadPart;
  });
}

// <ZemoStats.NetworkStats.1>
//   <NetworkStats>six counters</NetworkStats>
//   <SampleTracker><Sample1 Time=".."/><Sample2 Time=".."/></SampleTracker>
//   <ZemoStats.ChannelStats.1>..</ZemoStats.ChannelStats.1>
// </ZemoStats.NetworkStats.1>
HRESULT NetworkStats::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> element = SelectClassElement(XmlNodeOf(node).Get(), CLSID_NetworkStats);
    NetworkCounters counters = LoadNetworkCountersXml(element.Get());
    SampleTracker tracker = LoadSampleTrackerXml(element.Get());
    m_counters = counters;
    m_tracker = tracker;
    HRESULT hr = LoadObjectFromXml(m_channels.Get(), document, element.Get());
    NoteChannels();
    return hr;
  });
}

HRESULT NetworkStats::Save(IUnknown* document, IUnknown* node, BOOL flag) {
  return Locked([&] {
    ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> element = CreateClassElement(doc.Get(), XmlNodeOf(node).Get(), CLSID_NetworkStats);
    SaveNetworkCountersXml(doc.Get(), element.Get(), m_counters);
    SaveSampleTrackerXml(doc.Get(), element.Get(), m_tracker);
    return SaveObjectToXml(m_channels.Get(), document, element.Get(), flag);
  });
}

HRESULT NetworkStats::Load(LPCOLESTR, DWORD) { return E_NOTIMPL; }

// Six lines, the counters in their order, no heading.
HRESULT NetworkStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] {
    CheckExportExtension(fileName, kExportTxt);
    return WriteTextFile(fileName, FileOpenStyle::Runtime, [&](TextWriter& out) {
      for (const NetworkCounterField& f : kNetworkCounterFields) {
        out.U64(m_counters.*f.field);
        out.Char('\n');
      }
    });
  });
}

HRESULT NetworkStats::SaveCompleted(LPCOLESTR) { return S_OK; }

HRESULT NetworkStats::GetCurFile(LPOLESTR*) { return E_NOTIMPL; }

// --- ISelectableObject ---

HRESULT NetworkStats::GetTable(IDataTable** table) {
  return Locked([&] {
    CheckOut(table);
    MakeTable(table, kTableColumns);
    TableRows rows(*table);
    for (const NetworkCounterField& f : kNetworkCounterFields)
      rows.Add({CVariant::Str(f.name), CVariant::UI8(m_counters.*f.field)});
  });
}

}  // namespace zemo
