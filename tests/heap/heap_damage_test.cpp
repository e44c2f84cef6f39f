// Damaged areas and images: whatever the bytes say, an operation ends, touches nothing outside the area, and
// gives a status. The areas lie in blocks of exactly their size, so that the sanitizer sees any touch
// outside.

#include "heap/heap_walk.h"
#include "heap/memory_image.h"
#include "heap/test_area.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <set>

using namespace vorn::detail;
using namespace heap_test;

namespace {

// Allocated and free blocks in turns, a tree of several levels, a name block and a user header.
class SmallHeap : public TestArea {
public:
    explicit SmallHeap(uint64_t size = 2048) : TestArea(size)
    {
        const uint64_t name = Allocate(9);
        std::memcpy(Bytes() + name, "the name", 9);
        Write64(Bytes(), 56, name);
        std::vector<uint64_t> blocks;
        for (uint64_t i = 0; i < 9; ++i) {
            blocks.push_back(Allocate(20 + 12 * i));
            std::memset(Bytes() + blocks.back(), 0x30 + static_cast<int>(i), 20 + 12 * i);
        }
        for (size_t i = 1; i < blocks.size(); i += 2) ReleaseBlock(Area(), blocks[i]);
        for (size_t i = 0; i < blocks.size(); i += 2) payloads.push_back(blocks[i]);
    }

    std::vector<uint64_t> payloads;
};

bool IsHeapStatus(VornStatus status)
{
    return status == VORN_OK || status == VORN_E_NO_MEMORY || status == VORN_E_INVALID_ARG ||
           status == VORN_E_HEAP_CORRUPT;
}

// Every operation once, on a heap that may be damaged.
void UseHeap(const HeapArea& area, const std::vector<uint64_t>& payloads)
{
    if (!area) return;
    uint64_t value = 0;
    CheckHeap(area);
    SumFreeTree(area, &value);
    EXPECT_TRUE(IsHeapStatus(LargestRequest(area, &value)));
    LargestRequestWhenEmpty(area);
    for (uint64_t request : {0, 21, 70, 300}) {
        uint64_t payload = 0;
        const VornStatus status = AllocateBlock(area, request, &payload);
        EXPECT_TRUE(IsHeapStatus(status));
        if (status != VORN_OK) continue;
        ASSERT_GE(payload, 200u);
        ASSERT_LE(payload + request + 4, area.TotalSize() - 32);
    }
    for (uint64_t payload : payloads) EXPECT_TRUE(IsHeapStatus(ReleaseBlock(area, payload)));
    CheckHeap(area);
}

std::set<uint64_t> StructuralBytes(const SeenHeap& seen, uint64_t size)
{
    std::set<uint64_t> offsets;
    for (uint64_t i = 0; i < 168; ++i) offsets.insert(i);
    for (const SeenBlock& block : seen.blocks) {
        for (uint64_t i = 0; i < (block.allocated ? 32 : 64); ++i) offsets.insert(block.offset + i);
    }
    for (uint64_t i = size - 32; i < size; ++i) offsets.insert(i);
    return offsets;
}

constexpr uint8_t kFlips[] = {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF};

}  // namespace

TEST(HeapDamage, TheExampleHeapIsSound)
{
    SmallHeap heap;
    EXPECT_EQ(heap.Look().problem, "");
    EXPECT_GE(heap.Look().freeTree.size(), 4u);
}

// A link, guard or tree field that is no longer what it was is found by the check, at once.
TEST(HeapDamage, TheCheckFindsEveryChangedByteOfLinksGuardsAndTreeFields)
{
    SmallHeap heap;
    const SeenHeap seen = heap.Look();
    // Flips every bit of the bytes, and then all bits of each, except those that say nothing on their own.
    const auto expectFault = [&heap](uint64_t offset, uint64_t size, const char* what, uint8_t silent = 0) {
        for (uint64_t i = 0; i < size; ++i) {
            for (uint8_t flip : kFlips) {
                if (i == 0 && flip == silent) continue;
                heap.Bytes()[offset + i] ^= flip;
                EXPECT_NE(CheckHeap(heap.Area()).fault, HeapFault::kNone) << what << " at " << offset + i;
                heap.Bytes()[offset + i] ^= flip;
            }
        }
    };
    const uint64_t end = heap.Size() - 32;
    expectFault(8, 8, "total size");
    expectFault(64, 8, "root");
    expectFault(136, 8, "next-link of the start block");
    expectFault(144, 8, "prev-link of the start block", 1);
    for (const SeenBlock& block : seen.blocks) {
        // Start and end block are allocated whatever bit 0 of a link says.
        expectFault(block.offset, 8, "next-link", block.offset + block.size == end ? 1 : 0);
        expectFault(block.offset + 8, 8, "prev-link", block.offset == 168 ? 1 : 0);
        expectFault(block.offset + 16, 4, "guard");
        if (block.allocated) {
            expectFault(block.offset + 24, 8, "user size");
        } else {
            expectFault(block.offset + 32, 24, "tree links");
            expectFault(block.offset + 56, 4, "colour", 1);  // a tree may be sound in other colours too
        }
    }
    expectFault(end, 8, "next-link of the end block", 1);
    expectFault(end + 8, 8, "prev-link of the end block");
    expectFault(end + 16, 4, "guard of the end block");
    EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kNone);
}

// Each of these passes every other rule of the check.
TEST(HeapDamage, TheCheckFindsATreeThatIsNotOrderedBySize)
{
    TestArea heap(4096);
    std::vector<uint64_t> blocks;
    for (uint64_t size : {100, 50, 200, 50, 300, 50}) blocks.push_back(heap.Allocate(size));
    ASSERT_EQ(heap.Allocate(4096 - 236 - 750 - 6 * 36 - 40), 200u);  // what is left, whole
    for (size_t i : {2, 0, 4}) ASSERT_EQ(ReleaseBlock(heap.Area(), blocks[i]), VORN_OK);
    const uint64_t root = Read64(heap.Bytes(), 64);
    const uint64_t left = Read64(heap.Bytes(), root + 40);
    const uint64_t right = Read64(heap.Bytes(), root + 48);
    ASSERT_NE(left, 72u);
    ASSERT_NE(right, 72u);
    ASSERT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kNone);
    Write64(heap.Bytes(), root + 40, right);
    Write64(heap.Bytes(), root + 48, left);
    EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kTreeOrder);
    uint64_t sum = 0;
    EXPECT_EQ(SumFreeTree(heap.Area(), &sum).fault, HeapFault::kTreeOrder);
}

TEST(HeapDamage, TheCheckFindsARedNodeUnderARedOneAndUnknownColours)
{
    SmallHeap heap;
    const SeenHeap seen = heap.Look();
    const uint64_t root = seen.root;
    const uint64_t child = Read64(heap.Bytes(), root + 40);
    ASSERT_NE(child, 72u);
    const uint32_t rootColour = Read32(heap.Bytes(), root + 56);
    Write32(heap.Bytes(), root + 56, 1);
    Write32(heap.Bytes(), child + 56, 1);
    EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kTreeColour);
    Write32(heap.Bytes(), root + 56, rootColour);
    Write32(heap.Bytes(), child + 56, 2);
    EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kTreeColour);
}

TEST(HeapDamage, TheCheckFindsAFreeBlockThatTheTreeLacks)
{
    SmallHeap heap;
    Write64(heap.Bytes(), 64, 72);
    EXPECT_EQ(CheckHeap(heap.Area()).fault, HeapFault::kTreeIncomplete);
    uint64_t sum = 1;
    EXPECT_EQ(SumFreeTree(heap.Area(), &sum).fault, HeapFault::kNone);
    EXPECT_EQ(sum, 0u);
}

TEST(HeapDamage, EverySingleByteChangeOfAHeapLeavesEveryOperationInBounds)
{
    const SmallHeap original;
    SmallHeap heap;
    const std::vector<uint8_t> sound = heap.Copy();
    const std::set<uint64_t> offsets = StructuralBytes(heap.Look(), heap.Size());
    int damaged = 0;
    for (uint64_t offset : offsets) {
        for (uint8_t flip : kFlips) {
            std::memcpy(heap.Bytes(), sound.data(), sound.size());
            heap.Bytes()[offset] ^= flip;
            UseHeap(heap.Area(), heap.payloads);
            ++damaged;
        }
    }
    std::printf("%d damaged heaps\n", damaged);
}

TEST(HeapDamage, EveryWordReplacedByEveryOffsetThatMeansSomethingStaysInBounds)
{
    SmallHeap heap;
    const std::vector<uint8_t> sound = heap.Copy();
    const SeenHeap seen = heap.Look();
    std::vector<uint64_t> values = {0,    1,    72,   136,  137,          168,         2016,
                                    2017, 2046, 2048, 4096, ~uint64_t{0}, ~uint64_t{1}};
    for (const SeenBlock& block : seen.blocks) {
        values.push_back(block.offset);
        values.push_back(block.offset | 1);
        values.push_back(block.offset + 32);
    }
    int damaged = 0;
    for (uint64_t offset : StructuralBytes(seen, heap.Size())) {
        if (offset % 4 != 0 || offset + 8 > heap.Size()) continue;
        for (uint64_t value : values) {
            std::memcpy(heap.Bytes(), sound.data(), sound.size());
            Write64(heap.Bytes(), offset, value);
            UseHeap(heap.Area(), heap.payloads);
            ++damaged;
        }
    }
    std::printf("%d damaged heaps\n", damaged);
}

TEST(HeapDamage, RandomDamageInSeveralPlacesStaysInBounds)
{
    std::mt19937_64 random(20261122);
    SmallHeap heap;
    const std::vector<uint8_t> sound = heap.Copy();
    const std::set<uint64_t> structural = StructuralBytes(heap.Look(), heap.Size());
    const std::vector<uint64_t> offsets(structural.begin(), structural.end());
    for (int round = 0; round < 20000; ++round) {
        std::memcpy(heap.Bytes(), sound.data(), sound.size());
        for (uint64_t i = 0; i < 1 + random() % 6; ++i) {
            const uint64_t offset = offsets[random() % offsets.size()];
            if (random() % 2 == 0 && offset + 8 <= heap.Size()) {
                Write64(heap.Bytes(), offset, random() % 2200);
            } else {
                heap.Bytes()[offset] = static_cast<uint8_t>(random());
            }
        }
        UseHeap(heap.Area(), heap.payloads);
    }
}

TEST(HeapDamage, EveryTruncationOfAnImageGivesItsStatusOrAHeapThatTheCheckJudges)
{
    SmallHeap source;
    const std::vector<uint8_t> image = source.Copy();
    for (uint64_t targetSize : {uint64_t{2048}, uint64_t{2096}, uint64_t{4096}}) {
        for (size_t length = 0; length <= image.size(); ++length) {
            TestArea target(targetSize);
            const std::vector<uint8_t> cut(image.begin(), image.begin() + static_cast<ptrdiff_t>(length));
            const VornStatus status = Load(target.Area(), cut);
            if (length < 136) {
                ASSERT_EQ(status, VORN_E_READ) << length;
                ASSERT_EQ(target.Look().problem, "");
                continue;
            }
            ASSERT_TRUE(IsHeapStatus(status)) << length;
            UseHeap(target.Area(), source.payloads);
        }
    }
}

TEST(HeapDamage, EverySingleByteChangeOfAnImageGivesItsStatusOrAHeapThatTheCheckJudges)
{
    SmallHeap source;
    const std::vector<uint8_t> image = source.Copy();
    const std::set<uint64_t> offsets = StructuralBytes(source.Look(), source.Size());
    int damaged = 0;
    for (uint64_t targetSize : {uint64_t{2048}, uint64_t{2060}, uint64_t{4096}}) {
        for (uint64_t offset : offsets) {
            for (uint8_t flip : {0x01, 0x10, 0x80, 0xFF}) {
                std::vector<uint8_t> changed = image;
                changed[offset] ^= flip;
                // A target with a name of its own, in the block that a name of that length gets.
                TestArea target(targetSize);
                if (flip == 0x10) {
                    const uint64_t name = target.Allocate(30);
                    std::memset(target.Bytes() + name, 'n', 29);
                    target.Bytes()[name + 29] = 0;
                    Write64(target.Bytes(), 56, name);
                }
                const VornStatus status = Load(target.Area(), changed);
                if (offset < 8) {
                    ASSERT_EQ(status, VORN_E_BAD_IMAGE);
                } else {
                    ASSERT_TRUE(IsHeapStatus(status)) << offset;
                }
                UseHeap(target.Area(), source.payloads);
                ++damaged;
            }
        }
    }
    std::printf("%d damaged images\n", damaged);
}
