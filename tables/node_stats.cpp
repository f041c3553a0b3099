#include "tables/node_stats.h"

#include "frame/selection.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"
#include "network/stat_rows.h"
#include "platform/class_store.h"
#include "tables/table_support.h"

namespace zemo {

// ---- CNodeUnits --------------------------------------------------------------

CNodeUnits::CNodeUnits() {
  static constexpr const char16_t* kLabels[] = {
      u"Total Bytes",       u"Total Packets",     u"Packets Sent",
      u"Bytes Sent",        u"Packets Received",  u"Bytes Received",
      u"Broadcast Packets", u"Broadcast Bytes",   u"Multicast Packets",
      u"Multicast Bytes",   u"Broadcast/Multicast Packets", u"Broadcast/Multicast Bytes",
      u"Min Packet Size Sent", u"Max Packet Size Sent", u"Min Packet Size Received",
      u"Max Packet Size Received",
  };
  ULONG code = kNodeTotalBytes;
  for (const char16_t* label : kLabels) m_units.SetAt(code++, label);
}

const CNodeUnits& CNodeUnits::Get() {
  static const CNodeUnits units;
  return units;
}

const char16_t* CNodeUnits::Label(ULONG code) const noexcept {
  const char16_t* label = nullptr;
  return m_units.Lookup(code, label) ? label : nullptr;
}

// ---- INodeStats --------------------------------------------------------------

namespace {

constexpr TableColumn kColumns[] = {
    {u"Node", VT_BSTR},           {u"PacketsReceived", VT_UI8}, {u"PacketsSent", VT_UI8},
    {u"BytesReceived", VT_UI8},   {u"BytesSent", VT_UI8},       {u"MulticastPackets", VT_UI8},
    {u"MulticastBytes", VT_UI8},  {u"BroadcastPackets", VT_UI8}, {u"BroadcastBytes", VT_UI8},
    {u"EntityIndex", VT_UI4},
};

}  // namespace

HRESULT NodeStats::GetEntityTable(IEntityTable** table) { return EntityTableOut(table); }

HRESULT NodeStats::GetNodeCount(ULONG* count) { return RecordCount(count); }

HRESULT NodeStats::GetPhysicalNodeCount(ULONG* count) { return EntityTypeCount(kPhysicalNodeTypes, count); }
HRESULT NodeStats::GetLogicalNodeCount(ULONG* count) { return EntityTypeCount(kLogicalNodeTypes, count); }

HRESULT NodeStats::GetNodeIndex(ULONG entityIndex, ULONG* recordIndex, BOOL* found) {
  return RecordIndex(entityIndex, recordIndex, found);
}

HRESULT NodeStats::GetNodeEntry(ULONG recordIndex, ZemoNodeStatEntry* entry) { return RecordEntry(recordIndex, entry); }

// ---- IProcessPacket ----------------------------------------------------------

HRESULT NodeStats::ProcessPacket(IPacket* packet) {
  return Locked([&]() -> HRESULT {
    if (!packet) return E_INVALIDARG;
    if (!m_entities) return E_FAIL;
    if (HRESULT gate = LimitGate(); gate != S_OK) return gate;

    PacketBasics basics;
    if (ReadPacketBasics(packet, basics) == S_FALSE) return S_FALSE;
    IPacketAddresses* addresses = basics.addresses.Get();
    const ZemoTime time = basics.time;
    const USHORT length = basics.length;

    MediaSpec spec[kAddressSlots];
    ReadNodeAddresses(addresses, spec);

    ULONG known[kAddressSlots];
    KnownEntities(m_entities.Get(), spec, known);
    for (ULONG entity : known)
      if (entity != kNoEntityId) m_table.Prefetch(entity);

    // Each address is found, counted and possibly added before the next, so
    // a failure keeps what the addresses before it counted.
    for (int slot = 0; slot < kAddressSlots; ++slot) {
      if (!IsValidSpec(spec[slot])) continue;
      ZemoNodeStat& stat = m_table.FindOrAdd(EntityOf(m_entities.Get(), spec[slot], known[slot])).Stat;
      if (slot < kPhysicalDestination) {
        const MediaSpec& destination = spec[slot + 2];
        CountSent(stat, time, length, IsValidSpec(destination) ? &destination : nullptr);
      } else {
        CountReceived(stat, time, length);
      }
    }
    return S_OK;
  });
}

// ---- IPersistFile ------------------------------------------------------------

HRESULT NodeStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&]() -> HRESULT {
    return m_table.SaveExport(fileName, {FileOpenStyle::Runtime, true}, [](TextWriter& out, const ZemoNodeStatEntry& e) {
      out.Printf("0x%8.8X\t0x%8.8X\n", e.EntityIndex, e.Next);
    });
  });
}

// ---- IZemoStatsTrackerFactory ------------------------------------------------

HRESULT NodeStats::CreateTracker(VARIANT description, IZemoStatsTracker** tracker) {
  return CreateKeyedTracker<INodeStatsTracker>(description, tracker, CLSID_NodeStatsTracker,
                                               [](IXMLDOMElement* root) { return LoadSpecAttributes(root); });
}

// ---- ISelectableObject -------------------------------------------------------

void NodeTableToResult(const CNodeTable& records, IEntityTable* entities, IDataTable** table) {
  CheckOut(table);
  CEntityText names(entities);
  MakeTable(table, kColumns);
  TableRows rows(*table);
  for (uint32_t i = 0, n = records.GetCount(); i < n; ++i) {
    const ZemoNodeStatEntry& e = records[i];
    const ZemoNodeStat& s = e.Stat;
    rows.Add({names.Of(e.EntityIndex), CVariant::UI8(s.PacketsReceived), CVariant::UI8(s.PacketsSent),
              CVariant::UI8(s.BytesReceived), CVariant::UI8(s.BytesSent), CVariant::UI8(s.MulticastPackets),
              CVariant::UI8(s.MulticastBytes), CVariant::UI8(s.BroadcastPackets), CVariant::UI8(s.BroadcastBytes),
              CVariant::UI4(e.EntityIndex)});
  }
}

HRESULT NodeStats::GetTable(IDataTable** table) {
  return Locked([&] { NodeTableToResult(m_table, m_entities.Get(), table); });
}

}  // namespace zemo
