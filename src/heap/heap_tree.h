// heap_tree.h - the free blocks of one heap, ordered by size, as a red-black tree.
// Works on a base address and offsets: no locks, no handles, no system calls.
// The caller is inside the heap. Nothing outside src/heap includes this.
// Invariant: no block in a node's left subtree is larger than the node, none in its right subtree smaller.
//
// Nothing in the area is trusted. An offset that cannot be a node is never followed: it marks the tree as
// damaged, and reads and writes meant for it go to a node of this object's own. The nil node is that same
// local node, so that the one in the heap's header is neither read nor written. Loops end after as many
// steps as the area has room for nodes.
#ifndef VORN_HEAP_HEAP_TREE_H
#define VORN_HEAP_HEAP_TREE_H

#include "heap/heap_area.h"

namespace vorn::detail {

class FreeTree {
public:
    explicit FreeTree(const HeapArea& area) noexcept;
    FreeTree(const FreeTree&) = delete;
    FreeTree& operator=(const FreeTree&) = delete;

    // The smallest block of at least `size` bytes, header included; the leftmost among equal ones;
    // kNilNode when none is large enough. The block's end is inside the area.
    uint64_t FindBestFit(uint64_t size) noexcept;
    // kNilNode when the tree is empty.
    uint64_t FindLargest() noexcept;

    // `block` must satisfy HoldsNode, and its next-link must be set.
    void Insert(uint64_t block) noexcept;
    void Remove(uint64_t block) noexcept;

    // For a block that says itself that it is the root of the tree it came with.
    void SetRoot(uint64_t block) noexcept;

    // True once a link was met that no sound tree has. The heap is then to be reported as damaged.
    bool Damaged() const noexcept { return damaged_; }

private:
    // A node together with its offset, so that the offset is checked once and not for each access.
    struct Place {
        uint64_t offset;
        TreeNode* node;
    };

    TreeNode* NodeElsewhere(uint64_t block) noexcept;
    TreeNode* NodeAt(uint64_t block) noexcept;
    Place At(uint64_t block) noexcept { return {block, NodeAt(block)}; }
    uint64_t SizeOf(uint64_t block) noexcept;
    unsigned SideOf(const Place& parent, uint64_t child) noexcept;
    void ReplaceChild(uint64_t parent, uint64_t child, const Place& replacement) noexcept;
    void Rotate(const Place& block, unsigned side) noexcept;
    void BalanceAfterInsert(Place block) noexcept;
    void BalanceAfterRemove(Place block) noexcept;

    const HeapArea area_;
    const uint64_t mostNodes_;
    uint64_t root_;  // as the header has it
    bool damaged_ = false;
    TreeNode nil_;
};

}  // namespace vorn::detail

#endif
