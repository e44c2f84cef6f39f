#include "core/win32.h"

#include "thread/cleanup.h"
#include "thread/mutex_record.h"
#include "thread/static_init_lock.h"
#include "thread/thread_data.h"
#include "thread/thread_lifecycle.h"
#include "thread/thread_record.h"
#include "thread/thread_registry.h"

namespace vorn::detail {

namespace {

// Marks the thread as finished and answers whether it is detached, as one step for VornThreadDetach.
bool FinishAndTestDetached(VornThread* thread) noexcept
{
    {
        // While the state lock is still an initialiser nobody holds it, and nobody can create it without the
        // static-initialisation lock: holding that one is holding both. It spares most threads the creation
        // of a mutex for this one step.
        StaticInitLock guard;
        if (IsInitializer(LoadHandle(&thread->stateLock))) {
            thread->state.store(kStateFinished);
            return thread->detached.load() != 0;
        }
    }
    const bool locked = VornMutexLock(&thread->stateLock) == VORN_OK;
    thread->state.store(kStateFinished);
    const bool detached = thread->detached.load() != 0;
    if (locked) VornMutexUnlock(&thread->stateLock);
    return detached;
}

}  // namespace

bool FinishThread(VornThread* thread) noexcept
{
    // From here on whoever joins or detaches the thread frees its record, once the system thread has ended.
    if (!FinishAndTestDetached(thread)) return false;
    if (!UnregisterThread(thread)) return false;
    FreeThreadRecord(thread);
    return true;
}

void RunThreadExitCleanup() noexcept
{
    VornThread* const thread = CurrentThread();
    if (thread == nullptr) return;
    thread->uncancellable.store(true);
    RunCleanupHandlers(thread);
    RunDataDestructors(thread);
    if (FinishThread(thread)) TlsSetValue(selfKey->slot, nullptr);
}

}  // namespace vorn::detail
