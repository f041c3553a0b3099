// CWirelessChannelStats: the engine of the second-generation channel
// statistics, a plain class that WirelessChannelStats2 owns and forwards to.
//
// For every 802.11 packet it finds or creates the record of the channel the
// packet was heard on, counts it by frame class, direction and flag, counts
// it at its data rate, and folds its signal and noise into the channel's
// signal picture, once for the channel and once for the frame's direction.
// Beside that it keeps the access points the node statistics report on
// each channel.
//
// Tables:
// - channels: the records, sorted by frequency, number and band;
// - the channel index (CChannelIndex): the node array lists the records in
//   descending order after a channel was added, ascending after a Load;
// - data rates, ascending, at most kMaxChannelDataRates of them;
// - channel rates: row i for record i, entry j of a row for data rate j;
// - channel nodes: for each channel, its access points in order of arrival.
//
// No lock of its own: its owner's lock covers it. Failures are raised; the
// stream's format errors as standard exceptions with fixed texts.
#pragma once

#include <vector>

#include "frame/array_ex.h"
#include "identity/media_specs.h"
#include "platform/stream.h"
#include "wireless/channel_index.h"
#include "wireless/channel_naming.h"
#include "wireless/wireless_packet_view.h"

namespace zemo {

class CWirelessChannelStats {
 public:
  static constexpr uint32_t kNone = 0xFFFFFFFFu;
  // The interval of the running signal figures.
  static constexpr ZemoTime kRollInterval = 10000000000ull;

  CWirelessChannelStats();
  virtual ~CWirelessChannelStats() = default;
  CWirelessChannelStats(const CWirelessChannelStats&) = delete;
  CWirelessChannelStats& operator=(const CWirelessChannelStats&) = delete;

  virtual void ProcessPacket(WirelessPacketView& view);
  virtual void ProcessTime(uint64_t now);
  // Clear, then every channel and rate the adapter names, with zero counters.
  virtual void Init(ULONG mediaType, ULONG mediaSubType, const SWirelessChannel* channels, ULONG channelCount,
                    const ULONG* rates, ULONG rateCount, const ULONG* moreRates, ULONG moreRateCount);
  virtual void Restart(ULONG mediaType, ULONG mediaSubType);
  virtual void Clear();

  // The record index by walking the channel number's chain, or kNone.
  bool FindChannel(const SWirelessChannel& channel, uint32_t* index) const;
  // Finds or creates; the record index.
  uint32_t AddChannel(const SWirelessChannel& channel);
  // Finds or creates; the rate's position. A rate past the table's room gives kNone.
  uint32_t AddDataRate(uint32_t rate);

  // The channel's row in task memory (null when it has no entries); false
  // for a null count, E_INVALIDARG raised for an unknown channel.
  bool GetChannelDataRates(const SWirelessChannel& channel, ZemoWirelessChannelDataRateStat** rows, ULONG* count) const;

  void AddChannelNode(const SWirelessChannel& channel, const MediaSpec& node);
  void RemoveChannelNode(const SWirelessChannel& channel, const MediaSpec& node);
  uint32_t GetChannelNodeCount(const SWirelessChannel& channel) const;
  uint32_t GetChannelNodeIndex(const SWirelessChannel& channel, const MediaSpec& node) const;
  uint32_t GetMaxChannelNodeCount() const;

  void Load(IStream* ioStream);
  void Save(IStream* ioStream) const;

  // Reads.
  uint32_t NodeCount() const noexcept { return m_index.NodeCount(); }
  // The record of node n of the channel index, or null.
  const ZemoWirelessChannelStatEntry2* RecordAtNode(uint32_t n) const;
  uint32_t ChannelCount() const noexcept { return static_cast<uint32_t>(m_channels.GetCount()); }
  const ZemoWirelessChannelStatEntry2& Record(uint32_t index) const { return m_channels[static_cast<LONG>(index)]; }
  const TArrayEx<ULONG>& DataRates() const noexcept { return m_rates; }
  uint32_t RateChangeCount() const noexcept { return m_rateChangeCount; }
  uint32_t UpdateCount() const noexcept { return m_updateCount; }
  uint32_t ChannelCountChanges() const noexcept { return m_channelCountChanges; }

 private:
  using Row = TArrayEx<ZemoWirelessChannelDataRateStat>;
  struct ChannelNodes {
    SWirelessChannel channel;
    std::vector<MediaSpec> nodes;
  };
  static constexpr uint32_t kNodeBuckets = 15;

  void RebuildIndex(bool descending);
  SWirelessChannel ChannelOf(uint32_t i) const { return m_channels[static_cast<LONG>(i)].Channel; }
  uint32_t Find(const SWirelessChannel& channel) const;
  static uint32_t NodeBucket(const SWirelessChannel& channel) noexcept {
    return static_cast<uint32_t>(static_cast<int64_t>(channel.Channel)) % kNodeBuckets;
  }
  const ChannelNodes* NodesOf(const SWirelessChannel& channel) const;
  ChannelNodes& AddNodesOf(const SWirelessChannel& channel);

  TComparator<ZemoWirelessChannelStatEntry2, ChannelTableLess> m_order;
  TArrayEx<ZemoWirelessChannelStatEntry2> m_channels;
  TArrayEx<ULONG> m_rates;
  TObjArrayEx<Row> m_rows;
  CChannelIndex m_index;
  uint32_t m_rateChangeCount = 0;
  uint32_t m_updateCount = 0;
  uint32_t m_channelCountChanges = 0;
  std::vector<ChannelNodes> m_nodes[kNodeBuckets];
};

}  // namespace zemo
