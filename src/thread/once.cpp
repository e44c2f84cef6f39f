#include <vorn/thread.h>

#include "core/win32.h"

#include "thread/cleanup.h"
#include "thread/deferred_cancel.h"
#include "thread/thread_exception.h"
#include "thread/thread_lifecycle.h"
#include "thread/thread_record.h"

#include <atomic>
#include <type_traits>

static_assert(sizeof(VornOnce) == 16 && offsetof(VornOnce, queue) == 8);

namespace vorn::detail {

namespace {

// A word of a queue node: 0 not yet, -1 done, or the handle of the event that a thread sleeps on.
constexpr intptr_t kNotYet = 0;
constexpr intptr_t kDone = -1;

constexpr int kSpins = 100;

// One caller's place in the queue of a control. Whoever is first holds the control; the tail names the last.
// The node of a caller lives until it has released the queue, which may be after its stack is gone.
struct OnceNode {
    void** tail;
    std::atomic<OnceNode*> next;
    std::atomic<intptr_t> ready;  // set by the predecessor: this node is first
    std::atomic<intptr_t>
        linked;  // set by the successor: `next` is stored, and it will not touch this node again
};
static_assert(std::is_trivially_destructible_v<OnceNode>);

// Waits until another thread marks the word. Without an event to sleep on the wait goes on by looking: going
// on too early would let two threads hold the control.
void AwaitWord(std::atomic<intptr_t>* word) noexcept
{
    for (int i = 0; i < kSpins; ++i) {
        if (word->load() == kDone) return;
        YieldProcessor();
    }
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (event != nullptr) {
        intptr_t expected = kNotYet;
        if (word->compare_exchange_strong(expected, reinterpret_cast<intptr_t>(event))) {
            // At process end nobody is left to mark the word.
            if (!ProcessIsEnding()) WaitForSingleObject(event, INFINITE);
        }
        CloseHandle(event);
        return;
    }
    while (word->load() != kDone && !ProcessIsEnding()) Sleep(1);
}

// Marks a word of another thread's node, which may be gone once this has happened.
void MarkWord(std::atomic<intptr_t>* word) noexcept
{
    const intptr_t before = word->exchange(kDone);
    if (before != kNotYet && before != kDone) SetEvent(reinterpret_cast<HANDLE>(before));
}

void AcquireQueue(VornOnce* control, OnceNode* node) noexcept
{
    node->tail = &control->queue;
    auto* const predecessor =
        static_cast<OnceNode*>(__atomic_exchange_n(node->tail, static_cast<void*>(node), __ATOMIC_SEQ_CST));
    if (predecessor == nullptr) return;
    predecessor->next.store(node);
    MarkWord(&predecessor->linked);
    AwaitWord(&node->ready);
}

void ReleaseQueue(OnceNode* node) noexcept
{
    void* expected = node;
    if (node->next.load() == nullptr &&
        __atomic_compare_exchange_n(node->tail, &expected, static_cast<void*>(nullptr), false,
                                    __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
    {
        return;
    }
    // Also when `next` is there already: the successor's last access to this node is the mark.
    AwaitWord(&node->linked);
    OnceNode* const next = node->next.load();
    // At process end the successor may have been ended before it stored itself.
    if (next != nullptr) MarkWord(&next->ready);
}

// The cleanup handler of a thread that ends in the routine.
void LeaveQueue(void* node) noexcept
{
    ReleaseQueue(static_cast<OnceNode*>(node));
}

// Whether the calling thread is on its way to its end, so that its cleanup handlers will run.
bool IsBeingCancelled() noexcept
{
    const VornThread* const thread = CurrentThread();
    return thread != nullptr && thread->state.load() >= kStateCancelled;
}

// Gives the queue back after the routine.
void Leave(OnceNode* node, bool inCleanup)
{
    DeferredCancel deferral;
    ReleaseQueue(node);
    if (inCleanup) RemoveCleanup(node, false);
    deferral.End();
}

[[gnu::noinline]] void RunOnce(VornOnce* control, void (*routine)(void))
{
    // Half way into the queue, or out of it, a thread that was ended would keep the others waiting. In the
    // routine it may be ended anywhere.
    DeferredCancel deferral;
    OnceNode onStack = {};
    auto* const inCleanup = static_cast<OnceNode*>(PushCleanup(&LeaveQueue, sizeof(OnceNode)));
    // Without memory for a cleanup handler the routine runs all the same.
    OnceNode* const node = inCleanup != nullptr ? inCleanup : &onStack;
    AcquireQueue(control, node);
    try {
        deferral.End();
        if (__atomic_load_n(&control->done, __ATOMIC_ACQUIRE) == 0) {
            routine();
            __atomic_store_n(&control->done, 1u, __ATOMIC_RELEASE);
        }
    } catch (const ThreadException&) {
        // The thread ends: the cleanup handler releases the queue, in its turn among the routine's own
        // handlers, which may have to undo what the routine began before another thread runs it.
        if (inCleanup == nullptr) ReleaseQueue(node);
        throw;
    } catch (...) {
        if (inCleanup == nullptr || !IsBeingCancelled()) Leave(node, inCleanup != nullptr);
        throw;
    }
    Leave(node, inCleanup != nullptr);
}

}  // namespace

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" VornStatus VornThreadOnce(VornOnce* control, void (*routine)(void))
{
    if (control == nullptr || routine == nullptr) return VORN_E_INVALID_ARG;
    if (__atomic_load_n(&control->done, __ATOMIC_ACQUIRE) == 0) RunOnce(control, routine);
    return VORN_OK;
}
