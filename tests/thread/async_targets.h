// async_targets.h - what threads do while they are cancelled asynchronously. async_targets.inc is compiled
// twice, without and with optimisation, because the compiler leaves different tables for the unwinder.
#ifndef VORN_TESTS_THREAD_ASYNC_TARGETS_H
#define VORN_TESTS_THREAD_ASYNC_TARGETS_H

#include <vorn/vorn.h>

#include <atomic>

struct AsyncCase {
    std::atomic<int> entered{0};     // set when the thread is where it is to be cancelled
    std::atomic<int> destroyed{0};   // local objects destroyed
    std::atomic<int> cleaned{0};     // cleanup handlers run
    std::atomic<int> finalised{0};   // destructors of thread-specific data run
    std::atomic<int> swallowed{0};   // handlers that caught the cancellation and did not pass it on
    VornOnce once = VORN_ONCE_INIT;  // outlives the thread's stack
    VornThreadKey* key = nullptr;
    VornThread* never = nullptr;  // a thread that does not end, to be joined
};

// How many local objects the unwinder can be relied on to destroy: those of frames that were left by a call
// which the compiler could not prove to be harmless.
struct AsyncTarget {
    const char* name;
    VornThreadStart function;
    int certainlyDestroyed;
};

extern const AsyncTarget kTargetsO0[];
extern const AsyncTarget kTargetsO2[];
extern const int kTargetCount;

#endif
