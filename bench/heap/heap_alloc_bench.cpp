// Random allocation and freeing of 16 to 515 bytes with a fixed number of live blocks. One iteration frees
// one block and allocates another.

#include <vorn/vorn.h>

#include "paired.h"
#include "peer_heap.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <new>
#include <vector>

namespace {

constexpr uint64_t kBytesPerBlock = 600;

class Requests {
public:
    uint32_t Slot(size_t slots) { return static_cast<uint32_t>(Next() * uint64_t{slots} >> 32); }
    uint32_t Size() { return 16 + (Next() >> 16) % 500; }

private:
    uint32_t Next()
    {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return static_cast<uint32_t>(state_ >> 32);
    }
    uint64_t state_ = 20261121;
};

struct Memory {
    explicit Memory(size_t size) : bytes(static_cast<char*>(::operator new (size, std::align_val_t{64}))) {}
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    ~Memory() { ::operator delete (bytes, std::align_val_t{64}); }
    char* bytes;
};

// A heap with `live` blocks in it, and what one iteration does to it.
class VornRun {
public:
    VornRun(size_t live, int locking)
        : memory_(live * kBytesPerBlock + 65536),
          heap_(VornHeapCreateLocal(memory_.bytes, live * kBytesPerBlock + 65536, locking)),
          blocks_(live)
    {
        for (uint64_t& block : blocks_) block = VornHeapAlloc(heap_, requests_.Size());
        for (size_t i = 0; i < 4 * live; ++i) Step();
    }
    ~VornRun() { VornHeapDestroy(heap_); }

    void Step()
    {
        uint64_t& block = blocks_[requests_.Slot(blocks_.size())];
        VornHeapFree(heap_, block);
        block = VornHeapAlloc(heap_, requests_.Size());
        if (block == 0) std::abort();
    }

    // Has the library look at one block's guard word and at nothing else: no block starts two bytes later.
    void LookAtOneGuard()
    {
        if (VornHeapFree(heap_, blocks_[requests_.Slot(blocks_.size())] + 2) != VORN_E_INVALID_ARG) {
            std::abort();
        }
    }

private:
    Memory memory_;
    VornHeap* heap_;
    Requests requests_;
    std::vector<uint64_t> blocks_;
};

template <class Peer>
class PeerRun {
public:
    explicit PeerRun(size_t live)
        : memory_(live * kBytesPerBlock + 65536),
          heap_(boost::interprocess::create_only, memory_.bytes, live * kBytesPerBlock + 65536),
          blocks_(live)
    {
        for (void*& block : blocks_) block = heap_.allocate(requests_.Size(), std::nothrow);
        for (size_t i = 0; i < 4 * live; ++i) Step();
    }

    void Step()
    {
        void*& block = blocks_[requests_.Slot(blocks_.size())];
        heap_.deallocate(block);
        block = heap_.allocate(requests_.Size(), std::nothrow);
        if (block == nullptr) std::abort();
    }

private:
    Memory memory_;
    Peer heap_;
    Requests requests_;
    std::vector<void*> blocks_;
};

constexpr int kBatch = 10000;

template <class Run>
auto BatchOf(Run& run)
{
    return [&run] {
        for (int i = 0; i < kBatch; ++i) run.Step();
    };
}

template <class Peer>
void AgainstPeer(benchmark::State& state, int locking)
{
    VornInitialize();
    {
        VornRun ours(static_cast<size_t>(state.range(0)), locking);
        PeerRun<Peer> peer(static_cast<size_t>(state.range(0)));
        vorn_bench::Paired(state, kBatch, BatchOf(ours), BatchOf(peer));
    }
    VornTerminate();
}

void BM_HeapAllocFreeUnlocked_vorn_over_BoostBestFit(benchmark::State& state)
{
    AgainstPeer<heap_bench::UnlockedPeer>(state, 0);
}
void BM_HeapAllocFreeLocked_vorn_over_BoostBestFit(benchmark::State& state)
{
    AgainstPeer<heap_bench::LockedPeer>(state, 1);
}
void BM_HeapAllocFree100000Live_over_1000Live(benchmark::State& state)
{
    VornInitialize();
    {
        VornRun many(100000, 0);
        VornRun few(1000, 0);
        vorn_bench::Paired(state, kBatch, BatchOf(many), BatchOf(few));
    }
    VornTerminate();
}

// The share of the memory in the figure above. Among 30 MB of blocks the first look at any one misses the
// caches, and a free has three places to look at: the block's header, the end marker with the next header,
// and the header before.
void BM_HeapLookAtOneGuard100000Live_over_1000Live(benchmark::State& state)
{
    VornInitialize();
    {
        VornRun many(100000, 0);
        VornRun few(1000, 0);
        const auto looks = [](VornRun& run) {
            return [&run] {
                for (int i = 0; i < kBatch; ++i) run.LookAtOneGuard();
            };
        };
        vorn_bench::Paired(state, kBatch, looks(many), looks(few));
    }
    VornTerminate();
}

}  // namespace

BENCHMARK(BM_HeapAllocFreeUnlocked_vorn_over_BoostBestFit)->Arg(1000)->Arg(100000);
BENCHMARK(BM_HeapAllocFreeLocked_vorn_over_BoostBestFit)->Arg(1000)->Arg(100000);
BENCHMARK(BM_HeapAllocFree100000Live_over_1000Live);
BENCHMARK(BM_HeapLookAtOneGuard100000Live_over_1000Live);

BENCHMARK_MAIN();
