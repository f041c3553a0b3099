#include "context/stats_context.h"

#include <algorithm>
#include <utility>

#include "frame/clsids.h"
#include "frame/module.h"
#include "platform/class_store.h"
#include "platform/clock.h"

namespace zemo {
namespace {

// Room for one more entry, grown as the module's growing arrays grow: by an
// eighth of the count, at least 4 and at most 1024 entries at a time.
template <class T>
void ReserveOneMore(std::vector<T>& v) {
  if (v.size() < v.capacity()) return;
  size_t step = std::clamp<size_t>(v.size() / 8, 4, 1024);
  v.reserve(std::max(v.size() + 1, v.capacity() + step));
}

// The interface without a reference of its own: the caller's reference to
// the same object keeps it valid. Null if the object does not answer.
template <class I>
I* CachedInterface(IUnknown* object) {
  ComPtr<I> p;
  if (FAILED(object->QueryInterface(IidOf<I>(), p.OutVoid()))) return nullptr;
  return p.Get();
}

}  // namespace

StatsContext::~StatsContext() {
  m_site = nullptr;
  m_adapterInfo = nullptr;
  m_order.clear();
  // The slots go first, so that no cached pointer outlives its statistic.
  m_slots.clear();
  m_stats.RemoveAll();
  m_updater = nullptr;
  m_tupleTable = nullptr;
  m_entityTable = nullptr;
}

HRESULT StatsContext::FinalConstruct() {
  HRESULT hr = CreateModuleInstance(CLSID_EntityTable, IEntityTable::iid, m_entityTable.OutVoid());
  if (SUCCEEDED(hr)) hr = CreateModuleInstance(CLSID_TupleTable, ITupleTable::iid, m_tupleTable.OutVoid());
  if (SUCCEEDED(hr)) hr = m_tupleTable->SetEntityTable(m_entityTable.Get());
  // Every context starts with the updater that writes its summary.
  if (SUCCEEDED(hr)) hr = CreateModuleInstance(CLSID_SummaryStatsUpdater, IUnknown::iid, m_updater.OutVoid());
  return hr;
}

LONG StatsContext::FindSlot(REFCLSID key) const noexcept {
  for (size_t i = 0; i < m_slots.size(); ++i)
    if (m_slots[i].key == key) return static_cast<LONG>(i);
  return -1;
}

// One pass in the order the constraints came. Contradicting constraints, and
// those a later swap undoes, stay as the pass leaves them.
void StatsContext::ApplyStatsOrder() noexcept {
  for (const StatsOrder& order : m_order) {
    LONG first = FindSlot(order.first);
    LONG second = FindSlot(order.second);
    if (first >= 0 && second >= 0 && first > second) std::swap(m_slots[first], m_slots[second]);
  }
}

// --- IZemoStatsContext ---

HRESULT StatsContext::GetStatsAt(ULONG index, IZemoStats** stats) {
  return Locked([&] {
    CheckOut(stats);
    if (index >= m_slots.size()) AtlThrow(E_INVALIDARG);
    *stats = m_slots[index].stats;
    (*stats)->AddRef();
  });
}

HRESULT StatsContext::GetStatsCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<ULONG>(m_slots.size());
  });
}

HRESULT StatsContext::GetStats(REFCLSID key, REFIID iid, void** out) {
  return Locked([&]() -> HRESULT {
    CheckOut(out);
    const ComPtr<IZemoStats>* stats = m_stats.Lookup(key);
    if (!stats) return E_FAIL;
    return (*stats)->QueryInterface(iid, out);
  });
}

HRESULT StatsContext::AddStats(REFCLSID key, IZemoStats* stats) {
  return Locked([&]() -> HRESULT {
    if (!stats) AtlThrow(E_POINTER);
    if (m_stats.Contains(key)) return S_OK;
    CheckHr(stats->SetContext(Self()));
    HRESULT hr = CheckHr(stats->Reset());
    StatSlot slot{key, stats, CachedInterface<IProcessPacket>(stats), CachedInterface<IProcessTime>(stats)};
    // Room first, so that once the map owns the statistic its slot cannot fail.
    ReserveOneMore(m_slots);
    m_stats.SetAt(key, stats);
    m_slots.push_back(slot);
    ApplyStatsOrder();
    return hr;
  });
}

HRESULT StatsContext::RemoveStats(REFCLSID key) {
  return Locked([&]() -> HRESULT {
    ComPtr<IZemoStats>* owned = m_stats.Lookup(key);
    if (!owned) return E_FAIL;
    // Released only when slot and map agree again, in case its release
    // comes back to this context.
    ComPtr<IZemoStats> leaving = std::move(*owned);
    m_stats.RemoveKey(key);
    LONG index = FindSlot(key);
    if (index >= 0) m_slots.erase(m_slots.begin() + index);
    return S_OK;
  });
}

HRESULT StatsContext::RemoveAllStats() {
  return Locked([&] {
    std::vector<ComPtr<IZemoStats>> leaving;
    leaving.reserve(m_stats.GetCount());
    m_stats.ForEach([&](const CLSID&, ComPtr<IZemoStats>& stats) { leaving.push_back(std::move(stats)); });
    m_slots.clear();
    m_stats.RemoveAll();
  });
}

HRESULT StatsContext::GetMediaType(ULONG* type) {
  return Locked([&] {
    CheckOut(type);
    *type = m_mediaType;
  });
}

HRESULT StatsContext::SetMediaType(ULONG type) {
  return Locked([&] { m_mediaType = type; });
}

HRESULT StatsContext::GetMediaSubType(ULONG* subType) {
  return Locked([&] {
    CheckOut(subType);
    *subType = m_mediaSubType;
  });
}

HRESULT StatsContext::SetMediaSubType(ULONG subType) {
  return Locked([&] { m_mediaSubType = subType; });
}

HRESULT StatsContext::GetLinkSpeed(ULONGLONG* speed) {
  return Locked([&] {
    CheckOut(speed);
    *speed = m_linkSpeed;
  });
}

HRESULT StatsContext::SetLinkSpeed(ULONGLONG speed) {
  return Locked([&] { m_linkSpeed = speed; });
}

HRESULT StatsContext::GetEntityTable(IEntityTable** table) {
  return Locked([&] {
    CheckOut(table);
    m_entityTable.CopyTo(table);
  });
}

HRESULT StatsContext::GetTupleTable(ITupleTable** table) {
  return Locked([&] {
    CheckOut(table);
    m_tupleTable.CopyTo(table);
  });
}

HRESULT StatsContext::GetStartDateTime(ZemoTime* time) {
  return Locked([&] {
    CheckOut(time);
    *time = m_startTime;
  });
}

HRESULT StatsContext::SetStartDateTime(ZemoTime time) {
  return Locked([&] { m_startTime = time; });
}

// While nothing has been seen, a capture runs until now.
ZemoTime StatsContext::StopTimeOrNow() const { return m_stopTime != 0 ? m_stopTime : Now(); }

HRESULT StatsContext::GetStopDateTime(ZemoTime* time) {
  return Locked([&] {
    CheckOut(time);
    *time = StopTimeOrNow();
  });
}

HRESULT StatsContext::SetStopDateTime(ZemoTime time) {
  return Locked([&] { m_stopTime = time; });
}

HRESULT StatsContext::GetDuration(ULONGLONG* duration) {
  return Locked([&] {
    CheckOut(duration);
    ZemoTime stop = StopTimeOrNow();
    *duration = m_startTime != 0 && stop > m_startTime ? stop - m_startTime : 0;
  });
}

HRESULT StatsContext::GetTotalPackets(ULONGLONG* packets) {
  return Locked([&] {
    CheckOut(packets);
    *packets = m_totalPackets;
  });
}

HRESULT StatsContext::GetTotalBytes(ULONGLONG* bytes) {
  return Locked([&] {
    CheckOut(bytes);
    *bytes = m_totalBytes;
  });
}

HRESULT StatsContext::GetStatsUpdater(IUnknown** updater) {
  return Locked([&] {
    CheckOut(updater);
    m_updater.CopyTo(updater);
  });
}

HRESULT StatsContext::SetStatsUpdater(IUnknown* updater) {
  return Locked([&] {
    if (m_updater.Get() != updater) m_updater = updater;
  });
}

// No lock of its own across Update: the updater reads the context through
// its interfaces. A save calls this within its lock, so that the summary it
// writes is the one just updated.
HRESULT StatsContext::UpdateStats() {
  ComPtr<IUnknown> updater;
  HRESULT hr = Locked([&] { updater = m_updater; });
  if (FAILED(hr) || !updater) return hr;
  return Unlocked([&]() -> HRESULT {
    ComPtr<IStatsUpdater> update;
    if (FAILED(updater.As(&update))) return S_OK;
    return update->Update(Self());
  });
}

HRESULT StatsContext::GetAdapterInfo(IAdapterInfo** info) {
  return Locked([&] {
    CheckOut(info);
    m_adapterInfo.CopyTo(info);
  });
}

HRESULT StatsContext::SetAdapterInfo(IAdapterInfo* info) {
  return Locked([&] {
    m_adapterInfo = info;
    if (!info) return;
    // The adapter writes straight into the fields; its statuses don't matter.
    info->GetMediaType(&m_mediaType);
    info->GetMediaSubType(&m_mediaSubType);
    info->GetLinkSpeed(&m_linkSpeed);
  });
}

HRESULT StatsContext::AddStatsOrder(REFCLSID first, REFCLSID second) {
  return Locked([&] {
    bool present = std::any_of(m_order.begin(), m_order.end(),
                               [&](const StatsOrder& o) { return o.first == first && o.second == second; });
    if (!present) {
      ReserveOneMore(m_order);
      m_order.push_back({first, second});
    }
    ApplyStatsOrder();
  });
}

// --- The packet and the tick ---

// The hot path: two calls on the packet and one per interested statistic,
// nothing allocated and nothing looked up.
HRESULT StatsContext::ProcessPacket(IPacket* packet) {
  return Locked([&] {
    if (!packet) AtlThrow(E_INVALIDARG);
    ZemoTime time = 0;
    CheckHr(packet->GetTimeStamp(&time));
    if (m_startTime == 0) m_startTime = time;
    m_stopTime = time;
    USHORT length = 0;
    CheckHr(packet->GetPacketLength(&length));
    ++m_totalPackets;
    m_totalBytes += length;
    // A statistic added during the walk waits for the next packet; one
    // removed during it ends the walk early rather than leave the array.
    const size_t count = m_slots.size();
    for (size_t i = 0; i < count && i < m_slots.size(); ++i)
      if (IProcessPacket* stats = m_slots[i].processPacket) stats->ProcessPacket(packet);
  });
}

HRESULT StatsContext::ProcessTime(ZemoTime now) {
  return Locked([&] {
    // A tick of 0 clears both times.
    if (now == 0) m_startTime = 0;
    m_stopTime = now;
    const size_t count = m_slots.size();
    for (size_t i = 0; i < count && i < m_slots.size(); ++i)
      if (IProcessTime* stats = m_slots[i].processTime) stats->ProcessTime(now);
  });
}

// --- Resets ---

HRESULT StatsContext::ResetContext(bool statisticsReset) {
  return Locked([&]() -> HRESULT {
    m_startTime = 0;
    m_stopTime = 0;
    m_totalPackets = 0;
    m_totalBytes = 0;
    // The tables first: the statistics' records refer to their identifiers.
    // Only the tuple table's status can be the result, when no statistic follows.
    if (m_entityTable) m_entityTable->Reset();
    HRESULT hr = m_tupleTable ? m_tupleTable->Reset() : S_OK;
    for (size_t i = 0; i < m_slots.size(); ++i) {
      IZemoStats* stats = m_slots[i].stats;
      ComPtr<IResetStatistics> own;
      if (statisticsReset && SUCCEEDED(stats->QueryInterface(IID_IResetStatistics, own.OutVoid())))
        hr = own->Reset();
      else
        hr = stats->Reset();
    }
    return hr;
  });
}

// --- IPacketProcessorEvents ---

// Passed on without the lock: the host does not add or remove statistics
// while it signals processing.
template <class Fn>
HRESULT StatsContext::ForEachEventSink(Fn&& fn) {
  return Unlocked([&] {
    for (size_t i = 0; i < m_slots.size(); ++i) {
      ComPtr<IPacketProcessorEvents> sink;
      if (SUCCEEDED(m_slots[i].stats->QueryInterface(IID_IPacketProcessorEvents, sink.OutVoid()))) fn(sink.Get());
    }
  });
}

HRESULT StatsContext::OnStartProcessing(ZemoTime time) {
  return ForEachEventSink([&](IPacketProcessorEvents* sink) { sink->OnStartProcessing(time); });
}

HRESULT StatsContext::OnStopProcessing(ZemoTime time) {
  return ForEachEventSink([&](IPacketProcessorEvents* sink) { sink->OnStopProcessing(time); });
}

HRESULT StatsContext::OnResetProcessing() {
  return ForEachEventSink([](IPacketProcessorEvents* sink) { sink->OnResetProcessing(); });
}

// --- IObjectWithSite ---

HRESULT StatsContext::SetSite(IUnknown* site) {
  return Locked([&] {
    if (m_site.Get() != site) m_site = site;
  });
}

HRESULT StatsContext::GetSite(REFIID iid, void** out) {
  return Locked([&]() -> HRESULT {
    CheckOut(out);
    if (!m_site) return E_FAIL;
    return m_site->QueryInterface(iid, out);
  });
}

// --- IUpdateSummaryStats ---

// The map's walk order is the bin order: no promise to the statistics.
HRESULT StatsContext::UpdateSummaryStats(IUnknown* snapshot) {
  return Locked([&]() -> HRESULT {
    if (!snapshot) return E_POINTER;
    ComPtr<IUnknown> isSnapshot;
    if (FAILED(snapshot->QueryInterface(IID_ISummaryStatsSnapshot, isSnapshot.OutVoid()))) return E_NOINTERFACE;
    m_stats.ForEach([&](const CLSID&, const ComPtr<IZemoStats>& stats) {
      ComPtr<IUpdateSummaryStats> update;
      if (SUCCEEDED(stats.As(&update))) update->UpdateSummaryStats(snapshot);
    });
    return S_OK;
  });
}

}  // namespace zemo
