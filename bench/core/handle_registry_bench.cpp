// handle_registry_bench.cpp - what validating a handle costs beside an uncontended lock and unlock, and how
// that grows with the number of live handles. The registry's code is compiled in; its mutex is the module's.

#include <vorn/sync.h>

#include "core/handle_registry.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <random>
#include <vector>

using vorn::detail::HandleRegistry;

namespace {

void BM_Validate_vorn(benchmark::State& state)
{
    HandleRegistry registry;
    std::vector<void*> records(static_cast<size_t>(state.range(0)));
    for (void*& record : records) {
        record = std::malloc(64);
        registry.Register(record);
    }
    // A client asks for its handles in no order that the processor could foresee.
    std::mt19937 random(1);
    std::vector<void*> asked(1 << 14);
    for (void*& handle : asked) handle = records[random() % records.size()];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(registry.Contains(asked[i]));
        i = (i + 1) & (asked.size() - 1);
    }
    for (void* record : records) std::free(record);
}
BENCHMARK(BM_Validate_vorn)->Arg(10)->Arg(10000)->Arg(100000);

void BM_LockUnlock_vorn(benchmark::State& state)
{
    VornMutex* mutex = nullptr;
    VornMutexCreate(&mutex, nullptr);
    for (auto _ : state) {
        VornMutexLock(&mutex);
        VornMutexUnlock(&mutex);
    }
    VornMutexDestroy(&mutex);
}
BENCHMARK(BM_LockUnlock_vorn);

}  // namespace

BENCHMARK_MAIN();
