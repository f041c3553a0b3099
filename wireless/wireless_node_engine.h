// CWirelessNodeStats: the engine of the second-generation node statistics,
// a plain class that WirelessNodeStats2 owns and forwards to.
//
// For every 802.11 packet it updates the record of the transmitter and of
// the receiver, and learns from the frame what a node is (access point,
// station, ad hoc station), the network name and channel an access point
// announces, how a node protects its traffic and when a station roams from
// one access point to another. Network names have records of their own, so
// that a name can be a party in the association set, which the engine also
// keeps. It tells the channel statistics which access points stand on
// which channel.
//
// Tables:
// - records: a block store of 536-byte records; a record index is the
//   node's stat index and stays valid (and the record in place) until Clear;
// - chains: 1023 heads, a key's chain is key modulo 1023, newest first; the
//   key index (CKeyIndex) beside them finds a key's record in constant time,
//   always the one the chain walk would;
// - rate rows: one for each record, the node's packets at each data rate,
//   ascending;
// - the data rates the adapter names, ascending; the network names, by
//   length and then bytes, each to its record.
//
// No lock of its own: its owner's lock covers it. Failures are raised; the
// stream's format errors as standard exceptions with fixed texts.
#pragma once

#include <map>
#include <vector>

#include "frame/block_store.h"
#include "frame/byte_string.h"
#include "frame/key_index.h"
#include "frame/name_table.h"
#include "identity/identity_interfaces.h"
#include "platform/stream.h"
#include "wireless/node_records.h"
#include "wireless/wireless_association.h"
#include "wireless/wireless_interfaces.h"
#include "wireless/wireless_packet_view.h"

namespace zemo {

class CWirelessNodeStats {
 public:
  static constexpr uint32_t kNone = 0xFFFFFFFFu;
  static constexpr uint32_t kHeads = 1023;
  static constexpr uint32_t kMaxStoredRecords = 1000000;
  static constexpr ZemoTime kRollInterval = 10000000000ull;

  CWirelessNodeStats();
  virtual ~CWirelessNodeStats() = default;
  CWirelessNodeStats(const CWirelessNodeStats&) = delete;
  CWirelessNodeStats& operator=(const CWirelessNodeStats&) = delete;

  virtual void ProcessPacket(WirelessPacketView& view);
  virtual void ProcessTime(uint64_t now);
  // Clear, then the rates the adapter names; the media and channels are not used here.
  virtual void Init(ULONG mediaType, ULONG mediaSubType, const SWirelessChannel* channels, ULONG channelCount,
                    const ULONG* rates, ULONG rateCount, const ULONG* moreRates, ULONG moreRateCount);
  virtual void Restart(ULONG mediaType, ULONG mediaSubType);
  virtual void Clear();

  // Neither is owned; either may be null.
  void SetEntityTable(IEntityTable* table) noexcept { m_entities = table; }
  void SetChannelLink(IWirelessChannelStats2* channels) noexcept { m_channels = channels; }
  IEntityTable* EntityTable() const noexcept { return m_entities; }

  uint32_t FindNode(uint32_t key, ZemoWirelessNodeStatEntry2** record) const noexcept;
  // A new record for key; kNone when the store cannot give one.
  uint32_t AddNode(uint32_t key, ZemoWirelessNodeStatEntry2** record);
  // The record, or null; CBlockStore::kLastIndex is the last record.
  ZemoWirelessNodeStatEntry2* GetNode(uint32_t index) const noexcept;
  // The node of a BSSID, made on first sight; kNone for an invalid or
  // broadcast one, or without an entity table.
  uint32_t GetBSSIDIndex(const MediaSpec& spec);
  uint32_t GetUnknownBSSIDIndex();
  uint32_t GetUnknownESSIDIndex();
  uint32_t GetESSIDIndex(const ByteString& name);
  void SetNodeESSID(uint32_t index, const ByteString& name);
  uint32_t AddDataRate(uint32_t rate);

  // names may be null: every node's trust is then 0.
  void GetTotals(ZemoWirelessNodeTotals* out, COMGlue::NameTable* names);
  // The trust the address book gives an address node: false without a
  // book, an entity or an entry, or for an entry of the kind that carries
  // no trust.
  bool BookTrust(const ZemoWirelessNodeStat2& record, COMGlue::NameTable* names, uint8_t* trust) const;

  void Save(IStream* ioStream, COMGlue::NameTable* names);
  void Load(IStream* ioStream);

  // Reads.
  uint32_t NodeCount() const noexcept { return m_records.GetCount(); }
  const std::vector<ULONG>& DataRates() const noexcept { return m_rates; }
  uint32_t RateChangeCount() const noexcept { return m_rateChangeCount; }
  const std::vector<ZemoWirelessNodeDataRateStat>& RateRow(uint32_t index) const { return m_rows[index]; }
  const WirelessAssociationSet& Associations() const noexcept { return m_set; }
  uint64_t TotalPackets() const noexcept { return m_totalPackets; }
  uint64_t TotalBytes() const noexcept { return m_totalBytes; }
  // The network names in map order, each with its record index.
  const std::map<ByteString, uint32_t>& ESSIDs() const noexcept { return m_essids; }

 private:
  ZemoWirelessNodeStatEntry2& Rec(uint32_t index) const noexcept {
    return *static_cast<ZemoWirelessNodeStatEntry2*>(m_records.Record(index));
  }
  // The node of an address, found or made; kNone when there is none.
  uint32_t NodeOfAddress(const MediaSpec& spec, ZemoWirelessNodeStatEntry2** record);
  void Link(uint32_t index);
  void ProcessTransmitter(WirelessPacketView& view, const MediaSpec& transmitter, const MediaSpec& receiver,
                          const MediaSpec& bssidSpec, uint32_t bssid);
  void ProcessReceiver(WirelessPacketView& view, const MediaSpec& receiver, uint32_t bssid);
  uint32_t ParseManagementBody(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r, uint32_t bssid);
  void ReportChannel(ZemoWirelessNodeStatEntry2& r, const MediaSpec& transmitter);
  uint64_t CheckRoam(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r);
  void CountRoam(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r, uint32_t bssid);
  void CountRoamSent(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r, uint32_t bssid);
  void CountRoamReceived(WirelessPacketView& view, ZemoWirelessNodeStatEntry2& r, uint32_t bssid);

  IEntityTable* m_entities = nullptr;
  IWirelessChannelStats2* m_channels = nullptr;
  CBlockStore m_records;
  uint32_t m_heads[kHeads];
  CKeyIndex m_keys;
  std::vector<std::vector<ZemoWirelessNodeDataRateStat>> m_rows;  // one for each record
  uint64_t m_totalBytes = 0;
  uint64_t m_totalPackets = 0;
  std::vector<ULONG> m_rates;  // ascending
  uint32_t m_rateChangeCount = 0;
  std::map<ByteString, uint32_t> m_essids;
  uint32_t m_unknownBSSID = kNone;
  uint32_t m_unknownESSID = kNone;
  WirelessAssociationSet m_set;
  uint32_t m_cachedChangeCount = 0;
  uint32_t m_cachedESSIDs = 0;
  uint32_t m_cachedESSIDsWithout = 0;
};

// The first generation's record of a second-generation one (trust as the
// record holds it).
ZemoWirelessNodeStatEntry FirstGenerationNode(const ZemoWirelessNodeStatEntry2& entry);

}  // namespace zemo
