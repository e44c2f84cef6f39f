#include "heap/heap_tree.h"

namespace vorn::detail {

FreeTree::FreeTree(const HeapArea& area) noexcept
    : area_(area), mostNodes_(area.MostNodes()), root_(area.Header().root)
{
    nil_.parent = 0;
    nil_.child[kLeft] = kNilNode;
    nil_.child[kRight] = kNilNode;
    nil_.colour = kBlack;
}

TreeNode* FreeTree::NodeElsewhere(uint64_t block) noexcept
{
    if (block != kNilNode) damaged_ = true;
    return &nil_;
}

inline TreeNode* FreeTree::NodeAt(uint64_t block) noexcept
{
    return area_.HoldsNode(block) ? &area_.Node(block) : NodeElsewhere(block);
}

// The block's size, header included; `block` satisfies HoldsNode. Its end is inside the area unless the
// tree is damaged.
inline uint64_t FreeTree::SizeOf(uint64_t block) noexcept
{
    const uint64_t size = LinkOffset(area_.Block(block).nextLink) - block;
    if (size > area_.EndBlock() - block) damaged_ = true;
    return size;
}

uint64_t FreeTree::FindBestFit(uint64_t size) noexcept
{
    uint64_t best = kNilNode;
    uint64_t steps = mostNodes_;
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
    uint64_t steps = mostNodes_;
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

// Which child of `parent` the block at `child` is.
inline unsigned FreeTree::SideOf(const Place& parent, uint64_t child) noexcept
{
    const bool isLeft = parent.node->child[kLeft] == child;
    if (!isLeft && parent.node->child[kRight] != child) damaged_ = true;
    return isLeft ? kLeft : kRight;
}

// Puts `replacement`, which may be the nil node, where `child` hangs from its parent (0: as the root).
inline void FreeTree::ReplaceChild(uint64_t parent, uint64_t child, const Place& replacement) noexcept
{
    if (parent == 0) {
        if (root_ != child) damaged_ = true;
        if (damaged_) return;
        SetRoot(replacement.offset);
    } else {
        const Place place = At(parent);
        const unsigned side = SideOf(place, child);
        if (damaged_) return;
        place.node->child[side] = replacement.offset;
    }
    replacement.node->parent = parent;
}

// Moves `block` down to `side`; its child on the other side takes its place.
inline void FreeTree::Rotate(const Place& block, unsigned side) noexcept
{
    const unsigned other = 1 - side;
    const Place rising = At(block.node->child[other]);
    if (rising.offset == kNilNode || rising.node->parent != block.offset) damaged_ = true;
    if (damaged_) return;
    const Place inner = At(rising.node->child[side]);
    const uint64_t parent = block.node->parent;
    block.node->child[other] = inner.offset;
    if (inner.offset != kNilNode) inner.node->parent = block.offset;
    ReplaceChild(parent, block.offset, rising);
    rising.node->child[side] = block.offset;
    block.node->parent = rising.offset;
}

void FreeTree::Insert(uint64_t block) noexcept
{
    const uint64_t size = SizeOf(block);
    uint64_t parent = 0;
    unsigned side = kLeft;
    uint64_t steps = mostNodes_;
    for (uint64_t next = root_; next != kNilNode; --steps) {
        if (!area_.HoldsNode(next) || next == block || steps == 0) {
            damaged_ = true;
            return;
        }
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
    BalanceAfterInsert({block, &node});
}

// `block` is red, and nothing is wrong but that its parent may be red too.
inline void FreeTree::BalanceAfterInsert(Place block) noexcept
{
    for (uint64_t steps = mostNodes_; !damaged_; --steps) {
        const uint64_t parentOffset = block.node->parent;
        if (parentOffset == 0) {
            block.node->colour = kBlack;
            return;
        }
        const Place parent = At(parentOffset);
        if (parent.node->colour != kRed) return;
        const uint64_t grandparentOffset = parent.node->parent;
        if (grandparentOffset == 0) {  // a red root
            parent.node->colour = kBlack;
            return;
        }
        const Place grandparent = At(grandparentOffset);
        const unsigned side = SideOf(grandparent, parent.offset);
        const Place uncle = At(grandparent.node->child[1 - side]);
        if (steps == 0) damaged_ = true;
        if (damaged_) return;
        grandparent.node->colour = kRed;
        if (uncle.node->colour == kRed) {
            parent.node->colour = kBlack;
            uncle.node->colour = kBlack;
            block = grandparent;
            continue;
        }
        if (SideOf(parent, block.offset) == side) {
            parent.node->colour = kBlack;
        } else {
            block.node->colour = kBlack;
            Rotate(parent, side);
            if (damaged_) return;
        }
        Rotate(grandparent, 1 - side);
        return;
    }
}

void FreeTree::Remove(uint64_t offset) noexcept
{
    const Place block = At(offset);
    const Place left = At(block.node->child[kLeft]);
    const Place right = At(block.node->child[kRight]);
    const uint64_t parent = block.node->parent;
    if (left.offset != kNilNode && left.node->parent != offset) damaged_ = true;
    if (right.offset != kNilNode && right.node->parent != offset) damaged_ = true;
    if (right.offset != kNilNode && right.offset == left.offset) damaged_ = true;
    if (damaged_) return;

    uint32_t lostColour = block.node->colour;
    Place moved = left.offset == kNilNode ? right : left;  // takes the place that the tree loses
    if (left.offset == kNilNode || right.offset == kNilNode) {
        ReplaceChild(parent, offset, moved);
    } else {
        // The next larger block takes the removed one's place and colour.
        Place successor = right;
        uint64_t steps = mostNodes_;
        for (uint64_t next; (next = successor.node->child[kLeft]) != kNilNode; --steps) {
            successor = At(next);
            if (steps == 0) damaged_ = true;
            if (damaged_) return;
        }
        moved = At(successor.node->child[kRight]);
        if (moved.offset != kNilNode && moved.node->parent != successor.offset) damaged_ = true;
        if (damaged_) return;
        const uint32_t colour = lostColour;
        lostColour = successor.node->colour;
        if (successor.offset != right.offset) {
            ReplaceChild(successor.node->parent, successor.offset, moved);
            if (damaged_) return;
            successor.node->child[kRight] = right.offset;
            right.node->parent = successor.offset;
        } else {
            moved.node->parent = successor.offset;
        }
        ReplaceChild(parent, offset, successor);
        if (damaged_) return;
        successor.node->child[kLeft] = left.offset;
        left.node->parent = successor.offset;
        successor.node->colour = colour;
    }
    if (lostColour != kRed && !damaged_) BalanceAfterRemove(moved);
}

// Every path through `block`, which may be the nil node, is one black node short. The nil node's parent is
// known for as long as this lasts.
inline void FreeTree::BalanceAfterRemove(Place block) noexcept
{
    for (uint64_t steps = mostNodes_; block.offset != root_ && block.node->colour != kRed; --steps) {
        const uint64_t parentOffset = block.node->parent;
        if (parentOffset == 0 || steps == 0) {
            damaged_ = true;
            return;
        }
        const Place parent = At(parentOffset);
        const unsigned side = SideOf(parent, block.offset);
        Place sibling = At(parent.node->child[1 - side]);
        if (damaged_) return;
        if (sibling.node->colour == kRed) {
            sibling.node->colour = kBlack;
            parent.node->colour = kRed;
            Rotate(parent, side);
            if (damaged_) return;
            sibling = At(parent.node->child[1 - side]);
        }
        const Place inner = At(sibling.node->child[side]);
        const Place outer = At(sibling.node->child[1 - side]);
        if (damaged_) return;
        if (outer.node->colour != kRed && inner.node->colour != kRed) {
            // A tree that is not balanced may have no sibling here; nothing is to be painted then.
            if (sibling.offset != kNilNode) sibling.node->colour = kRed;
            block = parent;
            continue;
        }
        const uint32_t parentColour = parent.node->colour;
        parent.node->colour = kBlack;
        if (outer.node->colour == kRed) {
            sibling.node->colour = parentColour;
            outer.node->colour = kBlack;
        } else {
            inner.node->colour = parentColour;
            Rotate(sibling, 1 - side);
            if (damaged_) return;
        }
        Rotate(parent, side);
        return;
    }
    block.node->colour = kBlack;
}

}  // namespace vorn::detail
