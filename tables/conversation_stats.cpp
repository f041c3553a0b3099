#include "tables/conversation_stats.h"

#include "frame/selection.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"
#include "network/stat_rows.h"
#include "platform/class_store.h"
#include "tables/table_support.h"

namespace zemo {

namespace {

constexpr TableColumn kColumns[] = {
    {u"Source", VT_BSTR}, {u"Dest", VT_BSTR}, {u"Protocol", VT_BSTR}, {u"Packets", VT_UI8}, {u"Bytes", VT_UI8},
};

// A pair of addresses read from the packet; ok only when both getters worked.
struct AddressPair {
  MediaSpec source{};
  MediaSpec destination{};
  bool ok = false;
};

template <class I>
AddressPair ReadPair(I* from, HRESULT (I::*source)(MediaSpec*), HRESULT (I::*destination)(MediaSpec*)) {
  AddressPair pair;
  pair.ok = SUCCEEDED((from->*source)(&pair.source)) && SUCCEEDED((from->*destination)(&pair.destination));
  return pair;
}

}  // namespace

// ---- IConversationStats ------------------------------------------------------

HRESULT ConversationStats::GetConversationCount(ULONG* count) { return RecordCount(count); }

HRESULT ConversationStats::GetConversationIndex(ULONG tupleIndex, ULONG* recordIndex, BOOL* found) {
  return RecordIndex(tupleIndex, recordIndex, found);
}

HRESULT ConversationStats::GetConversationEntry(ULONG recordIndex, ZemoConversationStatEntry* entry) {
  return RecordEntry(recordIndex, entry);
}

// ---- IZemoStats --------------------------------------------------------------

// The tables are asked for before this object's lock is taken: the
// context's lock comes first.
HRESULT ConversationStats::SetContext(IZemoStatsContext* context) {
  ComPtr<ITupleTable> tuples;
  ComPtr<IEntityTable> entities;
  HRESULT hr = context ? context->GetTupleTable(tuples.ReleaseAndGetAddressOf()) : S_OK;
  if (SUCCEEDED(hr) && context) hr = context->GetEntityTable(entities.ReleaseAndGetAddressOf());
  return Locked([&] {
    m_context = context;
    m_tuples = tuples;
    m_entities = entities;
    return hr;
  });
}

// ---- IProcessPacket ----------------------------------------------------------

ConversationStats::KnownPair ConversationStats::FindPair(const MediaSpec& source, const MediaSpec& destination,
                                                        ULONG protocol) {
  KnownPair known;
  TupleRecord tuple{};
  tuple.fProtocol = protocol;
  tuple.fNext = kNoRecord;
  if (FAILED(m_entities->FindOrAdd(&source, 0, &tuple.fSource))) return known;
  known.source = tuple.fSource;
  if (FAILED(m_entities->FindOrAdd(&destination, 0, &tuple.fDestination))) return known;
  known.destination = tuple.fDestination;
  ULONG id = kNoRecord;
  if (FAILED(m_tuples->FindOrAdd(&tuple, 0, &id))) return known;
  known.tuple = id;
  m_table.Prefetch(id);
  return known;
}

void ConversationStats::CountPair(const MediaSpec& source, const MediaSpec& destination, const KnownPair& known,
                                  ULONG protocol, ZemoTime time, USHORT length) {
  ULONG id = known.tuple;
  if (id == kNoRecord) {
    TupleRecord tuple{};
    tuple.fProtocol = protocol;
    tuple.fNext = kNoRecord;
    tuple.fSource = EntityOf(m_entities.Get(), source, known.source);
    tuple.fDestination = EntityOf(m_entities.Get(), destination, known.destination);
    // A source type without a sub-table of its own in the TupleTable ends
    // here: that pair has no conversation to count in.
    if (FAILED(m_tuples->FindOrAdd(&tuple, 1, &id))) return;
  }
  ZemoConversationStat& stat = m_table.FindOrAdd(id).Stat;
  CountConversation(stat, time, length);
}

HRESULT ConversationStats::ProcessPacket(IPacket* packet) {
  return Locked([&]() -> HRESULT {
    if (HRESULT gate = LimitGate(); gate != S_OK) return gate;
    if (!packet) return E_INVALIDARG;
    if (!m_tuples || !m_entities) return E_FAIL;

    PacketBasics basics;
    if (ReadPacketBasics(packet, basics) == S_FALSE) return S_FALSE;
    const ZemoTime time = basics.time;
    const USHORT length = basics.length;

    MediaSpec protocolSpec{};
    CheckHr(basics.addresses->GetProtocol(&protocolSpec));
    ULONG protocol = kNoEntityId;
    CheckHr(m_entities->FindOrAdd(&protocolSpec, 1, &protocol));

    IPacketAddresses* a = basics.addresses.Get();
    // Only the logical pair must agree in type: an IPv4 source with an IPv6
    // destination is no conversation between two logical addresses.
    AddressPair logical = ReadPair(a, &IPacketAddresses::GetLogicalSource, &IPacketAddresses::GetLogicalDestination);
    logical.ok = logical.ok && logical.source.fType == logical.destination.fType;
    AddressPair physical =
        ReadPair(a, &IPacketAddresses::GetPhysicalSource, &IPacketAddresses::GetPhysicalDestination);
    // Both conversations are looked up, finding only, before either is
    // counted, so that their records come from memory together.
    KnownPair knownLogical, knownPhysical;
    if (logical.ok) knownLogical = FindPair(logical.source, logical.destination, protocol);
    if (physical.ok) knownPhysical = FindPair(physical.source, physical.destination, protocol);
    if (logical.ok) CountPair(logical.source, logical.destination, knownLogical, protocol, time, length);
    if (physical.ok) CountPair(physical.source, physical.destination, knownPhysical, protocol, time, length);
    if (basics.wireless) {
      AddressPair radio =
          ReadPair(a, &IPacketAddresses::GetWirelessTransmitter, &IPacketAddresses::GetWirelessReceiver);
      if (radio.ok) CountPair(radio.source, radio.destination, KnownPair{}, protocol, time, length);
    }
    return S_OK;
  });
}

// ---- IPersistFile ------------------------------------------------------------

HRESULT ConversationStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&]() -> HRESULT {
    // Unlike the other tables, the dump goes through the system's file
    // functions and has no summary line.
    return m_table.SaveExport(fileName, {FileOpenStyle::System, false}, [](TextWriter& out, const ZemoConversationStatEntry& e) {
      const ZemoConversationStat& s = e.Stat;
      out.Printf("0x%8.8X\t0x%8.8X\t%llu\t%llu\t%llu\t%llu\t%u\t%u\n", e.TupleIndex, e.Next,
                 static_cast<unsigned long long>(s.FirstTime), static_cast<unsigned long long>(s.LastTime),
                 static_cast<unsigned long long>(s.Packets), static_cast<unsigned long long>(s.Bytes),
                 unsigned{s.MinPacketSize}, unsigned{s.MaxPacketSize});
    });
  });
}

// ---- ISelectableObject -------------------------------------------------------

HRESULT ConversationStats::GetTable(IDataTable** table) {
  return Locked([&] {
    CheckOut(table);
    CEntityText names(m_entities.Get());
    MakeTable(table, kColumns);
    TableRows rows(*table);
    for (uint32_t i = 0, n = m_table.GetCount(); i < n; ++i) {
      const ZemoConversationStatEntry& e = m_table[i];
      // A tuple the TupleTable does not know shows with empty names.
      TupleRecord tuple{};
      if (!m_tuples || FAILED(m_tuples->GetTuple(e.TupleIndex, &tuple)))
        tuple.fSource = tuple.fDestination = tuple.fProtocol = kNoEntityId;
      rows.Add({names.Of(tuple.fSource), names.Of(tuple.fDestination), names.Of(tuple.fProtocol),
                CVariant::UI8(e.Stat.Packets), CVariant::UI8(e.Stat.Bytes)});
    }
  });
}

}  // namespace zemo
