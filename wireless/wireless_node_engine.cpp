#include "wireless/wireless_node_engine.h"

#include <algorithm>
#include <cstring>

#include "frame/block_frame.h"
#include "wireless/channel_naming.h"
#include "wireless/stream_tags.h"
#include "wireless/wireless_signal.h"

namespace zemo {
namespace {

using namespace wireless_tags;
constexpr uint32_t kNone = CWirelessNodeStats::kNone;
constexpr uint32_t kTagESSIDs = 0x65737369;
constexpr uint32_t kTagAssociations = 0x61736F63;
constexpr uint8_t kKindWithoutTrust = 0x60;

// Frame control: the first byte less its version bits.
constexpr uint8_t kSubtypeData = 0x08;
constexpr uint8_t kSubtypeAssociationResponse = 0x10;
constexpr uint8_t kSubtypeReassociationResponse = 0x30;

USHORT FrameKind(IPacket* p) {
  USHORT kind = 0xFFFF;
  CheckHr(p->GetFrameProtoSpecId(&kind));
  return kind;
}

// An address the packet does not have stays empty.
// The later less the earlier, or all ones when either is unset (all ones)
// or the later is the smaller.
uint64_t TimeDifference(ZemoTime later, ZemoTime earlier) {
  if (later == ~ZemoTime{0} || earlier == ~ZemoTime{0} || later < earlier) return ~uint64_t{0};
  return later - earlier;
}

void InitRecord(ZemoWirelessNodeStatEntry2& e, uint32_t key) {
  std::memset(&e, 0, sizeof e);
  ZemoWirelessNodeStat2& s = e.Stat;
  s.MinPacketSizeSent = s.MinPacketSizeReceived = 0xFFFF;
  s.Signal.CurrentDBm = s.Signal.MinDBm = s.Signal.MaxDBm = kNoDbm;
  s.Noise.CurrentDBm = s.Noise.MinDBm = s.Noise.MaxDBm = kNoDbm;
  s.RecentBSSIDStatIndex = s.RecentESSIDStatIndex = kNone;
  s.EntityIndex = key;
  e.RateRow = 1;
}

void CountSize(uint16_t& min, uint16_t& max, USHORT length) {
  if (length > max) max = length;
  if (length < min) min = length;
}

}  // namespace

CWirelessNodeStats::CWirelessNodeStats() : m_records(sizeof(ZemoWirelessNodeStatEntry2), 32) {
  std::fill(std::begin(m_heads), std::end(m_heads), kNone);
}

// --- tables ---

void CWirelessNodeStats::Clear() {
  std::fill(std::begin(m_heads), std::end(m_heads), kNone);
  m_keys.Clear();
  m_totalBytes = m_totalPackets = 0;
  m_rows.clear();
  m_records.Clear();
  m_rates.clear();
  m_essids.clear();
  m_unknownBSSID = m_unknownESSID = kNone;
  m_set.Clear();
  m_set.Touch();
}

void CWirelessNodeStats::Restart(ULONG, ULONG) { Clear(); }

void CWirelessNodeStats::Init(ULONG, ULONG, const SWirelessChannel*, ULONG, const ULONG* rates, ULONG rateCount,
                              const ULONG* moreRates, ULONG moreRateCount) {
  Clear();
  for (ULONG i = 0; rates && i < rateCount; ++i) AddDataRate(rates[i]);
  for (ULONG i = 0; moreRates && i < moreRateCount; ++i) AddDataRate(moreRates[i]);
  std::sort(m_rates.begin(), m_rates.end());
}

uint32_t CWirelessNodeStats::AddDataRate(uint32_t rate) {
  size_t i = 0;
  for (; i < m_rates.size(); ++i) {
    if (m_rates[i] == rate) return static_cast<uint32_t>(i);
    if (m_rates[i] > rate) break;
  }
  m_rates.insert(m_rates.begin() + static_cast<ptrdiff_t>(i), rate);
  ++m_rateChangeCount;
  return static_cast<uint32_t>(i);
}

uint32_t CWirelessNodeStats::FindNode(uint32_t key, ZemoWirelessNodeStatEntry2** record) const noexcept {
  const uint32_t i = m_keys.Find(key, CKeyIndex::AnyRecord{});
  if (record) *record = i == kNone ? nullptr : &Rec(i);
  return i;
}

void CWirelessNodeStats::Link(uint32_t index) {
  ZemoWirelessNodeStatEntry2& e = Rec(index);
  uint32_t& head = m_heads[e.Stat.EntityIndex % kHeads];
  e.Next = head;
  head = index;
}

uint32_t CWirelessNodeStats::AddNode(uint32_t key, ZemoWirelessNodeStatEntry2** record) {
  if (record) *record = nullptr;
  try {
    m_keys.Reserve();
    m_rows.emplace_back();
  } catch (...) {
    return kNone;
  }
  void* p;
  try {
    p = m_records.Append();
  } catch (...) {
    m_rows.pop_back();
    return kNone;
  }
  const uint32_t index = m_records.GetCount() - 1;
  auto& e = *static_cast<ZemoWirelessNodeStatEntry2*>(p);
  InitRecord(e, key);
  Link(index);
  m_keys.Insert(key, index);
  if (record) *record = &e;
  return index;
}

ZemoWirelessNodeStatEntry2* CWirelessNodeStats::GetNode(uint32_t index) const noexcept {
  return static_cast<ZemoWirelessNodeStatEntry2*>(m_records.Get(index));
}

uint32_t CWirelessNodeStats::NodeOfAddress(const MediaSpec& spec, ZemoWirelessNodeStatEntry2** record) {
  *record = nullptr;
  ULONG id = kNone;
  if (!m_entities || FAILED(m_entities->FindOrAdd(&spec, 1, &id))) return kNone;
  uint32_t n = FindNode(id, record);
  if (n == kNone) n = AddNode(id, record);
  return n;
}

uint32_t CWirelessNodeStats::GetBSSIDIndex(const MediaSpec& spec) {
  if (!IsValidSpec(spec) || IsBroadcast(spec) || !m_entities) return kNone;
  ZemoWirelessNodeStatEntry2* r;
  const uint32_t n = NodeOfAddress(spec, &r);
  if (n == kNone) return kNone;
  // An access point points at itself.
  if (r->Stat.RecentBSSIDStatIndex == kNone || r->Stat.RecentBSSIDStatIndex == m_unknownBSSID)
    r->Stat.RecentBSSIDStatIndex = n;
  if (r->Stat.RecentESSIDStatIndex == kNone) SetNodeESSID(n, UnknownESSIDName());
  return n;
}

uint32_t CWirelessNodeStats::GetUnknownBSSIDIndex() {
  if (m_unknownBSSID == kNone) {
    const uint32_t n = GetBSSIDIndex(UnknownBSSIDSpec());
    if (n != kNone) {
      Rec(n).Stat.Type = kNodeTypeAP;
      m_unknownBSSID = n;
    }
  }
  return m_unknownBSSID;
}

uint32_t CWirelessNodeStats::GetUnknownESSIDIndex() {
  if (m_unknownESSID == kNone) m_unknownESSID = GetESSIDIndex(UnknownESSIDName());
  return m_unknownESSID;
}

uint32_t CWirelessNodeStats::GetESSIDIndex(const ByteString& name) {
  if (auto it = m_essids.find(name); it != m_essids.end()) return it->second;
  ZemoWirelessNodeStatEntry2* r;
  const uint32_t n = AddNode(static_cast<uint32_t>(m_essids.size()), &r);
  if (n == kNone) return kNone;
  m_essids.emplace(name, n);
  r->Stat.RecentESSIDStatIndex = n;
  std::memcpy(r->Stat.ESSID, name.GetBytes(), name.GetByteCount());
  r->Stat.ESSIDLength = name.GetByteCount();
  r->Stat.Type = kNodeTypeESSID;
  return n;
}

void CWirelessNodeStats::SetNodeESSID(uint32_t index, const ByteString& name) {
  ZemoWirelessNodeStatEntry2* r = index == kNone ? nullptr : GetNode(index);
  if (!r) return;
  ZemoWirelessNodeStat2& s = r->Stat;
  if (s.RecentESSIDStatIndex != kNone && s.ESSIDLength == name.GetByteCount() &&
      std::memcmp(s.ESSID, name.GetBytes(), name.GetByteCount()) == 0)
    return;
  std::memset(s.ESSID, 0, sizeof s.ESSID);
  std::memcpy(s.ESSID, name.GetBytes(), name.GetByteCount());
  s.ESSIDLength = name.GetByteCount();
  const uint32_t essid = GetESSIDIndex(name);
  GetNode(index)->Stat.RecentESSIDStatIndex = essid;
}

// --- the packet ---

void CWirelessNodeStats::ProcessPacket(WirelessPacketView& view) {
  IPacket* p = view.Packet();
  LONG packetClass = 11;
  p->GetPacketClass(&packetClass);
  if (packetClass < 1 || packetClass > 3) return;
  m_totalPackets += 1;
  m_totalBytes += view.PacketLength();
  if (PacketTest(p, &IPacket::IsError)) return;
  IPacketAddresses* a = view.Addresses();
  MediaSpec transmitter, receiver;
  ReadRadioPair(a, &transmitter, &receiver);
  const MediaSpec bssidSpec = PacketAddressOr(a, &IPacketAddresses::GetBSSID);
  if (IsGroupAddress(transmitter)) transmitter.fClass = transmitter.fType = 0;
  const uint32_t bssid = GetBSSIDIndex(bssidSpec);
  ProcessTransmitter(view, transmitter, receiver, bssidSpec, bssid);
  ProcessReceiver(view, receiver, bssid);
}

void CWirelessNodeStats::ProcessTransmitter(WirelessPacketView& view, const MediaSpec& transmitter,
                                            const MediaSpec& receiver, const MediaSpec& bssidSpec, uint32_t bssid) {
  if (!IsValidSpec(transmitter)) return;
  IPacket* p = view.Packet();
  const USHORT kind = FrameKind(p);
  ULONG id = kNone;
  if (!m_entities || FAILED(m_entities->FindOrAdd(&transmitter, 1, &id))) {
    RecordAssociation(m_set, kNone, bssid, kNone, kind);
    return;
  }
  ZemoWirelessNodeStatEntry2* r;
  uint32_t n = FindNode(id, &r);
  if (n == kNone) n = AddNode(id, &r);
  if (n == kNone) return;
  ZemoWirelessNodeStat2& s = r->Stat;
  if (bssid != kNone)
    s.RecentBSSIDStatIndex = bssid;
  else if (s.RecentBSSIDStatIndex == kNone)
    s.RecentBSSIDStatIndex = GetUnknownBSSIDIndex();

  const ZemoTime time = view.Time();
  const USHORT length = view.PacketLength();
  s.LastTimeSent = time;
  if (s.FirstTimeSent == 0) s.FirstTimeSent = time;
  s.PacketsSent += 1;
  s.BytesSent += length;
  if (IsValidSpec(receiver)) {
    if (IsBroadcast(receiver)) s.BroadcastPackets += 1, s.BroadcastBytes += length;
    if (IsMulticast(receiver)) s.MulticastPackets += 1, s.MulticastBytes += length;
  }
  uint16_t min = s.MinPacketSizeSent, max = s.MaxPacketSizeSent;
  CountSize(min, max, length);
  s.MinPacketSizeSent = min, s.MaxPacketSizeSent = max;

  const BYTE* frame;
  USHORT captured;
  view.Frame(&frame, &captured);
  if (frame && captured >= 2) {
    const uint8_t b = frame[1];
    if (b & 0x08) s.RetryPackets += 1;
    if ((b & 0x40) || view.TestFlags(0x4)) s.WEPPackets += 1;
    s.PowerSave = (b & 0x10) ? 1 : 0;
  }

  // The row stays ascending.
  const uint32_t rate = view.DataRate();
  std::vector<ZemoWirelessNodeDataRateStat>& row = m_rows[n];
  auto at = std::find_if(row.begin(), row.end(), [&](const ZemoWirelessNodeDataRateStat& e) { return e.Rate >= rate; });
  if (at != row.end() && at->Rate == rate)
    at->Pkts += 1, at->Bytes += length;
  else
    row.insert(at, ZemoWirelessNodeDataRateStat{rate, 1, length});

  SWirelessChannel channel{0, 0, 0};
  const bool haveChannel = view.Channel(&channel);
  if (haveChannel) s.DSChannel = channel;
  const SignalReading reading = view.Readings();
  UpdateSignal(s.Signal, reading.signalDbm, reading.signalPercent);
  UpdateSignal(s.RecentSignal, reading.signalDbm, reading.signalPercent);
  UpdateSignal(s.Noise, reading.noiseDbm, reading.noisePercent);
  UpdateSignal(s.RecentNoise, reading.noiseDbm, reading.noisePercent);
  s.RecentCount += 1;

  const uint32_t essid = ParseManagementBody(view, *r, bssid);

  if (kind != kFrameSkipsType) {
    if (s.AdHocBaseStation)
      s.Type = kNodeTypeAdHoc;
    else if (s.BeaconPackets > 0)
      s.Type = kNodeTypeAP;
    else if (IsGroupAddress(transmitter))
      s.Type = kNodeTypeGroup;
    else if (IsValidSpec(bssidSpec) && SpecsEqual(bssidSpec, transmitter))
      s.Type = kNodeTypeAP;
    else
      s.Type = kNodeTypeSTA;
  }
  if (s.Type == kNodeTypeAP && (s.BeaconPackets == 0 || s.APChannel.Channel == 0) && haveChannel)
    s.APChannel = channel;
  if (view.TestFlags(0x8)) s.WEPICVErrors += 1;

  // The sender's security only rises.
  IWirelessPacket* radio = view.Radio();
  LONG value = 0;
  if (SUCCEEDED(radio->GetTransmitEncryption(&value)) && value > s.EncryptionType)
    s.EncryptionType = static_cast<uint8_t>(value);
  value = 0;
  if (SUCCEEDED(radio->GetAuthentication(&value)) && value > s.AuthenticationType)
    s.AuthenticationType = static_cast<uint8_t>(value);
  BYTE key = 0;
  if (radio->GetWEPKeyIndex(&key) == S_OK) s.WEPKey = key;

  if (n != bssid) CountRoamSent(view, *r, bssid);
  // A station follows its access point's channel.
  if (bssid != kNone && bssid != n)
    if (const ZemoWirelessNodeStatEntry2* b = GetNode(bssid)) s.APChannel = b->Stat.APChannel;
  ReportChannel(*r, transmitter);
  RecordAssociation(m_set, essid, bssid, n, kind);
}

uint32_t CWirelessNodeStats::ParseManagementBody(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r,
                                                 uint32_t bssid) {
  IPacket* p = view.Packet();
  ZemoWirelessNodeStat2& s = r.Stat;
  const USHORT kind = FrameKind(p);
  const bool reply = kind == kFrameBeacon || kind == kFrameProbeResponse;
  if (!reply && kind != kFrameProbeRequest) return kNone;
  if (kind == kFrameBeacon) s.BeaconPackets += 1;
  uint32_t essid = kNone;
  bool usable = false;
  const BYTE* data = view.Data();
  const uint32_t captured = data ? view.CaptureLength() : 0;
  if (reply && data && captured > 0x22) {
    const uint8_t c = data[0x22];
    if (s.BeaconPackets > 0) s.PrivacyFlag = (c >> 4) & 1;
    s.AdHocBaseStation = ((c & 0x01) == 0 && (c & 0x02) != 0) ? 1 : 0;
    if (s.AdHocBaseStation && bssid != kNone)
      if (ZemoWirelessNodeStatEntry2* b = GetNode(bssid)) {
        b->Stat.Type = kNodeTypeGroup;
        b->Stat.APChannel = s.DSChannel;
      }
  }
  USHORT slice = 0;
  CheckHr(p->GetSliceLength(&slice));
  if (slice != 0 || !data) return essid;
  const uint32_t start = reply ? 0x24 : 0x18;
  if (captured < start + 4) return essid;
  const uint32_t limit = captured - start - 4;  // the checksum is no element
  const BYTE* body = data + start;
  uint32_t pos = 0;
  int taken = 0;
  while (taken < 2 && pos + 2 < limit) {
    const uint8_t tag = body[pos], len = body[pos + 1];
    pos += 2;
    if (pos + len > limit || (tag != 0 && tag != 3)) {
      pos += len;
      continue;
    }
    if (tag == 3) {
      SWirelessChannel heard{0, 0, 0};
      if (len == 1 && view.Channel(&heard) && IsChannelInBand(heard.Band, body[pos]))
        s.APChannel = MakeChannel(heard.Band, body[pos], false);
      ++taken;
    } else {
      if (len > 0) {
        const size_t n = std::min<size_t>(len, ByteString::MAX_BYTE_COUNT);
        if (IsUsableESSID(body + pos, n)) {
          const ByteString name(body + pos, n);
          if (reply) SetNodeESSID(bssid, name);
          essid = GetESSIDIndex(name);
          if (essid != kNone) usable = true;
        }
      }
      ++taken;
    }
    pos += len;
  }
  if (kind == kFrameBeacon) s.BeaconsContainESSID = usable ? 1 : 0;
  return essid;
}

void CWirelessNodeStats::ReportChannel(ZemoWirelessNodeStatEntry2& r, const MediaSpec& transmitter) {
  if (r.Stat.Type != kNodeTypeAP || !IsValidSpec(transmitter)) return;
  const SWirelessChannel current = r.Stat.APChannel;
  const SWirelessChannel old = r.ReportedChannel;
  if (current == old) return;
  r.ReportedChannel = current;
  if (!m_channels) return;
  if (old.Channel != 0) CheckHr(m_channels->RemoveChannelNode(old, &transmitter));
  if (current.Channel != 0) CheckHr(m_channels->AddChannelNode(current, &transmitter));
}

uint64_t CWirelessNodeStats::CheckRoam(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r) {
  const BYTE* frame;
  USHORT captured;
  view.Frame(&frame, &captured);
  if (!view.Wireless() || !frame || captured < 28) return 0;
  MediaSpec bssid{};
  if (view.Addresses()->GetBSSID(&bssid) != S_OK) return 0;
  const uint8_t s = frame[0] & 0xFC;
  if (s != kSubtypeData) {
    if (s != kSubtypeAssociationResponse && s != kSubtypeReassociationResponse) return 0;
    if (frame[26] != 0 || frame[27] != 0) return 0;  // refused
  }
  const ZemoTime time = view.Time();
  MediaSpec last;
  std::memcpy(&last, &r.LastBSSID, sizeof last);
  if (!IsValidSpec(last)) {
    std::memcpy(&r.LastBSSID, &bssid, sizeof bssid);
    r.LastBSSIDTime = time;
    return 0;
  }
  if (SpecsEqual(last, bssid)) {
    if (s == kSubtypeData) r.LastBSSIDTime = time;
    return 0;
  }
  const uint64_t gap = TimeDifference(time, r.LastBSSIDTime);
  std::memcpy(&r.LastBSSID, &bssid, sizeof bssid);
  r.LastBSSIDTime = time;
  return gap == ~uint64_t{0} ? 0 : gap;
}

void CWirelessNodeStats::CountRoam(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r, uint32_t bssid) {
  const uint64_t gap = CheckRoam(view, r);
  if (gap == 0) return;
  r.Stat.RoamTime += gap;
  r.Stat.RoamCount += 1;
  if (bssid == kNone) return;
  if (ZemoWirelessNodeStatEntry2* b = GetNode(bssid)) {
    b->Stat.RoamTime += gap;
    b->Stat.RoamCount += 1;
  }
}

void CWirelessNodeStats::CountRoamSent(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r, uint32_t bssid) {
  const BYTE* frame;
  USHORT captured;
  view.Frame(&frame, &captured);
  if (!frame || captured < 2) return;
  if ((frame[0] & 0xFC) != kSubtypeData || (frame[1] & 0x03) != 1) return;  // To DS data only
  CountRoam(view, r, bssid);
}

void CWirelessNodeStats::CountRoamReceived(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r, uint32_t bssid) {
  IPacket* p = view.Packet();
  if (PacketTest(p, &IPacket::IsMulticast) || PacketTest(p, &IPacket::IsBroadcast)) return;
  const BYTE* frame;
  USHORT captured;
  view.Frame(&frame, &captured);
  if (!frame || captured < 2) return;
  if ((frame[0] & 0xFC) == kSubtypeData && (frame[1] & 0x03) != 2) return;  // From DS data only
  CountRoam(view, r, bssid);
}

void CWirelessNodeStats::ProcessReceiver(WirelessPacketView& view, const MediaSpec& receiver, uint32_t bssid) {
  if (!IsValidSpec(receiver)) return;
  ZemoWirelessNodeStatEntry2* r;
  if (NodeOfAddress(receiver, &r) == kNone) return;
  ZemoWirelessNodeStat2& s = r->Stat;
  const ZemoTime time = view.Time();
  const USHORT length = view.PacketLength();
  s.LastTimeReceived = time;
  if (s.FirstTimeReceived == 0) s.FirstTimeReceived = time;
  s.PacketsReceived += 1;
  s.BytesReceived += length;
  uint16_t min = s.MinPacketSizeReceived, max = s.MaxPacketSizeReceived;
  CountSize(min, max, length);
  s.MinPacketSizeReceived = min, s.MaxPacketSizeReceived = max;
  if (s.RecentBSSIDStatIndex == kNone) s.RecentBSSIDStatIndex = GetUnknownBSSIDIndex();
  SWirelessChannel channel{0, 0, 0};
  if (view.Channel(&channel)) s.DSChannel = channel;
  // A probe response marks its receiver as a station.
  if (receiver.fData[0] & 1)
    s.Type = kNodeTypeGroup;
  else if (FrameKind(view.Packet()) == kFrameProbeResponse)
    s.Type = kNodeTypeSTA;
  LONG value = 0;
  if (SUCCEEDED(view.Radio()->GetReceiveEncryption(&value)) && value > s.EncryptionType)
    s.EncryptionType = static_cast<uint8_t>(value);
  CountRoamReceived(view, *r, bssid);
}

// --- the tick ---

void CWirelessNodeStats::ProcessTime(uint64_t now) {
  if (now < kRollInterval) return;
  for (uint32_t i = 0; i < NodeCount(); ++i) {
    ZemoWirelessNodeStat2& s = Rec(i).Stat;
    if (s.RollTime == 0) {
      s.RollTime = now;
    } else if (s.RollTime < now - kRollInterval) {
      s.RollTime = now;
      if (s.RecentCount >= 2) s.RecentCount = 0;
      ClearRecentStat(s.RecentSignal);
      ClearRecentStat(s.RecentNoise);
    }
  }
}

// --- totals ---

bool CWirelessNodeStats::BookTrust(const ZemoWirelessNodeStat2& record, COMGlue::NameTable* names,
                                   uint8_t* trust) const {
  if (!names || !m_entities) return false;
  MediaSpec spec{};
  if (FAILED(m_entities->GetEntity(record.EntityIndex, &spec, nullptr))) return false;
  ZemoNameEntry entry;
  if (!names->GetEntry(&spec, &entry) || entry.Kind == kKindWithoutTrust) return false;
  *trust = entry.Trust;
  return true;
}

void CWirelessNodeStats::GetTotals(ZemoWirelessNodeTotals* out, COMGlue::NameTable* names) {
  std::memset(out, 0, sizeof *out);
  if (NodeCount() == 0) return;
  const bool changed = m_cachedChangeCount != m_set.ChangeCount();
  const uint32_t unknownBSSID = GetUnknownBSSIDIndex();
  const uint32_t unknownESSID = GetUnknownESSIDIndex();
  auto byTrust = [](uint8_t trust, ULONG& trusted, ULONG& known, ULONG& unknown) {
    (trust == 2 ? trusted : trust == 1 ? known : unknown) += 1;
  };
  std::vector<uint32_t> adHocNetworks;
  for (uint32_t i = 0; i < NodeCount(); ++i) {
    if (i == unknownESSID || i == unknownBSSID) continue;
    const ZemoWirelessNodeStat2& s = Rec(i).Stat;
    if (s.Type == kNodeTypeESSID) {
      if (changed) {
        if (m_set.ContainsMatch({i, kNone, kNone, kStrengthFirm}))
          out->ESSIDs += 1;
        else
          out->ESSIDsWithoutAssociation += 1;
      }
      continue;
    }
    uint8_t trust = 0;
    BookTrust(s, names, &trust);
    if (s.AdHocBaseStation) {
      byTrust(trust, out->TrustedAdHocStations, out->KnownAdHocStations, out->UnknownAdHocStations);
      if (s.RecentBSSIDStatIndex != 0) {
        out->Stations += 1;
        if (std::find(adHocNetworks.begin(), adHocNetworks.end(), +s.RecentBSSIDStatIndex) == adHocNetworks.end()) {
          adHocNetworks.push_back(+s.RecentBSSIDStatIndex);
          out->AdHocNetworks += 1;
        }
      }
    } else if (s.Type == kNodeTypeAP && s.RecentBSSIDStatIndex != unknownBSSID) {
      out->AccessPoints += 1;
      byTrust(trust, out->TrustedAccessPoints, out->KnownAccessPoints, out->UnknownAccessPoints);
    } else if (s.Type == kNodeTypeSTA) {
      out->Stations += 1;
      byTrust(trust, out->TrustedStations, out->KnownStations, out->UnknownStations);
    }
  }
  if (changed) {
    if (out->AdHocNetworks <= out->ESSIDs) out->ESSIDs -= out->AdHocNetworks;
    m_cachedChangeCount = m_set.ChangeCount();
    m_cachedESSIDs = out->ESSIDs;
    m_cachedESSIDsWithout = out->ESSIDsWithoutAssociation;
  } else {
    out->ESSIDs = m_cachedESSIDs;
    out->ESSIDsWithoutAssociation = m_cachedESSIDsWithout;
  }
}

// --- the stream ---

void CWirelessNodeStats::Save(IStream* ioStream, COMGlue::NameTable* names) {
  CheckBlockStream(ioStream);
  WriteBlock(ioStream, [&] {
    WriteSyncTag(ioStream, kStats);
    WriteValue(ioStream, NodeCount());
    for (uint32_t i = 0; i < NodeCount(); ++i) {
      ZemoWirelessNodeStatEntry2& e = Rec(i);
      if (e.Stat.Type != kNodeTypeESSID) {
        uint8_t trust = 0;
        if (BookTrust(e.Stat, names, &trust)) e.Stat.Trust = trust;
      }
      WriteValue(ioStream, i);
      WriteValue(ioStream, e);
      const auto& row = m_rows[i];
      WriteValue(ioStream, static_cast<uint32_t>(row.size()));
      WriteRecords(ioStream, std::span<const ZemoWirelessNodeDataRateStat>(row));
    }
    WriteSyncTag(ioStream, kTagESSIDs);
    WriteValue(ioStream, static_cast<uint32_t>(m_essids.size()));
    for (const auto& [name, index] : m_essids) {
      uint8_t raw[1 + ByteString::MAX_BYTE_COUNT] = {};
      raw[0] = name.GetByteCount();
      std::memcpy(raw + 1, name.GetBytes(), name.GetByteCount());
      WriteBytes(ioStream, raw, sizeof raw);
      WriteValue(ioStream, index);
    }
    WriteSyncTag(ioStream, kRates);
    WriteValue(ioStream, static_cast<uint32_t>(m_rates.size()));
    WriteRecords(ioStream, std::span<const ULONG>(m_rates));
    WriteSyncTag(ioStream, kCounts);
    WriteValue(ioStream, m_totalBytes);
    WriteValue(ioStream, m_totalPackets);
    for (int i = 0; i < 4; ++i) WriteValue(ioStream, uint64_t{0});
    for (uint32_t v : {m_rateChangeCount, m_cachedChangeCount, m_cachedESSIDs, m_cachedESSIDsWithout, m_unknownBSSID,
                       m_unknownESSID})
      WriteValue(ioStream, v);
    WriteSyncTag(ioStream, kTagAssociations);
    WriteValue(ioStream, m_set.ChangeCount());
    m_set.Save(ioStream);
    WriteSyncTag(ioStream, kEnd);
  });
}

// The records and rows are read whole before the store takes them, so the
// memory a stream costs follows the bytes it holds, not the count it claims.
void CWirelessNodeStats::Load(IStream* ioStream) {
  CheckBlockStream(ioStream);
  ReadBlock(ioStream, [&] {
    ReadSyncTag(ioStream, kStats);
    const auto count = ReadRanged<uint32_t>(ioStream, 0u, kMaxStoredRecords);
    struct Stored {
      uint32_t index;
      ZemoWirelessNodeStatEntry2 entry;
      std::vector<ZemoWirelessNodeDataRateStat> row;
    };
    std::vector<Stored> stored;
    for (uint32_t k = 0; k < count; ++k) {
      Stored s;
      s.index = CheckRange(ReadValue<uint32_t>(ioStream), 0u, count - 1);
      ReadValue(ioStream, s.entry);
      if (s.entry.RateRow != 0)
        s.row = ReadRecordArray<ZemoWirelessNodeDataRateStat>(ioStream, ReadValue<uint32_t>(ioStream));
      stored.push_back(std::move(s));
    }
    Clear();
    m_records.SetCount(count);
    m_rows.resize(count);
    for (Stored& s : stored) {
      Rec(s.index) = s.entry;
      m_rows[s.index] = std::move(s.row);
    }
    // Every record has a row in memory, those the stream left out too.
    for (uint32_t i = 0; i < count; ++i) {
      Rec(i).RateRow = 1;
      Link(i);
    }
    // Newest first, as the chains have them: a key stored twice finds the later record.
    for (uint32_t i = count; i-- > 0;) {
      const uint32_t key = Rec(i).Stat.EntityIndex;
      if (FindNode(key, nullptr) != kNone) continue;
      m_keys.Reserve();
      m_keys.Insert(key, i);
    }

    ReadSyncTag(ioStream, kTagESSIDs);
    const auto names = ReadValue<uint32_t>(ioStream);
    for (uint32_t k = 0; k < names; ++k) {
      uint8_t raw[1 + ByteString::MAX_BYTE_COUNT];
      ReadBytes(ioStream, raw, sizeof raw);
      const auto index = ReadValue<uint32_t>(ioStream);
      m_essids[ByteString(raw + 1, raw[0])] = index;
    }
    ReadSyncTag(ioStream, kRates);
    const std::vector<ULONG> rates = ReadRecordArray<ULONG>(ioStream, ReadValue<uint32_t>(ioStream));
    m_rates.assign(rates.begin(), rates.end());
    ReadSyncTag(ioStream, kCounts);
    m_totalBytes = ReadValue<uint64_t>(ioStream);
    m_totalPackets = ReadValue<uint64_t>(ioStream);
    for (int i = 0; i < 4; ++i) ReadValue<uint64_t>(ioStream);
    for (uint32_t* v : {&m_rateChangeCount, &m_cachedChangeCount, &m_cachedESSIDs, &m_cachedESSIDsWithout,
                        &m_unknownBSSID, &m_unknownESSID})
      *v = ReadValue<uint32_t>(ioStream);
    ReadSyncTag(ioStream, kTagAssociations);
    const auto changes = ReadValue<uint32_t>(ioStream);
    m_set.Load(ioStream);
    m_set.SetChangeCount(changes);
    ReadSyncTag(ioStream, kEnd);
  });
}

// --- the first generation's view of a record ---

ZemoWirelessNodeStatEntry FirstGenerationNode(const ZemoWirelessNodeStatEntry2& e) {
  ZemoWirelessNodeStatEntry out;
  std::memset(&out, 0, sizeof out);
  const ZemoWirelessNodeStat2& s = e.Stat;
  out.EntityIndex = s.EntityIndex;
  out.Next = e.Next;
  out.RecentBSSIDStatIndex = s.RecentBSSIDStatIndex;
  out.RecentESSIDStatIndex = s.RecentESSIDStatIndex;
  ZemoWirelessNodeStat& t = out.Stat;
  std::memcpy(&t, &s, sizeof(ZemoWirelessNodeCommon));  // the bytes both records share
  t.WEPKey = s.WEPKey;
  t.Trust = s.Trust;
  t.SignalMin = s.Signal.Min, t.SignalMax = s.Signal.Max, t.SignalCurrent = s.Signal.Current;
  t.NoiseMin = s.Noise.Min, t.NoiseMax = s.Noise.Max, t.NoiseCurrent = s.Noise.Current;
  t.SignaldBmMin = s.Signal.MinDBm, t.SignaldBmMax = s.Signal.MaxDBm, t.SignaldBmCurrent = s.Signal.CurrentDBm;
  t.NoisedBmMin = s.Noise.MinDBm, t.NoisedBmMax = s.Noise.MaxDBm, t.NoisedBmCurrent = s.Noise.CurrentDBm;
  t.BeaconsContainESSID = s.BeaconsContainESSID;
  t.AdHocBaseStation = s.AdHocBaseStation;
  t.PrivacyFlag = s.PrivacyFlag;
  t.PowerSave = s.PowerSave;
  return out;
}

}  // namespace zemo
