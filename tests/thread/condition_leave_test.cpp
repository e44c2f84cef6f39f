// Waiters that leave by time-out, failure or cancellation while a wake-up is on its way. The tests hold a
// waiter inside its wait, let the wake-up be promised, and then choose how the wait ends.
#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/condition_fixture.h"

#include <functional>

using namespace vorn_test;

namespace {

class ConditionLeave : public Condition {
protected:
    // A library thread whose wait on the queue begins, and then ends as the test says, without a look at the
    // queue. Others wait as usual.
    class HeldWaiter {
    public:
        explicit HeldWaiter(ConditionLeave& test)
            : thread_([this, &test] {
                  test.Lock();
                  test.heldThread = GetCurrentThreadId();
                  status_ = VornConditionTimedWait(&test.condition, &test.mutex, VORN_INFINITE);
                  test.Unlock();
              })
        {
            Await(test.inWait, "the held waiter");
        }
        void* Join() { return thread_.Join(); }
        VornThread* Thread() const { return thread_.Thread(); }
        VornStatus Status() const { return status_; }

    private:
        std::atomic<VornStatus> status_{0xBAD};
        LibraryThread thread_;
    };

    void SetUp() override
    {
        Condition::SetUp();
        interception = std::make_unique<WaitInterception>(
            [this](DWORD count, const HANDLE* objects, DWORD timeoutMs, WaitInterception::Original original) {
                if (objects[0] != condition->blockQueue->native) {
                    return original(count, objects, FALSE, timeoutMs);
                }
                if (GetCurrentThreadId() != heldThread) {
                    if (holdOthers) {
                        otherInWait.Set();
                        Await(otherLeave, "the other waiter's turn");
                    }
                    return original(count, objects, FALSE, timeoutMs);
                }
                inWait.Set();
                Await(leave, "the held waiter's turn");
                return endsWith.load();
            });
    }
    void TearDown() override
    {
        interception.reset();
        Condition::TearDown();
    }

    void LetLeave(DWORD result)
    {
        endsWith = result;
        leave.Set();
    }

    std::atomic<DWORD> heldThread{0};
    std::atomic<DWORD> endsWith{0};
    Event inWait;
    Event leave;
    std::atomic<bool> holdOthers{false};  // keeps them from looking at the queue
    Event otherInWait;
    Event otherLeave;
    std::unique_ptr<WaitInterception> interception;
};

constexpr DWORD kCancelEvent = WAIT_OBJECT_0 + 1;

}  // namespace

TEST_F(ConditionLeave, ATimeOutThatMeetsItsWakeUpTakesItAndReportsSuccess)
{
    HeldWaiter waiter(*this);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    LetLeave(WAIT_TIMEOUT);
    waiter.Join();
    EXPECT_EQ(waiter.Status(), VORN_OK);
    EXPECT_EQ(condition->waitersGone, 0);
    // Nothing is left for a waiter that comes later.
    Lock();
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 20), VORN_E_TIMEOUT);
    Unlock();
}

TEST_F(ConditionLeave, ATimeOutWhileTheWakeUpIsAnotherOnesReportsTheTimeOut)
{
    HeldWaiter held(*this);
    Waiter other(*this);
    ASSERT_EQ(VornConditionSignal(&condition), VORN_OK);
    other.Join();
    EXPECT_EQ(other.Status(), VORN_OK);
    LetLeave(WAIT_TIMEOUT);
    held.Join();
    EXPECT_EQ(held.Status(), VORN_E_TIMEOUT);
}

TEST_F(ConditionLeave, ATimeOutDuringADeliveryWhosePermitIsTakenIsCountedOut)
{
    HeldWaiter held(*this);
    Waiter other(*this);
    // The delivery of one wake-up has begun and its permit is taken, but its taker is not there yet.
    ASSERT_EQ(VornMutexLock(&condition->unblockLock), VORN_OK);
    condition->gateWord = 1;
    condition->waitersBlocked = 1;
    condition->waitersToUnblock = 1;
    ASSERT_EQ(VornMutexUnlock(&condition->unblockLock), VORN_OK);
    LetLeave(WAIT_TIMEOUT);
    held.Join();
    EXPECT_EQ(held.Status(), VORN_E_TIMEOUT);
    EXPECT_EQ(condition->waitersBlocked.load(), 0);
    EXPECT_EQ(condition->waitersToUnblock, 1);
    EXPECT_EQ(condition->gateWord.load(), 1);
    EXPECT_TRUE(ReleaseSemaphore(condition->blockQueue->native, 1, nullptr));
    other.Join();
    EXPECT_EQ(other.Status(), VORN_OK);
}

TEST_F(ConditionLeave, ATimeOutDuringABroadcastReportsSuccessLikeEverybodyElse)
{
    HeldWaiter held(*this);
    Waiter other(*this);
    EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
    other.Join();
    EXPECT_EQ(condition->waitersToUnblock, 1);
    EXPECT_EQ(condition->gateWord.load(), 1) << "closed until everybody has left";
    LetLeave(WAIT_TIMEOUT);
    held.Join();
    EXPECT_EQ(other.Status(), VORN_OK);
    EXPECT_EQ(held.Status(), VORN_OK);
}

TEST_F(ConditionLeave, ACancelledWaiterLeavesItsWakeUpToAnotherWaiter)
{
    HeldWaiter held(*this);
    EXPECT_EQ(VornThreadCancel(held.Thread()), VORN_OK);
    holdOthers = true;
    Waiter other(*this);
    Await(otherInWait, "the other waiter");
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    LetLeave(kCancelEvent);
    EXPECT_EQ(held.Join(), kCancelledValue);
    EXPECT_EQ(condition->waitersToUnblock, 1);
    EXPECT_EQ(condition->waitersBlocked.load(), 0);
    otherLeave.Set();
    // The mutex was locked by the cancelled thread's handler and nobody has unlocked it.
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY);
    Unlock();
    other.Join();
    EXPECT_EQ(other.Status(), VORN_OK);
}

TEST_F(ConditionLeave, ACancelledWaiterTakesItsWakeUpAlongWhereNobodyElseWaits)
{
    HeldWaiter held(*this);
    EXPECT_EQ(VornThreadCancel(held.Thread()), VORN_OK);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    LetLeave(kCancelEvent);
    EXPECT_EQ(held.Join(), kCancelledValue);
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY);
    Unlock();
    Lock();
    EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 20), VORN_E_TIMEOUT);
    Unlock();
}

TEST_F(ConditionLeave, ACancelledWaiterOfABroadcastLeavesTheOthersTheirs)
{
    HeldWaiter held(*this);
    Waiter a(*this);
    Waiter b(*this);
    EXPECT_EQ(VornThreadCancel(held.Thread()), VORN_OK);
    EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
    a.Join();
    b.Join();
    LetLeave(kCancelEvent);
    EXPECT_EQ(held.Join(), kCancelledValue);
    Unlock();
    EXPECT_EQ(a.Status(), VORN_OK);
    EXPECT_EQ(b.Status(), VORN_OK);
}

TEST_F(ConditionLeave, AFailedWaitIsReportedAndPassesItsWakeUpOn)
{
    HeldWaiter held(*this);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    LetLeave(WAIT_FAILED);
    held.Join();
    EXPECT_EQ(held.Status(), VORN_E_SYSTEM);
}

TEST_F(ConditionLeave, AFailedWaitOutsideOfADeliveryIsCountedAsGone)
{
    HeldWaiter held(*this);
    LetLeave(WAIT_FAILED);
    held.Join();
    EXPECT_EQ(held.Status(), VORN_E_SYSTEM);
    EXPECT_EQ(condition->waitersGone, 1);
}

namespace {

struct CancelledInWait {
    Condition* test = nullptr;
    Event inHandler;
    std::atomic<VornStatus> tryInHandler{0xBAD};
};

// A client's handler, pushed before the wait: the mutex is held when it runs, and it gives it back.
void UnlockInHandler(void* argument)
{
    auto* const cancelled = static_cast<CancelledInWait*>(argument);
    cancelled->tryInHandler = VornMutexTryLock(&cancelled->test->mutex);
    VornMutexUnlock(&cancelled->test->mutex);
    cancelled->inHandler.Set();
}

}  // namespace

class ConditionCancel : public Condition {
protected:
    // Runs a wait in a thread that is then cancelled inside it.
    void CancelInWait(const std::function<void()>& before)
    {
        CancelledInWait state;
        state.test = this;
        Event holdsMutex;
        LibraryThread thread([&] {
            before();
            VornThreadCleanupPush(&UnlockInHandler, &state);
            Lock();
            holdsMutex.Set();
            // A copy of the handle that goes with the stack.
            VornMutex* copy = mutex;
            VornConditionWait(&condition, &copy);
            ADD_FAILURE() << "the wait returned";
        });
        Await(holdsMutex, "the waiter");
        Lock();
        Unlock();
        EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
        EXPECT_EQ(thread.Join(), kCancelledValue);
        EXPECT_TRUE(state.inHandler.IsSet());
        EXPECT_EQ(state.tryInHandler.load(), VORN_E_BUSY) << "held when the client's handler ran";
        EXPECT_EQ(condition->waitersGone, 1);
        Lock();
        Unlock();
    }
};

TEST_F(ConditionCancel, ADeferredRequestEndsTheWaitWithTheMutexHeldInTheHandlers)
{
    CancelInWait([] {});
}

TEST_F(ConditionCancel, AThreadOfTheAsynchronousTypeIsCancelledInTheWaitJustTheSame)
{
    CancelInWait([] { EXPECT_EQ(VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr), VORN_OK); });
}

TEST_F(ConditionCancel, AThreadOfTheAsynchronousTypeKeepsItsTypeAfterAWait)
{
    LibraryThread thread([&] {
        EXPECT_EQ(VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr), VORN_OK);
        Lock();
        EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 1), VORN_E_TIMEOUT);
        Unlock();
        EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
        uint32_t type = 7;
        EXPECT_EQ(VornThreadSetCancelType(VORN_CANCEL_DEFERRED, &type), VORN_OK);
        EXPECT_EQ(type, static_cast<uint32_t>(VORN_CANCEL_ASYNCHRONOUS));
    });
    EXPECT_EQ(thread.Join(), nullptr);
}

TEST_F(ConditionCancel, WithCancellationDisabledARequestDoesNotEndTheWait)
{
    Event holdsMutex;
    VornStatus status = 0xBAD;
    LibraryThread thread([&] {
        VornThreadSetCancelState(VORN_CANCEL_DISABLE, nullptr);
        Lock();
        holdsMutex.Set();
        status = VornConditionWait(&condition, &mutex);
        Unlock();
        VornThreadSetCancelState(VORN_CANCEL_ENABLE, nullptr);
        VornThreadTestCancel();
        ADD_FAILURE() << "the request was lost";
    });
    Await(holdsMutex, "the waiter");
    Lock();
    Unlock();
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    EXPECT_EQ(thread.Join(), kCancelledValue);
    EXPECT_EQ(status, VORN_OK);
}

TEST_F(ConditionCancel, AnAdoptedThreadEndsAtOnceAndIsCountedOut)
{
    Event holdsMutex;
    std::atomic<VornThread*> record{nullptr};
    ForeignThread thread([&] {
        record = VornThreadSelf();
        Lock();
        holdsMutex.Set();
        VornConditionWait(&condition, &mutex);
        ADD_FAILURE() << "the wait returned";
    });
    Await(holdsMutex, "the waiter");
    Lock();
    Unlock();
    EXPECT_EQ(VornThreadCancel(record), VORN_OK);
    EXPECT_EQ(thread.Join(), 0xFFFFFFFFu);
    EXPECT_EQ(condition->waitersBlocked.load(), 1);
    EXPECT_EQ(condition->waitersGone, 1);
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY) << "locked again by the handler";
    Unlock();
}

TEST_F(ConditionCancel, AThreadThatIsCancelledAtTheGateWasNeverCounted)
{
    condition->gateWord = 1;  // as during a delivery
    CancelledInWait state;
    state.test = this;
    Event atGate;
    {
        WaitInterception interception(
            [&](DWORD count, const HANDLE* objects, DWORD timeoutMs, WaitInterception::Original original) {
                const bool isGate = objects[0] == condition->gate->native;
                // The gate's first permit only makes the thread look again.
                const DWORD result = original(count, objects, FALSE, isGate ? 0 : timeoutMs);
                if (!isGate || result != WAIT_TIMEOUT) return result;
                atGate.Set();
                return original(count, objects, FALSE, timeoutMs);
            });
        LibraryThread thread([&] {
            VornThreadCleanupPush(&UnlockInHandler, &state);
            Lock();
            VornConditionWait(&condition, &mutex);
            ADD_FAILURE() << "the wait returned";
        });
        Await(atGate, "the waiter at the gate");
        EXPECT_EQ(condition->arriving.load(), 1);
        EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
        EXPECT_EQ(thread.Join(), kCancelledValue);
    }
    EXPECT_EQ(state.tryInHandler.load(), VORN_E_BUSY) << "the waiter still held it";
    EXPECT_EQ(condition->waitersBlocked.load(), 0);
    EXPECT_EQ(condition->arriving.load(), 0);
    EXPECT_EQ(condition->visitors.load(), 0);
    condition->gateWord = 0;
}

TEST_F(ConditionCancel, AThreadThatIsCancelledWhileItSignalsLeavesTheLockFree)
{
    Waiter waiter(*this);
    condition->gateWord = 1;
    Event atGate;
    {
        WaitInterception interception(
            [&](DWORD count, const HANDLE* objects, DWORD timeoutMs, WaitInterception::Original original) {
                const bool isGate = objects[0] == condition->gate->native;
                const DWORD result = original(count, objects, FALSE, isGate ? 0 : timeoutMs);
                if (!isGate || result != WAIT_TIMEOUT) return result;
                atGate.Set();
                return original(count, objects, FALSE, timeoutMs);
            });
        LibraryThread thread([&] {
            VornConditionSignal(&condition);
            ADD_FAILURE() << "the signal was sent";
        });
        Await(atGate, "the signalling thread at the gate");
        EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
        EXPECT_EQ(thread.Join(), kCancelledValue);
    }
    EXPECT_EQ(VornMutexTryLock(&condition->unblockLock), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&condition->unblockLock), VORN_OK);
    EXPECT_EQ(condition->visitors.load(), 1);  // the waiter
    condition->gateWord = 0;
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    waiter.Join();
    EXPECT_EQ(waiter.Status(), VORN_OK);
}

TEST_F(ConditionCancel, AThreadThatIsCancelledWhileItDestroysLeavesTheConditionUsable)
{
    condition->gateWord = 1;
    Event atGate;
    {
        WaitInterception interception(
            [&](DWORD count, const HANDLE* objects, DWORD timeoutMs, WaitInterception::Original original) {
                const DWORD result = original(count, objects, FALSE, 0);
                if (result != WAIT_TIMEOUT) return result;
                atGate.Set();
                return original(count, objects, FALSE, timeoutMs);
            });
        LibraryThread thread([&] {
            VornConditionDestroy(&condition);
            ADD_FAILURE() << "destroyed";
        });
        Await(atGate, "the destroying thread at the gate");
        EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
        EXPECT_EQ(thread.Join(), kCancelledValue);
    }
    condition->gateWord = 0;
}

TEST_F(Condition, AWaitWithoutMemoryForAHandlerIsAccountedForAllTheSame)
{
    Event holdsMutex;
    VornStatus status = 0xBAD;
    LibraryThread thread([&] {
        Lock();
        FailingCall fail(kCalloc, 1, true);
        holdsMutex.Set();
        status = VornConditionWait(&condition, &mutex);
        EXPECT_GE(fail.Failures(), 1);
        Unlock();
    });
    Await(holdsMutex, "the waiter");
    Lock();
    Unlock();
    // The wait is no cancellation point now; the request waits for the next one.
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    EXPECT_EQ(thread.Join(), nullptr);
    EXPECT_EQ(status, VORN_OK);
    ExpectAtRest(condition);
}

TEST_F(Condition, AFailedReleaseWakesNobodyAndChangesNothing)
{
    Waiter a(*this);
    Waiter b(*this);
    {
        FailingCall fail(kReleaseSemaphore);
        EXPECT_EQ(VornConditionSignal(&condition), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    {
        FailingCall fail(kReleaseSemaphore);
        EXPECT_EQ(VornConditionBroadcast(&condition), VORN_E_SYSTEM);
    }
    EXPECT_EQ(condition->waitersBlocked.load(), 2);
    EXPECT_EQ(condition->waitersToUnblock, 0);
    EXPECT_EQ(condition->gateWord.load(), 0);
    EXPECT_EQ(returned.load(), 0);
    EXPECT_EQ(VornConditionBroadcast(&condition), VORN_OK);
    a.Join();
    b.Join();
    EXPECT_EQ(a.Status(), VORN_OK);
    EXPECT_EQ(b.Status(), VORN_OK);
}

TEST_F(Condition, AFailedWaitForTheGateIsReportedAndChangesNothing)
{
    condition->gateWord = 1;
    Lock();
    {
        FailingCall fail(kWaitForMultipleObjects, 1, true);
        EXPECT_EQ(VornConditionWait(&condition, &mutex), VORN_E_SYSTEM);
        EXPECT_EQ(VornConditionDestroy(&condition), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 2);
    }
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY) << "the caller still holds it";
    Unlock();
    EXPECT_EQ(condition->waitersBlocked.load(), 0);
    condition->gateWord = 0;
}

TEST_F(Condition, AFailureToOpenTheGateToASleeperIsReported)
{
    for (const DWORD error : {DWORD{ERROR_TOO_MANY_POSTS}, kGenericFailure}) {
        // The gate is passed by this thread while another one has marked itself as sleeping at it.
        static VornCondition* marked;
        marked = condition;
        condition->gateWord = -1;
        HANDLE const gate = condition->gate->native;
        Lock();
        {
            WaitInterception interception([&](DWORD count, const HANDLE* objects, DWORD timeoutMs,
                                              WaitInterception::Original original) -> DWORD {
                if (objects[0] != gate) return original(count, objects, FALSE, timeoutMs);
                marked->gateWord = 0;  // whoever had it opens it
                return WAIT_OBJECT_0;
            });
            FailingCall fail({"ReleaseSemaphore", 0, error});
            EXPECT_EQ(VornConditionTimedWait(&condition, &mutex, 0),
                      error == ERROR_TOO_MANY_POSTS ? VORN_E_RANGE : VORN_E_SYSTEM);
            EXPECT_EQ(fail.Failures(), 1);
        }
        EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY);
        Unlock();
        ExpectAtRest(condition);
    }
}

TEST_F(Condition, AFailureOfTheUnblockLockIsReported)
{
    // The lock is held, and the wait for it fails.
    Waiter waiter(*this);
    ASSERT_EQ(VornMutexLock(&condition->unblockLock), VORN_OK);
    {
        FailingCall fail(kWaitForSingleObject);
        EXPECT_EQ(VornConditionSignal(&condition), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    {
        // It reads as if a thread slept behind it, and that one cannot be woken.
        FailingCall fail(kSetEvent);
        EXPECT_EQ(VornMutexUnlock(&condition->unblockLock), VORN_E_SYSTEM);
    }
    EXPECT_EQ(condition->visitors.load(), 1);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    waiter.Join();
    EXPECT_EQ(waiter.Status(), VORN_OK);
}

TEST_F(Condition, AFailureToLockTheMutexAgainIsReported)
{
    Event holdsMutex;
    Event mayFail;
    VornStatus status = 0xBAD;
    LibraryThread thread([&] {
        Lock();
        holdsMutex.Set();
        status = VornConditionWait(&condition, &mutex);
    });
    Await(holdsMutex, "the waiter");
    Lock();
    {
        FailingCall fail(kWaitForSingleObject, 1, true);
        EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
        thread.Join();
    }
    EXPECT_EQ(status, VORN_E_SYSTEM);
    Unlock();
}

TEST_F(ConditionLeave, AWaiterCountsItselfOutAlsoWhereTheLockForThatCannotBeWaitedFor)
{
    HeldWaiter held(*this);
    EXPECT_EQ(VornConditionSignal(&condition), VORN_OK);
    ASSERT_EQ(VornMutexLock(&condition->unblockLock), VORN_OK);
    {
        FailingCall fail(kWaitForSingleObject, 1);
        LetLeave(WAIT_TIMEOUT);
        while (fail.Failures() == 0) Sleep(1);
        EXPECT_EQ(condition->waitersToUnblock, 1);
        EXPECT_EQ(VornMutexUnlock(&condition->unblockLock), VORN_OK);
        held.Join();
    }
    EXPECT_EQ(held.Status(), VORN_E_SYSTEM);
}

TEST_F(Condition, CancelledWaitsLeaveNothingBehind)
{
    const auto cancelOne = [&] {
        Event holdsMutex;
        LibraryThread thread([&] {
            Lock();
            holdsMutex.Set();
            VornConditionWait(&condition, &mutex);
        });
        Await(holdsMutex, "the waiter");
        Lock();
        Unlock();
        EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
        EXPECT_EQ(thread.Join(), kCancelledValue);
        Unlock();
    };
    for (int i = 0; i < 3; ++i) cancelOne();
    LeakWatch watch;
    for (int i = 0; i < 20; ++i) cancelOne();
    EXPECT_EQ(watch.Leaks(), "");
}
