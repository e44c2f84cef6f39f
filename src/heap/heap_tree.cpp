#include "heap/heap_tree.h"

namespace vorn::detail {

FreeTree::FreeTree(const HeapArea& area) noexcept : area_(area), root_(area.Header().root)
{
    nil_.parent = 0;
    nil_.child[kLeft] = kNilNode;
    nil_.child[kRight] = kNilNode;
    nil_.colour = kBlack;
}

TreeNode& FreeTree::At(uint64_t block) noexcept
{
    if (area_.HoldsNode(block)) return area_.Node(block);
    if (block != kNilNode) damaged_ = true;
    return nil_;
}

// The block's size, header included; `block` satisfies HoldsNode. Its end is inside the area unless the
// tree is damaged.
uint64_t FreeTree::SizeOf(uint64_t block) noexcept
{
    const uint64_t size = LinkOffset(area_.Block(block).nextLink) - block;
    if (size > area_.EndBlock() - block) damaged_ = true;
    return size;
}

uint64_t FreeTree::FindBestFit(uint64_t size) noexcept
{
    uint64_t best = kNilNode;
    uint64_t steps = area_.MostNodes();
    for (uint64_t block = root_; block != kNilNode; --steps) {
        if (!area_.HoldsNode(block) || steps == 0) {
            damaged_ = true;
            return kNilNode;
        }
        const TreeNode& node = area_.Node(block);
        const uint64_t left = node.child[kLeft];
        const uint64_t right = node.child[kRight];
        const bool fits = SizeOf(block) >= size;
        best = fits ? block : best;
        block = fits ? left : right;
    }
    return damaged_ ? kNilNode : best;
}

uint64_t FreeTree::FindLargest() noexcept
{
    uint64_t largest = kNilNode;
    uint64_t steps = area_.MostNodes();
    for (uint64_t block = root_; block != kNilNode; --steps) {
        if (!area_.HoldsNode(block) || steps == 0) {
            damaged_ = true;
            return kNilNode;
        }
        largest = block;
        block = area_.Node(block).child[kRight];
    }
    return largest;
}

void FreeTree::SetRoot(uint64_t block) noexcept
{
    root_ = block;
    area_.Header().root = block;
}

// Which child of `parent` the block is.
unsigned FreeTree::SideOf(uint64_t block, uint64_t parent) noexcept
{
    const TreeNode& node = At(parent);
    if (node.child[kLeft] == block) return kLeft;
    if (node.child[kRight] != block) damaged_ = true;
    return kRight;
}

// Puts `replacement`, which may be the nil node, where `block` hangs from its parent (0: as the root).
void FreeTree::ReplaceChild(uint64_t parent, uint64_t block, uint64_t replacement) noexcept
{
    if (parent == 0) {
        if (root_ != block) damaged_ = true;
        if (damaged_) return;
        SetRoot(replacement);
    } else {
        const unsigned side = SideOf(block, parent);
        if (damaged_) return;
        At(parent).child[side] = replacement;
    }
    At(replacement).parent = parent;
}

// Moves `block` down to `side`; its child on the other side takes its place.
void FreeTree::Rotate(uint64_t block, unsigned side) noexcept
{
    const unsigned other = 1 - side;
    const uint64_t rising = At(block).child[other];
    if (rising == kNilNode || At(rising).parent != block) damaged_ = true;
    if (damaged_) return;
    const uint64_t inner = At(rising).child[side];
    const uint64_t parent = At(block).parent;
    At(block).child[other] = inner;
    if (inner != kNilNode) At(inner).parent = block;
    ReplaceChild(parent, block, rising);
    At(rising).child[side] = block;
    At(block).parent = rising;
}

void FreeTree::Insert(uint64_t block) noexcept
{
    const uint64_t size = SizeOf(block);
    uint64_t parent = 0;
    unsigned side = kLeft;
    uint64_t steps = area_.MostNodes();
    for (uint64_t next = root_; next != kNilNode; --steps) {
        if (!area_.HoldsNode(next) || next == block || steps == 0) damaged_ = true;
        if (damaged_) return;
        parent = next;
        const TreeNode& node = area_.Node(next);
        const uint64_t left = node.child[kLeft];
        const uint64_t right = node.child[kRight];
        const bool smaller = size < SizeOf(next);
        side = smaller ? kLeft : kRight;  // equal sizes go right
        next = smaller ? left : right;
    }
    if (damaged_) return;

    TreeNode& node = area_.Node(block);
    node.parent = parent;
    node.child[kLeft] = kNilNode;
    node.child[kRight] = kNilNode;
    node.colour = kRed;
    if (parent == 0) {
        SetRoot(block);
    } else {
        area_.Node(parent).child[side] = block;
    }
    BalanceAfterInsert(block);
}

void FreeTree::BalanceAfterInsert(uint64_t block) noexcept
{
    for (uint64_t steps = area_.MostNodes(); !damaged_; --steps) {
        uint64_t parent = At(block).parent;
        if (parent == 0 || !IsRed(parent)) break;
        const uint64_t grandparent = At(parent).parent;
        if (grandparent == 0) break;  // a red root is painted below
        const unsigned side = SideOf(parent, grandparent);
        const uint64_t uncle = At(grandparent).child[1 - side];
        if (steps == 0) damaged_ = true;
        if (damaged_) return;
        if (IsRed(uncle)) {
            At(parent).colour = kBlack;
            At(uncle).colour = kBlack;
            At(grandparent).colour = kRed;
            block = grandparent;
            continue;
        }
        if (SideOf(block, parent) != side) {
            Rotate(parent, side);
            parent = block;
        }
        if (damaged_) return;
        At(parent).colour = kBlack;
        At(grandparent).colour = kRed;
        Rotate(grandparent, 1 - side);
        break;
    }
    if (!damaged_) At(root_).colour = kBlack;
}

void FreeTree::Remove(uint64_t block) noexcept
{
    const uint64_t left = At(block).child[kLeft];
    const uint64_t right = At(block).child[kRight];
    const uint64_t parent = At(block).parent;
    if (left != kNilNode && At(left).parent != block) damaged_ = true;
    if (right != kNilNode && (At(right).parent != block || right == left)) damaged_ = true;
    if (damaged_) return;

    bool blackLost = !IsRed(block);
    uint64_t moved;  // what took the place that the tree lost; nil_ holds its parent when it is the nil node
    if (left == kNilNode || right == kNilNode) {
        moved = left == kNilNode ? right : left;
        ReplaceChild(parent, block, moved);
    } else {
        // The next larger block takes the removed one's place and colour.
        uint64_t successor = right;
        uint64_t steps = area_.MostNodes();
        for (uint64_t next = At(right).child[kLeft]; next != kNilNode; next = At(next).child[kLeft], --steps)
        {
            if (steps == 0) damaged_ = true;
            if (damaged_) return;
            successor = next;
        }
        blackLost = !IsRed(successor);
        moved = At(successor).child[kRight];
        if (moved != kNilNode && At(moved).parent != successor) damaged_ = true;
        if (damaged_) return;
        if (successor != right) {
            ReplaceChild(At(successor).parent, successor, moved);
            if (damaged_) return;
            const uint64_t rest = At(block).child[kRight];
            At(successor).child[kRight] = rest;
            At(rest).parent = successor;
            if (rest == kNilNode) damaged_ = true;
        } else {
            At(moved).parent = successor;
        }
        ReplaceChild(parent, block, successor);
        if (damaged_) return;
        At(successor).child[kLeft] = left;
        At(left).parent = successor;
        At(successor).colour = At(block).colour;
    }
    if (blackLost && !damaged_) BalanceAfterRemove(moved);
}

// Every path through `block`, which may be the nil node, is one black node short.
void FreeTree::BalanceAfterRemove(uint64_t block) noexcept
{
    for (uint64_t steps = area_.MostNodes(); block != root_ && !IsRed(block); --steps) {
        const uint64_t parent = At(block).parent;
        if (parent == 0 || steps == 0) damaged_ = true;
        if (damaged_) return;
        const unsigned side = SideOf(block, parent);
        uint64_t sibling = At(parent).child[1 - side];
        if (IsRed(sibling)) {
            At(sibling).colour = kBlack;
            At(parent).colour = kRed;
            Rotate(parent, side);
            if (damaged_) return;
            sibling = At(parent).child[1 - side];
        }
        if (!IsRed(At(sibling).child[kLeft]) && !IsRed(At(sibling).child[kRight])) {
            // A tree that is not balanced may have no sibling here; nothing is to be painted then.
            if (sibling != kNilNode) At(sibling).colour = kRed;
            block = parent;
            continue;
        }
        const uint64_t outer = At(sibling).child[1 - side];
        if (!IsRed(outer)) {
            const uint64_t inner = At(sibling).child[side];
            At(inner).colour = kBlack;
            At(sibling).colour = kRed;
            Rotate(sibling, 1 - side);
            if (damaged_) return;
            sibling = At(parent).child[1 - side];
        }
        At(sibling).colour = At(parent).colour;
        At(parent).colour = kBlack;
        At(At(sibling).child[1 - side]).colour = kBlack;
        Rotate(parent, side);
        block = root_;
    }
    if (!damaged_) At(block).colour = kBlack;
}

}  // namespace vorn::detail
