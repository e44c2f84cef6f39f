#include "heap/heap_blocks.h"

#include "heap/heap_walk.h"
#include "heap/layout_checker.h"
#include "heap/test_area.h"

#include <gtest/gtest.h>

using namespace vorn::detail;
using namespace heap_test;

namespace {

class HeapBlocks : public testing::Test {
protected:
    HeapBlocks() : heap(4096) {}

    TestArea heap;
};

}  // namespace

TEST_F(HeapBlocks, ANewHeapIsOneFreeBlockBetweenStartAndEnd)
{
    const uint8_t* bytes = heap.Bytes();
    EXPECT_EQ(std::memcmp(bytes, "SABO", 4), 0);
    EXPECT_EQ(Read32(bytes, 4), 0x80000001u);
    EXPECT_EQ(Read64(bytes, 8), 4096u);
    EXPECT_EQ(Read64(bytes, 16), 0u);
    EXPECT_EQ(Read64(bytes, 24), 200u);
    EXPECT_EQ(Read32(bytes, 32), 1u);
    EXPECT_EQ(Read32(bytes, 36), 0u);
    EXPECT_EQ(Read32(bytes, 40), 0u);
    EXPECT_EQ(Read32(bytes, 44), 0u);
    EXPECT_EQ(Read64(bytes, 48), 0u);
    EXPECT_EQ(Read64(bytes, 56), 0u);
    EXPECT_EQ(Read64(bytes, 64), 168u);
    EXPECT_EQ(Read64(bytes, 136), 168u);  // start block: a free block follows
    EXPECT_EQ(Read64(bytes, 144), 0u);
    EXPECT_EQ(Read64(bytes, 168), 4064u | 1u);
    EXPECT_EQ(Read64(bytes, 176), 136u | 1u);
    EXPECT_EQ(Read64(bytes, 200), 0u);
    EXPECT_EQ(Read64(bytes, 208), 72u);
    EXPECT_EQ(Read64(bytes, 216), 72u);
    EXPECT_EQ(Read32(bytes, 224), 0u);
    EXPECT_EQ(Read64(bytes, 4064), 4096u);
    EXPECT_EQ(Read64(bytes, 4072), 168u);
    EXPECT_EQ(Read32(bytes, 4080), 0xBEBAFECAu);
    EXPECT_EQ(heap.Look().problem, "");
}

TEST_F(HeapBlocks, WordsThatAreNotPartOfTheLayoutKeepWhatTheMemoryHeld)
{
    // The area was filled with 0xA5 before it was laid out.
    EXPECT_EQ(Read32(heap.Bytes(), 92), 0xA5A5A5A5u);    // nil node
    EXPECT_EQ(Read32(heap.Bytes(), 132), 0xA5A5A5A5u);   // after its colour
    EXPECT_EQ(Read32(heap.Bytes(), 156), 0xA5A5A5A5u);   // start block
    EXPECT_EQ(Read32(heap.Bytes(), 188), 0xA5A5A5A5u);   // free block
    EXPECT_EQ(Read32(heap.Bytes(), 228), 0xA5A5A5A5u);   // after its colour
    EXPECT_EQ(Read32(heap.Bytes(), 4084), 0xA5A5A5A5u);  // end block
    const uint64_t payload = heap.Allocate(100);
    EXPECT_EQ(Read32(heap.Bytes(), payload - 12), 0xA5A5A5A5u);
    for (uint64_t i = 0; i < 100; ++i) ASSERT_EQ(heap.Bytes()[payload + i], 0xA5) << i;
}

TEST_F(HeapBlocks, ABlockIsCutFromTheHighEnd)
{
    EXPECT_EQ(heap.Allocate(100), 4064u - 104u);
    EXPECT_EQ(heap.Allocate(33), 4064u - 104u - 32u - 40u);
    EXPECT_EQ(heap.Look().problem, "");
}

TEST_F(HeapBlocks, TheHeaderAndTheMarkerOfABlockAreWhereTheLayoutSays)
{
    const uint64_t payload = heap.Allocate(10);
    EXPECT_EQ(payload, 4064u - 32u);
    EXPECT_EQ(Read64(heap.Bytes(), payload - 32), 4064u | 1u);
    EXPECT_EQ(Read64(heap.Bytes(), payload - 24), 168u);
    EXPECT_EQ(Read32(heap.Bytes(), payload - 16), 0xBEBAFECAu);
    EXPECT_EQ(Read64(heap.Bytes(), payload - 8), 10u);
    EXPECT_EQ(std::memcmp(heap.Bytes() + payload + 10, "ENDE", 4), 0);
    EXPECT_EQ(Read64(heap.Bytes(), 168), (payload - 32) | 1u);
    EXPECT_EQ(Read64(heap.Bytes(), 4072), (payload - 32) | 1u);
}

TEST_F(HeapBlocks, ARequestOfNothingReserves32BytesAndAMarkerAtItsFirstByte)
{
    const uint64_t payload = heap.Allocate(0);
    EXPECT_EQ(payload, 4064u - 32u);
    EXPECT_EQ(std::memcmp(heap.Bytes() + payload, "ENDE", 4), 0);
    EXPECT_EQ(Read64(heap.Bytes(), 24), 200u + 64u);
    EXPECT_EQ(ReleaseBlock(heap.Area(), payload), VORN_OK);
    EXPECT_EQ(Read64(heap.Bytes(), 24), 200u);
}

TEST_F(HeapBlocks, PayloadsGrowInStepsOfFourFrom32)
{
    // Requests and the bytes that each takes from the free block, header included.
    const uint64_t cases[][2] = {{0, 64},  {1, 64},  {27, 64},   {28, 64},  {29, 68},
                                 {32, 68}, {33, 72}, {100, 136}, {101, 140}};
    for (const auto& [request, taken] : cases) {
        TestArea fresh(4096);
        EXPECT_EQ(fresh.Allocate(request), 4064 - taken + 32) << request;
    }
}

TEST_F(HeapBlocks, ATailOf96BytesOrLessStaysWithItsBlock)
{
    // The free block has `size` - 200 bytes; a request of 100 needs 104 and a header.
    TestArea whole(200 + 104 + 96);
    EXPECT_EQ(whole.Allocate(100), 200u);
    EXPECT_EQ(Read64(whole.Bytes(), 24), 136u + 32u + 200u);
    EXPECT_EQ(Read64(whole.Bytes(), 64), 72u);
    EXPECT_EQ(Read64(whole.Bytes(), 136), 168u | 1u);
    EXPECT_EQ(whole.Look().problem, "");

    TestArea split(200 + 104 + 98);
    EXPECT_EQ(split.Allocate(100), 200u + 66u);
    EXPECT_EQ(Read64(split.Bytes(), 24), 136u + 32u + 32u + 136u);
    EXPECT_EQ(split.Look().problem, "");
}

TEST_F(HeapBlocks, BytesInUseFollowSplitsWholeBlocksAndMerges)
{
    const uint64_t a = heap.Allocate(100);  // 136 bytes each
    const uint64_t b = heap.Allocate(100);
    const uint64_t c = heap.Allocate(100);
    EXPECT_EQ(Read64(heap.Bytes(), 24), 200u + 3 * 136u);
    EXPECT_EQ(Read64(heap.Bytes(), 16), 3u);
    EXPECT_EQ(ReleaseBlock(heap.Area(), a), VORN_OK);  // a second free block
    EXPECT_EQ(Read64(heap.Bytes(), 24), 200u + 2 * 136u + 32u);
    EXPECT_EQ(heap.Allocate(60), a);  // whole
    EXPECT_EQ(Read64(heap.Bytes(), 24), 200u + 3 * 136u);
    EXPECT_EQ(ReleaseBlock(heap.Area(), c), VORN_OK);  // merges with the free block below
    EXPECT_EQ(Read64(heap.Bytes(), 24), 200u + 2 * 136u);
    EXPECT_EQ(ReleaseBlock(heap.Area(), a), VORN_OK);
    EXPECT_EQ(Read64(heap.Bytes(), 24), 200u + 136u + 32u);
    EXPECT_EQ(ReleaseBlock(heap.Area(), b), VORN_OK);  // merges on both sides
    EXPECT_EQ(Read64(heap.Bytes(), 24), 200u);
    EXPECT_EQ(Read64(heap.Bytes(), 16), 0u);
    EXPECT_EQ(heap.Look().problem, "");
}

TEST_F(HeapBlocks, TheSmallestHeapHoldsOneBlock)
{
    TestArea smallest(269);
    EXPECT_EQ(Read64(smallest.Bytes(), 8), 268u);
    EXPECT_EQ(LargestRequestWhenEmpty(smallest.Area()), 32u);
    uint64_t largest = 0;
    EXPECT_EQ(LargestRequest(smallest.Area(), &largest), VORN_OK);
    EXPECT_EQ(largest, 32u);
    EXPECT_EQ(smallest.Allocate(33), 0u);
    EXPECT_EQ(smallest.Allocate(32), 200u);
    EXPECT_EQ(smallest.Look().problem, "");
    EXPECT_EQ(LargestRequest(smallest.Area(), &largest), VORN_OK);
    EXPECT_EQ(largest, 0u);
    EXPECT_EQ(smallest.Allocate(0), 0u);
    EXPECT_EQ(ReleaseBlock(smallest.Area(), 200), VORN_OK);
    EXPECT_EQ(smallest.Look().problem, "");
}

TEST_F(HeapBlocks, AnAreaOfOddSizeIsUsedUpToTheNextLowerEvenSize)
{
    TestArea odd(4095);
    EXPECT_EQ(Read64(odd.Bytes(), 8), 4094u);
    EXPECT_EQ(odd.Bytes()[4094], 0xA5);
    EXPECT_EQ(odd.Look().problem, "");
}

TEST_F(HeapBlocks, TheLargestRequestIsWhatAnEmptyHeapCanSatisfy)
{
    EXPECT_EQ(LargestRequestWhenEmpty(heap.Area()), 3860u);
    for (uint64_t size = 272; size < 400; size += 4) {
        TestArea area(size);
        const uint64_t most = LargestRequestWhenEmpty(area.Area());
        EXPECT_EQ(most, size - 236);
        EXPECT_EQ(area.Allocate(most + 1), 0u) << size;
        EXPECT_EQ(area.Allocate(most), 200u) << size;
    }
}

TEST_F(HeapBlocks, TheLargestRequestIsOneStepTooHighForASizeThatIsNoMultipleOfFour)
{
    TestArea area(398);
    EXPECT_EQ(LargestRequestWhenEmpty(area.Area()), 164u);
    EXPECT_EQ(area.Allocate(161), 0u);
    EXPECT_EQ(area.Allocate(160), 200u);
}

TEST_F(HeapBlocks, RequestsNearTheTopOfTheNumberRangeFindNoRoom)
{
    for (uint64_t size :
         {~uint64_t{0}, ~uint64_t{0} - 6, ~uint64_t{0} - 7, uint64_t{1} << 63, uint64_t{4097}}) {
        uint64_t payload = 0;
        EXPECT_EQ(AllocateBlock(heap.Area(), size, &payload), VORN_E_NO_MEMORY) << size;
    }
    EXPECT_EQ(heap.Look().problem, "");
}

TEST_F(HeapBlocks, AmongEqualBlocksTheLeftmostInTheTreeIsTaken)
{
    std::vector<uint64_t> blocks;
    for (int i = 0; i < 9; ++i) blocks.push_back(heap.Allocate(200));
    for (int i = 0; i < 9; i += 2) ASSERT_EQ(ReleaseBlock(heap.Area(), blocks[i]), VORN_OK);
    for (int i = 0; i < 4; ++i) {
        const SeenHeap seen = heap.Look();
        const uint64_t expected = PayloadByBestFit(seen, 200);
        EXPECT_EQ(heap.Allocate(200), expected);
        EXPECT_EQ(expected, seen.freeTree.front().offset + 32);
    }
}

TEST_F(HeapBlocks, FreeingOffsetZeroDoesNothing)
{
    const std::vector<uint8_t> before = heap.Copy();
    EXPECT_EQ(ReleaseBlock(heap.Area(), 0), VORN_OK);
    EXPECT_EQ(heap.Copy(), before);
}

TEST_F(HeapBlocks, FreeRefusesOffsetsThatNoBlockCanHave)
{
    heap.Allocate(100);
    const std::vector<uint8_t> before = heap.Copy();
    for (uint64_t offset :
         {uint64_t{1}, uint64_t{31}, uint64_t{32}, uint64_t{136}, uint64_t{167}, uint64_t{169},
          uint64_t{4096}, uint64_t{4095}, uint64_t{4098}, uint64_t{1} << 40, ~uint64_t{0}, ~uint64_t{0} - 31})
    {
        EXPECT_EQ(ReleaseBlock(heap.Area(), offset), VORN_E_INVALID_ARG) << offset;
    }
    EXPECT_EQ(heap.Copy(), before);
}

TEST_F(HeapBlocks, FreeOfTheStartBlockFindsNoMarker)
{
    EXPECT_EQ(ReleaseBlock(heap.Area(), 168), VORN_E_HEAP_CORRUPT);
    std::memcpy(heap.Bytes() + 168, "ENDE", 4);
    EXPECT_EQ(ReleaseBlock(heap.Area(), 168), VORN_E_HEAP_CORRUPT);
}

TEST_F(HeapBlocks, FreeRefusesABlockWhoseGuardIsOverwritten)
{
    const uint64_t payload = heap.Allocate(10);
    for (uint64_t i = 0; i < 4; ++i) {
        heap.Bytes()[payload - 16 + i] ^= 0x10;
        EXPECT_EQ(ReleaseBlock(heap.Area(), payload), VORN_E_INVALID_ARG);
        EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kGuard);
        EXPECT_EQ(CheckHeap(heap.Area()).offset, payload - 32);
        heap.Bytes()[payload - 16 + i] ^= 0x10;
    }
    EXPECT_EQ(ReleaseBlock(heap.Area(), payload), VORN_OK);
}

TEST_F(HeapBlocks, FreeAndCheckReportAnOverwrittenMarker)
{
    const uint64_t payload = heap.Allocate(10);
    for (uint64_t i = 0; i < 4; ++i) {
        heap.Bytes()[payload + 10 + i] ^= 0xFF;
        EXPECT_EQ(ReleaseBlock(heap.Area(), payload), VORN_E_HEAP_CORRUPT);
        EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kEndMarker);
        heap.Bytes()[payload + 10 + i] ^= 0xFF;
    }
    EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kNone);
    EXPECT_EQ(ReleaseBlock(heap.Area(), payload), VORN_OK);
}

TEST_F(HeapBlocks, ASecondFreeOfABlockIsRefused)
{
    const uint64_t a = heap.Allocate(100);
    const uint64_t b = heap.Allocate(100);
    heap.Allocate(100);
    ASSERT_EQ(ReleaseBlock(heap.Area(), a), VORN_OK);
    ASSERT_EQ(ReleaseBlock(heap.Area(), b), VORN_OK);  // b absorbs a, whose header and marker are still there
    const std::vector<uint8_t> before = heap.Copy();
    EXPECT_EQ(ReleaseBlock(heap.Area(), a), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(ReleaseBlock(heap.Area(), b), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(heap.Copy(), before);
}

TEST_F(HeapBlocks, AllocationInADamagedTreeIsReported)
{
    Write64(heap.Bytes(), 64, 170);  // not a block: its size makes no sense
    uint64_t payload = 0;
    EXPECT_EQ(AllocateBlock(heap.Area(), 10, &payload), VORN_E_HEAP_CORRUPT);
    Write64(heap.Bytes(), 64, 1000000);
    EXPECT_EQ(AllocateBlock(heap.Area(), 10, &payload), VORN_E_HEAP_CORRUPT);
    uint64_t size = 0;
    EXPECT_EQ(LargestRequest(heap.Area(), &size), VORN_E_HEAP_CORRUPT);
    uint64_t sum = 0;
    EXPECT_EQ(SumFreeTree(heap.Area(), &sum).fault, HeapFault::kTreeLink);
}

TEST_F(HeapBlocks, LinksThatFormARingEndEveryDescent)
{
    Write64(heap.Bytes(), 208, 168);  // the root is its own child on both sides
    Write64(heap.Bytes(), 216, 168);
    uint64_t payload = 0;
    uint64_t value = 0;
    EXPECT_EQ(AllocateBlock(heap.Area(), 10, &payload), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(LargestRequest(heap.Area(), &value), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(SumFreeTree(heap.Area(), &value).fault, HeapFault::kTreeLink);
    EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kTreeLink);
}

TEST_F(HeapBlocks, ATotalSizeBeyondTheAreaIsNotBelieved)
{
    for (uint64_t total :
         {uint64_t{0}, uint64_t{266}, uint64_t{4095}, uint64_t{4098}, ~uint64_t{0}, ~uint64_t{1}})
    {
        Write64(heap.Bytes(), 8, total);
        EXPECT_FALSE(heap.Area()) << total;
        EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kTotalSize);
    }
}

TEST_F(HeapBlocks, ASmallerTotalSizeThanTheAreaIsTheHeapsReach)
{
    const HeapArea area(heap.Bytes(), 100000);
    EXPECT_EQ(area.TotalSize(), 4096u);
}

TEST_F(HeapBlocks, AVeryDeepTreeIsCheckedWithoutRecursion)
{
    // A chain of 200,000 black nodes, each the right child of the one before: as deep as a tree can be.
    const uint64_t count = 200000;
    const uint64_t blockSize = 96;
    const uint64_t total = 168 + count * 2 * blockSize + 32;
    TestArea area(total);
    uint8_t* bytes = area.Bytes();
    uint64_t previous = 136;
    for (uint64_t i = 0; i < count * 2; ++i) {
        const uint64_t block = 168 + i * blockSize;
        const uint64_t next = block + blockSize;
        const bool free = i % 2 == 0;
        Write64(bytes, block, next | (free || next == total - 32 ? 1 : 0));
        Write64(bytes, block + 8, previous | (free ? 1 : 0));
        Write32(bytes, block + 16, 0xBEBAFECA);
        Write64(bytes, block + 24, 0);
        if (free) {
            Write64(bytes, block + 32, i == 0 ? 0 : block - 2 * blockSize);
            Write64(bytes, block + 40, 72);
            Write64(bytes, block + 48, i + 2 < count * 2 ? block + 2 * blockSize : 72);
            Write32(bytes, block + 56, 0);
        }
        previous = block;
    }
    Write64(bytes, total - 32 + 8, previous | 1);
    EXPECT_EQ(CheckHeap(area.Area()).fault, HeapFault::kNone);
    uint64_t sum = 0;
    EXPECT_EQ(SumFreeTree(area.Area(), &sum).fault, HeapFault::kNone);
    EXPECT_EQ(sum, count * blockSize);
    EXPECT_NE(area.Allocate(10), 0u);
}

TEST_F(HeapBlocks, AVeryDeepTreeWithBranchesOnTheWayIsCheckedToTheEnd)
{
    // A spine of left children. To the right of each hangs a chain of right children, long ones at first, so
    // that ever more of them have been begun on the way down. All blocks have one size: any order is right.
    const uint64_t spine = 2000;
    const uint64_t longChains = 20;
    const uint64_t count = spine + longChains * spine + (spine - longChains);
    const uint64_t blockSize = 96;
    const uint64_t total = 168 + count * 2 * blockSize + 32;
    TestArea area(total);
    uint8_t* bytes = area.Bytes();
    const auto freeBlock = [](uint64_t i) { return 168 + i * 2 * 96; };
    uint64_t previous = 136;
    for (uint64_t i = 0; i < count * 2; ++i) {
        const uint64_t block = 168 + i * blockSize;
        const bool free = i % 2 == 0;
        Write64(bytes, block, (block + blockSize) | (free || i + 1 == count * 2 ? 1 : 0));
        Write64(bytes, block + 8, previous | (free ? 1 : 0));
        Write32(bytes, block + 16, 0xBEBAFECA);
        Write64(bytes, block + 24, 0);
        previous = block;
    }
    Write64(bytes, total - 32 + 8, previous | 1);
    const auto hang = [&](uint64_t node, uint64_t parent, uint64_t left, uint64_t right) {
        Write64(bytes, node + 32, parent);
        Write64(bytes, node + 40, left);
        Write64(bytes, node + 48, right);
        Write32(bytes, node + 56, 0);
    };
    uint64_t link = spine;  // the next free block that is no part of a chain yet
    for (uint64_t i = 0; i < spine; ++i) {
        const uint64_t node = freeBlock(i);
        hang(node, i == 0 ? 0 : freeBlock(i - 1), i + 1 < spine ? freeBlock(i + 1) : 72, freeBlock(link));
        uint64_t parent = node;
        for (uint64_t left = i < longChains ? spine : 1; left != 0; --left, ++link) {
            hang(freeBlock(link), parent, 72, left > 1 ? freeBlock(link + 1) : 72);
            parent = freeBlock(link);
        }
    }
    ASSERT_EQ(link, count);
    EXPECT_EQ(CheckHeap(area.Area()).fault, HeapFault::kNone);
    uint64_t sum = 0;
    EXPECT_EQ(SumFreeTree(area.Area(), &sum).fault, HeapFault::kNone);
    EXPECT_EQ(sum, count * blockSize);

    // The end of the spine, the node above it, and that one's only other child.
    const uint64_t deepest = freeBlock(spine - 1);
    const uint64_t above = freeBlock(spine - 2);
    const uint64_t leaf = freeBlock(count - 2);
    ASSERT_EQ(Read64(bytes, above + 48), leaf);
    Write32(bytes, deepest + 56, 2);
    EXPECT_EQ(CheckHeap(area.Area()).fault, HeapFault::kTreeColour);
    EXPECT_EQ(CheckHeap(area.Area()).offset, deepest);
    Write32(bytes, deepest + 56, 0);
    Write64(bytes, deepest + 40, freeBlock(0));  // a ring
    EXPECT_EQ(CheckHeap(area.Area()).fault, HeapFault::kTreeLink);
    Write64(bytes, deepest + 40, 72);
    Write64(bytes, above + 48, deepest);  // both children of one node
    EXPECT_EQ(SumFreeTree(area.Area(), &sum).fault, HeapFault::kTreeLink);
    Write64(bytes, above + 48, leaf);
    Write64(bytes, leaf, leaf + 64);  // smaller than its parent
    EXPECT_EQ(SumFreeTree(area.Area(), &sum).fault, HeapFault::kTreeOrder);
    EXPECT_EQ(SumFreeTree(area.Area(), &sum).offset, leaf);
}
