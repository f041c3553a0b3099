// The object lock uncontended, as the packet path takes it (once per object
// per packet, now and then nested), against the standard recursive mutex it
// replaced.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/object_lock.h"

namespace {

template <class Lock>
void BM_LockUnlock(benchmark::State& state) {
  Lock lock;
  int value = 0;
  for (auto _ : state) {
    std::lock_guard<Lock> hold(lock);
    benchmark::DoNotOptimize(++value);
  }
}
BENCHMARK_TEMPLATE(BM_LockUnlock, std::recursive_mutex);
BENCHMARK_TEMPLATE(BM_LockUnlock, zemo::CObjectLock);

template <class Lock>
void BM_LockNested(benchmark::State& state) {
  Lock lock;
  int value = 0;
  for (auto _ : state) {
    std::lock_guard<Lock> outer(lock);
    std::lock_guard<Lock> inner(lock);
    benchmark::DoNotOptimize(++value);
  }
}
BENCHMARK_TEMPLATE(BM_LockNested, std::recursive_mutex);
BENCHMARK_TEMPLATE(BM_LockNested, zemo::CObjectLock);

}  // namespace
namespace {
// The same with a second thread alive, as in a host with a reader thread:
// some runtimes skip atomics while a process has one thread.
struct SecondThread {
  SecondThread() : t([this] { std::unique_lock<std::mutex> l(m); cv.wait(l, [this] { return done; }); }) {}
  ~SecondThread() { { std::lock_guard<std::mutex> l(m); done = true; } cv.notify_one(); t.join(); }
  std::mutex m; std::condition_variable cv; bool done = false; std::thread t;
};
template <class Lock>
void BM_LockUnlockThreaded(benchmark::State& state) {
  SecondThread other;
  Lock lock;
  int value = 0;
  for (auto _ : state) {
    std::lock_guard<Lock> hold(lock);
    benchmark::DoNotOptimize(++value);
  }
}
BENCHMARK_TEMPLATE(BM_LockUnlockThreaded, std::recursive_mutex);
BENCHMARK_TEMPLATE(BM_LockUnlockThreaded, zemo::CObjectLock);
}
