#include "thread/thread_registry.h"

#include "core/win32.h"

#include "core/pointer_set.h"
#include "thread/thread_lifecycle.h"
#include "thread/thread_record.h"

namespace vorn::detail {

namespace {

// A lock without kernel objects: it cannot fail, and it needs no clean-up at unload.
SRWLOCK registryLock = SRWLOCK_INIT;
PointerSet threads;  // guarded by registryLock

class RegistryScope {
public:
    RegistryScope() noexcept
    {
        // The thread that ends the process is alone, but one that is gone may have left the lock held.
        if (ProcessIsEnding()) {
            held_ = TryAcquireSRWLockExclusive(&registryLock);
        } else {
            AcquireSRWLockExclusive(&registryLock);
            held_ = true;
        }
    }
    RegistryScope(const RegistryScope&) = delete;
    RegistryScope& operator=(const RegistryScope&) = delete;
    ~RegistryScope()
    {
        if (held_) ReleaseSRWLockExclusive(&registryLock);
    }
    explicit operator bool() const noexcept { return held_; }

private:
    bool held_;
};

}  // namespace

bool RegisterThread(VornThread* thread) noexcept
{
    RegistryScope scope;
    return scope && threads.Insert(thread);
}

bool UnregisterThread(VornThread* thread) noexcept
{
    {
        RegistryScope scope;
        // The set may be half changed by a thread that is gone: leave everything to the system.
        if (!scope || !threads.Erase(thread)) return false;
    }
    for (;;) {
        {
            RegistryScope scope;
            if (thread->users == 0 || ProcessIsEnding()) return true;
        }
        // Not zero: the user may be a thread of lower priority on this processor.
        Sleep(1);
    }
}

VornThread* FindStartedThread(uint32_t threadId) noexcept
{
    RegistryScope scope;
    if (!scope) return nullptr;
    const void* const found = threads.FindIf([threadId](const void* value) {
        const auto* const thread = static_cast<const VornThread*>(value);
        return thread->threadId.load() == threadId && thread->adopted == 0 &&
               thread->state.load() != kStateFinished;
    });
    return static_cast<VornThread*>(const_cast<void*>(found));
}

ThreadUse::ThreadUse(VornThread* thread) noexcept : thread_(nullptr)
{
    if (thread == nullptr) return;
    RegistryScope scope;
    if (!scope || !threads.Contains(thread)) return;
    ++thread->users;
    thread_ = thread;
}

void ThreadUse::Release() noexcept
{
    if (thread_ == nullptr) return;
    RegistryScope scope;
    --thread_->users;
    thread_ = nullptr;
}

void FreeRemainingThreads() noexcept
{
    while (const void* thread = threads.TakeAny()) {
        FreeThreadRecord(static_cast<VornThread*>(const_cast<void*>(thread)));
    }
}

}  // namespace vorn::detail
