// thread_record.h - the records behind threads and thread keys, and how a thread finds its own.
//
// Only src/thread includes this. A record is found through the thread-local slot of the self key, which
// exists from process attach to process detach.
#ifndef VORN_THREAD_THREAD_RECORD_H
#define VORN_THREAD_THREAD_RECORD_H

#include <vorn/sync.h>
#include <vorn/thread.h>

#include "core/win32.h"

#include "core/tls_slot.h"

#include <atomic>
#include <cstddef>

namespace vorn::detail {

struct CleanupNode;
struct DataEntry;
struct CancelUnwind;

enum ThreadState : int32_t {
    kStateMade = 0,             // not running yet, or adopted
    kStateRunning = 1,          // inside the start function
    kStateCancelRequested = 3,  // deferred request, acted on at the next cancellation point
    kStateCancelled = 4,        // being cancelled
    kStateUnknownException = 5,
    kStateFinished = 6,  // the exit clean-up has run
};

}  // namespace vorn::detail

struct VornThread {
    int32_t priority;                // last one set through the library
    uint32_t adopted;                // 1: the library did not start the thread
    std::atomic<uint32_t> detached;  // changed under stateLock
    HANDLE handle;
    HANDLE cancelEvent;    // manual-reset
    VornMutex* listLock;   // guards dataList and dataCursor; taken after a key's lock
    VornMutex* stateLock;  // guards state, detached, cancelState and cancelType
    std::atomic<uint32_t> cancelState;
    std::atomic<uint32_t> cancelType;
    std::atomic<DWORD> threadId;
    DWORD processId;
    std::atomic<int32_t> state;               // a ThreadState
    vorn::detail::CleanupNode* cleanupStack;  // touched by the thread itself only
    void* exitValue;
    vorn::detail::DataEntry* dataList;
    vorn::detail::DataEntry* dataCursor;
    // Behind the stated fields:
    uint32_t users;  // callers that work on the record for another thread; guarded by the thread registry
    // Before and after the start function: a cancellation would have nothing to end there, or nowhere to go.
    std::atomic<bool> uncancellable;
    vorn::detail::CancelUnwind*
        unwind;  // where an asynchronous cancel leaves to; null outside the start function
};
static_assert(offsetof(VornThread, handle) == 16 && offsetof(VornThread, listLock) == 32 &&
              offsetof(VornThread, cancelState) == 48 && offsetof(VornThread, state) == 64 &&
              offsetof(VornThread, cleanupStack) == 72 && offsetof(VornThread, dataCursor) == 96);

struct VornThreadKey {
    DWORD slot;
    void (*destructor)(void*);  // may be null
    VornMutex* lock;            // guards `entries`; 0 without a destructor
    vorn::detail::DataEntry* entries;
    // Behind the stated fields: ending threads that are working on an entry of this key. VornThreadKeyDelete
    // waits for them, because the last thing they do with the key is to unlock it.
    std::atomic<uint32_t> users;
};

namespace vorn::detail {

// The key under which each thread's record is stored; null outside process attach to process detach.
extern VornThreadKey* selfKey;

// The calling thread's record, or null for a thread that has none (yet). Never adopts.
inline VornThread* CurrentThread() noexcept
{
    const VornThreadKey* const key = selfKey;
    return key == nullptr ? nullptr : static_cast<VornThread*>(ReadTlsSlot(key->slot));
}

// Whether the record's handle names the thread for the caller. One that could not be duplicated stands for
// whichever thread uses it.
inline bool HandleNamesThread(const VornThread* thread) noexcept
{
    return thread->handle != GetCurrentThread() || thread == CurrentThread();
}

// Makes a record as every thread starts with it, with its cancel event, and registers it. Null when memory
// or the event cannot be had.
VornThread* MakeThreadRecord() noexcept;

// Marks the thread as finished. True when it was detached, and the record therefore has been freed.
bool FinishThread(VornThread* thread) noexcept;

// Gives back all that the record owns, and the record. The caller has unregistered it.
void FreeThreadRecord(VornThread* thread) noexcept;

}  // namespace vorn::detail

#endif
