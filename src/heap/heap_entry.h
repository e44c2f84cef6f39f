// heap_entry.h - who may be inside a heap: state flag, count of users, lock.
//
// A thread is inside a heap while a HeapEntry of its own lives and has status VORN_OK. Within a locked heap
// it is alone; the counters in the header change atomically nevertheless, for a caller counts itself before
// it waits for the lock. Lock order: a heap's lock comes before a registry's mutex.
#ifndef VORN_HEAP_HEAP_ENTRY_H
#define VORN_HEAP_HEAP_ENTRY_H

#include <vorn/status.h>

#include "core/last_error.h"
#include "core/registries.h"
#include "heap/heap_area.h"
#include "heap/heap_record.h"

namespace vorn::detail {

inline uint32_t AddToWord(Cell<uint32_t>& word, uint32_t addend) noexcept
{
    return __atomic_fetch_add(reinterpret_cast<uint32_t*>(&word), addend, __ATOMIC_SEQ_CST);
}
inline uint32_t SubtractFromWord(Cell<uint32_t>& word, uint32_t amount) noexcept
{
    return __atomic_fetch_sub(reinterpret_cast<uint32_t*>(&word), amount, __ATOMIC_SEQ_CST);
}

// One more user of the heap, until it goes. For a heap without a lock it is the first user or none.
class HeapUser {
public:
    HeapUser(HeapHeader& header, bool alone) noexcept;
    HeapUser(const HeapUser&) = delete;
    HeapUser& operator=(const HeapUser&) = delete;
    ~HeapUser();

    VornStatus Status() const noexcept { return status_; }
    void Leave() noexcept;

private:
    HeapHeader& header_;
    VornStatus status_;
    bool counted_ = false;
};

// Enters a heap whose handle is registered, and leaves it. The wait for a shared heap's lock is a
// cancellation point: the constructor may be left by the cancellation's exception, with the count of users
// put right.
class HeapEntry {
public:
    explicit HeapEntry(VornHeap* heap);
    HeapEntry(const HeapEntry&) = delete;
    HeapEntry& operator=(const HeapEntry&) = delete;
    ~HeapEntry();

    VornStatus Status() const noexcept { return status_; }

private:
    VornHeap* heap_;
    HeapUser user_;
    VornStatus status_;
};

// Ends a function with its status, which is also the last error.
inline VornStatus Report(VornStatus status) noexcept
{
    VornSetLastError(status);
    return status;
}

// A heap's operation: validates the handle, enters, works, stores the outcome in the last error, leaves.
// `work` gets the record and returns the status.
template <class Work>
VornStatus InsideHeap(VornHeap* heap, Work&& work)
{
    if (!Heaps().Contains(heap)) return Report(VORN_E_INVALID_ARG);
    const HeapEntry entry(heap);
    VornStatus status = entry.Status();
    if (status == VORN_OK) status = work(*heap);
    return Report(status);  // before the heap is left
}

// The same for work on the heap's area, which is damaged when its header cannot be believed.
template <class Work>
VornStatus InsideArea(VornHeap* heap, Work&& work)
{
    return InsideHeap(heap, [&](VornHeap& record) {
        const HeapArea area(record.base, record.size);
        return area ? work(area) : VORN_E_HEAP_CORRUPT;
    });
}

}  // namespace vorn::detail

#endif
