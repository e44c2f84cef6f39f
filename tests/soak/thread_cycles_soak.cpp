// Threads come and go by the ten thousands: nothing grows.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"
#include "support/leak_watch.h"

#include <cstdio>
#include <gtest/gtest.h>

using namespace vorn_test;

namespace {

constexpr int kCycles = 20000;

std::atomic<int> destroyed{0};

void CountDestroyed(void*)
{
    ++destroyed;
}

struct Visit {
    VornThreadKey* key;
    int cleaned = 0;
};

// What a thread does that makes it own something of everything.
void Use(Visit* visit)
{
    VornThreadCleanupPush([](void* p) { ++static_cast<Visit*>(p)->cleaned; }, visit);
    VornThreadSetSpecific(visit->key, visit);
}

void* RunLibraryThread(void* visit)
{
    Use(static_cast<Visit*>(visit));
    return visit;
}

DWORD WINAPI RunForeignThread(void* visit)
{
    VornThreadSelf();
    Use(static_cast<Visit*>(visit));
    return 0;
}

class ThreadCyclesSoak : public testing::Test {
protected:
    void SetUp() override
    {
        destroyed = 0;
        ASSERT_EQ(VornThreadKeyCreate(&visit.key, &CountDestroyed), VORN_OK);
        VornThreadSetSpecific(visit.key, nullptr);
    }
    void TearDown() override { EXPECT_EQ(VornThreadKeyDelete(visit.key), VORN_OK); }
    static void Report(int i)
    {
        if (i % 2000 == 1999) std::printf("%d cycles\n", i + 1);
    }
    Visit visit;
};

}  // namespace

TEST_F(ThreadCyclesSoak, CreatesAndJoins20000Threads)
{
    const auto cycle = [&] {
        VornThread* thread = nullptr;
        ASSERT_EQ(VornThreadCreate(&thread, nullptr, &RunLibraryThread, &visit), VORN_OK);
        void* result = nullptr;
        ASSERT_EQ(VornThreadJoin(thread, &result), VORN_OK);
        ASSERT_EQ(result, &visit);
    };
    cycle();  // creates the key's lock
    const LeakWatch watch;
    for (int i = 0; i < kCycles; ++i) {
        cycle();
        Report(i);
    }
    EXPECT_EQ(watch.Leaks(), "");
    EXPECT_EQ(destroyed, kCycles + 1);
    EXPECT_EQ(visit.cleaned, kCycles + 1);
}

TEST_F(ThreadCyclesSoak, AdoptsAndForgets20000Threads)
{
    const auto cycle = [&] {
        const HANDLE thread = CreateThread(nullptr, 0, &RunForeignThread, &visit, 0, nullptr);
        ASSERT_TRUE(WaitBounded(thread));
        CloseHandle(thread);
    };
    cycle();
    const LeakWatch watch;
    for (int i = 0; i < kCycles; ++i) {
        cycle();
        Report(i);
    }
    EXPECT_EQ(watch.Leaks(), "");
    EXPECT_EQ(destroyed, kCycles + 1);
    EXPECT_EQ(visit.cleaned, kCycles + 1);
}
