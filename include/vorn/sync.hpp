// sync.hpp - the synchronisation classes: mutex, scope guards, semaphore, barrier.
#ifndef VORN_SYNC_HPP
#define VORN_SYNC_HPP

#include <vorn/exceptions.hpp>
#include <vorn/sync.h>

namespace vorn {

/// A mutex that lives as long as the object.
class VORN_API Mutex : public Lockable, public NonCopyable {
public:
    /// Creates the mutex; a null attribute means a normal one. Throws InvalidArgument "Invalid argument" for
    /// a kind or shared value out of range, BadAlloc "Bad allocation", and RuntimeError "Error creating
    /// mutex." for a shared mutex and when the system refuses.
    Mutex(const VornMutexAttr* attr = nullptr);
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

/// Placeholder: every member does nothing. Deliberate; use VornCondition.
class VORN_API Condition {
public:
    Condition(Lockable* lock, bool shared);
    ~Condition();

    void Wait();
    /// Always false.
    bool TimedWait(unsigned timeoutMs);
    void Signal();
    void Broadcast();
};

/// Placeholder: every member does nothing. Deliberate; use VornRWLock.
class VORN_API RWLock {
public:
    explicit RWLock(bool shared);
    ~RWLock();

    void ReadLock();
    void WriteLock();
    void Unlock();
    /// Always false.
    bool TryReadLock();
    /// Always false.
    bool TryWriteLock();
};

/// A semaphore that lives as long as the object.
class VORN_API Semaphore {
public:
    /// Creates an unnamed semaphore. Throws NotImplementedError "Not implemented" for a shared one,
    /// OutOfRange "Invalid initial semaphore value." for a negative count, BadAlloc "Bad allocation",
    /// RuntimeError "Error creating semaphore.".
    Semaphore(int initial, bool shared);
    /// Opens or creates a named semaphore (see VornSemaphoreOpen). Throws as the other constructor, and
    /// InvalidArgument "Invalid semaphore name.", InvalidArgument "Invalid argument" for exclusive without
    /// create, LogicError "Semaphore with this name already exists."; RuntimeError also for one that is
    /// missing.
    Semaphore(const char* name, bool create, bool exclusive, int initial,
              const VornSecurityDescriptor* security);
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;
    ~Semaphore();

    /// Takes a permit, and waits for one without limit; a cancellation point. Throws SyncError "Semaphore
    /// wait error".
    void Wait();
    /// True when a permit was taken.
    bool TryWait();
    /// Gives a permit. Throws OutOfRange "Semaphore reached maximum count value.", SyncError "Error posting
    /// semaphore.".
    void Post();

private:
    char* name_;  // null for an unnamed semaphore
    VornSemaphore* handle_;
};

/// A barrier that lives as long as the object.
class VORN_API Barrier {
public:
    /// Throws BadAlloc "Bad allocation", InvalidArgument "Invalid argument" for a count of 0,
    /// NotImplementedError "Not implemented" for a shared one, RuntimeError "Error creating barrier.".
    Barrier(unsigned count, bool shared);
    Barrier(const Barrier&) = delete;
    Barrier& operator=(const Barrier&) = delete;
    ~Barrier();

    /// Waits until `count` threads have arrived. True for one of them, the first to leave. Throws
    /// RuntimeError "Error waiting on barrier.".
    bool Wait();

private:
    VornBarrier* handle_;
};

}  // namespace vorn

#endif
