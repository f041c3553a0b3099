#include "tables/node_stats_hierarchy.h"

#include "frame/selection.h"
#include "frame/text_export.h"
#include "network/stat_rows.h"
#include "tables/table_support.h"

namespace zemo {

namespace {

using Traits = NodeHierarchyTableTraits;

constexpr TableColumn kColumns[] = {
    {u"PhysicalNode", VT_BSTR},   {u"LogicalNode", VT_BSTR},      {u"PacketsReceived", VT_UI8},
    {u"PacketsSent", VT_UI8},     {u"BytesReceived", VT_UI8},     {u"BytesSent", VT_UI8},
    {u"MulticastPackets", VT_UI8}, {u"MulticastBytes", VT_UI8},   {u"BroadcastPackets", VT_UI8},
    {u"BroadcastBytes", VT_UI8},
};

}  // namespace

// ---- INodeStatsHierarchy -----------------------------------------------------

HRESULT NodeStatsHierarchy::GetEntityTable(IEntityTable** table) { return EntityTableOut(table); }

HRESULT NodeStatsHierarchy::GetNodeCount(ULONG* count) { return RecordCount(count); }

HRESULT NodeStatsHierarchy::GetPhysicalNodeCount(ULONG* count) { return EntityTypeCount(kPhysicalNodeTypes, count); }
HRESULT NodeStatsHierarchy::GetLogicalNodeCount(ULONG* count) { return EntityTypeCount(kLogicalNodeTypes, count); }

HRESULT NodeStatsHierarchy::GetNodeIndex(ULONG physicalIndex, ULONG logicalIndex, ULONG* recordIndex, BOOL* found) {
  if (physicalIndex != kNoRecord) return RecordIndex(Traits::MakeKey(physicalIndex, logicalIndex), recordIndex, found);
  // Without the physical address: the first record, in record order, of the
  // logical one.
  return Locked([&] {
    CheckOut(recordIndex);
    CheckOut(found);
    *recordIndex = kNoRecord;
    *found = FALSE;
    for (uint32_t i = 0, n = m_table.GetCount(); i < n; ++i) {
      if (m_table[i].LogicalIndex != logicalIndex) continue;
      *recordIndex = i;
      *found = TRUE;
      return;
    }
  });
}

HRESULT NodeStatsHierarchy::GetNodeEntry(ULONG recordIndex, ZemoNodeHierarchyStatEntry* entry) {
  return RecordEntry(recordIndex, entry);
}

// ---- records -----------------------------------------------------------------

ZemoNodeHierarchyStatEntry& NodeStatsHierarchy::FindOrAdd(Key key) {
  uint32_t i = m_table.Find(key);
  if (i != kNoRecord) return m_table[i];
  if (Traits::LogicalOf(key) != kNoRecord) FindOrAdd(Traits::MakeKey(Traits::PhysicalOf(key), kNoRecord));
  return m_table[m_table.Add(key)];
}

ZemoNodeHierarchyStatEntry& NodeStatsHierarchy::FindOrAddForLoad(Key key) { return FindOrAdd(key); }

// ---- IProcessPacket ----------------------------------------------------------

HRESULT NodeStatsHierarchy::ProcessPacket(IPacket* packet) {
  return Locked([&]() -> HRESULT {
    if (!packet) return E_INVALIDARG;
    if (!m_entities) return E_FAIL;
    if (HRESULT gate = LimitGate(); gate != S_OK) return gate;

    PacketBasics basics;
    if (ReadPacketBasics(packet, basics) == S_FALSE) return S_FALSE;
    const ZemoTime time = basics.time;
    const USHORT length = basics.length;
    MediaSpec spec[kAddressSlots];
    ReadNodeAddresses(basics.addresses.Get(), spec);

    ULONG known[kAddressSlots];
    KnownEntities(m_entities.Get(), spec, known);
    auto intern = [&](int slot) { return EntityOf(m_entities.Get(), spec[slot], known[slot]); };
    auto present = [&](int slot) { return IsValidSpec(spec[slot]) ? &spec[slot] : nullptr; };
    for (int side : {kPhysicalSource, kPhysicalDestination}) {
      if (known[side] == kNoEntityId) continue;
      m_table.Prefetch(Traits::MakeKey(known[side], kNoRecord));
      if (known[side + 1] != kNoEntityId) m_table.Prefetch(Traits::MakeKey(known[side], known[side + 1]));
    }

    // A logical address counts only beside the physical address of its
    // side; the physical record of a side is counted ahead of its pair.
    if (present(kPhysicalSource)) {
      const ULONG physical = intern(kPhysicalSource);
      CountSent(FindOrAdd(Traits::MakeKey(physical, kNoRecord)).Stat, time, length, present(kPhysicalDestination));
      if (present(kLogicalSource)) {
        const ULONG logical = intern(kLogicalSource);
        CountSent(FindOrAdd(Traits::MakeKey(physical, logical)).Stat, time, length, present(kLogicalDestination));
      }
    }
    if (present(kPhysicalDestination)) {
      // A record that can't be had on this side is E_FAIL, whatever the cause.
      auto record = [&](Key key) -> ZemoNodeHierarchyStatEntry& {
        try {
          return FindOrAdd(key);
        } catch (const CAtlException&) {
          AtlThrow(E_FAIL);
        }
      };
      const ULONG physical = intern(kPhysicalDestination);
      CountReceived(record(Traits::MakeKey(physical, kNoRecord)).Stat, time, length);
      if (present(kLogicalDestination)) {
        const ULONG logical = intern(kLogicalDestination);
        CountReceived(record(Traits::MakeKey(physical, logical)).Stat, time, length);
      }
    }
    return S_OK;
  });
}

// ---- IPersistFile ------------------------------------------------------------

HRESULT NodeStatsHierarchy::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&]() -> HRESULT {
    return m_table.SaveExport(fileName, {FileOpenStyle::Runtime, true},
                              [](TextWriter& out, const ZemoNodeHierarchyStatEntry& e) {
                                out.Printf("0x%8.8X\t0x%8.8X\t0x%8.8X\n", e.PhysicalIndex, e.LogicalIndex, e.Next);
                              });
  });
}

// ---- ISelectableObject -------------------------------------------------------

HRESULT NodeStatsHierarchy::GetTable(IDataTable** table) {
  return Locked([&] {
    CheckOut(table);
    CEntityText names(m_entities.Get());
    const CVariant none = CVariant::Str(u"");
    MakeTable(table, kColumns);
    TableRows rows(*table);
    for (uint32_t i = 0, n = m_table.GetCount(); i < n; ++i) {
      const ZemoNodeHierarchyStatEntry& e = m_table[i];
      const ZemoNodeStat& s = e.Stat;
      rows.Add({names.Of(e.PhysicalIndex), e.LogicalIndex == kNoRecord ? none : names.Of(e.LogicalIndex),
                CVariant::UI8(s.PacketsReceived), CVariant::UI8(s.PacketsSent), CVariant::UI8(s.BytesReceived),
                CVariant::UI8(s.BytesSent), CVariant::UI8(s.MulticastPackets), CVariant::UI8(s.MulticastBytes),
                CVariant::UI8(s.BroadcastPackets), CVariant::UI8(s.BroadcastBytes)});
    }
  });
}

}  // namespace zemo
