#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/condition_fixture.h"

#include <atomic>
#include <memory>
#include <vector>

using namespace vorn_test;

TEST(ConditionCreate, RefusesASharedOneAndBadArguments)
{
    VornCondition* condition = nullptr;
    EXPECT_EQ(VornConditionCreate(&condition, 1), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(VornConditionCreate(nullptr, 1), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(VornConditionCreate(&condition, 2), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionCreate(&condition, 0xFFFFFFFF), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionCreate(nullptr, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(condition, nullptr);
}

TEST(ConditionCreate, StartsAtRest)
{
    VornCondition* condition = nullptr;
    ASSERT_EQ(VornConditionCreate(&condition, 0), VORN_OK);
    EXPECT_EQ(condition->waitersBlocked.load(), 0);
    EXPECT_EQ(condition->waitersGone, 0);
    ExpectAtRest(condition);
    EXPECT_EQ(VornConditionDestroy(&condition), VORN_OK);
    EXPECT_EQ(condition, nullptr);
}

TEST(ConditionCreate, ReportsEachFailureAndLeavesNothingBehind)
{
    VornCondition* const untouched = reinterpret_cast<VornCondition*>(0x1234);
    const auto attempt = [&](VornStatus failure) {
        VornCondition* condition = untouched;
        const VornStatus status = VornConditionCreate(&condition, 0);
        if (status == VORN_OK) {
            EXPECT_EQ(VornConditionDestroy(&condition), VORN_OK);
        } else {
            EXPECT_EQ(status, failure);
            EXPECT_EQ(condition, untouched);
        }
    };
    attempt(VORN_OK);
    LeakWatch watch;
    // The record, two semaphores and a mutex, each with its record.
    EXPECT_EQ(FailEachCallInTurn(kCalloc, [&] { attempt(VORN_E_NO_MEMORY); }), 4);
    EXPECT_EQ(FailEachCallInTurn(kCreateSemaphore, [&] { attempt(VORN_E_SYSTEM); }), 2);
    EXPECT_EQ(FailEachCallInTurn(kCreateEvent, [&] { attempt(VORN_E_SYSTEM); }), 1);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ConditionArguments, NullAndDestroyedAreRefused)
{
    VornCondition* condition = nullptr;
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    VornCondition* usable = VORN_CONDITION_INITIALIZER;
    EXPECT_EQ(VornConditionWait(nullptr, &mutex), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionWait(&condition, &mutex), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionWait(&usable, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionTimedWait(nullptr, &mutex, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionTimedWait(&usable, nullptr, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionSignal(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionBroadcast(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionBroadcast(&condition), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionDestroy(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornConditionDestroy(&condition), VORN_E_INVALID_ARG);
    EXPECT_EQ(mutex, VORN_MUTEX_INITIALIZER);
    EXPECT_EQ(usable, VORN_CONDITION_INITIALIZER);
}

TEST(ConditionInitializer, SignalAndBroadcastSucceedAndDoNotCreate)
{
    VornCondition* condition = VORN_CONDITION_INITIALIZER;
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
    EXPECT_EQ(condition, VORN_CONDITION_INITIALIZER);
}

TEST(ConditionInitializer, DestroyStoresZero)
{
    VornCondition* condition = VORN_CONDITION_INITIALIZER;
    EXPECT_EQ(VornConditionDestroy(&condition), VORN_OK);
    EXPECT_EQ(condition, nullptr);
}

TEST(ConditionInitializer, TheFirstWaitCreates)
{
    VornCondition* condition = VORN_CONDITION_INITIALIZER;
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    ASSERT_EQ(VornMutexLock(&mutex), VORN_OK);
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 1), VORN_E_TIMEOUT);
    EXPECT_NE(condition, VORN_CONDITION_INITIALIZER);
    EXPECT_NE(condition, nullptr);
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornConditionDestroy(&condition), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

TEST(ConditionInitializer, AFailedCreationIsReportedAndCanBeRepeated)
{
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    ASSERT_EQ(VornMutexLock(&mutex), VORN_OK);
    VornCondition* condition = VORN_CONDITION_INITIALIZER;
    {
        FailingCall fail(kCalloc);
        EXPECT_EQ(VornConditionWait(&condition, &mutex), VORN_E_NO_MEMORY);
    }
    {
        FailingCall fail(kCreateSemaphore, 2);
        EXPECT_EQ(VornConditionWait(&condition, &mutex), VORN_E_SYSTEM);
    }
    EXPECT_EQ(condition, VORN_CONDITION_INITIALIZER);
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY) << "the caller still holds it";
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 0), VORN_E_TIMEOUT);
    EXPECT_EQ(VornConditionDestroy(&condition), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

namespace {

// What another thread stores in the variable while the caller is on its way to the lock of first uses.
VornCondition** meanwhileVariable;
VornCondition* meanwhileValue;

void WINAPI StoreThenEnter(CRITICAL_SECTION* section)
{
    if (meanwhileVariable != nullptr) *meanwhileVariable = meanwhileValue;
    EnterCriticalSection(section);
}

}  // namespace

TEST(ConditionInitializer, AWaitThatFindsItDestroyedMeanwhileIsRefused)
{
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    ASSERT_EQ(VornMutexLock(&mutex), VORN_OK);
    VornCondition* condition = VORN_CONDITION_INITIALIZER;
    meanwhileVariable = &condition;
    meanwhileValue = nullptr;
    {
        ImportRedirect redirect("EnterCriticalSection", &StoreThenEnter);
        EXPECT_EQ(VornConditionWait(&condition, &mutex), VORN_E_INVALID_ARG);
    }
    EXPECT_EQ(condition, nullptr);
    condition = VORN_CONDITION_INITIALIZER;
    {
        ImportRedirect redirect("EnterCriticalSection", &StoreThenEnter);
        EXPECT_EQ(VornConditionDestroy(&condition), VORN_E_INVALID_ARG);
    }
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

TEST(ConditionInitializer, OneThatWasCreatedMeanwhileIsUsedAndDestroyed)
{
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    ASSERT_EQ(VornMutexLock(&mutex), VORN_OK);
    VornCondition* created = nullptr;
    ASSERT_EQ(VornConditionCreate(&created, 0), VORN_OK);
    VornCondition* condition = VORN_CONDITION_INITIALIZER;
    meanwhileVariable = &condition;
    meanwhileValue = created;
    {
        ImportRedirect redirect("EnterCriticalSection", &StoreThenEnter);
        EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 0), VORN_E_TIMEOUT);
        EXPECT_EQ(condition, created);
        EXPECT_EQ(created->waitersGone, 1);
        condition = VORN_CONDITION_INITIALIZER;
        EXPECT_EQ(VornConditionDestroy(&condition), VORN_OK);
    }
    EXPECT_EQ(condition, nullptr);
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

TEST(ConditionInitializer, RacingWaitersCreateOneCondition)
{
    for (int round = 0; round < 100; ++round) {
        VornCondition* condition = VORN_CONDITION_INITIALIZER;
        std::atomic<int> ready{0};
        VornCondition* seen[2] = {};
        const auto body = [&](int index) {
            VornMutex* mutex = VORN_MUTEX_INITIALIZER;
            VornMutexLock(&mutex);
            for (++ready; ready.load() < 2;) YieldProcessor();
            EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 0), VORN_E_TIMEOUT);
            seen[index] = condition;
            VornMutexUnlock(&mutex);
            VornMutexDestroy(&mutex);
        };
        {
            LibraryThread first([&] { body(0); });
            LibraryThread second([&] { body(1); });
        }
        ASSERT_EQ(seen[0], seen[1]);
        EXPECT_EQ(condition->waitersGone, 2);
        ASSERT_EQ(VornConditionDestroy(&condition), VORN_OK);
    }
}

TEST_F(Condition, SignalWithoutAWaiterChangesNothing)
{
    FailingCall releases(kReleaseSemaphore, 0);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
    EXPECT_EQ(releases.Calls(), 0);
    // Also not for a waiter that starts afterwards.
    Lock();
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 20), VORN_E_TIMEOUT);
    Unlock();
    // And not where everybody who waited has gone.
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
    EXPECT_EQ(releases.Calls(), 0);
}

TEST_F(Condition, AnExpiredWaitHoldsTheMutexAgainAndCountsItselfAsGone)
{
    Lock();
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 5), VORN_E_TIMEOUT);
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY);
    EXPECT_EQ(condition->waitersBlocked.load(), 1);
    EXPECT_EQ(condition->waitersGone, 1);
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 0), VORN_E_TIMEOUT);
    EXPECT_EQ(condition->waitersBlocked.load(), 2);
    EXPECT_EQ(condition->waitersGone, 2);
    Unlock();
}

TEST_F(Condition, ATimedWaitLastsAsLongAsAsked)
{
    Lock();
    const double start = Milliseconds();
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 60), VORN_E_TIMEOUT);
    EXPECT_GE(Milliseconds() - start, 60 - kClockTick);
    Unlock();
}

TEST_F(Condition, SignalWakesExactlyOne)
{
    Waiter a(*this);
    Waiter b(*this);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    Await(anyReturned, "one waiter");
    EXPECT_EQ(returned.load(), 1);
    EXPECT_EQ(condition->waitersBlocked.load() - condition->waitersGone, 1);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    a.Join();
    b.Join();
    EXPECT_EQ(a.Status(), VORN_OK);
    EXPECT_EQ(b.Status(), VORN_OK);
}

TEST_F(Condition, SignalMayBeSentWithTheMutexHeld)
{
    Waiter waiter(*this);
    Lock();
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    EXPECT_EQ(returned.load(), 0);
    Unlock();
    waiter.Join();
    EXPECT_EQ(waiter.Status(), VORN_OK);
}

TEST_F(Condition, AWaitThatTheMutexIsHeldBeyondItsTimeStillReportsTheTimeOut)
{
    Lock();
    LibraryThread thread([&] {
        Lock();
        EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 1), VORN_E_TIMEOUT);
        Unlock();
    });
    Unlock();
    thread.Join();
}

TEST_F(Condition, BroadcastWakesAllWithOneRelease)
{
    for (int count : {1, 3, 8}) {
        std::vector<std::unique_ptr<Waiter>> waiters;
        for (int i = 0; i < count; ++i) waiters.push_back(std::make_unique<Waiter>(*this));
        released.clear();
        {
            ImportRedirect redirect("ReleaseSemaphore", &RecordRelease);
            EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
            for (auto& waiter : waiters) waiter->Join();
        }
        ASSERT_EQ(released.size(), 1u);
        EXPECT_EQ(released[0], count);
        for (auto& waiter : waiters) EXPECT_EQ(waiter->Status(), VORN_OK);
        ExpectAtRest(condition);
    }
}

TEST_F(Condition, WaitersMayBeThreadsThatTheLibraryDidNotStart)
{
    std::atomic<int> woken{0};
    Event counted;
    ForeignThread foreign([&] {
        Lock();
        counted.Set();
        EXPECT_EQ(VornConditionWait(&condition, &mutex), VORN_OK);
        ++woken;
        Unlock();
    });
    Await(counted, "the foreign thread");
    Lock();
    Unlock();
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    foreign.Join();
    EXPECT_EQ(woken.load(), 1);
}

TEST_F(Condition, WorksWithARecursiveAndAnErrorCheckingMutex)
{
    for (uint32_t kind : {VORN_MUTEX_RECURSIVE, VORN_MUTEX_ERRORCHECK}) {
        const VornMutexAttr attr = {kind, 0};
        VornMutex* other = nullptr;
        ASSERT_EQ(VornMutexCreate(&other, &attr), VORN_OK);
        ASSERT_EQ(VornMutexLock(&other), VORN_OK);
        EXPECT_EQ(VornConditionTimedWait(&condition, &other, 1), VORN_E_TIMEOUT);
        EXPECT_EQ(VornMutexUnlock(&other), VORN_OK) << "the caller holds it again";
        EXPECT_EQ(VornMutexUnlock(&other), VORN_E_NOT_PERMITTED);
        EXPECT_EQ(VornMutexDestroy(&other), VORN_OK);
    }
}

TEST_F(Condition, AFailureToUnlockTheMutexIsReportedAndNothingIsWaitedFor)
{
    const VornMutexAttr attr = {VORN_MUTEX_ERRORCHECK, 0};
    VornMutex* other = nullptr;
    ASSERT_EQ(VornMutexCreate(&other, &attr), VORN_OK);
    EXPECT_EQ(VornConditionWait(&condition, &other), VORN_E_NOT_PERMITTED);
    // The mutex is locked on every path.
    EXPECT_EQ(VornMutexUnlock(&other), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&other), VORN_OK);
    VornMutex* none = nullptr;
    EXPECT_EQ(VornConditionWait(&condition, &none), VORN_E_INVALID_ARG);
    VornMutex* unused = VORN_MUTEX_INITIALIZER;
    EXPECT_EQ(VornConditionWait(&condition, &unused), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornMutexUnlock(&unused), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&unused), VORN_OK);
}

TEST_F(Condition, AThreadThatBeginsToWaitDuringADeliveryIsNotWokenByIt)
{
    Event atGate;
    Event lateSleeps;
    Event holdWoken;
    HANDLE const queue = condition->blockQueue->native;
    HANDLE const gate = condition->gate->native;
    std::atomic<int> sleepers{0};
    {
        WaitInterception interception(
            [&](DWORD count, const HANDLE* objects, DWORD timeoutMs, WaitInterception::Original original) {
                if (objects[0] == gate) atGate.Set();
                const bool early = objects[0] == queue && ++sleepers <= 3;
                if (objects[0] == queue && !early) lateSleeps.Set();
                const DWORD result = original(count, objects, FALSE, timeoutMs);
                if (early) Await(holdWoken, "the woken waiters' turn");
                return result;
            });
        Waiter a(*this);
        Waiter b(*this);
        Waiter c(*this);
        while (sleepers.load() < 3) Sleep(1);
        EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
        EXPECT_EQ(condition->waitersToUnblock, 3);
        VornStatus late = VORN_OK;
        LibraryThread fourth([&] {
            Lock();
            late = VornConditionTimedWait(&condition, &mutex, 60);
            Unlock();
        });
        Await(atGate, "the fourth thread at the gate");
        EXPECT_EQ(condition->waitersBlocked.load(), 0);
        EXPECT_FALSE(lateSleeps.IsSet());
        holdWoken.Set();
        a.Join();
        b.Join();
        c.Join();
        fourth.Join();
        EXPECT_EQ(a.Status(), VORN_OK);
        EXPECT_EQ(b.Status(), VORN_OK);
        EXPECT_EQ(c.Status(), VORN_OK);
        EXPECT_EQ(late, VORN_E_TIMEOUT);
    }
}

TEST_F(Condition, SignalsDuringADeliveryAddToIt)
{
    Event holdWoken;
    HANDLE const queue = condition->blockQueue->native;
    WaitInterception interception(
        [&](DWORD count, const HANDLE* objects, DWORD timeoutMs, WaitInterception::Original original) {
            const DWORD result = original(count, objects, FALSE, timeoutMs);
            if (objects[0] == queue) Await(holdWoken, "the woken waiters' turn");
            return result;
        });
    Waiter a(*this);
    Waiter b(*this);
    Waiter c(*this);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    EXPECT_EQ(condition->waitersToUnblock, 1);
    EXPECT_EQ(condition->waitersBlocked.load(), 2);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    EXPECT_EQ(condition->waitersToUnblock, 2);
    EXPECT_EQ(condition->waitersBlocked.load(), 1);
    EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
    EXPECT_EQ(condition->waitersToUnblock, 3);
    EXPECT_EQ(condition->waitersBlocked.load(), 0);
    // Nobody is left to be woken.
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
    EXPECT_EQ(condition->waitersToUnblock, 3);
    holdWoken.Set();
}

TEST_F(Condition, SoManyGoneWaitersAreFoldedBack)
{
    // As if so many had timed out before.
    condition->waitersBlocked = 0x3FFFFFFE + 5;
    condition->waitersGone = 0x3FFFFFFE;
    Lock();
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 0), VORN_E_TIMEOUT);
    Unlock();
    EXPECT_EQ(condition->waitersGone, 0);
    EXPECT_EQ(condition->waitersBlocked.load(), 5);
    EXPECT_EQ(condition->gateWord.load(), 0);
    condition->waitersBlocked = 0;
}

TEST_F(Condition, ASignalTakesGoneWaitersOutOfTheCount)
{
    Lock();
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 0), VORN_E_TIMEOUT);
    Unlock();
    Waiter waiter(*this);
    EXPECT_EQ(condition->waitersBlocked.load(), 2);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    waiter.Join();
    EXPECT_EQ(waiter.Status(), VORN_OK);
    EXPECT_EQ(condition->waitersBlocked.load(), 0);
    EXPECT_EQ(condition->waitersGone, 0);
}

TEST_F(Condition, DestroyWithAWaiterIsRefusedAndLeavesItUsable)
{
    Waiter waiter(*this);
    EXPECT_EQ(VornConditionDestroy(&condition), VORN_E_BUSY);
    EXPECT_EQ(condition->gateWord.load(), 0);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    waiter.Join();
    EXPECT_EQ(waiter.Status(), VORN_OK);
}

TEST_F(Condition, DestroyWithTheUnblockLockHeldIsRefused)
{
    ASSERT_EQ(VornMutexLock(&condition->unblockLock), VORN_OK);
    EXPECT_EQ(VornConditionDestroy(&condition), VORN_E_BUSY);
    EXPECT_EQ(condition->gateWord.load(), 0);
    EXPECT_EQ(VornMutexUnlock(&condition->unblockLock), VORN_OK);
}

TEST_F(Condition, DestroyWithAThreadAtTheGateIsRefused)
{
    condition->arriving = 1;
    EXPECT_EQ(VornConditionDestroy(&condition), VORN_E_BUSY);
    condition->arriving = 0;
}

TEST_F(Condition, DestroyFreesEverythingAndReportsWhatTheSystemRefused)
{
    AllocationWatch watch;
    // The gate, the queue, the event of the mutex (whose failure the mutex does not report).
    for (long nth = 1; nth <= 2; ++nth) {
        VornCondition* doomed = nullptr;
        ASSERT_EQ(VornConditionCreate(&doomed, 0), VORN_OK);
        FailingCall fail(kCloseHandle, nth);
        EXPECT_EQ(VornConditionDestroy(&doomed), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
        EXPECT_EQ(doomed, nullptr);
    }
    EXPECT_EQ(watch.Live(), 0u);
}

TEST_F(Condition, MayBeDestroyedAsSoonAsEverybodyHasBeenWoken)
{
    for (int round = 0; round < 150; ++round) {
        VornCondition* shortLived = nullptr;
        ASSERT_EQ(VornConditionCreate(&shortLived, 0), VORN_OK);
        int waiting = 0;
        const auto body = [&] {
            Lock();
            ++waiting;
            EXPECT_EQ(VornConditionWait(&shortLived, &mutex), VORN_OK);
            Unlock();
        };
        LibraryThread a(body);
        LibraryThread b(body);
        LibraryThread c(body);
        for (bool all = false; !all;) {
            Lock();
            all = waiting == 3;
            Unlock();
            if (!all) Sleep(0);
        }
        ASSERT_EQ(VornConditionBroadcast(&shortLived), VORN_OK);
        // Waits for the delivery, and for the last steps of the woken threads.
        ASSERT_EQ(VornConditionDestroy(&shortLived), VORN_OK);
    }
}
