#include "platform/clock.h"

#include <atomic>
#include <chrono>

namespace zemo {
namespace {
std::atomic<ZemoTime> g_fixedNow{0};
}

ZemoTime Now() {
  if (ZemoTime fixed = g_fixedNow.load(std::memory_order_relaxed)) return fixed;
  auto since = std::chrono::system_clock::now().time_since_epoch();
  auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(since).count();
  // The platform's clock has a resolution of 100 ns; keep that granularity.
  return kUnixEpochAsZemoTime + static_cast<ZemoTime>(ns) / 100 * 100;
}

void SetNowForTesting(ZemoTime fixed) { g_fixedNow.store(fixed, std::memory_order_relaxed); }

}  // namespace zemo
