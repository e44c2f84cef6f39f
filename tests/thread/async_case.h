// async_case.h - one asynchronous cancel of one target, with everything that must hold after it.
#ifndef VORN_TESTS_THREAD_ASYNC_CASE_H
#define VORN_TESTS_THREAD_ASYNC_CASE_H

#include <vorn/vorn.h>

#include "core/win32.h"

#include "async_targets.h"

#include <gtest/gtest.h>

inline void* const kCancelled = reinterpret_cast<void*>(~uintptr_t{0});

inline void AwaitFlag(const std::atomic<int>& flag)
{
    while (flag.load() == 0) SwitchToThread();
}

inline void FinaliseCase(void* value)
{
    ++static_cast<AsyncCase*>(value)->finalised;
}

inline void CancelOnce(const AsyncTarget& target, VornThreadKey* key, VornThread* never)
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

#endif
