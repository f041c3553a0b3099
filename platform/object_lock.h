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

// Under ThreadSanitizer the lock tells it what it is, a recursive mutex, so
// that races and the order of locks are checked through it as through any
// other lock; otherwise this is nothing.
#if defined(__SANITIZE_THREAD__)
#define ZEMO_TSAN_LOCKS 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZEMO_TSAN_LOCKS 1
#endif
#endif
#ifdef ZEMO_TSAN_LOCKS
#include <sanitizer/tsan_interface.h>
#define ZEMO_TSAN_MUTEX(op, ...) __tsan_mutex_##op(this, __VA_ARGS__)
#define ZEMO_TSAN_RECURSIVE __tsan_mutex_write_reentrant
#else
#define ZEMO_TSAN_MUTEX(op, ...) ((void)0)
#endif

namespace zemo {

class CObjectLock {
 public:
  CObjectLock() noexcept = default;
  CObjectLock(const CObjectLock&) = delete;
  CObjectLock& operator=(const CObjectLock&) = delete;

  void lock() noexcept {
    ZEMO_TSAN_MUTEX(pre_lock, ZEMO_TSAN_RECURSIVE);
    const uintptr_t me = ThreadTag();
    if (m_owner.load(std::memory_order_relaxed) == me) {
      ++m_depth;
      ZEMO_TSAN_MUTEX(post_lock, ZEMO_TSAN_RECURSIVE, 0);
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
    ZEMO_TSAN_MUTEX(post_lock, ZEMO_TSAN_RECURSIVE, 0);
  }

  bool try_lock() noexcept {
    ZEMO_TSAN_MUTEX(pre_lock, ZEMO_TSAN_RECURSIVE | __tsan_mutex_try_lock);
    const uintptr_t me = ThreadTag();
    if (m_owner.load(std::memory_order_relaxed) == me) {
      ++m_depth;
      ZEMO_TSAN_MUTEX(post_lock, ZEMO_TSAN_RECURSIVE | __tsan_mutex_try_lock, 0);
      return true;
    }
    uint32_t expected = 0;
    if (!m_state.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed)) {
      ZEMO_TSAN_MUTEX(post_lock, ZEMO_TSAN_RECURSIVE | __tsan_mutex_try_lock | __tsan_mutex_try_lock_failed, 0);
      return false;
    }
    m_owner.store(me, std::memory_order_relaxed);
    m_depth = 1;
    ZEMO_TSAN_MUTEX(post_lock, ZEMO_TSAN_RECURSIVE | __tsan_mutex_try_lock, 0);
    return true;
  }

  void unlock() noexcept {
    ZEMO_TSAN_MUTEX(pre_unlock, 0);
    if (--m_depth == 0) {
      m_owner.store(0, std::memory_order_relaxed);
      m_state.store(0, std::memory_order_release);
      if (m_sleepers.load(std::memory_order_relaxed) != 0) WakeOne();
    }
    ZEMO_TSAN_MUTEX(post_unlock, 0);
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
