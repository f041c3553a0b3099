#include "wireless/wireless_channel_engine.h"

#include <algorithm>
#include <cstring>

#include "frame/block_frame.h"
#include "frame/task_memory.h"
#include "wireless/stream_tags.h"

namespace zemo {
namespace {

using namespace wireless_tags;
constexpr uint32_t kTagRows = 0x626F7879;   // each channel's packets at each rate
constexpr uint32_t kTagNodes = 0x62736964;  // each channel's access points
constexpr uint32_t kMaxStoredRows = 10000;
constexpr uint32_t kMaxStoredKeys = 10000;

template <class T>
void ZeroFill(TArrayEx<T>& array, LONG count) {
  array.SetCount(count);
  if (count > 0) std::memset(array.Data(), 0, sizeof(T) * static_cast<size_t>(count));
}

}  // namespace

CWirelessChannelStats::CWirelessChannelStats()
    : m_channels(&m_order, false, true), m_rates(TIntComparator<ULONG>::Instance(), false, true) {}

// --- tables ---

void CWirelessChannelStats::Clear() {
  m_index.Clear();
  m_channels.RemoveAll();
  m_rates.RemoveAll();
  m_rows.RemoveAll();
  for (auto& bucket : m_nodes) bucket.clear();
  m_rateChangeCount = 0;
  m_updateCount = 0;
  m_channelCountChanges = 0;
}

void CWirelessChannelStats::Restart(ULONG, ULONG) { Clear(); }

void CWirelessChannelStats::Init(ULONG, ULONG, const SWirelessChannel* channels, ULONG channelCount,
                                 const ULONG* rates, ULONG rateCount, const ULONG* moreRates, ULONG moreRateCount) {
  Clear();
  for (ULONG i = 0; channels && i < channelCount; ++i) AddChannel(channels[i]);
  for (ULONG i = 0; rates && i < rateCount; ++i) AddDataRate(rates[i]);
  for (ULONG i = 0; moreRates && i < moreRateCount; ++i) AddDataRate(moreRates[i]);
  // Each rate went in at its place in order, so the rates stand sorted.
}

void CWirelessChannelStats::RebuildIndex(bool descending) {
  m_index.Rebuild(ChannelCount(), descending, [this](uint32_t i) { return ChannelOf(i); });
}

uint32_t CWirelessChannelStats::Find(const SWirelessChannel& channel) const {
  return m_index.Find(channel, [this](uint32_t i) { return ChannelOf(i); });
}

bool CWirelessChannelStats::FindChannel(const SWirelessChannel& channel, uint32_t* index) const {
  *index = Find(channel);
  return *index != kNone;
}

// Rows and records grow in step: what cannot be had leaves both as they were.
uint32_t CWirelessChannelStats::AddChannel(const SWirelessChannel& channel) {
  if (const uint32_t found = Find(channel); found != kNone) return found;
  ZemoWirelessChannelStatEntry2 record;
  std::memset(&record, 0, sizeof record);
  record.Channel = channel;
  const LONG count = m_channels.GetCount();
  const LONG at = std::min(m_channels.FindInsertPosition(record), count);
  m_rows.SetCount(count + 1);
  m_rows.Move(count, at);
  LONG p;
  try {
    ZeroFill(m_rows[at], m_rates.GetCount());
    p = m_channels.Add(&record, sizeof record);
  } catch (...) {
    m_rows.Move(at, count);
    m_rows.SetCount(count);
    throw;
  }
  if (p != at) m_rows.Move(at, p);  // the array placed it otherwise than it said it would
  ++m_updateCount;
  ++m_channelCountChanges;
  // Records behind the new one moved up: the index is filed anew, listing
  // the records from the last down to the first.
  RebuildIndex(true);
  return static_cast<uint32_t>(p);
}

uint32_t CWirelessChannelStats::AddDataRate(uint32_t rate) {
  const LONG count = m_rates.GetCount();
  for (LONG i = 0; i < count; ++i) {
    if (m_rates[i] == rate) return static_cast<uint32_t>(i);
    if (m_rates[i] > rate) break;
  }
  if (static_cast<uint32_t>(count) >= kMaxChannelDataRates) return kNone;
  // Room first, so that the rate goes into every row or none.
  m_rates.Reserve(1);
  for (LONG r = 0; r < m_rows.GetCount(); ++r) m_rows[r].Reserve(1);
  ++m_rateChangeCount;
  const ULONG value = rate;
  const LONG p = m_rates.Add(value);
  const ZemoWirelessChannelDataRateStat zero{0, 0};
  for (LONG r = 0; r < m_rows.GetCount(); ++r) m_rows[r].InsertAt(p, zero);
  return static_cast<uint32_t>(p);
}

const ZemoWirelessChannelStatEntry2* CWirelessChannelStats::RecordAtNode(uint32_t n) const {
  const uint32_t i = m_index.RecordAt(n);
  return i == kNone ? nullptr : m_channels.At(static_cast<LONG>(i));
}

// --- the packet and the tick ---

void CWirelessChannelStats::ProcessPacket(WirelessPacketView& view) {
  if (!view.Wireless() || !view.Data() || view.CaptureLength() < 3) return;
  const uint32_t rate = view.DataRate();
  SWirelessChannel channel{0, 0, 0};
  view.Channel(&channel);
  uint32_t index = Find(channel);
  if (index == kNone) index = AddChannel(channel);
  if (index == kNone || index >= NodeCount()) return;
  ZemoWirelessChannelStatEntry2& e = m_channels[static_cast<LONG>(index)];
  const uint64_t length = view.PacketLength();
  e.Counts.Packets += 1;
  e.Counts.Bytes += length;

  bool marks[4] = {};  // local, To DS, From DS, DS-DS
  const BYTE* frame = nullptr;
  USHORT captured = 0;
  view.Frame(&frame, &captured);
  const bool crc = view.TestStatus(kPacketStatusCrc);
  if (frame && captured >= 2 && !crc)
    marks[CountFrameControl(e.Counts, frame[0], frame[1], length, [&] { return view.TestFlags(0x4); })] = true;
  // A frame with a bad checksum counts in no frame class.
  if (crc) e.Counts.CRCErrors += 1;
  if (view.TestFlags(0x8)) e.Counts.WEPICVErrors += 1;
  if (view.TestFlags(0x40))
    e.Counts.Flag40Packets += 1, e.Counts.Flag40Bytes += length;
  else
    e.Counts.NoFlag40Packets += 1, e.Counts.NoFlag40Bytes += length;

  uint32_t at = kNone;
  for (LONG i = 0, n = m_rates.GetCount(); i < n; ++i)
    if (m_rates[i] == rate) {
      at = static_cast<uint32_t>(i);
      break;
    }
  if (at == kNone) at = AddDataRate(rate);
  if (at != kNone) {
    ZemoWirelessChannelDataRateStat& r = m_rows[static_cast<LONG>(index)][static_cast<LONG>(at)];
    r.Packets += 1;
    r.Bytes += length;
  }

  const SignalReading reading = view.Readings();
  UpdateSignalSet(e.AllSignals, reading);
  if (marks[1]) UpdateSignalSet(e.ToDSSignals, reading);
  if (marks[2]) UpdateSignalSet(e.FromDSSignals, reading);
  if (marks[3]) UpdateSignalSet(e.DSDSSignals, reading);
  if (marks[0]) UpdateSignalSet(e.LocalSignals, reading);
  e.Counts.LastTime = view.Time();
  if (e.Counts.FirstTime == 0) e.Counts.FirstTime = e.Counts.LastTime;
  ++m_updateCount;
}

void CWirelessChannelStats::ProcessTime(uint64_t now) {
  if (now < kRollInterval) return;
  for (ZemoWirelessChannelStatEntry2& e : m_channels) {
    if (e.RollTime == 0) {
      e.RollTime = now;
    } else if (e.RollTime < now - kRollInterval) {
      e.RollTime = now;
      for (WirelessSignalSet* set : {&e.AllSignals, &e.FromDSSignals, &e.ToDSSignals, &e.DSDSSignals, &e.LocalSignals})
        RollSignalSet(*set);
    }
  }
}

// --- data rates and access points of a channel ---

bool CWirelessChannelStats::GetChannelDataRates(const SWirelessChannel& channel, ZemoWirelessChannelDataRateStat** rows,
                                                ULONG* count) const {
  if (!count) return false;
  *count = 0;
  if (rows) *rows = nullptr;
  const uint32_t index = Find(channel);
  if (index == kNone) AtlThrow(E_INVALIDARG);
  const Row& row = m_rows[static_cast<LONG>(index)];
  if (row.GetCount() != 0 && !rows) AtlThrow(E_POINTER);
  ZemoWirelessChannelDataRateStat* none = nullptr;
  GiveTaskArray(std::span<const ZemoWirelessChannelDataRateStat>(row.begin(), row.end()), rows ? rows : &none, count);
  return true;
}

const CWirelessChannelStats::ChannelNodes* CWirelessChannelStats::NodesOf(const SWirelessChannel& channel) const {
  for (const ChannelNodes& n : m_nodes[NodeBucket(channel)])
    if (n.channel == channel) return &n;
  return nullptr;
}

CWirelessChannelStats::ChannelNodes& CWirelessChannelStats::AddNodesOf(const SWirelessChannel& channel) {
  if (const ChannelNodes* n = NodesOf(channel)) return const_cast<ChannelNodes&>(*n);
  return m_nodes[NodeBucket(channel)].emplace_back(ChannelNodes{channel, {}});
}

void CWirelessChannelStats::AddChannelNode(const SWirelessChannel& channel, const MediaSpec& node) {
  uint32_t index = Find(channel);
  if (index == kNone) index = AddChannel(channel);
  if (index == kNone || index >= NodeCount()) return;
  std::vector<MediaSpec>& list = AddNodesOf(channel).nodes;
  if (std::none_of(list.begin(), list.end(), [&](const MediaSpec& s) { return SpecsEqual(s, node); }))
    list.push_back(node);
}

void CWirelessChannelStats::RemoveChannelNode(const SWirelessChannel& channel, const MediaSpec& node) {
  if (Find(channel) == kNone) return;
  if (const ChannelNodes* n = NodesOf(channel)) {
    auto& list = const_cast<ChannelNodes*>(n)->nodes;
    auto it = std::find_if(list.begin(), list.end(), [&](const MediaSpec& s) { return SpecsEqual(s, node); });
    if (it != list.end()) list.erase(it);  // an emptied list stays
  }
}

uint32_t CWirelessChannelStats::GetChannelNodeCount(const SWirelessChannel& channel) const {
  const ChannelNodes* n = NodesOf(channel);
  return n ? static_cast<uint32_t>(n->nodes.size()) : 0;
}

uint32_t CWirelessChannelStats::GetChannelNodeIndex(const SWirelessChannel& channel, const MediaSpec& node) const {
  if (const ChannelNodes* n = NodesOf(channel))
    for (size_t i = 0; i < n->nodes.size(); ++i)
      if (SpecsEqual(n->nodes[i], node)) return static_cast<uint32_t>(i);
  return kNone;
}

uint32_t CWirelessChannelStats::GetMaxChannelNodeCount() const {
  size_t longest = 0;
  for (const auto& bucket : m_nodes)
    for (const ChannelNodes& n : bucket) longest = std::max(longest, n.nodes.size());
  return static_cast<uint32_t>(longest);
}

// --- the stream ---

void CWirelessChannelStats::Save(IStream* ioStream) const {
  WriteBlock(ioStream, [&] {
    WriteSyncTag(ioStream, kStats);
    WriteValue(ioStream, static_cast<uint32_t>(m_channels.GetCount()));
    WriteRecords(ioStream, std::span<const ZemoWirelessChannelStatEntry2>(m_channels.begin(), m_channels.end()));
    WriteSyncTag(ioStream, kRates);
    WriteValue(ioStream, static_cast<uint32_t>(m_rates.GetCount()));
    WriteRecords(ioStream, std::span<const ULONG>(m_rates.begin(), m_rates.end()));
    WriteSyncTag(ioStream, kTagRows);
    WriteValue(ioStream, static_cast<uint32_t>(m_rows.GetCount()));
    for (LONG i = 0; i < m_rows.GetCount(); ++i) {
      const Row& row = m_rows[i];
      WriteValue(ioStream, static_cast<uint32_t>(row.GetCount()));
      WriteRecords(ioStream, std::span<const ZemoWirelessChannelDataRateStat>(row.begin(), row.end()));
    }
    WriteSyncTag(ioStream, kCounts);
    WriteValue(ioStream, m_rateChangeCount);
    WriteValue(ioStream, m_updateCount);
    WriteSyncTag(ioStream, kTagNodes);
    uint32_t keys = 0;
    for (const auto& bucket : m_nodes) keys += static_cast<uint32_t>(bucket.size());
    WriteValue(ioStream, keys);
    for (const auto& bucket : m_nodes)
      for (const ChannelNodes& n : bucket) {
        WriteValue(ioStream, n.channel);
        WriteValue(ioStream, static_cast<uint32_t>(n.nodes.size()));
        WriteRecords(ioStream, std::span<const MediaSpec>(n.nodes));
      }
    WriteSyncTag(ioStream, kEnd);
  });
}

// What is read is installed as it comes, with the rows kept one for each
// record and one entry for each rate, so that a load that fails half way
// leaves tables a packet can be counted into.
void CWirelessChannelStats::Load(IStream* ioStream) {
  ReadBlock(ioStream, [&] {
    Clear();
    ReadSyncTag(ioStream, kStats);
    const std::vector<ZemoWirelessChannelStatEntry2> records =
        ReadRecordArray<ZemoWirelessChannelStatEntry2>(ioStream, ReadValue<uint32_t>(ioStream));
    m_channels.SetCount(static_cast<LONG>(records.size()));
    if (!records.empty()) std::memcpy(m_channels.Data(), records.data(), records.size() * sizeof records[0]);
    m_rows.SetCount(m_channels.GetCount());
    RebuildIndex(false);

    ReadSyncTag(ioStream, kRates);
    const std::vector<ULONG> rates = ReadRecordArray<ULONG>(ioStream, ReadValue<uint32_t>(ioStream));
    m_rates.SetCount(static_cast<LONG>(rates.size()));
    if (!rates.empty()) std::memcpy(m_rates.Data(), rates.data(), rates.size() * sizeof rates[0]);
    for (LONG i = 0; i < m_rows.GetCount(); ++i) ZeroFill(m_rows[i], m_rates.GetCount());

    ReadSyncTag(ioStream, kTagRows);
    const auto rowCount = ReadRanged<uint32_t>(ioStream, 0u, kMaxStoredRows);
    if (rowCount != static_cast<uint32_t>(m_rows.GetCount())) AtlThrow(E_FAIL);
    for (uint32_t i = 0; i < rowCount; ++i) {
      const std::vector<ZemoWirelessChannelDataRateStat> row =
          ReadRecordArray<ZemoWirelessChannelDataRateStat>(ioStream, ReadValue<uint32_t>(ioStream));
      if (row.size() != static_cast<size_t>(m_rates.GetCount())) AtlThrow(E_FAIL);
      if (!row.empty()) std::memcpy(m_rows[static_cast<LONG>(i)].Data(), row.data(), row.size() * sizeof row[0]);
    }

    ReadSyncTag(ioStream, kCounts);
    m_rateChangeCount = ReadValue<uint32_t>(ioStream);
    m_updateCount = ReadValue<uint32_t>(ioStream);

    ReadSyncTag(ioStream, kTagNodes);
    const auto keys = ReadRanged<uint32_t>(ioStream, 0u, kMaxStoredKeys);
    for (uint32_t k = 0; k < keys; ++k) {
      const auto channel = ReadValue<SWirelessChannel>(ioStream);
      std::vector<MediaSpec> nodes = ReadRecordArray<MediaSpec>(ioStream, ReadValue<uint32_t>(ioStream));
      std::vector<MediaSpec>& list = AddNodesOf(channel).nodes;
      list.insert(list.end(), nodes.begin(), nodes.end());
    }
    ReadSyncTag(ioStream, kEnd);
  });
}

}  // namespace zemo
