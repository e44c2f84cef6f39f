// heap_blocks.h - laying out a heap, handing out blocks and taking them back.
// Works on a base address and offsets: no locks, no handles, no system calls.
// The caller is inside the heap. Nothing outside src/heap includes this.
//
// Nothing in the area is trusted: what a link names is checked before it is followed, as far as possible
// before anything is changed, and a heap found damaged answers VORN_E_HEAP_CORRUPT.
// Invariant: bytesInUse = 136 + 32 + the full sizes of all allocated blocks + 32 for each free block.
#ifndef VORN_HEAP_HEAP_BLOCKS_H
#define VORN_HEAP_HEAP_BLOCKS_H

#include <vorn/status.h>

#include "heap/heap_area.h"

namespace vorn::detail {

// Lays out an empty heap over `size` bytes, at least kSmallestArea; an odd last byte stays unused.
// The heap is not marked as one yet: see StampHeap.
void LayOutHeap(void* base, uint64_t size) noexcept;

// Writes the magic, after everything that was written before it. Whoever sees it sees a whole heap.
void StampHeap(void* base) noexcept;

// Best fit: the smallest free block that can hold `size` bytes, the leftmost in the tree among equal ones.
// The new block is cut from its high end, or is the whole block where little would remain.
// VORN_OK; VORN_E_NO_MEMORY no free block is large enough; VORN_E_HEAP_CORRUPT.
VornStatus AllocateBlock(const HeapArea& area, uint64_t size, uint64_t* payload) noexcept;

// Takes a block back and merges it with the free blocks beside it.
// VORN_OK, also for payload 0; VORN_E_INVALID_ARG no block can have its payload there, or the guard word
// before it is not there; VORN_E_HEAP_CORRUPT the end marker or a link is wrong.
VornStatus ReleaseBlock(const HeapArea& area, uint64_t payload) noexcept;

// Finds out whether an allocated block has its payload there, and how many bytes its owner asked for.
// Statuses as ReleaseBlock, except that payload 0 is VORN_E_INVALID_ARG.
VornStatus InspectPayload(const HeapArea& area, uint64_t payload, uint64_t* userSize) noexcept;

// The largest request that an empty heap of this size could satisfy; the present blocks do not matter.
// Deliberate: one step of four too high when the total size is no multiple of four.
uint64_t LargestRequestWhenEmpty(const HeapArea& area) noexcept;

// The largest request that can be satisfied now; 0 when nothing is free.
VornStatus LargestRequest(const HeapArea& area, uint64_t* size) noexcept;

}  // namespace vorn::detail

#endif
