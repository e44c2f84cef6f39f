// cleanup.h - the stack of cleanup handlers of the calling thread, as the library itself uses it.
//
// A cancelled thread's handlers run when its stack is gone. A handler of the library therefore keeps what it
// needs in a context that lives in the handler's own node:
//
//     auto* wait = static_cast<WaitContext*>(PushCleanup(&FinishWait, sizeof(WaitContext)));
//     if (wait != nullptr) wait->condition = condition;
//     ... what may be cancelled ...
//     if (wait != nullptr) RemoveCleanup(wait, true);   // runs FinishWait(wait)
#ifndef VORN_THREAD_CLEANUP_H
#define VORN_THREAD_CLEANUP_H

#include <cstddef>

struct VornThread;

namespace vorn::detail {

// Pushes a handler that will be called with a zeroed context of `contextSize` bytes, and returns the context;
// null when memory is exhausted or the thread cannot be adopted: then no handler was pushed. The context
// lives until the handler has returned. The handler must not throw.
void* PushCleanup(void (*handler)(void*), size_t contextSize) noexcept;

// Takes the handler with this context off the calling thread's stack, wherever it stands there, runs it if
// asked to, and frees the context.
void RemoveCleanup(void* context, bool execute) noexcept;

// Runs every handler of the calling thread that is left, newest first.
void RunCleanupHandlers(VornThread* thread) noexcept;

// Frees a record's nodes without running their handlers.
void DropCleanupHandlers(VornThread* thread) noexcept;

}  // namespace vorn::detail

#endif
