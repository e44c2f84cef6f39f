// static_init_lock.h - the process-wide lock under which statically initialised objects are created on
// first use and destroyed while they are still sentinels.
//
// It is never held while a mutex, a condition or a read-write lock is waited for. It is recursive.
#ifndef VORN_THREAD_STATIC_INIT_LOCK_H
#define VORN_THREAD_STATIC_INIT_LOCK_H

namespace vorn::detail {

// Called at process attach and process detach only.
void CreateStaticInitLock() noexcept;
void DeleteStaticInitLock() noexcept;

// Holds the lock for a scope.
class StaticInitLock {
public:
    StaticInitLock() noexcept;
    StaticInitLock(const StaticInitLock&) = delete;
    StaticInitLock& operator=(const StaticInitLock&) = delete;
    ~StaticInitLock();
};

}  // namespace vorn::detail

#endif
