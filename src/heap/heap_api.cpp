// heap_api.cpp - local heaps, and what is done with any open heap.

#include "core/last_error.h"
#include "core/record.h"
#include "core/registries.h"
#include "heap/heap_blocks.h"
#include "heap/heap_entry.h"
#include "heap/heap_shared.h"
#include "heap/heap_walk.h"

using namespace vorn::detail;

namespace {

VornStatus StatusOf(const HeapVerdict& verdict) noexcept
{
    return verdict.fault == HeapFault::kNone ? VORN_OK : VORN_E_HEAP_CORRUPT;
}

// The header of a registered heap, for what is asked without entering; null and the last error otherwise.
const HeapHeader* HeaderOf(VornHeap* heap) noexcept
{
    if (!Heaps().Contains(heap)) return Fail<HeapHeader>(VORN_E_INVALID_ARG);
    return Succeed(static_cast<HeapHeader*>(heap->base));
}

VornStatus WalkBlocks(const HeapArea& area, VornHeapCallback callback, void* context)
{
    BlockWalk blocks(area);
    while (blocks.Next()) {
        if (!blocks.IsAllocated() || blocks.UserSize() == 0) continue;
        const uint64_t payload = blocks.Offset() + kBlockHeaderSize;
        if (callback(payload, blocks.UserSize(), context, blocks.PrecedingOffset()) == 0)
            return VORN_E_STOPPED;
    }
    return blocks.Fault() == HeapFault::kNone ? VORN_OK : VORN_E_HEAP_CORRUPT;
}

}  // namespace

extern "C" VornHeap* VornHeapCreateLocal(void* base, uint64_t size, int locking)
{
    if (base == nullptr) return Fail<VornHeap>(VORN_E_INVALID_ARG);
    if (size < kSmallestArea) return Fail<VornHeap>(VORN_E_NO_MEMORY);
    Record<VornHeap> heap;
    if (!heap) return Fail<VornHeap>(VORN_E_NO_MEMORY);
    heap->base = base;
    heap->size = size;
    LayOutHeap(base, size);
    StampHeap(base);
    Registration entry(Heaps(), heap.Get());
    if (!entry) return Fail<VornHeap>(VORN_E_NO_MEMORY);
    const VornStatus status = locking == 1 ? VornMutexCreate(&heap->mutex, nullptr) : VORN_OK;
    if (status != VORN_OK) return Fail<VornHeap>(status);
    entry.Keep();
    return Succeed(heap.Release());
}

extern "C" VornStatus VornHeapDestroy(VornHeap* heap)
{
    VornHeap destroyed{};
    VornStatus status = InsideHeap(heap, [&](const VornHeap& record) {
        // Of two threads that destroy one handle at once, one finds it gone.
        if (!Heaps().Unregister(heap)) return VORN_E_INVALID_ARG;
        destroyed = record;
        return VORN_OK;
    });
    if (status != VORN_OK) return status;
    Record<VornHeap> freed(heap);
    if (destroyed.mutex != nullptr) status = VornMutexDestroy(&destroyed.mutex);
    if (destroyed.semaphore != nullptr) status = DetachSharedHeap(&destroyed);
    return Report(status);
}

extern "C" uint64_t VornHeapAlloc(VornHeap* heap, uint64_t size)
{
    uint64_t payload = 0;
    InsideArea(heap, [&](const HeapArea& area) { return AllocateBlock(area, size, &payload); });
    return payload;
}

extern "C" VornStatus VornHeapFree(VornHeap* heap, uint64_t offset)
{
    return InsideArea(heap, [&](const HeapArea& area) { return ReleaseBlock(area, offset); });
}

extern "C" VornStatus VornHeapEnumerate(VornHeap* heap, VornHeapCallback callback, void* context)
{
    if (callback == nullptr) return Report(VORN_E_INVALID_ARG);
    return InsideArea(heap, [&](const HeapArea& area) {
        AddToWord(area.Header().stateFlag, 1);
        const VornStatus status = WalkBlocks(area, callback, context);
        // Deliberate: the flag stays raised after a walk that did not reach the end.
        if (status == VORN_OK) SubtractFromWord(area.Header().stateFlag, 1);
        return status;
    });
}

extern "C" void* VornHeapGetBasePtr(VornHeap* heap)
{
    return HeaderOf(heap) != nullptr ? heap->base : nullptr;
}

extern "C" uint64_t VornHeapGetUsrHdrOff(VornHeap* heap)
{
    const HeapHeader* header = HeaderOf(heap);
    return header != nullptr ? uint64_t{header->userHeaderOffset} : 0;
}

extern "C" uint32_t VornHeapGetUsrHdrSize(VornHeap* heap)
{
    const HeapHeader* header = HeaderOf(heap);
    return header != nullptr ? uint32_t{header->userHeaderSize} : 0;
}

extern "C" VornStatus VornHeapCheck(VornHeap* heap)
{
    return InsideArea(heap, [](const HeapArea& area) { return StatusOf(CheckHeap(area)); });
}

extern "C" uint64_t VornHeapAllocated(VornHeap* heap)
{
    uint64_t bytes = 0;
    InsideArea(heap, [&](const HeapArea& area) {
        bytes = area.Header().bytesInUse;
        return VORN_OK;
    });
    return bytes;
}

extern "C" uint64_t VornHeapSize(VornHeap* heap)
{
    uint64_t bytes = 0;
    InsideArea(heap, [&](const HeapArea& area) {
        bytes = area.TotalSize();
        return VORN_OK;
    });
    return bytes;
}

extern "C" uint64_t VornHeapFreeMax(VornHeap* heap)
{
    uint64_t bytes = 0;
    InsideArea(heap, [&](const HeapArea& area) {
        bytes = LargestRequestWhenEmpty(area);
        return VORN_OK;
    });
    return bytes;
}

extern "C" uint64_t VornHeapFreeMaxBlk(VornHeap* heap)
{
    uint64_t bytes = 0;
    InsideArea(heap, [&](const HeapArea& area) { return LargestRequest(area, &bytes); });
    return bytes;
}

extern "C" uint64_t VornHeapFreeTotal(VornHeap* heap)
{
    uint64_t bytes = 0;
    const VornStatus status =
        InsideArea(heap, [&](const HeapArea& area) { return StatusOf(SumFreeTree(area, &bytes)); });
    return status == VORN_OK ? bytes : ~uint64_t{0};
}
