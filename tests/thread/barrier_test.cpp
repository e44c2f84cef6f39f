#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/barrier_run.h"
#include "thread/sync_support.h"

using namespace vorn_test;

TEST(BarrierCreate, RefusesASharedOneBeforeAnythingElse)
{
    VornBarrier* barrier = nullptr;
    EXPECT_EQ(VornBarrierCreate(&barrier, 2, 1), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(VornBarrierCreate(&barrier, 0, 1), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(barrier, nullptr);
}

TEST(BarrierCreate, RefusesACountOfZeroAndAnyOtherSharedValue)
{
    VornBarrier* barrier = nullptr;
    EXPECT_EQ(VornBarrierCreate(&barrier, 0, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBarrierCreate(&barrier, 2, 2), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBarrierCreate(nullptr, 2, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(barrier, nullptr);
}

TEST(BarrierCreate, ReportsEachFailureAndLeavesNothingBehind)
{
    VornBarrier* barrier = nullptr;
    LeakWatch watch;
    // The record and two semaphores, each with its record.
    EXPECT_EQ(FailEachCallInTurn(kCalloc,
                                 [&] {
                                     const VornStatus status = VornBarrierCreate(&barrier, 2, 0);
                                     EXPECT_TRUE(status == VORN_OK || status == VORN_E_NO_MEMORY);
                                     EXPECT_EQ(barrier != nullptr, status == VORN_OK);
                                     if (barrier != nullptr) VornBarrierDestroy(&barrier);
                                 }),
              3);
    EXPECT_EQ(FailEachCallInTurn(kCreateSemaphore,
                                 [&] {
                                     const VornStatus status = VornBarrierCreate(&barrier, 2, 0);
                                     EXPECT_TRUE(status == VORN_OK || status == VORN_E_SYSTEM);
                                     EXPECT_EQ(barrier != nullptr, status == VORN_OK);
                                     if (barrier != nullptr) VornBarrierDestroy(&barrier);
                                 }),
              2);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(BarrierDestroy, RefusesNullAndStoresZero)
{
    EXPECT_EQ(VornBarrierDestroy(nullptr), VORN_E_INVALID_ARG);
    VornBarrier* barrier = nullptr;
    EXPECT_EQ(VornBarrierDestroy(&barrier), VORN_E_INVALID_ARG);
    ASSERT_EQ(VornBarrierCreate(&barrier, 1, 0), VORN_OK);
    EXPECT_EQ(VornBarrierDestroy(&barrier), VORN_OK);
    EXPECT_EQ(barrier, nullptr);
    EXPECT_EQ(VornBarrierWait(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornBarrierWait(&barrier), VORN_E_INVALID_ARG);
}

TEST(BarrierDestroy, ReportsEachHandleThatCannotBeClosedAndFreesAllMemory)
{
    AllocationWatch watch;
    for (long nth = 1; nth <= 2; ++nth) {
        VornBarrier* barrier = nullptr;
        ASSERT_EQ(VornBarrierCreate(&barrier, 2, 0), VORN_OK);
        FailingCall fail(kCloseHandle, nth);
        EXPECT_EQ(VornBarrierDestroy(&barrier), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
        EXPECT_EQ(fail.Calls(), 2);
        EXPECT_EQ(barrier, nullptr);
    }
    EXPECT_EQ(watch.Live(), 0u);
}

TEST(BarrierWait, OfHeightOneNeverSleepsAndAlwaysGivesTheSerialResult)
{
    VornBarrier* barrier = nullptr;
    ASSERT_EQ(VornBarrierCreate(&barrier, 1, 0), VORN_OK);
    FailingCall waits(kWaitForSingleObject, 0);
    FailingCall releases(kReleaseSemaphore, 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(VornBarrierWait(&barrier), VORN_BARRIER_SERIAL_THREAD);
    EXPECT_EQ(waits.Calls(), 0);
    EXPECT_EQ(releases.Calls(), 0);
    EXPECT_EQ(VornBarrierDestroy(&barrier), VORN_OK);
}

TEST(BarrierWait, TheSerialResultIsTheNumberThatClientsKnow)
{
    EXPECT_EQ(VORN_BARRIER_SERIAL_THREAD, 0xFFFFFFFEu);
}

TEST(BarrierWait, OfHeightThreeReleasesAllTogetherAndCanBeUsedAgainAtOnce)
{
    VornBarrier* barrier = nullptr;
    ASSERT_EQ(VornBarrierCreate(&barrier, 3, 0), VORN_OK);
    std::atomic<int> left{0};
    std::atomic<int> serial{0};
    Event go;
    const auto body = [&](bool waits) {
        for (int phase = 0; phase < 2; ++phase) {
            if (waits) Await(go, "the third thread's turn");
            const VornStatus status = VornBarrierWait(&barrier);
            EXPECT_TRUE(status == VORN_OK || status == VORN_BARRIER_SERIAL_THREAD);
            serial += status == VORN_BARRIER_SERIAL_THREAD ? 1 : 0;
            ++left;
        }
    };
    LibraryThread first([&] { body(false); });
    LibraryThread second([&] { body(false); });
    LibraryThread third([&] { body(true); });
    Sleep(30);
    EXPECT_EQ(left.load(), 0) << "two of three have arrived";
    go.Set();
    first.Join();
    second.Join();
    third.Join();
    EXPECT_EQ(left.load(), 6);
    EXPECT_EQ(serial.load(), 2);
    EXPECT_EQ(VornBarrierDestroy(&barrier), VORN_OK);
}

TEST(BarrierWait, ReleasesTheOthersAtOnce)
{
    static std::atomic<long> released;
    static std::atomic<int> calls;
    released = 0;
    calls = 0;
    VornBarrier* barrier = nullptr;
    ASSERT_EQ(VornBarrierCreate(&barrier, 4, 0), VORN_OK);
    {
        ImportRedirect redirect(
            "ReleaseSemaphore", +[](HANDLE semaphore, LONG count, LPLONG previous) -> BOOL {
                released += count;
                ++calls;
                return ReleaseSemaphore(semaphore, count, previous);
            });
        LibraryThread a([&] { VornBarrierWait(&barrier); });
        LibraryThread b([&] { VornBarrierWait(&barrier); });
        LibraryThread c([&] { VornBarrierWait(&barrier); });
        VornBarrierWait(&barrier);
    }
    EXPECT_EQ(calls.load(), 1);
    EXPECT_EQ(released.load(), 3);
    EXPECT_EQ(VornBarrierDestroy(&barrier), VORN_OK);
}

TEST(BarrierWait, IsNoCancellationPoint)
{
    VornBarrier* barrier = nullptr;
    ASSERT_EQ(VornBarrierCreate(&barrier, 2, 0), VORN_OK);
    Event passed;
    LibraryThread waiter([&] {
        VornBarrierWait(&barrier);
        passed.Set();
        VornThreadTestCancel();
        ADD_FAILURE() << "the request was lost";
    });
    EXPECT_EQ(VornThreadCancel(waiter.Thread()), VORN_OK);
    EXPECT_FALSE(passed.Wait(30));
    VornBarrierWait(&barrier);
    Await(passed, "the waiter");
    EXPECT_EQ(waiter.Join(), kCancelledValue);
    EXPECT_EQ(VornBarrierDestroy(&barrier), VORN_OK);
}

TEST(BarrierWait, ReportsAFailedWaitAndAFailedRelease)
{
    VornBarrier* barrier = nullptr;
    ASSERT_EQ(VornBarrierCreate(&barrier, 2, 0), VORN_OK);
    {
        FailingCall fail(kWaitForSingleObject);
        EXPECT_EQ(VornBarrierWait(&barrier), VORN_E_SYSTEM);
    }
    {
        // The first arrival still counts, so this one is the last.
        FailingCall fail(kReleaseSemaphore);
        EXPECT_EQ(VornBarrierWait(&barrier), VORN_E_SYSTEM);
    }
    EXPECT_EQ(VornBarrierDestroy(&barrier), VORN_OK);
}

TEST(BarrierStress, NobodyLeavesAPhaseBeforeAllHaveArrived)
{
    EXPECT_EQ(BarrierRun(8, 10000), "");
}
