#include "thread/cancel.h"

#include "thread/async_cancel.h"
#include "thread/deferred_cancel.h"
#include "thread/thread_exception.h"
#include "thread/thread_record.h"
#include "thread/thread_registry.h"

namespace vorn::detail {

bool CancellationEnabled(const VornThread* thread) noexcept
{
    return thread->cancelState.load(std::memory_order_relaxed) == VORN_CANCEL_ENABLE &&
           !thread->uncancellable.load(std::memory_order_relaxed);
}

void BeginCancellationLocked(VornThread* thread) noexcept
{
    thread->state.store(kStateCancelled);
    thread->cancelState.store(VORN_CANCEL_DISABLE);
}

void ActOnCancellation()
{
    const VornThread* const thread = CurrentThread();
    if (thread == nullptr || thread->adopted != 0) ExitThread(0xFFFFFFFF);
    throw ThreadExceptionCancel();
}

VornStatus CancelAfterEvent(VornThread* thread)
{
    ResetEvent(thread->cancelEvent);
    if (VornMutexLock(&thread->stateLock) != VORN_OK) return VORN_E_SYSTEM;
    const bool already = thread->state.load() >= kStateCancelled;
    if (!already) BeginCancellationLocked(thread);
    VornMutexUnlock(&thread->stateLock);
    if (already) return VORN_E_SYSTEM;
    ActOnCancellation();
}

namespace {

bool IsSignalled(HANDLE event) noexcept
{
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

// The common shape of VornThreadSetCancelState and VornThreadSetCancelType: stores `value` in one of the two
// fields, and acts if that leaves the caller enabled and asynchronous with a request pending.
VornStatus SetCancelField(std::atomic<uint32_t> VornThread::*field, int32_t value, uint32_t* old)
{
    if (value != 0 && value != 1) return VORN_E_INVALID_ARG;
    VornThread* const thread = VornThreadSelf();
    if (thread == nullptr) return VORN_E_NO_MEMORY;
    if (VornMutexLock(&thread->stateLock) != VORN_OK) return VORN_E_SYSTEM;
    const uint32_t before = (thread->*field).load();
    if (old != nullptr) *old = before;
    (thread->*field).store(static_cast<uint32_t>(value));
    const bool act = CancellationEnabled(thread) && thread->cancelType.load() == VORN_CANCEL_ASYNCHRONOUS &&
                     thread->state.load() < kStateCancelled && IsSignalled(thread->cancelEvent);
    if (act) {
        BeginCancellationLocked(thread);
        ResetEvent(thread->cancelEvent);
    }
    VornMutexUnlock(&thread->stateLock);
    if (act) ActOnCancellation();
    return VORN_OK;
}

// Leaves the request for the target's next cancellation point.
VornStatus RequestLocked(VornThread* target) noexcept
{
    const int32_t state = target->state.load();
    if (state >= kStateCancelled) return VORN_E_SYSTEM;
    if (state == kStateCancelRequested) return VORN_OK;
    target->state.store(kStateCancelRequested);
    return SetEvent(target->cancelEvent) ? VORN_OK : VORN_E_SYSTEM;
}

bool EndsAtOnce(const VornThread* target) noexcept
{
    return target->cancelType.load() == VORN_CANCEL_ASYNCHRONOUS && CancellationEnabled(target) &&
           target->state.load() < kStateCancelled;
}

VornStatus CancelCaller(VornThread* self)
{
    // Deliberate, as below: a lock that cannot be taken is no failure of the request.
    if (VornMutexLock(&self->stateLock) != VORN_OK) return VORN_OK;
    const bool atOnce = EndsAtOnce(self);
    VornStatus status = VORN_OK;
    if (atOnce) {
        BeginCancellationLocked(self);
    } else {
        status = RequestLocked(self);
    }
    VornMutexUnlock(&self->stateLock);
    if (atOnce) ActOnCancellation();
    return status;
}

VornStatus CancelOther(VornThread* target) noexcept
{
    const ThreadUse use(target);
    if (!use) return VORN_E_INVALID_ARG;
    if (VornMutexLock(&target->stateLock) != VORN_OK) return VORN_OK;
    VornStatus status = VORN_E_BUSY;
    if (EndsAtOnce(target)) status = DivertToCancellation(target);
    if (status == VORN_E_BUSY) status = RequestLocked(target);
    VornMutexUnlock(&target->stateLock);
    return status;
}

}  // namespace

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" VornStatus VornThreadCancel(VornThread* target)
{
    if (target == nullptr) return VORN_E_INVALID_ARG;
    if (target == CurrentThread()) return CancelCaller(target);
    return RunDeferred([=] { return CancelOther(target); });
}

extern "C" VornStatus VornThreadSetCancelState(int32_t state, uint32_t* oldState)
{
    return SetCancelField(&VornThread::cancelState, state, oldState);
}

extern "C" VornStatus VornThreadSetCancelType(int32_t type, uint32_t* oldType)
{
    if (type == VORN_CANCEL_ASYNCHRONOUS) PrepareToBeDiverted(CurrentThread());
    return SetCancelField(&VornThread::cancelType, type, oldType);
}

extern "C" void VornThreadTestCancel(void)
{
    VornThread* const thread = CurrentThread();
    if (thread == nullptr || thread->state.load(std::memory_order_relaxed) != kStateCancelRequested) return;
    if (VornMutexLock(&thread->stateLock) != VORN_OK) return;
    const bool act = CancellationEnabled(thread) && thread->state.load() == kStateCancelRequested;
    if (act) {
        BeginCancellationLocked(thread);
        ResetEvent(thread->cancelEvent);
    }
    VornMutexUnlock(&thread->stateLock);
    if (act) ActOnCancellation();
}
