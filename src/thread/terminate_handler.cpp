#include "thread/terminate_handler.h"

#include "core/win32.h"

#include "thread/thread_lifecycle.h"

#include <exception>

namespace vorn::detail {

namespace {

SRWLOCK handlerLock = SRWLOCK_INIT;
unsigned installers = 0;                    // guarded by handlerLock
std::terminate_handler previous = nullptr;  // guarded by handlerLock; never the library's own

[[noreturn]] void RunExitCleanupAndTerminate();

// A client that has set a handler of its own meanwhile keeps it.
void PutBackPreviousLocked() noexcept
{
    if (std::get_terminate() == &RunExitCleanupAndTerminate) std::set_terminate(previous);
}

[[noreturn]] void RunExitCleanupAndTerminate()
{
    AcquireSRWLockExclusive(&handlerLock);
    PutBackPreviousLocked();
    ReleaseSRWLockExclusive(&handlerLock);
    RunThreadExitCleanup();
    std::terminate();
}

}  // namespace

void InstallTerminateHandler() noexcept
{
    AcquireSRWLockExclusive(&handlerLock);
    // Threads overlap: only the first one finds a handler that is not the library's.
    if (installers++ == 0) previous = std::set_terminate(&RunExitCleanupAndTerminate);
    ReleaseSRWLockExclusive(&handlerLock);
}

void RestoreTerminateHandler() noexcept
{
    AcquireSRWLockExclusive(&handlerLock);
    if (--installers == 0) PutBackPreviousLocked();
    ReleaseSRWLockExclusive(&handlerLock);
}

// No other thread runs the library's code any more, so the lock is not taken: a thread that was ended by
// force may have left it held.
void RemoveTerminateHandler() noexcept
{
    if (installers != 0) PutBackPreviousLocked();
}

}  // namespace vorn::detail
