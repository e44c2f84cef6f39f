// sync_support.h - threads for the tests of conditions, read-write locks, semaphores and barriers.
#ifndef VORN_TESTS_THREAD_SYNC_SUPPORT_H
#define VORN_TESTS_THREAD_SYNC_SUPPORT_H

#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"
#include "support/import_redirect.h"
#include "thread/condition.h"
#include "thread/thread_record.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <utility>

namespace sync_test {

// How long a thread may take before it is taken for hanging; the soak programs have more patience.
inline DWORD patienceMs = 20000;

// Ends the test program where a thread hangs: nothing after that would mean anything.
inline void Require(bool happened, const char* what)
{
    if (happened) return;
    std::fprintf(stderr, "gave up waiting: %s\n", what);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), 97);
}

inline void Await(const vorn_test::Event& event, const char* what)
{
    Require(event.Wait(patienceMs), what);
}

// A thread that the library started.
class LibraryThread {
public:
    explicit LibraryThread(std::function<void()> body) : body_(std::move(body))
    {
        Require(VornThreadCreate(&thread_, nullptr, &LibraryThread::Run, this) == VORN_OK,
                "a thread to start");
    }
    LibraryThread(const LibraryThread&) = delete;
    LibraryThread& operator=(const LibraryThread&) = delete;
    ~LibraryThread()
    {
        if (thread_ != nullptr) Join();
    }

    VornThread* Handle() const { return thread_; }
    // The exit value: null for a body that returned, all ones for a cancelled thread.
    void* Join()
    {
        Require(vorn_test::WaitBounded(thread_->handle, patienceMs), "a thread to end");
        void* result = nullptr;
        EXPECT_EQ(VornThreadJoin(std::exchange(thread_, nullptr), &result), VORN_OK);
        return result;
    }

private:
    static void* Run(void* argument)
    {
        static_cast<LibraryThread*>(argument)->body_();
        return nullptr;
    }

    std::function<void()> body_;
    VornThread* thread_ = nullptr;
};

// A thread that the library did not start.
class ForeignThread {
public:
    explicit ForeignThread(std::function<void()> body) : body_(std::move(body))
    {
        handle_ = CreateThread(nullptr, 0, &ForeignThread::Run, this, 0, nullptr);
    }
    ForeignThread(const ForeignThread&) = delete;
    ForeignThread& operator=(const ForeignThread&) = delete;
    ~ForeignThread()
    {
        if (handle_ != nullptr) Join();
    }

    DWORD Join()
    {
        Require(vorn_test::WaitBounded(handle_, patienceMs), "a foreign thread to end");
        DWORD code = 0;
        GetExitCodeThread(handle_, &code);
        CloseHandle(std::exchange(handle_, nullptr));
        return code;
    }

private:
    static DWORD WINAPI Run(void* argument)
    {
        static_cast<ForeignThread*>(argument)->body_();
        return 0;
    }

    std::function<void()> body_;
    HANDLE handle_;
};

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
    vorn_test::ImportRedirect redirect_;
};

}  // namespace sync_test

#endif
