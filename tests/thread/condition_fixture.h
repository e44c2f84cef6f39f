// condition_fixture.h - a condition, its mutex, and waiters of whom the test knows that they wait.
#ifndef VORN_TESTS_THREAD_CONDITION_FIXTURE_H
#define VORN_TESTS_THREAD_CONDITION_FIXTURE_H

#include "thread/sync_support.h"

#include <atomic>
#include <vector>

namespace vorn_test {

class Condition : public testing::Test {
public:
    void SetUp() override
    {
        ASSERT_EQ(VornMutexCreate(&mutex, nullptr), VORN_OK);
        ASSERT_EQ(VornConditionCreate(&condition, 0), VORN_OK);
    }
    void TearDown() override
    {
        ExpectAtRest(condition);
        EXPECT_EQ(VornConditionDestroy(&condition), VORN_OK);
        EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
    }

    void Lock() { ASSERT_EQ(VornMutexLock(&mutex), VORN_OK); }
    void Unlock() { ASSERT_EQ(VornMutexUnlock(&mutex), VORN_OK); }

    // A library thread inside a wait: counted, and with the mutex released. Join it, or its destructor does.
    class Waiter {
    public:
        explicit Waiter(Condition& test, uint32_t timeoutMs = VORN_INFINITE)
            : thread_([this, &test, timeoutMs] {
                  test.Lock();
                  holdsMutex_.Set();
                  status_ = VornConditionTimedWait(&test.condition, &test.mutex, timeoutMs);
                  test.Unlock();
                  ++test.returned;
                  test.anyReturned.Set();
              })
        {
            Await(holdsMutex_, "a waiter to begin");
            // It gives the mutex back only as a counted waiter.
            test.Lock();
            test.Unlock();
        }

        void* Join() { return thread_.Join(); }
        VornThread* Thread() const { return thread_.Thread(); }
        VornStatus Status() const { return status_; }

    private:
        Event holdsMutex_;
        std::atomic<VornStatus> status_{0xBAD};
        LibraryThread thread_;
    };

    static BOOL WINAPI RecordRelease(HANDLE semaphore, LONG count, LPLONG previous)
    {
        released.push_back(count);
        return ReleaseSemaphore(semaphore, count, previous);
    }

    VornCondition* condition = nullptr;
    VornMutex* mutex = nullptr;
    std::atomic<int> returned{0};
    Event anyReturned;
    static inline std::vector<LONG> released;  // counts of the releases that were recorded
};

}  // namespace vorn_test

#endif
