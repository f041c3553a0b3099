// ErrorStats: what went wrong on the wire, by kind, and the present rate of
// errors per second. The kinds depend on the medium: on most media the
// engine marks a damaged packet; on media type 1 the stations report their
// own counts in MAC frames sent to the ring error monitor, which are read here.
#pragma once

#include <array>
#include <span>

#include "frame/iids.h"
#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "network/stat_rows.h"
#include "platform/object.h"

struct IErrorStats : IUnknown {
  static constexpr IID iid = IID_IErrorStats;
  virtual HRESULT GetCounterCount(LONG* count) = 0;
  // A capacity below the counter count is E_INVALIDARG and writes nothing.
  virtual HRESULT GetCounters(LONG capacity, ULONGLONG* counters) = 0;
  virtual HRESULT GetErrorRate(double* rate) = 0;
};

namespace zemo {

inline constexpr size_t kMaxErrorCounters = 13;
using ErrorCounts = std::array<uint64_t, kMaxErrorCounters>;

// Whether the frame is addressed to the ring error monitor (functional
// address C0 00 00 00 00 08) and is long enough to carry a report.
bool IsErrorMonitorFrame(const BYTE* data, size_t captureLength) noexcept;

// Reads the error report of a frame to the ring error monitor into `counts`
// (which it adds to): counters 1 to 12 from the subvectors, and every amount
// also into counter 0. `routed` says the frame carries routing information.
// No byte at or past captureLength is read, whatever the frame claims; a
// subvector too short for the value its identifier asks for counts nothing.
void ReadErrorReport(const BYTE* data, size_t captureLength, bool routed, ErrorCounts& counts) noexcept;

class ErrorStats final
    : public Object<ErrorStats, IErrorStats, IZemoStats, IProcessPacket, IProcessTime, IResetProcessing, IPersistStream,
                    IPersistXml, IPersistFile, LeafSelection<ErrorStats>> {
 public:
  // IErrorStats
  HRESULT GetCounterCount(LONG* count) override;
  HRESULT GetCounters(LONG capacity, ULONGLONG* counters) override;
  HRESULT GetErrorRate(double* rate) override;

  // IZemoStats, IResetProcessing
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override;

  // IProcessPacket, IProcessTime
  HRESULT ProcessPacket(IPacket* packet) override;
  HRESULT ProcessTime(ZemoTime now) override;

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
  static constexpr const char16_t* kSelectName = u"errorstats";
  static constexpr ULONG kSelectFlag = 0;
  HRESULT GetTable(IDataTable** table) override;

  // The stream's tag "ER" and its versions.
  static constexpr uint16_t kStreamTag = 0x5245;
  static constexpr uint16_t kOldVersion = 1;
  static constexpr uint16_t kVersion = 2;

 private:
  friend struct LeafSelection<ErrorStats>;
  std::span<const uint64_t> Counts() const noexcept { return {m_counters.data(), m_count}; }
  // Raises E_FAIL when there are no counters.
  void Advance(ZemoTime now);
  // One damaged packet: counter 0, then each cause whose status bit is set.
  void CountDamaged(IPacket* packet, std::span<const ULONG> causes);
  void CountReport(IPacket* packet);
  void Add(size_t counter, uint64_t amount) noexcept {
    if (counter < m_count) m_counters[counter] += amount;
  }

  IZemoStatsContext* m_context = nullptr;
  ULONG m_mediaType = 0;
  ULONG m_mediaSubType = 0;
  ULONG m_count = 0;
  ErrorCounts m_counters{};
  std::array<BYTE, kMaxErrorCounters> m_flags{};
  SampleSpan m_span;
  uint64_t m_errorsInSpan = 0;
  double m_errorRate = 0;
};

}  // namespace zemo
