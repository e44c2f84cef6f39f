// thread_bench.cpp - identity, thread-specific data, once, and the life of a thread, against the system's
// own.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "paired.h"

#include <benchmark/benchmark.h>
#include <mutex>

namespace {

constexpr int kOperations = 20000;

void BM_ThreadSelf_vorn_TlsGetValue(benchmark::State& state)
{
    const DWORD slot = TlsAlloc();
    TlsSetValue(slot, &state);
    VornThreadSelf();
    vorn_bench::Paired(
        state, kOperations,
        [&] {
            for (int i = 0; i < kOperations; ++i) benchmark::DoNotOptimize(VornThreadSelf());
        },
        [&] {
            for (int i = 0; i < kOperations; ++i) benchmark::DoNotOptimize(TlsGetValue(slot));
        });
    TlsFree(slot);
}
BENCHMARK(BM_ThreadSelf_vorn_TlsGetValue);

void BM_ThreadGetSpecific_vorn_TlsGetValue(benchmark::State& state)
{
    const DWORD slot = TlsAlloc();
    TlsSetValue(slot, &state);
    VornThreadKey* key = nullptr;
    VornThreadKeyCreate(&key, nullptr);
    VornThreadSetSpecific(key, &state);
    vorn_bench::Paired(
        state, kOperations,
        [&] {
            for (int i = 0; i < kOperations; ++i) benchmark::DoNotOptimize(VornThreadGetSpecific(key));
        },
        [&] {
            for (int i = 0; i < kOperations; ++i) benchmark::DoNotOptimize(TlsGetValue(slot));
        });
    VornThreadKeyDelete(key);
    TlsFree(slot);
}
BENCHMARK(BM_ThreadGetSpecific_vorn_TlsGetValue);

void Nothing() {}

void BM_OnceDone_vorn_AcquireLoad(benchmark::State& state)
{
    VornOnce once = VORN_ONCE_INIT;
    VornThreadOnce(&once, &Nothing);
    vorn_bench::Paired(
        state, kOperations,
        [&] {
            for (int i = 0; i < kOperations; ++i) VornThreadOnce(&once, &Nothing);
        },
        [&] {
            for (int i = 0; i < kOperations; ++i) {
                benchmark::DoNotOptimize(__atomic_load_n(&once.done, __ATOMIC_ACQUIRE));
            }
        });
}
BENCHMARK(BM_OnceDone_vorn_AcquireLoad);

void BM_OnceDone_vorn_StdCallOnce(benchmark::State& state)
{
    VornOnce once = VORN_ONCE_INIT;
    std::once_flag flag;
    VornThreadOnce(&once, &Nothing);
    std::call_once(flag, &Nothing);
    vorn_bench::Paired(
        state, kOperations,
        [&] {
            for (int i = 0; i < kOperations; ++i) VornThreadOnce(&once, &Nothing);
        },
        [&] {
            for (int i = 0; i < kOperations; ++i) std::call_once(flag, &Nothing);
        });
}
BENCHMARK(BM_OnceDone_vorn_StdCallOnce);

void BM_CreateJoin_vorn_CreateThreadWaitClose(benchmark::State& state)
{
    constexpr int kThreads = 20;
    vorn_bench::Paired(
        state, kThreads,
        [] {
            for (int i = 0; i < kThreads; ++i) {
                VornThread* thread = nullptr;
                VornThreadCreate(
                    &thread, nullptr, [](void* p) { return p; }, nullptr);
                VornThreadJoin(thread, nullptr);
            }
        },
        [] {
            for (int i = 0; i < kThreads; ++i) {
                const HANDLE thread = CreateThread(
                    nullptr, 0, [](void*) -> DWORD { return 0; }, nullptr, 0, nullptr);
                WaitForSingleObject(thread, INFINITE);
                CloseHandle(thread);
            }
        });
}
BENCHMARK(BM_CreateJoin_vorn_CreateThreadWaitClose)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
