// heap_walk.h - the blocks of a heap in address order, and the check of the whole structure.
// Works on a base address and offsets: no locks, no handles, no system calls; changes nothing.
// The caller is inside the heap, or owns a private copy of one.
#ifndef VORN_HEAP_HEAP_WALK_H
#define VORN_HEAP_HEAP_WALK_H

#include <vorn/status.h>

#include "heap/heap_area.h"

namespace vorn::detail {

enum class HeapFault : uint8_t {
    kNone,
    kTotalSize,      // the header's total size is impossible
    kNextLink,       // a next-link leaves the area, goes back, or names no possible block
    kPrevLink,       // a prev-link does not name the block before
    kAllocatedBit,   // the links on a block's two sides disagree on whether it is allocated
    kGuard,          // a guard word is overwritten
    kBlockSize,      // a block is too small for what it is
    kEndMarker,      // the marker after the requested bytes is overwritten
    kTreeLink,       // a link of the free tree names no possible free block, or parent and child disagree
    kTreeOrder,      // a block is smaller than one to its left in the free tree
    kTreeColour,     // a colour is neither red nor black, or a red node has a red child
    kTreeIncomplete  // the free tree's blocks are not the free blocks
};

// One plain English sentence. The text is static.
const char* DescribeFault(HeapFault fault) noexcept;

struct HeapVerdict {
    HeapFault fault = HeapFault::kNone;
    uint64_t offset = 0;  // of the block, node or header field where the first fault was met
};

// Every structural rule. Needs a fixed amount of stack and no other memory, however the tree looks.
HeapVerdict CheckHeap(const HeapArea& area) noexcept;

// Adds up the full sizes of the blocks in the free tree while it checks the tree.
HeapVerdict SumFreeTree(const HeapArea& area, uint64_t* sum) noexcept;

// Walks the blocks from the start block to the end block:
//     for (BlockWalk walk(area); walk.Next();) use(walk.Offset(), walk.Size());
//     if (walk.Fault() != HeapFault::kNone) ...
class BlockWalk {
public:
    explicit BlockWalk(const HeapArea& area) noexcept : area_(area)
    {
        if (!area) fault_ = HeapFault::kTotalSize, offset_ = offsetof(HeapHeader, totalSize);
    }

    // Moves to the next block and checks it and its links; false at the end and at a fault.
    bool Next() noexcept;

    uint64_t Offset() const noexcept { return offset_; }  // at a fault: of the block at fault
    uint64_t Size() const noexcept { return next_ - offset_; }
    uint64_t UserSize() const noexcept { return userSize_; }
    uint64_t PrecedingOffset() const noexcept { return preceding_; }
    bool IsAllocated() const noexcept { return allocated_; }
    bool IsEdge() const noexcept { return offset_ == kStartBlock || offset_ == area_.EndBlock(); }
    HeapFault Fault() const noexcept { return fault_; }

private:
    HeapFault ReadBlock() noexcept;

    const HeapArea& area_;
    HeapFault fault_ = HeapFault::kNone;
    bool allocated_ = false;     // what the preceding block's next-link says of this one
    bool nextAllocated_ = true;  // what this block's next-link says of the following one
    uint64_t preceding_ = 0;     // 0: the start block has none
    uint64_t offset_ = 0;        // 0: before the first
    uint64_t next_ = kStartBlock;
    uint64_t userSize_ = 0;
};

}  // namespace vorn::detail

#endif
