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

void ConversationStats::CountPair(Pair& pair, ZemoTime time, USHORT length) {
  KnownSlot& key = pair.key;
  if (key.record == kNoRecord) {
    try {
      m_known.Reserve();
    } catch (const CAtlException&) {
      AtlThrow(E_FAIL);
    }
    TupleRecord tuple{};
    tuple.fSource = key.source;
    tuple.fDestination = key.destination;
    tuple.fProtocol = key.protocol;
    tuple.fNext = kNoRecord;
    ULONG id = kNoRecord;
    // A source type without a sub-table of its own in the TupleTable ends
    // here: that pair has no conversation to count in.
    if (FAILED(m_tuples->FindOrAdd(&tuple, 1, &id))) return;
    key.record = m_table.Find(id);
    if (key.record == kNoRecord) key.record = m_table.Add(id);
    // A packet may hold the same pair twice (a wireless pair that repeats
    // the physical one): the second finds it known by now.
    if (m_known.Find(pair.hash, [&](const KnownSlot& s) { return s.record == key.record; }) == kNoRecord)
      m_known.Insert(key);
  }
  CountConversation(m_table[key.record].Stat, time, length);
}

// The pairs are read, interned and looked up together, so that the memory
// each needs is asked for at once rather than one trip after another; they
// still count, and add, in their order.
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
    Pair pairs[3];
    size_t count = 0;
    auto read = [&](HRESULT (IPacketAddresses::*source)(MediaSpec*), HRESULT (IPacketAddresses::*destination)(MediaSpec*)) {
      Pair& p = pairs[count];
      return SUCCEEDED((a->*source)(&p.source)) && SUCCEEDED((a->*destination)(&p.destination));
    };
    // Only the logical pair must agree in type: an IPv4 source with an IPv6
    // destination is no conversation between two logical addresses.
    if (read(&IPacketAddresses::GetLogicalSource, &IPacketAddresses::GetLogicalDestination) &&
        pairs[count].source.fType == pairs[count].destination.fType)
      ++count;
    if (read(&IPacketAddresses::GetPhysicalSource, &IPacketAddresses::GetPhysicalDestination)) ++count;
    if (basics.wireless && read(&IPacketAddresses::GetWirelessTransmitter, &IPacketAddresses::GetWirelessReceiver))
      ++count;

    // An address the EntityTable cannot hold ends the packet, once the
    // pairs before it are counted.
    HRESULT failure = S_OK;
    size_t interned = 0;
    for (; interned < count; ++interned) {
      Pair& p = pairs[interned];
      failure = m_entities->FindOrAdd(&p.source, 1, &p.key.source);
      if (SUCCEEDED(failure)) failure = m_entities->FindOrAdd(&p.destination, 1, &p.key.destination);
      if (FAILED(failure)) break;
      p.key.protocol = protocol;
      p.hash = p.key.Hash();
      m_known.Prefetch(p.hash);
    }
    for (size_t i = 0; i < interned; ++i) {
      Pair& p = pairs[i];
      p.key.record = m_known.Find(p.hash, [&](const KnownSlot& s) {
        return s.source == p.key.source && s.destination == p.key.destination && s.protocol == p.key.protocol;
      });
      if (p.key.record != kNoRecord) __builtin_prefetch(&m_table[p.key.record]);
    }
    for (size_t i = 0; i < interned; ++i) CountPair(pairs[i], time, length);
    return FAILED(failure) ? failure : S_OK;
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
