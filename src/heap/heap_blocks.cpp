#include "heap/heap_blocks.h"

#include "heap/heap_tree.h"

#include <atomic>

namespace vorn::detail {

namespace {

constexpr uint64_t kSmallestPayload = 32;
// A block that exceeds the need by at most this much, header included, is handed out whole.
constexpr uint64_t kLargestTail = 96;
// What the largest block of an empty heap cannot hand out: header, start block, end block, its own header.
constexpr uint64_t kFixedOverhead = kHeaderSize + 3 * kBlockHeaderSize;

// An allocated block whose links were found right on both sides.
struct Neighbours {
    uint64_t prevLink;
    uint64_t nextLink;
};

// `block` satisfies HoldsNode and is allocated: reads its links and checks that both neighbours agree.
bool ReadNeighbours(const HeapArea& area, uint64_t block, Neighbours* out) noexcept
{
    out->nextLink = area.Block(block).nextLink;
    out->prevLink = area.Block(block).prevLink;
    const uint64_t next = LinkOffset(out->nextLink);
    const uint64_t prev = LinkOffset(out->prevLink);
    if (!area.HoldsBlock(next) || next < block + kSmallestBlock) return false;
    if (!area.HoldsBlock(prev) || prev >= block) return false;
    return area.Block(next).prevLink == (block | kAllocatedBit) &&
           area.Block(prev).nextLink == (block | kAllocatedBit);
}

// The guard and the marker after the payload, as the owner of a block would find them.
VornStatus CheckPayload(const HeapArea& area, uint64_t payload, uint64_t* userSize) noexcept
{
    if (payload < kFirstBlock || payload >= area.TotalSize() || payload % 2 != 0) return VORN_E_INVALID_ARG;
    const BlockHeader& header = area.Block(payload - kBlockHeaderSize);
    if (header.guard != kBlockGuard) return VORN_E_INVALID_ARG;
    const uint64_t room = area.TotalSize() - payload;
    const uint64_t size = header.userSize;
    if (room < kEndMarkerSize || size > room - kEndMarkerSize) return VORN_E_HEAP_CORRUPT;
    if (area.Word(payload + size) != kEndMarker) return VORN_E_HEAP_CORRUPT;
    *userSize = size;
    return VORN_OK;
}

VornStatus CheckBlock(const HeapArea& area, uint64_t payload, uint64_t* userSize, Neighbours* links) noexcept
{
    const VornStatus status = CheckPayload(area, payload, userSize);
    if (status != VORN_OK) return status;
    const uint64_t block = payload - kBlockHeaderSize;
    if (!area.HoldsNode(block) || !ReadNeighbours(area, block, links)) return VORN_E_HEAP_CORRUPT;
    if (*userSize > LinkOffset(links->nextLink) - payload - kEndMarkerSize) return VORN_E_HEAP_CORRUPT;
    return VORN_OK;
}

}  // namespace

void LayOutHeap(void* base, uint64_t size) noexcept
{
    const uint64_t total = size & ~uint64_t{1};
    const uint64_t end = total - kBlockHeaderSize;

    HeapHeader& header = *static_cast<HeapHeader*>(base);
    header.magic = 0;
    header.version = kHeapVersion;
    header.totalSize = total;
    header.allocatedBlocks = 0;
    header.bytesInUse = kHeaderSize + 2 * kBlockHeaderSize;
    header.attachCount = 1;
    header.users = 0;
    header.stateFlag = 0;
    header.userHeaderSize = 0;
    header.userHeaderOffset = 0;
    header.nameOffset = 0;
    header.root = kNilNode;
    header.nil.header.nextLink = kNilNode;
    header.nil.header.prevLink = 0;
    header.nil.header.guard = 0;
    header.nil.header.userSize = 0;
    header.nil.node.parent = 0;
    header.nil.node.child[kLeft] = kNilNode;
    header.nil.node.child[kRight] = kNilNode;
    header.nil.node.colour = kBlack;

    const HeapArea area(base, total);
    const auto writeBlock = [&area](uint64_t block, uint64_t nextLink, uint64_t prevLink) {
        area.Block(block).nextLink = nextLink;
        area.Block(block).prevLink = prevLink;
        area.Block(block).guard = kBlockGuard;
        area.Block(block).userSize = 0;
    };
    writeBlock(kStartBlock, kFirstBlock, 0);
    writeBlock(kFirstBlock, end | kAllocatedBit, kStartBlock | kAllocatedBit);
    writeBlock(end, total, kFirstBlock);
    FreeTree(area).Insert(kFirstBlock);
}

void StampHeap(void* base) noexcept
{
    std::atomic_thread_fence(std::memory_order_release);
    static_cast<HeapHeader*>(base)->magic = kHeapMagic;
}

VornStatus AllocateBlock(const HeapArea& area, uint64_t size, uint64_t* payload) noexcept
{
    if (size > area.TotalSize()) return VORN_E_NO_MEMORY;
    const uint64_t rounded = (size + kEndMarkerSize + 3) & ~uint64_t{3};
    const uint64_t need = rounded < kSmallestPayload ? kSmallestPayload : rounded;
    if (need > area.TotalSize() - kFixedOverhead) return VORN_E_NO_MEMORY;

    FreeTree tree(area);
    const uint64_t found = tree.FindBestFit(need + kBlockHeaderSize);
    if (tree.Damaged()) return VORN_E_HEAP_CORRUPT;
    if (found == kNilNode) return VORN_E_NO_MEMORY;

    const uint64_t nextLink = area.Block(found).nextLink;
    const uint64_t next = LinkOffset(nextLink);
    // FindBestFit has seen these bytes, but another process may have changed them since.
    if (!area.HoldsBlock(next) || next < found + need + kBlockHeaderSize) return VORN_E_HEAP_CORRUPT;
    if (area.Block(next).prevLink != found) return VORN_E_HEAP_CORRUPT;
    const uint64_t foundSize = next - found;
    const bool whole = foundSize <= need + kLargestTail;
    const uint64_t prev = LinkOffset(area.Block(found).prevLink);
    if (whole && (!area.HoldsBlock(prev) || prev >= found || LinkOffset(area.Block(prev).nextLink) != found))
    {
        return VORN_E_HEAP_CORRUPT;
    }

    tree.Remove(found);
    if (tree.Damaged()) return VORN_E_HEAP_CORRUPT;

    HeapHeader& header = area.Header();
    uint64_t block = found;
    if (whole) {
        area.Block(prev).nextLink = found | kAllocatedBit;
        header.bytesInUse = header.bytesInUse + foundSize - kBlockHeaderSize;
    } else {
        block = next - need - kBlockHeaderSize;
        area.Block(block).nextLink = nextLink;
        area.Block(block).prevLink = found;
        area.Block(found).nextLink = block | kAllocatedBit;
        tree.Insert(found);
        if (tree.Damaged()) return VORN_E_HEAP_CORRUPT;
        header.bytesInUse = header.bytesInUse + need + kBlockHeaderSize;
    }
    area.Block(next).prevLink = block | kAllocatedBit;
    area.Block(block).guard = kBlockGuard;
    area.Block(block).userSize = size;
    header.allocatedBlocks = header.allocatedBlocks + 1;
    area.Word(block + kBlockHeaderSize + size) = kEndMarker;
    *payload = block + kBlockHeaderSize;
    return VORN_OK;
}

VornStatus ReleaseBlock(const HeapArea& area, uint64_t payload) noexcept
{
    if (payload == 0) return VORN_OK;
    uint64_t userSize;
    Neighbours links;
    const VornStatus status = CheckBlock(area, payload, &userSize, &links);
    if (status != VORN_OK) return status;

    const uint64_t block = payload - kBlockHeaderSize;
    const uint64_t next = LinkOffset(links.nextLink);
    const uint64_t prev = LinkOffset(links.prevLink);
    const bool nextIsFree = !LinkIsAllocated(links.nextLink) && next != area.EndBlock();
    const bool prevIsFree = !LinkIsAllocated(links.prevLink) && prev != kStartBlock;

    // The merged block: from mergedStart to the block that mergedLink names.
    uint64_t mergedStart = block;
    uint64_t mergedLink = links.nextLink;
    uint64_t following = next;
    if (nextIsFree) {
        if (!area.HoldsNode(next)) return VORN_E_HEAP_CORRUPT;
        mergedLink = area.Block(next).nextLink;
        following = LinkOffset(mergedLink);
        if (!area.HoldsBlock(following) || following < next + kSmallestBlock) return VORN_E_HEAP_CORRUPT;
        if (area.Block(following).prevLink != next) return VORN_E_HEAP_CORRUPT;
    }
    if (prevIsFree) {
        if (!area.HoldsNode(prev) || prev > block - kSmallestBlock) return VORN_E_HEAP_CORRUPT;
        mergedStart = prev;
    }

    FreeTree tree(area);
    if (nextIsFree) tree.Remove(next);
    if (prevIsFree && !tree.Damaged()) tree.Remove(prev);
    if (tree.Damaged()) return VORN_E_HEAP_CORRUPT;

    if (!prevIsFree) area.Block(prev).nextLink = block;
    area.Block(mergedStart).nextLink = mergedLink;
    area.Block(mergedStart).userSize = 0;
    area.Block(following).prevLink = mergedStart;
    tree.Insert(mergedStart);

    HeapHeader& header = area.Header();
    const uint64_t merges = (nextIsFree ? 1u : 0u) + (prevIsFree ? 1u : 0u);
    header.bytesInUse = header.bytesInUse - (next - block) + kBlockHeaderSize - merges * kBlockHeaderSize;
    header.allocatedBlocks = header.allocatedBlocks - 1;
    return tree.Damaged() ? VORN_E_HEAP_CORRUPT : VORN_OK;
}

VornStatus InspectPayload(const HeapArea& area, uint64_t payload, uint64_t* userSize) noexcept
{
    Neighbours links;
    return CheckBlock(area, payload, userSize, &links);
}

uint64_t LargestRequestWhenEmpty(const HeapArea& area) noexcept
{
    return (area.TotalSize() - kFixedOverhead - 1) & ~uint64_t{3};
}

VornStatus LargestRequest(const HeapArea& area, uint64_t* size) noexcept
{
    FreeTree tree(area);
    const uint64_t block = tree.FindLargest();
    if (tree.Damaged()) return VORN_E_HEAP_CORRUPT;
    *size = 0;
    if (block == kNilNode) return VORN_OK;
    const uint64_t next = LinkOffset(area.Block(block).nextLink);
    if (!area.HoldsBlock(next) || next < block + kSmallestBlock) return VORN_E_HEAP_CORRUPT;
    *size = next - block - kBlockHeaderSize - kEndMarkerSize;
    return VORN_OK;
}

}  // namespace vorn::detail
