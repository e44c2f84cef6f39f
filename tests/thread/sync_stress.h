// sync_stress.h - many threads over one object, with invariants that are checked all the time. For the tests,
// with small numbers, and for the soak programs. Each run prints nothing and returns what was wrong, or "".
#ifndef VORN_TESTS_THREAD_SYNC_STRESS_H
#define VORN_TESTS_THREAD_SYNC_STRESS_H

#include "thread/sync_support.h"

#include <memory>
#include <string>
#include <vector>

namespace vorn_test {

// xorshift; each thread has its own, made from the printed seed.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 1) {}
    uint32_t Below(uint32_t limit)
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return static_cast<uint32_t>(state_ >> 33) % limit;
    }

private:
    uint64_t state_;
};

// A bounded buffer between producers and consumers, some of whom wait with short time-outs; `cancelled` more
// consumers are cancelled in the middle of it. Every item must come out exactly once.
inline std::string BoundedBufferRun(int producers, int consumers, int cancelled, uint32_t items,
                                    uint64_t seed)
{
    constexpr uint32_t kCapacity = 8;
    struct Shared {
        VornMutex* mutex = VORN_MUTEX_INITIALIZER;
        VornCondition* notEmpty = VORN_CONDITION_INITIALIZER;
        VornCondition* notFull = VORN_CONDITION_INITIALIZER;
        uint32_t slots[kCapacity];
        uint32_t count = 0, head = 0, produced = 0, consumed = 0, items = 0;
        std::vector<uint8_t> seen;  // how often each item came out
        std::atomic<int> wrong{0};

        void Check(bool holds)
        {
            if (!holds) ++wrong;
        }
        // Needs the mutex. False when all items are through.
        bool AwaitItem(Random& random)
        {
            while (count == 0 && consumed < items) {
                const uint32_t timeoutMs = random.Below(3) == 0 ? random.Below(3) : VORN_INFINITE;
                const VornStatus status = VornConditionTimedWait(&notEmpty, &mutex, timeoutMs);
                Check(status == VORN_OK || (status == VORN_E_TIMEOUT && timeoutMs != VORN_INFINITE));
            }
            return count > 0;
        }
        void Take()
        {
            ++seen[slots[head]];
            head = (head + 1) % kCapacity;
            --count;
            // At the end everybody who waits for more is told.
            if (++consumed == items) {
                Check(VornConditionBroadcast(&notEmpty) == VORN_OK);
            }
            Check(VornConditionSignal(&notFull) == VORN_OK);
        }
        void Consume(Random& random)
        {
            for (bool more = true; more;) {
                Check(VornMutexLock(&mutex) == VORN_OK);
                more = AwaitItem(random);
                if (more) Take();
                Check(VornMutexUnlock(&mutex) == VORN_OK);
            }
        }
        void Produce(Random& random)
        {
            for (bool more = true; more;) {
                Check(VornMutexLock(&mutex) == VORN_OK);
                while (count == kCapacity) {
                    const uint32_t timeoutMs = random.Below(3) == 0 ? random.Below(3) : VORN_INFINITE;
                    const VornStatus status = VornConditionTimedWait(&notFull, &mutex, timeoutMs);
                    Check(status == VORN_OK || (status == VORN_E_TIMEOUT && timeoutMs != VORN_INFINITE));
                }
                more = produced < items;
                if (more) {
                    slots[(head + count) % kCapacity] = produced++;
                    ++count;
                    Check(VornConditionSignal(&notEmpty) == VORN_OK);
                } else {
                    // The place is left to another producer, who learns the same.
                    Check(VornConditionSignal(&notFull) == VORN_OK);
                }
                Check(VornMutexUnlock(&mutex) == VORN_OK);
            }
        }
        static void Unlock(void* self) { VornMutexUnlock(&static_cast<Shared*>(self)->mutex); }
        // Waits as a consumer does, and passes every wake-up on; ends by being cancelled, or with the others.
        void WaitToBeCancelled(Random& random)
        {
            for (bool more = true; more;) {
                Check(VornMutexLock(&mutex) == VORN_OK);
                VornThreadCleanupPush(&Unlock, this);
                more = AwaitItem(random);
                if (more) Take();
                VornThreadCleanupPop(1);
            }
        }
    };

    Shared shared;
    shared.items = items;
    shared.seen.resize(items);
    {
        std::vector<std::unique_ptr<LibraryThread>> threads;
        std::vector<std::unique_ptr<LibraryThread>> doomed;
        uint64_t number = seed;
        const auto start = [&](auto& list, void (Shared::*body)(Random&)) {
            list.push_back(std::make_unique<LibraryThread>([&shared, body, own = ++number] {
                Random random(own);
                (shared.*body)(random);
            }));
        };
        for (int i = 0; i < cancelled; ++i) start(doomed, &Shared::WaitToBeCancelled);
        for (int i = 0; i < consumers; ++i) start(threads, &Shared::Consume);
        for (int i = 0; i < producers; ++i) start(threads, &Shared::Produce);
        for (int i = 0; i < cancelled; ++i) {
            // Spread over the run.
            for (bool due = false; !due;) {
                VornMutexLock(&shared.mutex);
                due = shared.consumed >=
                      items / static_cast<uint32_t>(cancelled + 1) * static_cast<uint32_t>(i);
                VornMutexUnlock(&shared.mutex);
                if (!due) Sleep(1);
            }
            VornThreadCancel(doomed[static_cast<size_t>(i)]->Thread());
        }
    }
    uint32_t lost = 0;
    uint32_t doubled = 0;
    for (uint8_t times : shared.seen) {
        lost += times == 0 ? 1 : 0;
        doubled += times > 1 ? 1 : 0;
    }
    for (VornCondition** condition : {&shared.notEmpty, &shared.notFull}) {
        if (*condition != VORN_CONDITION_INITIALIZER) ExpectAtRest(*condition);
        shared.Check(VornConditionDestroy(condition) == VORN_OK);
    }
    shared.Check(VornMutexDestroy(&shared.mutex) == VORN_OK);
    if (lost == 0 && doubled == 0 && shared.wrong == 0) return "";
    return "seed " + std::to_string(seed) + ": " + std::to_string(lost) + " lost, " +
           std::to_string(doubled) + " doubled, " + std::to_string(shared.wrong.load()) + " wrong results";
}

// Readers and writers over a record of which every word follows from the first. Some only try.
inline std::string ReadersAndWritersRun(int readers, int writers, int rounds, uint64_t seed)
{
    VornRWLock* lock = VORN_RWLOCK_INITIALIZER;
    constexpr size_t kWords = 64;
    volatile uint64_t record[kWords] = {};
    std::atomic<int> wrong{0};
    std::atomic<int> inside{0};
    std::atomic<uint64_t> written{0};
    Event start;
    const auto check = [&](bool holds) {
        if (!holds) ++wrong;
    };
    {
        std::vector<std::unique_ptr<LibraryThread>> threads;
        for (int r = 0; r < readers; ++r) {
            threads.push_back(std::make_unique<LibraryThread>([&, own = seed + static_cast<uint64_t>(r)] {
                Random random(own);
                Await(start, "the start");
                for (int i = 0; i < rounds; ++i) {
                    const bool tries = random.Below(4) == 0;
                    const VornStatus status =
                        tries ? VornRWLockTryReadLock(&lock) : VornRWLockReadLock(&lock);
                    check(status == VORN_OK || (tries && status == VORN_E_BUSY));
                    if (status != VORN_OK) continue;
                    ++inside;
                    // Somebody else finds the lock taken.
                    if (random.Below(32) == 0) VornThreadYield();
                    for (size_t w = 0; w < kWords; ++w) check(record[w] == record[0] * (w + 1));
                    --inside;
                    check(VornRWLockUnlock(&lock) == VORN_OK);
                }
            }));
        }
        for (int w = 0; w < writers; ++w) {
            threads.push_back(
                std::make_unique<LibraryThread>([&, own = seed + 1000 + static_cast<uint64_t>(w)] {
                    Random random(own);
                    Await(start, "the start");
                    for (int i = 0; i < rounds; ++i) {
                        const bool tries = random.Below(4) == 0;
                        const VornStatus status =
                            tries ? VornRWLockTryWriteLock(&lock) : VornRWLockWriteLock(&lock);
                        check(status == VORN_OK || (tries && status == VORN_E_BUSY));
                        if (status != VORN_OK) continue;
                        check(inside == 0);
                        if (random.Below(32) == 0) VornThreadYield();
                        const uint64_t value = record[0] + 1;
                        for (size_t word = 0; word < kWords; ++word) record[word] = value * (word + 1);
                        ++written;
                        check(VornRWLockUnlock(&lock) == VORN_OK);
                    }
                }));
        }
        start.Set();
    }
    check(record[0] == written);
    check(VornRWLockDestroy(&lock) == VORN_OK);
    if (wrong == 0) return "";
    return "seed " + std::to_string(seed) + ": " + std::to_string(wrong.load()) + " wrong";
}

// Waiters with every kind of time-out under signals and broadcasts. The tokens that
// are handed out under the mutex must all be taken, and nobody may be left asleep at the end.
inline std::string WakeUpRun(int waiters, uint32_t tokens, uint64_t seed)
{
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    VornCondition* condition = VORN_CONDITION_INITIALIZER;
    VornCondition* drained = VORN_CONDITION_INITIALIZER;
    uint32_t available = 0;
    uint32_t taken = 0;
    std::atomic<int> wrong{0};
    const auto check = [&](bool holds) {
        if (!holds) ++wrong;
    };
    {
        std::vector<std::unique_ptr<LibraryThread>> threads;
        for (int t = 0; t < waiters; ++t) {
            threads.push_back(std::make_unique<LibraryThread>([&, own = seed + static_cast<uint64_t>(t)] {
                Random random(own);
                check(VornMutexLock(&mutex) == VORN_OK);
                while (taken < tokens) {
                    if (available > 0) {
                        if (--available == 0) check(VornConditionSignal(&drained) == VORN_OK);
                        if (++taken == tokens) check(VornConditionBroadcast(&condition) == VORN_OK);
                        continue;
                    }
                    const uint32_t timeoutMs = random.Below(2) == 0 ? random.Below(2) : VORN_INFINITE;
                    const VornStatus status = VornConditionTimedWait(&condition, &mutex, timeoutMs);
                    check(status == VORN_OK || (status == VORN_E_TIMEOUT && timeoutMs != VORN_INFINITE));
                }
                check(VornMutexUnlock(&mutex) == VORN_OK);
            }));
        }
        Random random(seed + 5000);
        for (uint32_t given = 0; given < tokens;) {
            const uint32_t count = random.Below(8) == 0 ? 3 : 1;
            const uint32_t now = count < tokens - given ? count : tokens - given;
            check(VornMutexLock(&mutex) == VORN_OK);
            // One handful at a time, so that the others have reason to wait.
            while (available > 0) check(VornConditionWait(&drained, &mutex) == VORN_OK);
            available += now;
            given += now;
            check(VornMutexUnlock(&mutex) == VORN_OK);
            // Exactly as many wake-ups as tokens: a lost one would leave its token behind for ever.
            if (now == 3 && random.Below(2) == 0) {
                check(VornConditionBroadcast(&condition) == VORN_OK);
            } else {
                for (uint32_t i = 0; i < now; ++i) check(VornConditionSignal(&condition) == VORN_OK);
            }
        }
    }
    check(taken == tokens && available == 0);
    if (condition != VORN_CONDITION_INITIALIZER) ExpectAtRest(condition);
    check(VornConditionDestroy(&condition) == VORN_OK);
    check(VornConditionDestroy(&drained) == VORN_OK);
    check(VornMutexDestroy(&mutex) == VORN_OK);
    if (wrong == 0) return "";
    return "seed " + std::to_string(seed) + ": " + std::to_string(wrong.load()) + " wrong";
}

}  // namespace vorn_test

#endif
