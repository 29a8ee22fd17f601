#include "rw_lock.h"

#include <gtest/gtest.h>

#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

namespace {

TEST(RwLock, ReadersShare) {
  zeva::RwLock lock;
  const std::shared_lock<zeva::RwLock> mine(lock);
  std::thread([&] { const std::shared_lock<zeva::RwLock> second(lock); }).join();
}

TEST(RwLock, WritersExcludeEverybody) {
  zeva::RwLock lock;
  int a = 0;
  int b = 0;
  bool torn = false;
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        const std::unique_lock<zeva::RwLock> guard(lock);
        ++a;
        ++b;
      }
    });
  }
  for (int i = 0; i < 2000; ++i) {
    const std::shared_lock<zeva::RwLock> guard(lock);
    torn = torn || a != b;
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(torn);
  EXPECT_EQ(a, 4000);
}

}  // namespace
