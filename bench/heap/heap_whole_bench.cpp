// What is done with a heap as a whole: the check against a plain pass over the same headers, saving and
// loading against one WriteFile and one ReadFile of the same bytes.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "paired.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr uint64_t kSize = 64 << 20;
constexpr wchar_t kFile[] = L"heap_bench.image";

// 500,000 blocks, every tenth of them free again.
class BigHeap {
public:
    BigHeap() : memory(new char[kSize])
    {
        VornInitialize();
        heap = VornHeapCreateLocal(memory.get(), kSize, 0);
        std::vector<uint64_t> blocks;
        for (int i = 0; i < 500000; ++i) blocks.push_back(VornHeapAlloc(heap, 50 + i % 93));
        for (size_t i = 0; i < blocks.size(); i += 10) VornHeapFree(heap, blocks[i]);
    }
    ~BigHeap()
    {
        VornHeapDestroy(heap);
        VornTerminate();
    }

    uint64_t Word(uint64_t offset) const
    {
        uint64_t value;
        std::memcpy(&value, memory.get() + offset, sizeof value);
        return value;
    }

    std::unique_ptr<char[]> memory;
    VornHeap* heap;
};

BigHeap& Heap()
{
    static BigHeap heap;
    return heap;
}

void CheckOnce()
{
    if (VornHeapCheck(Heap().heap) != VORN_OK) std::abort();
}

void PassOnce()
{
    const BigHeap& heap = Heap();
    uint64_t sum = 0;
    for (uint64_t block = 136; block < kSize; block = heap.Word(block) & ~uint64_t{1}) {
        sum += heap.Word(block + 8) ^ heap.Word(block + 16) ^ heap.Word(block + 24);
    }
    benchmark::DoNotOptimize(sum);
}

void SaveOnce()
{
    if (VornHeapSave(Heap().heap, kFile) != VORN_OK) std::abort();
}

void WriteOnce()
{
    HANDLE file =
        CreateFileW(kFile, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    WriteFile(file, Heap().memory.get(), kSize, &written, nullptr);
    CloseHandle(file);
    if (written != kSize) std::abort();
}

void LoadOnce()
{
    if (VornHeapLoad(Heap().heap, kFile) != VORN_OK) std::abort();
}

void ReadOnce()
{
    HANDLE file = CreateFileW(kFile, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD read = 0;
    ReadFile(file, Heap().memory.get(), kSize, &read, nullptr);
    CloseHandle(file);
    if (read != kSize) std::abort();
    // The image was taken by a call that counted itself as inside.
    std::memset(Heap().memory.get() + 36, 0, 4);
}

void BM_HeapCheck_vorn_over_PlainPass(benchmark::State& state)
{
    Heap();
    vorn_bench::Paired(state, 1, CheckOnce, PassOnce);
}

void BM_HeapSave_vorn_over_WriteFile(benchmark::State& state)
{
    Heap();
    vorn_bench::Paired(state, 1, SaveOnce, WriteOnce);
    DeleteFileW(kFile);
}

void BM_HeapLoad_vorn_over_ReadFile(benchmark::State& state)
{
    SaveOnce();
    vorn_bench::Paired(state, 1, LoadOnce, ReadOnce);
    DeleteFileW(kFile);
}

}  // namespace

BENCHMARK(BM_HeapCheck_vorn_over_PlainPass)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HeapSave_vorn_over_WriteFile)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HeapLoad_vorn_over_ReadFile)->Unit(benchmark::kMillisecond);
