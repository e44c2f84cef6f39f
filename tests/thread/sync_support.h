// sync_support.h - what the tests of conditions, read-write locks, semaphores and barriers share.
#ifndef VORN_TESTS_THREAD_SYNC_SUPPORT_H
#define VORN_TESTS_THREAD_SYNC_SUPPORT_H

#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/import_redirect.h"
#include "thread/condition.h"
#include "thread/thread_runner.h"

#include <functional>
#include <gtest/gtest.h>
#include <utility>

namespace vorn_test {

inline void* const kCancelledValue = reinterpret_cast<void*>(~uintptr_t{0});

// Whether the system semaphore behind the handle has no permit.
inline bool IsEmpty(VornSemaphore* semaphore)
{
    return VornSemaphoreTryWait(&semaphore) == VORN_E_BUSY;
}

// The state that a condition has whenever nobody is inside a call.
inline void ExpectAtRest(VornCondition* condition)
{
    EXPECT_EQ(condition->waitersBlocked.load() - condition->waitersGone, 0);
    EXPECT_EQ(condition->waitersToUnblock, 0);
    EXPECT_TRUE(IsEmpty(condition->blockQueue));
    EXPECT_EQ(condition->gateWord.load(), 0);
    EXPECT_EQ(condition->arriving.load(), 0);
    EXPECT_EQ(condition->visitors.load(), 0);
    EXPECT_EQ(VornMutexTryLock(&condition->unblockLock), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&condition->unblockLock), VORN_OK);
}

// Takes a hand in the waits of library threads (WaitForMultipleObjects) on chosen objects, for a scope: a
// wait on `object` first reports by `reached`; then `act` decides what it returns. One interception at a
// time.
class WaitInterception {
public:
    using Original = DWORD(WINAPI*)(DWORD, const HANDLE*, BOOL, DWORD);
    using Act = std::function<DWORD(DWORD count, const HANDLE* objects, DWORD timeoutMs, Original original)>;

    explicit WaitInterception(Act act) : act_(std::move(act)), redirect_("WaitForMultipleObjects", &Intercept)
    {
        current_ = this;
        Require(redirect_.Found(), "the import WaitForMultipleObjects");
    }
    WaitInterception(const WaitInterception&) = delete;
    WaitInterception& operator=(const WaitInterception&) = delete;
    ~WaitInterception() { current_ = nullptr; }

private:
    static DWORD WINAPI Intercept(DWORD count, const HANDLE* objects, BOOL, DWORD timeoutMs)
    {
        return current_->act_(count, objects, timeoutMs, current_->redirect_.Original<Original>());
    }

    static inline WaitInterception* current_ = nullptr;
    Act act_;
    ImportRedirect redirect_;
};

}  // namespace vorn_test

#endif
