// thread_fault_test.cpp - a small life with threads, keys, once, mutexes and a cancel, in which each
// allocation and each system call fails in turn. Whatever fails: every call returns, nothing is left, the
// rest goes on.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <gtest/gtest.h>

using namespace vorn_test;

namespace {

VornThreadKey* key;

void* Live(void*)
{
    VornThreadCleanupPush([](void*) {}, nullptr);
    VornThreadSetSpecific(key, &key);
    static VornOnce once;
    once = VORN_ONCE_INIT;
    VornThreadOnce(&once, [] { VornThreadCleanupPush([](void*) {}, nullptr); });
    VornThreadCleanupPop(1);
    VornMutex* mutex = VORN_RECURSIVE_MUTEX_INITIALIZER;
    if (VornMutexLock(&mutex) == VORN_OK) {
        VornMutexUnlock(&mutex);
        VornMutexDestroy(&mutex);
    }
    VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
    VornThreadSetCancelType(VORN_CANCEL_DEFERRED, nullptr);
    VornThreadCancel(VornThreadSelf());
    VornThreadTestCancel();
    return nullptr;
}

// A thread that is created, lives and is joined. One failure is delivered per run, so what is tried a second
// time succeeds.
void LiveOnce()
{
    key = nullptr;
    if (VornThreadKeyCreate(&key, [](void*) {}) != VORN_OK) {
        ASSERT_EQ(VornThreadKeyCreate(&key, nullptr), VORN_OK);
    }
    VornThread* thread = nullptr;
    if (VornThreadCreate(&thread, nullptr, &Live, nullptr) != VORN_OK) {
        ASSERT_EQ(VornThreadCreate(&thread, nullptr, &Live, nullptr), VORN_OK);
    }
    if (VornThreadJoin(thread, nullptr) != VORN_OK) {
        ASSERT_EQ(VornThreadJoin(thread, nullptr), VORN_OK);
    }
    EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK);
}

void Adopted()
{
    const HANDLE thread = CreateThread(
        nullptr, 0,
        [](void*) -> DWORD {
            VornThreadCleanupPush([](void*) {}, nullptr);
            VornThreadSetSpecific(key, &key);
            return 0;
        },
        nullptr, 0, nullptr);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

class ThreadFault : public testing::TestWithParam<FaultPoint> {};

}  // namespace

TEST_P(ThreadFault, OfEachCallInTurnLeavesNothingBehind)
{
    VornThreadSelf();
    LiveOnce();
    const FaultPoint point = GetParam();
    const LeakWatch watch;
    const long delivered = FailEachCallInTurn(point, [] { LiveOnce(); });
    EXPECT_EQ(watch.Leaks(), "") << delivered << " failures";
    RecordProperty("failures", static_cast<int>(delivered));
    ASSERT_EQ(VornThreadKeyCreate(&key, [](void*) {}), VORN_OK);
    FailEachCallInTurn(point, [] { Adopted(); });
    EXPECT_EQ(VornThreadKeyDelete(key), VORN_OK);
    EXPECT_EQ(watch.Leaks(), "");
}

INSTANTIATE_TEST_SUITE_P(Calls, ThreadFault,
                         testing::Values(kMalloc, kCalloc, kRealloc, kNew, kCreateEvent, kResetEvent,
                                         kWaitForMultipleObjects, kCreateThread, kTlsAlloc, kTlsSetValue,
                                         FaultPoint{"ResumeThread", 0xFFFFFFFF, kGenericFailure},
                                         FaultPoint{"DuplicateHandle", 0, kGenericFailure},
                                         FaultPoint{"SetThreadPriority", 0, kGenericFailure}),
                         [](const testing::TestParamInfo<FaultPoint>& info) {
                             std::string name;
                             for (const char* c = info.param.import; *c != '\0'; ++c) {
                                 if (isalnum(static_cast<unsigned char>(*c))) name += *c;
                             }
                             return name;
                         });
