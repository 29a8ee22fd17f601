// Threads that do one job together, again and again.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace zeva {

// Owns its threads, which wait between two jobs and end with it. Used by one thread at a time,
// which does its part of each job.
class ThreadTeam {
 public:
  // As many as the system grants: at least the caller.
  explicit ThreadTeam(int size);
  ~ThreadTeam();
  ThreadTeam(const ThreadTeam&) = delete;
  ThreadTeam& operator=(const ThreadTeam&) = delete;

  int size() const { return static_cast<int>(threads.size()) + 1; }

  // Calls part(0), which is the caller's, to part(size() - 1), and returns when all have returned.
  // None of them throws.
  void run(const std::function<void(int)>& part);

 private:
  void work(int number);

  std::mutex mutex;
  std::condition_variable changed;
  // guarded by `mutex`
  const std::function<void(int)>* job = nullptr;
  int jobs = 0;
  int busy = 0;
  bool ends = false;
  // fixed after construction; last, since they use the rest
  std::vector<std::thread> threads;
};

}  // namespace zeva
