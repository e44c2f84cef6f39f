// sync_bench.cpp - atomics and mutexes against what a client would otherwise use. The peers run in the same
// batches, so that a busy machine slows both.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "paired.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr int kOperations = 20000;

struct VornLock {
    explicit VornLock(uint32_t kind)
    {
        const VornMutexAttr attr = {kind, 0};
        VornMutexCreate(&mutex, &attr);
    }
    ~VornLock() { VornMutexDestroy(&mutex); }
    void lock() { VornMutexLock(&mutex); }
    void unlock() { VornMutexUnlock(&mutex); }
    VornMutex* mutex = nullptr;
};

struct NormalLock : VornLock {
    NormalLock() : VornLock(VORN_MUTEX_NORMAL) {}
};

struct RecursiveLock : VornLock {
    RecursiveLock() : VornLock(VORN_MUTEX_RECURSIVE) {}
};

struct CriticalSection {
    CriticalSection() { InitializeCriticalSection(&section); }
    ~CriticalSection() { DeleteCriticalSection(&section); }
    void lock() { EnterCriticalSection(&section); }
    void unlock() { LeaveCriticalSection(&section); }
    CRITICAL_SECTION section;
};

struct SlimLock {
    void lock() { AcquireSRWLockExclusive(&slim); }
    void unlock() { ReleaseSRWLockExclusive(&slim); }
    SRWLOCK slim = SRWLOCK_INIT;
};

// The least that a lock and an unlock need.
struct TwoExchanges {
    void lock() { word.exchange(1); }
    void unlock() { word.exchange(0); }
    std::atomic<int> word{0};
};

template <class Lock>
void LockAndUnlock(Lock& lock)
{
    for (int i = 0; i < kOperations; ++i) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}

template <class Ours, class Peer>
void BM_MutexLock_vorn_against(benchmark::State& state)
{
    Ours ours;
    Peer peer;
    vorn_bench::Paired(
        state, kOperations, [&] { LockAndUnlock(ours); }, [&] { LockAndUnlock(peer); });
}
BENCHMARK(BM_MutexLock_vorn_against<NormalLock, TwoExchanges>)->Name("BM_MutexLock_vorn_TwoExchanges");
BENCHMARK(BM_MutexLock_vorn_against<NormalLock, CriticalSection>)->Name("BM_MutexLock_vorn_CriticalSection");
BENCHMARK(BM_MutexLock_vorn_against<NormalLock, SlimLock>)->Name("BM_MutexLock_vorn_SRWLock");
BENCHMARK(BM_MutexLock_vorn_against<NormalLock, std::mutex>)->Name("BM_MutexLock_vorn_StdMutex");
BENCHMARK(BM_MutexLock_vorn_against<RecursiveLock, std::recursive_mutex>)
    ->Name("BM_MutexRecursive_vorn_StdRecursiveMutex");

// Four threads, each with a short section and some work outside it; long enough for their creation not to
// count.
constexpr int kThreads = 4;
constexpr int kContendedOperations = 400000;

template <class Lock>
void Contend(Lock& lock)
{
    static int64_t shared;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&lock] {
            for (int i = 0; i < kContendedOperations / kThreads; ++i) {
                lock.lock();
                for (int k = 0; k < 10; ++k) benchmark::DoNotOptimize(shared += k);
                lock.unlock();
                for (int k = 0; k < 20; ++k) benchmark::DoNotOptimize(k);
            }
        });
    }
    for (std::thread& t : threads) t.join();
}

void BM_MutexContended4_vorn_CriticalSection(benchmark::State& state)
{
    NormalLock ours;
    CriticalSection peer;
    vorn_bench::Paired(
        state, kContendedOperations, [&] { Contend(ours); }, [&] { Contend(peer); });
}
BENCHMARK(BM_MutexContended4_vorn_CriticalSection)->UseRealTime();

void BM_AtomicAdd_vorn_Builtin(benchmark::State& state)
{
    int32_t ours = 0;
    int32_t peer = 0;
    vorn_bench::Paired(
        state, kOperations,
        [&] {
            for (int i = 0; i < kOperations; ++i) VornAtomicAdd32(&ours, 1);
        },
        [&] {
            for (int i = 0; i < kOperations; ++i) __atomic_fetch_add(&peer, 1, __ATOMIC_SEQ_CST);
        });
}
BENCHMARK(BM_AtomicAdd_vorn_Builtin);

void BM_AtomicCompareExchange_vorn_Builtin(benchmark::State& state)
{
    int32_t ours = 0;
    int32_t peer = 0;
    vorn_bench::Paired(
        state, kOperations,
        [&] {
            for (int i = 0; i < kOperations; ++i) VornAtomicCompareExchange32(&ours, i + 1, i);
        },
        [&] {
            for (int i = 0; i < kOperations; ++i) {
                int32_t expected = i;
                __atomic_compare_exchange_n(&peer, &expected, i + 1, false, __ATOMIC_SEQ_CST,
                                            __ATOMIC_SEQ_CST);
            }
        });
}
BENCHMARK(BM_AtomicCompareExchange_vorn_Builtin);

}  // namespace

BENCHMARK_MAIN();
