// Wakes the worker of a recording when one of its inputs changes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "blocking_queue.h"

namespace zeva {

// Any thread tells of a change; one thread waits. A change between two waits ends the second one at
// once.
class InputSignal : public qel::iWaiter {
 public:
  void changed(qel::iWaitable* /*queue*/) override {
    const std::lock_guard<std::mutex> lock(mutex);
    pending = true;
    condition.notify_one();
  }

  void wait(int64_t timeout_ms) {
    std::unique_lock<std::mutex> lock(mutex);
    condition.wait_for(lock, std::chrono::milliseconds(timeout_ms), [this] { return pending; });
    pending = false;
  }

 private:
  std::mutex mutex;
  std::condition_variable condition;
  bool pending = false;  // guarded by mutex
};

}  // namespace zeva
