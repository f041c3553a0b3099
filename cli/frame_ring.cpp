#include "cli/frame_ring.h"

namespace zemo::cli {

FrameRing::FrameRing(size_t capacity) : m_entries(capacity), m_mask(capacity - 1), m_freeUntil(capacity) {
  for (Entry& e : m_entries) e.decoded.packet = Packet::Create();
}

FrameRing::Entry& FrameRing::Acquire() {
  if (m_written == m_freeUntil) {
    Publish();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_producerWaits = true;
    m_freed.wait(lock, [&] { return m_released + m_entries.size() > m_written; });
    m_producerWaits = false;
    m_freeUntil = m_released + m_entries.size();
  }
  return m_entries[m_written & m_mask];
}

void FrameRing::Commit(bool now) {
  ++m_written;
  if (now || m_written % kBatch == 0) Publish();
}

void FrameRing::Publish() {
  bool wake;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_published == m_written) return;
    m_published = m_written;
    wake = m_consumerWaits;
  }
  if (wake) m_filled.notify_one();
}

FrameRing::Entry& FrameRing::Next() {
  // The entry taken before this call is finished with.
  if (m_read == m_available || m_read - m_returned >= kBatch) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_released = m_returned = m_read;
    if (m_producerWaits && m_entries.size() - (m_published - m_released) >= m_entries.size() / 2) m_freed.notify_one();
    m_consumerWaits = true;
    m_filled.wait(lock, [&] { return m_published > m_read; });
    m_consumerWaits = false;
    m_available = m_published;
  }
  if (m_read + 1 < m_available) m_entries[(m_read + 1) & m_mask].decoded.packet->Prefetch();
  return m_entries[m_read++ & m_mask];
}

}  // namespace zemo::cli
