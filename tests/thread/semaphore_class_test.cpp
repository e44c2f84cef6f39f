#include <vorn/vorn.hpp>

#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/sync_support.h"

#include <string>

using namespace vorn_test;

namespace {

// The message of the exception of exactly this class that the call throws.
template <class E, class Call>
std::string Thrown(Call&& call)
{
    try {
        call();
    } catch (const E& exception) {
        return typeid(exception) == typeid(E) ? exception.What() : "another class";
    } catch (...) {
        return "a foreign class";
    }
    return "nothing";
}

std::string FreshName(const wchar_t* stem)
{
    std::string narrow;
    for (wchar_t unit : UniqueName(stem)) narrow += static_cast<char>(unit);
    return narrow;
}

}  // namespace

TEST(SemaphoreClass, CountsAndReportsTheLargestCount)
{
    vorn::Semaphore semaphore(1, false);
    semaphore.Wait();
    EXPECT_FALSE(semaphore.TryWait());
    semaphore.Post();
    EXPECT_TRUE(semaphore.TryWait());
    vorn::Semaphore full(0x7FFFFFFF, false);
    EXPECT_EQ(Thrown<vorn::OutOfRange>([&] { full.Post(); }), "Semaphore reached maximum count value.");
}

TEST(SemaphoreClass, ThrowsForBadArguments)
{
    EXPECT_EQ(Thrown<vorn::NotImplementedError>([] { vorn::Semaphore semaphore(0, true); }),
              "Not implemented");
    EXPECT_EQ(Thrown<vorn::NotImplementedError>([] { vorn::Semaphore semaphore(-1, true); }),
              "Not implemented");
    EXPECT_EQ(Thrown<vorn::OutOfRange>([] { vorn::Semaphore semaphore(-1, false); }),
              "Invalid initial semaphore value.");
}

TEST(SemaphoreClass, ThrowsWhenItCannotBeMade)
{
    LeakWatch watch;
    {
        FailingCall fail(kCalloc);
        EXPECT_EQ(Thrown<vorn::BadAlloc>([] { vorn::Semaphore semaphore(0, false); }), "Bad allocation");
    }
    {
        FailingCall fail(kCreateSemaphore);
        EXPECT_EQ(Thrown<vorn::RuntimeError>([] { vorn::Semaphore semaphore(0, false); }),
                  "Error creating semaphore.");
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(SemaphoreClass, ThrowsForFailedWaitsAndPosts)
{
    vorn::Semaphore semaphore(1, false);
    {
        FailingCall fail(kWaitForMultipleObjects);
        EXPECT_EQ(Thrown<vorn::SyncError>([&] { semaphore.Wait(); }), "Semaphore wait error");
    }
    {
        FailingCall fail(kReleaseSemaphore);
        EXPECT_EQ(Thrown<vorn::SyncError>([&] { semaphore.Post(); }), "Error posting semaphore.");
    }
    {
        FailingCall fail(kWaitForSingleObject);
        EXPECT_FALSE(semaphore.TryWait());
    }
    EXPECT_TRUE(semaphore.TryWait());
}

TEST(SemaphoreClass, OpensByName)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    const std::string name = FreshName(L"class");
    const auto use = [&] {
        vorn::Semaphore first(name.c_str(), true, true, 1, nullptr);
        vorn::Semaphore second(name.c_str(), false, false, 0, nullptr);
        EXPECT_TRUE(second.TryWait());
        EXPECT_FALSE(first.TryWait());
        EXPECT_EQ(
            Thrown<vorn::LogicError>([&] { vorn::Semaphore third(name.c_str(), true, true, 0, nullptr); }),
            "Semaphore with this name already exists.");
    };
    use();
    {
        LeakWatch watch;
        use();
        EXPECT_EQ(watch.Leaks(), "");
    }
    VornTerminate();
}

TEST(SemaphoreClass, ThrowsForBadNamesAndFlags)
{
    const auto open = [](const char* name, bool create, bool exclusive, int initial) {
        vorn::Semaphore semaphore(name, create, exclusive, initial, nullptr);
    };
    LeakWatch watch;
    EXPECT_EQ(Thrown<vorn::InvalidArgument>([&] { open("a/b", true, false, 0); }), "Invalid semaphore name.");
    EXPECT_EQ(Thrown<vorn::InvalidArgument>([&] { open(nullptr, true, false, 0); }),
              "Invalid semaphore name.");
    EXPECT_EQ(Thrown<vorn::InvalidArgument>([&] { open("", true, false, 0); }), "Invalid semaphore name.");
    EXPECT_EQ(Thrown<vorn::InvalidArgument>([&] { open("a", false, true, 0); }), "Invalid argument");
    EXPECT_EQ(Thrown<vorn::OutOfRange>([&] { open("a", true, false, -1); }),
              "Invalid initial semaphore value.");
    EXPECT_EQ(Thrown<vorn::RuntimeError>([&] { open(FreshName(L"none").c_str(), false, false, 0); }),
              "Error creating semaphore.");
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(SemaphoreClass, ThrowsForEachFailedAllocationOfANamedOne)
{
    const std::string name = FreshName(L"memory");
    const auto open = [&] { vorn::Semaphore semaphore(name.c_str(), true, false, 0, nullptr); };
    open();
    LeakWatch watch;
    for (const FaultPoint& point : {kCalloc, kMalloc, kNewArrayNothrow}) {
        FailingCall fail(point);
        EXPECT_EQ(Thrown<vorn::BadAlloc>(open), "Bad allocation") << point.import;
        EXPECT_EQ(fail.Failures(), 1) << point.import;
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(SemaphoreClass, WaitIsACancellationPoint)
{
    vorn::Semaphore semaphore(0, false);
    LibraryThread waiter([&] {
        semaphore.Wait();
        ADD_FAILURE() << "the wait returned";
    });
    EXPECT_EQ(VornThreadCancel(waiter.Thread()), VORN_OK);
    EXPECT_EQ(waiter.Join(), kCancelledValue);
}

TEST(BarrierClass, TellsExactlyOneThreadOfEachPhase)
{
    vorn::Barrier barrier(2, false);
    std::atomic<int> serial{0};
    {
        LibraryThread other([&] {
            for (int i = 0; i < 5; ++i) serial += barrier.Wait() ? 1 : 0;
        });
        for (int i = 0; i < 5; ++i) serial += barrier.Wait() ? 1 : 0;
    }
    EXPECT_EQ(serial.load(), 5);
}

TEST(BarrierClass, ThrowsWhenItCannotBeMade)
{
    LeakWatch watch;
    EXPECT_EQ(Thrown<vorn::NotImplementedError>([] { vorn::Barrier barrier(2, true); }), "Not implemented");
    EXPECT_EQ(Thrown<vorn::InvalidArgument>([] { vorn::Barrier barrier(0, false); }), "Invalid argument");
    {
        FailingCall fail(kCalloc);
        EXPECT_EQ(Thrown<vorn::BadAlloc>([] { vorn::Barrier barrier(2, false); }), "Bad allocation");
    }
    {
        FailingCall fail(kCreateSemaphore);
        EXPECT_EQ(Thrown<vorn::RuntimeError>([] { vorn::Barrier barrier(2, false); }),
                  "Error creating barrier.");
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(BarrierClass, ThrowsForAFailedWait)
{
    vorn::Barrier barrier(2, false);
    FailingCall fail(kWaitForSingleObject);
    EXPECT_EQ(Thrown<vorn::RuntimeError>([&] { barrier.Wait(); }), "Error waiting on barrier.");
}

TEST(PlaceholderClasses, DoNothing)
{
    LeakWatch watch;
    {
        vorn::Mutex mutex;
        vorn::Condition condition(&mutex, false);
        condition.Wait();
        EXPECT_FALSE(condition.TimedWait(0xFFFFFFFF));
        condition.Signal();
        condition.Broadcast();
        EXPECT_FALSE(condition.TimedWait(0));
        vorn::Condition shared(nullptr, true);
        vorn::RWLock lock(true);
        lock.ReadLock();
        lock.WriteLock();
        lock.WriteLock();
        EXPECT_FALSE(lock.TryReadLock());
        EXPECT_FALSE(lock.TryWriteLock());
        lock.Unlock();
    }
    EXPECT_EQ(watch.Leaks(), "");
}
