// What the C++ runtime tells the code that an asynchronous cancel passes through.
#include <vorn/vorn.h>

#include "core/win32.h"

#include "async_case.h"
#include "thread/thread_runner.h"

#include <exception>
#include <gtest/gtest.h>

using namespace vorn_test;

namespace {

volatile bool forever = true;

// Called through a pointer, so that the caller keeps what the unwinder needs.
[[gnu::noinline]] void Spin(std::atomic<int>* entered)
{
    *entered = 1;
    while (forever) YieldProcessor();
}

void (*volatile spin)(std::atomic<int>*) = &Spin;

// How many exceptions are in flight when it is destroyed.
struct Witness {
    explicit Witness(int* s) : seen(s) {}
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;
    ~Witness() { *seen = std::uncaught_exceptions(); }
    int* seen;
};

void CancelThere(const LibraryThread& thread, const std::atomic<int>& entered)
{
    AwaitFlag(entered);
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
}

}  // namespace

TEST(AsyncCancelException, IsInFlightWhileDestructorsRunAndHandledInAHandler)
{
    std::atomic<int> entered{0};
    int inner = -5;
    int inHandler = -5;
    int outer = -5;
    LibraryThread thread([&] {
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        const Witness passed(&outer);
        try {
            const Witness left(&inner);
            spin(&entered);
        } catch (...) {
            inHandler = std::uncaught_exceptions();
            throw;
        }
    });
    CancelThere(thread, entered);
    EXPECT_EQ(thread.Join(), kCancelled);
    EXPECT_EQ(inner, 1);
    EXPECT_EQ(inHandler, 0);
    EXPECT_EQ(outer, 1);
}

TEST(AsyncCancelException, IsInFlightAgainAfterAHandlerThatSwallowedIt)
{
    std::atomic<int> entered{0};
    int outer = -5;
    LibraryThread thread([&] {
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        const Witness passed(&outer);
        for (int i = 0; i < 3; ++i) {
            try {
                spin(&entered);
            } catch (...) {
                entered = 2;
            }
        }
    });
    CancelThere(thread, entered);
    EXPECT_EQ(thread.Join(), kCancelled);
    EXPECT_EQ(entered, 2);
    EXPECT_EQ(outer, 1);
}

TEST(AsyncCancelException, LeavesNoneToTheCleanupHandlers)
{
    struct Seen {
        int uncaught = -5;
        bool handling = true;
    } seen;
    std::atomic<int> entered{0};
    LibraryThread thread([&] {
        VornThreadCleanupPush(
            [](void* p) {
                static_cast<Seen*>(p)->uncaught = std::uncaught_exceptions();
                static_cast<Seen*>(p)->handling = std::current_exception() != nullptr;
            },
            &seen);
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        try {
            throw 1;
        } catch (int) {
            // Nothing here can throw, so the thread leaves without ending the handler.
            volatile int n = 0;
            entered = 1;
            while (forever) n = n + 1;
        }
    });
    CancelThere(thread, entered);
    EXPECT_EQ(thread.Join(), kCancelled);
    EXPECT_EQ(seen.uncaught, 0);
    EXPECT_FALSE(seen.handling);
}

TEST(AsyncCancelException, CanBeKeptByAHandlerBeyondTheEndOfTheThread)
{
    std::atomic<int> entered{0};
    std::exception_ptr kept;
    {
        LibraryThread thread([&] {
            VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
            try {
                spin(&entered);
            } catch (...) {
                kept = std::current_exception();
                throw;
            }
        });
        CancelThere(thread, entered);
        EXPECT_EQ(thread.Join(), kCancelled);
    }
    ASSERT_NE(kept, nullptr);
    bool caught = false;
    try {
        std::rethrow_exception(kept);
    } catch (...) {
        caught = true;
    }
    EXPECT_TRUE(caught);
    kept = nullptr;
}
