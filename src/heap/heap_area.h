// heap_area.h - one heap's memory for the length of one operation: its base, and how far it reaches.
//
// The memory may be shared with processes that write nonsense into it. An offset read from it is followed
// only after HoldsBlock or HoldsNode said that it lies inside the area and where a block may start. The
// reach itself is read from the header once, and believed only up to the size that the handle's owner gave.
#ifndef VORN_HEAP_HEAP_AREA_H
#define VORN_HEAP_HEAP_AREA_H

#include "heap/heap_layout.h"

namespace vorn::detail {

class HeapArea {
public:
    // `limit`: bytes that are known to belong to the heap, whatever its header says.
    // An area whose header names an impossible total size tests false and holds nothing.
    HeapArea(void* base, uint64_t limit) noexcept : base_(static_cast<uint8_t*>(base))
    {
        const uint64_t total = Header().totalSize;
        if (total >= kSmallestTotalSize && total <= limit && total % 2 == 0) totalSize_ = total;
    }

    explicit operator bool() const noexcept { return totalSize_ != 0; }

    uint64_t TotalSize() const noexcept { return totalSize_; }
    uint64_t EndBlock() const noexcept { return totalSize_ - kBlockHeaderSize; }
    // No sound heap has more free blocks; what bounds every descent and climb.
    uint64_t MostNodes() const noexcept { return totalSize_ / kSmallestBlock; }

    // A block header may stand at `offset`: from the start block to the end block.
    bool HoldsBlock(uint64_t offset) const noexcept
    {
        return offset - kStartBlock <= EndBlock() - kStartBlock && offset % 2 == 0;
    }
    // A block with room for a tree node may stand at `offset`.
    bool HoldsNode(uint64_t offset) const noexcept
    {
        return offset - kFirstBlock <= EndBlock() - kSmallestBlock - kFirstBlock && offset % 2 == 0;
    }

    HeapHeader& Header() const noexcept { return *reinterpret_cast<HeapHeader*>(base_); }
    BlockHeader& Block(uint64_t offset) const noexcept
    {
        return *reinterpret_cast<BlockHeader*>(base_ + offset);
    }
    TreeNode& Node(uint64_t block) const noexcept
    {
        return *reinterpret_cast<TreeNode*>(base_ + block + kBlockHeaderSize);
    }
    Cell<uint32_t>& Word(uint64_t offset) const noexcept
    {
        return *reinterpret_cast<Cell<uint32_t>*>(base_ + offset);
    }
    uint8_t* Bytes(uint64_t offset) const noexcept { return base_ + offset; }

private:
    uint8_t* base_;
    uint64_t totalSize_ = 0;
};

}  // namespace vorn::detail

#endif
