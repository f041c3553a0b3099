#include "wireless/wireless_node_stats2.h"

#include <stdexcept>

#include "frame/clsids.h"
#include "frame/task_memory.h"
#include "wireless/adapter_facts.h"
#include "wireless/wireless_association.h"

namespace zemo {

std::unique_ptr<COMGlue::NameTable> WirelessNodeStats2::Names() const {
  if (!m_book) return nullptr;
  return std::make_unique<COMGlue::NameTable>(m_book.Get());
}

ZemoWirelessNodeStatEntry2 WirelessNodeStats2::Record(ULONG index) {
  const ZemoWirelessNodeStatEntry2* e = index == CWirelessNodeStats::kNone ? nullptr : m_engine.GetNode(index);
  if (!e) AtlThrow(E_FAIL);
  ZemoWirelessNodeStatEntry2 copy = *e;
  uint8_t trust = 0;
  if (m_engine.BookTrust(copy.Stat, Names().get(), &trust)) copy.Stat.Trust = trust;
  return copy;
}

// --- the nodes ---

HRESULT WirelessNodeStats2::GetEntityTable(IEntityTable** table) {
  return Locked([&] {
    CheckOut(table);
    if (!m_entities) AtlThrow(E_FAIL);
    m_entities.CopyTo(table);
  });
}

HRESULT WirelessNodeStats2::GetAssociationTable(IWirelessNodeAssociationTable** table) {
  return Locked([&] {
    CheckOut(table);
    ComPtr<WirelessNodeAssociationTable> copy = WirelessNodeAssociationTable::Create();
    for (const ZemoWirelessNodeAssociation& r : m_engine.Associations().Records()) {
      copy->Set().Append(r);
      copy->Set().Touch();
    }
    *table = copy.Detach();
  });
}

HRESULT WirelessNodeStats2::GetNodeCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_engine.NodeCount();
  });
}

HRESULT WirelessNodeStats2::GetRateChangeCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_engine.RateChangeCount();
  });
}

HRESULT WirelessNodeStats2::GetUnknownBSSIDIndex(ULONG* index) {
  return Locked([&] {
    CheckOut(index);
    *index = m_engine.GetUnknownBSSIDIndex();
  });
}

HRESULT WirelessNodeStats2::GetUnknownESSIDIndex(ULONG* index) {
  return Locked([&] {
    CheckOut(index);
    *index = m_engine.GetUnknownESSIDIndex();
  });
}

HRESULT WirelessNodeStats2::GetNodeIndex(ULONG entity, ULONG* index, BOOL* found) {
  return Locked([&] {
    CheckOut(index);
    *index = m_engine.FindNode(entity, nullptr);
    if (found) *found = *index != CWirelessNodeStats::kNone;
  });
}

HRESULT WirelessNodeStats2::GetNodeStat(ULONG index, ZemoWirelessNodeStat2* record) {
  return Locked([&] {
    CheckOut(record);
    *record = Record(index).Stat;
  });
}

HRESULT WirelessNodeStats2::GetNodeStat(ULONG index, ZemoWirelessNodeStatEntry* record) {
  return Locked([&] {
    CheckOut(record);
    *record = FirstGenerationNode(Record(index));
  });
}

HRESULT WirelessNodeStats2::GetTotals(ZemoWirelessNodeTotals* totals) {
  return Locked([&] {
    CheckOut(totals);
    m_engine.GetTotals(totals, Names().get());
  });
}

HRESULT WirelessNodeStats2::GetDataRates(ULONG** rates, ULONG* count) {
  return Locked([&] {
    CheckOut(rates);
    CheckOut(count);
    GiveTaskArray(std::span<const ULONG>(m_engine.DataRates()), rates, count);
  });
}

HRESULT WirelessNodeStats2::GetNodeDataRates(ULONG index, ZemoWirelessNodeDataRateStat** rates, ULONG* count) {
  return Locked([&] {
    CheckOut(rates);
    CheckOut(count);
    if (index >= m_engine.NodeCount()) AtlThrow(E_FAIL);
    GiveTaskArray(std::span<const ZemoWirelessNodeDataRateStat>(m_engine.RateRow(index)), rates, count);
  });
}

// --- IZemoStats ---

HRESULT WirelessNodeStats2::GetContext(IZemoStatsContext** context) {
  return Locked([&] {
    CheckOut(context);
    *context = m_context;
    if (m_context) m_context->AddRef();
  });
}

// What the context gives is gathered before this object's lock is taken:
// the context's lock comes first.
HRESULT WirelessNodeStats2::SetContext(IZemoStatsContext* context) {
  if (!context) return E_POINTER;
  return Boundary([&]() -> HRESULT {
    ComPtr<IEntityTable> entities;
    CheckHr(context->GetEntityTable(entities.ReleaseAndGetAddressOf()));
    ComPtr<IWirelessChannelStats2> channels;
    if (FAILED(context->GetStats(CLSID_WirelessChannelStats2, IWirelessChannelStats2::iid, channels.OutVoid())))
      channels = nullptr;
    ComPtr<INameTable> book = COMGlue::AddressBookOf(context);
    return Locked([&] {
      m_context = context;
      m_entities = entities;
      m_channels = channels;
      m_book = book;
      m_engine.SetChannelLink(m_channels.Get());
      m_engine.SetEntityTable(m_entities.Get());
      if (!m_entities) throw std::invalid_argument("null pointer inEntityTable");
    });
  });
}

HRESULT WirelessNodeStats2::Reset() {
  IZemoStatsContext* context = nullptr;
  Locked([&] { context = m_context; });
  return ResetFromAdapter(context, m_engine, [this](auto&& body) { return Locked(body); });
}

HRESULT WirelessNodeStats2::ProcessPacket(IPacket* packet) {
  return Locked([&] {
    if (!packet) AtlThrow(E_POINTER);
    WirelessPacketView view(packet);
    m_engine.ProcessPacket(view);
  });
}

// --- persistence ---

HRESULT WirelessNodeStats2::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_WirelessNodeStats2;
  });
}

HRESULT WirelessNodeStats2::Load(IStream* stream) {
  return Locked([&] { m_engine.Load(stream); });
}

// The cookie is neither read nor written: the whole state goes out.
HRESULT WirelessNodeStats2::SaveDeltas(IStream* stream, ZemoTime*) {
  return Locked([&] { m_engine.Save(stream, Names().get()); });
}

}  // namespace zemo
