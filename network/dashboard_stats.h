// DashboardStats: one traffic graph that fits a dashboard whatever the length
// of the capture. A ladder of histories runs side by side from a fine
// interval to a coarse one; each rung drops out once it has filled the span
// it is meant for, and the dashboard shows the finest rung left. Since the
// fine rungs go first, a long capture costs less per packet than a short one.
#pragma once

#include <span>
#include <vector>

#include "frame/iids.h"
#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "network/history_stats.h"
#include "platform/object.h"

struct IDashboardStats : IUnknown {
  static constexpr IID iid = IID_IDashboardStats;
  // The history of the finest rung left; E_INVALIDARG when none is left.
  virtual HRESULT GetHistory(IHistoryStats** history) = 0;
};

namespace zemo {

struct DashboardRung {
  ULONG span;      // seconds the rung is meant to cover
  ULONG interval;  // seconds per sample
  ULONG SampleLimit() const noexcept { return span / interval; }
};

// The ladder, finest first.
std::span<const DashboardRung> DashboardLadder() noexcept;

// The sample limit of a rung with this interval: its row's if the ladder has
// one, else what the last rung's span holds at that interval.
ULONG DashboardSampleLimit(ULONG interval) noexcept;

class DashboardStats final : public Object<DashboardStats, IDashboardStats, IZemoStats, IProcessPacket, IProcessTime,
                                           IResetProcessing, IPersistStream> {
 public:
  static constexpr ULONG kStreamVersion = 1;

  HRESULT FinalConstruct();

  // IDashboardStats
  HRESULT GetHistory(IHistoryStats** history) override;

  // IZemoStats, IResetProcessing
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override;

  // IProcessPacket, IProcessTime
  HRESULT ProcessPacket(IPacket* packet) override;
  HRESULT ProcessTime(ZemoTime now) override;

  // IPersistStream
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;

  // The number of rungs left, for tests and diagnostics.
  size_t RungCount() const;

 private:
  static constexpr ZemoTime kNever = ~ZemoTime{0};

  struct Rung {
    ComPtr<IHistoryStats> history;
    IProcessPacket* packetInput;  // of the same object, no reference of its own
    IProcessTime* timeInput;
    ULONG sampleLimit;
    ZemoTime fullAfter = kNever;  // a packet or tick after this fills the rung
  };

  // A new HistoryStats by its class identifier.
  static ComPtr<IHistoryStats> CreateHistory();
  // Appends the history with both its inputs.
  void AddRung(ComPtr<IHistoryStats> history, ULONG sampleLimit);
  void Rebuild();
  // Hands a packet or tick at `now` to the rungs through give(rung).
  template <class Give>
  void Pass(ZemoTime now, Give&& give);
  // Drops the rungs that are full, and learns when each other will be.
  void Trim();

  IZemoStatsContext* m_context = nullptr;
  std::vector<Rung> m_rungs;
  // No rung takes a sample up to this time (a whole second), so none can
  // fill: the rungs were last trimmed at a time within the second before.
  ZemoTime m_quietUntil = 0;
};

}  // namespace zemo
