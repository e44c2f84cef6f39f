// Long random sequences of alloc, free and reload. After every step the bytes are judged by the checker of
// these tests, the block that was handed out by a simple model, the tree by one kept in ordinary memory.

#include "heap/heap_walk.h"
#include "heap/memory_image.h"
#include "heap/reference_tree.h"
#include "heap/test_area.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>

using namespace vorn::detail;
using namespace heap_test;

namespace {

class RandomRun {
public:
    RandomRun(uint32_t seed, uint64_t areaSize, uint64_t largestRequest)
        : random_(seed), heap_(new TestArea(areaSize)), largestRequest_(largestRequest)
    {
        seen_ = heap_->Look();
        tree_.Insert(168, heap_->Size() / 2 * 2 - 200);
    }

    void Step()
    {
        const uint32_t choice = random_() % 1000;
        if (choice < (filling_ ? 650u : 350u)) {
            Allocate();
        } else if (choice < 990) {
            Free();
        } else if (choice < 995) {
            filling_ = !filling_;
        } else {
            Reload();
        }
        if (testing::Test::HasFatalFailure()) return;
        Judge();
    }

    // Goes on in a heap that is larger by `extra` bytes and has the tree root that the image needs.
    void MoveToLargerHeap(uint64_t extra)
    {
        const uint64_t size = heap_->Size() / 2 * 2;
        const std::vector<uint8_t> image(heap_->Bytes(), heap_->Bytes() + size);
        std::unique_ptr<TestArea> larger(new TestArea(size + extra));
        Write64(larger->Bytes(), 64, seen_.root);
        ASSERT_EQ(Load(larger->Area(), image), VORN_OK);
        heap_ = std::move(larger);

        const uint64_t gap = extra / 2 * 2;
        const SeenBlock last = seen_.blocks.back();
        if (gap != 0 && !last.allocated) {
            tree_.Remove(last.offset);
            tree_.Insert(last.offset, last.size + gap);
        } else if (gap >= 64) {
            tree_.Insert(size - 32, gap);
        }
        Judge();
    }

private:
    void Judge()
    {
        seen_ = heap_->Look();
        ASSERT_EQ(seen_.problem, "");
        const HeapVerdict verdict = CheckHeap(heap_->Area());
        ASSERT_EQ(verdict.fault, HeapFault::kNone) << verdict.offset;
        CompareTree();
    }

    void Allocate()
    {
        uint64_t request = random_() % 8 == 0 ? random_() % 40 : random_() % largestRequest_;
        // Now and then exactly what a free block can hold, or a little more or less.
        if (random_() % 8 == 0 && !seen_.freeTree.empty()) {
            const SeenNode& node = seen_.freeTree[random_() % seen_.freeTree.size()];
            request = node.size - 36 - 104 + random_() % 110;
            if (node.size < 200) request = node.size - 36 + random_() % 3 - 1;
        }
        const uint64_t expected = PayloadByBestFit(seen_, request);
        uint64_t payload = 0;
        const VornStatus status = AllocateBlock(heap_->Area(), request, &payload);
        ASSERT_EQ(status, expected == 0 ? VORN_E_NO_MEMORY : VORN_OK) << request;
        if (expected == 0) return;
        ASSERT_EQ(payload, expected) << request;
        const uint8_t fill = static_cast<uint8_t>(random_());
        std::memset(heap_->Bytes() + payload, fill, request);
        live_[payload] = {request, fill};

        for (const SeenNode& node : seen_.freeTree) {
            if (payload < node.offset || payload >= node.offset + node.size) continue;
            tree_.Remove(node.offset);
            if (payload != node.offset + 32) tree_.Insert(node.offset, payload - 32 - node.offset);
        }
    }

    void Free()
    {
        if (live_.empty()) return;
        auto block = live_.begin();
        std::advance(block, random_() % live_.size());
        const auto [payload, content] = *block;
        for (uint64_t i = 0; i < content.size; ++i) {
            ASSERT_EQ(heap_->Bytes()[payload + i], content.fill) << payload;
        }
        ASSERT_EQ(ReleaseBlock(heap_->Area(), payload), VORN_OK);
        live_.erase(block);

        for (size_t i = 0; i < seen_.blocks.size(); ++i) {
            if (seen_.blocks[i].offset != payload - 32) continue;
            uint64_t start = seen_.blocks[i].offset;
            uint64_t size = seen_.blocks[i].size;
            if (i + 1 < seen_.blocks.size() && !seen_.blocks[i + 1].allocated) {
                size += seen_.blocks[i + 1].size;
                tree_.Remove(seen_.blocks[i + 1].offset);
            }
            if (i > 0 && !seen_.blocks[i - 1].allocated) {
                start = seen_.blocks[i - 1].offset;
                size += seen_.blocks[i - 1].size;
                tree_.Remove(start);
            }
            tree_.Insert(start, size);
        }
    }

    // Back into the very same heap, whose header keeps the tree root that the image was taken with.
    void Reload()
    {
        const std::vector<uint8_t> image = heap_->Copy();
        for (uint64_t i = 136; i < heap_->Size() / 2 * 2; ++i) heap_->Bytes()[i] ^= 0x5A;
        ASSERT_EQ(Load(heap_->Area(), std::vector<uint8_t>(image.begin(), image.end() - heap_->Size() % 2)),
                  VORN_OK);
        ASSERT_EQ(heap_->Copy(), image);
    }

    void CompareTree()
    {
        ASSERT_EQ(seen_.root, tree_.Root());
        ASSERT_EQ(seen_.freeTree.size(), tree_.Nodes().size());
        for (const SeenNode& node : seen_.freeTree) {
            const ReferenceTree::Node& model = tree_.Nodes().at(node.offset);
            ASSERT_EQ(node.size, model.size);
            ASSERT_EQ(node.parent, tree_.ParentOf(model)) << node.offset;
            ASSERT_EQ(node.left, model.left->offset) << node.offset;
            ASSERT_EQ(node.right, model.right->offset) << node.offset;
            ASSERT_EQ(node.colour, model.red ? 1u : 0u) << node.offset;
        }
    }

    struct Content {
        uint64_t size;
        uint8_t fill;
    };

    std::mt19937 random_;
    std::unique_ptr<TestArea> heap_;
    uint64_t largestRequest_;
    SeenHeap seen_;
    ReferenceTree tree_;
    std::map<uint64_t, Content> live_;
    bool filling_ = true;
};

void RunSteps(uint32_t seed, uint64_t areaSize, uint64_t largestRequest, int steps)
{
    RandomRun run(seed, areaSize, largestRequest);
    for (int step = 0; step < steps; ++step) {
        run.Step();
        if (testing::Test::HasFatalFailure()) {
            std::printf("seed %u, area %llu, step %d\n", seed, static_cast<unsigned long long>(areaSize),
                        step);
            return;
        }
    }
}

}  // namespace

TEST(HeapRandom, SmallBlocksKeepEveryRuleAfterEveryStep)
{
    RunSteps(20261121, 16384, 120, 20000);
}

TEST(HeapRandom, MixedBlocksKeepEveryRuleAfterEveryStep)
{
    RunSteps(4711, 65536, 900, 20000);
}

TEST(HeapRandom, ManyBlocksKeepEveryRuleAfterEveryStep)
{
    RunSteps(815, 262144, 600, 8000);
}

TEST(HeapRandom, AreasOfEverySizeRemainderKeepEveryRule)
{
    for (uint64_t size = 4000; size < 4008; ++size) {
        RunSteps(static_cast<uint32_t>(size), size, 200, 4000);
        if (HasFatalFailure()) return;
    }
}

TEST(HeapRandom, TheSmallestHeapsKeepEveryRule)
{
    for (uint64_t size = 269; size < 700; size += 7) {
        RunSteps(static_cast<uint32_t>(size), size, 80, 600);
        if (HasFatalFailure()) return;
    }
}

TEST(HeapRandom, HeapsThatMoveIntoLargerOnesKeepEveryRule)
{
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        RandomRun run(seed, 600 + seed * 50, 150);
        for (uint64_t extra = 0; extra < 200; extra += 9) {
            for (int step = 0; step < 40 && !HasFatalFailure(); ++step) run.Step();
            if (!HasFatalFailure()) run.MoveToLargerHeap(extra);
            ASSERT_FALSE(HasFatalFailure()) << "seed " << seed << ", larger by " << extra;
        }
    }
}
