// async_cancel.h - ends a thread wherever it is: its execution is diverted, its stack is unwound as far as
// the unwinder can follow, and it comes out in its start routine.
//
// The thread may be at any instruction, also where no exception can be thrown from. Such places are:
//   - functions in which the compiler proved that nothing throws, or that are declared so: the unwinder's
//     personality routine calls std::terminate for them;
//   - leaf functions, which have no unwind data;
//   - prologues and epilogues.
// So the unwinding does not rely on a throw. It walks the frames first and finds those that would end the
// process (the barriers). Between barriers it runs a forced unwind, which runs the destructors; a barrier's
// frame is stepped over without any. Where the walk itself cannot go on, the thread jumps to its start
// routine at once.
#ifndef VORN_THREAD_ASYNC_CANCEL_H
#define VORN_THREAD_ASYNC_CANCEL_H

#include <vorn/thread.h>

#include "core/win32.h"

#include <csetjmp>
#include <cstddef>
#include <unwind.h>

namespace vorn::detail {

// What a cancellation is to the C++ runtime while it unwinds, in the layout of the runtime's dependent
// exceptions: one more reference to an exception of the library's own. Handlers can catch it like any other,
// also where an exception is being handled already.
struct CancelException {
    void* primary;  // the exception object that is referred to
    void* unused[3];
    void* nextCaught;
    int32_t handlerCount;  // handlers that have caught it and have not ended
    int32_t handlerSwitch;
    void* handlerCache[4];
    _Unwind_Exception header;
};
static_assert(offsetof(CancelException, nextCaught) == 32 && offsetof(CancelException, header) == 80 &&
              sizeof(CancelException) == 144);

// What the C++ runtime keeps for a thread.
struct RuntimeState {
    void* caughtExceptions;  // those that are being handled, the innermost first
    unsigned uncaughtExceptions;
};

// Lives in the start routine's frame while the start function runs.
struct CancelUnwind {
    CONTEXT from;  // the frame from which unwinding goes on; first the interrupted one
    CONTEXT afterBarrier;
    jmp_buf escape;         // back to the start routine
    uintptr_t startRegion;  // the function that has this structure in its frame
    uintptr_t barrier;      // return address into the next barrier's frame; 0: none before the start routine
    CancelException exception;
    RuntimeState* runtime;  // null until the thread is asynchronous for the first time
};

// Makes `unwind` ready for the function that contains `address`. The caller then fills `escape`.
void PrepareCancelUnwind(CancelUnwind* unwind, const void* address) noexcept;

// What a thread has to do itself before it becomes asynchronous: the runtime allocates its state on first
// use, which a diverted thread could not do. Null is allowed.
void PrepareToBeDiverted(VornThread* thread) noexcept;

// Diverts a thread other than the caller's to end itself. VORN_E_SYSTEM when the system refuses (nothing
// changed); VORN_E_BUSY when its start function has ended meanwhile. The caller holds the state lock, has
// found the thread enabled and asynchronous, and keeps the record alive.
VornStatus DivertToCancellation(VornThread* thread) noexcept;

}  // namespace vorn::detail

#endif
