// Asynchronous cancels of threads that are inside a call of the library, or at the edge of one. The threads
// are held in the system calls that the library makes there.
#include <vorn/vorn.h>

#include "core/win32.h"

#include "async_case.h"
#include "support/failing_call.h"
#include "support/import_redirect.h"
#include "thread/mutex_record.h"
#include "thread/thread_runner.h"

#include <cstdlib>
#include <gtest/gtest.h>

using namespace vorn_test;

namespace {

void* const kNotCancelled = reinterpret_cast<void*>(uintptr_t{5});

}  // namespace

namespace {

// A thread that switches to the asynchronous type, held in the two calls that it makes in doing so: the look
// at its cancel event, with its state lock held, and the wake-up that it owes a thread which sleeps for that
// lock.
struct HeldSwitch {
    explicit HeldSwitch() { current = this; }

    Event hasTheLock;
    Event somebodySleeps;
    Event owesTheWakeUp;
    std::atomic<bool> goOn{false};
    std::atomic<DWORD> target{0};
    std::atomic<DWORD> sleeper{0};
    static inline HeldSwitch* current = nullptr;

    static DWORD WINAPI Wait(HANDLE object, DWORD timeoutMs)
    {
        const DWORD self = GetCurrentThreadId();
        if (self == current->target && timeoutMs == 0) {
            current->hasTheLock.Set();
            current->somebodySleeps.Wait();
        }
        if (self == current->sleeper && timeoutMs == INFINITE) current->somebodySleeps.Set();
        return WaitForSingleObject(object, timeoutMs);
    }
    static BOOL WINAPI Wake(HANDLE event)
    {
        if (GetCurrentThreadId() == current->target && !current->owesTheWakeUp.IsSet()) {
            current->owesTheWakeUp.Set();
            while (!current->goOn) YieldProcessor();
        }
        return SetEvent(event);
    }
};

}  // namespace

TEST(AsyncCancelInACall, WakesWhoSleepsForTheStateLockThatTheTargetWasLettingGo)
{
    HeldSwitch held;
    const ImportRedirect waits("WaitForSingleObject", &HeldSwitch::Wait);
    const ImportRedirect wakes("SetEvent", &HeldSwitch::Wake);
    ASSERT_TRUE(waits.Found() && wakes.Found());
    LibraryThread target([&]() -> void* {
        held.target = GetCurrentThreadId();
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        return kNotCancelled;
    });
    ASSERT_TRUE(held.hasTheLock.Wait());
    VornMutex* const stateLock = target.Thread()->stateLock;
    VornStatus late = VORN_E_UNKNOWN;
    Event returned;
    LibraryThread sleeper([&] {
        held.sleeper = GetCurrentThreadId();
        late = VornThreadCancel(target.Thread());
        returned.Set();
    });
    ASSERT_TRUE(held.owesTheWakeUp.Wait());
    EXPECT_EQ(VornThreadCancel(target.Thread()), VORN_OK);
    EXPECT_TRUE(returned.Wait()) << "forgotten";
    held.goOn = true;
    if (!returned.IsSet()) SetEvent(stateLock->wakeEvent);
    sleeper.Join();
    EXPECT_EQ(late, VORN_E_SYSTEM) << "it is being cancelled already";
    EXPECT_EQ(target.Join(), kCancelled);
}

TEST(AsyncCancelInACall, OfAThreadThatIsCancellingAnotherLetsItFinishThat)
{
    // Held where it tells the other thread, with that one's state lock in its hand.
    static Event* telling;
    static std::atomic<bool>* goOn;
    static std::atomic<DWORD> canceller;
    Event tellingEvent;
    std::atomic<bool> goOnFlag{false};
    telling = &tellingEvent;
    goOn = &goOnFlag;
    canceller = 0;
    const ImportRedirect wakes(
        "SetEvent", +[](HANDLE event) -> BOOL {
            if (GetCurrentThreadId() == canceller) {
                telling->Set();
                while (!*goOn) YieldProcessor();
            }
            return SetEvent(event);
        });
    Event end;
    LibraryThread other([&]() -> void* {
        end.Wait();
        VornThreadTestCancel();
        return kNotCancelled;
    });
    LibraryThread target([&]() -> void* {
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        canceller = GetCurrentThreadId();
        VornThreadCancel(other.Thread());
        return kNotCancelled;
    });
    ASSERT_TRUE(tellingEvent.Wait());
    EXPECT_EQ(VornThreadCancel(target.Thread()), VORN_OK);
    goOnFlag = true;
    EXPECT_EQ(target.Join(), kCancelled);
    end.Set();
    EXPECT_EQ(other.Join(), kCancelled);
}

TEST(AsyncCancelInACall, OfAThreadThatJoinsAnotherLeavesThatOneToBeJoined)
{
    // Held where it has asked for the other thread's record.
    static Event* asking;
    static std::atomic<bool>* goOn;
    static std::atomic<DWORD> joiner;
    Event askingEvent;
    std::atomic<bool> goOnFlag{false};
    asking = &askingEvent;
    goOn = &goOnFlag;
    joiner = 0;
    const ImportRedirect releases(
        "ReleaseSRWLockExclusive", +[](SRWLOCK* lock) {
            ReleaseSRWLockExclusive(lock);
            if (GetCurrentThreadId() != joiner.load()) return;
            asking->Set();
            while (!*goOn) YieldProcessor();
        });
    ASSERT_TRUE(releases.Found());
    Event end;
    LibraryThread other([&] { end.Wait(); });
    LibraryThread target([&]() -> void* {
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        joiner = GetCurrentThreadId();
        VornThreadJoin(other.Thread(), nullptr);
        return kNotCancelled;
    });
    ASSERT_TRUE(askingEvent.Wait());
    EXPECT_EQ(VornThreadCancel(target.Thread()), VORN_OK);
    goOnFlag = true;
    EXPECT_EQ(target.Join(), kCancelled);
    end.Set();
    EXPECT_EQ(other.Join(), nullptr);
}

namespace {

// A thread that is held in an allocation function of the module, which stands for whatever lock that takes.
struct HeldInAllocator {
    HeldInAllocator() { current = this; }

    Event there;
    std::atomic<bool> goOn{false};
    std::atomic<DWORD> target{0};
    static inline HeldInAllocator* current = nullptr;

    static void Hold()
    {
        if (GetCurrentThreadId() != current->target || current->there.IsSet()) return;
        current->there.Set();
        while (!current->goOn) YieldProcessor();
    }
    static void* Allocate(size_t count, size_t size)
    {
        Hold();
        return calloc(count, size);
    }
    static void Free(void* block)
    {
        Hold();
        free(block);
    }
    // Runs `call` on an asynchronous thread, and cancels it in there.
    template <class F>
    void CancelIn(F call)
    {
        LibraryThread thread([&]() -> void* {
            VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
            target = GetCurrentThreadId();
            call();
            return kNotCancelled;
        });
        ASSERT_TRUE(there.Wait());
        EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
        goOn = true;
        EXPECT_EQ(thread.Join(), kCancelled);
    }
};

void CountUp(void* p)
{
    ++*static_cast<int*>(p);
}

}  // namespace

TEST(AsyncCancelInACall, OfAThreadThatPushesAHandlerRunsIt)
{
    int runs = 0;
    HeldInAllocator held;
    const ImportRedirect allocations("calloc", &HeldInAllocator::Allocate);
    ASSERT_TRUE(allocations.Found());
    held.CancelIn([&] { VornThreadCleanupPush(&CountUp, &runs); });
    EXPECT_EQ(runs, 1);
}

TEST(AsyncCancelInACall, OfAThreadThatPopsAHandlerRunsItOnce)
{
    int runs = 0;
    HeldInAllocator held;
    const ImportRedirect frees("free", &HeldInAllocator::Free);
    ASSERT_TRUE(frees.Found());
    held.CancelIn([&] {
        VornThreadCleanupPush(&CountUp, &runs);
        VornThreadCleanupPop(1);
    });
    EXPECT_EQ(runs, 1);
}

TEST(AsyncCancelInACall, OfAThreadThatStoresAValueDestroysIt)
{
    int destroyed = 0;
    VornThreadKey* key = nullptr;
    ASSERT_EQ(VornThreadKeyCreate(&key, &CountUp), VORN_OK);
    // Both locks are there: what is allocated is what the value needs, with the locks held.
    EXPECT_EQ(VornThreadSetSpecific(key, &destroyed), VORN_OK);
    EXPECT_EQ(VornThreadSetSpecific(key, nullptr), VORN_OK);
    HeldInAllocator held;
    {
        const ImportRedirect allocations("calloc", &HeldInAllocator::Allocate);
        held.CancelIn([&] { VornThreadSetSpecific(key, &destroyed); });
    }
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK);
}

TEST(AsyncCancelInACall, OfAThreadThatCreatesAConditionLeavesFirstUsesToOthers)
{
    VornMutex* mutex = nullptr;
    ASSERT_EQ(VornMutexCreate(&mutex, nullptr), VORN_OK);
    VornCondition* condition = VORN_CONDITION_INITIALIZER;
    HeldInAllocator held;
    {
        const ImportRedirect allocations("calloc", &HeldInAllocator::Allocate);
        held.CancelIn([&] {
            VornMutexLock(&mutex);
            VornConditionWait(&condition, &mutex);
        });
    }
    LibraryThread([] {
        VornMutex* other = VORN_MUTEX_INITIALIZER;
        EXPECT_EQ(VornMutexLock(&other), VORN_OK);
        EXPECT_EQ(VornMutexUnlock(&other), VORN_OK);
        EXPECT_EQ(VornMutexDestroy(&other), VORN_OK);
    }).Join();
    // Cancelled in the wait, with the mutex locked again.
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY);
    EXPECT_EQ(VornConditionDestroy(&condition), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

TEST(AsyncCancelInACall, OfAThreadWhoseStartFunctionEndsBeforeTheSystemStopsItIsTooLate)
{
    // The system stops a thread some time after it was asked to, at the latest when its context is read.
    static Event* inHandler;
    static std::atomic<bool>* mayReturn;
    Event inHandlerEvent;
    Event handlerMayEnd;
    std::atomic<bool> mayReturnFlag{false};
    inHandler = &inHandlerEvent;
    mayReturn = &mayReturnFlag;
    const ImportRedirect stops(
        "SuspendThread", +[](HANDLE) -> DWORD { return 0; });
    const ImportRedirect reads(
        "GetThreadContext", +[](HANDLE thread, CONTEXT* context) -> BOOL {
            *mayReturn = true;
            inHandler->Wait();
            SuspendThread(thread);
            return GetThreadContext(thread, context);
        });
    Event there;
    LibraryThread target([&]() -> void* {
        VornThreadCleanupPush(
            [](void* p) {
                inHandler->Set();
                static_cast<Event*>(p)->Wait();
            },
            &handlerMayEnd);
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        there.Set();
        while (!mayReturnFlag) YieldProcessor();
        return kNotCancelled;
    });
    ASSERT_TRUE(there.Wait());
    EXPECT_EQ(VornThreadCancel(target.Thread()), VORN_OK);
    handlerMayEnd.Set();
    EXPECT_EQ(target.Join(), kNotCancelled);
}

TEST(AsyncCancelAdopted, OfAThreadThatHasNoHandleOfItsOwnIsRefused)
{
    // Its record holds the handle that stands for whichever thread uses it: the caller must not stop itself.
    const FailingCall fail({"DuplicateHandle", 0, kGenericFailure});
    Event there;
    std::atomic<bool> end{false};
    std::atomic<VornThread*> record{nullptr};
    ForeignThread target([&] {
        record = VornThreadSelf();
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        there.Set();
        while (!end) YieldProcessor();
    });
    ASSERT_TRUE(there.Wait());
    ASSERT_EQ(record.load()->handle, GetCurrentThread());
    VornStatus status = VORN_E_UNKNOWN;
    Event returned;
    ForeignThread canceller([&] {
        status = VornThreadCancel(record);
        returned.Set();
    });
    EXPECT_TRUE(returned.Wait());
    if (!returned.IsSet()) ResumeThread(canceller.Handle());
    EXPECT_EQ(canceller.Join(), 0u);
    EXPECT_EQ(status, VORN_E_SYSTEM);
    EXPECT_EQ(record.load()->state.load(), 0);
    end = true;
    EXPECT_EQ(target.Join(), 0u);
}
