// StatsLimit: the limit every table statistic carries, as IZemoStatsLimit.
// Before each packet the statistic asks CheckLimit whether its table has
// reached the limit of its settings; on reaching it the limit notifies once
// and, if enforced, empties or pauses the table and every linked statistic.
// It also owns `resetcount`, which keeps saved deltas of the table in step
// with their reader.
//
// A statistic lists it among its interfaces and replaces Reset with its own
// IZemoStats Reset, which calls ResetLimitState:
//
//   class NodeStats final : public Object<NodeStats, INodeStats, IZemoStats, ..., StatsLimit, ...> {
//     NodeStats() { SetStatisticName(u"Node Statistics"); }
//     HRESULT Reset() override;   // IZemoStats, IResetProcessing and IZemoStatsLimit at once
//   };
//
// Locks: CheckLimit runs under the statistic's lock and takes none. The
// accessors and the persistence pieces hold the limit lock, which always
// comes after the statistic's; GetSettings, AddLinkedStatistic, Pause and
// Reset take none.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "frame/stats_interfaces.h"
#include "platform/object.h"
#include "platform/stream.h"
#include "platform/xml_dom.h"
#include "tables/limit_interfaces.h"

namespace zemo {

class StatsLimit : public IZemoStatsLimit {
 public:
  using interface_type = IZemoStatsLimit;
  // Reached time when the limit has not been reached.
  static constexpr ZemoTime kNotReached = ~ZemoTime{0};

  // IZemoStatsLimit
  HRESULT GetSettings(IZemoStatsLimitSettings** settings) override;
  HRESULT SetSettings(IZemoStatsLimitSettings* settings) override;
  HRESULT GetContextId(GUID* id) override;
  HRESULT SetContextId(REFGUID id) override;
  HRESULT GetNotifySink(INotify** sink) override;
  HRESULT SetNotifySink(INotify* sink) override;
  HRESULT GetResetCount(ULONG* count) override;
  HRESULT AddLinkedStatistic(IUnknown* stats) override;
  HRESULT Pause() override;
  // The base reset: the limit's own state only. Statistics replace it.
  HRESULT Reset() override;

  bool IsPaused() const noexcept { return m_paused.load(std::memory_order_relaxed) != 0; }
  ZemoTime ReachedTime() const noexcept { return m_reachedTime; }

 protected:
  StatsLimit() = default;
  ~StatsLimit() = default;

  // The statistic's name ("Node Statistics"), the %s of the messages; set
  // once by the statistic's constructor.
  void SetStatisticName(const char16_t* name) noexcept { m_statisticName = name; }

  // The limit test of the packet path, with count the table's present number
  // of records. Called while not paused; the caller tests IsPaused again.
  HRESULT CheckLimit(ULONG count) noexcept;

  // resetcount + 1, not paused, not reached: the limit's part of every reset.
  void ResetLimitState() noexcept;

  // The owning statistic's object lock. CheckLimit runs under it and takes
  // no lock of its own, so the accessors that change what it reads (the
  // settings, the sink, the context identifier, the linked statistics) take
  // it too, before the limit lock, as everything else does.
  virtual CObjectLock& StatisticLock() const noexcept = 0;

  // The limit's piece of the statistic's persistence, called first by it,
  // under the statistic's lock. Failures raise. A loaded resetcount that
  // differs from the present one resets the statistic (its IZemoStats
  // Reset) before it is taken over; an absent XML attribute counts as equal.
  void SaveStreamDeltas(IStream* stream, const ZemoTime* since);
  void LoadStream(IStream* stream);
  void SaveXmlDeltas(IXMLDOMElement* element, const ZemoTime* since);
  void LoadXml(IXMLDOMElement* element);

 private:
  void ApplyLoadedResetCount(ULONG loaded);
  // The statistic's own IZemoStats Reset.
  void ResetStatistic();
  HRESULT Enforce(bool reset);

  ComPtr<IZemoStatsLimitSettings> m_settings;
  std::vector<IUnknown*> m_linked;  // no references held
  std::atomic<BOOL> m_paused{0};
  GUID m_contextId = GUID_NULL;
  ComPtr<INotify> m_sink;
  const char16_t* m_statisticName = u"";
  std::atomic<ULONG> m_resetCount{0};
  ZemoTime m_reachedTime = kNotReached;
  mutable CObjectLock m_limitLock;
};

}  // namespace zemo
