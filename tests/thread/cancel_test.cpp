#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/thread_runner.h"

#include <gtest/gtest.h>

using namespace vorn_test;

namespace {

constexpr size_t kCancelEvent = 24;
constexpr size_t kStateLock = 40;
constexpr size_t kCancelState = 48;
constexpr size_t kCancelType = 52;
constexpr size_t kState = 64;

void* const kCancelled = reinterpret_cast<void*>(~uintptr_t{0});
void* const kNotCancelled = reinterpret_cast<void*>(uintptr_t{5});

int32_t StateOf(VornThread* thread)
{
    return __atomic_load_n(&FieldAt<int32_t>(thread, kState), __ATOMIC_SEQ_CST);
}

bool EventIsSet(VornThread* thread)
{
    return WaitBounded(FieldAt<HANDLE>(thread, kCancelEvent), 0);
}

// Runs `body` on a library thread; cancels it once it is there; lets it go on when the cancel is done.
struct Meeting {
    Event there;
    Event goOn;
    void Await()
    {
        there.Set();
        goOn.Wait();
    }
};

template <class F>
void* CancelledAt(Meeting* meeting, F body, VornStatus expected = VORN_OK)
{
    LibraryThread thread(body);
    EXPECT_TRUE(meeting->there.Wait());
    EXPECT_EQ(VornThreadCancel(thread.Thread()), expected);
    meeting->goOn.Set();
    return thread.Join();
}

}  // namespace

TEST(CancelDeferred, WaitsForACancellationPoint)
{
    Meeting first;
    Event wentOn;
    Event finish;
    LibraryThread thread([&]() -> void* {
        first.Await();
        wentOn.Set();
        finish.Wait();
        VornThreadTestCancel();
        return kNotCancelled;
    });
    ASSERT_TRUE(first.there.Wait());
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
    EXPECT_EQ(StateOf(thread.Thread()), 3);
    EXPECT_TRUE(EventIsSet(thread.Thread()));
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
    first.goOn.Set();
    EXPECT_TRUE(wentOn.Wait());
    finish.Set();
    EXPECT_EQ(thread.Join(), kCancelled);
}

TEST(CancelDeferred, RequestedBeforeTheThreadRunsStaysRequested)
{
    // Suspended in its creation: the request arrives in state 0.
    static ImportRedirect* redirect;
    static VornThread* target;
    target = nullptr;
    {
        ImportRedirect r(
            "ResumeThread", +[](HANDLE handle) -> DWORD {
                EXPECT_EQ(VornThreadCancel(target), VORN_OK);
                EXPECT_EQ(StateOf(target), 3);
                return redirect->Original<DWORD(WINAPI*)(HANDLE)>()(handle);
            });
        redirect = &r;
        ASSERT_TRUE(r.Found());
        ASSERT_EQ(VornThreadCreate(
                      &target, nullptr,
                      [](void*) -> void* {
                          EXPECT_EQ(StateOf(VornThreadSelf()), 3);
                          VornThreadTestCancel();
                          return kNotCancelled;
                      },
                      nullptr),
                  VORN_OK);
    }
    void* result = nullptr;
    EXPECT_EQ(VornThreadJoin(target, &result), VORN_OK);
    EXPECT_EQ(result, kCancelled);
}

TEST(CancelDeferred, EndsAThreadThatIsWaitingInJoin)
{
    Event end;
    VornThread* other = nullptr;
    ASSERT_EQ(VornThreadCreate(
                  &other, nullptr,
                  [](void* p) -> void* {
                      static_cast<Event*>(p)->Wait();
                      return nullptr;
                  },
                  &end),
              VORN_OK);
    Event there;
    LibraryThread thread([&]() -> void* {
        there.Set();
        VornThreadJoin(other, nullptr);
        return kNotCancelled;
    });
    ASSERT_TRUE(there.Wait());
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
    EXPECT_EQ(thread.Join(), kCancelled);
    end.Set();
    EXPECT_EQ(VornThreadJoin(other, nullptr), VORN_OK);
}

TEST(CancelDeferred, UnwindsTheStackBeforeTheHandlersRun)
{
    struct Local {
        std::string* order;
        ~Local() { *order += 'l'; }
    };
    std::string order;
    Meeting meeting;
    void* const result = CancelledAt(&meeting, [&]() -> void* {
        VornThreadCleanupPush([](void* p) { *static_cast<std::string*>(p) += '1'; }, &order);
        VornThreadCleanupPush([](void* p) { *static_cast<std::string*>(p) += '2'; }, &order);
        const Local local{&order};
        meeting.Await();
        VornThreadTestCancel();
        return kNotCancelled;
    });
    EXPECT_EQ(result, kCancelled);
    EXPECT_EQ(order, "l21");
}

TEST(CancelDeferred, ActsAtMostOnce)
{
    Meeting meeting;
    VornStatus again = VORN_E_UNKNOWN;
    struct Local {
        VornStatus* status;
        ~Local()
        {
            // The thread is being cancelled: no cancellation point acts any more, no request is accepted.
            VornThreadTestCancel();
            *status = VornThreadCancel(VornThreadSelf());
            VornThreadTestCancel();
        }
    };
    EXPECT_EQ(CancelledAt(&meeting,
                          [&]() -> void* {
                              const Local local{&again};
                              meeting.Await();
                              VornThreadTestCancel();
                              return kNotCancelled;
                          }),
              kCancelled);
    EXPECT_EQ(again, VORN_E_SYSTEM);
}

TEST(CancelDeferred, HandlersCannotReviveIt)
{
    Meeting meeting;
    int runs = 0;
    LibraryThread thread([&]() -> void* {
        VornThreadCleanupPush(
            [](void* p) {
                VornThreadSetCancelState(VORN_CANCEL_ENABLE, nullptr);
                VornThreadTestCancel();
                ++*static_cast<int*>(p);
            },
            &runs);
        meeting.Await();
        return kNotCancelled;
    });
    ASSERT_TRUE(meeting.there.Wait());
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
    meeting.goOn.Set();
    EXPECT_EQ(thread.Join(), kNotCancelled);
    EXPECT_EQ(runs, 1);
}

TEST(CancelDeferred, RefusesAFinishedThread)
{
    LibraryThread thread([] {});
    ASSERT_TRUE(Eventually([&] { return StateOf(thread.Thread()) == 6; }));
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_E_SYSTEM);
}

TEST(CancelDeferred, SleepIsNoCancellationPoint)
{
    Meeting meeting;
    EXPECT_EQ(CancelledAt(&meeting,
                          [&]() -> void* {
                              meeting.Await();
                              VornThreadSleep(1);
                              VornThreadYield();
                              VornMutex* mutex = VORN_MUTEX_INITIALIZER;
                              VornMutexLock(&mutex);
                              VornMutexUnlock(&mutex);
                              VornMutexDestroy(&mutex);
                              VornThreadCleanupPush([](void*) {}, nullptr);
                              VornThreadCleanupPop(1);
                              VornThreadSetCancelState(VORN_CANCEL_ENABLE, nullptr);
                              VornThreadSetCancelType(VORN_CANCEL_DEFERRED, nullptr);
                              return kNotCancelled;
                          }),
              kNotCancelled);
}

TEST(CancelDeferred, EndsAnAdoptedThreadAtOnceAndRunsItsHandlers)
{
    Event there;
    Event goOn;
    std::atomic<VornThread*> target{nullptr};
    int cleaned = 0;
    ForeignThread thread([&] {
        target = VornThreadSelf();
        VornThreadCleanupPush([](void* p) { ++*static_cast<int*>(p); }, &cleaned);
        there.Set();
        goOn.Wait();
        VornThreadTestCancel();
    });
    ASSERT_TRUE(there.Wait());
    EXPECT_EQ(VornThreadCancel(target), VORN_OK);
    goOn.Set();
    ASSERT_TRUE(thread.Wait());
    EXPECT_EQ(thread.ExitCode(), 0xFFFFFFFFu);
    EXPECT_EQ(cleaned, 1);
}

TEST(CancelDisabled, KeepsTheRequestUntilAPointAfterEnabling)
{
    Meeting meeting;
    Event other;
    bool joined = false;
    bool enabled = false;
    EXPECT_EQ(CancelledAt(&meeting,
                          [&]() -> void* {
                              uint32_t old = 9;
                              EXPECT_EQ(VornThreadSetCancelState(VORN_CANCEL_DISABLE, &old), VORN_OK);
                              EXPECT_EQ(old, 0u);
                              meeting.Await();
                              VornThreadTestCancel();
                              VornThread* quick = nullptr;
                              VornThreadCreate(
                                  &quick, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
                              EXPECT_EQ(VornThreadJoin(quick, nullptr), VORN_OK);
                              joined = true;
                              EXPECT_EQ(VornThreadSetCancelState(VORN_CANCEL_ENABLE, &old), VORN_OK);
                              EXPECT_EQ(old, 1u);
                              enabled = true;
                              VornThreadTestCancel();
                              return kNotCancelled;
                          }),
              kCancelled);
    EXPECT_TRUE(joined);
    EXPECT_TRUE(enabled);
}

TEST(CancelSettings, RejectOtherValues)
{
    for (int32_t value : {-1, 2, 100}) {
        uint32_t old = 77;
        EXPECT_EQ(VornThreadSetCancelState(value, &old), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornThreadSetCancelType(value, &old), VORN_E_INVALID_ARG);
        EXPECT_EQ(old, 77u);
    }
}

TEST(CancelSettings, MayBeChangedInACleanupHandler)
{
    VornStatus status = VORN_E_UNKNOWN;
    LibraryThread thread([&] {
        VornThreadCleanupPush(
            [](void* p) {
                *static_cast<VornStatus*>(p) = VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
            },
            &status);
        EXPECT_NE(VornThreadSelf()->unwind, nullptr);
    });
    ASSERT_TRUE(WaitBounded(thread.Thread()->handle));
    EXPECT_EQ(status, VORN_OK);
    // What it would be unwound to went with its stack.
    EXPECT_EQ(thread.Thread()->unwind, nullptr);
}

TEST(CancelSettings, GiveTheValueBefore)
{
    LibraryThread([] {
        uint32_t old = 9;
        EXPECT_EQ(VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, &old), VORN_OK);
        EXPECT_EQ(old, 1u);
        EXPECT_EQ(VornThreadSetCancelType(VORN_CANCEL_DEFERRED, &old), VORN_OK);
        EXPECT_EQ(old, 0u);
        EXPECT_EQ(VornThreadSetCancelState(VORN_CANCEL_DISABLE, nullptr), VORN_OK);
        EXPECT_EQ(FieldAt<uint32_t>(VornThreadSelf(), kCancelState), 1u);
        EXPECT_EQ(FieldAt<uint32_t>(VornThreadSelf(), kCancelType), 1u);
    }).Join();
}

TEST(CancelSettings, NeedARecordAndTheStateLock)
{
    ForeignThread([] {
        {
            const FailingCall fail(kCalloc, 1, true);
            EXPECT_EQ(VornThreadSetCancelState(VORN_CANCEL_ENABLE, nullptr), VORN_E_NO_MEMORY);
            EXPECT_EQ(VornThreadSetCancelType(VORN_CANCEL_DEFERRED, nullptr), VORN_E_NO_MEMORY);
        }
        VornThreadSelf();
        const FailingCall fail(kCreateEvent);
        EXPECT_EQ(VornThreadSetCancelState(VORN_CANCEL_DISABLE, nullptr), VORN_E_SYSTEM);
        EXPECT_EQ(VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr), VORN_E_SYSTEM);
    }).Wait();
}

TEST(CancelSettings, SwitchingToAsynchronousActsOnAPendingRequest)
{
    Meeting meeting;
    EXPECT_EQ(CancelledAt(&meeting,
                          [&]() -> void* {
                              meeting.Await();
                              VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
                              return kNotCancelled;
                          }),
              kCancelled);
}

TEST(CancelSettings, EnablingAnAsynchronousThreadActsOnAPendingRequest)
{
    Meeting meeting;
    EXPECT_EQ(CancelledAt(&meeting,
                          [&]() -> void* {
                              VornThreadSetCancelState(VORN_CANCEL_DISABLE, nullptr);
                              VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
                              meeting.Await();
                              VornThreadSetCancelState(VORN_CANCEL_ENABLE, nullptr);
                              return kNotCancelled;
                          }),
              kCancelled);
}

TEST(CancelSelf, EndsAnAsynchronousCallerInsideTheCall)
{
    LibraryThread thread([]() -> void* {
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        VornThreadCancel(VornThreadSelf());
        return kNotCancelled;
    });
    EXPECT_EQ(thread.Join(), kCancelled);
}

TEST(CancelSelf, LeavesADeferredCallerToItsNextPoint)
{
    bool wentOn = false;
    LibraryThread thread([&]() -> void* {
        EXPECT_EQ(VornThreadCancel(VornThreadSelf()), VORN_OK);
        wentOn = true;
        VornThreadTestCancel();
        return kNotCancelled;
    });
    EXPECT_EQ(thread.Join(), kCancelled);
    EXPECT_TRUE(wentOn);
}

TEST(CancelSelf, EndsAnAsynchronousAdoptedCaller)
{
    ForeignThread thread([] {
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        VornThreadCancel(VornThreadSelf());
    });
    ASSERT_TRUE(thread.Wait());
    EXPECT_EQ(thread.ExitCode(), 0xFFFFFFFFu);
}

TEST(CancelFailure, IsLenientWhenTheStateLockCannotBeTaken)
{
    Meeting meeting;
    LibraryThread thread([&]() -> void* {
        meeting.Await();
        VornThreadTestCancel();
        return kNotCancelled;
    });
    ASSERT_TRUE(meeting.there.Wait());
    {
        const FailingCall fail(kCreateEvent);
        EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(StateOf(thread.Thread()), 1);
    meeting.goOn.Set();
    EXPECT_EQ(thread.Join(), kNotCancelled);
}

TEST(CancelFailure, ReportsAnEventThatCannotBeSignalled)
{
    Meeting meeting;
    LibraryThread thread([&] { meeting.Await(); });
    ASSERT_TRUE(meeting.there.Wait());
    {
        const FailingCall fail(kSetEvent);
        EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_E_SYSTEM);
    }
    meeting.goOn.Set();
}

TEST(CancelFailure, LeavesAnAsynchronousTargetAloneWhenTheSystemRefuses)
{
    Event there;
    std::atomic<bool> stop{false};
    LibraryThread thread([&]() -> void* {
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        there.Set();
        while (!stop) YieldProcessor();
        return kNotCancelled;
    });
    ASSERT_TRUE(there.Wait());
    const FaultPoint points[] = {{"SuspendThread", 0xFFFFFFFF, kGenericFailure},
                                 {"GetThreadContext", 0, kGenericFailure},
                                 {"SetThreadContext", 0, kGenericFailure}};
    for (const FaultPoint& point : points) {
        SCOPED_TRACE(point.import);
        const FailingCall fail(point);
        EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
        EXPECT_EQ(StateOf(thread.Thread()), 1);
        EXPECT_EQ(FieldAt<uint32_t>(thread.Thread(), kCancelState), 0u);
    }
    stop = true;
    EXPECT_EQ(thread.Join(), kNotCancelled);
}

TEST(CancelFailure, AWaitWhoseStateLockCannotBeTakenFails)
{
    Event end;
    LibraryThread other([&] { end.Wait(); });
    VornStatus status = VORN_E_UNKNOWN;
    LibraryThread([&] {
        // The request is there when the wait begins, made without the lock.
        SetEvent(FieldAt<HANDLE>(VornThreadSelf(), kCancelEvent));
        const FailingCall fail(kCreateEvent);
        status = VornThreadJoin(other.Thread(), nullptr);
    }).Join();
    EXPECT_EQ(status, VORN_E_SYSTEM);
    end.Set();
}
