// The object lock uncontended, as the packet path takes it (once per object
// per packet, now and then nested), against the standard recursive mutex it
// replaced; alone in the process, and with a second thread alive, as in a
// host with a reader thread (some runtimes skip atomics while a process has
// one thread).
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/object_lock.h"

namespace {

// A thread that only waits, for as long as it lives.
class SecondThread {
 public:
  SecondThread() : m_thread([this] {
    std::unique_lock<std::mutex> hold(m_mutex);
    m_wake.wait(hold, [this] { return m_done; });
  }) {}
  ~SecondThread() {
    {
      std::lock_guard<std::mutex> hold(m_mutex);
      m_done = true;
    }
    m_wake.notify_one();
    m_thread.join();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_done = false;
  std::thread m_thread;
};

// state.range(0): how deep each pass takes the lock; range(1): 1 with a
// second thread alive.
template <class Lock>
void BM_Lock(benchmark::State& state) {
  std::optional<SecondThread> other;
  if (state.range(1)) other.emplace();
  Lock lock;
  int value = 0;
  for (auto _ : state) {
    std::lock_guard<Lock> outer(lock);
    if (state.range(0) > 1) {
      std::lock_guard<Lock> inner(lock);
      benchmark::DoNotOptimize(++value);
    } else {
      benchmark::DoNotOptimize(++value);
    }
  }
}
// The cases with one thread first: the C library never forgets that a
// process once had a second.
BENCHMARK_TEMPLATE(BM_Lock, std::recursive_mutex)->ArgNames({"depth", "threads"})->ArgsProduct({{1, 2}, {0}});
BENCHMARK_TEMPLATE(BM_Lock, zemo::CObjectLock)->ArgNames({"depth", "threads"})->ArgsProduct({{1, 2}, {0}});
BENCHMARK_TEMPLATE(BM_Lock, std::recursive_mutex)->ArgNames({"depth", "threads"})->ArgsProduct({{1, 2}, {1}});
BENCHMARK_TEMPLATE(BM_Lock, zemo::CObjectLock)->ArgNames({"depth", "threads"})->ArgsProduct({{1, 2}, {1}});

}  // namespace
