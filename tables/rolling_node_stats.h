// RollingNodeStats: the node statistics of a moving window of packet time
// (by default the last half hour), not of the whole capture. A ring of
// NodeStats buckets, each covering a fixed span of seconds, takes the
// packets of its span; as time moves on, the buckets it leaves behind are
// emptied and used again. Readers see a merged table, the sum of the
// buckets, built on demand (Rebuild, the end of processing, a save, the
// result table) and never per packet, so a packet costs one bucket's work.
//
// It answers INodeStats as NodeStats does, on the merged table as the last
// rebuild left it, so a client of NodeStats reads it unchanged.
//
// The ring is 6 buckets of 300 seconds through its interfaces, which cannot
// change it; a host in the same process may create it with another shape
// (RollingNodeStats::CreateObject(iid, out, buckets, seconds)).
#pragma once

#include <vector>

#include "frame/clsids.h"
#include "frame/delta_save.h"
#include "frame/persist_interfaces.h"
#include "frame/selection.h"
#include "frame/stats_interfaces.h"
#include "identity/identity_interfaces.h"
#include "platform/object.h"
#include "tables/node_stats.h"

struct IRollingNodeStats : IUnknown {
  static constexpr IID iid = IID_IRollingNodeStats;
  virtual HRESULT GetBucketCount(LONG* count) = 0;
  virtual HRESULT SetBucketCount(LONG count) = 0;  // E_NOTIMPL: the ring's shape is fixed
  virtual HRESULT GetBucketSeconds(LONG* seconds) = 0;
  virtual HRESULT SetBucketSeconds(LONG seconds) = 0;  // E_NOTIMPL
  // Builds the merged table anew from the buckets.
  virtual HRESULT Rebuild() = 0;
};

namespace zemo {

class RollingNodeStats final
    : public Object<RollingNodeStats, IRollingNodeStats, INodeStats, IZemoStats, IProcessPacket, IProcessTime,
                    IPacketProcessorEvents, IResetProcessing, PersistStreamByDeltas<RollingNodeStats>,
                    ISaveStreamDeltas, PersistXmlByDeltas<RollingNodeStats>, IPersistXmlDeltas, IPersistFile,
                    LeafSelection<RollingNodeStats>> {
 public:
  static constexpr LONG kDefaultBuckets = 6;
  static constexpr LONG kDefaultBucketSeconds = 300;
  // The largest shape a host may ask for: the ring's spans in nanoseconds
  // stay far inside 64 bits.
  static constexpr LONG kMaxBuckets = 64;
  static constexpr LONG kMaxBucketSeconds = 366 * 86400;
  static constexpr char16_t kSelectName[] = u"rollingnodestats";
  static constexpr ULONG kSelectFlag = 0;
  static constexpr char16_t kXmlElement[] = u"RollingNodeStats";
  static constexpr const CLSID& kClsid = CLSID_RollingNodeStats;

  explicit RollingNodeStats(LONG buckets = kDefaultBuckets, LONG bucketSeconds = kDefaultBucketSeconds) noexcept
      : m_bucketCount(buckets), m_bucketSeconds(bucketSeconds) {}
  // Creates the buckets; a shape out of range is E_INVALIDARG.
  HRESULT FinalConstruct();

  // IRollingNodeStats
  HRESULT GetBucketCount(LONG* count) override;
  HRESULT SetBucketCount(LONG count) override;
  HRESULT GetBucketSeconds(LONG* seconds) override;
  HRESULT SetBucketSeconds(LONG seconds) override;
  HRESULT Rebuild() override;

  // INodeStats, on the merged table
  HRESULT GetEntityTable(IEntityTable** table) override;
  HRESULT GetNodeCount(ULONG* count) override;
  HRESULT GetPhysicalNodeCount(ULONG* count) override;
  HRESULT GetLogicalNodeCount(ULONG* count) override;
  HRESULT GetNodeIndex(ULONG entityIndex, ULONG* recordIndex, BOOL* found) override;
  HRESULT GetNodeEntry(ULONG recordIndex, ZemoNodeStatEntry* entry) override;

  // IZemoStats; Reset also stands behind IResetProcessing.
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override;

  // IProcessPacket, IProcessTime
  HRESULT ProcessPacket(IPacket* packet) override;
  // Moves the ring on to now, so that buckets empty while no packets come.
  HRESULT ProcessTime(ZemoTime now) override;

  // IPacketProcessorEvents: the end of processing rebuilds the merged table.
  HRESULT OnStartProcessing(ZemoTime time) override;
  HRESULT OnStopProcessing(ZemoTime time) override;
  HRESULT OnResetProcessing() override;

  // IPersistStream, ISaveStreamDeltas: the merged table after a rebuild;
  // every save is whole. A load replaces the merged table and leaves the
  // ring as it was, so the next rebuild shows the buckets again.
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override;
  HRESULT Load(IStream* stream) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT SaveDeltas(IStream* stream, ZemoTime* since) override;

  // IPersistXml, IPersistXmlDeltas: an empty element, nothing more.
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) override;

  // IPersistFile: ".txt" and ".hash" make empty files.
  HRESULT Load(LPCOLESTR fileName, DWORD mode) override;
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR fileName) override;
  HRESULT GetCurFile(LPOLESTR* fileName) override;

  // ISelectableObject: the merged table, rebuilt first.
  HRESULT GetTable(IDataTable** table) override;

  // Where the ring stands, for tests: its base time (0 before it starts)
  // and the bucket that time has reached.
  ZemoTime BaseTimeForTesting() const noexcept { return m_baseTime; }
  LONG CurrentBucketForTesting() const noexcept { return m_current; }
  INodeStats* BucketForTesting(LONG index) const noexcept { return m_buckets[static_cast<size_t>(index)].nodes.Get(); }

 private:
  friend struct LeafSelection<RollingNodeStats>;

  struct Bucket {
    ComPtr<INodeStats> nodes;
    ComPtr<IProcessPacket> packets;
    ComPtr<IZemoStats> stats;
  };

  // Moves the ring to time t: the index of the bucket that t falls in, or
  // -1 for a time older than the ring holds.
  LONG Advance(ZemoTime t);
  void ResetBucket(LONG index) noexcept;
  // Rebuild under the lock; raises.
  void RebuildMerged();
  void MergeBucket(INodeStats* bucket);

  const LONG m_bucketCount;
  const LONG m_bucketSeconds;
  IZemoStatsContext* m_context = nullptr;  // no reference held
  ComPtr<IEntityTable> m_entities;
  std::vector<Bucket> m_buckets;  // made once, by FinalConstruct
  CNodeTable m_merged;
  ZemoTime m_baseTime = 0;  // start of bucket 0 of the ring's present turn; 0: not started
  LONG m_current = 0;
};

}  // namespace zemo
