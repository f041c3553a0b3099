#include "platform/object_lock.h"

namespace zemo {

// Out of line, so that the free case inlines small. Spins a little first:
// most holds are one packet through one statistic, far shorter than a sleep.
void CObjectLock::LockContended() noexcept {
  for (int spin = 0; spin < 100; ++spin) {
    uint32_t expected = 0;
    if (m_state.load(std::memory_order_relaxed) == 0 &&
        m_state.compare_exchange_weak(expected, 1, std::memory_order_acquire, std::memory_order_relaxed))
      return;
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }
  // From here on the state says 2 whenever this thread may sleep, so the
  // holder's unlock knows to wake someone.
  while (m_state.exchange(2, std::memory_order_acquire) != 0) m_state.wait(2, std::memory_order_relaxed);
}

}  // namespace zemo
