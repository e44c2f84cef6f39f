#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"
#include "support/failing_call.h"
#include "support/import_redirect.h"
#include "support/leak_watch.h"
#include "thread/thread_runner.h"

#include <cstdlib>
#include <exception>
#include <gtest/gtest.h>
#include <vector>

using namespace vorn_test;

namespace {

constexpr size_t kPriority = 0;
constexpr size_t kAdopted = 4;
constexpr size_t kDetached = 8;
constexpr size_t kHandle = 16;
constexpr size_t kCancelState = 48;
constexpr size_t kCancelType = 52;
constexpr size_t kThreadId = 56;
constexpr size_t kProcessId = 60;
constexpr size_t kState = 64;

void* const kAllOnes = reinterpret_cast<void*>(~uintptr_t{0});
void* const kValue = reinterpret_cast<void*>(uintptr_t{0x1122334455667788});

void* ReturnArgument(void* argument)
{
    return argument;
}

void* ExitWithArgument(void* argument)
{
    VornThreadExit(argument);
    return nullptr;
}

void* AwaitEvent(void* event)
{
    static_cast<Event*>(event)->Wait();
    return nullptr;
}

int32_t StateOf(VornThread* thread)
{
    return __atomic_load_n(&FieldAt<int32_t>(thread, kState), __ATOMIC_SEQ_CST);
}

}  // namespace

TEST(ThreadCreate, RejectsABadPriorityOrDetachedValueAndStartsNothing)
{
    const LeakWatch watch;
    VornThread* thread = nullptr;
    for (int32_t priority : {3, -3, 14, 16, -14, -16, 1000}) {
        const VornThreadAttr attr = {priority, 0};
        EXPECT_EQ(VornThreadCreate(&thread, &attr, &ReturnArgument, nullptr), VORN_E_INVALID_ARG);
    }
    const VornThreadAttr badDetached = {0, 2};
    EXPECT_EQ(VornThreadCreate(&thread, &badDetached, &ReturnArgument, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadCreate(nullptr, nullptr, &ReturnArgument, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadCreate(&thread, nullptr, nullptr, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(thread, nullptr);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadCreate, AcceptsEveryPriorityOfTheSystem)
{
    for (int32_t priority : {-15, -2, -1, 0, 1, 2, 15}) {
        Event end;
        VornThread* thread = nullptr;
        const VornThreadAttr attr = {priority, 0};
        ASSERT_EQ(VornThreadCreate(&thread, &attr, &AwaitEvent, &end), VORN_OK);
        EXPECT_EQ(FieldAt<int32_t>(thread, kPriority), priority);
        EXPECT_EQ(GetThreadPriority(FieldAt<HANDLE>(thread, kHandle)), priority);
        end.Set();
        EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
    }
}

TEST(ThreadCreate, FillsTheRecord)
{
    Event end;
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &AwaitEvent, &end), VORN_OK);
    EXPECT_EQ(FieldAt<int32_t>(thread, kPriority), 0);
    EXPECT_EQ(FieldAt<uint32_t>(thread, kAdopted), 0u);
    EXPECT_EQ(FieldAt<uint32_t>(thread, kDetached), 0u);
    EXPECT_EQ(FieldAt<uint32_t>(thread, kCancelState), 0u);
    EXPECT_EQ(FieldAt<uint32_t>(thread, kCancelType), 1u);
    EXPECT_EQ(FieldAt<uint32_t>(thread, kThreadId), GetThreadId(FieldAt<HANDLE>(thread, kHandle)));
    EXPECT_EQ(FieldAt<uint32_t>(thread, kProcessId), GetCurrentProcessId());
    EXPECT_TRUE(Eventually([&] { return StateOf(thread) == 1; }));
    end.Set();
    EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
}

TEST(ThreadCreate, StoresTheThreadBeforeItRuns)
{
    struct Shared {
        VornThread* thread = nullptr;
        bool same = false;
    } shared;
    ASSERT_EQ(VornThreadCreate(
                  &shared.thread, nullptr,
                  [](void* p) -> void* {
                      auto* s = static_cast<Shared*>(p);
                      s->same = s->thread != nullptr && VornThreadEqual(s->thread, VornThreadSelf()) == 1;
                      return nullptr;
                  },
                  &shared),
              VORN_OK);
    EXPECT_EQ(VornThreadJoin(shared.thread, nullptr), VORN_OK);
    EXPECT_TRUE(shared.same);
}

TEST(ThreadCreate, ReportsEachFailureAndLeavesNothing)
{
    VornThreadSelf();
    struct Case {
        FaultPoint point;
        long nth;
        VornStatus status;
    };
    const FaultPoint resume = {"ResumeThread", 0xFFFFFFFF, kGenericFailure};
    const Case cases[] = {{kCalloc, 1, VORN_E_NO_MEMORY},
                          {kCalloc, 2, VORN_E_NO_MEMORY},
                          {kCreateEvent, 1, VORN_E_NO_MEMORY},
                          {kCreateThread, 1, VORN_E_SYSTEM},
                          {resume, 1, VORN_E_SYSTEM}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.point.import);
        VornThread* thread = nullptr;
        const LeakWatch watch;
        {
            const FailingCall fail(c.point, c.nth);
            EXPECT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, nullptr), c.status);
            EXPECT_EQ(fail.Failures(), 1);
        }
        EXPECT_EQ(watch.Leaks(), "");
    }
}

TEST(ThreadJoin, GivesTheReturnedValue)
{
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, kValue), VORN_OK);
    void* result = nullptr;
    EXPECT_EQ(VornThreadJoin(thread, &result), VORN_OK);
    EXPECT_EQ(result, kValue);
}

TEST(ThreadJoin, GivesTheValueOfThreadExit)
{
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ExitWithArgument, kValue), VORN_OK);
    void* result = nullptr;
    EXPECT_EQ(VornThreadJoin(thread, &result), VORN_OK);
    EXPECT_EQ(result, kValue);
}

TEST(ThreadJoin, AcceptsANullResultAndAThreadThatHasFinished)
{
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, kValue), VORN_OK);
    EXPECT_TRUE(Eventually([&] { return StateOf(thread) == 6; }));
    EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
}

TEST(ThreadJoin, GivesBackTheRecord)
{
    VornThreadSelf();
    const LeakWatch watch;
    for (int i = 0; i < 50; ++i) {
        VornThread* thread = nullptr;
        ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, nullptr), VORN_OK);
        ASSERT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadJoin, RefusesWhatIsNoLiveThread)
{
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, nullptr), VORN_OK);
    ASSERT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
    EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadDetach(thread), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadSetPriority(thread, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadCancel(thread), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadJoin(nullptr, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadDetach(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadSetPriority(nullptr, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornThreadCancel(nullptr), VORN_E_INVALID_ARG);
}

TEST(ThreadJoin, RefusesADetachedThread)
{
    Event end;
    VornThread* thread = nullptr;
    const VornThreadAttr attr = {0, 1};
    ASSERT_EQ(VornThreadCreate(&thread, &attr, &AwaitEvent, &end), VORN_OK);
    HANDLE handle = nullptr;
    DuplicateHandle(GetCurrentProcess(), FieldAt<HANDLE>(thread, kHandle), GetCurrentProcess(), &handle,
                    SYNCHRONIZE, FALSE, 0);
    EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_E_DETACHED);
    EXPECT_EQ(VornThreadDetach(thread), VORN_E_SYSTEM);
    end.Set();
    EXPECT_TRUE(WaitBounded(handle));
    CloseHandle(handle);
}

TEST(ThreadJoin, ReportsADeadlockForTheCallerItself)
{
    VornStatus status = VORN_E_UNKNOWN;
    LibraryThread([&] { status = VornThreadJoin(VornThreadSelf(), nullptr); }).Join();
    EXPECT_EQ(status, VORN_E_DEADLOCK);
}

TEST(ThreadJoin, RefusesAnAdoptedThread)
{
    EXPECT_EQ(VornThreadJoin(VornThreadSelf(), nullptr), VORN_E_DETACHED);
}

TEST(ThreadJoin, NeedsARecordOfTheCaller)
{
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, nullptr), VORN_OK);
    ForeignThread([&] {
        const FailingCall fail(kCalloc, 1, true);
        EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_E_NO_MEMORY);
    }).Wait();
    EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
}

TEST(ThreadJoin, LeavesTheThreadJoinableWhenTheWaitFails)
{
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, kValue), VORN_OK);
    {
        const FailingCall fail(kWaitForMultipleObjects);
        EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    void* result = nullptr;
    EXPECT_EQ(VornThreadJoin(thread, &result), VORN_OK);
    EXPECT_EQ(result, kValue);
}

namespace {

// A thread whose record lies on a page of its own, which freeing it makes inaccessible.
struct RecordOnAPage {
    void* page = VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    int callsUntilRecord = 2;  // the first allocation is the start block
    VornThread* thread = nullptr;
    Event end;
};
RecordOnAPage* paged;
void* (*originalCalloc)(size_t, size_t);
void (*originalFree)(void*);

void* CallocOnPage(size_t count, size_t size)
{
    return --paged->callsUntilRecord == 0 ? paged->page : originalCalloc(count, size);
}

void FreeOnPage(void* block)
{
    DWORD before = 0;
    if (block == paged->page) {
        VirtualProtect(block, 4096, PAGE_NOACCESS, &before);
    } else {
        originalFree(block);
    }
}

DWORD WINAPI DetachAndWait(DWORD, const HANDLE* objects, BOOL, DWORD)
{
    HANDLE handle = nullptr;
    DuplicateHandle(GetCurrentProcess(), objects[0], GetCurrentProcess(), &handle, SYNCHRONIZE, FALSE, 0);
    EXPECT_EQ(VornThreadDetach(paged->thread), VORN_OK);
    paged->end.Set();
    EXPECT_TRUE(WaitBounded(handle));
    CloseHandle(handle);
    return WAIT_OBJECT_0;
}

}  // namespace

TEST(ThreadJoin, DoesNotTouchTheRecordOfAThreadThatWasDetachedMeanwhile)
{
    VornThreadSelf();
    RecordOnAPage record;
    paged = &record;
    {
        const ImportRedirect allocating("calloc", &CallocOnPage);
        const ImportRedirect freeing("free", &FreeOnPage);
        const ImportRedirect waiting("WaitForMultipleObjects", &DetachAndWait);
        originalCalloc = allocating.Original<decltype(originalCalloc)>();
        originalFree = freeing.Original<decltype(originalFree)>();
        ASSERT_EQ(VornThreadCreate(&record.thread, nullptr, &AwaitEvent, &record.end), VORN_OK);
        ASSERT_EQ(static_cast<void*>(record.thread), record.page);
        void* result = kValue;
        EXPECT_EQ(VornThreadJoin(record.thread, &result), VORN_E_INVALID_ARG);
        EXPECT_EQ(result, kValue);
    }
    VirtualFree(record.page, 0, MEM_RELEASE);
}

TEST(ThreadDetach, FreesARunningThreadsRecordWhenItEnds)
{
    VornThreadSelf();
    const LeakWatch watch;
    {
        Event end;
        VornThread* thread = nullptr;
        ASSERT_EQ(VornThreadCreate(&thread, nullptr, &AwaitEvent, &end), VORN_OK);
        HANDLE handle = nullptr;
        DuplicateHandle(GetCurrentProcess(), FieldAt<HANDLE>(thread, kHandle), GetCurrentProcess(), &handle,
                        SYNCHRONIZE, FALSE, 0);
        EXPECT_EQ(VornThreadDetach(thread), VORN_OK);
        EXPECT_EQ(VornThreadDetach(thread), VORN_E_SYSTEM);
        end.Set();
        EXPECT_TRUE(WaitBounded(handle));
        CloseHandle(handle);
        EXPECT_EQ(VornThreadDetach(thread), VORN_E_INVALID_ARG);
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadDetach, FreesAFinishedThreadsRecordAtOnce)
{
    VornThreadSelf();
    const LeakWatch watch;
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, nullptr), VORN_OK);
    ASSERT_TRUE(Eventually([&] { return StateOf(thread) == 6; }));
    EXPECT_EQ(VornThreadDetach(thread), VORN_OK);
    EXPECT_EQ(VornThreadDetach(thread), VORN_E_INVALID_ARG);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadDetach, ReportsAStateLockThatCannotBeTaken)
{
    Event end;
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &AwaitEvent, &end), VORN_OK);
    {
        const FailingCall fail(kCreateEvent);
        EXPECT_EQ(VornThreadDetach(thread), VORN_E_SYSTEM);
    }
    end.Set();
    EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
}

TEST(ThreadDetach, RacesWithTheThreadsEndWithoutLoss)
{
    VornThreadSelf();
    const LeakWatch watch;
    for (int i = 0; i < 300; ++i) {
        VornThread* thread = nullptr;
        ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, nullptr), VORN_OK);
        HANDLE handle = nullptr;
        DuplicateHandle(GetCurrentProcess(), FieldAt<HANDLE>(thread, kHandle), GetCurrentProcess(), &handle,
                        SYNCHRONIZE, FALSE, 0);
        for (int spin = 0; spin < i * 50; ++spin) YieldProcessor();
        ASSERT_EQ(VornThreadDetach(thread), VORN_OK);
        ASSERT_TRUE(WaitBounded(handle));
        CloseHandle(handle);
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadSetPriority, SetsAndRemembersThePriority)
{
    Event end;
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, &AwaitEvent, &end), VORN_OK);
    EXPECT_EQ(VornThreadSetPriority(thread, 2), VORN_OK);
    EXPECT_EQ(FieldAt<int32_t>(thread, kPriority), 2);
    EXPECT_EQ(GetThreadPriority(FieldAt<HANDLE>(thread, kHandle)), 2);
    EXPECT_EQ(VornThreadSetPriority(thread, 12345), VORN_E_SYSTEM);
    EXPECT_EQ(FieldAt<int32_t>(thread, kPriority), 2);
    end.Set();
    EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
}

TEST(ThreadSelf, AdoptsAForeignThreadOnce)
{
    ForeignThread([] {
        VornThread* const self = VornThreadSelf();
        ASSERT_NE(self, nullptr);
        EXPECT_EQ(VornThreadSelf(), self);
        EXPECT_EQ(FieldAt<uint32_t>(self, kAdopted), 1u);
        EXPECT_EQ(FieldAt<uint32_t>(self, kDetached), 1u);
        EXPECT_EQ(FieldAt<uint32_t>(self, kThreadId), GetCurrentThreadId());
        EXPECT_EQ(FieldAt<uint32_t>(self, kProcessId), GetCurrentProcessId());
        EXPECT_EQ(FieldAt<int32_t>(self, kState), 0);
        EXPECT_EQ(FieldAt<int32_t>(self, kPriority), 0);
        EXPECT_EQ(GetThreadId(FieldAt<HANDLE>(self, kHandle)), GetCurrentThreadId());
        EXPECT_EQ(VornThreadDetach(self), VORN_E_SYSTEM);
    }).Wait();
}

TEST(ThreadSelf, StoresThePseudoHandleWhenTheHandleCannotBeDuplicated)
{
    ForeignThread([] {
        const FailingCall fail({"DuplicateHandle", 0, kGenericFailure});
        VornThread* const self = VornThreadSelf();
        ASSERT_NE(self, nullptr);
        EXPECT_EQ(fail.Failures(), 1);
        EXPECT_EQ(FieldAt<HANDLE>(self, kHandle), GetCurrentThread());
    }).Wait();
}

TEST(ThreadSetPriority, OfAThreadWithThePseudoHandleIsForThatThreadAlone)
{
    Event adopted;
    Event end;
    std::atomic<VornThread*> record{nullptr};
    const FailingCall fail({"DuplicateHandle", 0, kGenericFailure});
    ForeignThread thread([&] {
        record = VornThreadSelf();
        EXPECT_EQ(VornThreadSetPriority(record, 1), VORN_OK);
        EXPECT_EQ(GetThreadPriority(GetCurrentThread()), 1);
        adopted.Set();
        end.Wait();
    });
    ASSERT_TRUE(adopted.Wait());
    const int own = GetThreadPriority(GetCurrentThread());
    EXPECT_EQ(VornThreadSetPriority(record, -1), VORN_E_SYSTEM);
    EXPECT_EQ(GetThreadPriority(GetCurrentThread()), own);
    EXPECT_EQ(FieldAt<int32_t>(record.load(), kPriority), 1);
    end.Set();
    thread.Join();
}

TEST(ThreadSelf, IsNullWhenTheAdoptionFails)
{
    VornThreadSelf();
    const LeakWatch watch;
    for (const FaultPoint& point : {kCalloc, kCreateEvent, kTlsSetValue}) {
        ForeignThread([&] {
            {
                const FailingCall fail(point);
                EXPECT_EQ(VornThreadSelf(), nullptr);
                EXPECT_EQ(fail.Failures(), 1);
            }
            EXPECT_NE(VornThreadSelf(), nullptr);
        }).Wait();
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadSelf, LeavesBothLastErrorsAlone)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    ForeignThread([] {
        VornSetLastError(VORN_E_RANGE);
        SetLastError(4711);
        VornThreadSelf();
        EXPECT_EQ(GetLastError(), 4711u);
        VornThreadSelf();
        EXPECT_EQ(GetLastError(), 4711u);
        EXPECT_EQ(VornGetLastError(), VORN_E_RANGE);
    }).Wait();
    VornTerminate();
}

namespace {

// What this program does, as another module might, when a thread comes up: before its start routine runs.
void (*onThreadAttach)() = nullptr;

void NTAPI OnThread(void*, DWORD reason, void*)
{
    if (reason == DLL_THREAD_ATTACH && onThreadAttach != nullptr) onThreadAttach();
}
__attribute__((used, section(".CRT$XLF"))) const PIMAGE_TLS_CALLBACK onThread = &OnThread;

struct SeenAtAttach {
    VornThread* self = nullptr;
    VornThreadKey* key = nullptr;
    int destroyed = 0;
    int cleanedUp = 0;
};
SeenAtAttach* seen;

}  // namespace

TEST(ThreadSelf, GivesAThreadOfTheLibraryItsRecordAlsoBeforeItsStartRoutine)
{
    VornThreadSelf();
    SeenAtAttach atAttach;
    seen = &atAttach;
    const LeakWatch watch;
    ASSERT_EQ(VornThreadKeyCreate(&seen->key, [](void*) { ++seen->destroyed; }), VORN_OK);
    for (int round = 1; round <= 3; ++round) {
        onThreadAttach = [] {
            seen->self = VornThreadSelf();
            EXPECT_EQ(VornThreadSetSpecific(seen->key, seen), VORN_OK);
            VornThreadCleanupPush([](void*) { ++seen->cleanedUp; }, nullptr);
        };
        VornThread* thread = nullptr;
        void* value = nullptr;
        EXPECT_EQ(VornThreadCreate(
                      &thread, nullptr, [](void*) { return VornThreadGetSpecific(seen->key); }, nullptr),
                  VORN_OK);
        VornThread* const created = thread;
        EXPECT_EQ(VornThreadJoin(thread, &value), VORN_OK);
        onThreadAttach = nullptr;
        EXPECT_EQ(seen->self, created);
        EXPECT_EQ(value, seen);
        EXPECT_EQ(seen->destroyed, round);
        EXPECT_EQ(seen->cleanedUp, round);
    }
    EXPECT_EQ(VornThreadKeyDelete(seen->key), VORN_OK);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadSelf, IsNotCancelledBeforeItsStartRoutine)
{
    VornThreadSelf();
    for (const int32_t type : {VORN_CANCEL_DEFERRED, VORN_CANCEL_ASYNCHRONOUS}) {
        static int32_t cancelType;
        cancelType = type;
        onThreadAttach = [] {
            EXPECT_EQ(VornThreadSetCancelType(cancelType, nullptr), VORN_OK);
            EXPECT_EQ(VornThreadCancel(VornThreadSelf()), VORN_OK);
            VornThreadTestCancel();
            EXPECT_EQ(VornThreadSetCancelType(VORN_CANCEL_DEFERRED, nullptr), VORN_OK);
        };
        VornThread* thread = nullptr;
        bool started = false;
        EXPECT_EQ(VornThreadCreate(
                      &thread, nullptr,
                      [](void* argument) -> void* {
                          *static_cast<bool*>(argument) = true;
                          VornThreadTestCancel();
                          return nullptr;
                      },
                      &started),
                  VORN_OK);
        void* value = nullptr;
        EXPECT_EQ(VornThreadJoin(thread, &value), VORN_OK);
        onThreadAttach = nullptr;
        EXPECT_TRUE(started);
        EXPECT_EQ(value, kAllOnes);
    }
}

TEST(ThreadSelf, FreesAnAdoptedRecordWhenTheThreadEnds)
{
    VornThreadSelf();
    const LeakWatch watch;
    for (int i = 0; i < 50; ++i) ForeignThread([] { VornThreadSelf(); }).Wait();
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadEqual, ComparesIdentities)
{
    VornThread* const self = VornThreadSelf();
    EXPECT_EQ(VornThreadEqual(self, VornThreadSelf()), 1);
    EXPECT_EQ(VornThreadEqual(self, nullptr), 0);
    EXPECT_EQ(VornThreadEqual(nullptr, nullptr), 1);
}

TEST(ThreadExit, UnwindsTheStackOfALibraryThread)
{
    struct Marker {
        bool* gone;
        ~Marker() { *gone = true; }
    };
    bool gone = false;
    void* result = nullptr;
    {
        LibraryThread thread([&]() -> void* {
            const Marker marker{&gone};
            VornThreadExit(kValue);
            return nullptr;
        });
        result = thread.Join();
    }
    EXPECT_TRUE(gone);
    EXPECT_EQ(result, kValue);
}

TEST(ThreadExit, GivesTheLow32BitsAsTheSystemsExitCode)
{
    for (VornThreadStart function : {&ReturnArgument, &ExitWithArgument}) {
        VornThread* thread = nullptr;
        ASSERT_EQ(VornThreadCreate(&thread, nullptr, function, kValue), VORN_OK);
        HANDLE handle = nullptr;
        DuplicateHandle(GetCurrentProcess(), FieldAt<HANDLE>(thread, kHandle), GetCurrentProcess(), &handle,
                        0, FALSE, DUPLICATE_SAME_ACCESS);
        EXPECT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
        DWORD code = 0;
        GetExitCodeThread(handle, &code);
        EXPECT_EQ(code, 0x55667788u);
        CloseHandle(handle);
    }
}

TEST(ThreadExit, EndsAForeignThreadAtOnceWithOrWithoutARecord)
{
    for (bool adopted : {false, true}) {
        ForeignThread thread([adopted] {
            if (adopted) VornThreadSelf();
            VornThreadExit(kValue);
        });
        ASSERT_TRUE(thread.Wait());
        EXPECT_EQ(thread.ExitCode(), 0x55667788u);
    }
}

TEST(ThreadSleep, SleepsAtLeastTheTimeGiven)
{
    const double before = Milliseconds();
    VornThreadSleep(50);
    EXPECT_GE(Milliseconds() - before, 50 - kClockTick);
}

TEST(ThreadSleep, AsksTheSystemForExactlyTheTimeGiven)
{
    static std::vector<DWORD> asked;
    asked.clear();
    const ImportRedirect sleep(
        "Sleep", +[](DWORD milliseconds) { asked.push_back(milliseconds); });
    ASSERT_TRUE(sleep.Found());
    for (uint32_t milliseconds : {0u, 1u, 50u, 0xFFFFFFFEu, VORN_INFINITE}) VornThreadSleep(milliseconds);
    VornThreadYield();
    EXPECT_EQ(asked, (std::vector<DWORD>{0, 1, 50, 0xFFFFFFFE, INFINITE, 0}));
}

TEST(ThreadCleanup, RunsLeftHandlersNewestFirstAtTheEnd)
{
    std::string order;
    struct Entry {
        std::string* order;
        char name;
    };
    Entry entries[] = {{&order, 'a'}, {&order, 'b'}, {&order, 'c'}, {&order, 'd'}};
    const auto handler = [](void* p) {
        const auto* e = static_cast<Entry*>(p);
        e->order->push_back(e->name);
    };
    LibraryThread([&] {
        for (Entry& e : entries) VornThreadCleanupPush(handler, &e);
        VornThreadCleanupPop(0);  // d does not run
        VornThreadCleanupPop(1);  // c runs now
        EXPECT_EQ(order, "c");
    }).Join();
    EXPECT_EQ(order, "cba");
}

TEST(ThreadCleanup, RunsInAdoptedThreadsToo)
{
    int runs = 0;
    ForeignThread([&] { VornThreadCleanupPush([](void* p) { ++*static_cast<int*>(p); }, &runs); }).Wait();
    EXPECT_EQ(runs, 1);
}

TEST(ThreadCleanup, PopOnAnEmptyStackDoesNothing)
{
    LibraryThread([] { VornThreadCleanupPop(1); }).Join();
    ForeignThread([] { VornThreadCleanupPop(1); }).Wait();
}

TEST(ThreadCleanup, PushDoesNothingWithoutMemory)
{
    int runs = 0;
    LibraryThread([&] {
        const FailingCall fail(kCalloc);
        VornThreadCleanupPush([](void* p) { ++*static_cast<int*>(p); }, &runs);
        EXPECT_EQ(fail.Failures(), 1);
    }).Join();
    EXPECT_EQ(runs, 0);
}

TEST(ThreadCleanup, AHandlerMayPushAnother)
{
    static int runs;
    runs = 0;
    LibraryThread([] {
        VornThreadCleanupPush([](void*) { VornThreadCleanupPush([](void*) { ++runs; }, nullptr); }, nullptr);
    }).Join();
    EXPECT_EQ(runs, 1);
}

// ---- Ends of the process ----

namespace {

// The exit code of a child whose terminate handler ran after the thread's clean-up.
constexpr int kTerminatedAfterCleanup = 42;
bool cleanedUp = false;

void MarkCleanedUp(void*)
{
    cleanedUp = true;
}

void EndAfterTerminate()
{
    _exit(cleanedUp ? kTerminatedAfterCleanup : 43);
}

}  // namespace

VORN_CHILD(ThrowsOutOfItsStartFunction)
{
    std::set_terminate(&EndAfterTerminate);
    LibraryThread([] {
        VornThreadCleanupPush(&MarkCleanedUp, nullptr);
        throw 1;
    }).Join();
    return 1;
}

VORN_CHILD(CallsTerminateInALibraryThread)
{
    std::set_terminate(&EndAfterTerminate);
    LibraryThread([] {
        VornThreadCleanupPush(&MarkCleanedUp, nullptr);
        std::terminate();
    }).Join();
    return 1;
}

VORN_CHILD(ThrowsInACleanupHandler)
{
    std::set_terminate([] { _exit(42); });
    LibraryThread([] {
        VornThreadCleanupPush([](void*) { throw 1; }, nullptr);
        VornThreadCleanupPop(1);
    }).Join();
    return 1;
}

VORN_CHILD(ThrowsInACleanupHandlerAtTheEnd)
{
    std::set_terminate([] { _exit(42); });
    LibraryThread([] { VornThreadCleanupPush([](void*) { throw 1; }, nullptr); }).Join();
    return 1;
}

VORN_CHILD(EndsWhileThreadsAreInside)
{
    // The threads are ended by the system wherever they are, with whatever they hold.
    static VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    static VornThreadKey* key = nullptr;
    VornThreadKeyCreate(&key, [](void*) {});
    std::atomic<int> running{0};
    for (int i = 0; i < 3; ++i) {
        new ForeignThread([&running, i] {
            ++running;
            for (;;) {
                if (i == 0) {
                    VornMutexLock(&mutex);
                    VornMutexUnlock(&mutex);
                }
                if (i == 1) {
                    VornThread* thread = nullptr;
                    if (VornThreadCreate(&thread, nullptr, &ReturnArgument, nullptr) == VORN_OK) {
                        VornThreadJoin(thread, nullptr);
                    }
                }
                if (i == 2) {
                    VornThreadSetSpecific(key, &running);
                    VornThreadSetSpecific(key, nullptr);
                }
            }
        });
    }
    Eventually([&] { return running == 3; });
    VornThreadSetSpecific(key, &running);
    VornThreadSleep(20);
    ExitProcess(7);
}

VORN_CHILD(EndsWhileItsOwnLocksAreHeldByThreadsThatAreGone)
{
    static VornThreadKey* key = nullptr;
    VornThreadKeyCreate(&key, [](void*) {});
    VornThreadSetSpecific(key, &key);
    VornThread* const self = VornThreadSelf();
    Event held;
    new ForeignThread([&] {
        VornMutexLock(&FieldAt<VornMutex*>(self, 32));  // the list lock
        VornMutexLock(&FieldAt<VornMutex*>(self, 40));  // the state lock
        VornMutexLock(&FieldAt<VornMutex*>(key, 16));   // the key's lock
        held.Set();
        Sleep(INFINITE);
    });
    held.Wait();
    ExitProcess(7);
}

VORN_CHILD(EndsWhileTheKeysLockIsHeldByAThreadThatIsGone)
{
    static VornThreadKey* key = nullptr;
    VornThreadKeyCreate(&key, [](void*) { cleanedUp = true; });
    VornThreadSetSpecific(key, &key);
    Event held;
    new ForeignThread([&] {
        VornMutexLock(&FieldAt<VornMutex*>(key, 16));
        held.Set();
        Sleep(INFINITE);
    });
    held.Wait();
    ExitProcess(7);
}

namespace {

VornMutex* lockOfTheDead = VORN_MUTEX_INITIALIZER;

// Runs when the other threads are gone and before the modules are told, as the clean-up of a module that uses
// the library does.
void NTAPI LockOnTheWayOut(void*)
{
    if (VornMutexLock(&lockOfTheDead) != VORN_E_SYSTEM) TerminateProcess(GetCurrentProcess(), 98);
}

}  // namespace

VORN_CHILD(LocksOnItsWayOutWhatAThreadThatIsGoneHolds)
{
    FlsSetValue(FlsAlloc(&LockOnTheWayOut), &lockOfTheDead);
    Event held;
    new ForeignThread([&] {
        VornMutexLock(&lockOfTheDead);
        held.Set();
        Sleep(INFINITE);
    });
    held.Wait();
    ExitProcess(7);
}

VORN_CHILD(EndsInALibraryThread)
{
    LibraryThread([] { ExitProcess(7); }).Join();
    return 1;
}

TEST(ThreadTerminate, AnExceptionThatLeavesTheStartFunctionEndsTheProcessAfterTheCleanup)
{
    EXPECT_EQ(ChildProcess("ThrowsOutOfItsStartFunction").Wait(), 42u);
}

TEST(ThreadTerminate, TerminateInALibraryThreadRunsItsCleanupFirst)
{
    EXPECT_EQ(ChildProcess("CallsTerminateInALibraryThread").Wait(), 42u);
}

TEST(ThreadTerminate, AHandlerThatThrowsEndsTheProcess)
{
    EXPECT_EQ(ChildProcess("ThrowsInACleanupHandler").Wait(), 42u);
    EXPECT_EQ(ChildProcess("ThrowsInACleanupHandlerAtTheEnd").Wait(), 42u);
}

TEST(ThreadTerminate, PutsTheHostsHandlerBackWhenTheLastThreadEnds)
{
    const auto before = std::get_terminate();
    Event end;
    {
        LibraryThread first([&] { end.Wait(); });
        LibraryThread second([&] { end.Wait(); });
        EXPECT_TRUE(Eventually([&] { return std::get_terminate() != before; }));
        end.Set();
    }
    EXPECT_EQ(std::get_terminate(), before);
}

TEST(ThreadTerminate, LeavesAHandlerThatTheHostSetMeanwhile)
{
    const auto before = std::get_terminate();
    const auto own = [] { _exit(1); };
    {
        LibraryThread thread([&] { std::set_terminate(own); });
    }
    EXPECT_EQ(std::get_terminate(), static_cast<std::terminate_handler>(own));
    std::set_terminate(before);
}

TEST(ProcessEnd, IsNotHeldUpByThreadsInsideTheLibrary)
{
    for (int i = 0; i < 3; ++i) EXPECT_EQ(ChildProcess("EndsWhileThreadsAreInside").Wait(), 7u);
}

TEST(ProcessEnd, IsNotHeldUpByLocksOfThreadsThatAreGone)
{
    EXPECT_EQ(ChildProcess("EndsWhileItsOwnLocksAreHeldByThreadsThatAreGone").Wait(), 7u);
    EXPECT_EQ(ChildProcess("EndsWhileTheKeysLockIsHeldByAThreadThatIsGone").Wait(), 7u);
}

TEST(ProcessEnd, IsNotHeldUpByAModuleThatLocksOnItsWayOut)
{
    EXPECT_EQ(ChildProcess("LocksOnItsWayOutWhatAThreadThatIsGoneHolds").Wait(), 7u);
}

TEST(ProcessEnd, MayComeFromALibraryThread)
{
    EXPECT_EQ(ChildProcess("EndsInALibraryThread").Wait(), 7u);
}

// ---- Many ----

TEST(ThreadStress, CreatesAndJoinsWithoutGrowth)
{
    VornThreadSelf();
    const LeakWatch watch;
    for (int i = 0; i < 500; ++i) {
        VornThread* thread = nullptr;
        ASSERT_EQ(VornThreadCreate(&thread, nullptr, &ReturnArgument, kValue), VORN_OK);
        void* result = nullptr;
        ASSERT_EQ(VornThreadJoin(thread, &result), VORN_OK);
        ASSERT_EQ(result, kValue);
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ThreadStress, AdoptsAndForgetsWithoutGrowth)
{
    VornThreadSelf();
    const LeakWatch watch;
    for (int i = 0; i < 500; ++i) {
        const HANDLE thread = CreateThread(
            nullptr, 0,
            [](void*) -> DWORD {
                VornThreadSelf();
                return 0;
            },
            nullptr, 0, nullptr);
        ASSERT_TRUE(WaitBounded(thread));
        CloseHandle(thread);
    }
    EXPECT_EQ(watch.Leaks(), "");
}
