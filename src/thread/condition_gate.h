// condition_gate.h - the gate of a condition: closed by one thread at a time, for the moment in which it
// counts itself in or for a whole delivery, and opened by whoever ends that.
//
// The gate is a word, so that passing an open gate takes no system call. The semaphore is only for threads
// that have to sleep. A permit in it means "look at the word again", nothing more: one too many wakes a
// sleeper in vain, and the one with which the semaphore is made does so once.
#ifndef VORN_THREAD_CONDITION_GATE_H
#define VORN_THREAD_CONDITION_GATE_H

#include "thread/condition.h"

namespace vorn::detail {

// The context of a handler given to CloseGate.
struct GateContext {
    VornCondition* condition;
};

// Waits until the gate is open and closes it. With `undo` the wait is a cancellation point, and a cancelled
// thread calls undo(GateContext*) when its stack is gone; where that cannot be arranged for lack of memory,
// the wait is not a cancellation point. VORN_E_SYSTEM when the wait fails.
VornStatus CloseGate(VornCondition* condition, void (*undo)(void*));

// Opens the gate. A failure (VORN_E_RANGE, VORN_E_SYSTEM) means that a thread which sleeps at it was not
// woken.
VornStatus OpenGate(VornCondition* condition) noexcept;

// A wait that is no cancellation point, with the statuses of WaitCancellable.
VornStatus WaitPlain(HANDLE object, DWORD timeoutMs) noexcept;

}  // namespace vorn::detail

#endif
