// ConversationStats: one record for each conversation, a (source,
// destination, protocol) tuple interned in the context's TupleTable. A packet
// counts in up to three at once: between its logical addresses, its physical
// addresses and, when wireless, its transmitter and receiver. Tuples have a
// direction, so A to B and B to A are two records.
#pragma once

#include "frame/clsids.h"
#include "frame/stats_interfaces.h"
#include "identity/identity_interfaces.h"
#include "platform/object.h"
#include "tables/conversation_stat.h"
#include "tables/table_statistic.h"

struct IConversationStats : IUnknown {
  static constexpr IID iid = IID_IConversationStats;
  virtual HRESULT GetConversationCount(ULONG* count) = 0;
  // Not found: record index 0xFFFFFFFF, found 0 and success.
  virtual HRESULT GetConversationIndex(ULONG tupleIndex, ULONG* recordIndex, BOOL* found) = 0;
  // 0xEFFFFFFF is the last record; a bad index zeroes entry and gives E_FAIL.
  virtual HRESULT GetConversationEntry(ULONG recordIndex, ZemoConversationStatEntry* entry) = 0;
};

namespace zemo {

class ConversationStats final
    : public TTableStatistic<ConversationStats, CConversationTable, IConversationStats> {
 public:
  static constexpr char16_t kStatisticName[] = u"Node/Protocol Detail Statistics";
  static constexpr char16_t kXmlElement[] = u"conversationstats";
  static constexpr char16_t kSelectName[] = u"conversationstats";
  static constexpr const CLSID& kClsid = CLSID_ConversationStats;

  // IConversationStats
  HRESULT GetConversationCount(ULONG* count) override;
  HRESULT GetConversationIndex(ULONG tupleIndex, ULONG* recordIndex, BOOL* found) override;
  HRESULT GetConversationEntry(ULONG recordIndex, ZemoConversationStatEntry* entry) override;

  // IZemoStats: the tuple table, then the entity table.
  HRESULT SetContext(IZemoStatsContext* context) override;

  // IProcessPacket
  HRESULT ProcessPacket(IPacket* packet) override;

  // IPersistFile: ".txt" and ".hash" exports
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;

  // ISelectableObject
  HRESULT GetTable(IDataTable** table) override;

 private:
  // What the tables already hold of a pair: its entities and its tuple, or
  // kNoEntityId and kNoRecord.
  struct KnownPair {
    ULONG source = kNoEntityId;
    ULONG destination = kNoEntityId;
    ULONG tuple = kNoRecord;
  };
  // Finds only, adding nothing, and starts bringing a known conversation's
  // record into the cache: a packet's pairs are found together before
  // either is counted, so that their trips to memory overlap.
  KnownPair FindPair(const MediaSpec& source, const MediaSpec& destination, ULONG protocol);
  // Counts the packet in the conversation from source to destination under
  // protocol, adding what known lacks; a tuple the TupleTable cannot hold
  // passes the pair over, an address the EntityTable cannot hold raises.
  void CountPair(const MediaSpec& source, const MediaSpec& destination, const KnownPair& known, ULONG protocol,
                 ZemoTime time, USHORT length);

  ComPtr<ITupleTable> m_tuples;
};

}  // namespace zemo
