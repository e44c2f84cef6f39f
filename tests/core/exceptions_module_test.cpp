// exceptions_module_test.cpp - what the exceptions' messages cost the module, and what is left without
// memory.

#include <vorn/vorn.hpp>

#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <gtest/gtest.h>

using namespace vorn_test;

TEST(ExceptionMessage, IsNullWhenThereIsNoMemoryForIt)
{
    {
        const FailingCall fail(kMalloc);
        const vorn::SyncError error;
        EXPECT_EQ(error.What(), nullptr);
        EXPECT_EQ(fail.Failures(), 1);
    }
    const vorn::LengthError source("source");
    {
        const FailingCall fail(kMalloc);
        const vorn::LengthError copy(source);
        EXPECT_EQ(copy.What(), nullptr);
        EXPECT_EQ(fail.Failures(), 1);
    }
    vorn::LengthError target("target");
    {
        const FailingCall fail(kMalloc);
        target = source;
        EXPECT_EQ(target.What(), nullptr);
        EXPECT_EQ(fail.Failures(), 1);
    }
    target = source;
    EXPECT_STREQ(target.What(), "source");
}

TEST(ExceptionMessage, IsThrownAlsoWithoutMemoryForIt)
{
    const FailingCall fail(kMalloc, 1, true);
    const VornMutexAttr shared = {0, 1};
    try {
        const vorn::Mutex mutex(&shared);
        FAIL() << "nothing was thrown";
    } catch (const vorn::RuntimeError& error) {
        EXPECT_EQ(error.What(), nullptr);
    }
}

TEST(ExceptionMessage, IsGivenBackWithTheException)
{
    const LeakWatch watch;
    for (int round = 0; round < 20; ++round) {
        try {
            throw vorn::OutOfRange("position");
        } catch (const vorn::LogicError& error) {
            vorn::LogicError copy(error);
            copy = vorn::LogicError("another");
            copy = error;
            EXPECT_STREQ(copy.What(), "position");
        }
    }
    EXPECT_EQ(watch.Leaks(), "");
}
