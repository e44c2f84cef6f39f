// wait_bench.cpp - conditions and read-write locks, against the operations that they cannot do without and
// against what a client would otherwise use. The peers run in the same batches, so that a busy machine slows
// both.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "paired.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

namespace {

constexpr int kOperations = 20000;

struct VornReadWrite {
    VornReadWrite() { VornRWLockCreate(&lock, 0); }
    ~VornReadWrite() { VornRWLockDestroy(&lock); }
    void lock_shared() { VornRWLockReadLock(&lock); }
    void unlock_shared() { VornRWLockUnlock(&lock); }
    void lock_exclusive() { VornRWLockWriteLock(&lock); }
    void unlock_exclusive() { VornRWLockUnlock(&lock); }
    VornRWLock* lock = nullptr;
};

struct StdSharedMutex {
    void lock_shared() { mutex.lock_shared(); }
    void unlock_shared() { mutex.unlock_shared(); }
    void lock_exclusive() { mutex.lock(); }
    void unlock_exclusive() { mutex.unlock(); }
    std::shared_mutex mutex;
};

// What the algorithm needs either way: two mutexes locked and unlocked.
struct FourExchanges {
    void lock_shared()
    {
        first.exchange(1);
        first.exchange(0);
    }
    void unlock_shared()
    {
        second.exchange(1);
        second.exchange(0);
    }
    void lock_exclusive()
    {
        first.exchange(1);
        second.exchange(1);
    }
    void unlock_exclusive()
    {
        second.exchange(0);
        first.exchange(0);
    }
    std::atomic<int> first{0};
    std::atomic<int> second{0};
};

template <class Lock>
void Read(Lock& lock)
{
    for (int i = 0; i < kOperations; ++i) {
        lock.lock_shared();
        benchmark::ClobberMemory();
        lock.unlock_shared();
    }
}

template <class Lock>
void Write(Lock& lock)
{
    for (int i = 0; i < kOperations; ++i) {
        lock.lock_exclusive();
        benchmark::ClobberMemory();
        lock.unlock_exclusive();
    }
}

template <class Peer>
void BM_ReadLock(benchmark::State& state)
{
    VornReadWrite ours;
    Peer peer;
    vorn_bench::Paired(
        state, kOperations, [&] { Read(ours); }, [&] { Read(peer); });
}
BENCHMARK(BM_ReadLock<FourExchanges>)->Name("BM_ReadLock_vorn_FourExchanges");
BENCHMARK(BM_ReadLock<StdSharedMutex>)->Name("BM_ReadLock_vorn_StdSharedMutex");

template <class Peer>
void BM_WriteLock(benchmark::State& state)
{
    VornReadWrite ours;
    Peer peer;
    vorn_bench::Paired(
        state, kOperations, [&] { Write(ours); }, [&] { Write(peer); });
}
BENCHMARK(BM_WriteLock<FourExchanges>)->Name("BM_WriteLock_vorn_FourExchanges");
BENCHMARK(BM_WriteLock<StdSharedMutex>)->Name("BM_WriteLock_vorn_StdSharedMutex");

void BM_SignalWithoutWaiter_vorn_OneExchange(benchmark::State& state)
{
    VornCondition* condition = nullptr;
    VornConditionCreate(&condition, 0);
    std::atomic<int> word{0};
    vorn_bench::Paired(
        state, kOperations,
        [&] {
            for (int i = 0; i < kOperations; ++i) VornConditionSignal(&condition);
        },
        [&] {
            for (int i = 0; i < kOperations; ++i) word.exchange(1);
        });
    VornConditionDestroy(&condition);
}
BENCHMARK(BM_SignalWithoutWaiter_vorn_OneExchange);

constexpr int kTurns = 200;

// Two threads wake each other in turn: each turn is one signal and one wake-up.
class ConditionPingPong {
public:
    ConditionPingPong()
    {
        VornMutexCreate(&mutex_, nullptr);
        for (VornCondition*& condition : conditions_) VornConditionCreate(&condition, 0);
    }
    ~ConditionPingPong()
    {
        for (VornCondition*& condition : conditions_) VornConditionDestroy(&condition);
        VornMutexDestroy(&mutex_);
    }
    void Turn(int side)
    {
        VornMutexLock(&mutex_);
        while (turn_ != side) VornConditionWait(&conditions_[side], &mutex_);
        turn_ = 1 - side;
        VornMutexUnlock(&mutex_);
        VornConditionSignal(&conditions_[1 - side]);
    }

private:
    VornMutex* mutex_ = nullptr;
    VornCondition* conditions_[2] = {};
    int turn_ = 0;
};

// The same with nothing but the kernel operations: a release and a wait for each turn.
class SemaphorePingPong {
public:
    SemaphorePingPong()
    {
        semaphores_[0] = CreateSemaphoreW(nullptr, 1, 2, nullptr);
        semaphores_[1] = CreateSemaphoreW(nullptr, 0, 2, nullptr);
    }
    ~SemaphorePingPong()
    {
        for (HANDLE semaphore : semaphores_) CloseHandle(semaphore);
    }
    void Turn(int side)
    {
        WaitForSingleObject(semaphores_[side], INFINITE);
        ReleaseSemaphore(semaphores_[1 - side], 1, nullptr);
    }

private:
    HANDLE semaphores_[2];
};

template <class PingPong>
void Play(PingPong& game)
{
    std::thread other([&] {
        for (int i = 0; i < kTurns; ++i) game.Turn(1);
    });
    for (int i = 0; i < kTurns; ++i) game.Turn(0);
    other.join();
}

void BM_SignalToWakeUp_vorn_ReleaseAndWait(benchmark::State& state)
{
    ConditionPingPong ours;
    SemaphorePingPong peer;
    vorn_bench::Paired(
        state, 2 * kTurns, [&] { Play(ours); }, [&] { Play(peer); });
}
BENCHMARK(BM_SignalToWakeUp_vorn_ReleaseAndWait)->UseRealTime();

constexpr int kItems = 2000;
constexpr int kCapacity = 8;

struct ConditionBuffer {
    ConditionBuffer()
    {
        VornMutexCreate(&mutex, nullptr);
        VornConditionCreate(&notEmpty, 0);
        VornConditionCreate(&notFull, 0);
    }
    ~ConditionBuffer()
    {
        VornConditionDestroy(&notEmpty);
        VornConditionDestroy(&notFull);
        VornMutexDestroy(&mutex);
    }
    void Put()
    {
        VornMutexLock(&mutex);
        while (count == kCapacity) VornConditionWait(&notFull, &mutex);
        ++count;
        VornMutexUnlock(&mutex);
        VornConditionSignal(&notEmpty);
    }
    void Take()
    {
        VornMutexLock(&mutex);
        while (count == 0) VornConditionWait(&notEmpty, &mutex);
        --count;
        VornMutexUnlock(&mutex);
        VornConditionSignal(&notFull);
    }
    VornMutex* mutex = nullptr;
    VornCondition* notEmpty = nullptr;
    VornCondition* notFull = nullptr;
    int count = 0;
};

// The same with a semaphore for the places and one for the items.
struct SemaphoreBuffer {
    SemaphoreBuffer()
        : places(CreateSemaphoreW(nullptr, kCapacity, kCapacity, nullptr)),
          items(CreateSemaphoreW(nullptr, 0, kCapacity, nullptr))
    {}
    ~SemaphoreBuffer()
    {
        CloseHandle(places);
        CloseHandle(items);
    }
    void Put()
    {
        WaitForSingleObject(places, INFINITE);
        ReleaseSemaphore(items, 1, nullptr);
    }
    void Take()
    {
        WaitForSingleObject(items, INFINITE);
        ReleaseSemaphore(places, 1, nullptr);
    }
    HANDLE places;
    HANDLE items;
};

template <class Buffer>
void Transfer(Buffer& buffer)
{
    std::thread consumer([&] {
        for (int i = 0; i < kItems; ++i) buffer.Take();
    });
    for (int i = 0; i < kItems; ++i) buffer.Put();
    consumer.join();
}

void BM_BoundedBuffer_vorn_ReleaseAndWait(benchmark::State& state)
{
    ConditionBuffer ours;
    SemaphoreBuffer peer;
    vorn_bench::Paired(
        state, kItems, [&] { Transfer(ours); }, [&] { Transfer(peer); });
}
BENCHMARK(BM_BoundedBuffer_vorn_ReleaseAndWait)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
