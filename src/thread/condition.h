// condition.h - the record behind a condition handle, and what read-write locks use of conditions.
//
// Only src/thread includes this. Who may change what:
//   waitersBlocked                  with the gate closed (condition_gate.h); read under the unblock lock too
//   waitersGone, waitersToUnblock   under the unblock lock
// A delivery begins when a wake-up is promised to a waiter while waitersToUnblock is 0, and ends when the
// last promised wake-up has been taken. Invariants, whenever the unblock lock is free:
//   - waitersBlocked - waitersGone + waitersToUnblock threads are inside a wait;
//   - the gate is closed from the beginning of a delivery to its end, so that nobody who comes later is
//   inside;
//   - during a delivery waitersGone is 0, and no more than waitersToUnblock permits lie in the queue; outside
//     of one the queue is empty.
#ifndef VORN_THREAD_CONDITION_H
#define VORN_THREAD_CONDITION_H

#include <vorn/sync.h>

#include "core/win32.h"

#include "thread/semaphore.h"

#include <atomic>
#include <cstddef>

struct VornCondition {
    std::atomic<int32_t> waitersBlocked;  // have begun a wait and no wake-up is promised to them
    int32_t waitersGone;                  // of these, the ones that have left without a wake-up
    int32_t waitersToUnblock;             // promised wake-ups that are not yet taken
    VornSemaphore* blockQueue;            // where waiters sleep
    VornSemaphore* gate;                  // where threads sleep that find the gate closed
    VornMutex* unblockLock;
    // The gate's word and what keeps the record alive:
    std::atomic<int32_t> gateWord;
    std::atomic<int32_t> arriving;  // waiters on their way in, not counted in waitersBlocked yet
    std::atomic<int32_t>
        visitors;  // threads that will touch the record again; it is freed when there are none
};
static_assert(offsetof(VornCondition, waitersGone) == 4 && offsetof(VornCondition, waitersToUnblock) == 8 &&
              offsetof(VornCondition, blockQueue) == 16 && offsetof(VornCondition, gate) == 24 &&
              offsetof(VornCondition, unblockLock) == 32);

namespace vorn::detail {

inline VornStatus FirstFailure(VornStatus first, VornStatus second) noexcept
{
    return first != VORN_OK ? first : second;
}

// Waits for a wake-up with the mutex released. A cancellation point if `cancellable`, unless memory for the
// handler that keeps the counters right is exhausted. The mutex is locked again on every path; `*mutexHeld`
// says whether that succeeded.
VornStatus WaitOnCondition(VornCondition* condition, VornMutex** mutex, DWORD timeoutMs, bool cancellable,
                           bool* mutexHeld);

// Wakes one waiter, or all of them. On failure nobody was woken and nothing has changed, save where only the
// release of the unblock lock failed. A cancellation point only if `cancellable`.
VornStatus WakeWaiters(VornCondition* condition, bool all, bool cancellable);

// Destroys what VornConditionDestroy destroys, the initialiser apart. A cancellation point only if
// `cancellable`.
VornStatus DestroyCondition(VornCondition** variable, bool cancellable);

}  // namespace vorn::detail

#endif
