// CObjectLock: the one recursive lock of every object.
//
// The same semantics as std::recursive_mutex (the owning thread may lock
// again; each lock needs its unlock), at the price of one atomic operation
// to take it when free; giving it back is a plain store. The packet path
// takes a lock per statistic per packet, and every locked instruction also
// holds up the memory reads around it, so this is the difference between a
// few nanoseconds and a few tens of them.
//
// State: 0 free, 1 held. A waiter spins a little, then counts itself among
// the sleepers and sleeps on the state word (a futex). The unlocking store
// is not ordered before its look at the sleepers, so a waiter that went to
// sleep just then may be missed; it therefore sleeps a millisecond at most
// before it tries again, which bounds what a missed wake-up costs.
// While the process has one thread (glibc's own flag, which it also uses for
// its mutexes) nobody can contend, and the lock takes no atomic operation.
// The owner is a per-thread tag, read by other threads only to learn that
// they are not it: a thread that released the lock wrote the empty tag
// itself, so it can never read its own tag back by mistake.
#pragma once

#include <sys/single_threaded.h>

#include <atomic>
#include <cstdint>

namespace zemo {

class CObjectLock {
 public:
  CObjectLock() noexcept = default;
  CObjectLock(const CObjectLock&) = delete;
  CObjectLock& operator=(const CObjectLock&) = delete;

  void lock() noexcept {
    const uintptr_t me = ThreadTag();
    if (m_owner.load(std::memory_order_relaxed) == me) {
      ++m_depth;
      return;
    }
    if (__libc_single_threaded) {
      m_state.store(1, std::memory_order_relaxed);
    } else {
      uint32_t expected = 0;
      if (!m_state.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed))
        LockContended();
    }
    m_owner.store(me, std::memory_order_relaxed);
    m_depth = 1;
  }

  bool try_lock() noexcept {
    const uintptr_t me = ThreadTag();
    if (m_owner.load(std::memory_order_relaxed) == me) {
      ++m_depth;
      return true;
    }
    uint32_t expected = 0;
    if (!m_state.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed))
      return false;
    m_owner.store(me, std::memory_order_relaxed);
    m_depth = 1;
    return true;
  }

  void unlock() noexcept {
    if (--m_depth != 0) return;
    m_owner.store(0, std::memory_order_relaxed);
    m_state.store(0, std::memory_order_release);
    if (m_sleepers.load(std::memory_order_relaxed) != 0) WakeOne();
  }

  // Whether the calling thread holds the lock, for assertions.
  bool HeldByCaller() const noexcept { return m_owner.load(std::memory_order_relaxed) == ThreadTag(); }

 private:
  static uintptr_t ThreadTag() noexcept {
    static thread_local const char tag = 0;
    return reinterpret_cast<uintptr_t>(&tag);
  }

  void LockContended() noexcept;
  void WakeOne() noexcept;

  std::atomic<uint32_t> m_state{0};
  std::atomic<uint32_t> m_sleepers{0};
  std::atomic<uintptr_t> m_owner{0};
  uint32_t m_depth = 0;  // touched only by the owner
};

}  // namespace zemo
