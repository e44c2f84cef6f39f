#include <vorn/vorn.h>

#include "core/win32.h"

#include "async_case.h"
#include "support/leak_watch.h"
#include "thread/thread_runner.h"

#include <gtest/gtest.h>

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

TEST(AsyncCancelRepeated, EndsAThreadAtWhateverInstructionItIs)
{
    VornThreadKey* key = nullptr;
    ASSERT_EQ(VornThreadKeyCreate(&key, &FinaliseCase), VORN_OK);
    const int anywhere = kTargetCount - 1;
    for (int i = 0; i < 100; ++i) {
        CancelOnce(kTargetsO0[anywhere], key, nullptr);
        CancelOnce(kTargetsO2[anywhere], key, nullptr);
    }
    EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK);
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
