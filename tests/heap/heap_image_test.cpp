#include "heap/heap_image.h"

#include "heap/heap_walk.h"
#include "heap/memory_image.h"
#include "heap/test_area.h"

#include <gtest/gtest.h>
#include <string>

using namespace vorn::detail;
using namespace heap_test;

namespace {

// An image without the odd last byte of its area.
std::vector<uint8_t> ImageOf(TestArea& heap)
{
    std::vector<uint8_t> bytes = heap.Copy();
    bytes.resize(bytes.size() / 2 * 2);
    return bytes;
}

uint64_t GiveName(TestArea& heap, const std::string& name)
{
    const uint64_t block = heap.Allocate(name.size() + 1);
    std::memcpy(heap.Bytes() + block, name.c_str(), name.size() + 1);
    Write64(heap.Bytes(), 56, block);
    return block;
}

std::string NameOf(TestArea& heap)
{
    const uint64_t block = Read64(heap.Bytes(), 56);
    return block == 0 ? "" : reinterpret_cast<const char*>(heap.Bytes() + block);
}

}  // namespace

TEST(HeapImage, AHeapOfTheSameSizeTakesEveryBlockAtItsOffset)
{
    TestArea source(4096);
    const uint64_t a = source.Allocate(100);
    const uint64_t b = source.Allocate(50);
    std::memset(source.Bytes() + a, 0x11, 100);
    std::memset(source.Bytes() + b, 0x22, 50);
    TestArea target(4096);
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(target.Copy(), source.Copy());
    EXPECT_EQ(target.Look().problem, "");
}

TEST(HeapImage, TheTargetKeepsItsOwnHeaderFields)
{
    TestArea source(4096);
    source.Allocate(100);
    Write32(source.Bytes(), 32, 7);   // attach count
    Write32(source.Bytes(), 36, 8);   // users
    Write32(source.Bytes(), 40, 9);   // state flag
    Write32(source.Bytes(), 44, 10);  // user header
    Write64(source.Bytes(), 48, 11);
    Write64(source.Bytes(), 16, 0x500000001);  // allocated blocks: the low half counts
    TestArea target(4096);
    Write32(target.Bytes(), 32, 3);
    Write32(target.Bytes(), 36, 1);
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(Read32(target.Bytes(), 32), 3u);
    EXPECT_EQ(Read32(target.Bytes(), 36), 1u);
    EXPECT_EQ(Read32(target.Bytes(), 40), 0u);
    EXPECT_EQ(Read32(target.Bytes(), 44), 10u);
    EXPECT_EQ(Read64(target.Bytes(), 48), 11u);
    EXPECT_EQ(Read64(target.Bytes(), 16), 1u);
    EXPECT_EQ(Read64(target.Bytes(), 24), 200u + 136u);
}

TEST(HeapImage, TheTargetKeepsItsTreeRoot)
{
    TestArea source(4096);
    const uint64_t a = source.Allocate(1000);
    source.Allocate(3864 - 1036 - 36 - 100);  // the rest, handed out whole
    source.Allocate(32);
    ASSERT_EQ(ReleaseBlock(source.Area(), a), VORN_OK);
    ASSERT_NE(Read64(source.Bytes(), 64), 168u);
    TestArea target(4096);
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(Read64(target.Bytes(), 64), 168u);
}

TEST(HeapImage, AnImageThatIsLargerThanTheTargetIsRefused)
{
    TestArea source(4096);
    TestArea target(4094);
    const std::vector<uint8_t> before = target.Copy();
    EXPECT_EQ(Load(target.Area(), ImageOf(source)), VORN_E_NO_MEMORY);
    EXPECT_EQ(target.Copy(), before);
}

TEST(HeapImage, BytesThatAreNoImageAreRefused)
{
    TestArea source(4096);
    for (uint64_t offset = 0; offset < 8; ++offset) {
        std::vector<uint8_t> image = ImageOf(source);
        image[offset] ^= 1;
        TestArea target(4096);
        const std::vector<uint8_t> before = target.Copy();
        EXPECT_EQ(Load(target.Area(), image), VORN_E_BAD_IMAGE);
        EXPECT_EQ(target.Copy(), before);
    }
}

TEST(HeapImage, AFileWhoseLow32BitsOfSizeAreLessThanAHeaderIsAShortRead)
{
    // What a file of 4 GiB and 135 bytes looks like: more than the target holds could be read from it.
    TestArea source(65536);
    TestArea target(4096);
    const std::vector<uint8_t> image = ImageOf(source);
    MemoryImage bytes(image);
    EXPECT_EQ(LoadHeapImage(target.Area(), 135, bytes), VORN_E_READ);
    EXPECT_EQ(target.Look().problem, "");
}

TEST(HeapImage, ALargerTargetGrowsTheFreeBlockAtTheImagesEnd)
{
    TestArea source(4096);
    const uint64_t a = source.Allocate(100);
    source.Allocate(100);
    ASSERT_EQ(ReleaseBlock(source.Area(), a), VORN_OK);
    for (uint64_t extra = 2; extra < 200; extra += 2) {
        TestArea target(4096 + extra);
        ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
        EXPECT_EQ(target.Look().problem, "") << extra;
        EXPECT_EQ(CheckHeap(target.Area()).fault, HeapFault::kNone) << extra;
        EXPECT_EQ(Read64(target.Bytes(), 24), Read64(source.Bytes(), 24));
        // Deliberate: the grown block's next-link has bit 0 clear.
        EXPECT_EQ(Read64(target.Bytes(), a - 32), 4096 + extra - 32);
        EXPECT_EQ(Read64(target.Bytes(), 4096 + extra - 24), a - 32);
        EXPECT_NE(target.Allocate(100), 0u);
        EXPECT_EQ(target.Look().problem, "") << extra;
    }
}

TEST(HeapImage, ALargerTargetTurnsTheImagesEndBlockIntoAFreeBlock)
{
    TestArea source(4096);
    const uint64_t a = source.Allocate(100);
    for (uint64_t extra = 64; extra < 300; extra += 2) {
        TestArea target(4096 + extra);
        ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
        EXPECT_EQ(target.Look().problem, "") << extra;
        EXPECT_EQ(CheckHeap(target.Area()).fault, HeapFault::kNone) << extra;
        EXPECT_EQ(Read64(target.Bytes(), 24), Read64(source.Bytes(), 24) + 32);
        EXPECT_EQ(Read64(target.Bytes(), 4064), (4096 + extra - 32) | 1u);
        EXPECT_EQ(Read64(target.Bytes(), 4096 + extra - 24), 4064u);
        EXPECT_EQ(ReleaseBlock(target.Area(), a), VORN_OK);
        EXPECT_EQ(target.Look().problem, "") << extra;
        EXPECT_EQ(target.Look().blocks.size(), 1u);
    }
}

TEST(HeapImage, WhereNoFreeBlockFitsTheAllocatedBlockAtTheEndGrows)
{
    TestArea source(4096);
    const uint64_t a = source.Allocate(100);
    for (uint64_t extra = 2; extra < 64; extra += 2) {
        TestArea target(4096 + extra);
        ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
        EXPECT_EQ(target.Look().problem, "") << extra;
        EXPECT_EQ(CheckHeap(target.Area()).fault, HeapFault::kNone) << extra;
        EXPECT_EQ(Read64(target.Bytes(), 24), Read64(source.Bytes(), 24) + extra);
        EXPECT_EQ(ReleaseBlock(target.Area(), a), VORN_OK);
        EXPECT_EQ(target.Look().problem, "") << extra;
    }
}

TEST(HeapImage, AnImageWhoseLastFreeBlockIsTheOnlyOneJoinsAnyLargerTarget)
{
    TestArea source(4096);
    const uint64_t a = source.Allocate(1000);
    source.Allocate(4096 - 232 - 1036 - 4);  // what is left, whole
    ASSERT_EQ(Read64(source.Bytes(), 64), 72u);
    ASSERT_EQ(ReleaseBlock(source.Area(), a), VORN_OK);
    TestArea target(8192);
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(Read64(target.Bytes(), 64), a - 32);
    EXPECT_EQ(target.Look().problem, "");
}

TEST(HeapImage, AFullImageGivesAFullTargetItsExtraSpace)
{
    TestArea source(4096);
    source.Allocate(4096 - 236);
    TestArea target(8192);
    target.Allocate(8192 - 236);
    ASSERT_EQ(Read64(target.Bytes(), 64), 72u);
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(target.Look().problem, "");
    EXPECT_EQ(target.Look().freeTree.size(), 1u);
}

TEST(HeapImage, AnImageThatClaimsToBeLargerThanTheTargetIsDamaged)
{
    TestArea source(4096);
    for (uint64_t total :
         {uint64_t{0}, uint64_t{136}, uint64_t{266}, uint64_t{4095}, uint64_t{4098}, ~uint64_t{0}})
    {
        std::vector<uint8_t> image = ImageOf(source);
        Write64(image.data(), 8, total);
        TestArea target(4096);
        EXPECT_EQ(Load(target.Area(), image), VORN_E_HEAP_CORRUPT) << total;
        EXPECT_EQ(Read64(target.Bytes(), 8), 4096u);
    }
}

TEST(HeapImage, ATargetWithoutANameReleasesTheImagesNameBlock)
{
    TestArea source(4096);
    GiveName(source, "image");
    const uint64_t kept = source.Allocate(10);
    TestArea target(4096);
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(Read64(target.Bytes(), 56), 0u);
    EXPECT_EQ(Read64(target.Bytes(), 16), 1u);
    EXPECT_EQ(target.Look().problem, "");
    EXPECT_EQ(ReleaseBlock(target.Area(), kept), VORN_OK);
}

TEST(HeapImage, AFileThatIsLongerThanItsImageStillJoinsTheEnd)
{
    // What lies behind the image goes where the target's end block was.
    TestArea source(4096);
    source.Allocate(100);
    for (uint64_t extra : {2, 40, 64, 200}) {
        std::vector<uint8_t> image = ImageOf(source);
        image.resize(4096 + extra, 0xEE);
        TestArea target(4096 + extra);
        ASSERT_EQ(Load(target.Area(), image), VORN_OK);
        EXPECT_EQ(target.Look().problem, "") << extra;
    }
}

TEST(HeapImage, TheFreeBlockAtTheImagesEndHasNoRequestedSizeWhateverTheEndBlockSays)
{
    TestArea source(4096);
    source.Allocate(100);
    Write64(source.Bytes(), 4064 + 24, 5);
    TestArea target(8192);
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(target.Look().problem, "");
}

TEST(HeapImage, ADamagedEndOfAnImageIsNotJoined)
{
    TestArea source(4096);
    const uint64_t last = source.Allocate(100) - 32;
    const std::vector<uint8_t> sound = ImageOf(source);
    TestArea target(8192);
    const auto expectRefused = [&](uint64_t offset) {
        std::vector<uint8_t> image = sound;
        image[offset] ^= 0x40;
        EXPECT_EQ(Load(target.Area(), image), VORN_E_HEAP_CORRUPT) << offset;
    };
    expectRefused(8);          // total size
    expectRefused(last);       // next-link of the last block
    expectRefused(4064);       // next-link of the end block
    expectRefused(4064 + 8);   // prev-link
    expectRefused(4064 + 16);  // guard
    EXPECT_EQ(Load(target.Area(), sound), VORN_OK);
    EXPECT_EQ(target.Look().problem, "");
}

TEST(HeapImage, ANameAsLongAsTheImagesStaysWhereTheImagesWas)
{
    TestArea source(4096);
    const uint64_t hole = source.Allocate(14);  // an allocation would take it, not the block that was freed
    source.Allocate(14);
    const uint64_t block = GiveName(source, "name of image");
    source.Allocate(14);
    ASSERT_EQ(ReleaseBlock(source.Area(), hole), VORN_OK);
    TestArea target(4096);
    GiveName(target, "of the target");
    Write64(target.Bytes(), 64, Read64(source.Bytes(), 64));
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(Read64(target.Bytes(), 56), block);
    EXPECT_EQ(NameOf(target), "of the target");
    EXPECT_EQ(target.Look().problem, "");
}

TEST(HeapImage, AShorterNameOfTheTargetGoesIntoTheImagesNameBlock)
{
    TestArea source(4096);
    const uint64_t block = GiveName(source, "name of image");
    TestArea target(4096);
    GiveName(target, "of the target");  // as long
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(Read64(target.Bytes(), 56), block);
    EXPECT_EQ(NameOf(target), "of the target");
    EXPECT_EQ(Read64(target.Bytes(), 16), 1u);
    EXPECT_EQ(target.Look().problem, "");
}

TEST(HeapImage, ALongerNameOfTheTargetGetsABlockOfItsOwn)
{
    TestArea source(4096);
    GiveName(source, "short");
    const std::string longName(100, 'x');
    TestArea target(4096);
    GiveName(target, longName);
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(NameOf(target), longName);
    EXPECT_EQ(Read64(target.Bytes(), Read64(target.Bytes(), 56) - 8), 101u);
    EXPECT_EQ(Read64(target.Bytes(), 16), 1u);
    EXPECT_EQ(target.Look().problem, "");
}

TEST(HeapImage, ANameIsGivenABlockWhenTheImageHasNone)
{
    TestArea source(4096);
    source.Allocate(10);
    TestArea target(4096);
    GiveName(target, "target");
    ASSERT_EQ(Load(target.Area(), ImageOf(source)), VORN_OK);
    EXPECT_EQ(NameOf(target), "target");
    EXPECT_EQ(Read64(target.Bytes(), 16), 2u);
    EXPECT_EQ(target.Look().problem, "");
}

TEST(HeapImage, ANameThatFindsNoRoomIsReportedAndLeavesNone)
{
    TestArea source(4096);
    source.Allocate(4096 - 236);
    TestArea target(4096);
    GiveName(target, "target");
    EXPECT_EQ(Load(target.Area(), ImageOf(source)),
              VORN_E_HEAP_CORRUPT);  // the target's root is no free block
    TestArea full(4096);
    const uint64_t name = GiveName(full, "target");
    ASSERT_EQ(full.Allocate(4096 - 236 - 64), 200u);
    ASSERT_EQ(Read64(full.Bytes(), 64), 72u);
    ASSERT_NE(name, 0u);
    EXPECT_EQ(Load(full.Area(), ImageOf(source)), VORN_E_NO_MEMORY);
    EXPECT_EQ(Read64(full.Bytes(), 56), 0u);
    EXPECT_EQ(full.Look().problem, "");
}

TEST(HeapImage, ADamagedNameOfTheTargetIsReported)
{
    TestArea source(4096);
    TestArea target(4096);
    const uint64_t name = GiveName(target, "target");
    const std::vector<uint8_t> sound = target.Copy();
    for (uint64_t offset : {uint64_t{1}, uint64_t{168}, uint64_t{4096}, ~uint64_t{0}, name + 2}) {
        std::memcpy(target.Bytes(), sound.data(), sound.size());
        Write64(target.Bytes(), 56, offset);
        EXPECT_EQ(Load(target.Area(), ImageOf(source)), VORN_E_HEAP_CORRUPT) << offset;
    }
    std::memcpy(target.Bytes(), sound.data(), sound.size());
    target.Bytes()[name + 6] = 'x';  // no terminating zero left
    EXPECT_EQ(Load(target.Area(), ImageOf(source)), VORN_E_HEAP_CORRUPT);
}

TEST(HeapImage, AReadThatFailsEndsTheLoadWithItsStatus)
{
    class Failing final : public ImageSource {
    public:
        VornStatus Read(void*, uint32_t, uint32_t*) override { return VORN_E_SHARING; }
    };
    Failing source;
    TestArea target(4096);
    EXPECT_EQ(LoadHeapImage(target.Area(), 4096, source), VORN_E_SHARING);
    EXPECT_EQ(target.Look().problem, "");
}
