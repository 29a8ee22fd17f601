#include "rw_lock.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace zeva {

#ifdef _WIN32

static_assert(sizeof(SRWLOCK) == sizeof(void*));

void RwLock::lock() { AcquireSRWLockExclusive(reinterpret_cast<SRWLOCK*>(&srw)); }
void RwLock::unlock() { ReleaseSRWLockExclusive(reinterpret_cast<SRWLOCK*>(&srw)); }
void RwLock::lock_shared() { AcquireSRWLockShared(reinterpret_cast<SRWLOCK*>(&srw)); }
void RwLock::unlock_shared() { ReleaseSRWLockShared(reinterpret_cast<SRWLOCK*>(&srw)); }

#else

void RwLock::lock() { mutex.lock(); }
void RwLock::unlock() { mutex.unlock(); }
void RwLock::lock_shared() { mutex.lock_shared(); }
void RwLock::unlock_shared() { mutex.unlock_shared(); }

#endif

}  // namespace zeva
