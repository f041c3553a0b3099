#include "wireless/wireless_node_stats.h"

#include <algorithm>
#include <cstring>

#include "frame/clsids.h"
#include "frame/name_table.h"
#include "frame/packet.h"
#include "frame/stream_persist.h"
#include "frame/task_memory.h"
#include "frame/text_export.h"
#include "frame/time_format.h"
#include "frame/xml_persist.h"
#include "platform/strings.h"
#include "wireless/channel_naming.h"
#include "wireless/wireless_packet_view.h"
#include "wireless/wireless_signal.h"

namespace zemo {
namespace {

constexpr uint32_t kNone = WirelessNodeStats::kNone;
constexpr uint16_t kProtoTkipOrWep = 0xF0;
constexpr uint16_t kProtoEapResponse = 0x3728;
constexpr uint16_t kProtoCiscoElement = 0xDD;

using Entry = ZemoWirelessNodeStatEntry;
using Stat = ZemoWirelessNodeStat;

void InitEntry(Entry& e, uint32_t key) {
  std::memset(&e, 0, sizeof e);
  e.EntityIndex = key;
  e.RecentBSSIDStatIndex = e.RecentESSIDStatIndex = kNone;
  Stat& s = e.Stat;
  s.MinPacketSizeSent = s.MinPacketSizeReceived = 0xFFFF;
  s.SignaldBmMin = s.SignaldBmMax = s.SignaldBmCurrent = kNoDbm;
  s.NoisedBmMin = s.NoisedBmMax = s.NoisedBmCurrent = kNoDbm;
  s.SignalMin = s.NoiseMin = 100;
}

// Percent and dBm figures of one reading; -127 dBm is no reading.
void FoldPercent(uint8_t& min, uint8_t& max, uint8_t& current, uint8_t percent) {
  if (percent > max) max = percent;
  if (percent < min) min = percent;
  current = percent;
}
void FoldDbm(int16_t& min, int16_t& max, int16_t& current, int16_t dbm) {
  if (dbm != kNoDbm) {
    if (max == kNoDbm || dbm > max) max = dbm;
    if (min == kNoDbm || dbm < min) min = dbm;
  }
  current = dbm;
}

// The fields of a record's XML form, in their order, with when each is
// written. Offsets count in ZemoWirelessNodeStatEntry.
enum class When : uint8_t { Always, Known, Sent, SentNonZero, SentBeacon, Received, NonZero, DbmReading, Channel };
enum class Kind : uint8_t { U8, U16, I16, U32, U64 };
struct XmlField {
  std::u16string_view name;
  uint16_t offset;
  Kind kind;
  When when;
};
#define ZEMO_STAT(f) static_cast<uint16_t>(offsetof(Entry, Stat) + offsetof(Stat, f))
constexpr uint16_t kDS = ZEMO_STAT(DSChannel), kAP = ZEMO_STAT(APChannel);
constexpr uint16_t kChFreq = offsetof(SWirelessChannel, Frequency), kChBand = offsetof(SWirelessChannel, Band);
constexpr XmlField kHeadFields[] = {
    {u"EntityIndex", offsetof(Entry, EntityIndex), Kind::U32, When::Always},
    {u"RecentBSSIDStatIndex", offsetof(Entry, RecentBSSIDStatIndex), Kind::U32, When::Known},
    {u"RecentESSIDStatIndex", offsetof(Entry, RecentESSIDStatIndex), Kind::U32, When::Known},
    {u"FirstTimeSent", ZEMO_STAT(FirstTimeSent), Kind::U64, When::Sent},
    {u"LastTimeSent", ZEMO_STAT(LastTimeSent), Kind::U64, When::Sent},
    {u"PacketsSent", ZEMO_STAT(PacketsSent), Kind::U64, When::Sent},
    {u"BytesSent", ZEMO_STAT(BytesSent), Kind::U64, When::Sent},
    {u"BroadcastPackets", ZEMO_STAT(BroadcastPackets), Kind::U64, When::SentNonZero},
    {u"BroadcastBytes", ZEMO_STAT(BroadcastBytes), Kind::U64, When::SentNonZero},
    {u"MulticastPackets", ZEMO_STAT(MulticastPackets), Kind::U64, When::SentNonZero},
    {u"MulticastBytes", ZEMO_STAT(MulticastBytes), Kind::U64, When::SentNonZero},
    {u"MinPacketSizeSent", ZEMO_STAT(MinPacketSizeSent), Kind::U16, When::Sent},
    {u"MaxPacketSizeSent", ZEMO_STAT(MaxPacketSizeSent), Kind::U16, When::Sent},
    {u"RetryPackets", ZEMO_STAT(RetryPackets), Kind::U64, When::SentNonZero},
    {u"WEPPackets", ZEMO_STAT(WEPPackets), Kind::U64, When::SentNonZero},
    {u"BeaconPackets", ZEMO_STAT(BeaconPackets), Kind::U64, When::SentNonZero},
    {u"WEPICVErrors", ZEMO_STAT(WEPICVErrors), Kind::U64, When::SentNonZero},
    {u"PrivacyFlag", ZEMO_STAT(PrivacyFlag), Kind::U8, When::SentBeacon},
    {u"FirstTimeReceived", ZEMO_STAT(FirstTimeReceived), Kind::U64, When::Received},
    {u"LastTimeReceived", ZEMO_STAT(LastTimeReceived), Kind::U64, When::Received},
    {u"PacketsReceived", ZEMO_STAT(PacketsReceived), Kind::U64, When::Received},
    {u"BytesReceived", ZEMO_STAT(BytesReceived), Kind::U64, When::Received},
    {u"MinPacketSizeReceived", ZEMO_STAT(MinPacketSizeReceived), Kind::U16, When::Received},
    {u"MaxPacketSizeReceived", ZEMO_STAT(MaxPacketSizeReceived), Kind::U16, When::Received},
};
// "ESSID" stands between these two lists.
constexpr XmlField kTailFields[] = {
    {u"Type", ZEMO_STAT(Type), Kind::U8, When::NonZero},
    {u"EncryptionType", ZEMO_STAT(EncryptionType), Kind::U8, When::NonZero},
    {u"AuthenticationType", ZEMO_STAT(AuthenticationType), Kind::U8, When::NonZero},
    {u"DSChNum", kDS, Kind::I16, When::Channel},
    {u"DSChFreq", static_cast<uint16_t>(kDS + kChFreq), Kind::U32, When::Channel},
    {u"DSChBand", static_cast<uint16_t>(kDS + kChBand), Kind::U32, When::Channel},
    {u"APChNum", kAP, Kind::I16, When::Channel},
    {u"APChFreq", static_cast<uint16_t>(kAP + kChFreq), Kind::U32, When::Channel},
    {u"APChBand", static_cast<uint16_t>(kAP + kChBand), Kind::U32, When::Channel},
    {u"WEPKey", ZEMO_STAT(WEPKey), Kind::U8, When::NonZero},
    {u"Trust", ZEMO_STAT(Trust), Kind::U8, When::NonZero},
    {u"SignalMin", ZEMO_STAT(SignalMin), Kind::U8, When::Sent},
    {u"SignalMax", ZEMO_STAT(SignalMax), Kind::U8, When::Sent},
    {u"SignalCurrent", ZEMO_STAT(SignalCurrent), Kind::U8, When::Sent},
    {u"NoiseMin", ZEMO_STAT(NoiseMin), Kind::U8, When::Sent},
    {u"NoiseMax", ZEMO_STAT(NoiseMax), Kind::U8, When::Sent},
    {u"NoiseCurrent", ZEMO_STAT(NoiseCurrent), Kind::U8, When::Sent},
    {u"SignaldBmMin", ZEMO_STAT(SignaldBmMin), Kind::I16, When::DbmReading},
    {u"SignaldBmMax", ZEMO_STAT(SignaldBmMax), Kind::I16, When::DbmReading},
    {u"SignaldBmCurrent", ZEMO_STAT(SignaldBmCurrent), Kind::I16, When::DbmReading},
    {u"NoisedBmMin", ZEMO_STAT(NoisedBmMin), Kind::I16, When::DbmReading},
    {u"NoisedBmMax", ZEMO_STAT(NoisedBmMax), Kind::I16, When::DbmReading},
    {u"NoisedBmCurrent", ZEMO_STAT(NoisedBmCurrent), Kind::I16, When::DbmReading},
    {u"BeaconsContainESSID", ZEMO_STAT(BeaconsContainESSID), Kind::U8, When::Sent},
    {u"AdHocBaseStation", ZEMO_STAT(AdHocBaseStation), Kind::U8, When::Sent},
};
#undef ZEMO_STAT

template <class T>
T FieldAt(const Entry& e, uint16_t offset) {
  T v;
  std::memcpy(&v, reinterpret_cast<const uint8_t*>(&e) + offset, sizeof v);
  return v;
}

int64_t FieldValue(const Entry& e, const XmlField& f) {
  switch (f.kind) {
    case Kind::U8: return FieldAt<uint8_t>(e, f.offset);
    case Kind::U16: return FieldAt<uint16_t>(e, f.offset);
    case Kind::I16: return FieldAt<int16_t>(e, f.offset);
    case Kind::U32: return FieldAt<uint32_t>(e, f.offset);
    case Kind::U64: return static_cast<int64_t>(FieldAt<uint64_t>(e, f.offset));
  }
  return 0;
}

bool Written(const Entry& e, const XmlField& f) {
  const Stat& s = e.Stat;
  const bool sent = s.FirstTimeSent != 0;
  const int64_t v = FieldValue(e, f);
  switch (f.when) {
    case When::Always: return true;
    case When::Known: return static_cast<uint32_t>(v) != kNone;
    case When::Sent: return sent;
    case When::SentNonZero: return sent && v != 0;
    case When::SentBeacon: return sent && s.BeaconPackets > 0;
    case When::Received: return s.FirstTimeReceived != 0;
    case When::NonZero: return v != 0;
    case When::DbmReading: return v != kNoDbm;
    case When::Channel: {
      const uint16_t base = f.offset == kDS || f.offset == kDS + kChFreq || f.offset == kDS + kChBand ? kDS : kAP;
      return !(FieldAt<SWirelessChannel>(e, base) == SWirelessChannel{0, 0, 0});
    }
  }
  return false;
}

void PutField(IXMLDOMDocument* doc, IXMLDOMNode* parent, const Entry& e, const XmlField& f) {
  switch (f.kind) {
    case Kind::U8: return SetChildText(doc, parent, f.name, FieldAt<uint8_t>(e, f.offset));
    case Kind::U16: return SetChildText(doc, parent, f.name, FieldAt<uint16_t>(e, f.offset));
    case Kind::I16: return SetChildText(doc, parent, f.name, FieldAt<int16_t>(e, f.offset));
    case Kind::U32: return SetChildText(doc, parent, f.name, FieldAt<uint32_t>(e, f.offset));
    case Kind::U64: return SetChildText(doc, parent, f.name, FieldAt<uint64_t>(e, f.offset));
  }
}

template <class T>
void TakeAt(IXMLDOMNode* node, std::u16string_view name, Entry& e, uint16_t offset) {
  T v;
  if (GetChildText(node, name, v)) std::memcpy(reinterpret_cast<uint8_t*>(&e) + offset, &v, sizeof v);
}

void TakeField(IXMLDOMNode* node, Entry& e, const XmlField& f) {
  switch (f.kind) {
    case Kind::U8: return TakeAt<uint8_t>(node, f.name, e, f.offset);
    case Kind::U16: return TakeAt<uint16_t>(node, f.name, e, f.offset);
    case Kind::I16: return TakeAt<int16_t>(node, f.name, e, f.offset);
    case Kind::U32: return TakeAt<uint32_t>(node, f.name, e, f.offset);
    case Kind::U64: return TakeAt<uint64_t>(node, f.name, e, f.offset);
  }
}

// A name as two upper-case hexadecimal digits for each byte, and back.
std::u16string NameHex(const uint8_t* bytes, size_t length) { return HexText16(bytes, length); }
ByteString NameFromHex(std::u16string_view text) {
  if (text.size() % 2 != 0 || text.size() / 2 > ByteString::MAX_BYTE_COUNT) AtlThrow(E_FAIL);
  uint8_t bytes[ByteString::MAX_BYTE_COUNT];
  for (size_t i = 0; i < text.size() / 2; ++i) {
    const int hi = HexDigitValue(text[2 * i]), lo = HexDigitValue(text[2 * i + 1]);
    if (hi < 0 || lo < 0) AtlThrow(E_FAIL);
    bytes[i] = static_cast<uint8_t>(hi * 16 + lo);
  }
  return ByteString(bytes, text.size() / 2);
}

ComPtr<IXMLDOMElement> Required(IXMLDOMNode* node, std::u16string_view name) {
  ComPtr<IXMLDOMElement> e = SelectXmlElement(node, name);
  if (!e) AtlThrow(E_FAIL);
  return e;
}

template <class T>
T RequiredText(IXMLDOMNode* node, std::u16string_view name) {
  T v{};
  if (!GetChildText(node, name, v)) AtlThrow(E_FAIL);
  return v;
}

int ShownDbm(int16_t dbm) { return dbm == kNoDbm ? 0 : dbm; }

std::string TimeText(ZemoTime t) { return t ? LocalDateTime(t) : std::string(); }

}  // namespace

WirelessNodeStats::WirelessNodeStats() : m_records(sizeof(Entry), 32) {
  std::fill(std::begin(m_heads), std::end(m_heads), kNone);
}

HRESULT WirelessNodeStats::FinalConstruct() {
  return Boundary([&] { m_associations = WirelessNodeAssociationTable::Create(); });
}

// --- tables ---

void WirelessNodeStats::Clear() {
  std::fill(std::begin(m_heads), std::end(m_heads), kNone);
  m_keys.Clear();
  m_records.Clear();
  m_unknownBSSID = m_unknownESSID = kNone;
  m_essids.RemoveAll();
  m_rateChangeCount = 0;
  WirelessAssociationSet& set = m_associations->Set();
  set.Clear();
  set.Touch();
  m_rows.clear();
  m_rowsInUse = 0;
}

uint32_t WirelessNodeStats::FindNode(uint32_t key) const noexcept { return m_keys.Find(key, CKeyIndex::AnyRecord{}); }

uint32_t WirelessNodeStats::AddNode(uint32_t key) {
  m_keys.Reserve();
  void* p = m_records.Append();
  const uint32_t index = m_records.GetCount() - 1;
  Entry& e = *static_cast<Entry*>(p);
  InitEntry(e, key);
  e.Next = m_heads[key % kHeads];
  m_heads[key % kHeads] = index;
  m_keys.Insert(key, index);
  return index;
}

uint32_t WirelessNodeStats::FindOrAddNode(uint32_t key) {
  const uint32_t n = FindNode(key);
  return n != kNone ? n : AddNode(key);
}

uint32_t WirelessNodeStats::NodeOfAddress(const MediaSpec& spec) {
  ULONG id = kNone;
  CheckHr(m_entities->FindOrAdd(&spec, 1, &id));
  return FindOrAddNode(id);
}

uint32_t WirelessNodeStats::GetBSSIDIndex(const MediaSpec& spec) {
  if (!IsValidSpec(spec) || IsBroadcast(spec) || !m_entities) return kNone;
  ULONG id = kNone;
  if (FAILED(m_entities->FindOrAdd(&spec, 1, &id))) return kNone;
  const uint32_t n = FindOrAddNode(id);
  Entry& e = Rec(n);
  if (e.RecentBSSIDStatIndex == kNone || e.RecentBSSIDStatIndex == m_unknownBSSID) e.RecentBSSIDStatIndex = n;
  if (e.RecentESSIDStatIndex == kNone) SetNodeESSID(n, UnknownESSIDName());
  return n;
}

uint32_t WirelessNodeStats::UnknownBSSID() {
  if (m_unknownBSSID == kNone) {
    const uint32_t n = GetBSSIDIndex(UnknownBSSIDSpec());
    if (n != kNone) {
      Rec(n).Stat.Type = kNodeTypeAP;
      m_unknownBSSID = n;
    }
  }
  return m_unknownBSSID;
}

uint32_t WirelessNodeStats::UnknownESSID() {
  if (m_unknownESSID == kNone) m_unknownESSID = GetESSIDIndex(UnknownESSIDName());
  return m_unknownESSID;
}

uint32_t WirelessNodeStats::GetESSIDIndex(const ByteString& name) {
  if (const uint32_t* found = m_essids.Lookup(name)) return *found;
  const uint32_t n = AddNode(m_essids.GetCount());
  m_essids.SetAt(name, n);
  Entry& e = Rec(n);
  e.RecentESSIDStatIndex = n;
  std::memcpy(e.Stat.ESSID, name.GetBytes(), name.GetByteCount());
  e.Stat.ESSIDLength = name.GetByteCount();
  e.Stat.Type = kNodeTypeESSID;
  return n;
}

void WirelessNodeStats::SetNodeESSID(uint32_t index, const ByteString& name) {
  Entry* e = index == kNone ? nullptr : Get(index);
  if (!e) return;
  if (e->RecentESSIDStatIndex != kNone && e->Stat.ESSIDLength == name.GetByteCount() &&
      std::memcmp(e->Stat.ESSID, name.GetBytes(), name.GetByteCount()) == 0)
    return;
  std::memset(e->Stat.ESSID, 0, sizeof e->Stat.ESSID);
  std::memcpy(e->Stat.ESSID, name.GetBytes(), name.GetByteCount());
  e->Stat.ESSIDLength = name.GetByteCount();
  const uint32_t essid = GetESSIDIndex(name);
  Rec(index).RecentESSIDStatIndex = essid;
}

void WirelessNodeStats::AddRate(ULONG rate, bool counted) {
  auto at = std::lower_bound(m_rates.begin(), m_rates.end(), rate);
  if (at != m_rates.end() && *at == rate) return;
  m_rates.insert(at, rate);
  if (counted) ++m_rateChangeCount;
}

// Rows of this generation stand in descending order of rate.
void WirelessNodeStats::CountRate(uint32_t index, uint32_t rate, USHORT length) {
  if (m_rows.size() <= index) m_rows.resize(index + 1);
  std::unique_ptr<Row>& row = m_rows[index];
  if (!row) {
    row = std::make_unique<Row>();
    ++m_rowsInUse;
  }
  auto at = row->begin();
  for (; at != row->end(); ++at) {
    if (at->Rate == rate) {
      at->Pkts += 1;
      at->Bytes += length;
      return;
    }
    if (at->Rate < rate) break;
  }
  row->insert(at, ZemoWirelessNodeDataRateStat{rate, 1, length});
}

// The hash map's walk order follows its history; the forms list the names
// by record index, then bytes, so that a load saves as it came.
std::vector<std::pair<uint32_t, const ByteString*>> WirelessNodeStats::NamesInOrder() const {
  std::vector<std::pair<uint32_t, const ByteString*>> names;
  names.reserve(m_essids.GetCount());
  for (const auto& pair : m_essids) names.emplace_back(pair.m_value, &pair.m_key);
  std::sort(names.begin(), names.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first < b.first : *a.second < *b.second;
  });
  return names;
}

ZemoWirelessNodeStatEntry WirelessNodeStats::Record(uint32_t index) {
  const Entry* e = Get(index);
  if (!e) AtlThrow(E_INVALIDARG);
  Entry copy = *e;
  if (m_book && copy.Stat.Type != kNodeTypeESSID && index != m_unknownBSSID) {
    copy.Stat.Trust = 0;
    MediaSpec spec{};
    ZemoNameTableEntry entry{};
    BOOL found = FALSE;
    if (m_entities && SUCCEEDED(m_entities->GetEntity(copy.EntityIndex, &spec, nullptr)) &&
        SUCCEEDED(m_book->Lookup(&spec, &entry, &found)) && entry.Name[0] != 0)
      copy.Stat.Trust = entry.Trust;
  }
  return copy;
}

// --- the packet ---

HRESULT WirelessNodeStats::ProcessPacket(IPacket* packet) {
  return Locked([&] { return Process(packet); });
}

HRESULT WirelessNodeStats::Process(IPacket* p) {
  if (!p) return E_POINTER;
  if (!PacketTest(p, &IPacket::IsWireless)) return S_FALSE;
  USHORT length = 0;
  CheckHr(p->GetPacketLength(&length));
  if (PacketTest(p, &IPacket::IsError)) return S_FALSE;
  ZemoTime time = 0;
  ULONG flags = 0, proto = 0;
  const BYTE* data = nullptr;
  USHORT captured = 0;
  CheckHr(p->GetTimeStamp(&time));
  CheckHr(p->GetFlags(&flags));
  CheckHr(p->GetPacketData(&data));
  CheckHr(p->GetCaptureLength(&captured));
  CheckHr(p->GetProtoSpecId(&proto));
  const uint16_t kind = static_cast<uint16_t>(proto);
  ComPtr<IWirelessPacket> radio;
  if (FAILED(QueryTo(p, &radio))) return E_NOINTERFACE;
  USHORT rate = 0;
  SWirelessChannel channel{0, 0, 0};
  CheckHr(radio->GetDataRate(&rate));
  CheckHr(radio->GetChannel(&channel));
  ComPtr<IPacketAddresses> addresses;
  CheckHr(QueryTo(p, &addresses));
  MediaSpec transmitter, receiver;
  ReadRadioPair(addresses.Get(), &transmitter, &receiver);
  const MediaSpec bssidSpec = PacketAddressOr(addresses.Get(), &IPacketAddresses::GetBSSID);
  if (IsGroupAddress(transmitter)) transmitter.fClass = transmitter.fType = 0;
  const uint32_t bssid = GetBSSIDIndex(bssidSpec);
  if (!data) captured = 0;

  if (IsValidSpec(transmitter) && m_entities) {
    const uint32_t n = NodeOfAddress(transmitter);
    {
      Entry& e = Rec(n);
      Stat& s = e.Stat;
      if (bssid != kNone)
        e.RecentBSSIDStatIndex = bssid;
      else if (e.RecentBSSIDStatIndex == kNone)
        e.RecentBSSIDStatIndex = UnknownBSSID();
      s.LastTimeSent = time;
      if (s.FirstTimeSent == 0) s.FirstTimeSent = time;
      s.PacketsSent += 1;
      s.BytesSent += length;
      if (IsValidSpec(receiver)) {
        if (IsBroadcast(receiver)) s.BroadcastPackets += 1, s.BroadcastBytes += length;
        if (IsMulticast(receiver)) s.MulticastPackets += 1, s.MulticastBytes += length;
      }
      if (length > s.MaxPacketSizeSent) s.MaxPacketSizeSent = length;
      if (length < s.MinPacketSizeSent) s.MinPacketSizeSent = length;
      if (captured >= 2) {
        if (data[1] & 0x08) s.RetryPackets += 1;
        if ((data[1] & 0x40) || (flags & 0x4)) s.WEPPackets += 1;
      }
    }
    AddRate(rate, true);
    CountRate(n, rate, length);
    Entry& e = Rec(n);
    Stat& s = e.Stat;
    s.DSChannel = channel;
    BYTE percent = 0;
    int8_t dbm = kNoDbmReading;
    CheckHr(radio->GetSignalPercent(&percent));
    CheckHr(radio->GetSignalDBm(&dbm));
    uint8_t min = s.SignalMin, max = s.SignalMax, current = s.SignalCurrent;
    FoldPercent(min, max, current, percent);
    s.SignalMin = min, s.SignalMax = max, s.SignalCurrent = current;
    int16_t dmin = s.SignaldBmMin, dmax = s.SignaldBmMax, dcur = s.SignaldBmCurrent;
    FoldDbm(dmin, dmax, dcur, dbm);
    s.SignaldBmMin = dmin, s.SignaldBmMax = dmax, s.SignaldBmCurrent = dcur;
    CheckHr(radio->GetNoisePercent(&percent));
    CheckHr(radio->GetNoiseDBm(&dbm));
    min = s.NoiseMin, max = s.NoiseMax, current = s.NoiseCurrent;
    FoldPercent(min, max, current, percent);
    s.NoiseMin = min, s.NoiseMax = max, s.NoiseCurrent = current;
    dmin = s.NoisedBmMin, dmax = s.NoisedBmMax, dcur = s.NoisedBmCurrent;
    FoldDbm(dmin, dmax, dcur, dbm);
    s.NoisedBmMin = dmin, s.NoisedBmMax = dmax, s.NoisedBmCurrent = dcur;

    bool usable = false;
    const uint32_t essid = ParseManagementBody(n, bssid, kind, data, captured, length, &usable);
    Stat& t = Rec(n).Stat;
    if (t.AdHocBaseStation) {
      t.Type = kNodeTypeAdHoc;
    } else if (t.BeaconPackets > 0) {
      t.Type = kNodeTypeAP;
    } else if (transmitter.fData[0] & 1) {
      t.Type = kNodeTypeGroup;
    } else if (IsValidSpec(bssidSpec) && SpecsEqual(bssidSpec, transmitter)) {
      t.Type = kNodeTypeAP;
      if (t.BeaconPackets == 0)
        t.APChannel = channel.Frequency > 0 && channel.Band > 0 ? channel : MakeLegacyChannel(channel.Channel);
    } else {
      t.Type = kNodeTypeSTA;
    }
    if (flags & 0x8) t.WEPICVErrors += 1;
    if (kind == kFrameBeacon) t.BeaconsContainESSID = usable ? 1 : 0;
    DetectSecurity(p, t, kind, flags);
    RecordAssociation(m_associations->Set(), essid, bssid, n, kind);
  }

  if (IsValidSpec(receiver) && m_entities) {
    const uint32_t n = NodeOfAddress(receiver);
    Entry& e = Rec(n);
    Stat& s = e.Stat;
    s.LastTimeReceived = time;
    if (s.FirstTimeReceived == 0) s.FirstTimeReceived = time;
    s.PacketsReceived += 1;
    s.BytesReceived += length;
    if (length > s.MaxPacketSizeReceived) s.MaxPacketSizeReceived = length;
    if (length < s.MinPacketSizeReceived) s.MinPacketSizeReceived = length;
    if (e.RecentBSSIDStatIndex == kNone) e.RecentBSSIDStatIndex = UnknownBSSID();
    Stat& t = Rec(n).Stat;
    t.DSChannel = channel;
    if (receiver.fData[0] & 1) t.Type = kNodeTypeGroup;
    DetectReceiverSecurity(p, t, kind);
  }
  return S_OK;
}

uint32_t WirelessNodeStats::ParseManagementBody(uint32_t n, uint32_t bssid, uint16_t kind, const BYTE* data,
                                                USHORT captured, USHORT length, bool* usable) {
  const bool reply = kind == kFrameBeacon || kind == kFrameProbeResponse;
  if (!reply && kind != kFrameProbeRequest) return kNone;
  Stat& s = Rec(n).Stat;
  if (kind == kFrameBeacon) s.BeaconPackets += 1;
  if (reply && data && captured > 0x22) {
    const uint8_t c = data[0x22];
    if (s.BeaconPackets > 0) s.PrivacyFlag = (c >> 4) & 1;
    s.AdHocBaseStation = ((c & 0x01) == 0 && (c & 0x02) != 0) ? 1 : 0;
  }
  uint32_t essid = kNone;
  // Elements only of a packet captured whole.
  if (!data || length != captured) return essid;
  const uint32_t start = reply ? 0x24 : 0x18;
  if (captured < start + 4) return essid;
  const uint32_t limit = captured - start - 4;
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
      if (len == 1) Rec(n).Stat.APChannel = MakeLegacyChannel(body[pos]);
    } else if (len > 0) {
      const size_t size = std::min<size_t>(len, ByteString::MAX_BYTE_COUNT);
      if (IsUsableESSID(body + pos, size)) {
        const ByteString name(body + pos, size);
        if (reply) SetNodeESSID(bssid, name);
        essid = GetESSIDIndex(name);
        *usable = true;
      }
    }
    ++taken;
    pos += len;
  }
  return essid;
}

void WirelessNodeStats::DetectSecurity(IPacket* p, Stat& s, uint16_t kind, ULONG flags) {
  if ((flags & 0x4) && s.EncryptionType == 0) s.EncryptionType = 1;
  if (kind != kProtoTkipOrWep && kind != kProtoEapResponse) return;
  ComPtr<IPacketFields> fields;
  CheckHr(QueryTo(p, &fields));
  const BYTE* f = nullptr;
  USHORT n = 0;
  if (kind == kProtoTkipOrWep) {
    CheckHr(fields->GetFieldById(kProtoTkipOrWep, 0, &f, &n));
    if (!f || n < 4) return;
    const uint8_t k = f[3];
    if (k & 0x20) {
      s.EncryptionType = 3;
      s.WEPKey = static_cast<uint8_t>((k + 1) & 3);
    } else {
      s.EncryptionType = 1;
      s.WEPKey = static_cast<uint8_t>((k >> 6) + 1);
    }
  } else {
    CheckHr(fields->GetHeaderFieldById(kProtoEapResponse, 0, &f, &n));
    if (!f || n <= 4 || f[0] != 2) return;
    switch (f[4]) {
      case 13: s.AuthenticationType = 4; break;
      case 17: s.AuthenticationType = 2; break;
      case 25: s.AuthenticationType = 3; break;
      default: break;
    }
  }
}

void WirelessNodeStats::DetectReceiverSecurity(IPacket* p, Stat& s, uint16_t kind) {
  if (kind != kProtoCiscoElement) return;
  ComPtr<IPacketFields> fields;
  CheckHr(QueryTo(p, &fields));
  const BYTE* f = nullptr;
  USHORT n = 0;
  CheckHr(fields->GetHeaderFieldById(kProtoCiscoElement, 0, &f, &n));
  if (f && n >= 11 && f[0] == 133 && f[1] >= 27 && (f[10] & 0x18) != 0) s.EncryptionType = 2;
}

// --- reads ---

HRESULT WirelessNodeStats::GetEntityTable(IEntityTable** table) {
  return Locked([&] {
    CheckOut(table);
    m_entities.CopyTo(table);
  });
}

HRESULT WirelessNodeStats::GetAssociationTable(IWirelessNodeAssociationTable** table) {
  return Locked([&] {
    CheckOut(table);
    ComPtr<IWirelessNodeAssociationTable> t(m_associations.Get());
    *table = t.Detach();
  });
}

HRESULT WirelessNodeStats::GetNodeCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_records.GetCount();
  });
}

HRESULT WirelessNodeStats::GetRateChangeCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_rateChangeCount;
  });
}

HRESULT WirelessNodeStats::GetUnknownBSSIDIndex(ULONG* index) {
  return Locked([&] {
    CheckOut(index);
    *index = UnknownBSSID();
  });
}

HRESULT WirelessNodeStats::GetUnknownESSIDIndex(ULONG* index) {
  return Locked([&] {
    CheckOut(index);
    *index = UnknownESSID();
  });
}

HRESULT WirelessNodeStats::GetNodeIndex(ULONG entity, ULONG* index, BOOL* found) {
  return Locked([&] {
    CheckOut(index);
    CheckOut(found);
    *index = FindNode(entity);
    *found = *index != kNone;
  });
}

HRESULT WirelessNodeStats::GetNodeStat(ULONG index, ZemoWirelessNodeStatEntry* record) {
  return Locked([&] {
    CheckOut(record);
    *record = Record(index);
  });
}

HRESULT WirelessNodeStats::GetTotals(ZemoWirelessNodeTotals* out) {
  return Locked([&] {
    CheckOut(out);
    std::memset(out, 0, sizeof *out);
    const WirelessAssociationSet& set = m_associations->Set();
    const bool changed = m_cachedChangeCount != set.ChangeCount();
    const uint32_t unknownBSSID = UnknownBSSID();
    const uint32_t unknownESSID = UnknownESSID();
    auto byTrust = [](uint8_t trust, ULONG& trusted, ULONG& known, ULONG& unknown) {
      (trust == 2 ? trusted : trust == 1 ? known : unknown) += 1;
    };
    std::vector<uint32_t> adHocNetworks;
    for (uint32_t i = 0; i < m_records.GetCount(); ++i) {
      if (i == unknownESSID || i == unknownBSSID) continue;
      const Entry e = Record(i);
      const Stat& s = e.Stat;
      if (s.Type == kNodeTypeESSID) {
        if (changed) (set.ContainsMatch({i, kNone, kNone, kStrengthFirm}) ? out->ESSIDs : out->ESSIDsWithoutAssociation) += 1;
        continue;
      }
      if (s.AdHocBaseStation) {
        byTrust(s.Trust, out->TrustedAdHocStations, out->KnownAdHocStations, out->UnknownAdHocStations);
        out->Stations += 1;
        if (std::find(adHocNetworks.begin(), adHocNetworks.end(), +e.RecentBSSIDStatIndex) == adHocNetworks.end()) {
          adHocNetworks.push_back(+e.RecentBSSIDStatIndex);
          out->AdHocNetworks += 1;
        }
      }
      if (s.Type == kNodeTypeAP && e.RecentBSSIDStatIndex != unknownBSSID) {
        out->AccessPoints += 1;
        byTrust(s.Trust, out->TrustedAccessPoints, out->KnownAccessPoints, out->UnknownAccessPoints);
      } else if (s.Type == kNodeTypeSTA) {
        out->Stations += 1;
        byTrust(s.Trust, out->TrustedStations, out->KnownStations, out->UnknownStations);
      }
    }
    if (changed) {
      if (out->AdHocNetworks <= out->ESSIDs) out->ESSIDs -= out->AdHocNetworks;
      m_cachedChangeCount = set.ChangeCount();
      m_cachedESSIDs = out->ESSIDs;
      m_cachedESSIDsWithout = out->ESSIDsWithoutAssociation;
    } else {
      out->ESSIDs = m_cachedESSIDs;
      out->ESSIDsWithoutAssociation = m_cachedESSIDsWithout;
    }
  });
}

HRESULT WirelessNodeStats::GetDataRates(ULONG** rates, ULONG* count) {
  return Locked([&] {
    CheckOut(rates);
    CheckOut(count);
    GiveTaskArray(std::span<const ULONG>(m_rates), rates, count);
  });
}

HRESULT WirelessNodeStats::GetNodeDataRates(ULONG index, ZemoWirelessNodeDataRateStat** rates, ULONG* count) {
  return Locked([&] {
    CheckOut(rates);
    CheckOut(count);
    if (index >= m_rows.size() || m_rowsInUse == 0) AtlThrow(E_INVALIDARG);
    const Row* row = m_rows[index].get();
    GiveTaskArray(row ? std::span<const ZemoWirelessNodeDataRateStat>(*row)
                      : std::span<const ZemoWirelessNodeDataRateStat>(),
                  rates, count);
  });
}

// --- IZemoStats ---

HRESULT WirelessNodeStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] {
    CheckOut(context);
    *context = m_context;
    if (m_context) m_context->AddRef();
  });
}

HRESULT WirelessNodeStats::SetContext(IZemoStatsContext* context) {
  return Boundary([&]() -> HRESULT {
    ComPtr<IEntityTable> entities;
    ComPtr<INameTable> book;
    if (context) {
      CheckHr(context->GetEntityTable(entities.ReleaseAndGetAddressOf()));
      book = COMGlue::AddressBookOf(context);
    }
    return Locked([&] {
      m_context = context;
      m_entities = entities;
      m_book = book;
    });
  });
}

// The data rates stay.
HRESULT WirelessNodeStats::Reset() {
  return Locked([&] { Clear(); });
}

// --- the stream ---

HRESULT WirelessNodeStats::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_WirelessNodeStats;
  });
}

void WirelessNodeStats::SaveStream(IStream* stream) {
  m_associations->Set().Save(stream);
  WriteValue(stream, m_rateChangeCount);
  WriteValue(stream, static_cast<uint32_t>(m_rates.size()));
  WriteRecords(stream, std::span<const ULONG>(m_rates));
  WriteValue(stream, m_unknownBSSID);
  WriteValue(stream, m_unknownESSID);
  WriteValue(stream, m_essids.GetCount());
  for (const auto& [index, name] : NamesInOrder()) {
    WriteValue(stream, index);
    WriteValue(stream, name->GetByteCount());
    uint8_t bytes[ByteString::MAX_BYTE_COUNT] = {};
    std::memcpy(bytes, name->GetBytes(), name->GetByteCount());
    WriteBytes(stream, bytes, sizeof bytes);
  }
  WriteValue(stream, m_records.GetCount());
  for (uint32_t i = 0; i < m_records.GetCount(); ++i) {
    const Entry& e = Rec(i);
    WriteValue(stream, e.EntityIndex);
    WriteValue(stream, e.RecentBSSIDStatIndex);
    WriteValue(stream, e.RecentESSIDStatIndex);
    WriteValue(stream, e.Stat);
  }
  WriteValue(stream, m_rowsInUse);
  WriteValue(stream, static_cast<uint32_t>(m_rows.size()));
  for (uint32_t i = 0; i < m_rows.size(); ++i)
    if (const Row* row = m_rows[i].get()) {
      WriteValue(stream, i);
      WriteValue(stream, static_cast<uint32_t>(row->size()));
      WriteRecords(stream, std::span<const ZemoWirelessNodeDataRateStat>(*row));
    }
}

// What was read stays when the stream ends early. The rows' array grows
// with the rows that arrive, never to the size the stream claims.
void WirelessNodeStats::LoadStream(IStream* stream) {
  if (!stream) AtlThrow(E_POINTER);
  Clear();
  m_associations->Set().Load(stream);
  m_rateChangeCount = ReadValue<uint32_t>(stream);
  m_rates.clear();
  const std::vector<ULONG> rates = ReadRecordArray<ULONG>(stream, ReadValue<uint32_t>(stream));
  m_rates.assign(rates.begin(), rates.end());
  m_unknownBSSID = ReadValue<uint32_t>(stream);
  m_unknownESSID = ReadValue<uint32_t>(stream);
  const auto names = ReadValue<uint32_t>(stream);
  for (uint32_t k = 0; k < names; ++k) {
    const auto index = ReadValue<uint32_t>(stream);
    const auto length = ReadValue<uint8_t>(stream);
    uint8_t name[ByteString::MAX_BYTE_COUNT];
    ReadBytes(stream, name, sizeof name);
    if (length > ByteString::MAX_BYTE_COUNT) AtlThrow(E_FAIL);
    m_essids.SetAt(ByteString(name, length), index);
  }
  const auto records = ReadValue<uint32_t>(stream);
  for (uint32_t k = 0; k < records; ++k) {
    const auto key = ReadValue<uint32_t>(stream);
    const auto bssid = ReadValue<uint32_t>(stream);
    const auto essid = ReadValue<uint32_t>(stream);
    const auto stat = ReadValue<Stat>(stream);
    Entry& e = Rec(FindOrAddNode(key));
    e.RecentBSSIDStatIndex = bssid;
    e.RecentESSIDStatIndex = essid;
    e.Stat = stat;
  }
  const auto inUse = ReadValue<uint32_t>(stream);
  const auto size = ReadValue<uint32_t>(stream);
  for (uint32_t k = 0; k < inUse; ++k) {
    const auto index = ReadValue<uint32_t>(stream);
    // A row of no record is as malformed as one past the stored size.
    if (index >= size || index >= m_records.GetCount()) AtlThrow(E_INVALIDARG);
    std::vector<ZemoWirelessNodeDataRateStat> entries =
        ReadRecordArray<ZemoWirelessNodeDataRateStat>(stream, ReadValue<uint32_t>(stream));
    if (m_rows.size() <= index) m_rows.resize(index + 1);
    if (!m_rows[index]) ++m_rowsInUse;
    m_rows[index] = std::make_unique<Row>(std::move(entries));
  }
}

HRESULT WirelessNodeStats::Load(IStream* stream) {
  return Locked([&] { LoadStream(stream); });
}

HRESULT WirelessNodeStats::SaveDeltas(IStream* stream, ZemoTime* since) {
  return Locked([&] {
    if (!stream || !since) AtlThrow(E_POINTER);
    SaveStream(stream);
  });
}

// --- XML ---

void WirelessNodeStats::SaveXml(IUnknown* document, IUnknown* node, ZemoTime since) {
  ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
  ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
  ComPtr<IXMLDOMElement> top = CreateChildElement(doc.Get(), parent.Get(), u"WirelessNodeStats");
  WirelessNodeAssociationTable::SaveXml(m_associations->Set(), doc.Get(), top.Get());

  ComPtr<IXMLDOMElement> info = CreateChildElement(doc.Get(), top.Get(), u"WirelessDataRateInfo");
  SetChildText(doc.Get(), info.Get(), u"DataRateChange", m_rateChangeCount);
  ComPtr<IXMLDOMElement> rates = CreateChildElement(doc.Get(), info.Get(), u"DataRates");
  for (ULONG r : m_rates) SetChildText(doc.Get(), rates.Get(), u"Rate", r);

  ComPtr<IXMLDOMElement> names = CreateChildElement(doc.Get(), top.Get(), u"WirelessNodeESSIDTable");
  for (const auto& [index, name] : NamesInOrder()) {
    ComPtr<IXMLDOMElement> e = CreateChildElement(doc.Get(), names.Get(), u"WirelessNodeESSID");
    SetChildText(doc.Get(), e.Get(), u"StatIndex", index);
    SetChildText(doc.Get(), e.Get(), u"ESSID", std::u16string_view(NameHex(name->GetBytes(), name->GetByteCount())));
  }

  ComPtr<IXMLDOMElement> table = CreateChildElement(doc.Get(), top.Get(), u"WirelessNodeStatTable");
  for (uint32_t i = 0; i < m_records.GetCount(); ++i) {
    const Entry& e = Rec(i);
    if (e.Stat.LastTimeSent < since && e.Stat.LastTimeReceived < since) continue;
    ComPtr<IXMLDOMElement> r = CreateChildElement(doc.Get(), table.Get(), u"WirelessNodeStat");
    for (const XmlField& f : kHeadFields)
      if (Written(e, f)) PutField(doc.Get(), r.Get(), e, f);
    if (e.Stat.ESSIDLength > 0)
      SetChildText(doc.Get(), r.Get(), u"ESSID",
                   std::u16string_view(NameHex(e.Stat.ESSID, std::min<size_t>(e.Stat.ESSIDLength, 32))));
    for (const XmlField& f : kTailFields)
      if (Written(e, f)) PutField(doc.Get(), r.Get(), e, f);
  }

  ComPtr<IXMLDOMElement> rows = CreateChildElement(doc.Get(), top.Get(), u"WirelessNodeStatDataRates");
  for (uint32_t i = 0; i < m_rows.size(); ++i) {
    const Row* row = m_rows[i].get();
    if (!row) continue;
    ComPtr<IXMLDOMElement> n = CreateChildElement(doc.Get(), rows.Get(), u"DataRateNode");
    SetChildText(doc.Get(), n.Get(), u"StatIndex", i);
    ComPtr<IXMLDOMElement> list = CreateChildElement(doc.Get(), n.Get(), u"Rates");
    for (const ZemoWirelessNodeDataRateStat& r : *row) {
      ComPtr<IXMLDOMElement> d = CreateChildElement(doc.Get(), list.Get(), u"DataRate");
      SetChildText(doc.Get(), d.Get(), u"Rate", static_cast<uint32_t>(r.Rate));
      SetChildText(doc.Get(), d.Get(), u"Pkts", static_cast<uint64_t>(r.Pkts));
      SetChildText(doc.Get(), d.Get(), u"Bytes", static_cast<uint64_t>(r.Bytes));
    }
  }
}

void WirelessNodeStats::LoadXml(IUnknown* document, IUnknown* node) {
  XmlDocumentOf(document);
  ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
  ComPtr<IXMLDOMElement> top = Required(parent.Get(), u"WirelessNodeStats");
  WirelessNodeAssociationTable::LoadXml(m_associations->Set(), document, top.Get());

  ComPtr<IXMLDOMElement> info = Required(top.Get(), u"WirelessDataRateInfo");
  m_rateChangeCount = RequiredText<uint32_t>(info.Get(), u"DataRateChange");
  ComPtr<IXMLDOMElement> rates = Required(info.Get(), u"DataRates");
  ForEachChildElement(rates.Get(), [&](IXMLDOMElement* r) {
    if (XmlElementName(r) != u"Rate") return;
    CBstr text;
    if (CheckHr(r->get_text(text.Out())) == S_FALSE) AtlThrow(E_FAIL);
    AddRate(FromXmlText(text.View(), VT_UI4).ulVal, false);
  });

  ComPtr<IXMLDOMElement> names = Required(top.Get(), u"WirelessNodeESSIDTable");
  ForEachChildElement(names.Get(), [&](IXMLDOMElement* n) {
    if (XmlElementName(n) != u"WirelessNodeESSID") return;
    const auto index = RequiredText<uint32_t>(n, u"StatIndex");
    m_essids.SetAt(NameFromHex(RequiredText<std::u16string>(n, u"ESSID")), index);
  });

  ComPtr<IXMLDOMElement> table = Required(top.Get(), u"WirelessNodeStatTable");
  ForEachChildElement(table.Get(), [&](IXMLDOMElement* r) {
    if (XmlElementName(r) != u"WirelessNodeStat") return;
    Entry& e = Rec(FindOrAddNode(RequiredText<uint32_t>(r, u"EntityIndex")));
    for (const XmlField& f : kHeadFields)
      if (f.when != When::Always) TakeField(r, e, f);
    std::u16string hex;
    if (GetChildText(r, u"ESSID", hex)) {
      const ByteString name = NameFromHex(hex);
      std::memset(e.Stat.ESSID, 0, sizeof e.Stat.ESSID);
      std::memcpy(e.Stat.ESSID, name.GetBytes(), name.GetByteCount());
      e.Stat.ESSIDLength = name.GetByteCount();
    }
    for (const XmlField& f : kTailFields) TakeField(r, e, f);
  });

  m_rows.clear();
  m_rowsInUse = 0;
  if (ComPtr<IXMLDOMElement> rows = SelectXmlElement(top.Get(), u"WirelessNodeStatDataRates")) {
    ForEachChildElement(rows.Get(), [&](IXMLDOMElement* n) {
      if (XmlElementName(n) != u"DataRateNode") return;
      const auto index = RequiredText<uint32_t>(n, u"StatIndex");
      if (index >= m_records.GetCount()) AtlThrow(E_FAIL);
      auto row = std::make_unique<Row>();
      if (ComPtr<IXMLDOMElement> list = SelectXmlElement(n, u"Rates"))
        ForEachChildElement(list.Get(), [&](IXMLDOMElement* d) {
          ZemoWirelessNodeDataRateStat r{0, 0, 0};
          uint32_t rate = 0;
          uint64_t pkts = 0, bytes = 0;
          GetChildText(d, u"Rate", rate);
          GetChildText(d, u"Pkts", pkts);
          GetChildText(d, u"Bytes", bytes);
          r.Rate = rate, r.Pkts = pkts, r.Bytes = bytes;
          row->push_back(r);
        });
      if (m_rows.size() <= index) m_rows.resize(index + 1);
      if (!m_rows[index]) ++m_rowsInUse;
      m_rows[index] = std::move(row);
    });
  }
}

HRESULT WirelessNodeStats::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] { LoadXml(document, node); });
}

HRESULT WirelessNodeStats::SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) {
  return Locked([&] {
    if (!since) AtlThrow(E_POINTER);
    SaveXml(document, node, *since);
  });
}

// --- the text export ---

HRESULT WirelessNodeStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] {
    CheckExportExtension(fileName, kExportTxt);
    return WriteTextFile(fileName, FileOpenStyle::Runtime, [&](TextWriter& out) {
      out.Text(
          "Node\tESSID\tType\tChannelNumber\tChannelFreq\tChannelBand\tAuthentication\tEncryption\tTrust\tMin. "
          "Signal\tCur. Signal\tMax. Signal\tMin. Noise\tCur. Noise\tMax. Noise\tMin. Signal dBm\tCur. Signal "
          "dBm\tMax. Signal dBm\tMin. Noise dBm\tCur. Noise dBm\tMax. Noise dBm\tBytes Sent\tBytes Received\tTotal "
          "Bytes\tRetry Packets\tBroadcast Packets\tBroadcast Bytes\tMulticast Packets\tMulticast Bytes\tMin. Size "
          "Sent\tMax. Size Sent\tAvg. Size Sent\tMin. Size Received\tMax. Size Received\tAvg. Size Received\tFirst "
          "Time Sent\tLast Time Sent\tFirst Time Received\tLast Time Received\tDuration\n");
      for (uint32_t i = 0; i < m_records.GetCount(); ++i) {
        const Entry e = Record(i);
        const Stat& s = e.Stat;
        char node[18] = "";
        MediaSpec spec{};
        if (m_entities && SUCCEEDED(m_entities->GetEntity(e.EntityIndex, &spec, nullptr)))
          std::snprintf(node, sizeof node, "%2.2X:%2.2X:%2.2X:%2.2X:%2.2X:%2.2X", spec.fData[0], spec.fData[1],
                        spec.fData[2], spec.fData[3], spec.fData[4], spec.fData[5]);
        char essid[33] = "";
        for (size_t k = 0; k < 32 && s.ESSID[k] != 0; ++k)
          essid[k] = static_cast<int8_t>(s.ESSID[k]) < 32 ? '.' : static_cast<char>(s.ESSID[k]);
        const uint64_t sent = s.BytesSent, received = s.BytesReceived;
        const unsigned avgSent = s.PacketsSent ? static_cast<uint16_t>(sent / s.PacketsSent) : 0;
        const unsigned avgReceived = s.PacketsReceived ? static_cast<uint16_t>(received / s.PacketsReceived) : 0;
        const ZemoTime first = std::min<ZemoTime>(s.FirstTimeSent, s.FirstTimeReceived);
        const ZemoTime last = std::max<ZemoTime>(s.LastTimeSent, s.LastTimeReceived);
        const std::string duration =
            first && last ? ToUtf8(FormatDuration(static_cast<int64_t>(last - first), 1, u"%sd %s")) : std::string();
        const SWirelessChannel ds = s.DSChannel;
        out.Printf("%s\t%s\t%s\t%d\t%u\t%u\t%s\t%s\t%s\t%u\t%u\t%u\t%u\t%u\t%u\t%d\t%d\t%d\t%d\t%d\t%d\t", node, essid,
                   NodeTypeText(s.Type), ds.Channel, ds.Frequency, ds.Band, AuthenticationText(s.AuthenticationType),
                   EncryptionText(s.EncryptionType), "", unsigned{s.SignalMin}, unsigned{s.SignalCurrent},
                   unsigned{s.SignalMax}, unsigned{s.NoiseMin}, unsigned{s.NoiseCurrent}, unsigned{s.NoiseMax},
                   ShownDbm(s.SignaldBmMin), ShownDbm(s.SignaldBmCurrent), ShownDbm(s.SignaldBmMax),
                   ShownDbm(s.NoisedBmMin), ShownDbm(s.NoisedBmCurrent), ShownDbm(s.NoisedBmMax));
        out.Printf("%llu\t%llu\t%llu\t%llu\t%llu\t%llu\t%llu\t%llu\t%u\t%u\t%u\t%u\t%u\t%u\t%s\t%s\t%s\t%s\t%s\n",
                   static_cast<unsigned long long>(sent), static_cast<unsigned long long>(received),
                   static_cast<unsigned long long>(sent + received), static_cast<unsigned long long>(s.RetryPackets),
                   static_cast<unsigned long long>(s.BroadcastPackets),
                   static_cast<unsigned long long>(s.BroadcastBytes),
                   static_cast<unsigned long long>(s.MulticastPackets),
                   static_cast<unsigned long long>(s.MulticastBytes), unsigned{s.MinPacketSizeSent},
                   unsigned{s.MaxPacketSizeSent}, avgSent, unsigned{s.MinPacketSizeReceived},
                   unsigned{s.MaxPacketSizeReceived}, avgReceived, TimeText(s.FirstTimeSent).c_str(),
                   TimeText(s.LastTimeSent).c_str(), TimeText(s.FirstTimeReceived).c_str(),
                   TimeText(s.LastTimeReceived).c_str(), duration.c_str());
      }
    });
  });
}

}  // namespace zemo
