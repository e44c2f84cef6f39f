#include "core/handle_registry.h"

#include <vorn/runtime.h>
#include <vorn/sync.hpp>

#include "support/failing_call.h"

#include <gtest/gtest.h>
#include <random>
#include <set>
#include <thread>
#include <vector>

using vorn::detail::HandleRegistry;
using vorn::detail::Registration;
using namespace vorn_test;

namespace {

const void* Handle(uintptr_t value)
{
    return reinterpret_cast<const void*>(value);
}

}  // namespace

TEST(HandleRegistry, NullIsAlwaysInvalid)
{
    HandleRegistry registry;
    EXPECT_FALSE(registry.Contains(nullptr));
    EXPECT_FALSE(registry.Register(nullptr));
    EXPECT_FALSE(registry.Unregister(nullptr));
}

TEST(HandleRegistry, ValidatesExactlyWhatIsRegistered)
{
    HandleRegistry registry;
    EXPECT_TRUE(registry.Register(Handle(0x1000)));
    EXPECT_TRUE(registry.Contains(Handle(0x1000)));
    EXPECT_FALSE(registry.Contains(Handle(0x0FFF)));
    EXPECT_FALSE(registry.Contains(Handle(0x1001)));
    EXPECT_TRUE(registry.Unregister(Handle(0x1000)));
    EXPECT_FALSE(registry.Contains(Handle(0x1000)));
}

TEST(HandleRegistry, RegisteringAHandleAgainSucceedsAndOneUnregisterRemovesIt)
{
    HandleRegistry registry;
    EXPECT_TRUE(registry.Register(Handle(0x1000)));
    EXPECT_TRUE(registry.Register(Handle(0x1000)));
    EXPECT_TRUE(registry.Unregister(Handle(0x1000)));
    EXPECT_FALSE(registry.Unregister(Handle(0x1000)));
}

TEST(HandleRegistry, AReusedAddressValidatesAgain)
{
    HandleRegistry registry;
    EXPECT_TRUE(registry.Register(Handle(0x2000)));
    EXPECT_TRUE(registry.Unregister(Handle(0x2000)));
    EXPECT_TRUE(registry.Register(Handle(0x2000)));
    EXPECT_TRUE(registry.Contains(Handle(0x2000)));
}

TEST(HandleRegistry, RegistriesDoNotKnowEachOthersHandles)
{
    HandleRegistry files;
    HandleRegistry heaps;
    EXPECT_TRUE(files.Register(Handle(0x3000)));
    EXPECT_FALSE(heaps.Contains(Handle(0x3000)));
}

TEST(HandleRegistry, ARegistrationThatIsNotKeptIsUndone)
{
    HandleRegistry registry;
    {
        Registration entry(registry, Handle(0x1000));
        EXPECT_TRUE(static_cast<bool>(entry));
        EXPECT_TRUE(registry.Contains(Handle(0x1000)));
    }
    EXPECT_FALSE(registry.Contains(Handle(0x1000)));
    {
        Registration entry(registry, Handle(0x1000));
        entry.Keep();
    }
    EXPECT_TRUE(registry.Contains(Handle(0x1000)));
}

TEST(HandleRegistry, ExactlyOneOfManyUnregisteringThreadsWins)
{
    HandleRegistry registry;
    for (int round = 0; round < 300; ++round) {
        ASSERT_TRUE(registry.Register(Handle(0x5000)));
        std::atomic<int> winners{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&] { winners += registry.Unregister(Handle(0x5000)) ? 1 : 0; });
        }
        for (std::thread& thread : threads) thread.join();
        ASSERT_EQ(winners, 1);
    }
}

TEST(HandleRegistry, ThreadsSeeTheirOwnHandlesWhileOthersComeAndGo)
{
    HandleRegistry registry;
    std::atomic<int> mistakes{0};
    std::vector<std::thread> threads;
    for (uintptr_t number = 1; number <= 4; ++number) {
        threads.emplace_back([&registry, &mistakes, number] {
            std::mt19937 random(static_cast<unsigned>(number));
            std::set<uintptr_t> own;
            for (int step = 0; step < 20000; ++step) {
                const uintptr_t value = (number << 32) + 16 * (random() % 500);
                if (random() % 2 == 0) {
                    if (!registry.Register(Handle(value))) ++mistakes;
                    own.insert(value);
                } else if (registry.Unregister(Handle(value)) != (own.erase(value) == 1)) {
                    ++mistakes;
                }
                const uintptr_t probe = (number << 32) + 16 * (random() % 500);
                if (registry.Contains(Handle(probe)) != (own.count(probe) == 1)) ++mistakes;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mistakes, 0);
}

TEST(HandleRegistry, SaysNoWhenItsLockCannotBeTakenAndChangesNothing)
{
    HandleRegistry registry;
    ASSERT_TRUE(registry.Register(Handle(0x1000)));
    registry.GetMutex()->Lock();
    {
        const FailingCall fail(kWaitForSingleObject, 1, true);
        EXPECT_FALSE(registry.Contains(Handle(0x1000)));
        EXPECT_FALSE(registry.Register(Handle(0x2000)));
        EXPECT_FALSE(registry.Unregister(Handle(0x1000)));
        EXPECT_EQ(fail.Failures(), 3);
    }
    registry.GetMutex()->Unlock();
    EXPECT_TRUE(registry.Contains(Handle(0x1000)));
    EXPECT_FALSE(registry.Contains(Handle(0x2000)));
}

namespace {

// The lock word of the mutex behind the class, which holds nothing but its table and its handle.
int32_t LockWord(vorn::Mutex* mutex)
{
    const char* const handle = reinterpret_cast<char**>(mutex)[1];
    return __atomic_load_n(reinterpret_cast<const int32_t*>(handle + 8), __ATOMIC_SEQ_CST);
}

}  // namespace

TEST(HandleRegistry, AnswersAlsoWhenTheReleaseOfItsLockCannotWakeAnybody)
{
    HandleRegistry registry;
    ASSERT_TRUE(registry.Register(Handle(0x1000)));
    registry.GetMutex()->Lock();
    bool known = false;
    std::thread asking([&] { known = registry.Contains(Handle(0x1000)); });
    while (LockWord(registry.GetMutex()) != -1) std::this_thread::yield();
    // The first signal wakes the asking thread, the second is its own.
    const FailingCall fail(kSetEvent, 2);
    registry.GetMutex()->Unlock();
    asking.join();
    EXPECT_TRUE(known);
    EXPECT_EQ(fail.Failures(), 1);
    EXPECT_EQ(LockWord(registry.GetMutex()), 0);
}

TEST(HandleRegistry, MemoryExhaustionFailsTheRegistrationAndChangesNothing)
{
    HandleRegistry registry;
    // The registry's code is linked into this program.
    const HMODULE self = GetModuleHandleW(nullptr);
    uintptr_t next = 0x10000;
    long failures = 0;
    for (int i = 0; i < 1000; ++i, next += 16) {
        FailingCall fail(kCalloc, 1, false, self);
        if (!registry.Register(Handle(next))) {
            ++failures;
            EXPECT_FALSE(registry.Contains(Handle(next)));
            EXPECT_EQ(registry.Contains(Handle(next - 16)), i != 0);
        } else {
            EXPECT_EQ(fail.Failures(), 0);
        }
        if (!registry.Contains(Handle(next))) {
            FailingCall letThrough(kCalloc, 0, false, self);
            ASSERT_TRUE(registry.Register(Handle(next)));
        }
    }
    EXPECT_GT(failures, 4);
}
