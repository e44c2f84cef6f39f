// mutex_record.h - the record behind a mutex handle, and the values of a handle variable.
//
// Only src/thread includes this. All changes of a created mutex go through the lock word; the recursion
// count and the owner are written only by the holder.
#ifndef VORN_THREAD_MUTEX_RECORD_H
#define VORN_THREAD_MUTEX_RECORD_H

#include <vorn/sync.h>
#include <vorn/thread.h>

#include "core/win32.h"

#include <atomic>
#include <cstddef>

namespace vorn::detail {

// Lock word:  kFree 0;  kHeld 1, no sleeper known;  kContended -1, a sleeper may exist.
//   kFree -> kHeld            taken by a thread that has not slept
//   kHeld -> kContended       a thread marks the word before it sleeps
//   kHeld -> kFree            released, nobody to wake
//   kContended -> kFree       released, and the wake event signalled
//   kFree -> kContended       taken by a thread that has slept, or was about to: it cannot know that it was
//                             alone, so its release signals once more than may be needed
constexpr int32_t kFree = 0;
constexpr int32_t kHeld = 1;
constexpr int32_t kContended = -1;

// The three highest addresses are initialisers: objects to be created on first use.
constexpr uintptr_t kFirstInitializer = ~static_cast<uintptr_t>(2);

inline bool IsInitializer(const void* handle) noexcept
{
    return reinterpret_cast<uintptr_t>(handle) >= kFirstInitializer;
}

// One comparison for both: 0 minus 1 is above every address.
inline bool IsInitializerOrNull(const void* handle) noexcept
{
    return reinterpret_cast<uintptr_t>(handle) - 1 >= kFirstInitializer - 1;
}

// A handle variable that other threads may replace: the record is complete when its pointer is seen.
template <class T>
T* LoadHandle(T* const* variable) noexcept
{
    return __atomic_load_n(variable, __ATOMIC_ACQUIRE);
}

template <class T>
void StoreHandle(T** variable, T* handle) noexcept
{
    __atomic_store_n(variable, handle, __ATOMIC_RELEASE);
}

}  // namespace vorn::detail

struct VornMutex {
    uint32_t kind;    // VORN_MUTEX_NORMAL, _RECURSIVE or _ERRORCHECK
    uint32_t shared;  // always 0
    std::atomic<int32_t> lockWord;
    uint32_t recursionCount;         // recursive kind: how often the owner holds it
    HANDLE wakeEvent;                // auto-reset; releases one sleeper per signal
    std::atomic<VornThread*> owner;  // not kept for the normal kind; see holder
    // Error-checking kind: the thread that holds the mutex now, null when nobody does. `owner` keeps naming
    // the last holder after an unlock, so it cannot tell who holds the mutex.
    std::atomic<VornThread*> holder;
};
static_assert(offsetof(VornMutex, lockWord) == 8 && offsetof(VornMutex, recursionCount) == 12 &&
              offsetof(VornMutex, wakeEvent) == 16 && offsetof(VornMutex, owner) == 24);

#endif
