#include "platform/object_lock.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace zemo {

namespace {

long Futex(std::atomic<uint32_t>& word, int op, uint32_t value, const timespec* timeout) noexcept {
  return syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), op, value, timeout, nullptr, 0);
}

}  // namespace

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
  static constexpr timespec kMostASleep{0, 1000000};
  m_sleepers.fetch_add(1, std::memory_order_seq_cst);
  for (;;) {
    uint32_t expected = 0;
    if (m_state.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed)) break;
    Futex(m_state, FUTEX_WAIT_PRIVATE, 1, &kMostASleep);
  }
  m_sleepers.fetch_sub(1, std::memory_order_relaxed);
}

void CObjectLock::WakeOne() noexcept { Futex(m_state, FUTEX_WAKE_PRIVATE, 1, nullptr); }

}  // namespace zemo
