#include "heap/heap_walk.h"

namespace vorn::detail {

const char* DescribeFault(HeapFault fault) noexcept
{
    switch (fault) {
        case HeapFault::kNone:
            return "The structure is sound.";
        case HeapFault::kTotalSize:
            return "The header's total size is impossible.";
        case HeapFault::kNextLink:
            return "The next-link names no possible block.";
        case HeapFault::kPrevLink:
            return "The prev-link does not name the block before.";
        case HeapFault::kAllocatedBit:
            return "The links on the block's two sides disagree on whether it is allocated.";
        case HeapFault::kGuard:
            return "The guard word is overwritten.";
        case HeapFault::kBlockSize:
            return "The block's size is impossible.";
        case HeapFault::kEndMarker:
            return "The marker after the requested bytes is overwritten.";
        case HeapFault::kTreeLink:
            return "A link of the free tree is wrong.";
        case HeapFault::kTreeOrder:
            return "The free tree is not ordered by size.";
        case HeapFault::kTreeColour:
            return "The colours of the free tree are wrong.";
        case HeapFault::kTreeIncomplete:
            return "The free tree does not hold exactly the free blocks.";
    }
    return "";
}

bool BlockWalk::Next() noexcept
{
    if (fault_ != HeapFault::kNone || next_ == area_.TotalSize()) return false;
    preceding_ = offset_;
    offset_ = next_;
    allocated_ = nextAllocated_;
    fault_ = ReadBlock();
    return fault_ == HeapFault::kNone;
}

// Every block but the end block ends at or before the end block, so offset_ always holds a block here.
HeapFault BlockWalk::ReadBlock() noexcept
{
    const BlockHeader& header = area_.Block(offset_);
    const uint64_t nextLink = header.nextLink;
    const uint64_t prevLink = header.prevLink;
    const uint64_t end = area_.EndBlock();
    const bool edge = offset_ == kStartBlock || offset_ == end;
    if (edge) allocated_ = true;

    next_ = LinkOffset(nextLink);
    nextAllocated_ = LinkIsAllocated(nextLink);
    if (LinkOffset(prevLink) != preceding_) return HeapFault::kPrevLink;
    if (header.guard != kBlockGuard) return HeapFault::kGuard;
    userSize_ = header.userSize;
    if (offset_ == end) {
        if (next_ != area_.TotalSize()) return HeapFault::kNextLink;
        return userSize_ == 0 ? HeapFault::kNone : HeapFault::kBlockSize;
    }
    if (next_ > end || next_ < offset_ + kBlockHeaderSize) return HeapFault::kNextLink;
    if (offset_ == kStartBlock) {
        if (next_ != kFirstBlock) return HeapFault::kNextLink;
        return userSize_ == 0 ? HeapFault::kNone : HeapFault::kBlockSize;
    }
    if (next_ - offset_ < kSmallestBlock) return HeapFault::kBlockSize;
    if (LinkIsAllocated(area_.Block(next_).prevLink) != allocated_) return HeapFault::kAllocatedBit;
    if (!allocated_) return userSize_ == 0 ? HeapFault::kNone : HeapFault::kBlockSize;
    if (userSize_ > Size() - kBlockHeaderSize - kEndMarkerSize) return HeapFault::kBlockSize;
    if (userSize_ == 0) return HeapFault::kNone;
    if (area_.Word(offset_ + kBlockHeaderSize + userSize_) != kEndMarker) return HeapFault::kEndMarker;
    return HeapFault::kNone;
}

namespace {

// What a walk over the whole free tree found.
struct TreeTotals {
    uint64_t sum = 0;  // of the blocks' sizes
    uint64_t nodes = 0;
};

// Looks at the nodes from the root down, a few at a time: while one is looked at, the next ones are on their
// way from memory, for in a large heap each node is a cache miss. What is still to be visited stands on a
// stack. It grows by at most kComing for each level of the tree, so that 40 levels fit; the walk gives up on
// a tree that needs more: see ThinTreeWalk.
class WideTreeWalk {
public:
    explicit WideTreeWalk(const HeapArea& area) noexcept : area_(area) {}

    // False when the walk gave up.
    bool Run() noexcept
    {
        const uint64_t root = area_.Header().root;
        if (root != kNilNode) stack_[stacked_++] = {root, 0, 0, ~uint64_t{0}, kBlack};
        while (verdict_.fault == HeapFault::kNone) {
            while (coming_ < kComing && stacked_ != 0) Fetch(stack_[--stacked_]);
            if (coming_ == 0) return true;
            const Visit visit = ring_[first_];
            first_ = (first_ + 1) % kComing;
            --coming_;
            if (verdict_.fault == HeapFault::kNone && !Look(visit)) return false;
        }
        return true;
    }

    const HeapVerdict& Verdict() const noexcept { return verdict_; }
    const TreeTotals& Totals() const noexcept { return totals_; }

private:
    struct Visit {
        uint64_t block;
        uint64_t parent;  // 0 for the root
        uint64_t least;   // sizes that the block may have where it stands
        uint64_t most;
        uint32_t parentColour;
    };
    static constexpr unsigned kComing = 16;
    static constexpr unsigned kStack = 640;

    void Fail(HeapFault fault, uint64_t offset) noexcept
    {
        if (verdict_.fault == HeapFault::kNone) verdict_ = {fault, offset};
    }

    void Fetch(const Visit& visit) noexcept
    {
        if (!area_.HoldsNode(visit.block)) {
            Fail(HeapFault::kTreeLink, visit.parent == 0 ? offsetof(HeapHeader, root) : visit.parent);
            return;
        }
        // A node may lie across two cache lines.
        __builtin_prefetch(area_.Bytes(visit.block));
        __builtin_prefetch(area_.Bytes(visit.block + kSmallestBlock - 1));
        ring_[(first_ + coming_++) % kComing] = visit;
    }

    bool Look(const Visit& visit) noexcept
    {
        const TreeNode& node = area_.Node(visit.block);
        const uint64_t size = LinkOffset(area_.Block(visit.block).nextLink) - visit.block;
        const uint64_t left = node.child[kLeft];
        const uint64_t right = node.child[kRight];
        const uint32_t colour = node.colour;
        if (node.parent != visit.parent || ++totals_.nodes > area_.MostNodes() ||
            (left == right && left != kNilNode) || size > area_.EndBlock() - visit.block ||
            size < kSmallestBlock)
        {
            Fail(HeapFault::kTreeLink, visit.block);
        } else if (colour > kRed || (colour == kRed && visit.parentColour == kRed)) {
            Fail(HeapFault::kTreeColour, visit.block);
        } else if (size < visit.least || size > visit.most) {
            Fail(HeapFault::kTreeOrder, visit.block);
        }
        totals_.sum += size;
        if (stacked_ + 2 > kStack) return false;
        if (right != kNilNode) stack_[stacked_++] = {right, visit.block, size, visit.most, colour};
        if (left != kNilNode) stack_[stacked_++] = {left, visit.block, visit.least, size, colour};
        return true;
    }

    const HeapArea& area_;
    HeapVerdict verdict_;
    TreeTotals totals_;
    unsigned stacked_ = 0;
    unsigned first_ = 0;
    unsigned coming_ = 0;
    Visit ring_[kComing];
    Visit stack_[kStack];
};

// The free tree from the smallest block to the largest, with no memory of its own: it climbs by the parent
// links, each of which was found equal to the way down. The way up is as long as the way down was. This is
// the walk for a tree of any depth, slow in a large heap.
class ThinTreeWalk {
public:
    explicit ThinTreeWalk(const HeapArea& area) noexcept : area_(area) {}

    HeapVerdict Run() noexcept
    {
        uint64_t block = area_.Header().root;
        if (block == kNilNode) return {};
        if (!Enter(block, 0, kBlack)) return verdict_;
        for (;;) {
            // Down to the left as far as it goes.
            for (uint64_t left; (left = area_.Node(block).child[kLeft]) != kNilNode; block = left) {
                if (!Enter(left, block, area_.Node(block).colour)) return verdict_;
            }
            for (;;) {
                if (!Visit(block)) return verdict_;
                const uint64_t right = area_.Node(block).child[kRight];
                if (right != kNilNode) {
                    if (!Enter(right, block, area_.Node(block).colour)) return verdict_;
                    block = right;
                    break;
                }
                // Up until the subtree just done was a left one.
                bool fromRight = true;
                while (fromRight) {
                    if (depth_ == 1) return verdict_;
                    const uint64_t parent = area_.Node(block).parent;
                    if (!area_.HoldsNode(parent)) return Fail(HeapFault::kTreeLink, block);
                    fromRight = area_.Node(parent).child[kRight] == block;
                    block = parent;
                    --depth_;
                }
            }
        }
    }

    TreeTotals Totals() const noexcept { return {sum_, nodes_}; }

private:
    HeapVerdict Fail(HeapFault fault, uint64_t offset) noexcept
    {
        if (verdict_.fault == HeapFault::kNone) verdict_ = {fault, offset};
        return verdict_;
    }

    // Steps down to `block`; its position, its links and its colour are looked at here.
    bool Enter(uint64_t block, uint64_t parent, uint32_t parentColour) noexcept
    {
        if (!area_.HoldsNode(block)) {
            Fail(HeapFault::kTreeLink, parent == 0 ? offsetof(HeapHeader, root) : parent);
            return false;
        }
        const TreeNode& node = area_.Node(block);
        const uint32_t colour = node.colour;
        const uint64_t left = node.child[kLeft];
        // One block as both children would make the way up from the left look like that from the right.
        const bool twice = left != kNilNode && left == node.child[kRight];
        if (node.parent != parent || twice || ++nodes_ > area_.MostNodes()) {
            Fail(HeapFault::kTreeLink, block);
        }
        if (colour > kRed || (colour == kRed && parentColour == kRed)) Fail(HeapFault::kTreeColour, block);
        ++depth_;
        return verdict_.fault == HeapFault::kNone;
    }

    // Called from the smallest block to the largest, at most once for each node that was entered, unless
    // the area changes under the walk; hence the bound.
    bool Visit(uint64_t block) noexcept
    {
        const uint64_t size = LinkOffset(area_.Block(block).nextLink) - block;
        if (size > area_.EndBlock() - block || size < kSmallestBlock || ++visits_ > area_.MostNodes()) {
            Fail(HeapFault::kTreeLink, block);
        } else if (size < previousSize_) {
            Fail(HeapFault::kTreeOrder, block);
        }
        previousSize_ = size;
        sum_ += size;
        return verdict_.fault == HeapFault::kNone;
    }

    const HeapArea& area_;
    HeapVerdict verdict_;
    uint64_t depth_ = 0;
    uint64_t nodes_ = 0;
    uint64_t visits_ = 0;
    uint64_t previousSize_ = 0;
    uint64_t sum_ = 0;
};

HeapVerdict WalkTree(const HeapArea& area, TreeTotals* totals) noexcept
{
    WideTreeWalk wide(area);
    if (wide.Run()) {
        *totals = wide.Totals();
        return wide.Verdict();
    }
    ThinTreeWalk thin(area);
    const HeapVerdict verdict = thin.Run();
    *totals = thin.Totals();
    return verdict;
}

}  // namespace

HeapVerdict SumFreeTree(const HeapArea& area, uint64_t* sum) noexcept
{
    TreeTotals totals;
    const HeapVerdict verdict = WalkTree(area, &totals);
    *sum = totals.sum;
    return verdict;
}

HeapVerdict CheckHeap(const HeapArea& area) noexcept
{
    uint64_t freeSum = 0;
    uint64_t freeBlocks = 0;
    BlockWalk blocks(area);
    while (blocks.Next()) {
        if (blocks.IsAllocated()) continue;
        freeSum += blocks.Size();
        ++freeBlocks;
    }
    if (blocks.Fault() != HeapFault::kNone) return {blocks.Fault(), blocks.Offset()};

    TreeTotals totals;
    const HeapVerdict verdict = WalkTree(area, &totals);
    if (verdict.fault != HeapFault::kNone) return verdict;
    if (totals.sum != freeSum || totals.nodes != freeBlocks) {
        return {HeapFault::kTreeIncomplete, offsetof(HeapHeader, root)};
    }
    return {};
}

}  // namespace vorn::detail
