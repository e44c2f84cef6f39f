#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/thread_runner.h"

#include <gtest/gtest.h>
#include <vector>

using namespace vorn_test;

namespace {

constexpr size_t kSlot = 0;
constexpr size_t kDestructor = 8;
constexpr size_t kKeyLock = 16;
constexpr size_t kEntries = 24;

std::atomic<int> destructorCalls{0};
std::atomic<void*> lastDestroyed{nullptr};

void CountDestructor(void* value)
{
    ++destructorCalls;
    lastDestroyed = value;
}

int someValue;

class KeyWith {
public:
    explicit KeyWith(void (*destructor)(void*))
    {
        destructorCalls = 0;
        lastDestroyed = nullptr;
        EXPECT_EQ(VornThreadKeyCreate(&key, destructor), VORN_OK);
    }
    KeyWith(const KeyWith&) = delete;
    KeyWith& operator=(const KeyWith&) = delete;
    ~KeyWith() { EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK); }
    VornThreadKey* key = nullptr;
};

}  // namespace

TEST(ThreadKeyCreate, FillsTheRecord)
{
    const KeyWith plain(nullptr);
    EXPECT_EQ(FieldAt<void*>(plain.key, kDestructor), nullptr);
    EXPECT_EQ(FieldAt<void*>(plain.key, kKeyLock), nullptr);
    const KeyWith withDestructor(&CountDestructor);
    EXPECT_EQ(FieldAt<void*>(withDestructor.key, kDestructor), reinterpret_cast<void*>(&CountDestructor));
    EXPECT_EQ(FieldAt<VornMutex*>(withDestructor.key, kKeyLock), VORN_MUTEX_INITIALIZER);
    EXPECT_EQ(FieldAt<void*>(withDestructor.key, kEntries), nullptr);
    EXPECT_NE(FieldAt<uint32_t>(plain.key, kSlot), FieldAt<uint32_t>(withDestructor.key, kSlot));
}

TEST(ThreadKeyCreate, ReportsWhatIsMissing)
{
    const LeakWatch watch;
    VornThreadKey* key = nullptr;
    EXPECT_EQ(VornThreadKeyCreate(nullptr, nullptr), VORN_E_INVALID_ARG);
    {
        const FailingCall fail(kCalloc);
        EXPECT_EQ(VornThreadKeyCreate(&key, &CountDestructor), VORN_E_NO_MEMORY);
    }
    {
        const FailingCall fail(kTlsAlloc);
        EXPECT_EQ(VornThreadKeyCreate(&key, &CountDestructor), VORN_E_NO_RESOURCES);
    }
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadKeyCreate, RunsOutOfSlotsWithoutLoss)
{
    VornThreadSelf();
    const LeakWatch watch;
    {
        std::vector<VornThreadKey*> keys;
        VornThreadKey* key = nullptr;
        VornStatus status;
        while ((status = VornThreadKeyCreate(&key, nullptr)) == VORN_OK && keys.size() < 5000) {
            keys.push_back(key);
            // Slots beyond the first 64 are found too.
            EXPECT_EQ(VornThreadGetSpecific(key), nullptr);
            EXPECT_EQ(VornThreadSetSpecific(key, &keys), VORN_OK);
            EXPECT_EQ(VornThreadGetSpecific(key), &keys);
        }
        EXPECT_EQ(status, VORN_E_NO_RESOURCES);
        EXPECT_GT(keys.size(), 100u);
        for (VornThreadKey* k : keys) {
            EXPECT_EQ(VornThreadGetSpecific(k), &keys);
            EXPECT_EQ(VornThreadKeyDelete(k), VORN_OK);
        }
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadSpecific, IsPerThreadAndStartsAsNull)
{
    const KeyWith k(nullptr);
    EXPECT_EQ(VornThreadGetSpecific(k.key), nullptr);
    EXPECT_EQ(VornThreadSetSpecific(k.key, &someValue), VORN_OK);
    LibraryThread([&] {
        EXPECT_EQ(VornThreadGetSpecific(k.key), nullptr);
        EXPECT_EQ(VornThreadSetSpecific(k.key, &destructorCalls), VORN_OK);
        EXPECT_EQ(VornThreadGetSpecific(k.key), &destructorCalls);
    }).Join();
    EXPECT_EQ(VornThreadGetSpecific(k.key), &someValue);
}

TEST(ThreadSpecific, ANullKeyHoldsNothing)
{
    EXPECT_EQ(VornThreadSetSpecific(nullptr, &someValue), VORN_OK);
    EXPECT_EQ(VornThreadGetSpecific(nullptr), nullptr);
    EXPECT_EQ(VornThreadKeyDelete(nullptr), VORN_OK);
}

TEST(ThreadSpecific, NeedsARecordOfTheCaller)
{
    const KeyWith k(nullptr);
    ForeignThread([&] {
        const FailingCall fail(kCalloc, 1, true);
        EXPECT_EQ(VornThreadSetSpecific(k.key, &someValue), VORN_E_NO_MEMORY);
        EXPECT_EQ(VornThreadSetSpecific(nullptr, &someValue), VORN_E_NO_MEMORY);
    }).Wait();
}

TEST(ThreadSpecific, ReadingLeavesBothLastErrorsAlone)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    const KeyWith k(nullptr);
    VornSetLastError(VORN_E_RANGE);
    SetLastError(4711);
    EXPECT_EQ(VornThreadGetSpecific(k.key), nullptr);
    EXPECT_EQ(GetLastError(), 4711u);
    EXPECT_EQ(VornGetLastError(), VORN_E_RANGE);
    VornTerminate();
}

TEST(ThreadSpecific, KeepsTheValueWhenMemoryForTheDestructorIsMissing)
{
    const KeyWith k(&CountDestructor);
    LibraryThread([&] {
        // The locks exist already: only the entry is missing.
        VornMutexLock(&FieldAt<VornMutex*>(k.key, kKeyLock));
        VornMutexUnlock(&FieldAt<VornMutex*>(k.key, kKeyLock));
        VornMutexLock(&FieldAt<VornMutex*>(VornThreadSelf(), 32));
        VornMutexUnlock(&FieldAt<VornMutex*>(VornThreadSelf(), 32));
        const FailingCall fail(kCalloc);
        EXPECT_EQ(VornThreadSetSpecific(k.key, &someValue), VORN_E_NO_MEMORY);
        EXPECT_EQ(VornThreadGetSpecific(k.key), nullptr);
    }).Join();
    EXPECT_EQ(destructorCalls, 0);
}

TEST(ThreadSpecific, WritesTheSlotEvenWhenALockCannotBeTaken)
{
    for (long nth : {1, 2}) {
        const KeyWith k(&CountDestructor);
        LibraryThread([&] {
            const FailingCall fail(kCreateEvent, nth);
            EXPECT_EQ(VornThreadSetSpecific(k.key, &someValue), VORN_OK);
            EXPECT_EQ(fail.Failures(), 1);
            EXPECT_EQ(VornThreadGetSpecific(k.key), &someValue);
        }).Join();
        EXPECT_EQ(destructorCalls, 0);
    }
}

TEST(ThreadSpecific, ReportsASlotThatCannotBeWritten)
{
    const KeyWith k(nullptr);
    VornThreadSelf();
    const FailingCall fail(kTlsSetValue);
    EXPECT_EQ(VornThreadSetSpecific(k.key, &someValue), VORN_E_SYSTEM);
}

TEST(ThreadDestructor, RunsOnTheRemainingValueAtTheEnd)
{
    const KeyWith k(&CountDestructor);
    LibraryThread([&] {
        EXPECT_EQ(VornThreadSetSpecific(k.key, &k), VORN_OK);
        EXPECT_EQ(VornThreadSetSpecific(k.key, &someValue), VORN_OK);
    }).Join();
    EXPECT_EQ(destructorCalls, 1);
    EXPECT_EQ(lastDestroyed, &someValue);
    ForeignThread([&] { VornThreadSetSpecific(k.key, &someValue); }).Wait();
    EXPECT_EQ(destructorCalls, 2);
}

TEST(ThreadDestructor, DoesNotRunForANullValue)
{
    const KeyWith k(&CountDestructor);
    LibraryThread([&] {
        EXPECT_EQ(VornThreadSetSpecific(k.key, nullptr), VORN_OK);
        EXPECT_EQ(FieldAt<void*>(k.key, kEntries), nullptr);
    }).Join();
    LibraryThread([&] {
        EXPECT_EQ(VornThreadSetSpecific(k.key, &someValue), VORN_OK);
        EXPECT_NE(FieldAt<void*>(k.key, kEntries), nullptr);
        EXPECT_EQ(VornThreadSetSpecific(k.key, nullptr), VORN_OK);
    }).Join();
    EXPECT_EQ(destructorCalls, 0);
    EXPECT_EQ(FieldAt<void*>(k.key, kEntries), nullptr);
}

TEST(ThreadDestructor, RunsAfterTheCleanupHandlers)
{
    static std::string order;
    order.clear();
    const KeyWith k([](void*) { order += 'd'; });
    LibraryThread([&] {
        VornThreadSetSpecific(k.key, &someValue);
        VornThreadCleanupPush([](void*) { order += 'h'; }, nullptr);
    }).Join();
    EXPECT_EQ(order, "hd");
}

TEST(ThreadDestructor, FindsItsOwnSlotEmpty)
{
    static VornThreadKey* key;
    static void* seen;
    seen = &someValue;
    const KeyWith k([](void*) { seen = VornThreadGetSpecific(key); });
    key = k.key;
    LibraryThread([&] { VornThreadSetSpecific(k.key, &someValue); }).Join();
    EXPECT_EQ(seen, nullptr);
}

TEST(ThreadDestructor, ThatStoresAgainIsCalledFourTimesAtMost)
{
    static VornThreadKey* key;
    static int calls;
    calls = 0;
    const KeyWith k([](void* value) {
        ++calls;
        EXPECT_EQ(VornThreadSetSpecific(key, value), VORN_OK);
    });
    key = k.key;
    const LeakWatch watch;
    LibraryThread([&] { VornThreadSetSpecific(k.key, &someValue); }).Join();
    EXPECT_EQ(calls, 4);
    EXPECT_EQ(FieldAt<void*>(k.key, kEntries), nullptr);
}

TEST(ThreadDestructor, MayStoreUnderAnotherKey)
{
    static VornThreadKey* other;
    const KeyWith second(&CountDestructor);
    other = second.key;
    const KeyWith first([](void* value) { VornThreadSetSpecific(other, value); });
    destructorCalls = 0;
    LibraryThread([&] { VornThreadSetSpecific(first.key, &someValue); }).Join();
    EXPECT_EQ(destructorCalls, 1);
    EXPECT_EQ(lastDestroyed, &someValue);
}

TEST(ThreadDestructor, MayDeleteItsOwnKey)
{
    static VornThreadKey* key;
    static int calls;
    calls = 0;
    VornThreadSelf();
    const LeakWatch watch;
    ASSERT_EQ(VornThreadKeyCreate(&key,
                                  [](void*) {
                                      ++calls;
                                      EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK);
                                  }),
              VORN_OK);
    LibraryThread([&] { VornThreadSetSpecific(key, &someValue); }).Join();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(watch.Leaks(), "");
}

namespace {

// Stores a value when the thread's own objects are destroyed, which may be after its clean-up.
struct StoresLate {
    VornThreadKey* key = nullptr;
    std::atomic<VornStatus>* status = nullptr;
    ~StoresLate()
    {
        if (key != nullptr) *status = VornThreadSetSpecific(key, &someValue);
    }
};
thread_local StoresLate storesLate;

}  // namespace

TEST(ThreadDestructor, OfAValueThatIsStoredAfterTheCleanupIsNotRemembered)
{
    const KeyWith k(&CountDestructor);
    std::atomic<VornStatus> status{VORN_E_UNKNOWN};
    LibraryThread thread([&] {
        storesLate.status = &status;
        storesLate.key = k.key;
    });
    ASSERT_TRUE(WaitBounded(thread.Thread()->handle));
    EXPECT_EQ(status, VORN_OK);
    EXPECT_EQ(FieldAt<void*>(k.key, kEntries), nullptr) << "nobody would call its destructor";
    thread.Join();
}

TEST(ThreadDestructor, WaitsForAKeyLockThatIsBusy)
{
    const KeyWith k(&CountDestructor);
    VornMutex** const lock = &FieldAt<VornMutex*>(k.key, kKeyLock);
    LibraryThread thread([&] { VornThreadSetSpecific(k.key, &someValue); });
    // Either the thread is held up at its end, or it has stored nothing yet and is held up there.
    EXPECT_EQ(VornMutexLock(lock), VORN_OK);
    VornThreadSleep(20);
    EXPECT_EQ(VornMutexUnlock(lock), VORN_OK);
    thread.Join();
    EXPECT_EQ(destructorCalls, 1);
}

TEST(ThreadKeyDelete, CallsNoDestructorNowOrLater)
{
    VornThreadSelf();
    destructorCalls = 0;
    const LeakWatch watch;
    VornThreadKey* key = nullptr;
    ASSERT_EQ(VornThreadKeyCreate(&key, &CountDestructor), VORN_OK);
    {
        Event stored;
        Event end;
        LibraryThread thread([&] {
            VornThreadSetSpecific(key, &someValue);
            stored.Set();
            end.Wait();
        });
        ASSERT_TRUE(stored.Wait());
        VornThreadSetSpecific(key, &someValue);
        EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK);
        end.Set();
        thread.Join();
    }
    EXPECT_EQ(destructorCalls, 0);
    // The list lock of this thread's record lives on.
    EXPECT_LE(watch.LiveAllocations(), 1u);
}

TEST(ThreadKeyDelete, WorksWithoutItsLock)
{
    destructorCalls = 0;
    VornThreadKey* key = nullptr;
    ASSERT_EQ(VornThreadKeyCreate(&key, &CountDestructor), VORN_OK);
    const FailingCall fail(kCreateEvent);
    EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK);
}

TEST(ThreadKeyDelete, RacesWithEndingThreads)
{
    VornThreadSelf();
    for (int round = 0; round < 40; ++round) {
        VornThreadKey* key = nullptr;
        ASSERT_EQ(VornThreadKeyCreate(&key, &CountDestructor), VORN_OK);
        std::atomic<int> stored{0};
        std::atomic<bool> go{false};
        const auto body = [&] {
            VornThreadSetSpecific(key, &someValue);
            ++stored;
            while (!go) SwitchToThread();
        };
        LibraryThread a(body);
        LibraryThread b(body);
        LibraryThread c(body);
        while (stored != 3) SwitchToThread();
        go = true;
        for (int spin = 0; spin < round * 400; ++spin) YieldProcessor();
        EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK);
    }
}

// ---- Once ----

namespace {

std::atomic<int> onceCalls{0};

void CountOnce()
{
    ++onceCalls;
}

}  // namespace

TEST(Once, RejectsANullControlOrRoutine)
{
    VornOnce once = VORN_ONCE_INIT;
    EXPECT_EQ(VornThreadOnce(nullptr, &CountOnce), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadOnce(&once, nullptr), VORN_E_INVALID_ARG);
}

TEST(Once, RunsTheRoutineOnce)
{
    static_assert(sizeof(VornOnce) == 16 && offsetof(VornOnce, queue) == 8);
    onceCalls = 0;
    VornOnce once = VORN_ONCE_INIT;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(VornThreadOnce(&once, &CountOnce), VORN_OK);
    EXPECT_EQ(onceCalls, 1);
    EXPECT_EQ(once.done, 1u);
    EXPECT_EQ(once.queue, nullptr);
}

TEST(Once, MakesTheOthersWaitUntilTheRoutineHasFinished)
{
    static Event* inside;
    static Event* goOn;
    static std::atomic<bool> finished;
    Event insideEvent;
    Event goOnEvent;
    inside = &insideEvent;
    goOn = &goOnEvent;
    finished = false;
    VornOnce once = VORN_ONCE_INIT;
    const auto routine = [] {
        inside->Set();
        goOn->Wait();
        finished = true;
    };
    LibraryThread first([&] { VornThreadOnce(&once, routine); });
    ASSERT_TRUE(insideEvent.Wait());
    std::atomic<int> early{0};
    const auto body = [&] {
        VornThreadOnce(&once, routine);
        if (!finished) ++early;
    };
    {
        LibraryThread second(body);
        LibraryThread third(body);
        EXPECT_TRUE(Eventually([&] { return __atomic_load_n(&once.queue, __ATOMIC_SEQ_CST) != nullptr; }));
        VornThreadSleep(20);
        goOnEvent.Set();
    }
    EXPECT_EQ(early, 0);
    EXPECT_EQ(once.queue, nullptr);
}

TEST(Once, WaitsWithoutAnEventWhenNoneCanBeHad)
{
    static Event* inside;
    static Event* goOn;
    static std::atomic<int> calls;
    Event insideEvent;
    Event goOnEvent;
    inside = &insideEvent;
    goOn = &goOnEvent;
    calls = 0;
    VornOnce once = VORN_ONCE_INIT;
    const auto routine = [] {
        ++calls;
        inside->Set();
        goOn->Wait();
    };
    LibraryThread first([&] { VornThreadOnce(&once, routine); });
    ASSERT_TRUE(insideEvent.Wait());
    {
        Event started;
        Event armed;
        LibraryThread second([&] {
            VornThreadSelf();
            started.Set();
            armed.Wait();
            VornThreadOnce(&once, routine);
        });
        ASSERT_TRUE(started.Wait());
        const FailingCall fail(kCreateEvent, 1, true);
        armed.Set();
        EXPECT_TRUE(Eventually([&] { return fail.Failures() > 0; }));
        goOnEvent.Set();
        second.Join();
    }
    EXPECT_EQ(calls, 1);
}

TEST(Once, RunsWithoutMemoryForItsCleanupHandler)
{
    onceCalls = 0;
    VornOnce once = VORN_ONCE_INIT;
    LibraryThread([&] {
        const FailingCall fail(kCalloc);
        EXPECT_EQ(VornThreadOnce(&once, &CountOnce), VORN_OK);
        EXPECT_EQ(fail.Failures(), 1);
    }).Join();
    EXPECT_EQ(onceCalls, 1);
    EXPECT_EQ(once.queue, nullptr);
}

TEST(Once, ARoutineThatIsCancelledLeavesTheControlToTheNextCaller)
{
    onceCalls = 0;
    VornOnce once = VORN_ONCE_INIT;
    LibraryThread cancelled([&] {
        VornThreadOnce(&once, [] {
            VornThreadCancel(VornThreadSelf());
            VornThreadTestCancel();
        });
    });
    cancelled.Join();
    EXPECT_EQ(once.done, 0u);
    EXPECT_EQ(VornThreadOnce(&once, &CountOnce), VORN_OK);
    EXPECT_EQ(onceCalls, 1);
    EXPECT_EQ(once.queue, nullptr);
}

TEST(Once, ARoutineThatExitsItsThreadLeavesTheControlToTheNextCaller)
{
    onceCalls = 0;
    VornOnce once = VORN_ONCE_INIT;
    LibraryThread([&] { VornThreadOnce(&once, [] { VornThreadExit(nullptr); }); }).Join();
    ForeignThread([&] { VornThreadOnce(&once, [] { VornThreadExit(nullptr); }); }).Wait();
    EXPECT_EQ(once.done, 0u);
    EXPECT_EQ(VornThreadOnce(&once, &CountOnce), VORN_OK);
    EXPECT_EQ(onceCalls, 1);
}

TEST(Once, ARoutineThatThrowsLeavesTheControlToTheNextCaller)
{
    onceCalls = 0;
    VornThreadSelf();
    const LeakWatch watch;
    VornOnce once = VORN_ONCE_INIT;
    EXPECT_THROW(VornThreadOnce(&once, [] { throw 5; }), int);
    EXPECT_EQ(once.done, 0u);
    EXPECT_EQ(once.queue, nullptr);
    EXPECT_EQ(VornThreadOnce(&once, &CountOnce), VORN_OK);
    EXPECT_EQ(onceCalls, 1);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(Once, HandlersOfACancelledRoutineRunBeforeTheNextCallerEnters)
{
    static std::string order;
    order.clear();
    static Event* inside;
    Event insideEvent;
    inside = &insideEvent;
    VornOnce once = VORN_ONCE_INIT;
    LibraryThread first([&] {
        VornThreadOnce(&once, [] {
            VornThreadCleanupPush(
                [](void*) {
                    Sleep(20);
                    order += 'u';  // undone
                },
                nullptr);
            inside->Set();
            VornThreadCancel(VornThreadSelf());
            VornThreadTestCancel();
        });
    });
    ASSERT_TRUE(insideEvent.Wait());
    VornThreadOnce(&once, [] { order += 'r'; });
    first.Join();
    EXPECT_EQ(order, "ur");
}

TEST(Once, AThreadThatIsCancelledWhileItHandsTheControlOnHandsItOn)
{
    // Held where it wakes the next caller, who sleeps.
    static Event* nextSleeps;
    static Event* handsOn;
    static std::atomic<bool>* goOn;
    static std::atomic<DWORD> first;
    static std::atomic<DWORD> next;
    Event nextSleepsEvent;
    Event handsOnEvent;
    std::atomic<bool> goOnFlag{false};
    nextSleeps = &nextSleepsEvent;
    handsOn = &handsOnEvent;
    goOn = &goOnFlag;
    first = 0;
    next = 0;
    const ImportRedirect waits(
        "WaitForSingleObject", +[](HANDLE object, DWORD timeoutMs) -> DWORD {
            if (GetCurrentThreadId() == next && timeoutMs == INFINITE) nextSleeps->Set();
            return WaitForSingleObject(object, timeoutMs);
        });
    const ImportRedirect wakes(
        "SetEvent", +[](HANDLE event) -> BOOL {
            if (GetCurrentThreadId() == first && !handsOn->IsSet()) {
                handsOn->Set();
                while (!*goOn) YieldProcessor();
            }
            return SetEvent(event);
        });
    static Event* inside;
    Event insideEvent;
    inside = &insideEvent;
    onceCalls = 0;
    VornOnce once = VORN_ONCE_INIT;
    LibraryThread holder([&] {
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        VornThreadOnce(&once, [] {
            ++onceCalls;
            inside->Set();
            nextSleeps->Wait();
            first = GetCurrentThreadId();
        });
        for (;;) VornThreadTestCancel();
    });
    ASSERT_TRUE(insideEvent.Wait());
    LibraryThread successor([&] {
        next = GetCurrentThreadId();
        EXPECT_EQ(VornThreadOnce(&once, &CountOnce), VORN_OK);
    });
    ASSERT_TRUE(handsOnEvent.Wait());
    EXPECT_EQ(VornThreadCancel(holder.Thread()), VORN_OK);
    goOnFlag = true;
    EXPECT_EQ(holder.Join(), reinterpret_cast<void*>(~uintptr_t{0}));
    successor.Join();
    EXPECT_EQ(onceCalls, 1);
    EXPECT_EQ(once.done, 1u);
    EXPECT_EQ(once.queue, nullptr);
}

TEST(Once, ARoutineThatPopsMoreHandlersThanItPushedLeavesTheControlHeld)
{
    static std::atomic<bool> ended;
    static Event* popped;
    static Event* goOn;
    Event poppedEvent;
    Event goOnEvent;
    popped = &poppedEvent;
    goOn = &goOnEvent;
    ended = false;
    onceCalls = 0;
    VornOnce once = VORN_ONCE_INIT;
    LibraryThread first([&] {
        VornThreadOnce(&once, [] {
            ++onceCalls;
            VornThreadCleanupPop(1);
            popped->Set();
            goOn->Wait();
            ended = true;
        });
    });
    ASSERT_TRUE(poppedEvent.Wait());
    EXPECT_NE(__atomic_load_n(&once.queue, __ATOMIC_SEQ_CST), nullptr);
    LibraryThread second([&] {
        EXPECT_EQ(VornThreadOnce(&once, &CountOnce), VORN_OK);
        EXPECT_TRUE(ended);
    });
    goOnEvent.Set();
    first.Join();
    second.Join();
    EXPECT_EQ(onceCalls, 1);
    EXPECT_EQ(once.queue, nullptr);
}

TEST(Once, NestsForDifferentControls)
{
    static VornOnce inner;
    inner = VORN_ONCE_INIT;
    onceCalls = 0;
    VornOnce outer = VORN_ONCE_INIT;
    VornThreadOnce(&outer, [] { VornThreadOnce(&inner, &CountOnce); });
    EXPECT_EQ(onceCalls, 1);
}

TEST(OnceStress, EightThreadsRaceOver10000Controls)
{
    constexpr int kControls = 10000;
    constexpr int kThreads = 8;
    static std::atomic<int> total;
    total = 0;
    std::vector<VornOnce> all(kControls, VornOnce VORN_ONCE_INIT);
    std::atomic<int> early{0};
    std::vector<int> ran(kControls, 0);
    static std::vector<int>* runs;
    runs = &ran;
    static thread_local int current;
    VornThreadSelf();
    {
        std::vector<std::unique_ptr<LibraryThread>> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.push_back(std::make_unique<LibraryThread>([&] {
                for (int c = 0; c < kControls; ++c) {
                    current = c;
                    VornThreadOnce(&all[c], [] {
                        ++(*runs)[current];
                        ++total;
                    });
                    if (ran[c] != 1) ++early;
                }
            }));
        }
    }
    EXPECT_EQ(total, kControls);
    EXPECT_EQ(early, 0);
    for (const VornOnce& once : all) EXPECT_EQ(once.queue, nullptr);
}

// ---- Process end ----

namespace {

DWORD WINAPI StoreForEver(void* key)
{
    for (;;) {
        VornThreadSetSpecific(static_cast<VornThreadKey*>(key), &someValue);
        VornThreadSetSpecific(static_cast<VornThreadKey*>(key), nullptr);
    }
}

}  // namespace

VORN_CHILD(EndsWhileAnotherThreadStores)
{
    VornThreadKey* key = nullptr;
    VornThreadKeyCreate(&key, &CountDestructor);
    VornThreadSetSpecific(key, &someValue);
    for (int i = 0; i < 2; ++i) CreateThread(nullptr, 0, &StoreForEver, key, 0, nullptr);
    VornThreadSleep(20);
    ExitProcess(7);
}

VORN_CHILD(EndsWhileTheOnceRoutineIsRunning)
{
    static VornOnce once = VORN_ONCE_INIT;
    static Event* inside;
    Event insideEvent;
    inside = &insideEvent;
    new ForeignThread([] {
        VornThreadOnce(&once, [] {
            inside->Set();
            Sleep(INFINITE);
        });
    });
    insideEvent.Wait();
    new ForeignThread([] { VornThreadOnce(&once, [] {}); });
    VornThreadSleep(20);
    ExitProcess(7);
}

VORN_CHILD(EndsInTheOnceRoutineWhileAnotherThreadCame)
{
    static VornOnce once = VORN_ONCE_INIT;
    static void* halfWay[4];  // another caller's place: it was ended before it had made itself known
    static HANDLE reached;
    reached = CreateEventW(nullptr, TRUE, FALSE, arguments[0].c_str());
    VornThreadCleanupPush([](void*) { SetEvent(reached); }, nullptr);
    VornThreadOnce(&once, [] {
        once.queue = halfWay;
        ExitProcess(7);
    });
    return 1;
}

TEST(ProcessEnd, InAOnceRoutineRunsTheHandlersThatWerePushedBeforeIt)
{
    const std::wstring name = UniqueName(L"reached");
    const Event reached(name.c_str());
    EXPECT_EQ(ChildProcess("EndsInTheOnceRoutineWhileAnotherThreadCame", {name}).Wait(), 7u);
    EXPECT_TRUE(reached.IsSet());
}

TEST(ProcessEnd, IsNotHeldUpByAThreadInsideSetSpecific)
{
    for (int i = 0; i < 4; ++i) EXPECT_EQ(ChildProcess("EndsWhileAnotherThreadStores").Wait(), 7u);
}

TEST(ProcessEnd, IsNotHeldUpByAOnceRoutine)
{
    EXPECT_EQ(ChildProcess("EndsWhileTheOnceRoutineIsRunning").Wait(), 7u);
}
