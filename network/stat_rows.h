// What the counter statistics (errors, sizes) share: a row of u64 counters
// copied out by capacity, written as `stat` elements with an index and a
// value, exported as one decimal line each, and shown as a table of `Stat`
// and `Value`. Also the sample span that the rate and
// history statistics step through time with.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "frame/persist_interfaces.h"
#include "frame/selection.h"
#include "frame/stats_interfaces.h"
#include "platform/strings.h"
#include "platform/types.h"

namespace zemo {

// The stored context handed out with a reference; null if none was set.
void HandOutContext(IZemoStatsContext* context, IZemoStatsContext** out);

// Copies the counters to out. A null out is E_POINTER, a capacity below the
// count E_INVALIDARG, and then nothing is written (raised).
void CopyCounters(std::span<const uint64_t> counters, LONG capacity, ULONGLONG* out);

// The element `name` under node with one `stat` child per counter, its
// attributes `index` and `value` in decimal.
void SaveStatElements(IUnknown* document, IUnknown* node, std::u16string_view name,
                      std::span<const uint64_t> counters);

// Reads the element `name` under node, if there is one, into counters. Each
// child element needs `index` and `value`; a missing one, or an index at or
// past the count, raises E_FAIL, and what was set before it stays.
void LoadStatElements(IUnknown* document, IUnknown* node, std::u16string_view name, std::span<uint64_t> counters);

// The ".txt" export: one "%llu\n" line per counter through the system's file
// functions. Any other extension is E_INVALIDARG.
HRESULT SaveCounterLines(LPCOLESTR fileName, std::span<const uint64_t> counters);

// GetTable's `Stat` (string) and `Value` (u64) table, one row per label.
void MakeStatTable(IDataTable** out, std::span<const std::u16string> labels, std::span<const uint64_t> values);

// The span clock of a sampled rate: spans of `interval` seconds, the first
// ending on the whole second after its start plus the interval. `next` is 0
// until started. Ends saturate at the largest time, so hostile stamps near
// the top of the range stop the clock instead of wrapping it.
struct SampleSpan {
  ULONG interval = 1;
  ZemoTime last = 0;
  ZemoTime next = 0;

  static constexpr ZemoTime kSecond = 1000000000ull;

  bool Started() const noexcept { return next != 0; }
  void Start(ZemoTime now) noexcept;
  void Clear() noexcept { last = next = 0; }
  // Span ends that `now` has passed, strictly: a time equal to next passes none.
  uint64_t Passed(ZemoTime now) const noexcept;
  // Amount per second over the span that is closing, [last, next).
  double PerSecond(uint64_t amount) const noexcept;
  // Moves on by `spans` ends: last becomes the end of the last span passed.
  void Skip(uint64_t spans) noexcept;
  ZemoTime Step() const noexcept { return static_cast<ZemoTime>(interval) * kSecond; }
};

}  // namespace zemo
