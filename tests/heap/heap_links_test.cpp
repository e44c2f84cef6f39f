// One wrong link or size at a time, each against the rule that must find it, where the other rules are kept.

#include "heap/heap_walk.h"
#include "heap/test_area.h"

#include <gtest/gtest.h>

using namespace vorn::detail;
using namespace heap_test;

namespace {

// Free blocks of 136, 236 and 336 bytes between allocated ones, and nothing else free.
class HeapLinks : public testing::Test {
protected:
    HeapLinks() : heap(4096)
    {
        for (uint64_t size : {100, 50, 200, 50, 300, 50}) payloads.push_back(heap.Allocate(size));
        whole = heap.Allocate(4096 - 236 - 750 - 6 * 36 - 40);
        for (size_t i : {0, 2, 4}) ReleaseBlock(heap.Area(), payloads[i]);
        small = payloads[0] - 32;
        middle = payloads[2] - 32;
        large = payloads[4] - 32;
    }
    void SetUp() override
    {
        ASSERT_EQ(whole, 200u);
        ASSERT_EQ(heap.Look().problem, "");
        ASSERT_EQ(heap.Look().freeTree.size(), 3u);
    }

    // Makes the block a black node with these links.
    void Hang(uint64_t block, uint64_t parent, uint64_t left = 72, uint64_t right = 72)
    {
        if (parent == 0) Write64(heap.Bytes(), 64, block);
        Write64(heap.Bytes(), block + 32, parent);
        Write64(heap.Bytes(), block + 40, left);
        Write64(heap.Bytes(), block + 48, right);
        Write32(heap.Bytes(), block + 56, 0);
    }
    // Writes a free block's header and node into the payload of the large allocated block.
    uint64_t HangPretender(uint64_t size)
    {
        const uint64_t block = whole + 8;
        Write64(heap.Bytes(), block, block + size);
        Hang(block, 0);
        return block;
    }
    HeapFault TreeFault()
    {
        uint64_t sum = 0;
        const HeapFault fault = SumFreeTree(heap.Area(), &sum).fault;
        EXPECT_EQ(CheckHeap(heap.Area()).fault, fault);
        return fault;
    }

    TestArea heap;
    std::vector<uint64_t> payloads;
    uint64_t whole, small, middle, large;
};

}  // namespace

TEST_F(HeapLinks, TheTreeMayStandInAnyOrderedShape)
{
    Hang(large, 0, middle);
    Hang(middle, large, small);
    Hang(small, middle);
    EXPECT_EQ(TreeFault(), HeapFault::kNone);
    Hang(small, 0, 72, large);
    Hang(large, small, middle);
    Hang(middle, large);
    EXPECT_EQ(TreeFault(), HeapFault::kNone);
}

TEST_F(HeapLinks, ARightChildMayNotBeSmallerThanItsParent)
{
    Hang(large, 0, small, middle);
    Hang(small, large);
    Hang(middle, large);
    EXPECT_EQ(TreeFault(), HeapFault::kTreeOrder);
}

TEST_F(HeapLinks, ALeftChildMayNotBeLargerThanItsParent)
{
    Hang(small, 0, middle, large);
    Hang(middle, small);
    Hang(large, small);
    EXPECT_EQ(TreeFault(), HeapFault::kTreeOrder);
}

TEST_F(HeapLinks, ANodeMayNotBeOnTheWrongSideOfAnyNodeAboveIt)
{
    Hang(middle, 0, small);
    Hang(small, middle, 72, large);
    Hang(large, small);
    EXPECT_EQ(TreeFault(), HeapFault::kTreeOrder);
    Hang(middle, 0, 72, large);
    Hang(large, middle, small);
    Hang(small, large);
    EXPECT_EQ(TreeFault(), HeapFault::kTreeOrder);
}

TEST_F(HeapLinks, OneBlockMayNotBeBothChildren)
{
    TestArea equal(4096);
    uint64_t blocks[4];
    for (uint64_t& block : blocks) block = equal.Allocate(100) - 32;
    ASSERT_EQ(equal.Allocate(4096 - 236 - 4 * 136), 200u);
    ASSERT_EQ(ReleaseBlock(equal.Area(), blocks[0] + 32), VORN_OK);
    ASSERT_EQ(ReleaseBlock(equal.Area(), blocks[2] + 32), VORN_OK);
    ASSERT_EQ(Read64(equal.Bytes(), blocks[0] + 48), blocks[2]);
    Write64(equal.Bytes(), blocks[0] + 40, blocks[2]);
    uint64_t sum = 0;
    EXPECT_EQ(SumFreeTree(equal.Area(), &sum).fault, HeapFault::kTreeLink);
}

TEST_F(HeapLinks, TheTreesBlocksAreTheFreeBlocksInNumberAndSize)
{
    uint64_t sum = 0;
    HangPretender(136 + 236 + 336);
    EXPECT_EQ(SumFreeTree(heap.Area(), &sum).fault, HeapFault::kNone);
    EXPECT_EQ(sum, 136u + 236u + 336u);
    EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kTreeIncomplete);

    const uint64_t pretender = HangPretender(200);
    Hang(pretender, 0, small, large);
    Hang(small, pretender);
    Hang(large, pretender);
    EXPECT_EQ(SumFreeTree(heap.Area(), &sum).fault, HeapFault::kNone);
    EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kTreeIncomplete);
}

TEST_F(HeapLinks, AFreeBlockHasNoRequestedSize)
{
    Write64(heap.Bytes(), middle + 24, 1);
    const HeapVerdict verdict = CheckHeap(heap.Area());
    EXPECT_EQ(verdict.fault, HeapFault::kBlockSize);
    EXPECT_EQ(verdict.offset, middle);
}

TEST_F(HeapLinks, ABlockHasRoomForATreeNode)
{
    // The large allocated block becomes one of 48 bytes and one of the rest.
    const uint64_t block = whole - 32;
    const uint64_t next = Read64(heap.Bytes(), block) & ~uint64_t{1};
    Write64(heap.Bytes(), block, (block + 48) | 1);
    Write64(heap.Bytes(), block + 24, 0);
    Write64(heap.Bytes(), block + 48, next | 1);
    Write64(heap.Bytes(), block + 56, block | 1);
    Write32(heap.Bytes(), block + 64, 0xBEBAFECA);
    Write64(heap.Bytes(), block + 72, 0);
    Write64(heap.Bytes(), next + 8, (block + 48) | 1);
    const HeapVerdict verdict = CheckHeap(heap.Area());
    EXPECT_EQ(verdict.fault, HeapFault::kBlockSize);
    EXPECT_EQ(verdict.offset, block);
}

TEST_F(HeapLinks, FreeKnowsTheStartAndTheEndBlockByTheirOffsets)
{
    // Bit 0 clear on the way to both neighbours, as if they were free.
    TestArea one(400);
    ASSERT_EQ(one.Allocate(164), 200u);
    Write64(one.Bytes(), 168, 368);
    Write64(one.Bytes(), 176, 136);
    EXPECT_EQ(ReleaseBlock(one.Area(), 200), VORN_OK);
    EXPECT_EQ(one.Look().problem, "");
    EXPECT_EQ(one.Allocate(164), 200u);
    EXPECT_EQ(one.Look().problem, "");
}

TEST_F(HeapLinks, FreeRefusesAnOddOffsetWhateverStandsBeforeIt)
{
    Write32(heap.Bytes(), whole + 101 - 16, 0xBEBAFECA);
    Write64(heap.Bytes(), whole + 101 - 8, 0);
    std::memcpy(heap.Bytes() + whole + 101, "ENDE", 4);
    EXPECT_EQ(ReleaseBlock(heap.Area(), whole + 101), VORN_E_INVALID_ARG);
}

TEST_F(HeapLinks, FreeRefusesARequestedSizeThatReachesBeyondTheBlock)
{
    const uint64_t block = payloads[1];
    const uint64_t beyond = payloads[0] + 40;  // in the free block behind it
    std::memcpy(heap.Bytes() + beyond, "ENDE", 4);
    Write64(heap.Bytes(), block - 8, beyond - block);
    const std::vector<uint8_t> before = heap.Copy();
    EXPECT_EQ(ReleaseBlock(heap.Area(), block), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(heap.Copy(), before);
}

TEST_F(HeapLinks, FreeLooksBackFromTheBlockBehindAFreeOne)
{
    // payloads[3] has the free block of payloads[2] behind it, and behind that stands payloads[1].
    Write64(heap.Bytes(), payloads[1] - 24, payloads[4] - 32);
    const std::vector<uint8_t> before = heap.Copy();
    EXPECT_EQ(ReleaseBlock(heap.Area(), payloads[3]), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(heap.Copy(), before);
}
