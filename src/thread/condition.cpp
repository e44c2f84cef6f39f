#include "thread/condition.h"

#include "core/win32.h"

#include "core/record.h"
#include "thread/cancellable_wait.h"
#include "thread/cleanup.h"
#include "thread/condition_gate.h"
#include "thread/deferred_cancel.h"
#include "thread/mutex_record.h"
#include "thread/static_init_lock.h"
#include "thread/thread_lifecycle.h"

namespace vorn::detail {

namespace {

// So many waiters may leave without a wake-up before they are taken out of waitersBlocked.
constexpr int32_t kFoldAt = 0x3FFFFFFF;

// How a wait ended that the thread did not return from.
constexpr VornStatus kCancelled = 0xFFFFFFFF;

// A cancelled waiter's. The caller's handle variable may have been on the stack that is gone.
struct WaitContext {
    VornCondition* condition;
    VornMutex* mutex;
};

bool TakePermit(const VornCondition* condition) noexcept
{
    return WaitForSingleObject(condition->blockQueue->native, 0) == WAIT_OBJECT_0;
}

// Needs the unblock lock, outside of a delivery.
VornStatus FoldGoneLocked(VornCondition* condition) noexcept
{
    const VornStatus status = CloseGate(condition, nullptr);
    if (status != VORN_OK) return status;
    condition->waitersBlocked -= condition->waitersGone;
    condition->waitersGone = 0;
    return OpenGate(condition);
}

// Decides whether one of the promised wake-ups is this thread's, during a delivery.
//
// The permits of a delivery are posted before the unblock lock is released, so each promised wake-up is a
// permit in the queue or a thread that has taken one and is on its way here. A thread that has taken none and
// finds none is therefore not promised one, unless everybody is. One that times out takes the permit it
// finds, because a left-over permit would wake somebody who comes later. One that is cancelled leaves the
// permit to a thread that is promised nothing, and takes it only where there is no such thread.
bool TakesWakeUpLocked(VornCondition* condition, VornStatus waitStatus) noexcept
{
    const bool everybodyIsPromisedOne = condition->waitersBlocked.load(std::memory_order_relaxed) == 0;
    if (waitStatus == VORN_OK) return true;
    if (waitStatus == VORN_E_TIMEOUT) return TakePermit(condition) || everybodyIsPromisedOne;
    if (everybodyIsPromisedOne) TakePermit(condition);
    return everybodyIsPromisedOne;
}

// Takes the unblock lock also where sleeping for it fails: it is never held for long, and a waiter that left
// without counting itself out would keep the gate closed for ever. `*held` is false only when the process
// ends.
VornStatus LockToLeave(VornCondition* condition, bool* held) noexcept
{
    const VornStatus status = VornMutexLock(&condition->unblockLock);
    *held = status == VORN_OK;
    while (!*held && !ProcessIsEnding()) {
        Sleep(0);
        *held = VornMutexTryLock(&condition->unblockLock) == VORN_OK;
    }
    return status;
}

// Counts the calling thread out of its wait, which ended with `*waitStatus`. A time-out that turns out to
// have met a wake-up becomes VORN_OK.
VornStatus LeaveWait(VornCondition* condition, VornStatus* waitStatus) noexcept
{
    bool held;
    VornStatus status = LockToLeave(condition, &held);
    if (!held) return status;
    bool endsDelivery = false;
    if (condition->waitersToUnblock == 0) {
        if (++condition->waitersGone >= kFoldAt) status = FirstFailure(status, FoldGoneLocked(condition));
    } else if (TakesWakeUpLocked(condition, *waitStatus)) {
        endsDelivery = --condition->waitersToUnblock == 0;
        if (*waitStatus == VORN_E_TIMEOUT) *waitStatus = VORN_OK;
    } else {
        // The gate is closed by the delivery.
        --condition->waitersBlocked;
    }
    status = FirstFailure(status, VornMutexUnlock(&condition->unblockLock));
    if (endsDelivery) status = FirstFailure(status, OpenGate(condition));
    return status;
}

void FinishCancelledWait(void* argument)
{
    auto* const context = static_cast<WaitContext*>(argument);
    VornStatus waitStatus = kCancelled;
    LeaveWait(context->condition, &waitStatus);
    --context->condition->visitors;
    VornMutexLock(&context->mutex);
}

void UndoArrival(void* argument)
{
    VornCondition* const condition = static_cast<GateContext*>(argument)->condition;
    --condition->arriving;
    --condition->visitors;
}

void UndoWake(void* argument)
{
    VornCondition* const condition = static_cast<GateContext*>(argument)->condition;
    VornMutexUnlock(&condition->unblockLock);
    --condition->visitors;
}

void UndoDestroy(void* argument)
{
    --static_cast<GateContext*>(argument)->condition->visitors;
}

// Counts the calling thread into a wait. On failure it is not inside.
VornStatus EnterWait(VornCondition* condition, bool cancellable)
{
    ++condition->visitors;
    ++condition->arriving;
    VornStatus status = CloseGate(condition, cancellable ? &UndoArrival : nullptr);
    if (status == VORN_OK) {
        ++condition->waitersBlocked;
        status = OpenGate(condition);
        if (status != VORN_OK) {
            VornStatus notWaited = status;
            LeaveWait(condition, &notWaited);
        }
    }
    --condition->arriving;
    if (status != VORN_OK) --condition->visitors;
    return status;
}

// How many waiters to wake: one or all of those that no wake-up is promised to. Where the first of them
// begins a delivery the gate is closed.
VornStatus PrepareWakeUpsLocked(VornCondition* condition, bool all, bool cancellable, int32_t* count,
                                bool* beginsDelivery)
{
    *count = 0;
    *beginsDelivery = false;
    std::atomic<int32_t>& blocked = condition->waitersBlocked;
    if (condition->waitersToUnblock == 0) {
        if (blocked.load() <= condition->waitersGone) return VORN_OK;
        const VornStatus status = CloseGate(condition, cancellable ? &UndoWake : nullptr);
        if (status != VORN_OK) return status;
        *beginsDelivery = true;
        blocked -= condition->waitersGone;
        condition->waitersGone = 0;
    }
    *count = all ? blocked.load() : (blocked.load() > 0 ? 1 : 0);
    return VORN_OK;
}

// Promises so many wake-ups. The permits come first: whoever takes one needs the unblock lock to go on, and
// where there are none nothing has been promised.
VornStatus PostWakeUpsLocked(VornCondition* condition, int32_t count) noexcept
{
    if (!ReleaseSemaphore(condition->blockQueue->native, count, nullptr)) return VORN_E_SYSTEM;
    condition->waitersToUnblock += count;
    condition->waitersBlocked -= count;
    return VORN_OK;
}

VornStatus MakeCondition(VornCondition** out) noexcept
{
    Record<VornCondition> condition;
    if (!condition) return VORN_E_NO_MEMORY;
    VornStatus status = VornSemaphoreCreate(&condition->blockQueue, 0, 0);
    if (status == VORN_OK) status = VornSemaphoreCreate(&condition->gate, 1, 0);
    if (status == VORN_OK) status = VornMutexCreate(&condition->unblockLock, nullptr);
    if (status != VORN_OK) {
        if (condition->gate != nullptr) VornSemaphoreClose(&condition->gate);
        if (condition->blockQueue != nullptr) VornSemaphoreClose(&condition->blockQueue);
        return status;
    }
    StoreHandle(out, condition.Release());
    return VORN_OK;
}

// Creates the condition that the initialiser stands for, unless another thread has done so. After a failure
// the variable still holds the initialiser.
[[gnu::noinline]] VornStatus CreateOnFirstUse(VornCondition** variable) noexcept
{
    StaticInitLock guard;
    VornCondition* const handle = LoadHandle(variable);
    if (handle == nullptr) return VORN_E_INVALID_ARG;
    return handle == VORN_CONDITION_INITIALIZER ? MakeCondition(variable) : VORN_OK;
}

VornStatus CreateAndWait(VornCondition** variable, VornMutex** mutex, DWORD timeoutMs)
{
    VornCondition* condition = LoadHandle(variable);
    if (condition == nullptr || condition == VORN_CONDITION_INITIALIZER) {
        const VornStatus status = CreateOnFirstUse(variable);
        if (status != VORN_OK) return status;
        condition = LoadHandle(variable);
    }
    bool mutexHeld;
    return WaitOnCondition(condition, mutex, timeoutMs, true, &mutexHeld);
}

VornStatus Wait(VornCondition** variable, VornMutex** mutex, DWORD timeoutMs)
{
    if (variable == nullptr || mutex == nullptr) return VORN_E_INVALID_ARG;
    return RunDeferred([=] { return CreateAndWait(variable, mutex, timeoutMs); });
}

VornStatus Wake(VornCondition** variable, bool all)
{
    VornCondition* const condition = variable == nullptr ? nullptr : LoadHandle(variable);
    if (condition == nullptr) return VORN_E_INVALID_ARG;
    // Never created: nobody waits.
    if (condition == VORN_CONDITION_INITIALIZER) return VORN_OK;
    // Every waiter has left or is promised a wake-up: there is nothing to do, delivery or not.
    if (condition->waitersBlocked.load() == 0) return VORN_OK;
    return RunDeferred([=] { return WakeWaiters(condition, all, true); });
}

// Unlinks the record from the client's variable; VORN_E_BUSY when threads wait.
VornStatus RetireCondition(VornCondition** variable, VornCondition* condition, bool cancellable)
{
    VornStatus status = CloseGate(condition, cancellable ? &UndoDestroy : nullptr);
    if (status != VORN_OK) return status;
    status = VornMutexTryLock(&condition->unblockLock);
    if (status == VORN_OK) {
        if (condition->waitersBlocked.load() <= condition->waitersGone && condition->arriving.load() == 0) {
            StoreHandle<VornCondition>(variable, nullptr);
            return VornMutexUnlock(&condition->unblockLock);
        }
        status = VORN_E_BUSY;
        VornMutexUnlock(&condition->unblockLock);
    }
    OpenGate(condition);
    return status;
}

}  // namespace

VornStatus WaitOnCondition(VornCondition* condition, VornMutex** mutex, DWORD timeoutMs, bool cancellable,
                           bool* mutexHeld)
{
    *mutexHeld = true;
    VornStatus status = EnterWait(condition, cancellable);
    if (status != VORN_OK) return status;

    WaitContext* context = nullptr;
    if (cancellable) {
        context = static_cast<WaitContext*>(PushCleanup(&FinishCancelledWait, sizeof(WaitContext)));
    }
    VornStatus waitStatus = VornMutexUnlock(mutex);
    if (waitStatus == VORN_OK) {
        HANDLE const queue = condition->blockQueue->native;
        if (context != nullptr) {
            *context = {condition, LoadHandle(mutex)};
            waitStatus = WaitCancellable(queue, timeoutMs);
        } else {
            waitStatus = WaitPlain(queue, timeoutMs);
        }
    }
    if (context != nullptr) RemoveCleanup(context, false);

    status = LeaveWait(condition, &waitStatus);
    --condition->visitors;
    const VornStatus relock = VornMutexLock(mutex);
    *mutexHeld = relock == VORN_OK;
    return FirstFailure(FirstFailure(status, relock), waitStatus);
}

VornStatus WakeWaiters(VornCondition* condition, bool all, bool cancellable)
{
    ++condition->visitors;
    VornStatus status = VornMutexLock(&condition->unblockLock);
    if (status == VORN_OK) {
        int32_t count;
        bool beginsDelivery;
        status = PrepareWakeUpsLocked(condition, all, cancellable, &count, &beginsDelivery);
        if (count > 0) {
            status = PostWakeUpsLocked(condition, count);
            if (status != VORN_OK && beginsDelivery) OpenGate(condition);
        }
        status = FirstFailure(status, VornMutexUnlock(&condition->unblockLock));
    }
    --condition->visitors;
    return status;
}

VornStatus DestroyCondition(VornCondition** variable, bool cancellable)
{
    VornCondition* const condition = LoadHandle(variable);
    ++condition->visitors;
    VornStatus status = RetireCondition(variable, condition, cancellable);
    if (LoadHandle(variable) == condition) {
        --condition->visitors;
        return status;
    }
    // Threads that were woken, or that have woken others, may have a few steps to go. The gate stays closed.
    while (condition->visitors.load() != 1 && !ProcessIsEnding()) Sleep(0);
    status = FirstFailure(status, VornSemaphoreClose(&condition->gate));
    status = FirstFailure(status, VornSemaphoreClose(&condition->blockQueue));
    status = FirstFailure(status, VornMutexDestroy(&condition->unblockLock));
    std::free(condition);
    return status == VORN_OK ? VORN_OK : VORN_E_SYSTEM;
}

namespace {

VornStatus Destroy(VornCondition** variable)
{
    VornCondition* handle = LoadHandle(variable);
    if (handle == VORN_CONDITION_INITIALIZER) {
        StaticInitLock guard;
        handle = LoadHandle(variable);
        if (handle == VORN_CONDITION_INITIALIZER) {
            StoreHandle<VornCondition>(variable, nullptr);
            return VORN_OK;
        }
    }
    return handle == nullptr ? VORN_E_INVALID_ARG : DestroyCondition(variable, true);
}

}  // namespace

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" VornStatus VornConditionCreate(VornCondition** out, uint32_t shared)
{
    if (shared == 1) return VORN_E_NOT_SUPPORTED;
    if (out == nullptr || shared != 0) return VORN_E_INVALID_ARG;
    return MakeCondition(out);
}

extern "C" VornStatus VornConditionDestroy(VornCondition** condition)
{
    if (condition == nullptr) return VORN_E_INVALID_ARG;
    return RunDeferred([=] { return Destroy(condition); });
}

extern "C" VornStatus VornConditionWait(VornCondition** condition, VornMutex** mutex)
{
    return Wait(condition, mutex, INFINITE);
}

extern "C" VornStatus VornConditionTimedWait(VornCondition** condition, VornMutex** mutex, uint32_t timeoutMs)
{
    return Wait(condition, mutex, timeoutMs);
}

extern "C" VornStatus VornConditionSignal(VornCondition** condition)
{
    return Wake(condition, false);
}

extern "C" VornStatus VornConditionBroadcast(VornCondition** condition)
{
    return Wake(condition, true);
}
