// SizeStats: the packet size distribution of a capture, one counter per size
// range. The ranges come from a size set chosen by the medium and link speed
// at Reset, so that they end where the frames of that medium end.
#pragma once

#include <array>
#include <span>

#include "frame/iids.h"
#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "network/stat_rows.h"
#include "platform/object.h"

struct ISizeStats : IUnknown {
  static constexpr IID iid = IID_ISizeStats;
  virtual HRESULT GetBucketCount(LONG* count) = 0;
  // A capacity below the bucket count is E_INVALIDARG and writes nothing.
  virtual HRESULT GetBuckets(LONG capacity, ULONGLONG* buckets) = 0;
  virtual HRESULT GetSizeSet(ULONG* set) = 0;
};

namespace zemo {

inline constexpr size_t kMaxSizeBuckets = 12;

// The inclusive upper bounds of a size set (0 to 5); empty for set 0 and for
// a number that is no set.
std::span<const USHORT> SizeSetBounds(ULONG set) noexcept;

// The set for a medium: by type, subtype and link speed in bits per second.
ULONG ChooseSizeSet(ULONG mediaType, ULONG mediaSubType, ULONGLONG linkSpeed) noexcept;

class SizeStats final : public Object<SizeStats, ISizeStats, IZemoStats, IProcessPacket, IResetProcessing,
                                      IPersistStream, IPersistXml, IPersistFile, LeafSelection<SizeStats>> {
 public:
  // ISizeStats
  HRESULT GetBucketCount(LONG* count) override;
  HRESULT GetBuckets(LONG capacity, ULONGLONG* buckets) override;
  HRESULT GetSizeSet(ULONG* set) override;

  // IZemoStats, IResetProcessing
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override;

  // IProcessPacket
  HRESULT ProcessPacket(IPacket* packet) override;

  // IPersistStream, IPersistXml, IPersistFile
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;
  HRESULT Load(LPCOLESTR, DWORD) override { return E_NOTIMPL; }
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR) override { return S_OK; }
  HRESULT GetCurFile(LPOLESTR*) override { return E_NOTIMPL; }

  // ISelectableObject
  static constexpr const char16_t* kSelectName = u"sizestats";
  static constexpr ULONG kSelectFlag = 1;
  HRESULT GetTable(IDataTable** table) override;

 private:
  friend struct LeafSelection<SizeStats>;
  std::span<const uint64_t> Counts() const noexcept { return {m_buckets.data(), m_bucketCount}; }

  IZemoStatsContext* m_context = nullptr;
  ULONG m_mediaType = 0;
  ULONG m_mediaSubType = 0;
  ULONG m_sizeSet = 0;
  ULONG m_bucketCount = 0;
  std::array<uint64_t, kMaxSizeBuckets> m_buckets{};
};

}  // namespace zemo
