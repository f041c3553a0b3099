// ZemoStatsLimitSettings: the five values of a table statistic's limit, as a
// creatable object the host fills and hands to each statistic it limits.
// The object only holds them; StatsLimit acts on them.
#pragma once

#include <atomic>

#include "frame/clsids.h"
#include "frame/persist_interfaces.h"
#include "platform/object.h"
#include "tables/limit_interfaces.h"

namespace zemo {

class ZemoStatsLimitSettings final
    : public Object<ZemoStatsLimitSettings, IZemoStatsLimitSettings, IPersistXml> {
 public:
  static constexpr ULONG kDefaultLimit = 100000;
  static constexpr LONG kDefaultSeverity = 3;

  // IZemoStatsLimitSettings. No lock: each value is one atomic word.
  HRESULT GetEnabled(LONG* enabled) override;
  HRESULT SetEnabled(LONG enabled) override;
  HRESULT GetLimit(ULONG* limit) override;
  HRESULT SetLimit(ULONG limit) override;
  HRESULT GetNotify(LONG* notify, LONG* severity) override;
  HRESULT SetNotify(LONG notify, LONG severity) override;
  HRESULT GetReset(LONG* reset) override;
  HRESULT SetReset(LONG reset) override;

  // IPersistXml: the element ZemoStatsLimitSettings with one attribute per value.
  HRESULT GetClassID(CLSID* out) override;
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;

 private:
  std::atomic<LONG> m_enabled{1};
  std::atomic<ULONG> m_limit{kDefaultLimit};
  std::atomic<LONG> m_reset{0};
  std::atomic<LONG> m_notify{1};
  std::atomic<LONG> m_severity{kDefaultSeverity};
};

}  // namespace zemo
