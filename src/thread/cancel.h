// cancel.h - how a thread acts on a request to end.
//
// Only src/thread includes this. A request is acted on at most once: from the moment at which the thread's
// state becomes kStateCancelled its cancellation is disabled.
#ifndef VORN_THREAD_CANCEL_H
#define VORN_THREAD_CANCEL_H

#include <vorn/thread.h>

#include "core/win32.h"

namespace vorn::detail {

// Whether the calling thread, whose record this is, may act on a request now. Never after its start function:
// a cleanup handler that enables cancellation again would unwind a stack that is gone. Nor before it, where
// another module uses the library as the thread comes up.
bool CancellationEnabled(const VornThread* thread) noexcept;

// Marks the thread as being cancelled. The caller holds the state lock, or is the only one left to take it.
void BeginCancellationLocked(VornThread* thread) noexcept;

// Ends the calling thread: unwinds a library-started thread to its start routine by an exception, ends any
// other thread at once with exit code 0xFFFFFFFF. The caller holds no lock of the record.
[[noreturn]] void ActOnCancellation();

// Acts on a request whose event has been signalled, at a point that waited for it. Returns VORN_E_SYSTEM when
// there is nothing to act on.
VornStatus CancelAfterEvent(VornThread* thread);

}  // namespace vorn::detail

#endif
