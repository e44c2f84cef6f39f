// rwlock.cpp - read-write locks that prefer writers.
//
// Lock order: the exclusive lock before the shared-completed lock. Readers pass through the exclusive lock on
// their way in and take only the shared-completed lock on their way out; a writer holds both while it writes,
// and the exclusive lock already while it waits for readers, so that no further reader comes in.
#include "core/win32.h"

#include "core/record.h"
#include "thread/cleanup.h"
#include "thread/condition.h"
#include "thread/deferred_cancel.h"
#include "thread/mutex_record.h"
#include "thread/static_init_lock.h"

#include <atomic>
#include <cstddef>

// sharedCount - completedCount readers are inside, save while a writer waits for them: then completedCount is
// minus their number.
struct VornRWLock {
    int32_t sharedCount;                  // readers that came in; guarded by exclusiveLock
    std::atomic<int32_t> exclusiveCount;  // 1 while a writer is inside; changed under both locks
    int32_t completedCount;               // readers that left; guarded by sharedCompletedLock
    VornMutex* sharedCompletedLock;
    VornMutex* exclusiveLock;
    VornCondition* sharedCompleted;  // where a writer waits, under sharedCompletedLock
};
static_assert(offsetof(VornRWLock, exclusiveCount) == 4 && offsetof(VornRWLock, completedCount) == 8 &&
              offsetof(VornRWLock, sharedCompletedLock) == 16 && offsetof(VornRWLock, exclusiveLock) == 24 &&
              offsetof(VornRWLock, sharedCompleted) == 32);

using namespace vorn::detail;

namespace {

// A waiting writer's, for the case that it is cancelled.
struct WriterContext {
    VornRWLock* lock;
};

VornStatus UnlockBoth(VornRWLock* lock) noexcept
{
    const VornStatus status = VornMutexUnlock(&lock->sharedCompletedLock);
    return FirstFailure(status, VornMutexUnlock(&lock->exclusiveLock));
}

VornStatus LockBoth(VornRWLock* lock) noexcept
{
    VornStatus status = VornMutexLock(&lock->exclusiveLock);
    if (status != VORN_OK) return status;
    status = VornMutexLock(&lock->sharedCompletedLock);
    if (status != VORN_OK) VornMutexUnlock(&lock->exclusiveLock);
    return status;
}

VornStatus TryLockBoth(VornRWLock* lock) noexcept
{
    VornStatus status = VornMutexTryLock(&lock->exclusiveLock);
    if (status != VORN_OK) return status;
    status = VornMutexTryLock(&lock->sharedCompletedLock);
    if (status != VORN_OK) VornMutexUnlock(&lock->exclusiveLock);
    return status;
}

// Takes the readers that have left out of the number of those that came. Needs both locks.
void FoldCompletedLocked(VornRWLock* lock) noexcept
{
    lock->sharedCount -= lock->completedCount;
    lock->completedCount = 0;
}

VornStatus MakeLock(VornRWLock** out) noexcept
{
    *out = nullptr;
    Record<VornRWLock> lock;
    if (!lock) return VORN_E_NO_MEMORY;
    VornStatus status = VornMutexCreate(&lock->exclusiveLock, nullptr);
    if (status == VORN_OK) status = VornMutexCreate(&lock->sharedCompletedLock, nullptr);
    if (status == VORN_OK) status = VornConditionCreate(&lock->sharedCompleted, 0);
    if (status != VORN_OK) {
        if (lock->sharedCompletedLock != nullptr) VornMutexDestroy(&lock->sharedCompletedLock);
        if (lock->exclusiveLock != nullptr) VornMutexDestroy(&lock->exclusiveLock);
        return status;
    }
    *out = lock.Release();
    return VORN_OK;
}

// As for mutexes: the variable keeps the initialiser until the record is complete, and a failure leaves 0.
[[gnu::noinline]] VornStatus CreateOnFirstUse(VornRWLock** variable) noexcept
{
    StaticInitLock guard;
    VornRWLock* const handle = LoadHandle(variable);
    if (handle == nullptr) return VORN_E_INVALID_ARG;
    if (handle != VORN_RWLOCK_INITIALIZER) return VORN_OK;
    VornRWLock* created;
    const VornStatus status = MakeLock(&created);
    StoreHandle(variable, created);
    return status;
}

// The record behind the variable, created if need be.
inline VornStatus Resolve(VornRWLock** variable, VornRWLock** lock) noexcept
{
    if (variable == nullptr) return VORN_E_INVALID_ARG;
    *lock = LoadHandle(variable);
    if (__builtin_expect(IsInitializerOrNull(*lock), false)) {
        const VornStatus status = CreateOnFirstUse(variable);
        if (status != VORN_OK) return status;
        *lock = LoadHandle(variable);
    }
    return VORN_OK;
}

VornStatus LeaveAsReader(VornRWLock* lock)
{
    VornStatus status = VornMutexLock(&lock->sharedCompletedLock);
    if (status != VORN_OK) return status;
    // Not a cancellation point: the wake-up is sent with a lock held.
    if (++lock->completedCount == 0) status = WakeWaiters(lock->sharedCompleted, false, false);
    // The writer was not woken and nobody else would do it: this reader stays inside and may try again.
    if (status != VORN_OK) --lock->completedCount;
    return FirstFailure(status, VornMutexUnlock(&lock->sharedCompletedLock));
}

// Makes room in the number of readers. Needs the exclusive lock.
[[gnu::noinline]] VornStatus MakeRoomForReader(VornRWLock* lock) noexcept
{
    VornStatus status = VornMutexLock(&lock->sharedCompletedLock);
    if (status != VORN_OK) return status;
    FoldCompletedLocked(lock);
    status = VornMutexUnlock(&lock->sharedCompletedLock);
    return lock->sharedCount == INT32_MAX ? FirstFailure(status, VORN_E_RANGE) : status;
}

// Counts a reader in and gives the exclusive lock back, which the caller holds.
inline VornStatus EnterAsReader(VornRWLock* lock)
{
    if (__builtin_expect(++lock->sharedCount == INT32_MAX, false)) {
        const VornStatus status = MakeRoomForReader(lock);
        if (status != VORN_OK) {
            --lock->sharedCount;
            VornMutexUnlock(&lock->exclusiveLock);
            return status;
        }
    }
    const VornStatus status = VornMutexUnlock(&lock->exclusiveLock);
    // A caller that is told of a failure does not unlock, so it must not stay inside.
    if (__builtin_expect(status != VORN_OK, false)) LeaveAsReader(lock);
    return status;
}

// Ends a writer's wait for the readers that are inside, which it then no longer waits for. Needs both locks
// and gives them back.
void AbandonWait(VornRWLock* lock) noexcept
{
    lock->sharedCount = -lock->completedCount;
    lock->completedCount = 0;
    UnlockBoth(lock);
}

void FinishCancelledWriter(void* argument)
{
    // The condition's own handler was pushed later and has run before: the shared-completed lock is held
    // again.
    AbandonWait(static_cast<WriterContext*>(argument)->lock);
}

// Waits until the readers that are inside have left. Needs both locks; on failure both have been given back.
[[gnu::noinline]] VornStatus AwaitReaders(VornRWLock* lock)
{
    lock->completedCount = -lock->sharedCount;
    DeferredCancel deferral;
    auto* const context =
        static_cast<WriterContext*>(PushCleanup(&FinishCancelledWriter, sizeof(WriterContext)));
    if (context != nullptr) context->lock = lock;
    VornStatus status;
    bool held;
    do {
        status = WaitOnCondition(lock->sharedCompleted, &lock->sharedCompletedLock, INFINITE,
                                 context != nullptr, &held);
    } while (status == VORN_OK && lock->completedCount < 0);
    if (status != VORN_OK) {
        if (context != nullptr) RemoveCleanup(context, false);
        // The mutex of a failed wait may have been lost with it.
        if (held || VornMutexLock(&lock->sharedCompletedLock) == VORN_OK) {
            AbandonWait(lock);
        } else {
            VornMutexUnlock(&lock->exclusiveLock);
        }
        deferral.End();
        return status;
    }
    deferral.End();
    if (context != nullptr) RemoveCleanup(context, false);
    lock->sharedCount = 0;
    return VORN_OK;
}

VornStatus DestroyLock(VornRWLock** variable, VornRWLock* lock)
{
    VornStatus status = LockBoth(lock);
    if (status != VORN_OK) return status;
    const bool inside = lock->exclusiveCount != 0 || lock->sharedCount > lock->completedCount;
    status = UnlockBoth(lock);
    if (inside) return VORN_E_BUSY;
    if (status != VORN_OK) return status;
    StoreHandle<VornRWLock>(variable, nullptr);
    status = DestroyCondition(&lock->sharedCompleted, false);
    status = FirstFailure(status, VornMutexDestroy(&lock->sharedCompletedLock));
    status = FirstFailure(status, VornMutexDestroy(&lock->exclusiveLock));
    std::free(lock);
    return status;
}

}  // namespace

extern "C" VornStatus VornRWLockCreate(VornRWLock** out, uint32_t shared)
{
    if (shared == 1) return VORN_E_NOT_SUPPORTED;
    if (out == nullptr || shared != 0) return VORN_E_INVALID_ARG;
    VornRWLock* created;
    const VornStatus status = MakeLock(&created);
    StoreHandle(out, created);
    return status;
}

extern "C" VornStatus VornRWLockDestroy(VornRWLock** lock)
{
    if (lock == nullptr) return VORN_E_INVALID_ARG;
    VornRWLock* handle = LoadHandle(lock);
    if (handle == VORN_RWLOCK_INITIALIZER) {
        StaticInitLock guard;
        handle = LoadHandle(lock);
        if (handle == VORN_RWLOCK_INITIALIZER) {
            StoreHandle<VornRWLock>(lock, nullptr);
            return VORN_OK;
        }
    }
    if (handle == nullptr) return VORN_E_INVALID_ARG;
    return DestroyLock(lock, handle);
}

extern "C" VornStatus VornRWLockReadLock(VornRWLock** variable)
{
    VornRWLock* lock;
    VornStatus status = Resolve(variable, &lock);
    if (status != VORN_OK) return status;
    status = VornMutexLock(&lock->exclusiveLock);
    return status == VORN_OK ? EnterAsReader(lock) : status;
}

extern "C" VornStatus VornRWLockTryReadLock(VornRWLock** variable)
{
    VornRWLock* lock;
    VornStatus status = Resolve(variable, &lock);
    if (status != VORN_OK) return status;
    status = VornMutexTryLock(&lock->exclusiveLock);
    return status == VORN_OK ? EnterAsReader(lock) : status;
}

extern "C" VornStatus VornRWLockWriteLock(VornRWLock** variable)
{
    VornRWLock* lock;
    VornStatus status = Resolve(variable, &lock);
    if (status != VORN_OK) return status;
    status = LockBoth(lock);
    if (status != VORN_OK) return status;
    FoldCompletedLocked(lock);
    if (lock->sharedCount > 0) {
        status = AwaitReaders(lock);
        if (status != VORN_OK) return status;
    }
    lock->exclusiveCount.store(1, std::memory_order_relaxed);
    return VORN_OK;
}

extern "C" VornStatus VornRWLockTryWriteLock(VornRWLock** variable)
{
    VornRWLock* lock;
    VornStatus status = Resolve(variable, &lock);
    if (status != VORN_OK) return status;
    status = TryLockBoth(lock);
    if (status != VORN_OK) return status;
    FoldCompletedLocked(lock);
    if (lock->exclusiveCount.load(std::memory_order_relaxed) != 0 || lock->sharedCount > 0) {
        UnlockBoth(lock);
        return VORN_E_BUSY;
    }
    lock->exclusiveCount.store(1, std::memory_order_relaxed);
    return VORN_OK;
}

extern "C" VornStatus VornRWLockUnlock(VornRWLock** variable)
{
    VornRWLock* const lock = variable == nullptr ? nullptr : LoadHandle(variable);
    if (lock == nullptr) return VORN_E_INVALID_ARG;
    if (lock == VORN_RWLOCK_INITIALIZER) return VORN_OK;
    // While a reader is inside no writer is, so a reader always finds 0 here.
    if (lock->exclusiveCount.load(std::memory_order_relaxed) == 0) return LeaveAsReader(lock);
    lock->exclusiveCount.store(0, std::memory_order_relaxed);
    return UnlockBoth(lock);
}
