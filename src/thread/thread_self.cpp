#include "core/win32.h"

#include "core/kernel_handle.h"
#include "core/record.h"
#include "thread/cleanup.h"
#include "thread/thread_data.h"
#include "thread/thread_lifecycle.h"
#include "thread/thread_record.h"
#include "thread/thread_registry.h"

namespace vorn::detail {

VornThreadKey* selfKey = nullptr;

namespace {

std::atomic<bool> processIsEnding{false};

// The system's own answer, which comes before the module is told: the modules that use this one are told
// first, and may call it then. Null where the system has no such entry point.
using ShutdownQuestion = BOOLEAN(NTAPI*)();
const auto systemIsEndingProcess = reinterpret_cast<ShutdownQuestion>(
    reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress")));

HANDLE DuplicateCurrentThread() noexcept
{
    HANDLE handle;
    const HANDLE process = GetCurrentProcess();
    if (DuplicateHandle(process, GetCurrentThread(), process, &handle, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        return handle;
    }
    return GetCurrentThread();
}

// Makes the calling thread's record, for a thread that the library did not start.
VornThread* MakeAdoptedRecord() noexcept
{
    VornThread* const thread = MakeThreadRecord();
    if (thread == nullptr) return nullptr;
    thread->adopted = 1;
    thread->detached.store(1, std::memory_order_relaxed);
    thread->handle = DuplicateCurrentThread();
    thread->priority = GetThreadPriority(GetCurrentThread());
    thread->threadId.store(GetCurrentThreadId());
    return thread;
}

// Gives the calling thread a record that it finds. A thread that the library started has one, but does not
// find it before its start routine runs, and the other modules of the process come before that.
[[gnu::noinline]] VornThread* AdoptCurrentThread() noexcept
{
    if (selfKey == nullptr) return nullptr;
    const DWORD error = GetLastError();
    VornThread* const started = FindStartedThread(GetCurrentThreadId());
    VornThread* thread = started != nullptr ? started : MakeAdoptedRecord();
    if (thread != nullptr && !TlsSetValue(selfKey->slot, thread)) {
        if (started == nullptr && UnregisterThread(thread)) FreeThreadRecord(thread);
        thread = nullptr;
    }
    SetLastError(error);
    return thread;
}

}  // namespace

bool CreateThreadRecordKey() noexcept
{
    Record<VornThreadKey> key;
    if (!key) return false;
    key->slot = TlsAlloc();
    if (key->slot == TLS_OUT_OF_INDEXES) return false;
    selfKey = key.Release();
    return true;
}

void DeleteThreadRecordKey() noexcept
{
    VornThreadKey* const key = std::exchange(selfKey, nullptr);
    // At process end a record may be in use by the code that a dead thread left half done; the system takes
    // the memory back.
    if (!ProcessIsEnding()) FreeRemainingThreads();
    TlsFree(key->slot);
    std::free(key);
}

void NoteProcessEnd() noexcept
{
    processIsEnding.store(true, std::memory_order_relaxed);
}

bool ProcessIsEnding() noexcept
{
    if (processIsEnding.load(std::memory_order_relaxed)) return true;
    return systemIsEndingProcess != nullptr && systemIsEndingProcess();
}

VornThread* MakeThreadRecord() noexcept
{
    Record<VornThread> thread;
    if (!thread) return nullptr;
    KernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event || !RegisterThread(thread.Get())) return nullptr;
    thread->cancelEvent = event.Release();
    thread->listLock = VORN_MUTEX_INITIALIZER;
    thread->stateLock = VORN_MUTEX_INITIALIZER;
    thread->cancelType.store(1, std::memory_order_relaxed);
    thread->processId = GetCurrentProcessId();
    return thread.Release();
}

void FreeThreadRecord(VornThread* thread) noexcept
{
    DropCleanupHandlers(thread);
    DropThreadData(thread);
    VornMutexDestroy(&thread->listLock);
    VornMutexDestroy(&thread->stateLock);
    CloseHandle(thread->cancelEvent);
    if (thread->handle != nullptr) CloseHandle(thread->handle);
    std::free(thread);
}

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" VornThread* VornThreadSelf(void)
{
    VornThread* const thread = CurrentThread();
    return __builtin_expect(thread != nullptr, true) ? thread : AdoptCurrentThread();
}

extern "C" int32_t VornThreadEqual(const VornThread* a, const VornThread* b)
{
    return a == b ? 1 : 0;
}
