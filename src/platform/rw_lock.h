// Reader/writer lock that needs no start-up code, so a process-wide one is safe at any time.
#pragma once

#ifndef _WIN32
#include <shared_mutex>
#endif

namespace zeva {

// Meets the standard's SharedMutex requirements: use it with std::shared_lock and std::unique_lock.
// Any thread may call anything; not recursive.
class RwLock {
 public:
  void lock();
  void unlock();
  void lock_shared();
  void unlock_shared();

 private:
#ifdef _WIN32
  void* srw = nullptr;  // an SRWLOCK, which is one pointer, initially null
#else
  std::shared_mutex mutex;
#endif
};

}  // namespace zeva
