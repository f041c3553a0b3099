#include "alarms/tracker_ring.h"

#include <algorithm>

#include "platform/exception.h"

namespace zemo {

double& CTrackerRing::Slot(LONG i) {
  if (i < 0 || static_cast<size_t>(i) >= m_slots.size()) AtlThrow(E_INVALIDARG);
  return m_slots[static_cast<size_t>(i)];
}

double CTrackerRing::Slot(LONG i) const {
  if (i < 0 || static_cast<size_t>(i) >= m_slots.size()) AtlThrow(E_INVALIDARG);
  return m_slots[static_cast<size_t>(i)];
}

uint64_t CTrackerRing::Fit(ZemoTime time) {
  uint64_t now = time / kSecond;
  if (m_lastSecond == 0) {
    m_lastSecond = now;
    return now;
  }
  if (now <= m_lastSecond) return m_lastSecond + 1;
  if (now == m_lastSecond + 1) return now;

  uint64_t rounds = now - m_lastSecond - 1;
  LONG p = m_write - 1;
  if (p < 0) p = m_history - 1;
  const double v = Slot(p);
  if (rounds >= static_cast<uint64_t>(m_history)) {
    // Every slot is visited at least once, the oldest pushed along each time
    // it is met: the ring ends full of v with the oldest just behind p, as a
    // slot-by-slot fill would leave it, without a round per second of a gap
    // that may be years long.
    std::fill(m_slots.begin(), m_slots.begin() + m_history, v);
    p = static_cast<LONG>((static_cast<uint64_t>(p) + rounds) % static_cast<uint64_t>(m_history));
    if (m_oldest >= 0 && m_oldest < m_history) m_oldest = Next(p);
  } else {
    for (uint64_t r = 0; r < rounds; ++r) {
      p = Next(p);
      Slot(p) = v;
      if (m_oldest == p) m_oldest = Next(m_oldest);
    }
  }
  m_write = Next(p);
  return now;
}

void CTrackerRing::Store(uint64_t second, double sample) {
  Slot(m_write) = sample;
  m_lastSecond = second;
  if (m_oldest < 0)
    m_oldest = 0;
  else if (m_oldest == m_write)
    m_oldest = Next(m_oldest);
  m_write = Next(m_write);
}

double CTrackerRing::At(ZemoTime time) const {
  const auto age = static_cast<int32_t>(static_cast<uint32_t>(m_lastSecond - time / kSecond));
  if (age < 0 || age >= m_history) AtlThrow(E_FAIL);
  LONG slot = m_write - age - 1;
  if (slot < 0) slot += m_history;
  return Slot(slot);
}

void CTrackerRing::Reset() noexcept {
  m_write = 0;
  m_oldest = -1;
  m_lastSecond = 0;
}

void CTrackerRing::SetHistory(LONG seconds) {
  if (seconds < 0 || seconds > kMaxHistory) AtlThrow(E_INVALIDARG);
  m_slots.resize(static_cast<size_t>(seconds), 0.0);
  if (seconds == 0) m_slots.shrink_to_fit();
  m_history = seconds;
}

void CTrackerRing::TimeRange(ZemoTime* first, ZemoTime* last) const noexcept {
  uint64_t n = 0;
  if (m_oldest < 0)
    n = 0;
  else if (m_oldest == m_write)
    n = static_cast<uint64_t>(m_history);
  else if (m_oldest < m_write)
    n = static_cast<uint64_t>(m_write - m_oldest);
  else
    n = static_cast<uint64_t>(m_history - m_oldest + m_write);
  *last = m_lastSecond * kSecond;
  *first = (m_lastSecond - n) * kSecond;
}

}  // namespace zemo
