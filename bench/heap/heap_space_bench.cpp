// The smallest area in which a recorded mixed workload still finds room, for this heap and for its peer. The
// time means nothing here; the counter "bytes" is the result.

#include <vorn/vorn.h>

#include "peer_heap.h"

#include <benchmark/benchmark.h>
#include <memory>
#include <random>
#include <vector>

namespace {

// One step of the workload: free what is in the slot, then allocate `size` bytes into it (0: nothing).
struct Step {
    uint32_t slot;
    uint32_t size;
};

// Objects, short texts, some buffers: many small blocks with short lives, few large ones with long lives.
std::vector<Step> RecordWorkload(size_t slots, size_t steps)
{
    std::mt19937 random(20261123);
    std::vector<Step> workload;
    for (size_t i = 0; i < steps; ++i) {
        const uint32_t kind = random() % 100;
        Step step;
        step.slot = random() % slots;
        if (kind < 10) {
            step.size = 0;
        } else if (kind < 60) {
            step.size = 16 + random() % 112;
        } else if (kind < 90) {
            step.size = 64 + random() % 960;
        } else if (kind < 99) {
            step.size = 1024 + random() % 7168;
        } else {
            step.size = 16384 + random() % 49152;
        }
        workload.push_back(step);
    }
    return workload;
}

constexpr size_t kSlots = 1000;

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
uint64_t SmallestArea(Holds holds)
{
    constexpr uint64_t kMost = 16 << 20;
    const std::unique_ptr<char[]> memory(new char[kMost]);
    const std::vector<Step> workload = RecordWorkload(kSlots, 20000);
    uint64_t low = 1 << 16;
    uint64_t high = kMost;
    while (high - low > 1024) {
        const uint64_t middle = (low + high) / 2 / 16 * 16;
        (holds(workload, memory.get(), middle) ? high : low) = middle;
    }
    return high;
}

void BM_HeapSpace_vorn(benchmark::State& state)
{
    VornInitialize();
    for (auto _ : state) state.counters["bytes"] = static_cast<double>(SmallestArea(VornHeapHolds));
    VornTerminate();
}
void BM_HeapSpace_BoostBestFit(benchmark::State& state)
{
    for (auto _ : state) state.counters["bytes"] = static_cast<double>(SmallestArea(PeerHolds));
}

}  // namespace

BENCHMARK(BM_HeapSpace_vorn)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HeapSpace_BoostBestFit)->Iterations(1)->Unit(benchmark::kMillisecond);
