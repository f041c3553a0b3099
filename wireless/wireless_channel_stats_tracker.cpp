#include "wireless/wireless_channel_stats_tracker.h"

#include <cstddef>
#include <cstring>

#include "wireless/channel_naming.h"

namespace zemo {
namespace {

// A sample of the record: a counter at an offset, or a percent or dBm figure
// read as a signed 32-bit value, so that -127 stays -127.
enum class Width : uint8_t { U64, U8, I16 };

struct Unit {
  ULONG type;
  const char16_t* name;
  uint32_t offset;
  Width width;
};

constexpr uint32_t Counter(size_t offsetInCounts) { return static_cast<uint32_t>(offsetInCounts); }

// Stat types 25 and 27 are none.
constexpr Unit kUnits[] = {
    {2, u"Total Packets", Counter(offsetof(ZemoWirelessChannelCounts, Packets)), Width::U64},
    {3, u"Total Bytes", Counter(offsetof(ZemoWirelessChannelCounts, Bytes)), Width::U64},
    {4, u"Data Packets", Counter(offsetof(ZemoWirelessChannelCounts, DataPackets)), Width::U64},
    {5, u"Data Bytes", Counter(offsetof(ZemoWirelessChannelCounts, DataBytes)), Width::U64},
    {6, u"Mgmt Packets", Counter(offsetof(ZemoWirelessChannelCounts, MgmtPackets)), Width::U64},
    {7, u"Mgmt Bytes", Counter(offsetof(ZemoWirelessChannelCounts, MgmtBytes)), Width::U64},
    {8, u"Ctrl Packets", Counter(offsetof(ZemoWirelessChannelCounts, CtrlPackets)), Width::U64},
    {9, u"Ctrl Bytes", Counter(offsetof(ZemoWirelessChannelCounts, CtrlBytes)), Width::U64},
    {10, u"Local Packets", Counter(offsetof(ZemoWirelessChannelCounts, LocalPackets)), Width::U64},
    {11, u"Local Bytes", Counter(offsetof(ZemoWirelessChannelCounts, LocalBytes)), Width::U64},
    {12, u"From DS Packets", Counter(offsetof(ZemoWirelessChannelCounts, FromDSPackets)), Width::U64},
    {13, u"From DS Bytes", Counter(offsetof(ZemoWirelessChannelCounts, FromDSBytes)), Width::U64},
    {14, u"To DS Packets", Counter(offsetof(ZemoWirelessChannelCounts, ToDSPackets)), Width::U64},
    {15, u"To DS Bytes", Counter(offsetof(ZemoWirelessChannelCounts, ToDSBytes)), Width::U64},
    {16, u"DS-DS Packets", Counter(offsetof(ZemoWirelessChannelCounts, DSDSPackets)), Width::U64},
    {17, u"DS-DS Bytes", Counter(offsetof(ZemoWirelessChannelCounts, DSDSBytes)), Width::U64},
    {18, u"Retry Packets", Counter(offsetof(ZemoWirelessChannelCounts, RetryPackets)), Width::U64},
    {19, u"Retry Bytes", Counter(offsetof(ZemoWirelessChannelCounts, RetryBytes)), Width::U64},
    {20, u"Protected Packets", Counter(offsetof(ZemoWirelessChannelCounts, ProtectedPackets)), Width::U64},
    {21, u"Protected Bytes", Counter(offsetof(ZemoWirelessChannelCounts, ProtectedBytes)), Width::U64},
    {22, u"Order Packets", Counter(offsetof(ZemoWirelessChannelCounts, OrderPackets)), Width::U64},
    {23, u"Order Bytes", Counter(offsetof(ZemoWirelessChannelCounts, OrderBytes)), Width::U64},
    {24, u"CRC Errors", Counter(offsetof(ZemoWirelessChannelCounts, CRCErrors)), Width::U64},
    {26, u"WEP ICV", Counter(offsetof(ZemoWirelessChannelCounts, WEPICVErrors)), Width::U64},
    {28, u"Min Signal", offsetof(ZemoWirelessChannelStat, SignalMin), Width::U8},
    {29, u"Max Signal", offsetof(ZemoWirelessChannelStat, SignalMax), Width::U8},
    {30, u"Min Signal dBm", offsetof(ZemoWirelessChannelStat, SignaldBmMin), Width::I16},
    {31, u"Max Signal dBm", offsetof(ZemoWirelessChannelStat, SignaldBmMax), Width::I16},
    {32, u"Min Noise", offsetof(ZemoWirelessChannelStat, NoiseMin), Width::U8},
    {33, u"Max Noise", offsetof(ZemoWirelessChannelStat, NoiseMax), Width::U8},
    {34, u"Min Noise dBm", offsetof(ZemoWirelessChannelStat, NoisedBmMin), Width::I16},
    {35, u"Max Noise dBm", offsetof(ZemoWirelessChannelStat, NoisedBmMax), Width::I16},
};
static_assert(std::size(kUnits) == 32);

const Unit* UnitOf(LONG type) {
  for (const Unit& u : kUnits)
    if (static_cast<LONG>(u.type) == type) return &u;
  return nullptr;
}

}  // namespace

CWirelessUnitIDMap::CWirelessUnitIDMap() {
  for (const Unit& u : kUnits) m_units.Add(u.type, u.name);
}

const CWirelessUnitIDMap& CWirelessUnitIDMap::Get() {
  static const CWirelessUnitIDMap s_map;
  return s_map;
}

const char16_t* CWirelessUnitIDMap::Name(ULONG type) const noexcept {
  const char16_t* name = nullptr;
  return m_units.Lookup(type, name) ? name : nullptr;
}

// --- the key ---

HRESULT WirelessChannelStatsTracker::GetChannel(SWirelessChannel* channel) {
  return Locked([&] {
    CheckOut(channel);
    *channel = m_channel;
  });
}

HRESULT WirelessChannelStatsTracker::SetChannel(SWirelessChannel channel) {
  return Locked([&] { m_channel = channel; });
}

HRESULT WirelessChannelStatsTracker::GetStatType(LONG* type) {
  return Locked([&] {
    CheckOut(type);
    *type = m_stat;
  });
}

HRESULT WirelessChannelStatsTracker::SetStatType(LONG type) {
  return Locked([&] { m_stat = type; });
}

// --- the numbers ---

LONG WirelessChannelStatsTracker::StatCount() const noexcept {
  return static_cast<LONG>(CWirelessUnitIDMap::Get().Units().GetCount());
}

CVariant WirelessChannelStatsTracker::StatId(LONG index) const {
  const auto* unit = index < 0 ? nullptr : CWirelessUnitIDMap::Get().Units().GetNodeAt(static_cast<uint32_t>(index));
  if (!unit) AtlThrow(E_INVALIDARG);
  return CVariant::UI4(unit->m_key);
}

const char16_t* WirelessChannelStatsTracker::StatName(LONG id) const {
  const char16_t* name = CWirelessUnitIDMap::Get().Name(static_cast<ULONG>(id));
  if (!name) AtlThrow(E_INVALIDARG);
  return name;
}

double WirelessChannelStatsTracker::SampleOf(const ZemoWirelessChannelStat& stat) const {
  const Unit* unit = UnitOf(m_stat);
  if (!unit) AtlThrow(E_FAIL);
  const auto* bytes = reinterpret_cast<const uint8_t*>(&stat) + unit->offset;
  switch (unit->width) {
    case Width::U64: {
      uint64_t v;
      std::memcpy(&v, bytes, sizeof v);
      return static_cast<double>(v);
    }
    case Width::U8: return static_cast<double>(static_cast<int32_t>(*bytes));
    default: {
      int16_t v;
      std::memcpy(&v, bytes, sizeof v);
      return static_cast<double>(static_cast<int32_t>(v));
    }
  }
}

// --- the statistic ---

HRESULT WirelessChannelStatsTracker::Bind(IZemoStatsContext* context) {
  return context->GetStats(CLSID_WirelessChannelStats, IWirelessChannelStats::iid, m_statistic.OutVoid());
}

LONG WirelessChannelStatsTracker::Resolve() {
  ULONG count = 0;
  CheckHr(m_statistic->GetChannelCount(&count));
  ZemoWirelessChannelStat stat;
  for (ULONG i = 0; i < count; ++i) {
    CheckHr(m_statistic->GetChannelStat(i, &stat));
    if (stat.Channel == m_channel) return static_cast<LONG>(i);
  }
  return -1;
}

HRESULT WirelessChannelStatsTracker::Read(ZemoWirelessChannelStat& stat) {
  if (!m_statistic) return E_FAIL;  // never bound, or the context lacks the statistic
  if (m_index == -1) m_index = Resolve();
  if (m_index == -1) return S_FALSE;  // the channel has not appeared yet
  HRESULT hr = m_statistic->GetChannelStat(static_cast<ULONG>(m_index), &stat);
  if (SUCCEEDED(hr) && stat.Channel == m_channel) return hr;
  // The channel moved, or the statistic was reset: find it again.
  m_index = Resolve();
  if (m_index == -1) return S_FALSE;
  return CheckHr(m_statistic->GetChannelStat(static_cast<ULONG>(m_index), &stat));
}

// --- clone and XML ---

void WirelessChannelStatsTracker::CopyTo(IZemoStatsTracker* clone) {
  ComPtr<IWirelessChannelStatsTracker> keyed = ComPtr<IZemoStatsTracker>(clone).Query<IWirelessChannelStatsTracker>();
  CheckHr(keyed->SetChannel(m_channel));
  CheckHr(keyed->SetStatType(m_stat));
}

void WirelessChannelStatsTracker::SaveXml(IXMLDOMDocument*, IXMLDOMElement* element) {
  SetAttribute(element, u"stattype", m_stat);
  SetAttribute(element, u"history", History());
  SetAttribute(element, u"channel", std::u16string_view(FormatChannel(m_channel)));
}

void WirelessChannelStatsTracker::LoadXml(IXMLDOMElement* element) {
  GetAttribute(element, u"stattype", m_stat);
  LONG history = 0;
  if (GetAttribute(element, u"history", history)) ApplyHistory(history);
  std::u16string label;
  GetAttribute(element, u"channel", label);
  m_channel = ParseChannel(label);
}

}  // namespace zemo
