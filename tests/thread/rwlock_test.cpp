#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/condition.h"
#include "thread/sync_support.h"

#include <atomic>

using namespace vorn_test;

namespace {

// The record's fields, in their order.
struct LockFields {
    int32_t sharedCount;
    int32_t exclusiveCount;
    int32_t completedCount;
    VornMutex* sharedCompletedLock;
    VornMutex* exclusiveLock;
    VornCondition* sharedCompleted;
};

class ReadWriteLock : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(VornRWLockCreate(&lock, 0), VORN_OK); }
    void TearDown() override
    {
        ExpectFree();
        EXPECT_EQ(VornRWLockDestroy(&lock), VORN_OK);
        EXPECT_EQ(lock, nullptr);
    }

    LockFields& Fields() { return *reinterpret_cast<LockFields*>(lock); }
    void ExpectFree()
    {
        EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        EXPECT_EQ(Fields().sharedCount, 0);
        EXPECT_EQ(Fields().exclusiveCount, 0);
        EXPECT_EQ(Fields().completedCount, 0);
        ExpectAtRest(Fields().sharedCompleted);
    }
    // Waits until a writer sleeps: it then holds the exclusive lock and has announced how many it waits for.
    void AwaitSleepingWriter(int32_t readers)
    {
        for (;;) {
            ASSERT_EQ(VornMutexLock(&Fields().sharedCompletedLock), VORN_OK);
            const bool sleeps = Fields().completedCount == -readers;
            ASSERT_EQ(VornMutexUnlock(&Fields().sharedCompletedLock), VORN_OK);
            if (sleeps) return;
            Sleep(1);
        }
    }

    VornRWLock* lock = nullptr;
};

}  // namespace

TEST(ReadWriteLockCreate, RefusesASharedOneAndBadArguments)
{
    VornRWLock* const untouched = reinterpret_cast<VornRWLock*>(0x1234);
    VornRWLock* lock = untouched;
    EXPECT_EQ(VornRWLockCreate(&lock, 1), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(VornRWLockCreate(&lock, 2), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornRWLockCreate(&lock, 0xFFFFFFFF), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornRWLockCreate(nullptr, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(lock, untouched);
}

TEST(ReadWriteLockCreate, ReportsEachFailureLeavesZeroAndNothingBehind)
{
    const auto attempt = [&](VornStatus failure) {
        VornRWLock* lock = reinterpret_cast<VornRWLock*>(0x1234);
        const VornStatus status = VornRWLockCreate(&lock, 0);
        if (status == VORN_OK) {
            EXPECT_EQ(VornRWLockDestroy(&lock), VORN_OK);
        } else {
            EXPECT_EQ(status, failure);
            EXPECT_EQ(lock, nullptr);
        }
    };
    attempt(VORN_OK);
    LeakWatch watch;
    // The record, two mutexes, and the condition with its two semaphores and its mutex.
    EXPECT_EQ(FailEachCallInTurn(kCalloc, [&] { attempt(VORN_E_NO_MEMORY); }), 7);
    EXPECT_EQ(FailEachCallInTurn(kCreateEvent, [&] { attempt(VORN_E_SYSTEM); }), 3);
    EXPECT_EQ(FailEachCallInTurn(kCreateSemaphore, [&] { attempt(VORN_E_SYSTEM); }), 2);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(ReadWriteLockArguments, NullAndDestroyedAreRefused)
{
    VornRWLock* lock = nullptr;
    for (VornRWLock** argument : {static_cast<VornRWLock**>(nullptr), &lock}) {
        EXPECT_EQ(VornRWLockReadLock(argument), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornRWLockTryReadLock(argument), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornRWLockWriteLock(argument), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornRWLockTryWriteLock(argument), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornRWLockUnlock(argument), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornRWLockDestroy(argument), VORN_E_INVALID_ARG);
    }
}

TEST(ReadWriteLockInitializer, UnlockOfOneThatWasNeverUsedSucceedsAndCreatesNothing)
{
    VornRWLock* lock = VORN_RWLOCK_INITIALIZER;
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    EXPECT_EQ(lock, VORN_RWLOCK_INITIALIZER);
    EXPECT_EQ(VornRWLockDestroy(&lock), VORN_OK);
    EXPECT_EQ(lock, nullptr);
}

TEST(ReadWriteLockInitializer, EachWayOfLockingCreates)
{
    for (VornStatus (*enter)(VornRWLock**) :
         {&VornRWLockReadLock, &VornRWLockTryReadLock, &VornRWLockWriteLock, &VornRWLockTryWriteLock})
    {
        VornRWLock* lock = VORN_RWLOCK_INITIALIZER;
        EXPECT_EQ(enter(&lock), VORN_OK);
        EXPECT_NE(lock, VORN_RWLOCK_INITIALIZER);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockDestroy(&lock), VORN_OK);
    }
}

TEST(ReadWriteLockInitializer, AFailedCreationIsReportedAndLeavesZero)
{
    for (VornStatus (*enter)(VornRWLock**) :
         {&VornRWLockReadLock, &VornRWLockTryReadLock, &VornRWLockWriteLock, &VornRWLockTryWriteLock})
    {
        VornRWLock* lock = VORN_RWLOCK_INITIALIZER;
        {
            FailingCall fail(kCalloc);
            EXPECT_EQ(enter(&lock), VORN_E_NO_MEMORY);
        }
        EXPECT_EQ(lock, nullptr);
        lock = VORN_RWLOCK_INITIALIZER;
        {
            FailingCall fail(kCreateEvent);
            EXPECT_EQ(enter(&lock), VORN_E_SYSTEM);
        }
        EXPECT_EQ(lock, nullptr);
    }
}

TEST(ReadWriteLockInitializer, RacingThreadsCreateOneLock)
{
    for (int round = 0; round < 100; ++round) {
        VornRWLock* lock = VORN_RWLOCK_INITIALIZER;
        std::atomic<int> ready{0};
        VornRWLock* seen[2] = {};
        const auto body = [&](int index) {
            for (++ready; ready.load() < 2;) YieldProcessor();
            EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
            seen[index] = lock;
        };
        {
            LibraryThread first([&] { body(0); });
            LibraryThread second([&] { body(1); });
        }
        ASSERT_EQ(seen[0], seen[1]);
        EXPECT_EQ(VornRWLockDestroy(&lock), VORN_E_BUSY);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        ASSERT_EQ(VornRWLockDestroy(&lock), VORN_OK);
    }
}

namespace {

VornRWLock** meanwhileVariable;
VornRWLock* meanwhileValue;

void WINAPI StoreThenEnter(CRITICAL_SECTION* section)
{
    *meanwhileVariable = meanwhileValue;
    EnterCriticalSection(section);
}

}  // namespace

TEST(ReadWriteLockInitializer, OneThatWasDestroyedMeanwhileIsRefusedAndOneThatWasCreatedIsUsed)
{
    VornRWLock* lock = VORN_RWLOCK_INITIALIZER;
    meanwhileVariable = &lock;
    meanwhileValue = nullptr;
    {
        ImportRedirect redirect("EnterCriticalSection", &StoreThenEnter);
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_E_INVALID_ARG);
        lock = VORN_RWLOCK_INITIALIZER;
        EXPECT_EQ(VornRWLockDestroy(&lock), VORN_E_INVALID_ARG);
    }
    VornRWLock* created = nullptr;
    ASSERT_EQ(VornRWLockCreate(&created, 0), VORN_OK);
    meanwhileValue = created;
    lock = VORN_RWLOCK_INITIALIZER;
    {
        ImportRedirect redirect("EnterCriticalSection", &StoreThenEnter);
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_OK);
        EXPECT_EQ(lock, created);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        lock = VORN_RWLOCK_INITIALIZER;
        EXPECT_EQ(VornRWLockDestroy(&lock), VORN_OK);
    }
    EXPECT_EQ(lock, nullptr);
}

TEST_F(ReadWriteLock, ReadersShareIt)
{
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_OK);
    LibraryThread([&] {
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    }).Join();
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
}

TEST_F(ReadWriteLock, AWriterIsAlone)
{
    EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_E_BUSY);
    EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_E_BUSY);
    std::atomic<bool> inside{false};
    Event tried;
    LibraryThread reader([&] {
        EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_E_BUSY);
        tried.Set();
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
        inside = true;
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    });
    Await(tried, "the reader");
    EXPECT_FALSE(inside.load());
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    reader.Join();
    EXPECT_TRUE(inside.load());
}

TEST_F(ReadWriteLock, TryWriteWithAReaderInsideIsBusyAndLeavesTheLockUsable)
{
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_E_BUSY);
    EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_E_BUSY);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
}

TEST_F(ReadWriteLock, AWriterWaitsForBothReadersAndAReaderThatComesLaterWaitsForTheWriter)
{
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    std::atomic<int> order{0};
    int writerCame = 0;
    int readerCame = 0;
    LibraryThread writer([&] {
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_OK);
        writerCame = ++order;
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    });
    AwaitSleepingWriter(2);
    EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_E_BUSY) << "writers go first";
    EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_E_BUSY);
    LibraryThread reader([&] {
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
        readerCame = ++order;
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    });
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    AwaitSleepingWriter(1);
    EXPECT_EQ(order.load(), 0);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    writer.Join();
    reader.Join();
    EXPECT_EQ(writerCame, 1);
    EXPECT_EQ(readerCame, 2);
}

TEST_F(ReadWriteLock, ReadingAndWritingAloneMakeNoSystemCall)
{
    FailingCall waits(kWaitForSingleObject, 0);
    FailingCall releases(kReleaseSemaphore, 0);
    FailingCall sets(kSetEvent, 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    }
    EXPECT_EQ(waits.Calls() + releases.Calls() + sets.Calls(), 0);
}

TEST_F(ReadWriteLock, TheCountOfReadersIsFoldedBeforeItOverflows)
{
    // As if so many readers had come and all but two had left.
    Fields().sharedCount = 0x7FFFFFFE;
    Fields().completedCount = 0x7FFFFFFC;
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    EXPECT_EQ(Fields().sharedCount, 3);
    EXPECT_EQ(Fields().completedCount, 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    Fields().sharedCount = 0x7FFFFFFE;
    Fields().completedCount = 0x7FFFFFFE;
    EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_OK);
    EXPECT_EQ(Fields().sharedCount, 1);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
}

TEST_F(ReadWriteLock, AFoldThatFailsLetsTheReaderNotIn)
{
    Fields().sharedCount = 0x7FFFFFFE;
    Fields().completedCount = 0x7FFFFFFE;
    ASSERT_EQ(VornMutexLock(&Fields().sharedCompletedLock), VORN_OK);
    {
        FailingCall fail(kWaitForSingleObject);
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(Fields().sharedCount, 0x7FFFFFFE);
    VornMutexUnlock(&Fields().sharedCompletedLock);
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    EXPECT_EQ(Fields().sharedCount, 1);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
}

TEST_F(ReadWriteLock, MoreReadersThanCanBeCountedAreRefused)
{
    Fields().sharedCount = 0x7FFFFFFE;
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_E_RANGE);
    EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_E_RANGE);
    EXPECT_EQ(Fields().sharedCount, 0x7FFFFFFE);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    EXPECT_EQ(Fields().sharedCount, 0x7FFFFFFE);
    EXPECT_EQ(Fields().completedCount, 0);
    Fields().sharedCount = 0;
}

TEST_F(ReadWriteLock, ACancelledWriterLeavesItAsIfItHadNotCome)
{
    for (const bool asynchronous : {false, true}) {
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
        LibraryThread writer([&] {
            if (asynchronous) VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
            VornRWLockWriteLock(&lock);
            ADD_FAILURE() << "the writer came in";
        });
        AwaitSleepingWriter(2);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        EXPECT_EQ(VornThreadCancel(writer.Thread()), VORN_OK);
        EXPECT_EQ(writer.Join(), kCancelledValue);
        EXPECT_EQ(Fields().sharedCount, 1);
        EXPECT_EQ(Fields().completedCount, 0);
        // Readers come in again, and a writer still waits for the one that is inside.
        EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_E_BUSY);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        ExpectFree();
    }
}

TEST_F(ReadWriteLock, ACancelledWriterLetsTheReadersInThatWaitBehindIt)
{
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    LibraryThread writer([&] {
        VornRWLockWriteLock(&lock);
        ADD_FAILURE() << "the writer came in";
    });
    AwaitSleepingWriter(1);
    LibraryThread reader([&] {
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    });
    EXPECT_EQ(VornThreadCancel(writer.Thread()), VORN_OK);
    EXPECT_EQ(writer.Join(), kCancelledValue);
    reader.Join();
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
}

TEST_F(ReadWriteLock, OnlyAWriterThatWaitsForReadersActsOnARequest)
{
    Event cancelled;
    bool went = false;
    LibraryThread thread([&] {
        Await(cancelled, "the request");
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_E_BUSY);
        EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_E_BUSY);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        went = true;
        VornThreadTestCancel();
        ADD_FAILURE() << "the request was lost";
    });
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
    cancelled.Set();
    EXPECT_EQ(thread.Join(), kCancelledValue);
    EXPECT_TRUE(went);
}

TEST_F(ReadWriteLock, AReaderIsNotCancelledWhileItWakesTheWriter)
{
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    LibraryThread writer([&] {
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    });
    AwaitSleepingWriter(1);
    Event cancelled;
    Event left;
    LibraryThread reader([&] {
        Await(cancelled, "the request");
        // Leaves in the place of the reader above; the condition's gate is closed for a moment.
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
        left.Set();
        VornThreadTestCancel();
    });
    EXPECT_EQ(VornThreadCancel(reader.Thread()), VORN_OK);
    VornCondition* const condition = Fields().sharedCompleted;
    condition->gateWord = 1;
    cancelled.Set();
    EXPECT_FALSE(left.Wait(30));
    condition->gateWord = 0;
    ReleaseSemaphore(condition->gate->native, 1, nullptr);
    EXPECT_EQ(reader.Join(), kCancelledValue);
    EXPECT_TRUE(left.IsSet());
    writer.Join();
    // The test's own opening of the gate has left a permit, which only makes a sleeper look again.
}

TEST_F(ReadWriteLock, AReaderThatCannotWakeTheWriterStaysInsideAndMayTryAgain)
{
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    std::atomic<bool> inside{false};
    LibraryThread writer([&] {
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_OK);
        inside = true;
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    });
    AwaitSleepingWriter(1);
    {
        FailingCall fail(kReleaseSemaphore);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_FALSE(inside.load());
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    writer.Join();
    EXPECT_TRUE(inside.load());
}

TEST_F(ReadWriteLock, AWriterWhoseWaitFailsIsNotInside)
{
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    EXPECT_EQ(VornThreadSelf() != nullptr, true);
    {
        FailingCall fail(kWaitForMultipleObjects);
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(Fields().sharedCount, 1);
    EXPECT_EQ(Fields().completedCount, 0);
    EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
}

TEST_F(ReadWriteLock, AWriterWithoutMemoryForAHandlerWaitsAllTheSame)
{
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    Event begins;
    LibraryThread writer([&] {
        VornThreadSelf();
        FailingCall fail(kCalloc, 1, true);
        begins.Set();
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    });
    Await(begins, "the writer");
    AwaitSleepingWriter(1);
    // Without the handler the wait is no cancellation point.
    EXPECT_EQ(VornThreadCancel(writer.Thread()), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    EXPECT_EQ(writer.Join(), nullptr);
}

TEST_F(ReadWriteLock, AFailureOfEitherMutexIsReportedAndLetsNobodyIn)
{
    // Each of the two is held in turn, and the wait for it fails.
    ASSERT_EQ(VornMutexLock(&Fields().exclusiveLock), VORN_OK);
    {
        FailingCall fail(kWaitForSingleObject, 1, true);
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_E_SYSTEM);
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_E_SYSTEM);
        EXPECT_EQ(VornRWLockDestroy(&lock), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 3);
    }
    EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_E_BUSY);
    EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_E_BUSY);
    EXPECT_EQ(VornMutexUnlock(&Fields().exclusiveLock), VORN_OK);
    ASSERT_EQ(VornMutexLock(&Fields().sharedCompletedLock), VORN_OK);
    {
        FailingCall fail(kWaitForSingleObject, 1, true);
        EXPECT_EQ(VornRWLockWriteLock(&lock), VORN_E_SYSTEM);
        EXPECT_EQ(VornRWLockDestroy(&lock), VORN_E_SYSTEM);
        EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
        EXPECT_EQ(VornRWLockUnlock(&lock), VORN_E_SYSTEM) << "still inside";
        EXPECT_EQ(fail.Failures(), 3);
    }
    EXPECT_EQ(VornRWLockTryWriteLock(&lock), VORN_E_BUSY);
    EXPECT_EQ(VornMutexUnlock(&Fields().sharedCompletedLock), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
}

TEST_F(ReadWriteLock, AReaderWhoseEntryIsReportedAsFailedIsNotInside)
{
    FailingCall fail(kSetEvent, 2);  // the first wakes this reader from its wait for the other lock
    // The exclusive lock is marked while the reader has it.
    static VornMutex* marked;
    marked = Fields().exclusiveLock;
    Fields().sharedCount = 0x7FFFFFFE;
    Fields().completedCount = 0x7FFFFFFE;
    ASSERT_EQ(VornMutexLock(&Fields().sharedCompletedLock), VORN_OK);
    static VornMutex* completedLock;
    completedLock = Fields().sharedCompletedLock;
    ImportRedirect redirect(
        "WaitForSingleObject", +[](HANDLE object, DWORD timeoutMs) -> DWORD {
            // The reader waits for the other lock: its holder lets go, and somebody marks the exclusive lock.
            reinterpret_cast<std::atomic<int32_t>*>(marked)[2] = -1;
            VornMutexUnlock(&completedLock);
            return WaitForSingleObject(object, timeoutMs);
        });
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_E_SYSTEM);
    EXPECT_EQ(fail.Failures(), 1);
    EXPECT_EQ(Fields().sharedCount - Fields().completedCount, 0);
}

TEST_F(ReadWriteLock, DestroyWithAReaderInsideIsRefused)
{
    EXPECT_EQ(VornRWLockReadLock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockDestroy(&lock), VORN_E_BUSY);
    EXPECT_NE(lock, nullptr);
    EXPECT_EQ(VornRWLockTryReadLock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&lock), VORN_OK);
}

TEST_F(ReadWriteLock, DestroyWaitsForTheWriterInside)
{
    VornRWLock* other = nullptr;
    ASSERT_EQ(VornRWLockCreate(&other, 0), VORN_OK);
    VornRWLock* writers = other;
    EXPECT_EQ(VornRWLockWriteLock(&writers), VORN_OK);
    Event destroyed;
    LibraryThread destroyer([&] {
        EXPECT_EQ(VornRWLockDestroy(&other), VORN_OK);
        destroyed.Set();
    });
    EXPECT_FALSE(destroyed.Wait(30));
    EXPECT_EQ(VornRWLockUnlock(&writers), VORN_OK);
    Await(destroyed, "the destroyer");
    EXPECT_EQ(other, nullptr);
}

TEST_F(ReadWriteLock, DestroyFreesEverything)
{
    LeakWatch watch;
    VornRWLock* other = VORN_RWLOCK_INITIALIZER;
    EXPECT_EQ(VornRWLockReadLock(&other), VORN_OK);
    EXPECT_EQ(VornRWLockUnlock(&other), VORN_OK);
    EXPECT_EQ(VornRWLockDestroy(&other), VORN_OK);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ReadWriteLock, DestroyReportsAHandleThatCannotBeClosedAndFreesAllMemory)
{
    AllocationWatch watch;
    VornRWLock* other = nullptr;
    ASSERT_EQ(VornRWLockCreate(&other, 0), VORN_OK);
    FailingCall fail(kCloseHandle);
    EXPECT_EQ(VornRWLockDestroy(&other), VORN_E_SYSTEM);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(watch.Live(), 0u);
}
