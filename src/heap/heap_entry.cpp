#include "heap/heap_entry.h"

#include "thread/cancellable_wait.h"
#include "thread/semaphore.h"

namespace vorn::detail {

HeapUser::HeapUser(HeapHeader& header, bool alone) noexcept : header_(header), status_(VORN_OK)
{
    if (header_.stateFlag != 0) {
        status_ = VORN_E_BAD_STATE;
    } else if (!alone) {
        AddToWord(header_.users, 1);
        counted_ = true;
    } else {
        uint32_t nobody = 0;
        counted_ = __atomic_compare_exchange_n(reinterpret_cast<uint32_t*>(&header_.users), &nobody, 1, false,
                                               __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
        if (!counted_) status_ = VORN_E_HEAP_LOCK;
    }
}

HeapUser::~HeapUser()
{
    Leave();
}

void HeapUser::Leave() noexcept
{
    if (counted_) SubtractFromWord(header_.users, 1);
    counted_ = false;
}

namespace {

VornStatus Lock(VornHeap* heap)
{
    if (heap->mutex != nullptr) return VornMutexLock(&heap->mutex);
    if (heap->semaphore != nullptr) return WaitCancellable(heap->semaphore->native, INFINITE);
    return VORN_OK;
}

void Unlock(VornHeap* heap) noexcept
{
    if (heap->mutex != nullptr) VornMutexUnlock(&heap->mutex);
    if (heap->semaphore != nullptr) PostSemaphore(heap->semaphore, 1);
}

HeapHeader& HeaderOf(const VornHeap* heap) noexcept
{
    return *static_cast<HeapHeader*>(heap->base);
}

bool HasNoLock(const VornHeap* heap) noexcept
{
    return heap->mutex == nullptr && heap->semaphore == nullptr;
}

}  // namespace

HeapEntry::HeapEntry(VornHeap* heap)
    : heap_(heap),
      user_(HeaderOf(heap), HasNoLock(heap)),
      status_(user_.Status() == VORN_OK ? Lock(heap) : user_.Status())
{}

HeapEntry::~HeapEntry()
{
    if (status_ != VORN_OK) return;
    // Before the lock is given up: with it goes the certainty that the area is still there.
    user_.Leave();
    Unlock(heap_);
}

}  // namespace vorn::detail
