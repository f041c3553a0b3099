// CTrackerRing: the samples of one tracker, one double per second of time,
// in a ring of `history` slots. Every tracker class files and reads its
// samples through this one piece of code.
//
// The newest sample is that of `last second` and sits in slot write - 1; the
// one k seconds older sits k slots before it, modulo history. A second that
// passes without an update is filled with the last sample when the next
// update comes; updates faster than once a second take the following seconds.
// Slots are read by age alone: a second within reach but older than the
// first sample reads what its slot holds.
//
// Failures are raised: E_FAIL for a second out of reach, E_INVALIDARG for a
// slot beyond the array (after the history shrank below the write position
// and before a Reset).
#pragma once

#include <vector>

#include "platform/types.h"

namespace zemo {

class CTrackerRing {
 public:
  static constexpr LONG kDefaultHistory = 60;
  static constexpr LONG kMaxHistory = 86400;
  static constexpr ZemoTime kSecond = 1000000000ull;

  CTrackerRing() : m_slots(kDefaultHistory, 0.0) {}

  // The second of time fitted to the ring: the first update starts it, an
  // update within the newest second takes the next one, and the seconds of a
  // gap get the last sample. Then Store files the sample of that second.
  uint64_t Fit(ZemoTime time);
  void Store(uint64_t second, double sample);

  // The sample of the second of time.
  double At(ZemoTime time) const;

  // Empty again; the slots keep their doubles.
  void Reset() noexcept;
  // Resizes the array (0 frees it); positions are left as they are. Above
  // kMaxHistory, or negative, E_INVALIDARG and nothing changes.
  void SetHistory(LONG seconds);
  LONG History() const noexcept { return m_history; }

  // One second before the oldest sample, and the newest, as times.
  void TimeRange(ZemoTime* first, ZemoTime* last) const noexcept;
  ZemoTime LastTime() const noexcept { return m_lastSecond * kSecond; }
  bool Empty() const noexcept { return m_oldest < 0; }

 private:
  // The slot after i, wrapping to 0 at history.
  LONG Next(LONG i) const noexcept { return i + 1 == m_history ? 0 : i + 1; }
  double& Slot(LONG i);
  double Slot(LONG i) const;

  std::vector<double> m_slots;
  LONG m_history = kDefaultHistory;
  uint64_t m_lastSecond = 0;  // 0: never sampled
  LONG m_write = 0;
  LONG m_oldest = -1;  // -1: empty
};

}  // namespace zemo
