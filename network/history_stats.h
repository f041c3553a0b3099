// HistoryStats: the traffic of a capture as a series, the bytes per second
// of each interval since the start. The series only grows; DashboardStats
// decides when a history is long enough.
#pragma once

#include <vector>

#include "frame/iids.h"
#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "network/sample_series.h"
#include "network/stat_rows.h"
#include "platform/object.h"

struct IHistoryStats : IUnknown {
  static constexpr IID iid = IID_IHistoryStats;
  virtual HRESULT GetInterval(LONG* seconds) = 0;
  // Resets the statistic, then takes the interval; an interval below 1 is E_INVALIDARG.
  virtual HRESULT SetInterval(LONG seconds) = 0;
  virtual HRESULT GetStartTime(ZemoTime* time) = 0;
  virtual HRESULT GetSampleCount(LONG* count) = 0;
  // A copy of the series in task memory that the caller frees with
  // CoTaskMemFree; null and 0 when there are no samples.
  virtual HRESULT GetSamples(double** samples, LONG* count) = 0;
};

namespace zemo {

class HistoryStats final : public Object<HistoryStats, IHistoryStats, IZemoStats, IProcessPacket, IProcessTime,
                                         IResetProcessing, IPersistStream, IPersistXml, IPersistFile> {
 public:
  static constexpr ULONG kStreamVersion = 1;
  // The most samples a series holds: 2^27, over four years at one-second
  // intervals, whose copy through GetSamples is 1 GiB. A time stamp so far
  // ahead that the gap would pass this is refused as the copy that it would
  // ask for. The gap itself costs a count, not memory.
  static constexpr size_t kMaxSamples = size_t{1} << 27;

  // IHistoryStats
  HRESULT GetInterval(LONG* seconds) override;
  HRESULT SetInterval(LONG seconds) override;
  HRESULT GetStartTime(ZemoTime* time) override;
  HRESULT GetSampleCount(LONG* count) override;
  HRESULT GetSamples(double** samples, LONG* count) override;

  // IZemoStats, IResetProcessing
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override;

  // IProcessPacket, IProcessTime
  HRESULT ProcessPacket(IPacket* packet) override;
  HRESULT ProcessTime(ZemoTime now) override;

  // IPersistStream, IPersistXml (no content), IPersistFile
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

 private:
  void Advance(ZemoTime now);
  // Appends the sample of the span that closed and `zeros` empty ones.
  void Append(double closed, uint64_t zeros);
  uint32_t Count() const noexcept { return static_cast<uint32_t>(m_samples.Size()); }

  IZemoStatsContext* m_context = nullptr;
  ZemoTime m_startTime = 0;
  SampleSpan m_span;
  uint64_t m_bytesInSpan = 0;
  CSampleSeries m_samples;
};

}  // namespace zemo
