// sync.hpp - the classes around mutexes: vorn::Mutex and two scope guards.
#ifndef VORN_SYNC_HPP
#define VORN_SYNC_HPP

#include <vorn/exceptions.hpp>
#include <vorn/sync.h>

namespace vorn {

/// A mutex that lives as long as the object.
class VORN_API Mutex : public Lockable {
public:
    /// Creates the mutex; a null attribute means a normal one. Throws InvalidArgument "Invalid argument" for
    /// a kind or shared value out of range, BadAlloc "Bad allocation", and RuntimeError "Error creating
    /// mutex." for a shared mutex and when the system refuses.
    Mutex(const VornMutexAttr* attr = nullptr);
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    /// Destroys the mutex. One that is held is left behind.
    ~Mutex() override;

    /// Waits until the mutex is held. Throws LockError: "Attempt to lock alredy owned non-recursive mutex."
    /// for an error-checking mutex that the caller holds, "Mutex lock failed." for any other failure.
    void Lock() override;
    /// True when the mutex is held now; false for every failure. Never throws.
    bool TryLock() override;
    /// Throws LockError: "Attempt to unlock not owned mutex." when the caller does not hold a recursive or
    /// error-checking mutex, "Mutex unlock failed." for any other failure.
    void Unlock() override;

private:
    VornMutex* handle_;
};

/// Holds a mutex from its construction to its destruction. Never throws: a lock that failed is not unlocked.
class VORN_API AutoLock {
public:
    explicit AutoLock(VornMutex** mutex) noexcept;
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;
    /// Unlocks if the constructor locked; a failure to unlock is ignored.
    ~AutoLock();

private:
    VornStatus status_;
    VornMutex** mutex_;
};

/// As AutoLock, but holds the mutex only if it was free at construction.
class VORN_API AutoTryLock {
public:
    explicit AutoTryLock(VornMutex** mutex) noexcept;
    AutoTryLock(const AutoTryLock&) = delete;
    AutoTryLock& operator=(const AutoTryLock&) = delete;
    ~AutoTryLock();

    /// True when the mutex is held.
    operator bool() const noexcept { return status_ == VORN_OK; }

private:
    VornStatus status_;
    VornMutex** mutex_;
};

}  // namespace vorn

#endif
