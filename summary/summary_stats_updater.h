// SummaryStatsUpdater: turns the state of a context into its one-page
// summary. Each Update reads the context's statistics through their public
// interfaces and writes the current snapshot of its SummaryStats under the
// fixed item ids of summary/summary_items.h, then offers the snapshot to
// the expert component, the context's site and the context's statistics,
// which add items of their own.
//
// The object has no state; every context creates one as its updater.
#pragma once

#include "frame/stats_interfaces.h"
#include "platform/object.h"

namespace zemo {

class SummaryStatsUpdater final : public Object<SummaryStatsUpdater, IStatsUpdater> {
 public:
  // A null context gives E_FAIL. A statistic missing from the context skips
  // its step; any other failure ends the run with its status, and what the
  // steps before it wrote stays.
  HRESULT Update(IZemoStatsContext* context) override;
};

}  // namespace zemo
