#include "tables/rolling_node_stats.h"

#include <algorithm>

#include "frame/module.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"
#include "network/stat_rows.h"
#include "platform/class_store.h"
#include "tables/table_support.h"

namespace zemo {

namespace {

constexpr ZemoTime kSecond = 1000000000ull;
constexpr char16_t kBucketProgId[] = u"ZemoStats.NodeStats";

// Adds a bucket's counters of one node into the merged record. A first time
// of 0 is a value like any other, so a side that one bucket never saw stays
// 0 in the sum.
void Combine(ZemoNodeStat& into, const ZemoNodeStat& s) noexcept {
  into.FirstTimeSent = std::min(into.FirstTimeSent, s.FirstTimeSent);
  into.FirstTimeReceived = std::min(into.FirstTimeReceived, s.FirstTimeReceived);
  into.LastTimeSent = std::max(into.LastTimeSent, s.LastTimeSent);
  into.LastTimeReceived = std::max(into.LastTimeReceived, s.LastTimeReceived);
  into.PacketsSent += s.PacketsSent;
  into.BytesSent += s.BytesSent;
  into.PacketsReceived += s.PacketsReceived;
  into.BytesReceived += s.BytesReceived;
  into.BroadcastPackets += s.BroadcastPackets;
  into.BroadcastBytes += s.BroadcastBytes;
  into.MulticastPackets += s.MulticastPackets;
  into.MulticastBytes += s.MulticastBytes;
  into.MinPacketSizeSent = std::min(into.MinPacketSizeSent, s.MinPacketSizeSent);
  into.MinPacketSizeReceived = std::min(into.MinPacketSizeReceived, s.MinPacketSizeReceived);
  into.MaxPacketSizeSent = std::max(into.MaxPacketSizeSent, s.MaxPacketSizeSent);
  into.MaxPacketSizeReceived = std::max(into.MaxPacketSizeReceived, s.MaxPacketSizeReceived);
}

}  // namespace

// ---- construction ------------------------------------------------------------

HRESULT RollingNodeStats::FinalConstruct() {
  return Boundary([&] {
    if (m_bucketCount < 1 || m_bucketCount > kMaxBuckets || m_bucketSeconds < 1 || m_bucketSeconds > kMaxBucketSeconds)
      AtlThrow(E_INVALIDARG);
    // The buckets are NodeStats by program identifier, so that a host may
    // stand in a class of its own; the module's own class when none is
    // registered under it.
    CLSID clsid = CLSID_NodeStats;
    if (FAILED(CLSIDFromProgID(kBucketProgId, &clsid))) clsid = CLSID_NodeStats;
    m_buckets.resize(static_cast<size_t>(m_bucketCount));
    for (Bucket& b : m_buckets) {
      CheckHr(CreateModuleInstance(clsid, INodeStats::iid, b.nodes.OutVoid()));
      CheckHr(b.nodes.As(&b.packets));
      CheckHr(b.nodes.As(&b.stats));
    }
  });
}

// ---- IRollingNodeStats -------------------------------------------------------

HRESULT RollingNodeStats::GetBucketCount(LONG* count) {
  return Unlocked([&] {
    CheckOut(count);
    *count = m_bucketCount;
  });
}
HRESULT RollingNodeStats::SetBucketCount(LONG) { return E_NOTIMPL; }

HRESULT RollingNodeStats::GetBucketSeconds(LONG* seconds) {
  return Unlocked([&] {
    CheckOut(seconds);
    *seconds = m_bucketSeconds;
  });
}
HRESULT RollingNodeStats::SetBucketSeconds(LONG) { return E_NOTIMPL; }

HRESULT RollingNodeStats::Rebuild() {
  return Locked([&] { RebuildMerged(); });
}

void RollingNodeStats::RebuildMerged() {
  m_merged.Clear();
  for (const Bucket& b : m_buckets) MergeBucket(b.nodes.Get());
}

void RollingNodeStats::MergeBucket(INodeStats* bucket) {
  ULONG count = 0;
  CheckHr(bucket->GetNodeCount(&count));
  for (ULONG i = 0; i < count; ++i) {
    ZemoNodeStatEntry e{};
    CheckHr(bucket->GetNodeEntry(i, &e));
    uint32_t at = m_merged.Find(e.EntityIndex);
    if (at == kNoRecord)
      m_merged[m_merged.Add(e.EntityIndex)].Stat = e.Stat;
    else
      Combine(m_merged[at].Stat, e.Stat);
  }
}

// ---- INodeStats --------------------------------------------------------------

HRESULT RollingNodeStats::GetEntityTable(IEntityTable** table) {
  return Locked([&] {
    CheckOut(table);
    m_entities.CopyTo(table);
  });
}

HRESULT RollingNodeStats::GetNodeCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_merged.GetCount();
  });
}

HRESULT RollingNodeStats::GetPhysicalNodeCount(ULONG* count) {
  return Locked([&] { CountEntityTypes(m_entities.Get(), kPhysicalNodeTypes, count); });
}
HRESULT RollingNodeStats::GetLogicalNodeCount(ULONG* count) {
  return Locked([&] { CountEntityTypes(m_entities.Get(), kLogicalNodeTypes, count); });
}

HRESULT RollingNodeStats::GetNodeIndex(ULONG entityIndex, ULONG* recordIndex, BOOL* found) {
  return Locked([&] {
    CheckOut(recordIndex);
    CheckOut(found);
    *recordIndex = kNoRecord;
    *found = FALSE;
    *recordIndex = m_merged.ChainFind(entityIndex);
    *found = *recordIndex != kNoRecord;
  });
}

HRESULT RollingNodeStats::GetNodeEntry(ULONG recordIndex, ZemoNodeStatEntry* entry) {
  return Locked([&] { m_merged.CopyEntry(recordIndex, entry); });
}

// ---- IZemoStats --------------------------------------------------------------

HRESULT RollingNodeStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] { HandOutContext(m_context, context); });
}

// The context is asked for its table, and handed to the buckets (which ask
// it too), before this object's lock is taken: the context's lock comes
// first. The buckets are fixed from construction on.
HRESULT RollingNodeStats::SetContext(IZemoStatsContext* context) {
  ComPtr<IEntityTable> entities;
  HRESULT hr = context ? context->GetEntityTable(entities.ReleaseAndGetAddressOf()) : S_OK;
  {
    std::lock_guard<CObjectLock> hold(ObjectLock());
    m_context = context;
    m_entities = entities;
  }
  for (const Bucket& b : m_buckets) {
    HRESULT bucket = b.stats->SetContext(context);
    if (SUCCEEDED(hr) && FAILED(bucket)) hr = bucket;
  }
  return hr;
}

void RollingNodeStats::ResetBucket(LONG index) noexcept {
  // A bucket that fails to empty does not stop the ring.
  (void)m_buckets[static_cast<size_t>(index)].stats->Reset();
}

HRESULT RollingNodeStats::Reset() {
  return Locked([&] {
    for (LONG i = 0; i < m_bucketCount; ++i) ResetBucket(i);
    m_merged.Clear();
    m_baseTime = 0;
    m_current = 0;
  });
}

// ---- the ring ----------------------------------------------------------------

LONG RollingNodeStats::Advance(ZemoTime t) {
  if (m_baseTime == 0) {
    m_baseTime = t;
    m_current = 0;
    return 0;
  }
  const int64_t n = m_bucketCount;
  const uint64_t width = uint64_t(m_bucketSeconds) * kSecond;
  // Whole seconds from the base, negative before it; its bucket number
  // counted from the base, truncated towards zero.
  const int64_t seconds = t >= m_baseTime ? int64_t((t - m_baseTime) / kSecond) : -int64_t((m_baseTime - t) / kSecond);
  int64_t k = seconds / m_bucketSeconds;
  if (k == m_current) return m_current;

  const ZemoTime slotEnd = m_baseTime + uint64_t(m_current + 1) * width;
  const uint64_t span = uint64_t(n - 1) * width;
  if (t < slotEnd) {
    // Late: its old bucket if the ring still holds it; nothing is emptied.
    if (slotEnd - t > span) return -1;
    return static_cast<LONG>(k >= 0 ? k : k + n);
  }
  if (t - slotEnd > span) {
    // Past every bucket: the ring starts again at t.
    for (LONG i = 0; i < m_bucketCount; ++i) ResetBucket(i);
    m_baseTime = t;
    m_current = 0;
    return 0;
  }
  if (k >= n) {
    k -= n;
    m_baseTime += uint64_t(n) * width;
  }
  // Empty every bucket time has moved into or past, the new one last.
  for (int64_t b = (m_current + 1) % n;; b = (b + 1) % n) {
    ResetBucket(static_cast<LONG>(b));
    if (b == k) break;
  }
  m_current = static_cast<LONG>(k);
  return m_current;
}

// ---- IProcessPacket, IProcessTime -------------------------------------------

HRESULT RollingNodeStats::ProcessPacket(IPacket* packet) {
  return Locked([&]() -> HRESULT {
    if (!packet) return E_INVALIDARG;
    if (!m_entities) return E_FAIL;
    ZemoTime time = 0;
    CheckHr(packet->GetTimeStamp(&time));
    const LONG bucket = Advance(time);
    // Older than the ring holds: dropped, which is no failure.
    if (bucket < 0) return S_OK;
    return m_buckets[static_cast<size_t>(bucket)].packets->ProcessPacket(packet);
  });
}

HRESULT RollingNodeStats::ProcessTime(ZemoTime now) {
  return Locked([&] { Advance(now); });
}

// ---- IPacketProcessorEvents --------------------------------------------------

HRESULT RollingNodeStats::OnStartProcessing(ZemoTime) { return S_OK; }
HRESULT RollingNodeStats::OnStopProcessing(ZemoTime) { return Rebuild(); }
HRESULT RollingNodeStats::OnResetProcessing() { return S_OK; }

// ---- IPersistStream, ISaveStreamDeltas ---------------------------------------

HRESULT RollingNodeStats::GetClassID(CLSID* out) {
  if (!out) return E_POINTER;
  *out = kClsid;
  return S_OK;
}

HRESULT RollingNodeStats::IsDirty() { return S_OK; }

HRESULT RollingNodeStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    m_merged.Clear();
    // Each row is a record of its own, as it was saved.
    m_merged.LoadRows(stream, [this](ULONG entity) -> ZemoNodeStatEntry& { return m_merged[m_merged.Add(entity)]; });
  });
}

HRESULT RollingNodeStats::GetSizeMax(ULARGE_INTEGER*) { return E_NOTIMPL; }

HRESULT RollingNodeStats::SaveDeltas(IStream* stream, ZemoTime* since) {
  return Locked([&] {
    if (!stream || !since) AtlThrow(E_POINTER);
    RebuildMerged();
    m_merged.SaveRows(stream, 0);
  });
}

// ---- IPersistXml, IPersistXmlDeltas ------------------------------------------

HRESULT RollingNodeStats::Load(IUnknown* document, IUnknown* node) {
  return Locked([&]() -> HRESULT {
    if (!document) AtlThrow(E_POINTER);
    ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
    ComPtr<IXMLDOMNode> element;
    return parent->selectSingleNode(CBstr(std::u16string_view(kXmlElement)).Get(), element.ReleaseAndGetAddressOf());
  });
}

HRESULT RollingNodeStats::SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) {
  return Locked([&] {
    ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
    ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
    if (!since) AtlThrow(E_POINTER);
    CreateChildElement(doc.Get(), parent.Get(), kXmlElement);
  });
}

// ---- IPersistFile ------------------------------------------------------------

HRESULT RollingNodeStats::Load(LPCOLESTR, DWORD) { return E_NOTIMPL; }

HRESULT RollingNodeStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&]() -> HRESULT {
    // Both forms are files with nothing in them; only the status of a file
    // that can't be made differs.
    const bool hash = CheckExportExtension(fileName, kExportTxt | kExportHash) == ExportForm::Hash;
    return WriteTextFile(fileName, hash ? FileOpenStyle::Runtime : FileOpenStyle::System, [](TextWriter&) {});
  });
}

HRESULT RollingNodeStats::SaveCompleted(LPCOLESTR) { return S_OK; }
HRESULT RollingNodeStats::GetCurFile(LPOLESTR*) { return E_NOTIMPL; }

// ---- ISelectableObject -------------------------------------------------------

HRESULT RollingNodeStats::GetTable(IDataTable** table) {
  return Locked([&] {
    CheckOut(table);
    RebuildMerged();
    NodeTableToResult(m_merged, m_entities.Get(), table);
  });
}

}  // namespace zemo
