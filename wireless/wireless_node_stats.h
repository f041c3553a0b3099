// WirelessNodeStats: the first generation of 802.11 node statistics, one
// 232-byte record for each address and network name, kept and filled by
// the object itself, with stream, XML (and XML delta) and text forms.
//
// It decodes a frame's security from the packet's fields itself, keeps each
// node's packets at each data rate in descending order of rate, and embeds
// an association table whose interface stays good as long as the statistic
// lives: a reset or a load works on that same list.
//
// Tables: records in a block store (a record index is the node's stat
// index), 1023 chain heads (key modulo 1023, newest first) with a key index
// beside them for the packet path, the network names in a chained hash map,
// the data rates seen (ascending) and one rate row for each node that sent.
#pragma once

#include <memory>
#include <vector>

#include "frame/block_store.h"
#include "frame/byte_string.h"
#include "frame/delta_save.h"
#include "frame/engine_interfaces.h"
#include "frame/hash_map.h"
#include "frame/key_index.h"
#include "frame/stats_interfaces.h"
#include "identity/identity_interfaces.h"
#include "platform/object.h"
#include "wireless/node_records.h"
#include "wireless/wireless_association.h"
#include "wireless/wireless_node_interfaces.h"

namespace zemo {

class WirelessNodeStats final
    : public Object<WirelessNodeStats, IWirelessNodeStats, IZemoStats, IProcessPacket, IResetProcessing,
                    PersistStreamByDeltas<WirelessNodeStats>, ISaveStreamDeltas, PersistXmlByDeltas<WirelessNodeStats>,
                    IPersistXmlDeltas, IPersistFile> {
 public:
  static constexpr uint32_t kNone = 0xFFFFFFFFu;
  static constexpr uint32_t kHeads = 1023;

  WirelessNodeStats();
  HRESULT FinalConstruct();

  // IWirelessNodeStats
  HRESULT GetEntityTable(IEntityTable** table) override;
  HRESULT GetAssociationTable(IWirelessNodeAssociationTable** table) override;
  HRESULT GetNodeCount(ULONG* count) override;
  HRESULT GetRateChangeCount(ULONG* count) override;
  HRESULT GetUnknownBSSIDIndex(ULONG* index) override;
  HRESULT GetUnknownESSIDIndex(ULONG* index) override;
  HRESULT GetNodeIndex(ULONG entity, ULONG* index, BOOL* found) override;
  HRESULT GetNodeStat(ULONG index, ZemoWirelessNodeStatEntry* record) override;
  HRESULT GetTotals(ZemoWirelessNodeTotals* totals) override;
  HRESULT GetDataRates(ULONG** rates, ULONG* count) override;
  HRESULT GetNodeDataRates(ULONG index, ZemoWirelessNodeDataRateStat** rates, ULONG* count) override;

  // IZemoStats; IResetProcessing's Reset is the same.
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override;

  HRESULT ProcessPacket(IPacket* packet) override;

  // IPersistStream, ISaveStreamDeltas: always the whole state.
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
  HRESULT SaveDeltas(IStream* stream, ZemoTime* since) override;

  // IPersistXml, IPersistXmlDeltas: records sent or received at or after
  // the cookie; names, rates and rows whatever it is.
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) override;

  // IPersistFile: the ".txt" export.
  HRESULT Load(LPCOLESTR, DWORD) override { return E_NOTIMPL; }
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR) override { return S_OK; }
  HRESULT GetCurFile(LPOLESTR*) override { return E_NOTIMPL; }

 private:
  using Row = std::vector<ZemoWirelessNodeDataRateStat>;

  ZemoWirelessNodeStatEntry& Rec(uint32_t index) const noexcept {
    return *static_cast<ZemoWirelessNodeStatEntry*>(m_records.Record(index));
  }
  ZemoWirelessNodeStatEntry* Get(uint32_t index) const noexcept {
    return static_cast<ZemoWirelessNodeStatEntry*>(m_records.Get(index));
  }
  void Clear();
  uint32_t FindNode(uint32_t key) const noexcept;
  // Raises E_OUTOFMEMORY when the store cannot grow.
  uint32_t AddNode(uint32_t key);
  uint32_t FindOrAddNode(uint32_t key);
  uint32_t NodeOfAddress(const MediaSpec& spec);
  uint32_t GetBSSIDIndex(const MediaSpec& spec);
  uint32_t UnknownBSSID();
  uint32_t UnknownESSID();
  uint32_t GetESSIDIndex(const ByteString& name);
  void SetNodeESSID(uint32_t index, const ByteString& name);
  void AddRate(ULONG rate, bool counted);
  void CountRate(uint32_t index, uint32_t rate, USHORT length);
  // The record with the address book's trust.
  ZemoWirelessNodeStatEntry Record(uint32_t index);
  std::vector<std::pair<uint32_t, const ByteString*>> NamesInOrder() const;

  HRESULT Process(IPacket* packet);
  uint32_t ParseManagementBody(uint32_t n, uint32_t bssid, uint16_t kind, const BYTE* data, USHORT captured,
                               USHORT length, bool* usable);
  void DetectSecurity(IPacket* packet, ZemoWirelessNodeStat& s, uint16_t kind, ULONG flags);
  void DetectReceiverSecurity(IPacket* packet, ZemoWirelessNodeStat& s, uint16_t kind);

  void SaveStream(IStream* stream);
  void LoadStream(IStream* stream);
  void SaveXml(IUnknown* document, IUnknown* node, ZemoTime since);
  void LoadXml(IUnknown* document, IUnknown* node);

  IZemoStatsContext* m_context = nullptr;  // no reference: the context outlives us
  ComPtr<IEntityTable> m_entities;
  ComPtr<INameTable> m_book;
  ComPtr<WirelessNodeAssociationTable> m_associations;
  CBlockStore m_records;
  uint32_t m_heads[kHeads];
  CKeyIndex m_keys;
  uint32_t m_unknownBSSID = kNone;
  uint32_t m_unknownESSID = kNone;
  CHashMap<ByteString, uint32_t> m_essids;
  std::vector<ULONG> m_rates;  // ascending
  uint32_t m_rateChangeCount = 0;
  std::vector<std::unique_ptr<Row>> m_rows;  // by record index; null: no row
  uint32_t m_rowsInUse = 0;
  uint32_t m_cachedChangeCount = 0;
  uint32_t m_cachedESSIDs = 0;
  uint32_t m_cachedESSIDsWithout = 0;
};

}  // namespace zemo
