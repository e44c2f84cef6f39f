#include <vorn/thread.h>

#include "core/win32.h"

#include "core/record.h"
#include "thread/async_cancel.h"
#include "thread/cancellable_wait.h"
#include "thread/deferred_cancel.h"
#include "thread/terminate_handler.h"
#include "thread/thread_exception.h"
#include "thread/thread_lifecycle.h"
#include "thread/thread_record.h"
#include "thread/thread_registry.h"

namespace vorn::detail {

namespace {

void* const kCancelledValue = reinterpret_cast<void*>(~uintptr_t{0});

// Handed to the new thread, which frees it before it runs the start function.
struct StartBlock {
    VornThread* thread;
    VornThreadStart function;
    void* argument;
};

bool IsPriority(int32_t priority) noexcept
{
    switch (priority) {
        case THREAD_PRIORITY_IDLE:
        case THREAD_PRIORITY_LOWEST:
        case THREAD_PRIORITY_BELOW_NORMAL:
        case THREAD_PRIORITY_NORMAL:
        case THREAD_PRIORITY_ABOVE_NORMAL:
        case THREAD_PRIORITY_HIGHEST:
        case THREAD_PRIORITY_TIME_CRITICAL:
            return true;
        default:
            return false;
    }
}

DWORD ExitCodeFor(const void* value) noexcept
{
    return static_cast<DWORD>(reinterpret_cast<uintptr_t>(value));
}

void DiscardThreadRecord(VornThread* thread) noexcept
{
    if (UnregisterThread(thread)) FreeThreadRecord(thread);
}

// An exception that nobody handles ends the process. The thread's clean-up runs before that, because the
// process may end without telling the module that the thread did.
void FinishWithUnknownException(VornThread* thread) noexcept
{
    thread->uncancellable.store(true);
    thread->exitValue = kCancelledValue;
    const bool locked = VornMutexLock(&thread->listLock) == VORN_OK;
    thread->state.store(kStateUnknownException);
    if (locked) VornMutexUnlock(&thread->listLock);
    RunThreadExitCleanup();
    RestoreTerminateHandler();
}

// Runs the start function and fills the exit value. An asynchronous cancel comes back to the jump buffer,
// when everything the start function had on the stack is gone. The buffer's frame is set to null, which makes
// the jump a plain one: the stack has been unwound already, as far as that was possible.
[[gnu::noinline]] void RunStartFunction(VornThread* const thread, const VornThreadStart function,
                                        void* const argument)
{
    CancelUnwind unwind;
    PrepareCancelUnwind(&unwind, reinterpret_cast<const void*>(&RunStartFunction));
    if (_setjmp(unwind.escape, nullptr) == 0) {
        thread->unwind = &unwind;
        thread->uncancellable.store(false);
        try {
            thread->exitValue = function(argument);
        } catch (const ThreadExceptionCancel&) {
            thread->exitValue = kCancelledValue;
        } catch (const ThreadExceptionExit&) {
            // The value is in the record already.
        } catch (...) {
            FinishWithUnknownException(thread);
            throw;
        }
    } else {
        thread->exitValue = kCancelledValue;
    }
    // A canceller that has suspended the thread looks at this before it diverts it.
    thread->uncancellable.store(true);
    thread->unwind = nullptr;
}

// An exception that passes RunStartFunction ends here, where std::terminate runs with the host's handler.
DWORD WINAPI StartRoutine(void* parameter) noexcept
{
    VornThread* thread;
    VornThreadStart function;
    void* argument;
    {
        const Record<StartBlock> start(static_cast<StartBlock*>(parameter));
        thread = start->thread;
        function = start->function;
        argument = start->argument;
    }
    if (!TlsSetValue(selfKey->slot, thread)) {
        // Without its record the thread cannot run anything of the library.
        thread->exitValue = kCancelledValue;
        FinishThread(thread);
        return ExitCodeFor(kCancelledValue);
    }
    // A cancel that was requested before the thread ran stays requested.
    int32_t made = kStateMade;
    thread->state.compare_exchange_strong(made, kStateRunning);
    InstallTerminateHandler();
    RunStartFunction(thread, function, argument);
    RestoreTerminateHandler();
    return ExitCodeFor(thread->exitValue);
}

VornStatus Create(VornThread** out, const VornThreadAttr* attr, VornThreadStart function,
                  void* argument) noexcept
{
    if (out == nullptr || function == nullptr) return VORN_E_INVALID_ARG;
    const VornThreadAttr chosen = attr == nullptr ? VornThreadAttr{THREAD_PRIORITY_NORMAL, 0} : *attr;
    if (!IsPriority(chosen.priority) || chosen.detached > 1) return VORN_E_INVALID_ARG;

    Record<StartBlock> start;
    if (!start) return VORN_E_NO_MEMORY;
    VornThread* const thread = MakeThreadRecord();
    if (thread == nullptr) return VORN_E_NO_MEMORY;
    thread->priority = chosen.priority;
    thread->detached.store(chosen.detached);
    thread->uncancellable.store(true);
    start->thread = thread;
    start->function = function;
    start->argument = argument;

    DWORD threadId = 0;
    const HANDLE handle = CreateThread(nullptr, 0, &StartRoutine, start.Get(), CREATE_SUSPENDED, &threadId);
    if (handle == nullptr) {
        DiscardThreadRecord(thread);
        return VORN_E_SYSTEM;
    }
    thread->handle = handle;
    thread->threadId.store(threadId);
    if (chosen.priority != THREAD_PRIORITY_NORMAL) SetThreadPriority(handle, chosen.priority);
    // The thread may use the caller's variable as soon as it runs, and a detached one may be gone, with its
    // record, before ResumeThread returns.
    *out = thread;
    if (ResumeThread(handle) == static_cast<DWORD>(-1)) {
        *out = nullptr;
        TerminateThread(handle, 0);  // it has not run: it holds nothing
        DiscardThreadRecord(thread);
        return VORN_E_SYSTEM;
    }
    (void)start.Release();
    return VORN_OK;
}

VornStatus Detach(VornThread* thread) noexcept
{
    ThreadUse use(thread);
    if (!use) return VORN_E_INVALID_ARG;
    if (thread->detached.load() != 0) return VORN_E_SYSTEM;
    if (VornMutexLock(&thread->stateLock) != VORN_OK) return VORN_E_SYSTEM;
    const bool already = thread->detached.load() != 0;
    const bool finished = thread->state.load() == kStateFinished;
    if (!finished) thread->detached.store(1);
    VornMutexUnlock(&thread->stateLock);
    if (already) return VORN_E_SYSTEM;
    if (!finished) return VORN_OK;
    // The clean-up has run, but the system thread may still be on its way out of it.
    const HANDLE handle = thread->handle;
    use.Release();
    WaitForSingleObject(handle, INFINITE);
    DiscardThreadRecord(thread);
    return VORN_OK;
}

VornStatus Join(VornThread* thread, void** result)
{
    ThreadUse use(thread);
    if (!use) return VORN_E_INVALID_ARG;
    if (thread->detached.load() != 0) return VORN_E_DETACHED;
    const VornThread* const self = VornThreadSelf();
    if (self == nullptr) return VORN_E_NO_MEMORY;
    if (self == thread) return VORN_E_DEADLOCK;
    // A joinable record lives until it is joined or detached. The wait may be long and may end by
    // cancellation, so it does not keep the record.
    const HANDLE handle = thread->handle;
    use.Release();
    const VornStatus status = WaitCancellable(handle, INFINITE);
    if (status != VORN_OK) return status;
    // The system thread has ended, so no lock is needed: the record belongs to whoever unregisters it, and is
    // gone already where somebody has detached the thread meanwhile.
    if (!UnregisterThread(thread)) return VORN_E_INVALID_ARG;
    if (result != nullptr) *result = thread->exitValue;
    FreeThreadRecord(thread);
    return VORN_OK;
}

VornStatus SetPriority(VornThread* thread, int32_t priority) noexcept
{
    const ThreadUse use(thread);
    if (!use) return VORN_E_INVALID_ARG;
    if (!HandleNamesThread(thread) || !SetThreadPriority(thread->handle, priority)) return VORN_E_SYSTEM;
    thread->priority = priority;
    return VORN_OK;
}

}  // namespace

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" VornStatus VornThreadCreate(VornThread** out, const VornThreadAttr* attr, VornThreadStart function,
                                       void* argument)
{
    return RunDeferred([=] { return Create(out, attr, function, argument); });
}

extern "C" VornStatus VornThreadDetach(VornThread* thread)
{
    return RunDeferred([=] { return Detach(thread); });
}

extern "C" VornStatus VornThreadJoin(VornThread* thread, void** result)
{
    return RunDeferred([=] { return Join(thread, result); });
}

extern "C" VornStatus VornThreadSetPriority(VornThread* thread, int32_t priority)
{
    return RunDeferred([=] { return SetPriority(thread, priority); });
}

extern "C" void VornThreadExit(void* value)
{
    VornThread* const thread = CurrentThread();
    if (thread != nullptr) {
        thread->exitValue = value;
        if (thread->adopted == 0) throw ThreadExceptionExit();
    }
    ExitThread(ExitCodeFor(value));
}

extern "C" void VornThreadSleep(uint32_t milliseconds)
{
    static_assert(VORN_INFINITE == INFINITE);
    Sleep(milliseconds);
}

extern "C" void VornThreadYield(void)
{
    Sleep(0);
}
