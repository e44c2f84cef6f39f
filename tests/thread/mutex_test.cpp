#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/thread_runner.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

using namespace vorn_test;

namespace {

constexpr size_t kKind = 0;
constexpr size_t kShared = 4;
constexpr size_t kLockWord = 8;
constexpr size_t kRecursionCount = 12;
constexpr size_t kWakeEvent = 16;
constexpr size_t kOwner = 24;

int32_t LockWord(VornMutex* mutex)
{
    return __atomic_load_n(&FieldAt<int32_t>(mutex, kLockWord), __ATOMIC_SEQ_CST);
}

VornThread* Owner(VornMutex* mutex)
{
    return FieldAt<VornThread*>(mutex, kOwner);
}

uint32_t RecursionCount(VornMutex* mutex)
{
    return FieldAt<uint32_t>(mutex, kRecursionCount);
}

class MutexOfKind {
public:
    explicit MutexOfKind(uint32_t kind)
    {
        const VornMutexAttr attr = {kind, 0};
        EXPECT_EQ(VornMutexCreate(&mutex, &attr), VORN_OK);
    }
    MutexOfKind(const MutexOfKind&) = delete;
    MutexOfKind& operator=(const MutexOfKind&) = delete;
    ~MutexOfKind() { EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK); }

    VornMutex* mutex = nullptr;
};

VornStatus TryLockElsewhere(VornMutex** mutex)
{
    VornStatus status = VORN_E_UNKNOWN;
    LibraryThread([&] { status = VornMutexTryLock(mutex); }).Join();
    return status;
}

VornStatus UnlockElsewhere(VornMutex** mutex)
{
    VornStatus status = VORN_E_UNKNOWN;
    LibraryThread([&] { status = VornMutexUnlock(mutex); }).Join();
    return status;
}

const VornMutexAttr kNormal = {VORN_MUTEX_NORMAL, 0};
const VornMutexAttr kRecursive = {VORN_MUTEX_RECURSIVE, 0};
const VornMutexAttr kErrorCheck = {VORN_MUTEX_ERRORCHECK, 0};

}  // namespace

TEST(MutexCreate, RejectsAKindOrSharedValueOutOfRange)
{
    VornMutex* mutex = nullptr;
    const VornMutexAttr badKind = {3, 0};
    EXPECT_EQ(VornMutexCreate(&mutex, &badKind), VORN_E_INVALID_ARG);
    const VornMutexAttr badShared = {0, 2};
    EXPECT_EQ(VornMutexCreate(&mutex, &badShared), VORN_E_INVALID_ARG);
    const VornMutexAttr badKindShared = {3, 1};
    EXPECT_EQ(VornMutexCreate(&mutex, &badKindShared), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornMutexCreate(nullptr, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(mutex, nullptr);
}

TEST(MutexCreate, DoesNotSupportASharedMutexAndAllocatesNothingForIt)
{
    const LeakWatch watch;
    VornMutex* mutex = nullptr;
    const VornMutexAttr shared = {0, 1};
    EXPECT_EQ(VornMutexCreate(&mutex, &shared), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(MutexCreate, FillsTheRecord)
{
    for (uint32_t kind = 0; kind < 3; ++kind) {
        VornMutex* mutex = nullptr;
        const VornMutexAttr attr = {kind, 0};
        ASSERT_EQ(VornMutexCreate(&mutex, &attr), VORN_OK);
        EXPECT_EQ(FieldAt<uint32_t>(mutex, kKind), kind);
        EXPECT_EQ(FieldAt<uint32_t>(mutex, kShared), 0u);
        EXPECT_EQ(LockWord(mutex), 0);
        EXPECT_EQ(RecursionCount(mutex), 0u);
        EXPECT_NE(FieldAt<HANDLE>(mutex, kWakeEvent), nullptr);
        EXPECT_FALSE(WaitBounded(FieldAt<HANDLE>(mutex, kWakeEvent), 0));
        EXPECT_EQ(Owner(mutex), nullptr);
        EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
    }
}

TEST(MutexCreate, MakesANormalMutexForANullAttribute)
{
    VornMutex* mutex = nullptr;
    ASSERT_EQ(VornMutexCreate(&mutex, nullptr), VORN_OK);
    EXPECT_EQ(FieldAt<uint32_t>(mutex, kKind), VORN_MUTEX_NORMAL);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

TEST(MutexCreate, LeavesNullWhenMemoryOrTheEventCannotBeHad)
{
    const LeakWatch watch;
    int unused;
    auto* mutex = reinterpret_cast<VornMutex*>(&unused);
    {
        const FailingCall fail(kCalloc);
        EXPECT_EQ(VornMutexCreate(&mutex, nullptr), VORN_E_NO_MEMORY);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(mutex, nullptr);
    mutex = reinterpret_cast<VornMutex*>(&unused);
    {
        const FailingCall fail(kCreateEvent);
        EXPECT_EQ(VornMutexCreate(&mutex, nullptr), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(mutex, nullptr);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(MutexFirstUse, CreatesTheKindThatTheInitializerStandsFor)
{
    VornMutex* const initializers[] = {VORN_MUTEX_INITIALIZER, VORN_RECURSIVE_MUTEX_INITIALIZER,
                                       VORN_ERRORCHECK_MUTEX_INITIALIZER};
    for (uint32_t kind = 0; kind < 3; ++kind) {
        VornMutex* locked = initializers[kind];
        EXPECT_EQ(VornMutexLock(&locked), VORN_OK);
        EXPECT_EQ(FieldAt<uint32_t>(locked, kKind), kind);
        EXPECT_EQ(VornMutexUnlock(&locked), VORN_OK);
        EXPECT_EQ(VornMutexDestroy(&locked), VORN_OK);
        VornMutex* tried = initializers[kind];
        EXPECT_EQ(VornMutexTryLock(&tried), VORN_OK);
        EXPECT_EQ(FieldAt<uint32_t>(tried, kKind), kind);
        EXPECT_EQ(VornMutexUnlock(&tried), VORN_OK);
        EXPECT_EQ(VornMutexDestroy(&tried), VORN_OK);
    }
}

TEST(MutexFirstUse, LeavesNullAfterAFailureAndRefusesEveryLaterLock)
{
    VornMutex* const initializers[] = {VORN_MUTEX_INITIALIZER, VORN_RECURSIVE_MUTEX_INITIALIZER,
                                       VORN_ERRORCHECK_MUTEX_INITIALIZER};
    VornThreadSelf();
    const LeakWatch watch;
    for (VornMutex* initializer : initializers) {
        VornMutex* mutex = initializer;
        {
            const FailingCall fail(kCalloc);
            EXPECT_EQ(VornMutexLock(&mutex), VORN_E_NO_MEMORY);
        }
        EXPECT_EQ(mutex, nullptr);
        EXPECT_EQ(VornMutexLock(&mutex), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornMutexUnlock(&mutex), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornMutexDestroy(&mutex), VORN_E_INVALID_ARG);
        mutex = initializer;
        {
            const FailingCall fail(kCreateEvent);
            EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_SYSTEM);
        }
        EXPECT_EQ(mutex, nullptr);
    }
    EXPECT_EQ(watch.Leaks(), "");
}

namespace {

VornMutex* watchedMutex;
VornMutex* seenWhileCreating;
ImportRedirect* createEventRedirect;

HANDLE WINAPI CreateEventWatching(SECURITY_ATTRIBUTES* attributes, BOOL manual, BOOL initial,
                                  const wchar_t* name)
{
    seenWhileCreating = watchedMutex;
    return createEventRedirect->Original<decltype(&CreateEventW)>()(attributes, manual, initial, name);
}

}  // namespace

TEST(MutexFirstUse, ShowsOtherThreadsTheInitializerUntilTheRecordIsComplete)
{
    watchedMutex = VORN_MUTEX_INITIALIZER;
    seenWhileCreating = nullptr;
    {
        ImportRedirect redirect("CreateEventW", &CreateEventWatching);
        createEventRedirect = &redirect;
        ASSERT_TRUE(redirect.Found());
        EXPECT_EQ(VornMutexLock(&watchedMutex), VORN_OK);
    }
    EXPECT_EQ(seenWhileCreating, VORN_MUTEX_INITIALIZER);
    EXPECT_EQ(VornMutexUnlock(&watchedMutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&watchedMutex), VORN_OK);
}

namespace {

// What another thread does at the edge of the lock over all creations: just before it is taken, or just after
// it was given back. Done once.
class ElsewhereMeanwhile {
public:
    ElsewhereMeanwhile(const char* edge, void (*action)()) : redirect_(edge, &Reach)
    {
        EXPECT_TRUE(redirect_.Found());
        action_ = action;
        entering_ = std::string(edge) == "EnterCriticalSection";
        original_ = redirect_.Original<decltype(original_)>();
    }
    ElsewhereMeanwhile(const ElsewhereMeanwhile&) = delete;
    ElsewhereMeanwhile& operator=(const ElsewhereMeanwhile&) = delete;
    ~ElsewhereMeanwhile() { EXPECT_EQ(action_, nullptr) << "the edge was not reached"; }

private:
    static void WINAPI Reach(CRITICAL_SECTION* section)
    {
        if (!entering_) original_(section);
        if (const auto action = std::exchange(action_, nullptr)) action();
        if (entering_) original_(section);
    }

    inline static void(WINAPI* original_)(CRITICAL_SECTION*);
    inline static void (*action_)();
    inline static bool entering_;
    ImportRedirect redirect_;
};

void UseWatchedMutex()
{
    EXPECT_EQ(VornMutexLock(&watchedMutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&watchedMutex), VORN_OK);
}

void DestroyWatchedMutex()
{
    EXPECT_EQ(VornMutexDestroy(&watchedMutex), VORN_OK);
}

}  // namespace

TEST(MutexFirstUse, TakesTheRecordThatAnotherThreadHasCreatedMeanwhile)
{
    for (const auto lock : {&VornMutexLock, &VornMutexTryLock}) {
        watchedMutex = VORN_MUTEX_INITIALIZER;
        const FailingCall events(kCreateEvent, 0);
        {
            const ElsewhereMeanwhile created("EnterCriticalSection", &UseWatchedMutex);
            EXPECT_EQ(lock(&watchedMutex), VORN_OK);
        }
        EXPECT_EQ(events.Calls(), 1);
        EXPECT_EQ(VornMutexUnlock(&watchedMutex), VORN_OK);
        EXPECT_EQ(VornMutexDestroy(&watchedMutex), VORN_OK);
    }
}

TEST(MutexFirstUse, RefusesAVariableThatAnotherThreadHasDestroyedMeanwhile)
{
    for (const char* edge : {"EnterCriticalSection", "LeaveCriticalSection"}) {
        for (const auto lock : {&VornMutexLock, &VornMutexTryLock}) {
            watchedMutex = VORN_MUTEX_INITIALIZER;
            const ElsewhereMeanwhile destroyed(edge, &DestroyWatchedMutex);
            EXPECT_EQ(lock(&watchedMutex), VORN_E_INVALID_ARG) << edge;
            EXPECT_EQ(watchedMutex, nullptr);
        }
    }
}

TEST(MutexFirstUse, CreatesOneRecordWhenThreadsRace)
{
    constexpr int kRounds = 300;
    constexpr int kThreads = 4;
    VornThreadSelf();
    std::vector<VornMutex*> mutexes(kRounds, VORN_MUTEX_INITIALIZER);
    std::vector<int> counters(kRounds, 0);
    std::atomic<int> waiting{0};
    std::atomic<bool> go{false};
    const FailingCall events(kCreateEvent, 0);
    const long before = events.Calls();
    long made = 0;
    {
        std::vector<std::unique_ptr<ForeignThread>> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.push_back(std::make_unique<ForeignThread>([&] {
                ++waiting;
                while (!go) YieldProcessor();
                for (int round = 0; round < kRounds; ++round) {
                    EXPECT_EQ(VornMutexLock(&mutexes[round]), VORN_OK);
                    ++counters[round];
                    EXPECT_EQ(VornMutexUnlock(&mutexes[round]), VORN_OK);
                }
            }));
        }
        ASSERT_TRUE(Eventually([&] { return waiting == kThreads; }));
        go = true;
    }
    made = events.Calls() - before;
    EXPECT_EQ(made, kRounds);
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(counters[round], kThreads);
        EXPECT_EQ(VornMutexDestroy(&mutexes[round]), VORN_OK);
    }
}

TEST(MutexLock, RejectsANullAddress)
{
    EXPECT_EQ(VornMutexLock(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornMutexTryLock(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornMutexUnlock(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornMutexDestroy(nullptr), VORN_E_INVALID_ARG);
}

TEST(MutexNormal, HoldsItsWordAtOneAndKeepsNoOwner)
{
    MutexOfKind m(VORN_MUTEX_NORMAL);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(LockWord(m.mutex), 1);
    EXPECT_EQ(Owner(m.mutex), nullptr);
    EXPECT_EQ(RecursionCount(m.mutex), 0u);
    EXPECT_EQ(VornMutexTryLock(&m.mutex), VORN_E_BUSY);
    EXPECT_EQ(TryLockElsewhere(&m.mutex), VORN_E_BUSY);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_EQ(LockWord(m.mutex), 0);
}

TEST(MutexNormal, UnlocksWhenItIsNotHeld)
{
    MutexOfKind m(VORN_MUTEX_NORMAL);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_EQ(LockWord(m.mutex), 0);
}

TEST(MutexNormal, IsUnlockedByAnyThread)
{
    MutexOfKind m(VORN_MUTEX_NORMAL);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(UnlockElsewhere(&m.mutex), VORN_OK);
    EXPECT_EQ(LockWord(m.mutex), 0);
}

TEST(MutexNormal, NeverAdoptsItsCaller)
{
    MutexOfKind m(VORN_MUTEX_NORMAL);
    const FailingCall events(kCreateEvent, 0);
    ForeignThread([&] {
        EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
        EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
        EXPECT_EQ(VornMutexTryLock(&m.mutex), VORN_OK);
        EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    }).Wait();
    EXPECT_EQ(events.Calls(), 0);
}

TEST(MutexNormal, MarksAWaiterAndWakesItByOneSignal)
{
    MutexOfKind m(VORN_MUTEX_NORMAL);
    ASSERT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    VornStatus status = VORN_E_UNKNOWN;
    LibraryThread waiter([&] {
        status = VornMutexLock(&m.mutex);
        EXPECT_EQ(LockWord(m.mutex), -1);
        EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    });
    EXPECT_TRUE(Eventually([&] { return LockWord(m.mutex) == -1; }));
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    waiter.Join();
    EXPECT_EQ(status, VORN_OK);
    EXPECT_EQ(LockWord(m.mutex), 0);
}

TEST(MutexNormal, ReportsAWaitThatFailsAndLeavesTheMark)
{
    MutexOfKind m(VORN_MUTEX_NORMAL);
    ASSERT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    {
        const FailingCall fail(kWaitForSingleObject);
        EXPECT_EQ(VornMutexLock(&m.mutex), VORN_E_SYSTEM);
    }
    EXPECT_EQ(LockWord(m.mutex), -1);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
}

TEST(MutexUnlock, ReportsASignalThatFails)
{
    const uint32_t kinds[] = {VORN_MUTEX_NORMAL, VORN_MUTEX_RECURSIVE, VORN_MUTEX_ERRORCHECK};
    for (uint32_t kind : kinds) {
        MutexOfKind m(kind);
        ASSERT_EQ(VornMutexLock(&m.mutex), VORN_OK);
        FieldAt<int32_t>(m.mutex, kLockWord) = -1;  // as after a sleeper's mark
        const FailingCall fail(kSetEvent);
        EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_E_SYSTEM);
        EXPECT_EQ(LockWord(m.mutex), 0);
    }
}

TEST(MutexUnlock, RefusesAnInitializer)
{
    VornMutex* const initializers[] = {VORN_MUTEX_INITIALIZER, VORN_RECURSIVE_MUTEX_INITIALIZER,
                                       VORN_ERRORCHECK_MUTEX_INITIALIZER};
    for (VornMutex* initializer : initializers) {
        VornMutex* mutex = initializer;
        EXPECT_EQ(VornMutexUnlock(&mutex), VORN_E_INVALID_ARG);
        EXPECT_EQ(mutex, initializer);
    }
}

TEST(MutexRecursive, LockedThreeTimesNeedsThreeUnlocks)
{
    MutexOfKind m(VORN_MUTEX_RECURSIVE);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(RecursionCount(m.mutex), 1u);
    EXPECT_EQ(Owner(m.mutex), VornThreadSelf());
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(VornMutexTryLock(&m.mutex), VORN_OK);
    EXPECT_EQ(RecursionCount(m.mutex), 3u);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_EQ(LockWord(m.mutex), 1);
    EXPECT_EQ(TryLockElsewhere(&m.mutex), VORN_E_BUSY);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_EQ(LockWord(m.mutex), 0);
    EXPECT_EQ(Owner(m.mutex), nullptr);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_E_NOT_PERMITTED);
}

TEST(MutexRecursive, IsNotUnlockedByAnotherThread)
{
    MutexOfKind m(VORN_MUTEX_RECURSIVE);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(UnlockElsewhere(&m.mutex), VORN_E_NOT_PERMITTED);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
}

TEST(MutexRecursive, WakesASleeperAfterTheLastUnlockOnly)
{
    MutexOfKind m(VORN_MUTEX_RECURSIVE);
    ASSERT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    ASSERT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    std::atomic<bool> got{false};
    LibraryThread waiter([&] {
        EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
        got = true;
        EXPECT_EQ(RecursionCount(m.mutex), 1u);
        EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    });
    ASSERT_TRUE(Eventually([&] { return LockWord(m.mutex) == -1; }));
    // A further lock by the holder must not take the sleeper's mark away.
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(LockWord(m.mutex), -1);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_FALSE(got);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    waiter.Join();
    EXPECT_TRUE(got);
}

TEST(MutexErrorCheck, ReportsASecondLockByItsHolder)
{
    MutexOfKind m(VORN_MUTEX_ERRORCHECK);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(Owner(m.mutex), VornThreadSelf());
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_E_DEADLOCK);
    EXPECT_EQ(VornMutexTryLock(&m.mutex), VORN_E_BUSY);
    EXPECT_EQ(LockWord(m.mutex), 1);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_EQ(LockWord(m.mutex), 0);
}

TEST(MutexErrorCheck, KeepsItsLastOwnerButNotAsItsHolder)
{
    MutexOfKind m(VORN_MUTEX_ERRORCHECK);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_EQ(Owner(m.mutex), VornThreadSelf());
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_E_NOT_PERMITTED);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
}

TEST(MutexErrorCheck, IsNotUnlockedByAnotherThread)
{
    MutexOfKind m(VORN_MUTEX_ERRORCHECK);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(UnlockElsewhere(&m.mutex), VORN_E_NOT_PERMITTED);
    EXPECT_EQ(LockWord(m.mutex), 1);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
}

TEST(MutexErrorCheck, ASecondLockKeepsTheSleepersMark)
{
    MutexOfKind m(VORN_MUTEX_ERRORCHECK);
    ASSERT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    VornStatus status = VORN_E_UNKNOWN;
    LibraryThread waiter([&] {
        status = VornMutexLock(&m.mutex);
        EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    });
    ASSERT_TRUE(Eventually([&] { return LockWord(m.mutex) == -1; }));
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(VornMutexLock(&m.mutex), VORN_E_DEADLOCK);
        EXPECT_EQ(LockWord(m.mutex), -1);
    }
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    waiter.Join();
    EXPECT_EQ(status, VORN_OK);
}

TEST(MutexErrorCheck, AFormerOwnerWaitsInsteadOfBeingToldOfADeadlock)
{
    MutexOfKind m(VORN_MUTEX_ERRORCHECK);
    // The window in which a new holder has the word but has not written the owner yet.
    ASSERT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    ASSERT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    ASSERT_EQ(Owner(m.mutex), VornThreadSelf());
    FieldAt<int32_t>(m.mutex, kLockWord) = 1;
    Event released;
    LibraryThread holder([&] {
        EXPECT_TRUE(Eventually([&] { return LockWord(m.mutex) == -1; }));
        FieldAt<int32_t>(m.mutex, kLockWord) = 0;
        SetEvent(FieldAt<HANDLE>(m.mutex, kWakeEvent));
    });
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
}

TEST(MutexOwned, CannotBeLockedByAThreadWithoutIdentity)
{
    const uint32_t kinds[] = {VORN_MUTEX_RECURSIVE, VORN_MUTEX_ERRORCHECK};
    for (uint32_t kind : kinds) {
        MutexOfKind m(kind);
        ForeignThread([&] {
            const FailingCall fail(kCalloc, 1, true);
            EXPECT_EQ(VornMutexLock(&m.mutex), VORN_E_NO_MEMORY);
            EXPECT_EQ(VornMutexTryLock(&m.mutex), VORN_E_NO_MEMORY);
            EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_E_NOT_PERMITTED);
            EXPECT_EQ(VornMutexDestroy(&m.mutex), VORN_E_NO_MEMORY);
        }).Wait();
        EXPECT_EQ(LockWord(m.mutex), 0);
    }
}

TEST(MutexDestroy, TurnsAnInitializerIntoNull)
{
    VornMutex* const initializers[] = {VORN_MUTEX_INITIALIZER, VORN_RECURSIVE_MUTEX_INITIALIZER,
                                       VORN_ERRORCHECK_MUTEX_INITIALIZER};
    for (VornMutex* initializer : initializers) {
        VornMutex* mutex = initializer;
        EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
        EXPECT_EQ(mutex, nullptr);
        EXPECT_EQ(VornMutexDestroy(&mutex), VORN_E_INVALID_ARG);
    }
}

TEST(MutexDestroy, RefusesAnInitializerThatAnotherThreadHasUsedMeanwhile)
{
    watchedMutex = VORN_MUTEX_INITIALIZER;
    {
        const ElsewhereMeanwhile created("EnterCriticalSection", &UseWatchedMutex);
        EXPECT_EQ(VornMutexDestroy(&watchedMutex), VORN_E_BUSY);
    }
    UseWatchedMutex();
    DestroyWatchedMutex();
}

TEST(MutexDestroy, RefusesAHeldMutex)
{
    MutexOfKind normal(VORN_MUTEX_NORMAL);
    EXPECT_EQ(VornMutexLock(&normal.mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&normal.mutex), VORN_E_BUSY);
    EXPECT_NE(normal.mutex, nullptr);
    EXPECT_EQ(VornMutexUnlock(&normal.mutex), VORN_OK);
    MutexOfKind checked(VORN_MUTEX_ERRORCHECK);
    EXPECT_EQ(VornMutexLock(&checked.mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&checked.mutex), VORN_E_BUSY);
    EXPECT_EQ(VornMutexUnlock(&checked.mutex), VORN_OK);
}

TEST(MutexDestroy, LeavesARecursiveMutexThatTheCallerHoldsAsItWas)
{
    MutexOfKind m(VORN_MUTEX_RECURSIVE);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(VornMutexLock(&m.mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&m.mutex), VORN_E_BUSY);
    EXPECT_EQ(RecursionCount(m.mutex), 2u);
    EXPECT_EQ(LockWord(m.mutex), 1);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
}

namespace {

VornMutex* steppedMutex;

// Stands in for a contender: goes along instruction by instruction until the word is held, and marks it.
LONG WINAPI MarkWhenHeld(EXCEPTION_POINTERS* raised)
{
    constexpr DWORD kTrapFlag = 0x100;
    if (raised->ExceptionRecord->ExceptionCode != EXCEPTION_SINGLE_STEP) return EXCEPTION_CONTINUE_SEARCH;
    if (LockWord(steppedMutex) == 1) {
        FieldAt<int32_t>(steppedMutex, kLockWord) = -1;
        raised->ContextRecord->EFlags &= ~kTrapFlag;
    } else {
        raised->ContextRecord->EFlags |= kTrapFlag;
    }
    return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

TEST(MutexDestroy, PutsTheMutexBackWhenItCannotBeUnlocked)
{
    for (const VornMutexAttr* attr : {&kNormal, &kRecursive, &kErrorCheck}) {
        VornMutex* mutex = nullptr;
        ASSERT_EQ(VornMutexCreate(&mutex, attr), VORN_OK);
        VornMutex* const before = steppedMutex = mutex;
        void* const handler = AddVectoredExceptionHandler(1, &MarkWhenHeld);
        {
            const FailingCall fail(kSetEvent);
            asm volatile("pushfq; orq $0x100, (%%rsp); popfq" ::: "memory", "cc");
            const VornStatus status = VornMutexDestroy(&mutex);
            EXPECT_EQ(status, VORN_E_SYSTEM);
            EXPECT_EQ(fail.Failures(), 1);
        }
        RemoveVectoredExceptionHandler(handler);
        EXPECT_EQ(mutex, before);
        EXPECT_EQ(LockWord(mutex), 0);
        EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
        EXPECT_EQ(mutex, nullptr);
    }
}

TEST(MutexDestroy, GivesBackTheRecordAndItsEvent)
{
    VornThreadSelf();
    const LeakWatch watch;
    for (const VornMutexAttr* attr : {&kNormal, &kRecursive, &kErrorCheck}) {
        for (int i = 0; i < 50; ++i) {
            VornMutex* mutex = nullptr;
            EXPECT_EQ(VornMutexCreate(&mutex, attr), VORN_OK);
            EXPECT_EQ(VornMutexLock(&mutex), VORN_OK);
            EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
            EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
        }
    }
    EXPECT_EQ(watch.Leaks(), "");
}

class MutexStress : public testing::TestWithParam<uint32_t> {};

TEST_P(MutexStress, LetsOneThreadAtATimeIn)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 4000;
    MutexOfKind m(GetParam());
    int64_t inside = 0;
    int64_t total = 0;
    {
        std::vector<std::unique_ptr<LibraryThread>> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.push_back(std::make_unique<LibraryThread>([&, i] {
                for (int round = 0; round < kRounds; ++round) {
                    if ((round + i) % 7 == 0) {
                        while (VornMutexTryLock(&m.mutex) != VORN_OK) SwitchToThread();
                    } else {
                        ASSERT_EQ(VornMutexLock(&m.mutex), VORN_OK);
                    }
                    ASSERT_EQ(++inside, 1);
                    ++total;
                    --inside;
                    ASSERT_EQ(VornMutexUnlock(&m.mutex), VORN_OK);
                }
            }));
        }
    }
    EXPECT_EQ(total, kThreads * kRounds);
    EXPECT_EQ(LockWord(m.mutex), 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, MutexStress,
                         testing::Values(VORN_MUTEX_NORMAL, VORN_MUTEX_RECURSIVE, VORN_MUTEX_ERRORCHECK));
