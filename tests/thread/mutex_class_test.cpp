#include <vorn/vorn.hpp>

#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/thread_runner.h"

#include <gtest/gtest.h>
#include <string>
#include <type_traits>

using namespace vorn_test;

namespace {

const VornMutexAttr kRecursive = {VORN_MUTEX_RECURSIVE, 0};
const VornMutexAttr kErrorCheck = {VORN_MUTEX_ERRORCHECK, 0};

// The message of the exception of type E that the body throws; says so when it throws none.
template <class E, class F>
std::string MessageOf(F body)
{
    try {
        body();
    } catch (const E& e) {
        return e.What();
    } catch (...) {
        return "another exception";
    }
    return "no exception";
}

}  // namespace

TEST(MutexClass, IsLockableAndCannotBeCopiedAndHoldsOneHandle)
{
    EXPECT_TRUE((std::is_base_of_v<vorn::Lockable, vorn::Mutex>));
    EXPECT_TRUE((std::is_base_of_v<vorn::NonCopyable, vorn::Mutex>));
    EXPECT_FALSE(std::is_copy_constructible_v<vorn::Mutex>);
    EXPECT_FALSE(std::is_copy_assignable_v<vorn::Mutex>);
    // The table of virtual functions and the handle.
    EXPECT_EQ(sizeof(vorn::Mutex), 2 * sizeof(void*));
}

TEST(MutexClass, LocksAndUnlocks)
{
    vorn::Mutex mutex(nullptr);
    mutex.Lock();
    EXPECT_FALSE(mutex.TryLock());
    mutex.Unlock();
    EXPECT_TRUE(mutex.TryLock());
    mutex.Unlock();
    vorn::Mutex byDefault;
    vorn::Lockable& lockable = byDefault;
    lockable.Lock();
    lockable.Unlock();
}

TEST(MutexClass, ThrowsForAttributesThatItCannotServe)
{
    const VornMutexAttr badKind = {3, 0};
    const VornMutexAttr badShared = {0, 2};
    const VornMutexAttr shared = {0, 1};
    EXPECT_EQ(MessageOf<vorn::InvalidArgument>([&] { vorn::Mutex m(&badKind); }), "Invalid argument");
    EXPECT_EQ(MessageOf<vorn::InvalidArgument>([&] { vorn::Mutex m(&badShared); }), "Invalid argument");
    EXPECT_EQ(MessageOf<vorn::RuntimeError>([&] { vorn::Mutex m(&shared); }), "Error creating mutex.");
}

TEST(MutexClass, ThrowsWhenMemoryOrTheEventCannotBeHad)
{
    const LeakWatch watch;
    EXPECT_EQ(MessageOf<vorn::BadAlloc>([] {
                  const FailingCall fail(kCalloc);
                  vorn::Mutex m(nullptr);
              }),
              "Bad allocation");
    EXPECT_EQ(MessageOf<vorn::RuntimeError>([] {
                  const FailingCall fail(kCreateEvent);
                  vorn::Mutex m(nullptr);
              }),
              "Error creating mutex.");
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(MutexClass, ThrowsForASecondLockOfAnErrorCheckingMutex)
{
    vorn::Mutex mutex(&kErrorCheck);
    mutex.Lock();
    EXPECT_EQ(MessageOf<vorn::LockError>([&] { mutex.Lock(); }),
              "Attempt to lock alredy owned non-recursive mutex.");
    EXPECT_FALSE(mutex.TryLock());
    mutex.Unlock();
}

TEST(MutexClass, ThrowsWhenTheWaitFails)
{
    vorn::Mutex mutex(nullptr);
    mutex.Lock();
    EXPECT_EQ(MessageOf<vorn::LockError>([&] {
                  const FailingCall fail(kWaitForSingleObject);
                  mutex.Lock();
              }),
              "Mutex lock failed.");
    // The waiter has left its mark, so the unlock signals, and here that fails.
    EXPECT_EQ(MessageOf<vorn::LockError>([&] {
                  const FailingCall fail(kSetEvent);
                  mutex.Unlock();
              }),
              "Mutex unlock failed.");
}

TEST(MutexClass, ThrowsForAnUnlockByANonHolder)
{
    vorn::Mutex recursive(&kRecursive);
    EXPECT_EQ(MessageOf<vorn::LockError>([&] { recursive.Unlock(); }), "Attempt to unlock not owned mutex.");
    vorn::Mutex checked(&kErrorCheck);
    EXPECT_EQ(MessageOf<vorn::LockError>([&] { checked.Unlock(); }), "Attempt to unlock not owned mutex.");
    recursive.Lock();
    LibraryThread([&] {
        EXPECT_EQ(MessageOf<vorn::LockError>([&] { recursive.Unlock(); }),
                  "Attempt to unlock not owned mutex.");
    }).Join();
    recursive.Unlock();
}

TEST(MutexClass, TryLockAnswersFalseForEveryFailure)
{
    vorn::Mutex recursive(&kRecursive);
    ForeignThread([&] {
        const FailingCall fail(kCalloc, 1, true);
        EXPECT_FALSE(recursive.TryLock());
    }).Wait();
    EXPECT_TRUE(recursive.TryLock());
    EXPECT_TRUE(recursive.TryLock());
    recursive.Unlock();
    recursive.Unlock();
}

TEST(AutoLock, HoldsTheMutexForAScope)
{
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    {
        const vorn::AutoLock lock(&mutex);
        EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY);
    }
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

TEST(AutoLock, DoesNotUnlockWhatItCouldNotLock)
{
    VornMutex* mutex = VORN_ERRORCHECK_MUTEX_INITIALIZER;
    EXPECT_EQ(VornMutexLock(&mutex), VORN_OK);
    {
        const vorn::AutoLock lock(&mutex);
    }
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

TEST(AutoLock, IgnoresAFailureToUnlock)
{
    VornMutex* mutex = VORN_RECURSIVE_MUTEX_INITIALIZER;
    {
        const vorn::AutoLock lock(&mutex);
        EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    }
    VornMutex* another = VORN_MUTEX_INITIALIZER;
    {
        const vorn::AutoLock lock(&another);
        EXPECT_EQ(VornMutexUnlock(&another), VORN_OK);
        EXPECT_EQ(VornMutexDestroy(&another), VORN_OK);
        another = VORN_MUTEX_INITIALIZER;
    }
    EXPECT_EQ(another, VORN_MUTEX_INITIALIZER);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

TEST(AutoTryLock, IsTrueWhileItHoldsTheMutex)
{
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    {
        const vorn::AutoTryLock first(&mutex);
        EXPECT_TRUE(first);
        {
            const vorn::AutoTryLock second(&mutex);
            EXPECT_FALSE(second);
        }
        EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY);
    }
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}

TEST(AutoTryLock, IsFalseWhenTheMutexCannotBeCreated)
{
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    {
        const FailingCall fail(kCreateEvent);
        const vorn::AutoTryLock lock(&mutex);
        EXPECT_FALSE(lock);
    }
    EXPECT_EQ(mutex, nullptr);
}
