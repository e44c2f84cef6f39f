// cancellable_wait.h - the wait through which every long wait of the library goes.
#ifndef VORN_THREAD_CANCELLABLE_WAIT_H
#define VORN_THREAD_CANCELLABLE_WAIT_H

#include <vorn/status.h>

#include "core/win32.h"

namespace vorn::detail {

// Waits for `object`, at most timeoutMs milliseconds (INFINITE: without limit). A cancellation point: with
// cancellation enabled a pending request ends the calling thread here, by an exception that unwinds a
// library-started thread to its start routine, or at once for an adopted thread.
// Returns VORN_OK, VORN_E_TIMEOUT, or VORN_E_SYSTEM for any other outcome.
VornStatus WaitCancellable(HANDLE object, DWORD timeoutMs);

}  // namespace vorn::detail

#endif
