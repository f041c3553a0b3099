// ProtocolStats and ProtocolStatsByID: one record for each protocol the
// packets show. ProtocolStats counts a packet once, at the protocol the
// packet names; ProtocolStatsByID counts it at every layer of its decoded
// stack. Both give a protocol's ancestors in the protocol tree records of
// their own, ahead of it, so a display can show the whole branch.
//
// The two share everything but the packet path, the parent walk's treatment
// of identifiers without a number (0xFFFF), and the tracker factory, which
// only ProtocolStatsByID offers: TProtocolStats holds the shared part.
#pragma once

#include "frame/clsids.h"
#include "frame/delta_save.h"
#include "frame/engine_interfaces.h"
#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "frame/tracker_interfaces.h"
#include "identity/identity_interfaces.h"
#include "platform/object.h"
#include "tables/protocol_stat.h"
#include "tables/stats_limit.h"
#include "tables/table_statistic.h"

struct IProtocolStats : IUnknown {
  static constexpr IID iid = IID_IProtocolStats;
  virtual HRESULT GetEntityTable(IEntityTable** table) = 0;
  virtual HRESULT GetProtocolCount(ULONG* count) = 0;
  // S_OK and the index when found; S_FALSE and 0xFFFFFFFF when not.
  virtual HRESULT GetProtocolIndex(ULONG entityIndex, ULONG* recordIndex) = 0;
  // 0xEFFFFFFF is the last record; a bad index zeroes entry and gives E_FAIL.
  virtual HRESULT GetProtocolEntry(ULONG recordIndex, ZemoProtocolStatEntry* entry) = 0;
};

namespace zemo {

template <class D, class... Extra>
class TProtocolStats : public TTableStatistic<D, CProtocolTable, IProtocolStats, Extra...> {
 public:
  static constexpr char16_t kStatisticName[] = u"Protocol Statistics";

  HRESULT FinalConstruct();

  // IProtocolStats
  HRESULT GetEntityTable(IEntityTable** table) override;
  HRESULT GetProtocolCount(ULONG* count) override;
  HRESULT GetProtocolIndex(ULONG entityIndex, ULONG* recordIndex) override;
  HRESULT GetProtocolEntry(ULONG recordIndex, ZemoProtocolStatEntry* entry) override;

  // IPersistFile: ".txt" and ".hash" exports
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;

  // ISelectableObject
  HRESULT GetTable(IDataTable** table) override;

  // Puts another protocol tree in place of ZemoCore.ProtoSpecs, for tests of
  // trees the host's does not have.
  void SetProtoSpecsForTesting(IProtoSpecs* specs) { m_protoSpecs = specs; }

  // The record of a loaded row: a missing one is added with its ancestors.
  ZemoProtocolStatEntry& FindOrAddForLoad(ULONG entity);

 protected:
  // The record of entity's protocol, added with its ancestors' records ahead
  // of it; raises on a failed add (E_FAIL) or a failed tree question.
  uint32_t AddRecord(ULONG entity, uint32_t depth = 0);
  // Counts one packet at entity's record, adding it if missing. A broken
  // chain raises; a failed add is the result, and nothing is counted.
  HRESULT CountAt(ULONG entity, ZemoTime time, USHORT length);

  using TTableStatistic<D, CProtocolTable, IProtocolStats, Extra...>::m_entities;
  using TTableStatistic<D, CProtocolTable, IProtocolStats, Extra...>::m_table;
  ComPtr<IProtoSpecs> m_protoSpecs;
};

class ProtocolStats final : public TProtocolStats<ProtocolStats> {
 public:
  static constexpr char16_t kXmlElement[] = u"protocolstats";
  static constexpr char16_t kSelectName[] = u"protocolstats";
  static constexpr const CLSID& kClsid = CLSID_ProtocolStats;
  static constexpr bool kSkipNoIdParents = true;

  HRESULT ProcessPacket(IPacket* packet) override;
  // The reset's own part: the one-entry cache forgets its protocol.
  void ResetCache() noexcept {
    m_lastSpec = MediaSpec{};
    m_lastEntity = kNoEntityId;
  }

 private:
  // The last protocol given to the EntityTable and its identifier; an
  // identifier of kNoEntityId means the cache holds nothing.
  MediaSpec m_lastSpec{};
  ULONG m_lastEntity = kNoEntityId;
};

class ProtocolStatsByID final : public TProtocolStats<ProtocolStatsByID, IZemoStatsTrackerFactory> {
 public:
  static constexpr char16_t kXmlElement[] = u"protocolstatsbyid";
  static constexpr char16_t kSelectName[] = u"protocolidstats";
  static constexpr const CLSID& kClsid = CLSID_ProtocolStatsByID;
  static constexpr bool kSkipNoIdParents = false;
  // The room given to a packet's GetLayers.
  static constexpr ULONG kLayerRoom = 64;

  HRESULT ProcessPacket(IPacket* packet) override;

  // IZemoStatsTrackerFactory
  HRESULT CreateTracker(VARIANT description, IZemoStatsTracker** tracker) override;
};

extern template class TProtocolStats<ProtocolStats>;
extern template class TProtocolStats<ProtocolStatsByID, IZemoStatsTrackerFactory>;

}  // namespace zemo
