#include <vorn/vorn.h>

#include "core/win32.h"

#include "async_targets.h"
#include "support/child_process.h"
#include "support/leak_watch.h"
#include "thread_runner.h"

#include <gtest/gtest.h>
#include <string>

namespace {

void* const kCancelled = reinterpret_cast<void*>(~uintptr_t{0});

// A thread that runs until it is told to end.
class Bystander {
public:
    Bystander() { VornThreadCreate(&thread_, nullptr, &Run, &end_); }
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;
    ~Bystander()
    {
        end_.Set();
        VornThreadJoin(thread_, nullptr);
    }
    VornThread* Thread() const { return thread_; }

private:
    static void* Run(void* end)
    {
        static_cast<vorn_test::Event*>(end)->Wait(60000);
        return nullptr;
    }
    vorn_test::Event end_;
    VornThread* thread_ = nullptr;
};

void AwaitFlag(const std::atomic<int>& flag)
{
    while (flag.load() == 0) SwitchToThread();
}

void FinaliseCase(void* value)
{
    ++static_cast<AsyncCase*>(value)->finalised;
}

void CancelOnce(const AsyncTarget& target, VornThreadKey* key, VornThread* never)
{
    SCOPED_TRACE(target.name);
    AsyncCase c;
    c.key = key;
    c.never = never;
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, target.function, &c), VORN_OK);
    AwaitFlag(c.entered);
    EXPECT_EQ(VornThreadCancel(thread), VORN_OK);
    void* result = nullptr;
    ASSERT_EQ(VornThreadJoin(thread, &result), VORN_OK);
    EXPECT_EQ(result, kCancelled);
    EXPECT_EQ(c.cleaned, 1);
    EXPECT_EQ(c.finalised, 1);
    EXPECT_GE(c.destroyed, target.certainlyDestroyed);
}

class AsyncCancel : public testing::TestWithParam<int> {
protected:
    AsyncCancel() { VornThreadKeyCreate(&key, &FinaliseCase); }
    ~AsyncCancel() override { VornThreadKeyDelete(key); }
    VornThreadKey* key = nullptr;
    Bystander bystander;
};

TEST_P(AsyncCancel, EndsAnUnoptimisedThread)
{
    CancelOnce(kTargetsO0[GetParam()], key, bystander.Thread());
}

TEST_P(AsyncCancel, EndsAnOptimisedThread)
{
    CancelOnce(kTargetsO2[GetParam()], key, bystander.Thread());
}

INSTANTIATE_TEST_SUITE_P(Situations, AsyncCancel, testing::Range(0, kTargetCount),
                         [](const testing::TestParamInfo<int>& info) {
                             std::string name;
                             bool upper = true;
                             for (const char* at = kTargetsO0[info.param].name; *at != '\0'; ++at) {
                                 if (*at == ' ') {
                                     upper = true;
                                 } else {
                                     name += upper ? static_cast<char>(toupper(*at)) : *at;
                                     upper = false;
                                 }
                             }
                             return name;
                         });

}  // namespace

TEST(AsyncCancelRepeated, LeavesNoHandleAndNoRecordAfter500Cancels)
{
    VornThreadKey* key = nullptr;
    ASSERT_EQ(VornThreadKeyCreate(&key, &FinaliseCase), VORN_OK);
    const int loopWithoutCalls = 0;
    const int opaqueCalls = 2;
    const int callback = 7;
    for (int i : {loopWithoutCalls, opaqueCalls, callback}) {
        CancelOnce(kTargetsO0[i], key, nullptr);
        CancelOnce(kTargetsO2[i], key, nullptr);
    }
    const vorn_test::LeakWatch watch;
    for (int i = 0; i < 84; ++i) {
        for (int target : {loopWithoutCalls, opaqueCalls, callback}) {
            CancelOnce(kTargetsO0[target], key, nullptr);
            CancelOnce(kTargetsO2[target], key, nullptr);
        }
    }
    EXPECT_EQ(watch.Leaks(), "");
    EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK);
}

TEST(AsyncCancelAdopted, EndsTheThreadAtOnceAndRunsItsHandlers)
{
    AsyncCase c;
    ASSERT_EQ(VornThreadKeyCreate(&c.key, &FinaliseCase), VORN_OK);
    std::atomic<VornThread*> target{nullptr};
    vorn_test::ForeignThread thread([&] {
        target = VornThreadSelf();
        kTargetsO2[0].function(&c);
    });
    AwaitFlag(c.entered);
    EXPECT_EQ(VornThreadCancel(target), VORN_OK);
    ASSERT_TRUE(thread.Wait());
    EXPECT_EQ(thread.ExitCode(), 0xFFFFFFFFu);
    EXPECT_EQ(c.cleaned, 1);
    EXPECT_EQ(c.finalised, 1);
    EXPECT_EQ(VornThreadKeyDelete(c.key), VORN_OK);
}

TEST(AsyncCancelRace, WithTheEndOfTheStartFunctionIsEitherCancelledOrTooLate)
{
    int cancelled = 0;
    int late = 0;
    for (int i = 0; i < 100; ++i) {
        std::atomic<int> limit{i * 60};
        std::atomic<bool> ready{false};
        vorn_test::LibraryThread thread([&]() -> void* {
            VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
            ready = true;
            for (volatile int n = 0; n < limit; n = n + 1) {
            }
            return nullptr;
        });
        while (!ready) SwitchToThread();
        const VornStatus status = VornThreadCancel(thread.Thread());
        EXPECT_TRUE(status == VORN_OK || status == VORN_E_SYSTEM) << status;
        if (thread.Join() == kCancelled) {
            ++cancelled;
        } else {
            ++late;
        }
    }
    EXPECT_EQ(cancelled + late, 100);
    RecordProperty("cancelled", cancelled);
}
