// heap_layout.h - the bytes of a heap: header, block header, tree node. No code that changes anything.
//
// The layout is a file format and a protocol between processes. All values are little-endian; offsets count
// bytes from the heap's base. Whatever else reads or writes a heap's area takes its layout from here.
//
// The area, from low to high:
//   the heap header          at 0
//   the start block          at kStartBlock, a bare header, counted as allocated
//   allocated and free blocks, without gaps, no two free ones side by side
//   the end block            a bare header, counted as allocated, its end is the heap's total size
// A block's own allocated bit lives in its two neighbours' links. The start and end blocks are known by
// their offsets and are allocated whatever those bits say.
#ifndef VORN_HEAP_HEAP_LAYOUT_H
#define VORN_HEAP_HEAP_LAYOUT_H

#include <cstddef>
#include <cstdint>

namespace vorn::detail {

// A value inside a heap's area, at any alignment. Whoever else has the area mapped may overwrite it at any
// moment, so each conversion to T reads the memory exactly once: copy it to a local, check the local, use
// the local.
template <class T>
struct __attribute__((packed, may_alias)) Cell {
    T value;

    operator T() const noexcept { return static_cast<const volatile Cell*>(this)->value; }
    void operator=(T fresh) noexcept { static_cast<volatile Cell*>(this)->value = fresh; }
};

constexpr uint32_t kHeapMagic = 0x4F424153;    // "SABO"
constexpr uint32_t kHeapVersion = 0x80000001;  // the one version there is
constexpr uint32_t kBlockGuard = 0xBEBAFECA;   // in memory ca fe ba be
constexpr uint32_t kEndMarker = 0x45444E45;    // "ENDE", directly after the last requested byte

constexpr uint32_t kBlack = 0;
constexpr uint32_t kRed = 1;

constexpr unsigned kLeft = 0;
constexpr unsigned kRight = 1;

// Directly before each payload. A block may start at any even offset.
struct BlockHeader {
    Cell<uint64_t> nextLink;   // following block; bit 0: that block is allocated
    Cell<uint64_t> prevLink;   // preceding block; bit 0: that block is allocated
    Cell<uint32_t> guard;      // kBlockGuard
    Cell<uint32_t> unwritten;  // keeps whatever the memory held
    Cell<uint64_t> userSize;   // bytes requested; 0 in a free block
};

// In a free block's payload: its place in the tree of free blocks by size.
struct TreeNode {
    Cell<uint64_t> parent;     // 0 for the root
    Cell<uint64_t> child[2];   // kLeft, kRight; kNilNode when absent
    Cell<uint32_t> colour;     // kRed or kBlack
    Cell<uint32_t> unwritten;  // keeps whatever the memory held
};

struct FreeBlock {
    BlockHeader header;
    TreeNode node;
};

struct HeapHeader {
    Cell<uint32_t> magic;
    Cell<uint32_t> version;
    Cell<uint64_t> totalSize;        // bytes, even
    Cell<uint64_t> allocatedBlocks;  // start and end block not counted
    Cell<uint64_t> bytesInUse;       // header, start block, whole allocated blocks, 32 for each free block
    Cell<uint32_t> attachCount;      // open handles on a shared heap, in all processes
    Cell<uint32_t> users;            // callers inside an operation
    Cell<uint32_t> stateFlag;        // non-zero while an enumeration runs, and after a stopped one
    Cell<uint32_t> userHeaderSize;
    Cell<uint64_t> userHeaderOffset;
    Cell<uint64_t> nameOffset;  // payload of the name block; 0 without
    Cell<uint64_t> root;        // of the free tree; kNilNode when it is empty
    FreeBlock nil;              // laid out once, never moved, and never needed by this library's code
};

constexpr uint64_t kHeaderSize = 136;
constexpr uint64_t kBlockHeaderSize = 32;
constexpr uint64_t kSmallestBlock = 64;  // room for the tree node once it is free
constexpr uint64_t kEndMarkerSize = 4;
constexpr uint64_t kNilNode = 72;
constexpr uint64_t kStartBlock = kHeaderSize;
constexpr uint64_t kFirstBlock = kStartBlock + kBlockHeaderSize;

// The smallest area a heap is laid out over, and the total size that one has.
constexpr uint64_t kSmallestArea = 269;
constexpr uint64_t kSmallestTotalSize = 268;

static_assert(sizeof(Cell<uint32_t>) == 4 && sizeof(Cell<uint64_t>) == 8 && alignof(Cell<uint64_t>) == 1);

static_assert(offsetof(BlockHeader, nextLink) == 0 && offsetof(BlockHeader, prevLink) == 8);
static_assert(offsetof(BlockHeader, guard) == 16 && offsetof(BlockHeader, unwritten) == 20);
static_assert(offsetof(BlockHeader, userSize) == 24 && sizeof(BlockHeader) == kBlockHeaderSize);

static_assert(offsetof(FreeBlock, node) == 32 && sizeof(FreeBlock) == kSmallestBlock);
static_assert(offsetof(TreeNode, parent) == 0 && offsetof(TreeNode, child) == 8);
static_assert(offsetof(TreeNode, colour) == 24 && offsetof(TreeNode, unwritten) == 28);

static_assert(offsetof(HeapHeader, magic) == 0 && offsetof(HeapHeader, version) == 4);
static_assert(offsetof(HeapHeader, totalSize) == 8 && offsetof(HeapHeader, allocatedBlocks) == 16);
static_assert(offsetof(HeapHeader, bytesInUse) == 24 && offsetof(HeapHeader, attachCount) == 32);
static_assert(offsetof(HeapHeader, users) == 36 && offsetof(HeapHeader, stateFlag) == 40);
static_assert(offsetof(HeapHeader, userHeaderSize) == 44 && offsetof(HeapHeader, userHeaderOffset) == 48);
static_assert(offsetof(HeapHeader, nameOffset) == 56 && offsetof(HeapHeader, root) == 64);
static_assert(offsetof(HeapHeader, nil) == kNilNode && sizeof(HeapHeader) == kHeaderSize);

constexpr uint64_t kAllocatedBit = 1;

constexpr uint64_t LinkOffset(uint64_t link) noexcept
{
    return link & ~kAllocatedBit;
}
constexpr bool LinkIsAllocated(uint64_t link) noexcept
{
    return (link & kAllocatedBit) != 0;
}

}  // namespace vorn::detail

#endif
