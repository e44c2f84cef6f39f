#include "support/leak_watch.h"

#include <cstdlib>
#include <mutex>
#include <new>
#include <unordered_set>

namespace vorn_test {

namespace {

// What the redirected functions count. One watch is active at a time.
struct Ledger {
    std::mutex mutex;
    std::unordered_set<void*> live;  // guarded by mutex
    size_t total = 0;                // guarded by mutex
};
Ledger* ledger = nullptr;

void* Note(void* block)
{
    if (block == nullptr) return nullptr;
    std::lock_guard<std::mutex> lock(ledger->mutex);
    ledger->live.insert(block);
    ++ledger->total;
    return block;
}

void Forget(void* block)
{
    std::lock_guard<std::mutex> lock(ledger->mutex);
    ledger->live.erase(block);
}

using MallocFunction = void* (*)(size_t);
using CallocFunction = void* (*)(size_t, size_t);
using ReallocFunction = void* (*)(void*, size_t);
using FreeFunction = void (*)(void*);
using NothrowFunction = void* (*)(size_t, const std::nothrow_t&);
using SizedFreeFunction = void (*)(void*, size_t);

MallocFunction originalMalloc;
CallocFunction originalCalloc;
ReallocFunction originalRealloc;
FreeFunction originalFree;
MallocFunction originalNew;
MallocFunction originalNewArray;
NothrowFunction originalNewNothrow;
NothrowFunction originalNewArrayNothrow;
FreeFunction originalDelete;
FreeFunction originalDeleteArray;
SizedFreeFunction originalSizedDelete;
SizedFreeFunction originalSizedDeleteArray;

void* WatchMalloc(size_t size)
{
    return Note(originalMalloc(size));
}
void* WatchCalloc(size_t count, size_t size)
{
    return Note(originalCalloc(count, size));
}
void* WatchRealloc(void* block, size_t size)
{
    void* result = originalRealloc(block, size);
    if (result == nullptr) return nullptr;
    Forget(block);
    return Note(result);
}
void WatchFree(void* block)
{
    Forget(block);
    originalFree(block);
}
void* WatchNew(size_t size)
{
    return Note(originalNew(size));
}
void* WatchNewArray(size_t size)
{
    return Note(originalNewArray(size));
}
void* WatchNewNothrow(size_t size, const std::nothrow_t& tag)
{
    return Note(originalNewNothrow(size, tag));
}
void* WatchNewArrayNothrow(size_t size, const std::nothrow_t& tag)
{
    return Note(originalNewArrayNothrow(size, tag));
}
void WatchDelete(void* block)
{
    Forget(block);
    originalDelete(block);
}
void WatchDeleteArray(void* block)
{
    Forget(block);
    originalDeleteArray(block);
}
void WatchSizedDelete(void* block, size_t size)
{
    Forget(block);
    originalSizedDelete(block, size);
}
void WatchSizedDeleteArray(void* block, size_t size)
{
    Forget(block);
    originalSizedDeleteArray(block, size);
}

}  // namespace

struct AllocationWatch::Redirects {
    Ledger counts;
    ImportRedirect mallocs{"malloc", &WatchMalloc};
    ImportRedirect callocs{"calloc", &WatchCalloc};
    ImportRedirect reallocs{"realloc", &WatchRealloc};
    ImportRedirect frees{"free", &WatchFree};
    ImportRedirect news{"_Znwy", &WatchNew};
    ImportRedirect newArrays{"_Znay", &WatchNewArray};
    ImportRedirect newNothrows{"_ZnwyRKSt9nothrow_t", &WatchNewNothrow};
    ImportRedirect newArrayNothrows{"_ZnayRKSt9nothrow_t", &WatchNewArrayNothrow};
    ImportRedirect deletes{"_ZdlPv", &WatchDelete};
    ImportRedirect deleteArrays{"_ZdaPv", &WatchDeleteArray};
    ImportRedirect sizedDeletes{"_ZdlPvy", &WatchSizedDelete};
    ImportRedirect sizedDeleteArrays{"_ZdaPvy", &WatchSizedDeleteArray};

    Redirects()
    {
        ledger = &counts;
        originalMalloc = mallocs.Original<MallocFunction>();
        originalCalloc = callocs.Original<CallocFunction>();
        originalRealloc = reallocs.Original<ReallocFunction>();
        originalFree = frees.Original<FreeFunction>();
        originalNew = news.Original<MallocFunction>();
        originalNewArray = newArrays.Original<MallocFunction>();
        originalNewNothrow = newNothrows.Original<NothrowFunction>();
        originalNewArrayNothrow = newArrayNothrows.Original<NothrowFunction>();
        originalDelete = deletes.Original<FreeFunction>();
        originalDeleteArray = deleteArrays.Original<FreeFunction>();
        originalSizedDelete = sizedDeletes.Original<SizedFreeFunction>();
        originalSizedDeleteArray = sizedDeleteArrays.Original<SizedFreeFunction>();
    }
};

uintptr_t FreshHandleNumber()
{
    HANDLE handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    CloseHandle(handle);
    return reinterpret_cast<uintptr_t>(handle);
}

AllocationWatch::AllocationWatch() : redirects_(std::make_unique<Redirects>()) {}

AllocationWatch::~AllocationWatch() = default;

size_t AllocationWatch::Live() const
{
    std::lock_guard<std::mutex> lock(redirects_->counts.mutex);
    return redirects_->counts.live.size();
}

size_t AllocationWatch::Total() const
{
    std::lock_guard<std::mutex> lock(redirects_->counts.mutex);
    return redirects_->counts.total;
}

LeakWatch::LeakWatch() : freshHandle_(FreshHandleNumber()) {}

std::string LeakWatch::Leaks() const
{
    std::string leaks;
    const size_t live = allocations_.Live();
    if (live != 0) leaks += std::to_string(live) + " allocations were not freed. ";
    const uintptr_t fresh = FreshHandleNumber();
    if (fresh > freshHandle_) {
        leaks += "Kernel handles were left: a fresh one had the number " + std::to_string(freshHandle_) +
                 " before and has " + std::to_string(fresh) + " now.";
    }
    return leaks;
}

}  // namespace vorn_test
