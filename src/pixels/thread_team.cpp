#include "thread_team.h"

#include <system_error>

#include "logger.h"

namespace zeva {

ThreadTeam::ThreadTeam(int size) {
  try {
    for (int number = 1; number < size; ++number) {
      threads.emplace_back([this, number] { work(number); });
    }
  } catch (const std::system_error& error) {
    ZEVA_LOG(kLogWarning, "no further thread for large pictures: %s", error.what());
  }
}

ThreadTeam::~ThreadTeam() {
  {
    const std::lock_guard<std::mutex> lock(mutex);
    ends = true;
  }
  changed.notify_all();
  for (std::thread& thread : threads) thread.join();
}

void ThreadTeam::run(const std::function<void(int)>& part) {
  {
    const std::lock_guard<std::mutex> lock(mutex);
    job = &part;
    busy = static_cast<int>(threads.size());
    ++jobs;
  }
  changed.notify_all();
  part(0);
  std::unique_lock<std::mutex> lock(mutex);
  changed.wait(lock, [this] { return busy == 0; });
}

void ThreadTeam::work(int number) {
  int done = 0;
  std::unique_lock<std::mutex> lock(mutex);
  for (;;) {
    changed.wait(lock, [&] { return ends || jobs != done; });
    if (ends) return;
    done = jobs;
    const std::function<void(int)>& part = *job;
    lock.unlock();
    part(number);
    lock.lock();
    if (--busy == 0) changed.notify_all();
  }
}

}  // namespace zeva
