// WirelessNodeStats2: the second generation of 802.11 node statistics, a
// thin object around CWirelessNodeStats. It serves the first generation's
// IWirelessNodeStats too, making the 232-byte record from the 536-byte one
// on each call, and tells WirelessChannelStats2 of the same context which
// access points stand on which channel.
//
// The address book of the context's site decides a node's trust when it
// is read. The association table it hands out is a copy, made at the call.
//
// Every operation takes the object's lock, the reads too: they would
// otherwise race the packet path's growth of the tables. The packet path
// calls WirelessChannelStats2 under this lock; that one calls nobody back.
#pragma once

#include <memory>

#include "frame/delta_save.h"
#include "frame/name_table.h"
#include "frame/stats_interfaces.h"
#include "platform/object.h"
#include "wireless/wireless_node_engine.h"
#include "wireless/wireless_node_interfaces.h"

namespace zemo {

class WirelessNodeStats2 final
    : public Object<WirelessNodeStats2, IWirelessNodeStats2, IWirelessNodeStats, IZemoStats, IProcessPacket,
                    IResetProcessing, PersistStreamByDeltas<WirelessNodeStats2>, ISaveStreamDeltas> {
 public:
  // IWirelessNodeStats2, and IWirelessNodeStats where the two share an operation.
  HRESULT GetEntityTable(IEntityTable** table) override;
  HRESULT GetAssociationTable(IWirelessNodeAssociationTable** table) override;
  HRESULT GetNodeCount(ULONG* count) override;
  HRESULT GetRateChangeCount(ULONG* count) override;
  HRESULT GetUnknownBSSIDIndex(ULONG* index) override;
  HRESULT GetUnknownESSIDIndex(ULONG* index) override;
  HRESULT GetNodeIndex(ULONG entity, ULONG* index, BOOL* found) override;
  HRESULT GetNodeStat(ULONG index, ZemoWirelessNodeStat2* record) override;
  HRESULT GetTotals(ZemoWirelessNodeTotals* totals) override;
  HRESULT GetDataRates(ULONG** rates, ULONG* count) override;
  HRESULT GetNodeDataRates(ULONG index, ZemoWirelessNodeDataRateStat** rates, ULONG* count) override;
  // IWirelessNodeStats
  HRESULT GetNodeStat(ULONG index, ZemoWirelessNodeStatEntry* record) override;

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

  const CWirelessNodeStats& Engine() const noexcept { return m_engine; }

 private:
  // The record with the address book's trust.
  ZemoWirelessNodeStatEntry2 Record(ULONG index);
  // A NameTable around the address book; null without a book.
  std::unique_ptr<COMGlue::NameTable> Names() const;

  IZemoStatsContext* m_context = nullptr;  // no reference: the context outlives us
  CWirelessNodeStats m_engine;
  ComPtr<IEntityTable> m_entities;
  ComPtr<IWirelessChannelStats2> m_channels;
  ComPtr<INameTable> m_book;
};

}  // namespace zemo
