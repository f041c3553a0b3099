#include "platform/object_lock.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

using zemo::CObjectLock;

TEST(ObjectLock, IsRecursiveForItsOwnerAndExclusiveForOthers) {
  CObjectLock lock;
  lock.lock();
  lock.lock();
  EXPECT_TRUE(lock.try_lock());
  EXPECT_TRUE(lock.HeldByCaller());
  bool otherGot = true;
  std::thread([&] { otherGot = lock.try_lock(); }).join();
  EXPECT_FALSE(otherGot);
  lock.unlock();
  lock.unlock();
  std::thread([&] { otherGot = lock.try_lock(); }).join();
  EXPECT_FALSE(otherGot) << "one unlock is still owed";
  lock.unlock();
  EXPECT_FALSE(lock.HeldByCaller());
  std::thread([&] {
    otherGot = lock.try_lock();
    if (otherGot) lock.unlock();
  }).join();
  EXPECT_TRUE(otherGot);
}

// Threads that nest the lock and sleep on it by turns: every increment of a
// plain counter must survive, and every thread must get through.
TEST(ObjectLock, KeepsOutOtherThreadsUnderContention) {
  CObjectLock lock;
  uint64_t counter = 0;
  constexpr int kThreads = 4, kRounds = 20000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        std::lock_guard<CObjectLock> outer(lock);
        std::lock_guard<CObjectLock> inner(lock);
        uint64_t seen = counter;
        if (i % 1000 == 0) std::this_thread::yield();
        counter = seen + 1;
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(uint64_t{kThreads} * kRounds, counter);
}
