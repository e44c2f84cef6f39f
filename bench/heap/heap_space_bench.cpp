// The smallest area in which recorded workloads still find room, for this heap and for its peer. The time
// means nothing here; the counters are the result.

#include <vorn/vorn.h>

#include "peer_heap.h"

#include <benchmark/benchmark.h>
#include <iterator>
#include <memory>
#include <random>
#include <vector>

namespace {

// One step of the workload: free what is in the slot, then allocate `size` bytes into it (0: nothing).
struct Step {
    uint32_t slot;
    uint32_t size;
};

using Random = std::mt19937;

uint32_t Between(Random& random, uint32_t low, uint32_t high)
{
    return low + static_cast<uint32_t>(random()) % (high - low);
}

// Small records and texts alone: what lies around each block counts most.
uint32_t SmallSize(Random& random)
{
    return Between(random, 16, 516);
}

// Objects, texts, some buffers: many small blocks with few large ones among them.
uint32_t MixedSize(Random& random)
{
    const uint32_t kind = Between(random, 0, 90);
    if (kind < 50) return Between(random, 16, 128);
    if (kind < 80) return Between(random, 64, 1024);
    if (kind < 89) return Between(random, 1024, 8192);
    return Between(random, 16384, 65536);
}

// Buffers alone: what counts is where the blocks are put.
uint32_t BufferSize(Random& random)
{
    return Between(random, 1024, 66560);
}

struct Kind {
    const char* name;
    uint32_t (*size)(Random& random);
};
constexpr Kind kKinds[] = {{"small", &SmallSize}, {"mixed", &MixedSize}, {"buffers", &BufferSize}};

std::vector<Step> RecordWorkload(const Kind& kind, uint32_t seed, size_t slots, size_t steps)
{
    Random random(seed);
    std::vector<Step> workload;
    for (size_t i = 0; i < steps; ++i) {
        const uint32_t slot = Between(random, 0, static_cast<uint32_t>(slots));
        const bool leavesEmpty = Between(random, 0, 10) == 0;
        workload.push_back({slot, leavesEmpty ? 0 : kind.size(random)});
    }
    return workload;
}

constexpr size_t kSlots = 1000;
constexpr size_t kSteps = 20000;

bool VornHeapHolds(const std::vector<Step>& workload, char* memory, uint64_t size)
{
    VornHeap* heap = VornHeapCreateLocal(memory, size, 0);
    std::vector<uint64_t> blocks(kSlots);
    bool fits = true;
    for (const Step& step : workload) {
        VornHeapFree(heap, blocks[step.slot]);
        blocks[step.slot] = step.size == 0 ? 0 : VornHeapAlloc(heap, step.size);
        if (step.size != 0 && blocks[step.slot] == 0) {
            fits = false;
            break;
        }
    }
    VornHeapDestroy(heap);
    return fits;
}

bool PeerHolds(const std::vector<Step>& workload, char* memory, size_t size)
{
    heap_bench::UnlockedPeer heap(boost::interprocess::create_only, memory, size);
    std::vector<void*> blocks(kSlots);
    for (const Step& step : workload) {
        if (blocks[step.slot] != nullptr) heap.deallocate(blocks[step.slot]);
        blocks[step.slot] = step.size == 0 ? nullptr : heap.allocate(step.size, std::nothrow);
        if (step.size != 0 && blocks[step.slot] == nullptr) return false;
    }
    return true;
}

template <class Holds>
uint64_t SmallestArea(const std::vector<Step>& workload, Holds holds)
{
    constexpr uint64_t kMost = 64 << 20;
    const std::unique_ptr<char[]> memory(new char[kMost]);
    uint64_t low = 1 << 16;
    uint64_t high = kMost;
    while (high - low > 1024) {
        const uint64_t middle = (low + high) / 2 / 16 * 16;
        (holds(workload, memory.get(), middle) ? high : low) = middle;
    }
    return high;
}

// What a workload holds at its fullest moment: the least that any heap must have room for.
struct Fullest {
    uint64_t bytes = 0;
    uint64_t blocks = 0;
};

Fullest FullestMoment(const std::vector<Step>& workload)
{
    std::vector<uint32_t> sizes(kSlots);
    Fullest now, fullest;
    for (const Step& step : workload) {
        now.bytes += uint64_t{step.size} - sizes[step.slot];
        now.blocks += uint64_t{step.size != 0} - uint64_t{sizes[step.slot] != 0};
        sizes[step.slot] = step.size;
        if (now.bytes > fullest.bytes) fullest = now;
    }
    return fullest;
}

// Where the last few blocks find room is chance, a per cent or two of the whole: several recordings of each
// kind are added up. The counters: the smallest areas of each heap in bytes, their ratio, and how many per
// cent each is more than was asked for at the fullest moments.
void BM_HeapSpace_vorn_over_BoostBestFit(benchmark::State& state)
{
    constexpr uint32_t kRecordings = 10;
    const Kind& kind = kKinds[state.range(0)];
    VornInitialize();
    for (auto _ : state) {
        double ours = 0, peer = 0, asked = 0, blocks = 0;
        for (uint32_t seed = 1; seed <= kRecordings; ++seed) {
            const std::vector<Step> workload = RecordWorkload(kind, seed, kSlots, kSteps);
            const Fullest fullest = FullestMoment(workload);
            asked += static_cast<double>(fullest.bytes);
            blocks += static_cast<double>(fullest.blocks);
            ours += static_cast<double>(SmallestArea(workload, VornHeapHolds));
            peer += static_cast<double>(SmallestArea(workload, PeerHolds));
        }
        state.counters["bytes"] = ours;
        state.counters["yardstick_bytes"] = peer;
        state.counters["ratio"] = ours / peer;
        state.counters["extra_percent"] = (ours / asked - 1) * 100;
        state.counters["yardstick_extra_percent"] = (peer / asked - 1) * 100;
        state.counters["mean_size"] = asked / blocks;
    }
    VornTerminate();
    state.SetLabel(kind.name);
}

}  // namespace

BENCHMARK(BM_HeapSpace_vorn_over_BoostBestFit)
    ->DenseRange(0, static_cast<int>(std::size(kKinds)) - 1)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
